#include <nbx/gl/state/lightmodelgl.h>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include "nbx/scene/base/serializecolor.h"
#include <nbx/object/serializationmanager.h>
#include <nbx/scene/attribute/disableshading.h>
#include <nbx/scene/attribute/light.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(LightModelGL, MonoAttribute)

LightModelGL::LightModelGL(int mode, const Color & ambient)
    : MonoAttribute(true), mode_(mode), ambient_(mode & M_Ambient ? ambient : Color(0.2)) {}

void LightModelGL::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<MonoAttribute>(m, this);
    attributeWithDefault(m, "mode", mode_, 0);
    serializeColor(m, "ambient", ambient_, Color(0.2));
}

namespace {

/// `leaving` is an attribute that is just ceasing to be the current one; null for none.
void enableLighting(const Engine & engine, bool on, const MonoAttribute * leaving = nullptr) {
    const MonoAttribute * disabling = engine.getAttribute(DisableShading::ClassNameNBX());
    if (on && (!disabling || disabling == leaving))
        glEnable(GL_LIGHTING);
    else
        glDisable(GL_LIGHTING);
}

bool hasLights(const Engine & engine) {
    return engine.polyAttributeCount(Light::ClassNameNBX(), Engine::PS_Enabled) > 0;
}

} // namespace

void LightModelGL::updateLighting(Engine * engine, const MonoAttribute * leaving) {
    const auto * model = dynamic_cast<const LightModelGL *>(engine->getAttribute(ClassNameNBX()));
    enableLighting(*engine, model ? (model->getMode() & M_Lighting) != 0 : hasLights(*engine), leaving);
}

namespace {

void apply(EngineGL & engine, const LightModelGL & attribute, bool entering) {
    static const LightModelGL defaults(0);
    const LightModelGL & model = entering ? attribute : defaults;
    glLightModelfv(GL_LIGHT_MODEL_AMBIENT, model.getAmbient().data());
    glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, (model.getMode() & LightModelGL::M_TwoSided) != 0);
    enableLighting(engine, entering ? (model.getMode() & LightModelGL::M_Lighting) != 0 : hasLights(engine));
}

void disableShading(EngineGL & engine, const DisableShading & attribute, bool entering) {
    LightModelGL::updateLighting(&engine, entering ? nullptr : &attribute);
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(LightModelGL, apply)
NBX_REGISTER_ATTRIBUTE_GL(DisableShading, disableShading)

} // namespace NBX
