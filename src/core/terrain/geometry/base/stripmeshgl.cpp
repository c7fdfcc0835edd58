#include "stripmeshgl.h"

#include <GL/gl.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/object/errorhandler.h>

namespace ZMT::CORE {

StripMeshGL::Vertices StripMeshGL::upload(NBX::EngineGL * engine,
                                          const std::vector<StripMesh::Point> & positions) {
    std::vector<NBX::Vector3Base<float>> single;
    single.reserve(positions.size());
    for (const StripMesh::Point & position : positions)
        single.emplace_back(position);
    return new NBX::BaseVertexAttributeBufferObjectGL(engine, static_cast<unsigned>(single.size()),
                                                      single.data(), GL_FLOAT, 3);
}

NBX::SO<NBX::Shape> StripMeshGL::upload(NBX::EngineGL * engine, const Vertices & vertices,
                                        const StripMesh::Strips & strips) {
    const bool isNumbered = strips.indices.empty() || vertices->count() <= 0x10000;
    NBX_CHECK(isNumbered, L"more vertices than 16 bits can number: " << vertices->count());
    const std::vector<std::uint16_t> indices(strips.indices.begin(), strips.indices.end());
    return new NBX::VertexAttributeShapeGL(engine, NBX::VertexAttributeShapeGL::PT_TriangleStrip, vertices,
                                           indices, isNumbered ? strips.ranges : std::vector<unsigned>());
}

} // namespace ZMT::CORE
