#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include <nbx/scene/attribute/colorattribute.h>

namespace NBX {

namespace {

void apply(EngineGL &, const ColorAttribute & attribute, bool entering) {
    glColor4fv((entering ? attribute.getColor() : Color::white).data());
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(ColorAttribute, apply)

} // namespace NBX
