#include <zmt/core/terrain/geometry/tree/tinpatchpaintergl.h>

#include <support/roundtrip.h>

#include <nbx/engine/handler.h>
#include <nbx/engine/shapepainter.h>
#include <nbx/object/exception.h>

#include "support/testpatches.h"

using NBX::Area;
using ZMT::CORE::TinPatch;
using ZMT::CORE::TinPatchPainterGL;

namespace {

using Sides = std::map<std::string, unsigned>;

class TinPatchPainterGLTest : public PatchPainterFixture {
protected:
    NBX::SO<ZMT::CORE::GridData> grid = TestPatches::smallGrid();
    NBX::SO<TinPatchPainterGL> painter{new TinPatchPainterGL};
};

TEST_F(TinPatchPainterGLTest, IsThePainterOfTinPatches) {
    EXPECT_EQ(painter->target(), TinPatch::ClassNameNBX());
    EXPECT_FALSE(painter->shouldUseDisplayLists());
    EXPECT_TRUE(dynamic_cast<TinPatchPainterGL *>(
        engine->findHandler(NBX::Painter::ClassNameNBX(), TinPatch::ClassInfoNBX())));
}

TEST_F(TinPatchPainterGLTest, EverySideHasASkirtOrAWall) {
    const struct {
        const char * name;
        Area domain;
        Sides skirts, walls;
    } cases[] = {{"whole grid", Area(0, 0, 8, 6), {}, {{"x 0", 2}, {"z 0", 2}, {"x 8", 2}, {"z 12", 2}}},
                 {"low corner", Area(0, 0, 3, 2), {{"x 3", 2}, {"z 4", 2}}, {{"x 0", 2}, {"z 0", 2}}},
                 {"high corner", Area(5, 4, 3, 2), {{"x 5", 2}, {"z 8", 2}}, {{"x 8", 2}, {"z 12", 2}}},
                 {"inside", Area(2, 1, 3, 4), {{"x 2", 2}, {"z 2", 2}, {"x 5", 2}, {"z 10", 2}}, {}}};
    for (const auto & c : cases) {
        SCOPED_TRACE(c.name);
        const auto patch = TestPatches::tinPatch(grid, c.domain);
        const Triangles surfaceTriangles = surface(*painter, *patch);
        EXPECT_EQ(TestPatches::sidesOf(surfaceTriangles), c.skirts);
        EXPECT_EQ(surfaceTriangles.size(), 2 + 2 * c.skirts.size());
        const Triangles wallTriangles = walls(*painter, *patch);
        EXPECT_EQ(TestPatches::sidesOf(wallTriangles), c.walls);
        EXPECT_EQ(wallTriangles.size(), 2 * c.walls.size());
    }
}

TEST_F(TinPatchPainterGLTest, SidesComeInTheOrderOfTheBorders) {
    using Order = std::vector<std::string>;
    EXPECT_EQ(TestPatches::orderOf(surface(*painter, *TestPatches::tinPatch(grid, Area(2, 1, 3, 4)))),
              (Order{"ground", "x 2", "z 10", "x 5", "z 2"}));
    EXPECT_EQ(TestPatches::orderOf(walls(*painter, *TestPatches::tinPatch(grid, Area(0, 0, 8, 6)))),
              (Order{"x 0", "z 12", "x 8", "z 0"}));
}

TEST_F(TinPatchPainterGLTest, DrawsTheMeshOfABuiltTree) {
    const auto ground =
        TestTerrain::grid({33, 17}, [](unsigned x, unsigned y) { return double((x * x + 3 * y) % 11); });
    testing::internal::CaptureStderr();
    const auto root = ZMT::CORE::CreateGeometryTree::create(ground.get(), 50);
    testing::internal::GetCapturedStderr();
    for (const auto & patch : {root, root->child(0), root->child(1)->child(0)}) {
        ASSERT_TRUE(dynamic_cast<TinPatch *>(patch.get()));
        Triangles triangles = surface(*painter, *patch);
        std::erase_if(triangles, [&](const FeedbackGL::Triangle & t) {
            return t[0].y < -0.01 || t[1].y < -0.01 || t[2].y < -0.01;
        });
        EXPECT_LT(patch->wall(), -1.0);
        // A mesh turns clockwise, strips the other way.
        for (auto & t : triangles)
            std::swap(t[1], t[2]);
        EXPECT_EQ(TestPatches::normalized(triangles), TestPatches::normalized(TestPatches::meshOf(*patch)));
    }
}

TEST_F(TinPatchPainterGLTest, FrontsAreSeenFromAboveAndFromOutside) {
    const auto whole = TestPatches::tinPatch(grid, Area(0, 0, 8, 6));
    const auto drawSurface = [&] { painter->renderPatch(engine.get(), whole.get()); };
    EXPECT_EQ(frontsSeen({0, -1, 0}, drawSurface), 2U);
    EXPECT_EQ(frontsSeen({0, 1, 0}, drawSurface), 0U);
    expectCurtainsLookOutwards(*painter,
                               [&](const Area & domain) { return TestPatches::tinPatch(grid, domain); });
}

TEST_F(TinPatchPainterGLTest, BuildsItsShapesOnce) {
    const auto patch = TestPatches::tinPatch(grid, Area(0, 0, 3, 2));
    const Triangles first = surface(*painter, *patch), firstWalls = walls(*painter, *patch);
    const auto shape = patch->patchShape(), wall = patch->wallShape();
    EXPECT_TRUE(shape);
    EXPECT_TRUE(wall);
    EXPECT_EQ(TestPatches::normalized(surface(*painter, *patch)), TestPatches::normalized(first));
    EXPECT_EQ(TestPatches::normalized(walls(*painter, *patch)), TestPatches::normalized(firstWalls));
    EXPECT_EQ(patch->patchShape(), shape);
    EXPECT_EQ(patch->wallShape(), wall);
}

TEST_F(TinPatchPainterGLTest, RebuildsTheShapesOfAPatchThatWasRead) {
    const auto written = TestPatches::tinPatch(grid, Area(0, 0, 3, 2));
    const Triangles first = surface(*painter, *written), firstWalls = walls(*painter, *written);
    const auto read = roundTrip(written);
    ASSERT_TRUE(read);
    EXPECT_FALSE(read->patchShape());
    EXPECT_FALSE(read->wallShape());
    EXPECT_EQ(TestPatches::normalized(surface(*painter, *read)), TestPatches::normalized(first));
    EXPECT_EQ(TestPatches::normalized(walls(*painter, *read)), TestPatches::normalized(firstWalls));
}

TEST_F(TinPatchPainterGLTest, FreesItsBuffersWithThePatch) {
    auto patch = TestPatches::tinPatch(grid, Area(0, 0, 3, 2));
    const Names before = countNames();
    surface(*painter, *patch);
    walls(*painter, *patch);
    EXPECT_NE(countNames(), before);
    patch = nullptr;
    canvas->finishRedisplay();
    canvas->redisplay();
    canvas->prepareRedisplay();
    EXPECT_EQ(countNames(), before);
}

TEST_F(TinPatchPainterGLTest, LeavesTheStateAsItWas) {
    const auto patch = TestPatches::tinPatch(grid, Area(0, 0, 3, 2));
    const auto before = stateOfGL();
    painter->renderPatch(engine.get(), patch.get());
    painter->renderOuterWall(engine.get(), patch.get());
    EXPECT_EQ(stateOfGL(), before);
}

class ThrowingShape : public NBX::Shape {
    NBX_TEMPLATE_CLASS(ThrowingShape, NBX::Shape)
public:
    ThrowingShape() : Shape(true) {}
    NBX::Bounds boundingBox() const override { return {}; }
};

class ThrowingPainter : public NBX::ShapePainter {
    NBX_TEMPLATE_CLASS(ThrowingPainter, NBX::ShapePainter)
public:
    NBX::ID target() const override { return ThrowingShape::ClassNameNBX(); }
    bool render(NBX::Engine *, const NBX::Shape *) override { throw NBX::IOException(L"a shape"); }
};

const bool throwingRegistered = (NBX::EngineGL::registerHandler(new ThrowingPainter), true);

TEST_F(TinPatchPainterGLTest, FrontFacesAreThoseOfTerrainsAgainWhenAShapeThrows) {
    const auto patch = TestPatches::tinPatch(grid, Area(0, 0, 3, 2));
    patch->patchShape() = new ThrowingShape;
    EXPECT_THROW(painter->renderPatch(engine.get(), patch.get()), NBX::IOException);
    GLint front = 0;
    glGetIntegerv(GL_FRONT_FACE, &front);
    EXPECT_EQ(front, GL_CW);
}

TEST_F(TinPatchPainterGLTest, ListsBesideTheDataDrawNothing) {
    using TestTerrain::array;
    using Numbers = std::vector<unsigned>;
    using Local = std::vector<unsigned short>;
    struct Row {
        const char * name;
        NBX::SO<ZMT::CORE::GridData> data;
        Numbers vertices;
        unsigned short onBorder;
    };
    const Row rows[] = {{"no data", nullptr, {0, 1, 9, 10}, 3},
                        {"no vertices", grid, {}, 0},
                        {"a border beyond the vertices", grid, {0, 1, 9, 10}, 4}};
    for (const Row & row : rows) {
        SCOPED_TRACE(row.name);
        const auto border = [&] { return array(Local{0, row.onBorder}); };
        for (const bool isOuter : {false, true}) {
            const NBX::SO<TinPatch> patch(new TinPatch(row.data, array(row.vertices), nullptr, nullptr,
                                                       border(), isOuter, border(), isOuter, border(),
                                                       isOuter, border(), isOuter, {}, 0.0, 0.0, nullptr));
            reports.clear();
            EXPECT_TRUE(surface(*painter, *patch).empty());
            EXPECT_TRUE(walls(*painter, *patch).empty());
            EXPECT_TRUE(reports.empty()) << reports;
        }
    }
}

TEST_F(TinPatchPainterGLTest, ReportsAMissingEngine) {
    const auto patch = TestPatches::tinPatch(grid, Area(0, 0, 3, 2));
    painter->renderPatch(nullptr, patch.get());
    painter->renderOuterWall(nullptr, patch.get());
    EXPECT_EQ(reports.count(0, L"engine", L"no engine"), 2U) << reports;
    EXPECT_EQ(reports.size(), 2U);
    reports.clear();
}

} // namespace
