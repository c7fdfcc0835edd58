#include "core/terrain/texture/vector/vectortexturerenderer.h"

#include <cmath>

#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <zmt/core/terrain/frame/terrainscaling.h>

#include "texellevels.h"
#include "vectortexturetest.h"

using NBX::SO;
using ZMT::CORE::VectorTextureRenderer;

namespace {

/// Textures of 128 by 128 texels.
class VectorTextureRendererTest : public VectorTextureFixture {
protected:
    void SetUp() override {
        VectorTextureFixture::SetUp();
        texture->setBufferSize(128);
        texture->setInternalFormat(s_rgba8);
        textureError = 0.0;
    }

    TexelLevels drawn(const GeometryPatch & patch) {
        shown = request(patch);
        return TexelLevels(*shown, engine.get());
    }
    /// Where a place of the plan lies in a texture, in texels.
    Point texelOf(double x, double z) const { return shown->getMatrix() * Point(x, z, 0.0) * 128.0; }

    SO<NBX::TextureGL> shown;
};

TEST_F(VectorTextureRendererTest, ATextureHasAMarginOf16Pixels) {
    const Bounds box(Point(100.0, 5.0, 200.0), Point(228.0, 10.0, 456.0));
    EXPECT_EQ(VectorTextureRenderer::widened(box),
              Bounds(Point(84.0, 5.0, 168.0), Point(244.0, 10.0, 488.0)));
    drawn(*below(3));
    // 16 of 128 pixels on each side were added to the 128 units of the patch.
    const Point low = texelOf(0.0, 0.0), high = texelOf(128.0, 128.0);
    EXPECT_NEAR(low.x, 16.0 * 128.0 / 160.0, 1e-9);
    EXPECT_NEAR(low.y, 16.0 * 128.0 / 160.0, 1e-9);
    EXPECT_NEAR(high.x, 128.0 - 16.0 * 128.0 / 160.0, 1e-9);
    EXPECT_NEAR(high.y, 128.0 - 16.0 * 128.0 / 160.0, 1e-9);
    EXPECT_EQ(shown->getWrapS(), NBX::TextureGL::WM_ClampToEdge);
    EXPECT_EQ(shown->getWrapT(), NBX::TextureGL::WM_ClampToEdge);
    EXPECT_EQ(shown->getBorderColor(), NBX::Color(1.0F, 1.0F, 1.0F, 0.0F));
}

/// Else the card takes a level for the short side, whose texels are blurred along the long one.
TEST_F(VectorTextureRendererTest, OblongTexelsAreSampledAsOftenAsTheyAreOblong) {
    VectorTexture::setMaxTexturePatches(1); // the next texture is drawn into the one before
    const auto samples = [&](double width, double depth) {
        const SO<FakePatch> patch = FakePatch::oblong(0.0, 0.0, width, depth, 0);
        shown = nullptr;
        shown = request(*patch);
        return shown->getAnisotropy();
    };
    EXPECT_EQ(samples(512.0, 512.0), 1.0);
    EXPECT_NEAR(samples(64.0, 512.0), 8.0, 1e-9);
    EXPECT_NEAR(samples(512.0, 128.0), 4.0, 1e-9);
    EXPECT_EQ(samples(512.0, 400.0), 1.0) << "slightly";
}

TEST_F(VectorTextureRendererTest, WhatLiesBesideThePatchShowsInTheMargin) {
    add(area(Bounds(Point(-10.0, 0.0, 0.0), Point(-5.0, 0.0, 128.0))).get(), NBX::Color::red);
    const TexelLevels levels = drawn(*below(3));
    const auto inMargin = levels.at(0, int(texelOf(-7.5, 64.0).x), 64);
    EXPECT_EQ(inMargin, (std::array<int, 4>{255, 0, 0, 255}));
}

TEST_F(VectorTextureRendererTest, EastIsAtTheRightAndNorthAtTheTop) {
    add(area(Bounds(Point(600.0, 0.0, 100.0), Point(700.0, 0.0, 200.0))).get(), NBX::Color::red);
    const TexelLevels levels = drawn(*tree);
    for (int y = 0; y < 128; ++y)
        for (int x = 0; x < 128; ++x) {
            const double px = x + 0.5, py = y + 0.5;
            const Point low = texelOf(600.0, 100.0), high = texelOf(700.0, 200.0);
            const bool inside = px > low.x && px < high.x && py > low.y && py < high.y;
            EXPECT_EQ(levels.at(0, x, y)[3], inside ? 255 : 0) << x << ", " << y;
        }
}

TEST_F(VectorTextureRendererTest, ItIsSeenFrom10000StraightDownAsDeepAs20000) {
    NBX::Matrix4x4Base<double> modelView, projection;
    const SO<NBX::SceneNode> looking(new LookingNode([&](NBX::Engine & there) {
        modelView = there.modelViewMatrix();
        projection = there.projectionMatrix();
    }));
    scene->append(looking.get());
    drawn(*FakePatch::oblong(128.0, 256.0, 128.0, 256.0, 0));
    scene->clear();
    // Half a side and 16 of 128 pixels of it.
    const SO<NBX::Ortho> parallel(new NBX::Ortho(-80.0, 80.0, -160.0, 160.0, 1.0, 20000.0));
    EXPECT_EQ(projection, parallel->matrix(1.0));
    const SO<NBX::LookAt> down(
        new NBX::LookAt(Point(192.0, 10000.0, 384.0), Point(192.0, 0.0, 384.0), Point(0.0, 0.0, 1.0)));
    EXPECT_EQ(modelView, down->matrix());
}

TEST_F(VectorTextureRendererTest, FarFromTheOriginOfAMapNothingMoves) {
    const SO<FakePatch> far = FakePatch::oblong(40000.0, -30000.0, 128.0, 128.0, 0);
    texture->setBoundingBox(far->boundingBox());
    add(area(Bounds(Point(40032.0, 0.0, -29968.0), Point(40096.0, 0.0, -29904.0))).get(), NBX::Color::red);
    const TexelLevels levels = drawn(*far);
    const Point low = texelOf(40032.0, -29968.0);
    EXPECT_EQ(levels.at(0, int(low.x + 1.5), int(low.y + 1.5))[3], 255);
    EXPECT_EQ(levels.at(0, int(low.x - 1.5), int(low.y + 1.5))[3], 0);
    EXPECT_EQ(levels.at(0, int(low.x + 1.5), int(low.y - 1.5))[3], 0);
}

/// Along their border two patches show the same line, at the same place within a texel, also where one of
/// them is of the next coarser level.
TEST_F(VectorTextureRendererTest, NeighboursMeetWithinATexel) {
    add(line(Point(-100.0, 0.0, 37.0), Point(1200.0, 0.0, 411.0)).get(), NBX::Color::red);
    const double crossing = 37.0 + 374.0 * 612.0 / 1300.0; // at x = 512
    const auto centerAt = [&](const GeometryPatch & patch, double x) {
        const TexelLevels levels = drawn(patch);
        const int column = int(std::floor(texelOf(x, 0.0).x));
        double sum = 0.0, count = 0.0;
        for (int y = 0; y < 128; ++y)
            if (levels.at(0, column, y)[3] > 0) {
                sum += y + 0.5;
                count += 1.0;
            }
        EXPECT_GT(count, 0.0);
        // Back into the plan.
        return (sum / count - texelOf(0.0, 0.0).y) / (texelOf(0.0, 1.0).y - texelOf(0.0, 0.0).y);
    };
    const double west = centerAt(*tree->child(0), 511.99), east = centerAt(*tree->child(1), 512.01);
    const double coarse = centerAt(*tree, 512.0), fine = centerAt(*tree->child(0)->child(1), 511.99);
    const double texel = 512.0 * 160.0 / 128.0 / 128.0; // of the children
    EXPECT_NEAR(west, crossing, texel);
    EXPECT_NEAR(east, west, texel);
    EXPECT_NEAR(coarse, east, 2.0 * texel);
    EXPECT_NEAR(fine, east, texel);
}

TEST_F(VectorTextureRendererTest, ExaggerationKeepsWhatStandsHigh) {
    for (const double height : {8848.0, 9999.5, -11000.0, 25000.0}) {
        scene->clear();
        add(area(square, height).get(), NBX::Color::red);
        for (const double factor : {1.0, 2.0, 5.0}) {
            const SO<ZMT::CORE::TerrainScaling> scaling(new ZMT::CORE::TerrainScaling({1.0, factor, 1.0}));
            const NBX::AttributeScope scope(engine.get(), scaling.get());
            texture->clearCache();
            EXPECT_EQ(drawn(*tree).at(0, 64, 64), (std::array<int, 4>{255, 0, 0, 255}))
                << height << " times " << factor;
        }
    }
}

TEST_F(VectorTextureRendererTest, AScaledTerrainKeepsItsPlan) {
    add(area(Bounds(Point(600.0, 0.0, 100.0), Point(700.0, 0.0, 200.0))).get(), NBX::Color::red);
    const TexelLevels plain = drawn(*tree);
    const SO<ZMT::CORE::TerrainScaling> scaling(new ZMT::CORE::TerrainScaling({2.0, 2.0, 0.5}));
    const NBX::AttributeScope scope(engine.get(), scaling.get());
    texture->clearCache();
    EXPECT_TRUE(drawn(*tree) == plain);
}

TEST_F(VectorTextureRendererTest, OfTwoThingsAtOneHeightTheLaterOneShows) {
    add(area(square).get(), NBX::Color::red);
    add(area(square).get(), NBX::Color::blue);
    EXPECT_EQ(drawn(*tree).at(0, 64, 64), (std::array<int, 4>{0, 0, 255, 255}));
}

TEST_F(VectorTextureRendererTest, TheSameSceneGivesTheSameTexels) {
    add(area(Bounds(Point(100.0, 0.0, 300.0), Point(800.0, 0.0, 700.0))).get(),
        NBX::Color(0.2, 0.6, 0.1, 0.6));
    add(line(Point(50.0, 0.0, 80.0), Point(900.0, 0.0, 950.0)).get(), NBX::Color(0.1, 0.0, 0.0));
    const TexelLevels first = drawn(*tree);
    drawn(*below(2));
    texture->clearCache();
    EXPECT_TRUE(drawn(*tree) == first);
    VectorTexture::releaseSharedObjects();
    EXPECT_TRUE(drawn(*tree) == first) << "on another canvas";
}

TEST_F(VectorTextureRendererTest, ABoxThatIsNotDefinedIsReported) {
    EXPECT_FALSE(VectorTextureRenderer(engine.get()).renderFast(*texture, Bounds()));
    EXPECT_EQ(reports.count(0, L"fastBBox.isDefined()", L"internal error"), 1U) << reports;
    reports.clear();
    const SO<FakePatch> none(new FakePatch(Bounds()));
    const SO<VectorTexture::Patch> patch(new VectorTexture::Patch(texture.get(), none.get(), 0));
    EXPECT_TRUE(patch->boundingBox().isDefined()) << "a patch without a box has a point";
    VectorTextureRenderer(engine.get()).render(*patch);
    EXPECT_EQ(Tables::instance().textureCount(), 0U) << "which is nothing to be drawn";
    const SO<VectorTexture::Patch> gone(
        new VectorTexture::Patch(texture.get(), FakePatch::oblong(0.0, 0.0, 8.0, 8.0, 0).get(), 0));
    VectorTextureRenderer(engine.get()).render(*gone);
    EXPECT_EQ(reports.count(0, L"bbox.isDefined()", L"illegal bounding box"), 1U) << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;
    reports.clear();
}

} // namespace
