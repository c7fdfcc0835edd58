#include <nbx/gl/state/lightmodelgl.h>

#include "support/glfixture.h"
#include "support/roundtrip.h"

#include <nbx/scene/attribute/directionallight.h>
#include <nbx/scene/attribute/disableshading.h>

using namespace NBX;

class LightModelGLTest : public GLFixture {
protected:
    static std::vector<float> ambient() {
        std::vector<float> values(4);
        glGetFloatv(GL_LIGHT_MODEL_AMBIENT, values.data());
        return values;
    }
};

TEST_F(LightModelGLTest, LightingIsOnForTheLightingBitOnly) {
    for (const int mode : {0, 1, 2, 3, 4, 5}) {
        const SO<LightModelGL> model = new LightModelGL(mode, Color::black);
        engine->push(model.get());
        EXPECT_EQ((mode & 1) != 0, glIsEnabled(GL_LIGHTING) == GL_TRUE) << mode;
        EXPECT_EQ(mode & 2 ? 0.0F : 0.2F, ambient()[0]) << mode;
        GLint twoSided = 0;
        glGetIntegerv(GL_LIGHT_MODEL_TWO_SIDE, &twoSided);
        EXPECT_EQ((mode & 4) != 0, twoSided != 0) << mode;
        engine->pop(model.get());
        EXPECT_FALSE(glIsEnabled(GL_LIGHTING));
        EXPECT_EQ(0.2F, ambient()[0]);
    }
}

TEST_F(LightModelGLTest, WithoutAModelTheLightsDecide) {
    const SO<DirectionalLight> light = new DirectionalLight();
    const SO<LightModelGL> off = new LightModelGL(0);
    engine->push(light.get());
    LightModelGL::updateLighting(engine.get());
    EXPECT_TRUE(glIsEnabled(GL_LIGHTING));
    engine->push(off.get());
    EXPECT_FALSE(glIsEnabled(GL_LIGHTING));
    LightModelGL::updateLighting(engine.get());
    EXPECT_FALSE(glIsEnabled(GL_LIGHTING));
    engine->pop(off.get());
    EXPECT_TRUE(glIsEnabled(GL_LIGHTING));
    engine->pop(light.get());
    LightModelGL::updateLighting(engine.get());
    EXPECT_FALSE(glIsEnabled(GL_LIGHTING));
}

TEST_F(LightModelGLTest, NothingIsLitWhileShadingIsDisabled) {
    const SO<LightModelGL> lit = new LightModelGL(1), later = new LightModelGL(1);
    const SO<DisableShading> outer = new DisableShading, inner = new DisableShading;
    engine->push(lit.get());
    engine->push(outer.get());
    EXPECT_FALSE(glIsEnabled(GL_LIGHTING));
    engine->push(later.get());
    EXPECT_FALSE(glIsEnabled(GL_LIGHTING));
    engine->push(inner.get());
    engine->pop(inner.get());
    EXPECT_FALSE(glIsEnabled(GL_LIGHTING));
    engine->pop(later.get());
    EXPECT_FALSE(glIsEnabled(GL_LIGHTING));
    engine->pop(outer.get());
    EXPECT_TRUE(glIsEnabled(GL_LIGHTING));
    engine->pop(lit.get());
    EXPECT_FALSE(glIsEnabled(GL_LIGHTING));
}

TEST_F(LightModelGLTest, LightsAreOutWhileShadingIsDisabled) {
    const SO<DirectionalLight> light = new DirectionalLight();
    const SO<DisableShading> disabling = new DisableShading;
    engine->push(disabling.get());
    engine->push(light.get());
    EXPECT_FALSE(glIsEnabled(GL_LIGHTING));
    engine->pop(disabling.get());
    EXPECT_TRUE(glIsEnabled(GL_LIGHTING));
    engine->pop(light.get());
    EXPECT_FALSE(glIsEnabled(GL_LIGHTING));
}

TEST_F(LightModelGLTest, IsStored) {
    const SO<LightModelGL> model = roundTrip(SO<LightModelGL>(new LightModelGL(2, Color(0.1, 0.2, 0.3))));
    ASSERT_TRUE(model);
    EXPECT_EQ(2, model->getMode());
    EXPECT_EQ(Color(0.1, 0.2, 0.3), model->getAmbient());
    EXPECT_EQ(Color(0.2), roundTrip(SO<LightModelGL>(new LightModelGL(1)))->getAmbient());
}
