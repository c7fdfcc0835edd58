#include <zmt/core/terrain/geometry/regular/gridpatchshadowpaintergl.h>

#include "griddomain.h"
#include "gridpatchstripsgl.h"

#include <nbx/gl/context/enginegl.h>

namespace ZMT::CORE {

namespace {

using Point = NBX::Vector3Base<double>;

const Point s_direction(1.0, 0.1, 1.0);
constexpr double s_grey = 0.5;
constexpr double s_white = 1.0;

} // namespace

NBX_CLASS_IMPL(GridPatchShadowPainterGL, NBX::ShapePainter)

NBX::ID GridPatchShadowPainterGL::target() const {
    return GridPatch::ClassNameNBX();
}

bool GridPatchShadowPainterGL::render(NBX::Engine * engine, const NBX::Shape * shape) {
    NBX_CHECK(engine, L"no engine");
    const auto * patch = dynamic_cast<const GridPatch *>(shape);
    if (!engine || !patch || !liesOnItsGrid(*patch)) return false;

    const double bottom = patch->boundingBox().getLLF().y;
    const std::size_t last = patch->domain().getWidth();
    const GridData & grid = *patch->grid();
    const double firstZ = grid.vertex(0U, unsigned(patch->domain().getY())).z;
    const double lastZ = grid.vertex(0U, unsigned(patch->domain().getY()) + patch->domain().getHeight()).z;

    glPushAttrib(GL_ENABLE_BIT | GL_CURRENT_BIT);
    glEnable(GL_NORMALIZE);
    glDisable(GL_LIGHTING);
    glDisable(GL_COLOR_MATERIAL);
    drawGridPatchStripsGL(*patch, [&](const GridPatchRow & row, unsigned i) {
        const Point & top = row.vertices[i];
        const bool onBorder = i == 0 || i == last || top.z == firstZ || top.z == lastZ;
        const double grey = onBorder ? s_white : s_grey;
        const Point shadow = top + s_direction * (-(top.y - bottom) / s_direction.y);
        glColor3d(grey, grey, grey);
        glVertex3d(shadow.x, shadow.y, shadow.z);
    });
    glPopAttrib();
    return true;
}

} // namespace ZMT::CORE
