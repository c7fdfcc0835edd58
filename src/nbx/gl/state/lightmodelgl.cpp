#include <nbx/gl/state/lightmodelgl.h>

#include <GL/glew.h>

#include <nbx/engine/monoattributepainter.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/scene/attribute/disableshading.h>
#include <nbx/scene/attribute/light.h>

namespace NBX {

NBX_CLASS_IMPL(LightModelGL, MonoAttribute)

LightModelGL::LightModelGL(int mode, const Color & ambient)
    : MonoAttribute(true), mode_(mode), ambient_(mode & M_Ambient ? ambient : Color(0.2)) {}

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

class LightModelPainterGL : public MonoAttributePainter {
public:
    ID target() const override { return LightModelGL::ClassNameNBX(); }

    bool apply(Engine * engine, const MonoAttribute * attribute, bool entering) override {
        static const LightModelGL defaults(0);
        const auto & model = entering ? static_cast<const LightModelGL &>(*attribute) : defaults;
        glLightModelfv(GL_LIGHT_MODEL_AMBIENT, model.getAmbient().data());
        glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, (model.getMode() & LightModelGL::M_TwoSided) != 0);
        enableLighting(*engine,
                       entering ? (model.getMode() & LightModelGL::M_Lighting) != 0 : hasLights(*engine));
        return true;
    }
};

class DisableShadingPainterGL : public MonoAttributePainter {
public:
    ID target() const override { return DisableShading::ClassNameNBX(); }

    bool apply(Engine * engine, const MonoAttribute * attribute, bool entering) override {
        LightModelGL::updateLighting(engine, entering ? nullptr : attribute);
        return true;
    }
};

} // namespace

NBX_REGISTER_HANDLER_GL(LightModelPainterGL)
NBX_REGISTER_HANDLER_GL(DisableShadingPainterGL)

} // namespace NBX
