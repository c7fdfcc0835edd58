#include <zmt/core/terrain/geometry/regular/gridpatchnormalpaintergl.h>

#include "support/testpatches.h"

using NBX::Area;
using ZMT::CORE::GridPatchNormalPainterGL;

namespace {

class GridPatchNormalPainterGLTest : public PatchPainterFixture {
protected:
    /// The colour of ground that rises by `rise` with each cell to the east, under a scale.
    std::array<int, 3> color(double rise, const Point & scale) {
        const auto grid = TestTerrain::grid({5, 5}, [&](unsigned x, unsigned) { return rise * x; });
        const auto patch = TestPatches::gridPatch(grid, Area(0, 0, 4, 4));
        GridPatchNormalPainterGL painter(scale);
        return colorAt({2.0, 2.0 * rise, 2.0}, [&] { painter.renderPatch(engine.get(), patch.get()); });
    }

    static void expectNear(const std::array<int, 3> & a, const std::array<int, 3> & b) {
        for (unsigned c = 0; c < 3; ++c)
            EXPECT_NEAR(a[c], b[c], 2) << c;
    }

    NBX::SO<ZMT::CORE::GridData> grid = TestPatches::smallGrid();
};

TEST_F(GridPatchNormalPainterGLTest, PaintsGridPatchesWithoutSkirtsAndWalls) {
    const auto patch = TestPatches::gridPatch(grid, Area(0, 1, 4, 3));
    GridPatchNormalPainterGL painter({1, 1, 1});
    EXPECT_EQ(painter.target(), ZMT::CORE::GridPatch::ClassNameNBX());
    EXPECT_EQ(TestPatches::normalized(surface(painter, *patch)),
              TestPatches::normalized(TestPatches::meshOf(*patch)));
    EXPECT_TRUE(walls(painter, *patch).empty());
}

TEST_F(GridPatchNormalPainterGLTest, ShowsTheDirectionOfTheNormal) {
    expectNear(color(0.0, {1, 1, 1}), {128, 255, 128});
    // A slope of 45 degrees that looks to the west.
    const int half = int(std::lround(127.5 * (1.0 + std::sqrt(0.5))));
    expectNear(color(1.0, {1, 1, 1}), {255 - half, half, 128});
    expectNear(color(-1.0, {1, 1, 1}), {half, half, 128});
    expectNear(color(0.01, {100, 1, 1}), {255 - half, half, 128});
    expectNear(color(1.0, {0, 1, 0}), {128, 255, 128});
}

TEST_F(GridPatchNormalPainterGLTest, NoLightFallsOnTheColors) {
    glEnable(GL_LIGHTING);
    expectNear(color(0.0, {1, 1, 1}), {128, 255, 128});
    EXPECT_TRUE(glIsEnabled(GL_LIGHTING));
    glDisable(GL_LIGHTING);
}

TEST_F(GridPatchNormalPainterGLTest, LeavesTheStateAsItWas) {
    const auto patch = TestPatches::gridPatch(grid, Area(0, 1, 4, 3));
    const auto before = stateOfGL();
    GridPatchNormalPainterGL({1, 1, 1}).renderPatch(engine.get(), patch.get());
    EXPECT_EQ(stateOfGL(), before);
}

TEST_F(GridPatchNormalPainterGLTest, ReportsAMissingEngine) {
    const auto patch = TestPatches::gridPatch(grid, Area(0, 1, 4, 3));
    GridPatchNormalPainterGL painter({1, 1, 1});
    painter.renderPatch(nullptr, patch.get());
    painter.renderOuterWall(nullptr, patch.get());
    EXPECT_EQ(reports.count(0, L"engine", L"no engine"), 2U) << reports;
    EXPECT_EQ(reports.size(), 2U);
    reports.clear();
}

} // namespace
