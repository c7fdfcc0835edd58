#pragma once

#include <optional>
#include <string>

#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/grid/creation/heightresampling.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>
#include <zmt/raster/rasterband.h>

namespace ZMT::CORE::GRID {

/// How the file of a streaming terrain is written.
///
/// Nothing that is defined is lost: a sample of a coarse level is defined where any cell of the raster around
/// it is. The raster is read twice, in windows, and memory does not grow with its height. The bytes of the
/// file are the same for any number of threads.
struct GridTerrainCreation {
    using Resampling = HeightResampling;
    /// Shows a message to the user of a graphical application, and waits until it was read.
    using MessageBox = void (*)(const std::wstring & caption, const std::wstring & text);

    /// Tiles have 2^`level` cells along a side, but never more than the raster. 1 to 7.
    unsigned level = 7;
    Resampling resampling = Resampling::Nearest;
    /// Shows where the raster is undefined, and gives its level and its place; null without one.
    NBX::SO<GridTerrain> oldTerrain;
    /// That compute; 0 stands for one for each core.
    unsigned threads = 0;

    /// Whether a light map stands behind the tiles.
    bool createShading = false;
    /// Normals, for light that is computed while drawing, in the place of light.
    bool storesNormals = false;
    double ambientLight = 0.3;                        ///< the share of light from everywhere
    NBX::Vector3Base<double> lightDirection{0, 1, 0}; ///< to the sun: x to the east, y up, z to the north

    /// The coordinate system, which will stand beside the file; with an empty one nothing will. Without a
    /// value, nothing is done about it.
    std::optional<std::string> wkt;

    /// Writes `path`, aside, and gives it its name when it is complete. False when the user cancelled and
    /// when it failed; then all is as it was before. Failures are told to `problem`, in a line, where it is
    /// given, and otherwise to the user: by the message box of the process, where there is one, and else as a
    /// report of level 2.
    bool run(const std::wstring & path, const NBX::SO<RASTER::RasterBand> & band,
             std::wstring * problem = nullptr) const;

    /// How much of the raster lies outside of the square of `old`, and would be left out: 0 to 1.
    static double shareOutside(const RASTER::RasterGrid & grid, const GridTerrain & old);

    /// Set by graphical applications; null, as at start, shows nothing. Returns the one before.
    static MessageBox setMessageBox(MessageBox box);
};

} // namespace ZMT::CORE::GRID
