#include <nbx/gl/state/backgroundgl.h>

#include <nbx/gl/offscreen/framebufferobjectgl.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/gl/offscreen/rendertexturegl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/math/area.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/view/viewport.h>

#include "support/glfixture.h"
#include "support/roundtrip.h"

using namespace NBX;

class BackgroundGLTest : public GLFixture {};

TEST_F(BackgroundGLTest, FillsTheCanvasWithItsColorAndAlpha) {
    canvas->setBackgroundColor(Color::red);
    root->append(new Box({-1.0, -1.0, -1.0}, {1.0, 1.0, 1.0}));
    root->append(new BackgroundGL(Color(0.2, 0.4, 0.6, 0.8)));
    const std::vector<int> before = stateOfGL();
    const SO<Image> image = draw();
    for (const int x : {0, 31, 63})
        EXPECT_EQ((std::array<int, 4>{51, 102, 153, 204}), pixel(image, x, 63 - x));
    EXPECT_EQ(before, stateOfGL());
    GLfloat clearColor[4];
    glGetFloatv(GL_COLOR_CLEAR_VALUE, clearColor);
    EXPECT_EQ(0.0F, clearColor[2]) << "as it was before";
}

TEST_F(BackgroundGLTest, WhatFollowsIsDrawnOverIt) {
    root->append(new Box({-1.0, -1.0, -0.9}, {1.0, 1.0, -0.9}));
    root->append(new BackgroundGL);
    root->append(new Box({-1.0, -1.0, 0.9}, {0.0, 1.0, 0.9}));
    const SO<Image> image = draw();
    EXPECT_EQ(255, pixel(image, 10, 32)[0]) << "the depth of the nearer box is gone";
    EXPECT_EQ((std::array<int, 4>{0, 0, 0, 0}), pixel(image, 50, 32));
}

TEST_F(BackgroundGLTest, NeitherMasksNorScissorsNorTheViewportHold) {
    glColorMask(GL_FALSE, GL_TRUE, GL_FALSE, GL_TRUE);
    glClearDepth(0.25);
    glClearStencil(7);
    glClear(GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
    glDepthMask(GL_FALSE);
    glStencilMask(0);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 3, 3);
    const SO<Viewport> viewport(new Viewport(Area(5, 5, 10, 10)));
    engine->push(viewport.get());
    const SO<BackgroundGL> background(new BackgroundGL(Color(1.0, 1.0, 1.0, 1.0)));
    const std::vector<int> before = stateOfGL();
    engine->push(background.get());
    engine->pop(background.get());
    EXPECT_EQ(before, stateOfGL());
    engine->pop(viewport.get());
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDepthMask(GL_TRUE);
    glStencilMask(~0U);
    EXPECT_EQ((std::array<int, 4>{255, 255, 255, 255}), pixel(canvas->snapshot(), 60, 60));
    GLfloat depth = 0.0F;
    GLubyte stencil = 1;
    canvas->prepareRedisplay();
    glReadPixels(60, 60, 1, 1, GL_DEPTH_COMPONENT, GL_FLOAT, &depth);
    glReadPixels(60, 60, 1, 1, GL_STENCIL_INDEX, GL_UNSIGNED_BYTE, &stencil);
    canvas->finishRedisplay();
    EXPECT_EQ(1.0F, depth);
    EXPECT_EQ(0, stencil);
}

TEST_F(BackgroundGLTest, FillsTargetsOfFloatsWithHeights) {
    const SO<RenderTextureGL> heights(new RenderTextureGL(engine.get(), 4, 4, GL_FLOAT, GL_RGBA));
    const SO<FrameBufferObjectGL> target(new FrameBufferObjectGL(engine.get(), 4, 4));
    heights->attachTo(target.get());
    ASSERT_TRUE(target->isComplete());
    root->append(target.get());
    root->append(new BackgroundGL(Color(-9999.0F, 8848.5F, 0.25F, 1.0F)));
    EXPECT_EQ(0, pixel(draw(), 32, 32)[1]) << "the canvas is not the target";
    const SO<Image> image(new MemoryImage(4, 4, LS_RGBA, Image::Float));
    ASSERT_TRUE(target->renderImage(engine.get(), image.get()));
    const auto * values = static_cast<const float *>(image->pixelComponents(3, 3));
    EXPECT_EQ(-9999.0F, values[0]);
    EXPECT_EQ(8848.5F, values[1]);
}

TEST_F(BackgroundGLTest, FillsPixelBuffers) {
    const SO<PBufferCanvasGL> buffer(new PBufferCanvasGL(16, 16));
    ASSERT_TRUE(buffer->isCreated());
    const SO<SceneThing> scene(new SceneThing);
    scene->append(new BackgroundGL(Color(1.0, 1.0, 1.0, 0.0)));
    buffer->append(scene.get());
    buffer->redisplay();
    EXPECT_EQ((std::array<int, 4>{255, 255, 255, 0}), pixel(buffer->snapshot(), 8, 8));
}

TEST_F(BackgroundGLTest, IsStored) {
    const SO<BackgroundGL> copy = roundTrip(SO<BackgroundGL>(new BackgroundGL(Color(0.25, 0.5, 0.75, 0.5))));
    ASSERT_TRUE(copy);
    EXPECT_EQ(Color(0.25, 0.5, 0.75, 0.5), copy->getColor());
    EXPECT_EQ(Color(0.0F, 0.0F, 0.0F, 0.0F), roundTrip(SO<BackgroundGL>(new BackgroundGL))->getColor());
    const std::uint64_t before = copy->lastTransactionNo();
    copy->setColor(copy->getColor());
    EXPECT_EQ(before, copy->lastTransactionNo());
    copy->setColor(Color::red);
    EXPECT_GT(copy->lastTransactionNo(), before);
}
