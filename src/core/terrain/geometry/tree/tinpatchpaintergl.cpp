#include <zmt/core/terrain/geometry/tree/tinpatchpaintergl.h>

#include <vector>

#include <GL/gl.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/mesh/vertexattributeshapegl.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>
#include <zmt/core/terrain/geometry/tree/tinpatch.h>

namespace ZMT::CORE {

namespace {

/// A mesh of triangle strips on its way to the graphics card.
struct StripMesh {
    std::vector<NBX::Vector3Base<float>> vertices;
    std::vector<unsigned short> indices; ///< none: the vertices as they come
    std::vector<unsigned> ranges;        ///< where each strip ends

    NBX::SO<NBX::Shape> upload(NBX::EngineGL * engine) const {
        using NBX::BufferObjectGL;
        NBX::SO<NBX::BaseVertexAttributeBufferObjectGL> vertexBuffer(
            new NBX::BaseVertexAttributeBufferObjectGL(engine, static_cast<unsigned>(vertices.size()),
                                                       vertices.data(), GL_FLOAT, 3));
        NBX::SO<BufferObjectGL> indexBuffer, rangeBuffer;
        if (!indices.empty())
            indexBuffer = new BufferObjectGL(engine, indices.size() * sizeof indices[0], indices.data(),
                                             BufferObjectGL::DT_VertexIndices, BufferObjectGL::UP_Static);
        rangeBuffer = new BufferObjectGL(engine, ranges.size() * sizeof ranges[0], ranges.data(),
                                         BufferObjectGL::DT_VertexIndices, BufferObjectGL::UP_Static);
        return new NBX::VertexAttributeShapeGL(NBX::VertexAttributeShapeGL::PT_TriangleStrip, vertexBuffer,
                                               indexBuffer, rangeBuffer);
    }
};

NBX::Vector3Base<float> lowered(const NBX::Vector3Base<float> & v, double wall) {
    return {v.x, static_cast<float>(wall), v.z};
}

std::vector<NBX::Vector3Base<float>> positionsOf(const TinPatch & patch) {
    const NBX::SO<GeometryData> data = patch.data();
    const auto numbers = patch.vertexIndices();
    std::vector<NBX::Vector3Base<float>> positions;
    for (unsigned i = 0; numbers && i < numbers->size(); ++i)
        positions.emplace_back(data->vertex(numbers->pointer()[i]));
    return positions;
}

template <class T> std::vector<T> toVector(const NBX::SO<const NBX::Iterator<T>> & list) {
    return list ? std::vector<T>(list->pointer(), list->pointer() + list->size()) : std::vector<T>();
}

/// A skirt is one more strip below the border. It walks backwards, as the triangles turn.
void appendSkirt(StripMesh & mesh, const std::vector<unsigned short> & border, double wall) {
    for (auto v = border.rbegin(); v != border.rend(); ++v) {
        mesh.indices.push_back(*v);
        mesh.indices.push_back(static_cast<unsigned short>(mesh.vertices.size()));
        mesh.vertices.push_back(lowered(mesh.vertices[*v], wall));
    }
    mesh.ranges.push_back(static_cast<unsigned>(mesh.indices.size()));
}

StripMesh surfaceOf(const TinPatch & patch) {
    StripMesh mesh{positionsOf(patch), toVector(patch.stripIndices()), toVector(patch.stripRanges())};
    for (unsigned i = 0; i < TinPatch::s_borders; ++i) {
        const auto border = static_cast<TinPatch::Border>(i);
        if (!patch.isOuterBorder(border))
            appendSkirt(mesh, toVector(patch.borderIndices(border)), patch.wall());
    }
    return mesh;
}

StripMesh outerWallOf(const TinPatch & patch) {
    const auto positions = positionsOf(patch);
    StripMesh mesh;
    for (unsigned i = 0; i < TinPatch::s_borders; ++i) {
        const auto border = static_cast<TinPatch::Border>(i);
        if (!patch.isOuterBorder(border)) continue;
        for (const unsigned short v : toVector(patch.borderIndices(border))) {
            mesh.vertices.push_back(positions[v]);
            mesh.vertices.push_back(lowered(positions[v], patch.wall()));
        }
        mesh.ranges.push_back(static_cast<unsigned>(mesh.vertices.size()));
    }
    return mesh;
}

} // namespace

NBX_CLASS_IMPL(TinPatchPainterGL, GeometryPatchPainterGL)

NBX::ID TinPatchPainterGL::target() const {
    return TinPatch::ClassNameNBX();
}

void TinPatchPainterGL::renderPatch(NBX::EngineGL * engine, const GeometryPatch * patch) {
    NBX_CHECK(engine, L"no engine");
    if (!engine) return;
    const auto & tin = static_cast<const TinPatch &>(*patch);
    if (!tin.patchShape()) tin.patchShape() = surfaceOf(tin).upload(engine);
    // The triangles of a triangulation turn the other way.
    glFrontFace(GL_CCW);
    engine->paint(tin.patchShape().get());
    glFrontFace(GL_CW);
}

void TinPatchPainterGL::renderOuterWall(NBX::EngineGL * engine, const GeometryPatch * patch) {
    NBX_CHECK(engine, L"no engine");
    if (!engine) return;
    const auto & tin = static_cast<const TinPatch &>(*patch);
    bool hasWall = false;
    for (unsigned i = 0; i < TinPatch::s_borders; ++i)
        hasWall = hasWall || tin.isOuterBorder(static_cast<TinPatch::Border>(i));
    if (!hasWall) return;
    if (!tin.wallShape()) tin.wallShape() = outerWallOf(tin).upload(engine);
    engine->paint(tin.wallShape().get());
}

NBX_REGISTER_HANDLER_GL(TinPatchPainterGL)

} // namespace ZMT::CORE
