#pragma once

#include <functional>
#include <limits>
#include <optional>
#include <vector>

#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>
#include <zmt/raster/gdal/coordinatesystem.h>
#include <zmt/raster/rasterdata.h>

namespace NBX {
class PolygonSet;
}

namespace ZMT::CORE {
class CityAssembly;
class CityModels;
} // namespace ZMT::CORE

namespace ZMT::UTIL {

/// What stands on the ground and casts shadows on it. What can be seen through counts as solid.
class LightCasters {
public:
    using Point = NBX::Vector3Base<double>;

    /// A model, or what belongs to none.
    struct Body {
        std::vector<Point> corners; ///< of its triangles, three each, in geo coordinates
        /// Height of the ground below its origin, in geo coordinates; NaN where it is not known.
        double ground = std::numeric_limits<double>::quiet_NaN();

        /// Between its outermost corners; zero without any.
        Point middle() const;
    };

    /// Those of a city, at full detail and as they are stored; what belongs to no model comes last. On the
    /// render thread.
    static std::vector<Body> bodiesOf(const CORE::CityModels & city);
    /// Those of models on their places, in their order.
    static std::vector<Body> bodiesOf(const CORE::CityAssembly & assembly);

    /// The raster that bodies are to stand on.
    struct Frame {
        RASTER::RasterGrid grid;
        double heightUnit = 1.0;   ///< of the raster, in metres
        double exaggeration = 1.0; ///< of the ground, on which bodies keep their size
        /// The ground of the raster in metres, at a place of its map; NaN where there is none.
        std::function<double(const RASTER::MapPlace &)> groundAt;
        /// From the map of the bodies to that of the raster; without it they are the same.
        std::function<std::optional<RASTER::MapPlace>(const RASTER::MapPlace &)> toMap;
    };
    /// All triangles as `RasterLight::Settings::casters`, for cells that are smaller by the exaggeration.
    /// Those with a corner that has no place on the map are left out.
    static NBX::SO<NBX::PolygonSet> inCells(const std::vector<Body> & bodies, const Frame & frame);
};

} // namespace ZMT::UTIL
