#include <nbx/engine/handler.h>
#include <nbx/gl/vertexattributeshapegl.h>
#include <zmt/core/terrain/geometry/geometrypatchpaintergl.h>

#include "chunkedfixture.h"
#include "testpatches.h"

using TestChunked::Patch;
using ZMT::CORE::GeometryPatchPainterGL;

namespace {

using Sides = std::map<std::string, unsigned>;

class ChunkedLodTerrainPatchPainterGLTest : public PatchPainterFixture {
protected:
    void SetUp() override {
        PatchPainterFixture::SetUp();
        painter = dynamic_cast<GeometryPatchPainterGL *>(
            engine->findHandler(NBX::Painter::ClassNameNBX(), Patch::ClassInfoNBX()));
        ASSERT_TRUE(painter);
    }

    /// Of 8 by 6 cells at the scene origin, from height 0 to 6; their lattice is 9 by 9.
    NBX::SO<Patch> patch(unsigned x, unsigned y, unsigned size) {
        return new Patch(terrain, x, y, size, 0, TestPatches::s_wall);
    }

    NBX::SO<ZMT::CORE::ChunkedLodTerrain> terrain = TestChunked::terrain(
        {9, 7}, [](unsigned x, unsigned y) { return double((5 * x + 3 * y * y + x * y) % 7); });
    NBX::SO<GeometryPatchPainterGL> painter;
};

TEST_F(ChunkedLodTerrainPatchPainterGLTest, IsRegistered) {
    EXPECT_EQ(painter->target(), Patch::ClassNameNBX());
    EXPECT_FALSE(painter->shouldUseDisplayLists());
}

TEST_F(ChunkedLodTerrainPatchPainterGLTest, DrawsTheSurfaceWithSkirts) {
    Triangles triangles = surface(*painter, *patch(4, 0, 5));
    EXPECT_EQ(TestPatches::sidesOf(triangles), (Sides{{"x 4", 8}, {"z 4", 8}}));
    std::erase_if(triangles, TestPatches::isCurtain);
    // A strip that turns has triangles without area.
    std::erase_if(triangles, [](const auto & t) {
        return (t[0] - t[1]).length() < 0.1 || (t[1] - t[2]).length() < 0.1 || (t[2] - t[0]).length() < 0.1;
    });
    EXPECT_EQ(triangles.size(), 32U);
    double area = 0.0;
    for (const auto & t : triangles)
        area += (t[2].x - t[0].x) * (t[1].z - t[0].z) - (t[1].x - t[0].x) * (t[2].z - t[0].z);
    EXPECT_NEAR(area, 2 * 16.0, 0.1);
}

TEST_F(ChunkedLodTerrainPatchPainterGLTest, DrawsTheWallAlongOuterSides) {
    EXPECT_EQ(TestPatches::sidesOf(walls(*painter, *patch(4, 0, 5))), (Sides{{"x 8", 8}, {"z 0", 8}}));
    EXPECT_TRUE(walls(*painter, *patch(2, 2, 3)).empty());
}

TEST_F(ChunkedLodTerrainPatchPainterGLTest, FrontsAreSeenFromAboveAndFromOutside) {
    const auto whole = patch(0, 0, 9);
    const auto drawSurface = [&] { painter->renderPatch(engine.get(), whole.get()); };
    const auto drawWall = [&] { painter->renderOuterWall(engine.get(), whole.get()); };
    EXPECT_EQ(frontsSeen({0, -1, 0}, drawSurface), 2U * 8 * 6);
    EXPECT_EQ(frontsSeen({0, 1, 0}, drawSurface), 0U);
    EXPECT_GE(frontsSeen({1, 0, 0}, drawWall), 12U) << "the wall in the west";
    const auto inner = patch(2, 2, 3);
    const auto drawInner = [&] { painter->renderPatch(engine.get(), inner.get()); };
    for (const Point & inwards : {Point(1, 0, 0), Point(-1, 0, 0), Point(0, 0, 1), Point(0, 0, -1)})
        EXPECT_GE(frontsSeen(Point(0, 9, 0) + inwards, drawInner), 4U) << "a skirt from outside and below";
}

TEST_F(ChunkedLodTerrainPatchPainterGLTest, BuildsItsShapesOnceAndFreesThem) {
    auto part = patch(0, 0, 5);
    const Names before = countNames();
    EXPECT_FALSE(part->surfaceMesh());
    surface(*painter, *part);
    const auto shape = part->surfaceMesh(), wall = part->outerWallMesh();
    ASSERT_TRUE(shape);
    surface(*painter, *part);
    walls(*painter, *part);
    EXPECT_EQ(part->surfaceMesh(), shape);
    EXPECT_EQ(part->outerWallMesh(), wall);
    EXPECT_EQ(countNames().buffers, before.buffers + 5) << "vertices, and indices and ranges of both shapes";
}

TEST_F(ChunkedLodTerrainPatchPainterGLTest, TheWallOfAnInnerPatchHasNoBuffers) {
    const auto inner = patch(2, 2, 3);
    const Names before = countNames();
    walls(*painter, *inner);
    EXPECT_TRUE(inner->outerWallMesh());
    EXPECT_FALSE(inner->outerWallMesh()->boundingBox().isDefined());
    EXPECT_EQ(countNames().buffers, before.buffers + 3);
}

TEST_F(ChunkedLodTerrainPatchPainterGLTest, KeepsTheThresholdOfTheMesh) {
    const auto noise = TestChunked::terrain(
        {257, 257}, [](unsigned x, unsigned y) { return double((x * 7919 + y * 104729) % 10007); });
    const NBX::SO<Patch> dense(new Patch(noise, 0, 0, 257, 0, -1.0));
    painter->renderPatch(engine.get(), dense.get());
    EXPECT_GT(dense->threshold(), 0);
    EXPECT_EQ(dense->approximationError(), 0.0);
}

TEST_F(ChunkedLodTerrainPatchPainterGLTest, LeavesTheStateAsItWas) {
    const auto part = patch(0, 0, 5);
    const auto before = stateOfGL();
    painter->renderPatch(engine.get(), part.get());
    painter->renderOuterWall(engine.get(), part.get());
    EXPECT_EQ(stateOfGL(), before);
}

TEST_F(ChunkedLodTerrainPatchPainterGLTest, ReportsAMissingEngine) {
    const auto part = patch(0, 0, 5);
    painter->renderPatch(nullptr, part.get());
    painter->renderOuterWall(nullptr, part.get());
    EXPECT_EQ(reports.count(0, L"engine", L"no engine"), 2U) << reports;
    EXPECT_EQ(reports.size(), 2U);
    reports.clear();
}

} // namespace
