#include <nbx/gl/texture/textureunitsettinggl.h>

#include "support/glfixture.h"
#include "support/roundtrip.h"

#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/gl/texture/texenvcombinegl.h>

using namespace NBX;

class TextureUnitSettingGLTest : public GLFixture {
protected:
    /// Everything about a unit that painters touch.
    std::vector<double> unitState(unsigned unit) {
        glActiveTexture(GL_TEXTURE0 + unit);
        std::vector<double> state;
        for (const GLenum name : {GL_TEXTURE_2D, GL_TEXTURE_GEN_S, GL_TEXTURE_GEN_T, GL_TEXTURE_GEN_R,
                                  GL_TEXTURE_GEN_Q, GL_TEXTURE_BINDING_2D}) {
            GLint value = 0;
            glGetIntegerv(name, &value);
            state.push_back(value);
        }
        GLint mode = 0;
        glGetTexEnviv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, &mode);
        state.push_back(mode);
        GLdouble values[16];
        glGetDoublev(GL_TEXTURE_MATRIX, values);
        state.insert(state.end(), values, values + 16);
        if (glIsEnabled(GL_TEXTURE_GEN_S)) {
            glGetTexGendv(GL_S, GL_OBJECT_PLANE, values);
            state.insert(state.end(), values, values + 4);
        }
        glActiveTexture(GL_TEXTURE0);
        return state;
    }
    std::vector<std::vector<double>> allUnits() {
        std::vector<std::vector<double>> states;
        for (unsigned unit = 0; unit < engine->textureCoordinateSets(); ++unit)
            states.push_back(unitState(unit));
        return states;
    }
    /// What a combining environment sets.
    static std::vector<GLint> combineState(unsigned unit) {
        glActiveTexture(GL_TEXTURE0 + unit);
        std::vector<GLint> state;
        for (const GLenum name :
             {GL_TEXTURE_ENV_MODE, GL_COMBINE_RGB, GL_COMBINE_ALPHA, GL_SOURCE0_RGB, GL_SOURCE1_RGB,
              GL_OPERAND0_RGB, GL_OPERAND1_RGB, GL_SOURCE0_ALPHA, GL_SOURCE1_ALPHA, GL_RGB_SCALE}) {
            GLint value = 0;
            glGetTexEnviv(GL_TEXTURE_ENV, name, &value);
            state.push_back(value);
        }
        glActiveTexture(GL_TEXTURE0);
        return state;
    }
    static SO<TextureGL> newTexture(double scale) {
        SO<TextureGL> texture = new ImageTexture2DGL(nullptr);
        texture->setMatrix(Matrix4x4Base<double>::scaling({scale, scale, 1.0}));
        return texture;
    }
};

TEST_F(TextureUnitSettingGLTest, EveryOrderOfPushingIsUndone) {
    const SO<TextureGL> a = newTexture(2.0), b = newTexture(3.0), c = newTexture(4.0);
    const SO<TexEnvGL> replace = new TexEnvGL(TexEnvGL::M_Replace);
    Matrix4x4Base<double> planes;
    planes(0, 0) = 5.0;
    const std::vector<SO<Attribute>> attributes{
        a,
        replace,
        new TexGenGL(),
        new TextureUnitSettingGL(0, b.get()),
        new TextureUnitSettingGL(1, c.get(), new TexEnvCombineGL(),
                                 new TexGenGL(TexGenGL::M_ObjectLinear, planes)),
        new TextureUnitSettingGL(0, nullptr)};
    std::vector<std::size_t> order{0, 1, 2, 3, 4, 5};
    const std::vector<int> before = stateOfGL();
    const auto unitsBefore = allUnits();
    do {
        std::vector<std::vector<std::vector<double>>> states;
        for (const std::size_t i : order) {
            states.push_back(allUnits());
            engine->push(attributes[i].get());
        }
        for (std::size_t n = order.size(); n-- > 0;) {
            engine->pop(attributes[order[n]].get());
            ASSERT_EQ(states[n], allUnits()) << "after popping " << n;
        }
        std::reverse(order.begin() + 3, order.end());
    } while (std::next_permutation(order.begin(), order.end()) &&
             std::next_permutation(order.begin(), order.end()));
    EXPECT_EQ(before, stateOfGL());
    EXPECT_EQ(unitsBefore, allUnits());
}

TEST_F(TextureUnitSettingGLTest, GeneratorsHoldForAllUnitsWithoutTheirOwn) {
    Matrix4x4Base<double> planes;
    planes(0, 0) = 5.0;
    const SO<TexGenGL> common = new TexGenGL(TexGenGL::M_ObjectLinear, planes), own = new TexGenGL();
    const SO<TextureUnitSettingGL> setting =
        new TextureUnitSettingGL(1, newTexture(1.0).get(), nullptr, own.get());
    engine->push(setting.get());
    engine->push(common.get());
    for (unsigned unit = 0; unit < engine->textureCoordinateSets(); ++unit) {
        glActiveTexture(GL_TEXTURE0 + unit);
        GLdouble plane[4];
        glGetTexGendv(GL_S, GL_OBJECT_PLANE, plane);
        EXPECT_TRUE(glIsEnabled(GL_TEXTURE_GEN_S));
        EXPECT_EQ(unit == 1 ? 1.0 : 5.0, plane[0]) << unit;
    }
    glActiveTexture(GL_TEXTURE0);
    engine->pop(common.get());
    engine->pop(setting.get());
    EXPECT_FALSE(glIsEnabled(GL_TEXTURE_GEN_S));
}

TEST_F(TextureUnitSettingGLTest, UnitsAreCategoriesOfTheirOwn) {
    EXPECT_NE(TextureUnitSettingGL::category(0), TextureUnitSettingGL::category(1));
    EXPECT_EQ(TextureUnitSettingGL::category(1),
              SO<TextureUnitSettingGL>(new TextureUnitSettingGL(1, nullptr))->category());
    EXPECT_EQ(TextureGL::ClassNameNBX(), newTexture(1.0)->category());
}

TEST_F(TextureUnitSettingGLTest, AUnitThatDoesNotExistIsReported) {
    const SO<TextureUnitSettingGL> setting = new TextureUnitSettingGL(32, nullptr);
    EXPECT_EQ(1U, reports.count(0, L"unit < maxUnits", L"unit out of range: 32"));
    reports.clear();
}

TEST_F(TextureUnitSettingGLTest, IsStored) {
    const SO<TexGenGL> texGen =
        new TexGenGL(TexGenGL::M_EyeLinear, Matrix4x4Base<double>::scaling({1, 2, 3}));
    const SO<TextureUnitSettingGL> setting =
        new TextureUnitSettingGL(2, newTexture(7.0).get(), nullptr, texGen.get());
    const SO<TextureUnitSettingGL> read = roundTrip(setting);
    ASSERT_TRUE(read && read->texture() && read->texGen());
    EXPECT_EQ(2U, read->unit());
    EXPECT_EQ(setting->texture()->getMatrix(), read->texture()->getMatrix());
    EXPECT_EQ(TexGenGL::M_EyeLinear, read->texGen()->getMode());
    EXPECT_EQ(texGen->getPlanes(), read->texGen()->getPlanes());
}

TEST_F(TextureUnitSettingGLTest, IsStoredWithItsEnvironment) {
    const SO<TexEnvGL> blend = new TexEnvGL(TexEnvGL::M_Blend);
    blend->setEnvironmentColor(Color(0.25F, 0.5F, 0.75F, 1.0F));
    const SO<TextureUnitSettingGL> plain =
        roundTrip(SO<TextureUnitSettingGL>(new TextureUnitSettingGL(0, newTexture(1.0).get(), blend.get())));
    ASSERT_TRUE(plain && plain->texEnv());
    EXPECT_EQ(TexEnvGL::M_Blend, plain->texEnv()->getMode());
    EXPECT_EQ(blend->getEnvironmentColor(), plain->texEnv()->getEnvironmentColor());

    const SO<TexEnvCombineGL> combine = new TexEnvCombineGL();
    combine->setColor(GL_MODULATE, {GL_TEXTURE, GL_SRC_COLOR}, {GL_CONSTANT, GL_ONE_MINUS_SRC_COLOR});
    combine->setAlpha(GL_ADD, {GL_TEXTURE, GL_SRC_ALPHA}, {GL_PREVIOUS, GL_SRC_ALPHA});
    combine->setColorScale(4);
    const SO<TextureUnitSettingGL> setting =
        new TextureUnitSettingGL(1, newTexture(1.0).get(), combine.get());
    const SO<TextureUnitSettingGL> read = roundTrip(setting);
    ASSERT_TRUE(read && dynamic_cast<TexEnvCombineGL *>(read->texEnv()));
    engine->push(setting.get());
    const auto before = combineState(1);
    engine->pop(setting.get());
    engine->push(read.get());
    EXPECT_EQ(before, combineState(1));
    engine->pop(read.get());
}
