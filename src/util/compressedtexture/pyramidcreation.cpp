#include "pyramidcreation.h"

#include <algorithm>

#include <zmt/raster/cachedtiledgeoimage.h>
#include <zmt/raster/pixelblocks.h>

#include "texturepyramidformat.h"
#include "tilepixels.h"

namespace ZMT::UTIL {

namespace {

using RASTER::CachedTiledGeoImage;
using TexturePyramidFormat::lastTileSide;
using TexturePyramidFormat::tileSide;

/// The sizes of all levels. Only the last one, which is a single tile, has small tiles.
std::vector<LevelSize> levelSizes(unsigned pixelsX, unsigned pixelsY) {
    std::vector<LevelSize> result;
    const auto halved = &RASTER::PixelBlocks::halved;
    for (; std::max(pixelsX, pixelsY) > lastTileSide; pixelsX = halved(pixelsX), pixelsY = halved(pixelsY))
        result.push_back({pixelsX, pixelsY, tileSide});
    result.push_back({pixelsX, pixelsY, lastTileSide});
    return result;
}

/// Memory for the tiles of the finest level; coarser levels have a quarter and a sixteenth of it.
constexpr std::uint64_t storeMemory = 128ULL << 20;

} // namespace

PyramidCreation::PyramidCreation(RASTER::TiledGeoImage & source, const std::string & path,
                                 CompressedTexture::PixelFormat format, unsigned compression,
                                 const std::string & wkt)
    : source_(source), path_(path), format_(format),
      levels_(levelSizes(static_cast<unsigned>(source.pixelsX()), static_cast<unsigned>(source.pixelsY()))),
      writer_(path, source.extent(), static_cast<unsigned>(levels_.size()), format, compression, wkt),
      progress_("compressing texture data", 1.0) {
    for (const LevelSize & level : levels_)
        tilesLeft_ += static_cast<double>(level.tiles());
    tilesInAll_ = tilesLeft_;
}

bool PyramidCreation::step() {
    const double done = TexturePyramidWriter::levelsShare * (1.0 - tilesLeft_ / tilesInAll_);
    tilesLeft_ -= 1.0;
    return progress_.update(done);
}

NBX::SO<NBX::Image> PyramidCreation::sourceTile(const LevelSize & size, unsigned column, unsigned row) {
    const unsigned x = column * size.tileSize, y = row * size.tileSize;
    const NBX::SO<NBX::Image> image =
        source_.getImage(static_cast<int>(x), static_cast<int>(y), std::min(size.tileSize, size.pixelsX - x),
                         std::min(size.tileSize, size.pixelsY - y));
    return image ? TilePixels::wholeTile(format_, image, size.tileSize) : nullptr;
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
    return image ? TilePixels::wholeTile(format_, image, size.tileSize) : nullptr;
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
    if (!progress_.update(TexturePyramidWriter::levelsShare)) return false;
    writer_.commit();
    progress_.finish();
    return true;
}

} // namespace ZMT::UTIL
