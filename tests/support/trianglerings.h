#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/geometry/tin/polygontriangulation.h>

/// Outlines to fill, and what they were filled with.
namespace trianglerings {

using Point = ZMT::CORE::PolygonTriangulation::Point;
using Ring = ZMT::CORE::PolygonTriangulation::Ring;
using Rings = std::vector<Ring>;

inline Ring rectangle(double x0, double z0, double x1, double z1, double y = 0.0) {
    return {{x0, y, z0}, {x1, y, z0}, {x1, y, z1}, {x0, y, z1}};
}

inline Ring turned(Ring ring) {
    std::reverse(ring.begin(), ring.end());
    return ring;
}

/// Positive where the ring turns counter-clockwise in x and z.
inline double areaOf(const Ring & ring) {
    double sum = 0.0;
    for (std::size_t i = 0; i < ring.size(); ++i) {
        const Point & a = ring[i];
        const Point & b = ring[(i + 1) % ring.size()];
        sum += (a.x - ring[0].x) * (b.z - ring[0].z) - (b.x - ring[0].x) * (a.z - ring[0].z);
    }
    return sum / 2.0;
}

inline std::vector<Ring> trianglesOf(const NBX::SO<NBX::PolygonSet> & set) {
    std::vector<Ring> result;
    for (unsigned i = 0; set && i < set->triangles(); ++i) {
        std::array<unsigned, 3> t;
        EXPECT_TRUE(set->triangle(i, t));
        Ring & triangle = result.emplace_back();
        for (const unsigned corner : t)
            triangle.push_back(set->newVertexIterator()->get(corner));
    }
    return result;
}

/// All triangles turn counter-clockwise.
inline double filledArea(const NBX::SO<NBX::PolygonSet> & set) {
    double sum = 0.0;
    for (const Ring & triangle : trianglesOf(set)) {
        EXPECT_GT(areaOf(triangle), 0.0);
        sum += areaOf(triangle);
    }
    return sum;
}

/// A star around a centre, the radius of each point drawn at random.
inline Ring star(std::mt19937 & random, const Point & center, unsigned points, double scale) {
    std::uniform_real_distribution<double> radius(0.2 * scale, scale);
    Ring ring;
    for (unsigned i = 0; i < points; ++i) {
        const double angle = 2.0 * std::numbers::pi * i / points, r = radius(random);
        ring.push_back(center + Point(std::cos(angle) * r, r, std::sin(angle) * r));
    }
    return ring;
}

} // namespace trianglerings
