#include <zmt/core/terrain/geometry/view/terrainpaintergl.h>

#include <optional>
#include <random>
#include <set>

#include <nbx/container/sequence/array.h>
#include <nbx/engine/handler.h>
#include <nbx/engine/pathnavigation.h>
#include <nbx/gl/effect/decalmultitexturingeffectgl.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/gl/state/shapematerialgl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/exception.h>
#include <nbx/object/nbxtime.h>
#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/perspective.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/draped/terraintexturedgeometry.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/terraintexturingeffect.h>

#include "support/testpatches.h"

using NBX::Bounds;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::Terrain;
using ZMT::CORE::TerrainPainterFrameManager;
using ZMT::CORE::TerrainPainterGL;
using ZMT::CORE::TerrainPainterGLSettings;

namespace {

using Log = std::vector<std::string>;
using Point = NBX::Vector3Base<double>;

/// What happened, in its order.
Log s_log;

/// A patch that consists of its name.
class NamedPatch : public GeometryPatch {
    NBX_TEMPLATE_CLASS(NamedPatch, GeometryPatch)
public:
    NamedPatch(std::string name, const Bounds & box, double error = 0.0,
               const std::vector<NBX::SO<GeometryPatch>> & children = {})
        : GeometryPatch(box, error, 0.0,
                        children.empty() ? nullptr
                                         : new NBX::Array<NBX::SO<GeometryPatch>>(
                                               std::vector<NBX::SO<GeometryPatch>>(children))),
          name_(std::move(name)) {}
    NBX::SO<ZMT::CORE::GeometryData> data() const override { return nullptr; }

    static std::string nameOf(const GeometryPatch * patch) {
        const auto * named = dynamic_cast<const NamedPatch *>(patch);
        return named ? named->name_ : "?";
    }

private:
    std::string name_;
};

/// Loses its only child.
class ForgetfulPatch : public NamedPatch {
    NBX_TEMPLATE_CLASS(ForgetfulPatch, NamedPatch)
public:
    using NamedPatch::NamedPatch;
    unsigned children() const override { return 1; }
    NBX::SO<GeometryPatch> child(unsigned) const override { return nullptr; }
};

class NamedPatchPainter : public NBX::ShapePainter {
    NBX_TEMPLATE_CLASS(NamedPatchPainter, NBX::ShapePainter)
public:
    NBX::ID target() const override { return NamedPatch::ClassNameNBX(); }
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override {
        const bool isWall = engine->getAttribute("RenderOuterWallFlag") != nullptr;
        const std::string name = NamedPatch::nameOf(static_cast<const GeometryPatch *>(shape));
        s_log.push_back((isWall ? "wall " : "paint ") + name);
        if (s_observe) s_observe(engine, s_log.back());
        return true;
    }

    static inline std::function<void(NBX::Engine *, const std::string &)> s_observe;
};

const bool painterRegistered = (NBX::EngineGL::registerHandler(new NamedPatchPainter), true);

class RecordingEffect : public ZMT::CORE::TerrainTexturingEffect {
    NBX_TEMPLATE_CLASS(RecordingEffect, ZMT::CORE::TerrainTexturingEffect)
public:
    explicit RecordingEffect(std::string name) : name_(std::move(name)) {}

    struct Arguments {
        unsigned width, height;
        Point eye;
        double textureError;
        bool inMotion;
        NBX::SO<const NBX::ViewInfo> viewInfo;
    };

    bool refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned width, unsigned height,
                const Point & eye, double textureError, bool inMotion) const override {
        note("refine ", patch, {width, height, eye, textureError, inMotion, viewInfo});
        return refined_.count(NamedPatch::nameOf(patch)) > 0;
    }
    bool ignorePreviousEffects(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned width,
                               unsigned height, const Point & eye, double textureError,
                               bool inMotion) const override {
        note("ignore ", patch, {width, height, eye, textureError, inMotion, viewInfo});
        return ignoresPrevious_;
    }
    NBX::SO<NBX::TexturingEffectGL> request(const GeometryPatch * patch, NBX::EngineGL * engine,
                                            const NBX::ViewInfo * viewInfo, unsigned width, unsigned height,
                                            double priority, const Point & eye, double textureError,
                                            bool inMotion, bool asynchronous,
                                            bool & incomplete) const override {
        note("request ", patch, {width, height, eye, textureError, inMotion, viewInfo});
        engine_ = engine;
        priority_ = priority;
        asynchronous_ = asynchronous;
        if (isIncomplete_) incomplete = true;
        return result_;
    }

    std::set<std::string> refined_;
    bool ignoresPrevious_ = false, isIncomplete_ = false;
    NBX::SO<NBX::TexturingEffectGL> result_;

    mutable std::vector<Arguments> calls_;
    mutable NBX::EngineGL * engine_ = nullptr;
    mutable double priority_ = 0.0;
    mutable bool asynchronous_ = false;

private:
    void note(const char * what, const GeometryPatch * patch, const Arguments & arguments) const {
        s_log.push_back(what + name_ + " " + NamedPatch::nameOf(patch));
        calls_.push_back(arguments);
    }

    std::string name_;
};

/// A draped patch of the name "draped".
class DrapedPatch : public ZMT::CORE::TerrainTexturedGeometry {
    NBX_TEMPLATE_CLASS(DrapedPatch, ZMT::CORE::TerrainTexturedGeometry)
public:
    explicit DrapedPatch(const Bounds & box, bool hasPart = true) : box_(box), hasPart_(hasPart) {}

    NBX::SO<NBX::SceneNode> geometry(const Bounds & box) const override {
        asked_.push_back(box);
        if (!hasPart_) return nullptr;
        NBX::SO<NBX::SceneThing> node(new NBX::SceneThing);
        node->append(new NamedPatch("draped", box_));
        return node;
    }
    Bounds boundingBox() const override { return box_; }

    mutable std::vector<Bounds> asked_;

private:
    Bounds box_;
    bool hasPart_;
};

void noteBegin(const TerrainPainterFrameManager::Info & info) {
    s_log.emplace_back(info.inMotion ? "begin in motion" : "begin");
}

void noteEnd(const TerrainPainterFrameManager::Info & info) {
    s_log.emplace_back(info.inMotion ? "end in motion" : "end");
}

NBX::SO<TerrainPainterFrameManager::FrameCallback>
callback(void (*function)(const TerrainPainterFrameManager::Info &)) {
    return new NBX::FunctionCallback1<const TerrainPainterFrameManager::Info &>(function);
}

/// One pixel spans one unit: x from -32 to 32 and y likewise, looking along z.
class TerrainPainterGLTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        s_log.clear();
        TerrainPainterFrameManager::RegisterBeginFrameCallback(begin);
        TerrainPainterFrameManager::RegisterEndFrameCallback(end);
        look({0, 0, 1});
    }
    void TearDown() override {
        NamedPatchPainter::s_observe = nullptr;
        TerrainPainterFrameManager::UnregisterBeginFrameCallback(begin);
        TerrainPainterFrameManager::UnregisterEndFrameCallback(end);
        TerrainPainterGLSettings::enableRendering(true);
        TerrainPainterGLSettings::enableSnapshotMode(false);
        TerrainPainterGLSettings::setGeometryError(3.0);
        TerrainPainterGLSettings::setTextureError(2.0);
        GLFixture::TearDown();
    }

    void look(const Point & forward) {
        camera =
            new NBX::Camera(new NBX::LookAt(forward * -100.0, {}), new NBX::Ortho(-32, 32, -32, 32, 50, 200));
    }

    /// Fills the root node: the camera, the attributes, the terrain, and a patch of the name "behind".
    void show(GeometryPatch * patch, const std::vector<NBX::Attribute *> & attributes = {}) {
        root->clear();
        root->append(camera.get());
        for (NBX::Attribute * attribute : attributes)
            root->append(attribute);
        root->append(new Terrain(nullptr, patch));
        root->append(new NamedPatch("behind", Bounds()));
    }
    /// Draws, and gives what happened up to the patch behind the terrain.
    Log paint(NBX::Canvas & target) {
        s_log.clear();
        target.redisplay();
        EXPECT_FALSE(s_log.empty() || s_log.back() != "paint behind");
        if (!s_log.empty()) s_log.pop_back();
        return s_log;
    }
    Log paint(GeometryPatch * patch, const std::vector<NBX::Attribute *> & attributes = {}) {
        show(patch, attributes);
        return paint(*canvas);
    }

    static Bounds cube(double halfSize, const Point & center = {}) {
        const Point half(halfSize, halfSize, halfSize);
        return Bounds(center - half, center + half);
    }
    static NBX::SO<GeometryPatch> leaf(const std::string & name, const Bounds & box = cube(10)) {
        return new NamedPatch(name, box);
    }
    /// A patch "p" with the leaves "a" to "d" at the corners of a square, in the order of a tree.
    static NBX::SO<GeometryPatch> square(double error) {
        return new NamedPatch("p", cube(10), error,
                              {leaf("a", cube(5, {-5, 0, -5})), leaf("b", cube(5, {-5, 0, 5})),
                               leaf("c", cube(5, {5, 0, 5})), leaf("d", cube(5, {5, 0, -5}))});
    }

    const NBX::SO<TerrainPainterFrameManager::FrameCallback> begin = callback(noteBegin),
                                                             end = callback(noteEnd);
    NBX::SO<NBX::Camera> camera;
    NBX::SO<RecordingEffect> low{new RecordingEffect("low")}, top{new RecordingEffect("top")};
};

TEST_F(TerrainPainterGLTest, IsThePainterOfAllTerrains) {
    EXPECT_EQ(TerrainPainterGL().target(), Terrain::ClassNameNBX());
    EXPECT_TRUE(dynamic_cast<TerrainPainterGL *>(
        engine->findHandler(NBX::Painter::ClassNameNBX(), Terrain::ClassInfoNBX())));
    EXPECT_FALSE(TerrainPainterGL().render(engine.get(), leaf("no terrain").get()));
}

TEST_F(TerrainPainterGLTest, PaintsALeafWhateverItsError) {
    const NBX::SO<GeometryPatch> patch(new NamedPatch("leaf", cube(10), 1e9));
    EXPECT_EQ(paint(patch.get()), (Log{"begin", "wall leaf", "paint leaf", "end"}));
}

TEST_F(TerrainPainterGLTest, ATerrainWithoutRootIsAnEmptyFrame) {
    EXPECT_EQ(paint(nullptr), (Log{"begin", "end"}));
}

TEST_F(TerrainPainterGLTest, WallsAndSurfacesHaveTheirAttributes) {
    std::map<std::string, Log> seen;
    NamedPatchPainter::s_observe = [&](NBX::Engine * e, const std::string & what) {
        Log & list = seen[what];
        GLint front = 0;
        glGetIntegerv(GL_FRONT_FACE, &front);
        list.emplace_back(front == GL_CW ? "clockwise" : "counter-clockwise");
        using Flag = NBX::ContextData<bool>;
        if (const auto * active = dynamic_cast<Flag *>(e->getAttribute("ActiveTerrainAttribute"))) {
            list.emplace_back("terrain");
            EXPECT_TRUE(active->getValue());
        }
        if (const auto * wall = dynamic_cast<Flag *>(e->getAttribute("RenderOuterWallFlag"))) {
            list.emplace_back("wall");
            EXPECT_TRUE(wall->getValue());
        }
        const auto * texGen = dynamic_cast<NBX::TexGenGL *>(e->getAttribute(NBX::TexGenGL::ClassNameNBX()));
        if (texGen) {
            list.emplace_back("texGen");
            EXPECT_EQ(texGen->getMode(), NBX::TexGenGL::M_ObjectLinear);
            EXPECT_EQ(texGen->getPlanes(),
                      NBX::Matrix4x4Base<double>({1, 0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1}));
        }
        if (const auto * light =
                dynamic_cast<NBX::LightModelGL *>(e->getAttribute(NBX::LightModelGL::ClassNameNBX()))) {
            list.emplace_back("light model");
            EXPECT_EQ(light->getMode(), 0);
        }
        if (const auto * material =
                dynamic_cast<NBX::ShapeMaterialGL *>(e->getAttribute(NBX::ShapeMaterialGL::ClassNameNBX()))) {
            list.emplace_back("material");
            EXPECT_EQ(material->getColor(), NBX::Color(0.5));
            EXPECT_EQ(material->getSpecular(), NBX::Color(0.5));
            EXPECT_EQ(material->getShininess(), 115.0);
            EXPECT_EQ(material->getAmbient(), NBX::Color(0.2));
            EXPECT_EQ(material->getDiffuse(), NBX::Color(0.5));
            EXPECT_EQ(material->getEmission(), NBX::Color(0.0));
        }
        if (const auto * depth =
                dynamic_cast<NBX::DepthBufferGL *>(e->getAttribute(NBX::DepthBufferGL::ClassNameNBX()))) {
            list.emplace_back("depth");
            EXPECT_TRUE(depth->writes());
            EXPECT_TRUE(depth->tests());
            EXPECT_EQ(depth->function(), unsigned(GL_LESS));
        }
    };
    paint(leaf("leaf").get());
    EXPECT_EQ(seen["wall leaf"],
              (Log{"clockwise", "terrain", "wall", "texGen", "light model", "material", "depth"}));
    EXPECT_EQ(seen["paint leaf"], (Log{"clockwise", "terrain", "texGen"}));
    EXPECT_EQ(seen["paint behind"], Log{"counter-clockwise"});
}

/// What threw in one of the patches is for the application; the engine and the context live on.
TEST_F(TerrainPainterGLTest, AThrowLeavesTheStateAsItWasAndEndsTheFrame) {
    const NBX::SO<Terrain> throwing(new Terrain(nullptr, leaf("leaf").get()));
    bool isDrawn = false;
    NamedPatchPainter::s_observe = [&](NBX::Engine * e, const std::string & what) {
        if (what == "paint leaf") throw NBX::IOException(L"a patch");
        if (what != "paint behind") return;
        EXPECT_THROW(TerrainPainterGL().render(e, throwing.get()), NBX::IOException);
        GLint front = 0;
        glGetIntegerv(GL_FRONT_FACE, &front);
        EXPECT_EQ(front, GL_CCW);
        EXPECT_FALSE(e->getAttribute("ActiveTerrainAttribute"));
        EXPECT_FALSE(e->getAttribute(NBX::TexGenGL::ClassNameNBX()));
        isDrawn = true;
    };
    show(nullptr);
    canvas->redisplay();
    EXPECT_TRUE(isDrawn);
    EXPECT_EQ(s_log, (Log{"begin", "end", "paint behind", "begin", "wall leaf", "paint leaf", "end"}));
}

/// Whatever the scene has in force.
TEST_F(TerrainPainterGLTest, TheOuterWallIsPlainAndFillsTheDepthBuffer) {
    const NBX::SO<NBX::DepthBufferGL> sceneDepth(
        new NBX::DepthBufferGL(NBX::DepthBufferGL::O_All, false, true, GL_GEQUAL, 0.25, 0.75));
    std::map<std::string, std::array<double, 4>> depths;
    NamedPatchPainter::s_observe = [&](NBX::Engine * e, const std::string & what) {
        std::array<double, 4> & depth = depths[what];
        glGetDoublev(GL_DEPTH_RANGE, depth.data());
        glGetDoublev(GL_DEPTH_FUNC, &depth[2]);
        glGetDoublev(GL_DEPTH_WRITEMASK, &depth[3]);
        if (what != "wall leaf") return;
        const auto * material =
            dynamic_cast<NBX::ShapeMaterialGL *>(e->getAttribute(NBX::ShapeMaterialGL::ClassNameNBX()));
        ASSERT_TRUE(material);
        EXPECT_EQ(material->getComponent(), NBX::ShapeMaterialGL::C_AmbientAndDiffuse);
        EXPECT_FALSE(material->isTwoSided());
        EXPECT_TRUE(material->isEnabled());
    };
    paint(leaf("leaf").get(), {sceneDepth.get()});
    EXPECT_EQ(depths["wall leaf"], (std::array<double, 4>{0.0, 1.0, GL_LESS, 1.0}));
    EXPECT_EQ(depths["paint leaf"], (std::array<double, 4>{0.25, 0.75, GL_GEQUAL, 0.0}));
}

/// What frames begin and end with may rely on it.
TEST_F(TerrainPainterGLTest, CallbacksOfFramesSeeTheCoordinatesOfTextures) {
    static unsigned s_seen;
    s_seen = 0;
    const auto look = callback([](const TerrainPainterFrameManager::Info & info) {
        if (info.engine->getAttribute(NBX::TexGenGL::ClassNameNBX())) ++s_seen;
    });
    TerrainPainterFrameManager::RegisterBeginFrameCallback(look);
    paint(leaf("leaf").get());
    EXPECT_EQ(s_seen, 1U) << "at the beginning";
    TerrainPainterFrameManager::UnregisterBeginFrameCallback(look);
    TerrainPainterFrameManager::RegisterEndFrameCallback(look);
    paint(leaf("leaf").get());
    EXPECT_EQ(s_seen, 2U) << "at the end";
    TerrainPainterFrameManager::UnregisterEndFrameCallback(look);
}

TEST_F(TerrainPainterGLTest, NothingHappensWithoutRenderingAndDrapedTriangles) {
    TerrainPainterGLSettings::enableRendering(false);
    top->isIncomplete_ = true;
    EXPECT_EQ(paint(leaf("leaf").get(), {top.get()}), Log{});
    EXPECT_FALSE(canvas->redisplayPending());
}

TEST_F(TerrainPainterGLTest, WithoutRenderingDrapedTrianglesAreAllThatIsPainted) {
    const NBX::SO<DrapedPatch> draped(new DrapedPatch(cube(3)));
    TerrainPainterGLSettings::enableRendering(false);
    EXPECT_EQ(paint(leaf("leaf").get(), {top.get(), draped.get()}),
              (Log{"begin", "request top leaf", "ignore top leaf", "paint draped", "end"}));
    TerrainPainterGLSettings::enableRendering(true);
    EXPECT_EQ(paint(leaf("leaf").get(), {draped.get()}),
              (Log{"begin", "wall leaf", "paint leaf", "paint draped", "end"}));
    draped->setEnableState(false);
    EXPECT_EQ(paint(leaf("leaf").get(), {draped.get()}).size(), 5U) << "its state plays no part";
}

TEST_F(TerrainPainterGLTest, DrapedTrianglesAreAskedForTheBoxOfThePatch) {
    const NBX::SO<DrapedPatch> near(new DrapedPatch(Bounds({-1, 5, -1}, {1, 25, 1})));
    const NBX::SO<DrapedPatch> none(new DrapedPatch(cube(1), false));
    EXPECT_EQ(paint(leaf("leaf").get(), {near.get(), none.get()}),
              (Log{"begin", "wall leaf", "paint leaf", "paint draped", "end"}));
    const Bounds raised({-10, -10, -10}, {10, 25, 10});
    EXPECT_EQ(near->asked_, std::vector<Bounds>{raised});
    EXPECT_EQ(none->asked_, std::vector<Bounds>{raised});

    const NBX::SO<DrapedPatch> far(new DrapedPatch(Bounds({20, 5, 20}, {21, 25, 21})));
    paint(leaf("leaf").get(), {far.get()});
    EXPECT_EQ(far->asked_, std::vector<Bounds>{cube(10)}) << "it does not meet the patch";
}

/// By one point over its north-eastern corner, whatever the proportions of both boxes.
TEST_F(TerrainPainterGLTest, OnlyTheTopOfABoxIsRaisedToThatOfDrapedTriangles) {
    const Bounds draped({-30, -50, -29}, {28, 25, 27});
    const NBX::SO<DrapedPatch> triangles(new DrapedPatch(draped));
    for (const Bounds & box : {Bounds({-6, -9, -8}, {5, 20, 10}), Bounds({-6, -9, -8}, {10, 20, 5})}) {
        paint(leaf("leaf", box).get(), {triangles.get()});
        const Point &low = box.getLLF(), &high = box.getURB();
        EXPECT_EQ(triangles->asked_.back(), Bounds(low, Point(high.x, 25, high.z)));
    }
    const Bounds higher({-6, -9, -8}, {5, 40, 10});
    paint(leaf("leaf", higher).get(), {triangles.get()});
    EXPECT_EQ(triangles->asked_.back(), higher);
}

TEST_F(TerrainPainterGLTest, DrapedTrianglesKeepTheirPatchInView) {
    const Bounds below({-5, -60, -5}, {5, -40, 5});
    EXPECT_EQ(paint(leaf("leaf", below).get()), (Log{"begin", "end"}));
    const NBX::SO<DrapedPatch> tall(new DrapedPatch(Bounds({-5, -50, -5}, {5, 0, 5})));
    EXPECT_EQ(paint(leaf("leaf", below).get(), {tall.get()}),
              (Log{"begin", "wall leaf", "paint leaf", "paint draped", "end"}));
    // The finer geometry is culled by its own box.
    const NBX::SO<GeometryPatch> parent(new NamedPatch("p", below, 0.0, {leaf("a", below)}));
    EXPECT_EQ(paint(parent.get(), {tall.get()}), (Log{"begin", "paint draped", "end"}));
}

TEST_F(TerrainPainterGLTest, EffectsAreAskedFromTheTopDownwards) {
    EXPECT_EQ(paint(leaf("leaf").get(), {low.get(), top.get()}),
              (Log{"begin", "wall leaf", "request top leaf", "ignore top leaf", "request low leaf",
                   "ignore low leaf", "paint leaf", "end"}))
        << "a leaf cannot be split";
    EXPECT_EQ(paint(square(0.0).get(), {low.get(), top.get()}),
              (Log{"begin", "refine top p", "ignore top p", "refine low p", "ignore low p", "wall p",
                   "request top p", "ignore top p", "request low p", "ignore low p", "paint p", "end"}));
}

TEST_F(TerrainPainterGLTest, AnEffectCanShutOutThoseBelow) {
    top->ignoresPrevious_ = true;
    low->refined_ = {"p"};
    EXPECT_EQ(paint(square(0.0).get(), {low.get(), top.get()}),
              (Log{"begin", "refine top p", "ignore top p", "wall p", "request top p", "ignore top p",
                   "paint p", "end"}));
}

TEST_F(TerrainPainterGLTest, AnEffectCanSplitAPatch) {
    top->refined_ = {"p"};
    EXPECT_EQ(paint(square(0.0).get(), {low.get(), top.get()})[1], "refine top p");
    Log painted = s_log;
    EXPECT_EQ(painted[2], "wall a") << "nobody else is asked";
    std::erase_if(painted, [](const std::string & what) { return what.starts_with("ignore"); });
    EXPECT_EQ(painted,
              (Log{"begin", "refine top p", "wall a", "request top a", "request low a", "paint a", "wall b",
                   "request top b", "request low b", "paint b", "wall c", "request top c", "request low c",
                   "paint c", "wall d", "request top d", "request low d", "paint d", "end"}));
    top->refined_.clear();
    low->refined_ = {"p"};
    const Log byLow = paint(square(0.0).get(), {low.get(), top.get()});
    EXPECT_EQ(Log(byLow.begin(), byLow.begin() + 5),
              (Log{"begin", "refine top p", "ignore top p", "refine low p", "wall a"}));
}

/// Finer geometry is drawn under the textures of the patch that no effect splits.
TEST_F(TerrainPainterGLTest, GeometryCanBeFinerThanTextures) {
    EXPECT_EQ(paint(square(100.0).get(), {top.get()}),
              (Log{"begin", "refine top p", "ignore top p", "wall a", "wall b", "wall c", "wall d",
                   "request top p", "ignore top p", "paint a", "paint b", "paint c", "paint d", "end"}));
}

TEST_F(TerrainPainterGLTest, WithoutEffectsEverythingIsOnePass) {
    EXPECT_EQ(paint(square(100.0).get()), (Log{"begin", "wall a", "wall b", "wall c", "wall d", "paint a",
                                               "paint b", "paint c", "paint d", "end"}));
}

/// One pixel spans one unit.
TEST_F(TerrainPainterGLTest, AnErrorOfExactlyTheLimitIsSplit) {
    const auto isSplit = [&](double error) {
        const Log log = paint(square(error).get());
        return std::find(log.begin(), log.end(), "paint p") == log.end();
    };
    EXPECT_TRUE(isSplit(3.0));
    EXPECT_FALSE(isSplit(2.999));
    TerrainPainterGLSettings::setGeometryError(0.5);
    EXPECT_TRUE(isSplit(0.5));
    EXPECT_FALSE(isSplit(0.499));
    TerrainPainterGLSettings::setGeometryError(1e9);
    EXPECT_FALSE(isSplit(1000.0));
}

/// The error counts where the patch is nearest to the eye.
TEST_F(TerrainPainterGLTest, TheErrorIsMeasuredAtTheNearestPoint) {
    camera = new NBX::Camera(new NBX::LookAt({0, 0, 0}, {0, 0, 1}), new NBX::Perspective(90.0, 1.0, 1000.0));
    // At distance 10 a picture's height of 20 units has 64 pixels: 3 pixels are 0.9375 units.
    const Bounds box({-5, -5, 10}, {5, 5, 500});
    for (const auto & [error, what] : {std::pair(0.938, "paint a"), {0.937, "paint p"}}) {
        const NBX::SO<GeometryPatch> patch(new NamedPatch("p", box, error, {leaf("a", box)}));
        EXPECT_EQ(paint(patch.get())[2], what);
    }
}

/// Half of it above the point and half below, which matters where the view looks down.
TEST_F(TerrainPainterGLTest, TheErrorStandsAroundTheNearestPoint) {
    camera = new NBX::Camera(new NBX::LookAt({0, 20, 0}, {0, 0, 15}), new NBX::Perspective(60.0, 1.0, 500.0));
    const Bounds box({-5, -5, 10}, {5, 2, 50});
    constexpr double error = 9.0;
    const auto whatIsPainted = [&] {
        const NBX::SO<GeometryPatch> patch(new NamedPatch("p", box, error, {leaf("a", box)}));
        const Log log = paint(patch.get(), {top.get()});
        return std::find(log.begin(), log.end(), "paint a") == log.end() ? "p" : "a";
    };
    whatIsPainted();
    const Point eye = top->calls_.front().eye, half(0.0, error / 2.0, 0.0);
    const auto view = top->calls_.front().viewInfo;
    const auto pixels = [&](const Point & from, const Point & to) {
        return std::sqrt(view->screenDistance2(from, to));
    };
    const double around = pixels(eye - half, eye + half);
    EXPECT_GT(std::abs(pixels(eye, eye + half * 2.0) - around), 1.0) << "other places would show";
    EXPECT_GT(std::abs(pixels(eye - half * 2.0, eye) - around), 1.0);
    TerrainPainterGLSettings::setGeometryError(around - 0.01);
    EXPECT_STREQ(whatIsPainted(), "a");
    TerrainPainterGLSettings::setGeometryError(around + 0.01);
    EXPECT_STREQ(whatIsPainted(), "p");
}

TEST_F(TerrainPainterGLTest, ABoxInsideTheViewSparesTheTestsBelow) {
    const Bounds outside = cube(5, {500, 0, 0});
    const NBX::SO<GeometryPatch> inView(
        new NamedPatch("p", cube(10), 100.0, {leaf("a"), leaf("outside", outside)}));
    const NBX::SO<GeometryPatch> onBorder(
        new NamedPatch("p", cube(10, {30, 0, 0}), 100.0, {leaf("a"), leaf("outside", outside)}));
    const NBX::SO<GeometryPatch> notInView(new NamedPatch("p", outside, 100.0, {leaf("a"), leaf("b")}));
    EXPECT_EQ(paint(inView.get()),
              (Log{"begin", "wall a", "wall outside", "paint a", "paint outside", "end"}));
    EXPECT_EQ(paint(onBorder.get()), (Log{"begin", "wall a", "paint a", "end"}));
    EXPECT_EQ(paint(notInView.get()), (Log{"begin", "end"}));

    top->refined_ = {"p"};
    top->ignoresPrevious_ = true;
    EXPECT_EQ(paint(inView.get(), {top.get()}).size(), 11U);
    EXPECT_EQ(paint(onBorder.get(), {top.get()}),
              (Log{"begin", "refine top p", "wall a", "request top a", "ignore top a", "paint a", "end"}));
}

TEST_F(TerrainPainterGLTest, TheNearestChildIsPaintedFirst) {
    const struct {
        const char * name;
        Point forward;
        std::string order;
    } views[] = {{"to the north-east", {1, 0, 1}, "abcd"},
                 {"to the south-east", {1, 0, -1}, "bcda"},
                 {"to the south-west", {-1, 0, -1}, "cdab"},
                 {"to the north-west", {-1, 0, 1}, "dabc"}};
    for (const auto & view : views) {
        look(view.forward * std::sqrt(0.5));
        for (const bool splits : {false, true}) {
            SCOPED_TRACE(testing::Message() << view.name << ", " << splits);
            top->refined_ = splits ? std::set<std::string>{"p"} : std::set<std::string>{};
            std::string order;
            for (const std::string & what : paint(square(splits ? 0.0 : 100.0).get(), {top.get()}))
                if (what.starts_with("paint")) order += what.substr(6);
            EXPECT_EQ(order, view.order);
        }
    }
    look(Point(-1, 0, 1) * std::sqrt(0.5));
    const NBX::SO<GeometryPatch> halves(new NamedPatch("p", cube(10), 100.0, {leaf("a"), leaf("b")}));
    EXPECT_EQ(paint(halves.get()), (Log{"begin", "wall b", "wall a", "paint b", "paint a", "end"}));
}

TEST_F(TerrainPainterGLTest, EffectsGetTheViewAndTheSettings) {
    TerrainPainterGLSettings::setTextureError(5.0);
    const NBX::SO<GeometryPatch> patch(
        new NamedPatch("p", Bounds({3, -9, -4}, {9, -2, 20}), 0.0, {leaf("a")}));
    ASSERT_TRUE(canvas->setSize(96, 64));
    paint(patch.get(), {top.get()});
    ASSERT_EQ(top->calls_.size(), 4U) << "refine, ignore, request, ignore";
    for (const auto & call : top->calls_) {
        EXPECT_EQ(call.width, 96U);
        EXPECT_EQ(call.height, 64U);
        EXPECT_EQ(call.textureError, 5.0);
        EXPECT_FALSE(call.inMotion);
        // The line of sight enters the view at (0, 0, -50).
        EXPECT_NEAR((call.eye - Point(3, -2, -4)).length(), 0.0, 1e-9);
        EXPECT_NEAR((call.viewInfo->position() - Point(0, 0, -100)).length(), 0.0, 1e-9);
    }
    EXPECT_EQ(top->engine_, engine.get());
    EXPECT_EQ(top->priority_, 1.0);
}

/// The view begins at (0, 0, -50), which is in the middle of the patch.
TEST_F(TerrainPainterGLTest, TheEyeIsWhereTheLineOfSightEntersTheView) {
    const NBX::SO<GeometryPatch> patch(new NamedPatch("p", Bounds({-9, -9, -80}, {9, 9, 20})));
    paint(patch.get(), {top.get()});
    ASSERT_FALSE(top->calls_.empty());
    EXPECT_NEAR((top->calls_.back().eye - Point(0, 0, -50)).length(), 0.0, 1e-9);
}

TEST_F(TerrainPainterGLTest, KeepsTheBoxOfWhatWasPainted) {
    auto & box = TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches();
    paint(leaf("leaf", cube(7)).get());
    EXPECT_EQ(box, cube(7));
    const auto near = leaf("a", Bounds({0, 0, 0}, {3, 4, 5})), outside = leaf("b", cube(1, {500, 0, 0}));
    const NBX::SO<GeometryPatch> parent(new NamedPatch("p", cube(10, {30, 0, 0}), 100.0, {near, outside}));
    paint(parent.get());
    EXPECT_EQ(box, near->boundingBox());
    paint(outside.get());
    EXPECT_FALSE(box.isDefined());
}

TEST_F(TerrainPainterGLTest, DrapedTrianglesRaiseTheEyeButNotTheBoxOfWhatWasPainted) {
    const Bounds ground({3, -9, -4}, {9, -2, 20});
    const NBX::SO<DrapedPatch> draped(new DrapedPatch(Bounds({4, -5, 0}, {5, -1, 1})));
    paint(leaf("leaf", ground).get(), {top.get(), draped.get()});
    ASSERT_FALSE(top->calls_.empty());
    EXPECT_NEAR((top->calls_.back().eye - Point(3, -1, -4)).length(), 0.0, 1e-9);
    EXPECT_EQ(TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches(), ground);
}

TEST_F(TerrainPainterGLTest, EachTerrainOfASceneMayAskForAnotherPicture) {
    for (const bool isFirst : {true, false}) {
        root->clear();
        root->append(camera.get());
        for (const bool now : {true, false}) {
            const NBX::SO<NBX::SceneThing> node(new NBX::SceneThing);
            if (now == isFirst) node->append(top.get());
            node->append(new Terrain(nullptr, leaf("leaf").get()));
            root->append(node.get());
        }
        top->isIncomplete_ = false;
        canvas->redisplay();
        EXPECT_FALSE(canvas->redisplayPending()) << isFirst;
        top->isIncomplete_ = true;
        canvas->redisplay();
        EXPECT_TRUE(canvas->redisplayPending()) << isFirst;
    }
}

TEST_F(TerrainPainterGLTest, AnIncompletePictureIsPaintedAgain) {
    paint(leaf("leaf").get(), {top.get()});
    EXPECT_FALSE(canvas->redisplayPending());

    top->isIncomplete_ = true;
    const double before = NBX::NBXTime::now();
    paint(leaf("leaf").get(), {top.get()});
    const double after = NBX::NBXTime::now();
    ASSERT_TRUE(canvas->redisplayPending());
    EXPECT_GE(canvas->redisplayTime(), before + 0.05);
    EXPECT_LE(canvas->redisplayTime(), after + 0.05);
}

TEST_F(TerrainPainterGLTest, APictureInMotionIsPaintedAgain) {
    const NBX::SO<NBX::ContextData<bool>> moving(new NBX::ContextData<bool>("MotionFlag", true));
    const Log log = paint(leaf("leaf").get(), {moving.get(), top.get()});
    EXPECT_EQ(log.front(), "begin in motion");
    EXPECT_EQ(log.back(), "end in motion");
    EXPECT_TRUE(top->calls_.back().inMotion);
    EXPECT_TRUE(canvas->redisplayPending());

    moving->setValue(false);
    EXPECT_EQ(paint(leaf("leaf").get(), {moving.get()}).front(), "begin");
    EXPECT_FALSE(canvas->redisplayPending());
}

TEST_F(TerrainPainterGLTest, ARecordedFlightIsNoMotion) {
    const NBX::SO<NBX::ContextData<bool>> moving(new NBX::ContextData<bool>("MotionFlag", true));
    const NBX::SO<NBX::PathNavigation> flight(new NBX::PathNavigation(new NBX::LookAt, {}));
    flight->activate();
    EXPECT_EQ(paint(leaf("leaf").get(), {moving.get()}).front(), "begin");
    EXPECT_FALSE(canvas->redisplayPending());
    flight->deactivate();
    EXPECT_EQ(paint(leaf("leaf").get(), {moving.get()}).front(), "begin in motion");
}

TEST_F(TerrainPainterGLTest, TexturesMayComeLaterWhereTheCanvasAllowsIt) {
    const auto isAsynchronous = [&] {
        paint(leaf("leaf").get(), {top.get()});
        return top->asynchronous_;
    };
    EXPECT_FALSE(isAsynchronous());
    canvas->setRenderingMode(1);
    EXPECT_TRUE(isAsynchronous());
    TerrainPainterGLSettings::enableSnapshotMode(true);
    EXPECT_FALSE(isAsynchronous());
}

TEST_F(TerrainPainterGLTest, APixelBufferIsCompleteAtOnce) {
    const NBX::SO<NBX::PBufferCanvasGL> buffer(new NBX::PBufferCanvasGL(64, 64));
    ASSERT_TRUE(buffer->isCreated());
    const NBX::SO<NBX::ContextData<bool>> moving(new NBX::ContextData<bool>("MotionFlag", true));
    top->isIncomplete_ = true;
    buffer->setRenderingMode(1);
    buffer->append(root.get());
    show(leaf("leaf").get(), {moving.get(), top.get()});
    EXPECT_EQ(paint(*buffer).front(), "begin");
    EXPECT_FALSE(top->asynchronous_);
    EXPECT_FALSE(top->calls_.back().inMotion);
    EXPECT_FALSE(buffer->redisplayPending());
}

TEST_F(TerrainPainterGLTest, AMissingChildIsReported) {
    const NBX::SO<GeometryPatch> patch(new ForgetfulPatch("p", cube(10), 100.0));
    EXPECT_EQ(paint(patch.get()), (Log{"begin", "end"}));
    EXPECT_EQ(reports.count(0, L"geometry", L"no geometry"), 1U) << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;
    reports.clear();
}

TEST_F(TerrainPainterGLTest, AMissingChildOfASplitPatchIsLeftOut) {
    const NBX::SO<GeometryPatch> patch(new ForgetfulPatch("p", cube(10), 100.0));
    top->refined_ = {"p"};
    EXPECT_EQ(paint(patch.get(), {top.get()}), (Log{"begin", "refine top p", "end"}));
    EXPECT_TRUE(reports.empty()) << reports;
}

/// Pictures of real terrains.
class TerrainPictureGLTest : public TerrainPainterGLTest {
protected:
    void showTerrain(const NBX::SO<ZMT::CORE::GridData> & grid) {
        testing::internal::CaptureStderr();
        terrain = new Terrain(grid.get(), ZMT::CORE::CreateGeometryTree::create(grid.get(), 50).get());
        testing::internal::GetCapturedStderr();
    }
    /// The picture through `camera`.
    NBX::SO<NBX::Image> picture(const std::vector<NBX::Attribute *> & attributes = {}) {
        root->clear();
        root->append(camera.get());
        for (NBX::Attribute * attribute : attributes)
            root->append(attribute);
        root->append(terrain.get());
        return draw();
    }
    static NBX::SO<NBX::TexturingEffectGL> decal(unsigned char red, unsigned char green) {
        const NBX::SO<NBX::MemoryImage> image(new NBX::MemoryImage(1, 1, NBX::LS_RGB));
        unsigned char * texel = image->lineComponentsU8(0);
        texel[0] = red;
        texel[1] = green;
        texel[2] = 0;
        using Textures = NBX::Array<NBX::SO<NBX::TextureGL>>;
        const NBX::SO<Textures> textures(new Textures);
        textures->append(new NBX::ImageTexture2DGL(image));
        return new NBX::DecalMultiTexturingEffectGL(textures.get(), nullptr, false);
    }

    NBX::SO<Terrain> terrain;
};

TEST_F(TerrainPictureGLTest, TheTopEffectCoversThoseBelow) {
    showTerrain(TestTerrain::grid({11, 11, 0.0, 0.0, 1.0, 1.0}, [](unsigned, unsigned) { return 0.0; }));
    camera = new NBX::Camera(new NBX::LookAt({5, 10, 5}, {5, 0, 5}, {0, 0, 1}),
                             new NBX::Ortho(-4, 4, -4, 4, 1, 20));
    top->result_ = decal(255, 0);
    low->result_ = decal(0, 255);
    EXPECT_EQ(pixel(picture({low.get(), top.get()}), 32, 32), (std::array<int, 4>{255, 0, 0, 255}));
    EXPECT_EQ(pixel(picture({top.get(), low.get()}), 32, 32), (std::array<int, 4>{0, 255, 0, 255}));
    top->ignoresPrevious_ = true;
    top->result_ = nullptr;
    EXPECT_EQ(pixel(picture({low.get(), top.get()}), 32, 32), (std::array<int, 4>{255, 255, 255, 255}));
}

/// The outer wall is plain grey, and below the ground.
TEST_F(TerrainPictureGLTest, TheOuterWallIsGreyAndWithoutTextures) {
    showTerrain(TestTerrain::grid({11, 11, 0.0, 0.0, 1.0, 1.0},
                                  [](unsigned x, unsigned y) { return x == 5 && y == 5 ? 10.0 : 5.0; }));
    // The wall goes down a fifth of the range, from height 5 to 4.
    top->result_ = decal(255, 0);
    for (const Point & side : {Point(1, 0, 0), Point(-1, 0, 0), Point(0, 0, 1), Point(0, 0, -1)}) {
        SCOPED_TRACE(testing::Message() << side.x << ", " << side.z);
        const Point center(5, 5, 5);
        camera = new NBX::Camera(new NBX::LookAt(center - side * 20.0, center),
                                 new NBX::Ortho(-8, 8, -8, 8, 1, 40));
        const auto image = picture({top.get()});
        EXPECT_EQ(pixel(image, 32, 29), (std::array<int, 4>{128, 128, 128, 255}));
        EXPECT_EQ(pixel(image, 32, 26), (std::array<int, 4>{0, 0, 0, 0})) << "below the wall";
        EXPECT_EQ(pixel(image, 32, 36), (std::array<int, 4>{255, 0, 0, 255})) << "the peak";
    }
}

/// The ground is so smooth that finer levels have smaller errors, and levels meet. Whatever they are, a line
/// of sight that enters the box of the terrain from above and leaves it below meets ground, a skirt or a
/// wall.
TEST_F(TerrainPictureGLTest, HasNoCracks) {
    std::mt19937 random(11);
    const auto number = [&](double low_, double high) {
        return std::uniform_real_distribution<double>(low_, high)(random);
    };
    const auto grid = TestTerrain::grid({65, 65, 0.0, 0.0, 1.0, 1.0}, [&](unsigned x, unsigned y) {
        return 5.0 * std::sin(0.21 * x) * std::cos(0.17 * y) + 2.0 * std::sin(0.6 * x + 0.9 * y) +
               number(0.0, 0.3);
    });
    showTerrain(grid);
    ASSERT_TRUE(canvas->setSize(160, 160));
    canvas->setBackgroundColor(NBX::Color(1.0F, 0.0F, 1.0F));
    const Bounds box = grid->boundingBox();
    const auto isOver = [&](const Point & p) { return box.containsPointInPlane(p, 0, 2); };
    unsigned looks = 0;
    for (unsigned view = 0; view < 100; ++view) {
        const Point from(number(8, 56), number(9, 60), number(8, 56));
        const NBX::SO<NBX::LookAt> eye(new NBX::LookAt(from, {number(5, 59), 0, number(5, 59)}));
        const NBX::SO<NBX::Projection> projection(new NBX::Perspective(60.0, 0.5, 300.0));
        camera = new NBX::Camera(eye.get(), projection.get());
        TerrainPainterGLSettings::setGeometryError(number(1.0, 12.0));
        const auto image = picture();
        const auto toWorld = (projection->matrix(1.0) * eye->matrix()).inverse();
        for (int y = 0; y < 160; ++y)
            for (int x = 0; x < 160; ++x) {
                const Point far = toWorld * Point((x + 0.5) / 80.0 - 1.0, (y + 0.5) / 80.0 - 1.0, 1.0);
                const Point d = far - from;
                if (d.y >= 0.0) continue;
                const Point enters = from + d * ((box.getURB().y - from.y) / d.y);
                const Point leaves = from + d * ((box.getLLF().y - from.y) / d.y);
                if (!isOver(enters) || !isOver(leaves)) continue;
                ++looks;
                ASSERT_NE(pixel(image, x, y), (std::array<int, 4>{255, 0, 255, 255}))
                    << "view " << view << ", pixel " << x << ", " << y;
            }
    }
    EXPECT_GT(looks, 100000U);
}

} // namespace
