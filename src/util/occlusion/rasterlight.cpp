// Every tile is drawn alone, from the same directions: heights around it become meshes, and the renderer of
// meshes draws the tile with one texel a cell. Tiles are held until a piece of them is complete, and then
// written.

#include <zmt/util/occlusion/rasterlight.h>

#include <algorithm>
#include <cstdlib>
#include <limits>

#include <nbx/gl/context/glcanvas.h>
#include <nbx/image/image.h>
#include <nbx/object/progress.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/raster/rasterband.h>
#include <zmt/raster/relief/reliefwalk.h>

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

bool RasterLight::bake(const RASTER::RasterBand & heights, const std::vector<RASTER::CellSize> & sizes,
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
        const std::size_t middle = std::size_t(cells.getY()) + cells.getHeight() / 2;
        const RASTER::CellSize size = middle < sizes.size() ? sizes[middle] : RASTER::CellSize();
        const TileHeights around(heights, cells, {size.x, size.y}, settings.halo, settings.farHalo);
        BakedTile tile{cells, std::vector<float>(std::size_t(cells.getWidth()) * cells.getHeight(),
                                                 std::numeric_limits<float>::quiet_NaN())};
        if (around.hasHeights() && size.x > 0.0 && size.y > 0.0) {
            AOImpl::MeshStep step{around.newReceiver(s_tileSize), around.newCasters(settings.casters.get()),
                                  s_tileSize};
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
