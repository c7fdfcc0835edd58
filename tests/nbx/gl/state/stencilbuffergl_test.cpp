#include <nbx/gl/state/stencilbuffergl.h>

#include "support/glfixture.h"

using namespace NBX;

class StencilBufferGLTest : public GLFixture {
protected:
    static std::vector<int> stencil() {
        std::vector<int> values;
        for (const GLenum name : {GL_STENCIL_TEST, GL_STENCIL_FUNC, GL_STENCIL_REF, GL_STENCIL_VALUE_MASK,
                                  GL_STENCIL_FAIL, GL_STENCIL_PASS_DEPTH_FAIL, GL_STENCIL_PASS_DEPTH_PASS}) {
            GLint value = 0;
            glGetIntegerv(name, &value);
            values.push_back(value);
        }
        return values;
    }
};

TEST_F(StencilBufferGLTest, HoldsUntilItIsPopped) {
    const SO<StencilBufferGL> write =
        new StencilBufferGL(2, GL_ALWAYS, 7, 0xff, GL_KEEP, GL_KEEP, GL_REPLACE);
    const SO<StencilBufferGL> test = new StencilBufferGL(2, GL_EQUAL, 7, 0xff, GL_KEEP, GL_KEEP, GL_KEEP);
    engine->push(write.get());
    EXPECT_EQ((std::vector<int>{1, GL_ALWAYS, 7, 0xff, GL_KEEP, GL_KEEP, GL_REPLACE}), stencil());
    engine->push(test.get());
    EXPECT_EQ((std::vector<int>{1, GL_EQUAL, 7, 0xff, GL_KEEP, GL_KEEP, GL_KEEP}), stencil());
    engine->pop(test.get());
    EXPECT_EQ(GL_REPLACE, stencil()[6]);
    engine->pop(write.get());
    EXPECT_EQ(0, stencil()[0]);
    EXPECT_EQ(GL_ALWAYS, stencil()[1]);
}
