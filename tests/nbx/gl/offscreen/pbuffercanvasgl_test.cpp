#include <nbx/gl/offscreen/pbuffercanvasgl.h>

#include <nbx/gl/context/contextgl.h>
#include <nbx/gl/texture/texture2dgl.h>
#include <nbx/image/memoryimage.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;

class PBufferCanvasGLTest : public GLFixture {
protected:
    /// The texel of a texture, read in the current context.
    static std::array<unsigned char, 4> texel(EngineGL * engine, const SO<Texture2DGL> & texture, unsigned x,
                                              unsigned y) {
        std::vector<unsigned char> texels(texture->getWidth() * texture->getHeight() * 4);
        texture->bind(engine);
        glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, texels.data());
        glBindTexture(GL_TEXTURE_2D, 0);
        std::array<unsigned char, 4> result;
        std::copy_n(texels.begin() + (y * texture->getWidth() + x) * 4, 4, result.begin());
        return result;
    }
};

TEST_F(PBufferCanvasGLTest, HasTheMode23) {
    EXPECT_TRUE(PBufferCanvasGL::isSupported());
    const SO<PBufferCanvasGL> buffer(new PBufferCanvasGL(20, 10, 23, nullptr, false, 6408, 3553));
    ASSERT_TRUE(buffer->isCreated());
    EXPECT_TRUE(buffer->hasProperty(GLCanvas::COLOR_BUFFER | GLCanvas::ALPHA_BUFFER | GLCanvas::DEPTH_BUFFER |
                                    GLCanvas::STENCIL_BUFFER));
    EXPECT_EQ(20U, buffer->getWidth());
    EXPECT_EQ(10U, buffer->getHeight());
}

TEST_F(PBufferCanvasGLTest, KeepsAlphaInItsPicture) {
    const SO<PBufferCanvasGL> buffer(new PBufferCanvasGL(20, 10, 23, nullptr, false, 6408, 3553));
    buffer->setBackgroundColor(Color(0.2, 0.4, 0.6, 0.8));
    buffer->redisplay();
    const SO<Image> image = buffer->snapshot();
    EXPECT_EQ(4, image->numberOfLayers());
    EXPECT_EQ((std::array<int, 4>{51, 102, 153, 204}), pixel(image, 19, 9));
}

TEST_F(PBufferCanvasGLTest, TellsWhatItReallyHas) {
    const SO<PBufferCanvasGL> buffer(
        new PBufferCanvasGL(4, 4, GLCanvas::COLOR_BUFFER | GLCanvas::DEPTH_BUFFER));
    ASSERT_TRUE(buffer->isCreated());
    ASSERT_TRUE(buffer->makeContextCurrent());
    GLint alpha = 0;
    glGetIntegerv(GL_ALPHA_BITS, &alpha);
    EXPECT_EQ(alpha > 0, buffer->hasProperty(GLCanvas::ALPHA_BUFFER));
    buffer->releaseContext();
    EXPECT_EQ(alpha > 0 ? 4 : 3, buffer->snapshot()->numberOfLayers());
}

TEST_F(PBufferCanvasGLTest, ChangesItsSize) {
    const SO<PBufferCanvasGL> buffer(new PBufferCanvasGL(20, 10));
    ASSERT_TRUE(buffer->setSize(30, 40));
    buffer->setBackgroundColor(Color::white);
    buffer->redisplay();
    EXPECT_EQ(Color::white, buffer->snapshot()->getColor(29, 39));
}

TEST_F(PBufferCanvasGLTest, CutsItsSizeToTheLimitWhereThatIsWanted) {
    const unsigned limit = ContextGL::maxPixelBufferSize();
    const SO<PBufferCanvasGL> cut(new PBufferCanvasGL(limit + 1, 4, 23, nullptr, true));
    ASSERT_TRUE(cut->isCreated());
    EXPECT_EQ(limit, cut->getWidth());
    EXPECT_TRUE(reports.empty());
    const SO<PBufferCanvasGL> failed(new PBufferCanvasGL(limit + 1, 4, 23, nullptr, false));
    EXPECT_FALSE(failed->isCreated());
    EXPECT_EQ(1U, reports.size());
    reports.clear();
}

TEST_F(PBufferCanvasGLTest, MakesATextureOfItsPictureForOtherContexts) {
    const SO<PBufferCanvasGL> buffer(new PBufferCanvasGL(16, 8, 23, canvas.get()));
    buffer->setBackgroundColor(Color(1.0, 0.0, 0.0, 0.2));
    buffer->redisplay();
    const SO<Texture2DGL> texture = buffer->newTexture(GL_RGBA, false);
    ASSERT_TRUE(texture);
    EXPECT_EQ(16U, texture->getWidth());
    EXPECT_EQ(8U, texture->getHeight());
    EXPECT_TRUE(canvas->isContextCurrent());
    EXPECT_EQ((std::array<unsigned char, 4>{255, 0, 0, 51}), texel(engine.get(), texture, 15, 7));
    buffer->setBackgroundColor(Color::green);
    buffer->redisplay();
    ASSERT_TRUE(buffer->updateTexture(texture.get()));
    EXPECT_EQ((std::array<unsigned char, 4>{0, 255, 0, 255}), texel(engine.get(), texture, 0, 0));
}

TEST_F(PBufferCanvasGLTest, RefusesToUpdateATextureOfAnotherSize) {
    const SO<PBufferCanvasGL> buffer(new PBufferCanvasGL(16, 8));
    const SO<Texture2DGL> texture = buffer->newTexture(0, true);
    ASSERT_TRUE(texture);
    ASSERT_TRUE(buffer->setSize(8, 8));
    EXPECT_FALSE(buffer->updateTexture(texture.get()));
    EXPECT_EQ(1U, reports.count(L"the texture does not have the size of the canvas"));
    EXPECT_FALSE(buffer->updateTexture(nullptr));
    reports.clear();
    buffer->destroy();
    EXPECT_EQ(nullptr, buffer->newTexture(GL_RGBA, false));
}

TEST_F(PBufferCanvasGLTest, FloatsAreKeptBeyondOneAndBelowTheStepsOfBytes) {
    const unsigned properties =
        GLCanvas::COLOR_BUFFER | GLCanvas::ALPHA_BUFFER | PBufferCanvasGL::FLOAT_BUFFER;
    ASSERT_TRUE(PBufferCanvasGL::isSupported(properties));
    const SO<PBufferCanvasGL> buffer(new PBufferCanvasGL(4, 4, properties));
    ASSERT_TRUE(buffer->isCreated());
    EXPECT_TRUE(buffer->hasProperty(properties));
    buffer->prepareRedisplay();
    glClearColor(0.0F, 0.0F, 0.0F, 0.0F);
    glClear(GL_COLOR_BUFFER_BIT);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ONE, GL_ONE);
    glDisable(GL_DEPTH_TEST);
    for (int i = 0; i < 8; ++i) {
        glColor4f(0.5F, 0.0001F, 0.0F, 1.0F);
        glRectf(-1.0F, -1.0F, 1.0F, 1.0F);
    }
    glColor4f(1.0F, 1.0F, 1.0F, 1.0F);
    const SO<Image> image(new MemoryImage(4, 4, LS_RGBA, Image::Float));
    EXPECT_TRUE(buffer->snapshot(image.get()));
    buffer->finishRedisplay();
    EXPECT_EQ(4.0F, image->getColor(1, 1)[0]);
    EXPECT_NEAR(0.0008F, image->getColor(1, 1)[1], 0.00001F);
    EXPECT_EQ(8.0F, image->getColor(1, 1)[3]);
    EXPECT_FALSE(SO<PBufferCanvasGL>(new PBufferCanvasGL(4, 4))->hasProperty(PBufferCanvasGL::FLOAT_BUFFER));
}

} // namespace
