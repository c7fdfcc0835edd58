#include "tileencoding.h"

#include <algorithm>
#include <cstring>

#include <nbx/image/compressedimage.h>
#include <nbx/image/memoryimage.h>

namespace ZMT::CORE {

namespace {

using namespace StreamingTextureFormat;
using NBX::CompressedImage;
using NBX::Image;
using NBX::SO;
using Pixels = StreamingTextureOptions::Pixels;

constexpr int s_blockSide = 4;

/// An image, and the centres of its first and last pixels.
struct PlacedImage {
    SO<Image> image;
    PlanBox box;
};

SO<Image> blankImage(unsigned side) {
    const int s = static_cast<int>(side);
    // Its pixels are zero from the start.
    return new NBX::MemoryImage(s, s, NBX::LS_Alpha, Image::UInt8, 8);
}

SO<Image> convert(const Image & image, int width, int height, NBX::LayerSequence layers) {
    const SO<Image> result(new NBX::MemoryImage(width, height, layers));
    result->copy(&image);
    return result;
}

PixelFormat wantedFormat(const Image & image, Pixels pixels) {
    switch (pixels) {
    case StreamingTextureOptions::P_RGBA:
        return PF_RGBA;
    case StreamingTextureOptions::P_Luminance:
        return PF_Luminance;
    case StreamingTextureOptions::P_DXT1:
        return PF_DXT1A;
    case StreamingTextureOptions::P_DXT3:
        return PF_DXT3;
    default:
        return formatOf(&image);
    }
}

/// Two columns stand for a single one, and two lines for a single line, on the same ground.
PlacedImage withTwoCentres(const PlacedImage & placed, const RASTER::GeoImage & place) {
    const int width = placed.image->width(), height = placed.image->height();
    if (width > 1 && height > 1) return placed;
    PlacedImage result{convert(*placed.image->uncompressed(false), std::max(width, 2), std::max(height, 2),
                               placed.image->layerSequence()),
                       placed.box};
    if (width == 1) {
        result.box.minX -= 0.25 * place.pixelSizeX();
        result.box.maxX += 0.25 * place.pixelSizeX();
    }
    if (height == 1) {
        result.box.minY -= 0.25 * place.pixelSizeY();
        result.box.maxY += 0.25 * place.pixelSizeY();
    }
    return result;
}

int wholeBlocks(int side) {
    return (side + s_blockSide - 1) / s_blockSide * s_blockSide;
}

/// As RGBA, with transparent pixels up to whole blocks.
PlacedImage filledUp(const PlacedImage & placed) {
    const int width = placed.image->width(), height = placed.image->height();
    const int columns = wholeBlocks(width), rows = wholeBlocks(height);
    const SO<Image> source = convert(*placed.image->uncompressed(false), width, height, NBX::LS_RGBA);
    if (columns == width && rows == height) return {source, placed.box};
    PlacedImage result{new NBX::MemoryImage(columns, rows, NBX::LS_RGBA), placed.box};
    for (int y = 0; y < height; ++y)
        std::memcpy(result.image->lineComponentsU8(y), source->lineComponentsU8(y),
                    static_cast<std::size_t>(width) * 4);
    result.box.maxX += (placed.box.maxX - placed.box.minX) / (width - 1) * (columns - width);
    result.box.maxY += (placed.box.maxY - placed.box.minY) / (height - 1) * (rows - height);
    return result;
}

bool isOfFormat(const Image & image, PixelFormat format) {
    if (const auto * compressed = dynamic_cast<const CompressedImage *>(&image);
        compressed && compressed->compression() != CompressedImage::JPEG)
        return formatOf(&image) == format && (!isBlockFormat(format) || (image.width() % s_blockSide == 0 &&
                                                                         image.height() % s_blockSide == 0));
    if (image.dataType() != Image::UInt8) return false;
    return (format == PF_RGBA && image.layerSequence() == NBX::LS_RGBA) ||
           (format == PF_Luminance && image.layerSequence() == NBX::LS_Luminance);
}

PlacedImage inFormat(const PlacedImage & placed, PixelFormat format) {
    if (isOfFormat(*placed.image, format)) return placed;
    if (isBlockFormat(format)) {
        const PlacedImage whole = filledUp(placed);
        const auto compression = format == PF_DXT3 ? CompressedImage::DXT3 : CompressedImage::DXT1A;
        return {new CompressedImage(compression, whole.image.get()), whole.box};
    }
    const SO<Image> plain = placed.image->uncompressed(false);
    const auto layers = format == PF_Luminance ? NBX::LS_Luminance : NBX::LS_RGBA;
    return {convert(*plain, plain->width(), plain->height(), layers), placed.box};
}

} // namespace

TileEncoding::Block TileEncoding::encode(const RASTER::GeoImage & image, const PlanBox & patch,
                                         unsigned tileSize, Pixels pixels) {
    PlacedImage placed{image.image(), {image.minX(), image.minY(), image.maxX(), image.maxY()}};
    const unsigned side = static_cast<unsigned>(std::max(image.width(), image.height()));
    if (side > tileSize) placed.image = blankImage(tileSize);
    const PixelFormat format = wantedFormat(*placed.image, pixels);
    placed = inFormat(withTwoCentres(placed, image), format);
    const SO<NBX::DataResource> bytes = pixelsOf(*placed.image, format);
    return encode(format, static_cast<unsigned>(placed.image->width()),
                  static_cast<unsigned>(placed.image->height()), placed.box, patch, bytes->pointer());
}

TileEncoding::Block TileEncoding::encode(PixelFormat format, unsigned width, unsigned height,
                                         const PlanBox & image, const PlanBox & patch, const void * pixels) {
    TileHeader header = TileHeader::blank();
    header.width = width;
    header.height = height;
    header.pixelFormat = format;
    header.patch = patch;
    header.image = image;
    const std::uint64_t bytes = pixelBytes(format, width, height);
    Block block(headerSize + bytes);
    std::memcpy(block.data(), &header, headerSize);
    std::memcpy(block.data() + headerSize, pixels, bytes);
    return block;
}

} // namespace ZMT::CORE
