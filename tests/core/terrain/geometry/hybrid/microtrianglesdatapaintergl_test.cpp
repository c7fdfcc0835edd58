#include <zmt/core/terrain/geometry/hybrid/microtrianglesdatapaintergl.h>

#include <zmt/core/terrain/geometry/hybrid/createhybriddata.h>
#include <zmt/core/terrain/geometry/hybrid/microtrianglesdata.h>
#include <zmt/core/terrain/geometry/regular/gridpatchpaintergl.h>

#include <nbx/container/sequence/array2d.h>
#include <nbx/engine/handler.h>

#include "support/testpatches.h"

#include "core/terrain/geometry/hybrid/microtrianglesgl.h"

using NBX::Area;
using NBX::SO;
using ZMT::CORE::CreateHybridData;
using ZMT::CORE::HybridData;
using ZMT::CORE::MicroTrianglesData;
using ZMT::CORE::MicroTrianglesDataPainterGL;

namespace {

using Feature = CreateHybridData::Feature;

class MicroTrianglesDataPainterGLTest : public PatchPainterFixture {
protected:
    /// 8 by 6 cells, the first vertex at (100, 200) of the map; cells of 1 by 2.
    static SO<HybridData> stamped(const std::vector<Feature> & features) {
        return CreateHybridData::create(TestPatches::smallGrid(), features);
    }
    static SO<HybridData> building() {
        return stamped(
            {{{102.3, 6.0, 203.0}, {105.7, 6.0, 203.5}, {103.1, 6.0, 208.6}}, {{106.5, 9.0, 209.0}}});
    }

    Triangles drawn(const MicroTrianglesData & micro) {
        return feedback([&] { EXPECT_TRUE(painter->render(engine.get(), &micro)); });
    }
    static Triangles cornersOf(const MicroTrianglesData & micro, bool isReversed) {
        Triangles triangles;
        for (unsigned v = 0; v < micro.vertices(); v += 3)
            triangles.push_back({micro.vertex(v + (isReversed ? 2 : 0)), micro.vertex(v + 1),
                                 micro.vertex(v + (isReversed ? 0 : 2))});
        return triangles;
    }
    Point normalBehind(const MicroTrianglesData & micro) {
        glNormal3d(1, 0, 0);
        painter->render(engine.get(), &micro);
        GLdouble normal[3];
        glGetDoublev(GL_CURRENT_NORMAL, normal);
        return {normal[0], normal[1], normal[2]};
    }

    SO<MicroTrianglesDataPainterGL> painter{new MicroTrianglesDataPainterGL};
};

TEST_F(MicroTrianglesDataPainterGLTest, IsThePainterOfCells) {
    EXPECT_EQ(painter->target(), MicroTrianglesData::ClassNameNBX());
    EXPECT_TRUE(dynamic_cast<MicroTrianglesDataPainterGL *>(
        engine->findHandler(NBX::Painter::ClassNameNBX(), MicroTrianglesData::ClassInfoNBX())));
    EXPECT_FALSE(painter->render(engine.get(), nullptr));
}

/// The lists of a grid run counter-clockwise; those of other makers may run either way.
TEST_F(MicroTrianglesDataPainterGLTest, EveryTriangleFacesUp) {
    const auto data = building();
    const auto micro = data->microData(2, 1);
    ASSERT_TRUE(micro);
    EXPECT_EQ(TestPatches::normalized(drawn(*micro)), TestPatches::normalized(cornersOf(*micro, true)));
    const SO<MicroTrianglesData> clockwise(new MicroTrianglesData(data.get(), {0, 9, 1, 1, 9, 10}));
    const SO<MicroTrianglesData> mixed(new MicroTrianglesData(data.get(), {0, 9, 1, 1, 10, 9}));
    EXPECT_EQ(TestPatches::normalized(drawn(*clockwise)),
              TestPatches::normalized(cornersOf(*clockwise, false)));
    EXPECT_EQ(TestPatches::normalized(drawn(*mixed)), TestPatches::normalized(drawn(*clockwise)));
}

TEST_F(MicroTrianglesDataPainterGLTest, OnlyCornersOnTheGridHaveNormalsOfTheGrid) {
    const auto data = stamped({{{102.2, 8.0, 202.2}}, {{102.8, 9.0, 202.4}}, {{102.4, 7.0, 203.8}}});
    const unsigned inner = 9 * 7;
    ASSERT_EQ(data->vertices(), inner + 3);
    const auto normal = [&](const std::vector<unsigned> & indices) {
        return normalBehind(*SO<MicroTrianglesData>(new MicroTrianglesData(data.get(), indices)));
    };
    const auto face = [&](unsigned a, unsigned b, unsigned c) {
        const Point n = (data->vertex(b) - data->vertex(a)).cross(data->vertex(c) - data->vertex(a));
        return (n.y < 0.0 ? n * -1.0 : n).normalized();
    };
    // All clockwise, so that none has to be turned.
    const struct {
        const char * name;
        Point drawn, expected;
    } cases[] = {
        {"none", normal({inner, inner + 2, inner + 1}), face(inner, inner + 1, inner + 2)},
        {"last", normal({inner + 2, inner, 20}), data->normal(20)},
        {"not the last", normal({20, inner + 2, inner}), face(20, inner, inner + 2)},
        {"all", normal({11, 20, 12}), data->normal(12)},
    };
    for (const auto & c : cases) {
        const double error = (c.drawn.normalized() - c.expected.normalized()).length();
        EXPECT_LT(error, 1e-5) << c.name << ": " << c.drawn.x << " " << c.drawn.y << " " << c.drawn.z;
    }
}

/// In whatever place of the triangle.
TEST_F(MicroTrianglesDataPainterGLTest, OneCornerOnTheGridHasItsOwnNormal) {
    const auto data = stamped({{{102.2, 8.0, 202.2}}, {{102.8, 9.0, 202.4}}});
    const unsigned inner = 9 * 7, onGrid = 20;
    std::vector<unsigned> corners{onGrid, inner + 1, inner};
    for (unsigned place = 0; place < 3; ++place) {
        const SO<MicroTrianglesData> micro(new MicroTrianglesData(data.get(), corners));
        std::vector<Point> normals;
        ZMT::CORE::drawMicroTrianglesGL(*micro, [&](const Point & normal) { normals.push_back(normal); });
        ASSERT_EQ(normals.size(), 3U) << place;
        for (unsigned k = 0; k < 3; ++k)
            EXPECT_EQ(normals[k] == data->normal(onGrid), corners[k] == onGrid) << place << ", " << k;
        std::rotate(corners.begin(), corners.begin() + 1, corners.end());
    }
}

TEST_F(MicroTrianglesDataPainterGLTest, APatchHasItsCellsInPlaceOfPlainOnes) {
    const auto data = building();
    const auto patch = TestPatches::gridPatch(data, Area(0, 0, 8, 6));
    Triangles expected;
    for (unsigned y = 0; y < 6; ++y) {
        for (unsigned x = 0; x < 8; ++x) {
            if (const auto micro = data->microData(x, y)) {
                const Triangles cell = cornersOf(*micro, true);
                expected.insert(expected.end(), cell.begin(), cell.end());
                continue;
            }
            const Point a = data->vertex(x, y), b = data->vertex(x + 1, y);
            const Point c = data->vertex(x, y + 1), d = data->vertex(x + 1, y + 1);
            expected.push_back({a, c, b});
            expected.push_back({b, c, d});
        }
    }
    ASSERT_GT(expected.size(), 96U);
    ZMT::CORE::GridPatchPainterGL patchPainter;
    EXPECT_EQ(TestPatches::normalized(surface(patchPainter, *patch)), TestPatches::normalized(expected));
}

TEST_F(MicroTrianglesDataPainterGLTest, FrontsAreSeenFromAbove) {
    const auto patch = TestPatches::gridPatch(building(), Area(0, 0, 8, 6));
    ZMT::CORE::GridPatchPainterGL patchPainter;
    const auto draw = [&] { patchPainter.renderPatch(engine.get(), patch.get()); };
    EXPECT_EQ(frontsSeen({0, -1, 0}, draw), surface(patchPainter, *patch).size());
    EXPECT_EQ(frontsSeen({0, 1, 0}, draw), 0U);
}

/// From straight above, no pixel of the ground is left out, and none is drawn twice.
TEST_F(MicroTrianglesDataPainterGLTest, ThereAreNoHoles) {
    std::vector<Feature> features{{{100.01, 3, 200.02}, {107.9, 6, 211.9}},
                                  {{100.3, 4, 211}, {107, 2, 200.5}}};
    for (unsigned i = 0; i < 40; ++i)
        features.push_back(
            {{101.0 + 0.1 * i, 2.0 + i % 3, 202.0}, {107.0 - 0.13 * i, 5.0, 210.0 - 0.01 * i}});
    const auto patch = TestPatches::gridPatch(stamped(features), Area(0, 0, 8, 6));
    ZMT::CORE::GridPatchPainterGL patchPainter;
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glViewport(0, 0, 64, 64);
    // The ground from x 0.1 to 7.9 and z 0.1 to 11.9 fills the picture.
    const auto toClip = NBX::Matrix4x4Base<double>(
        {1 / 3.9, 0, 0, -4.0 / 3.9, 0, 0, 1 / 5.9, -6.0 / 5.9, 0, 0.01, 0, 0, 0, 0, 0, 1});
    FeedbackGL::loadMatrices(toClip);
    glDisable(GL_DEPTH_TEST);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ONE, GL_ONE);
    glColor3f(0.25F, 0.25F, 0.25F);
    patchPainter.renderPatch(engine.get(), patch.get());
    glDisable(GL_BLEND);
    std::vector<GLubyte> pixels(64 * 64 * 4);
    glReadPixels(0, 0, 64, 64, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    for (unsigned i = 0; i < 64 * 64; ++i)
        ASSERT_NEAR(pixels[4 * i], 64, 2) << "pixel " << i % 64 << ", " << i / 64;
}

/// Numbers beyond the vertices, and lists and tables of wrong sizes.
TEST_F(MicroTrianglesDataPainterGLTest, CellsThatDoNotFitDoNoHarm) {
    const auto raster = TestPatches::smallGrid()->rasterData();
    const SO<NBX::Array2D<std::vector<unsigned>>> small(new NBX::Array2D<std::vector<unsigned>>(2, 2)),
        large(new NBX::Array2D<std::vector<unsigned>>(40, 40));
    for (const auto & table : {small, large}) {
        table->set(0, 0, {0});
        table->set(1, 0, {0, 1, 4000000000U, 9, 1});
        table->set(0, 1, {0, 4000000000U, 1});
        table->set(1, 1, {4000000000U, 4000000000U, 4000000000U});
        const SO<HybridData> data(new HybridData(raster.get(), {}, table.get()));
        const auto patch = TestPatches::gridPatch(data, Area(0, 0, 8, 6));
        ZMT::CORE::GridPatchPainterGL patchPainter;
        // A wrong vertex is at the origin; whole triangles are drawn.
        EXPECT_EQ(surface(patchPainter, *patch).size(), 2U * (8 * 6 - 4) + 3);
        EXPECT_GT(reports.count(0, L"v < vertices()", L"v out of range"), 0U) << reports;
        reports.clear();
    }
}

/// Cells are recorded in the display list of their patch.
TEST_F(MicroTrianglesDataPainterGLTest, DisplayListsShowTheSame) {
    const auto patch = TestPatches::gridPatch(building(), Area(0, 0, 8, 6));
    ZMT::CORE::GridPatchPainterGL patchPainter;
    for (const Point & p :
         {Point(2.5, 6.0, 3.3), Point(4.0, 6.0, 4.4), Point(5.2, 6.0, 3.4), Point(1.5, 3.0, 1.5)}) {
        const auto shaded = [&](const std::function<void()> & draw) {
            glEnable(GL_LIGHTING);
            glEnable(GL_LIGHT0);
            glEnable(GL_NORMALIZE);
            const auto color = colorAt(p, draw);
            glDisable(GL_NORMALIZE);
            glDisable(GL_LIGHT0);
            glDisable(GL_LIGHTING);
            return color;
        };
        const auto direct = shaded([&] { patchPainter.renderPatch(engine.get(), patch.get()); });
        for (unsigned time = 0; time < 2; ++time)
            EXPECT_EQ(shaded([&] { EXPECT_TRUE(patchPainter.render(engine.get(), patch.get())); }), direct);
        EXPECT_GT(direct[0], 0);
    }
    EXPECT_NE(engine->getDisplayList(patch.get()), 0U);
}

TEST_F(MicroTrianglesDataPainterGLTest, APatchLeavesTheStateAsItWas) {
    const auto patch = TestPatches::gridPatch(building(), Area(1, 0, 6, 5));
    glNormal3d(1, 0, 0);
    const auto before = stateOfGL();
    ZMT::CORE::GridPatchPainterGL patchPainter;
    patchPainter.renderPatch(engine.get(), patch.get());
    EXPECT_EQ(stateOfGL(), before);
}

} // namespace
