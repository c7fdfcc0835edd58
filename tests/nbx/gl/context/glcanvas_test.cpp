#include <nbx/gl/context/glcanvas.h>

#include <stdexcept>

#include <nbx/container/sequence/array.h>
#include <nbx/engine/shapepainter.h>
#include <nbx/gl/context/contextgl.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/shape/shape.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/perspective.h>
#include <nbx/scene/view/translation.h>
#include <nbx/scene/view/viewport.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;

/// A shape whose painter notes what it sees.
class Notes : public Shape {
    NBX_CLASS(Notes, Shape)
public:
    Notes() : Shape(true) {}
};
NBX_CLASS_IMPL(Notes, Shape)

struct Noted {
    int paintings = 0;
    Canvas * canvas = nullptr;
    int renderingMode = -1;
    int viewport[4] = {};
    float bias = 0.0F; ///< of textures
    GLCanvas * nested = nullptr;
    bool throws = false;
} noted;

class NotesPainter : public ShapePainter {
public:
    ID target() const override { return Notes::ClassNameNBX(); }
    bool render(Engine * engine, const Shape *) override {
        ++noted.paintings;
        const auto * data =
            dynamic_cast<ContextData<Canvas *> *>(engine->getAttribute(Canvas::ClassNameNBX()));
        noted.canvas = data ? data->getValue() : nullptr;
        noted.renderingMode = noted.canvas ? noted.canvas->getRenderingMode() : -1;
        glGetIntegerv(GL_VIEWPORT, noted.viewport);
        glGetTexEnvfv(GL_TEXTURE_FILTER_CONTROL, GL_TEXTURE_LOD_BIAS, &noted.bias);
        if (noted.nested) noted.nested->redisplay();
        if (noted.throws) throw std::runtime_error("no more");
        return true;
    }
};
const bool registered = (EngineGL::registerHandler(new NotesPainter), true);

class GLCanvasTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        noted = Noted();
    }

    static Matrix4x4Base<double> none() { return Matrix4x4Base<double>(); }

    /// Many coloured triangles, one behind the other, seen by a perspective camera.
    static SO<SceneThing> newScene(unsigned seed) {
        const SO<Array<Vector3Base<double>>> vertices(new Array<Vector3Base<double>>);
        const SO<Array<Color>> colors(new Array<Color>);
        std::srand(seed);
        const auto random = [] { return double(std::rand()) / RAND_MAX; };
        for (int i = 0; i < 60; ++i) {
            const Vector3Base<double> center(random() * 8 - 4, random() * 8 - 4, -random() * 10);
            const Color color(random(), random(), random(), 1.0);
            for (int k = 0; k < 3; ++k) {
                vertices->append(center + Vector3Base<double>(random() * 3, random() * 3, random()));
                colors->append(color);
            }
        }
        const SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_Triangles, vertices));
        set->setColorIterator(colors);
        const SO<SceneThing> scene(new SceneThing);
        scene->append(
            new Camera(new LookAt({1.0, 2.0, 10.0}, {0.0, 0.0, -2.0}), new Perspective(50.0, 1.0, 100.0)));
        scene->append(set.get());
        return scene;
    }
};

TEST_F(GLCanvasTest, ShowsItsBackground) {
    EXPECT_EQ((std::array<int, 4>{0, 0, 0, 0}), pixel(draw(), 0, 0)) << "transparent at the start";
    canvas->setBackgroundColor(Color(1.0, 0.4, 0.2, 1.0));
    const SO<Image> image = draw();
    EXPECT_EQ((std::array<int, 4>{255, 102, 51, 255}), pixel(image, 0, 0));
    EXPECT_EQ((std::array<int, 4>{255, 102, 51, 255}), pixel(image, 63, 63));
}

TEST_F(GLCanvasTest, LineZeroIsTheLowest) {
    const SO<Box> box(new Box({-1.0, -1.0, 0.0}, {1.0, 0.0, 0.0}));
    root->append(box.get());
    const SO<Image> image = draw();
    EXPECT_EQ((std::array<int, 4>{255, 255, 255, 255}), pixel(image, 32, 0));
    EXPECT_EQ((std::array<int, 4>{255, 255, 255, 255}), pixel(image, 32, 31));
    EXPECT_EQ((std::array<int, 4>{0, 0, 0, 0}), pixel(image, 32, 32));
}

TEST_F(GLCanvasTest, SeesThroughTheCameraInTheScene) {
    root->append(
        new Camera(new LookAt({0.0, 0.0, -5.0}, {0.0, 0.0, 0.0}), new Ortho(0.0, 64.0, 0.0, 64.0, 1.0, 9.0)));
    root->append(new Translation({10.0, 20.0, 0.0}));
    root->append(new Box({0.0, 0.0, 0.0}, {5.0, 3.0, 1.0}));
    const SO<Image> image = draw();
    int white = 0;
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) {
            const bool inside = x >= 10 && x < 15 && y >= 20 && y < 23;
            white += inside;
            EXPECT_EQ(inside ? 255 : 0, pixel(image, x, y)[0]) << x << ", " << y;
        }
    EXPECT_EQ(15, white);
}

TEST_F(GLCanvasTest, TheBiasOfTexturesHoldsForItsPicturesAlone) {
    const SO<PBufferCanvasGL> other(new PBufferCanvasGL(8, 8));
    root->append(new Notes);
    other->append(root.get());
    canvas->setTextureBias(-1.5);
    draw();
    EXPECT_EQ(-1.5F, noted.bias);
    other->redisplay();
    EXPECT_EQ(0.0F, noted.bias);
    canvas->setTextureBias(0.0);
    draw();
    EXPECT_EQ(0.0F, noted.bias);
}

TEST_F(GLCanvasTest, NearerShapesHideFartherOnes) {
    const SO<Array<Vector3Base<double>>> vertices(new Array<Vector3Base<double>>);
    const SO<Array<Color>> colors(new Array<Color>);
    for (const double z : {-0.5, 0.5})
        for (const auto & corner :
             {Vector3Base<double>(-1, -1, z), Vector3Base<double>(3, -1, z), Vector3Base<double>(-1, 3, z)}) {
            vertices->append(corner);
            colors->append(z < 0 ? Color::red : Color::green);
        }
    const SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_Triangles, vertices));
    set->setColorIterator(colors);
    root->append(set.get());
    EXPECT_EQ((std::array<int, 4>{255, 0, 0, 255}), pixel(draw(), 5, 5)) << "without a camera, -1 is near";
}

TEST_F(GLCanvasTest, TellsTheSceneItsCanvasAndViewport) {
    root->append(new Notes);
    canvas->redisplay();
    EXPECT_EQ(1, noted.paintings);
    EXPECT_EQ(canvas.get(), noted.canvas);
    EXPECT_EQ(64, noted.viewport[2]);
    EXPECT_EQ(64, noted.viewport[3]);
    EXPECT_EQ(nullptr, engine->getAttribute(Canvas::ClassNameNBX())) << "only while it is drawn";
}

TEST_F(GLCanvasTest, DrawsInAViewport) {
    canvas->setBackgroundColor(Color::black);
    root->append(new Viewport(Area(8, 16, 4, 5)));
    root->append(new Box({-1.0, -1.0, 0.0}, {1.0, 1.0, 0.0}));
    const SO<Image> image = draw();
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x)
            EXPECT_EQ(x >= 8 && x < 12 && y >= 16 && y < 21 ? 255 : 0, pixel(image, x, y)[0])
                << x << ", " << y;
    root->clear();
    root->append(new Notes);
    canvas->redisplay();
    EXPECT_EQ(64, noted.viewport[2]);
}

TEST_F(GLCanvasTest, DropsTheRequestsFromBeforeARedisplay) {
    canvas->postForRedisplay(0.0);
    EXPECT_TRUE(canvas->redisplayPending());
    canvas->redisplay();
    EXPECT_FALSE(canvas->redisplayPending());
}

TEST_F(GLCanvasTest, RestoresTheContextThatWasCurrent) {
    const SO<OffscreenCanvasGL> other(new OffscreenCanvasGL(8, 8));
    EXPECT_TRUE(canvas->isContextCurrent());
    other->redisplay();
    EXPECT_TRUE(canvas->isContextCurrent());
    ASSERT_TRUE(other->makeContextCurrent());
    ASSERT_TRUE(other->makeContextCurrent());
    other->releaseContext();
    EXPECT_TRUE(other->isContextCurrent());
    other->releaseContext();
    EXPECT_TRUE(canvas->isContextCurrent());
    canvas->releaseContext();
    EXPECT_EQ(nullptr, ContextGL::current());
    other->redisplay();
    EXPECT_EQ(nullptr, ContextGL::current());
    ASSERT_TRUE(canvas->makeContextCurrent());
}

/// One whose context can be lost.
class LosableCanvas : public OffscreenCanvasGL {
    NBX_TEMPLATE_CLASS(LosableCanvas, OffscreenCanvasGL)
public:
    LosableCanvas() : OffscreenCanvasGL(64, 64) {}
    bool makeContextCurrent() override { return !isLost && OffscreenCanvasGL::makeContextCurrent(); }

    bool isLost = false;
};

/// It would draw over what belongs to the context that is current.
TEST_F(GLCanvasTest, DrawsNothingWhereItsContextDoesNotBecomeCurrent) {
    canvas->setBackgroundColor(Color::green);
    canvas->redisplay();
    const SO<LosableCanvas> lost(new LosableCanvas);
    const SO<SceneThing> scene(new SceneThing);
    scene->append(new Notes);
    lost->append(scene.get());
    lost->setBackgroundColor(Color::red);
    lost->isLost = true;
    lost->redisplay();
    EXPECT_EQ(nullptr, lost->largeScaleSnapshot(100, 100));
    EXPECT_EQ(0, noted.paintings);
    EXPECT_TRUE(canvas->isContextCurrent());
    EXPECT_EQ(Color::green, canvas->snapshot()->getColor(5, 5));
    lost->isLost = false;
    lost->redisplay();
    EXPECT_EQ(1, noted.paintings);
    EXPECT_TRUE(canvas->isContextCurrent());
}

TEST_F(GLCanvasTest, MayDrawAnotherCanvasWhileItIsDrawn) {
    const SO<PBufferCanvasGL> other(new PBufferCanvasGL(8, 8));
    other->setBackgroundColor(Color::red);
    noted.nested = other.get();
    root->append(new Notes);
    root->append(new Box({-1.0, -1.0, 0.0}, {1.0, 1.0, 0.0}));
    const SO<Image> image = draw();
    EXPECT_EQ((std::array<int, 4>{255, 255, 255, 255}), pixel(image, 60, 60));
    EXPECT_EQ(Color::red, other->snapshot()->getColor(7, 7));
}

TEST_F(GLCanvasTest, APainterThatThrowsLeavesTheContextThatWasCurrent) {
    const SO<PBufferCanvasGL> other(new PBufferCanvasGL(8, 8));
    other->append(root.get());
    other->setBackgroundColor(Color::red);
    other->setRenderingMode(1);
    root->append(new Notes);
    noted.throws = true;
    EXPECT_THROW(other->redisplay(), std::runtime_error);
    EXPECT_TRUE(canvas->isContextCurrent());
    EXPECT_THROW(other->largeScaleSnapshot(20, 20), std::runtime_error);
    EXPECT_TRUE(canvas->isContextCurrent());
    EXPECT_EQ(1, other->getRenderingMode());
    noted.throws = false;
    other->redisplay();
    EXPECT_EQ(Color::red, other->snapshot()->getColor(7, 7));
    EXPECT_TRUE(canvas->isContextCurrent());
}

TEST_F(GLCanvasTest, LeavesTheStateOfGLAsItIsFound) {
    root->append(newScene(3).get());
    canvas->redisplay();
    const std::vector<int> before = stateOfGL();
    canvas->redisplay();
    EXPECT_EQ(before, stateOfGL());
    canvas->largeScaleSnapshot(100, 70);
    canvas->redisplay();
    EXPECT_EQ(before, stateOfGL());
}

TEST_F(GLCanvasTest, CopiesItsPictureIntoImagesOfOtherKinds) {
    canvas->setBackgroundColor(Color(1.0, 0.4, 0.2, 0.6));
    canvas->redisplay();
    for (const LayerSequence layers : {LS_Luminance, LS_RGB, LS_RGBA, LS_BGR, LS_BGRA}) {
        const SO<Image> image(new MemoryImage(10, 70, layers, Image::UInt8, 4));
        ASSERT_TRUE(canvas->snapshot(image.get())) << layers;
        const auto inside = pixel(image, 9, 63);
        EXPECT_EQ(255, inside[0]) << layers;
        EXPECT_EQ(layers == LS_Luminance ? 255 : 102, inside[1]) << layers;
        EXPECT_EQ(layers == LS_RGBA || layers == LS_BGRA ? 153 : 255, inside[3]) << layers;
        EXPECT_EQ(0, pixel(image, 9, 64)[0]) << "beyond the canvas";
    }
    const SO<Image> bad(new MemoryImage(10, 10, LS_LuminanceAlpha));
    EXPECT_FALSE(canvas->snapshot(bad.get()));
    EXPECT_FALSE(canvas->snapshot(nullptr));
    EXPECT_EQ(2U, reports.size());
    reports.clear();
}

struct TileCase {
    const char * name;
    unsigned width, height;         ///< of the picture
    unsigned tileWidth, tileHeight; ///< of the canvas
};

class LargeScaleSnapshot : public GLCanvasTest, public ::testing::WithParamInterface<TileCase> {};

TEST_P(LargeScaleSnapshot, EqualsTheDirectPicture) {
    const TileCase c = GetParam();
    const SO<SceneThing> scene = newScene(7);
    root->append(scene.get());
    ASSERT_TRUE(canvas->setSize(c.tileWidth, c.tileHeight));
    canvas->setBackgroundColor(Color(0.1, 0.2, 0.3, 1.0));
    const SO<Image> tiled = canvas->largeScaleSnapshot(c.width, c.height);
    ASSERT_TRUE(tiled);
    const SO<OffscreenCanvasGL> direct(new OffscreenCanvasGL(c.width, c.height));
    direct->setBackgroundColor(Color(0.1, 0.2, 0.3, 1.0));
    direct->append(root.get());
    direct->redisplay();
    EXPECT_LE(largestDifference(tiled, direct->snapshot()), 1);
}

INSTANTIATE_TEST_SUITE_P(Sizes, LargeScaleSnapshot,
                         ::testing::Values(TileCase{"TwiceTheCanvas", 128, 128, 64, 64},
                                           TileCase{"NoMultiple", 150, 101, 64, 48},
                                           TileCase{"SmallerThanTheCanvas", 30, 40, 64, 64},
                                           TileCase{"OnePixelTooLarge", 65, 65, 64, 64},
                                           TileCase{"NarrowTiles", 90, 40, 1, 40}),
                         [](const auto & info) { return info.param.name; });

TEST_F(GLCanvasTest, TilesFollowTheViewportsInTheScene) {
    const SO<SceneThing> scene(new SceneThing);
    scene->append(new Viewport(Area(30, 50, 60, 40)));
    scene->append(newScene(5).get());
    const SO<OffscreenCanvasGL> direct(new OffscreenCanvasGL(128, 128));
    direct->append(scene.get());
    direct->redisplay();
    root->append(scene.get());
    EXPECT_LE(largestDifference(canvas->largeScaleSnapshot(128, 128), direct->snapshot()), 1);
}

TEST_F(GLCanvasTest, CutsTheViewVolumeOfPicturesBeyondTheLargestViewport) {
    // The cut view volume may round an edge to the neighbouring pixel, but leaves no seam.
    root->append(new Camera(new LookAt({0.0, 0.0, 5.0}, {0.0, 0.0, 0.0}),
                            new Ortho(0.0, 150.0, 0.0, 100.0, 1.0, 9.0)));
    for (int i = 0; i < 10; ++i)
        root->append(new Box({i * 13.0 + 1.0, i * 9.0, 0.0}, {i * 13.0 + 20.0, i * 9.0 + 7.0, 0.1 * i}));
    const SO<Image> whole = canvas->largeScaleSnapshot(150, 100);
    engine->setMaxViewport(64, 64);
    EXPECT_EQ(0, largestDifference(whole, canvas->largeScaleSnapshot(150, 100)));
    root->clear();
    root->append(newScene(7).get());
    const SO<Image> cut = canvas->largeScaleSnapshot(150, 100);
    engine->setMaxViewport(10000, 10000);
    const SO<Image> direct = canvas->largeScaleSnapshot(150, 100);
    int different = 0;
    for (int y = 0; y < 100; ++y)
        for (int x = 0; x < 150; ++x)
            different += pixel(cut, x, y) != pixel(direct, x, y);
    EXPECT_LE(different, 30) << "of 15000 pixels";
}

TEST_F(GLCanvasTest, ALargeScaleSnapshotIsCompleteAtOnce) {
    canvas->setRenderingMode(1);
    root->append(new Notes);
    ASSERT_TRUE(canvas->largeScaleSnapshot(65, 1));
    EXPECT_EQ(2, noted.paintings) << "one for each tile";
    EXPECT_EQ(0, noted.renderingMode);
    EXPECT_EQ(1, canvas->getRenderingMode());
}

TEST_F(GLCanvasTest, ALargeScaleSnapshotTakesAnImage) {
    canvas->setBackgroundColor(Color::green);
    const SO<Image> image(new MemoryImage(100, 100, LS_RGB));
    EXPECT_TRUE(canvas->largeScaleSnapshot(image.get(), 1));
    EXPECT_EQ(Color::green, image->getColor(99, 99));
    EXPECT_FALSE(canvas->largeScaleSnapshot(nullptr, 1));
    EXPECT_FALSE(canvas->largeScaleSnapshot(image.get(), GLCanvas::DEPTH_BUFFER));
    EXPECT_EQ(2U, reports.size());
    reports.clear();
}

TEST_F(GLCanvasTest, HasAtLeastOnePixel) {
    EXPECT_FALSE(canvas->setSize(0, 5));
    EXPECT_EQ(64U, canvas->getWidth());
    const SO<OffscreenCanvasGL> none(new OffscreenCanvasGL(0, 0));
    EXPECT_TRUE(none->isCreated());
    EXPECT_EQ(1U, none->getWidth());
    EXPECT_EQ(2U, reports.size());
    reports.clear();
}

} // namespace
