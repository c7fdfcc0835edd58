#pragma once

#include <cstdint>
#include <vector>

#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>

#include "streamingtexturewriter.h"

namespace ZMT::CORE {

/// What a light map shows.
struct LightMapLight {
    double exaggeration; ///< map units for each quantised unit of height
    bool asNormalMap;
    double ambient;
    NBX::Vector3Base<double> direction; ///< to the sun: x to the east, y up, z to the north
};

/// Pixels of a light map from heights on a lattice that has one ring more than the image.
class LightMapPixels {
public:
    /// `heights` has `side + 2` rows of as many; the samples lie `spacingX` and `spacingY` map units apart.
    /// The first row is the southern one. One byte a pixel, or four with normals.
    static std::vector<std::uint8_t> compute(const std::vector<float> & heights, unsigned side,
                                             double spacingX, double spacingY, const LightMapLight & light);
};

/// Gives every tile of a terrain that has heights of its own a tile of light.
class LightMapWriter {
public:
    using Handle = StreamingTextureWriter::Handle;

    /// Tiles of 2^L cells get 2^(L + k) pixels, with the smallest k from 0 on that makes them at least half
    /// of `textureSize`, and one pixel more at the end. `writer` is borrowed.
    LightMapWriter(const NBX::SO<GRID::GridTerrainTile> & root, const LightMapLight & light,
                   unsigned textureSize, StreamingTextureWriter & writer);

    /// Writes the tiles of the tree, the children of each first; the root's is null where there is none.
    Handle write() { return write(*root_, Step{}); }
    /// A tile of the terrain could not be read.
    bool isIncomplete() const { return isIncomplete_; }

private:
    struct Step {
        double progress = 0.0, share = 1.0;
    };

    Handle write(GRID::GridTerrainTile & tile, const Step & step);
    StreamingTextureWriter::Children writeChildren(GRID::GridTerrainTile & tile, const Step & step);

    void unload(GRID::GridTerrainTile & tile, unsigned child) const;

    const NBX::SO<GRID::GridTerrainTile> root_;
    const LightMapLight light_;
    const unsigned extraLevels_; ///< k
    StreamingTextureWriter & writer_;
    bool isIncomplete_ = false;
};

} // namespace ZMT::CORE
