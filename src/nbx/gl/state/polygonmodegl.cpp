#include <nbx/gl/state/polygonmodegl.h>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(PolygonModeGL, MonoAttribute)

static_assert(PolygonModeGL::M_Point == GL_POINT && PolygonModeGL::M_Line == GL_LINE &&
              PolygonModeGL::M_Fill == GL_FILL);

PolygonModeGL::PolygonModeGL(unsigned mode) : MonoAttribute(true), mode_(mode) {
    NBX_CHECK(mode == GL_FILL || mode == GL_LINE || mode == GL_POINT, L"no such mode: " << mode);
}

namespace {

void apply(EngineGL &, const PolygonModeGL & attribute, bool entering) {
    glPolygonMode(GL_FRONT_AND_BACK, entering ? attribute.getMode() : GL_FILL);
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(PolygonModeGL, apply)

} // namespace NBX
