#include <nbx/gl/state/polygonoffsetgl.h>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"

namespace NBX {

NBX_CLASS_IMPL(PolygonOffsetGL, MonoAttribute)

PolygonOffsetGL::PolygonOffsetGL(unsigned faces, double factor, double units)
    : MonoAttribute(true), faces_(faces), factor_(factor), units_(units) {}

namespace {

void set(GLenum capability, bool on) {
    if (on)
        glEnable(capability);
    else
        glDisable(capability);
}

void emit(const PolygonOffsetGL & state) {
    set(GL_POLYGON_OFFSET_FILL, (state.getFaces() & PolygonOffsetGL::F_Filled) != 0);
    set(GL_POLYGON_OFFSET_LINE, (state.getFaces() & PolygonOffsetGL::F_Lines) != 0);
    set(GL_POLYGON_OFFSET_POINT, (state.getFaces() & PolygonOffsetGL::F_Points) != 0);
    glPolygonOffset(static_cast<GLfloat>(state.getFactor()), static_cast<GLfloat>(state.getUnits()));
}

void apply(EngineGL &, const PolygonOffsetGL & state, bool entering) {
    static const PolygonOffsetGL none(0, 0.0, 0.0);
    emit(entering ? state : none);
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(PolygonOffsetGL, apply)

} // namespace NBX
