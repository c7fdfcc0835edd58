#include <zmt/core/texturedtriangles/texturedtriangletree.h>

#include <gtest/gtest.h>

#include <nbx/container/sequence/serializevalues.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/scene/shape/polygonset.h>
#include <support/damagedstreams.h>
#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>
#include <support/slotorder.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

#include "onetriangle.h"

namespace ZMT::CORE {
namespace {

using NBX::SO;
using Mesh = NBX::MappedVertexAttributeShapeGL;
using V = NBX::Vector3Base<double>;
using Tree = TexturedTriangleTree;

SO<NBX::SharedObj> atlas() {
    return new NBX::ImageTexture2DGL(new NBX::MemoryImage(2, 2, NBX::LS_RGB));
}

/// A root with four children, the first of which has triangles; two layers.
SO<Tree> smallTree() {
    const SO<Tree> tree(new Tree());
    const SO<RenderTree> nodes(new RenderTree({0.0, 0.0}, {1.0, 1.0}, {0U, 2U}));
    nodes->createChildren(nodes->root());
    nodes->root()->content.bounds = NBX::Bounds(V(0, 0, 0), V(1, 1, 0));
    RenderNode & leaf = nodes->child(nodes->root(), 0)->content;
    leaf.triangles = oneTriangle(0);
    leaf.bounds = NBX::Bounds(V(0, 0, 0), V(1, 1, 0));
    leaf.blockPositions = {0, 100};
    leaf.blockSizes = {100, 50};
    leaf.originalTextures = new RenderNode::Textures(1);
    leaf.originalGeometry = {oneTriangle(0)};
    tree->setRenderTree(nodes);
    tree->setUntexturedGeometry(oneTriangle(5));
    tree->setAtlasSize(256);
    tree->registerTextureLayer(0, L"a.opaque", atlas(), Tree::TextureFormatDXT1);
    tree->registerTextureLayer(1, L"b.opaque", atlas(), Tree::TextureFormatLuminance8);
    return tree;
}

TEST(TexturedTriangleTree, HasItsDefaults) {
    const SO<Tree> tree(new Tree());
    EXPECT_FALSE(tree->getRenderTree());
    EXPECT_FALSE(tree->getUntexturedGeometry());
    EXPECT_FALSE(tree->maxDistanceEnabled());
    EXPECT_EQ(tree->maxDistance(), 0.0);
    EXPECT_EQ(tree->getQualityFactor(), 1.0);
    EXPECT_FALSE(tree->getBlendingMode());
    EXPECT_EQ(tree->getNumberOfLayers(), 0);
    EXPECT_FALSE(tree->useAlphaTextures());
    EXPECT_FALSE(tree->boundingBox().isDefined());
    EXPECT_TRUE(tree->isEnabled());
    EXPECT_TRUE(tree->isRegisteredForSerialization());
    EXPECT_TRUE(NBX::SerializationManager::isRegistered(Tree::ClassNameNBX()));
}

TEST(TexturedTriangleTree, SettingsOfTheClass) {
    EXPECT_EQ(Tree::getDefaultTextureFormat(), 2);
    EXPECT_FALSE(Tree::uniqueTextureParameterizationEnforced());
    EXPECT_FALSE(Tree::getVerbose());
    Tree::setDefaultTextureFormat(Tree::TextureFormatJPEG);
    Tree::enforceUniqueTextureParameterization(true);
    Tree::setVerbose(true);
    EXPECT_EQ(Tree::getDefaultTextureFormat(), 4);
    EXPECT_TRUE(Tree::uniqueTextureParameterizationEnforced());
    EXPECT_TRUE(Tree::getVerbose());
    Tree::setDefaultTextureFormat(Tree::TextureFormatRGBA5551);
    Tree::enforceUniqueTextureParameterization(false);
    Tree::setVerbose(false);
}

TEST(TexturedTriangleTree, OperationsKeepTheirOrder) {
    EXPECT_TRUE(inSlotOrder(&Tree::accept, &Tree::isEqual, &Tree::classInfoNBX, &Tree::serialize,
                            &Tree::isRegisteredForSerialization, &Tree::boundingBox));
}

TEST(TexturedTriangleTree, ItsBoxIsThatOfTheUntexturedGeometryAndOfTheRoot) {
    const SO<Tree> tree(new Tree());
    tree->setUntexturedGeometry(oneTriangle(5));
    EXPECT_EQ(tree->boundingBox(), NBX::Bounds(V(5, 0, 0), V(6, 1, 0)));
    tree->setRenderTree(new RenderTree());
    EXPECT_EQ(tree->boundingBox(), NBX::Bounds(V(5, 0, 0), V(6, 1, 0))) << "an undefined root adds nothing";
    tree->getRenderTree()->root()->content.bounds = NBX::Bounds(V(0, 0, 0), V(1, 1, 3));
    EXPECT_EQ(tree->boundingBox(), NBX::Bounds(V(0, 0, 0), V(6, 1, 3)));
    tree->setUntexturedGeometry(nullptr);
    EXPECT_EQ(tree->boundingBox(), NBX::Bounds(V(0, 0, 0), V(1, 1, 3)));
}

TEST(TexturedTriangleTree, RegisteringALayerMakesThoseBelow) {
    RecordedReports reports;
    const SO<Tree> tree(new Tree());
    const SO<NBX::SharedObj> texture = atlas();
    tree->registerTextureLayer(1, L"light", texture, Tree::TextureFormatLuminance8);
    EXPECT_EQ(tree->getNumberOfLayers(), 2);
    EXPECT_EQ(tree->getPagingFile(0), L"");
    EXPECT_EQ(tree->getPagingFile(1), L"light");
    EXPECT_EQ(tree->getLayerFormat(0), Tree::TextureFormatRGBA8);
    EXPECT_EQ(tree->getLayerFormat(1), Tree::TextureFormatLuminance8);
    EXPECT_FALSE(tree->getLayerEnabled(0));
    EXPECT_TRUE(tree->getLayerEnabled(1));
    EXPECT_EQ(tree->getRootAtlas(1), texture);
    EXPECT_FALSE(tree->getRootAtlas(0));
    tree->setLayerEnabled(1, false);
    tree->registerTextureLayer(0, L"colour", nullptr, Tree::TextureFormatJPEG);
    EXPECT_EQ(tree->getNumberOfLayers(), 2);
    EXPECT_TRUE(tree->getLayerEnabled(0));
    EXPECT_FALSE(tree->getLayerEnabled(1));
    EXPECT_EQ(tree->getLayerFormat(0), Tree::TextureFormatJPEG);
    EXPECT_TRUE(reports.empty()) << reports;
    tree->registerTextureLayer(-1, L"", nullptr, Tree::TextureFormatJPEG);
    EXPECT_EQ(tree->getNumberOfLayers(), 2);
    EXPECT_EQ(reports.count(L"invalid layer number"), 1U);
}

TEST(TexturedTriangleTree, LayersOutOfRangeAreReported) {
    const SO<Tree> tree = smallTree();
    RecordedReports reports;
    for (const int layer : {-1, 2, 2147483647}) {
        EXPECT_EQ(tree->getPagingFile(layer), L"");
        EXPECT_FALSE(tree->getRootAtlas(layer));
        EXPECT_TRUE(reports.empty()) << reports;
        EXPECT_EQ(tree->getLayerFormat(layer), 2);
        EXPECT_FALSE(tree->getLayerEnabled(layer));
        tree->setLayerEnabled(layer, true);
        tree->changePagingFileName(L"c", layer);
        EXPECT_EQ(reports.count(2, L"false", L"invalid layer number"), 4U);
        reports.clear();
    }
    EXPECT_EQ(tree->getPagingFile(0), L"a.opaque");
    tree->changePagingFileName(L"c", 0);
    EXPECT_EQ(tree->getPagingFile(0), L"c");
    EXPECT_EQ(tree->getPagingFile(1), L"b.opaque");
}

TEST(TexturedTriangleTree, TellsWhetherItsAtlasesHaveAlpha) {
    const SO<Tree> tree(new Tree());
    const bool expected[] = {true, false, true, false, false};
    for (int format = 0; format < 5; ++format) {
        tree->registerTextureLayer(0, L"", nullptr, Tree::TextureFormat(format));
        EXPECT_EQ(tree->useAlphaTextures(), expected[format]) << format;
    }
}

/// A texture in a node is that of the tree for which it was read, and goes when that one's place is wanted.
TEST(TexturedTriangleTree, ACopyHasNodesOfItsOwnAndNothingLoadedButItsRoot) {
    const SO<Tree> tree = smallTree();
    const SO<RenderTree> nodes = tree->getRenderTree();
    RenderNode & leaf = nodes->child(nodes->root(), 2)->content;
    const SO<NBX::SharedObj> loaded(new NBX::SharedObj());
    leaf.textures = {NBX::WO<NBX::SharedObj>(loaded)};
    leaf.minDistance = 12.0;
    leaf.blockPositions = {5};
    leaf.originalTextures = new RenderNode::Textures(1);
    leaf.originalTextures->set(0, loaded);
    leaf.textureStates = {true};
    const SO<Tree> copy(new Tree(*tree));
    const SO<RenderTree> others = copy->getRenderTree();
    ASSERT_TRUE(others);
    ASSERT_NE(others, nodes);
    ASSERT_EQ(others->numberOfNodes(), nodes->numberOfNodes());
    EXPECT_EQ(others->minimum(1), nodes->minimum(1));
    EXPECT_EQ(others->maximum(0), nodes->maximum(0));
    EXPECT_EQ(others->axis(1), nodes->axis(1));
    const RenderNode & other = others->child(others->root(), 2)->content;
    EXPECT_EQ(other.minDistance, 12.0);
    EXPECT_EQ(other.blockPositions, leaf.blockPositions);
    EXPECT_EQ(other.triangles, leaf.triangles);
    EXPECT_FALSE(other.texture(0));
    ASSERT_TRUE(other.originalTextures);
    EXPECT_EQ(other.originalTextures->size(), 1U);
    EXPECT_FALSE(other.originalTextures->get(0));
    EXPECT_EQ(other.textureStates, std::vector<bool>{false});
    EXPECT_EQ(others->root()->content.texture(0), tree->getRootAtlas(0));
    EXPECT_EQ(leaf.originalTextures->get(0), loaded) << "the tree keeps its own";
}

TEST(TexturedTriangleTree, ACopySharesWhatItShows) {
    const SO<Tree> tree = smallTree();
    tree->enableMaxDistance(7.0);
    const SO<Tree> copy(new Tree(*tree));
    EXPECT_EQ(copy->getUntexturedGeometry(), tree->getUntexturedGeometry());
    EXPECT_EQ(copy->getPagingFile(1), tree->getPagingFile(1));
    EXPECT_EQ(copy->maxDistance(), 7.0);
    copy->disableMaxDistance();
    EXPECT_TRUE(tree->maxDistanceEnabled());
    EXPECT_EQ(copy->maxDistance(), 7.0) << "only the limit is off";
}

TEST(TexturedTriangleTree, StoredTreesAreReadInFull) {
    RecordedReports reports;
    const SO<Tree> tree = smallTree();
    tree->enableMaxDistance(1234.5);
    tree->setBlendingMode(true);
    tree->setQualityFactor(2.5);
    tree->setLayerEnabled(1, false);
    for (const bool omitsDefaults : {false, true}) {
        const SO<Tree> read = roundTrip(tree, omitsDefaults);
        ASSERT_TRUE(read);
        EXPECT_TRUE(read->maxDistanceEnabled());
        EXPECT_EQ(read->maxDistance(), 1234.5);
        EXPECT_TRUE(read->getBlendingMode());
        EXPECT_EQ(read->getQualityFactor(), 2.5);
        EXPECT_EQ(read->getAtlasSize(), 256);
        ASSERT_EQ(read->getNumberOfLayers(), 2);
        EXPECT_EQ(read->getPagingFile(0), L"a.opaque");
        EXPECT_EQ(read->getPagingFile(1), L"b.opaque");
        EXPECT_EQ(read->getLayerFormat(0), Tree::TextureFormatDXT1);
        EXPECT_EQ(read->getLayerFormat(1), Tree::TextureFormatLuminance8);
        EXPECT_TRUE(read->getLayerEnabled(0));
        EXPECT_FALSE(read->getLayerEnabled(1));
        EXPECT_EQ(read->boundingBox(), tree->boundingBox());
        const SO<RenderTree> & nodes = read->getRenderTree();
        ASSERT_TRUE(nodes);
        EXPECT_EQ(nodes->numberOfNodes(), 5U);
        ASSERT_TRUE(read->getRootAtlas(0) && read->getRootAtlas(1));
        EXPECT_EQ(nodes->root()->content.texture(0), read->getRootAtlas(0)) << "the root shows its atlases";
        EXPECT_EQ(nodes->root()->content.texture(1), read->getRootAtlas(1));
        EXPECT_EQ(nodes->child(nodes->root(), 0)->content.blockPositions[1], 100U);
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(TexturedTriangleTree, IsStoredInAFixedOrder) {
    std::vector<std::string> names;
    for (const std::string & name : RecordedAttributes::of(*smallTree()))
        if (const std::string head = name.substr(0, name.find('.')); names.empty() || names.back() != head)
            names.push_back(head);
    EXPECT_EQ(names,
              (std::vector<std::string>{"version", "renderTree", "untexturedGeometry", "maxDistanceEnabled",
                                        "maxDistance", "pagingFiles", "atlasSize", "rootAtlases",
                                        "blendingMode", "layerFormats", "qualityFactor", "layerEnabled"}));
    EXPECT_EQ(RecordedAttributes::calls(*smallTree(), true)[1], "begin NBX::RenderObj");
    for (const std::string & name : RecordedAttributes::of(*SO<Tree>(new Tree()), true))
        EXPECT_TRUE(name == "version" || name == "atlasSize" || name.starts_with("pagingFiles.") ||
                    name.starts_with("rootAtlases."))
            << name << " equals its default";
}

/// Writes a tree as another version would have; the class name in the file is that of the tree.
struct OldTree {
    int version = 0;
    int layers = 1;
    std::optional<bool> usesTextureCompression;
    std::vector<int> layerFormats;
    std::vector<std::uint8_t> layerEnabled;
};

class OldTreeObject : public Tree {
public:
    explicit OldTreeObject(const OldTree & old) : old_(old) {}
    void serialize(NBX::SerializationManager & m) override {
        m.enterObject();
        NBX::serializeSuperclass<NBX::RenderObj>(m, this);
        int version = old_.version, atlasSize = 64;
        if (version > 0) m.attribute("version", version);
        std::vector<std::wstring> files(std::size_t(old_.layers), L"file");
        NBX::serializeValue(m, "pagingFiles", files);
        m.attribute("atlasSize", atlasSize);
        if (!old_.layerFormats.empty()) NBX::serializeValue(m, "layerFormats", old_.layerFormats);
        if (old_.usesTextureCompression) m.attribute("usesTextureCompression", *old_.usesTextureCompression);
        if (!old_.layerEnabled.empty()) NBX::serializeValue(m, "layerEnabled", old_.layerEnabled);
    }

private:
    OldTree old_;
};

SO<Tree> readOld(const OldTree & old) {
    return roundTrip(SO<Tree>(new OldTreeObject(old)));
}

TEST(TexturedTriangleTree, VersionZeroHasOneFormatByItsCompression) {
    EXPECT_EQ(readOld({0, 1, true, {}, {}})->getLayerFormat(0), Tree::TextureFormatRGBA5551);
    EXPECT_EQ(readOld({0, 1, false, {}, {}})->getLayerFormat(0), Tree::TextureFormatRGBA8);
    const SO<Tree> without = readOld({0, 1, std::nullopt, {}, {}});
    EXPECT_EQ(without->getLayerFormat(0), Tree::TextureFormatRGBA8);
    EXPECT_TRUE(without->getLayerEnabled(0));
    const SO<Tree> two = readOld({0, 2, true, {}, {}});
    EXPECT_EQ(two->getLayerFormat(0), Tree::TextureFormatRGBA5551);
    EXPECT_EQ(two->getLayerFormat(1), Tree::TextureFormatLuminance8);
    EXPECT_TRUE(two->getLayerEnabled(1));
    RecordedReports reports;
    EXPECT_EQ(readOld({0, 1, true, {}, {}})->getLayerFormat(1), 2);
    EXPECT_EQ(reports.count(L"invalid layer number"), 1U);
}

TEST(TexturedTriangleTree, BeforeVersionTwoAllLayersAreEnabled) {
    for (const int version : {0, 1}) {
        const SO<Tree> tree = readOld({version, 2, true, {4, 1}, {0, 0}});
        EXPECT_TRUE(tree->getLayerEnabled(0)) << version;
        EXPECT_TRUE(tree->getLayerEnabled(1)) << version;
    }
    const SO<Tree> second = readOld({2, 2, std::nullopt, {4, 1}, {0, 1}});
    EXPECT_FALSE(second->getLayerEnabled(0));
    EXPECT_TRUE(second->getLayerEnabled(1));
    EXPECT_EQ(readOld({1, 1, true, {4}, {}})->getLayerFormat(0), Tree::TextureFormatJPEG);
}

TEST(TexturedTriangleTree, LayersThatAreNotToldAreEnabled) {
    const SO<Tree> tree = readOld({2, 3, std::nullopt, {4, 1, 1}, {0}});
    EXPECT_FALSE(tree->getLayerEnabled(0));
    EXPECT_TRUE(tree->getLayerEnabled(1));
    EXPECT_TRUE(tree->getLayerEnabled(2));
}

TEST(TexturedTriangleTree, FormatsThatAreNotToldAreThoseOfNewLayers) {
    RecordedReports reports;
    const SO<Tree> tree = readOld({2, 3, std::nullopt, {4}, {}});
    EXPECT_EQ(tree->getLayerFormat(0), Tree::TextureFormatJPEG);
    EXPECT_EQ(tree->getLayerFormat(1), Tree::TextureFormatRGBA8);
    EXPECT_EQ(tree->getLayerFormat(2), Tree::TextureFormatRGBA8);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(TexturedTriangleTree, FormatsAndVersionsThatCannotBeAreRefused) {
    EXPECT_THROW(readOld({2, 1, std::nullopt, {5}, {}}), NBX::IOError);
    EXPECT_THROW(readOld({2, 1, std::nullopt, {-1}, {}}), NBX::IOError);
    EXPECT_THROW(readOld({3, 1, std::nullopt, {4}, {}}), NBX::IOError);
    const SO<Tree> tree = smallTree();
    tree->setAtlasSize(Tree::s_maxAtlasSize + 1);
    EXPECT_THROW(roundTrip(tree), NBX::IOError);
}

TEST(TexturedTriangleTree, OnlyTexturesAreRootAtlases) {
    // A tree that held itself would never go.
    const SO<Tree> tree = smallTree();
    tree->registerTextureLayer(0, L"a", tree, Tree::TextureFormatRGBA8);
    const SO<Tree> read = roundTrip(tree);
    ASSERT_TRUE(read);
    EXPECT_FALSE(read->getRootAtlas(0));
    EXPECT_TRUE(read->getRootAtlas(1));
    tree->registerTextureLayer(0, L"a", nullptr, Tree::TextureFormatRGBA8);
}

TEST(TexturedTriangleTree, TellsTheControllerThatKnowsItWhenItGoes) {
    RecordedReports reports;
    const SO<TTTMemoryController> controller(new TTTMemoryController());
    SO<Tree> tree = smallTree();
    tree->changePagingFileName(L"/nowhere/at/all", 0);
    controller->registerTree(tree);
    EXPECT_EQ(controller->failures().size(), 2U) << "both files are missing";
    tree = nullptr;
    EXPECT_TRUE(controller->failures().empty());
}

TEST(TexturedTriangleTree, DamagedStreamsAreReadModestly) {
    expectModestReading(*smallTree(), [](const SO<NBX::SharedObj> & object) {
        const auto tree = NBX::soCast<Tree>(object);
        if (!tree) return;
        tree->boundingBox();
        for (int layer = 0; layer < 3; ++layer) {
            tree->getPagingFile(layer);
            tree->getLayerFormat(layer);
            tree->getLayerEnabled(layer);
        }
        const SO<RenderTree> & nodes = tree->getRenderTree();
        if (!nodes) return;
        EXPECT_LE(nodes->numberOfNodes(), 4000U);
        visibilityKey(nodes->root());
        visibilityKey(nodes->root(), 0);
        nodes->root()->content.originalTexturesUploaded();
    });
}

} // namespace
} // namespace ZMT::CORE
