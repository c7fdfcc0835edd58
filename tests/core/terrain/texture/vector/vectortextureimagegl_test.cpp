#include "core/terrain/texture/vector/vectortextureimagegl.h"

#include <string>

#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/image/memoryimage.h>

#include "texellevels.h"
#include "vectortexturetest.h"

using NBX::SO;
using ZMT::CORE::DrawnLevelsTextureGL;
using ZMT::CORE::ImageLevelsTextureGL;
using ZMT::CORE::VectorTextureCanvasGL;
using ZMT::CORE::VectorTextureImageGL;

namespace {

class VectorTextureImageGLTest : public VectorTextureFixture {
protected:
    void SetUp() override {
        VectorTextureFixture::SetUp();
        texture->setBufferSize(64);
        texture->setInternalFormat(s_rgba8);
        textureError = 0.0;
    }

    void TearDown() override {
        VectorTextureImageGL::allowSoftware(true);
        VectorTextureFixture::TearDown();
    }

    /// As where there is a card, by the processor behind pixel buffers, and without these.
    enum Way { W_Card, W_Software, W_NoPixelBuffers };
    void choose(Way way) {
        VectorTextureImageGL::allowSoftware(way == W_Software);
        VectorTextureCanvasGL::allowPixelBuffers(way != W_NoPixelBuffers);
    }

    /// All levels of the texture of the whole square.
    TexelLevels drawn() {
        texture->clearCache();
        const SO<NBX::TextureGL> shown = request(*tree);
        return TexelLevels(*shown, engine.get());
    }
};

TEST_F(VectorTextureImageGLTest, KnowsTheFormatsThatHaveAlpha) {
    EXPECT_EQ(VectorTextureImageGL::usualFormat(), 32854U);
    for (const unsigned format : {4U, 6408U, 32854U, 32855U, 32856U})
        EXPECT_TRUE(VectorTextureImageGL::isFormat(format)) << format;
    for (const unsigned format : {0U, 3U, 6407U, 32849U, ~0U})
        EXPECT_FALSE(VectorTextureImageGL::isFormat(format)) << format;
}

TEST_F(VectorTextureImageGLTest, OpacityIsThatOfTheShapeOnAllWays) {
    for (const Way way : {W_Card, W_Software, W_NoPixelBuffers})
        for (const double opacity : {0.1, 0.4, 0.75, 1.0}) {
            SCOPED_TRACE(std::to_string(way) + " " + std::to_string(opacity));
            choose(way);
            scene->clear();
            add(area(square).get(), NBX::Color(0.8, 0.4, 0.2, opacity));
            const TexelLevels levels = drawn();
            for (unsigned level = 0; level < 4; ++level) {
                const auto texel = levels.at(level, int(32U >> level), int(32U >> level));
                EXPECT_NEAR(texel[3], 255.0 * opacity, 2.0) << "level " << level;
                // What a colour may be wrong by grows as it counts less.
                EXPECT_NEAR(texel[0], 204.0, 1.0 + 1.0 / opacity) << "level " << level;
                EXPECT_NEAR(texel[1], 102.0, 1.0 + 1.0 / opacity) << "level " << level;
                EXPECT_NEAR(texel[2], 51.0, 1.0 + 1.0 / opacity) << "level " << level;
            }
        }
    reports.clear();
}

TEST_F(VectorTextureImageGLTest, WhatLiesOverSomethingCoversItByItsOpacity) {
    add(area(square).get(), NBX::Color(1.0, 0.0, 0.0, 0.5));
    add(area(square).get(), NBX::Color(0.0, 0.0, 1.0, 0.5));
    const auto texel = drawn().at(0, 32, 32);
    EXPECT_NEAR(texel[3], 191, 2);
    EXPECT_NEAR(texel[0] * texel[3] / 255.0, 64, 2);
    EXPECT_NEAR(texel[2] * texel[3] / 255.0, 128, 2);
}

TEST_F(VectorTextureImageGLTest, AllWaysMakeTheSameTexture) {
    add(area(Bounds(Point(100.0, 0.0, 300.0), Point(800.0, 0.0, 700.0))).get(),
        NBX::Color(0.2, 0.6, 0.1, 0.6));
    add(line(Point(50.0, 0.0, 80.0), Point(900.0, 0.0, 950.0)).get(), NBX::Color(0.1, 0.0, 0.0));
    add(line(Point(500.0, 0.0, 0.0), Point(500.0, 0.0, 1024.0)).get(), NBX::Color(1.0, 1.0, 0.0, 0.3));
    choose(W_Software);
    const TexelLevels byProcessor = drawn();
    EXPECT_TRUE(dynamic_cast<DrawnLevelsTextureGL *>(request(*tree).get()));
    choose(W_Card);
    const TexelLevels onCard = drawn();
    EXPECT_TRUE(dynamic_cast<DrawnLevelsTextureGL *>(request(*tree).get()));
    choose(W_NoPixelBuffers);
    const TexelLevels readBack = drawn();
    EXPECT_TRUE(dynamic_cast<ImageLevelsTextureGL *>(request(*tree).get()));
    EXPECT_EQ(reports.count(2, L"false",
                            L"no support for pbuffer canvas available, using the slower offscreen canvas "
                            L"instead"),
              1U)
        << reports;
    EXPECT_EQ(reports.size(), 1U) << "once, when the canvas is made";
    reports.clear();
    EXPECT_EQ(byProcessor, readBack);
    ASSERT_EQ(onCard.levels(), 7U);
    ASSERT_EQ(readBack.levels(), 7U);
    for (unsigned level = 0; level < 7; ++level)
        for (int y = 0; y < int(64U >> level); ++y)
            for (int x = 0; x < int(64U >> level); ++x) {
                const auto a = onCard.at(level, x, y), b = readBack.at(level, x, y);
                EXPECT_NEAR(a[3], b[3], level == 0 ? 0 : int(level)) << level << ": " << x << ", " << y;
                // Multiplied by their alpha, as they show.
                for (unsigned i = 0; i < 3; ++i)
                    EXPECT_NEAR(a[i] * a[3] / 255.0, b[i] * b[3] / 255.0, 1.0 + level)
                        << level << ": " << x << ", " << y;
            }
}

TEST_F(VectorTextureImageGLTest, BesideADarkLineAllIsDarkAtEveryLevelAndOnAllWays) {
    add(line(Point(0.0, 0.0, 512.0), Point(1024.0, 0.0, 512.0)).get(), NBX::Color(0.1, 0.0, 0.0));
    for (const Way way : {W_Card, W_Software, W_NoPixelBuffers}) {
        choose(way);
        const TexelLevels levels = drawn();
        for (unsigned level = 0; level < levels.levels(); ++level) {
            const int size = int(64U >> level);
            for (int y = 0; y + 1 < size; ++y) {
                const auto a = levels.at(level, size / 2, y), b = levels.at(level, size / 2, y + 1);
                if (a[3] == 0 && b[3] == 0) continue;
                const double share = std::max(a[3], b[3]) / 255.0;
                for (const auto & texel : {a, b}) {
                    EXPECT_NEAR(texel[0] * share, 25.5 * share, 2.0) << way << " " << level << " " << y;
                    EXPECT_EQ(texel[1], 0) << way << " " << level << " " << y;
                }
            }
        }
    }
    reports.clear();
}

/// The textures have texels of 24 units, and begin at -256: the edge lies in the middle of column 20.
TEST_F(VectorTextureImageGLTest, SeveralSamplesMakeEdgesSmooth) {
    add(area(Bounds(Point(236.0, 0.0, 200.0), Point(800.0, 0.0, 800.0))).get(), NBX::Color(0.8, 0.4, 0.2));
    EXPECT_EQ(VectorTexture::getSamples(), 1U);
    for (const unsigned samples : {4U, 1U, 4U}) {
        VectorTexture::setSamples(samples);
        const TexelLevels levels = drawn();
        const auto edge = levels.at(0, 20, 32), inside = levels.at(0, 21, 32);
        EXPECT_EQ(levels.at(0, 19, 32)[3], 0) << samples;
        EXPECT_EQ(inside, (std::array<int, 4>{204, 102, 51, 255})) << samples;
        if (samples == 1) {
            EXPECT_EQ(edge[3] % 255, 0);
        } else {
            EXPECT_NEAR(edge[3], 128, 3);
            EXPECT_NEAR(edge[0], 204, 3) << "the colour does not darken";
        }
    }
}

TEST_F(VectorTextureImageGLTest, WithSeveralSamplesOpacityIsThatOfTheShape) {
    VectorTexture::setSamples(4);
    for (const double opacity : {0.1, 0.4, 0.75, 1.0}) {
        scene->clear();
        add(area(square).get(), NBX::Color(0.8, 0.4, 0.2, opacity));
        EXPECT_NEAR(drawn().at(0, 32, 32)[3], 255.0 * opacity, 2.0);
    }
}

TEST_F(VectorTextureImageGLTest, SamplesFollowTheSizeOfTheCanvas) {
    VectorTexture::setSamples(4);
    add(area(square).get(), NBX::Color(0.8, 0.4, 0.2));
    for (const unsigned size : {64U, 32U, 128U}) {
        texture->setBufferSize(size);
        const TexelLevels levels = drawn();
        EXPECT_EQ(levels.at(0, int(size) / 2, int(size) - 20)[3], 255) << size;
        EXPECT_EQ(levels.at(0, int(size) / 2, int(size) - 4)[3], 0) << size;
    }
}

TEST_F(VectorTextureImageGLTest, TheNextTextureIsDrawnIntoOneThatNobodyUses) {
    VectorTexture::setMaxTexturePatches(1);
    const NBX::TextureGL * first = request(*below(0)).get();
    passPictures(2);
    const SO<NBX::TextureGL> second = request(*below(1));
    EXPECT_EQ(Tables::instance().poolSize(), 1U);
    passPictures(2);
    EXPECT_EQ(request(*below(2)).get(), first);
    passPictures(2);
    EXPECT_EQ(Tables::instance().poolSize(), 1U);
    EXPECT_NE(request(*below(3)), second) << "it may still show in this picture";
}

TEST_F(VectorTextureImageGLTest, ATextureThatIsDrawnIntoAgainShowsNothingOfTheOld) {
    VectorTexture::setMaxTexturePatches(1);
    add(area(Bounds(Point(0.0, 0.0, 0.0), Point(512.0, 0.0, 1024.0))).get(), NBX::Color::red);
    for (const Way way : {W_Card, W_Software}) {
        choose(way);
        texture->clearCache();
        passPictures(2);
        request(*tree->child(0));
        passPictures(2);
        request(*tree->child(2));
        passPictures(2);
        ASSERT_EQ(Tables::instance().poolSize(), 1U);
        const SO<NBX::TextureGL> shown = request(*tree->child(1));
        const TexelLevels levels(*shown, engine.get());
        for (unsigned level = 0; level < 4; ++level) {
            const int size = int(64U >> level);
            EXPECT_EQ(levels.at(level, size - 1, size - 1)[3], 0) << level;
            EXPECT_EQ(levels.at(level, 0, size - 1)[3], 255) << level;
        }
    }
}

TEST_F(VectorTextureImageGLTest, HalfTheBitsAreTheDefault) {
    texture->setInternalFormat(s_rgba4);
    add(area(square).get(), NBX::Color(0.8, 0.4, 0.2, 0.5));
    for (const Way way : {W_Card, W_Software}) {
        choose(way);
        const auto texel = drawn().at(0, 32, 32);
        EXPECT_NEAR(texel[3], 128, 9) << way;
        EXPECT_NEAR(texel[0], 204, 9) << way;
    }
}

TEST_F(VectorTextureImageGLTest, ATextureIsDrawnAnewWhereItCanBe) {
    const SO<NBX::GLCanvas> made = VectorTextureCanvasGL::newCanvas(32, nullptr);
    add(area(square).get(), NBX::Color(1.0, 0.0, 0.0));
    made->append(scene.get());
    const auto first = VectorTextureImageGL::redraw(*made, s_rgba8, nullptr);
    ASSERT_TRUE(first);
    EXPECT_EQ(VectorTextureImageGL::redraw(*made, s_rgba8, first), first);
    EXPECT_NE(VectorTextureImageGL::redraw(*made, s_rgba4, first), first) << "another format";
    const SO<NBX::GLCanvas> other = VectorTextureCanvasGL::newCanvas(16, nullptr);
    const auto second = VectorTextureImageGL::redraw(*other, s_rgba8, first);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->getWidth(), 16U) << "another size";
    for (const SO<NBX::GLCanvas> & each : {made, other})
        EXPECT_NE(each, VectorTextureCanvasGL::canvas(65, nullptr)) << "not that of the class";
}

} // namespace
