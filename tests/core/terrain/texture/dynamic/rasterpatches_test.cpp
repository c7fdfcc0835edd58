#include "core/terrain/texture/dynamic/rasterpatches.h"

#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "../fakepyramid.h"
#include "support/recordedreports.h"

using NBX::SO;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::RasterPatches;
using Patch = RasterPatches::Patch;

namespace {

using Point = NBX::Vector3Base<double>;
const NBX::Bounds s_box(Point(0, -5, 100), Point(80, 15, 200));

TEST(RenderRasterTextureGeometryPatch, ItsChildrenPartItsBoxInPlan) {
    const SO<Patch> top(new Patch(s_box));
    ASSERT_EQ(top->children(), 4U);
    NBX::Bounds whole;
    double area = 0.0;
    for (unsigned i = 0; i < 4; ++i) {
        const NBX::Bounds box = top->child(i)->boundingBox();
        whole += box;
        area += box.diagonal().x * box.diagonal().z;
        EXPECT_EQ(box.getLLF().y, -5.0);
        EXPECT_EQ(box.getURB().y, 15.0);
        EXPECT_EQ(top->child(i)->parent().get(), top.get());
    }
    EXPECT_EQ(whole, s_box);
    EXPECT_EQ(area, 80.0 * 100.0);
    EXPECT_FALSE(top->data());
    EXPECT_FALSE(top->parent());
}

TEST(RenderRasterTextureGeometryPatch, ItsChildrenStayTheSame) {
    const SO<Patch> top(new Patch(s_box));
    const SO<GeometryPatch> child = top->child(2);
    EXPECT_EQ(top->child(2), child);
    EXPECT_NE(top->child(1), child);
}

TEST(RenderRasterTextureGeometryPatch, TheTreeEnds) {
    EXPECT_EQ(SO<Patch>(new Patch(s_box, Patch::maxDepth))->children(), 0U);
    EXPECT_EQ(SO<Patch>(new Patch(s_box, Patch::maxDepth - 1))->children(), 4U);
    const RecordedReports reports;
    EXPECT_FALSE(SO<Patch>(new Patch(s_box))->child(4));
    EXPECT_EQ(reports.count(L"range error: [0, 4), 4"), 1U);
}

/// The patches that a walk takes, split where they are wider than `width`.
std::vector<SO<const GeometryPatch>> walk(RasterPatches & patches, const NBX::Bounds & box, double width) {
    std::vector<SO<const GeometryPatch>> taken;
    patches.walk(
        box, *viewFromAbove(1.0),
        [&](const GeometryPatch & patch, const Point &) { return patch.boundingBox().diagonal().x > width; },
        [&](const GeometryPatch & patch, const Point & eye) {
            EXPECT_EQ(patch.boundingBox().nearestPoint(eye), eye);
            taken.emplace_back(&patch);
        });
    return taken;
}

const NBX::Bounds s_small(Point(-400, 0, -400), Point(400, 0, 400)),
    s_large(Point(-400, 0, -400), Point(480, 0, 480));

TEST(RasterPatches, SplitsAsWantedWhatIsSeen) {
    RasterPatches patches;
    EXPECT_EQ(walk(patches, s_small, 1000.0).size(), 1U);
    EXPECT_EQ(walk(patches, s_small, 200.0).size(), 16U);
    EXPECT_EQ(walk(patches, NBX::Bounds(Point(0, 0, 0), Point(4000, 0, 4000)), 1000.0).size(), 1U);
    EXPECT_TRUE(walk(patches, NBX::Bounds(), 1.0).empty());
}

/// The view reaches to 500.
TEST(RasterPatches, WhatLiesCloselyBesideThePictureIsDrawnWithIt) {
    RasterPatches patches;
    EXPECT_EQ(walk(patches, NBX::Bounds(Point(510, 0, 0), Point(600, 0, 90)), 1000.0).size(), 1U);
    EXPECT_EQ(walk(patches, NBX::Bounds(Point(525, 0, 0), Point(600, 0, 75)), 1000.0).size(), 0U);
}

TEST(RasterPatches, StayTheSameAlsoWhereBoxesTakeTurns) {
    RasterPatches patches;
    const auto small = walk(patches, s_small, 200.0), large = walk(patches, s_large, 220.0);
    EXPECT_EQ(walk(patches, s_small, 200.0), small);
    EXPECT_EQ(walk(patches, s_large, 220.0), large);
}

TEST(RasterPatches, WhatNoWalkComesToIsLetGo) {
    RasterPatches patches;
    auto whole = walk(patches, s_small, 1000.0);
    std::vector<NBX::WO<const GeometryPatch>> fine;
    for (const auto & patch : walk(patches, s_small, 200.0))
        fine.emplace_back(patch);
    const auto count = [&] {
        return std::count_if(fine.begin(), fine.end(), [](const auto & patch) { return bool(patch); });
    };
    for (unsigned long i = 0; i < RasterPatches::keptWalks; ++i)
        walk(patches, s_small, 1000.0);
    EXPECT_EQ(count(), 16);
    EXPECT_EQ(walk(patches, s_small, 1000.0), whole);
    EXPECT_EQ(count(), 0);
    const NBX::WO<const GeometryPatch> root(whole.front());
    whole.clear();
    for (unsigned long i = 0; i <= RasterPatches::keptWalks; ++i)
        walk(patches, s_large, 1000.0);
    EXPECT_FALSE(root);
}

} // namespace
