#include "cityground.h"

#include <algorithm>
#include <cmath>

#include <nbx/scene/shape/polygonset.h>
#include <zmt/raster/rasterband.h>

#include "tileheights.h"

namespace ZMT::UTIL {

namespace {

using Point = NBX::Vector3Base<double>;
using HeightAt = std::function<double(const RASTER::MapPlace &)>;

/// Cells are at least as large as that, in metres, and this many lie around the box, finely and coarsely.
constexpr double s_leastCell = 1.0;
constexpr unsigned s_groundHalo = 32, s_farGroundHalo = 256;

/// Heights that are asked for where they are read.
class GroundBand : public RASTER::RasterBand {
    NBX_TEMPLATE_CLASS(GroundBand, RASTER::RasterBand)
public:
    GroundBand(const RASTER::RasterGrid & grid, const HeightAt & heightAt)
        : RasterBand(grid), heightAt_(heightAt) {}

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                   float * cells) const override {
        for (unsigned y = row; y < row + height; ++y)
            for (unsigned x = col; x < col + width; ++x)
                *cells++ =
                    static_cast<float>(heightAt_({minX() + x * cellSizeX(), minY() + y * cellSizeY()}));
    }

private:
    const HeightAt & heightAt_;
};

} // namespace

std::vector<Point> groundOfCity(const NBX::Bounds & box, const Point & origin, const HeightAt & heightAt) {
    if (!box.isDefined()) return {};
    const Point low = box.getLLF() + origin, size = box.diagonal();
    const double cell = std::max(std::max(size.x, size.z) / s_groundCells, s_leastCell);
    const auto cellsFor = [cell](double length) {
        return static_cast<unsigned>(std::ceil(length / cell)) + 1;
    };
    const int far = static_cast<int>(s_farGroundHalo);
    const NBX::Area tile(far, far, cellsFor(size.x), cellsFor(size.z));
    const RASTER::RasterGrid grid{tile.getWidth() + 2 * s_farGroundHalo,
                                  tile.getHeight() + 2 * s_farGroundHalo,
                                  low.x - far * cell,
                                  low.z - far * cell,
                                  cell,
                                  cell};
    const NBX::SO<GroundBand> band(new GroundBand(grid, heightAt));
    const TileHeights heights(*band, tile, {cell, cell}, s_groundHalo, s_farGroundHalo);
    const Point middle = heights.middle();
    const Point offset = Point(grid.minX + middle.x * cell, middle.y, grid.minY + middle.z * cell) - origin;
    const NBX::SO<NBX::PolygonSet> casters = heights.newCasters();
    std::vector<Point> corners;
    corners.reserve(casters->newIndexIterator()->size());
    for (const unsigned corner : *casters->newIndexIterator())
        corners.push_back(casters->newVertexIterator()->get(corner) + offset);
    return corners;
}

} // namespace ZMT::UTIL
