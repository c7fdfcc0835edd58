#include <nbx/image/pngwriter.h>

#include <algorithm>
#include <csetjmp>
#include <cstdint>
#include <limits>
#include <new>

#include <png.h>

#include <nbx/data/memorydataresource.h>
#include <nbx/object/errorhandler.h>

#include "pixelline.h"

namespace NBX {

NBX_CLASS_IMPL(PNGWriter, SharedObj)

namespace {

/// All state of the encoder that outlives a `longjmp`.
struct PngEncoder {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::vector<unsigned char> bytes;

    ~PngEncoder() { png_destroy_write_struct(&png, &info); }
};

void leaveWriting(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}
void ignoreWriteWarning(png_structp, png_const_charp) {}

bool append(std::vector<unsigned char> & target, const unsigned char * bytes, std::size_t count) {
    if (count > std::numeric_limits<unsigned>::max() - target.size()) return false;
    try {
        target.insert(target.end(), bytes, bytes + count);
    } catch (const std::bad_alloc &) {
        return false;
    }
    return true;
}

void writeBytes(png_structp png, png_bytep bytes, std::size_t count) {
    if (!append(static_cast<PngEncoder *>(png_get_io_ptr(png))->bytes, bytes, count))
        png_error(png, "too large");
}

void flushBytes(png_structp) {}

int colorType(LayerSequence sequence) {
    switch (sequence) {
    case LS_Luminance:
        return PNG_COLOR_TYPE_GRAY;
    case LS_LuminanceAlpha:
        return PNG_COLOR_TYPE_GRAY_ALPHA;
    case LS_RGB:
        return PNG_COLOR_TYPE_RGB;
    default:
        return PNG_COLOR_TYPE_RGB_ALPHA;
    }
}

/// The nearest layers that the format has.
LayerSequence storedLayers(LayerSequence sequence) {
    switch (sequence) {
    case LS_Alpha:
    case LS_Intensity:
        return LS_LuminanceAlpha;
    case LS_BGR:
        return LS_RGB;
    case LS_BGRA:
        return LS_RGBA;
    default:
        return sequence;
    }
}

bool begin(PngEncoder & encoder, const Image & image, LayerSequence sequence, int depth, int level) {
    encoder.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, leaveWriting, ignoreWriteWarning);
    if (!encoder.png) return false;
    if (setjmp(png_jmpbuf(encoder.png))) return false;
    encoder.info = png_create_info_struct(encoder.png);
    if (!encoder.info) return false;
    png_set_user_limits(encoder.png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_write_fn(encoder.png, &encoder, writeBytes, flushBytes);
    png_set_compression_level(encoder.png, level);
    png_set_IHDR(encoder.png, encoder.info, static_cast<png_uint_32>(image.width()),
                 static_cast<png_uint_32>(image.height()), depth, colorType(sequence), PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(encoder.png, encoder.info);
    const std::uint16_t probe = 1;
    if (depth == 16 && *reinterpret_cast<const unsigned char *>(&probe) == 1) png_set_swap(encoder.png);
    return true;
}

bool writeLine(PngEncoder & encoder, const unsigned char * line) {
    if (setjmp(png_jmpbuf(encoder.png))) return false;
    png_write_row(encoder.png, line);
    return true;
}

bool finish(PngEncoder & encoder) {
    if (setjmp(png_jmpbuf(encoder.png))) return false;
    png_write_end(encoder.png, nullptr);
    return true;
}

bool writeLines(PngEncoder & encoder, const Image & image, LayerSequence sequence, Image::DataType type) {
    std::vector<unsigned char> line(Image::bytesPerLine(image.width(), sequence, type, 1));
    for (int y = image.height() - 1; y >= 0; --y) {
        PixelLine::convert(image.lineComponents(y), image.layerSequence(), image.dataType(), line.data(),
                           sequence, type, image.width());
        if (!writeLine(encoder, line.data())) return false;
    }
    return true;
}

} // namespace

PNGWriter::PNGWriter(int level) : level_(std::clamp(level, 0, 9)) {
    NBX_CHECK(0 <= level && level <= 9, L"PNG level is from 0 to 9: " << level);
}

SO<MemoryDataResource> PNGWriter::write(const Image * image) {
    NBX_CHECK(image, L"no image");
    if (!image || image->width() <= 0 || image->height() <= 0) return nullptr;
    const LayerSequence sequence = storedLayers(image->layerSequence());
    const Image::DataType type = image->dataType() == Image::UInt8 ? Image::UInt8 : Image::UInt16;
    PngEncoder encoder;
    if (!begin(encoder, *image, sequence, type == Image::UInt8 ? 8 : 16, level_) ||
        !writeLines(encoder, *image, sequence, type) || !finish(encoder)) {
        NBX_FAILURE(L"PNG encoding failed");
        return nullptr;
    }
    return new MemoryDataResource(encoder.bytes.data(), static_cast<unsigned>(encoder.bytes.size()), true);
}

} // namespace NBX
