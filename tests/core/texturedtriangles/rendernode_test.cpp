#include <zmt/core/texturedtriangles/rendernode.h>

#include <gtest/gtest.h>

#include <nbx/container/sequence/array.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/scene/shape/polygonset.h>
#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

#include "onetriangle.h"

namespace ZMT::CORE {
namespace {

using NBX::SO;
using Mesh = NBX::MappedVertexAttributeShapeGL;
using V = NBX::Vector3Base<double>;

SO<NBX::SharedObj> texture() {
    return new NBX::MemoryDataResource(4);
}

/// A node with values in all of its fields.
RenderNode fullNode() {
    RenderNode node;
    node.blockPositions = {1ULL << 40U, 7};
    node.blockSizes = {11, 13};
    node.textureScaleFactor = 0.25;
    node.minDistance = 120.5;
    node.bounds = NBX::Bounds(V(1, 2, 3), V(4, 5, 6));
    node.triangles = oneTriangle(1);
    node.originalGeometry = {oneTriangle(2), oneTriangle(3)};
    node.originalTexturesBlockPositions = {17, 19};
    node.originalTexturesBlockSizes = {23, 29};
    node.originalTextures = new RenderNode::Textures(2);
    node.vertexData = node.triangles->data();
    node.numVertices = 3;
    node.vertexRangeStart = 0;
    node.textureStates = {true, true};
    return node;
}

/// A stored object around a node.
class Holder : public NBX::SharedObj {
    NBX_STORED_TEMPLATE_CLASS(Holder, NBX::SharedObj)
public:
    void serialize(NBX::SerializationManager & m) override {
        m.enterObject();
        NBX::serializeSuperclass<NBX::SharedObj>(m, static_cast<NBX::SharedObj *>(this));
        if (storedVersion >= 0 && m.isWriting()) {
            writeVersion(m);
            return;
        }
        node.serialize(m);
    }

    RenderNode node;
    int storedVersion = -1; ///< writes a node of that version by hand; -1 by its own operation

private:
    void writeVersion(NBX::SerializationManager & m) {
        m.attribute("version", storedVersion);
        m.attribute("minDistance", node.minDistance);
        m.attribute("triangles", node.triangles);
        std::wstring imageFile = L"atlas.png";
        m.attribute("imageFile", imageFile);
        m.attribute("numVertices", node.numVertices);
    }
};

TEST(RenderNode, IsEmptyAtFirst) {
    const RenderNode node;
    EXPECT_EQ(node.vertexRangeStart, -1);
    EXPECT_EQ(node.numVertices, -1);
    EXPECT_EQ(node.minDistance, 0.0);
    EXPECT_EQ(node.textureScaleFactor, 0.0);
    EXPECT_FALSE(node.bounds.isDefined());
    EXPECT_FALSE(node.originalTextures);
    EXPECT_FALSE(node.texture(0));
}

TEST(RenderNode, WatchesItsAtlases) {
    RenderNode node;
    SO<NBX::SharedObj> atlas = texture();
    node.textures = {nullptr, atlas};
    EXPECT_FALSE(node.texture(0));
    EXPECT_EQ(node.texture(1), atlas);
    EXPECT_FALSE(node.texture(2));
    atlas = nullptr;
    EXPECT_FALSE(node.texture(1));
}

TEST(RenderNode, OriginalTexturesAreLoadedWhenNoneIsMissing) {
    RecordedReports reports;
    RenderNode node;
    EXPECT_TRUE(node.originalTexturesLoaded());
    EXPECT_EQ(reports.count(0, L"originalTextures!=0", L"no texture array"), 1U);
    reports.clear();
    node.originalTextures = new RenderNode::Textures();
    EXPECT_TRUE(node.originalTexturesLoaded());
    EXPECT_TRUE(node.originalTexturesUploaded());
    node.originalTextures = new RenderNode::Textures(2);
    node.textureStates = {true, true};
    EXPECT_FALSE(node.originalTexturesLoaded());
    node.originalTextures->set(0, texture());
    EXPECT_FALSE(node.originalTexturesLoaded());
    EXPECT_FALSE(node.originalTexturesUploaded());
    node.originalTextures->set(1, texture());
    EXPECT_TRUE(node.originalTexturesLoaded());
    EXPECT_TRUE(node.originalTexturesUploaded());
    node.textureStates[0] = false;
    EXPECT_TRUE(node.originalTexturesLoaded());
    EXPECT_FALSE(node.originalTexturesUploaded());
    node.textureStates = {true};
    EXPECT_FALSE(node.originalTexturesUploaded());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(RenderNode, IsStoredInAFixedOrder) {
    const SO<Holder> holder(new Holder());
    holder->node = fullNode();
    // Arrays are containers of their own: only their names matter here.
    std::vector<std::string> names;
    for (const std::string & name : RecordedAttributes::of(*holder))
        if (const std::string head = name.substr(0, name.find('.')); names.empty() || names.back() != head)
            names.push_back(head);
    EXPECT_EQ(names, (std::vector<std::string>{
                         "version", "blockPositions", "blockSizes", "textureScaleFactor", "triangles",
                         "minDistance", "bounds", "triangles", "originalGeometry",
                         "originalTexturesBlockPositions", "originalTexturesBlockSizes", "originalTextures",
                         "vertexData", "numVertices", "vertexRangeStart"}));
}

TEST(RenderNode, StoredNodesAreReadInFull) {
    const SO<Holder> holder(new Holder());
    holder->node = fullNode();
    for (const bool omitsDefaults : {false, true}) {
        const SO<Holder> read = roundTrip(holder, omitsDefaults);
        ASSERT_TRUE(read);
        const RenderNode &a = holder->node, &b = read->node;
        EXPECT_EQ(a.blockPositions, b.blockPositions);
        EXPECT_EQ(a.blockSizes, b.blockSizes);
        EXPECT_EQ(a.textureScaleFactor, b.textureScaleFactor);
        EXPECT_EQ(a.minDistance, b.minDistance);
        EXPECT_EQ(a.bounds, b.bounds);
        EXPECT_EQ(a.originalTexturesBlockPositions, b.originalTexturesBlockPositions);
        EXPECT_EQ(a.originalTexturesBlockSizes, b.originalTexturesBlockSizes);
        EXPECT_EQ(a.numVertices, b.numVertices);
        EXPECT_EQ(a.vertexRangeStart, b.vertexRangeStart);
        ASSERT_TRUE(b.triangles);
        EXPECT_EQ(b.triangles->boundingBox(), a.triangles->boundingBox());
        EXPECT_EQ(b.vertexData, b.triangles->data()) << "one object stays one";
        ASSERT_EQ(b.originalGeometry.size(), 2U);
        EXPECT_EQ(b.originalGeometry[1]->boundingBox(), a.originalGeometry[1]->boundingBox());
        EXPECT_EQ(b.textureStates, (std::vector<bool>{false, false}));
    }
}

TEST(RenderNode, WrapModesOfSourceTexturesAreStoredWhereThereAreAny) {
    using Wrap = NBX::TextureGL::WrapMode;
    const SO<Holder> holder(new Holder());
    const auto isNamed = [&] {
        const auto names = RecordedAttributes::of(*holder);
        return std::any_of(names.begin(), names.end(), [](const std::string & name) {
            return name.find("originalTexturesWrapModes") != std::string::npos;
        });
    };
    EXPECT_FALSE(isNamed());
    EXPECT_TRUE(roundTrip(holder)->node.originalTexturesWrapModes.empty());
    holder->node.originalTexturesWrapModes = {0, 4, 2, 0, -1, 5};
    EXPECT_TRUE(isNamed());
    for (const bool omitsDefaults : {false, true}) {
        const SO<Holder> copy = roundTrip(holder, omitsDefaults);
        const RenderNode & read = copy->node;
        EXPECT_EQ(read.originalTextureWrap(0), std::pair(Wrap::WM_Repeat, Wrap::WM_MirroredRepeat));
        EXPECT_EQ(read.originalTextureWrap(1), std::pair(Wrap::WM_ClampToEdge, Wrap::WM_Repeat));
        EXPECT_EQ(read.originalTextureWrap(2), std::pair(Wrap::WM_Repeat, Wrap::WM_Repeat)) << "no modes";
        EXPECT_EQ(read.originalTextureWrap(3), std::pair(Wrap::WM_Repeat, Wrap::WM_Repeat)) << "not told";
    }
}

TEST(RenderNode, OfSourceTexturesOnlyTheNumberIsStored) {
    const SO<Holder> holder(new Holder());
    holder->node.originalTextures = new RenderNode::Textures(3);
    holder->node.originalTextures->set(1, texture());
    const SO<Holder> read = roundTrip(holder);
    ASSERT_TRUE(read->node.originalTextures);
    EXPECT_EQ(read->node.originalTextures->size(), 3U);
    EXPECT_FALSE(read->node.originalTextures->get(1));
    EXPECT_EQ(read->node.textureStates.size(), 3U);
    EXPECT_TRUE(holder->node.originalTextures->get(1)) << "writing takes nothing away";
    EXPECT_FALSE(roundTrip(SO<Holder>(new Holder()))->node.originalTextures);
}

TEST(RenderNode, ReadsOlderVersions) {
    RecordedReports reports;
    for (const int version : {0, 1, 2}) {
        const SO<Holder> holder(new Holder());
        holder->storedVersion = version;
        holder->node.minDistance = 8.0;
        holder->node.numVertices = 3;
        holder->node.triangles = oneTriangle(0);
        const SO<Holder> read = roundTrip(holder);
        EXPECT_EQ(read->node.minDistance, 8.0) << version;
        EXPECT_EQ(read->node.numVertices, 3) << version;
        EXPECT_EQ(read->node.vertexRangeStart, -1) << version;
        EXPECT_TRUE(read->node.triangles) << "one of the two is enough, version " << version;
        EXPECT_FALSE(read->node.bounds.isDefined());
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(RenderNode, VisibilityIsKeptByThePlacesOfBlocks) {
    const SO<RenderTree> tree(new RenderTree());
    tree->createChildren(tree->root());
    const RenderTree::NodePointer root = tree->root(), first = tree->child(root, 0),
                                  second = tree->child(root, 1);
    first->content.blockPositions = {4096};
    first->content.blockSizes = {10};
    second->content.originalTexturesBlockPositions = {77};
    second->content.originalTexturesBlockSizes = {10};
    EXPECT_EQ(visibilityKey(first), 4096U);
    EXPECT_NE(visibilityKey(root), visibilityKey(second)) << "nodes without a block have keys of their own";
    EXPECT_NE(visibilityKey(root), 0U);
    EXPECT_EQ(visibilityKey(second, 0), 77U);
    EXPECT_NE(visibilityKey(second, 1), 77U);
    // A node without an atlas stands at place 0, where another one's may lie.
    second->content.blockPositions = {0};
    second->content.blockSizes = {0};
    EXPECT_NE(visibilityKey(second), 0U);
    second->content.originalTexturesBlockPositions = {0, 0};
    second->content.originalTexturesBlockSizes = {10, 0};
    EXPECT_EQ(visibilityKey(second, 0), 0U);
    EXPECT_NE(visibilityKey(second, 1), 0U);
}

} // namespace
} // namespace ZMT::CORE
