#include <nbx/gl/state/colorbuffergl.h>

#include "support/glfixture.h"

using namespace NBX;

class ColorBufferGLTest : public GLFixture {
protected:
    static int integer(GLenum name) {
        GLint value = 0;
        glGetIntegerv(name, &value);
        return value;
    }
    static std::array<int, 4> mask() {
        GLboolean m[4];
        glGetBooleanv(GL_COLOR_WRITEMASK, m);
        return {m[0], m[1], m[2], m[3]};
    }
};

TEST_F(ColorBufferGLTest, attributesForDifferentThingsHoldTogether) {
    const std::vector<int> before = stateOfGL();
    const SO<ColorBufferGL> test = ColorBufferGL::newAlphaTest(true, GL_GEQUAL, 0.5);
    const SO<ColorBufferGL> blending = ColorBufferGL::newBlending(true, GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    const SO<ColorBufferGL> lock = ColorBufferGL::newLock(false, true, false, true);
    for (const auto & attribute : {test, blending, lock})
        engine->push(attribute.get());
    EXPECT_TRUE(glIsEnabled(GL_ALPHA_TEST));
    EXPECT_EQ(GL_GEQUAL, integer(GL_ALPHA_TEST_FUNC));
    EXPECT_TRUE(glIsEnabled(GL_BLEND));
    EXPECT_EQ(GL_SRC_ALPHA, integer(GL_BLEND_SRC));
    EXPECT_EQ(GL_ONE_MINUS_SRC_ALPHA, integer(GL_BLEND_DST));
    EXPECT_EQ((std::array<int, 4>{0, 1, 0, 1}), mask());
    engine->pop(lock.get());
    EXPECT_EQ((std::array<int, 4>{1, 1, 1, 1}), mask());
    EXPECT_TRUE(glIsEnabled(GL_BLEND));
    engine->pop(blending.get());
    EXPECT_FALSE(glIsEnabled(GL_BLEND));
    EXPECT_TRUE(glIsEnabled(GL_ALPHA_TEST));
    engine->pop(test.get());
    EXPECT_EQ(before, stateOfGL());
}

TEST_F(ColorBufferGLTest, operationsTellWhatIsSet) {
    EXPECT_EQ(4U, SO<ColorBufferGL>(ColorBufferGL::newAlphaTest(true, GL_LESS, 0.0))->operations());
    EXPECT_EQ(2U, SO<ColorBufferGL>(ColorBufferGL::newLock(true, true, true, true))->operations());
    EXPECT_EQ(1U, SO<ColorBufferGL>(ColorBufferGL::newBlending(true, GL_ONE, GL_ONE))->operations());
}

TEST_F(ColorBufferGLTest, oneWithAllValuesHidesWhatIsBelow) {
    const SO<ColorBufferGL> lock = ColorBufferGL::newLock(false, false, false, false);
    const SO<ColorBufferGL> all = new ColorBufferGL(ColorBufferGL::O_All);
    engine->push(lock.get());
    engine->push(all.get());
    EXPECT_EQ((std::array<int, 4>{1, 1, 1, 1}), mask());
    engine->pop(all.get());
    EXPECT_EQ((std::array<int, 4>{0, 0, 0, 0}), mask());
    engine->pop(lock.get());
}
