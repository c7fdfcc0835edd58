#include "raster/gdal/vector/featureshapes.h"

#include <algorithm>
#include <cmath>
#include <random>

#include <gtest/gtest.h>

namespace {

using namespace ZMT::RASTER;
using Kind = FeatureShapes::Kind;
using Position = FeatureShapes::Position;
using Positions = std::vector<Position>;

Positions places(std::initializer_list<std::array<double, 2>> list) {
    Positions result;
    for (const auto & [x, y] : list)
        result.emplace_back(x, 0.0, y);
    return result;
}

void add(FeatureShapes & shapes, Kind kind, const Positions & positions) {
    shapes.positions.insert(shapes.positions.end(), positions.begin(), positions.end());
    shapes.close(kind);
}

Positions path(const FeatureShapes & shapes, std::size_t i) {
    return {shapes.positions.begin() + shapes.begin(i), shapes.positions.begin() + shapes.paths[i].end};
}

/// Even-odd.
bool isInside(const FeatureShapes & shapes, double x, double y) {
    bool isInside = false;
    for (std::size_t k = 0; k < shapes.paths.size(); ++k) {
        const Positions ring = path(shapes, k);
        for (std::size_t i = 0; i < ring.size(); ++i) {
            const Position &a = ring[i == 0 ? ring.size() - 1 : i - 1], &b = ring[i];
            if ((a.z > y) != (b.z > y) && x < a.x + (y - a.z) / (b.z - a.z) * (b.x - a.x))
                isInside = !isInside;
        }
    }
    return isInside;
}

double distanceFromLine(const Position & p, const Positions & line) {
    double nearest = 1e300;
    for (std::size_t i = 0; i + 1 < line.size(); ++i) {
        const double x = line[i + 1].x - line[i].x, y = line[i + 1].z - line[i].z;
        const double length2 = x * x + y * y;
        const double t = length2 > 0.0
                             ? std::clamp(((p.x - line[i].x) * x + (p.z - line[i].z) * y) / length2, 0.0, 1.0)
                             : 0.0;
        nearest = std::min(nearest, std::hypot(p.x - line[i].x - t * x, p.z - line[i].z - t * y));
    }
    return nearest;
}

/// The largest distance of a point of one line from the other; edges are sampled.
double farthest(const Positions & from, const Positions & to) {
    double far = 0.0;
    for (std::size_t i = 0; i + 1 < from.size(); ++i)
        for (double t = 0.0; t <= 1.0; t += 0.5)
            far = std::max(far, distanceFromLine(from[i] + (from[i + 1] - from[i]) * t, to));
    return far;
}

Positions closed(Positions ring) {
    ring.push_back(ring.front());
    return ring;
}

TEST(FeatureShapes, PathsNeedEnoughPositions) {
    const struct {
        const char * name;
        Kind kind;
        unsigned count;
        bool isKept;
    } cases[] = {{"no point", Kind::Points, 0, false},      {"point", Kind::Points, 1, true},
                 {"start of a line", Kind::Line, 1, false}, {"line", Kind::Line, 2, true},
                 {"two places", Kind::Outline, 2, false},   {"triangle", Kind::Outline, 3, true},
                 {"hole in nothing", Kind::Hole, 3, false}};
    for (const auto & c : cases) {
        FeatureShapes shapes;
        shapes.positions.resize(c.count);
        EXPECT_EQ(shapes.close(c.kind), c.isKept) << c.name;
        EXPECT_EQ(shapes.paths.size(), c.isKept ? 1U : 0U) << c.name;
        EXPECT_EQ(shapes.positions.size(), c.isKept ? c.count : 0U) << c.name;
    }
    FeatureShapes shapes;
    add(shapes, Kind::Outline, places({{0, 0}, {4, 0}, {0, 4}}));
    add(shapes, Kind::Hole, places({{1, 1}, {2, 1}, {1, 2}}));
    add(shapes, Kind::Outline, places({{0, 0}, {4, 0}}));
    add(shapes, Kind::Hole, places({{1, 1}, {2, 1}, {1, 2}}));
    EXPECT_EQ(shapes.paths.size(), 2U) << "a hole goes with its outline";
}

TEST(FeatureShapes, FeaturesHaveThemByKind) {
    FeatureShapes shapes;
    VectorFeature feature;
    feature.lines.resize(9);
    feature.areas.resize(9);
    add(shapes, Kind::Points, places({{1, 2}}));
    add(shapes, Kind::Outline, places({{0, 0}, {4, 0}, {0, 4}}));
    add(shapes, Kind::Hole, places({{1, 1}, {2, 1}, {1, 2}}));
    add(shapes, Kind::Line, places({{5, 6}, {7, 8}}));
    add(shapes, Kind::Outline, places({{9, 9}, {10, 9}, {9, 10}}));
    add(shapes, Kind::Points, places({{3, 4}}));
    shapes.copyTo(feature);
    EXPECT_EQ(feature.points, places({{1, 2}, {3, 4}}));
    EXPECT_EQ(feature.lines, std::vector<Positions>{places({{5, 6}, {7, 8}})});
    EXPECT_EQ(feature.areas, (std::vector<VectorFeature::Area>{
                                 {places({{0, 0}, {4, 0}, {0, 4}}), places({{1, 1}, {2, 1}, {1, 2}})},
                                 {places({{9, 9}, {10, 9}, {9, 10}})}}));
}

TEST(FeatureShapes, LinesAreCutInParts) {
    FeatureShapes shapes, cut;
    add(shapes, Kind::Line, places({{-5, 1}, {5, 1}, {5, 2}, {15, 2}, {15, 8}, {5, 8}}));
    add(shapes, Kind::Line, places({{20, 0}, {20, 9}}));
    add(shapes, Kind::Line, places({{-5, 5}, {15, 5}}));
    add(shapes, Kind::Points, places({{1, 1}, {-1, 1}, {10, 10}}));
    cutShapes(shapes, {0, 0, 10, 10}, cut);
    ASSERT_EQ(cut.paths.size(), 4U);
    EXPECT_EQ(path(cut, 0), places({{0, 1}, {5, 1}, {5, 2}, {10, 2}}));
    EXPECT_EQ(path(cut, 1), places({{10, 8}, {5, 8}}));
    EXPECT_EQ(path(cut, 2), places({{0, 5}, {10, 5}}));
    EXPECT_EQ(path(cut, 3), places({{1, 1}, {10, 10}}));
}

TEST(FeatureShapes, AreasKeepTheirInsideWhenTheyAreCut) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> place(-2.0, 3.0), inBox(0.0, 1.0);
    for (unsigned round = 0; round < 300; ++round) {
        FeatureShapes shapes, cut;
        Positions ring;
        for (unsigned i = 0; i < 3 + round % 9; ++i)
            ring.emplace_back(place(random), 0.0, place(random));
        const bool isHole = round % 2;
        if (isHole) add(shapes, Kind::Outline, places({{-5, -5}, {5, -5}, {5, 5}, {-5, 5}}));
        add(shapes, isHole ? Kind::Hole : Kind::Outline, ring);
        cutShapes(shapes, {0, 0, 1, 1}, cut);
        for (unsigned i = 0; i < 20; ++i) {
            const double x = inBox(random), y = inBox(random);
            EXPECT_EQ(isInside(shapes, x, y), isInside(cut, x, y)) << round;
        }
        for (const Position & p : cut.positions)
            EXPECT_TRUE(p.x >= 0.0 && p.x <= 1.0 && p.z >= 0.0 && p.z <= 1.0) << p.x << " " << p.z;
    }
}

TEST(FeatureShapes, HolesGoWithTheirOutline) {
    FeatureShapes shapes, cut;
    add(shapes, Kind::Outline, places({{0, 0}, {9, 0}, {9, 9}, {0, 9}}));
    add(shapes, Kind::Hole, places({{1, 1}, {2, 1}, {1, 2}}));
    add(shapes, Kind::Outline, places({{20, 0}, {29, 0}, {29, 9}, {20, 9}}));
    add(shapes, Kind::Hole, places({{1, 1}, {2, 1}, {1, 2}}));
    cutShapes(shapes, {0, 0, 10, 10}, cut);
    EXPECT_EQ(cut.paths.size(), 2U);
    cutShapes(shapes, {9, 2, 10, 3}, cut);
    EXPECT_TRUE(cut.isEmpty()) << "what only touches has no inside";
}

TEST(FeatureShapes, HeightsAreThoseOfTheEdgeWhereItIsCut) {
    FeatureShapes shapes, cut;
    shapes.positions = {{-1, 0, 0.5}, {1, 100, 0.5}};
    shapes.close(Kind::Line);
    cutShapes(shapes, {0, 0, 1, 1}, cut);
    EXPECT_EQ(path(cut, 0), (Positions{{0, 50, 0.5}, {1, 100, 0.5}}));
}

Positions walk(unsigned count, std::mt19937 & random) {
    std::uniform_real_distribution<double> turn(-0.7, 0.7);
    Positions line;
    double x = 0.0, y = 0.0, direction = 0.0;
    for (unsigned i = 0; i < count; ++i) {
        line.emplace_back(x, 0.0, y);
        direction += turn(random);
        x += std::cos(direction);
        y += std::sin(direction);
    }
    return line;
}

TEST(FeatureShapes, SimpleShapesStayWithinTheTolerance) {
    std::mt19937 random(3);
    for (const double tolerance : {0.01, 0.5, 2.0, 10.0})
        for (const unsigned count : {2U, 3U, 10U, 300U, 1000U}) {
            FeatureShapes shapes, simple;
            const Positions line = walk(count, random);
            add(shapes, Kind::Line, line);
            add(shapes, Kind::Outline, line);
            simplifyShapes(shapes, tolerance, simple);
            ASSERT_GE(simple.paths.size(), 1U);
            const Positions less = path(simple, 0);
            EXPECT_EQ(less.front(), line.front());
            EXPECT_EQ(less.back(), line.back());
            EXPECT_LE(farthest(line, less), tolerance * (1 + 1e-9));
            EXPECT_LE(farthest(less, line), tolerance * 1.5) << "as a chord may leave a bend";
            if (tolerance >= 2.0 && count >= 300) {
                EXPECT_LT(less.size(), line.size() / 2);
            }
            if (simple.paths.size() == 2) {
                const Positions ring = closed(path(simple, 1));
                EXPECT_GE(ring.size(), 4U);
                EXPECT_LE(farthest(closed(line), ring), tolerance * (1 + 1e-9));
            } else {
                const GeoExtent box = boxAround(line.data(), line.data() + line.size());
                EXPECT_TRUE(count < 3 ||
                            (box.maxX - box.minX < tolerance && box.maxY - box.minY < tolerance));
            }
        }
}

TEST(FeatureShapes, AreasBecomeTrianglesOrVanish) {
    const struct {
        const char * name;
        Positions ring;
        double tolerance;
        std::size_t left;
    } cases[] = {
        {"small", places({{0, 0}, {0.5, 0}, {0.5, 0.5}, {0, 0.5}}), 1.0, 0},
        {"small triangle", places({{0, 0}, {0.5, 0}, {0.5, 0.5}}), 1.0, 0},
        {"as large as the tolerance", places({{0, 0}, {1, 0}, {1, 0.5}, {0, 0.5}}), 1.0, 3},
        {"long and narrow", places({{0, 0}, {9, 0}, {9, 0.1}, {0, 0.1}}), 1.0, 3},
        {"long, narrow, the other way", places({{0, 0}, {0, 0.1}, {9, 0.1}, {9, 0}}), 1.0, 3},
        {"triangle", places({{0, 0}, {9, 0}, {9, 0.1}}), 1.0, 3},
        {"square", places({{0, 0}, {9, 0}, {9, 9}, {0, 9}}), 1.0, 4},
        {"square with places on its edges", places({{0, 0}, {4, 0.1}, {9, 0}, {8.9, 5}, {9, 9}, {0, 9}}), 1.0,
         4},
        {"on a line", places({{0, 0}, {9, 0}, {5, 0}, {2, 0}}), 1.0, 3},
    };
    for (const auto & c : cases) {
        FeatureShapes shapes, simple;
        add(shapes, Kind::Outline, c.ring);
        add(shapes, Kind::Hole, places({{0, 0}, {0.1, 0}, {0, 0.1}}));
        simplifyShapes(shapes, c.tolerance, simple);
        EXPECT_EQ(simple.positions.size(), c.left) << c.name;
        EXPECT_LE(simple.paths.size(), 1U) << c.name << ": the hole is too small";
    }
}

TEST(FeatureShapes, BadLinesTakeNoLonger) {
    // Each position is farther out than the one before: halves are as unequal as can be.
    Positions line;
    for (unsigned i = 0; i < 100000; ++i)
        line.emplace_back(i % 2 ? 1.0 + i : 0.0, 0.0, i * 1e-3);
    FeatureShapes shapes, simple;
    add(shapes, Kind::Line, line);
    simplifyShapes(shapes, 1e-9, simple);
    EXPECT_EQ(simple.positions.size(), line.size());
}

} // namespace
