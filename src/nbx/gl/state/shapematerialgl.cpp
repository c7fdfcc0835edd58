#include <nbx/gl/state/shapematerialgl.h>

#include <algorithm>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(ShapeMaterialGL, MonoAttribute)

ShapeMaterialGL::ShapeMaterialGL(const Color & color, const Color & specular, double shininess, int component,
                                 const Color & ambient, const Color & diffuse, const Color & emission,
                                 bool twoSided, bool enabled)
    : MonoAttribute(enabled), color_(color), specular_(specular), ambient_(ambient), diffuse_(diffuse),
      emission_(emission), shininess_(std::clamp(shininess, 0.0, 128.0)), component_(C_None),
      twoSided_(twoSided) {
    NBX_CHECK_RANGE(int(C_None), component, int(C_Emission) + 1);
    NBX_CHECK(0.0 <= shininess && shininess <= 128.0, L"invalid shininess: " << shininess);
    if (C_None <= component && component <= C_Emission) component_ = static_cast<Component>(component);
}

namespace {

/// 0 for no component.
GLenum componentValue(ShapeMaterialGL::Component component) {
    switch (component) {
    case ShapeMaterialGL::C_Ambient:
        return GL_AMBIENT;
    case ShapeMaterialGL::C_Diffuse:
        return GL_DIFFUSE;
    case ShapeMaterialGL::C_AmbientAndDiffuse:
        return GL_AMBIENT_AND_DIFFUSE;
    case ShapeMaterialGL::C_Specular:
        return GL_SPECULAR;
    case ShapeMaterialGL::C_Emission:
        return GL_EMISSION;
    case ShapeMaterialGL::C_None:
        break;
    }
    return 0;
}

void emitComponents(GLenum face, const ShapeMaterialGL & material) {
    glMaterialfv(face, GL_AMBIENT, material.getAmbient().data());
    glMaterialfv(face, GL_DIFFUSE, material.getDiffuse().data());
    glMaterialfv(face, GL_SPECULAR, material.getSpecular().data());
    glMaterialfv(face, GL_EMISSION, material.getEmission().data());
    glMaterialf(face, GL_SHININESS, static_cast<GLfloat>(material.getShininess()));
}

const ShapeMaterialGL & defaultMaterial() {
    static const ShapeMaterialGL material(Color::white, Color::black, 0.0, ShapeMaterialGL::C_None);
    return material;
}

void emit(const ShapeMaterialGL & material) {
    glDisable(GL_COLOR_MATERIAL);
    emitComponents(GL_FRONT, material);
    emitComponents(GL_BACK, material.isTwoSided() ? material : defaultMaterial());
    const GLenum component = componentValue(material.getComponent());
    glColor4fv(material.getColor().data());
    // Mesa 22.3 loses what the colour does to the material when materials set before are still on their way;
    // asking for one sees them through. See the test LightsGLTest.ShowTheColorOfAMaterial.
    GLfloat settled[4];
    glGetMaterialfv(GL_FRONT, GL_AMBIENT, settled);
    glColorMaterial(material.isTwoSided() || component == 0 ? GL_FRONT_AND_BACK : GL_FRONT,
                    component != 0 ? component : GL_AMBIENT_AND_DIFFUSE);
    if (component != 0) glEnable(GL_COLOR_MATERIAL);
}

void apply(EngineGL &, const ShapeMaterialGL & material, bool entering) {
    emit(entering ? material : defaultMaterial());
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(ShapeMaterialGL, apply)

} // namespace NBX
