#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <nbx/data/file.h>
#include <nbx/object/progress.h>
#include <nbx/object/so.h>
#include <zmt/raster/tiledgeoimage.h>
#include <zmt/util/compressedtexture/compressedtexture.h>

#include "texturepyramidwriter.h"
#include "tilestore.h"

namespace ZMT::UTIL {

/// Writes a source and the levels made of it, each half the size of the one before. Levels take turns with
/// two files aside.
class PyramidCreation {
public:
    /// Borrows `source`, whose sides are at most those of an image. Throws `NBX::IOException`, as `run`.
    PyramidCreation(RASTER::TiledGeoImage & source, const std::string & path,
                    CompressedTexture::PixelFormat format, unsigned compression, const std::string & wkt);

    /// False when cancelled, and when the source cannot be read.
    bool run();

private:
    bool step();
    bool writeLevel(std::size_t level);
    NBX::SO<NBX::Image> sourceTile(const LevelSize & size, unsigned column, unsigned row);
    NBX::SO<NBX::Image> reducedTile(std::size_t level, unsigned column, unsigned row);

    RASTER::TiledGeoImage & source_;
    std::string path_;
    CompressedTexture::PixelFormat format_;
    std::vector<LevelSize> levels_;
    TexturePyramidWriter writer_;
    NBX::Progress progress_;
    double tilesLeft_ = 0.0, tilesInAll_ = 0.0;
    NBX::SO<NBX::File> aside_[2];
    NBX::SO<TileStore> finer_, current_;
};

} // namespace ZMT::UTIL
