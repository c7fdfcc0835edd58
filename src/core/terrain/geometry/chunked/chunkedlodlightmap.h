#pragma once

#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>

namespace ZMT::RASTER {
class RasterData;
}

namespace ZMT::CORE {

/// Light maps of a `ChunkedLodTerrain`: computed from its 16-bit heights at the size of the raster, in a
/// temporary file, and kept at half that size.
class ChunkedLodLightMap {
public:
    using Point = NBX::Vector3Base<double>;

    /// With `normals` three layers, the components of the normals from -1 to 1 as 1 to 255. Else one layer,
    /// the light of a sun towards which `direction` points, with `ambient`, 0 to 1, where it does not shine.
    /// The steepness is that of the quantised heights, and so depends on their range.
    ///
    /// Null for less than two columns or rows, when cancelled, and, reported as a failure, without room for
    /// the temporary file.
    static NBX::SO<TerrainTexture> createLightMap(const RASTER::RasterData & raster,
                                                  const ChunkedLodTerrain::Impl & impl, bool normals,
                                                  double ambient, const Point & direction);
};

} // namespace ZMT::CORE
