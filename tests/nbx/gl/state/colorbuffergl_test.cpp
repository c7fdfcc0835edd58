#include <nbx/gl/state/colorbuffergl.h>

#include "support/glfixture.h"
#include "support/roundtrip.h"

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

TEST_F(ColorBufferGLTest, AttributesForDifferentThingsHoldTogether) {
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

/// A half transparent thing on transparent ground covers half of what lies behind both, and one on opaque
/// ground leaves it opaque.
TEST_F(ColorBufferGLTest, WhatIsBlendedOverAColourAddsToItsAlpha) {
    const SO<ColorBufferGL> over = ColorBufferGL::newBlending(true, GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    for (const int ground : {0, 255}) {
        glClearColor(0.0F, 0.0F, 0.0F, float(ground) / 255.0F);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        engine->push(over.get());
        glColor4f(1.0F, 0.0F, 0.0F, 0.4F);
        glRecti(-1, -1, 1, 1);
        engine->pop(over.get());
        const std::array<int, 4> drawn = pixel(canvas->snapshot(), 32, 32);
        EXPECT_NEAR(102, drawn[0], 1);
        EXPECT_NEAR(ground == 0 ? 102 : 255, drawn[3], 1);
    }
    glColor4f(1.0F, 1.0F, 1.0F, 1.0F);
}

TEST_F(ColorBufferGLTest, OperationsTellWhatIsSet) {
    EXPECT_EQ(4U, SO<ColorBufferGL>(ColorBufferGL::newAlphaTest(true, GL_LESS, 0.0))->operations());
    EXPECT_EQ(2U, SO<ColorBufferGL>(ColorBufferGL::newLock(true, true, true, true))->operations());
    EXPECT_EQ(1U, SO<ColorBufferGL>(ColorBufferGL::newBlending(true, GL_ONE, GL_ONE))->operations());
}

TEST_F(ColorBufferGLTest, OneWithAllValuesHidesWhatIsBelow) {
    const SO<ColorBufferGL> lock = ColorBufferGL::newLock(false, false, false, false);
    const SO<ColorBufferGL> all = new ColorBufferGL(ColorBufferGL::O_All);
    engine->push(lock.get());
    engine->push(all.get());
    EXPECT_EQ((std::array<int, 4>{1, 1, 1, 1}), mask());
    engine->pop(all.get());
    EXPECT_EQ((std::array<int, 4>{0, 0, 0, 0}), mask());
    engine->pop(lock.get());
}

TEST_F(ColorBufferGLTest, IsStored) {
    const SO<ColorBufferGL> blending = roundTrip(SO<ColorBufferGL>(ColorBufferGL::newBlending(
        true, GL_SRC_ALPHA, GL_ONE_MINUS_CONSTANT_COLOR, Color(0.1, 0.2, 0.3, 0.4))));
    ASSERT_TRUE(blending);
    EXPECT_EQ(unsigned(ColorBufferGL::O_Blending), blending->operations());
    EXPECT_TRUE(blending->blending().enabled);
    EXPECT_EQ(unsigned(GL_SRC_ALPHA), blending->blending().source);
    EXPECT_EQ(unsigned(GL_ONE_MINUS_CONSTANT_COLOR), blending->blending().target);
    EXPECT_EQ(Color(0.1, 0.2, 0.3, 0.4), blending->blending().constant);
    const SO<ColorBufferGL> test =
        roundTrip(SO<ColorBufferGL>(ColorBufferGL::newAlphaTest(true, GL_GREATER, 0.8)));
    EXPECT_EQ(unsigned(ColorBufferGL::O_AlphaTest), test->operations());
    EXPECT_TRUE(test->alphaTest().enabled);
    EXPECT_EQ(unsigned(GL_GREATER), test->alphaTest().function);
    EXPECT_EQ(0.8, test->alphaTest().reference);
    const SO<ColorBufferGL> lock =
        roundTrip(SO<ColorBufferGL>(ColorBufferGL::newLock(true, false, true, false)));
    EXPECT_EQ(unsigned(ColorBufferGL::O_Lock), lock->operations());
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(i % 2 == 0, lock->writes(i)) << i;
}

TEST_F(ColorBufferGLTest, StoredValuesThatDoNotExistAreRefused) {
    for (const SO<ColorBufferGL> & wrong :
         {SO<ColorBufferGL>(ColorBufferGL::newAlphaTest(true, GL_NEVER - 1, 0.5)),
          SO<ColorBufferGL>(ColorBufferGL::newAlphaTest(true, GL_ALWAYS + 1, 0.5)),
          SO<ColorBufferGL>(ColorBufferGL::newBlending(true, 2, GL_ONE)),
          SO<ColorBufferGL>(ColorBufferGL::newBlending(true, GL_ONE, GL_SRC_ALPHA_SATURATE + 1)),
          SO<ColorBufferGL>(ColorBufferGL::newBlending(true, GL_ONE, GL_CONSTANT_COLOR - 1))})
        EXPECT_THROW(roundTrip(wrong), IOError);
}
