#include <nbx/gl/contextgl.h>

#include <thread>

#include <GL/glew.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;

class ContextGLTest : public GLFixture {};

TEST(ContextGLPlatform, HasOpenGLWithoutAWindow) {
    EXPECT_TRUE(ContextGL::isSupported());
    EXPECT_GE(ContextGL::maxPixelBufferSize(), 1024U);
    EXPECT_EQ(nullptr, ContextGL::current());
}

TEST_F(ContextGLTest, IsACompatibilityContext) {
    GLint profile = 0;
    glGetIntegerv(GL_CONTEXT_PROFILE_MASK, &profile);
    EXPECT_EQ(0, profile & GL_CONTEXT_CORE_PROFILE_BIT);
    glBegin(GL_POINTS);
    glEnd();
    EXPECT_EQ(GLenum(GL_NO_ERROR), glGetError());
}

TEST_F(ContextGLTest, HasTheBitsAskedFor) {
    const SO<ContextGL> context(new ContextGL);
    ASSERT_TRUE(context->create(8, 8, {true, true, true}));
    ASSERT_TRUE(context->makeCurrent());
    GLint bits[6] = {};
    const GLenum names[6] = {GL_RED_BITS,   GL_GREEN_BITS, GL_BLUE_BITS,
                             GL_ALPHA_BITS, GL_DEPTH_BITS, GL_STENCIL_BITS};
    for (int i = 0; i < 6; ++i)
        glGetIntegerv(names[i], bits + i);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(8, bits[i]) << i;
    EXPECT_EQ(24, bits[4]);
    EXPECT_EQ(8, bits[5]);
    context->destroy();
    ASSERT_TRUE(canvas->makeContextCurrent());
}

TEST_F(ContextGLTest, SharesTexturesAndBuffersButNotFrameBuffers) {
    GLuint texture = 0, buffer = 0, frameBuffer = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glGenBuffers(1, &buffer);
    glBindBuffer(GL_ARRAY_BUFFER, buffer);
    glGenFramebuffersEXT(1, &frameBuffer);
    glBindTexture(GL_TEXTURE_2D, 0);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    const SO<OffscreenCanvasGL> other(new OffscreenCanvasGL(8, 8));
    ASSERT_TRUE(other->makeContextCurrent());
    EXPECT_TRUE(glIsTexture(texture));
    EXPECT_TRUE(glIsBuffer(buffer));
    other->releaseContext();
    glDeleteTextures(1, &texture);
    glDeleteBuffers(1, &buffer);
    glDeleteFramebuffersEXT(1, &frameBuffer);
}

TEST_F(ContextGLTest, ObjectsOutliveTheContextTheyWereMadeIn) {
    GLuint texture = 0;
    {
        const SO<ContextGL> context(new ContextGL);
        ASSERT_TRUE(context->create(4, 4, {}));
        ASSERT_TRUE(context->makeCurrent());
        glGenTextures(1, &texture);
        glBindTexture(GL_TEXTURE_2D, texture);
    }
    EXPECT_EQ(nullptr, ContextGL::current());
    ASSERT_TRUE(canvas->makeContextCurrent());
    EXPECT_TRUE(glIsTexture(texture));
    glDeleteTextures(1, &texture);
}

TEST_F(ContextGLTest, IsCurrentOnOneThread) {
    ContextGL * elsewhere = ContextGL::current();
    EXPECT_NE(nullptr, elsewhere);
    std::thread([&] { elsewhere = ContextGL::current(); }).join();
    EXPECT_EQ(nullptr, elsewhere);
}

TEST_F(ContextGLTest, StaysCurrentWhenItIsResized) {
    const SO<ContextGL> context(new ContextGL);
    ASSERT_TRUE(context->create(4, 4, {}));
    ASSERT_TRUE(context->makeCurrent());
    ASSERT_TRUE(context->resize(40, 30));
    EXPECT_TRUE(context->isCurrent());
    glClearColor(1.0F, 0.0F, 0.0F, 1.0F);
    glClear(GL_COLOR_BUFFER_BIT);
    unsigned char pixel[4] = {};
    glReadPixels(39, 29, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel);
    EXPECT_EQ(255, pixel[0]);
    EXPECT_EQ(255, pixel[3]);
    context->destroy();
    EXPECT_FALSE(context->resize(2, 2));
    EXPECT_FALSE(context->makeCurrent());
    ASSERT_TRUE(canvas->makeContextCurrent());
}

TEST_F(ContextGLTest, IsNotMadeTwice) {
    const SO<ContextGL> context(new ContextGL);
    ASSERT_TRUE(context->create(4, 4, {}));
    EXPECT_FALSE(context->create(4, 4, {}));
    EXPECT_EQ(1U, reports.count(0, L"!isCreated()", L"the context exists already"));
    reports.clear();
}

} // namespace
