#include "core/terrain/texture/dynamic/heightreductiongl.h"

#include <algorithm>
#include <array>
#include <random>

#include <support/glfixture.h>

using ZMT::CORE::HeightReductionGL;
using ZMT::CORE::TrapezoidProgramsGL;

namespace {

using Pixel = std::array<float, 4>;

class HeightReductionGLTest : public GLFixture {
protected:
    NBX::SO<NBX::RenderTextureGL> newSource(unsigned size, const std::vector<Pixel> & pixels) {
        NBX::SO<NBX::RenderTextureGL> made(
            new NBX::RenderTextureGL(engine.get(), size, size, GL_FLOAT, GL_RGBA));
        made->texture()->bind(engine.get());
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, GLsizei(size), GLsizei(size), GL_RGBA, GL_FLOAT,
                        pixels.data());
        glBindTexture(GL_TEXTURE_2D, 0);
        return made;
    }
    Pixel reduced(unsigned size, ZMT::CORE::TrapezoidProgramGL & program, const std::vector<Pixel> & pixels) {
        const auto source = newSource(size, pixels);
        HeightReductionGL reduction(engine.get(), size);
        glPushAttrib(GL_ALL_ATTRIB_BITS);
        glDisable(GL_DEPTH_TEST);
        const auto found = reduction.reduce(engine.get(), program, *source->texture());
        NBX::GL2::ProgramObject::useNone();
        glPopAttrib();
        return {found.x, found.y, found.z, found.w};
    }
    std::vector<Pixel> randomHeights(unsigned size, double holes, unsigned seed) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> height(-499.0F, 1000.0F), chance(0.0F, 1.0F);
        std::vector<Pixel> pixels;
        for (unsigned i = 0; i < size * size; ++i) {
            const float h = chance(random) < float(holes) ? -9999.0F : height(random);
            pixels.push_back({h, h, h, 1.0F});
        }
        return pixels;
    }
};

/// Means of means, level by level, of those that have one.
float meanOf(std::vector<Pixel> pixels, unsigned size) {
    for (; size > 1; size /= 2) {
        std::vector<Pixel> half;
        for (unsigned y = 0; y < size; y += 2)
            for (unsigned x = 0; x < size; x += 2) {
                float sum = 0.0F;
                int count = 0;
                for (unsigned i = 0; i < 4; ++i) {
                    const float h = pixels[(y + i / 2) * size + x + i % 2][2];
                    sum += h > -500.0F ? h : 0.0F;
                    count += h > -500.0F;
                }
                half.push_back({0, 0, count ? sum / float(count) : -9999.0F, 0});
            }
        pixels = half;
    }
    return pixels[0][2];
}

TEST_F(HeightReductionGLTest, StatisticsAreThoseOfAllHeights) {
    for (const auto & [size, holes] :
         {std::pair(2U, 0.0), std::pair(4U, 0.5), std::pair(64U, 0.3), std::pair(128U, 0.99)}) {
        const auto pixels = randomHeights(size, holes, size);
        float low = 9999.0F, high = -9999.0F;
        for (const Pixel & p : pixels) {
            if (p[0] <= -500.0F) continue;
            low = std::min(low, p[0]);
            high = std::max(high, p[0]);
        }
        const Pixel found = reduced(size, TrapezoidProgramsGL::heightStatistics(), pixels);
        EXPECT_EQ(found[0], low) << size;
        EXPECT_EQ(found[1], high) << size;
        EXPECT_NEAR(found[2], meanOf(pixels, size), 0.01) << size;
        EXPECT_EQ(found[3], 1.0F) << size;
    }
}

TEST_F(HeightReductionGLTest, WithoutAHeightThereAreTheValuesToBeginWith) {
    const std::vector<Pixel> none(64, Pixel{-9999.0F, -9999.0F, -9999.0F, -9999.0F});
    EXPECT_EQ(reduced(8, TrapezoidProgramsGL::heightStatistics(), none),
              (Pixel{9999.0F, -9999.0F, -9999.0F, 1.0F}));
    EXPECT_EQ(reduced(8, TrapezoidProgramsGL::usedRange(), none),
              (Pixel{9999.0F, -9999.0F, 9999.0F, -9999.0F}));
}

TEST_F(HeightReductionGLTest, MinusFiveHundredIsNoHeight) {
    std::vector<Pixel> pixels(4, Pixel{-500.0F, -500.0F, -500.0F, 1.0F});
    EXPECT_EQ(reduced(2, TrapezoidProgramsGL::heightStatistics(), pixels)[0], 9999.0F);
    pixels[2] = {-499.5F, -499.5F, -499.5F, 1.0F};
    EXPECT_EQ(reduced(2, TrapezoidProgramsGL::heightStatistics(), pixels),
              (Pixel{-499.5F, -499.5F, -499.5F, 1.0F}));
}

TEST_F(HeightReductionGLTest, TheUsedRangeIsThatOfTheSecondAndTheThirdComponent) {
    std::mt19937 random(4);
    std::uniform_real_distribution<float> place(0.2F, 0.9F), height(-300.0F, 900.0F);
    for (const unsigned size : {2U, 32U, 128U}) {
        std::vector<Pixel> pixels(std::size_t(size) * size, Pixel{-9999.0F, -9999.0F, -9999.0F, -9999.0F});
        float near = 9999.0F, far = -9999.0F, low = 9999.0F, high = -9999.0F;
        for (unsigned i = 0; i < pixels.size(); i += 3) {
            pixels[i] = {0.01F, place(random), height(random), 1.0F};
            near = std::min(near, pixels[i][1]);
            far = std::max(far, pixels[i][1]);
            low = std::min(low, pixels[i][2]);
            high = std::max(high, pixels[i][2]);
        }
        EXPECT_EQ(reduced(size, TrapezoidProgramsGL::usedRange(), pixels), (Pixel{near, far, low, high}));
    }
}

TEST_F(HeightReductionGLTest, PlacesOutsideOfTheSquareDoNotCount) {
    const std::vector<Pixel> pixels = {Pixel{0.5F, -0.01F, 5.0F, 1.0F}, Pixel{0.5F, 0.0F, 6.0F, 1.0F},
                                       Pixel{0.5F, 1.0F, 7.0F, 1.0F}, Pixel{0.5F, 1.01F, 8.0F, 1.0F}};
    EXPECT_EQ(reduced(2, TrapezoidProgramsGL::usedRange(), pixels), (Pixel{0.0F, 1.0F, 5.0F, 8.0F}));
}

} // namespace
