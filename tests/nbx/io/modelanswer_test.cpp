#include "nbx/io/modelanswer.h"

#include <cstring>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "support/damagedfiles.h"

using NBX::ModelAnswer;

namespace {

using Bytes = std::vector<std::uint8_t>;

ModelAnswer small() {
    ModelAnswer answer;
    answer.up = ModelAnswer::U_Z;
    answer.unit = 0.5;
    answer.textures = {{"a", 0, 0, {1, 2, 3}}, {"b", 1, 2, {1, 2, 3, 4, 5, 6, 7, 8}}};
    answer.materials.resize(2);
    answer.materials[0].texture = "wall.png";
    answer.materials[1].embedded = 1;
    answer.materials[1].isOpaque = 1;
    answer.materials[1].wrapT = ModelAnswer::W_MirroredRepeat;
    answer.meshes = {{"m",
                      1,
                      {0, 0, 0, 1, 0, 0, 0, 1, 0},
                      {0, 0, 1, 0, 0, 1, 0, 0, 1},
                      std::vector<float>(12, 0.5F),
                      {0, 0, 1, 0, 0, 1},
                      {0, 1, 2}}};
    answer.nodes.resize(2);
    answer.nodes[1].parent = 0;
    answer.nodes[1].name = "leaf";
    answer.nodes[1].matrix[3] = 5e6 + 0.001;
    answer.nodes[1].meshes = {0, 0};
    answer.leftOut = {"one", "two"};
    return answer;
}

bool isRead(const ModelAnswer & answer) {
    ModelAnswer result;
    return ModelAnswer::read(answer.bytes(), result);
}

/// Whether an answer with one change is still read.
template <class Change> bool isReadWith(Change change) {
    ModelAnswer answer = small();
    change(answer);
    return isRead(answer);
}

} // namespace

TEST(ModelAnswerTest, IsReadAsItWasWritten) {
    ModelAnswer result;
    ASSERT_TRUE(ModelAnswer::read(small().bytes(), result));
    EXPECT_EQ(result, small());
    ASSERT_TRUE(ModelAnswer::read(ModelAnswer().bytes(), result));
    EXPECT_EQ(result, ModelAnswer());
}

TEST(ModelAnswerTest, NoBeginningIsRead) {
    const Bytes whole = small().bytes();
    ModelAnswer result;
    for (std::size_t size = 0; size < whole.size(); ++size)
        ASSERT_FALSE(ModelAnswer::read(Bytes(whole.begin(), whole.begin() + long(size)), result)) << size;
    Bytes longer = whole;
    longer.push_back(0);
    EXPECT_FALSE(ModelAnswer::read(longer, result));
}

TEST(ModelAnswerTest, ChangedBytesAreHarmless) {
    const Bytes whole = small().bytes();
    std::mt19937 random(5);
    for (int i = 0; i < 20000; ++i) {
        Bytes changed = whole;
        for (unsigned k = 0; k <= random() % 3; ++k)
            changed[random() % changed.size()] = static_cast<std::uint8_t>(random() % 4 ? random() : 0xFF);
        ModelAnswer result;
        if (!ModelAnswer::read(changed, result)) continue;
        for (const ModelAnswer::Mesh & mesh : result.meshes)
            for (const std::uint32_t index : mesh.triangles)
                ASSERT_LT(index, mesh.positions.size() / 3);
    }
}

TEST(ModelAnswerTest, CountsBeyondTheBytesAreRefusedBeforeMemoryIsTaken) {
    Bytes bytes = ModelAnswer().bytes();
    ModelAnswer result;
    // The first count is that of the letters of the failure.
    for (const std::uint64_t count : {std::uint64_t{1} << 40, ~std::uint64_t{0}, std::uint64_t{1} << 62}) {
        std::memcpy(bytes.data() + 8, &count, sizeof count);
        EXPECT_FALSE(ModelAnswer::read(bytes, result));
    }
}

TEST(ModelAnswerTest, ElementsThatTheBytesCannotHoldTakeNoMemory) {
    // As many textures as there are bytes behind their number: each of them needs more than one.
    Bytes bytes = ModelAnswer().bytes();
    const std::size_t at = 8 + 8 + 4 + 8;
    const std::uint64_t count = 8U << 20U;
    bytes.resize(at + 8 + count);
    std::memcpy(bytes.data() + at, &count, sizeof count);
    const ModestLook look(bytes.size());
    ModelAnswer result;
    EXPECT_FALSE(ModelAnswer::read(bytes, result));
}

TEST(ModelAnswerTest, WhatContradictsItselfIsRefused) {
    EXPECT_TRUE(isReadWith([](ModelAnswer &) {}));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.up = 4; }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.unit = -1.0; }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.unit = std::numeric_limits<double>::quiet_NaN(); }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.textures[1].height = 3; }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.textures[1].height = 0; }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) {
        a.textures[1].width = 1U << 31;
        a.textures[1].height = 1U << 31;
        a.textures[1].bytes.clear();
    }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.materials[1].embedded = 2; }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.materials[1].embedded = -2; }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.materials[0].wrapS = 1; }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.materials[0].isOpaque = 2; }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.meshes[0].material = 2; }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.meshes[0].positions.pop_back(); }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.meshes[0].normals.resize(6); }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.meshes[0].colors.resize(8); }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.meshes[0].coordinates.resize(4); }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.meshes[0].triangles.pop_back(); }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.meshes[0].triangles[1] = 3; }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.nodes[0].parent = 0; }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.nodes[1].parent = 1; }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.nodes[1].parent = -1; }));
    EXPECT_FALSE(isReadWith([](ModelAnswer & a) { a.nodes[1].meshes[1] = 1; }));
}

TEST(ModelAnswerTest, ListsThatAreLeftOutAreNoContradiction) {
    EXPECT_TRUE(isReadWith([](ModelAnswer & a) {
        a.meshes[0].normals.clear();
        a.meshes[0].colors.clear();
        a.meshes[0].coordinates.clear();
        a.meshes[0].triangles.clear();
    }));
}

TEST(ModelAnswerTest, NodesThatLieTooDeepAreRefused) {
    const auto chain = [](unsigned length) {
        ModelAnswer answer;
        answer.nodes.resize(length);
        for (unsigned i = 1; i < length; ++i)
            answer.nodes[i].parent = static_cast<std::int32_t>(i) - 1;
        return answer;
    };
    EXPECT_TRUE(isRead(chain(501)));
    EXPECT_FALSE(isRead(chain(502)));
}
