#include <nbx/gl/mesh/mappedvertexattributedatagl.h>

#include <nbx/gl/context/enginegl.h>

#include "columnfixture.h"
#include "support/damagedstreams.h"
#include "support/recordedattributes.h"
#include "support/roundtrip.h"

namespace {

using namespace NBX;
using Data = MappedVertexAttributeDataGL;

/// Two triangles: the left and the right quarter of the picture's width, as far as they cover it.
SO<Data> twoTriangles() {
    const SO<Data> data(new Data());
    const float positions[] = {-1, -3, 0, -0.5F, -3, 0, -0.75F, 9, 0, 0.5F, -3, 0, 1, -3, 0, 0.75F, 9, 0};
    const std::uint8_t colors[] = {255, 0, 0,   255, 255, 0, 0,   255, 255, 0, 0,   255,
                                   0,   0, 255, 255, 0,   0, 255, 255, 0,   0, 255, 255};
    data->setBuffer(Data::VERTEX_ID, new Data::Buffer(GL_FLOAT, 3, 6, positions));
    data->setBuffer(Data::COLOR_ID, new Data::Buffer(GL_UNSIGNED_BYTE, 4, 6, colors));
    return data;
}

TEST(MappedVertexAttributeData, HoldsBuffersByNameInTheOrderInWhichTheyCame) {
    const SO<Data> data = twoTriangles();
    EXPECT_EQ(data->names(), (std::vector<ID>{Data::VERTEX_ID, Data::COLOR_ID}));
    EXPECT_EQ(data->vertices(), 6U);
    EXPECT_EQ(data->bytes(), 6U * 12 + 6 * 4);
    EXPECT_FALSE(data->buffer(Data::NORMAL_ID));
    data->setBuffer(Data::VERTEX_ID, nullptr);
    EXPECT_EQ(data->names(), std::vector<ID>{Data::COLOR_ID});
    EXPECT_EQ(data->vertices(), 0U);
}

TEST(MappedVertexAttributeData, GivesItsNumbersWhateverTheirType) {
    const std::uint16_t shorts[] = {1, 65535};
    const double doubles[] = {0.25, -1e300};
    const std::uint32_t longs[] = {7, 4294967295U};
    EXPECT_EQ(Data::Buffer(GL_UNSIGNED_SHORT, 1, 2, shorts).value(1, 0), 65535.0);
    EXPECT_EQ(Data::Buffer(GL_DOUBLE, 2, 1, doubles).value(0, 1), -1e300);
    EXPECT_EQ(Data::Buffer(GL_UNSIGNED_INT, 2, 1, longs).value(0, 1), 4294967295.0);
}

TEST(MappedVertexAttributeData, ReportsBuffersThatCannotBe) {
    RecordedReports reports;
    EXPECT_EQ(Data::Buffer(GL_FLOAT, 5, 2).bytes(), 0U);
    EXPECT_EQ(Data::Buffer(GL_FLOAT, 0, 2).bytes(), 0U);
    EXPECT_EQ(Data::Buffer(GL_RGBA, 3, 2).bytes(), 0U);
    EXPECT_EQ(reports.size(), 3U);
}

TEST(MappedVertexAttributeData, IsDrawableOnlyWithWhatOpenGLTakes) {
    const SO<Data> data = twoTriangles();
    EXPECT_TRUE(data->isDrawable());
    EXPECT_FALSE(SO<Data>(new Data())->isDrawable());
    const struct {
        const char * name;
        ID attribute;
        unsigned type, components, count;
        bool isDrawable;
    } cases[] = {
        {"normals of bytes", Data::NORMAL_ID, GL_UNSIGNED_BYTE, 3, 6, false},
        {"normals of two components", Data::NORMAL_ID, GL_FLOAT, 2, 6, false},
        {"normals", Data::NORMAL_ID, GL_FLOAT, 3, 6, true},
        {"too few normals", Data::NORMAL_ID, GL_FLOAT, 3, 5, false},
        {"coordinates of bytes", Data::TEXCOORD_ID(7), GL_UNSIGNED_BYTE, 2, 6, false},
        {"coordinates", Data::TEXCOORD_ID(7), GL_FLOAT, 1, 6, true},
        {"colours of two components", Data::COLOR_ID, GL_FLOAT, 2, 6, false},
        {"positions of one component", Data::VERTEX_ID, GL_FLOAT, 1, 6, false},
        {"positions of bytes", Data::VERTEX_ID, GL_UNSIGNED_BYTE, 3, 6, false},
        {"something else", ID("something else"), GL_UNSIGNED_BYTE, 1, 1, true},
    };
    for (const auto & c : cases) {
        const SO<Data> changed = twoTriangles();
        changed->setBuffer(c.attribute, new Data::Buffer(c.type, c.components, c.count));
        EXPECT_EQ(changed->isDrawable(), c.isDrawable) << c.name;
    }
}

TEST(MappedVertexAttributeData, TextureUnitsBeyondTheLastAreReported) {
    RecordedReports reports;
    EXPECT_EQ(Data::TEXCOORD_ID(Data::maxTextureUnits), Data::TEXCOORD_ID(0));
    EXPECT_NE(Data::TEXCOORD_ID(1), Data::TEXCOORD_ID(0));
    EXPECT_EQ(reports.count(L"unit out of range"), 1U);
}

TEST(MappedVertexAttributeData, IsStoredWithoutAContext) {
    const SO<Data> data = twoTriangles();
    const SO<Data> streamed(new Data(BufferObjectGL::UP_Stream));
    EXPECT_EQ(roundTrip(streamed)->usagePattern(), BufferObjectGL::UP_Stream);
    const SO<Data> read = roundTrip(data);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->names(), data->names());
    for (const ID & name : data->names()) {
        const auto before = data->buffer(name), after = read->buffer(name);
        ASSERT_EQ(after->bytes(), before->bytes());
        EXPECT_EQ(std::memcmp(after->data(), before->data(), before->bytes()), 0);
        EXPECT_EQ(after->componentType(), before->componentType());
        EXPECT_EQ(after->components(), before->components());
    }
    EXPECT_EQ(RecordedAttributes::of(*streamed), (std::vector<std::string>{"usagePattern", "buffers.Size"}));
}

TEST(MappedVertexAttributeData, DamagedStreamsAreReadModestly) {
    expectModestReading(*twoTriangles(), [](const SO<SharedObj> & object) {
        const auto data = soCast<Data>(object);
        if (!data) return;
        for (const ID & name : data->names()) {
            const auto buffer = data->buffer(name);
            EXPECT_EQ(buffer->bytes(), std::size_t(buffer->count()) * buffer->elementBytes());
        }
    });
}

class MappedVertexAttributeBindingGLTest : public ColumnFixture {};

TEST_F(MappedVertexAttributeBindingGLTest, DrawsRangesAndLeavesTheStateAsFound) {
    const SO<Data> data = twoTriangles();
    draw(); // sets the viewport
    glDisable(GL_DEPTH_TEST);
    const std::vector<int> before = stateOfGL();
    EXPECT_FALSE(data->buffer(Data::VERTEX_ID)->isUploaded());
    glClear(GL_COLOR_BUFFER_BIT);
    {
        const MappedVertexAttributeBindingGL binding(engine.get(), *data);
        EXPECT_TRUE(binding.isBound());
        binding.draw(GL_TRIANGLES, 3, 3);
    }
    EXPECT_TRUE(data->buffer(Data::VERTEX_ID)->isUploaded());
    EXPECT_EQ(before, stateOfGL());
    std::array<std::uint8_t, 4> left{}, right{};
    glReadPixels(8, 32, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, left.data());
    glReadPixels(56, 32, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, right.data());
    EXPECT_EQ(left[0], 0);
    EXPECT_EQ(right[2], 255);
    glEnable(GL_DEPTH_TEST);
}

TEST_F(MappedVertexAttributeBindingGLTest, RangesBeyondTheVerticesAreNotDrawn) {
    const SO<Data> data = twoTriangles();
    const MappedVertexAttributeBindingGL binding(engine.get(), *data);
    binding.draw(GL_TRIANGLES, 4, 3);
    binding.draw(GL_TRIANGLES, -1, 3);
    binding.draw(GL_TRIANGLES, 0, -3);
    binding.draw(GL_TRIANGLES, 7, 2147483647);
    EXPECT_EQ(reports.size(), 4U);
    reports.clear();
    binding.draw(GL_TRIANGLES, 6, 0);
}

TEST_F(MappedVertexAttributeBindingGLTest, WhatCannotBeDrawnIsNotBound) {
    const SO<Data> data = twoTriangles();
    data->setBuffer(Data::NORMAL_ID, new Data::Buffer(GL_FLOAT, 3, 1));
    const MappedVertexAttributeBindingGL binding(engine.get(), *data);
    EXPECT_FALSE(binding.isBound());
    binding.draw(GL_TRIANGLES, 0, 6);
    EXPECT_EQ(reports.count(L"the vertex attributes cannot be drawn"), 1U);
    reports.clear();
}

TEST_F(MappedVertexAttributeBindingGLTest, UnitsTakeTheCoordinatesOfTheirSets) {
    const SO<Data> data = twoTriangles();
    for (const unsigned set : {0U, 2U})
        data->setBuffer(Data::TEXCOORD_ID(set), new Data::Buffer(GL_FLOAT, 2, 6));
    const auto setOf = [&](unsigned unit) {
        GLint buffer = 0;
        glClientActiveTexture(GL_TEXTURE0 + unit);
        glGetIntegerv(GL_TEXTURE_COORD_ARRAY_BUFFER_BINDING, &buffer);
        for (const unsigned set : {0U, 2U})
            if (const auto object = data->buffer(Data::TEXCOORD_ID(set))
                                        ->bufferObject(engine.get(), BufferObjectGL::UP_Static);
                int(object->name()) == buffer)
                return int(set);
        return -1;
    };
    {
        const MappedVertexAttributeBindingGL binding(engine.get(), *data);
        EXPECT_EQ(setOf(0), 0);
        EXPECT_EQ(setOf(1), 0) << "it has none of its own";
        EXPECT_EQ(setOf(2), 2);
    }
    const MappedVertexAttributeBindingGL binding(engine.get(), *data, {2, 2, 0});
    EXPECT_EQ(setOf(0), 2);
    EXPECT_EQ(setOf(1), 2);
    EXPECT_EQ(setOf(2), 0);
}

TEST_F(MappedVertexAttributeBindingGLTest, ArraysOfABindingAroundItAreNotRead) {
    const SO<Data> colored = twoTriangles(), plain = twoTriangles();
    plain->setBuffer(Data::COLOR_ID, nullptr);
    colored->setBuffer(Data::TEXCOORD_ID(1), new Data::Buffer(GL_FLOAT, 2, 6));
    const MappedVertexAttributeBindingGL outer(engine.get(), *colored);
    EXPECT_TRUE(glIsEnabled(GL_COLOR_ARRAY));
    {
        const MappedVertexAttributeBindingGL inner(engine.get(), *plain);
        EXPECT_FALSE(glIsEnabled(GL_COLOR_ARRAY));
        glClientActiveTexture(GL_TEXTURE1);
        EXPECT_FALSE(glIsEnabled(GL_TEXTURE_COORD_ARRAY));
        EXPECT_TRUE(glIsEnabled(GL_VERTEX_ARRAY));
    }
    EXPECT_TRUE(glIsEnabled(GL_COLOR_ARRAY));
}

TEST_F(MappedVertexAttributeBindingGLTest, SendsABufferAgainWhenItWasWritten) {
    const SO<Data> data = twoTriangles();
    const auto colors = data->buffer(Data::COLOR_ID);
    const auto object = colors->bufferObject(engine.get(), BufferObjectGL::UP_Static);
    std::fill_n(static_cast<std::uint8_t *>(colors->mapPointer()), 24, std::uint8_t(7));
    colors->unmapPointer();
    EXPECT_EQ(colors->bufferObject(engine.get(), BufferObjectGL::UP_Static), object);
    const auto * sent = static_cast<const std::uint8_t *>(object->mapPointer(BufferObjectGL::MA_Read));
    EXPECT_EQ(sent[23], 7);
    object->unmapPointer();
}

} // namespace
