#include "nbx/gl/mesh/polygonsetpaintergl.h"

#include <nbx/container/sequence/array.h>
#include <nbx/scene/shape/polygonset.h>

#include "columnfixture.h"

namespace {

using namespace NBX;
using Point = Vector3Base<double>;

class PolygonSetPainterGLTest : public ColumnFixture {
protected:
    static SO<Array<Point>> points(const std::vector<Point> & values) {
        return SO<Array<Point>>(new Array<Point>(values));
    }

    /// Two squares: the left and the right quarter of the picture's width, as strips of four.
    static std::vector<Point> corners() {
        return {{-1, -1, 0},  {-0.5, -1, 0}, {-1, 1, 0},  {-0.5, 1, 0},
                {0.5, -1, 0}, {1, -1, 0},    {0.5, 1, 0}, {1, 1, 0}};
    }
    static SO<PolygonSet> newSet(const std::vector<unsigned> & indices) {
        const SO<Array<unsigned>> sequence(new Array<unsigned>(indices));
        return SO<PolygonSet>(new PolygonSet(PolygonSet::PT_Triangles, points(corners()), sequence));
    }
};

TEST_F(PolygonSetPainterGLTest, DrawsIndexedTriangles) {
    root->append(newSet({0, 1, 2, 2, 1, 3, 4, 5, 6, 6, 5, 7}).get());
    EXPECT_EQ("ww....ww", columns());
    EXPECT_EQ("ww....ww", columns()) << "again, from the display list";
}

TEST_F(PolygonSetPainterGLTest, DrawsStripsFansAndQuads) {
    const std::vector<Point> strip = {{-1, -1, 0}, {-0.5, -1, 0}, {-1, 1, 0}, {-0.5, 1, 0}};
    const std::vector<Point> round = {{-1, -1, 0}, {-0.5, -1, 0}, {-0.5, 1, 0}, {-1, 1, 0}};
    root->append(new PolygonSet(PolygonSet::PT_TriangleStrip, points(strip)));
    EXPECT_EQ("ww......", columns());
    for (const PolygonSet::PrimitiveType type : {PolygonSet::PT_Quads, PolygonSet::PT_TriangleFan}) {
        root->clear();
        root->append(new PolygonSet(type, points(round)));
        EXPECT_EQ("ww......", columns()) << type;
    }
}

TEST_F(PolygonSetPainterGLTest, FrontFacesAreCounterClockwise) {
    root->append(newSet({0, 1, 2, 2, 1, 3}).get());
    glEnable(GL_CULL_FACE);
    EXPECT_EQ("ww......", columns());
    glCullFace(GL_FRONT);
    EXPECT_EQ("........", columns());
    glCullFace(GL_BACK);
    glDisable(GL_CULL_FACE);
}

TEST_F(PolygonSetPainterGLTest, DrawsAnewWhatWasModified) {
    const auto set = newSet({0, 1, 2, 2, 1, 3});
    root->append(set.get());
    EXPECT_EQ("ww......", columns());
    set->setIndexIterator(SO<Array<unsigned>>(new Array<unsigned>(std::vector<unsigned>{4, 5, 6, 6, 5, 7})));
    EXPECT_EQ("......ww", columns());
    EXPECT_EQ(1U, engine->displayListCount());
}

TEST_F(PolygonSetPainterGLTest, CanBeRecordedInAList) {
    const auto set = newSet({0, 1, 2, 2, 1, 3});
    const unsigned list = glGenLists(1);
    glNewList(list, GL_COMPILE);
    engine->paint(set.get());
    glEndList();
    EXPECT_EQ(0U, engine->displayListCount());
    canvas->redisplay();
    glCallList(list);
    EXPECT_EQ(255, pixel(canvas->snapshot(), 4, 32)[0]);
    glDeleteLists(list, 1);
}

TEST_F(PolygonSetPainterGLTest, UsesColorsAndTextureCoordinates) {
    const auto set = newSet({0, 1, 2, 2, 1, 3, 4, 5, 6, 6, 5, 7});
    std::vector<Color> colors(8, Color::red);
    for (unsigned i = 4; i < 8; ++i)
        colors[i] = Color::blue;
    set->setColorIterator(SO<Array<Color>>(new Array<Color>(colors)));
    root->append(set.get());
    EXPECT_EQ("rr....bb", columns());
    set->setColorIterator(nullptr);
    std::vector<Point> coordinates(8, Point(0.25, 0.5, 0.0));
    for (unsigned i = 4; i < 8; ++i)
        coordinates[i].x = 0.75;
    set->setTextureIterator(points(coordinates));
    expectTexturedColumns("rr....gg");
}

TEST_F(PolygonSetPainterGLTest, LeavesTheStateOfGLAsItIsFound) {
    const auto set = newSet({0, 1, 2});
    set->setColorIterator(SO<Array<Color>>(new Array<Color>(8, Color::red)));
    set->setNormalIterator(points(std::vector<Point>(8, Point(0, 1, 0))));
    set->setTextureIterator(points(std::vector<Point>(8)), 1);
    const std::vector<int> before = stateOfGL();
    engine->paint(set.get());
    EXPECT_EQ(before, stateOfGL());
    engine->paint(set.get());
    EXPECT_EQ(before, stateOfGL()) << "from the list";
}

TEST_F(PolygonSetPainterGLTest, LeavesOutWhatReachesBeyondTheVertices) {
    root->append(newSet({0, 1, 2, 2, 1, 3, 4, 5, 8}).get());
    EXPECT_EQ("ww......", columns());
    EXPECT_EQ(1U, reports.count(L"a polygon has a corner beyond the vertices"));
    reports.clear();
    const auto set = newSet({0, 1, 2, 2, 1, 3});
    set->setColorIterator(SO<Array<Color>>(new Array<Color>(7, Color::red)));
    root->clear();
    root->append(set.get());
    EXPECT_EQ("ww......", columns()) << "white";
    EXPECT_EQ(1U, reports.count(L"fewer vertex attributes than vertices"));
    reports.clear();
}

TEST_F(PolygonSetPainterGLTest, DrawsNothingOfAnEmptySet) {
    root->append(new PolygonSet);
    root->append(new PolygonSet(PolygonSet::PT_Triangles, points({})));
    EXPECT_EQ("........", columns());
}

} // namespace
