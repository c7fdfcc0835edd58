#pragma once

#include <zmt/core/texturedtriangles/rendernode.h>

namespace ZMT::CORE {

/// A subtree with more vertices is opened, and its children become batches of their own.
inline constexpr int s_maxBatchVertices = 65535;

/// Lays the vertices of the leaves of each subtree that is not too large one behind the other, so that it is
/// drawn from one binding: sets `numVertices` of all nodes, `vertexRangeStart` of those in a batch, and
/// `vertexData` of its root. Laws, for every node of a batch:
///
/// (1) Its range holds the vertices of its leaves, in the order of the children 0 to 3, and no others.
/// (2) Only nodes with `triangles` take vertices; a range without any is where it would begin.
///
/// `triangles` that have indices, or are no plain triangles, are replaced by such ones. Attributes are those
/// that any of the meshes has; where one of them lacks it, it is white as a colour, and else zero. An
/// attribute is left out where its buffers differ in kind, which is reported, are neither floats nor bytes,
/// or are not as many as the vertices. Without positions there is no batch, and leaves are drawn one by one.
void batchGeometry(RenderTree & tree);

} // namespace ZMT::CORE
