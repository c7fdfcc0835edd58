#pragma once

#include <gtest/gtest.h>

#include <zmt/core/terrain/geometry/tin/tin.h>

#include <array>
#include <map>
#include <random>
#include <vector>

/// Points of the tests, by number.
struct TestPoints {
    using Point = NBX::Vector3Base<double>;
    static Point point(unsigned number) { return points.at(number); }
    static inline std::vector<Point> points;
};

using TestTin = ZMT::CORE::Tin<TestPoints>;
using Point = TestPoints::Point;

/// A lattice of `columns` by `rows` points, row by row, with heights from `height(column, row)`.
template <class Height>
void setLattice(unsigned columns, unsigned rows, Height height, double cell = 1.0, double offset = 0.0) {
    TestPoints::points.clear();
    for (unsigned y = 0; y < rows; ++y)
        for (unsigned x = 0; x < columns; ++x)
            TestPoints::points.emplace_back(offset + x * cell, offset + y * cell, height(x, y));
}

/// The first two triangles over the corners of such a lattice.
inline void initOnLattice(TestTin & tin, unsigned columns, unsigned rows) {
    tin.init(0, columns - 1, columns * rows - 1, columns * (rows - 1));
}

inline std::array<Point, 3> corners(const TestTin & tin, ZMT::CORE::TinFace f) {
    return {tin.position(tin.corner(f, 0)), tin.position(tin.corner(f, 1)), tin.position(tin.corner(f, 2))};
}

/// The laws of the rings of half-edges, for one of them.
inline void expectRings(const TestTin & tin, ZMT::CORE::TinEdge e) {
    ASSERT_TRUE(e);
    EXPECT_EQ(tin.twin(tin.twin(e)), e);
    EXPECT_EQ(tin.previous(tin.next(e)), e);
    EXPECT_EQ(tin.next(tin.previous(e)), e);
    EXPECT_EQ(tin.oprev(tin.onext(e)), e);
    EXPECT_EQ(tin.onext(tin.oprev(e)), e);
    EXPECT_EQ(tin.next(e), tin.onext(tin.twin(e)));
    EXPECT_EQ(tin.previous(e), tin.twin(tin.oprev(e)));
    EXPECT_EQ(tin.origin(tin.onext(e)), tin.origin(e));
    EXPECT_EQ(tin.origin(tin.next(e)), tin.destination(e));
    EXPECT_EQ(tin.origin(tin.twin(e)), tin.destination(e));
    EXPECT_EQ(tin.face(tin.next(e)), tin.face(e));
    EXPECT_EQ(tin.constrained(tin.twin(e)), tin.constrained(e));
}

inline unsigned borderLength(const TestTin & tin) {
    const ZMT::CORE::TinEdge start = tin.boundaryEdge(tin.node(0));
    unsigned length = 0;
    for (ZMT::CORE::TinEdge e = start; length <= 3 * tin.faces();) {
        EXPECT_FALSE(tin.face(e));
        expectRings(tin, e);
        ++length;
        e = tin.next(e);
        if (e == start) break;
    }
    return length;
}

/// Rings, loops, orientation, and the formula of Euler.
inline void expectConsistent(const TestTin & tin) {
    unsigned halfEdges = 0;
    for (unsigned i = 0; i < tin.faces(); ++i) {
        const ZMT::CORE::TinFace f = tin.face(i);
        ZMT::CORE::TinEdge e = tin.edge(f);
        for (unsigned k = 0; k < 3; ++k, e = tin.next(e), ++halfEdges) {
            EXPECT_EQ(tin.face(e), f);
            EXPECT_EQ(tin.origin(e), tin.corner(f, k));
            expectRings(tin, e);
        }
        EXPECT_EQ(e, tin.edge(f));
        const auto [a, b, c] = corners(tin, f);
        EXPECT_GT(ZMT::CORE::orient2d(a, b, c), 0.0) << "face " << i;
        if (testing::Test::HasFailure()) return;
    }
    for (unsigned i = 0; i < tin.nodes(); ++i) {
        EXPECT_EQ(tin.origin(tin.edge(tin.node(i))), tin.node(i));
        EXPECT_TRUE(tin.face(tin.edge(tin.node(i))));
    }
    const unsigned border = borderLength(tin);
    EXPECT_EQ(tin.nodes() + tin.faces(), (halfEdges + border) / 2 + 1);
}

/// No fourth corner in the circle of a face, except across constrained edges.
inline void expectDelaunay(const TestTin & tin) {
    for (unsigned i = 0; i < tin.faces(); ++i) {
        const auto [a, b, c] = corners(tin, tin.face(i));
        ZMT::CORE::TinEdge e = tin.edge(tin.face(i));
        for (unsigned k = 0; k < 3; ++k, e = tin.next(e)) {
            if (!tin.face(tin.twin(e)) || tin.constrained(e)) continue;
            const Point d = tin.position(tin.origin(tin.previous(tin.twin(e))));
            ASSERT_LE(ZMT::CORE::incircle(a, b, c, d), 0.0) << "face " << i << ", edge " << k;
        }
    }
}

inline double area(const TestTin & tin) {
    double twice = 0.0;
    for (unsigned i = 0; i < tin.faces(); ++i) {
        const auto [a, b, c] = corners(tin, tin.face(i));
        twice += (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
    }
    return twice / 2.0;
}
