#include <zmt/core/terrain/geometry/regular/gridpatchpaintergl.h>

#include <nbx/engine/handler.h>
#include <zmt/core/terrain/geometry/hybrid/createhybriddata.h>
#include <zmt/core/terrain/geometry/regular/gridpatchnormalpaintergl.h>
#include <zmt/core/terrain/geometry/regular/gridpatchshadowpaintergl.h>

#include "support/testpatches.h"

using NBX::Area;
using ZMT::CORE::GridPatch;
using ZMT::CORE::GridPatchPainterGL;

namespace {

using Sides = std::map<std::string, unsigned>;

class GridPatchPainterGLTest : public PatchPainterFixture {
protected:
    /// How many vertices of the surface are sent to OpenGL.
    GLuint verticesOf(const GridPatch & patch) {
        GLuint query = 0, count = 0;
        glGenQueries(1, &query);
        glBeginQuery(GL_VERTICES_SUBMITTED_ARB, query);
        painter->renderPatch(engine.get(), &patch);
        glEndQuery(GL_VERTICES_SUBMITTED_ARB);
        glGetQueryObjectuiv(query, GL_QUERY_RESULT, &count);
        glDeleteQueries(1, &query);
        return count;
    }

    NBX::SO<ZMT::CORE::GridData> grid = TestPatches::smallGrid();
    NBX::SO<GridPatchPainterGL> painter{new GridPatchPainterGL};
};

TEST_F(GridPatchPainterGLTest, IsThePainterOfGridPatches) {
    EXPECT_EQ(painter->target(), GridPatch::ClassNameNBX());
    EXPECT_TRUE(painter->shouldUseDisplayLists());
    EXPECT_TRUE(dynamic_cast<GridPatchPainterGL *>(
        engine->findHandler(NBX::Painter::ClassNameNBX(), GridPatch::ClassInfoNBX())));
}

TEST_F(GridPatchPainterGLTest, DrawsTheMeshClockwiseFromAbove) {
    const auto whole = TestPatches::gridPatch(grid, Area(0, 0, 8, 6));
    EXPECT_EQ(TestPatches::normalized(surface(*painter, *whole)),
              TestPatches::normalized(TestPatches::meshOf(*whole)));
    const auto part = TestPatches::gridPatch(grid, Area(3, 2, 4, 3));
    Triangles triangles = surface(*painter, *part);
    std::erase_if(triangles, TestPatches::isCurtain);
    EXPECT_EQ(TestPatches::normalized(triangles), TestPatches::normalized(TestPatches::meshOf(*part)));
}

/// Told by the light that falls from one side. Each corner of a skirt has the normal of the ground above it.
TEST_F(GridPatchPainterGLTest, EveryCornerHasTheNormalOfTheGround) {
    const auto patch = TestPatches::gridPatch(grid, Area(2, 1, 3, 4));
    glEnable(GL_LIGHTING);
    glEnable(GL_LIGHT0);
    glEnable(GL_NORMALIZE);
    const GLfloat black[4] = {0, 0, 0, 1}, white[4] = {1, 1, 1, 1};
    glLightModelfv(GL_LIGHT_MODEL_AMBIENT, black);
    glMaterialfv(GL_FRONT_AND_BACK, GL_DIFFUSE, white);
    for (const Point & light :
         {Point(1, 0, 0), Point(-1, 0, 0), Point(0, 1, 0), Point(0, 0, 1), Point(0, 0, -1)}) {
        const auto toClip = FeedbackGL::fromAbove(TestPatches::s_halfSize);
        const auto [triangles, reds] = FeedbackGL::litTriangles(toClip, [&] {
            const GLfloat position[4] = {GLfloat(light.x), GLfloat(light.y), GLfloat(light.z), 0};
            glLightfv(GL_LIGHT0, GL_POSITION, position);
            painter->renderPatch(engine.get(), patch.get());
        });
        ASSERT_EQ(triangles.size(), 2U * 3 * 4 + 2U * 2 * (3 + 4));
        for (std::size_t t = 0; t < triangles.size(); ++t)
            for (unsigned k = 0; k < 3; ++k) {
                const Point & p = triangles[t][k];
                const Point normal =
                    grid->normal(unsigned(std::lround(p.x)), unsigned(std::lround(p.z / 2.0)));
                ASSERT_NEAR(reds[t][k], std::max(0.0, normal.normalized().dot(light)), 0.01)
                    << p.x << ", " << p.y << ", " << p.z;
            }
    }
    glDisable(GL_NORMALIZE);
    glDisable(GL_LIGHT0);
    glDisable(GL_LIGHTING);
    const GLfloat ambient[4] = {0.2F, 0.2F, 0.2F, 1}, diffuse[4] = {0.8F, 0.8F, 0.8F, 1};
    glLightModelfv(GL_LIGHT_MODEL_AMBIENT, ambient);
    glMaterialfv(GL_FRONT_AND_BACK, GL_DIFFUSE, diffuse);
}

/// Inner sides have skirts, and sides on the edge of the grid walls. A side has two triangles a cell.
TEST_F(GridPatchPainterGLTest, EverySideHasASkirtOrAWall) {
    const struct {
        const char * name;
        Area domain;
        Sides skirts, walls;
    } cases[] = {{"whole grid", Area(0, 0, 8, 6), {}, {{"x 0", 12}, {"z 0", 16}, {"x 8", 12}, {"z 12", 16}}},
                 {"low corner", Area(0, 0, 3, 2), {{"x 3", 4}, {"z 4", 6}}, {{"x 0", 4}, {"z 0", 6}}},
                 {"high corner", Area(5, 4, 3, 2), {{"x 5", 4}, {"z 8", 6}}, {{"x 8", 4}, {"z 12", 6}}},
                 {"one edge", Area(2, 0, 1, 2), {{"x 2", 4}, {"x 3", 4}, {"z 4", 2}}, {{"z 0", 2}}},
                 {"inside", Area(2, 1, 3, 4), {{"x 2", 8}, {"z 2", 6}, {"x 5", 8}, {"z 10", 6}}, {}}};
    for (const auto & c : cases) {
        SCOPED_TRACE(c.name);
        const auto patch = TestPatches::gridPatch(grid, c.domain);
        EXPECT_EQ(TestPatches::sidesOf(surface(*painter, *patch)), c.skirts);
        const Triangles wallTriangles = walls(*painter, *patch);
        EXPECT_EQ(TestPatches::sidesOf(wallTriangles), c.walls);
        for (const auto & t : wallTriangles)
            EXPECT_TRUE(TestPatches::isCurtain(t));
    }
}

TEST_F(GridPatchPainterGLTest, SidesComeInTheOrderOfAWalkFromTheLowCorner) {
    using Order = std::vector<std::string>;
    EXPECT_EQ(TestPatches::orderOf(surface(*painter, *TestPatches::gridPatch(grid, Area(2, 1, 3, 4)))),
              (Order{"ground", "x 2", "z 2", "x 5", "z 10"}));
    EXPECT_EQ(TestPatches::orderOf(walls(*painter, *TestPatches::gridPatch(grid, Area(0, 0, 8, 6)))),
              (Order{"x 0", "z 0", "x 8", "z 12"}));
}

/// Nothing shows through below an edge that crosses the border of a patch.
TEST_F(GridPatchPainterGLTest, SidesReachUpToTheShapesOfCells) {
    using Feature = ZMT::CORE::CreateHybridData::Feature;
    // The upper borders do not belong to a grid.
    const double east = std::nextafter(108.0, 0.0), north = std::nextafter(212.0, 0.0);
    const auto hybrid = ZMT::CORE::CreateHybridData::create(
        grid, std::vector<Feature>{{{100.0, 50.0, 206.5}, {east, 50.0, 206.5}},
                                   {{104.25, 60.0, 200.0}, {104.25, 60.0, north}},
                                   {{104.75, 70.0, 200.0}, {104.75, 70.0, 200.5}},
                                   {{106.5, 30.0, 201.0}}});
    const auto hasTop = [](const Triangles & triangles, double x, double height, double z) {
        return std::any_of(triangles.begin(), triangles.end(), [&](const auto & t) {
            return TestPatches::isCurtain(t) && std::any_of(std::begin(t), std::end(t), [&](const Point & p) {
                       return (p - Point(x, height, z)).length() < 0.01;
                   });
        });
    };
    const auto whole = TestPatches::gridPatch(hybrid, Area(0, 0, 8, 6));
    const Triangles around = walls(*painter, *whole);
    EXPECT_TRUE(hasTop(around, 0.0, 50.0, 6.5));
    EXPECT_TRUE(hasTop(around, 8.0, 50.0, 6.5));
    EXPECT_TRUE(hasTop(around, 4.25, 60.0, 0.0));
    EXPECT_TRUE(hasTop(around, 4.25, 60.0, 12.0));
    EXPECT_EQ(TestPatches::sidesOf(around), (Sides{{"x 0", 14}, {"z 0", 20}, {"x 8", 14}, {"z 12", 18}}));
    for (const auto & t : around) {
        const auto [low, high] = std::minmax({t[0].x, t[1].x, t[2].x});
        EXPECT_FALSE(low < 4.2 && high > 4.6) << "one top after the other";
    }
    const auto inner = TestPatches::gridPatch(hybrid, Area(3, 2, 3, 3));
    const Triangles skirts = surface(*painter, *inner);
    EXPECT_TRUE(hasTop(skirts, 3.0, 50.0, 6.5));
    EXPECT_TRUE(hasTop(skirts, 6.0, 50.0, 6.5));
    EXPECT_TRUE(hasTop(skirts, 4.25, 60.0, 4.0));
    EXPECT_TRUE(hasTop(skirts, 4.25, 60.0, 10.0));
    EXPECT_EQ(TestPatches::sidesOf(skirts), (Sides{{"x 3", 8}, {"z 4", 8}, {"x 6", 8}, {"z 10", 8}}));
}

/// A strip is open across plain cells, so that it has two vertices for each column of vertices, and is split
/// by a cell that has its own triangles, three vertices each.
TEST_F(GridPatchPainterGLTest, AStripGoesOnAcrossPlainCells) {
    ASSERT_TRUE(engine->hasExtension("GL_ARB_pipeline_statistics_query"));
    using Cells = std::vector<std::pair<unsigned, unsigned>>;
    constexpr unsigned row = 2 * 9, pointInCell = 4 * 3;
    const struct {
        const char * name;
        Cells cells;
        GLuint vertices;
    } cases[] = {{"none", {}, 6 * row},
                 {"inside a row", {{3, 1}}, 5 * row + 2 * 4 + 2 * 5 + pointInCell},
                 {"first of a row", {{0, 4}}, 5 * row + 2 * 8 + pointInCell},
                 {"last of a row", {{7, 4}}, 5 * row + 2 * 8 + pointInCell},
                 {"two in a row", {{2, 0}, {3, 0}}, 5 * row + 2 * 3 + 2 * 5 + 2 * pointInCell},
                 {"two apart", {{2, 0}, {5, 0}}, 5 * row + 2 * 3 + 2 * 3 + 2 * 3 + 2 * pointInCell}};
    for (const auto & c : cases) {
        std::vector<ZMT::CORE::CreateHybridData::Feature> points;
        for (const auto & [x, y] : c.cells)
            points.push_back({{100.5 + x, 9.0, 201.0 + 2.0 * y}});
        const auto hybrid = ZMT::CORE::CreateHybridData::create(grid, points);
        EXPECT_EQ(verticesOf(*TestPatches::gridPatch(hybrid, Area(0, 0, 8, 6))), c.vertices) << c.name;
    }
    EXPECT_EQ(verticesOf(*TestPatches::gridPatch(grid, Area(0, 0, 8, 6))), 6 * row) << "of a plain grid";
}

TEST_F(GridPatchPainterGLTest, FrontsAreSeenFromAboveAndFromOutside) {
    const auto whole = TestPatches::gridPatch(grid, Area(0, 0, 8, 6));
    const auto drawSurface = [&] { painter->renderPatch(engine.get(), whole.get()); };
    EXPECT_EQ(frontsSeen({0, -1, 0}, drawSurface), 2U * 8 * 6);
    EXPECT_EQ(frontsSeen({0, 1, 0}, drawSurface), 0U);
    expectCurtainsLookOutwards(*painter,
                               [&](const Area & domain) { return TestPatches::gridPatch(grid, domain); });
}

TEST_F(GridPatchPainterGLTest, LeavesTheStateAsItWas) {
    const auto patch = TestPatches::gridPatch(grid, Area(2, 1, 3, 4));
    glNormal3d(1, 0, 0);
    const auto before = stateOfGL();
    painter->renderPatch(engine.get(), patch.get());
    painter->renderOuterWall(engine.get(), patch.get());
    EXPECT_EQ(stateOfGL(), before);
}

TEST_F(GridPatchPainterGLTest, APatchBesideItsGridDrawsNothing) {
    const NBX::SO<GridPatch> patches[] = {
        new GridPatch(grid, Area(5, 0, 4, 1), {}, 0.0, 0.0, nullptr),
        new GridPatch(grid, Area(0, 0, 0, 1), {}, 0.0, 0.0, nullptr),
        new GridPatch(grid, Area(-1, 0, 1, 1), {}, 0.0, 0.0, nullptr),
        new GridPatch(nullptr, Area(0, 0, 1, 1), {}, 0.0, 0.0, nullptr),
    };
    reports.clear();
    ZMT::CORE::GridPatchNormalPainterGL normals({1, 1, 1});
    ZMT::CORE::GridPatchShadowPainterGL shadow;
    for (const auto & patch : patches) {
        EXPECT_TRUE(surface(*painter, *patch).empty());
        EXPECT_TRUE(walls(*painter, *patch).empty());
        EXPECT_TRUE(surface(normals, *patch).empty());
        EXPECT_FALSE(shadow.render(engine.get(), patch.get()));
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(GridPatchPainterGLTest, ReportsAMissingEngine) {
    const auto patch = TestPatches::gridPatch(grid, Area(2, 1, 3, 4));
    painter->renderPatch(nullptr, patch.get());
    painter->renderOuterWall(nullptr, patch.get());
    EXPECT_FALSE(painter->render(nullptr, patch.get()));
    EXPECT_EQ(reports.count(0, L"engine", L"no engine"), 3U) << reports;
    EXPECT_EQ(reports.size(), 3U);
    reports.clear();
}

} // namespace
