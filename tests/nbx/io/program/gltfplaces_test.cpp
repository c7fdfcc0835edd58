#include "nbx/io/program/gltfplaces.h"

#include <gtest/gtest.h>

namespace {

using NBX::GltfPlaces;
using Matrix = std::array<double, 16>;

constexpr Matrix s_unit = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

Matrix matrixOf(const std::string & node) {
    return GltfPlaces(R"({"scenes":[{"nodes":[0]}],"nodes":[{)" + node + "}]}").root().matrix();
}

} // namespace

TEST(GltfPlacesTest, MatricesAreThoseOfTheTextToTheBit) {
    EXPECT_EQ(matrixOf(""), s_unit);
    EXPECT_EQ(matrixOf(R"("translation":[5800000.123456,-2,3],"scale":[2,3,4])"),
              (Matrix{2, 0, 0, 5800000.123456, 0, 3, 0, -2, 0, 0, 4, 3, 0, 0, 0, 1}));
    EXPECT_EQ(matrixOf(R"("rotation":[0,0,1,0])"),
              (Matrix{-1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}));
    EXPECT_EQ(matrixOf(R"("rotation":[0.5,0.5,0.5,0.5],"scale":[2,3,4])"),
              (Matrix{0, 0, 4, 0, 2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0, 1}))
        << "x to y, y to z, z to x";
    EXPECT_EQ(matrixOf(R"("matrix":[1,2,3,4,5,6,7,8,9,10,11,12,5800000.1,14,15,16])"),
              (Matrix{1, 5, 9, 5800000.1, 2, 6, 10, 14, 3, 7, 11, 15, 4, 8, 12, 16}));
}

TEST(GltfPlacesTest, NodesStandBelowThoseOfTheSceneThatIsShown) {
    const GltfPlaces places(R"({"scene":1,"scenes":[{"nodes":[3]},{"nodes":[0,1]}],"nodes":[
        {"children":[2]},{"translation":[1,0,0]},{"translation":[2,0,0]},{"translation":[3,0,0]}]})");
    const GltfPlaces::Node root = places.root();
    ASSERT_EQ(root.children(), 2U);
    EXPECT_EQ(root.matrix(), s_unit);
    ASSERT_EQ(root.child(0).children(), 1U);
    EXPECT_EQ(root.child(0).child(0).matrix()[3], 2.0);
    EXPECT_EQ(root.child(1).matrix()[3], 1.0);
    EXPECT_EQ(root.child(2).matrix(), s_unit);
    EXPECT_EQ(
        GltfPlaces(R"({"scenes":[{"nodes":[0]}],"nodes":[{"translation":[9,0,0]}]})").root().matrix()[3],
        9.0);
}

TEST(GltfPlacesTest, WhatIsNotUnderstoodIsNowhere) {
    for (const char * text :
         {"", "{", "[]", "7", "null", R"({"scenes":7})", R"({"scenes":[]})", R"({"scenes":[{"nodes":[]}]})",
          R"({"scene":-1,"scenes":[{"nodes":[0]}]})", R"({"scene":9,"scenes":[{"nodes":[0,1]}]})",
          R"({"scenes":[{"nodes":[0]}],"nodes":[]})", R"({"scenes":[{"nodes":["a"]}],"nodes":[{}]})",
          R"({"scenes":[{"nodes":[0]}],"nodes":[{"children":3,"matrix":[1],"translation":"a"}]})",
          R"({"scenes":[{"nodes":[0]}],"nodes":[{"translation":[1,2,"3"],"scale":[1,2],"rotation":{}}]})"}) {
        const GltfPlaces places(text);
        const GltfPlaces::Node root = places.root();
        EXPECT_EQ(root.children(), 0U) << text;
        EXPECT_EQ(root.matrix(), s_unit) << text;
    }
    const GltfPlaces cycle(R"({"scenes":[{"nodes":[0]}],"nodes":[{"children":[0]}]})");
    EXPECT_EQ(cycle.root().child(0).child(0).children(), 1U);
}

TEST(GltfPlacesTest, BinaryFilesHaveTheTextInTheirFirstPart) {
    const std::string text = R"({"scenes":[{"nodes":[0]}],"nodes":[{"translation":[9,0,0]}]})";
    const auto glb = [&](std::uint32_t length, const char * kind) {
        std::string bytes = "glTF";
        for (const std::uint32_t number : {2U, 0U, length})
            bytes.append(reinterpret_cast<const char *>(&number), sizeof number);
        return bytes + kind + text + "rest";
    };
    EXPECT_EQ(GltfPlaces(glb(std::uint32_t(text.size()), "JSON")).root().matrix()[3], 9.0);
    EXPECT_EQ(GltfPlaces(glb(std::uint32_t(text.size()), "BIN ")).root().matrix(), s_unit);
    EXPECT_EQ(GltfPlaces(glb(UINT32_MAX, "JSON")).root().matrix(), s_unit);
    EXPECT_EQ(GltfPlaces(glb(3, "JSON").substr(0, 19)).root().matrix(), s_unit);
}
