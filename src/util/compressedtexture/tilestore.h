#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nbx/data/file.h>
#include <nbx/image/image.h>
#include <zmt/raster/tiledgeoimage.h>
#include <zmt/util/compressedtexture/compressedtexture.h>

namespace ZMT::UTIL {

/// The decoded tiles of one level, from which the next level is made: as many as a budget allows in memory,
/// the others in a file aside. Its frame is that of its pixels.
class TileStore : public RASTER::TiledGeoImage {
    NBX_CLASS(TileStore, RASTER::TiledGeoImage)
public:
    /// `file` is written from its start on. Throws `NBX::IOException`, as does all that follows.
    TileStore(NBX::SO<NBX::File> file, CompressedTexture::PixelFormat format, unsigned pixelsX,
              unsigned pixelsY, unsigned tileSize, std::uint64_t maxMemory);

    /// Each tile once, whole; it may not change any more.
    void put(unsigned column, unsigned row, const NBX::SO<NBX::Image> & tile);

    /// A file that is gone when it is closed or the process ends, in the folder of `path`.
    static NBX::SO<NBX::File> createFile(const std::string & path);

    unsigned bands() const override;
    double minX() const override { return 0.0; }
    double minY() const override { return 0.0; }
    double pixelSizeX() const override { return 1.0; }
    double pixelSizeY() const override { return 1.0; }
    std::uint64_t pixelsX() const override { return pixelsX_; }
    std::uint64_t pixelsY() const override { return pixelsY_; }
    unsigned granularityX() const override { return tileSize_; }
    unsigned granularityY() const override { return tileSize_; }
    NBX::SO<NBX::Image> createEmptyImage(unsigned width, unsigned height) const override;
    NBX::SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override;

private:
    std::size_t tileBytes() const;
    NBX::SO<NBX::Image> tile(std::size_t index) const;

    NBX::SO<NBX::File> file_;
    CompressedTexture::PixelFormat format_;
    unsigned pixelsX_, pixelsY_, tileSize_, tilesX_;
    std::uint64_t maxMemory_;
    std::vector<std::uint32_t> slots_; ///< counted from 1, first those in memory; 0 for an empty tile
    std::vector<NBX::SO<NBX::Image>> inMemory_;
    std::uint32_t inFile_ = 0;
};

} // namespace ZMT::UTIL
