#include "boxpaintergl.h"

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/shape/box.h>

namespace NBX {

NBX_CLASS_IMPL(BoxPainterGL, ShapePainter)

namespace {

/// The side of the box where the coordinate `axis` is least or largest, with corners counter-clockwise as
/// seen from outside.
void drawSide(const Bounds & box, unsigned axis, bool upper) {
    const unsigned u = (axis + 1) % 3, v = (axis + 2) % 3;
    Vector3Base<double> normal;
    normal[axis] = upper ? 1.0 : -1.0;
    glNormal3d(normal.x, normal.y, normal.z);
    static constexpr bool corners[4][2] = {{false, false}, {true, false}, {true, true}, {false, true}};
    for (unsigned i = 0; i < 4; ++i) {
        const bool * corner = corners[upper ? i : 3 - i];
        Vector3Base<double> p;
        p[axis] = upper ? box.getURB()[axis] : box.getLLF()[axis];
        p[u] = corner[0] ? box.getURB()[u] : box.getLLF()[u];
        p[v] = corner[1] ? box.getURB()[v] : box.getLLF()[v];
        glVertex3d(p.x, p.y, p.z);
    }
}

} // namespace

ID BoxPainterGL::target() const {
    return Box::ClassNameNBX();
}

bool BoxPainterGL::render(Engine * engine, const Shape * shape) {
    const auto * box = dynamic_cast<const Box *>(shape);
    NBX_CHECK(engine, L"no engine");
    if (!engine || !box) return false;
    if (!box->getBounds().isDefined()) return true;
    glPushAttrib(GL_CURRENT_BIT);
    glBegin(GL_QUADS);
    for (unsigned axis = 0; axis < 3; ++axis) {
        drawSide(box->getBounds(), axis, false);
        drawSide(box->getBounds(), axis, true);
    }
    glEnd();
    glPopAttrib();
    return true;
}

NBX_REGISTER_HANDLER_GL(BoxPainterGL)

} // namespace NBX
