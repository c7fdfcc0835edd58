#include "core/texturedtriangles/texturedtriangletree_impl/rendertreelayer.h"

#include <filesystem>
#include <map>

#include <gtest/gtest.h>

#include <nbx/data/file.h>
#include <nbx/object/stringutils.h>
#include <support/recordedreports.h>
#include <zmt/core/texturedtriangles/streamtexturegl.h>

#include "citysquares.h"
#include "core/texturedtriangles/texturedtriangletree_impl/rendertreecreator.h"

namespace {

using namespace ZMT::CORE;
using NBX::Image;
using NBX::SO;
using Tree = TexturedTriangleTree;

constexpr int s_edge = CitySquares::atlasSize;

class RenderTreeLayerTest : public testing::Test {
protected:
    RenderTreeLayerTest() {
        std::filesystem::create_directories(folder);
        build({0, 1, 2, 0, 1, 1, 0, 2, 2, 0, 0, 1, 1, 2, 0, 2});
    }
    void build(const std::vector<unsigned> & textures) {
        tree = SO<Tree>(new Tree());
        const auto triangles = CitySquares::container(textures, 4);
        nodes = RenderTreeCreator::create(tree.get(), Tree::TextureFormatDXT1, 0, wide("layer0"),
                                          CitySquares::atlasTree(triangles), triangles, CitySquares::distance,
                                          CitySquares::fieldOfView, CitySquares::screenSize,
                                          CitySquares::quality, s_edge, nullptr);
        tree->setRenderTree(nodes);
        tree->setAtlasSize(s_edge);
    }
    ~RenderTreeLayerTest() override { std::filesystem::remove_all(folder); }
    std::wstring wide(const std::string & name) const {
        return NBX::StringUtils::Utf8String2WString(folder + "/" + name);
    }
    bool add(const RenderTreeLayer::Draw & draw) const {
        return RenderTreeLayer::add(*tree, Tree::TextureFormatLuminance8, 1, wide("layer1"), draw);
    }

    const std::string folder = testing::TempDir() + "zmt_treelayer_" + std::to_string(::getpid());
    RecordedReports reports;
    SO<Tree> tree{new Tree()};
    SO<RenderTree> nodes;
};

SO<Image> grey(int value) {
    SO<Image> image(new NBX::MemoryImage(s_edge, s_edge, NBX::LS_RGB));
    for (int y = 0; y < s_edge; ++y)
        std::fill_n(image->lineComponentsU8(y), 3 * s_edge, static_cast<unsigned char>(value));
    return image;
}

TEST_F(RenderTreeLayerTest, NodesHaveWhatWasDrawnForTheirLeaves) {
    std::map<const RenderNode *, int> drawn;
    ASSERT_TRUE(add([&](const RenderNode & leaf) {
        drawn[&leaf] = 20 + 10 * int(drawn.size());
        return grey(drawn[&leaf]);
    }));
    EXPECT_EQ(2, tree->getNumberOfLayers());
    EXPECT_TRUE(tree->getLayerEnabled(1));
    EXPECT_EQ(Tree::TextureFormatLuminance8, tree->getLayerFormat(1));
    EXPECT_EQ(wide("layer1"), tree->getPagingFile(1));
    const auto bytes = NBX::File::contents(folder + "/layer1");
    std::uint64_t end = 0;
    std::vector<RenderTree::NodePointer> waiting{nodes->root()};
    std::size_t leaves = 0;
    while (!waiting.empty()) {
        const auto node = waiting.back();
        waiting.pop_back();
        const RenderNode & content = node->content;
        if (node != nodes->root()) {
            ASSERT_EQ(2U, content.blockSizes.size());
            EXPECT_EQ(content.blockSizes[0] > 0, content.blockSizes[1] > 0);
            end = std::max(end, content.blockPositions[1] + content.blockSizes[1]);
        }
        if (content.triangles) {
            ++leaves;
            EXPECT_EQ(drawn.at(&content), bytes.at(content.blockPositions[1] + s_edge * 7 + 9));
        }
        for (unsigned i = 0; nodes->hasChildren(node) && i < 4; ++i) {
            const auto child = nodes->child(node, i);
            waiting.push_back(child);
            if (node == nodes->root() || !child->content.triangles) continue;
            const std::size_t x = (i & 1) * s_edge / 2 + 5, y = (i >> 1) * s_edge / 2 + 5;
            EXPECT_EQ(drawn.at(&child->content), bytes.at(content.blockPositions[1] + s_edge * y + x))
                << "the same quarter of the parent";
        }
    }
    EXPECT_EQ(drawn.size(), leaves);
    EXPECT_GE(leaves, 4U);
    EXPECT_EQ(end, bytes.size());
    const auto root = NBX::soCast<TTTMemoryController::StreamTexture>(tree->getRootAtlas(1));
    ASSERT_TRUE(root);
    EXPECT_EQ(root.get(), nodes->root()->content.texture(1).get());
    EXPECT_EQ(nodes->root()->content.textureScaleFactor, root->getMatrix()(0, 0));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(RenderTreeLayerTest, ALayerThatIsGivenUpLeavesNothing) {
    int drawn = 0;
    EXPECT_FALSE(add([&](const RenderNode &) { return ++drawn < 3 ? grey(1) : nullptr; }));
    EXPECT_EQ(3, drawn) << "no leaf is drawn behind it";
    EXPECT_EQ(1, tree->getNumberOfLayers());
    EXPECT_EQ(std::vector<std::string>{"layer0"}, NBX::File::matchingEntries(folder, "*"));
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(1U, nodes->child(nodes->root(), i)->content.blockSizes.size());
}

TEST_F(RenderTreeLayerTest, ATreeOfOneLeafNeedsNoFileOfItsOwn) {
    build({0});
    ASSERT_EQ(1U, nodes->numberOfNodes());
    ASSERT_TRUE(add([](const RenderNode &) { return grey(77); }));
    EXPECT_EQ(2, tree->getNumberOfLayers());
    EXPECT_EQ(tree->getPagingFile(0), tree->getPagingFile(1));
    EXPECT_EQ(std::vector<std::string>{"layer0"}, NBX::File::matchingEntries(folder, "*"));
    const auto root = NBX::soCast<TTTMemoryController::StreamTexture>(tree->getRootAtlas(1));
    EXPECT_EQ(77, static_cast<const unsigned char *>(root->data()->pointer())[100]);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(RenderTreeLayerTest, ATreeWithoutNodesIsReported) {
    tree = SO<Tree>(new Tree());
    EXPECT_FALSE(add([](const RenderNode &) { return grey(1); }));
    EXPECT_EQ(1U, reports.size());
}

} // namespace
