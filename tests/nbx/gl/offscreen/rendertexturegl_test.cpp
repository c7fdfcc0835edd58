#include <nbx/gl/offscreen/rendertexturegl.h>

#include <nbx/gl/offscreen/framebufferobjectgl.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;

class RenderTextureGLTest : public GLFixture {
protected:
    /// The first texel, as it comes back after a clear to `r`, `g`, `b`, `a`.
    std::array<float, 4> cleared(const RenderTextureGL & texture, float r, float g, float b, float a) {
        const SO<FrameBufferObjectGL> target(new FrameBufferObjectGL(engine.get(), 5, 3));
        texture.attachTo(target.get());
        EXPECT_TRUE(target->isComplete());
        target->bind(engine.get());
        glClearColor(r, g, b, a);
        glClear(GL_COLOR_BUFFER_BIT);
        target->unbind(engine.get());
        std::vector<std::array<float, 4>> texels(5 * 3);
        texture.texture()->bind(engine.get());
        glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_FLOAT, texels.data());
        glBindTexture(GL_TEXTURE_2D, 0);
        EXPECT_EQ(texels.front(), texels.back());
        return texels.front();
    }
};

TEST_F(RenderTextureGLTest, KeepsWhatItsTypeAndFormatCanHold) {
    struct Row {
        GLenum type, format;
        std::array<float, 4> texel;
    };
    const float half = 128.0F / 255.0F, finer = 32767.0F / 65535.0F, coarse = -9999.0F - 1.0F;
    const Row rows[] = {
        {GL_FLOAT, GL_RGBA, {-9999.0F, 8848.13F, 0.4999F, 1.0F}},
        {GL_FLOAT, GL_RGB, {-9999.0F, 8848.13F, 0.4999F, 1.0F}},
        {GL_FLOAT, GL_RG, {-9999.0F, 8848.13F, 0.0F, 1.0F}},
        {GL_FLOAT, GL_RED, {-9999.0F, 0.0F, 0.0F, 1.0F}},
        {GL_HALF_FLOAT, GL_RGBA, {coarse, 8848.0F, 0.5F, 1.0F}},
        {GL_UNSIGNED_SHORT, GL_RGBA, {0.0F, 1.0F, finer, 1.0F}},
        {GL_UNSIGNED_BYTE, GL_RGBA, {0.0F, 1.0F, half, 1.0F}},
        {GL_UNSIGNED_BYTE, GL_RGB, {0.0F, 1.0F, half, 1.0F}},
    };
    for (const Row & row : rows) {
        const SO<RenderTextureGL> texture(new RenderTextureGL(engine.get(), 5, 3, row.type, row.format));
        EXPECT_EQ(row.type, texture->type());
        EXPECT_EQ(row.format, texture->format());
        ASSERT_TRUE(texture->texture());
        EXPECT_EQ(5U, texture->texture()->getWidth());
        EXPECT_EQ(3U, texture->texture()->getHeight());
        const auto texel = cleared(*texture, -9999.0F, 8848.13F, 0.4999F, 1.0F);
        for (unsigned i = 0; i < 4; ++i) {
            const float step = row.type == GL_HALF_FLOAT      ? 8.0F
                               : row.type == GL_FLOAT         ? 0.0F
                               : row.type == GL_UNSIGNED_BYTE ? 1.5F / 255.0F
                                                              : 1e-3F;
            EXPECT_NEAR(row.texel[i], texel[i], step) << row.type << ' ' << row.format << ' ' << i;
        }
    }
}

TEST_F(RenderTextureGLTest, IsOfBytesWithAlphaUnlessToldOtherwise) {
    const SO<RenderTextureGL> texture(new RenderTextureGL(engine.get(), 5, 3));
    EXPECT_EQ(GLenum(GL_RGBA8), texture->texture()->getInternalFormat());
    EXPECT_EQ(TextureGL::FM_Linear, texture->texture()->getMinFilter());
    const SO<RenderTextureGL> pyramid(
        new RenderTextureGL(engine.get(), 8, 8, GL_UNSIGNED_BYTE, GL_RGBA, true));
    EXPECT_TRUE(TextureGL::usesMipmaps(pyramid->texture()->getMinFilter()));
}

TEST_F(RenderTextureGLTest, HeightsAreNotMixedWithHoles) {
    for (const GLenum type : {GL_FLOAT, GL_HALF_FLOAT}) {
        const SO<RenderTextureGL> texture(new RenderTextureGL(engine.get(), 5, 3, type));
        EXPECT_EQ(TextureGL::FM_Nearest, texture->texture()->getMinFilter());
        EXPECT_EQ(TextureGL::FM_Nearest, texture->texture()->getMagFilter());
    }
}

TEST_F(RenderTextureGLTest, MayBeTheDepth) {
    for (const GLenum type : {GL_FLOAT, GL_UNSIGNED_SHORT}) {
        const SO<RenderTextureGL> color(new RenderTextureGL(engine.get(), 5, 3)),
            depth(new RenderTextureGL(engine.get(), 5, 3, type, GL_DEPTH_COMPONENT));
        const SO<FrameBufferObjectGL> target(new FrameBufferObjectGL(engine.get(), 5, 3));
        color->attachTo(target.get());
        depth->attachTo(target.get());
        ASSERT_TRUE(target->isComplete());
        target->bind(engine.get());
        glClearDepth(0.25);
        glClear(GL_DEPTH_BUFFER_BIT);
        glClearDepth(1.0);
        target->unbind(engine.get());
        std::vector<float> texels(5 * 3);
        depth->texture()->bind(engine.get());
        glGetTexImage(GL_TEXTURE_2D, 0, GL_DEPTH_COMPONENT, GL_FLOAT, texels.data());
        glBindTexture(GL_TEXTURE_2D, 0);
        EXPECT_NEAR(0.25F, texels[7], 1e-4F);
    }
}

TEST_F(RenderTextureGLTest, SeveralAreDrawnIntoTogether) {
    const SO<RenderTextureGL> a(new RenderTextureGL(engine.get(), 5, 3)),
        b(new RenderTextureGL(engine.get(), 5, 3));
    const SO<FrameBufferObjectGL> target(new FrameBufferObjectGL(engine.get(), 5, 3));
    a->attachTo(target.get(), 0);
    b->attachTo(target.get(), 1);
    EXPECT_TRUE(target->isComplete());
}

TEST_F(RenderTextureGLTest, LeavesTheStateAndNoNames) {
    const Names names = countNames();
    const SO<RenderTextureGL> bound(new RenderTextureGL(engine.get(), 5, 3));
    bound->texture()->bind(engine.get());
    const std::vector<int> before = stateOfGL();
    SO<RenderTextureGL> texture(new RenderTextureGL(engine.get(), 5, 3, GL_FLOAT));
    EXPECT_NE(0U, texture->texture()->name());
    EXPECT_EQ(before, stateOfGL());
    glBindTexture(GL_TEXTURE_2D, 0);
    texture = nullptr;
    EXPECT_EQ(names.textures + 1, countNames().textures);
}

TEST_F(RenderTextureGLTest, ReportsWhatCannotBeMade) {
    const auto told = [&](EngineGL * e, unsigned width, unsigned height, unsigned type, unsigned format) {
        const SO<RenderTextureGL> texture(new RenderTextureGL(e, width, height, type, format));
        EXPECT_FALSE(texture->texture());
        const SO<FrameBufferObjectGL> target(new FrameBufferObjectGL(engine.get(), 5, 3));
        texture->attachTo(target.get());
        EXPECT_FALSE(target->isComplete());
        const std::size_t count = reports.size();
        reports.clear();
        return count;
    };
    EXPECT_EQ(1U, told(nullptr, 5, 3, GL_FLOAT, GL_RGBA));
    EXPECT_EQ(1U, told(engine.get(), 0, 3, GL_FLOAT, GL_RGBA));
    EXPECT_EQ(1U, told(engine.get(), 5, 0, GL_FLOAT, GL_RGBA));
    EXPECT_EQ(1U, told(engine.get(), 5, 3, GL_UNSIGNED_BYTE, GL_DEPTH_COMPONENT));
    EXPECT_EQ(1U, told(engine.get(), 5, 3, GL_DOUBLE, GL_RGBA));
    const SO<RenderTextureGL> texture(new RenderTextureGL(engine.get(), 5, 3));
    texture->attachTo(nullptr);
    EXPECT_EQ(1U, reports.count(L"no frame buffer object"));
    reports.clear();
}

} // namespace
