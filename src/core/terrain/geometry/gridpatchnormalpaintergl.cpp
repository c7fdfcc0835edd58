#include <zmt/core/terrain/geometry/gridpatchnormalpaintergl.h>

#include "gridpatchstripsgl.h"

#include <nbx/gl/enginegl.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(GridPatchNormalPainterGL, GeometryPatchPainterGL)

NBX::ID GridPatchNormalPainterGL::target() const {
    return GridPatch::ClassNameNBX();
}

void GridPatchNormalPainterGL::renderPatch(NBX::EngineGL * engine, const GeometryPatch * patch) {
    NBX_CHECK(engine, L"no engine");
    if (!engine) return;
    glPushAttrib(GL_LIGHTING_BIT | GL_CURRENT_BIT);
    glDisable(GL_LIGHTING);
    drawGridPatchStripsGL(
        static_cast<const GridPatch &>(*patch), [this](const GridPatchRow & row, unsigned i) {
            const auto & n = row.normals[i];
            const auto unit =
                NBX::Vector3Base<double>(n.x * scale_.x, n.y * scale_.y, n.z * scale_.z).normalized();
            glColor3d(unit.x * 0.5 + 0.5, unit.y * 0.5 + 0.5, unit.z * 0.5 + 0.5);
            glVertex3dv(&row.vertices[i].x);
        });
    glPopAttrib();
}

void GridPatchNormalPainterGL::renderOuterWall(NBX::EngineGL * engine, const GeometryPatch *) {
    NBX_CHECK(engine, L"no engine");
}

} // namespace ZMT::CORE
