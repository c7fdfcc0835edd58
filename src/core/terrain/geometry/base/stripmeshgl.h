#pragma once

#include <nbx/gl/mesh/vertexattributeshapegl.h>
#include <zmt/core/terrain/geometry/base/stripmesh.h>

namespace ZMT::CORE {

/// A mesh on its way to the graphics card. Needs a current context.
class StripMeshGL {
public:
    using Vertices = NBX::SO<NBX::BaseVertexAttributeBufferObjectGL>;

    /// The positions, in single precision.
    static Vertices upload(NBX::EngineGL * engine, const std::vector<StripMesh::Point> & positions);

    /// Strips over `vertices`, which several shapes may share, numbered by 16 bits. Strips that reach beyond
    /// these are reported, and not drawn.
    static NBX::SO<NBX::Shape> upload(NBX::EngineGL * engine, const Vertices & vertices,
                                      const StripMesh::Strips & strips);
};

} // namespace ZMT::CORE
