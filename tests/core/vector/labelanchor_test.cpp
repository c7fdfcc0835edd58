#include <zmt/core/vector/labelanchor.h>

#include <cmath>
#include <numbers>
#include <random>

#include <gtest/gtest.h>

namespace {

using namespace ZMT::CORE;
using ZMT::RASTER::VectorFeature;
using Position = LabelAnchor::Position;
using Line = VectorFeature::Line;
using Area = VectorFeature::Area;

constexpr double s_far = 5'800'000.0;

Line outline(double left, double bottom, double right, double top) {
    return {{left, 7, bottom}, {right, 7, bottom}, {right, 7, top}, {left, 7, top}};
}

VectorFeature ofAreas(const std::vector<Area> & areas) {
    VectorFeature feature;
    feature.areas = areas;
    return feature;
}

VectorFeature ofLines(const std::vector<Line> & lines) {
    VectorFeature feature;
    feature.lines = lines;
    return feature;
}

/// By the sum of the angles under which the border is seen.
bool isInside(const Line & ring, const Position & p) {
    double turn = 0.0;
    for (std::size_t i = 0; i < ring.size(); ++i) {
        const Position a = ring[i] - p, b = ring[(i + 1) % ring.size()] - p;
        turn += std::atan2(a.x * b.z - a.z * b.x, a.x * b.x + a.z * b.z);
    }
    return std::abs(turn) > std::numbers::pi;
}

bool isInside(const Area & area, const Position & p) {
    bool isIn = isInside(area.front(), p);
    for (std::size_t i = 1; i < area.size(); ++i)
        isIn &= !isInside(area[i], p);
    return isIn;
}

double distanceFromBorder(const Area & area, const Position & p) {
    double nearest = HUGE_VAL;
    for (const Line & ring : area)
        for (std::size_t i = 0; i < ring.size(); ++i) {
            const Position &a = ring[i], &b = ring[(i + 1) % ring.size()];
            const double x = b.x - a.x, z = b.z - a.z;
            const double part = std::clamp(((p.x - a.x) * x + (p.z - a.z) * z) / (x * x + z * z), 0.0, 1.0);
            nearest = std::min(nearest, std::hypot(a.x + x * part - p.x, a.z + z * part - p.z));
        }
    return nearest;
}

TEST(LabelAnchorTest, PointsStandForThemselves) {
    VectorFeature feature;
    EXPECT_FALSE(LabelAnchor::of(feature));
    feature.points = {{3, 4, 5}, {6, 7, 8}};
    const auto anchor = LabelAnchor::of(feature);
    ASSERT_TRUE(anchor);
    EXPECT_EQ(Position(3, 4, 5), anchor->position);
    EXPECT_EQ(0.0, anchor->extent);
}

TEST(LabelAnchorTest, LinesAreNamedHalfAlongTheLongest) {
    const auto anchor = LabelAnchor::of(ofLines(
        {{{0, 0, 50}, {9, 0, 50}}, {{0, 10, 0}, {10, 20, 0}, {10, 60, 20}}, {{0, 0, 90}, {29, 0, 90}}}));
    ASSERT_TRUE(anchor);
    EXPECT_EQ(Position(10, 30, 5), anchor->position) << "not half of its points";
    EXPECT_EQ(30.0, anchor->extent);
    const auto closed = LabelAnchor::of(ofLines({{{0, 0, 0}, {10, 0, 0}, {10, 0, 10}, {0, 0, 0}}}));
    EXPECT_NEAR(17.07, closed->extent * 0.5, 0.01);
    EXPECT_EQ(10.0, closed->position.x);
}

TEST(LabelAnchorTest, OfEquallyLongLinesTheFirstIsNamed) {
    const auto anchor = LabelAnchor::of(ofLines({{{0, 0, 0}, {4, 0, 0}}, {{0, 0, 9}, {4, 0, 9}}}));
    EXPECT_EQ(Position(2, 0, 0), anchor->position);
}

TEST(LabelAnchorTest, LinesWithoutLengthAreNamedWhereTheyAre) {
    for (const Line & line : {Line{{3, 4, 5}, {3, 4, 5}}, Line{{3, 4, 5}}}) {
        const auto anchor = LabelAnchor::of(ofLines({line}));
        ASSERT_TRUE(anchor);
        EXPECT_EQ(Position(3, 4, 5), anchor->position);
        EXPECT_EQ(0.0, anchor->extent);
    }
    EXPECT_FALSE(LabelAnchor::of(ofLines({{}})));
    // Steps without length on the way.
    const auto anchor =
        LabelAnchor::of(ofLines({{{0, 0, 0}, {0, 0, 0}, {5, 0, 0}, {5, 0, 0}, {5, 0, 0}, {10, 0, 0}}}));
    EXPECT_EQ(Position(5, 0, 0), anchor->position);
}

TEST(LabelAnchorTest, AreasAreNamedWhereTheyAreWidest) {
    struct Row {
        const char * name;
        Area area;
        Position expected;
        double tolerance;
        double extent;
    };
    const Line u = {{0, 7, 0},   {30, 7, 0}, {30, 7, 40}, {22, 7, 40},
                    {22, 7, 10}, {4, 7, 10}, {4, 7, 40},  {0, 7, 40}};
    const Row rows[] = {
        {"square", {outline(0, 0, 10, 10)}, {5, 7, 5}, 0.1, 10.0},
        {"square with a hole in its middle, to the left",
         {outline(0, 0, 10, 10), outline(1, 1, 5, 9)},
         {7.5, 7, 5},
         0.6,
         std::sqrt(68.0)},
        {"triangle", {{{0, 7, 0}, {12, 7, 0}, {0, 7, 5}}}, {2, 7, 2}, 0.1, std::sqrt(30.0)},
        {"U, whose centre of gravity lies outside",
         {u},
         {24.649, 7, 5.351},
         0.2,
         std::sqrt(300.0 + 240.0 + 120.0)},
    };
    for (const Row & row : rows) {
        const auto anchor = LabelAnchor::of(ofAreas({row.area}));
        ASSERT_TRUE(anchor) << row.name;
        EXPECT_NEAR(row.expected.x, anchor->position.x, row.tolerance) << row.name;
        EXPECT_NEAR(row.expected.z, anchor->position.z, row.tolerance) << row.name;
        EXPECT_EQ(7.0, anchor->position.y) << row.name;
        EXPECT_NEAR(row.extent, anchor->extent, 1e-9) << row.name;
    }
}

TEST(LabelAnchorTest, TheLargestAreaWithoutItsHolesIsNamed) {
    const Area frame = {outline(0, 0, 100, 100), outline(1, 1, 99, 99)}, // 396
        block = {outline(200, 0, 220, 20)},                              // 400
        same = {outline(300, 0, 320, 20)};
    const auto anchor = LabelAnchor::of(ofAreas({frame, block, same}));
    EXPECT_NEAR(210.0, anchor->position.x, 0.2);
    EXPECT_NEAR(20.0, anchor->extent, 1e-9);
}

TEST(LabelAnchorTest, AreasComeBeforeLinesAndLinesBeforePoints) {
    VectorFeature feature;
    feature.points = {{1, 0, 1}};
    feature.lines = {{{0, 0, 0}, {100, 0, 0}}};
    EXPECT_EQ(50.0, LabelAnchor::of(feature)->position.x);
    feature.areas = {{outline(200, 0, 202, 2)}};
    EXPECT_NEAR(201.0, LabelAnchor::of(feature)->position.x, 0.1);
}

TEST(LabelAnchorTest, AreasWithoutRoomAreNamedOnTheirOutline) {
    for (const Line & ring :
         {Line{{0, 7, 0}, {10, 7, 10}, {4, 7, 4}}, Line{{0, 7, 0}, {0, 7, 0}, {10, 7, 10}},
          Line{{s_far, 7, s_far}, {s_far + 1, 7, s_far}, {s_far + 3, 7, s_far}}}) {
        const auto anchor = LabelAnchor::of(ofAreas({{ring}}));
        ASSERT_TRUE(anchor);
        EXPECT_LT(distanceFromBorder({ring}, anchor->position), 1e-6);
        EXPECT_GT(anchor->extent, 0.0);
    }
    const auto point = LabelAnchor::of(ofAreas({{{{3, 7, 5}, {3, 7, 5}, {3, 7, 5}}}}));
    ASSERT_TRUE(point);
    EXPECT_EQ(Position(3, 7, 5), point->position);
    EXPECT_FALSE(LabelAnchor::of(ofAreas({{}})));
    EXPECT_FALSE(LabelAnchor::of(ofAreas({{{}}})));
    // The hole is as large as the area.
    EXPECT_TRUE(LabelAnchor::of(ofAreas({{outline(0, 0, 9, 9), outline(0, 0, 9, 9)}})));
}

TEST(LabelAnchorTest, SizesAndPlacesBeyondAllMapsCope) {
    for (const double size : {1e-300, 1e-6, 1e150, 1e300, 1.7e308}) {
        const auto anchor = LabelAnchor::of(ofAreas({{outline(0, 0, size, size)}}));
        ASSERT_TRUE(anchor) << size;
        EXPECT_NEAR(0.5, anchor->position.x / size, 0.02) << size;
    }
    const auto wide = LabelAnchor::of(ofAreas({{outline(-1.7e308, 0, 1.7e308, 1)}}));
    ASSERT_TRUE(!wide || std::isfinite(wide->position.x));
    const auto far = LabelAnchor::of(ofAreas({{outline(s_far, s_far, s_far + 0.01, s_far + 0.01)}}));
    EXPECT_NEAR(s_far + 0.005, far->position.x, 0.0002);
    const auto sliver = LabelAnchor::of(ofAreas({{outline(0, 0, 1e6, 0.001)}}));
    EXPECT_GT(sliver->position.z, 0.0);
    EXPECT_LT(sliver->position.z, 0.001);
}

/// Stars round a middle, with smaller ones as holes.
Area randomArea(std::mt19937 & random, unsigned vertices) {
    std::uniform_real_distribution<double> part(0.0, 1.0);
    Area area;
    const double size = std::pow(10.0, part(random) * 8.0 - 3.0), x = part(random) * s_far,
                 z = part(random) * s_far;
    for (unsigned ring = random() % 2; ring < 2; ++ring) {
        Line line;
        for (unsigned i = 0; i < vertices; ++i) {
            const double angle = (i + 0.9 * part(random)) * 2.0 * std::numbers::pi / vertices;
            const double radius =
                size * (area.empty() ? 0.3 + 0.7 * part(random) : 0.25 * part(random) + 0.02);
            line.push_back({x + radius * std::cos(angle), 0, z + radius * std::sin(angle)});
        }
        area.push_back(line);
    }
    return area;
}

TEST(LabelAnchorTest, PlacesLieInsideAndNearlyAsFarFromTheBorderAsAnyOther) {
    std::mt19937 random(11);
    for (int round = 0; round < 80; ++round) {
        const Area area = randomArea(random, 3 + random() % 40);
        const auto anchor = LabelAnchor::of(ofAreas({area}));
        ASSERT_TRUE(anchor) << round;
        ASSERT_TRUE(isInside(area, anchor->position)) << round;
        double best = 0.0;
        NBX::Vector3Base<double> low(HUGE_VAL, 0, HUGE_VAL), high(-HUGE_VAL, 0, -HUGE_VAL);
        for (const Position & p : area.front()) {
            low = {std::min(low.x, p.x), 0, std::min(low.z, p.z)};
            high = {std::max(high.x, p.x), 0, std::max(high.z, p.z)};
        }
        for (int i = 1; i < 24; ++i)
            for (int j = 1; j < 24; ++j) {
                const Position p(std::lerp(low.x, high.x, i / 24.0), 0, std::lerp(low.z, high.z, j / 24.0));
                const double distance = distanceFromBorder(area, p);
                if (distance > best && isInside(area, p)) best = distance;
            }
        EXPECT_GE(distanceFromBorder(area, anchor->position), best * 0.989) << round;
    }
}

} // namespace
