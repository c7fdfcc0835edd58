#include <zmt/core/terrain/texture/dynamic/dynamicheighttexturerendering.h>

#include <stdexcept>

#include <zmt/core/terrain/texture/dynamic/heightlevel.h>
#include <zmt/core/terrain/texture/simpleterraintexture.h>

#include "../faketerraintexture.h"
#include "dynamictexturetest.h"

using NBX::SO;
using ZMT::CORE::DynamicHeightTextureRendering;
using ZMT::CORE::HeightLevel;

namespace {

constexpr double s_squareSide = 256.0;

/// With few vertices.
class SmallRendering : public DynamicHeightTextureRendering {
    NBX_TEMPLATE_CLASS(SmallRendering, DynamicHeightTextureRendering)
public:
    explicit SmallRendering(const NBX::Bounds & terrain, unsigned size = 128)
        : DynamicHeightTextureRendering(terrain, size) {}
    bool render(const SO<NBX::EngineGL> & engine) const override {
        return lastResult = DynamicHeightTextureRendering::render(engine);
    }
    mutable bool lastResult = false;
};

class DynamicHeightTextureRenderingTest : public DynamicTextureFixture {
protected:
    /// A terrain of 1024 by 1024 units by the height rendering, in view.
    void layHeights(const TestTerrain::Height & height, const Point & from, const Point & to,
                    const Point & up = {0.0, 1.0, 0.0}, unsigned size = 128) {
        grid = TestTerrain::grid({65, 65, 0.0, 0.0, 16.0, 16.0}, height);
        rendering = new SmallRendering(grid->boundingBox(), size);
        const auto heights =
            DynamicHeightTextureRendering::CreateHeightTexture(grid.get(), rendering->heightLevel());
        rendering->terrainHeightSceneGraph()->append(
            DynamicHeightTextureRendering::CreateRasterHeightShape(heights).get());
        root->clear();
        look(from, to, up);
        root->append(scaling.get());
        root->append(rendering.get());
    }
    /// A red area of the texture graph.
    void addRed(double x, double z, double side) {
        const SO<NBX::SceneThing> thing(new NBX::SceneThing(rendering->terrainTextureSceneGraph().get()));
        thing->append(new NBX::ColorAttribute(NBX::Color(1.0, 0.0, 0.0)));
        thing->append(new NBX::PolygonSet(NBX::PolygonSet::PT_Quads,
                                          new NBX::Array<Point>(std::vector<Point>{
                                              Point(x, z, 0.0), Point(x + side, z, 0.0),
                                              Point(x + side, z + side, 0.0), Point(x, z + side, 0.0)})));
    }
    void addReds() {
        for (double z = 0.0; z < 1024.0; z += s_squareSide)
            for (double x = 0.0; x < 1024.0; x += s_squareSide)
                if (isOnBoard({x + 1.0, 0.0, z + 1.0}, s_squareSide)) addRed(x, z, s_squareSide);
    }

    SO<ZMT::CORE::GridData> grid;
    SO<SmallRendering> rendering;
};

TEST_F(DynamicHeightTextureRenderingTest, ItsBoxIsThatOfTheTerrain) {
    const Bounds box(Point(1, 2, 3), Point(4, 5, 6));
    const SO<DynamicHeightTextureRendering> made(new DynamicHeightTextureRendering(box));
    EXPECT_EQ(made->boundingBox(), box);
    EXPECT_EQ(made->heightLevel(), HeightLevel(box).level());
    EXPECT_FALSE(made->showsTestPattern());
    EXPECT_EQ(made->getLightDirection(), Point());
    EXPECT_FALSE(made->lastStatistics().seesGround());
    EXPECT_EQ(DynamicHeightTextureRendering::measuringSize, 128U);
    EXPECT_EQ(DynamicHeightTextureRendering::drawingSize, 1024U);
}

TEST_F(DynamicHeightTextureRenderingTest, TheProgramsAreOnesAndTheSameForAll) {
    for (const auto & program : {DynamicHeightTextureRendering::shaderForTerrainHeightWithoutTexture(),
                                 DynamicHeightTextureRendering::shaderForTerrainTextureWithTexture(),
                                 DynamicHeightTextureRendering::shaderForTerrainTextureWithoutTexture()}) {
        ASSERT_TRUE(program);
        EXPECT_TRUE(program->use());
    }
    NBX::GL2::ProgramObject::useNone();
    EXPECT_EQ(DynamicHeightTextureRendering::shaderForTerrainHeightWithoutTexture(),
              DynamicHeightTextureRendering::shaderForTerrainHeightWithoutTexture());
}

TEST_F(DynamicHeightTextureRenderingTest, APlainLiesWhereItStandsWithWhatLiesOnIt) {
    // 3 units are 1 pixel where the plain is 700 away.
    layHeights([](unsigned, unsigned) { return 0.0; }, {100, 300, -300}, {520, 0, 400});
    addReds();
    expectAreas(draw(), [](const Point & p) { return isOnBoard(p, s_squareSide); });
    EXPECT_TRUE(rendering->lastResult);
}

TEST_F(DynamicHeightTextureRenderingTest, StraightDownAsWell) {
    layHeights([](unsigned, unsigned) { return 0.0; }, {500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    addReds();
    expectAreas(draw(), [](const Point & p) { return isOnBoard(p, s_squareSide); });
}

/// A step of the ground, which the card knows in its heights alone.
TEST_F(DynamicHeightTextureRenderingTest, TheMeshHasTheHeightsOfTheTerrain) {
    layHeights([](unsigned x, unsigned) { return x < 32 ? 20.0 : 270.0; }, {500, 900, 480}, {500, 0, 480},
               {0, 0, 1}, DynamicHeightTextureRendering::drawingSize);
    addReds();
    const SO<NBX::Image> picture = draw();
    const auto & statistics = rendering->lastStatistics();
    EXPECT_NEAR(statistics.low + rendering->heightLevel(), 20.0, 0.01);
    EXPECT_NEAR(statistics.high + rendering->heightLevel(), 270.0, 0.01);
    EXPECT_NEAR(statistics.seenLow + rendering->heightLevel(), 20.0, 0.01);
    EXPECT_NEAR(statistics.seenHigh + rendering->heightLevel(), 270.0, 0.01);
    unsigned checked = 0;
    for (int y = 8; y < s_pixels; y += 3)
        for (int x = 8; x < s_pixels; x += 3) {
            const Point high = onPlane(x, y, 270.0), low = onPlane(x, y, 20.0);
            const Point p = high.x > 540.0 ? high : low;
            if ((high.x > 470.0 && low.x < 560.0) || p.x < 20.0 || p.x > 1000.0 || p.z < 20.0 || p.z > 1000.0)
                continue;
            if (std::abs(std::remainder(p.x, s_squareSide)) < 30.0 ||
                std::abs(std::remainder(p.z, s_squareSide)) < 30.0)
                continue;
            ++checked;
            EXPECT_EQ(isRed(pixel(picture, x, y)), isOnBoard(p, s_squareSide)) << p.x << ", " << p.z;
        }
    EXPECT_GT(checked, 300U);
}

/// The view volume is cut for the tiles of a picture that is larger than what the driver draws at once.
TEST_F(DynamicHeightTextureRenderingTest, APictureInTilesIsTheWholePicture) {
    layHeights([](unsigned x, unsigned y) { return 2.0 * x + y; }, {100, 300, -300}, {520, 0, 400});
    addReds();
    const SO<NBX::Image> whole = canvas->largeScaleSnapshot(200, 200);
    engine->setMaxViewport(64, 64);
    const SO<NBX::Image> tiles = canvas->largeScaleSnapshot(200, 200);
    engine->setMaxViewport(10000, 10000);
    unsigned different = 0, reds = 0;
    for (int y = 0; y < 200; ++y)
        for (int x = 0; x < 200; ++x) {
            reds += isRed(pixel(whole, x, y));
            different += isRed(pixel(tiles, x, y)) != isRed(pixel(whole, x, y));
        }
    EXPECT_GT(reds, 5000U);
    EXPECT_LE(different, 400U) << "at edges";
}

TEST_F(DynamicHeightTextureRenderingTest, FacesThatAreNotDrawnElsewhereAreDrawnHere) {
    layHeights([](unsigned, unsigned) { return 7.0; }, {500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    const SO<NBX::SceneNode> culling(new LookingNode([](NBX::Engine &) { glEnable(GL_CULL_FACE); }));
    root->insert(1, culling.get());
    for (const GLenum face : {GL_FRONT, GL_BACK}) {
        glCullFace(face);
        EXPECT_TRUE(isWhite(pixel(draw(), 64, 64))) << face;
    }
    glDisable(GL_CULL_FACE);
}

TEST_F(DynamicHeightTextureRenderingTest, WhatIsSeenIsMeasuredWhateverTheDepthsOfTheScene) {
    layHeights([](unsigned, unsigned) { return 7.0; }, {500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    const SO<NBX::SceneNode> farthest(new LookingNode([](NBX::Engine &) {
        glDepthFunc(GL_GREATER);
        glClearDepth(0.0);
    }));
    root->insert(1, farthest.get());
    draw();
    glDepthFunc(GL_LESS);
    glClearDepth(1.0);
    EXPECT_TRUE(rendering->lastStatistics().seesGround());
}

TEST_F(DynamicHeightTextureRenderingTest, WindowsThatTakeTurnsShowTheSame) {
    layHeights([](unsigned x, unsigned y) { return double(x + y); }, {500, 900, 480}, {500, 0, 480},
               {0, 0, 1});
    addReds();
    const SO<NBX::Image> first = draw();
    const SO<NBX::OffscreenCanvasGL> second(new NBX::OffscreenCanvasGL(s_pixels, s_pixels));
    second->append(root.get());
    second->redisplay();
    EXPECT_EQ(largestDifference(second->snapshot(), first), 0);
    EXPECT_EQ(largestDifference(draw(), first), 0);
}

TEST_F(DynamicHeightTextureRenderingTest, HeightsForNoDataAreHoles) {
    for (const float hole : {0.0F, -500.0F, -9999.0F}) {
        layHeights([](unsigned, unsigned) { return 7.0; }, {500, 900, 480}, {500, 0, 480}, {0, 0, 1});
        // A square of that height lies over the others.
        const SO<NBX::SceneThing> graph = rendering->terrainHeightSceneGraph();
        graph->append(new NBX::PolygonSet(
            NBX::PolygonSet::PT_Quads,
            new NBX::Array<Point>(std::vector<Point>{Point(400, 400, hole), Point(600, 400, hole),
                                                     Point(600, 600, hole), Point(400, 600, hole)})));
        const SO<NBX::Image> picture = draw();
        unsigned holes = 0;
        for (int y = 0; y < s_pixels; ++y)
            for (int x = 0; x < s_pixels; ++x) {
                const Point p = onPlane(x, y, 7.0);
                const double outside = std::max(std::abs(p.x - 500.0), std::abs(p.z - 500.0)) - 100.0;
                const bool isDrawn = pixel(picture, x, y)[3] > 0;
                if (outside < 0.0) {
                    ++holes;
                    EXPECT_FALSE(isDrawn) << hole << " at " << p.x << ", " << p.z;
                } else if (outside > 25.0 && p.x > 20 && p.x < 1000 && p.z > 20 && p.z < 1000) {
                    EXPECT_TRUE(isDrawn) << hole << " at " << p.x << ", " << p.z;
                }
            }
        EXPECT_GT(holes, 100U);
    }
}

TEST_F(DynamicHeightTextureRenderingTest, TheRowsThatAreSeenAreTheOnesThatAreDrawn) {
    // The slab reaches far over the eye, so most rows of the first trapezoid lie before the ground in view.
    layHeights([](unsigned, unsigned) { return 0.0; }, {500, 150, -100}, {500, 0, 700});
    draw();
    const auto statistics = rendering->lastStatistics();
    ASSERT_TRUE(statistics.seesGround());
    EXPECT_GT(statistics.near, 0.0F);
    EXPECT_LT(statistics.far, 1.0F);
    EXPECT_LT(statistics.far - statistics.near, 0.9F);
}

TEST_F(DynamicHeightTextureRenderingTest, WithNothingInViewNothingIsDrawn) {
    layHeights([](unsigned, unsigned) { return 0.0; }, {500, 150, -100}, {500, 600, -700});
    const SO<NBX::Image> picture = draw();
    EXPECT_TRUE(rendering->lastResult);
    EXPECT_FALSE(rendering->lastStatistics().seesGround());
    for (int i = 0; i < s_pixels; i += 5)
        EXPECT_EQ(pixel(picture, i, i)[3], 0);
}

TEST_F(DynamicHeightTextureRenderingTest, EffectsLieBelowTheGraphAndLowerOnesBelowHigherOnes) {
    layHeights([](unsigned, unsigned) { return 0.0; }, {500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    const auto plain = [&](const NBX::Color & color, const Bounds & box) {
        const SO<NBX::MemoryImage> image(new NBX::MemoryImage(1, 1, NBX::LS_RGBA));
        image->setColor(0, 0, color);
        const SO<NBX::ImageTexture2DGL> made(new NBX::ImageTexture2DGL(image));
        made->setWrap(NBX::TextureGL::WM_ClampToBorder);
        made->setMinFilter(NBX::TextureGL::FM_Nearest);
        made->setMagFilter(NBX::TextureGL::FM_Nearest);
        return SO<ZMT::CORE::TerrainTexture>(new ZMT::CORE::SimpleTerrainTexture(made, box, Matrix()));
    };
    const Bounds west(Point(0, 0, 0), Point(700, 0, 1024)), south(Point(0, 0, 0), Point(1024, 0, 500));
    root->insert(1, effect(plain(NBX::Color(0.0, 0.0, 1.0, 1.0), west).get()).get());
    root->insert(2, effect(plain(NBX::Color(0.0, 1.0, 0.0, 1.0), south).get()).get());
    addRed(0.0, 0.0, 300.0);
    const SO<NBX::Image> picture = draw();
    const auto at = [&](double u, double v) {
        // Of the picture.
        return pixel(picture, int(u * s_pixels), int(v * s_pixels));
    };
    const auto color = [&](const Point & p) {
        for (int y = 0; y < s_pixels; ++y)
            for (int x = 0; x < s_pixels; ++x)
                if ((onPlane(x, y) - p).length() < 8.0) return pixel(picture, x, y);
        return at(0.5, 0.5);
    };
    EXPECT_EQ(color({200, 0, 200}), (std::array{255, 0, 0, 255})) << "the graph";
    EXPECT_EQ(color({500, 0, 300}), (std::array{0, 255, 0, 255})) << "the upper effect";
    EXPECT_EQ(color({800, 0, 300}), (std::array{0, 255, 0, 255})) << "the upper effect alone";
    EXPECT_EQ(color({500, 0, 700}), (std::array{0, 0, 255, 255})) << "the lower effect";
    EXPECT_EQ(color({850, 0, 700}), (std::array{255, 255, 255, 255})) << "neither";
}

TEST_F(DynamicHeightTextureRenderingTest, WhatChangesOnItShowsInTheNextPicture) {
    layHeights([](unsigned, unsigned) { return 0.0; }, {500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    root->insert(1, effect(dynamic.get()).get());
    EXPECT_TRUE(isWhite(pixel(draw(), 64, 64)));
    add(area(square).get(), NBX::Color(1.0, 0.0, 0.0));
    EXPECT_TRUE(isRed(pixel(draw(), 64, 64)));
    scene->clear();
    EXPECT_TRUE(isWhite(pixel(draw(), 64, 64)));
    EXPECT_EQ(dynamic->renderCount(), 3U) << "one for a picture";
}

/// A static one comes by the queue that the end of a frame works off.
TEST_F(DynamicHeightTextureRenderingTest, AVectorTextureLiesOnItAndItsFramesEnd) {
    layHeights([](unsigned, unsigned) { return 0.0; }, {500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    add(area(Bounds(Point(0, 0, 0), Point(500, 0, 1024))).get(), NBX::Color(1.0, 0.0, 0.0));
    root->insert(1, effect(texture.get()).get());
    canvas->setRenderingMode(1);
    SO<NBX::Image> picture = draw();
    for (unsigned i = 0; i < 50 && canvas->redisplayPending(); ++i)
        picture = draw();
    EXPECT_FALSE(canvas->redisplayPending());
    EXPECT_TRUE(ZMT::CORE::TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches().isDefined())
        << "what moving views are drawn for";
    EXPECT_TRUE(isRed(pixel(picture, 30, 64)));
    EXPECT_TRUE(isWhite(pixel(picture, 98, 64)));
}

TEST_F(DynamicHeightTextureRenderingTest, WhatItsHeightsWaitForAsksForAnotherPicture) {
    // Nothing is seen before a height is there, which is told by then.
    const SO<FakeTerrainTexture> waiting(new FakeTerrainTexture);
    waiting->box = square;
    waiting->answer = nullptr;
    waiting->isIncomplete = true;
    rendering = new SmallRendering(Bounds(Point(0, 0, 0), Point(1024, 100, 1024)));
    rendering->terrainHeightSceneGraph()->append(
        DynamicHeightTextureRendering::CreateRasterHeightShape(SO<ZMT::CORE::TerrainTexture>(waiting.get()))
            .get());
    root->clear();
    look({500, 1900, 480}, {500, 0, 480}, {0, 0, 1});
    root->append(rendering.get());
    canvas->setRenderingMode(1);
    draw();
    EXPECT_FALSE(rendering->lastStatistics().seesGround());
    EXPECT_TRUE(canvas->redisplayPending());
    waiting->isIncomplete = false;
    draw();
    EXPECT_FALSE(canvas->redisplayPending());
}

TEST_F(DynamicHeightTextureRenderingTest, LightFallsOnTheSlopes) {
    // A ridge along z: 45 degrees up to the middle, and down again.
    layHeights([](unsigned x, unsigned) { return 16.0 * (x < 32 ? x : 64 - x); }, {512, 1600, 512},
               {512, 0, 512}, {0, 0, 1});
    rendering->setLightDirection({-3.0, 0.0, 3.0}); // x, z and height
    const SO<NBX::Image> picture = draw();
    EXPECT_NEAR(pixel(picture, 40, 64)[0], 255, 3) << "faces it";
    EXPECT_NEAR(pixel(picture, 88, 64)[0], 0, 3) << "along the slope";
    rendering->setLightDirection({0.0, 0.0, 1.0});
    const SO<NBX::Image> above = draw();
    EXPECT_NEAR(pixel(above, 40, 64)[0], 180, 3);
    EXPECT_NEAR(pixel(above, 88, 64)[0], 180, 3);
    rendering->setLightDirection({0.0, 0.0, -1.0});
    EXPECT_EQ(pixel(draw(), 40, 64)[0], 0) << "from below";
    rendering->setLightDirection({});
    EXPECT_EQ(pixel(draw(), 40, 64)[0], 255) << "without light";
}

TEST_F(DynamicHeightTextureRenderingTest, LightMultipliesTheEffectsAndNotTheGraphAboveThem) {
    layHeights([](unsigned x, unsigned) { return 16.0 * (x < 32 ? x : 64 - x); }, {512, 1600, 512},
               {512, 0, 512}, {0, 0, 1});
    add(area(square).get(), NBX::Color(0.0, 0.6, 0.0));
    root->insert(1, effect(dynamic.get()).get());
    const SO<NBX::SceneThing> half(new NBX::SceneThing(rendering->terrainTextureSceneGraph().get()));
    half->append(new NBX::ColorAttribute(NBX::Color(1.0, 0.0, 0.0, 0.5)));
    half->append(new NBX::PolygonSet(NBX::PolygonSet::PT_Quads, new NBX::Array<Point>(std::vector<Point>{
                                                                    Point(0, 0, 0), Point(1024, 0, 0),
                                                                    Point(1024, 512, 0), Point(0, 512, 0)})));
    rendering->setLightDirection({0.0, 0.0, 1.0});
    const SO<NBX::Image> picture = draw();
    const auto lit = pixel(picture, 40, 90), blended = pixel(picture, 40, 38);
    EXPECT_NEAR(lit[0], 0, 3);
    EXPECT_NEAR(lit[1], 255 * 0.6 * std::sqrt(0.5), 4);
    EXPECT_NEAR(blended[0], 128, 4);
    EXPECT_NEAR(blended[1], 255 * 0.3 * std::sqrt(0.5), 4);
}

TEST_F(DynamicHeightTextureRenderingTest, TheBorderOfAHoleIsNoSlope) {
    layHeights([](unsigned, unsigned) { return 7.0; }, {500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    rendering->terrainHeightSceneGraph()->append(new NBX::PolygonSet(
        NBX::PolygonSet::PT_Quads,
        new NBX::Array<Point>(std::vector<Point>{Point(400, 400, -9999), Point(600, 400, -9999),
                                                 Point(600, 600, -9999), Point(400, 600, -9999)})));
    rendering->setLightDirection({0.0, 0.0, 1.0});
    const SO<NBX::Image> picture = draw();
    for (int y = 0; y < s_pixels; ++y)
        for (int x = 0; x < s_pixels; ++x)
            if (const auto p = pixel(picture, x, y); p[3] > 0) {
                EXPECT_GT(p[0], 240) << x << ", " << y;
            }
}

TEST_F(DynamicHeightTextureRenderingTest, ThePatternHasBandsOfTheHeight) {
    layHeights([](unsigned, unsigned) { return 7.0; }, {500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    rendering->showTestPattern(true);
    EXPECT_TRUE(rendering->showsTestPattern());
    const double expected = std::abs(std::sin((7.0 - rendering->heightLevel()) / 4.0));
    const auto found = pixel(draw(), 64, 64);
    EXPECT_NEAR(found[0], 255.0 * expected, 2.0);
    EXPECT_EQ(found[1], found[0]);
    EXPECT_EQ(found[3], 255);
}

/// On a slope, half a pixel of the heights would be a sixth of a band.
TEST_F(DynamicHeightTextureRenderingTest, TheHeightsOfASlopeLieAtTheirVertices) {
    constexpr double slope = 0.5;
    layHeights([](unsigned x, unsigned) { return slope * 16.0 * x; }, {500, 1500, 480}, {500, 0, 480},
               {0, 0, 1});
    rendering->showTestPattern(true);
    const SO<NBX::Image> picture = draw();
    unsigned checked = 0;
    for (int y = 4; y < s_pixels; y += 7)
        for (int x = 1; x < s_pixels; ++x) {
            const Point low = onPlane(x, y, 0.0), high = onPlane(x, y, 100.0);
            const double height = slope * low.x / (1.0 - slope * (high.x - low.x) / 100.0);
            if (height < 40.0 * slope || height > 980.0 * slope || low.z < 60.0 || low.z > 960.0) continue;
            ++checked;
            const double expected = std::abs(std::sin((height - rendering->heightLevel()) / 4.0));
            EXPECT_NEAR(pixel(picture, x, y)[0], 255.0 * expected, 20.0) << x << ", " << y;
        }
    EXPECT_GT(checked, 700U);
}

TEST_F(DynamicHeightTextureRenderingTest, AMeshGivesHeightsAsWell) {
    rendering = new SmallRendering(Bounds(Point(0, 0, 0), Point(1024, 100, 1024)));
    rendering->terrainHeightSceneGraph()->append(new NBX::PolygonSet(
        NBX::PolygonSet::PT_Quads,
        new NBX::Array<Point>(std::vector<Point>{Point(0, 0, 50.0), Point(1024, 0, 50.0),
                                                 Point(1024, 1024, 50.0), Point(0, 1024, 50.0)})));
    addReds();
    root->clear();
    look({500, 1900, 480}, {500, 0, 480}, {0, 0, 1});
    root->append(rendering.get());
    draw();
    EXPECT_NEAR(rendering->lastStatistics().low, 50.0, 0.001);
    EXPECT_NEAR(rendering->lastStatistics().high, 50.0, 0.001);
    EXPECT_NEAR(rendering->lastStatistics().mean, 50.0, 0.001);
}

TEST_F(DynamicHeightTextureRenderingTest, TheStateIsAsItWasFound) {
    layHeights([](unsigned x, unsigned y) { return double(x + y); }, {100, 300, -300}, {520, 0, 400});
    addReds();
    rendering->setLightDirection({0.0, 0.0, 1.0});
    draw();
    std::vector<int> before, after;
    Matrix modelBefore, modelAfter, projectionBefore, projectionAfter;
    root->insert(root->objects() - 1, new LookingNode([&](NBX::Engine & e) {
                     before = stateOfGL();
                     modelBefore = e.modelViewMatrix();
                     projectionBefore = e.projectionMatrix();
                 }));
    root->append(new LookingNode([&](NBX::Engine & e) {
        after = stateOfGL();
        modelAfter = e.modelViewMatrix();
        projectionAfter = e.projectionMatrix();
    }));
    draw();
    EXPECT_FALSE(before.empty());
    EXPECT_EQ(before, after);
    EXPECT_EQ(modelBefore, modelAfter);
    EXPECT_EQ(projectionBefore, projectionAfter);
    EXPECT_FALSE(canvas->redisplayPending());
}

TEST_F(DynamicHeightTextureRenderingTest, TheStateIsAsItWasFoundWhereItsSceneThrows) {
    layHeights([](unsigned, unsigned) { return 7.0; }, {500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    const SO<SmallRendering> thrown = rendering;
    bool throws = true;
    const auto mayThrow = [&](NBX::Engine &) {
        if (throws) throw std::runtime_error("a shape that fails");
    };
    for (const auto & graph : {rendering->terrainHeightSceneGraph(), rendering->terrainTextureSceneGraph()}) {
        const SO<NBX::SceneNode> node(new LookingNode(mayThrow));
        graph->append(node.get());
        throws = false;
        draw();
        throws = true;
        std::vector<int> before, after;
        int boundBefore = -1, boundAfter = -2;
        root->replace(root->object(root->objects() - 1), new LookingNode([&](NBX::Engine &) {
                          before = stateOfGL();
                          glGetIntegerv(GL_FRAMEBUFFER_BINDING_EXT, &boundBefore);
                          EXPECT_THROW(thrown->render(engine), std::runtime_error);
                          glGetIntegerv(GL_FRAMEBUFFER_BINDING_EXT, &boundAfter);
                          after = stateOfGL();
                      }));
        draw();
        EXPECT_EQ(boundBefore, boundAfter);
        EXPECT_FALSE(before.empty());
        EXPECT_EQ(before, after);
        root->replace(root->object(root->objects() - 1), thrown.get());
        graph->remove(node.get());
    }
}

TEST_F(DynamicHeightTextureRenderingTest, TargetsThatTheDriverDoesNotHaveAreToldOnce) {
    layHeights([](unsigned, unsigned) { return 7.0; }, {500, 900, 480}, {500, 0, 480}, {0, 0, 1}, 1U << 18U);
    draw();
    EXPECT_FALSE(rendering->lastResult);
    draw();
    EXPECT_EQ(reports.count(L"the graphics driver cannot draw into the targets of floats; drape by a "
                            L"VectorTexture"),
              1U)
        << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;
    while (glGetError() != GL_NO_ERROR) {
    }
    reports.clear();
}

TEST_F(DynamicHeightTextureRenderingTest, WhereTerrainsAreNotDrawnItIsNot) {
    layHeights([](unsigned, unsigned) { return 7.0; }, {500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    EXPECT_GT(pixel(draw(), 64, 64)[3], 0);
    ZMT::CORE::TerrainPainterGLSettings::enableRendering(false);
    EXPECT_EQ(pixel(draw(), 64, 64)[3], 0);
    EXPECT_TRUE(rendering->lastResult);
    ZMT::CORE::TerrainPainterGLSettings::enableRendering(true);
}

TEST_F(DynamicHeightTextureRenderingTest, HeightsThatAreTooFarApartAreToldOnceAndNotDrawn) {
    rendering = new SmallRendering(Bounds(Point(0, -10000, 0), Point(1024, 8850, 1024)));
    root->clear();
    look({500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    root->append(rendering.get());
    rendering->lastResult = true;
    draw();
    draw();
    EXPECT_FALSE(rendering->lastResult);
    EXPECT_EQ(reports.count(2, L"false",
                            L"heights from -10000 to 8850 are too far apart to be drawn from the graphics "
                            L"card, which takes 1498; drape by a VectorTexture there"),
              1U)
        << reports;
    EXPECT_EQ(reports.size(), 1U);
    reports.clear();
    EXPECT_FALSE(SO<SmallRendering>(new SmallRendering(Bounds()))->render(engine));
    EXPECT_EQ(reports.count(L"heights cannot be drawn without the box of the terrain"), 1U);
    EXPECT_FALSE(rendering->render(nullptr));
    EXPECT_EQ(reports.count(L"no engine"), 1U);
    reports.clear();
}

TEST_F(DynamicHeightTextureRenderingTest, AHeightTextureHasTheHeightsAboveTheLevel) {
    const auto raster = TestTerrain::grid({5, 3, 0.0, 0.0, 10.0, 10.0}, [](unsigned x, unsigned y) {
        return x == 4 && y == 2 ? TestTerrain::s_undefined : 100.0 + x + 10.0 * y;
    });
    const auto whole = TestTerrain::grid({5, 3, 0.0, 0.0, 10.0, 10.0}, TestTerrain::bumpy);
    const auto made = DynamicHeightTextureRendering::CreateHeightTexture(raster.get(), 90.0);
    ASSERT_TRUE(made);
    EXPECT_EQ(made->boundingBox().getLLF().x, -5.0);
    EXPECT_EQ(made->boundingBox().getURB().x, 45.0);
    EXPECT_EQ(made->boundingBox().getURB().z, 25.0);
    const auto * simple = dynamic_cast<const ZMT::CORE::SimpleTerrainTexture *>(made.get());
    ASSERT_TRUE(simple);
    simple->texture()->bind(engine.get());
    std::array<float, 15> texels{};
    glGetTexImage(GL_TEXTURE_2D, 0, GL_RED, GL_FLOAT, texels.data());
    glBindTexture(GL_TEXTURE_2D, 0);
    for (unsigned i = 0; i < 14; ++i)
        EXPECT_EQ(texels[i], 10.0F + float(i % 5) + 10.0F * float(i / 5)) << i;
    EXPECT_EQ(texels[14], -9999.0F);
    EXPECT_EQ(made->magFilter(), NBX::TextureGL::FM_Nearest);
    EXPECT_EQ(DynamicHeightTextureRendering::CreateHeightTexture(whole.get(), 0.0)->magFilter(),
              NBX::TextureGL::FM_Linear);
    EXPECT_FALSE(DynamicHeightTextureRendering::CreateHeightTexture(nullptr, 0.0));
    EXPECT_EQ(reports.count(L"no grid"), 1U);
    reports.clear();
}

TEST_F(DynamicHeightTextureRenderingTest, AThinnedHeightTextureKeepsTheBorders) {
    const auto wide = TestTerrain::grid({5000, 3, 0.0, 0.0, 10.0, 10.0},
                                        [](unsigned x, unsigned y) { return x + 0.25 * y; });
    const auto made = DynamicHeightTextureRendering::CreateHeightTexture(wide.get(), 0.0);
    const auto * simple = dynamic_cast<const ZMT::CORE::SimpleTerrainTexture *>(made.get());
    ASSERT_TRUE(simple);
    simple->texture()->bind(engine.get());
    std::vector<float> texels(std::size_t(4096) * 3);
    int width = 0, height = 0;
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &width);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &height);
    ASSERT_EQ(width, 4096);
    ASSERT_EQ(height, 3) << "not more of these than need be";
    glGetTexImage(GL_TEXTURE_2D, 0, GL_RED, GL_FLOAT, texels.data());
    glBindTexture(GL_TEXTURE_2D, 0);
    EXPECT_EQ(texels.front(), 0.0F);
    EXPECT_EQ(texels[4095], 4999.0F);
    EXPECT_EQ(texels.back(), 4999.5F);
    // Its middles are where the heights are, to half a cell.
    const Bounds box = made->boundingBox();
    const double texel = box.diagonal().x / 4096.0;
    for (int i = 0; i < 4096; i += 13)
        EXPECT_NEAR(box.getLLF().x + (i + 0.5) * texel, 10.0 * texels[std::size_t(i)], 5.001) << i;
}

TEST_F(DynamicHeightTextureRenderingTest, ExaggerationRaisesTheGround) {
    layHeights([](unsigned x, unsigned) { return x < 32 ? 20.0 : 120.0; }, {-400, 300, 512}, {512, 0, 512});
    const auto rowOfTop = [&] {
        const SO<NBX::Image> picture = draw();
        for (int y = s_pixels - 1; y >= 0; --y)
            if (pixel(picture, 64, y)[3] > 0) return y;
        return -1;
    };
    const int plain = rowOfTop();
    scaling->setScaling({1.0, 2.0, 1.0});
    EXPECT_GT(rowOfTop(), plain + 3);
}

} // namespace
