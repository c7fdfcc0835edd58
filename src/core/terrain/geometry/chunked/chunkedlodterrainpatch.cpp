#include "chunkedlodterrainpatch.h"

#include <algorithm>

#include "chunkedlodpatchmesh.h"
#include "chunkedlodterrainimpl.h"
#include <nbx/engine/graphicsmemorymanager.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(ChunkedLodTerrain::Patch, GeometryPatch)

ChunkedLodTerrain::Patch::Patch(const NBX::SO<ChunkedLodTerrain> & terrain, unsigned x, unsigned y,
                                unsigned size, unsigned short threshold, double wall, unsigned short coarsest)
    : Patch(terrain, ChunkedLodWindow::drawn(*terrain->impl(), x, y, size, threshold, coarsest), wall) {}

ChunkedLodTerrain::Patch::Patch(const NBX::SO<ChunkedLodTerrain> & terrain, const ChunkedLodWindow & w,
                                double wall)
    : GeometryPatch(terrain->calculateBoundingBox(w.x, w.y, w.size, w.threshold, wall),
                    static_cast<double>(terrain->heightScale()) * w.threshold, wall, nullptr),
      terrain_(terrain), window_(w) {}

ChunkedLodTerrain::Patch::~Patch() {
    if (const NBX::SO<Meshes> held = meshes()) NBX::GraphicsMemoryManager::instance()->remove(held.get());
}

NBX::SO<NBX::Shape> ChunkedLodTerrain::Patch::surfaceMesh() const {
    const NBX::SO<Meshes> held = meshes();
    return held ? held->surface : nullptr;
}

NBX::SO<NBX::Shape> ChunkedLodTerrain::Patch::outerWallMesh() const {
    const NBX::SO<Meshes> held = meshes();
    return held ? held->outerWall : nullptr;
}

void ChunkedLodTerrain::Patch::setMeshes(const NBX::SO<Meshes> & meshes, std::size_t vertices,
                                         std::size_t triangles) const {
    meshes_ = meshes;
    vertices_ = static_cast<unsigned>(vertices);
    triangles_ = static_cast<unsigned>(triangles);
}

GeometryPatch::Description ChunkedLodTerrain::Patch::description() const {
    if (vertices_ == 0) {
        const StripMesh mesh = surface({});
        vertices_ = static_cast<unsigned>(mesh.vertices.size());
        triangles_ = static_cast<unsigned>(mesh.triangles());
    }
    const auto cellsFrom = [this](unsigned first, unsigned size) {
        return std::min(first + window_.size, size) - 1 - std::min(first, size - 1);
    };
    const Impl & lattice = *terrain_->impl();
    const NBX::Area cells(int(x()), int(y()), cellsFrom(x(), lattice.sizeX()),
                          cellsFrom(y(), lattice.sizeY()));
    return {"chunked", cells, vertices_, triangles_};
}

StripMesh ChunkedLodTerrain::Patch::surface(const NBX::Vector3Base<double> & zero) const {
    return ChunkedLodPatchMesh::surfaceOf(*this, zero);
}

NBX::SO<GeometryData> ChunkedLodTerrain::Patch::data() const {
    return terrain_->data();
}

unsigned ChunkedLodTerrain::Patch::children() const {
    return window_.children(*terrain_->impl());
}

NBX::SO<GeometryPatch> ChunkedLodTerrain::Patch::child(unsigned i) const {
    if (i < children() && GeometryPatch::children() < children())
        for (unsigned k = 0; k < children(); ++k)
            const_cast<Patch *>(this)->addChild(
                new Patch(terrain_, window_.child(*terrain_->impl(), k), wall()));
    return GeometryPatch::child(i);
}

} // namespace ZMT::CORE
