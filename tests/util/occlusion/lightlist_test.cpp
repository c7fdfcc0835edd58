#include "util/occlusion/lightlist.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <numbers>

#include <nbx/container/sequence/array.h>

#include "support/recordedreports.h"

namespace {

using NBX::SO;
using ZMT::UTIL::AmbientOcclusion;
using ZMT::UTIL::LightList;
using V = NBX::Vector3Base<double>;
using Configuration = AmbientOcclusion::LightingConfiguration;

SO<NBX::Iterator<V>> vectors(std::vector<V> values) {
    return new NBX::Array<V>(std::move(values));
}

double lengths(const LightList & list) {
    double sum = 0.0;
    for (const V & color : list.colors)
        sum += color.length();
    return sum;
}

TEST(LightList, DirectionsFollowTheProcessesRandomNumbers) {
    std::srand(7);
    std::vector<V> expected;
    for (int i = 0; i < 50; ++i) {
        const auto next = [] {
            return double(std::int64_t(std::rand()) * 32768 / (std::int64_t(RAND_MAX) + 1));
        };
        const double u = next() / 32767.0, a = next() / 32767.0 * 6.283185307179586;
        const double r = std::sqrt(u * (2.0 - u));
        expected.emplace_back(r * std::cos(a), r * std::sin(a), 1.0 - u);
    }
    std::srand(7);
    const auto directions = AmbientOcclusion::createLightDirections(50);
    EXPECT_EQ(expected, std::vector<V>(directions->begin(), directions->end()));
    // No seed is set: the next ones are others.
    EXPECT_NE(expected.front(), AmbientOcclusion::createLightDirections(1)->get(0));
}

TEST(LightList, DirectionsCoverTheHemisphereEvenly) {
    std::srand(1);
    constexpr int count = 20000;
    const auto directions = AmbientOcclusion::createLightDirections(count);
    V mean;
    int lowHalf = 0, north = 0;
    for (const V & d : *directions) {
        EXPECT_NEAR(1.0, d.length(), 1e-12);
        EXPECT_GE(d.z, 0.0);
        mean += d / count;
        lowHalf += d.z < 0.5;
        north += d.y > std::abs(d.x);
    }
    EXPECT_LT((mean - V(0, 0, 0.5)).length(), 0.02);
    EXPECT_NEAR(0.5, double(lowHalf) / count, 0.02);
    EXPECT_NEAR(0.25, double(north) / count, 0.02);
}

TEST(LightList, NoDirections) {
    EXPECT_EQ(0u, AmbientOcclusion::createLightDirections(0)->size());
    EXPECT_EQ(0u, AmbientOcclusion::createLightDirections(-3)->size());
}

TEST(LightList, PresetsAndDefaults) {
    RecordedReports reports;
    const Configuration defaults;
    EXPECT_EQ(300, defaults.numSkyDirections);
    EXPECT_EQ(NBX::Color::white, defaults.skyColor);
    EXPECT_EQ(0, defaults.numSunDirections);
    EXPECT_EQ(V(1, 1, 1), defaults.sunDirection);
    EXPECT_EQ(3.0, defaults.sunSpread);
    EXPECT_EQ(10.0, defaults.sunPower);
    EXPECT_EQ(NBX::Color::white, defaults.sunColor);
    EXPECT_EQ(3.0, defaults.intensity);
    EXPECT_FALSE(defaults.extraDirections);
    EXPECT_FALSE(defaults.extraColors);

    const Configuration low = Configuration::create(Configuration::Preset(0));
    EXPECT_EQ(300, low.numSkyDirections);
    EXPECT_EQ(250, low.numSunDirections);
    EXPECT_EQ(V(-1, 0.16, 0), low.sunDirection);
    EXPECT_EQ(3.0, low.sunSpread);
    EXPECT_EQ(300.0, low.sunPower);
    EXPECT_EQ(NBX::Color(1.0, 0.7, 0.2, 1.0), low.sunColor);
    EXPECT_EQ(2.5, low.intensity);
    const Configuration high = Configuration::create(Configuration::Preset(1));
    EXPECT_EQ(300, high.numSkyDirections);
    EXPECT_EQ(NBX::Color(0.9, 0.9, 1.0, 1.0), high.skyColor);
    EXPECT_EQ(50, high.numSunDirections);
    EXPECT_EQ(V(1, 1, -1), high.sunDirection);
    EXPECT_EQ(0.5, high.sunSpread);
    EXPECT_EQ(100.0, high.sunPower);
    EXPECT_EQ(NBX::Color::white, high.sunColor);
    EXPECT_EQ(4.0, high.intensity);
    EXPECT_TRUE(reports.empty()) << reports;

    EXPECT_EQ(300, Configuration::create(Configuration::Preset(2)).numSkyDirections);
    EXPECT_EQ(1u, reports.count(2, L"false", L"unknown preset type. creating default settings."));
}

TEST(LightList, AllColoursTogetherHaveTheIntensity) {
    std::srand(3);
    Configuration c = Configuration::create(Configuration::P_LowSun);
    c.extraDirections = vectors({{0, 1, 0}});
    c.extraColors = vectors({{5, 0, 0}, {9, 9, 9}});
    const LightList list = LightList::combined(c);
    EXPECT_EQ(551u, list.directions.size());
    EXPECT_EQ(551u, list.colors.size());
    EXPECT_NEAR(2.5, lengths(list), 1e-9);
    // Sun, sky, and what is given besides.
    EXPECT_LT((list.directions[0] - V(-1, 0.16, 0).normalized()).length(), 0.1);
    EXPECT_EQ(list.colors[250], list.colors[549]);
    EXPECT_EQ(V(0, 1, 0), list.directions[550]);
    EXPECT_NEAR(5.0 / list.colors[550].x, std::sqrt(3.0) / list.colors[300].length(), 1e-9);
    double sun = 0.0;
    for (std::size_t i = 0; i < 250; ++i)
        sun += list.colors[i].x;
    EXPECT_NEAR(c.sunPower, sun / list.colors[300].x, 1e-9) << "directions of the sky";
}

TEST(LightList, ExtraDirectionsNeedAColourEach) {
    Configuration c;
    c.numSkyDirections = 4;
    c.extraDirections = vectors({{0, 1, 0}, {1, 1, 0}});
    EXPECT_EQ(4u, LightList::combined(c).directions.size());
    c.extraColors = vectors({{1, 1, 1}});
    EXPECT_EQ(4u, LightList::combined(c).directions.size());
    c.extraColors = vectors({{1, 1, 1}, {1, 1, 1}});
    EXPECT_EQ(6u, LightList::combined(c).directions.size());
}

TEST(LightList, WithoutDirectionsThereIsNothingToScale) {
    Configuration c;
    c.numSkyDirections = 0;
    EXPECT_TRUE(LightList::combined(c).colors.empty());
    // Black light stays black.
    c.numSkyDirections = 2;
    c.skyColor = NBX::Color::black;
    EXPECT_EQ(0.0, lengths(LightList::combined(c)));
    // And what is nearly black is not made bright.
    c.skyColor = NBX::Color(1e-12F, 0.0F, 0.0F, 1.0F);
    EXPECT_NEAR(3.0 * 2e-12, lengths(LightList::combined(c)), 1e-18);
}

TEST(LightList, TheSunsWeightsFallWithTheDistanceFromItsDirection) {
    std::srand(9);
    Configuration c;
    c.numSkyDirections = 0;
    c.numSunDirections = 400;
    c.sunDirection = V(3, 4, -2);
    c.sunSpread = 20.0;
    c.sunPower = 7.0;
    c.intensity = 1.0;
    const LightList list = LightList::combined(c);
    const V sun = c.sunDirection.normalized();
    double total = 0.0;
    for (const V & color : list.colors)
        total += color.length();
    EXPECT_NEAR(1.0, total, 1e-9);
    std::srand(9);
    double sum = 0.0, absolute = 0.0;
    std::vector<double> weights;
    for (int i = 0; i < 400; ++i) {
        const auto next = [] {
            return double(std::int64_t(std::rand()) * 32768 / (std::int64_t(RAND_MAX) + 1)) / 32767.0;
        };
        const double a = next(), b = next();
        weights.push_back(1.0 - std::hypot(b, a));
        sum += weights.back();
        absolute += std::abs(weights.back());
        // Two angles at right angles to each other lead away from the sun.
        const double rad = 20.0 * std::numbers::pi / 180.0;
        EXPECT_NEAR(std::cos(rad * a) * std::cos(rad * b), list.directions[std::size_t(i)].dot(sun), 1e-12);
    }
    for (std::size_t i = 0; i < 400; ++i)
        EXPECT_NEAR(weights[i] / absolute / std::sqrt(3.0), list.colors[i].x * (sum > 0 ? 1 : -1), 1e-12);
}

TEST(LightList, ASunWithoutADirectionStandsInTheZenith) {
    Configuration c;
    c.numSunDirections = 1;
    c.sunDirection = V();
    c.sunSpread = 0.0;
    EXPECT_LT((LightList::combined(c).directions[0] - V(0, 1, 0)).length(), 1e-12);
}

TEST(LightList, GivenDirectionsAreTurnedUpAndWeighEqually) {
    const LightList list = LightList::fromDirections(*vectors({{0, 0, 1}, {1, 0, 0}, {0, 0.6, 0.8}}));
    EXPECT_EQ(V(0, 1, 0), list.directions[0]);
    EXPECT_EQ(V(1, 0, 0), list.directions[1]);
    EXPECT_EQ(V(0, 0.8, -0.6), list.directions[2]);
    EXPECT_DOUBLE_EQ(1.0 / 3.0, list.colors[2].y);
    EXPECT_NEAR((1.0 + 0.0 + 0.8) / 3.0, list.onOpenPlane().x, 1e-12);
    const auto below = vectors({{0, 0, 1}, {0, 0, -1}});
    EXPECT_NEAR(0.5, LightList::fromDirections(*below).onOpenPlane().x, 1e-12);
}

TEST(LightList, UnequalNumbersAreReported) {
    RecordedReports reports;
    const auto two = vectors({{0, 0, 1}, {1, 0, 0}}), three = vectors({{1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
    EXPECT_EQ(2u, LightList::fromDirections(*two, three.get()).directions.size());
    EXPECT_EQ(2u, LightList::fromDirections(*three, two.get()).colors.size());
    EXPECT_EQ(2u, reports.count(0, L"scaledColors==0 || scaledColors->size()==lightDirs->size()",
                                L"invalid iterator length"));
    EXPECT_EQ(V(0, 1, 0), LightList::fromDirections(*three, three.get()).colors[1]);
    EXPECT_EQ(2u, reports.size());
}

} // namespace
