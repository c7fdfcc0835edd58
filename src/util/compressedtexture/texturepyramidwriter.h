#pragma once

#include <functional>
#include <string>
#include <vector>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/image/image.h>
#include <zmt/raster/gdal/projectionfile.h>
#include <zmt/raster/geoextent.h>
#include <zmt/util/compressedtexture/compressedtexture.h>

namespace ZMT::UTIL {

/// Size of one level and of its tiles.
struct LevelSize {
    unsigned pixelsX = 0, pixelsY = 0, tileSize = 0;
    unsigned tilesX() const { return pixelsX / tileSize + (pixelsX % tileSize != 0); }
    unsigned tilesY() const { return pixelsY / tileSize + (pixelsY % tileSize != 0); }
    std::uint64_t tiles() const { return static_cast<std::uint64_t>(tilesX()) * tilesY(); }
};

/// Writes the file of a pyramid level by level, the finest first. Without `commit()` there is no file.
/// Throws `NBX::IOException`.
class TexturePyramidWriter {
public:
    /// Of the progress; the file is put together by `commit` in the rest.
    static constexpr double levelsShare = 0.8;

    /// Gives one tile of `tileSize` squared pixels in a format that converts to the file's; null for an
    /// empty one. False ends the writing.
    using TileSource = std::function<bool(unsigned column, unsigned row, NBX::SO<NBX::Image> & tile)>;

    TexturePyramidWriter(const std::string & path, const RASTER::GeoExtent & extent, unsigned levels,
                         CompressedTexture::PixelFormat format, unsigned compression,
                         const std::string & wkt);

    /// The next level; false when `source` ended it.
    bool writeLevel(const LevelSize & size, const TileSource & source);
    /// Writes the file's header, and puts the file in its place, with the system `wkt` beside it. `source` of
    /// all levels has been called.
    void commit();

private:
    void writeHeader();
    void writeTile(const std::vector<std::uint8_t> & bytes);
    void padTo8();

    NBX::AtomicFileWriter file_;
    RASTER::ProjectionFile projection_;
    RASTER::GeoExtent extent_;
    CompressedTexture::PixelFormat format_;
    unsigned compression_;
    std::uint64_t key_;
    unsigned levels_;
    std::vector<std::uint64_t> positions_; ///< of the levels that were written
};

} // namespace ZMT::UTIL
