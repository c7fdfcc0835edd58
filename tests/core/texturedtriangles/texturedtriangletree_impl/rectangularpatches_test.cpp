#include "core/texturedtriangles/texturedtriangletree_impl/rectangularpatches.h"

#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include <nbx/math/algorithmimpl.h>

#include "support/recordedreports.h"
#include "trianglelists.h"

namespace {

using namespace ZMT::CORE;
using V = NBX::Vector3Base<double>;
using Triangle = TriPatchManager::Triangle;

std::vector<Triangle> inPlane(const TriangleList & list) {
    std::vector<Triangle> triangles;
    for (std::size_t i = 0; i + 2 < list.size(); i += 3)
        triangles.push_back({static_cast<int>(i / 3), {list[i], list[i + 1], list[i + 2]}});
    return triangles;
}

NBX::SO<TriPatchManager> managerOf(const TriangleList & list, double border = 1.0, double maxSize = 100.0) {
    return new TriPatchManager(inPlane(list), border, maxSize);
}

double areaOfPatch(const TriPatchManager & manager) {
    double area = 0.0;
    for (const auto & patch : manager.patches())
        area += patch->area;
    return area;
}

GroupList patchesOf(const TriPatchManager & manager) {
    GroupList groups;
    for (const auto & patch : manager.patches())
        groups.emplace_back(patch->triangles.begin(), patch->triangles.end());
    return groups;
}

TriangleList twoQuads(double gap) {
    TriangleList list;
    appendQuad(list, V(0, 0, 0), V(4, 0, 0), V(0, 0, 2));
    appendQuad(list, V(4 + gap, 0, 0), V(4, 0, 0), V(0, 0, 2));
    return list;
}

/// What does not hold between patches, neighbours and operations.
std::string fault(const TriPatchManager & manager) {
    for (const auto & patch : manager.patches())
        for (const auto & [number, neighbour] : patch->neighbours) {
            if (neighbour.patch->number != number) return "wrong number";
            if (!manager.patches().count(neighbour.patch)) return "neighbour is gone";
            const auto back = neighbour.patch->neighbours.find(patch->number);
            if (back == neighbour.patch->neighbours.end() || back->second.patch != patch) return "not mutual";
            if (back->second.gain != neighbour.gain) return "two gains";
        }
    for (const MergeOp & op : manager.mergeOps()) {
        if (!manager.patches().count(op.m_a) || !manager.patches().count(op.m_b))
            return "operation on nothing";
        if (op.m_a->number >= op.m_b->number) return "pair in the wrong order";
        if (!op.m_a->neighbours.count(op.m_b->number)) return "operation on no neighbours";
    }
    return {};
}

TEST(RectangularPatches, CostIsTheRectangleWithItsBorder) {
    const auto manager = managerOf({V(0, 7, 0), V(4, 7, 0), V(0, 7, 2)}, 1.5);
    ASSERT_EQ(manager->patches().size(), 1U);
    EXPECT_NEAR((*manager->patches().begin())->area, 5.5 * 3.5, 1e-12);
    EXPECT_TRUE(manager->mergeOps().empty());
}

TEST(RectangularPatches, WhatIsTooLongCostsTooMuchToBeMade) {
    const TriangleList list = {V(0, 0, 0), V(9, 0, 0), V(0, 0, 2)};
    EXPECT_NEAR((*managerOf(list, 1.0, 10.0)->patches().begin())->area, 30.0, 1e-12)
        << "with its border, 10 long";
    EXPECT_EQ((*managerOf(list, 1.0, 9.99)->patches().begin())->area, 1e20);
    const TriangleList upright = {V(0, 0, 0), V(2, 0, 0), V(0, 0, 9)};
    EXPECT_EQ((*managerOf(upright, 1.0, 9.99)->patches().begin())->area, 1e20);
}

TEST(RectangularPatches, TinyTrianglesCostNothingAndHaveNoNeighbours) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const auto manager = managerOf({V(0, 0, 0), V(9e-6, 0, 0), V(0, 0, 0), V(0, 0, 0), V(1, 0, 0), V(0, 0, 1),
                                    V(nan, 0, 0), V(1, 0, 0), V(0, 0, 1)});
    const std::vector<NBX::SO<TriPatch>> patches(manager->patches().begin(), manager->patches().end());
    ASSERT_EQ(patches.size(), 3U);
    EXPECT_EQ(patches[0]->area, 0.0);
    EXPECT_EQ(patches[2]->area, 0.0);
    for (const auto & patch : patches)
        EXPECT_TRUE(patch->neighbours.empty());
    const auto larger = managerOf({V(0, 0, 0), V(1.1e-5, 0, 0), V(0, 0, 0)});
    EXPECT_GT((*larger->patches().begin())->area, 0.9);
}

TEST(RectangularPatches, HalvesOfAQuadBecomeOne) {
    TriangleList list;
    appendQuad(list, V(0, 0, 0), V(4, 0, 0), V(0, 0, 2));
    const auto manager = managerOf(list);
    ASSERT_EQ(manager->mergeOps().size(), 1U);
    EXPECT_NEAR(manager->mergeOps().begin()->gain, 15.0 - 30.0, 1e-9);
    manager->mergeAll();
    EXPECT_EQ(patchesOf(*manager), (GroupList{{0, 1}}));
    EXPECT_NEAR(areaOfPatch(*manager), 15.0, 1e-9);
    EXPECT_TRUE(manager->mergeOps().empty());
}

TEST(RectangularPatches, TheLargestGainComesFirst) {
    // The wide halves gain more than the small ones beside them.
    TriangleList list;
    appendQuad(list, V(0, 0, 0), V(2, 0, 0), V(0, 0, 2));
    appendQuad(list, V(2, 0, 0), V(6, 0, 0), V(0, 0, 2));
    const auto manager = managerOf(list);
    EXPECT_EQ(manager->mergeOps().begin()->m_a->triangles, std::set<int>{2});
    EXPECT_EQ(manager->mergeOps().begin()->m_b->triangles, std::set<int>{3});
    manager->mergeAll();
    EXPECT_EQ(patchesOf(*manager), (GroupList{{0, 1, 2, 3}}));
}

TEST(RectangularPatches, AGapIsFilledWhereThatIsLessThanTwoBorders) {
    // Their boxes have to touch to be asked for.
    TriangleList corner;
    appendQuad(corner, V(0, 0, 0), V(4, 0, 0), V(0, 0, 4));
    appendQuad(corner, V(4, 0, 4), V(4, 0, 0), V(0, 0, 4));
    for (const auto & [border, patches] : {std::pair(1.0, 2U), {9.0, 1U}}) {
        const auto manager = managerOf(corner, border);
        manager->mergeAll();
        EXPECT_EQ(manager->patches().size(), patches) << border;
    }
    const auto apart = managerOf(twoQuads(0.5), 9.0);
    apart->mergeAll();
    EXPECT_EQ(apart->patches().size(), 2U);
}

TEST(RectangularPatches, NoMergingMakesAPatchThatIsTooLong) {
    for (const auto & [maxSize, patches] : {std::pair(9.0, 1U), {8.99, 2U}}) {
        const auto manager = managerOf(twoQuads(0.0), 1.0, maxSize);
        manager->mergeAll();
        EXPECT_EQ(manager->patches().size(), patches) << maxSize;
    }
    // Two that are too long already do not get worse together.
    const auto manager = managerOf(twoQuads(0.0), 1.0, 3.0);
    EXPECT_TRUE(manager->mergeOps().empty());
    manager->mergeAll();
    EXPECT_EQ(manager->patches().size(), 4U);
}

TEST(RectangularPatches, BoxesMayLieApartInThePlaneButNotAcrossIt) {
    TriangleList list = {V(0, 0, 0), V(2, 0, 0), V(0, 0, 2), V(2, 0.5, 0), V(2, 0.5, 2), V(0, 0.5, 2)};
    EXPECT_TRUE(managerOf(list)->mergeOps().empty());
    for (std::size_t i = 3; i < 6; ++i)
        list[i].y = 0.0;
    EXPECT_EQ(managerOf(list)->mergeOps().size(), 1U);
}

TEST(RectangularPatches, AtADenseSpotEachEdgeHasItsNearestNeighbour) {
    // Around triangle 0 lie its three neighbours by edges, and many that only touch its corners.
    TriangleList list = {V(0, 0, 0), V(6, 0, 0), V(0, 0, 6)};
    for (const V & p : {V(-9, 0, -9), V(0, 0, 0), V(-9, 0, -8), V(0, 0, 0), V(-9, 0, -7), V(-9, 0, -6)})
        list.push_back(p);
    for (const V & p : {V(6, 0, 0), V(0, 0, 0), V(3, 0, -4)}) // edge 0 to 1
        list.push_back(p);
    for (const V & p : {V(6, 0, 0), V(15, 0, 1), V(15, 0, 2), V(6, 0, 0), V(15, 0, 3), V(15, 0, 4)})
        list.push_back(p);
    for (const V & p : {V(6, 0, 0), V(5, 0, 5), V(0, 0, 6)}) // 1 to 2
        list.push_back(p);
    for (const V & p : {V(0, 0, 6), V(-4, 0, 3), V(0, 0, 0)}) // 2 to 0
        list.push_back(p);
    const auto manager = managerOf(list);
    std::vector<unsigned> neighbours;
    for (const auto & [number, neighbour] : (*manager->patches().begin())->neighbours)
        neighbours.push_back(number);
    EXPECT_EQ(neighbours, (std::vector<unsigned>{3, 6, 7}));
    // With five others all are asked.
    list.resize(3 * 6);
    EXPECT_EQ((*managerOf(list)->patches().begin())->neighbours.size(), 5U);
}

TEST(RectangularPatches, ATriangleIsTheNearestToOneEdgeAtMost) {
    TriangleList list = {V(0, 0, 0), V(6, 0, 0), V(0, 0, 6)};
    for (int i = 0; i < 3; ++i) // the same once more, and two that touch a corner
        for (const V & p : {V(0, 0, 0), i ? V(-9, 0, -9) : V(6, 0, 0), i ? V(-9, 0, -9.0 + i) : V(0, 0, 6)})
            list.push_back(p);
    for (const V & p : {V(6, 0, 0), V(0, 0, 0), V(3, 0, -4), V(6, 0, 0), V(5, 0, 5), V(0, 0, 6), V(0, 0, 6),
                        V(-4, 0, 3), V(0, 0, 0)})
        list.push_back(p);
    const auto manager = managerOf(list);
    std::vector<unsigned> neighbours;
    for (const auto & [number, neighbour] : (*manager->patches().begin())->neighbours)
        neighbours.push_back(number);
    EXPECT_EQ(neighbours, (std::vector<unsigned>{1, 5, 6}));
}

TEST(RectangularPatches, WhoIsTakenInHandsItsNeighboursOn) {
    // At the large triangle's edges lie so many that it does not know the two in its middle.
    TriangleList list = {V(0, 0, 0), V(20, 0, 0), V(0, 0, 20), V(5, 0, 5), V(6, 0, 5),
                         V(5, 0, 6), V(6, 0, 6),  V(6, 0, 5),  V(5, 0, 6)};
    for (const V & at : {V(10, 0, 0), V(9, 0, 0), V(0, 0, 10), V(0, 0, 9), V(9, 0, 9), V(9, 0, 8)})
        for (const V & p : {at, at + V(1, 0, 0), at + V(0, 0, 1)})
            list.push_back(p);
    const auto manager = managerOf(list);
    const std::vector<NBX::SO<TriPatch>> patches(manager->patches().begin(), manager->patches().end());
    ASSERT_FALSE(patches[0]->neighbours.count(1));
    ASSERT_FALSE(patches[0]->neighbours.count(2));
    ASSERT_TRUE(patches[1]->neighbours.count(2));
    EXPECT_EQ(manager->merge({patches[0], patches[1], 0.0}), patches[0]) << "which holds it";
    EXPECT_EQ(patches[0]->triangles, (std::set<int>{0, 1}));
    EXPECT_TRUE(patches[0]->neighbours.count(2));
    EXPECT_EQ(fault(*manager), "");
}

TEST(RectangularPatches, FaultsOfTheQueueAreReported) {
    const auto manager = managerOf(twoQuads(0.0)), other = managerOf(twoQuads(0.0));
    const NBX::SO<TriPatch> first = *manager->patches().begin(), foreign = *other->patches().rbegin();
    RecordedReports reports;
    EXPECT_FALSE(manager->merge({foreign, first, -1.0}));
    EXPECT_EQ(reports.count(0, L"patchManager->patches().find(op.m_a)!=patchManager->patches().end()",
                            L"patch not found"),
              1U);
    EXPECT_FALSE(manager->merge({first, foreign, -1.0}));
    EXPECT_EQ(reports.count(0, L"patchManager->patches().find(op.m_b)!=patchManager->patches().end()",
                            L"patch not found"),
              1U);
    EXPECT_FALSE(manager->merge({first, first, -1.0}));
    EXPECT_EQ(reports.count(0, L"op.m_a!=op.m_b", L"nuetz"), 1U);
    EXPECT_FALSE(manager->merge({nullptr, first, -1.0}));
    EXPECT_EQ(reports.size(), 4U) << reports;
    EXPECT_EQ(manager->patches().size(), 4U);
}

/// A field of triangles over a bent outline, some of them left out.
TriangleList field(unsigned seed, int size) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> shift(-0.3, 0.3);
    std::vector<V> points;
    for (int z = 0; z <= size; ++z)
        for (int x = 0; x <= size; ++x) {
            const double dx = shift(random);
            points.emplace_back(2.0 * (x + dx), 0.0, 3.0 * (z + shift(random)));
        }
    TriangleList list;
    const auto at = [&](int x, int z) { return points[static_cast<std::size_t>(z * (size + 1) + x)]; };
    for (int z = 0; z < size; ++z)
        for (int x = 0; x < size; ++x) {
            if (random() % 4 == 0) continue;
            for (const V & p :
                 {at(x, z), at(x + 1, z), at(x + 1, z + 1), at(x, z), at(x + 1, z + 1), at(x, z + 1)})
                list.push_back(p);
        }
    return list;
}

TEST(RectangularPatches, EveryMergingSavesArea) {
    for (unsigned seed = 0; seed < 20; ++seed) {
        const TriangleList list = field(seed, 8);
        const auto manager = managerOf(list, 0.5 + seed % 4, seed % 3 ? 1000.0 : 12.0);
        EXPECT_EQ(fault(*manager), "");
        while (!manager->mergeOps().empty() && manager->mergeOps().begin()->gain < 0.0) {
            const double before = areaOfPatch(*manager);
            const MergeOp op = *manager->mergeOps().begin();
            const NBX::SO<TriPatch> merged = manager->merge(op);
            ASSERT_TRUE(merged);
            EXPECT_NEAR(areaOfPatch(*manager), before + op.gain, 1e-9 * before);
            ASSERT_EQ(fault(*manager), "");
        }
        std::multiset<int> seen;
        for (const auto & patch : manager->patches()) {
            seen.insert(patch->triangles.begin(), patch->triangles.end());
            EXPECT_LT(patch->area, 1e20);
            // The rectangle holds the triangles.
            for (const int t : patch->triangles)
                for (std::size_t corner = 0; corner < 3; ++corner)
                    for (unsigned side = 0; side < 4; ++side) {
                        const V & a = patch->rectangle[side];
                        const V & b = patch->rectangle[(side + 1) % 4];
                        const V & p = list[static_cast<std::size_t>(t) * 3 + corner];
                        EXPECT_LE((p - a).dot(NBX::AlgorithmImpl::getEdgeNormal(a, b)), 1e-9);
                    }
        }
        const std::vector<int> all = allOf(list);
        EXPECT_EQ(std::vector<int>(seen.begin(), seen.end()), all) << "each in one patch";
        const auto again = managerOf(list, 0.5 + seed % 4, seed % 3 ? 1000.0 : 12.0);
        again->mergeAll();
        EXPECT_EQ(patchesOf(*again), patchesOf(*manager));
    }
}

TEST(GroupRectangularPatches, NothingGivesNull) {
    const auto list = newVertices(twoQuads(0));
    EXPECT_FALSE(TextureAtlasGenerator::groupRectangularPatches(nullptr, newNumbers({0}).get(), 1, 10));
    EXPECT_FALSE(TextureAtlasGenerator::groupRectangularPatches(list.get(), nullptr, 1, 10));
    EXPECT_FALSE(TextureAtlasGenerator::groupRectangularPatches(list.get(),
                                                                newNumbers(std::vector<int>()).get(), 1, 10));
    EXPECT_FALSE(TextureAtlasGenerator::groupRectangularPatches(newVertices(TriangleList()).get(),
                                                                newNumbers({0}).get(), 1, 10));
}

TEST(GroupRectangularPatches, PatchesDoNotDependOnThePlaneAndThePlace) {
    const TriangleList flat = field(3, 6);
    const GroupList expected = listed(TextureAtlasGenerator::groupRectangularPatches(
        newVertices(flat).get(), newNumbers(allOf(flat)).get(), 1, 99));
    EXPECT_GT(expected.size(), 1U);
    const auto turn = NBX::Matrix4x4Base<double>::rotation(V(1, 0, 0.4), 1.1);
    TriangleList turned;
    for (const V & p : flat)
        turned.push_back(turn * p);
    EXPECT_EQ(listed(TextureAtlasGenerator::groupRectangularPatches(newVertices(turned).get(),
                                                                    newNumbers(allOf(turned)).get(), 1, 99)),
              expected);
    // On a grid of doubles as coarse as this one nothing is rounded.
    TriangleList far, near;
    for (V p : flat) {
        for (unsigned axis = 0; axis < 3; ++axis)
            p[axis] = std::round(p[axis] * 1024.0) / 1024.0;
        near.push_back(p);
        far.push_back(p + V(5800000, 0, 5800000));
    }
    EXPECT_EQ(listed(TextureAtlasGenerator::groupRectangularPatches(newVertices(far).get(),
                                                                    newNumbers(allOf(far)).get(), 1, 99)),
              listed(TextureAtlasGenerator::groupRectangularPatches(newVertices(near).get(),
                                                                    newNumbers(allOf(near)).get(), 1, 99)));
}

TEST(GroupRectangularPatches, NumbersOfNoTriangleAreReportedAndLeftOut) {
    RecordedReports reports;
    EXPECT_EQ(listed(TextureAtlasGenerator::groupRectangularPatches(newVertices(twoQuads(0)).get(),
                                                                    newNumbers({9, 1, -1, 0}).get(), 1, 99)),
              (GroupList{{0, 1}}));
    EXPECT_EQ(reports.count(L"invalid triangle number"), 2U);
}

} // namespace
