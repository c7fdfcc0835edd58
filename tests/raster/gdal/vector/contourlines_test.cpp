#include <zmt/raster/gdal/vector/contourlines.h>

#include <cmath>
#include <map>

#include <gtest/gtest.h>

#include <nbx/object/exception.h>
#include <nbx/object/progress.h>
#include <zmt/raster/simplerasterdata.h>

#include "support/cancelingdisplay.h"

namespace {

using namespace ZMT::RASTER;
using Heights = SimpleRasterData<float>;

constexpr float s_noHeight = -9999.0F;

/// 40 by 30 cells of 10 by 20 m from (500, 3000) on.
template <class F> NBX::SO<Heights> heightsOf(const F & heightAt) {
    NBX::SO<Heights> heights(new Heights(40, 30, 500.0, 3000.0, 10.0, 20.0, true, s_noHeight));
    for (unsigned y = 0; y < 30; ++y)
        for (unsigned x = 0; x < 40; ++x)
            heights->setValue(x, y, float(heightAt(500.0 + 10.0 * x, 3000.0 + 20.0 * y)));
    return heights;
}

double slope(double x, double y) {
    return 0.3 * (x - 500.0) + 0.1 * (y - 3000.0) - 20.0;
}

struct Contour {
    double height;
    std::string kind;
    std::vector<VectorFeature::Position> points;
};

std::vector<Contour> contoursIn(const FeatureSource & source) {
    constexpr double all = 1e9;
    std::vector<Contour> contours;
    source.read({{-all, -all, all, all}, 0.0, {0, 1}}, [&](const VectorFeature & feature) {
        for (const auto & line : feature.lines)
            contours.push_back(
                {std::get<double>(feature.values[0]), std::get<std::string>(feature.values[1]), line});
        return true;
    });
    return contours;
}

TEST(ContourLines, LieAtTheirHeights) {
    const auto source = ContourLines::create(*heightsOf(slope), 5.0);
    ASSERT_TRUE(source);
    EXPECT_TRUE(source->kinds().lines);
    EXPECT_EQ(source->fields()[0].name, "height");
    EXPECT_EQ(source->fields()[1].name, "kind");
    std::map<double, int> counts;
    for (const Contour & contour : contoursIn(*source)) {
        ++counts[contour.height];
        EXPECT_EQ(contour.kind, std::fmod(contour.height, 25.0) == 0.0 ? "index" : "plain") << contour.height;
        for (const auto & p : contour.points) {
            const bool isInside = p.x >= 500.0 && p.x <= 890.0 && p.z >= 3000.0 && p.z <= 3580.0;
            if (isInside) {
                EXPECT_NEAR(slope(p.x, p.z), contour.height, 1e-3) << p.x << " " << p.z;
            }
        }
    }
    // From -20, which a corner alone has, to 155.
    EXPECT_EQ(counts.begin()->first, -15.0);
    EXPECT_EQ(counts.rbegin()->first, 155.0);
    for (double height = -15.0; height <= 150.0; height += 5.0)
        EXPECT_EQ(counts[height], 1) << height;
}

TEST(ContourLines, CloseRoundASummit) {
    const auto hill = [](double x, double y) { return 100.0 - 0.5 * std::hypot(x - 700.0, y - 3300.0); };
    const auto source = ContourLines::create(*heightsOf(hill), 20.0);
    bool hasRing = false;
    for (const Contour & contour : contoursIn(*source)) {
        if (contour.height != 80.0) continue;
        hasRing = true;
        EXPECT_NEAR((contour.points.front() - contour.points.back()).length(), 0.0, 1e-6);
        for (const auto & p : contour.points)
            EXPECT_NEAR(hill(p.x, p.z), 80.0, 2.5);
    }
    EXPECT_TRUE(hasRing);
}

TEST(ContourLines, EndWhereHeightsAreUndefined) {
    const auto holed = [](double x, double y) {
        return x > 600.0 && x < 700.0 && y > 3200.0 && y < 3400.0 ? double(s_noHeight) : slope(x, y);
    };
    const auto source = ContourLines::create(*heightsOf(holed), 5.0);
    for (const Contour & contour : contoursIn(*source))
        for (const auto & p : contour.points) {
            EXPECT_FALSE(p.x > 616.0 && p.x < 684.0 && p.z > 3231.0 && p.z < 3369.0) << p.x << " " << p.z;
            EXPECT_GT(contour.height, -30.0) << "nothing has the height of no height";
        }
}

TEST(ContourLines, AreFoundByTheirPlace) {
    const auto source = ContourLines::create(*heightsOf(slope), 5.0);
    int found = 0;
    source->read({{500.0, 3000.0, 520.0, 3040.0}, 0.0, {0}}, [&](const VectorFeature & feature) {
        ++found;
        EXPECT_LE(std::get<double>(feature.values[0]), -5.0);
        return true;
    });
    EXPECT_GE(found, 2);
    EXPECT_LE(found, 4);
}

TEST(ContourLines, WhatComesToNoneOrTooManyIsRefused) {
    const auto heights = heightsOf(slope);
    const auto failure = [&](double interval) -> std::string {
        try {
            ContourLines::create(*heights, interval);
        } catch (const NBX::InputException & error) {
            return error.what();
        }
        return "";
    };
    for (const double interval : {0.0, -1.0, double(NAN), double(INFINITY)})
        EXPECT_NE(failure(interval).find("above 0"), std::string::npos) << interval;
    EXPECT_NE(failure(1e-9).find("give a larger interval"), std::string::npos);
    EXPECT_EQ(failure(1e6), "") << "height 0 has a line";
    const auto flat = heightsOf([](double, double) { return 7.0; });
    EXPECT_THROW(ContourLines::create(*flat, 5.0), NBX::InputException);
    const auto nothing = heightsOf([](double, double) { return s_noHeight; });
    EXPECT_THROW(ContourLines::create(*nothing, 5.0), NBX::InputException);
}

TEST(ContourLines, ACancelLeavesNothing) {
    const CancelingDisplay display;
    NBX::Progress progress("contours");
    EXPECT_FALSE(ContourLines::create(*heightsOf(slope), 5.0, &progress));
}

} // namespace
