#include <zmt/core/vector/featurepicking.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "memoryfeatures.h"

#include <nbx/object/so.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/perspective.h>

namespace {

using ZMT::CORE::FeatureDistance;
using ZMT::CORE::PixelFootprint;
using ZMT::RASTER::VectorFeature;
using Point = NBX::Vector3Base<double>;

/// Ten metres to a column, five to a row.
const PixelFootprint s_oblong(0.1, 0.0, 0.0, 0.2);

VectorFeature::Line square(double low, double high) {
    return {{low, 0.0, low}, {high, 0.0, low}, {high, 0.0, high}, {low, 0.0, high}};
}

TEST(FeatureDistance, OfPointsAndLinesIsThatToTheNearestPart) {
    const FeatureDistance distance({1000.0, 50.0, 2000.0}, s_oblong);
    VectorFeature feature;
    EXPECT_EQ(distance.of(feature), std::numeric_limits<double>::infinity());
    feature.points = {{1100.0, 0.0, 2000.0}, {1030.0, 0.0, 2020.0}};
    EXPECT_DOUBLE_EQ(distance.of(feature), 5.0); // 3 columns, 4 rows
    feature.lines = {{{900.0, 0.0, 2010.0}, {1200.0, 0.0, 2010.0}}};
    EXPECT_DOUBLE_EQ(distance.of(feature), 2.0);
    feature.lines = {{{1010.0, 0.0, 2000.0}, {1200.0, 0.0, 2000.0}}};
    EXPECT_DOUBLE_EQ(distance.of(feature), 1.0) << "its end";
    feature.lines = {{{1010.0, 0.0, 2000.0}, {1010.0, 0.0, 2000.0}}};
    EXPECT_DOUBLE_EQ(distance.of(feature), 1.0) << "both of its ends";
}

TEST(FeatureDistance, LinesAreNotClosedAndAreasAre) {
    VectorFeature line, area;
    line.lines = {square(0.0, 100.0)};
    area.areas = {{square(0.0, 100.0)}};
    const FeatureDistance west({-10.0, 0.0, 50.0}, s_oblong);
    EXPECT_DOUBLE_EQ(west.of(area), 1.0);
    EXPECT_DOUBLE_EQ(west.of(line), std::hypot(1.0, 10.0));
}

TEST(FeatureDistance, InsideAnAreaIsNothingAndInItsHolesIsThatToTheEdge) {
    VectorFeature feature;
    feature.areas = {{square(0.0, 100.0), square(40.0, 80.0)}};
    for (const auto & [x, z, expected] :
         {std::tuple(20.0, 20.0, 0.0), std::tuple(60.0, 20.0, 0.0), std::tuple(60.0, 60.0, 2.0),
          std::tuple(120.0, 60.0, 2.0), std::tuple(60.0, 125.0, 5.0), std::tuple(60.0, -5.0, 1.0)})
        EXPECT_DOUBLE_EQ(FeatureDistance({x, 0.0, z}, s_oblong).of(feature), expected) << x << ", " << z;
}

TEST(FeaturesAt, TheNearestComeFirstAndPointsBeforeLinesBeforeAreas) {
    using Type = ZMT::RASTER::VectorField::Type;
    MemoryFeatures source({{"a", Type::Text}, {"b", Type::Real}});
    const std::vector<ZMT::RASTER::FieldValue> values(2);
    source.addArea({square(-50.0, 50.0)}, values);
    source.addLine({{-50.0, 0.0, 0.0}, {50.0, 0.0, 0.0}}, values);
    source.addPoint({0.0, 0.0, 0.0}, values);
    source.addPoint({20.0, 0.0, 0.0}, values);
    source.addPoint({25.0, 0.0, 12.0}, values); // in the box, and too far
    source.add(values);
    const auto ids = [&](std::size_t most) {
        std::vector<std::int64_t> found;
        for (const auto & picked : ZMT::CORE::featuresAt(source, {{}, s_oblong}, 3.0, most))
            found.push_back(picked.feature.id);
        return found;
    };
    EXPECT_EQ(ids(10), (std::vector<std::int64_t>{3, 2, 1, 4}));
    EXPECT_EQ(ids(2), (std::vector<std::int64_t>{3, 2}));
    EXPECT_EQ(source.queries.back().fields, (std::vector<unsigned>{0, 1}));
    EXPECT_EQ(source.queries.back().tolerance, 0.0);
    EXPECT_NEAR(source.queries.back().box.maxX, 30.0, 1e-9);
    EXPECT_NEAR(source.queries.back().box.minY, -15.0, 1e-9);
}

TEST(PixelFootprint, ReachesAllWithinItsPixels) {
    const PixelFootprint sheared(0.3, 0.1, -0.2, 0.4);
    const Point reach = sheared.reach(2.0);
    double farthestX = 0.0, farthestZ = 0.0;
    for (int i = 0; i < 3600; ++i) {
        const double x = std::cos(i * 0.1), z = std::sin(i * 0.1);
        const auto pixels = sheared.toPixels(x, z);
        const double scale = 2.0 / std::hypot(pixels.columns, pixels.rows);
        farthestX = std::max(farthestX, std::abs(x) * scale);
        farthestZ = std::max(farthestZ, std::abs(z) * scale);
    }
    EXPECT_NEAR(reach.x, farthestX, 1e-3 * farthestX);
    EXPECT_NEAR(reach.z, farthestZ, 1e-3 * farthestZ);
}

/// Against the projection of places beside it.
TEST(PixelFootprint, IsThatOfTheCamera) {
    constexpr unsigned width = 400, height = 300;
    const NBX::SO<NBX::Camera> camera(new NBX::Camera(
        new NBX::LookAt(Point(10.0, 500.0, -300.0), Point(60.0, 100.0, 400.0), Point(0.0, 1.0, 0.0)),
        new NBX::Perspective(45.0, 1.0, 10000.0), NBX::Camera::S_Global));
    const double x = 130.5, y = 90.5, ground = 120.0;
    const auto footprint = PixelFootprint::at(*camera, x, y, width, height, ground);
    ASSERT_TRUE(footprint);
    const auto groundAt = [&](double column, double row) {
        const NBX::Ray ray = camera->rayThrough(column, row, width, height);
        return ray.point((ground - ray.getOrigin().y) / ray.getDirection().y);
    };
    const Point here = groundAt(x, y);
    for (const auto & [right, up] : {std::pair(3.0, 0.0), std::pair(-2.0, 1.0), std::pair(0.0, -4.0)}) {
        const Point there = groundAt(x + right, y + up) - here;
        const auto pixels = footprint->toPixels(there.x, there.z);
        EXPECT_NEAR(pixels.columns, right, 0.1);
        EXPECT_NEAR(pixels.rows, up, 0.1);
    }
    EXPECT_FALSE(PixelFootprint::at(*camera, x, 299.5, width, height, 1e4)) << "above the eye";
}

/// Hands over of its lines what lies in three times the box, as files do: what lies beyond is moved there.
class CutFeatures : public MemoryFeatures {
public:
    using MemoryFeatures::MemoryFeatures;
    void read(const Query & query, const std::function<bool(const Feature &)> & visit) const override {
        const double middle = (query.box.minX + query.box.maxX) / 2.0;
        const double reach = 1.5 * (query.box.maxX - query.box.minX);
        MemoryFeatures::read(query, [&](const Feature & feature) {
            Feature cut = feature;
            for (Feature::Line & line : cut.lines)
                for (Position & p : line)
                    p.x = std::clamp(p.x, middle - reach, middle + reach);
            ++handed;
            return visit(cut);
        });
    }
    mutable std::size_t handed = 0;
};

TEST(WholeFeature, IsAllOfWhatWasCutOff) {
    CutFeatures source({{"a", ZMT::RASTER::VectorField::Type::Text}});
    source.addLine({{-10.0, 0.0, 5.0}, {10.0, 0.0, 5.0}}, {std::string("short")});
    source.addLine({{-5000.0, 0.0, 0.0}, {0.0, 0.0, 0.0}, {8000.0, 0.0, 0.0}}, {std::string("long")}).style =
        "color=#ff0000";
    const Point place(3.0, 0.0, 1.0);
    const auto picked = ZMT::CORE::featuresAt(source, {place, s_oblong}, 0.5, 1);
    ASSERT_EQ(picked.size(), 1U);
    ASSERT_LT(picked.front().feature.lines.front().back().x, 100.0) << "it is cut off";
    const auto whole = ZMT::CORE::wholeFeature(source, picked.front().feature, place, 100);
    EXPECT_EQ(whole.id, 2);
    ASSERT_EQ(whole.lines.size(), 1U);
    EXPECT_EQ(whole.lines.front().front().x, -5000.0);
    EXPECT_EQ(whole.lines.front().back().x, 8000.0);
    EXPECT_TRUE(whole.values.empty());
    EXPECT_EQ(whole.style, "");
}

TEST(WholeFeature, IsNotLookedForAmongMoreThanAreAllowed) {
    CutFeatures source;
    for (int i = 0; i < 50; ++i)
        source.addLine({{i * 1.0, 0.0, 0.0}, {i * 1.0, 0.0, 1.0}});
    source.addLine({{-1000.0, 0.0, 0.0}, {0.0, 0.0, 0.0}, {1000.0, 0.0, 0.0}});
    VectorFeature picked = source.features.back();
    picked.lines = {{{-1.0, 0.0, 0.0}, {1.0, 0.0, 0.0}}};
    const auto part = ZMT::CORE::wholeFeature(source, picked, {}, 20);
    EXPECT_LE(source.handed, 25U);
    EXPECT_LT(part.lines.front().back().x, 1000.0) << "as far as it was found";
    EXPECT_GT(part.lines.front().back().x, 2.0);
    EXPECT_EQ(ZMT::CORE::wholeFeature(source, picked, {}, 1000).lines.front().back().x, 1000.0);
}

} // namespace
