#include "lighting.h"

#include "errors.h"
#include "viewpoint.h"

#include <cmath>
#include <cstdio>

#include <zmt/raster/gdal/coordinatesystem.h>
#include <zmt/util/solarposition.h>

namespace {

constexpr double s_defaultAmbient = 0.35;

} // namespace

Lighting parseLighting(const std::string & text) {
    if (text == "relief") return Lighting::Relief;
    if (text == "vertex") return Lighting::Vertex;
    if (text == "static") return Lighting::Static;
    if (text == "dynamic") return Lighting::Dynamic;
    throw UsageError("--lighting must be relief, vertex, static or dynamic: " + text);
}

Sunlight parseSunlight(const std::string & text) {
    double azimuth = 0.0, elevation = 0.0, ambient = s_defaultAmbient;
    char separator = 0, rest = 0;
    const int read =
        std::sscanf(text.c_str(), "%lf,%lf%c%lf%c", &azimuth, &elevation, &separator, &ambient, &rest);
    const bool isComplete = read == 2 || (read == 4 && separator == ',');
    const bool isInRange =
        std::isfinite(azimuth) && elevation > 0.0 && elevation <= 90.0 && ambient >= 0.0 && ambient <= 1.0;
    if (!isComplete || !isInRange)
        throw UsageError("--light must be AZIMUTH,ELEVATION[,AMBIENT], with an elevation above 0 and at most "
                         "90 and an ambient share from 0 to 1: " +
                         text);
    const double level = std::cos(radians(elevation));
    return {{std::sin(radians(azimuth)) * level, std::sin(radians(elevation)),
             std::cos(radians(azimuth)) * level},
            ambient};
}

Sunlight sunlightAt(const SunMoment & moment, const ZMT::RASTER::GeoReference & reference, double ambient) {
    const auto sun = ZMT::UTIL::SolarPosition::at(moment.time, moment.longitude, moment.latitude);
    if (!(sun.apparentElevation > 0.0)) return {{0.0, -1.0, 0.0}, ambient};
    const auto system = ZMT::RASTER::CoordinateSystem::of(reference);
    const auto axes = system ? system->axesAt({moment.longitude, moment.latitude}) : std::nullopt;
    const double convergence = axes ? std::atan2(axes->north.x, axes->north.y) : 0.0;
    const double azimuth = radians(sun.azimuth) + convergence, elevation = radians(sun.apparentElevation);
    return {{std::sin(azimuth) * std::cos(elevation), std::sin(elevation),
             std::cos(azimuth) * std::cos(elevation)},
            ambient};
}
