#include <zmt/raster/gdal/coordinatesystem.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "gdalsupport.h"

#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>

namespace ZMT::RASTER {

namespace {

using Transformation = std::unique_ptr<OGRCoordinateTransformation>;

bool isNumber(const std::string & text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// The place where `x` and `y` lie behind a transformation.
std::optional<MapPlace> transformed(OGRCoordinateTransformation & transformation, double x, double y) {
    const GdalErrorTrap trap;
    int isDone = FALSE;
    transformation.Transform(1, &x, &y, nullptr, &isDone);
    if (!isDone || !std::isfinite(x) || !std::isfinite(y)) return {};
    return MapPlace{x, y};
}

std::string codeOf(const OGRSpatialReference & system) {
    const char * authority = system.GetAuthorityName(nullptr);
    const char * number = system.GetAuthorityCode(nullptr);
    return authority && number ? std::string(authority) + ":" + number : "";
}

constexpr double s_radiansOfDegree = std::numbers::pi / 180.0;

/// Metres that a degree of longitude and one of latitude are on the ellipsoid of WGS 84.
struct DegreeLengths {
    double longitude, latitude;
};

DegreeLengths degreeLengths(double latitude) {
    constexpr double equator = 6378137.0, flattening = 1.0 / 298.257223563;
    constexpr double e2 = flattening * (2.0 - flattening);
    const double sine = std::sin(latitude * s_radiansOfDegree);
    const double w2 = 1.0 - e2 * sine * sine;
    const double across = equator / std::sqrt(w2); // radius of curvature in the prime vertical
    return {across * std::cos(latitude * s_radiansOfDegree) * s_radiansOfDegree,
            across * (1.0 - e2) / w2 * s_radiansOfDegree};
}

} // namespace

GeoReference CoordinateSystem::parse(const std::string & text) {
    const GdalErrorTrap trap;
    const char * const options[] = {"ALLOW_NETWORK_ACCESS=NO", "ALLOW_FILE_ACCESS=NO", nullptr};
    OGRSpatialReference system;
    const std::string name = isNumber(text) ? "EPSG:" + text : text;
    if (system.SetFromUserInput(name.c_str(), options) != OGRERR_NONE || system.IsEmpty())
        throw NBX::InputException(L"is no coordinate system that is known; give a number such as EPSG:32645, "
                                  L"or WKT",
                                  text.substr(0, 80));
    GeoReference reference = RASTER::describe(&system);
    reference.isGeoreferenced = true;
    return reference;
}

std::string CoordinateSystem::code(const std::string & wkt) {
    const GdalErrorTrap trap;
    OGRSpatialReference system;
    if (system.importFromWkt(wkt.c_str()) != OGRERR_NONE) return "";
    if (codeOf(system).empty()) system.AutoIdentifyEPSG();
    return codeOf(system);
}

GeoReference CoordinateSystem::utm(const LonLat & place) {
    const double west = std::fmod(std::fmod(place.longitude + 180.0, 360.0) + 360.0, 360.0);
    const int zone = std::min(1 + static_cast<int>(west / 6.0), 60);
    return parse("EPSG:" + std::to_string((place.latitude < 0.0 ? 32700 : 32600) + zone));
}

bool CoordinateSystem::areSame(const GeoReference & a, const GeoReference & b) {
    if (a.wkt.empty() || b.wkt.empty() || a.wkt == b.wkt) return true;
    const std::string nameOfA = code(a.wkt);
    return !nameOfA.empty() && nameOfA == code(b.wkt);
}

std::string CoordinateSystem::describe(const GeoReference & reference) {
    if (reference.name.empty()) return "none";
    const std::string code = CoordinateSystem::code(reference.wkt);
    return reference.name + (code.empty() ? "" : " (" + code + ")") +
           (reference.unitName.empty() ? "" : ", " + reference.unitName);
}

struct CoordinateSystem::Impl {
    Transformation fromGlobe, toGlobe;
};

CoordinateSystem::CoordinateSystem(const std::string & wkt) : impl_(std::make_unique<Impl>()) {
    const GdalErrorTrap trap;
    const OGRSpatialReference globe = spatialReference("EPSG:4326"), map = spatialReference(wkt);
    impl_->fromGlobe.reset(OGRCreateCoordinateTransformation(&globe, &map));
    impl_->toGlobe.reset(OGRCreateCoordinateTransformation(&map, &globe));
    if (!impl_->fromGlobe || !impl_->toGlobe)
        throw NBX::InputException(L"the coordinate system has no way to longitude and latitude", "", 0,
                                  trap.text());
}

CoordinateSystem::~CoordinateSystem() = default;

std::unique_ptr<CoordinateSystem> CoordinateSystem::of(const GeoReference & reference) {
    if (reference.wkt.empty()) return nullptr;
    try {
        return std::make_unique<CoordinateSystem>(reference.wkt);
    } catch (const NBX::InputException &) {
        return nullptr;
    }
}

std::optional<MapPlace> CoordinateSystem::fromLonLat(const LonLat & place) const {
    return transformed(*impl_->fromGlobe, place.longitude, place.latitude);
}

std::optional<MapAxes> CoordinateSystem::axesAt(const LonLat & place) const {
    constexpr double step = 1e-3, leastFromPole = 1e-2; // in degrees
    if (!(std::abs(place.latitude) < 90.0 - leastFromPole)) return {};
    const auto middle = fromLonLat(place);
    const DegreeLengths metres = degreeLengths(place.latitude);
    const auto difference = [&](double longitude, double latitude, double length) -> std::optional<MapPlace> {
        const auto a = fromLonLat({place.longitude - longitude, place.latitude - latitude});
        const auto b = fromLonLat({place.longitude + longitude, place.latitude + latitude});
        if (!a || !b) return {};
        return MapPlace{(b->x - a->x) / length, (b->y - a->y) / length};
    };
    const auto east = difference(step, 0.0, 2.0 * step * metres.longitude);
    const auto north = difference(0.0, step, 2.0 * step * metres.latitude);
    if (!middle || !east || !north) return {};
    return MapAxes{*middle, *east, *north};
}

std::optional<LonLat> CoordinateSystem::toLonLat(const MapPlace & place) const {
    const auto found = transformed(*impl_->toGlobe, place.x, place.y);
    if (!found) return {};
    return LonLat{found->x, found->y};
}

} // namespace ZMT::RASTER
