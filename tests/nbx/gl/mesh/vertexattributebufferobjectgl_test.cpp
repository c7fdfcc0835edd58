#include <nbx/gl/mesh/vertexattributebufferobjectgl.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;

class VertexAttributeBufferObjectGLTest : public GLFixture {
protected:
    template <class T> void expect(unsigned componentType, unsigned components, unsigned bytesOfOne) {
        const T values[3] = {};
        const SO<VertexAttributeBufferObjectGL<T>> buffer(
            new VertexAttributeBufferObjectGL<T>(engine.get(), 3, values));
        EXPECT_EQ(componentType, buffer->componentType());
        EXPECT_EQ(components, buffer->components());
        EXPECT_EQ(3U, buffer->count());
        EXPECT_EQ(3U * bytesOfOne, buffer->bytes());
        EXPECT_EQ(BufferObjectGL::DT_VertexAttributes, buffer->dataType());
    }
};

TEST_F(VertexAttributeBufferObjectGLTest, KnowsItsElements) {
    expect<float>(GL_FLOAT, 1, 4);
    expect<double>(GL_DOUBLE, 1, 8);
    expect<unsigned short>(GL_UNSIGNED_SHORT, 1, 2);
    expect<unsigned>(GL_UNSIGNED_INT, 1, 4);
    expect<Vector3Base<float>>(GL_FLOAT, 3, 12);
    expect<Vector3Base<double>>(GL_DOUBLE, 3, 24);
    expect<std::array<float, 2>>(GL_FLOAT, 2, 8);
    expect<std::array<unsigned char, 4>>(GL_UNSIGNED_BYTE, 4, 4);
}

TEST_F(VertexAttributeBufferObjectGLTest, ReportsUnknownTypes) {
    const SO<BaseVertexAttributeBufferObjectGL> buffer(
        new BaseVertexAttributeBufferObjectGL(engine.get(), 3, nullptr, GL_BITMAP, 3));
    EXPECT_EQ(1U, reports.size()) << reports;
    EXPECT_EQ(0U, buffer->bytes());
    reports.clear();
    const SO<BaseVertexAttributeBufferObjectGL> wide(
        new BaseVertexAttributeBufferObjectGL(engine.get(), 3, nullptr, GL_FLOAT, 5));
    EXPECT_EQ(1U, reports.count(L"range error: [1, 5), 5"));
    reports.clear();
}

} // namespace
