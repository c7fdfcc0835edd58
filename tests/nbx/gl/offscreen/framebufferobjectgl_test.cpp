#include <nbx/gl/offscreen/framebufferobjectgl.h>

#include <nbx/gl/texture/texture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/scene/shape/box.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;

class FrameBufferObjectGLTest : public GLFixture {
protected:
    SO<FrameBufferObjectGL> newFrameBuffer(unsigned width, unsigned height, unsigned format = GL_RGBA8) {
        const SO<FrameBufferObjectGL> object(new FrameBufferObjectGL(engine.get(), width, height));
        object->attachColor(0, SO<RenderBufferGL>(new RenderBufferGL(engine.get(), width, height, format)));
        object->attachDepth(
            SO<RenderBufferGL>(new RenderBufferGL(engine.get(), width, height, GL_DEPTH24_STENCIL8)));
        return object;
    }
    static void clear(float r, float g, float b, float a) {
        glClearColor(r, g, b, a);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    }
};

TEST_F(FrameBufferObjectGLTest, TakesWhatIsDrawnWhileItIsBound) {
    const auto object = newFrameBuffer(20, 10);
    ASSERT_TRUE(object->isComplete());
    clear(0, 0, 0, 0);
    object->bind(engine.get());
    clear(1, 0, 0, 1);
    object->unbind(engine.get());
    const SO<Image> image(new MemoryImage(20, 10, LS_RGBA));
    ASSERT_TRUE(object->renderImage(engine.get(), image.get()));
    EXPECT_EQ(Color::red, image->getColor(19, 9));
    EXPECT_EQ(0, pixel(canvas->snapshot(), 0, 0)[0]) << "the canvas is untouched";
}

TEST_F(FrameBufferObjectGLTest, RestoresFrameBufferAndViewport) {
    const auto object = newFrameBuffer(20, 10), inner = newFrameBuffer(4, 4);
    const std::vector<int> before = stateOfGL();
    object->bind(engine.get());
    const std::vector<int> bound = stateOfGL();
    EXPECT_NE(before, bound);
    inner->bind(engine.get());
    inner->unbind(engine.get());
    EXPECT_EQ(bound, stateOfGL());
    object->unbind(engine.get());
    EXPECT_EQ(before, stateOfGL());
    object->unbind(engine.get());
    EXPECT_EQ(1U, reports.count(L"the frame buffer object is not bound"));
    reports.clear();
}

TEST_F(FrameBufferObjectGLTest, IsIncompleteWithoutAttachments) {
    const SO<FrameBufferObjectGL> object(new FrameBufferObjectGL(engine.get(), 4, 4));
    EXPECT_FALSE(object->isComplete());
}

TEST_F(FrameBufferObjectGLTest, DrawsIntoATexture) {
    const SO<Texture2DGL> texture(new Texture2DGL(8, 8, GL_RGBA8));
    texture->bind(engine.get());
    glBindTexture(GL_TEXTURE_2D, 0);
    const SO<FrameBufferObjectGL> object(new FrameBufferObjectGL(engine.get(), 8, 8));
    object->attachColorTexture(0, texture, GL_TEXTURE_2D, texture->name());
    ASSERT_TRUE(object->isComplete());
    object->bind(engine.get());
    clear(0, 1, 0, 1);
    object->unbind(engine.get());
    std::vector<unsigned char> texels(8 * 8 * 4);
    texture->bind(engine.get());
    glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, texels.data());
    glBindTexture(GL_TEXTURE_2D, 0);
    EXPECT_EQ(0, texels[0]);
    EXPECT_EQ(255, texels[1]);
}

TEST_F(FrameBufferObjectGLTest, MayHaveDepthAlone) {
    const SO<Texture2DGL> depth(new Texture2DGL(8, 8, GL_DEPTH_COMPONENT24));
    depth->bind(engine.get());
    glBindTexture(GL_TEXTURE_2D, 0);
    const SO<FrameBufferObjectGL> object(new FrameBufferObjectGL(engine.get(), 8, 8));
    object->attachDepthTexture(depth, GL_TEXTURE_2D, depth->name());
    EXPECT_TRUE(object->isComplete());
}

TEST_F(FrameBufferObjectGLTest, KeepsFloats) {
    const auto object = newFrameBuffer(2, 2, GL_RGBA32F_ARB);
    ASSERT_TRUE(object->isComplete());
    object->bind(engine.get());
    glClampColorARB(GL_CLAMP_FRAGMENT_COLOR_ARB, GL_FALSE);
    clear(-9999.0F, 1234.5F, 0.25F, 1.0F);
    object->unbind(engine.get());
    const SO<Image> image(new MemoryImage(2, 2, LS_RGBA, Image::Float));
    glClampColorARB(GL_CLAMP_READ_COLOR_ARB, GL_FALSE);
    ASSERT_TRUE(object->renderImage(engine.get(), image.get()));
    const auto * values = static_cast<const float *>(image->pixelComponents(1, 1));
    EXPECT_EQ(-9999.0F, values[0]);
    EXPECT_EQ(1234.5F, values[1]);
}

TEST_F(FrameBufferObjectGLTest, TakesWhatIsDrawnWhileItIsTheTopAttribute) {
    const auto outer = newFrameBuffer(20, 10), inner = newFrameBuffer(6, 6);
    clear(0, 0, 0, 0);
    const std::vector<int> before = stateOfGL();
    engine->push(outer.get());
    const std::vector<int> within = stateOfGL();
    engine->push(inner.get());
    clear(0, 0, 1, 1);
    engine->pop(inner.get());
    EXPECT_EQ(within, stateOfGL());
    clear(0, 1, 0, 1);
    engine->pop(outer.get());
    EXPECT_EQ(before, stateOfGL());
    const SO<Image> outerImage(new MemoryImage(20, 10, LS_RGB)), innerImage(new MemoryImage(6, 6, LS_RGB));
    ASSERT_TRUE(outer->renderImage(engine.get(), outerImage.get()));
    ASSERT_TRUE(inner->renderImage(engine.get(), innerImage.get()));
    EXPECT_EQ(Color::green, outerImage->getColor(0, 0));
    EXPECT_EQ(Color::blue, innerImage->getColor(0, 0));
}

TEST_F(FrameBufferObjectGLTest, RefusesImagesOfAnotherSize) {
    const auto object = newFrameBuffer(4, 4);
    const SO<Image> image(new MemoryImage(4, 5, LS_RGB));
    EXPECT_FALSE(object->renderImage(engine.get(), image.get()));
    EXPECT_FALSE(object->renderImage(engine.get(), nullptr));
    EXPECT_EQ(2U, reports.size());
    reports.clear();
}

TEST_F(FrameBufferObjectGLTest, BelongsToItsContext) {
    auto object = newFrameBuffer(4, 4);
    const SO<OffscreenCanvasGL> other(new OffscreenCanvasGL(4, 4));
    ASSERT_TRUE(other->makeContextCurrent());
    EXPECT_FALSE(object->isComplete());
    object->bind(other->engine().get());
    object->unbind(other->engine().get());
    EXPECT_EQ(1U, reports.count(L"the frame buffer object belongs to another context"));
    reports.clear();
    object = nullptr;
    GLint bound = -1;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING_EXT, &bound);
    EXPECT_EQ(GLint(other->frameBuffer()), bound);
    other->releaseContext();
}

TEST_F(FrameBufferObjectGLTest, FreesItsNames) {
    const Names before = countNames();
    newFrameBuffer(4, 4);
    EXPECT_EQ(before, countNames());
}

TEST_F(FrameBufferObjectGLTest, RenderBuffersHaveALimit) {
    const unsigned limit = RenderBufferGL::maxSize();
    const SO<RenderBufferGL> largest(new RenderBufferGL(engine.get(), limit, 1, GL_RGBA8));
    EXPECT_NE(0U, largest->name());
    const SO<RenderBufferGL> tooLarge(new RenderBufferGL(engine.get(), limit + 1, 1, GL_RGBA8));
    EXPECT_EQ(0U, tooLarge->name());
    const SO<RenderBufferGL> empty(new RenderBufferGL(engine.get(), 0, 1, GL_RGBA8));
    EXPECT_EQ(0U, empty->name());
    EXPECT_EQ(2U, reports.size()) << reports;
    reports.clear();
}

/// A driver without the extension, whose functions GLEW leaves null.
class OldDriver {
public:
    OldDriver() {
        __glewBindFramebufferEXT = nullptr;
        __glewGenFramebuffersEXT = nullptr;
        __glewGenRenderbuffersEXT = nullptr;
        __glewCheckFramebufferStatusEXT = nullptr;
        flag_ = GL_FALSE;
    }
    ~OldDriver() {
        flag_ = before_;
        __glewBindFramebufferEXT = bind_;
        __glewGenFramebuffersEXT = generate_;
        __glewGenRenderbuffersEXT = generateBuffers_;
        __glewCheckFramebufferStatusEXT = check_;
    }

private:
    GLboolean & flag_ = __GLEW_EXT_framebuffer_object;
    const GLboolean before_ = flag_;
    const PFNGLBINDFRAMEBUFFEREXTPROC bind_ = __glewBindFramebufferEXT;
    const PFNGLGENFRAMEBUFFERSEXTPROC generate_ = __glewGenFramebuffersEXT;
    const PFNGLGENRENDERBUFFERSEXTPROC generateBuffers_ = __glewGenRenderbuffersEXT;
    const PFNGLCHECKFRAMEBUFFERSTATUSEXTPROC check_ = __glewCheckFramebufferStatusEXT;
};

TEST_F(FrameBufferObjectGLTest, WithoutTheExtensionNothingHasAnEffect) {
    const OldDriver driver;
    EXPECT_FALSE(FrameBufferObjectGL::isSupported());
    const auto object = newFrameBuffer(20, 10);
    EXPECT_EQ(reports.count(2, L"false", L"the graphics driver has no frame buffer objects"), 1U) << reports;
    EXPECT_FALSE(object->isComplete());
    object->bind(engine.get());
    object->unbind(engine.get());
    const SO<Image> image(new MemoryImage(20, 10, LS_RGBA));
    EXPECT_FALSE(object->renderImage(engine.get(), image.get()));
    root->append(object.get());
    canvas->redisplay();
    EXPECT_TRUE(canvas->snapshot());
    EXPECT_EQ(reports.size(), 1U) << reports;
    reports.clear();
}

TEST_F(FrameBufferObjectGLTest, WithoutTheExtensionThereIsNoCanvasOfBuffers) {
    const OldDriver driver;
    const SO<OffscreenCanvasGL> other(new OffscreenCanvasGL(8, 8));
    EXPECT_FALSE(other->isCreated());
    EXPECT_EQ(
        reports.count(2, L"false",
                      L"the graphics driver has no frame buffer objects; use a canvas with pixel buffers"),
        1U)
        << reports;
    reports.clear();
}

} // namespace
