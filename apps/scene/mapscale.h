#pragma once

#include <memory>
#include <optional>

#include <zmt/raster/georeference.h>

#include "flightcontroller.h"

namespace ZMT::RASTER {
class CoordinateSystem;
}

/// How long ways on a map are on the ground: on the ellipsoid of WGS 84, whatever the projection makes of
/// them. One thread at a time.
class MapScale {
public:
    /// Of maps in metres. Where nobody knows the system, or the way from it to the globe, those of the map
    /// are taken for true.
    explicit MapScale(const ZMT::RASTER::GeoReference & reference);
    ~MapScale();

    /// True metres of a short way on the map from a place of it.
    double metres(double x, double y, double east, double north) const;
    /// True metres that a pixel shows across the middle of a picture so many pixels high; nothing where
    /// nothing lies there.
    std::optional<double> metresPerPixel(const FlightController & flight, double height) const;

private:
    std::unique_ptr<ZMT::RASTER::CoordinateSystem> system_; ///< null where it is not known
};
