// The formats in one table first. A pyramid is made level by level, each from the tiles of the level before,
// which lie in a file aside; only the first level asks the source. Generating sources bring all levels
// themselves, and the format of their first tile that is not empty is that of the file.

#include <zmt/util/compressedtexture/compressedtexture.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <tuple>

#include <nbx/image/compressedimage.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>
#include <zmt/raster/cachedtiledgeoimage.h>
#include <zmt/raster/colormaskedtiledgeoimage.h>
#include <zmt/raster/gdal/imagefilepyramid.h>
#include <zmt/raster/pixelblocks.h>
#include <zmt/util/compressedtexture/texturepyramid.h>
#include <zmt/util/compressedtexture/texturepyramidtiledgeoimage.h>
#include <zmt/util/compressedtexture/virtualtiledgeoimage.h>

#include "mosaictiledgeoimage.h"
#include "texturepyramidformat.h"
#include "texturepyramidwriter.h"
#include "tilepixels.h"
#include "tilestore.h"

namespace ZMT::UTIL {

namespace {

using RASTER::CachedTiledGeoImage;
using RASTER::TiledGeoImage;
using TexturePyramidFormat::lastTileSide;
using TexturePyramidFormat::tileSide;

std::atomic<std::uint64_t> encryptionKey{0};

/// The levels' share of the progress; the file is put together in the rest.
constexpr double levelsShare = 0.8;

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

/// The sizes of all levels. Only the last one, which is a single tile, has small tiles.
std::vector<LevelSize> levelSizes(unsigned pixelsX, unsigned pixelsY) {
    std::vector<LevelSize> result;
    const auto halved = &RASTER::PixelBlocks::halved;
    for (; std::max(pixelsX, pixelsY) > lastTileSide; pixelsX = halved(pixelsX), pixelsY = halved(pixelsY))
        result.push_back({pixelsX, pixelsY, tileSide});
    result.push_back({pixelsX, pixelsY, lastTileSide});
    return result;
}

/// An image that may be smaller than a tile or of another format, as a tile.
NBX::SO<NBX::Image> wholeTile(CompressedTexture::PixelFormat format, const NBX::SO<NBX::Image> & image,
                              unsigned tileSize) {
    NBX::SO<NBX::Image> converted = image;
    const FormatInfo & f = info(format);
    if (image->layerSequence() != f.layers || image->dataType() != f.dataType) {
        converted = new NBX::MemoryImage(image->width(), image->height(), f.layers, f.dataType);
        if (!converted->copy(image.get())) return nullptr;
    }
    const auto size = static_cast<int>(tileSize);
    if (converted->width() == size && converted->height() == size && converted->padding() == 0)
        return converted;
    NBX::SO<NBX::Image> tile = TilePixels::emptyImage(format, tileSize, tileSize);
    if (tile) RASTER::PixelBlocks::paste(*converted, 0, 0, *tile);
    return tile;
}

/// Memory for the tiles of the finest level; coarser levels have a quarter and a sixteenth of it.
constexpr std::uint64_t storeMemory = 128ULL << 20;

/// Writes a source and the levels made of it. Levels take turns with two files aside.
class PyramidCreation {
public:
    PyramidCreation(TiledGeoImage & source, const std::string & path, CompressedTexture::PixelFormat format,
                    unsigned compression, const std::string & wkt)
        : source_(source), path_(path), format_(format),
          levels_(
              levelSizes(static_cast<unsigned>(source.pixelsX()), static_cast<unsigned>(source.pixelsY()))),
          writer_(path, source.extent(), static_cast<unsigned>(levels_.size()), format, compression, wkt),
          progress_("compressing texture data", 1.0) {
        for (const LevelSize & level : levels_)
            tilesLeft_ += static_cast<double>(level.tiles());
        tilesInAll_ = tilesLeft_;
    }

    bool run();

private:
    bool step();
    bool writeLevel(std::size_t level);
    NBX::SO<NBX::Image> sourceTile(const LevelSize & size, unsigned column, unsigned row);
    NBX::SO<NBX::Image> reducedTile(std::size_t level, unsigned column, unsigned row);

    TiledGeoImage & source_;
    std::string path_;
    CompressedTexture::PixelFormat format_;
    std::vector<LevelSize> levels_;
    TexturePyramidWriter writer_;
    NBX::Progress progress_;
    double tilesLeft_ = 0.0, tilesInAll_ = 0.0;
    NBX::SO<NBX::File> aside_[2];
    NBX::SO<TileStore> finer_, current_;
};

bool PyramidCreation::step() {
    const double done = levelsShare * (1.0 - tilesLeft_ / tilesInAll_);
    tilesLeft_ -= 1.0;
    return progress_.update(done);
}

NBX::SO<NBX::Image> PyramidCreation::sourceTile(const LevelSize & size, unsigned column, unsigned row) {
    const unsigned x = column * size.tileSize, y = row * size.tileSize;
    const NBX::SO<NBX::Image> image =
        source_.getImage(static_cast<int>(x), static_cast<int>(y), std::min(size.tileSize, size.pixelsX - x),
                         std::min(size.tileSize, size.pixelsY - y));
    return image ? wholeTile(format_, image, size.tileSize) : nullptr;
}

NBX::SO<NBX::Image> PyramidCreation::reducedTile(std::size_t level, unsigned column, unsigned row) {
    const LevelSize & size = levels_[level];
    const LevelSize & finer = levels_[level - 1];
    const unsigned x = column * size.tileSize, y = row * size.tileSize;
    const unsigned width = std::min(size.tileSize, size.pixelsX - x);
    const unsigned height = std::min(size.tileSize, size.pixelsY - y);
    const double scaleX = static_cast<double>(finer.pixelsX) / size.pixelsX;
    const double scaleY = static_cast<double>(finer.pixelsY) / size.pixelsY;
    const NBX::SO<NBX::Image> image = RASTER::PixelBlocks::read(
        *finer_, {x * scaleX, y * scaleY, (x + width) * scaleX, (y + height) * scaleY}, width, height);
    return image ? wholeTile(format_, image, size.tileSize) : nullptr;
}

bool PyramidCreation::writeLevel(std::size_t level) {
    const LevelSize & size = levels_[level];
    const bool isLast = level + 1 == levels_.size();
    NBX::SO<NBX::File> & aside = aside_[level % 2];
    if (!isLast && !aside) aside = TileStore::createFile(path_ + (level % 2 ? ".2.tmp" : ".1.tmp"));
    current_ = isLast ? nullptr
                      : new TileStore(aside, format_, size.pixelsX, size.pixelsY, size.tileSize,
                                      storeMemory >> std::min<std::size_t>(2 * level, 4));
    const bool written =
        writer_.writeLevel(size, [&](unsigned column, unsigned row, NBX::SO<NBX::Image> & tile) {
            if (!step()) return false;
            tile = level == 0 ? sourceTile(size, column, row) : reducedTile(level, column, row);
            if (source_.failed()) return false;
            if (tile && current_) current_->put(column, row, tile);
            return true;
        });
    finer_ = current_;
    return written;
}

bool PyramidCreation::run() {
    for (std::size_t level = 0; level < levels_.size(); ++level) {
        if (!writeLevel(level)) return false;
        if (auto * cached = dynamic_cast<CachedTiledGeoImage *>(&source_)) cached->clearCache();
    }
    if (!progress_.update(levelsShare)) return false;
    writer_.commit();
    progress_.finish();
    return true;
}

/// The tiles of a generating source in the order of the file. The format is known with the first that is not
/// empty, so that those before it are passed twice, and asked for once.
class VirtualTiles {
public:
    explicit VirtualTiles(const VirtualTiledGeoImage & source) : source_(source) {
        if (source.width() == 0 || source.height() == 0) return;
        for (unsigned level = 0; level < source.levels(); ++level)
            levels_.push_back({source.pixelsX(level), source.pixelsY(level), source.tileSize()});
    }

    bool findFirst() {
        for (level_ = 0; level_ < levels_.size(); ++level_)
            for (row_ = 0; row_ < levels_[level_].tilesY(); ++row_)
                for (column_ = 0; column_ < levels_[level_].tilesX(); ++column_) {
                    first_ = source_.getImage(level_, column_, row_);
                    if (first_) return true;
                }
        return false;
    }
    const NBX::SO<NBX::Image> & first() const { return first_; }

    bool write(const std::string & path, CompressedTexture::PixelFormat format) {
        const RASTER::GeoExtent extent = {source_.minX(), source_.minY(), source_.maxX(), source_.maxY()};
        TexturePyramidWriter writer(path, extent, static_cast<unsigned>(levels_.size()), format,
                                    CompressedTexture::C_Deflate, "");
        NBX::Progress progress("compressing texture data", 1.0);
        double all = 0.0, done = 0.0;
        for (const LevelSize & size : levels_)
            all += static_cast<double>(size.tiles());
        for (unsigned level = 0; level < levels_.size(); ++level) {
            const auto make = [&](unsigned column, unsigned row, NBX::SO<NBX::Image> & tile) {
                if (!progress.update(levelsShare * done++ / all)) return false;
                const NBX::SO<NBX::Image> image = this->tile(level, column, row);
                if (image) tile = wholeTile(format, image, source_.tileSize());
                return true;
            };
            if (!writer.writeLevel(levels_[level], make)) return false;
        }
        if (!progress.update(levelsShare)) return false;
        writer.commit();
        progress.finish();
        return true;
    }

private:
    NBX::SO<NBX::Image> tile(unsigned level, unsigned column, unsigned row) const {
        const auto place = std::tuple(level, row, column), first = std::tuple(level_, row_, column_);
        if (place < first) return nullptr;
        return place == first ? first_ : source_.getImage(level, column, row);
    }

    const VirtualTiledGeoImage & source_;
    std::vector<LevelSize> levels_;
    unsigned level_ = 0, row_ = 0, column_ = 0; ///< of `first_`
    NBX::SO<NBX::Image> first_;
};

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
