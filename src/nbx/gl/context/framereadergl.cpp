#include "framereadergl.h"

#include <cstring>
#include <vector>

#include <GL/glew.h>

#include <nbx/image/image.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

namespace {

/// 0 when there is none.
GLenum formatOf(const Image & image) {
    switch (image.layerSequence()) {
    case LS_Luminance:
    case LS_Intensity:
        return GL_RED;
    case LS_Alpha:
        return GL_ALPHA;
    case LS_RGB:
        return GL_RGB;
    case LS_RGBA:
        return GL_RGBA;
    case LS_BGR:
        return GL_BGR;
    case LS_BGRA:
        return GL_BGRA;
    case LS_LuminanceAlpha:
        break;
    }
    return 0;
}

GLenum typeOf(const Image & image) {
    switch (image.dataType()) {
    case Image::UInt16:
        return GL_UNSIGNED_SHORT;
    case Image::Half:
        return GL_HALF_FLOAT;
    case Image::Float:
        return GL_FLOAT;
    default:
        return GL_UNSIGNED_BYTE;
    }
}

bool liesInside(const Image & image, const Area & source, int x, int y) {
    return x >= 0 && y >= 0 && std::int64_t(x) + source.getWidth() <= image.width() &&
           std::int64_t(y) + source.getHeight() <= image.height();
}

/// The pixels, line by line without gaps.
std::vector<unsigned char> readTightly(const Image & like, const Area & source, std::size_t lineBytes) {
    std::vector<unsigned char> pixels(lineBytes * source.getHeight());
    glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    glPixelStorei(GL_PACK_SWAP_BYTES, GL_FALSE);
    glPixelStorei(GL_PACK_ROW_LENGTH, 0);
    glPixelStorei(GL_PACK_SKIP_ROWS, 0);
    glPixelStorei(GL_PACK_SKIP_PIXELS, 0);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(source.getX(), source.getY(), GLsizei(source.getWidth()), GLsizei(source.getHeight()),
                 formatOf(like), typeOf(like), pixels.data());
    glPopClientAttrib();
    return pixels;
}

} // namespace

bool FrameReaderGL::canRead(const Image & target) {
    return target.isWritable() && formatOf(target) != 0;
}

bool FrameReaderGL::read(Image * target, const Area & source, int x, int y) {
    NBX_CHECK(target, L"no target image");
    if (!target) return false;
    const bool readable = canRead(*target);
    NBX_CHECK(readable, L"the image cannot take pixels of the frame buffer");
    const bool inside = liesInside(*target, source, x, y);
    NBX_CHECK(inside, L"the pixels do not lie inside the image");
    if (!readable || !inside) return false;
    const auto pixelBytes = std::size_t(target->bitsPerPixel()) / 8;
    const std::size_t lineBytes = pixelBytes * source.getWidth();
    if (lineBytes == 0 || source.getHeight() == 0) return true;
    const std::vector<unsigned char> pixels = readTightly(*target, source, lineBytes);
    for (unsigned line = 0; line < source.getHeight(); ++line) {
        auto * to = static_cast<unsigned char *>(target->lineComponents(y + int(line)));
        std::memcpy(to + pixelBytes * std::size_t(x), pixels.data() + lineBytes * line, lineBytes);
    }
    target->modified();
    return true;
}

} // namespace NBX
