#include "core/texturedtriangles/texturedtriangletree_impl/rendertreecreator.h"

#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include <nbx/data/file.h>
#include <nbx/object/stringutils.h>
#include <support/cancelingdisplay.h>
#include <support/filesizelimit.h>
#include <support/recordedreports.h>
#include <zmt/core/texturedtriangles/streamtexturegl.h>

#include "citysquares.h"

namespace {

using namespace ZMT::CORE;
using CitySquares::V;
using NBX::Image;
using NBX::SO;
using Tree = TexturedTriangleTree;
using AtlasTree = AtlasTreeGenerator::AtlasTree;
using Bytes = std::vector<std::uint8_t>;
using Node = RenderTree::NodePointer;
using Data = NBX::MappedVertexAttributeDataGL;
using StreamTexture = TTTMemoryController::StreamTexture;

constexpr int s_side = CitySquares::atlasSize;

class RenderTreeCreatorTest : public testing::Test {
protected:
    RenderTreeCreatorTest() { std::filesystem::create_directories(folder); }
    ~RenderTreeCreatorTest() override { std::filesystem::remove_all(folder); }

    SO<RenderTree> create(const SO<TriangleContainer> & triangles,
                          Tree::TextureFormat format = Tree::TextureFormatRGBA8, int layer = 0) {
        return create(triangles, CitySquares::atlasTree(triangles), format, layer);
    }
    SO<RenderTree> create(const SO<TriangleContainer> & triangles, const SO<AtlasTree> & atlases,
                          Tree::TextureFormat format = Tree::TextureFormatRGBA8, int layer = 0) {
        SO<RenderTree> result = RenderTreeCreator::create(
            tree.get(), format, layer, pagingFile(layer), atlases, triangles, CitySquares::distance,
            CitySquares::fieldOfView, CitySquares::screenSize, CitySquares::quality, s_side, nullptr);
        if (result) tree->setRenderTree(result);
        return result;
    }
    std::string path(int layer = 0) const { return folder + "/layer" + std::to_string(layer); }
    std::wstring pagingFile(int layer) const { return NBX::StringUtils::Utf8String2WString(path(layer)); }
    Bytes content(int layer = 0) const { return NBX::File::contents(path(layer)); }
    std::size_t files() const {
        return std::size_t(std::distance(std::filesystem::directory_iterator(folder), {}));
    }
    static std::vector<Node> nodesOf(RenderTree & tree) {
        std::vector<Node> nodes{tree.root()};
        for (std::size_t i = 0; i < nodes.size(); ++i)
            for (unsigned c = 0; tree.hasChildren(nodes[i]) && c < 4; ++c)
                nodes.push_back(tree.child(nodes[i], c));
        return nodes;
    }
    SO<StreamTexture> rootAtlas(int layer = 0) const {
        return NBX::soCast<StreamTexture>(tree->getRootAtlas(layer));
    }
    /// Red, green, blue and alpha of a texel of a node's atlas in RGBA8.
    std::array<int, 4> texel(const Bytes & file, const Node & node, int x, int y) const {
        const bool isRoot = node == tree->getRenderTree()->root();
        const std::uint8_t * block = isRoot
                                         ? static_cast<const std::uint8_t *>(rootAtlas()->data()->pointer())
                                         : &file.at(node->content.blockPositions.at(0));
        const std::uint8_t * bgra = block + (std::size_t(y) * s_side + std::size_t(x)) * 4;
        return {bgra[2], bgra[1], bgra[0], bgra[3]};
    }

    const std::string folder = testing::TempDir() + "zmt_rendertree_" + std::to_string(::getpid());
    RecordedReports reports;
    SO<Tree> tree{new Tree()};
};

const std::vector<unsigned> s_town = {0, 1, 2, 0, 1, 1, 0, 2, 2, 0, 0, 1, 1, 2, 0, 2};

TEST_F(RenderTreeCreatorTest, ATreeOfOneLeafHasSourceTexturesAlone) {
    const SO<RenderTree> made = create(CitySquares::container({0}, 1));
    ASSERT_TRUE(made);
    EXPECT_EQ(1U, made->numberOfNodes());
    const RenderNode & root = made->root()->content;
    EXPECT_TRUE(root.blockPositions.empty());
    EXPECT_TRUE(root.blockSizes.empty());
    EXPECT_EQ(std::vector<std::uint64_t>{0}, root.originalTexturesBlockPositions);
    EXPECT_EQ(std::vector<std::uint64_t>{content().size()}, root.originalTexturesBlockSizes);
    EXPECT_EQ(1.0, root.textureScaleFactor);
    EXPECT_EQ(CitySquares::distance, root.minDistance);
    EXPECT_EQ(6, int(root.triangles->data()->vertices()));
    EXPECT_EQ(NBX::Bounds({0, 0, 0}, {8, 0, 8}), root.bounds);
    ASSERT_TRUE(rootAtlas());
    EXPECT_EQ(s_side, rootAtlas()->width());
    EXPECT_EQ(rootAtlas().get(), root.texture(0).get());
    EXPECT_EQ(1, tree->getNumberOfLayers());
    EXPECT_EQ(pagingFile(0), tree->getPagingFile(0));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(RenderTreeCreatorTest, WrapModesOfSourceTexturesStandInTheLeafWhereNotAllRepeat) {
    using Wrap = NBX::TextureGL::WrapMode;
    const SO<RenderTree> usual = create(CitySquares::container({0}, 2));
    EXPECT_EQ(usual->root()->content.originalTextures->size(), 1U);
    EXPECT_TRUE(usual->root()->content.originalTexturesWrapModes.empty());
    std::vector<TriangleMeshes::Mesh> meshes;
    for (const auto & [s, t] :
         {std::pair(Wrap::WM_Repeat, Wrap::WM_Repeat), {Wrap::WM_ClampToEdge, Wrap::WM_MirroredRepeat}}) {
        const SO<TextureWrapper> texture(new TextureWrapper(
            SO<NBX::ImageTexture2DGL>(new NBX::ImageTexture2DGL(CitySquares::ramp(1), s, t))));
        meshes.push_back({texture, TriangleMeshes::setOf({{0, 0, 0}, {2, 0, 0}, {0, 0, 2}},
                                                         {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}})});
    }
    const SO<RenderTree> made = create(new TriangleContainer(TriangleMeshes::meshesOf(meshes)));
    EXPECT_EQ(made->root()->content.originalTexturesWrapModes, (std::vector<int>{0, 0, 2, 4}));
}

TEST_F(RenderTreeCreatorTest, BlocksFillTheFileAndSharedTexturesStandOnce) {
    const SO<RenderTree> made = create(CitySquares::container(s_town, 4));
    std::map<std::uint64_t, std::uint64_t> blocks;
    std::size_t references = 0, atlases = 0;
    for (const Node & node : nodesOf(*made)) {
        const RenderNode & content = node->content;
        if (node == made->root()) continue;
        ASSERT_EQ(1U, content.blockSizes.size());
        if (content.blockSizes[0] > 0) {
            EXPECT_TRUE(blocks.emplace(content.blockPositions[0], content.blockSizes[0]).second);
            ++atlases;
        }
        for (std::size_t i = 0; i < content.originalTexturesBlockSizes.size(); ++i) {
            blocks[content.originalTexturesBlockPositions[i]] = content.originalTexturesBlockSizes[i];
            ++references;
        }
        EXPECT_EQ(content.originalGeometry.size(), content.originalTexturesBlockSizes.size());
        EXPECT_EQ(std::vector<bool>(content.originalGeometry.size(), false), content.textureStates);
        EXPECT_EQ(content.triangles ? content.originalGeometry.size() : 0U,
                  content.originalTextures ? content.originalTextures->size() : 0U);
    }
    EXPECT_EQ(3 + atlases, blocks.size()) << "three source textures";
    EXPECT_GT(references, 3U);
    std::uint64_t end = 0;
    for (const auto & [position, size] : blocks) {
        EXPECT_EQ(end, position);
        end = position + size;
    }
    EXPECT_EQ(end, content().size());
}

TEST_F(RenderTreeCreatorTest, EveryTriangleStandsInOneLeaf) {
    const SO<RenderTree> made = create(CitySquares::container(s_town, 4));
    std::multiset<std::pair<double, double>> places;
    for (const Node & node : nodesOf(*made)) {
        const RenderNode & content = node->content;
        EXPECT_FALSE(made->hasChildren(node) && content.triangles);
        unsigned inParts = 0;
        for (const auto & part : content.originalGeometry)
            inParts += part->data()->vertices();
        EXPECT_EQ(content.triangles ? content.triangles->data()->vertices() : 0, inParts);
        for (unsigned i = 0; content.triangles && i < content.triangles->data()->vertices(); ++i) {
            const V p = content.triangles->vertex(i);
            EXPECT_TRUE(content.bounds.containsPoint(p));
            places.insert({p.x, p.z});
        }
    }
    EXPECT_EQ(16U * 6, places.size());
    EXPECT_EQ(16U * 4, std::set(places.begin(), places.end()).size());
    EXPECT_EQ(NBX::Bounds({0, 0, 0}, {38, 0, 38}), made->root()->content.bounds);
}

TEST_F(RenderTreeCreatorTest, DistancesDoubleAndScalesHalveFromLevelToLevel) {
    const SO<RenderTree> made = create(CitySquares::container(s_town, 4));
    unsigned deepest = 0;
    for (const Node & node : nodesOf(*made))
        deepest = std::max(deepest, made->depth(node));
    ASSERT_GE(deepest, 2U);
    for (const Node & node : nodesOf(*made)) {
        EXPECT_EQ(std::ldexp(1.0, int(made->depth(node)) - int(deepest)), node->content.textureScaleFactor);
        if (!made->hasChildren(node)) {
            EXPECT_EQ(CitySquares::distance, node->content.minDistance);
            continue;
        }
        double largest = 0.0;
        for (unsigned i = 0; i < 4; ++i)
            largest = std::max(largest, made->child(node, i)->content.minDistance);
        EXPECT_EQ(2.0 * largest, node->content.minDistance);
    }
    const V scale = rootAtlas()->getMatrix() * V(1.0, 1.0, 1.0);
    EXPECT_EQ(std::ldexp(1.0, -int(deepest)), scale.x);
    EXPECT_EQ(std::ldexp(1.0, -int(deepest)), scale.y);
    EXPECT_EQ(1.0, scale.z);
}

/// The tree of `triangles` with all of them in a leaf of depth 2 and none elsewhere.
SO<AtlasTree> lopsided(const SO<TriangleContainer> & triangles) {
    const SO<AtlasTree> atlases(new AtlasTree({0, 0}, {1, 1}, {0, 2}));
    atlases->createChildren(atlases->root());
    const AtlasTree::NodePointer inner = atlases->child(atlases->root(), 1);
    atlases->createChildren(inner);
    const AtlasTree::NodePointer leaf = atlases->child(inner, 2);
    leaf->content.triangles = CitySquares::atlasTree(triangles)->root()->content.triangles;
    leaf->content.imageFile = L"done";
    return atlases;
}

TEST_F(RenderTreeCreatorTest, DistancesOfLopsidedTreesComeFromTheDeepestChild) {
    const SO<TriangleContainer> triangles = CitySquares::container({0}, 1);
    const SO<RenderTree> made = create(triangles, lopsided(triangles));
    EXPECT_EQ(4.0 * CitySquares::distance, made->root()->content.minDistance);
    const Node inner = made->child(made->root(), 1), leaf = made->child(inner, 2);
    EXPECT_EQ(2.0 * CitySquares::distance, inner->content.minDistance);
    EXPECT_EQ(CitySquares::distance, made->child(made->root(), 0)->content.minDistance);
    const SO<Data::Buffer> coordinates = leaf->content.triangles->data()->buffer(Data::TEXCOORD_ID(0));
    for (unsigned i = 0; i < coordinates->count(); ++i) {
        EXPECT_GT(coordinates->value(i, 0), 2.0) << "the right half of four atlases";
        EXPECT_LT(coordinates->value(i, 0), 3.0);
        EXPECT_GT(coordinates->value(i, 1), 1.0);
        EXPECT_LT(coordinates->value(i, 1), 2.0);
    }
}

TEST_F(RenderTreeCreatorTest, ALeafWhoseTrianglesWentToASiblingHasNothing) {
    const SO<TriangleContainer> triangles = CitySquares::container({0}, 1);
    const SO<RenderTree> made = create(triangles, lopsided(triangles));
    const RenderNode & empty = made->child(made->root(), 0)->content;
    EXPECT_EQ(std::vector<std::uint64_t>{0}, empty.blockSizes);
    EXPECT_EQ(std::vector<std::uint64_t>{0}, empty.blockPositions);
    EXPECT_FALSE(empty.triangles);
    EXPECT_FALSE(empty.bounds.isDefined());
    const Bytes file = content();
    for (int y = 0; y < s_side; y += 3)
        for (int x = 0; x < s_side; x += 3)
            EXPECT_EQ(x >= s_side / 2 && y<s_side / 2, texel(file, made->root(), x, y)[3]> 0 ||
                      (x >= s_side / 2 && y < s_side / 2))
                << x << ' ' << y;
}

TEST_F(RenderTreeCreatorTest, WhatFindsNoRoomLeavesItsQuarterBlank) {
    const SO<TriangleContainer> triangles = CitySquares::container(std::vector<unsigned>(9, 0), 3);
    const SO<AtlasTree> atlases(new AtlasTree({0, 0}, {1, 1}, {0, 2}));
    atlases->createChildren(atlases->root());
    const SO<NBX::NonPersistentArray<TriangleContainer::TriangleID>> all(
        new NBX::NonPersistentArray<TriangleContainer::TriangleID>());
    for (int i = 0; i < 18; ++i)
        all->append({0, i});
    const AtlasTree::NodePointer leaf = atlases->child(atlases->root(), 3);
    leaf->content.triangles = all.get();
    leaf->content.imageFile = L"done";
    const SO<RenderTree> made = create(triangles, atlases);
    ASSERT_TRUE(made);
    EXPECT_EQ(0U, made->child(made->root(), 3)->content.blockSizes.at(0));
    EXPECT_EQ((std::array<int, 4>{0, 0, 0, 0}), texel(content(), made->root(), 40, 40));
}

TEST_F(RenderTreeCreatorTest, ParentsAreTheFilteredAtlasesOfTheirChildren) {
    const SO<RenderTree> made = create(CitySquares::container(s_town, 4));
    const Bytes file = content();
    unsigned compared = 0;
    for (const Node & node : nodesOf(*made)) {
        if (!made->hasChildren(node)) continue;
        for (unsigned i = 0; i < 4; ++i) {
            const Node child = made->child(node, i);
            for (int y = 0; y < s_side / 2; ++y)
                for (int x = 0; x < s_side / 2; ++x) {
                    const int left = int(i & 1) * s_side / 2, low = int(i >> 1) * s_side / 2;
                    const std::array<int, 4> parent = texel(file, node, left + x, low + y);
                    for (unsigned layer = 0; layer < 4; ++layer) {
                        double mean = 0.0;
                        for (int k = 0; child->content.blockSizes[0] > 0 && k < 4; ++k)
                            mean += texel(file, child, 2 * x + k % 2, 2 * y + k / 2)[layer] / 4.0;
                        ASSERT_NEAR(mean, parent[layer], 0.51) << i << ": " << x << ' ' << y;
                    }
                }
            ++compared;
        }
    }
    EXPECT_GE(compared, 8U);
}

/// Of all levels, what a triangle looks up is what its texture has there.
TEST_F(RenderTreeCreatorTest, AtlasesShowTheTexturesWhereTrianglesLookThemUp) {
    const SO<RenderTree> made = create(CitySquares::container(s_town, 4));
    const Bytes file = content();
    for (const Node & leaf : nodesOf(*made)) {
        for (std::size_t part = 0; part < leaf->content.originalGeometry.size(); ++part) {
            const Data & data = *leaf->content.originalGeometry[part]->data();
            const SO<Data::Buffer> source = data.buffer(Data::TEXCOORD_ID(0)),
                                   inTree = data.buffer(Data::TEXCOORD_ID(1));
            for (unsigned i = 0; i + 2 < data.vertices(); i += 3) {
                const auto middle = [i](const Data::Buffer & buffer, unsigned c) {
                    return (buffer.value(i, c) + buffer.value(i + 1, c) + buffer.value(i + 2, c)) / 3.0;
                };
                for (Node node = leaf; node; node = made->parent(node)) {
                    const double scale = node->content.textureScaleFactor;
                    const auto place = [&](unsigned c) {
                        const double coordinate = middle(*inTree, c) * scale;
                        return int((coordinate - std::floor(coordinate)) * s_side);
                    };
                    const std::array<int, 4> seen = texel(file, node, place(0), place(1));
                    // Texels of the ramp are 8 steps of its colours.
                    const double step = 8.0 / std::sqrt(scale) * std::sqrt(leaf->content.textureScaleFactor);
                    const double allowed =
                        step * std::ldexp(1.0, int(made->depth(leaf)) - int(made->depth(node)));
                    EXPECT_NEAR(middle(*source, 0) * 255.0, seen[0], allowed + 1.0);
                    EXPECT_NEAR(middle(*source, 1) * 255.0, seen[1], allowed + 1.0);
                }
            }
        }
    }
}

TEST_F(RenderTreeCreatorTest, LeavesOfAllKindsHaveTheSameAttributes) {
    const SO<RenderTree> made = create(CitySquares::container(s_town, 4));
    for (const Node & node : nodesOf(*made)) {
        if (!node->content.triangles) continue;
        const Data & data = *node->content.triangles->data();
        EXPECT_EQ((std::vector<NBX::ID>{Data::VERTEX_ID, Data::COLOR_ID, Data::TEXCOORD_ID(0)}),
                  data.names());
        EXPECT_EQ(255.0, data.buffer(Data::COLOR_ID)->value(0, 1)) << "white";
        EXPECT_EQ(NBX::BufferObjectGL::UP_Static, data.usagePattern());
    }
}

TEST_F(RenderTreeCreatorTest, TheSameTrianglesGiveTheSameBytes) {
    for (int format = 0; format <= Tree::TextureFormatJPEG; ++format) {
        const auto textureFormat = Tree::TextureFormat(format);
        ASSERT_TRUE(create(CitySquares::container(s_town, 4), textureFormat));
        EXPECT_EQ(textureFormat, tree->getLayerFormat(0));
        const Bytes first = content();
        tree = new Tree();
        ASSERT_TRUE(create(CitySquares::container(s_town, 4), textureFormat));
        EXPECT_TRUE(first == content()) << format;
        EXPECT_EQ(1U, files());
        tree = new Tree();
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(RenderTreeCreatorTest, ACancelLeavesNothing) {
    const auto container = CitySquares::container(s_town, 4);
    const auto atlasTree = CitySquares::atlasTree(container);
    const CancelingDisplay display;
    EXPECT_FALSE(create(container, atlasTree));
    EXPECT_FALSE(CitySquares::atlasTree(container));
    EXPECT_EQ(0U, files());
    EXPECT_EQ(0, tree->getNumberOfLayers());
    EXPECT_TRUE(reports.empty()) << reports;
}

/// Counts how often it is decoded.
class CountedRamp : public NBX::MemoryImage {
    NBX_TEMPLATE_CLASS(CountedRamp, NBX::MemoryImage)
public:
    explicit CountedRamp(unsigned number)
        : MemoryImage(CitySquares::textureSize, CitySquares::textureSize, NBX::LS_RGB) {
        copy(CitySquares::ramp(number).get());
    }
    SO<Image> uncompressed(bool ownCopy) override {
        ++s_decoded;
        return MemoryImage::uncompressed(ownCopy);
    }
    static inline int s_decoded = 0;
};

/// Neither drawn nor written.
TEST_F(RenderTreeCreatorTest, ACancelIsHeardBetweenTextures) {
    const auto container = CitySquares::container(
        {0, 1, 2, 3}, 2, [](unsigned number) { return SO<Image>(new CountedRamp(number)); });
    const auto atlasTree = CitySquares::atlasTree(container);
    const CancelingDisplay display;
    CountedRamp::s_decoded = 0;
    EXPECT_FALSE(create(container, atlasTree));
    EXPECT_EQ(CountedRamp::s_decoded, 0);
    EXPECT_EQ(0U, files());
}

TEST_F(RenderTreeCreatorTest, APictureOfTwoWrapModesStandsOnce) {
    using Wrap = NBX::TextureGL::WrapMode;
    const SO<Image> image = CitySquares::ramp(1);
    std::vector<TriangleMeshes::Mesh> meshes;
    for (const Wrap wrap : {Wrap::WM_Repeat, Wrap::WM_MirroredRepeat})
        meshes.push_back(
            {SO<TextureWrapper>(
                 new TextureWrapper(SO<NBX::ImageTexture2DGL>(new NBX::ImageTexture2DGL(image, wrap, wrap)))),
             TriangleMeshes::setOf({{0, 0, 0}, {2, 0, 0}, {0, 0, 2}}, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}})});
    const SO<RenderTree> made = create(new TriangleContainer(TriangleMeshes::meshesOf(meshes)));
    const RenderNode & root = made->root()->content;
    EXPECT_EQ(2U, root.originalGeometry.size());
    EXPECT_EQ(root.originalTexturesWrapModes, (std::vector<int>{0, 0, 4, 4}));
    EXPECT_EQ((std::vector<std::uint64_t>{0, 0}), root.originalTexturesBlockPositions);
    EXPECT_EQ((std::vector<std::uint64_t>{content().size(), content().size()}),
              root.originalTexturesBlockSizes);
}

/// What is sharp stays so.
TEST_F(RenderTreeCreatorTest, ALayerForASmallerDistanceLeavesTheDistancesAsTheyAre) {
    const SO<RenderTree> made = create(CitySquares::container(s_town, 4));
    std::vector<double> before;
    for (const Node & node : nodesOf(*made))
        before.push_back(node->content.minDistance);
    const SO<TriangleContainer> triangles = CitySquares::container(s_town, 4);
    EXPECT_TRUE(RenderTreeCreator::create(
        tree.get(), Tree::TextureFormatRGBA8, 1, pagingFile(1), CitySquares::atlasTree(triangles), triangles,
        0.5 * CitySquares::distance, CitySquares::fieldOfView, CitySquares::screenSize,
        0.5 * CitySquares::quality, s_side, nullptr));
    std::vector<double> after;
    for (const Node & node : nodesOf(*made))
        after.push_back(node->content.minDistance);
    EXPECT_EQ(before, after);
}

TEST_F(RenderTreeCreatorTest, AFurtherLayerStandsInTheSameNodes) {
    const SO<RenderTree> made = create(CitySquares::container(s_town, 4));
    std::vector<std::uint64_t> before;
    for (const Node & node : nodesOf(*made))
        before.insert(before.end(), node->content.blockPositions.begin(), node->content.blockPositions.end());
    const auto light = [](unsigned number) { return CitySquares::ramp(number, NBX::LS_Luminance); };
    EXPECT_EQ(made, create(CitySquares::container(s_town, 4, light), Tree::TextureFormatLuminance8, 1));
    EXPECT_EQ(2, tree->getNumberOfLayers());
    EXPECT_EQ(Tree::TextureFormatLuminance8, tree->getLayerFormat(1));
    EXPECT_EQ(Tree::TextureFormatRGBA8, tree->getLayerFormat(0));
    std::vector<std::uint64_t> after;
    std::uint64_t end = 0;
    for (const Node & node : nodesOf(*made)) {
        if (node == made->root()) continue;
        after.push_back(node->content.blockPositions.at(0));
        ASSERT_EQ(2U, node->content.blockSizes.size());
        EXPECT_EQ(node->content.blockSizes[0] > 0, node->content.blockSizes[1] > 0);
        end = std::max(end, node->content.blockPositions[1] + node->content.blockSizes[1]);
    }
    EXPECT_EQ(before, after);
    EXPECT_EQ(end, content(1).size()) << "no source textures";
    EXPECT_TRUE(made->root()->content.texture(1));
    EXPECT_TRUE(reports.empty()) << reports;
}

struct NodeState {
    double minDistance, textureScaleFactor;
    std::vector<std::uint64_t> positions, sizes;
    NBX::Bounds bounds;

    bool operator==(const NodeState & b) const {
        return minDistance == b.minDistance && textureScaleFactor == b.textureScaleFactor &&
               positions == b.positions && sizes == b.sizes && !(bounds != b.bounds);
    }
};

TEST_F(RenderTreeCreatorTest, ALayerThatIsCanceledOrFailsLeavesTheTreeAsItWas) {
    const SO<RenderTree> made = create(CitySquares::container(s_town, 4));
    const auto states = [&made] {
        std::vector<NodeState> all;
        for (const Node & node : nodesOf(*made)) {
            const RenderNode & c = node->content;
            all.push_back({c.minDistance, c.textureScaleFactor, c.blockPositions, c.blockSizes, c.bounds});
        }
        return all;
    };
    // Seen from twice as far, so that all distances are others.
    const auto createLayer = [this] {
        const SO<TriangleContainer> triangles = CitySquares::container(s_town, 4);
        return RenderTreeCreator::create(tree.get(), Tree::TextureFormatRGBA8, 1, pagingFile(1),
                                         CitySquares::atlasTree(triangles), triangles,
                                         2.0 * CitySquares::distance, CitySquares::fieldOfView,
                                         CitySquares::screenSize, CitySquares::quality, s_side, nullptr);
    };
    const std::vector<NodeState> before = states();
    const auto expectNothing = [&](const char * what) {
        EXPECT_TRUE(before == states()) << what;
        EXPECT_EQ(1, tree->getNumberOfLayers()) << what;
        EXPECT_EQ(1U, files()) << what;
        EXPECT_FALSE(made->root()->content.texture(1)) << what;
    };
    {
        const CancelingDisplay display;
        EXPECT_FALSE(createLayer());
    }
    expectNothing("canceled");
    {
        const FileSizeLimit fullDisk(100'000);
        EXPECT_THROW(createLayer(), NBX::IOException);
    }
    expectNothing("full disk");
    EXPECT_EQ(made, createLayer());
    for (const Node & node : nodesOf(*made)) {
        EXPECT_EQ(node == made->root() ? 0U : 2U, node->content.blockSizes.size());
        const double least = made->hasChildren(node) ? 4.0 : 2.0;
        EXPECT_LE(least * CitySquares::distance, node->content.minDistance);
    }
    EXPECT_EQ(2.0 * before.front().minDistance, made->root()->content.minDistance);
}

TEST_F(RenderTreeCreatorTest, SourceTexturesBelongToTheFirstLayer) {
    const SO<RenderTree> made =
        create(CitySquares::container({0}, 1), Tree::TextureFormatLuminance8, 1); // of a tree without any
    ASSERT_TRUE(made);
    EXPECT_EQ(0U, content(1).size());
    EXPECT_TRUE(made->root()->content.originalTexturesBlockSizes.empty());
    EXPECT_TRUE(made->root()->content.triangles);
}

TEST_F(RenderTreeCreatorTest, ALayerOfOtherTrianglesIsRefused) {
    const SO<RenderTree> made = create(CitySquares::container(s_town, 4));
    EXPECT_FALSE(create(CitySquares::container({0}, 1), Tree::TextureFormatRGBA8, 1));
    EXPECT_EQ(1U, reports.size()) << reports;
    EXPECT_EQ(1U, files());
    EXPECT_EQ(1, tree->getNumberOfLayers());
}

TEST_F(RenderTreeCreatorTest, TexturesThatVanishedAreGrey) {
    const SO<TriangleContainer> triangles =
        CitySquares::container({0, 0}, 2, [](unsigned) { return SO<Image>(); });
    const SO<RenderTree> made = create(triangles);
    ASSERT_TRUE(made);
    EXPECT_EQ(1U, made->root()->content.originalTexturesBlockSizes.size());
    const SO<Data::Buffer> coordinates =
        made->root()->content.triangles->data()->buffer(Data::TEXCOORD_ID(0));
    const std::array<int, 4> seen = texel(content(), made->root(), int(coordinates->value(0, 0) * s_side) + 1,
                                          int(coordinates->value(0, 1) * s_side) + 1);
    EXPECT_EQ((std::array<int, 4>{191, 191, 191, 255}), seen);
    EXPECT_EQ(1U, reports.count(2, L"texData", L"no texture")) << reports;
}

/// Else the leaf would wait for it, and read the others, for ever.
TEST_F(RenderTreeCreatorTest, ATextureThatVanishedHasABlockAsWell) {
    const SO<TriangleContainer> triangles = CitySquares::container({0, 1, 2, 3}, 2, [](unsigned number) {
        return number % 2 == 0 ? SO<Image>() : CitySquares::ramp(number);
    });
    const SO<RenderTree> made = create(triangles);
    ASSERT_TRUE(made);
    std::size_t textures = 0;
    std::set<std::uint64_t> blocks;
    for (const Node & node : nodesOf(*made)) {
        const RenderNode & content = node->content;
        for (std::size_t i = 0; i < content.originalTexturesBlockSizes.size(); ++i) {
            ++textures;
            EXPECT_GT(content.originalTexturesBlockSizes[i], 0U);
            EXPECT_LE(content.originalTexturesBlockPositions[i] + content.originalTexturesBlockSizes[i],
                      RenderTreeCreatorTest::content().size());
            blocks.insert(content.originalTexturesBlockPositions[i]);
        }
    }
    EXPECT_GE(textures, 4U);
    EXPECT_EQ(3U, blocks.size()) << "those that vanished share one";
}

} // namespace
