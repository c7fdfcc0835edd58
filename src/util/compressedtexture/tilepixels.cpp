#include "tilepixels.h"

#include <cstring>

#include <nbx/data/dataresource.h>
#include <nbx/image/compressedimage.h>
#include <nbx/image/memoryimage.h>
#include <zmt/raster/pixelblocks.h>

namespace ZMT::UTIL {

namespace {

using Compressed = NBX::CompressedImage;
using Format = CompressedTexture::PixelFormat;

/// The engine's compression of a format; negative for plain pixels.
int compressionOf(Format format) {
    switch (format) {
    case CompressedTexture::PF_BGRA4444:
        return Compressed::BGRA4444;
    case CompressedTexture::PF_BGRA5551:
        return Compressed::BGRA5551;
    case CompressedTexture::PF_DXT1:
        return Compressed::DXT1;
    case CompressedTexture::PF_DXT1A:
        return Compressed::DXT1A;
    case CompressedTexture::PF_DXT3:
        return Compressed::DXT3;
    case CompressedTexture::PF_DXT5:
        return Compressed::DXT5;
    default:
        return -1;
    }
}

void copyLines(const NBX::Image & image, std::uint8_t * data) {
    const std::size_t bytes =
        NBX::Image::bytesPerLine(image.width(), image.layerSequence(), image.dataType(), 1);
    for (int y = 0; y < image.height(); ++y)
        std::memcpy(data + static_cast<std::size_t>(y) * bytes, image.lineComponents(y), bytes);
}

void fillLines(NBX::Image & image, const std::uint8_t * data) {
    const std::size_t bytes =
        NBX::Image::bytesPerLine(image.width(), image.layerSequence(), image.dataType(), 1);
    for (int y = 0; y < image.height(); ++y)
        std::memcpy(image.lineComponents(y), data + static_cast<std::size_t>(y) * bytes, bytes);
}

bool isFormatOf(Format format, const NBX::Image & image) {
    return image.layerSequence() == CompressedTexture::layerSequence(format) &&
           image.dataType() == CompressedTexture::dataType(format);
}

} // namespace

NBX::SO<NBX::Image> TilePixels::emptyImage(Format format, unsigned width, unsigned height) {
    return RASTER::PixelBlocks::newImage(width, height, CompressedTexture::layerSequence(format),
                                         CompressedTexture::dataType(format));
}

NBX::SO<NBX::Image> TilePixels::wholeTile(Format format, const NBX::SO<NBX::Image> & image,
                                          unsigned tileSize) {
    NBX::SO<NBX::Image> converted = image;
    if (!isFormatOf(format, *image)) {
        converted =
            new NBX::MemoryImage(image->width(), image->height(), CompressedTexture::layerSequence(format),
                                 CompressedTexture::dataType(format));
        if (!converted->copy(image.get())) return nullptr;
    }
    const auto size = static_cast<int>(tileSize);
    if (converted->width() == size && converted->height() == size && converted->padding() == 0)
        return converted;
    NBX::SO<NBX::Image> tile = emptyImage(format, tileSize, tileSize);
    if (tile) RASTER::PixelBlocks::paste(*converted, 0, 0, *tile);
    return tile;
}

std::uint64_t TilePixels::imageBytes(Format format, std::uint64_t width, std::uint64_t height) {
    const int bits = NBX::Image::bitsPerPixel(CompressedTexture::layerSequence(format),
                                              CompressedTexture::dataType(format));
    return width * height * static_cast<std::uint64_t>(bits) / 8;
}

NBX::SO<NBX::Image> TilePixels::decode(Format format, const std::uint8_t * data, unsigned width,
                                       unsigned height) {
    const NBX::SO<NBX::Image> image = emptyImage(format, width, height);
    if (!image) return nullptr;
    if (compressionOf(format) < 0) {
        fillLines(*image, data);
        return image;
    }
    const std::uint64_t bytes = CompressedTexture::tileBytes(format, width, height);
    const NBX::SO<Compressed> compressed(
        new Compressed(Compressed::newRawData(static_cast<Compressed::Compression>(compressionOf(format)),
                                              static_cast<int>(width), static_cast<int>(height), data, bytes)
                           .get()));
    return image->copy(compressed.get()) ? image : nullptr;
}

std::vector<std::uint8_t> TilePixels::encode(Format format, const NBX::Image & image) {
    const auto width = static_cast<unsigned>(image.width()), height = static_cast<unsigned>(image.height());
    std::vector<std::uint8_t> result(CompressedTexture::tileBytes(format, width, height));
    const int compression = compressionOf(format);
    if (compression >= 0) {
        const NBX::SO<Compressed> compressed(
            new Compressed(static_cast<Compressed::Compression>(compression), &image));
        if (compressed->dataSize() == result.size() && !result.empty())
            std::memcpy(result.data(), compressed->rawData()->pointer(Compressed::headerSize), result.size());
    } else if (isFormatOf(format, image)) {
        copyLines(image, result.data());
    } else if (const NBX::SO<NBX::Image> converted = emptyImage(format, width, height)) {
        converted->copy(&image);
        copyLines(*converted, result.data());
    }
    return result;
}

bool TilePixels::hasAlpha(Format format) {
    return format != CompressedTexture::PF_RGB8 && format != CompressedTexture::PF_DXT1 &&
           format != CompressedTexture::PF_Luminance8;
}

} // namespace ZMT::UTIL
