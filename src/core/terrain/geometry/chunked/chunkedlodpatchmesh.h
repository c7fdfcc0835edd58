#pragma once

#include <vector>

#include <nbx/math/vector3base.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>

namespace ZMT::CORE {

/// What is drawn of a patch of a `ChunkedLodTerrain`: the surface with skirts along inner sides, and walls
/// along the outer edge of the raster, as triangle strips over common vertices.
struct ChunkedLodPatchMesh {
    /// Of one strip: its numbers have 16 bits.
    static constexpr std::size_t s_maxEntries = 65534;

    struct Strips {
        std::vector<unsigned short> indices;
        std::vector<unsigned> ranges; ///< where each strip ends
    };

    /// At the patch's threshold.
    explicit ChunkedLodPatchMesh(const ChunkedLodTerrain::Patch & patch);

    unsigned triangles = 0;                        ///< of the surface, without skirts
    std::vector<NBX::Vector3Base<float>> vertices; ///< in scene coordinates; those of the skirts last
    Strips surface, outerWall;                     ///< without an outer side the wall is empty
};

} // namespace ZMT::CORE
