#include "core/terrain/texture/dynamic/nearestground.h"

#include <cmath>

#include <gtest/gtest.h>

#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/perspective.h>

#include "../fakepyramid.h"
#include "support/memorygridterrain.h"

using NBX::SO;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::NearestGround;
using Point = NBX::Vector3Base<double>;

namespace {

SO<NBX::ViewInfo> viewFrom(const Point & from, const Point & to) {
    const SO<NBX::LookAt> look(new NBX::LookAt(from, to, {0, 1, 0}));
    const SO<NBX::Projection> lens(new NBX::Perspective(50.0, 1.0, 10000.0));
    return new NBX::ViewInfo(look->matrix(), lens->matrix(1.0), NBX::Area(0, 0, 100, 100));
}

double distance(const SO<FakePatch> & top, const NBX::ViewInfo & view) {
    return NearestGround::distance(SO<const GeometryPatch>(top.get()), view);
}

/// Of all boxes without children.
double nearestLeaf(const GeometryPatch & patch, const NBX::ViewInfo & view) {
    if (view.cull(patch.boundingBox()) == -1) return 1e300;
    if (patch.children() == 0) return std::sqrt(view.distance2(patch.boundingBox()));
    double nearest = 1e300;
    for (unsigned i = 0; i < patch.children(); ++i)
        nearest = std::min(nearest, nearestLeaf(*patch.child(i), view));
    return nearest;
}

TEST(NearestGround, IsTheDistanceOfABoxWithoutChildren) {
    const auto top = FakePatch::oblong(0, 0, 100, 100, 0);
    EXPECT_DOUBLE_EQ(distance(top, *viewFrom({-50, 5, 50}, {50, 5, 50})), 50.0);
    EXPECT_EQ(distance(top, *viewFrom({50, 5, 50}, {60, 5, 50})), 0.0) << "from inside";
}

TEST(NearestGround, WhatIsNotSeenDoesNotCount) {
    const auto top = FakePatch::oblong(0, 0, 1000, 1000, 0);
    EXPECT_EQ(distance(top, *viewFrom({-50, 5, 50}, {-100, 5, 50})), 0.0) << "behind the eye";
    EXPECT_EQ(NearestGround::distance(nullptr, *viewFrom({0, 0, 0}, {1, 0, 0})), 0.0);
    // Straight below the eye lies ground, which it does not see.
    const auto fine = FakePatch::oblong(0, 0, 1000, 1000, 6);
    EXPECT_GT(distance(fine, *viewFrom({100, 110, 500}, {1000, 110, 500})), 120.0);
}

TEST(NearestGround, NothingLiesNearer) {
    const auto top = FakePatch::oblong(0, 0, 4096, 4096, 7);
    for (unsigned i = 0; i < 100; ++i) {
        const Point from(i * 37 % 4096, 20.0 + i * 13 % 400, i * 101 % 4096);
        const Point to(2048.0 + i * 57 % 900, 0.0, 2048.0 - i * 71 % 800);
        const auto view = viewFrom(from, to);
        const double found = distance(top, *view), exact = nearestLeaf(*top, *view);
        EXPECT_LE(found, exact + 1e-9) << i;
        EXPECT_GE(found, 0.45 * exact - 1e-9) << i << ": boxes as large as they are far are opened";
    }
}

/// Counts how many of its kind are asked for children.
class CountedPatch : public FakePatch {
    NBX_TEMPLATE_CLASS(CountedPatch, FakePatch)
public:
    explicit CountedPatch(const NBX::Bounds & box) : FakePatch(box) {}
    unsigned children() const override { return 4; }
    SO<GeometryPatch> child(unsigned) const override {
        ++asked;
        return new CountedPatch(boundingBox());
    }
    static inline unsigned asked = 0;
};

TEST(NearestGround, ATreeWithoutEndHasAnEnd) {
    CountedPatch::asked = 0;
    const SO<CountedPatch> top(new CountedPatch(NBX::Bounds(Point(0, 0, 0), Point(100, 10, 100))));
    EXPECT_EQ(
        NearestGround::distance(SO<const GeometryPatch>(top.get()), *viewFrom({50, 5, 50}, {60, 5, 50})),
        0.0);
    EXPECT_LE(CountedPatch::asked, 4 * NearestGround::mostOpened);
}

TEST(NearestGround, TilesThatAreNotInMemoryAreNotReadForIt) {
    MemoryGrid grid;
    grid.level = 3;
    grid.depth = 4;
    grid.sample = [](unsigned, unsigned, unsigned) -> std::uint16_t { return 5; };
    const SO<MemoryGridTerrain> terrain(new MemoryGridTerrain(grid));
    const SO<GeometryPatch> top = terrain->rootTile()->geometryPatchHACK(terrain);
    const SO<const GeometryPatch> asked(top.get());
    const auto view = viewFrom({-1, 20, 64}, {100, 0, 64});
    const auto loads = terrain->state().totalLoads();
    const double coarse = NearestGround::distance(asked, *view);
    EXPECT_EQ(terrain->state().totalLoads(), loads);
    // Once the tiles are there, they count.
    for (unsigned i = 0; i < 64; ++i)
        ASSERT_TRUE(top->child(i / 16)->child(i / 4 % 4)->child(i % 4));
    const auto read = terrain->state().totalLoads();
    EXPECT_EQ(read, loads + 84);
    EXPECT_GT(NearestGround::distance(asked, *view), coarse);
    EXPECT_EQ(terrain->state().totalLoads(), read);
}

} // namespace
