#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>

namespace NBX {
class File;
}

namespace ZMT::RASTER {
class TiledGeoImagePyramid;
}

namespace ZMT::CORE {

namespace GRID {
class GridTerrain;
}

class AsyncFile;
class GeometryPatch;
class TerrainTexture;

/// How a streaming texture is written.
struct StreamingTextureOptions {
    /// How the pixels of tiles are stored.
    enum Pixels {
        P_AsDelivered = 0, ///< luminance of 8 bits where the image has nothing else, RGBA otherwise
        P_RGBA = 1,        ///< 32 bits
        P_Luminance = 2,   ///< 8 bits
        P_DXT1 = 3,        ///< S3TC blocks, 4 bits a pixel, alpha of 1 bit
        P_DXT3 = 4,        ///< S3TC blocks, 8 bits a pixel, alpha of 4 bits
    };
    Pixels pixels = P_AsDelivered;
    /// That compress; 0 for one for each core. The bytes are the same for any number.
    unsigned threads = 0;
};

/// Streaming textures: a quadtree of small images in one stream of bytes, which follows the patches of a
/// terrain and is read, from a disk or a web server, while it is looked at. Writes them and opens them.
///
/// A `key` other than 0 scrambles the stream; whoever reads it needs the same. `docs/streaming-texture.md`
/// has the format.
class AsyncQuadtreeTerrainTexture {
public:
    AsyncQuadtreeTerrainTexture() = delete;

    /// A tile that could not be read.
    struct ReadFailure {
        std::wstring url;           ///< of the file; empty for bytes in memory
        std::uint64_t offset, size; ///< of its block in the file
        std::wstring reason;
        double secondsToRetry; ///< until it may be asked for again; 0 when that is now
    };

    /// Writes the file `path` with a tile of at most `tileSize` pixels along each side for every patch of the
    /// tree below `root`, down to the finest level of `pyramid`. Patches are in scene coordinates, the
    /// pyramid in map coordinates. The coarsest level of the pyramid has to fit a tile where the root lies:
    /// otherwise the tile is blank.
    ///
    /// Reads the pyramid on the calling thread. False when the user cancelled, and, reported, when the
    /// pyramid failed; then there is no file, or the one that was there before. Throws `NBX::IOException`
    /// when it cannot be written. A pyramid that lies elsewhere gives a stream without tiles, which nobody
    /// can load.
    static bool create(const std::wstring & path, const NBX::SO<GeometryPatch> & root,
                       const NBX::SO<RASTER::TiledGeoImagePyramid> & pyramid, unsigned tileSize,
                       std::uint64_t key, const StreamingTextureOptions & options = {});
    /// The same as a stream from the position of `file` on, which is at its end afterwards. What was begun
    /// stays when the result is false.
    static bool create(const NBX::SO<NBX::File> & file, const NBX::SO<GeometryPatch> & root,
                       const NBX::SO<RASTER::TiledGeoImagePyramid> & pyramid, unsigned tileSize,
                       std::uint64_t key, const StreamingTextureOptions & options = {});

    /// A stream, from the position of `file` on, of the light on `terrain`, whose tiles are read as they are
    /// needed: `ambient + (1 - ambient) * cos a` as luminance, with the angle a between the normal and the
    /// unit vector `lightDirection` to the sun (x to the east, y up, z to the north). With `asNormalMap`, the
    /// normals themselves as colours, transparent where the terrain has no height. Heights, in quantised
    /// units, times `exaggeration` are map units. Tiles are at least half of `textureSize` pixels wide, and
    /// less than `textureSize` where tiles of the terrain are. `threads` is as in the options. False when the
    /// user cancelled, and when a tile of the terrain could not be read: that is reported, or told in
    /// `problem`, where given, which otherwise stays as it is.
    static bool createGridTerrainLightMap(const NBX::SO<NBX::File> & file,
                                          const NBX::SO<GRID::GridTerrain> & terrain, double exaggeration,
                                          bool asNormalMap, double ambient,
                                          const NBX::Vector3Base<double> & lightDirection,
                                          unsigned textureSize, std::uint64_t key, unsigned threads = 0,
                                          std::wstring * problem = nullptr);

    /// Opens a path or a URL; null when it is no streaming texture, or not with this key. What cannot be
    /// opened is reported by `AsyncFile::create`.
    static NBX::SO<TerrainTexture> load(const std::wstring & path, std::uint64_t key);
    /// The stream that begins at `offset` of `file`. Waits for its header; the rest comes while frames are
    /// painted.
    static NBX::SO<TerrainTexture> load(const NBX::SO<AsyncFile> & file, std::uint64_t offset,
                                        std::uint64_t key);

    /// The tiles of all textures whose last read failed, and that are still wanted. A tile that is wanted is
    /// asked for again after 1 s, and after twice the time before each time it fails: up to 4 s where it
    /// cannot be read, and up to 60 s where it is damaged.
    static std::vector<ReadFailure> readFailures();

    /// Tiles of all textures that were wanted since `resetStatistics` and are not there.
    static unsigned missingTiles();
    static void resetStatistics();

    /// Called when the painting of a terrain begins and ends.
    static void beginFrame(const TerrainPainterFrameManager::Info & info);
    static void endFrame(const TerrainPainterFrameManager::Info & info);
};

} // namespace ZMT::CORE
