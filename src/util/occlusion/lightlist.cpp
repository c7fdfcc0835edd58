#include "lightlist.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <numbers>

#include <nbx/container/sequence/array.h>
#include <nbx/object/errorhandler.h>

namespace ZMT::UTIL {

namespace {

using Vector = LightList::Vector;
using Configuration = AmbientOcclusion::LightingConfiguration;

constexpr double s_largestRandom = 32767.0;
/// Colours that add up to less are left as they are.
constexpr double s_leastTotal = 1e-10;

/// From 0 to 1, in 32768 steps, whatever range the process's `rand` has.
double nextRandom() {
    constexpr std::int64_t steps = 32768;
    const std::int64_t step = std::int64_t(std::rand()) * steps / (std::int64_t(RAND_MAX) + 1);
    return static_cast<double>(step) / s_largestRandom;
}

Vector rgb(const NBX::Color & color) {
    return {color[0], color[1], color[2]};
}

/// Length 1 and at right angles to `v`, which has length 1.
Vector perpendicularTo(const Vector & v) {
    const Vector axis = std::abs(v.y) < 0.9 ? Vector(0.0, 1.0, 0.0) : Vector(1.0, 0.0, 0.0);
    return v.cross(axis).normalized();
}

/// Polar coordinates about a vector at right angles to the sun: there the sun lies at the angles 90 degrees
/// from the pole and 0 about it.
void appendSun(const Configuration & configuration, LightList & list) {
    Vector sun = configuration.sunDirection.normalized();
    if (sun == Vector()) sun = {0.0, 1.0, 0.0};
    const Vector pole = perpendicularTo(sun), side = pole.cross(sun);
    const double spread = configuration.sunSpread * std::numbers::pi / 180.0;
    const std::size_t first = list.colors.size();
    double sum = 0.0;
    for (int i = 0; i < configuration.numSunDirections; ++i) {
        const double a = nextRandom(), b = nextRandom();
        const double fromPole = std::numbers::pi / 2.0 + spread * b, about = spread * a;
        list.directions.push_back(pole * std::cos(fromPole) +
                                  (sun * std::cos(about) + side * std::sin(about)) * std::sin(fromPole));
        const double weight = 1.0 - std::hypot(b, a);
        list.colors.push_back(rgb(configuration.sunColor) * weight);
        sum += weight;
    }
    for (std::size_t i = first; i < list.colors.size() && sum != 0.0; ++i)
        list.colors[i] *= configuration.sunPower / sum;
}

void appendSky(const Configuration & configuration, LightList & list) {
    const auto sky = AmbientOcclusion::createLightDirections(configuration.numSkyDirections);
    for (const Vector & direction : *sky) {
        list.directions.push_back(LightList::turnedUp(direction));
        list.colors.push_back(rgb(configuration.skyColor));
    }
}

void appendExtra(const Configuration & configuration, LightList & list) {
    const auto & directions = configuration.extraDirections;
    const auto & colors = configuration.extraColors;
    if (!directions || !colors || colors->size() < directions->size()) return;
    for (unsigned i = 0; i < directions->size(); ++i) {
        list.directions.push_back(directions->get(i));
        list.colors.push_back(colors->get(i));
    }
}

} // namespace

NBX::SO<AmbientOcclusion::Vectors> AmbientOcclusion::createLightDirections(int count) {
    std::vector<Vector> directions;
    directions.reserve(static_cast<std::size_t>(std::max(count, 0)));
    for (int i = 0; i < count; ++i) {
        const double u = nextRandom();
        const double a = nextRandom() * 6.283185307179586;
        const double r = std::sqrt(u * (2.0 - u));
        directions.emplace_back(r * std::cos(a), r * std::sin(a), 1.0 - u);
    }
    return new NBX::Array<Vector>(std::move(directions));
}

LightList LightList::fromDirections(const NBX::Iterator<Vector> & lightDirections,
                                    const NBX::Iterator<Vector> * colors) {
    unsigned count = lightDirections.size();
    if (colors && colors->size() != count) {
        NBX_REPORT(0, L"scaledColors==0 || scaledColors->size()==lightDirs->size()",
                   L"invalid iterator length");
        count = std::min(colors->size(), count);
    }
    const double equal = 1.0 / std::max(count, 1u);
    LightList list;
    for (unsigned i = 0; i < count; ++i) {
        list.directions.push_back(turnedUp(lightDirections.get(i)));
        list.colors.push_back(colors ? colors->get(i) : Vector(equal, equal, equal));
    }
    return list;
}

LightList LightList::combined(const Configuration & configuration) {
    LightList list;
    appendSun(configuration, list);
    appendSky(configuration, list);
    appendExtra(configuration, list);
    double total = 0.0;
    for (const Vector & color : list.colors)
        total += color.length();
    const double scale = configuration.intensity / (total >= s_leastTotal ? total : 1.0);
    for (Vector & color : list.colors)
        color *= scale;
    return list;
}

Vector LightList::onOpenPlane() const {
    Vector sum;
    for (std::size_t i = 0; i < directions.size(); ++i)
        sum += colors[i] * std::max(directions[i].normalized().y, 0.0);
    return sum;
}

} // namespace ZMT::UTIL
