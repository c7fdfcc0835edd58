#include "nbx/container/space/trianglehierarchy.h"

#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include <nbx/math/triangletest.h>

using namespace NBX;

namespace {

using V = Vector3Base<double>;
using Corners = TriangleHierarchy::Corners;
using Hit = TriangleHierarchy::Hit;

bool hits(const Ray & ray, const Corners & corners, double & distance) {
    const auto wide = [](const Vector3Base<float> & v) { return V(v.x, v.y, v.z); };
    return meetsTriangle(ray.getOrigin(), ray.getDirection(), wide(corners[0]), wide(corners[1]),
                         wide(corners[2]), distance, [](bool is) { return is; });
}

constexpr double s_far = std::numeric_limits<double>::infinity();

std::optional<Hit> slowNearest(const std::vector<Corners> & triangles, const Ray & ray,
                               double limit = s_far) {
    std::optional<Hit> best;
    double distance = 0.0;
    for (unsigned i = 0; i < triangles.size(); ++i)
        if (hits(ray, triangles[i], distance) && distance <= limit && (!best || distance < best->distance))
            best = Hit{distance, i, triangles[i]};
    return best;
}

std::optional<Hit> fastNearest(const TriangleHierarchy & hierarchy, const Ray & ray, double limit = s_far) {
    return hierarchy.nearest(ray, limit);
}

void expectSame(const std::vector<Corners> & triangles, const std::vector<Ray> & rays, double limit = s_far) {
    const TriangleHierarchy hierarchy(triangles);
    for (const Ray & ray : rays) {
        const auto slow = slowNearest(triangles, ray, limit), fast = fastNearest(hierarchy, ray, limit);
        ASSERT_EQ(slow.has_value(), fast.has_value());
        if (!slow) continue;
        EXPECT_EQ(slow->distance, fast->distance);
        EXPECT_EQ(slow->triangle, fast->triangle);
        EXPECT_EQ(slow->corners, fast->corners);
    }
}

/// Roofs and walls on a lattice: many flat boxes, and corners that many triangles share.
std::vector<Corners> town(unsigned side) {
    std::vector<Corners> triangles;
    const auto quad = [&](Vector3Base<float> a, Vector3Base<float> b, Vector3Base<float> c,
                          Vector3Base<float> d) {
        triangles.push_back({a, b, c});
        triangles.push_back({a, c, d});
    };
    for (unsigned x = 0; x < side; ++x)
        for (unsigned z = 0; z < side; ++z) {
            const auto l = float(x * 10), r = l + 6, f = float(z * 10), b = f + 6;
            const auto h = float(3 + (x * 7 + z * 5) % 11);
            quad({l, h, f}, {r, h, f}, {r, h, b}, {l, h, b});
            quad({l, 0, f}, {r, 0, f}, {r, h, f}, {l, h, f});
            quad({l, 0, b}, {r, 0, b}, {r, h, b}, {l, h, b});
            quad({l, 0, f}, {l, 0, b}, {l, h, b}, {l, h, f});
            quad({r, 0, f}, {r, 0, b}, {r, h, b}, {r, h, f});
        }
    return triangles;
}

TEST(TriangleHierarchy, HasNoHitWithoutTriangles) {
    const TriangleHierarchy hierarchy({});
    EXPECT_FALSE(fastNearest(hierarchy, Ray(V(0, 0, 0), V(0, 0, 1))));
}

TEST(TriangleHierarchy, FindsWhatTestingAllTrianglesFinds) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (const double size : {1e-3, 1.0, 1e4}) {
        std::uniform_real_distribution<double> place(-size, size), small(-size / 20, size / 20);
        std::vector<Corners> triangles(700);
        for (Corners & corners : triangles) {
            const V at(place(random), place(random), place(random));
            for (auto & corner : corners)
                corner = {float(at.x + small(random)), float(at.y + small(random)),
                          float(at.z + small(random))};
        }
        std::vector<Ray> rays;
        for (int i = 0; i < 2000; ++i)
            rays.emplace_back(V(place(random), place(random), place(random)) * 3.0,
                              V(place(random), place(random), place(random)));
        expectSame(triangles, rays);
        expectSame(triangles, rays, 1.5);
    }
}

TEST(TriangleHierarchy, RaysAlongTheAxesMeetFlatBoxes) {
    std::vector<Ray> rays;
    for (int x = -2; x < 80; ++x)
        for (int z = -2; z < 80; z += 3) {
            rays.emplace_back(V(x, 50, z), V(0, -1, 0));
            rays.emplace_back(V(x, -50, z), V(0, 2, 0));
            rays.emplace_back(V(x, 2, -50), V(0, 0, 1));
            rays.emplace_back(V(-50, z, x), V(0.5, 0, 0));
            rays.emplace_back(V(x, 50.5, z), V(0.3, -1, 0));
        }
    expectSame(town(8), rays);
}

TEST(TriangleHierarchy, RaysFromFarAwayMeetTheTown) {
    std::vector<Ray> rays;
    for (int x = 0; x < 80; x += 2)
        for (int z = 0; z < 80; z += 2)
            rays.emplace_back(V(x + 1e6, 1e6, z), V(-1, -1, 0));
    expectSame(town(8), rays);
}

TEST(TriangleHierarchy, OfEquallyNearTrianglesTheFirstIsHit) {
    std::vector<Corners> triangles(200, Corners{{{0, 0, 5}, {1, 0, 5}, {0, 1, 5}}});
    for (unsigned i = 0; i < 50; ++i)
        triangles[i][0].z = triangles[i][1].z = triangles[i][2].z = 6.0F;
    const auto hit = fastNearest(TriangleHierarchy(triangles), Ray(V(0.2, 0.2, 0), V(0, 0, 1)));
    ASSERT_TRUE(hit);
    EXPECT_EQ(hit->triangle, 50U);
    EXPECT_EQ(hit->distance, 5.0);
}

TEST(TriangleHierarchy, TrianglesThatAreNotFiniteAreNeverHit) {
    const float nan = std::numeric_limits<float>::quiet_NaN(),
                infinite = std::numeric_limits<float>::infinity();
    std::vector<Corners> triangles = town(4);
    triangles[3][1].y = nan;
    triangles[70][0].x = infinite;
    triangles[71][2].z = -infinite;
    std::vector<Ray> rays;
    for (int x = 0; x < 40; ++x)
        for (int z = 0; z < 40; ++z)
            rays.emplace_back(V(x + 0.5, 50, z + 0.25), V(0, -1, 0));
    const TriangleHierarchy hierarchy(triangles);
    triangles[3] = triangles[70] = triangles[71] = Corners{};
    for (const Ray & ray : rays) {
        const auto slow = slowNearest(triangles, ray), fast = fastNearest(hierarchy, ray);
        ASSERT_EQ(slow.has_value(), fast.has_value());
        if (slow) {
            EXPECT_EQ(slow->triangle, fast->triangle);
        }
    }
}

TEST(TriangleHierarchy, UnevenTrianglesMakeNoDeepTree) {
    // Each twice as far away as the one before: splits by place take off one at a time.
    std::vector<Corners> triangles;
    float x = 1e-30F;
    for (int i = 0; i < 200; ++i, x *= 2.0F)
        for (int times = 0; times < 50; ++times)
            triangles.push_back({{{x, 0, 0}, {x, 1, 0}, {x, 0, 1}}});
    expectSame(triangles, {Ray(V(-1, 0.2, 0.2), V(1, 0, 0)), Ray(V(1e30, 0.2, 0.2), V(-1, 0, 0))});
}

/// Corners on a small lattice: many triangles without area, many that share corners, edges or a plane, and
/// some that are the same.
std::vector<Corners> lattice(std::mt19937 & random, unsigned count) {
    std::vector<Corners> triangles(count);
    for (Corners & corners : triangles)
        for (auto & corner : corners)
            corner = {float(random() % 5), float(random() % 5), float(random() % 5)};
    return triangles;
}

TEST(TriangleHierarchy, CornersEdgesAndTrianglesWithoutAreaAreDecidedAsOneByOne) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto place = [&] { return V(random() % 9 * 0.5, random() % 9 * 0.5, random() % 9 * 0.5); };
    for (const unsigned count : {1U, 3U, 5U, 60U}) {
        std::vector<Ray> rays;
        for (int i = 0; i < 1500; ++i)
            rays.emplace_back(place() - V(random() % 2 * 7.0, 0, 0), place() - place());
        expectSame(lattice(random, count), rays);
        expectSame(lattice(random, count), rays, 0.5);
    }
}

TEST(TriangleHierarchy, VeryShortAndVeryLongDirectionsFindTheSame) {
    const std::vector<Corners> triangles = town(4);
    for (const double length : {1e-100, 1e-30, 1e-3, 1e3, 1e30, 1e100}) {
        std::vector<Ray> rays;
        for (int x = 0; x < 40; ++x)
            rays.emplace_back(V(x + 0.5, 50, x * 0.7), V(0.1, -1, 0.2) * length);
        expectSame(triangles, rays);
        EXPECT_TRUE(fastNearest(TriangleHierarchy(triangles), Ray(V(3, 50, 3), V(0, -length, 0))));
    }
}

TEST(TriangleHierarchy, RaysThatAreNoneHitNothing) {
    const TriangleHierarchy hierarchy(town(4));
    constexpr double nan = std::numeric_limits<double>::quiet_NaN(), infinite = s_far;
    EXPECT_TRUE(fastNearest(hierarchy, Ray(V(3, 50, 3), V(0, -1, 0))));
    for (const V & along : {V(), V(nan, -1, 0), V(0, nan, 0), V(0, -infinite, 0), V(infinite, -1, nan)})
        EXPECT_FALSE(fastNearest(hierarchy, Ray(V(3, 50, 3), along)));
    for (const V & from : {V(3, nan, 3), V(3, infinite, 3), V(nan, nan, nan), V(-infinite, 50, 3)})
        EXPECT_FALSE(fastNearest(hierarchy, Ray(from, V(0, -1, 0))));
    EXPECT_FALSE(fastNearest(hierarchy, Ray(V(3, 50, 3), V(0, -1, 0)), nan));
    EXPECT_FALSE(fastNearest(hierarchy, Ray(V(3, 50, 3), V(0, -1, 0)), -1.0));
}

TEST(TriangleHierarchy, TheLimitItselfStillCounts) {
    const TriangleHierarchy hierarchy({Corners{{{0, 0, 5}, {1, 0, 5}, {0, 1, 5}}}});
    const Ray ray(V(0.2, 0.2, 0), V(0, 0, 1));
    EXPECT_TRUE(fastNearest(hierarchy, ray, 5.0));
    EXPECT_FALSE(fastNearest(hierarchy, ray, std::nextafter(5.0, 0.0)));
}

TEST(TriangleHierarchy, TakesNoMoreMemoryThanItSays) {
    std::mt19937 random(3);
    for (const unsigned count : {0U, 1U, 2U, 100U, 5000U}) {
        const std::size_t most = (count + 1) * TriangleHierarchy::s_mostBytesPerTriangle;
        EXPECT_LE(TriangleHierarchy(lattice(random, count)).bytes(), most);
    }
    const std::vector<Corners> large = town(20);
    const std::size_t bytes = TriangleHierarchy(large).bytes();
    EXPECT_LE(bytes, large.size() * 90);
    EXPECT_GE(bytes, large.size() * sizeof(Corners));
}

} // namespace
