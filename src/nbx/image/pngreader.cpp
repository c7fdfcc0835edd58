// libpng leaves a function by `longjmp` where data are damaged: what it may leave holds nothing that needs a
// destructor, and `PngDecoder` frees what there is. Sizes are held against the bytes before memory is asked
// for: deflate has a greatest ratio. The header is read without the library, since its reader wants all
// bytes.

#include <nbx/image/pngreader.h>

#include <array>
#include <csetjmp>
#include <cstdint>
#include <cstring>
#include <memory>

#include <png.h>

#include <nbx/data/dataresource.h>
#include <nbx/image/memoryimage.h>

#include "storage.h"

namespace NBX {

NBX_CLASS_IMPL(PNGReader, SharedObj)

namespace {

constexpr std::size_t signatureBytes = 8;
/// Deflate makes at most this many bytes of one.
constexpr std::uint64_t maxInflation = 1032;
constexpr unsigned maxSide = 1U << 20;
/// A file of more chunks in front of its pixels only wants to waste time.
constexpr int maxChunks = 10000;
constexpr std::size_t maxChunkBytes = std::size_t{16} << 20;

/// All state of the decoder that outlives a `longjmp`; the functions that may be left by one hold nothing
/// that needs a destructor.
struct PngDecoder {
    png_structp png = nullptr;
    png_infop info = nullptr;
    const unsigned char * next = nullptr;
    std::size_t left = 0;

    ~PngDecoder() { png_destroy_read_struct(&png, &info, nullptr); }
};

void leaveReading(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}
void ignoreReadWarning(png_structp, png_const_charp) {}

void readBytes(png_structp png, png_bytep target, std::size_t count) {
    auto & decoder = *static_cast<PngDecoder *>(png_get_io_ptr(png));
    if (count > decoder.left) png_error(png, "end of data");
    std::memcpy(target, decoder.next, count);
    decoder.next += count;
    decoder.left -= count;
}

/// True when the packed lines could come out of the data.
bool isPlausible(const PngDecoder & decoder) {
    const std::uint64_t height = png_get_image_height(decoder.png, decoder.info);
    const std::uint64_t bytes = height * png_get_rowbytes(decoder.png, decoder.info);
    return bytes / maxInflation <= decoder.left + signatureBytes;
}

void setTransformations(const PngDecoder & decoder) {
    png_set_expand(decoder.png);
    png_set_interlace_handling(decoder.png);
    const std::uint16_t probe = 1;
    if (*reinterpret_cast<const unsigned char *>(&probe) == 1) png_set_swap(decoder.png);
    png_read_update_info(decoder.png, decoder.info);
}

/// Reads up to the first pixel; false for data that cannot be read.
bool begin(PngDecoder & decoder) {
    decoder.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, leaveReading, ignoreReadWarning);
    if (!decoder.png) return false;
    if (setjmp(png_jmpbuf(decoder.png))) return false;
    decoder.info = png_create_info_struct(decoder.png);
    if (!decoder.info) return false;
    png_set_user_limits(decoder.png, maxSide, maxSide);
    png_set_chunk_malloc_max(decoder.png, maxChunkBytes);
    png_set_read_fn(decoder.png, &decoder, readBytes);
    png_read_info(decoder.png, decoder.info);
    if (!isPlausible(decoder)) return false;
    setTransformations(decoder);
    return true;
}

bool readPixels(PngDecoder & decoder, png_bytepp rows) {
    if (setjmp(png_jmpbuf(decoder.png))) return false;
    png_read_image(decoder.png, rows);
    png_read_end(decoder.png, nullptr);
    return true;
}

std::uint32_t readU32(const unsigned char * p) {
    return std::uint32_t{p[0]} << 24 | p[1] << 16 | p[2] << 8 | p[3];
}

/// Whether a chunk in front of the pixels makes some of them transparent. `offset` is that of the second
/// chunk.
bool hasTransparentColors(const DataResource & data, std::uint64_t offset) {
    std::array<unsigned char, 8> chunk; // length of what it holds, and its name
    for (int i = 0; i < maxChunks && offset < data.size(); ++i) {
        if (data.read(static_cast<unsigned>(offset), chunk.data(), chunk.size()) != chunk.size()) break;
        if (!std::memcmp(chunk.data() + 4, "tRNS", 4)) return true;
        if (!std::memcmp(chunk.data() + 4, "IDAT", 4)) return false;
        offset += std::uint64_t{12} + readU32(chunk.data());
    }
    return false;
}

} // namespace

std::optional<ImageHeader> PNGReader::readHeader(const DataResource * data) {
    constexpr unsigned headerBytes = 25; // the first chunk with its length, name and check
    std::array<unsigned char, headerBytes> first;
    if (!recognizes(data) || data->read(signatureBytes, first.data(), headerBytes) != headerBytes ||
        std::memcmp(first.data() + 4, "IHDR", 4) != 0)
        return std::nullopt;
    const std::uint32_t width = readU32(first.data() + 8), height = readU32(first.data() + 12);
    if (width == 0 || height == 0 || width > INT32_MAX || height > INT32_MAX) return std::nullopt;
    const unsigned kind = first[17];
    const bool isGrey = kind == PNG_COLOR_TYPE_GRAY || kind == PNG_COLOR_TYPE_GRAY_ALPHA;
    const bool hasAlpha = kind == PNG_COLOR_TYPE_GRAY_ALPHA || kind == PNG_COLOR_TYPE_RGB_ALPHA ||
                          hasTransparentColors(*data, signatureBytes + headerBytes);
    return ImageHeader{static_cast<int>(width), static_cast<int>(height),
                       isGrey ? (hasAlpha ? LS_LuminanceAlpha : LS_Luminance) : (hasAlpha ? LS_RGBA : LS_RGB),
                       first[16] == 16 ? Image::UInt16 : Image::UInt8};
}

bool PNGReader::recognizes(const DataResource * data) {
    std::array<png_byte, signatureBytes> start;
    return data && data->read(0, start.data(), start.size()) == start.size() &&
           !png_sig_cmp(start.data(), 0, start.size());
}

SO<Image> PNGReader::read(const DataResource * data) {
    if (!recognizes(data)) return nullptr;
    PngDecoder decoder;
    decoder.next = static_cast<const unsigned char *>(data->pointer());
    decoder.left = data->size();
    if (!begin(decoder)) return nullptr;
    const int width = static_cast<int>(png_get_image_width(decoder.png, decoder.info));
    const int height = static_cast<int>(png_get_image_height(decoder.png, decoder.info));
    const bool wide = png_get_bit_depth(decoder.png, decoder.info) == 16;
    SO<MemoryImage> image(new MemoryImage(width, height,
                                          layersOfChannels(png_get_channels(decoder.png, decoder.info)),
                                          wide ? Image::UInt16 : Image::UInt8));
    if (image->width() != width) return nullptr;
    std::vector<png_bytep> rows(height);
    for (int y = 0; y < height; ++y)
        rows[y] = static_cast<png_bytep>(image->lineComponents(height - 1 - y));
    return readPixels(decoder, rows.data()) ? image : nullptr;
}

} // namespace NBX
