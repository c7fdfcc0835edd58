#include <nbx/gl/state/depthbuffergl.h>

#include "support/glfixture.h"
#include "support/roundtrip.h"

using namespace NBX;

class DepthBufferGLTest : public GLFixture {
protected:
    struct State {
        bool test, write;
        int function;
        float nearRange, farRange;
        bool operator==(const State &) const = default;
    };
    static State state() {
        GLboolean write = GL_FALSE;
        glGetBooleanv(GL_DEPTH_WRITEMASK, &write);
        GLint function = 0;
        glGetIntegerv(GL_DEPTH_FUNC, &function);
        GLfloat range[2];
        glGetFloatv(GL_DEPTH_RANGE, range);
        return {glIsEnabled(GL_DEPTH_TEST) == GL_TRUE, write == GL_TRUE, function, range[0], range[1]};
    }
    const State defaults{true, true, GL_LESS, 0.0F, 1.0F};
};

TEST_F(DepthBufferGLTest, SetsAllOrNamedValuesAndGivesThemBack) {
    EXPECT_EQ(defaults, state());
    const SO<DepthBufferGL> equal = new DepthBufferGL(14, false, true, GL_EQUAL, 0.0, 0.5);
    const SO<DepthBufferGL> unwritten = new DepthBufferGL(2, false, true, GL_LESS, 0.0, 1.0);
    const SO<DepthBufferGL> plain = new DepthBufferGL(8, 1, 1, 513, 0.0, 1.0);
    engine->push(unwritten.get());
    EXPECT_EQ((State{true, false, GL_LESS, 0.0F, 1.0F}), state());
    engine->push(equal.get());
    EXPECT_EQ((State{true, false, GL_EQUAL, 0.0F, 0.5F}), state());
    engine->push(plain.get());
    EXPECT_EQ(defaults, state());
    engine->pop(plain.get());
    EXPECT_EQ((State{true, false, GL_EQUAL, 0.0F, 0.5F}), state());
    engine->push(unwritten.get());
    EXPECT_EQ((State{true, false, GL_EQUAL, 0.0F, 0.5F}), state());
    engine->pop(unwritten.get());
    engine->pop(equal.get());
    EXPECT_EQ((State{true, false, GL_LESS, 0.0F, 1.0F}), state());
    engine->pop(unwritten.get());
    EXPECT_EQ(defaults, state());
}

TEST_F(DepthBufferGLTest, SwitchesDepthOff) {
    const SO<DepthBufferGL> off = new DepthBufferGL(false, false);
    engine->push(off.get());
    EXPECT_EQ((State{false, false, GL_LESS, 0.0F, 1.0F}), state());
    engine->pop(off.get());
    EXPECT_EQ(defaults, state());
}

TEST_F(DepthBufferGLTest, TheSameAttributeMayBePushedTwice) {
    const SO<DepthBufferGL> off = new DepthBufferGL(false, false);
    engine->push(off.get());
    engine->push(off.get());
    engine->pop(off.get());
    EXPECT_FALSE(state().test);
    engine->pop(off.get());
    EXPECT_EQ(defaults, state());
}

TEST_F(DepthBufferGLTest, IsStored) {
    const SO<DepthBufferGL> read =
        roundTrip(SO<DepthBufferGL>(new DepthBufferGL(2, false, false, GL_GEQUAL, 0.25, 0.75)));
    ASSERT_TRUE(read);
    EXPECT_EQ(2U, read->operations());
    EXPECT_FALSE(read->writes());
    EXPECT_FALSE(read->tests());
    EXPECT_EQ(unsigned(GL_GEQUAL), read->function());
    EXPECT_EQ(0.25, read->nearRange());
    EXPECT_EQ(0.75, read->farRange());
    for (const unsigned wrong : {GL_NEVER - 1, GL_ALWAYS + 1})
        EXPECT_THROW(roundTrip(SO<DepthBufferGL>(new DepthBufferGL(2, false, false, wrong, 0.0, 1.0))),
                     IOError);
}
