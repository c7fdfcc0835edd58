#pragma once

#include <functional>
#include <string>

#include <nbx/object/so.h>
#include <zmt/raster/gdal/coordinatesystem.h>

namespace NBX {
class GLCanvas;
}

namespace ZMT::CORE {
class CityModels;
}

namespace ZMT::UTIL {

/// The shade that the ground and other buildings throw on those of a city, as the second layer of its trees:
/// drawing multiplies the first one by it.
///
/// (1) 1 is what a face has that sees all of the sky that it is turned to; so a wall is not darker than a
///     roof, which is left to the shading of models.
/// (2) What sees none of it, and what looks down, has `s_leastLight`, for the light that walls and ground
///     give back.
class CityLight {
public:
    static constexpr double s_leastLight = 0.3;

    struct Settings {
        int directions = 150; ///< at random over the sky
        unsigned seed = 1;    ///< of the process's `rand`, from which they are
        /// Heights of the ground, in metres, at places of the city's map; NaN where there is none. Without it
        /// the ground is level, and throws no shade.
        std::function<double(const RASTER::MapPlace &)> groundAt;
    };
    /// The name of the new layer's paging file, by that of the first layer.
    using NameOf = std::function<std::wstring(const std::wstring &)>;

    /// Gives each tree of `city` whose triangles have texels of their own, one layer, and the map of which is
    /// in metres, its second layer. False when the progress display cancelled, or nothing can be drawn, which
    /// is reported; trees that were done before keep theirs. Throws `IOException`. On the thread of the
    /// canvas.
    static bool bake(const CORE::CityModels & city, const Settings & settings, NBX::SO<NBX::GLCanvas> canvas,
                     const NameOf & nameOf);
};

} // namespace ZMT::UTIL
