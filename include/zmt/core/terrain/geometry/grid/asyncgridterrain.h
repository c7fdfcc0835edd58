#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>

namespace ZMT::RASTER {
class RasterBand;
}

namespace ZMT::CORE {
class AsyncFile;
}

namespace ZMT::CORE::GRID {

struct AsyncGridTerrainFile;

/// A terrain of any size in one file, on a disk or a web server, whose tiles are read while it is looked at.
/// `docs/streaming-terrain.md` has the format. Render thread; `create` may run on any thread.
///
/// Opening reads the header and the root; the heights of the root stay in memory. All else arrives as tiles
/// are asked for, is kept by the memory managers within their budgets, and is asked for again once they have
/// let go of it. A tile that could not be read is asked for again after 1, 2 and every 4 s; one that is
/// damaged after 1 s, then after twice the time before, up to 60 s. Whoever walks goes on with the tile
/// above. Tiles that nobody walked over for 10 s of painting are dropped.
class AsyncGridTerrain : public GridTerrain {
    NBX_STORED_CLASS(AsyncGridTerrain, GridTerrain)
public:
    /// A tile that could not be read.
    struct ReadFailure {
        std::wstring url;           ///< as `fileName`
        std::uint64_t offset, size; ///< of its block
        std::wstring reason;
        double secondsToRetry; ///< until it may be asked for again; 0 when that is now
    };

    /// What lies behind the tiles of a file.
    enum LightMap {
        LM_None,
        LM_Light,  ///< light of the sun for which it was made
        LM_Normals ///< normals, for light that is computed while drawing
    };

    /// Terrains of more than this many bytes are not embedded in scenes.
    static constexpr std::uint64_t maxEmbeddedBytes = 0x4000000;

    ~AsyncGridTerrain() override;

    /// Writes the file `path` from `band`: tiles of 2^`level` cells, fewer where the band is narrower. Where
    /// the band is undefined, the heights of `oldTerrain` show, if there is one. With `createShading`, a
    /// light map stands behind the tiles: the light of `ambientLight` and of a sun towards
    /// `lightDirection`, or, with `storesNormals`, the normals. False, with no file left of the new one, when
    /// it failed, which is told as by `GridTerrainCreation::run`, or was cancelled.
    static bool create(const std::wstring & path, const NBX::SO<GridTerrain> & oldTerrain,
                       const NBX::SO<RASTER::RasterBand> & band, unsigned level, bool createShading,
                       bool storesNormals, double ambientLight, const Point & lightDirection);
    /// The same in a temporary file, which goes with the terrain; null when it failed.
    static NBX::SO<AsyncGridTerrain> createAndLoadTemp(const NBX::SO<GridTerrain> & oldTerrain,
                                                       const NBX::SO<RASTER::RasterBand> & band,
                                                       unsigned level, bool createShading, bool storesNormals,
                                                       double ambientLight, const Point & lightDirection);

    /// Opens a path or a URL, and waits for the root. Null when that fails; `problem`, where given, gets a
    /// line that says why.
    static NBX::SO<AsyncGridTerrain> load(const std::wstring & path, bool deleteWhenClosed = false,
                                          std::wstring * problem = nullptr);
    /// The same of a file that is open already, such as bytes in memory. With `isTemporary`, it will be
    /// embedded where it is stored.
    static NBX::SO<AsyncGridTerrain> load(const NBX::SO<AsyncFile> & file, bool isTemporary = false,
                                          std::wstring * problem = nullptr);

    /// Called when the painting of a terrain begins and ends.
    static void beginFrame(const TerrainPainterFrameManager::Info & info);
    static void endFrame(const TerrainPainterFrameManager::Info & info);

    /// The tiles of all terrains whose last read failed, and that are still wanted.
    static std::vector<ReadFailure> readFailures();

    /// The path or the URL; empty for bytes in memory.
    std::wstring fileName() const;
    /// The file that is read; null without one.
    NBX::SO<AsyncFile> file() const;
    /// What `createStaticLightMap` and `createDynamicLightMap` give. Reads a tile of the light map, and waits
    /// for it; `LM_None` also where that cannot be read, which `problem` says where it is given, and else a
    /// report at level 2 under "light map".
    LightMap lightMapKind(std::wstring * problem = nullptr) const;
    /// Whether it can be stored in a scene: by its name, or embedded where the file goes with the terrain.
    bool serializable() const;
    /// The coordinate system beside the file, as WKT; empty without one. Waits for it where it lies on a web
    /// server; empty as well, reported at level 2 under "projection", where that cannot give it. Throws
    /// `NBX::InputException` for a local file that holds none.
    std::string wkt() const;
    /// Copies the whole file, with its light map and with the coordinate system beside it. False, reported,
    /// when that failed.
    bool extract(const std::wstring & path) const;
    /// In geo coordinates, among the samples of the root; at negative infinity where there are none.
    Point lowestPoint() const;
    Point highestPoint() const;

    unsigned gridLevel() const override;
    NBX::SO<GridTerrainTile> rootTile() const override;
    const Matrix & grid2geoTf() const override;
    const Matrix & geo2gridTf() const override;
    const NBX::Bounds & gridBoundingBox() const override;
    const NBX::Bounds & geoBoundingBox() const override;
    void preRender(NBX::EngineGL * engine, bool colors) const override;
    void postRender(NBX::EngineGL * engine, bool colors) const override;
    /// The light map of the file; null when it has none, and, reported as above, when that cannot be read.
    NBX::SO<TerrainTexture> createStaticLightMap(double shade, const Point & direction) override;
    NBX::SO<TerrainTexture> createDynamicLightMap() override;

    /// Stores the name of the file, or the file itself. Throws `NBX::IOError` for "terrain is too big to
    /// embed" and "terrain could not be loaded", and `NBX::FileNotFoundException`.
    void serialize(NBX::SerializationManager & m) override;

protected:
    /// Without a file, until it is read from a scene.
    AsyncGridTerrain();

private:
    struct Impl;

    void store(NBX::SerializationManager & m);
    void restore(NBX::SerializationManager & m);
    void loadFrom(const std::wstring & path, bool isEmbedded);
    NBX::SO<TerrainTexture> lightMap() const;
    /// Null without a file.
    NBX::SO<AsyncGridTerrainFile> terrainFile() const;

    NBX::SO<Impl> impl_; ///< null without a file
};

} // namespace ZMT::CORE::GRID
