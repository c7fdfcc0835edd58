#include <zmt/core/terrain/geometry/tree/tinpatchpaintergl.h>

#include <algorithm>
#include <vector>

#include "core/terrain/geometry/base/frontfacegl.h"
#include "core/terrain/geometry/base/stripmeshgl.h"
#include <nbx/gl/context/enginegl.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>
#include <zmt/core/terrain/geometry/tree/tinpatch.h>

namespace ZMT::CORE {

namespace {

/// The local numbers along a border; none where one of them has no vertex.
std::vector<unsigned> borderOf(const TinPatch & patch, unsigned border) {
    const auto numbers = patch.borderIndices(static_cast<TinPatch::Border>(border));
    const auto vertices = patch.vertexIndices();
    if (!numbers || !vertices) return {};
    std::vector<unsigned> result(numbers->pointer(), numbers->pointer() + numbers->size());
    const bool fits =
        std::all_of(result.begin(), result.end(), [&](unsigned number) { return number < vertices->size(); });
    return fits ? result : std::vector<unsigned>();
}

bool isOuter(const TinPatch & patch, unsigned border) {
    return patch.isOuterBorder(static_cast<TinPatch::Border>(border));
}

/// In local coordinates, as all that is drawn of a patch.
StripMesh surfaceOf(const TinPatch & patch) {
    StripMesh mesh = patch.surface(patch.data()->origin());
    // Skirts turn as the triangles do, so their borders are walked backwards.
    for (unsigned i = 0; i < TinPatch::s_borders; ++i)
        if (!isOuter(patch, i)) {
            std::vector<unsigned> border = borderOf(patch, i);
            std::reverse(border.begin(), border.end());
            mesh.appendCurtain(mesh.strips, border, patch.wall());
        }
    return mesh;
}

/// Vertices only: strips without numbers.
StripMesh outerWallOf(const TinPatch & patch) {
    const NBX::SO<GeometryData> data = patch.data();
    const auto numbers = patch.vertexIndices();
    StripMesh mesh;
    for (unsigned i = 0; i < TinPatch::s_borders; ++i) {
        if (!isOuter(patch, i)) continue;
        for (const unsigned local : borderOf(patch, i)) {
            const StripMesh::Point top = data->vertex(numbers->get(local));
            mesh.vertices.push_back(top);
            mesh.vertices.emplace_back(top.x, patch.wall(), top.z);
        }
        mesh.strips.ranges.push_back(static_cast<unsigned>(mesh.vertices.size()));
    }
    return mesh;
}

NBX::SO<NBX::Shape> upload(NBX::EngineGL * engine, const StripMesh & mesh) {
    return StripMeshGL::upload(engine, StripMeshGL::upload(engine, mesh.vertices), mesh.strips);
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
    if (!tin.data()) return;
    if (!tin.patchShape()) tin.patchShape() = upload(engine, surfaceOf(tin));
    // The triangles of a triangulation turn the other way.
    const FrontFaceGL counterClockwise(GL_CCW, GL_CW);
    engine->paint(tin.patchShape().get());
}

void TinPatchPainterGL::renderOuterWall(NBX::EngineGL * engine, const GeometryPatch * patch) {
    NBX_CHECK(engine, L"no engine");
    if (!engine) return;
    const auto & tin = static_cast<const TinPatch &>(*patch);
    if (!tin.data()) return;
    bool hasWall = false;
    for (unsigned i = 0; i < TinPatch::s_borders; ++i)
        hasWall = hasWall || isOuter(tin, i);
    if (!hasWall) return;
    if (!tin.wallShape()) tin.wallShape() = upload(engine, outerWallOf(tin));
    engine->paint(tin.wallShape().get());
}

NBX_REGISTER_HANDLER_GL(TinPatchPainterGL)

} // namespace ZMT::CORE
