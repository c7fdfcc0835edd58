#pragma once

#include <utility>
#include <vector>

#include <nbx/math/area.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>

namespace NBX {
class PolygonSet;
}

namespace ZMT::RASTER {
class RasterBand;
}

namespace ZMT::UTIL {

/// The heights that one tile needs, as meshes around its middle, in metres.
class TileHeights {
public:
    /// Every so many cells of the raster cast shadows from far away.
    static constexpr unsigned s_farStep = 8;

    /// `tile` in cells; `cellSize` in metres.
    TileHeights(const RASTER::RasterBand & band, const NBX::Area & tile, std::pair<double, double> cellSize,
                unsigned halo, unsigned farHalo);

    /// The origin of the meshes, in cells of the raster and heights.
    NBX::Vector3Base<double> middle() const;
    /// False where no cell of the tile has a height.
    bool hasHeights() const { return hasHeights_; }
    bool isDefined(unsigned column, unsigned row) const;
    /// The tile with half a cell around it. Texture coordinates of unit 0 have the middle of each cell in
    /// that of its texel, in a picture of `size` texels square. Cells without a height take the mean of those
    /// around them, so that their neighbours are whole.
    NBX::SO<NBX::PolygonSet> newReceiver(unsigned size) const;
    /// The tile and its halo, around that the coarser heights, and those triangles of `bodies`, which may be
    /// null and is in cells of the raster and heights, that reach as far as these.
    NBX::SO<NBX::PolygonSet> newCasters(const NBX::PolygonSet * bodies = nullptr) const;

private:
    using Vector = NBX::Vector3Base<double>;

    /// Heights of every `step`th cell, from the cell `x`, `y` on, which are multiples of it.
    struct Window {
        int x = 0, y = 0;
        unsigned width = 0, height = 0, step = 1;
        std::vector<float> heights;

        float at(unsigned column, unsigned row) const { return heights[std::size_t(row) * width + column]; }
        float clamped(int cellX, int cellY) const;
        int endX() const { return x + static_cast<int>((width - 1) * step); }
        int endY() const { return y + static_cast<int>((height - 1) * step); }
    };

    Window read(const RASTER::RasterBand & band, unsigned around, unsigned step) const;
    Vector place(double cellX, double cellY, double height) const;
    float filled(int cellX, int cellY) const;
    void appendTriangles(const Window & window, const Window * leftOut, std::vector<Vector> & vertices,
                         std::vector<unsigned> & corners) const;
    void appendBodies(const NBX::PolygonSet & bodies, std::vector<Vector> & vertices,
                      std::vector<unsigned> & corners) const;

    NBX::Area tile_;
    std::pair<double, double> cellSize_;
    int reach_; ///< cells around the tile that cast shadows
    Window near_, far_;
    float base_ = 0.0F; ///< height from which the meshes count
    bool hasHeights_ = false;
};

} // namespace ZMT::UTIL
