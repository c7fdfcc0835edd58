#include "chunkedlodterrainpatchpaintergl.h"

#include "chunkedlodpatchmesh.h"
#include "chunkedlodterrainpatch.h"
#include "core/terrain/geometry/base/stripmeshgl.h"
#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/shape/composite.h>
#include <zmt/core/terrain/geometry/base/geometrypatchpaintergl.h>

namespace ZMT::CORE {

namespace {

/// Nothing at all where there are no strips.
NBX::SO<NBX::Shape> upload(NBX::EngineGL * engine, const StripMeshGL::Vertices & vertices,
                           const StripMesh::Strips & strips) {
    if (strips.indices.empty()) return new NBX::Composite;
    return StripMeshGL::upload(engine, vertices, strips);
}

/// Of the buffers: three single numbers a vertex, 16 bits an index.
unsigned bytesOf(const ChunkedLodPatchMesh & mesh) {
    const auto bytesOfStrips = [](const StripMesh::Strips & strips) {
        return strips.indices.size() * sizeof(std::uint16_t) + strips.ranges.size() * sizeof(std::uint32_t);
    };
    return static_cast<unsigned>(mesh.vertices.size() * 3 * sizeof(float) + bytesOfStrips(mesh.strips) +
                                 bytesOfStrips(mesh.outerWall));
}

using Meshes = ChunkedLodTerrain::Patch::Meshes;

NBX::SO<Meshes> createShapeForPatch(NBX::EngineGL * engine, const ChunkedLodTerrain::Patch * patch) {
    const ChunkedLodPatchMesh mesh(*patch);
    const StripMeshGL::Vertices vertices = StripMeshGL::upload(engine, mesh.vertices);
    NBX::SO<Meshes> meshes(new Meshes);
    meshes->surface = upload(engine, vertices, mesh.strips);
    meshes->outerWall = upload(engine, vertices, mesh.outerWall);
    meshes->bytes = bytesOf(mesh);
    patch->setMeshes(meshes, mesh.surfaceVertices, mesh.surfaceTriangles);
    return meshes;
}

/// Draws a patch of a chunked terrain from buffers, which are made on first use and kept as long as the
/// graphics memory has room for them.
class ChunkedLodTerrain_Patch_PainterGL : public GeometryPatchPainterGL {
    NBX_TEMPLATE_CLASS(ChunkedLodTerrain_Patch_PainterGL, GeometryPatchPainterGL)
public:
    NBX::ID target() const override { return ChunkedLodTerrain::Patch::ClassNameNBX(); }
    bool shouldUseDisplayLists() const override { return false; }

    void renderPatch(NBX::EngineGL * engine, const GeometryPatch * patch) override {
        NBX_CHECK(engine, L"no engine");
        if (!engine) return;
        const NBX::SO<Meshes> meshes = meshesOf(engine, patch);
        const NBX::SO<NBX::Shape> & surfaceMesh_ = meshes->surface;
        NBX_CHECK(surfaceMesh_, L"internal error");
        if (surfaceMesh_) engine->paint(surfaceMesh_.get());
    }

    void renderOuterWall(NBX::EngineGL * engine, const GeometryPatch * patch) override {
        NBX_CHECK(engine, L"no engine");
        if (!engine) return;
        const NBX::SO<Meshes> meshes = meshesOf(engine, patch);
        const NBX::SO<NBX::Shape> & outerWallMesh_ = meshes->outerWall;
        NBX_CHECK(outerWallMesh_, L"internal error");
        if (outerWallMesh_) engine->paint(outerWallMesh_.get());
    }

private:
    static NBX::SO<Meshes> meshesOf(NBX::EngineGL * engine, const GeometryPatch * patch) {
        const auto & window = static_cast<const ChunkedLodTerrain::Patch &>(*patch);
        NBX::SO<Meshes> meshes = window.meshes();
        if (!meshes) meshes = createShapeForPatch(engine, &window);
        NBX::GraphicsMemoryManager::instance()->use(meshes.get(), meshes->bytes);
        return meshes;
    }
};

} // namespace

NBX_REGISTER_HANDLER_GL(ChunkedLodTerrain_Patch_PainterGL)

GeometryPatchPainterGL * newChunkedLodTerrainPatchPainterGL() {
    return new ChunkedLodTerrain_Patch_PainterGL;
}

} // namespace ZMT::CORE
