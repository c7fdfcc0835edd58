#pragma once

#include <optional>
#include <string>

#include <nbx/data/atomicfilewriter.h>
#include <zmt/core/terrain/geometry/grid/gridterraincreation.h>
#include <zmt/raster/gdal/projectionfile.h>

#include "core/terrain/geometry/grid/creation/tileassembly.h"
#include "core/terrain/geometry/grid/creation/tilesamples.h"
#include "core/terrain/geometry/grid/model/terrainfileformat.h"

namespace ZMT::CORE::GRID {

/// The file of a terrain while it is written, aside: header, tiles, light map, and the coordinate system
/// beside it. Throws `NBX::IOException`.
class TerrainOutput {
public:
    /// Of `how`, the coordinate system and the light are looked at; it is borrowed.
    TerrainOutput(const std::string & path, const GridTerrainCreation & how);

    /// Where the tiles go, behind a header without a root.
    NBX::File & begin(const TerrainFileFormat::FileHeader & header);
    /// Behind the tiles: the header as it will be and the light map. Throws `TerrainFailure` and
    /// `CreationCancelled` as well.
    void end(const TileAssembly & tiles);
    /// Gives the files their names.
    void commit();

private:
    void writeHeader();
    void writeLightMap();

    const GridTerrainCreation & how_;
    const std::string path_;
    NBX::AtomicFileWriter writer_;
    std::optional<RASTER::ProjectionFile> projection_;
    TerrainFileFormat::FileHeader header_{};
};

} // namespace ZMT::CORE::GRID
