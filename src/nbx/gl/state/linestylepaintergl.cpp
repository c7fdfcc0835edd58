#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include <nbx/scene/attribute/linestyle.h>

namespace NBX {

namespace {

void emit(const LineStyle & style) {
    glLineWidth(static_cast<GLfloat>(style.getWidth()));
    glLineStipple(static_cast<GLint>(style.getStippleFactor()), static_cast<GLushort>(style.getStipple()));
    if (style.getStipple() == LineStyle::wholeLine)
        glDisable(GL_LINE_STIPPLE);
    else
        glEnable(GL_LINE_STIPPLE);
}

void apply(EngineGL &, const LineStyle & style, bool entering) {
    static const LineStyle defaults;
    emit(entering ? style : defaults);
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(LineStyle, apply)

} // namespace NBX
