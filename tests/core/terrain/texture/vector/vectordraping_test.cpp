// Vectors on terrains, in whole pictures.

#include <cmath>

#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>

#include "support/testterrain.h"

#include "vectortexturetest.h"

using NBX::SO;
using ZMT::CORE::TerrainPainterGLSettings;

namespace {

/// A plain of 1024 units, at a height of 100, seen from above: a pixel is 16 units.
class VectorDrapingTest : public VectorTextureFixture {
protected:
    void SetUp() override {
        VectorTextureFixture::SetUp();
        // The first frame of the process makes managers, one of which tells so.
        ZMT::CORE::TerrainPainterFrameManager::CallBeginFrameCallbacks({nullptr, false});
        ZMT::CORE::TerrainPainterFrameManager::CallEndFrameCallbacks({nullptr, false});
        reports.clear();
        texture->setBufferSize(64);
        texture->setInternalFormat(s_rgba8);
        errorBefore_ = TerrainPainterGLSettings::getTextureError();
        TerrainPainterGLSettings::setTextureError(0.5);
        grid = TestTerrain::grid({65, 65, 0.0, 0.0, 16.0, 16.0},
                                 [](unsigned x, unsigned y) { return 100.0 + double((x * 7 + y * 3) % 5); });
        terrain =
            new ZMT::CORE::Terrain(grid.get(), ZMT::CORE::CreateGeometryTree::create(grid.get(), 64).get());
    }
    void TearDown() override {
        canvas->remove(root.get());
        root->clear();
        TerrainPainterGLSettings::setTextureError(errorBefore_);
        VectorTextureFixture::TearDown();
    }

    /// White ground, the vectors, and the terrain.
    void lay() {
        root->append(new NBX::Camera(
            new NBX::LookAt(Point(512.0, 20000.0, 512.0), Point(512.0, 0.0, 512.0), Point(0.0, 0.0, 1.0)),
            new NBX::Ortho(-512.0, 512.0, -512.0, 512.0, 1.0, 40000.0), NBX::Camera::S_Global));
        root->append(motion.get());
        root->append(new ZMT::CORE::DecalTerrainTexturingEffect(new NBX::Array<SO<ZMT::CORE::TerrainTexture>>(
            std::vector<SO<ZMT::CORE::TerrainTexture>>{SO<ZMT::CORE::TerrainTexture>(texture.get())})));
        root->append(scaling.get());
        root->append(terrain.get());
    }
    /// Pictures until no other one is asked for; how many there were.
    unsigned settle(unsigned most = 50) {
        unsigned pictures = 0;
        do {
            picture = draw();
            ++pictures;
        } while (canvas->redisplayPending() && pictures < most);
        return pictures;
    }
    void move(bool moves) { motion->setValue(moves); }

    const SO<NBX::ContextData<bool>> motion{new NBX::ContextData<bool>("MotionFlag", false)};
    const SO<ZMT::CORE::TerrainScaling> scaling{new ZMT::CORE::TerrainScaling({1.0, 1.0, 1.0})};
    SO<ZMT::CORE::GridData> grid;
    SO<ZMT::CORE::Terrain> terrain;
    SO<NBX::Image> picture;

private:
    double errorBefore_ = 0.0;
};

TEST_F(VectorDrapingTest, ALineLandsOnItsPixels) {
    TerrainPainterGLSettings::setTextureError(0.9);
    add(line(Point(0.0, 0.0, 100.0), Point(1024.0, 0.0, 700.0)).get(), NBX::Color(1.0, 0.0, 0.0));
    lay();
    picture = draw();
    unsigned reds = 0;
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) {
            const auto p = pixel(picture, x, y);
            const double distance = (y + 0.5) - (100.0 + 600.0 * (x + 0.5) / 64.0) / 16.0;
            const double across = std::abs(distance) * 1024.0 / std::hypot(1024.0, 600.0);
            if (p[1] < 200) {
                ++reds;
                EXPECT_LE(across, 1.0) << x << ", " << y;
                EXPECT_GT(p[0], 200);
            }
            if (across < 0.2) {
                EXPECT_LT(p[1], 230) << x << ", " << y;
            }
        }
    EXPECT_GE(reds, 40U);
}

TEST_F(VectorDrapingTest, ExaggerationLeavesItWhereItIs) {
    add(line(Point(0.0, 0.0, 100.0), Point(1024.0, 0.0, 700.0)).get(), NBX::Color(1.0, 0.0, 0.0));
    lay();
    const SO<NBX::Image> plain = draw();
    scaling->setScaling({1.0, 100.0, 1.0});
    texture->clearCache();
    picture = draw();
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x)
            EXPECT_NEAR(pixel(picture, x, y)[1], pixel(plain, x, y)[1], 8) << x << ", " << y;
}

TEST_F(VectorDrapingTest, OpacityInThePictureIsThatOfTheArea) {
    for (const double opacity : {0.2, 0.5, 0.9}) {
        scene->clear();
        root->clear();
        texture->clearCache();
        add(area(square).get(), NBX::Color(0.0, 0.4, 0.0, opacity));
        lay();
        picture = draw();
        for (int i = 4; i < 60; i += 7) {
            const auto p = pixel(picture, i, i);
            EXPECT_NEAR(p[0], 255.0 * (1.0 - opacity), 2.0) << opacity;
            EXPECT_NEAR(p[1], 255.0 * (1.0 - opacity) + 102.0 * opacity, 2.0) << opacity;
        }
    }
}

TEST_F(VectorDrapingTest, BetweenPatchesAreNoGaps) {
    add(area(Bounds(Point(-100.0, 0.0, -100.0), Point(1200.0, 0.0, 1200.0))).get(), NBX::Color::black);
    lay();
    picture = draw();
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x)
            EXPECT_LE(pixel(picture, x, y)[0], 2) << x << ", " << y;
    EXPECT_GT(drawn(), 4U) << "of several patches";
}

TEST_F(VectorDrapingTest, AtRestThePictureSettlesAndNothingIsDrawnAnyMore) {
    add(line(Point(0.0, 0.0, 100.0), Point(1024.0, 0.0, 700.0)).get(), NBX::Color(1.0, 0.0, 0.0));
    lay();
    const SO<NBX::Image> atOnce = draw();
    texture->clearCache();
    canvas->setRenderingMode(1);
    EXPECT_LT(settle(), 10U);
    EXPECT_EQ(largestDifference(picture, atOnce), 0);
    const unsigned long before = drawn();
    settle();
    EXPECT_EQ(drawn(), before);
    EXPECT_FALSE(canvas->redisplayPending());
}

TEST_F(VectorDrapingTest, AMovingPictureDrawsAFewAtMostAndARestingOneTheOthers) {
    lay();
    canvas->setRenderingMode(1);
    move(true);
    for (int i = 0; i < 3; ++i) {
        const unsigned long before = drawn();
        draw();
        EXPECT_LE(drawn() - before, i == 0 ? 4U : 0U) << "the fourth missing ancestor of a patch, or the top";
        EXPECT_TRUE(canvas->redisplayPending());
    }
    move(false);
    const unsigned long before = drawn();
    draw();
    EXPECT_GT(drawn(), before);
}

TEST_F(VectorDrapingTest, WithoutCachingAMovingPictureDrawsOnce) {
    add(area(square).get(), NBX::Color(0.0, 0.4, 0.0));
    texture->setCaching(false);
    lay();
    canvas->setRenderingMode(1);
    move(true);
    for (unsigned long i = 1; i <= 4; ++i) {
        picture = draw();
        EXPECT_EQ(drawn(), i);
        EXPECT_NEAR(pixel(picture, 32, 32)[1], 102, 2);
        EXPECT_NEAR(pixel(picture, 2, 61)[1], 102, 2);
    }
    move(false);
    draw();
    EXPECT_GT(drawn(), 4U);
}

TEST_F(VectorDrapingTest, ThreeOverlaysComeToRest) {
    add(line(Point(0.0, 0.0, 100.0), Point(1024.0, 0.0, 700.0)).get(), NBX::Color(1.0, 0.0, 0.0));
    const SO<RecordingVectorTexture> second = newTexture(true, true), third = newTexture(false);
    lay();
    for (const auto & each : {second, third})
        root->insert(
            3, new ZMT::CORE::DecalTerrainTexturingEffect(new NBX::Array<SO<ZMT::CORE::TerrainTexture>>(
                   std::vector<SO<ZMT::CORE::TerrainTexture>>{SO<ZMT::CORE::TerrainTexture>(each.get())})));
    canvas->setRenderingMode(1);
    EXPECT_LT(settle(), 15U);
    EXPECT_FALSE(canvas->redisplayPending());
}

} // namespace
