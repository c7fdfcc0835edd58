// The formats in one table first. A pyramid is made level by level, each from the tiles of the level before,
// which lie in a file aside; only the first level asks the source. Generating sources bring all levels
// themselves, and the format of their first tile that is not empty is that of the file.

#include <zmt/util/compressedtexture/compressedtexture.h>

#include <algorithm>
#include <atomic>
#include <cmath>

#include <nbx/image/compressedimage.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <zmt/raster/cachedtiledgeoimage.h>
#include <zmt/raster/colormaskedtiledgeoimage.h>
#include <zmt/raster/gdal/imagefilepyramid.h>
#include <zmt/util/compressedtexture/texturepyramid.h>
#include <zmt/util/compressedtexture/texturepyramidtiledgeoimage.h>
#include <zmt/util/compressedtexture/virtualtiledgeoimage.h>

#include "mosaictiledgeoimage.h"
#include "pyramidcreation.h"
#include "texturepyramidformat.h"
#include "virtualtiles.h"

namespace ZMT::UTIL {

namespace {

using RASTER::CachedTiledGeoImage;
using RASTER::TiledGeoImage;
using TexturePyramidFormat::tileSide;

std::atomic<std::uint64_t> encryptionKey{0};

struct FormatInfo {
    const char * name;
    NBX::LayerSequence layers;
    int dataType;
    unsigned bitsPerPixel;
    bool hasBlocks; ///< of 4 by 4 pixels
};

constexpr FormatInfo formatTable[CompressedTexture::pixelFormats] = {
    {"RGBA8", NBX::LS_RGBA, NBX::Image::UInt8, 32, false},
    {"BGRA4444", NBX::LS_RGBA, NBX::Image::UInt8, 16, false},
    {"BGRA5551", NBX::LS_RGBA, NBX::Image::UInt8, 16, false},
    {"RGB8", NBX::LS_RGB, NBX::Image::UInt8, 24, false},
    {"LuminanceAlpha8", NBX::LS_LuminanceAlpha, NBX::Image::UInt8, 16, false},
    {"DXT1", NBX::LS_RGB, NBX::Image::UInt8, 4, true},
    {"DXT5", NBX::LS_RGBA, NBX::Image::UInt8, 8, true},
    {"Luminance8", NBX::LS_Luminance, NBX::Image::UInt8, 8, false},
    {"DXT3", NBX::LS_RGBA, NBX::Image::UInt8, 8, true},
    {"DXT1A", NBX::LS_RGBA, NBX::Image::UInt8, 4, true},
    {"LuminanceAlpha16", NBX::LS_LuminanceAlpha, NBX::Image::UInt16, 32, false},
    {"RGBA16", NBX::LS_RGBA, NBX::Image::UInt16, 64, false},
};

const FormatInfo & info(CompressedTexture::PixelFormat format) {
    return formatTable[CompressedTexture::isPixelFormat(format) ? format : 0];
}

std::string utf8(const std::wstring & text) {
    return NBX::StringUtils::WString2Utf8String(text);
}

/// What one row of tiles takes, within bounds.
std::uint64_t cacheBytes(const TiledGeoImage & source) {
    constexpr std::uint64_t least = 16ULL << 20, most = 128ULL << 20;
    const std::uint64_t width = (source.pixelsX() + tileSide - 1) / tileSide * tileSide;
    return std::clamp(width * tileSide * source.bands(), least, most);
}

/// What a reader takes.
bool hasArea(const RASTER::GeoExtent & extent) {
    return extent.minX < extent.maxX && extent.minY < extent.maxY &&
           std::isnormal(extent.maxX - extent.minX) && std::isnormal(extent.maxY - extent.minY);
}

bool isSource(const TiledGeoImage & source) {
    return source.pixelsX() > 0 && source.pixelsX() <= INT32_MAX && source.pixelsY() > 0 &&
           source.pixelsY() <= INT32_MAX && hasArea(source.extent());
}

/// The images as one, and their system; null, and reported with the reason in front, when one of them is
/// none.
NBX::SO<TiledGeoImage> openImages(const std::vector<std::wstring> & images, std::string & wkt) {
    std::vector<NBX::SO<RASTER::ImageFilePyramid>> opened;
    for (const std::wstring & name : images) {
        NBX::SO<RASTER::ImageFilePyramid> image;
        try {
            image =
                new RASTER::ImageFilePyramid(utf8(name), opened.empty() ? "" : opened[0]->reference().wkt);
        } catch (const NBX::Exception & failure) {
            NBX_FAILURE(NBX::StringUtils::Utf8String2WString(failure.what()));
        }
        NBX_CHECK(image, L"failed to open image file: " << name);
        if (!image) return nullptr;
        opened.push_back(image);
    }
    if (opened.empty()) return nullptr;
    wkt = opened[0]->reference().wkt;
    if (opened.size() == 1) return opened[0]->overview(0);
    return new MosaicTiledGeoImage({opened.begin(), opened.end()});
}

} // namespace

void CompressedTexture::setEncryptionKey(std::uint64_t key) {
    encryptionKey = key;
}

std::uint64_t CompressedTexture::getEncryptionKey() {
    return encryptionKey;
}

const char * CompressedTexture::formatName(PixelFormat format) {
    return info(format).name;
}

std::uint64_t CompressedTexture::tileBytes(PixelFormat format, std::uint64_t width, std::uint64_t height) {
    constexpr auto maxSide = static_cast<std::uint64_t>(NBX::CompressedImage::maxSize);
    if (width == 0 || height == 0 || width > maxSide || height > maxSide) return 0;
    const auto blocks = [](std::uint64_t size) { return (size + 3) / 4 * 4; };
    const bool hasBlocks = info(format).hasBlocks;
    return (hasBlocks ? blocks(width) * blocks(height) : width * height) * info(format).bitsPerPixel / 8;
}

int CompressedTexture::pixelFormatOf(const NBX::Image & image) {
    for (int i = 0; i < pixelFormats; ++i) {
        const FormatInfo & f = formatTable[i];
        const bool isPlain =
            static_cast<int>(f.bitsPerPixel) == NBX::Image::bitsPerPixel(f.layers, f.dataType);
        if (isPlain && f.layers == image.layerSequence() && f.dataType == image.dataType()) return i;
    }
    NBX_REPORT(0, L"false", L"unsupported pixel format");
    return -1;
}

NBX::LayerSequence CompressedTexture::layerSequence(PixelFormat format) {
    return info(format).layers;
}

int CompressedTexture::dataType(PixelFormat format) {
    return info(format).dataType;
}

NBX::SO<TexturePyramid> CompressedTexture::load(const std::wstring & path) {
    if (path.empty()) return nullptr;
    try {
        return new TexturePyramid(path);
    } catch (const NBX::Exception &) {
        return nullptr;
    }
}

bool CompressedTexture::create(NBX::SO<TiledGeoImage> source, const std::wstring & path, PixelFormat format,
                               unsigned compression, const NBX::Color * maskColor, const std::string & wkt) {
    NBX_CHECK(source, L"no image");
    if (!source) return false;
    if (!isPixelFormat(format)) {
        NBX_REPORT(0, L"false", L"unsupported pixel format");
        return false;
    }
    if (compression > C_Deflate) {
        NBX_REPORT(0, L"false", L"unsupported compression format");
        return false;
    }
    NBX_CHECK(isSource(*source), L"an image without pixels, without area, or too large");
    if (!isSource(*source)) return false;
    if (maskColor) source = new RASTER::ColorMaskedTiledGeoImage(source.get(), *maskColor);
    source = new CachedTiledGeoImage(source.get(), cacheBytes(*source));
    return PyramidCreation(*source, utf8(path), format, compression, wkt).run();
}

bool CompressedTexture::create(const std::vector<std::wstring> & images, const std::wstring & path,
                               unsigned compression, const NBX::Color * maskColor) {
    std::string wkt;
    const NBX::SO<TiledGeoImage> source = openImages(images, wkt);
    if (!source) return false;
    const NBX::SO<NBX::Image> pixel = source->createEmptyImage(1, 1);
    const int format = maskColor ? static_cast<int>(PF_RGBA8) : pixel ? pixelFormatOf(*pixel) : -1;
    return format >= 0 && create(source, path, static_cast<PixelFormat>(format), compression, maskColor, wkt);
}

bool CompressedTexture::create(const std::vector<std::wstring> & images, const std::wstring & path,
                               PixelFormat format, unsigned compression, const NBX::Color * maskColor) {
    std::string wkt;
    const NBX::SO<TiledGeoImage> source = openImages(images, wkt);
    return source && create(source, path, format, compression, maskColor, wkt);
}

bool CompressedTexture::create(const VirtualTiledGeoImage & source, const std::wstring & path) {
    const bool isPlaced = hasArea({source.minX(), source.minY(), source.maxX(), source.maxY()});
    NBX_CHECK(isPlaced, L"an image without area");
    const bool isReachable = source.width() <= INT32_MAX && source.height() <= INT32_MAX;
    NBX_CHECK(isReachable, L"an image that is too large");
    VirtualTiles tiles(source);
    if (!isPlaced || !isReachable || !tiles.findFirst()) return false;
    const int format = pixelFormatOf(*tiles.first());
    if (format < 0) return false;
    const auto bytes = tileBytes(static_cast<PixelFormat>(format), source.tileSize(), source.tileSize());
    const bool isReadable = bytes > 0 && bytes <= TexturePyramidTiledGeoImage::maxTileBytes;
    NBX_CHECK(isReadable, L"tiles of " << source.tileSize() << L" pixels are too large");
    return isReadable && tiles.write(utf8(path), static_cast<PixelFormat>(format));
}

} // namespace ZMT::UTIL
