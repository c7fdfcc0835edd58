#include "lightsgl.h"

#include <algorithm>

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/scene/attribute/directionallight.h>
#include <nbx/scene/attribute/distantlight.h>
#include <nbx/scene/attribute/pointlight.h>

namespace NBX {

namespace {

unsigned maxLights() {
    GLint count = 0;
    glGetIntegerv(GL_MAX_LIGHTS, &count);
    return unsigned(count);
}

/// Lights are switched on in the order of their numbers.
unsigned shiningLights(unsigned limit) {
    unsigned count = 0;
    while (count < limit && glIsEnabled(GL_LIGHT0 + count))
        ++count;
    return count;
}

/// In homogeneous coordinates of the current frame, as OpenGL takes it: towards a light far away.
bool findPosition(const Light & light, GLfloat (&position)[4]) {
    Vector3Base<double> p;
    if (const auto * directional = dynamic_cast<const DirectionalLight *>(&light)) {
        p = -directional->getDirection();
        position[3] = 0.0F;
    } else if (const auto * distant = dynamic_cast<const DistantLight *>(&light)) {
        p = distant->getDirection();
        position[3] = 0.0F;
    } else if (const auto * point = dynamic_cast<const PointLight *>(&light)) {
        p = point->getPosition();
        position[3] = 1.0F;
    } else {
        return false;
    }
    position[0] = GLfloat(p.x);
    position[1] = GLfloat(p.y);
    position[2] = GLfloat(p.z);
    return true;
}

/// A light of an unknown class gives its colours from nowhere in particular: ambient light alone.
void shine(GLenum number, const Light & light) {
    GLfloat position[4] = {0.0F, 0.0F, 1.0F, 0.0F};
    const bool placed = findPosition(light, position);
    glLightfv(number, GL_POSITION, position);
    glLightfv(number, GL_AMBIENT, light.getAmbient().data());
    glLightfv(number, GL_DIFFUSE, (placed ? light.getDiffuse() : Color::black).data());
    glLightfv(number, GL_SPECULAR, (placed ? light.getSpecular() : Color::black).data());
    glEnable(number);
}

} // namespace

void LightsGL::update(EngineGL * engine) {
    const ID category = Light::ClassNameNBX();
    const unsigned limit = maxLights();
    const unsigned wanted = std::min(limit, engine->polyAttributeCount(category, Engine::PS_Enabled));
    unsigned shining = shiningLights(limit);
    for (; shining > wanted; --shining)
        glDisable(GL_LIGHT0 + shining - 1);
    for (; shining < wanted; ++shining)
        if (const auto * light =
                dynamic_cast<const Light *>(engine->polyAttribute(category, shining, Engine::PS_Enabled)))
            shine(GL_LIGHT0 + shining, *light);
    LightModelGL::updateLighting(engine);
}

namespace {

const bool s_lightsRegistered =
    (EngineGL::setPolyAttributesPainter(Light::ClassNameNBX(), &LightsGL::update), true);

} // namespace

} // namespace NBX
