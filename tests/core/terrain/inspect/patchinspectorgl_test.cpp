#include <zmt/core/terrain/inspect/patchinspectorgl.h>

#include <nbx/engine/handler.h>
#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>
#include <zmt/core/terrain/geometry/hybrid/createhybriddata.h>
#include <zmt/core/terrain/geometry/regular/gridpatchpaintergl.h>
#include <zmt/core/terrain/geometry/tree/tinpatchpaintergl.h>

#include "core/terrain/geometry/chunked/chunkedfixture.h"
#include "support/memorygridterrain.h"
#include "support/testpatches.h"

using NBX::Area;
using ZMT::CORE::PatchInspectorGL;

namespace {

class PatchInspectorGLTest : public PatchPainterFixture {
protected:
    void SetUp() override {
        PatchPainterFixture::SetUp();
        PatchInspectorGL::reset();
    }

    /// An inspector of the painter of chunked patches.
    NBX::SO<PatchInspectorGL> chunks(bool colorsPatches) {
        auto * painter = dynamic_cast<ZMT::CORE::GeometryPatchPainterGL *>(
            engine->findHandler(NBX::Painter::ClassNameNBX(), TestChunked::Patch::ClassInfoNBX()));
        return new PatchInspectorGL(painter, colorsPatches);
    }

    NBX::SO<ZMT::CORE::GridData> grid = TestPatches::smallGrid();
    NBX::SO<PatchInspectorGL> grids{new PatchInspectorGL(new ZMT::CORE::GridPatchPainterGL, false)};
    NBX::SO<PatchInspectorGL> tins{new PatchInspectorGL(new ZMT::CORE::TinPatchPainterGL, false)};
};

TEST_F(PatchInspectorGLTest, CountsEachPatchOnce) {
    const auto a = TestPatches::gridPatch(grid, Area(0, 0, 4, 3)),
               b = TestPatches::gridPatch(grid, Area(4, 0, 2, 2));
    const auto c = TestPatches::tinPatch(grid, Area(0, 0, 4, 3));
    for (unsigned pass = 0; pass < 2; ++pass) {
        EXPECT_TRUE(grids->render(engine.get(), a.get()));
        EXPECT_TRUE(grids->render(engine.get(), b.get()));
        EXPECT_TRUE(tins->render(engine.get(), c.get()));
    }
    EXPECT_EQ(PatchInspectorGL::statistics().patches, 3U);
    EXPECT_EQ(PatchInspectorGL::statistics().triangles, 24U + 8U + 2U);
    PatchInspectorGL::reset();
    EXPECT_EQ(PatchInspectorGL::statistics().patches, 0U);
    EXPECT_EQ(PatchInspectorGL::statistics().triangles, 0U);
}

TEST_F(PatchInspectorGLTest, CountsTheTrianglesOfMicroStructures) {
    const auto data = ZMT::CORE::CreateHybridData::create(
        grid,
        std::vector<ZMT::CORE::CreateHybridData::Feature>{{{102.5, 9.0, 203.0}}, {{105.5, 9.0, 207.0}}});
    const auto part = TestPatches::gridPatch(data, Area(0, 0, 4, 3));
    EXPECT_EQ(part->description().triangles, 24U + 2U);
    EXPECT_EQ(TestPatches::gridPatch(data, Area(0, 0, 8, 6))->description().triangles, 96U + 4U);
    EXPECT_EQ(surface(*grids, *part).size(), 24U + 2U + 2U * (4 + 3));
    EXPECT_TRUE(grids->render(engine.get(), part.get()));
    EXPECT_EQ(PatchInspectorGL::statistics().triangles, 24U + 2U);
}

TEST_F(PatchInspectorGLTest, CountsTheTrianglesOfChunksWithoutSkirtsAndTurns) {
    const auto terrain = TestChunked::terrain(
        {9, 7}, [](unsigned x, unsigned y) { return double((5 * x + 3 * y * y + x * y) % 7); });
    const NBX::SO<TestChunked::Patch> fine(new TestChunked::Patch(terrain, 4, 0, 5, 0, TestPatches::s_wall)),
        coarse(new TestChunked::Patch(terrain, 0, 0, 5, 65535, TestPatches::s_wall));
    const auto painter = chunks(false);
    for (unsigned pass = 0; pass < 2; ++pass) {
        EXPECT_TRUE(painter->render(engine.get(), fine.get()));
        EXPECT_TRUE(painter->render(engine.get(), coarse.get()));
    }
    EXPECT_EQ(fine->description().triangles, 32U);
    EXPECT_EQ(PatchInspectorGL::statistics().patches, 2U);
    EXPECT_EQ(PatchInspectorGL::statistics().triangles, 32U + 4U);
}

TEST_F(PatchInspectorGLTest, ChunksHaveColors) {
    const auto terrain = TestChunked::terrain({9, 9}, [](unsigned, unsigned) { return 0.0; });
    const auto colorOf = [&](unsigned x, bool colorsPatches) {
        const NBX::SO<TestChunked::Patch> patch(
            new TestChunked::Patch(terrain, x, 0, 5, 0, TestPatches::s_wall));
        const auto painter = chunks(colorsPatches);
        return colorAt({x + 2.0, 0.0, 2.0}, [&] { painter->render(engine.get(), patch.get()); });
    };
    EXPECT_EQ(colorOf(0, false), (std::array<int, 3>{255, 255, 255}));
    EXPECT_NE(colorOf(0, true), (std::array<int, 3>{255, 255, 255}));
    EXPECT_NE(colorOf(0, true), colorOf(4, true));
}

TEST_F(PatchInspectorGLTest, WallsDoNotCount) {
    const NBX::SO<NBX::ContextData<bool>> flag(new NBX::ContextData<bool>("RenderOuterWallFlag", true));
    const NBX::AttributeScope scope(engine.get(), flag.get());
    const auto patch = TestPatches::gridPatch(grid, Area(0, 0, 8, 6));
    const auto drawn = feedback([&] { EXPECT_TRUE(grids->render(engine.get(), patch.get())); });
    EXPECT_EQ(drawn.size(), 2U * 2 * (8 + 6));
    EXPECT_EQ(PatchInspectorGL::statistics().patches, 0U);
}

TEST_F(PatchInspectorGLTest, DrawsWhatItsPainterDraws) {
    EXPECT_EQ(grids->target(), ZMT::CORE::GridPatch::ClassNameNBX());
    EXPECT_EQ(tins->target(), ZMT::CORE::TinPatch::ClassNameNBX());
    const auto patch = TestPatches::gridPatch(grid, Area(1, 1, 4, 3));
    ZMT::CORE::GridPatchPainterGL painter;
    EXPECT_EQ(TestPatches::normalized(surface(*grids, *patch)),
              TestPatches::normalized(surface(painter, *patch)));
    EXPECT_EQ(TestPatches::normalized(walls(*grids, *patch)),
              TestPatches::normalized(walls(painter, *patch)));
}

TEST_F(PatchInspectorGLTest, NeighboursHaveDifferentColors) {
    const auto flat = TestTerrain::grid({9, 9}, [](unsigned, unsigned) { return 0.0; });
    const NBX::SO<PatchInspectorGL> painter(new PatchInspectorGL(new ZMT::CORE::GridPatchPainterGL, true));
    const auto colorOf = [&](int x, int y) {
        const auto patch = TestPatches::gridPatch(flat, Area(x, y, 4, 4));
        return colorAt({x + 2.0, 0.0, y + 2.0}, [&] { painter->render(engine.get(), patch.get()); });
    };
    const auto first = colorOf(0, 0);
    EXPECT_NE(first, colorOf(4, 0));
    EXPECT_NE(first, colorOf(0, 4));
    EXPECT_NE(colorOf(4, 4), colorOf(0, 4));
    EXPECT_EQ(first, colorOf(0, 0)) << "the same in every frame";
    EXPECT_NE(first, (std::array<int, 3>{255, 255, 255}));
}

TEST_F(PatchInspectorGLTest, LeavesTheStateAsItWas) {
    const auto patch = TestPatches::gridPatch(grid, Area(0, 0, 4, 3));
    const auto before = stateOfGL();
    NBX::SO<PatchInspectorGL>(new PatchInspectorGL(new ZMT::CORE::GridPatchPainterGL, true))
        ->render(engine.get(), patch.get());
    EXPECT_EQ(stateOfGL(), before);
}

/// A root that is split where a child is missing, and then is not.
TEST_F(PatchInspectorGLTest, CountsTheTilesOfStreamingTerrains) {
    MemoryGrid heights;
    heights.level = 2;
    heights.depth = 1;
    const NBX::SO<MemoryGridTerrain> terrain(new MemoryGridTerrain(heights));
    root->append(new NBX::Camera(new NBX::LookAt({4, 100, 4}, {4, 0, 4}, {0, 0, 1}),
                                 new NBX::Ortho(-5, 5, -5, 5, 1, 200)));
    root->append(terrain.get());
    canvas->setRenderingMode(1);
    canvas->redisplay();
    EXPECT_EQ(PatchInspectorGL::statistics().patches, 1U);
    EXPECT_EQ(PatchInspectorGL::statistics().triangles, 32U);
    EXPECT_EQ(PatchInspectorGL::statistics().missingTiles, 4U);
    canvas->redisplay();
    EXPECT_EQ(PatchInspectorGL::statistics().missingTiles, 4U) << "as for edges above a surface";
    terrain->state().deliver();
    PatchInspectorGL::reset();
    canvas->redisplay();
    EXPECT_EQ(PatchInspectorGL::statistics().patches, 4U);
    EXPECT_EQ(PatchInspectorGL::statistics().triangles, 4U * 32U);
    EXPECT_EQ(PatchInspectorGL::statistics().missingTiles, 0U);
    canvas->redisplay();
    EXPECT_EQ(PatchInspectorGL::statistics().patches, 4U) << "each once, however often it is painted";
    EXPECT_EQ(PatchInspectorGL::statistics().triangles, 4U * 32U);
    PatchInspectorGL::reset();
    EXPECT_EQ(PatchInspectorGL::statistics().patches, 0U);
    EXPECT_EQ(PatchInspectorGL::statistics().triangles, 0U);
}

} // namespace
