#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/container/space/dynamicspacetree.h>
#include <nbx/gl/mesh/mappedvertexattributeshapegl.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/math/bounds.h>
#include <nbx/object/so.h>
#include <nbx/object/wo.h>

namespace ZMT::CORE {

/// What a node of a `TexturedTriangleTree` holds: where its atlases lie in the paging files, those of them
/// that are in memory, and, where it is a leaf, its triangles. Positions and bounds are in the frame of the
/// tree.
///
/// What was read need not fit together: arrays that belong to each other may differ in length, blocks may lie
/// beyond their file, and ranges beyond the vertices. Those who use them look first.
class RenderNode {
public:
    using Textures = NBX::Array<NBX::SO<NBX::SharedObj>>;

    /// By layer: byte offset and length of the atlas in the paging file of the layer. Empty for the root,
    /// whose atlases the tree holds; a length of 0 means that there is none.
    std::vector<std::uint64_t> blockPositions, blockSizes;
    /// Edge of the node's atlas in units of the picture that its deepest descendants' atlases would make.
    double textureScaleFactor = 0.0;
    /// By layer: the atlas that is in memory, a `StreamTexture` or an `ImageTexture2DGL`; it may be shorter
    /// than there are layers.
    std::vector<NBX::WO<NBX::SharedObj>> textures;
    /// From this distance on the node's own atlas suffices.
    double minDistance = 0.0;
    /// Of the geometry of the node and of those below it; undefined without any.
    NBX::Bounds bounds;
    /// The triangles of a leaf, with coordinates into the atlas of the whole tree; null for inner nodes.
    NBX::SO<NBX::MappedVertexAttributeShapeGL> triangles;
    /// The source textures of a leaf in full resolution, each null while it is not loaded; null for inner
    /// nodes.
    NBX::SO<Textures> originalTextures;
    /// By source texture: the triangles that have it, with coordinates into it.
    std::vector<NBX::SO<NBX::MappedVertexAttributeShapeGL>> originalGeometry;
    /// By source texture: offset and length of its block in the paging file of layer 0.
    std::vector<std::uint64_t> originalTexturesBlockPositions, originalTexturesBlockSizes;
    /// By source texture, first along s, then along t: the `NBX::TextureGL::WrapMode` with which it is drawn.
    /// Empty where all repeat.
    std::vector<int> originalTexturesWrapModes;
    /// By source texture: whether its upload is complete. Not stored.
    std::vector<bool> textureStates;
    /// The vertices of all leaves below, one behind the other, where the node is the root of a batch; null
    /// for all others.
    NBX::SO<NBX::MappedVertexAttributeDataGL> vertexData;
    /// First vertex of the node, or of those below it, in the `vertexData` of itself or of its nearest
    /// ancestor that has some; -1 above the batches.
    int vertexRangeStart = -1;
    /// Vertices of the node and of those below it; -1 before they were counted.
    int numVertices = -1;

    /// How source texture `i` goes on beyond its edges, along s and t. It repeats where nothing sound is
    /// stored.
    std::pair<NBX::TextureGL::WrapMode, NBX::TextureGL::WrapMode> originalTextureWrap(unsigned i) const;
    /// The atlas of a layer; null while it is not in memory.
    NBX::SO<NBX::SharedObj> texture(unsigned layer) const;
    /// Whether no element of `originalTextures` is null. A node without the array is reported, and true.
    bool originalTexturesLoaded() const;
    /// Whether they are loaded, and each has its bit in `textureStates`.
    bool originalTexturesUploaded() const;

    /// Nothing is loaded or uploaded any more; the numbers of textures stay.
    void forgetTextures();

    /// Attributes in this order: "version", "blockPositions", "blockSizes", "textureScaleFactor" (default 0),
    /// "triangles" (null), "minDistance" (0), "bounds", "triangles" again, "originalGeometry",
    /// "originalTexturesBlockPositions", "originalTexturesBlockSizes", "originalTextures", "vertexData"
    /// (null), "numVertices" (-1), "vertexRangeStart" (-1), and, where there are any,
    /// "originalTexturesWrapModes". Of "originalTextures" only the number is stored.
    /// Throws `IOError` for arrays that are cut short.
    void serialize(NBX::SerializationManager & m);

private:
    void serializeOriginals(NBX::SerializationManager & m);
};

/// The quadtree of a `TexturedTriangleTree`.
using RenderTree = NBX::DynamicSpaceTree<RenderNode, 2>;

/// What the visibility of a node is kept by: the place of its atlas of the first layer, and for nodes without
/// such a block a number of their own.
std::uint64_t visibilityKey(const RenderTree::NodePointer & node);
/// That of source texture `i` of a leaf: the place of its block, which textures of several nodes may share.
std::uint64_t visibilityKey(const RenderTree::NodePointer & node, unsigned i);

} // namespace ZMT::CORE
