#include <cmath>
#include <limits>
#include <numbers>
#include <set>

#include <gtest/gtest.h>

#include <nbx/scene/shape/polygonsettool.h>

#include "core/texturedtriangles/texturedtriangletree_impl/textureatlasgenerator.h"
#include "support/recordedreports.h"
#include "trianglelists.h"

namespace {

using ZMT::CORE::TextureAtlasGenerator;
using V = NBX::Vector3Base<double>;

/// A triangle at `place` whose normal has this direction, in degrees.
void appendFacing(TriangleList & list, double azimuth, double elevation, const V & place = V()) {
    const double a = azimuth * std::numbers::pi / 180, e = elevation * std::numbers::pi / 180;
    const V normal(std::sin(a) * std::cos(e), std::sin(e), std::cos(a) * std::cos(e));
    const V u = (std::abs(normal.y) < 0.9 ? V(0, 1, 0) : V(1, 0, 0)).cross(normal).normalized();
    for (const V & p : {place, place + u, place + normal.cross(u)})
        list.push_back(p);
}

GroupList parallel(const TriangleList & list) {
    return listed(TextureAtlasGenerator::groupParallelTriangles(newVertices(list).get()));
}

GroupList coplanar(const TriangleList & list, const std::vector<int> & numbers) {
    return listed(
        TextureAtlasGenerator::groupCoplanarTriangles(newVertices(list).get(), newNumbers(numbers).get()));
}

GroupList split(const TriangleList & list, const std::vector<int> & numbers) {
    return listed(TextureAtlasGenerator::splitPatch(newVertices(list).get(), newNumbers(numbers).get()));
}

TEST(GroupParallelTriangles, NothingGivesNull) {
    EXPECT_FALSE(TextureAtlasGenerator::groupParallelTriangles(nullptr));
    EXPECT_FALSE(TextureAtlasGenerator::groupParallelTriangles(newVertices(TriangleList()).get()));
}

TEST(GroupParallelTriangles, DegenerateTrianglesVanish) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    TriangleList list = {V(),        V(1, 0, 0),   V(2, 0, 0), V(1, 1, 1), V(1, 1, 1),
                         V(2, 0, 0), V(nan, 0, 0), V(),        V()};
    EXPECT_EQ(parallel(list), GroupList());
    appendFacing(list, 10, 10);
    EXPECT_EQ(parallel(list), (GroupList{{3}}));
}

TEST(GroupParallelTriangles, OppositeSidesAreNotParallel) {
    TriangleList list;
    appendFacing(list, 45.5, 0.5);
    appendFacing(list, -134.5, -0.5);
    appendFacing(list, 45.5, 0.5, V(100, 0, 0));
    EXPECT_EQ(parallel(list), (GroupList{{1}, {0, 2}})) << "in the order of azimuths";
}

TEST(GroupParallelTriangles, TheRingOfNeighboursJoinsInItsOrder) {
    TriangleList list;
    // Around 20, 30 from the last neighbour to the first; the lowest bucket takes its own neighbours.
    for (int a = 1; a >= -1; --a)
        for (int e = 1; e >= -1; --e)
            appendFacing(list, 20.5 + a, 30.5 + e);
    const GroupList groups = parallel(list);
    ASSERT_FALSE(groups.empty());
    // The first bucket is (19, 29), number 8: it takes (19, 30), (20, 29), (20, 30).
    EXPECT_EQ(groups[0], (std::vector<int>{8, 7, 5, 4}));
    // Then (19, 31), number 6: its neighbour left is (20, 31); of (20, 30) nothing is left.
    EXPECT_EQ(groups[1], (std::vector<int>{6, 3}));
    EXPECT_EQ(groups[2], (std::vector<int>{2, 1}));
    EXPECT_EQ(groups[3], (std::vector<int>{0}));
}

TEST(GroupParallelTriangles, BucketsHoldWholeDegreesTowardsZero) {
    TriangleList list;
    appendFacing(list, 50.9, 20.1);
    appendFacing(list, 52.1, 20.9); // two buckets further
    EXPECT_EQ(parallel(list), (GroupList{{0}, {1}}));
    TriangleList aroundZero;
    appendFacing(aroundZero, -1.9, 20.5);
    appendFacing(aroundZero, 0.9, 20.5);
    EXPECT_EQ(parallel(aroundZero), (GroupList{{0, 1}})) << "-1 and 0";
}

TEST(GroupParallelTriangles, SouthIsOneDirectionButTheRingDoesNotGoAround) {
    TriangleList south;
    for (const V & p : {V(0, 0, 0), V(0, 1, 0), V(1, 0, 0)}) // -z, by whatever sign of zero
        south.push_back(p);
    for (const V & p : {V(0, 0, 0), V(-1, 0, 0), V(0, 1, 0)})
        south.push_back(p);
    for (const V & p : {V(0, 0, 0), V(0, 1, 0), V(1, 0, -0.0)})
        south.push_back(p);
    EXPECT_EQ(parallel(south).size(), 1U);
    TriangleList beside;
    appendFacing(beside, 179.5, 0.5);
    appendFacing(beside, -179.5, 0.5);
    EXPECT_EQ(parallel(beside), (GroupList{{1}, {0}}));
}

TEST(GroupParallelTriangles, NearTheZenithTheAzimuthDoesNotCount) {
    TriangleList list;
    appendFacing(list, 120.5, 88.5);
    appendFacing(list, -60.5, 88.5);
    appendFacing(list, -60.5, 87.5);
    appendFacing(list, 120.5, 87.5);
    EXPECT_EQ(parallel(list), (GroupList{{2}, {0, 1}, {3}}));
    TriangleList below;
    appendFacing(below, 120.5, -88.5);
    appendFacing(below, -60.5, -88.5);
    EXPECT_EQ(parallel(below).size(), 2U) << "near the nadir it does";
}

TEST(GroupParallelTriangles, NeighboursThatShowElsewhereStay) {
    // Near the zenith a neighbouring bucket may lie on the other side of it.
    TriangleList list;
    appendFacing(list, 0.0, 60.0);
    appendFacing(list, 1.5, 60.0);
    EXPECT_EQ(parallel(list), (GroupList{{0, 1}}));
}

TEST(GroupParallelTriangles, EveryTriangleWithANormalIsInOneGroupOfItsDirection) {
    for (const double far : {0.0, 5800000.0}) {
        const TriangleList town = randomTown(1, 60, 10.0, far);
        std::multiset<int> seen;
        const auto normal = [&](int t) {
            const auto i = static_cast<std::size_t>(t) * 3;
            return NBX::PolygonSetTool::getTriangleNormal(town[i], town[i + 1], town[i + 2]);
        };
        for (const std::vector<int> & group : parallel(town))
            for (const int t : group) {
                seen.insert(t);
                EXPECT_GT(normal(t).dot(normal(group[0])), 0.9);
            }
        for (const int t : allOf(town))
            EXPECT_EQ(seen.count(t), normal(t).length2() > 0.5 ? 1U : 0U) << t;
    }
}

/// Upright triangles at distances from the plane z = 0.
TriangleList atDistances(const std::vector<double> & distances) {
    TriangleList list;
    for (const double z : distances)
        for (const V & p : {V(0, 0, z), V(1, 0, z), V(0, 1, z)})
            list.push_back(p);
    return list;
}

TEST(GroupCoplanarTriangles, NothingGivesNull) {
    const auto list = newVertices(atDistances({0}));
    EXPECT_FALSE(TextureAtlasGenerator::groupCoplanarTriangles(nullptr, newNumbers({0}).get()));
    EXPECT_FALSE(TextureAtlasGenerator::groupCoplanarTriangles(list.get(), nullptr));
    EXPECT_FALSE(
        TextureAtlasGenerator::groupCoplanarTriangles(list.get(), newNumbers(std::vector<int>()).get()));
    EXPECT_FALSE(TextureAtlasGenerator::groupCoplanarTriangles(newVertices(TriangleList()).get(),
                                                               newNumbers({0}).get()));
}

TEST(GroupCoplanarTriangles, AGroupIsOneUnitThickFromItsFirst) {
    const TriangleList list = atDistances({2.5, 0.0, 1.0, 0.625, 1.125, 2.0});
    EXPECT_EQ(coplanar(list, {1, 2, 3, 4, 5, 0}), (GroupList{{1, 3, 2}, {4, 5}, {0}}));
    EXPECT_EQ(coplanar(list, {5, 1}), (GroupList{{1}, {5}})) << "distances may lie below that of the first";
}

TEST(GroupCoplanarTriangles, EqualDistancesAreOrderedByNumber) {
    EXPECT_EQ(coplanar(atDistances({0, 0, 0, 0}), {3, 1, 2, 0}), (GroupList{{0, 1, 2, 3}}));
}

TEST(GroupCoplanarTriangles, NumbersOfNoTriangleAreReportedAndLeftOut) {
    RecordedReports reports;
    EXPECT_EQ(coplanar(atDistances({0, 0.5}), {0, 2, -1, 1}), (GroupList{{0, 1}}));
    EXPECT_EQ(
        reports.count(0, L"t1<m_distances->size() && t2<m_distances->size()", L"invalid triangle number"), 2U)
        << reports;
}

TEST(GroupCoplanarTriangles, WhatHasNoDistanceStaysTogether) {
    TriangleList list = atDistances({0, 0.5});
    for (int i = 0; i < 6; ++i)
        list.emplace_back(std::numeric_limits<double>::quiet_NaN(), 0, 0);
    EXPECT_EQ(coplanar(list, {3, 0, 2, 1}), (GroupList{{0, 1, 2, 3}})) << "of a first one without a plane";
    EXPECT_EQ(coplanar(list, {0, 3, 2, 1}), (GroupList{{0, 1}, {2, 3}}));
}

/// Right angles at (x, y), with legs of `size` in texture space.
void appendInTexture(TriangleList & list, double x, double y, double size) {
    for (const V & p : {V(x, y, 0), V(x + size, y, 0), V(x, y + size, 0)})
        list.push_back(p);
}

TEST(SplitPatch, MissingSequencesAreReported) {
    RecordedReports reports;
    EXPECT_FALSE(TextureAtlasGenerator::splitPatch(nullptr, newNumbers({0}).get()));
    EXPECT_EQ(reports.count(0, L"texCoords", L"no iterator"), 1U);
    EXPECT_FALSE(TextureAtlasGenerator::splitPatch(newVertices(TriangleList()).get(), nullptr));
    EXPECT_EQ(reports.count(0, L"triNums", L"no triangle numbers"), 1U);
}

TEST(SplitPatch, TrianglesThatCoverEachOtherPart) {
    TriangleList list;
    appendInTexture(list, 0, 0, 1);
    appendInTexture(list, 0.1, 0.1, 1); // covers the first
    appendInTexture(list, 5, 5, 1);
    appendInTexture(list, 0.2, 0.2, 1); // covers both
    appendInTexture(list, 5.1, 5.1, 1);
    EXPECT_EQ(split(list, {0, 1, 2, 3, 4}), (GroupList{{0, 2}, {1, 4}, {3}}));
    EXPECT_EQ(split(list, {}), GroupList());
    EXPECT_EQ(split(list, {4, 2, 7}), (GroupList{{4}, {2}})) << "without numbers of no triangle";
}

TEST(SplitPatch, HalvesOfASquareStayTogetherWhateverTheirTurn) {
    const TriangleList square = {V(0, 0, 0), V(1, 0, 0), V(1, 1, 0), V(0, 0, 0), V(0, 1, 0), V(1, 1, 0)};
    EXPECT_EQ(split(square, {0, 1}), (GroupList{{0, 1}}));
    TriangleList mirrored;
    appendInTexture(mirrored, 0, 0, 1);
    for (const V & p : {V(0.1, 0.1, 0), V(0.1, 1.1, 0), V(1.1, 0.1, 0)})
        mirrored.push_back(p);
    EXPECT_EQ(split(mirrored, {0, 1}).size(), 2U);
}

TEST(SplitPatch, ALittleMayBeShared) {
    // Legs of what both share; half their square is the area, whose square counts.
    const double leg = std::sqrt(2.0 * std::sqrt(0.001953125));
    for (const auto & [factor, parts] : {std::pair(0.999, 1U), {1.001, 2U}}) {
        TriangleList list;
        appendInTexture(list, 0, 0, 1);
        appendInTexture(list, 1 - leg * factor, 0, 1);
        EXPECT_EQ(split(list, {0, 1}).size(), parts) << factor;
    }
}

TEST(SplitPatch, WhatIsBlockedStaysSoBesideOthers) {
    TriangleList list;
    appendInTexture(list, 0, 0, 1);
    appendInTexture(list, 1.25, 0, 1);
    appendInTexture(list, 0.3, 0, 1); // covers the first, and touches the second
    EXPECT_EQ(split(list, {0, 1, 2}), (GroupList{{0, 1}, {2}}));
}

TEST(SplitPatch, AThirdOneDoesNotCareForWhatIsBlocked) {
    TriangleList list;
    appendInTexture(list, 0, 0, 1);
    appendInTexture(list, 0.3, 0, 1);  // covers the first
    appendInTexture(list, 1.05, 0, 1); // covers the second alone
    EXPECT_EQ(split(list, {0, 1, 2}), (GroupList{{0, 2}, {1}}));
}

} // namespace
