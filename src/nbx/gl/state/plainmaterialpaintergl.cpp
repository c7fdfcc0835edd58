#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include <nbx/scene/attribute/shapematerial.h>

namespace NBX {

namespace {

void emitHighlight(const Color & specular, const Color & emission, double shininess) {
    glMaterialfv(GL_FRONT_AND_BACK, GL_SPECULAR, specular.data());
    glMaterialfv(GL_FRONT_AND_BACK, GL_EMISSION, emission.data());
    glMaterialf(GL_FRONT_AND_BACK, GL_SHININESS, GLfloat(shininess));
}

void restoreDefaults() {
    const Color ambient(0.2F), diffuse(0.8F);
    glDisable(GL_COLOR_MATERIAL);
    glColor4fv(Color::white.data());
    glMaterialfv(GL_FRONT_AND_BACK, GL_AMBIENT, ambient.data());
    glMaterialfv(GL_FRONT_AND_BACK, GL_DIFFUSE, diffuse.data());
    emitHighlight(Color::black, Color::black, 0.0);
    // Mesa 22.3 loses what the colour does to the material when materials set before are still on their way;
    // asking for one sees them through. See the test AnswersToAmbientLightAndEmits.
    GLfloat settled[4];
    glGetMaterialfv(GL_FRONT, GL_AMBIENT, settled);
}

/// The colour of ambient and diffuse light is also the plain colour of unlit surfaces, and gives way to
/// colours of vertices. A `ShapeMaterialGL` should not be in force at once.
void apply(EngineGL &, const ShapeMaterial & material, bool entering) {
    restoreDefaults();
    if (!entering) return;
    glColorMaterial(GL_FRONT_AND_BACK, GL_AMBIENT_AND_DIFFUSE);
    glEnable(GL_COLOR_MATERIAL);
    glColor4fv(material.getAmbientAndDiffuse().data());
    emitHighlight(material.getSpecular(), material.getEmission(), material.getShininess());
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(ShapeMaterial, apply)

} // namespace NBX
