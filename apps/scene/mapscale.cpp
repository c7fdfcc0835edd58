#include "mapscale.h"

#include <cmath>

#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/raster/gdal/coordinatesystem.h>

using ZMT::RASTER::CoordinateSystem;

MapScale::MapScale(const ZMT::RASTER::GeoReference & reference) : system_(CoordinateSystem::of(reference)) {}

MapScale::~MapScale() = default;

double MapScale::metres(double x, double y, double east, double north) const {
    const double onMap = std::hypot(east, north);
    const auto place = system_ ? system_->toLonLat({x, y}) : std::nullopt;
    const auto axes = place ? system_->axesAt(*place) : std::nullopt;
    if (!axes) return onMap;
    // The way by the axes, which need not be at right angles.
    const auto &e = axes->east, &n = axes->north;
    const double area = e.x * n.y - e.y * n.x;
    if (area == 0.0) return onMap;
    return std::hypot((east * n.y - north * n.x) / area, (e.x * north - e.y * east) / area);
}

std::optional<double> MapScale::metresPerPixel(const FlightController & flight, double height) const {
    const auto distance = flight.middleDistance();
    if (!distance || !(height > 0.0)) return std::nullopt;
    const auto middle = ZMT::CORE::GeoTransformation::nbx2geoTf(flight.eye() + flight.forward() * *distance);
    const auto right = flight.right();
    return metres(middle.x, middle.z, right.x, right.z) * *distance * flight.pictureHeight() / height;
}
