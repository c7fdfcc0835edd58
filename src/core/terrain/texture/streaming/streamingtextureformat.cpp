// What makes a record sound, and which of the formats of pixels there are images for. Numbers of a file are
// bounded before anything is computed with them.

#include "streamingtextureformat.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <string>

#include "core/terrain/geometry/grid/model/tileblock.h"
#include <nbx/data/datasubresource.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/image/compressedimage.h>
#include <nbx/image/decoratedimage.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>

namespace ZMT::CORE::StreamingTextureFormat {

// The records are copied as they lie in memory, and so are pixels of 16 and 32 bits.
static_assert(std::endian::native == std::endian::little);

namespace {

using NBX::CompressedImage;
using NBX::Image;

/// So that differences and products of coordinates stay finite.
constexpr double s_largestCoordinate = 1e100;

bool isInterval(double min, double max) {
    return min < max && std::abs(min) <= s_largestCoordinate && std::abs(max) <= s_largestCoordinate;
}

/// The compression of a format; -1 for those of plain images.
int compressionOf(std::uint32_t format) {
    switch (format) {
    case PF_BGRA4444:
        return CompressedImage::BGRA4444;
    case PF_BGRA5551:
        return CompressedImage::BGRA5551;
    case PF_DXT3:
        return CompressedImage::DXT3;
    case PF_DXT1A:
        return CompressedImage::DXT1A;
    default:
        return -1;
    }
}

struct PlainFormat {
    NBX::LayerSequence layers;
    Image::DataType type;
};

PlainFormat plainFormat(std::uint32_t format) {
    switch (format) {
    case PF_LuminanceAlpha:
        return {NBX::LS_LuminanceAlpha, Image::UInt8};
    case PF_Luminance:
        return {NBX::LS_Luminance, Image::UInt8};
    case PF_Half:
        return {NBX::LS_Luminance, Image::Half};
    case PF_Float:
        return {NBX::LS_Luminance, Image::Float};
    default:
        return {NBX::LS_RGBA, Image::UInt8};
    }
}

/// Whether there are images of the format; reported where there are none.
bool isSupported(std::uint32_t format) {
    if (isFormat(format)) return true;
    if (format == 3 || format == 5 || format == 6)
        NBX_NOT_IMPLEMENTED(L"compression for the specified pixel format has not been implemented yet");
    else
        NBX_REPORT(0, L"false", L"unsupported pixel format");
    return false;
}

} // namespace

bool PlanBox::isSound() const {
    return isInterval(minX, maxX) && isInterval(minY, maxY);
}

StreamHeader StreamHeader::blank() {
    StreamHeader header{};
    std::memcpy(header.magic, streamMagic, sizeof header.magic);
    return header;
}

RecordFaults StreamHeader::faults(std::uint64_t available) const {
    RecordFaults faults;
    if (std::memcmp(magic, streamMagic, sizeof magic) != 0) return {{0, "the magic is no \"ZMT-AQTT\""}};
    if (reserved0 != 0) faults.push_back({offsetof(StreamHeader, reserved0), "the reserved number is not 0"});
    if (dataSize > available)
        faults.push_back({offsetof(StreamHeader, dataSize), "the stream has " + std::to_string(dataSize) +
                                                                " bytes, and the file has " +
                                                                std::to_string(available) + " from here on"});
    if (root == TileRef())
        faults.push_back({offsetof(StreamHeader, root), "there is no tile"});
    else if (root.rawSize <= headerSize || !GRID::TileBlock::isPossible(root, dataSize, headerSize))
        faults.push_back({offsetof(StreamHeader, root), "the root is no block that can lie in this stream"});
    return faults;
}

TileHeader TileHeader::blank() {
    TileHeader header{};
    std::memcpy(header.magic, tileMagic, sizeof header.magic);
    return header;
}

RecordFaults TileHeader::faults() const {
    RecordFaults faults;
    if (std::memcmp(magic, tileMagic, sizeof magic) != 0) return {{0, "the magic is no \"ZMT-AQTP\""}};
    if (reserved0 != 0) faults.push_back({offsetof(TileHeader, reserved0), "the reserved number is not 0"});
    // One pixel has no size, as centres alone are known.
    const auto isSide = [](std::uint32_t side) { return side >= 2 && side <= maxTileSize; };
    if (!isSide(width) || !isSide(height))
        faults.push_back(
            {isSide(width) ? offsetof(TileHeader, height) : offsetof(TileHeader, width),
             "an image of " + std::to_string(width) + " by " + std::to_string(height) + " pixels"});
    if (!patch.isSound()) faults.push_back({offsetof(TileHeader, patch), "the box of the patch has no area"});
    if (!image.isSound()) faults.push_back({offsetof(TileHeader, image), "the box of the image has no area"});
    return faults;
}

bool TileHeader::isSound(const TileRef & ref, std::uint64_t streamSize) const {
    if (!faults().empty()) return false;
    return std::all_of(children.begin(), children.end(), [&](const TileRef & child) {
        return child.rawSize == 0 ||
               (child.rawSize > headerSize && GRID::TileBlock::isPossible(child, streamSize, headerSize) &&
                child.offset + child.storedSize <= ref.offset);
    });
}

void scramble(void * data, std::size_t size, std::uint64_t key) {
    if (key == 0) return;
    auto * bytes = static_cast<unsigned char *>(data);
    for (std::size_t i = 0; i + sizeof key <= size; i += sizeof key) {
        std::uint64_t word;
        std::memcpy(&word, bytes + i, sizeof word);
        word ^= key;
        std::memcpy(bytes + i, &word, sizeof word);
    }
}

PixelFormat formatOf(const Image * image) {
    NBX_CHECK(image, L"no image");
    if (!image) return PF_RGBA;
    if (const auto * decorated = dynamic_cast<const NBX::DecoratedImage *>(image))
        return formatOf(decorated->master().get());
    const auto * compressed = dynamic_cast<const CompressedImage *>(image);
    if (!compressed || compressed->compression() == CompressedImage::JPEG)
        return image->layerSequence() == NBX::LS_Luminance ? PF_Luminance : PF_RGBA;
    for (const PixelFormat format : {PF_DXT1A, PF_DXT3, PF_BGRA5551, PF_BGRA4444})
        if (compressionOf(format) == compressed->compression()) return format;
    NBX_REPORT(0, L"false", L"not supported compression scheme");
    return PF_RGBA;
}

bool isFormat(std::uint32_t format) {
    return format <= PF_Float && format != 3 && format != 5 && format != 6;
}

unsigned bitsPerPixel(std::uint32_t format) {
    static constexpr unsigned bits[] = {32, 16, 16, 8, 16, 8, 8, 8, 8, 4, 16, 32};
    if (format < std::size(bits)) return bits[format];
    NBX_REPORT(0, L"false", L"unsupported pixel format");
    return 0;
}

std::uint64_t pixelBytes(std::uint32_t format, std::uint32_t width, std::uint32_t height) {
    const auto sides = [&](std::uint64_t multiple) {
        const auto whole = [&](std::uint64_t side) { return (side + multiple - 1) / multiple * multiple; };
        return whole(width) * whole(height);
    };
    return sides(isBlockFormat(format) ? 4 : 1) * bitsPerPixel(format) / 8;
}

NBX::SO<Image> newImage(std::uint32_t format, std::uint32_t width, std::uint32_t height,
                        const void * pixels) {
    if (!isSupported(format)) return nullptr;
    const std::uint64_t bytes = pixelBytes(format, width, height);
    const int w = static_cast<int>(width), h = static_cast<int>(height);
    if (const int compression = compressionOf(format); compression >= 0) {
        const auto scheme = static_cast<CompressedImage::Compression>(compression);
        return new CompressedImage(CompressedImage::newRawData(scheme, w, h, pixels, bytes).get());
    }
    const PlainFormat plain = plainFormat(format);
    const NBX::SO<Image> image(new NBX::MemoryImage(w, h, plain.layers, plain.type));
    std::memcpy(image->lineComponents(0), pixels, bytes);
    return image;
}

NBX::SO<NBX::DataResource> pixelsOf(const Image & image, PixelFormat format) {
    const std::uint64_t bytes = pixelBytes(format, static_cast<std::uint32_t>(image.width()),
                                           static_cast<std::uint32_t>(image.height()));
    if (const auto * compressed = dynamic_cast<const CompressedImage *>(&image))
        return new NBX::DataSubResource(compressed->rawData().get(), CompressedImage::headerSize,
                                        static_cast<unsigned>(bytes), false);
    const NBX::SO<NBX::MemoryDataResource> result(new NBX::MemoryDataResource(static_cast<unsigned>(bytes)));
    const std::uint64_t perLine = bytes / static_cast<std::uint64_t>(image.height());
    for (int y = 0; y < image.height(); ++y)
        std::memcpy(static_cast<char *>(result->pointer()) + static_cast<std::uint64_t>(y) * perLine,
                    image.lineComponents(y), perLine);
    return result;
}

} // namespace ZMT::CORE::StreamingTextureFormat
