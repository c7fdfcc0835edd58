#include <zmt/core/terrain/geometry/regular/gridpatchnormalpaintergl.h>

#include "griddomain.h"
#include "gridpatchstripsgl.h"
#include "normalcolorgl.h"

#include <nbx/gl/context/enginegl.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(GridPatchNormalPainterGL, GeometryPatchPainterGL)

NBX::ID GridPatchNormalPainterGL::target() const {
    return GridPatch::ClassNameNBX();
}

void GridPatchNormalPainterGL::renderPatch(NBX::EngineGL * engine, const GeometryPatch * patch) {
    NBX_CHECK(engine, L"no engine");
    const auto & gridPatch = static_cast<const GridPatch &>(*patch);
    if (!engine || !liesOnItsGrid(gridPatch)) return;
    glPushAttrib(GL_LIGHTING_BIT | GL_CURRENT_BIT);
    glDisable(GL_LIGHTING);
    drawGridPatchSurfaceGL(*engine, gridPatch, [this](const GridPatchRow & row, unsigned i) {
        normalColorGL(row.normals[i], scale_);
        glVertex3dv(&row.vertices[i].x);
    });
    glPopAttrib();
}

void GridPatchNormalPainterGL::renderOuterWall(NBX::EngineGL * engine, const GeometryPatch *) {
    NBX_CHECK(engine, L"no engine");
}

} // namespace ZMT::CORE
