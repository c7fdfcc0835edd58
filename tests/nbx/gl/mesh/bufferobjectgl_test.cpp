#include <nbx/gl/mesh/bufferobjectgl.h>

#include <cstring>
#include <numeric>

#include "support/glfixture.h"

namespace {

using namespace NBX;

class BufferObjectGLTest : public GLFixture {
protected:
    static std::vector<int> contentOf(BufferObjectGL & buffer) {
        std::vector<int> content(buffer.bytes() / sizeof(int));
        const void * pointer = buffer.mapPointer(BufferObjectGL::MA_Read);
        if (!pointer) return {};
        std::memcpy(content.data(), pointer, buffer.bytes());
        EXPECT_TRUE(buffer.unmapPointer());
        return content;
    }
    SO<BufferObjectGL> newBuffer(const std::vector<int> & content,
                                 BufferObjectGL::DataType type = BufferObjectGL::DT_VertexAttributes) {
        return SO<BufferObjectGL>(new BufferObjectGL(engine.get(), content.size() * sizeof(int),
                                                     content.data(), type, BufferObjectGL::UP_Dynamic));
    }
};

TEST_F(BufferObjectGLTest, KeepsItsContent) {
    const std::vector<int> content = {1, 2, 3, 4, 5};
    const auto buffer = newBuffer(content);
    EXPECT_EQ(20U, buffer->bytes());
    EXPECT_EQ(BufferObjectGL::UP_Dynamic, buffer->usagePattern());
    EXPECT_EQ(content, contentOf(*buffer));
}

TEST_F(BufferObjectGLTest, UpdatesAPart) {
    const auto buffer = newBuffer({1, 2, 3, 4, 5});
    const std::uint64_t transaction = buffer->lastTransactionNo();
    const int values[] = {30, 40};
    buffer->update(8, values, 8);
    EXPECT_EQ((std::vector<int>{1, 2, 30, 40, 5}), contentOf(*buffer));
    EXPECT_GT(buffer->lastTransactionNo(), transaction);
    buffer->update(20, values, 0);
}

TEST_F(BufferObjectGLTest, RefusesToUpdateBeyondItsEnd) {
    const auto buffer = newBuffer({1, 2, 3});
    const int values[] = {7, 8};
    buffer->update(8, values, 8);
    buffer->update(std::size_t(-4), values, 8);
    EXPECT_EQ(2U, reports.size()) << reports;
    EXPECT_EQ(L"inside", reports.last().condition);
    reports.clear();
    buffer->update(0, nullptr, 4);
    EXPECT_EQ(1U, reports.count(0, L"data", L"no data"));
    reports.clear();
    EXPECT_EQ((std::vector<int>{1, 2, 3}), contentOf(*buffer));
}

TEST_F(BufferObjectGLTest, WritesThroughTheMappedPointer) {
    const auto buffer = newBuffer({1, 2, 3});
    auto * pointer = static_cast<int *>(buffer->mapPointer(BufferObjectGL::MA_ReadWrite));
    ASSERT_NE(nullptr, pointer);
    pointer[1] = 20;
    EXPECT_EQ(nullptr, buffer->mapPointer(BufferObjectGL::MA_Read));
    EXPECT_EQ(1U, reports.count(L"the buffer is mapped already"));
    EXPECT_TRUE(buffer->unmapPointer());
    EXPECT_FALSE(buffer->unmapPointer());
    EXPECT_EQ(1U, reports.count(L"the buffer is not mapped"));
    reports.clear();
    EXPECT_EQ((std::vector<int>{1, 20, 3}), contentOf(*buffer));
}

TEST_F(BufferObjectGLTest, BindsToTheTargetOfItsDataType) {
    struct Row {
        BufferObjectGL::DataType type;
        GLenum binding;
    };
    for (const Row & row : {Row{BufferObjectGL::DT_VertexAttributes, GL_ARRAY_BUFFER_BINDING},
                            Row{BufferObjectGL::DT_VertexIndices, GL_ELEMENT_ARRAY_BUFFER_BINDING},
                            Row{BufferObjectGL::DT_PixelPack, GL_PIXEL_PACK_BUFFER_BINDING},
                            Row{BufferObjectGL::DT_PixelUnpack, GL_PIXEL_UNPACK_BUFFER_BINDING}}) {
        const auto buffer = newBuffer({1}, row.type);
        EXPECT_EQ(row.type, buffer->dataType());
        GLint bound = -1;
        glGetIntegerv(row.binding, &bound);
        EXPECT_EQ(0, bound) << "after the construction of type " << row.type;
        buffer->bind(engine.get());
        glGetIntegerv(row.binding, &bound);
        EXPECT_EQ(GLint(buffer->name()), bound) << row.type;
        buffer->unbind(engine.get());
        glGetIntegerv(row.binding, &bound);
        EXPECT_EQ(0, bound) << row.type;
    }
}

TEST_F(BufferObjectGLTest, PixelsBecomeVertices) {
    glClearColor(1.0F, 0.0F, 0.0F, 1.0F);
    glClear(GL_COLOR_BUFFER_BIT);
    const auto buffer = newBuffer(std::vector<int>(2 * 4, 0));
    buffer->changeType(BufferObjectGL::DT_PixelPack);
    buffer->bind(engine.get());
    glReadPixels(0, 0, 2, 1, GL_RGBA, GL_FLOAT, const_cast<void *>(buffer->boundAddress(0)));
    buffer->unbind(engine.get());
    buffer->changeType(BufferObjectGL::DT_VertexAttributes);
    const auto * values = static_cast<const float *>(buffer->mapPointer(BufferObjectGL::MA_Read));
    ASSERT_NE(nullptr, values);
    EXPECT_EQ((std::vector<float>{1, 0, 0, 1, 1, 0, 0, 1}), std::vector<float>(values, values + 8));
    buffer->unmapPointer();
}

TEST_F(BufferObjectGLTest, AddressesAreOffsets) {
    const auto buffer = newBuffer({1, 2});
    EXPECT_EQ(nullptr, buffer->boundAddress(0));
    EXPECT_EQ(12, static_cast<const char *>(buffer->boundAddress(12)) - static_cast<const char *>(nullptr));
}

TEST_F(BufferObjectGLTest, MayBeEmpty) {
    const SO<BufferObjectGL> buffer(new BufferObjectGL(
        engine.get(), 0, nullptr, BufferObjectGL::DT_VertexIndices, BufferObjectGL::UP_Static));
    EXPECT_EQ(0U, buffer->bytes());
}

TEST_F(BufferObjectGLTest, NeedsAnEngine) {
    const SO<BufferObjectGL> buffer(
        new BufferObjectGL(nullptr, 4, nullptr, BufferObjectGL::DT_VertexIndices, BufferObjectGL::UP_Static));
    EXPECT_EQ(1U, reports.count(0, L"engine", L"no engine"));
    EXPECT_EQ(0U, buffer->name());
    EXPECT_EQ(0U, buffer->bytes());
    EXPECT_EQ(nullptr, buffer->mapPointer(BufferObjectGL::MA_Read));
    reports.clear();
}

TEST_F(BufferObjectGLTest, FreesItsName) {
    const Names before = countNames();
    auto buffer = newBuffer({1, 2, 3});
    EXPECT_EQ(before.buffers + 1, countNames().buffers);
    canvas->releaseContext();
    buffer = nullptr;
    ASSERT_TRUE(canvas->makeContextCurrent());
    EXPECT_EQ(before, countNames());
}

} // namespace
