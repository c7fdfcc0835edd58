#include <zmt/core/terrain/geometry/base/stripmesh.h>

#include <array>
#include <random>
#include <set>

#include <gtest/gtest.h>

using ZMT::CORE::StripMesh;
using Numbers = std::vector<unsigned>;
using Triangles = std::vector<std::array<unsigned, 3>>;

namespace {

Triangles trianglesOf(const StripMesh & mesh) {
    Triangles triangles;
    mesh.forEachTriangle([&](unsigned a, unsigned b, unsigned c) { triangles.push_back({a, b, c}); });
    return triangles;
}

StripMesh meshOf(const Numbers & indices, const Numbers & ranges, bool isClockwise) {
    StripMesh mesh;
    mesh.strips = {indices, ranges};
    mesh.isClockwise = isClockwise;
    return mesh;
}

TEST(StripMesh, EverySecondTriangleOfAStripIsTurnedBack) {
    EXPECT_EQ(trianglesOf(meshOf({0, 1, 2, 3}, {4}, true)), (Triangles{{0, 1, 2}, {2, 1, 3}}));
    EXPECT_EQ(trianglesOf(meshOf({0, 1, 2, 3}, {4}, false)), (Triangles{{1, 0, 2}, {1, 2, 3}}));
}

TEST(StripMesh, EachStripBeginsAnew) {
    EXPECT_EQ(trianglesOf(meshOf({0, 1, 2, 3, 4, 5, 6}, {4, 7}, true)),
              (Triangles{{0, 1, 2}, {2, 1, 3}, {4, 5, 6}}));
    EXPECT_EQ(trianglesOf(meshOf({0, 1, 2}, {0, 2, 2, 3}, true)), Triangles()) << "too short for one";
}

TEST(StripMesh, WhatRepeatsAVertexIsNoTriangle) {
    EXPECT_EQ(trianglesOf(meshOf({0, 0, 1, 2, 1, 3}, {6}, true)), (Triangles{{1, 0, 2}, {1, 2, 3}}));
    EXPECT_EQ(meshOf({0, 0, 1, 2, 1, 3}, {6}, true).triangles(), 2U);
}

TEST(StripMesh, ARowOfALatticeIsAStrip) {
    StripMesh mesh;
    mesh.appendLattice(2, 2);
    EXPECT_EQ(mesh.strips.indices, (Numbers{0, 3, 1, 4, 2, 5, 3, 6, 4, 7, 5, 8}));
    EXPECT_EQ(mesh.strips.ranges, (Numbers{6, 12}));
    StripMesh none;
    none.appendLattice(0, 3);
    none.appendLattice(3, 0);
    EXPECT_TRUE(none.strips.ranges.empty());
}

/// Whatever is missing, the rest is what a whole lattice has there, turned alike.
TEST(StripMesh, MissingHalvesOfCellsPartTheStrips) {
    std::mt19937 random(1);
    for (unsigned run = 0; run < 200; ++run) {
        SCOPED_TRACE(run);
        const unsigned columns = 1 + random() % 5, rows = 1 + random() % 3;
        std::vector<bool> isThere(std::size_t(2) * columns * rows);
        for (std::size_t i = 0; i < isThere.size(); ++i)
            isThere[i] = random() % 3 != 0;
        StripMesh mesh;
        mesh.appendLattice(columns, rows, [&](unsigned column, unsigned row, unsigned half) {
            return isThere.at((row * columns + column) * 2 + half);
        });
        StripMesh whole;
        whole.appendLattice(columns, rows);
        const Triangles all = trianglesOf(whole);
        ASSERT_EQ(all.size(), isThere.size());
        Triangles expected, got = trianglesOf(mesh);
        for (std::size_t i = 0; i < all.size(); ++i)
            if (isThere[i]) expected.push_back(all[i]);
        const auto normalize = [](Triangles & triangles) {
            for (auto & t : triangles)
                std::rotate(t.begin(), std::min_element(t.begin(), t.end()), t.end());
        };
        normalize(expected);
        normalize(got);
        EXPECT_EQ(got, expected);
        EXPECT_TRUE(mesh.strips.ranges.empty() || mesh.strips.ranges.back() == mesh.strips.indices.size());
    }
}

TEST(StripMesh, CurtainsHangFromABorder) {
    using Point = StripMesh::Point;
    StripMesh mesh;
    mesh.vertices = {Point(1, 10, 2), Point(3, 20, 4), Point(5, 30, 6)};
    mesh.strips = {{0, 1, 2}, {3}};
    mesh.appendCurtain(mesh.strips, Numbers{2, 0}, -7.0);
    EXPECT_EQ(mesh.strips.indices, (Numbers{0, 1, 2, 2, 3, 0, 4}));
    EXPECT_EQ(mesh.strips.ranges, (Numbers{3, 7}));
    ASSERT_EQ(mesh.vertices.size(), 5U);
    EXPECT_EQ(mesh.vertices[3], Point(5, -7, 6));
    EXPECT_EQ(mesh.vertices[4], Point(1, -7, 2));
    StripMesh::Strips walls;
    mesh.appendCurtain(walls, Numbers{1}, -8.0);
    EXPECT_EQ(walls.indices, (Numbers{1, 5}));
    EXPECT_EQ(walls.ranges, (Numbers{2}));
    EXPECT_EQ(mesh.strips.indices.size(), 7U);
}

} // namespace
