#include "texturepyramidformat.h"

#include <cmath>
#include <cstddef>
#include <string>

#include <zmt/util/compressedtexture/compressedtexture.h>
#include <zmt/util/compressedtexture/texturepyramidtiledgeoimage.h>

#include "tilepixels.h"

namespace ZMT::UTIL::TexturePyramidFormat {

using CORE::RecordFaults;

namespace {

bool isExtent(double min, double max) {
    return min < max && std::isnormal(max - min);
}

std::uint32_t tilesFor(std::uint32_t pixels, std::uint32_t tile) {
    return pixels / tile + (pixels % tile != 0);
}

void noteTileFaults(const LevelHeader & h, RecordFaults & faults) {
    const auto noteTiles = [&](std::uint32_t tiles, std::uint32_t wanted, std::size_t offset) {
        if (tiles != wanted)
            faults.push_back({offset, "the number of tiles is " + std::to_string(tiles) + " in place of " +
                                          std::to_string(wanted)});
    };
    noteTiles(h.tilesX, tilesFor(h.pixelsX, h.tileWidth), offsetof(LevelHeader, tilesX));
    noteTiles(h.tilesY, tilesFor(h.pixelsY, h.tileHeight), offsetof(LevelHeader, tilesY));
    if (!CompressedTexture::isPixelFormat(h.pixelFormat)) {
        faults.push_back({offsetof(LevelHeader, pixelFormat),
                          "no pixel format has the number " + std::to_string(h.pixelFormat)});
        return;
    }
    const auto format = static_cast<CompressedTexture::PixelFormat>(h.pixelFormat);
    const std::uint64_t bytes = CompressedTexture::tileBytes(format, h.tileWidth, h.tileHeight);
    constexpr std::uint64_t most = TexturePyramidTiledGeoImage::maxTileBytes;
    if (bytes == 0 || bytes > most || TilePixels::imageBytes(format, h.tileWidth, h.tileHeight) > most)
        faults.push_back({offsetof(LevelHeader, tileWidth), "tiles of " + std::to_string(h.tileWidth) +
                                                                " by " + std::to_string(h.tileHeight) +
                                                                " pixels are too large"});
    else if (bytes != h.rawTileSize)
        faults.push_back(
            {offsetof(LevelHeader, rawTileSize),
             "a tile has " + std::to_string(h.rawTileSize) + " bytes in place of " + std::to_string(bytes)});
}

} // namespace

RecordFaults PyramidHeader::faults() const {
    if (std::memcmp(magic, pyramidMagic, sizeof magic) != 0)
        return {{0, "the magic is no \"ZMT-TEXTURE-PYRAMID\""}};
    if (version != pyramidVersion)
        return {{offsetof(PyramidHeader, version), "the version is " + std::to_string(version) +
                                                       ", and readers know " +
                                                       std::to_string(pyramidVersion)}};
    RecordFaults faults;
    if (levels == 0) faults.push_back({offsetof(PyramidHeader, levels), "there are no levels"});
    if (!isExtent(minX, maxX)) faults.push_back({offsetof(PyramidHeader, minX), "the extent has no width"});
    if (!isExtent(minY, maxY)) faults.push_back({offsetof(PyramidHeader, minY), "the extent has no height"});
    return faults;
}

RecordFaults LevelHeader::faults() const {
    if (std::memcmp(magic, levelMagic, sizeof magic) != 0)
        return {{0, "the magic is no \"ZMT-TEXTURE-PYRAMID-LEVEL\""}};
    if (version < 1 || version > levelVersion)
        return {{offsetof(LevelHeader, version), "the version is " + std::to_string(version) +
                                                     ", and readers know 1 to " +
                                                     std::to_string(levelVersion)}};
    if (pixelsX == 0 || pixelsY == 0) return {{offsetof(LevelHeader, pixelsX), "there are no pixels"}};
    if (tileWidth == 0 || tileHeight == 0)
        return {{offsetof(LevelHeader, tileWidth), "tiles have no pixels"}};
    RecordFaults faults;
    noteTileFaults(*this, faults);
    return faults;
}

} // namespace ZMT::UTIL::TexturePyramidFormat
