#include <zmt/core/terrain/geometry/regular/gridpatchshadowpaintergl.h>

#include "support/testpatches.h"

using NBX::Area;
using ZMT::CORE::GridPatchShadowPainterGL;

namespace {

class GridPatchShadowPainterGLTest : public PatchPainterFixture {
protected:
    NBX::SO<ZMT::CORE::GridData> grid = TestPatches::smallGrid();
    NBX::SO<GridPatchShadowPainterGL> painter{new GridPatchShadowPainterGL};
};

/// Along (1, 0.1, 1), so that a height of 1 throws a shadow 10 units away in x and in z.
TEST_F(GridPatchShadowPainterGLTest, ThrowsTheGroundOnTheLevelOfItsLowestPoint) {
    EXPECT_EQ(painter->target(), ZMT::CORE::GridPatch::ClassNameNBX());
    const auto patch = TestPatches::gridPatch(grid, Area(1, 1, 4, 3));
    const double bottom = patch->boundingBox().getLLF().y;
    Triangles expected = TestPatches::meshOf(*patch);
    for (auto & t : expected)
        for (Point & p : t)
            p = Point(p.x - (p.y - bottom) * 10.0, bottom, p.z - (p.y - bottom) * 10.0);
    const Triangles shadow = feedback([&] { EXPECT_TRUE(painter->render(engine.get(), patch.get())); });
    ASSERT_EQ(shadow.size(), expected.size());
    EXPECT_EQ(TestPatches::normalized(shadow), TestPatches::normalized(expected));
}

TEST_F(GridPatchShadowPainterGLTest, IsGreyWithAWhiteBorder) {
    const auto flat = TestTerrain::grid({9, 9}, [](unsigned, unsigned) { return 0.0; });
    const auto patch = TestPatches::gridPatch(flat, Area(1, 1, 6, 6));
    const auto at = [&](double x, double z) {
        return colorAt({x, 0.0, z}, [&] { painter->render(engine.get(), patch.get()); })[0];
    };
    glEnable(GL_LIGHTING);
    EXPECT_NEAR(at(4, 4), 128, 2);
    EXPECT_NEAR(at(4, 2.5), 128, 2);
    EXPECT_GT(at(1.1, 4), 230);
    EXPECT_GT(at(6.9, 4), 230);
    EXPECT_GT(at(4, 1.1), 230);
    EXPECT_GT(at(4, 6.9), 230);
    glDisable(GL_LIGHTING);
}

/// Its cells are asked for one by one, while they are drawn.
class WatchingRaster : public ZMT::RASTER::RasterData {
public:
    WatchingRaster() : RasterData({9, 7}, false, 0.0) {}
    double value(unsigned col, unsigned row) const override {
        state = {glIsEnabled(GL_NORMALIZE), glIsEnabled(GL_LIGHTING), glIsEnabled(GL_COLOR_MATERIAL)};
        return col + row;
    }
    mutable std::array<GLboolean, 3> state{};
};

TEST_F(GridPatchShadowPainterGLTest, IsDrawnWithoutLightAndMaterial) {
    const NBX::SO<WatchingRaster> raster(new WatchingRaster);
    const NBX::SO<ZMT::CORE::GridData> watching(new ZMT::CORE::GridData(raster.get()));
    const auto patch = TestPatches::gridPatch(watching, Area(1, 1, 4, 3));
    glDisable(GL_NORMALIZE);
    glEnable(GL_LIGHTING);
    glEnable(GL_COLOR_MATERIAL);
    painter->render(engine.get(), patch.get());
    EXPECT_EQ(raster->state, (std::array<GLboolean, 3>{GL_TRUE, GL_FALSE, GL_FALSE}));
    glDisable(GL_COLOR_MATERIAL);
    glDisable(GL_LIGHTING);
}

TEST_F(GridPatchShadowPainterGLTest, LeavesTheStateAsItWas) {
    const auto patch = TestPatches::gridPatch(grid, Area(1, 1, 4, 3));
    glEnable(GL_COLOR_MATERIAL);
    const auto before = stateOfGL();
    painter->render(engine.get(), patch.get());
    EXPECT_EQ(stateOfGL(), before);
    glDisable(GL_COLOR_MATERIAL);
}

TEST_F(GridPatchShadowPainterGLTest, DeclinesWhatItCannotPaint) {
    EXPECT_FALSE(painter->render(engine.get(), grid.get()));
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_FALSE(painter->render(nullptr, TestPatches::gridPatch(grid, Area(1, 1, 4, 3)).get()));
    EXPECT_EQ(reports.count(0, L"engine", L"no engine"), 1U) << reports;
    reports.clear();
}

} // namespace
