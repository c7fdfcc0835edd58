// Every tile is drawn alone, from the same directions: heights around it become meshes, and the renderer of
// meshes draws the tile with one texel a cell. Tiles are held until a piece of them is complete, and then
// written.

#include <zmt/util/occlusion/rasterlight.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <numbers>

#include <nbx/gl/context/glcanvas.h>
#include <nbx/image/image.h>
#include <nbx/object/progress.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/raster/rasterband.h>

#include "aoimpl.h"
#include "lightlist.h"
#include "tileheights.h"

namespace ZMT::UTIL {

namespace {

constexpr int s_size = static_cast<int>(RasterLight::s_tileSize);
/// A shadow map has to be finer than the texels that it is turned against.
constexpr unsigned s_shadowSize = 2 * RasterLight::s_tileSize;

struct BakedTile {
    NBX::Area cells;
    std::vector<float> light;
};

/// From north to south, in each row from west to east.
std::vector<NBX::Area> tilesOf(const RASTER::RasterBand & band) {
    const int width = static_cast<int>(band.cellsX()), height = static_cast<int>(band.cellsY());
    std::vector<NBX::Area> tiles;
    for (int y = (height - 1) / s_size * s_size; y >= 0; y -= s_size)
        for (int x = 0; x < width; x += s_size)
            tiles.emplace_back(x, y, static_cast<unsigned>(std::min(s_size, width - x)),
                               static_cast<unsigned>(std::min(s_size, height - y)));
    return tiles;
}

/// The share of the light of an open plane, cell by cell.
std::vector<float> sharesOf(const NBX::Image & picture, const TileHeights & heights, const NBX::Area & cells,
                            double open) {
    std::vector<float> light(std::size_t(cells.getWidth()) * cells.getHeight(),
                             std::numeric_limits<float>::quiet_NaN());
    for (unsigned row = 0; row < cells.getHeight(); ++row) {
        const auto * line = static_cast<const float *>(picture.lineComponents(static_cast<int>(row)));
        for (unsigned column = 0; column < cells.getWidth(); ++column) {
            if (!heights.isDefined(column, row)) continue;
            const float * texel = line + std::size_t(column) * 4;
            const double sum = double(texel[0]) + double(texel[1]) + double(texel[2]);
            light[std::size_t(row) * cells.getWidth() + column] =
                open > 0.0 ? static_cast<float>(std::max(sum / open, 0.0)) : 0.0F;
        }
    }
    return light;
}

} // namespace

std::pair<double, double> RasterLight::cellSize(const RASTER::RasterGrid & grid,
                                                const RASTER::GeoReference & reference, double row) {
    const double x = grid.cellSizeX * reference.unit, y = grid.cellSizeY * reference.unit;
    if (!reference.isGeographic) return {x, y};
    // Lengths of a degree of the ellipsoid, by their series.
    const double latitude = (grid.minY + row * grid.cellSizeY) * reference.unit * std::numbers::pi / 180.0;
    const double eastwards =
        111412.84 * std::cos(latitude) - 93.5 * std::cos(3.0 * latitude) + 0.118 * std::cos(5.0 * latitude);
    const double northwards =
        111132.92 - 559.82 * std::cos(2.0 * latitude) + 1.175 * std::cos(4.0 * latitude);
    return {x * std::max(eastwards, 1.0), y * northwards};
}

bool RasterLight::bake(const RASTER::RasterBand & heights, const RASTER::GeoReference & reference,
                       const Settings & settings, NBX::SO<NBX::GLCanvas> canvas, const Write & write) {
    const NBX::SO<AOImpl> impl = newAOImpl(canvas);
    if (!impl) return false;
    std::srand(settings.seed);
    const LightList lights = LightList::combined(settings.lighting);
    const LightList::Vector plane = lights.onOpenPlane();
    const double open = plane.x + plane.y + plane.z;
    const std::vector<NBX::Area> tiles = tilesOf(heights);
    NBX::Progress progress("calculating light",
                           static_cast<double>(lights.directions.size()) * static_cast<double>(tiles.size()));
    std::vector<BakedTile> held;
    for (std::size_t i = 0; i < tiles.size(); ++i) {
        const NBX::Area & cells = tiles[i];
        const TileHeights around(heights, cells,
                                 cellSize(heights.grid(), reference, cells.getY() + cells.getHeight() / 2.0),
                                 settings.halo, settings.farHalo);
        BakedTile tile{cells, std::vector<float>(std::size_t(cells.getWidth()) * cells.getHeight(),
                                                 std::numeric_limits<float>::quiet_NaN())};
        if (around.hasHeights()) {
            AOImpl::MeshStep step{around.newReceiver(s_tileSize), around.newCasters(), s_tileSize};
            step.shadowSize = s_shadowSize;
            step.closes = false;
            const NBX::SO<NBX::Image> picture = impl->render(step, lights, &progress);
            if (!picture) return false;
            tile.light = sharesOf(*picture, around, cells, open);
        }
        held.push_back(std::move(tile));
        if (held.size() < std::max(settings.piece, 1u) && i + 1 < tiles.size()) continue;
        for (const BakedTile & baked : held)
            write(baked.cells, baked.light);
        held.clear();
    }
    progress.finish();
    return true;
}

} // namespace ZMT::UTIL
