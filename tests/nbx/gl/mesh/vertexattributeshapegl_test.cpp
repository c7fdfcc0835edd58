#include <nbx/gl/mesh/vertexattributeshapegl.h>

#include <nbx/gl/mesh/vertexattributebufferobjectgl.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;
using Vertex = Vector3Base<float>;

class VertexAttributeShapeGLTest : public GLFixture {
protected:
    SO<BaseVertexAttributeBufferObjectGL> newVertices(unsigned count) {
        const std::vector<Vertex> vertices(count);
        return SO<BaseVertexAttributeBufferObjectGL>(
            new VertexAttributeBufferObjectGL<Vertex>(engine.get(), count, vertices.data()));
    }
    SO<BufferObjectGL> newIndices(const std::vector<std::uint16_t> & indices) {
        return SO<BufferObjectGL>(new BufferObjectGL(engine.get(), indices.size() * 2, indices.data(),
                                                     BufferObjectGL::DT_VertexIndices,
                                                     BufferObjectGL::UP_Static));
    }
    SO<BufferObjectGL> newRanges(const std::vector<std::uint32_t> & ends) {
        return SO<BufferObjectGL>(new BufferObjectGL(engine.get(), ends.size() * 4, ends.data(),
                                                     BufferObjectGL::DT_VertexIndices,
                                                     BufferObjectGL::UP_Static));
    }
    SO<VertexAttributeShapeGL> newShape(unsigned vertices, SO<BufferObjectGL> indices,
                                        SO<BufferObjectGL> ranges) {
        return SO<VertexAttributeShapeGL>(new VertexAttributeShapeGL(VertexAttributeShapeGL::PT_TriangleStrip,
                                                                     newVertices(vertices), indices, ranges));
    }
};

TEST_F(VertexAttributeShapeGLTest, PartsItsIndicesIntoPrimitives) {
    const auto shape = newShape(4, newIndices({0, 1, 2, 3, 3, 2, 1}), newRanges({4, 7}));
    const auto & primitives = shape->primitives();
    EXPECT_EQ((std::vector<int>{0, 4}), primitives.firsts);
    EXPECT_EQ((std::vector<int>{4, 3}), primitives.counts);
    EXPECT_EQ(reinterpret_cast<const void *>(8), primitives.offsets[1]);
}

TEST_F(VertexAttributeShapeGLTest, IsOnePrimitiveWithoutRanges) {
    EXPECT_EQ((std::vector<int>{3}), newShape(3, newIndices({0, 1, 2}), nullptr)->primitives().counts);
    EXPECT_EQ((std::vector<int>{5}), newShape(5, nullptr, nullptr)->primitives().counts);
}

TEST_F(VertexAttributeShapeGLTest, PartsItsVerticesWithoutIndices) {
    const auto shape = newShape(10, nullptr, newRanges({4, 10}));
    const auto & primitives = shape->primitives();
    EXPECT_EQ((std::vector<int>{0, 4}), primitives.firsts);
    EXPECT_EQ((std::vector<int>{4, 6}), primitives.counts);
}

TEST_F(VertexAttributeShapeGLTest, LeavesEmptyPrimitivesOut) {
    EXPECT_EQ((std::vector<int>{3, 4}),
              newShape(7, nullptr, newRanges({0, 3, 3, 7, 7}))->primitives().counts);
    EXPECT_TRUE(newShape(0, nullptr, nullptr)->primitives().counts.empty());
    EXPECT_TRUE(newShape(4, newIndices({}), nullptr)->primitives().counts.empty());
    EXPECT_TRUE(newShape(4, nullptr, newRanges({}))->primitives().counts.empty());
}

TEST_F(VertexAttributeShapeGLTest, DrawsNothingThatReachesBeyondItsBuffers) {
    const auto badIndex = newShape(3, newIndices({0, 1, 3}), nullptr);
    EXPECT_TRUE(badIndex->primitives().counts.empty());
    EXPECT_TRUE(badIndex->primitives().counts.empty());
    EXPECT_EQ(1U, reports.size()) << "once";
    EXPECT_TRUE(newShape(3, newIndices({0, 1, 2}), newRanges({4}))->primitives().counts.empty());
    EXPECT_TRUE(newShape(3, nullptr, newRanges({3, 2}))->primitives().counts.empty());
    EXPECT_EQ(3U, reports.size());
    reports.clear();
}

TEST_F(VertexAttributeShapeGLTest, NoticesThatItsRangesChange) {
    const auto ranges = newRanges({3, 6});
    const auto shape = newShape(8, nullptr, ranges);
    EXPECT_EQ((std::vector<int>{3, 3}), shape->primitives().counts);
    const std::uint32_t end = 8;
    ranges->update(4, &end, 4);
    EXPECT_EQ((std::vector<int>{3, 5}), shape->primitives().counts);
}

/// Buffers that are mapped already would be reported, and read as empty.
TEST_F(VertexAttributeShapeGLTest, ReadsNothingBackOfWhatItWasMadeFrom) {
    const SO<VertexAttributeShapeGL> shape(
        new VertexAttributeShapeGL(engine.get(), VertexAttributeShapeGL::PT_TriangleStrip, newVertices(4),
                                   {0, 1, 2, 3, 3, 2, 1}, {4, 7}));
    shape->indices()->mapPointer(BufferObjectGL::MA_Read);
    shape->ranges()->mapPointer(BufferObjectGL::MA_Read);
    EXPECT_EQ((std::vector<int>{4, 3}), shape->primitives().counts);
    EXPECT_EQ(reinterpret_cast<const void *>(8), shape->primitives().offsets[1]);
    shape->indices()->unmapPointer();
    shape->ranges()->unmapPointer();
    const std::uint32_t end = 6;
    shape->ranges()->update(4, &end, 4);
    EXPECT_EQ((std::vector<int>{4, 2}), shape->primitives().counts) << "somebody changed it";
}

TEST_F(VertexAttributeShapeGLTest, WithoutNumbersItHasNoBufferOfThem) {
    const SO<VertexAttributeShapeGL> shape(new VertexAttributeShapeGL(
        engine.get(), VertexAttributeShapeGL::PT_TriangleStrip, newVertices(6), {}, {6}));
    EXPECT_FALSE(shape->indices());
    EXPECT_EQ((std::vector<int>{6}), shape->primitives().counts);
}

TEST_F(VertexAttributeShapeGLTest, KeepsItsBoxAndAttributes) {
    const auto shape = newShape(3, nullptr, nullptr);
    EXPECT_FALSE(shape->boundingBox().isDefined());
    const Bounds box({0.0, 0.0, 0.0}, {1.0, 2.0, 3.0});
    shape->setBoundingBox(box);
    EXPECT_EQ(box, shape->boundingBox());
    const auto normals = newVertices(3);
    shape->setNormals(normals);
    shape->setColors(normals);
    shape->setTexCoords(7, normals);
    EXPECT_EQ(normals, shape->normals());
    EXPECT_EQ(normals, shape->colors());
    EXPECT_EQ(normals, shape->texCoords(7));
    EXPECT_EQ(nullptr, shape->texCoords(0));
    EXPECT_EQ(nullptr, shape->texCoords(8));
    shape->setTexCoords(8, normals);
    EXPECT_EQ(1U, reports.count(L"range error: [0, 8), 8"));
    reports.clear();
}

TEST_F(VertexAttributeShapeGLTest, ReportsWhatItCannotUse) {
    const SO<VertexAttributeShapeGL> none(
        new VertexAttributeShapeGL(VertexAttributeShapeGL::PT_Triangles, nullptr));
    EXPECT_EQ(1U, reports.count(0, L"vertices", L"no vertices"));
    EXPECT_TRUE(none->primitives().counts.empty());
    newShape(3, newVertices(3), nullptr);
    EXPECT_EQ(1U, reports.count(L"the index buffer holds other data"));
    reports.clear();
}

} // namespace
