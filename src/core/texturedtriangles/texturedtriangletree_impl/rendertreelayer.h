#pragma once

#include <functional>
#include <string>

#include <nbx/image/image.h>
#include <nbx/object/so.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>

namespace ZMT::CORE {

/// A further layer of a tree that is there: pictures of its leaves, and those above them made of theirs.
class RenderTreeLayer {
public:
    /// The picture of a leaf with triangles, as large as an atlas, with whose coordinates it is drawn.
    using Draw = std::function<NBX::SO<NBX::Image>(const RenderNode & leaf)>;

    /// Writes the paging file, a new one that appears when it is complete; then `tree`, which has nodes, gets
    /// the layer. A tree of one node, whose picture it holds itself, has the file of its first layer in the
    /// place of an empty one, which no web server gives by ranges. False, with nothing written and `tree` as
    /// it was, where `draw` gives null. Throws `IOException`, and what `draw` throws.
    static bool add(TexturedTriangleTree & tree, TexturedTriangleTree::TextureFormat format, int layer,
                    const std::wstring & pagingFile, const Draw & draw);
};

} // namespace ZMT::CORE
