#pragma once

#include <vector>

#include <nbx/data/file.h>
#include <zmt/raster/tilecache.h>
#include <zmt/raster/tiledgeoimage.h>
#include <zmt/util/compressedtexture/compressedtexture.h>

namespace ZMT::UTIL {

/// One level of a `TexturePyramid`. Formats with few bits deliver decoded pixels.
class TexturePyramidTiledGeoImage : public RASTER::TiledGeoImage {
    NBX_CLASS(TexturePyramidTiledGeoImage, RASTER::TiledGeoImage)
public:
    /// What the file says of a level.
    struct Header {
        std::uint32_t version = 0;
        std::uint32_t pixelsX = 0, pixelsY = 0;
        std::uint32_t tileWidth = 0, tileHeight = 0;
        std::uint32_t tilesX = 0, tilesY = 0;
        std::uint32_t pixelFormat = 0;
        std::uint32_t rawTileSize = 0;
        std::uint32_t compression = 0;
    };
    /// Tiles that are larger, as they are stored or as pixels, are not read.
    static constexpr std::uint32_t maxTileBytes = 1U << 26;

    /// The level whose header stands at `position` of the file; null where none stands that can be right.
    /// `extent` is that of the pyramid. With a version below 3 it goes from the centre of the first pixel to
    /// that of the last, otherwise to the outer edges. The `cache` may be shared with other levels: the tiles
    /// have the numbers from `firstTile` on in it.
    static NBX::SO<TexturePyramidTiledGeoImage> read(NBX::SO<NBX::File> file, std::uint64_t position,
                                                     const RASTER::GeoExtent & extent,
                                                     NBX::SO<RASTER::TileCache> cache,
                                                     std::uint64_t firstTile);

    const Header & header() const { return header_; }
    CompressedTexture::PixelFormat pixelFormat() const {
        return static_cast<CompressedTexture::PixelFormat>(header_.pixelFormat);
    }
    /// Number of tiles, empty ones included.
    std::uint64_t tiles() const { return positions_.size(); }
    /// Bytes that header and tables take in the file.
    std::uint64_t tableBytes() const;
    /// Number of tiles that are not empty, and the bytes they take in the file; in version 1, where the sizes
    /// stand in front of the tiles, those they would take without deflating.
    std::uint64_t storedTiles() const;
    std::uint64_t storedBytes() const;

    unsigned bands() const override;
    double minX() const override { return minX_; }
    double minY() const override { return minY_; }
    double pixelSizeX() const override { return pixelSizeX_; }
    double pixelSizeY() const override { return pixelSizeY_; }
    std::uint64_t pixelsX() const override { return header_.pixelsX; }
    std::uint64_t pixelsY() const override { return header_.pixelsY; }
    unsigned granularityX() const override { return header_.tileWidth; }
    unsigned granularityY() const override { return header_.tileHeight; }
    /// True once a tile could not be read.
    bool failed() const override { return failed_; }
    NBX::SO<NBX::Image> createEmptyImage(unsigned width, unsigned height) const override;
    /// Null where all tiles are empty, and where one of them cannot be read, which is reported.
    NBX::SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override;
    /// Reported: a level belongs to its pyramid.
    void serialize(NBX::SerializationManager & m) override;

private:
    TexturePyramidTiledGeoImage(NBX::SO<NBX::File> file, const Header & header,
                                const RASTER::GeoExtent & extent, NBX::SO<RASTER::TileCache> cache,
                                std::uint64_t firstTile);

    bool readTables(std::uint64_t position);
    bool readTile(std::uint64_t tile, std::vector<std::uint8_t> & stored) const;
    NBX::SO<NBX::Image> decodeTile(std::uint64_t tile) const;
    NBX::SO<NBX::Image> tileImage(std::uint64_t tile) const;

    NBX::SO<NBX::File> file_;
    Header header_;
    double minX_, minY_, pixelSizeX_, pixelSizeY_;
    std::vector<std::uint64_t> positions_; ///< 0 for an empty tile
    std::vector<std::uint32_t> sizes_;
    NBX::SO<RASTER::TileCache> cache_;
    std::uint64_t firstTile_;
    mutable bool failed_ = false;
};

} // namespace ZMT::UTIL
