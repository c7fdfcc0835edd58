#include "nbx/gl/mesh/vertexattributeshapepaintergl.h"

#include <nbx/gl/mesh/vertexattributebufferobjectgl.h>
#include <nbx/gl/mesh/vertexattributeshapegl.h>

#include "columnfixture.h"

namespace {

using namespace NBX;
using Vertex = Vector3Base<float>;

class VertexAttributeShapePainterGLTest : public ColumnFixture {
protected:
    template <class T> SO<BaseVertexAttributeBufferObjectGL> newBuffer(const std::vector<T> & values) {
        return SO<BaseVertexAttributeBufferObjectGL>(
            new VertexAttributeBufferObjectGL<T>(engine.get(), unsigned(values.size()), values.data()));
    }
    template <class T> SO<BufferObjectGL> newIndexBuffer(const std::vector<T> & values) {
        return SO<BufferObjectGL>(new BufferObjectGL(engine.get(), values.size() * sizeof(T), values.data(),
                                                     BufferObjectGL::DT_VertexIndices,
                                                     BufferObjectGL::UP_Static));
    }
    /// Corners of two squares: the left and the right quarter of the picture's width.
    static std::vector<Vertex> corners() {
        return {{-1, -1, 0},   {-1, 1, 0},   {-0.5F, -1, 0}, {-0.5F, 1, 0},
                {0.5F, -1, 0}, {0.5F, 1, 0}, {1, -1, 0},     {1, 1, 0}};
    }
};

TEST_F(VertexAttributeShapePainterGLTest, DrawsOneStrip) {
    root->append(new VertexAttributeShapeGL(VertexAttributeShapeGL::PT_TriangleStrip, newBuffer(corners())));
    EXPECT_EQ("wwwwwwww", columns());
}

TEST_F(VertexAttributeShapePainterGLTest, DrawsTheRangesOfItsVerticesApart) {
    root->append(new VertexAttributeShapeGL(VertexAttributeShapeGL::PT_TriangleStrip, newBuffer(corners()),
                                            nullptr, newIndexBuffer<std::uint32_t>({4, 8})));
    EXPECT_EQ("ww....ww", columns());
}

TEST_F(VertexAttributeShapePainterGLTest, DrawsTheRangesOfItsIndicesApart) {
    const std::vector<std::uint16_t> indices = {4, 5, 6, 7, 0, 1, 2, 3};
    root->append(new VertexAttributeShapeGL(VertexAttributeShapeGL::PT_TriangleStrip, newBuffer(corners()),
                                            newIndexBuffer(indices), newIndexBuffer<std::uint32_t>({4, 8})));
    EXPECT_EQ("ww....ww", columns());
    root->clear();
    root->append(new VertexAttributeShapeGL(VertexAttributeShapeGL::PT_TriangleStrip, newBuffer(corners()),
                                            newIndexBuffer(indices), newIndexBuffer<std::uint32_t>({4})));
    EXPECT_EQ("......ww", columns());
}

TEST_F(VertexAttributeShapePainterGLTest, UsesItsColors) {
    const SO<VertexAttributeShapeGL> shape(
        new VertexAttributeShapeGL(VertexAttributeShapeGL::PT_TriangleStrip, newBuffer(corners()), nullptr,
                                   newIndexBuffer<std::uint32_t>({4, 8})));
    std::vector<std::array<unsigned char, 4>> colors(8, {255, 0, 0, 255});
    for (unsigned i = 4; i < 8; ++i)
        colors[i] = {0, 0, 255, 255};
    shape->setColors(newBuffer(colors));
    root->append(shape.get());
    EXPECT_EQ("rr....bb", columns());
}

TEST_F(VertexAttributeShapePainterGLTest, UsesItsNormals) {
    // A light from the viewer lights the left square alone.
    const SO<VertexAttributeShapeGL> shape(
        new VertexAttributeShapeGL(VertexAttributeShapeGL::PT_TriangleStrip, newBuffer(corners()), nullptr,
                                   newIndexBuffer<std::uint32_t>({4, 8})));
    std::vector<Vertex> normals(8, Vertex(0, 0, 1));
    for (unsigned i = 4; i < 8; ++i)
        normals[i] = Vertex(0, 0, -1);
    shape->setNormals(newBuffer(normals));
    root->append(shape.get());
    const float black[4] = {0, 0, 0, 1};
    glLightModelfv(GL_LIGHT_MODEL_AMBIENT, black);
    glEnable(GL_LIGHTING);
    glEnable(GL_LIGHT0);
    EXPECT_EQ("ww......", columns());
    glDisable(GL_LIGHT0);
    glDisable(GL_LIGHTING);
}

TEST_F(VertexAttributeShapePainterGLTest, UsesTextureCoordinatesOnAllUnits) {
    const SO<VertexAttributeShapeGL> shape(
        new VertexAttributeShapeGL(VertexAttributeShapeGL::PT_TriangleStrip, newBuffer(corners()), nullptr,
                                   newIndexBuffer<std::uint32_t>({4, 8})));
    std::vector<std::array<float, 2>> coordinates(8, {0.25F, 0.5F});
    for (unsigned i = 4; i < 8; ++i)
        coordinates[i] = {0.75F, 0.5F};
    shape->setTexCoords(0, newBuffer(coordinates));
    root->append(shape.get());
    expectTexturedColumns("rr....gg");
}

TEST_F(VertexAttributeShapePainterGLTest, LeavesTheStateOfGLAsItIsFound) {
    const SO<VertexAttributeShapeGL> shape(new VertexAttributeShapeGL(
        VertexAttributeShapeGL::PT_TriangleStrip, newBuffer(corners()),
        newIndexBuffer<std::uint16_t>({0, 1, 2, 3}), newIndexBuffer<std::uint32_t>({4})));
    shape->setColors(newBuffer(std::vector<std::array<float, 3>>(8, {0.0F, 1.0F, 0.0F})));
    shape->setNormals(newBuffer(std::vector<Vertex>(8, Vertex(0, 1, 0))));
    shape->setTexCoords(1, newBuffer(std::vector<std::array<float, 2>>(8)));
    const std::vector<int> before = stateOfGL();
    engine->paint(shape.get());
    EXPECT_EQ(before, stateOfGL());
}

TEST_F(VertexAttributeShapePainterGLTest, DoesNotReadBeyondShortAttributes) {
    const SO<VertexAttributeShapeGL> shape(
        new VertexAttributeShapeGL(VertexAttributeShapeGL::PT_TriangleStrip, newBuffer(corners())));
    shape->setColors(newBuffer(std::vector<std::array<float, 3>>(7)));
    root->append(shape.get());
    EXPECT_EQ("........", columns());
    EXPECT_EQ(1U, reports.count(L"fewer vertex attributes than vertices"));
    reports.clear();
}

TEST_F(VertexAttributeShapePainterGLTest, NeedsAnEngineForOpenGL) {
    const SO<VertexAttributeShapeGL> shape(
        new VertexAttributeShapeGL(VertexAttributeShapeGL::PT_TriangleStrip, newBuffer(corners())));
    VertexAttributeShapePainterGL * painter = new VertexAttributeShapePainterGL;
    const SO<VertexAttributeShapePainterGL> holder(painter);
    EXPECT_FALSE(painter->render(nullptr, shape.get()));
    EXPECT_EQ(1U, reports.count(0, L"gl", L"no engine"));
    reports.clear();
}

} // namespace
