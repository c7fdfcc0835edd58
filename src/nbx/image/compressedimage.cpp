// The data is a header and the pixels in one resource, so that it is stored and sent as it is. Compressing
// and decoding go by four lines for blocks, and by lines for words of 16 bits. The decoded pixels are made by
// the first who asks, and kept. The compression named JPEG holds plain bytes.

#include <nbx/image/compressedimage.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <mutex>
#include <optional>

#include <nbx/data/memorydataresource.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>

#include "dxt1encoder.h"
#include "pixelline.h"
#include "s3tc.h"

namespace NBX {

NBX_STORED_CLASS_IMPL(CompressedImage, Image)

/// The pixels as 8 bits a layer, made by the first who asks.
struct CompressedImage::Decoded {
    std::once_flag once;
    SO<MemoryImage> image;
};

namespace {

using Compression = CompressedImage::Compression;

constexpr char magic[] = {'C', 'P', 'R', 'S'};

struct Header {
    unsigned compression, layerSequence;
    std::uint32_t width, height;
};

std::uint32_t readLittleEndian(const unsigned char * p, int bytes) {
    std::uint32_t value = 0;
    for (int i = 0; i < bytes; ++i)
        value |= static_cast<std::uint32_t>(p[i]) << (8 * i);
    return value;
}

void writeLittleEndian(unsigned char * p, int bytes, std::uint32_t value) {
    for (int i = 0; i < bytes; ++i)
        p[i] = static_cast<unsigned char>(value >> (8 * i));
}

void writeHeader(unsigned char * p, const Header & header) {
    std::memcpy(p, magic, sizeof(magic));
    writeLittleEndian(p + 4, 2, header.compression);
    writeLittleEndian(p + 6, 2, header.layerSequence);
    writeLittleEndian(p + 8, 4, header.width);
    writeLittleEndian(p + 12, 4, header.height);
}

bool readHeader(const unsigned char * p, Header & header) {
    header = {readLittleEndian(p + 4, 2), readLittleEndian(p + 6, 2), readLittleEndian(p + 8, 4),
              readLittleEndian(p + 12, 4)};
    const auto goodSide = [](std::uint32_t side) { return side > 0 && side <= CompressedImage::maxSize; };
    return !std::memcmp(p, magic, sizeof(magic)) && goodSide(header.width) && goodSide(header.height);
}

S3TC::Format blockFormat(Compression compression) {
    switch (compression) {
    case CompressedImage::DXT1A:
        return S3TC::Format::DXT1A;
    case CompressedImage::DXT3:
        return S3TC::Format::DXT3;
    case CompressedImage::DXT5:
        return S3TC::Format::DXT5;
    default:
        return S3TC::Format::DXT1;
    }
}

/// The layers of the decoded pixels.
LayerSequence layersOf(Compression compression, LayerSequence stored) {
    switch (compression) {
    case CompressedImage::DXT1:
        return LS_RGB;
    case CompressedImage::DXT1A:
    case CompressedImage::DXT3:
    case CompressedImage::DXT5:
        return LS_RGBA;
    case CompressedImage::BGRA5551:
    case CompressedImage::BGRA4444:
        return LS_BGRA;
    default:
        return stored;
    }
}

bool isKnown(unsigned compression) {
    return compression <= CompressedImage::DXT5 ||
           (compression >= CompressedImage::BGRA5551 && compression <= CompressedImage::JPEG);
}

/// The pixels [4 * column, + 4) of four lines, with the last ones repeated beyond the edges.
void gatherBlock(const std::array<std::vector<unsigned char>, 4> & lines, int column, int width,
                 unsigned char * pixels) {
    for (int i = 0; i < 16; ++i, pixels += 4) {
        const int x = std::min(4 * column + i % 4, width - 1);
        std::memcpy(pixels, lines[i / 4].data() + 4 * static_cast<std::size_t>(x), 4);
    }
}

void compressBlocks(S3TC::Format format, const Image & image, unsigned char * block) {
    const int width = image.width(), height = image.height();
    std::array<std::vector<unsigned char>, 4> lines;
    for (std::vector<unsigned char> & line : lines)
        line.resize(4 * static_cast<std::size_t>(width));
    alignas(16) std::array<unsigned char, 64> pixels;
    for (int y = 0; y < height; y += 4) {
        for (int i = 0; i < 4; ++i)
            PixelLine::convert(image.lineComponents(std::min(y + i, height - 1)), image.layerSequence(),
                               image.dataType(), lines[i].data(), LS_RGBA, Image::UInt8, width);
        for (int column = 0; column < (width + 3) / 4; ++column, block += S3TC::blockBytes(format)) {
            gatherBlock(lines, column, width, pixels.data());
            S3TC::encode(format, pixels.data(), block);
        }
    }
}

/// How the encoder of opaque blocks finds the colours of an image by itself; none where these are to be
/// converted before.
std::optional<DXT1Encoder::PixelForm> pixelFormOf(const Image & image) {
    if (image.dataType() != Image::UInt8) return std::nullopt;
    const int bytes = image.numberOfLayers();
    switch (image.layerSequence()) {
    case LS_RGB:
    case LS_RGBA:
        return DXT1Encoder::PixelForm{bytes, {0, 1, 2}};
    case LS_BGR:
    case LS_BGRA:
        return DXT1Encoder::PixelForm{bytes, {2, 1, 0}};
    case LS_Luminance:
    case LS_LuminanceAlpha:
    case LS_Intensity:
        return DXT1Encoder::PixelForm{bytes, {0, 0, 0}};
    default:
        return std::nullopt;
    }
}

void compressOpaqueBlocks(const Image & image, unsigned char * block) {
    const int width = image.width(), height = image.height();
    const std::optional<DXT1Encoder::PixelForm> form = pixelFormOf(image);
    std::array<std::vector<unsigned char>, 4> converted;
    std::array<const unsigned char *, 4> lines{};
    for (int y = 0; y < height; y += 4, block += 8 * static_cast<std::size_t>((width + 3) / 4)) {
        for (std::size_t i = 0; i < 4; ++i) {
            const void * line = image.lineComponents(std::min(y + static_cast<int>(i), height - 1));
            lines[i] = static_cast<const unsigned char *>(line);
            if (form) continue;
            converted[i].resize(3 * static_cast<std::size_t>(width));
            PixelLine::convert(line, image.layerSequence(), image.dataType(), converted[i].data(), LS_RGB,
                               Image::UInt8, width);
            lines[i] = converted[i].data();
        }
        DXT1Encoder::encodeRow(lines, form.value_or(DXT1Encoder::PixelForm{3, {0, 1, 2}}), width, block);
    }
}

void decodeBlocks(S3TC::Format format, const unsigned char * block, Image & image) {
    const int width = image.width(), height = image.height(), columns = (width + 3) / 4;
    const std::size_t lineBytes = 16 * static_cast<std::size_t>(columns);
    std::vector<unsigned char> lines(4 * lineBytes);
    alignas(16) std::array<unsigned char, 64> pixels;
    for (int y = 0; y < height; y += 4) {
        for (int column = 0; column < columns; ++column, block += S3TC::blockBytes(format)) {
            S3TC::decode(format, block, pixels.data());
            for (std::size_t i = 0; i < 4; ++i)
                std::memcpy(&lines[i * lineBytes + std::size_t{16} * column], &pixels[16 * i], 16);
        }
        for (int i = 0; i < std::min(4, height - y); ++i)
            PixelLine::convert(&lines[i * lineBytes], LS_RGBA, Image::UInt8, image.lineComponents(y + i),
                               image.layerSequence(), Image::UInt8, width);
    }
}

/// `value` of 8 bits to the nearest of `bits` bits.
unsigned quantized(unsigned value, int bits) {
    const unsigned largest = (1U << bits) - 1;
    return (value * largest * 2 + 255) / 510;
}

unsigned char widened(unsigned value, int bits) {
    const unsigned largest = (1U << bits) - 1;
    return static_cast<unsigned char>((value * 510 + largest) / (2 * largest));
}

/// Bits of blue, green, red and alpha, from the highest bit of a word.
std::array<int, 4> wordBits(Compression compression) {
    return compression == CompressedImage::BGRA5551 ? std::array<int, 4>{5, 5, 5, 1}
                                                    : std::array<int, 4>{4, 4, 4, 4};
}

void compressWords(Compression compression, const Image & image, unsigned char * out) {
    const std::array<int, 4> bits = wordBits(compression);
    std::vector<unsigned char> line(4 * static_cast<std::size_t>(image.width()));
    for (int y = 0; y < image.height(); ++y) {
        PixelLine::convert(image.lineComponents(y), image.layerSequence(), image.dataType(), line.data(),
                           LS_BGRA, Image::UInt8, image.width());
        for (std::size_t i = 0; i < line.size(); i += 4, out += 2) {
            unsigned word = 0;
            for (int c = 0; c < 4; ++c)
                word = word << bits[c] | quantized(line[i + c], bits[c]);
            const auto stored = static_cast<std::uint16_t>(word);
            std::memcpy(out, &stored, 2);
        }
    }
}

void decodeWords(Compression compression, const unsigned char * in, Image & image) {
    const std::array<int, 4> bits = wordBits(compression);
    for (int y = 0; y < image.height(); ++y) {
        unsigned char * pixel = image.lineComponentsU8(y);
        for (int x = 0; x < image.width(); ++x, in += 2, pixel += 4) {
            std::uint16_t stored;
            std::memcpy(&stored, in, 2);
            unsigned word = stored;
            for (int c = 3; c >= 0; word >>= bits[c], --c)
                pixel[c] = widened(word & ((1U << bits[c]) - 1), bits[c]);
        }
    }
}

} // namespace

CompressedImage::CompressedImage() : Image(LS_RGB, UInt8) {
    clear();
}

CompressedImage::CompressedImage(Compression compression, const Image * image, const std::wstring & name)
    : CompressedImage() {
    setObjectName(name);
    const bool hasPixels = image && image->width() > 0 && image->height() > 0;
    NBX_CHECK(hasPixels, L"no image");
    NBX_CHECK(isKnown(compression), L"unknown compression: " << static_cast<int>(compression));
    if (!hasPixels || !isKnown(compression)) return;
    if (std::max(image->width(), image->height()) > maxSize) {
        NBX_FAILURE(L"image too large for compression: " << image->width() << L" x " << image->height());
        return;
    }
    compress(compression, *image);
}

CompressedImage::CompressedImage(DataResource * rawData) : CompressedImage() {
    setRawData(rawData);
}

CompressedImage::~CompressedImage() = default;

std::size_t CompressedImage::dataSize(Compression compression, int width, int height,
                                      LayerSequence sequence) {
    if (!isKnown(compression) || width <= 0 || height <= 0) return 0;
    const auto w = static_cast<std::size_t>(width), h = static_cast<std::size_t>(height);
    if (isBlockFormat(compression))
        return (w + 3) / 4 * ((h + 3) / 4) * S3TC::blockBytes(blockFormat(compression));
    if (compression == JPEG) return bytesPerLine(width, sequence, UInt8, 1) * h;
    return 2 * w * h;
}

bool CompressedImage::isRawData(const DataResource & data) {
    std::array<char, sizeof(magic)> start;
    return data.size() >= headerSize && data.read(0, start.data(), start.size()) == start.size() &&
           !std::memcmp(start.data(), magic, start.size());
}

SO<DataResource> CompressedImage::newRawData(Compression compression, int width, int height,
                                             const void * pixels, std::size_t bytes) {
    SO<DataResource> raw(new MemoryDataResource(headerSize + static_cast<unsigned>(bytes), true));
    auto * start = static_cast<unsigned char *>(raw->pointer());
    writeHeader(start, {static_cast<unsigned>(compression), 0, static_cast<std::uint32_t>(width),
                        static_cast<std::uint32_t>(height)});
    std::memcpy(start + headerSize, pixels, bytes);
    return raw;
}

void CompressedImage::clear() {
    width_ = height_ = 0;
    dataSize_ = 0;
    rawData_ = nullptr;
    decoded_ = std::make_unique<Decoded>();
}

void CompressedImage::compress(Compression compression, const Image & image) {
    const LayerSequence stored = image.layerSequence();
    const std::size_t bytes = dataSize(compression, image.width(), image.height(), stored);
    if (bytes > std::numeric_limits<unsigned>::max() - headerSize) {
        NBX_FAILURE(L"image too large for compression: " << image.width() << L" x " << image.height());
        return;
    }
    SO<DataResource> raw(new MemoryDataResource(headerSize + static_cast<unsigned>(bytes), true));
    auto * start = static_cast<unsigned char *>(raw->pointer());
    writeHeader(start,
                {static_cast<unsigned>(compression), static_cast<unsigned>(compression == JPEG ? stored : 0),
                 static_cast<std::uint32_t>(image.width()), static_cast<std::uint32_t>(image.height())});
    unsigned char * out = start + headerSize;
    if (compression == DXT1)
        compressOpaqueBlocks(image, out);
    else if (isBlockFormat(compression))
        compressBlocks(blockFormat(compression), image, out);
    else if (compression != JPEG)
        compressWords(compression, image, out);
    for (int y = 0; compression == JPEG && y < image.height(); ++y, out += bytes / image.height())
        PixelLine::convert(image.lineComponents(y), stored, image.dataType(), out, stored, UInt8,
                           image.width());
    setRawData(raw.get());
}

void CompressedImage::setRawData(DataResource * rawData) {
    const SO<DataResource> kept(rawData);
    clear();
    NBX_CHECK(rawData, L"no data");
    if (!rawData) return;
    Header header{};
    const bool sound =
        rawData->size() >= headerSize &&
        readHeader(static_cast<const unsigned char *>(rawData->pointer()), header) &&
        isKnown(header.compression) &&
        (header.compression != JPEG || isValidFormat(static_cast<int>(header.layerSequence), UInt8));
    const auto compression = static_cast<Compression>(sound ? header.compression : 0);
    const auto stored = compression == JPEG ? static_cast<LayerSequence>(header.layerSequence) : LS_RGB;
    const std::size_t bytes =
        sound ? dataSize(compression, static_cast<int>(header.width), static_cast<int>(header.height), stored)
              : 0;
    if (!sound || bytes > rawData->size() - headerSize) {
        NBX_FAILURE(L"unusable data of a compressed image");
        return;
    }
    setFormat(layersOf(compression, stored), UInt8);
    compression_ = compression;
    width_ = static_cast<int>(header.width);
    height_ = static_cast<int>(header.height);
    dataSize_ = static_cast<unsigned>(bytes);
    rawData_ = kept;
}

const unsigned char * CompressedImage::pixelData() const {
    return static_cast<const unsigned char *>(rawData_->pointer()) + headerSize;
}

const Image & CompressedImage::decoded() const {
    std::call_once(decoded_->once, [this] {
        decoded_->image = new MemoryImage(width_, height_, layerSequence(), UInt8);
        if (isBlockFormat(compression_))
            decodeBlocks(blockFormat(compression_), pixelData(), *decoded_->image);
        else
            decodeWords(compression_, pixelData(), *decoded_->image);
    });
    return *decoded_->image;
}

const void * CompressedImage::lineComponents(int y) const {
    NBX_CHECK_RANGE(0, y, height_);
    if (y < 0 || y >= height_) return nullptr;
    if (compression_ == JPEG) return pixelData() + y * bytesPerLine(width_, layerSequence(), UInt8, 1);
    return decoded().lineComponents(y);
}

SO<Image> CompressedImage::uncompressed(bool) {
    return Image::uncompressed(true);
}

std::vector<SO<Image>> CompressedImage::createMipmapPyramid() {
    if (isEmpty()) return {};
    std::vector<SO<Image>> levels = Image::createMipmapPyramid();
    for (std::size_t i = 1; i < levels.size(); ++i)
        levels[i] = new CompressedImage(compression_, levels[i].get());
    return levels;
}

void CompressedImage::flip(bool alongX, bool alongY) {
    if (alongX && !isEmpty()) {
        const SO<Image> pixels = uncompressed(true);
        pixels->flip(true, alongY);
        compress(compression_, *pixels);
        modified();
    } else if (alongY) {
        flipY();
    }
}

void CompressedImage::flipY() {
    if (isEmpty()) return;
    if (isBlockFormat(compression_) && height_ > 4 && height_ % 4) {
        const SO<Image> pixels = uncompressed(true);
        pixels->flip(false, true);
        compress(compression_, *pixels);
        modified();
        return;
    }
    // The data may be shared or read only, so the turned ones are new.
    const int rows = isBlockFormat(compression_) ? (height_ + 3) / 4 : height_;
    const std::size_t rowBytes = dataSize_ / rows;
    SO<DataResource> turned(new MemoryDataResource(rawData_->pointer(), headerSize + dataSize_, true));
    auto * out = static_cast<unsigned char *>(turned->pointer()) + headerSize;
    for (int row = 0; row < rows; ++row)
        std::memcpy(out + row * rowBytes, pixelData() + (rows - 1 - row) * rowBytes, rowBytes);
    if (isBlockFormat(compression_)) {
        const S3TC::Format format = blockFormat(compression_);
        for (std::size_t i = 0; i < dataSize_; i += S3TC::blockBytes(format))
            S3TC::reverseLines(format, out + i, std::min(4, height_));
    }
    setRawData(turned.get());
    modified();
}

void CompressedImage::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Image>(m, this);
    unsigned size = rawData_ ? headerSize + dataSize_ : 0;
    attributeWithDefault(m, "size", size, 0U);
    if (m.isReading()) {
        clear();
        if (size < headerSize || size > m.bytesLeft()) return;
        SO<DataResource> raw(new MemoryDataResource(size, true));
        if (m.rawAttribute("rawData", raw->pointer(), size)) setRawData(raw.get());
    } else if (size) {
        m.rawAttribute("rawData", rawData_->pointer(), size);
    }
}

} // namespace NBX
