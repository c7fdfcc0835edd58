#pragma once

#include <cstdint>
#include <vector>

#include <nbx/math/bounds.h>
#include <nbx/math/vector3base.h>

namespace NBX {
class Progress;
}

namespace ZMT::RASTER {
template <class T> class SimpleRasterData;
}

namespace ZMT::CORE::GRID {

/// Of `GridTerrainTile::extractMesh`: the triangles of the finest tiles that meet a box, read as needed.
struct ExtractMeshParam {
    NBX::Bounds box; ///< in grid space; heights are not looked at
    /// Stops at tiles of this level; 0 goes down to the finest heights.
    int level = 0;
    NBX::Progress * progress = nullptr;
    std::vector<NBX::Vector3Base<double>> vertices; ///< out: in grid space
    std::vector<unsigned> indices;                  ///< out: three a triangle, as tiles are drawn
    bool isCancelled = false;                       ///< out
    bool isIncomplete = false; ///< out: a tile could not be read, a coarser one stands in
};

/// Of `GridTerrainTile::getLightMapRaster`: heights on a lattice, from the coarsest tiles that are as fine as
/// it where there are any, and else from the finest, interpolated.
struct GetLightMapParam {
    double minX = 0.0, minY = 0.0; ///< of the first sample, in grid space
    double step = 1.0;             ///< between two samples, in finest cells
    unsigned width = 0, height = 0;
    std::vector<float> values; ///< out: row by row, in quantised units; 0 stands for none
    bool isIncomplete = false; ///< out: a tile could not be read, a coarser one stands in
};

/// Of `GridTerrainTile::resampleRasterData`: heights at the cells of a raster in geo coordinates.
struct ResamplingParam {
    RASTER::SimpleRasterData<float> * target = nullptr; ///< what is undefined there and known here is set
    bool isIncomplete = false; ///< out: a tile could not be read, a coarser one stands in
};

} // namespace ZMT::CORE::GRID
