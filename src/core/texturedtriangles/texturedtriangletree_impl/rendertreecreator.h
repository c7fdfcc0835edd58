#pragma once

#include <string>

#include <nbx/object/so.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>

#include "atlastreegenerator.h"

namespace ZMT::CORE {

/// Turns an atlas tree into the tree that is drawn, and writes the paging file of a layer: the atlases of all
/// nodes but the root, and with layer 0 the source textures of the leaves.
///
/// (1) The same triangles and textures give the same bytes in any process.
/// (2) The picture of source textures has one block, whatever number of leaves and wrap modes shares it.
/// (3) `minDistance` of a leaf is the largest `distance` of the layers, and that of an inner node twice the
///     largest of its children.
/// (4) A parent's atlas is that of its children, filtered to half the size.
/// (5) At most `SourceTextures::s_mostImages` decoded source images are kept at once.
class RenderTreeCreator {
public:
    using AtlasTree = AtlasTreeGenerator::AtlasTree;

    /// `distance` in world units, `fieldOfView` in degrees, `screenSize` in pixels; `atlasSize` is the edge
    /// of an atlas in texels. The paging file is a new one, which appears when it is complete; then `tree`
    /// gets the layer. Coordinates of set 0 in `container` become those of the whole tree, so that it serves
    /// one call. `canvas` says by its alpha buffer whether atlases keep the alpha of their textures, as they
    /// do without one.
    ///
    /// A layer above 0 enters its blocks in the render tree that `tree` has already, which the same triangles
    /// gave, with the coordinates that they had then, and is what comes back.
    ///
    /// Shows its progress. Null, with nothing written and `tree` as it was, when the user cancels, and,
    /// reported, for a format that does not exist. Throws `IOException`. On the thread of the canvas.
    static NBX::SO<RenderTree> create(TexturedTriangleTree * tree, TexturedTriangleTree::TextureFormat format,
                                      int layer, const std::wstring & pagingFile,
                                      NBX::SO<AtlasTree> atlasTree, NBX::SO<TriangleContainer> container,
                                      double distance, double fieldOfView, int screenSize, double quality,
                                      int atlasSize, NBX::SO<NBX::GLCanvas> canvas);
};

} // namespace ZMT::CORE
