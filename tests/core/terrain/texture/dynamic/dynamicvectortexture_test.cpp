#include <zmt/core/terrain/texture/dynamic/dynamicvectortexture.h>

#include <algorithm>
#include <cmath>

#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/text/textshape.h>
#include <zmt/core/terrain/frame/terrainwatcher.h>
#include <zmt/core/terrain/geometry/draped/terraintexturedgeometry.h>
#include <zmt/core/terrain/texture/simpleterraintexture.h>
#include <zmt/raster/gdal/rasterfile.h>

#include <support/readingstream.h>
#include <support/storedcopy.h>

#include "core/terrain/texture/dynamic/trapezoidfit.h"
#include "dynamictexturetest.h"

using NBX::SO;
using ZMT::CORE::DynamicVectorTexture;
using ZMT::CORE::TerrainPainterGLSettings;
using ZMT::CORE::TrapezoidFit;
using ZMT::CORE::VectorTextureCanvasGL;

namespace {

constexpr double s_side = 128.0;

struct View {
    const char * name;
    NBX::Vector3Base<double> from, to, up{0.0, 1.0, 0.0};
};

std::ostream & operator<<(std::ostream & stream, const View & view) {
    return stream << view.name;
}

class DynamicVectorTextureTest : public DynamicTextureFixture {};
class DynamicVectorTextureViewTest : public DynamicTextureFixture,
                                     public ::testing::WithParamInterface<View> {};

TEST_F(DynamicVectorTextureTest, StartsWithTheValuesOfItsClass) {
    const SO<DynamicVectorTexture> made(new DynamicVectorTexture(nullptr));
    EXPECT_FALSE(made->scene());
    EXPECT_EQ(made->minFilter(), NBX::TextureGL::FM_LinearMipmapLinear);
    EXPECT_EQ(made->magFilter(), NBX::TextureGL::FM_Linear);
    EXPECT_EQ(made->getTextureSize(), 2048U);
    EXPECT_EQ(made->textureMatrix(), Matrix());
    EXPECT_FALSE(made->boundingBox().isDefined());
    EXPECT_EQ(made->renderCount(), 0U);
    EXPECT_FALSE(DynamicVectorTexture::rasterTexture());
}

TEST_F(DynamicVectorTextureTest, ItsBoxIsThatOfTheSceneUnboundedInHeight) {
    EXPECT_FALSE(dynamic->boundingBox().isDefined()) << "nothing stands in the scene";
    add(area(Bounds(Point(3.0, 0.0, 4.0), Point(5.0, 0.0, 7.0))).get(), NBX::Color::black);
    EXPECT_EQ(dynamic->boundingBox(), Bounds(Point(3.0, -1e42, 4.0), Point(5.0, 1e42, 7.0)));
}

TEST_F(DynamicVectorTextureTest, IsStoredWithItsScene) {
    add(area(Bounds(Point(3.0, 0.0, 4.0), Point(5.0, 0.0, 7.0))).get(), NBX::Color::black);
    dynamic->magFilter(NBX::TextureGL::FM_Nearest);
    const auto copy = storedCopy(*dynamic);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->magFilter(), NBX::TextureGL::FM_Nearest);
    ASSERT_TRUE(copy->scene());
    EXPECT_EQ(copy->boundingBox(), dynamic->boundingBox());
    const auto empty = storedCopy(*SO<DynamicVectorTexture>(new DynamicVectorTexture(nullptr)));
    ASSERT_TRUE(empty);
    EXPECT_FALSE(empty->scene());
}

TEST_F(DynamicVectorTextureTest, NeverAsksForASplit) {
    EXPECT_FALSE(dynamic->refine(tree.get(), view.get(), 1000, 1000, eye, 0.0, false));
}

TEST_F(DynamicVectorTextureTest, WithoutASceneThereIsNothing) {
    dynamic->setScene(nullptr);
    begin(engine.get());
    bool isIncomplete = false;
    EXPECT_FALSE(dynamic->request(tree.get(), engine.get(), view.get(), 1000, 1000, 1.0, eye, 1.0, false,
                                  false, isIncomplete));
    EXPECT_EQ(dynamic->renderCount(), 0U);
    EXPECT_FALSE(isIncomplete);
}

/// As a tile that is gone.
class PlacelessPatch : public FakePatch {
    NBX_TEMPLATE_CLASS(PlacelessPatch, FakePatch)
public:
    PlacelessPatch() : FakePatch(NBX::Bounds()) {}
    NBX::Bounds boundingBox() const override { return {}; }
};

TEST_F(DynamicVectorTextureTest, WithoutATerrainThereIsNothingAndNoEarlierTextureEither) {
    add(area(square).get(), NBX::Color(1.0, 0.0, 0.0));
    bool isIncomplete = false;
    const auto ask = [&](const GeometryPatch * patch) {
        begin(engine.get());
        DynamicVectorTexture::beginFrame({engine.get(), false});
        return dynamic->request(patch, engine.get(), view.get(), 1000, 1000, 1.0, eye, 1.0, false, false,
                                isIncomplete);
    };
    const SO<PlacelessPatch> gone(new PlacelessPatch);
    EXPECT_TRUE(ask(tree.get()));
    EXPECT_FALSE(ask(gone.get()));
    EXPECT_TRUE(ask(tree.get()));
}

TEST_F(DynamicVectorTextureTest, WithoutAPatchOrAnEngineThatIsTold) {
    bool isIncomplete = false;
    EXPECT_FALSE(dynamic->request(nullptr, engine.get(), view.get(), 1000, 1000, 1.0, eye, 1.0, false, false,
                                  isIncomplete));
    EXPECT_FALSE(dynamic->request(tree.get(), nullptr, view.get(), 1000, 1000, 1.0, eye, 1.0, false, false,
                                  isIncomplete));
    EXPECT_FALSE(dynamic->request(tree.get(), engine.get(), nullptr, 1000, 1000, 1.0, eye, 1.0, false, false,
                                  isIncomplete));
    EXPECT_EQ(reports.count(L"no geometry-patch"), 1U);
    EXPECT_EQ(reports.count(L"no engine"), 1U);
    EXPECT_EQ(reports.count(L"no view-info"), 1U);
    reports.clear();
}

TEST_F(DynamicVectorTextureTest, SizesThatNoTextureHasAreTold) {
    dynamic->setTextureSize(1);
    dynamic->setTextureSize(8193);
    EXPECT_EQ(reports.size(), 2U);
    EXPECT_EQ(dynamic->getTextureSize(), 512U);
    reports.clear();
}

TEST_P(DynamicVectorTextureViewTest, AreasLieWhereTheyStand) {
    addBoard(s_side);
    lay(GetParam().from, GetParam().to, GetParam().up);
    expectAreas(draw(), [](const Point & p) { return isOnBoard(p, s_side); });
    EXPECT_EQ(dynamic->renderCount(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Views, DynamicVectorTextureViewTest,
    ::testing::Values(View{"across", {100, 300, -300}, {520, 0, 400}},
                      View{"straight down", {500, 900, 480}, {500, 0, 480}, {0, 0, 1}},
                      View{"straight down, turned", {500, 900, 480}, {500, 0, 480}, {0.6, 0, -0.8}},
                      View{"at the horizon", {1300, 250, 1100}, {500, 250, 500}},
                      View{"low", {-20, 40, 500}, {500, 0, 520}}));

/// The eye stands below a summit at its side, above ground of which it sees the part from some 100 units on.
TEST_F(DynamicVectorTextureTest, InsideTheSlabTheGroundFarOffIsStillSharp) {
    setGround([](unsigned x, unsigned y) { return x < 3 && y > 60 ? 600.0 : 0.0; });
    addBoard(2.0 * s_side);
    lay({40, 150, 60}, {700, 0, 400});
    expectAreas(
        draw(), [](const Point & p) { return isOnBoard(p, 2.0 * s_side); }, 2.5);
}

TEST_F(DynamicVectorTextureTest, OnePictureIsOneDrawing) {
    add(area(square).get(), NBX::Color(1.0, 0.0, 0.0));
    lay({100, 300, -300}, {520, 0, 400});
    for (unsigned long i = 1; i <= 3; ++i) {
        draw();
        EXPECT_EQ(dynamic->renderCount(), i);
        EXPECT_FALSE(canvas->redisplayPending());
    }
}

/// What is measured in texels has no place in the ground that could undo a mirror.
TEST_F(DynamicVectorTextureTest, UprightTextIsNotMirrored) {
    const SO<NBX::TextShape> text(new NBX::TextShape(L"L", Point(500.0, 0.0, 480.0), 240.0));
    text->setColor(NBX::Color(1.0, 0.0, 0.0));
    scene->append(text.get());
    lay({500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    const SO<NBX::Image> picture = draw();
    // The stem stands at the left, the foot below.
    unsigned left = 0, right = 0, above = 0, below = 0;
    int low = s_pixels, high = 0, bottom = s_pixels, top = 0;
    const auto forEachRed = [&](const auto & function) {
        for (int y = 0; y < s_pixels; ++y)
            for (int x = 0; x < s_pixels; ++x)
                if (isRed(pixel(picture, x, y))) function(x, y);
    };
    forEachRed([&](int x, int y) {
        low = std::min(low, x);
        high = std::max(high, x);
        bottom = std::min(bottom, y);
        top = std::max(top, y);
    });
    ASSERT_GT(high, low + 10);
    forEachRed([&](int x, int y) {
        ++(2 * x < low + high ? left : right);
        ++(2 * y < bottom + top ? below : above);
    });
    EXPECT_GT(left, right);
    EXPECT_GT(below, above);
}

TEST_F(DynamicVectorTextureTest, TextInMetresLiesWhereItStands) {
    const SO<NBX::TextShape> text(
        new NBX::TextShape(L"L", Point(400.0, 0.0, 300.0), 400.0, NBX::TextShape::SU_Metres));
    text->setColor(NBX::Color(1.0, 0.0, 0.0));
    scene->append(text.get());
    lay({100, 300, -300}, {520, 0, 400});
    const SO<NBX::Image> picture = draw();
    Bounds found;
    for (int y = 0; y < s_pixels; ++y)
        for (int x = 0; x < s_pixels; ++x)
            if (isRed(pixel(picture, x, y))) found += onPlane(x, y);
    // A capital is 0.7 of its size high, above what hangs down of others.
    ASSERT_TRUE(found.isDefined());
    EXPECT_NEAR(found.getLLF().x, 441.0, 15.0);
    EXPECT_NEAR(found.getLLF().z, 397.0, 15.0);
    EXPECT_NEAR(found.getURB().x, 610.0, 20.0);
    EXPECT_NEAR(found.getURB().z, 678.0, 25.0);
}

TEST_F(DynamicVectorTextureTest, AChangeOfTheSceneShowsInTheNextPicture) {
    const SO<NBX::SceneThing> thing(new NBX::SceneThing(scene.get()));
    lay({500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    EXPECT_TRUE(isWhite(pixel(draw(), 64, 64)));
    thing->append(new NBX::ColorAttribute(NBX::Color(1.0, 0.0, 0.0)));
    thing->append(area(square).get());
    EXPECT_TRUE(isRed(pixel(draw(), 64, 64)));
    thing->clear();
    EXPECT_TRUE(isWhite(pixel(draw(), 64, 64)));
    const SO<NBX::SceneThing> other(new NBX::SceneThing);
    other->append(new NBX::ColorAttribute(NBX::Color(1.0, 0.0, 0.0)));
    other->append(area(square).get());
    dynamic->setScene(other);
    EXPECT_TRUE(isRed(pixel(draw(), 64, 64)));
    dynamic->setTextureSize(64);
    EXPECT_TRUE(isRed(pixel(draw(), 64, 64)));
    EXPECT_EQ(dynamic->renderCount(), 5U);
}

TEST_F(DynamicVectorTextureTest, ASecondTerrainOfTheSameHeightsTakesTheSameTexture) {
    addBoard(s_side);
    lay({500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    const SO<NBX::Image> once = draw();
    root->append(terrain.get());
    EXPECT_EQ(largestDifference(draw(), once), 0);
    EXPECT_EQ(dynamic->renderCount(), 2U);
}

TEST_F(DynamicVectorTextureTest, ASecondTerrainOfOtherHeightsIsDrawnFor) {
    addBoard(s_side);
    lay({500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    const SO<NBX::SceneThing> deep(new NBX::SceneThing(root.get()));
    const auto grid =
        TestTerrain::grid({65, 65, 1040.0, 0.0, 16.0, 16.0}, [](unsigned, unsigned) { return -400.0; });
    deep->append(
        new ZMT::CORE::Terrain(grid.get(), ZMT::CORE::CreateGeometryTree::create(grid.get(), 64).get()));
    // What was drawn for both serves the first one again.
    root->append(terrain.get());
    expectAreas(draw(), [](const Point & p) { return isOnBoard(p, s_side); });
    EXPECT_EQ(dynamic->renderCount(), 2U);
}

TEST_F(DynamicVectorTextureTest, HeightsOfAnEarlierPictureDoNotCount) {
    addBoard(s_side);
    const auto flat = terrain;
    setGround([](unsigned x, unsigned) { return x < 32 ? 0.0 : 400.0; });
    lay({100, 300, -300}, {520, 0, 400});
    draw();
    const Matrix before = dynamic->textureMatrix();
    terrain = flat;
    lay({100, 300, -300}, {520, 0, 400});
    draw();
    const Matrix after = dynamic->textureMatrix();
    EXPECT_FALSE(before == after);
    dynamic = newDynamic();
    lay({100, 300, -300}, {520, 0, 400});
    draw();
    EXPECT_EQ(dynamic->textureMatrix(), after);
}

/// A picture within a picture, of another view.
TEST_F(DynamicVectorTextureTest, AnotherEngineInBetweenIsNoticed) {
    const SO<NBX::OffscreenCanvasGL> second(new NBX::OffscreenCanvasGL(8, 8));
    bool isIncomplete = false;
    const auto ask = [&](NBX::EngineGL * asking) {
        dynamic->request(tree.get(), asking, view.get(), 1000, 1000, 1.0, eye, 1.0, false, false,
                         isIncomplete);
    };
    begin(engine.get());
    ask(engine.get());
    ask(engine.get());
    EXPECT_EQ(dynamic->renderCount(), 1U);
    ask(second->engine().get());
    EXPECT_EQ(dynamic->renderCount(), 2U);
    ask(engine.get());
    EXPECT_EQ(dynamic->renderCount(), 3U);
}

TEST_F(DynamicVectorTextureTest, ReadIntoAgainItIsDrawnAnewInTheSamePicture) {
    const SO<NBX::Attribute> picture(
        new NBX::ContextData<NBX::Canvas *>(NBX::Canvas::ClassNameNBX(), nullptr));
    const NBX::AttributeScope scope(engine.get(), picture.get());
    bool isIncomplete = false;
    const auto ask = [&] {
        dynamic->request(tree.get(), engine.get(), view.get(), 1000, 1000, 1.0, eye, 1.0, false, false,
                         isIncomplete);
    };
    ask();
    DynamicVectorTexture::beginFrame({engine.get(), false});
    ask();
    EXPECT_EQ(dynamic->renderCount(), 1U) << "the camera sees the same";
    ReadingStream stream;
    stream.objects["scene"] = new NBX::SceneThing;
    dynamic->serialize(stream);
    ask();
    EXPECT_EQ(dynamic->renderCount(), 2U);
}

TEST_F(DynamicVectorTextureTest, VisitorsComeToItsScene) {
    std::vector<NBX::Visitable *> children;
    dynamic->acceptChildren(children);
    EXPECT_EQ(std::count(children.begin(), children.end(), scene.get()), 1);
}

TEST_F(DynamicVectorTextureTest, TwoWindowsHaveTheirOwnPictures) {
    addBoard(s_side);
    lay({500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    const SO<NBX::OffscreenCanvasGL> second(new NBX::OffscreenCanvasGL(s_pixels, s_pixels));
    const SO<NBX::SceneThing> other(new NBX::SceneThing);
    other->append(new NBX::Camera(new NBX::LookAt({100, 300, -300}, {520, 0, 400}, {0, 1, 0}),
                                  new NBX::Perspective(50.0, 1.0, 5000.0), NBX::Camera::S_Global));
    other->append(effect(dynamic.get()).get());
    other->append(terrain.get());
    second->append(other.get());
    const SO<NBX::Image> first = draw();
    second->redisplay();
    const SO<NBX::Image> across = second->snapshot();
    EXPECT_GT(largestDifference(first, across), 100);
    EXPECT_EQ(largestDifference(draw(), first), 0);
    second->redisplay();
    EXPECT_EQ(largestDifference(second->snapshot(), across), 0);
    EXPECT_EQ(dynamic->renderCount(), 4U);
}

TEST_F(DynamicVectorTextureTest, ExaggerationLeavesItWhereItIs) {
    setGround([](unsigned x, unsigned y) { return 0.5 * x + 0.2 * y; });
    addBoard(s_side);
    root->append(scaling.get());
    lay({500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    root->clear();
    root->append(new NBX::Camera(new NBX::LookAt({512, 3000, 512}, {512, 0, 512}, {0, 0, 1}),
                                 new NBX::Ortho(-512, 512, -512, 512, 1, 6000), NBX::Camera::S_Global));
    root->append(scaling.get());
    root->append(effect(dynamic.get()).get());
    root->append(terrain.get());
    const SO<NBX::Image> plain = draw();
    EXPECT_TRUE(isRed(pixel(plain, 8, 8)));
    scaling->setScaling({1.0, 10.0, 1.0});
    EXPECT_LE(largestDifference(draw(), plain), 2);
}

TEST_F(DynamicVectorTextureTest, TheScaledTerrainIsWhatTheTrapezoidFits) {
    setGround([](unsigned x, unsigned y) { return (x > 20 && x < 40 && y > 20 && y < 40) ? 60.0 : 0.0; });
    scaling->setScaling({1.0, 8.0, 1.0});
    add(area(square).get(), NBX::Color(1.0, 0.0, 0.0));
    lay({-300, 500, -300}, {520, 200, 520});
    const SO<NBX::Image> picture = draw();
    unsigned reds = 0;
    for (int y = 0; y < s_pixels; ++y)
        for (int x = 0; x < s_pixels; ++x) {
            const auto p = pixel(picture, x, y);
            reds += isRed(p);
            EXPECT_FALSE(isWhite(p)) << x << ", " << y;
        }
    EXPECT_GT(reds, 3000U);
}

/// A plate over the ground.
class DrapedPlate : public ZMT::CORE::TerrainTexturedGeometry {
    NBX_TEMPLATE_CLASS(DrapedPlate, ZMT::CORE::TerrainTexturedGeometry)
public:
    DrapedPlate(const SO<NBX::Shape> & plate) : plate_(plate) {}
    SO<NBX::SceneNode> geometry(const NBX::Bounds &) const override {
        SO<NBX::SceneThing> thing(new NBX::SceneThing);
        thing->append(plate_.get());
        return thing;
    }
    NBX::Bounds boundingBox() const override { return plate_->boundingBox(); }

private:
    SO<NBX::Shape> plate_;
};

TEST_F(DynamicVectorTextureTest, DrapedTrianglesAboveTheTerrainShowItToo) {
    addBoard(s_side);
    lay({500, 900, -200}, {500, 600, 300});
    root->insert(1, new DrapedPlate(SO<NBX::Shape>(area(square, 600.0).get())));
    const SO<NBX::Image> picture = draw();
    unsigned checked = 0;
    for (int y = 2; y < s_pixels; y += 2)
        for (int x = 2; x < s_pixels; x += 2) {
            const Point p = onPlane(x, y, 600.0);
            const auto border = [](double at) { return std::abs(std::remainder(at, s_side)); };
            if (p.y > 1e8 || p.x < 0.0 || p.z < 0.0 || p.x > 1024.0 || p.z > 600.0) continue;
            if (border(p.x) < 20.0 || border(p.z) < 20.0) continue;
            ++checked;
            EXPECT_EQ(isRed(pixel(picture, x, y)), isOnBoard(p, s_side)) << p.x << ", " << p.z;
        }
    EXPECT_GT(checked, 300U);
}

TEST_F(DynamicVectorTextureTest, OpacityInThePictureIsThatOfTheArea) {
    for (const double opacity : {0.2, 0.5, 0.9}) {
        scene->clear();
        add(area(square).get(), NBX::Color(0.0, 0.4, 0.0, opacity));
        lay({500, 900, 480}, {500, 0, 480}, {0, 0, 1});
        const SO<NBX::Image> picture = draw();
        for (int i = 20; i < 108; i += 17) {
            EXPECT_NEAR(pixel(picture, i, i)[0], 255.0 * (1.0 - opacity), 2.0) << opacity;
            EXPECT_NEAR(pixel(picture, i, i)[1], 255.0 * (1.0 - opacity) + 102.0 * opacity, 2.0) << opacity;
        }
    }
}

TEST_F(DynamicVectorTextureTest, TheLaterThingLiesOverTheEarlierOneWhateverItsHeight) {
    add(area(square, 5000.0).get(), NBX::Color(0.0, 0.0, 1.0));
    add(area(square, -300.0).get(), NBX::Color(1.0, 0.0, 0.0));
    lay({500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    EXPECT_TRUE(isRed(pixel(draw(), 64, 64)));
}

TEST_F(DynamicVectorTextureTest, OnAnotherCanvasThePictureIsTheSame) {
    addBoard(s_side);
    add(line(Point(0.0, 0.0, 100.0), Point(1024.0, 0.0, 700.0)).get(), NBX::Color(0.0, 0.0, 1.0));
    lay({100, 300, -300}, {520, 0, 400});
    const SO<NBX::Image> copied = draw();
    VectorTextureCanvasGL::allowPixelBuffers(false);
    dynamic->setTextureSize(256);
    dynamic->setTextureSize(512);
    EXPECT_LE(largestDifference(draw(), copied), 2);
    EXPECT_EQ(reports.count(L"no support for pbuffer canvas available, using the slower offscreen canvas "
                            L"instead"),
              1U);
    reports.clear();
}

TEST_F(DynamicVectorTextureTest, LeavesEverythingAsItFindsIt) {
    const SO<ZMT::CORE::TerrainWatcher> watcher(new ZMT::CORE::TerrainWatcher);
    bool wasFrozen = false, hasFlag = false, hasScaling = false;
    NBX::Canvas * drawnOn = nullptr;
    scene->append(new LookingNode([&](NBX::Engine & looked) {
        wasFrozen = watcher->getFreeze();
        hasFlag = looked.getAttribute("ZMT_VectorTexture_Attrib_Flag") != nullptr;
        hasScaling = looked.getAttribute(ZMT::CORE::TerrainScaling::ClassNameNBX()) != nullptr;
        drawnOn = looked.getCanvas();
    }));
    std::vector<int> before, after;
    lay({100, 300, -300}, {520, 0, 400});
    root->insert(1, watcher.get());
    const SO<NBX::SceneNode> remembering(new LookingNode([&](NBX::Engine &) { before = stateOfGL(); }));
    const SO<NBX::SceneNode> comparing(new LookingNode([&](NBX::Engine &) { after = stateOfGL(); }));
    root->insert(1, remembering.get());
    root->append(comparing.get());
    draw();
    EXPECT_TRUE(wasFrozen);
    EXPECT_TRUE(hasFlag);
    EXPECT_TRUE(hasScaling);
    EXPECT_FALSE(watcher->getFreeze());
    ASSERT_TRUE(drawnOn);
    EXPECT_NE(drawnOn, canvas.get());
    EXPECT_EQ(drawnOn->rootNodes(), 0U);
    EXPECT_FALSE(drawnOn->processor()->getAttribute("ZMT_VectorTexture_Attrib_Flag"));
    // The terrain itself leaves this so.
    const SO<NBX::TextureGL> none;
    EXPECT_FALSE(before.empty());
    EXPECT_EQ(before.size(), after.size());
    EXPECT_TRUE(canvas->isContextCurrent());
    dynamic->setScene(nullptr);
    std::vector<int> withTexture = after;
    draw();
    EXPECT_EQ(after, withTexture) << "as without the texture";
}

TEST_F(DynamicVectorTextureTest, ATerrainInTheSceneThatShowsTheSceneHasAnEnd) {
    const SO<NBX::SceneThing> inner(new NBX::SceneThing(scene.get()));
    inner->append(effect(dynamic.get()).get());
    inner->append(terrain.get());
    lay({100, 300, -300}, {520, 0, 400});
    draw();
    EXPECT_EQ(dynamic->renderCount(), 1U);
    scene->clear();
}

TEST_F(DynamicVectorTextureTest, AViewThatMissesTheSlabIsDrawnWithTheIdentity) {
    add(area(Bounds(Point(0.0, 0.0, 0.0), Point(1.0, 0.0, 0.5))).get(), NBX::Color(1.0, 0.0, 0.0));
    const SO<NBX::LookAt> upwards(new NBX::LookAt({0, 500, 0}, {100, 600, 0}, {0, 1, 0}));
    const SO<NBX::Projection> narrow(new NBX::Perspective(20.0, 1.0, 5000.0));
    const SO<const NBX::ViewInfo> away(
        new NBX::ViewInfo(upwards->matrix(), narrow->matrix(1.0), NBX::Area(0, 0, 100, 100)));
    begin(engine.get());
    bool isIncomplete = false;
    const auto handedOut = dynamic->request(tree.get(), engine.get(), away.get(), 100, 100, 1.0, eye, 1.0,
                                            false, false, isIncomplete);
    ASSERT_TRUE(handedOut);
    EXPECT_EQ(handedOut->getMatrix(), Matrix());
    EXPECT_EQ(handedOut->getWrapS(), NBX::TextureGL::WM_ClampToEdge);
    EXPECT_EQ(handedOut->getWrapT(), NBX::TextureGL::WM_ClampToEdge);
    EXPECT_EQ(handedOut->getBorderColor(), NBX::Color(1.0F, 1.0F, 1.0F, 0.0F));
    EXPECT_EQ(dynamic->textureMatrix(), Matrix());
    EXPECT_EQ(dynamic->renderCount(), 1U);
    EXPECT_TRUE(reports.empty());
}

TEST_F(DynamicVectorTextureTest, TheProjectionIsThatOfTheEngine) {
    const auto camera = [&](const Point & from, const Point & to) {
        const SO<NBX::LookAt> looking(new NBX::LookAt(from, to, {0, 1, 0}));
        const SO<NBX::Projection> lens(new NBX::Perspective(40.0, 1.0, 5000.0));
        engine->pushCamera(looking->matrix(), lens->matrix(1.0));
        engine->pushModelMatrix(Matrix::translation({70.0, 0.0, 0.0}));
        Matrix expected = Matrix::scaling({3, 3, 3});
        const bool fits = TrapezoidFit::fit(
            (lens->matrix(1.0) * looking->matrix() * Matrix::translation({70.0, 0.0, 0.0})).inverse(), -10.0,
            200.0, expected);
        const Matrix found = DynamicVectorTexture::calculateTrapezoidProjection(engine, -10.0, 200.0);
        engine->popModelMatrix();
        engine->popCamera();
        for (unsigned i = 0; i < 16; ++i)
            EXPECT_NEAR(found.rows()[i], (fits ? expected : Matrix()).rows()[i], 1e-9) << i;
        return fits;
    };
    EXPECT_TRUE(camera({0, 700, 0}, {500, 0, 100}));
    EXPECT_FALSE(camera({0, 700, 0}, {500, 1000, 100}));
    EXPECT_EQ(DynamicVectorTexture::calculateTrapezoidProjection(nullptr, 0.0, 1.0), Matrix());
    EXPECT_EQ(reports.count(L"no engine"), 1U);
    reports.clear();
}

/// Half red, half blue along x.
SO<ZMT::CORE::TerrainTexture> twoColors(const NBX::Bounds & box) {
    SO<NBX::MemoryImage> image(new NBX::MemoryImage(2, 1, NBX::LS_RGBA));
    image->setColor(0, 0, NBX::Color(1.0, 0.0, 0.0));
    image->setColor(1, 0, NBX::Color(0.0, 0.0, 1.0));
    return new ZMT::CORE::SimpleTerrainTexture(
        new NBX::ImageTexture2DGL(image, NBX::TextureGL::WM_ClampToEdge, NBX::TextureGL::WM_ClampToEdge,
                                  NBX::TextureGL::FM_Nearest, NBX::TextureGL::FM_Nearest),
        box, NBX::Matrix4x4Base<double>());
}

TEST_F(DynamicVectorTextureTest, ARasterTextureLiesBelowTheVectors) {
    const SO<ZMT::CORE::TerrainTexture> raster = twoColors(square);
    DynamicVectorTexture::setRasterTexture(raster.get());
    EXPECT_EQ(DynamicVectorTexture::rasterTexture(), raster);
    add(area(Bounds(Point(600.0, 0.0, 0.0), Point(1024.0, 0.0, 500.0))).get(), NBX::Color(0.0, 0.8, 0.0));
    lay({500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    const SO<NBX::Image> picture = draw();
    for (int y = 4; y < s_pixels; y += 10)
        for (int x = 4; x < s_pixels; x += 10) {
            const Point p = onPlane(x, y);
            const auto found = pixel(picture, x, y);
            if (std::abs(p.x - 512.0) < 20.0 || std::abs(p.x - 600.0) < 20.0 || std::abs(p.z - 500.0) < 20.0)
                continue;
            if (p.x > 600.0 && p.z < 500.0) {
                EXPECT_NEAR(found[1], 204, 3) << p.x << ", " << p.z;
                EXPECT_LT(found[2], 10);
            } else {
                EXPECT_EQ(found[0] > 200, p.x < 512.0) << p.x << ", " << p.z;
                EXPECT_EQ(found[2] > 200, p.x > 512.0) << p.x << ", " << p.z;
            }
        }
    DynamicVectorTexture::setRasterTexture(nullptr);
    EXPECT_TRUE(isWhite(pixel(draw(), 20, 100)));
}

TEST_F(DynamicVectorTextureTest, ARasterTextureAloneIsATextureAsWell) {
    dynamic->setScene(nullptr);
    DynamicVectorTexture::setRasterTexture(twoColors(square).get());
    lay({500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    EXPECT_TRUE(isRed(pixel(draw(), 20, 64)));
}

TEST_F(DynamicVectorTextureTest, ARasterTextureStandsInASceneByItself) {
    look({500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    const unsigned nodes = canvas->rootNodes();
    DynamicVectorTexture::renderTerrainTexture(engine, twoColors(square));
    ASSERT_EQ(canvas->rootNodes(), nodes + 1);
    const std::vector<int> before = stateOfGL();
    const SO<NBX::Image> picture = draw();
    EXPECT_EQ(stateOfGL(), before);
    EXPECT_TRUE(isRed(pixel(picture, 20, 64)));
    EXPECT_GT(pixel(picture, 100, 64)[2], 200);
    canvas->remove(canvas->rootNode(nodes));
    DynamicVectorTexture::renderTerrainTexture(nullptr, twoColors(square));
    DynamicVectorTexture::renderTerrainTexture(engine, nullptr);
    EXPECT_EQ(reports.count(L"no engine with a canvas"), 1U);
    EXPECT_EQ(reports.count(L"no texture"), 1U);
    reports.clear();
}

TEST_F(DynamicVectorTextureTest, TheViewForCheckingIsDrawnOverThePictureUntilItIsEnded) {
    ASSERT_TRUE(canvas->setSize(300, 300));
    lay({100, 300, -300}, {520, 0, 400});
    const SO<NBX::Image> without = draw();
    DynamicVectorTexture::renderInHUD(engine, true);
    DynamicVectorTexture::renderInHUD(engine, true);
    const SO<NBX::Image> with = draw();
    unsigned changed = 0;
    for (int y = 0; y < 300; ++y)
        for (int x = 0; x < 300; ++x) {
            const bool differs = pixel(with, x, y) != pixel(without, x, y);
            changed += differs;
            EXPECT_FALSE(differs && (x > 262 || y > 262)) << x << ", " << y;
        }
    EXPECT_GT(changed, 1500U);
    DynamicVectorTexture::renderInHUD(engine, false);
    DynamicVectorTexture::renderInHUD(engine, false);
    EXPECT_EQ(largestDifference(draw(), without), 0);
    DynamicVectorTexture::renderInHUD(nullptr, true);
    EXPECT_EQ(reports.count(L"no engine with a canvas"), 1U);
    reports.clear();
}

/// A mountain, and lines on it by both textures.
class DynamicVectorEverestTest : public DynamicTextureFixture {
protected:
    void SetUp() override {
        DynamicTextureFixture::SetUp();
        errorBefore_ = TerrainPainterGLSettings::getTextureError();
        geometryErrorBefore_ = TerrainPainterGLSettings::getGeometryError();
        TerrainPainterGLSettings::setTextureError(0.5);
        TerrainPainterGLSettings::setGeometryError(0.0);
        // In metres in place of degrees.
        const auto raster = ZMT::RASTER::RasterFile(ZMT_DATA_DIR "/../tests/data/everest_heights.tif").read();
        const ZMT::CORE::GridData degrees(raster.raster.get());
        grid_ = TestTerrain::grid({degrees.sizeX(), degrees.sizeY(), 0.0, 0.0, 90.0, 90.0},
                                  [&](unsigned x, unsigned y) { return degrees.vertex(x, y).y; });
        terrain =
            new ZMT::CORE::Terrain(grid_.get(), ZMT::CORE::CreateGeometryTree::create(grid_.get(), 64).get());
        box = grid_->boundingBox();
        texture = new RecordingVectorTexture(scene.get(), box, false, false, true, false, 10, 0);
        texture->setBufferSize(256);
        texture->setInternalFormat(s_rgba8);
        for (unsigned i = 1; i < 8; ++i) {
            const double at = i / 8.0;
            addBand(box.point(at, 0.0, 0.0), box.point(at, 0.0, 1.0), Point(1.0, 0.0, 0.0));
            addBand(box.point(0.0, 0.0, at), box.point(1.0, 0.0, at), Point(0.0, 0.0, 1.0));
        }
    }
    void TearDown() override {
        TerrainPainterGLSettings::setTextureError(errorBefore_);
        TerrainPainterGLSettings::setGeometryError(geometryErrorBefore_);
        DynamicTextureFixture::TearDown();
    }
    /// A line, wide enough for both.
    void addBand(const Point & from, const Point & to, const Point & across) {
        const double half = 0.008 * (box.diagonal().x);
        const Point side = across * half;
        add(area(Bounds(from - side, to + side)).get(), NBX::Color(1.0, 0.0, 0.0));
    }
    /// The share of red pixels of `a` that have none of `b` within two pixels.
    static double strays(const SO<NBX::Image> & a, const SO<NBX::Image> & b) {
        unsigned reds = 0, lost = 0;
        for (int y = 2; y < s_pixels - 2; ++y)
            for (int x = 2; x < s_pixels - 2; ++x) {
                if (!isRed(pixel(a, x, y))) continue;
                ++reds;
                bool isNear = false;
                for (int dy = -2; dy <= 2 && !isNear; ++dy)
                    for (int dx = -2; dx <= 2 && !isNear; ++dx)
                        isNear = pixel(b, x + dx, y + dy)[1] < 160;
                lost += !isNear;
            }
        EXPECT_GT(reds, 200U);
        return double(lost) / reds;
    }
    SO<NBX::Image> drawBy(ZMT::CORE::TerrainTexture * overlay, const Point & from, const Point & to) {
        lay(from, to, {0.0, 1.0, 0.0}, overlay);
        root->replace(root->object(0),
                      new NBX::Camera(new NBX::LookAt(from, to, {0.0, 1.0, 0.0}),
                                      new NBX::Perspective(50.0, 10.0, 3.0 * box.diagonal().length()),
                                      NBX::Camera::S_Global));
        return draw();
    }

    NBX::Bounds box;

private:
    SO<ZMT::CORE::GridData> grid_;
    double errorBefore_ = 0.0, geometryErrorBefore_ = 0.0;
};

/// Across it, straight down, at the horizon, and from within the heights of the terrain.
TEST_F(DynamicVectorEverestTest, BothTexturesAgreeWithinTwoTexels) {
    dynamic->setTextureSize(1024);
    double exaggeration = 1.0;
    const auto at = [&](double u, double v, double w) {
        const Point p = box.point(u, v, w);
        return Point(p.x, p.y * exaggeration, p.z);
    };
    const std::pair<Point, Point> views[] = {{{0.1, 2.0, -0.6}, {0.5, 0.3, 0.5}},
                                             {{0.9, 1.8, 1.3}, {0.3, 0.3, 0.3}},
                                             {{0.5, 3.0, 0.5}, {0.5, 0.0, 0.5001}},
                                             {{-0.4, 1.1, 0.4}, {0.5, 1.1, 0.5}},
                                             {{0.2, 0.9, 0.1}, {0.7, 0.3, 0.7}}};
    for (const auto & [eyeInBox, targetInBox] : views) {
        exaggeration = 3.0 - exaggeration;
        scaling->setScaling({1.0, exaggeration, 1.0});
        const Point from = at(eyeInBox.x, eyeInBox.y, eyeInBox.z);
        const Point to = at(targetInBox.x, targetInBox.y, targetInBox.z);
        const SO<NBX::Image> patches = drawBy(texture.get(), from, to);
        const SO<NBX::Image> whole = drawBy(dynamic.get(), from, to);
        EXPECT_LE(strays(patches, whole), 0.0) << exaggeration << " from " << eyeInBox.x;
        EXPECT_LE(strays(whole, patches), 0.0) << exaggeration << " from " << eyeInBox.x;
    }
}

} // namespace
