#include <nbx/gl/offscreen/offscreencanvasgl.h>

#include <nbx/gl/context/contextgl.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;

class OffscreenCanvasGLTest : public GLFixture {};

TEST_F(OffscreenCanvasGLTest, HasAllProperties) {
    EXPECT_TRUE(OffscreenCanvasGL::isSupported());
    EXPECT_TRUE(canvas->hasProperty(GLCanvas::COLOR_BUFFER | GLCanvas::ALPHA_BUFFER | GLCanvas::DEPTH_BUFFER |
                                    GLCanvas::STENCIL_BUFFER));
    EXPECT_FALSE(canvas->hasProperty(GLCanvas::DOUBLE_BUFFER));
    GLint depth = 0, stencil = 0;
    glGetIntegerv(GL_DEPTH_BITS, &depth);
    glGetIntegerv(GL_STENCIL_BITS, &stencil);
    EXPECT_EQ(24, depth);
    EXPECT_EQ(8, stencil);
}

TEST_F(OffscreenCanvasGLTest, MayBeLargerThanAPixelBuffer) {
    ASSERT_GT(canvas->maxSize(), ContextGL::maxPixelBufferSize());
    const unsigned width = ContextGL::maxPixelBufferSize() + 17;
    const SO<OffscreenCanvasGL> wide(new OffscreenCanvasGL(width, 3));
    ASSERT_TRUE(wide->isCreated());
    wide->setBackgroundColor(Color(0.0, 1.0, 0.0, 1.0));
    wide->redisplay();
    const SO<Image> image = wide->snapshot();
    ASSERT_TRUE(image);
    EXPECT_EQ(int(width), image->width());
    EXPECT_EQ(Color::green, image->getColor(int(width) - 1, 2));
}

TEST_F(OffscreenCanvasGLTest, RefusesASizeBeyondTheLimit) {
    EXPECT_FALSE(canvas->setSize(canvas->maxSize() + 1, 4));
    EXPECT_EQ(64U, canvas->getWidth());
    EXPECT_EQ(1U, reports.size());
    reports.clear();
    canvas->setBackgroundColor(Color::red);
    EXPECT_EQ(Color::red, draw()->getColor(63, 63)) << "still usable";
    const SO<OffscreenCanvasGL> tooLarge(new OffscreenCanvasGL(canvas->maxSize() + 1, 4));
    EXPECT_FALSE(tooLarge->isCreated());
    EXPECT_EQ(0U, tooLarge->maxSize());
    EXPECT_EQ(nullptr, tooLarge->engine());
    reports.clear();
}

TEST_F(OffscreenCanvasGLTest, ChangesItsSize) {
    const Names before = countNames();
    canvas->setBackgroundColor(Color::blue);
    ASSERT_TRUE(canvas->setSize(100, 7));
    EXPECT_EQ(100U, canvas->getWidth());
    EXPECT_EQ(7U, canvas->getHeight());
    const SO<Image> image = draw();
    EXPECT_EQ(100, image->width());
    EXPECT_EQ(Color::blue, image->getColor(99, 6));
    EXPECT_EQ(before, countNames());
}

TEST_F(OffscreenCanvasGLTest, GivesAllNamesBack) {
    const Names before = countNames();
    SO<OffscreenCanvasGL> other(new OffscreenCanvasGL(16, 16));
    other->redisplay();
    EXPECT_EQ(before.renderBuffers + 2, countNames().renderBuffers);
    other = nullptr;
    EXPECT_EQ(before, countNames());
}

TEST_F(OffscreenCanvasGLTest, CanBeMadeAgainAfterDestroy) {
    const SO<OffscreenCanvasGL> other(new OffscreenCanvasGL(16, 16));
    other->setBackgroundColor(Color::red);
    other->destroy();
    EXPECT_FALSE(other->isCreated());
    EXPECT_EQ(nullptr, other->engine());
    EXPECT_EQ(nullptr, other->snapshot());
    EXPECT_EQ(nullptr, other->largeScaleSnapshot(20, 20));
    EXPECT_FALSE(other->makeContextCurrent());
    other->redisplay();
    ASSERT_TRUE(other->setSize(18, 9)) << "holds for the next context";
    ASSERT_TRUE(other->create());
    ASSERT_TRUE(other->create()) << "twice is once";
    other->redisplay();
    const SO<Image> image = other->snapshot();
    EXPECT_EQ(18, image->width());
    EXPECT_EQ(Color::red, image->getColor(17, 8));
}

} // namespace
