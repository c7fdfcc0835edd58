#include "plainmaterialpaintergl.h"

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/scene/attribute/shapematerial.h>

namespace NBX {

NBX_CLASS_IMPL(PlainMaterialPainterGL, MonoAttributePainter)

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

} // namespace

ID PlainMaterialPainterGL::target() const {
    return ShapeMaterial::ClassNameNBX();
}

bool PlainMaterialPainterGL::apply(Engine *, const MonoAttribute * attribute, bool entering) {
    const auto * material = dynamic_cast<const ShapeMaterial *>(attribute);
    if (!material) return false;
    restoreDefaults();
    if (!entering) return true;
    glColorMaterial(GL_FRONT_AND_BACK, GL_AMBIENT_AND_DIFFUSE);
    glEnable(GL_COLOR_MATERIAL);
    glColor4fv(material->getAmbientAndDiffuse().data());
    emitHighlight(material->getSpecular(), material->getEmission(), material->getShininess());
    return true;
}

NBX_REGISTER_HANDLER_GL(PlainMaterialPainterGL)

} // namespace NBX
