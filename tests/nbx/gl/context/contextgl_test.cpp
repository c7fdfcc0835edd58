#include <nbx/gl/context/contextgl.h>

#include <thread>

#include <EGL/egl.h>
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

/// Stands for a context that somebody else makes current: that of `window`.
class WindowContext : public ContextGL {
public:
    explicit WindowContext(const SO<ContextGL> & window) : window_(window) {}
    bool isCreated() const override { return true; }
    bool makeCurrent() override { return window_->makeCurrent() && enter(); }
    void release() override {
        leave();
        window_->makeCurrent();
        window_->release();
    }

private:
    SO<ContextGL> window_;
};

TEST_F(ContextGLTest, ContextOfAWindowSystemIsCurrentAsLongAsItSays) {
    const SO<ContextGL> window(new ContextGL);
    ASSERT_TRUE(window->create(8, 8, {}));
    const SO<WindowContext> context(new WindowContext(window));
    ASSERT_TRUE(context->makeCurrent());
    EXPECT_TRUE(context->isCurrent());
    EXPECT_FALSE(window->isCurrent());
    EXPECT_EQ(context.get(), ContextGL::current());
    context->release();
    EXPECT_EQ(nullptr, ContextGL::current());
    context->release();
    ASSERT_TRUE(canvas->makeContextCurrent());
    context->destroy();
    EXPECT_TRUE(canvas->isContextCurrent());
    EXPECT_NE(context.get(), ContextGL::current());
}

TEST_F(ContextGLTest, ContextOfAWindowSystemOwnsNames) {
    const SO<ContextGL> window(new ContextGL);
    ASSERT_TRUE(window->create(8, 8, {}));
    const SO<WindowContext> context(new WindowContext(window));
    ASSERT_TRUE(context->makeCurrent());
    NameGL query = NameGL::generate(NameGL::NK_Query);
    const unsigned name = query.get();
    glBeginQuery(GL_SAMPLES_PASSED, name);
    glEndQuery(GL_SAMPLES_PASSED);
    ASSERT_TRUE(glIsQuery(name));
    context->release();
    EXPECT_FALSE(query.isKnownHere());
    query.drop();
    ASSERT_TRUE(window->makeCurrent());
    EXPECT_TRUE(glIsQuery(name)) << "freed although its context was not current";
    ASSERT_TRUE(context->makeCurrent());
    EXPECT_FALSE(glIsQuery(name)) << "not freed when its context became current";
    context->release();
    ASSERT_TRUE(canvas->makeContextCurrent());
}

TEST_F(ContextGLTest, SharesWithACurrentContextOfItsOwnDisplayOnly) {
    EXPECT_TRUE(ContextGL::shareWithCurrent());
    canvas->releaseContext();
    EXPECT_FALSE(ContextGL::shareWithCurrent()) << "no context is current";
    ASSERT_TRUE(canvas->makeContextCurrent());
}

} // namespace
