// The formats of OpenGL for an image, then how its lines lie in memory. Lines at even distances are sent in
// place where row length or alignment can express the distance; others are gathered first.

#include <nbx/gl/texture/imageopengltool.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include <GL/glew.h>

#include <nbx/image/image.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

namespace {

enum Precision { P_U8, P_U16, P_Half, P_Float };

Precision precision(const Image & image) {
    switch (image.dataType()) {
    case Image::UInt16:
        return P_U16;
    case Image::Half:
        return P_Half;
    case Image::Float:
        return P_Float;
    default:
        return P_U8;
    }
}

/// Internal formats by `Precision`.
struct InternalFormats {
    GLenum format[4];
};

InternalFormats internalFormats(LayerSequence sequence) {
    switch (sequence) {
    case LS_Luminance:
        return {{GL_LUMINANCE8, GL_LUMINANCE16, GL_LUMINANCE16F_ARB, GL_LUMINANCE32F_ARB}};
    case LS_LuminanceAlpha:
        return {{GL_LUMINANCE8_ALPHA8, GL_LUMINANCE16_ALPHA16, GL_LUMINANCE_ALPHA16F_ARB,
                 GL_LUMINANCE_ALPHA32F_ARB}};
    case LS_Alpha:
        return {{GL_ALPHA8, GL_ALPHA16, GL_ALPHA16F_ARB, GL_ALPHA32F_ARB}};
    case LS_Intensity:
        return {{GL_INTENSITY8, GL_INTENSITY16, GL_INTENSITY16F_ARB, GL_INTENSITY32F_ARB}};
    case LS_RGB:
    case LS_BGR:
        return {{GL_RGB8, GL_RGB16, GL_RGB16F_ARB, GL_RGB32F_ARB}};
    case LS_RGBA:
    case LS_BGRA:
        break;
    }
    return {{GL_RGBA8, GL_RGBA16, GL_RGBA16F_ARB, GL_RGBA32F_ARB}};
}

std::ptrdiff_t bytesPerPixel(const Image & image) {
    return image.bitsPerPixel() / 8;
}

/// Distance of two lines; 0 when the lines do not lie evenly.
std::ptrdiff_t linePitch(const Image & image) {
    const auto * first = static_cast<const char *>(image.lineComponents(0));
    const std::ptrdiff_t lineBytes = image.width() * bytesPerPixel(image);
    if (image.height() == 1) return lineBytes;
    const std::ptrdiff_t pitch = static_cast<const char *>(image.lineComponents(1)) - first;
    if (pitch < lineBytes) return 0;
    for (int y = 2; y < image.height(); ++y)
        if (static_cast<const char *>(image.lineComponents(y)) != first + y * pitch) return 0;
    return pitch;
}

/// Sets alignment and line length for a pitch; false when OpenGL cannot express it.
bool setLinePitch(std::ptrdiff_t pitch, const Image & image, bool pack) {
    const std::ptrdiff_t pixelBytes = bytesPerPixel(image);
    const std::ptrdiff_t lineBytes = image.width() * pixelBytes;
    GLint rowLength = 0, alignment = 1;
    bool possible = true;
    if (pitch % pixelBytes == 0) {
        rowLength = static_cast<GLint>(pitch / pixelBytes);
    } else {
        const auto fits = [&](int a) { return (lineBytes + a - 1) / a * a == pitch; };
        possible = fits(2) || fits(4) || fits(8);
        if (possible) alignment = fits(2) ? 2 : fits(4) ? 4 : 8;
    }
    glPixelStorei(pack ? GL_PACK_ROW_LENGTH : GL_UNPACK_ROW_LENGTH, rowLength);
    glPixelStorei(pack ? GL_PACK_ALIGNMENT : GL_UNPACK_ALIGNMENT, alignment);
    return possible;
}

/// The lines one behind the other.
std::vector<char> gatherLines(const Image & image) {
    const std::size_t lineBytes = static_cast<std::size_t>(image.width() * bytesPerPixel(image));
    std::vector<char> lines(lineBytes * static_cast<std::size_t>(image.height()));
    for (int y = 0; y < image.height(); ++y)
        std::memcpy(lines.data() + lineBytes * static_cast<std::size_t>(y), image.lineComponents(y),
                    lineBytes);
    return lines;
}

} // namespace

unsigned ImageOpenGLTool::format(const Image * image) {
    NBX_CHECK(image, L"no image");
    if (!image) return GL_RGBA;
    switch (image->layerSequence()) {
    case LS_Luminance:
    case LS_Intensity:
        return GL_LUMINANCE;
    case LS_LuminanceAlpha:
        return GL_LUMINANCE_ALPHA;
    case LS_Alpha:
        return GL_ALPHA;
    case LS_RGB:
        return GL_RGB;
    case LS_BGR:
        return GL_BGR;
    case LS_BGRA:
        return GL_BGRA;
    case LS_RGBA:
        break;
    }
    return GL_RGBA;
}

unsigned ImageOpenGLTool::type(const Image * image) {
    NBX_CHECK(image, L"no image");
    if (!image) return GL_UNSIGNED_BYTE;
    static const GLenum types[] = {GL_UNSIGNED_BYTE, GL_UNSIGNED_SHORT, GL_HALF_FLOAT, GL_FLOAT};
    return types[precision(*image)];
}

unsigned ImageOpenGLTool::internalFormat(const Image * image) {
    NBX_CHECK(image, L"no image");
    if (!image) return GL_RGBA8;
    return internalFormats(image->layerSequence()).format[precision(*image)];
}

bool ImageOpenGLTool::setPixelStoreModes(const Image * image, bool pack) {
    NBX_CHECK(image, L"no image");
    glPixelStorei(pack ? GL_PACK_SWAP_BYTES : GL_UNPACK_SWAP_BYTES, GL_FALSE);
    glPixelStorei(pack ? GL_PACK_LSB_FIRST : GL_UNPACK_LSB_FIRST, GL_FALSE);
    glPixelStorei(pack ? GL_PACK_SKIP_PIXELS : GL_UNPACK_SKIP_PIXELS, 0);
    glPixelStorei(pack ? GL_PACK_SKIP_ROWS : GL_UNPACK_SKIP_ROWS, 0);
    if (!image || image->width() <= 0 || image->height() <= 0) return false;
    const std::ptrdiff_t pitch = linePitch(*image);
    if (pitch != 0 && setLinePitch(pitch, *image, pack)) return true;
    setLinePitch(image->width() * bytesPerPixel(*image), *image, pack);
    return false;
}

void ImageOpenGLTool::textureImage2D(const Image * image, int level, unsigned internalFormat) {
    NBX_CHECK(image, L"no image");
    if (!image || image->width() <= 0 || image->height() <= 0) return;
    glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
    GLint boundBuffer = 0;
    glGetIntegerv(GL_PIXEL_UNPACK_BUFFER_BINDING, &boundBuffer);
    if (boundBuffer != 0) glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);

    const bool even = setPixelStoreModes(image, false);
    const std::vector<char> gathered = even ? std::vector<char>() : gatherLines(*image);
    glTexImage2D(GL_TEXTURE_2D, level, static_cast<GLint>(internalFormat), image->width(), image->height(), 0,
                 format(image), type(image), even ? image->lineComponents(0) : gathered.data());

    if (boundBuffer != 0) glBindBuffer(GL_PIXEL_UNPACK_BUFFER, static_cast<GLuint>(boundBuffer));
    glPopClientAttrib();
}

} // namespace NBX
