#include <nbx/container/sequence/array.h>
#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/handler.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/perspective.h>
#include <support/imagecompare.h>

#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/base/geometrypatchpaintergl.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>
#include <zmt/core/terrain/texture/reliefimage.h>
#include <zmt/core/terrain/texture/simpleterraintexture.h>
#include <zmt/raster/gdal/rasterfile.h>

#include "chunkedfixture.h"
#include "support/testpatches.h"

using TestChunked::Patch;
using ZMT::CORE::ChunkedLodTerrain;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::GeometryPatchPainterGL;
using ZMT::CORE::GridData;
using ZMT::CORE::Terrain;
using ZMT::CORE::TerrainPainterGLSettings;

namespace {

using Point = NBX::Vector3Base<double>;
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
    auto shape = part->surfaceMesh(), wall = part->outerWallMesh();
    ASSERT_TRUE(shape);
    surface(*painter, *part);
    walls(*painter, *part);
    EXPECT_EQ(part->surfaceMesh(), shape);
    EXPECT_EQ(part->outerWallMesh(), wall);
    EXPECT_EQ(countNames().buffers, before.buffers + 5) << "vertices, and indices and ranges of both shapes";
    part = nullptr;
    shape = wall = nullptr;
    canvas->finishRedisplay();
    canvas->redisplay();
    canvas->prepareRedisplay();
    EXPECT_EQ(countNames(), before);
}

TEST_F(ChunkedLodTerrainPatchPainterGLTest, TheWallOfAnInnerPatchHasNoBuffers) {
    const auto inner = patch(2, 2, 3);
    const Names before = countNames();
    walls(*painter, *inner);
    EXPECT_TRUE(inner->outerWallMesh());
    EXPECT_FALSE(inner->outerWallMesh()->boundingBox().isDefined());
    EXPECT_EQ(countNames().buffers, before.buffers + 3);
}

TEST_F(ChunkedLodTerrainPatchPainterGLTest, DrawsTheMeshWhoseErrorThePatchStates) {
    const auto noise = TestChunked::terrain(
        {257, 257}, [](unsigned x, unsigned y) { return double((x * 7919 + y * 104729) % 10007); });
    const NBX::SO<Patch> dense(new Patch(noise, 0, 0, 257, 0, -1.0));
    const unsigned threshold = dense->threshold();
    EXPECT_GT(threshold, 0U);
    EXPECT_EQ(dense->approximationError(), double(noise->heightScale()) * threshold);
    painter->renderPatch(engine.get(), dense.get());
    EXPECT_EQ(dense->threshold(), threshold);
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

/// Real ground, drawn by way of 16-bit heights and strips, and by way of a tree of triangulations.
class ChunkedLodPictureTest : public GLFixture {
protected:
    static constexpr double s_cell = 90.0;

    void SetUp() override {
        GLFixture::SetUp();
        canvas->setSize(480, 320);
        TerrainPainterGLSettings::setGeometryError(0.5);
        const auto file =
            ZMT::RASTER::RasterFile(ZMT_DATA_DIR "/../tests/data/everest_heights.tif").read().raster;
        const ZMT::RASTER::RasterGrid layout{file->cellsX(), file->cellsY(), 0.0, 0.0, s_cell, s_cell};
        // Both kinds have their own floor where nothing is defined.
        constexpr double lake = 5000.0;
        grid = TestTerrain::grid(layout, [&](unsigned x, unsigned y) {
            const double height = static_cast<const ZMT::RASTER::RasterData &>(*file).value(x, y);
            return file->isUndefValue(height) ? lake : height;
        });
        testing::internal::CaptureStderr();
        tree = new Terrain(grid.get(), ZMT::CORE::CreateGeometryTree::create(grid.get(), 1000).get());
        testing::internal::GetCapturedStderr();
        chunked = new ChunkedLodTerrain(grid.get());
        chunkedRoot = chunked->root();
    }
    void TearDown() override {
        TerrainPainterGLSettings::setGeometryError(3.0);
        chunkedRoot = nullptr;
        GLFixture::TearDown();
    }

    NBX::SO<ZMT::CORE::DecalTerrainTexturingEffect> shading() const {
        const auto image = ZMT::CORE::ReliefImage::createShading(*grid, Point(-1.0, 1.0, 1.0), 0.2);
        const NBX::SO<NBX::TextureGL> texture(new NBX::ImageTexture2DGL(image));
        texture->setWrap(NBX::TextureGL::WM_ClampToEdge);
        using Texture = NBX::SO<ZMT::CORE::TerrainTexture>;
        NBX::Bounds box = chunked->boundingBox();
        const Point half(s_cell / 2.0, 0.0, s_cell / 2.0);
        box = NBX::Bounds(box.getLLF() - half, box.getURB() + half);
        const Texture draped(new ZMT::CORE::SimpleTerrainTexture(texture, box, NBX::Matrix4x4Base<double>()));
        const NBX::SO<NBX::Array<Texture>> list(new NBX::Array<Texture>(std::vector<Texture>{draped}));
        return new ZMT::CORE::DecalTerrainTexturingEffect(list.get());
    }

    /// The terrain from `eye`, which looks at `target`.
    NBX::SO<NBX::Image> view(const NBX::SO<Terrain> & terrain, const Point & eye, const Point & target) {
        root->clear();
        const NBX::SO<NBX::LookAt> look(new NBX::LookAt(eye, target));
        const NBX::SO<NBX::Perspective> lens(new NBX::Perspective(45.0, 100.0, 60000.0));
        root->append(new NBX::Camera(look.get(), lens.get()));
        root->append(shading().get());
        root->append(terrain.get());
        auto picture = draw();
        root->clear();
        return picture;
    }

    NBX::SO<GridData> grid;
    NBX::SO<Terrain> tree;
    NBX::SO<ChunkedLodTerrain> chunked;
    NBX::SO<ZMT::CORE::GeometryPatch> chunkedRoot;
};

/// Patches of a root that have meshes.
unsigned patchesWithMeshes(const Patch & patch) {
    unsigned count = patch.meshes() ? 1 : 0;
    for (unsigned i = 0; i < patch.GeometryPatch::children(); ++i)
        count += patchesWithMeshes(dynamic_cast<const Patch &>(*patch.GeometryPatch::child(i)));
    return count;
}

TEST_F(ChunkedLodPictureTest, MeshesThatWereDroppedAreMadeAgainAndNotWithinAView) {
    auto * memory = NBX::GraphicsMemoryManager::instance();
    const Point overview(7000, 14000, -9000), near(6000, 8500, 1000), target(7000, 5000, 6000);
    const auto & patches = dynamic_cast<const Patch &>(*chunkedRoot);
    const auto expected = view(chunked, near, target), expectedFar = view(chunked, overview, target);
    const unsigned all = patchesWithMeshes(patches);

    memory->setBudget(1);
    const auto first = view(chunked, near, target);
    EXPECT_EQ(largestDifference(expected, first), 0);
    const unsigned ofView = patchesWithMeshes(patches);
    EXPECT_GT(ofView, 1U);
    EXPECT_LT(ofView, all);
    const Names before = countNames();
    EXPECT_EQ(largestDifference(expected, view(chunked, near, target)), 0);
    EXPECT_EQ(patchesWithMeshes(patches), ofView) << "what the view needs stays";
    EXPECT_EQ(countNames().buffers, before.buffers);
    EXPECT_EQ(largestDifference(expectedFar, view(chunked, overview, target)), 0);
    EXPECT_EQ(reports.size(), 1U) << reports;
    reports.clear();
    memory->setBudget(NBX::GraphicsMemoryManager::defaultBudget);
}

TEST_F(ChunkedLodPictureTest, LooksAsTheTreeDoes) {
    const struct {
        const char * name;
        Point eye, target;
    } views[] = {{"south", {7000, 14000, -9000}, {7000, 5000, 6000}},
                 {"north-east", {20000, 11000, 17000}, {7000, 6000, 6000}},
                 {"north-west, at the wall", {-9000, 7000, 15000}, {7000, 6000, 6000}},
                 {"above", {7100, 30000, 5000}, {7100, 5000, 5800}},
                 {"near", {6000, 8500, 1000}, {8000, 7500, 8000}}};
    for (const auto & v : views) {
        SCOPED_TRACE(v.name);
        const auto expected = view(tree, v.eye, v.target), actual = view(chunked, v.eye, v.target);
        const ImageDifference difference = compareImages(*actual, *expected, 12.0);
        EXPECT_LT(difference.share, 0.01);
    }
}

} // namespace
