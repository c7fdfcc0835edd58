#pragma once

#include <functional>
#include <vector>

#include <nbx/math/area.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/util/occlusion/ambientocclusion.h>

namespace ZMT::RASTER {
class RasterBand;
struct CellSize;
} // namespace ZMT::RASTER

namespace ZMT::UTIL {

/// The light on the cells of a height raster of any size, computed tile by tile: each has cameras of its own
/// for all directions, the heights around it at full detail as far as a halo, and coarser ones far beyond.
///
/// (1) Tiles are those of a fixed grid of `s_tileSize` cells from the south-western one, so that what is
/// written
///     is the same, byte for byte on one renderer, however many of them are held at once.
/// (2) Light is relative to that of an open level plane; 1 is all of it.
class RasterLight {
public:
    static constexpr unsigned s_tileSize = 512;

    struct Settings {
        AmbientOcclusion::LightingConfiguration lighting;
        /// Cells around a tile that cast shadows at full detail; up to a whole multiple of 8.
        unsigned halo = 64;
        /// Cells around a tile up to which every eighth one casts shadows.
        unsigned farHalo = 1024;
        /// Bodies on the ground that cast shadows as far as heights do, such as buildings: x and z in cells
        /// of the raster, y in units of the heights. May be null.
        NBX::SO<NBX::PolygonSet> casters;
        /// Tiles that are held at once, 1 or more.
        unsigned piece = 4;
        /// Seed of the process's `rand`, from which the directions are.
        unsigned seed = 1;
    };
    /// Takes the light of the cells `cells`, row by row from the southern one; NaN where there is no height.
    /// Rows of tiles come from north to south, tiles of a row from west to east.
    using Write = std::function<void(const NBX::Area & cells, const std::vector<float> & light)>;

    /// `sizes` are those of the cells of each row, from the southern one on, in units of the heights; tiles
    /// whose middle row has none have no light. False when the progress display cancelled, or nothing can be
    /// drawn, which is reported. What reading or `write` throws goes through.
    static bool bake(const RASTER::RasterBand & heights, const std::vector<RASTER::CellSize> & sizes,
                     const Settings & settings, NBX::SO<NBX::GLCanvas> canvas, const Write & write);
};

} // namespace ZMT::UTIL
