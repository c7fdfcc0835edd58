#include <nbx/gl/program/attributedshape.h>

#include <nbx/gl/mesh/vertexattributebufferobjectgl.h>
#include <nbx/gl/offscreen/framebufferobjectgl.h>
#include <nbx/gl/offscreen/rendertexturegl.h>
#include <nbx/gl/program/fragmentshaderobject.h>
#include <nbx/gl/program/programobject.h>
#include <nbx/gl/program/vertexshaderobject.h>
#include <nbx/scene/shape/box.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;
using namespace NBX::GL2;
using Two = std::array<float, 2>;
using Four = std::array<float, 4>;
using Pixel = std::array<int, 4>;

constexpr auto s_triangles = VertexAttributeShapeGL::PT_Triangles;

class AttributedShapeTest : public GLFixture {
protected:
    /// The corners of the right half of the picture, and two more.
    const std::vector<Two> corners_ = {{0, -1}, {1, -1}, {1, 1}, {0, 1}, {-1, 0}, {-1, 1}};
    /// Their colour.
    const std::vector<Four> values_ = std::vector<Four>(6, Four{0.2F, 0.4F, 0.6F, 1.0F});
    const Pixel drawn_{51, 102, 153, 255}, empty_{0, 0, 0, 0};

    SO<ProgramObject>
    newProgram(const std::string & vertexStage = "attribute vec2 gridXY; attribute vec4 gridZ; "
                                                 "varying vec4 v; void main() { v = gridZ; "
                                                 "gl_Position = vec4(gridXY, 0.0, 1.0); }") {
        const SO<ProgramObject> program(new ProgramObject);
        program->attach(SO<ShaderObject>(new VertexShaderObject(vertexStage)));
        program->attach(
            SO<ShaderObject>(new FragmentShaderObject("varying vec4 v; void main() { gl_FragColor = v; }")));
        return program;
    }
    template <class T> SO<BaseVertexAttributeBufferObjectGL> bufferOf(const std::vector<T> & values) {
        return new VertexAttributeBufferObjectGL<T>(engine.get(), unsigned(values.size()), values.data());
    }
    SO<AttributedShape> newShape() {
        const SO<AttributedShape> shape(new AttributedShape(s_triangles));
        shape->setAttribute("gridXY", bufferOf(corners_));
        shape->setAttribute("gridZ", bufferOf(values_));
        return shape;
    }
    /// Whether the middle of the quarters at the lower left, lower right, upper left and upper right is
    /// drawn.
    std::string quarters(const SO<AttributedShape> & shape, const SO<ProgramObject> & program) {
        root->clear();
        if (program) root->append(program.get());
        root->append(shape.get());
        const SO<Image> image = draw();
        std::string result;
        for (const auto & [x, y] :
             {std::pair(16, 16), std::pair(48, 16), std::pair(16, 48), std::pair(48, 48)})
            result += pixel(image, x, y) == drawn_ ? '#' : pixel(image, x, y) == empty_ ? '.' : '?';
        return result;
    }
};

TEST_F(AttributedShapeTest, ProgramsReadTheirAttributesByName) {
    const auto shape = newShape();
    EXPECT_EQ(6U, shape->vertexCount());
    shape->setIndices(engine.get(), {0, 1, 2, 2, 3, 0});
    const std::vector<int> before = stateOfGL();
    const Names names = countNames();
    EXPECT_EQ(".#.#", quarters(shape, newProgram()));
    EXPECT_EQ(before, stateOfGL());
    EXPECT_EQ(names.buffers, countNames().buffers);
}

TEST_F(AttributedShapeTest, WithoutIndicesVerticesAreTakenInTheirOrder) {
    const auto shape = newShape();
    shape->setAttribute("gridXY", bufferOf(std::vector<Two>{{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}}));
    EXPECT_EQ("...#", quarters(shape, newProgram()));
    shape->setIndices(engine.get(), {0, 1, 2});
    shape->setIndices(engine.get(), {});
    EXPECT_EQ("...#", quarters(shape, newProgram()));
    // As many as have all attributes.
    shape->setAttribute("gridZ", bufferOf(std::vector<Four>(2, values_[0])));
    EXPECT_EQ(2U, shape->vertexCount());
    EXPECT_EQ("....", quarters(shape, newProgram()));
}

TEST_F(AttributedShapeTest, IndicesMayExceedSixteenBits) {
    const unsigned n = 70000;
    std::vector<Two> positions(n, Two{9, 9});
    std::copy(corners_.begin(), corners_.end(), positions.end() - 6);
    const SO<AttributedShape> shape(new AttributedShape(s_triangles));
    shape->setAttribute("gridXY", bufferOf(positions));
    shape->setAttribute("gridZ", bufferOf(std::vector<Four>(n, values_[0])));
    shape->setIndices(engine.get(), {n - 6, n - 5, n - 4, n - 4, n - 3, n - 6});
    EXPECT_EQ(".#.#", quarters(shape, newProgram()));
}

TEST_F(AttributedShapeTest, WhatAProgramDoesNotNameIsLeftAside) {
    const auto shape = newShape();
    shape->setIndices(engine.get(), {0, 1, 2, 2, 3, 0});
    shape->setAttribute("another", bufferOf(corners_));
    EXPECT_EQ(".#.#", quarters(shape, newProgram()));
    shape->setAttribute("another", nullptr);
    EXPECT_FALSE(shape->attribute("another"));
    EXPECT_TRUE(shape->attribute("gridZ"));
    EXPECT_EQ(".#.#", quarters(shape, newProgram()));
    EXPECT_EQ("....", quarters(SO<AttributedShape>(new AttributedShape(s_triangles)), newProgram()));
}

TEST_F(AttributedShapeTest, OneBufferTakesThePlaceOfAnother) {
    const auto shape = newShape();
    shape->setIndices(engine.get(), {0, 1, 2, 2, 3, 0});
    const std::uint64_t before = shape->lastTransactionNo();
    shape->setAttribute("gridZ", bufferOf(std::vector<Four>(6, Four{0, 0, 0, 0})));
    EXPECT_GT(shape->lastTransactionNo(), before);
    EXPECT_EQ("....", quarters(shape, newProgram()));
}

TEST_F(AttributedShapeTest, HeightsGoFromAFrameBufferToVerticesOnTheCard) {
    const SO<RenderTextureGL> heights(new RenderTextureGL(engine.get(), 3, 2, GL_FLOAT, GL_RGBA));
    const SO<FrameBufferObjectGL> target(new FrameBufferObjectGL(engine.get(), 3, 2));
    heights->attachTo(target.get());
    const auto shape = newShape();
    shape->setIndices(engine.get(), {0, 1, 2, 2, 3, 0});
    shape->setAttribute("gridZ", bufferOf(std::vector<Four>(6)));
    EXPECT_EQ("....", quarters(shape, newProgram()));

    const SO<BaseVertexAttributeBufferObjectGL> gridZ = shape->attribute("gridZ");
    target->bind(engine.get());
    glClearColor(0.0F, 0.0F, 8848.0F, 1.0F);
    glClear(GL_COLOR_BUFFER_BIT);
    glClearColor(0.0F, 0.0F, 0.0F, 0.0F);
    gridZ->changeType(BufferObjectGL::DT_PixelPack);
    gridZ->bind(engine.get());
    glReadPixels(0, 0, 3, 2, GL_RGBA, GL_FLOAT, const_cast<void *>(gridZ->boundAddress(0)));
    gridZ->unbind(engine.get());
    gridZ->changeType(BufferObjectGL::DT_VertexAttributes);
    target->unbind(engine.get());
    EXPECT_EQ(".#.#",
              quarters(shape, newProgram("attribute vec2 gridXY; attribute vec4 gridZ; varying vec4 v; void "
                                         "main() { v = gridZ.z == 8848.0 ? vec4(0.2, 0.4, 0.6, 1.0) : "
                                         "vec4(1.0); gl_Position = vec4(gridXY, 0.0, 1.0); }")));
}

TEST_F(AttributedShapeTest, FaultsAreToldOnce) {
    const auto toldOnce = [&](const SO<AttributedShape> & shape, const SO<ProgramObject> & program,
                              const wchar_t * message) {
        EXPECT_EQ("....", quarters(shape, program));
        EXPECT_EQ("....", quarters(shape, program));
        EXPECT_EQ(1U, reports.size());
        EXPECT_EQ(1U, reports.count(message)) << reports;
        reports.clear();
    };
    toldOnce(newShape(), nullptr, L"named vertex attributes need a program");
    const auto beyond = newShape();
    beyond->setIndices(engine.get(), {0, 1, 6});
    toldOnce(beyond, newProgram(), L"an index lies beyond the vertices");
    const auto other = newShape();
    other->attribute("gridZ")->changeType(BufferObjectGL::DT_PixelPack);
    toldOnce(other, newProgram(), L"the buffer of a vertex attribute holds other data");
    newShape()->setIndices(nullptr, {0});
    EXPECT_EQ(1U, reports.count(L"no engine"));
    reports.clear();
}

TEST_F(AttributedShapeTest, HasTheBoxThatItIsGiven) {
    const SO<AttributedShape> shape(new AttributedShape(VertexAttributeShapeGL::PT_Points));
    EXPECT_FALSE(shape->boundingBox().isDefined());
    EXPECT_EQ(VertexAttributeShapeGL::PT_Points, shape->primitiveType());
    const Bounds box({1, 2, 3}, {4, 5, 6});
    shape->setBoundingBox(box);
    EXPECT_EQ(box, shape->boundingBox());
}

} // namespace
