#include "sourcewindows.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <numbers>

#include "gdalsupport.h"

namespace ZMT::RASTER {

namespace {

using Transformation = std::unique_ptr<OGRCoordinateTransformation>;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr GeoExtent everywhere{-infinity, -infinity, infinity, infinity};
/// Room for what is between them, as a share of the extent.
constexpr double room = 0.03;
/// Both sides of the line where a system is cut open keep away from it, by this share of a turn.
constexpr double cutWidth = 1e-12;

/// Points of which some have no place.
struct Points {
    std::vector<double> x, y;
    std::vector<int> isKnown;

    void transform(OGRCoordinateTransformation & transformation) {
        isKnown.assign(x.size(), FALSE);
        const GdalErrorTrap trap; // points outside of a system are no fault
        transformation.Transform(static_cast<int>(x.size()), x.data(), y.data(), nullptr, isKnown.data());
        for (std::size_t i = 0; i < x.size(); ++i)
            isKnown[i] = isKnown[i] && std::isfinite(x[i]) && std::isfinite(y[i]);
    }
    bool areAllKnown() const {
        return std::all_of(isKnown.begin(), isKnown.end(), [](int known) { return known; });
    }
};

Points sampled(const GeoExtent & extent, std::size_t samples) {
    Points points;
    for (std::size_t row = 0; row < samples; ++row)
        for (std::size_t column = 0; column < samples; ++column) {
            points.x.push_back(std::lerp(extent.minX, extent.maxX, column / (samples - 1.0)));
            points.y.push_back(std::lerp(extent.minY, extent.maxY, row / (samples - 1.0)));
        }
    return points;
}

struct Range {
    double low = infinity, high = -infinity;

    void add(double value) {
        low = std::min(low, value);
        high = std::max(high, value);
    }
    double size() const { return high - low; }
    Range widened() const { return {low - size() * room, high + size() * room}; }
};

/// Without bounds where not all points are known.
GeoExtent boxOf(const Points & points) {
    if (!points.areAllKnown()) return everywhere;
    Range x, y;
    for (std::size_t i = 0; i < points.x.size(); ++i) {
        x.add(points.x[i]);
        y.add(points.y[i]);
    }
    x = x.widened();
    y = y.widened();
    return {x.low, y.low, x.high, y.high};
}

/// Around the poles that lie in `extent`, all latitudes.
Range latitudes(const Points & samples, OGRCoordinateTransformation & transformation,
                const GeoExtent & extent, double quarter) {
    if (!samples.areAllKnown()) return {-quarter, quarter};
    Range range;
    for (const double y : samples.y)
        range.add(y);
    range = range.widened();
    Points poles{{samples.x[0], samples.x[0]}, {-quarter, quarter}, {}};
    poles.transform(transformation);
    for (unsigned i = 0; i < 2; ++i)
        if (poles.isKnown[i] && poles.x[i] >= extent.minX && poles.x[i] <= extent.maxX &&
            poles.y[i] >= extent.minY && poles.y[i] <= extent.maxY)
            range.add(i == 0 ? -quarter : quarter);
    return {std::max(range.low, -quarter), std::min(range.high, quarter)};
}

/// From west to east, which may be beyond one turn.
Range longitudes(const Points & samples, double cut, double turn) {
    const double middle = samples.x[samples.x.size() / 2];
    Range range;
    for (std::size_t i = 0; i < samples.x.size(); ++i)
        if (samples.isKnown[i]) range.add(middle + std::remainder(samples.x[i] - middle, turn));
    if (range.size() <= turn / 2.0) return range.widened();
    return {cut + turn * cutWidth, cut + turn * (1.0 - cutWidth)};
}

/// Where longitudes begin in the system, as a cylinder or a cone is cut open.
double cutOf(const OGRSpatialReference & target, double turn) {
    return target.GetNormProjParm(SRS_PP_CENTRAL_MERIDIAN, 0.0) * turn / 360.0 - turn / 2.0;
}

} // namespace

bool isBounded(const GeoExtent & extent) {
    return std::isfinite(extent.minX) && std::isfinite(extent.minY) && std::isfinite(extent.maxX) &&
           std::isfinite(extent.maxY);
}

std::vector<GeoExtent> sourceWindows(OGRCoordinateTransformation & transformation, const GeoExtent & extent) {
    return sourceWindows(transformation, Transformation(transformation.GetInverse()).get(), extent);
}

std::vector<GeoExtent> sourceWindows(OGRCoordinateTransformation & transformation,
                                     OGRCoordinateTransformation * back, const GeoExtent & extent,
                                     std::size_t samples) {
    const OGRSpatialReference * source = transformation.GetSourceCS();
    const OGRSpatialReference * target = transformation.GetTargetCS();
    if (!isBounded(extent) || !back || !source || !target) return {everywhere};
    Points points = sampled(extent, samples);
    points.transform(*back);
    if (!source->IsGeographic()) return {boxOf(points)};
    if (!points.isKnown[points.x.size() / 2]) return {everywhere};
    const double turn = 2.0 * std::numbers::pi / source->GetAngularUnits();
    const Range y = latitudes(points, transformation, extent, turn / 4.0);
    const Range x = longitudes(points, cutOf(*target, turn), turn);
    std::vector<GeoExtent> windows;
    for (const double shift : {-turn, 0.0, turn})
        windows.push_back({x.low + shift, y.low, x.high + shift, y.high});
    return windows;
}

} // namespace ZMT::RASTER
