#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/object/so.h>

#include "trianglecollector.h"

namespace ZMT::CORE {

/// Splits meshes so that each has a nearly uniform texture density.
class MeshValidation {
public:
    /// Each mesh divided by the world length of its coordinate s, and each part of it by that of t: in a mesh
    /// of the result no length is more than twice the least one, and triangles without such a length are
    /// among themselves. Every triangle stands in exactly one mesh, which has the texture of the one it comes
    /// from; the order is that of the meshes, then of the lengths, then of the triangles. Null gives an empty
    /// result, and is reported under "meshes".
    static NBX::SO<NBX::Iterator<TriangleCollector::TexturedMesh>>
    validate(const NBX::SO<NBX::Iterator<TriangleCollector::TexturedMesh>> & meshes);
};

} // namespace ZMT::CORE
