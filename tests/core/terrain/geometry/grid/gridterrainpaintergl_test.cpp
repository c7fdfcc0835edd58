#include <zmt/core/terrain/geometry/grid/gridterrainpaintergl.h>

#include <cmath>
#include <set>

#include "probe.h"
#include "scriptedtiles.h"
#include "support/glfixture.h"

#include <nbx/container/sequence/array.h>
#include <nbx/engine/clock.h>
#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/engine/pathnavigation.h>
#include <nbx/engine/shapepainter.h>
#include <nbx/gl/effect/decalmultitexturingeffectgl.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/attribute/facestyle.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/terrain/frame/terraingeometryeffect.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/draped/terraintexturedgeometry.h>
#include <zmt/core/terrain/texture/terraintexturingeffect.h>

using namespace ScriptedTiles;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::TerrainPainterFrameManager;
using ZMT::CORE::TerrainPainterGLSettings;

namespace {

/// The tiles of the running test, by the boxes of their patches.
std::vector<Tile *> s_tiles;

std::string nameOf(const GeometryPatch & patch) {
    for (const Tile * tile : s_tiles)
        if (tile->visBoundingBox() == patch.boundingBox()) return tile->name;
    return "?";
}

class RecordingEffect : public ZMT::CORE::TerrainTexturingEffect {
    NBX_TEMPLATE_CLASS(RecordingEffect, ZMT::CORE::TerrainTexturingEffect)
public:
    explicit RecordingEffect(std::string name) : name_(std::move(name)) {}

    struct Arguments {
        NBX::SO<const NBX::ViewInfo> viewInfo;
        unsigned width = 0, height = 0;
        double priority = 0.0;
        Point eye;
        double textureError = 0.0;
        bool inMotion = false, asynchronous = false;
        Matrix model;
    };

    bool refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned width, unsigned height,
                const Point & eye, double textureError, bool inMotion) const override {
        last_ = {viewInfo, width, height, 0.0, eye, textureError, inMotion, false, Matrix()};
        if (logsWalks_) s_log.push_back("refine " + name_ + " " + nameOf(*patch));
        return refined_.count(nameOf(*patch)) > 0;
    }
    bool ignorePreviousEffects(const GeometryPatch * patch, const NBX::ViewInfo *, unsigned, unsigned,
                               const Point &, double, bool) const override {
        if (logsWalks_) s_log.push_back("ignore " + name_ + " " + nameOf(*patch));
        return ignoresPrevious_;
    }
    NBX::SO<NBX::TexturingEffectGL> request(const GeometryPatch * patch, NBX::EngineGL * engine,
                                            const NBX::ViewInfo * viewInfo, unsigned width, unsigned height,
                                            double priority, const Point & eye, double textureError,
                                            bool inMotion, bool asynchronous,
                                            bool & incomplete) const override {
        s_log.push_back("request " + name_ + " " + nameOf(*patch));
        last_ = {viewInfo, width,        height,
                 priority, eye,          textureError,
                 inMotion, asynchronous, engine->modelMatrix()};
        if (isIncomplete_) incomplete = true;
        return result_;
    }

    std::set<std::string> refined_;
    bool ignoresPrevious_ = false, isIncomplete_ = false, logsWalks_ = false;
    NBX::SO<NBX::TexturingEffectGL> result_;
    mutable Arguments last_;

private:
    std::string name_;
};

class TouchingEffect : public ZMT::CORE::TerrainGeometryEffect {
    NBX_TEMPLATE_CLASS(TouchingEffect, ZMT::CORE::TerrainGeometryEffect)
public:
    explicit TouchingEffect(std::string name) : name_(std::move(name)) {}
    void touch(GridTerrainTile * tile, const NBX::ViewInfo * viewInfo, unsigned width, unsigned height,
               const Point & eye) const override {
        s_log.push_back("touch " + name_ + " " + Tile::of(*tile).name);
        viewInfo_ = viewInfo;
        width_ = width;
        height_ = height;
        eye_ = eye;
    }
    mutable NBX::SO<const NBX::ViewInfo> viewInfo_;
    mutable unsigned width_ = 0, height_ = 0;
    mutable Point eye_;

private:
    std::string name_;
};

/// A red square at the top of a box, in coordinates of the map.
class DrapedSquare : public NBX::Shape {
    NBX_TEMPLATE_CLASS(DrapedSquare, NBX::Shape)
public:
    explicit DrapedSquare(const Bounds & box) : NBX::Shape(true), box(box) {}
    Bounds boundingBox() const override { return box; }
    Bounds box;
};

class DrapedSquarePainter : public NBX::ShapePainter {
    NBX_TEMPLATE_CLASS(DrapedSquarePainter, NBX::ShapePainter)
public:
    NBX::ID target() const override { return DrapedSquare::ClassNameNBX(); }
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override {
        s_log.emplace_back("draped");
        if (s_observe) s_observe(engine);
        const Bounds box = shape->boundingBox();
        glPushAttrib(GL_CURRENT_BIT);
        glColor3d(1, 0, 0);
        glBegin(GL_TRIANGLE_STRIP);
        for (const double z : {box.getLLF().z, box.getURB().z})
            for (const double x : {box.getLLF().x, box.getURB().x})
                glVertex3d(x, box.getURB().y, z);
        glEnd();
        glPopAttrib();
        return true;
    }
    static inline std::function<void(NBX::Engine *)> s_observe;
};

const bool painterRegistered = (NBX::EngineGL::registerHandler(new DrapedSquarePainter), true);

class Draped : public ZMT::CORE::TerrainTexturedGeometry {
    NBX_TEMPLATE_CLASS(Draped, ZMT::CORE::TerrainTexturedGeometry)
public:
    explicit Draped(const Bounds & box, const Bounds & part = {}) : box_(box), part_(part) {}
    NBX::SO<NBX::SceneNode> geometry(const Bounds & box) const override {
        asked_.push_back(box);
        if (!part_.isDefined()) return nullptr;
        NBX::SO<NBX::SceneThing> node(new NBX::SceneThing);
        node->append(new DrapedSquare(part_));
        return node;
    }
    Bounds boundingBox() const override { return box_; }
    mutable std::vector<Bounds> asked_;

private:
    Bounds box_, part_;
};

using FrameCallback = TerrainPainterFrameManager::FrameCallback;

NBX::SO<FrameCallback> callback(void (*function)(const TerrainPainterFrameManager::Info &)) {
    return new NBX::FunctionCallback1<const TerrainPainterFrameManager::Info &>(function);
}

/// Seen from above, one pixel a unit: x to the right, z up, both from 0 to 64. The root lies from (8, 4) to
/// (56, 60).
class GridTerrainPainterGLTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        s_log.clear();
        TerrainPainterFrameManager::RegisterBeginFrameCallback(begin);
        TerrainPainterFrameManager::RegisterEndFrameCallback(end);
        look({32, 100, 32}, {32, 0, 32});
        canvas->setRenderingMode(1);
        TerrainPainterGLSettings::setGeometryError(3.0);
        GridTerrainPainterGL::resetStatistics();
        newRoot();
    }
    void TearDown() override {
        Tile::s_onRefine = nullptr;
        Tile::s_onRender = nullptr;
        DrapedSquarePainter::s_observe = nullptr;
        ProbePainter::s_observe = nullptr;
        s_tiles.clear();
        TerrainPainterFrameManager::UnregisterBeginFrameCallback(begin);
        TerrainPainterFrameManager::UnregisterEndFrameCallback(end);
        TerrainPainterGLSettings::enableRendering(true);
        TerrainPainterGLSettings::enableSnapshotMode(false);
        TerrainPainterGLSettings::enableOcclusionQueries(true);
        TerrainPainterGLSettings::setGeometryError(3.0);
        TerrainPainterGLSettings::setTextureError(2.0);
        root = nullptr;
        GLFixture::TearDown();
    }

    void newRoot(int level = 3) { top = new Tile("r", Bounds({8, 4, 10}, {56, 60, 20}), level); }
    void look(const Point & from, const Point & to, const Point & up = {0, 0, 1}) {
        camera = new NBX::Camera(new NBX::LookAt(from, to, up), new NBX::Ortho(-32, 32, -32, 32, 10, 200));
    }
    static void list(Tile & tile) {
        s_tiles.push_back(&tile);
        for (const auto & child : tile.children)
            if (child) list(*child);
    }
    void show(const std::vector<NBX::Attribute *> & attributes = {}) {
        s_tiles.clear();
        if (top) list(*top);
        terrain = new ScriptedTerrain(top);
        root->clear();
        root->append(camera.get());
        for (NBX::Attribute * attribute : attributes)
            root->append(attribute);
        root->append(terrain.get());
    }
    Log paint(const std::vector<NBX::Attribute *> & attributes = {}) {
        show(attributes);
        s_log.clear();
        canvas->redisplay();
        return s_log;
    }
    /// Without the frame of the canvas around that of the painter.
    Log paintAlone() {
        show();
        const NBX::SO<Probe> before(new Probe), behind(new Probe);
        root->clear();
        for (NBX::RenderObj * object :
             std::initializer_list<NBX::RenderObj *>{camera.get(), before.get(), terrain.get(), behind.get()})
            root->append(object);
        ProbePainter::s_observe = [isBefore = true](NBX::Engine *) mutable {
            auto & main = *NBX::MainMemoryManager::instance();
            auto & graphics = *NBX::GraphicsMemoryManager::instance();
            isBefore ? graphics.endFrame() : main.beginFrame();
            isBefore ? main.endFrame() : graphics.beginFrame();
            isBefore = false;
        };
        s_log.clear();
        canvas->redisplay();
        return s_log;
    }
    /// The entries that begin with `what`.
    static Log only(const Log & log, const std::string & what) {
        Log result;
        for (const std::string & entry : log)
            if (entry.starts_with(what)) result.push_back(entry);
        return result;
    }
    static NBX::SO<NBX::TexturingEffectGL> decal(const NBX::Color & color) {
        const NBX::SO<NBX::MemoryImage> image(new NBX::MemoryImage(1, 1, NBX::LS_RGBA));
        image->setColor(0, 0, color);
        const NBX::SO<NBX::TextureGL> texture(
            new NBX::ImageTexture2DGL(image, NBX::TextureGL::WM_Repeat, NBX::TextureGL::WM_Repeat,
                                      NBX::TextureGL::FM_Nearest, NBX::TextureGL::FM_Nearest));
        using Textures = NBX::Array<NBX::SO<NBX::TextureGL>>;
        return new NBX::DecalMultiTexturingEffectGL(
            new Textures(std::vector<NBX::SO<NBX::TextureGL>>{texture}), nullptr, false);
    }

    const NBX::SO<FrameCallback> begin = callback([](const TerrainPainterFrameManager::Info & info) {
        s_log.emplace_back(info.inMotion ? "begin in motion" : "begin");
    });
    const NBX::SO<FrameCallback> end = callback([](const TerrainPainterFrameManager::Info & info) {
        s_log.emplace_back(info.inMotion ? "end in motion" : "end");
    });
    NBX::SO<NBX::Camera> camera;
    NBX::SO<Tile> top;
    NBX::SO<ScriptedTerrain> terrain;
    NBX::SO<RecordingEffect> low{new RecordingEffect("low")}, high{new RecordingEffect("high")};
};

TEST_F(GridTerrainPainterGLTest, IsThePainterOfAllGridTerrains) {
    EXPECT_EQ(GridTerrainPainterGL().target(), GridTerrain::ClassNameNBX());
    EXPECT_TRUE(dynamic_cast<GridTerrainPainterGL *>(
        engine->findHandler(NBX::Painter::ClassNameNBX(), ScriptedTerrain::ClassInfoNBX())));
    const NBX::SO<DrapedSquare> square(new DrapedSquare(Bounds()));
    EXPECT_FALSE(GridTerrainPainterGL().render(engine.get(), square.get()));
}

TEST_F(GridTerrainPainterGLTest, ATerrainWithoutTilesIsNoFrame) {
    top = nullptr;
    EXPECT_EQ(paint(), Log{});
    EXPECT_EQ(GridTerrainPainterGL::statistics().paintings, 0U);
}

TEST_F(GridTerrainPainterGLTest, DrawsDepthThenColors) {
    EXPECT_EQ(paint({low.get()}), (Log{"begin", "open depth", "depth r", "close depth", "open color",
                                       "request low r", "color r", "close color", "end"}));
    EXPECT_FALSE(canvas->redisplayPending());
    const auto & statistics = GridTerrainPainterGL::statistics();
    EXPECT_EQ(statistics.paintings, 1U);
    EXPECT_EQ(statistics.tilesCounted, 1U);
    EXPECT_EQ(statistics.tilesDrawn, 1U);
    EXPECT_EQ(statistics.triangles, 2U);
    EXPECT_EQ(statistics.trianglesDrawn, 4U);
    EXPECT_EQ(statistics.missingTiles, 0U);
    EXPECT_FALSE(statistics.isIncomplete);
    EXPECT_EQ(statistics.minLevel, 3);
    EXPECT_EQ(statistics.maxLevel, 3);
    GridTerrainPainterGL::resetStatistics();
    EXPECT_EQ(GridTerrainPainterGL::statistics().tilesCounted, 0U);
}

/// Tells of its end.
class Resource : public NBX::SharedObj {
    NBX_TEMPLATE_CLASS(Resource, NBX::SharedObj)
public:
    explicit Resource(std::string name) : name_(std::move(name)) {}
    ~Resource() override { s_log.push_back(name_ + " gone"); }

private:
    std::string name_;
};

/// Gives a resource to each manager and takes it back, which is put off to the end of a frame.
void addAndRemove() {
    const auto addTo = [](auto & manager, const char * name) {
        const NBX::SO<Resource> resource(new Resource(name));
        manager.add(resource.get(), 1);
        return resource.get();
    };
    auto & main = *NBX::MainMemoryManager::instance();
    auto & graphics = *NBX::GraphicsMemoryManager::instance();
    const NBX::SharedObj * const inMain = addTo(main, "main");
    const NBX::SharedObj * const inGraphics = addTo(graphics, "graphics");
    main.remove(inMain);
    graphics.remove(inGraphics);
}

TEST_F(GridTerrainPainterGLTest, ManagersEndTheirFrameGraphicsFirst) {
    Tile::s_onRender = [](NBX::EngineGL *, const Tile &, bool colors) {
        if (colors) addAndRemove();
    };
    const Log log = paintAlone();
    EXPECT_EQ((Log{log.end() - 3, log.end()}), (Log{"graphics gone", "main gone", "end"}));
}

TEST_F(GridTerrainPainterGLTest, ManagersBeginTheirFrameBehindTheCallbacks) {
    const NBX::SO<FrameCallback> removing =
        callback([](const TerrainPainterFrameManager::Info &) { addAndRemove(); });
    TerrainPainterFrameManager::RegisterBeginFrameCallback(removing);
    const Log log = paintAlone();
    TerrainPainterFrameManager::UnregisterBeginFrameCallback(removing);
    EXPECT_EQ((Log{log.begin(), log.begin() + 4}),
              (Log{"begin", "main gone", "graphics gone", "open depth"}));
}

TEST_F(GridTerrainPainterGLTest, AThrowEndsTheFrame) {
    top->split();
    Tile::s_onRefine = [](const Tile &, const NBX::ViewInfo *, unsigned, unsigned, double) {
        throw NBX::IOException(L"a tile");
    };
    EXPECT_THROW(paint(), NBX::IOException);
    Tile::s_onRefine = nullptr;
    EXPECT_EQ(s_log.back(), "end");
    EXPECT_FALSE(NBX::GraphicsMemoryManager::instance()->isInFrame());
    EXPECT_EQ(only(paint(), "color").size(), 4U);
}

TEST_F(GridTerrainPainterGLTest, FramesAreNumbered) {
    paint();
    const std::uint64_t first = GridTerrainPainterGL::statistics().frameNumber;
    EXPECT_LT(0U, first);
    GridTerrainPainterGL::resetStatistics();
    paint();
    EXPECT_EQ(GridTerrainPainterGL::statistics().frameNumber, first + 1);
    paint();
    EXPECT_EQ(GridTerrainPainterGL::statistics().frameNumber, first + 2);
    top = nullptr;
    paint();
    EXPECT_EQ(GridTerrainPainterGL::statistics().frameNumber, first + 2) << "nothing was painted";
}

TEST_F(GridTerrainPainterGLTest, BothPassesHaveTheirStates) {
    std::map<bool, std::vector<int>> seen;
    Tile::s_onRender = [&](NBX::EngineGL * e, const Tile &, bool colors) {
        std::vector<int> & list = seen[colors];
        GLboolean writes[4];
        glGetBooleanv(GL_COLOR_WRITEMASK, writes);
        for (const GLboolean write : writes)
            list.push_back(write);
        for (const GLenum name :
             {GL_DEPTH_FUNC, GL_DEPTH_WRITEMASK, GL_LIGHTING, GL_CULL_FACE, GL_FRONT_FACE}) {
            GLint value = 0;
            glGetIntegerv(name, &value);
            list.push_back(value);
        }
        GLdouble range[2];
        glGetDoublev(GL_DEPTH_RANGE, range);
        EXPECT_EQ(range[0], 0.25);
        EXPECT_EQ(range[1], 0.75);
        EXPECT_EQ(e->modelMatrix(), gridToGeo());
        const auto * texGen = dynamic_cast<NBX::TexGenGL *>(e->getAttribute(NBX::TexGenGL::ClassNameNBX()));
        ASSERT_TRUE(texGen);
        EXPECT_EQ(texGen->getMode(), NBX::TexGenGL::M_ObjectLinear);
        // s is the map's x, t its z, r the height.
        EXPECT_EQ(texGen->getPlanes() * Point(7, 11, 13), Point(7, 11, 13));
        EXPECT_FALSE(colors && GLint(GL_NO_ERROR) != GLint(glGetError()));
    };
    const NBX::SO<NBX::DepthBufferGL> depth(
        new NBX::DepthBufferGL(NBX::DepthBufferGL::O_All, true, true, GL_LEQUAL, 0.25, 0.75));
    const NBX::SO<NBX::LightModelGL> lit(new NBX::LightModelGL(NBX::LightModelGL::M_Lighting));
    const NBX::SO<NBX::FaceStyle> culled(
        new NBX::FaceStyle(NBX::FaceStyle::S_Culled, NBX::FaceStyle::S_Culled));
    paint({depth.get(), lit.get(), culled.get()});
    EXPECT_EQ(seen[true], (std::vector<int>{0, 0, 0, 0, GL_LEQUAL, 1, 0, 0, GL_CW}));
    EXPECT_EQ(seen[false], (std::vector<int>{1, 1, 1, 1, GL_EQUAL, 0, 0, 0, GL_CW}));
}

TEST_F(GridTerrainPainterGLTest, LeavesStatesAndStacksAsTheyWere) {
    top->split()[1].hasVoids = true;
    top->children[2]->isLoaded = false;
    const NBX::SO<Draped> draped(
        new Draped(Bounds({10, 0, 10}, {20, 30, 20}), Bounds({10, 0, 10}, {20, 30, 20})));
    high->result_ = decal({0.0, 1.0, 0.0, 1.0});
    show({high.get(), draped.get()});
    root->insert(root->objects() - 1, new Probe);
    root->append(new Probe);
    struct State {
        std::vector<int> gl;
        Matrix model;
        unsigned colorBuffers, depthBuffers, texGens;
        bool operator==(const State &) const = default;
    };
    std::vector<State> states;
    ProbePainter::s_observe = [&](NBX::Engine * e) {
        if (states.empty()) glColor4d(0.25, 0.5, 0.75, 1.0);
        const auto size = [&](const NBX::ID & id) { return e->monoTable(id) ? e->monoTable(id)->size() : 0; };
        states.push_back({stateOfGL(), e->modelMatrix(), size(NBX::ColorBufferGL::ClassNameNBX()),
                          size(NBX::DepthBufferGL::ClassNameNBX()), size(NBX::TexGenGL::ClassNameNBX())});
    };
    for (const bool isLoaded : {false, true}) {
        top->children[2]->isLoaded = isLoaded;
        states.clear();
        canvas->redisplay();
        ASSERT_EQ(states.size(), 2U);
        EXPECT_EQ(states[0].gl, states[1].gl);
        EXPECT_TRUE(states[0] == states[1]);
        EXPECT_FALSE(NBX::GraphicsMemoryManager::instance()->isInFrame());
    }
}

TEST_F(GridTerrainPainterGLTest, ReadyChildrenReplaceTheirParentFromNearToFar) {
    top->split();
    EXPECT_EQ(paint(),
              (Log{"begin", "open depth", "depth ra", "depth rb", "depth rc", "depth rd", "close depth",
                   "open color", "color ra", "color rb", "color rc", "color rd", "close color", "end"}))
        << "all of them touch the place below the eye";
    look({65, 100, 65}, {65, 0, 65});
    EXPECT_EQ(only(paint(), "depth"), (Log{"depth rd"})) << "three are out of view";
    look({-1, 100, 60}, {-1, 0, 60});
    EXPECT_EQ(only(paint(), "color"), (Log{"color rc", "color ra"})) << "two are out of view";
    EXPECT_EQ(top->frameState(), GridTerrainTile::FS_Refined);
    EXPECT_EQ((*top)[0].frameState(), GridTerrainTile::FS_Drawn);
    EXPECT_EQ((*top)[3].frameState(), GridTerrainTile::FS_Culled);
    EXPECT_TRUE(top->requests.empty());
}

TEST_F(GridTerrainPainterGLTest, AParentStandsInForAllChildrenWhileOneIsMissing) {
    top->split()[2].isLoaded = false;
    top->visibleFragments(7);
    EXPECT_EQ(paint(), (Log{"begin", "request rc", "open depth", "depth r", "close depth", "open color",
                            "color r", "close color", "end"}));
    EXPECT_EQ((*top)[2].requests, std::vector<double>{7.0 * 8.0}) << "fragments of the parent times 2^level";
    EXPECT_TRUE(canvas->redisplayPending());
    EXPECT_EQ(GridTerrainPainterGL::statistics().missingTiles, 1U);
    EXPECT_TRUE(GridTerrainPainterGL::statistics().isIncomplete);

    (*top)[2].isLoaded = true;
    EXPECT_EQ(only(paint(), "color").size(), 4U);
    EXPECT_FALSE(canvas->redisplayPending());

    (*top)[1].buffersLeft = 0;
    EXPECT_EQ(only(paint(), "color"), Log{"color r"}) << "data without a buffer are not enough";
    EXPECT_EQ((*top)[1].requests.size(), 1U);
}

TEST_F(GridTerrainPainterGLTest, TheRedisplayComesAfterATwentiethOfASecond) {
    top->split()[0].isLoaded = false;
    const double before = canvas->clock()->now();
    paint();
    EXPECT_GE(canvas->redisplayTime(), before + 0.05 - 1e-9);
    EXPECT_LE(canvas->redisplayTime(), canvas->clock()->now() + 0.05);
}

/// Shifts would overflow, or be undefined below the finest level.
TEST_F(GridTerrainPainterGLTest, PrioritiesHaveNoBounds) {
    struct Case {
        int level;
        std::uint32_t fragments;
        double priority;
    };
    for (const Case & c :
         {Case{0, 5, 5.0}, Case{-3, 6, 0.75}, Case{31, UINT32_MAX, 4294967295.0 * 2147483648.0},
          Case{40, 3, 3.0 * 1099511627776.0}, Case{-70, 1, std::ldexp(1.0, -70)}, Case{5, 0, 0.0}}) {
        newRoot(c.level);
        top->split(false);
        top->visibleFragments(c.fragments);
        paint();
        for (unsigned i = 0; i < 4; ++i)
            EXPECT_EQ((*top)[i].requests, std::vector<double>{c.priority}) << c.level;
    }
}

TEST_F(GridTerrainPainterGLTest, ChildrenThatDoNotExistAreLeftOut) {
    top->addChild(1);
    top->addChild(2);
    top->splits = true;
    EXPECT_EQ(only(paint(), "color"), (Log{"color rb", "color rc"}));
    (*top)[1].splits = true;
    EXPECT_EQ(only(paint(), "color"), (Log{"color rb", "color rc"})) << "without children";
}

/// What says that it has children and then has none is drawn itself.
TEST_F(GridTerrainPainterGLTest, ATileWhoseChildrenAreGoneIsDrawn) {
    class Pretender : public Tile {
    public:
        using Tile::Tile;
        bool hasChildren(bool) const override { return true; }
    };
    top = new Pretender("r", Bounds({8, 4, 10}, {56, 60, 20}), 2);
    top->splits = true;
    EXPECT_EQ(only(paint(), "color"), Log{"color r"});
}

TEST_F(GridTerrainPainterGLTest, APictureThatMustBeCompleteLoadsAllChildren) {
    canvas->setRenderingMode(0);
    top->split(false);
    (*top)[3].isLoaded = true;
    top->visibleFragments(3);
    const Log log = paint();
    EXPECT_EQ(only(log, "request"), (Log{"request ra", "request rb", "request rc"}));
    EXPECT_EQ(only(log, "load"), (Log{"load ra", "load rb", "load rc"}));
    EXPECT_EQ(only(log, "color").size(), 4U);
    EXPECT_EQ((*top)[0].requests, (std::vector<double>{24.0, 24.0}));
    EXPECT_FALSE(canvas->redisplayPending());
    EXPECT_FALSE(GridTerrainPainterGL::statistics().isIncomplete);

    canvas->setRenderingMode(1);
    TerrainPainterGLSettings::enableSnapshotMode(true);
    (*top)[0].isLoaded = false;
    EXPECT_EQ(only(paint(), "load"), Log{"load ra"});
}

/// A hole would be worse than less detail.
TEST_F(GridTerrainPainterGLTest, AParentStandsInForAChildThatCannotBeRead) {
    canvas->setRenderingMode(0);
    top->split(false)[1].isReadable = false;
    const Log log = paint();
    EXPECT_EQ(only(log, "color"), Log{"color r"});
    EXPECT_EQ(only(log, "load").size(), 4U);
    EXPECT_EQ(GridTerrainPainterGL::statistics().missingTiles, 1U);
    EXPECT_TRUE(GridTerrainPainterGL::statistics().isIncomplete);
    EXPECT_TRUE(canvas->redisplayPending()) << "it may be readable then";
}

TEST_F(GridTerrainPainterGLTest, AllowedErrorsAreAtLeastAPixel) {
    struct Case {
        const char * name;
        int mode;
        double setting, allowed;
    };
    for (const Case & c : {Case{"as set", 1, 3.5, 3.5}, Case{"finer than a pixel", 1, 0.25, 1.0},
                           Case{"complete", 0, 3.5, 1.0}, Case{"complete and finer", 0, 0.25, 1.0}}) {
        ASSERT_TRUE(canvas->setSize(96, 64));
        canvas->setRenderingMode(c.mode);
        TerrainPainterGLSettings::setGeometryError(c.setting);
        TerrainPainterGLSettings::setTextureError(c.setting + 1.0);
        top->split();
        double geometryError = 0.0;
        Tile::s_onRefine = [&](const Tile &, const NBX::ViewInfo * view, unsigned width, unsigned height,
                               double threshold) {
            geometryError = threshold;
            EXPECT_EQ(width, 96U);
            EXPECT_EQ(height, 64U);
            // Grid space: the height is z.
            EXPECT_LT((view->direction() - Point(0, 0, -1)).length(), 1e-9);
            EXPECT_LT((view->position() - Point(32, 32, 100)).length(), 1e-9);
        };
        paint({low.get()});
        EXPECT_EQ(geometryError, c.allowed) << c.name;
        EXPECT_EQ(low->last_.textureError, c.mode == 0 ? 1.0 : std::max(c.setting + 1.0, 1.0)) << c.name;
        EXPECT_EQ(low->last_.asynchronous, c.mode == 1) << c.name;
    }
}

TEST_F(GridTerrainPainterGLTest, MotionCountsOnlyWhereThePictureIsDrawnAgain) {
    const NBX::SO<NBX::ContextData<bool>> moving(new NBX::ContextData<bool>("MotionFlag", true));
    EXPECT_EQ(only(paint({moving.get(), low.get()}), "begin"), Log{"begin in motion"});
    EXPECT_EQ(s_log.back(), "end in motion");
    EXPECT_TRUE(low->last_.inMotion);
    EXPECT_TRUE(canvas->redisplayPending());

    const NBX::SO<NBX::PathNavigation> flight(new NBX::PathNavigation(new NBX::LookAt, {}));
    flight->activate();
    EXPECT_EQ(only(paint({moving.get()}), "begin"), Log{"begin"});
    EXPECT_FALSE(canvas->redisplayPending());
    flight->deactivate();

    canvas->setRenderingMode(0);
    EXPECT_EQ(only(paint({moving.get(), low.get()}), "begin"), Log{"begin"});
    EXPECT_FALSE(low->last_.inMotion);
    EXPECT_FALSE(canvas->redisplayPending());
}

TEST_F(GridTerrainPainterGLTest, APixelBufferIsCompleteAtOnce) {
    const NBX::SO<NBX::PBufferCanvasGL> buffer(new NBX::PBufferCanvasGL(64, 64));
    ASSERT_TRUE(buffer->create());
    buffer->setRenderingMode(1);
    top->split(false);
    show();
    buffer->append(root.get());
    s_log.clear();
    buffer->redisplay();
    EXPECT_EQ(only(s_log, "color").size(), 4U);
    EXPECT_FALSE(buffer->redisplayPending());
}

TEST_F(GridTerrainPainterGLTest, NothingIsAskedBelowATileOutOfView) {
    top->split();
    (*top)[0].split(false);
    look({-40, 100, 32}, {-40, 0, 32});
    EXPECT_EQ(paint(), (Log{"begin", "open depth", "close depth", "open color", "close color", "end"}));
    EXPECT_EQ(top->frameState(), GridTerrainTile::FS_Culled);
    EXPECT_EQ(top->visibleFragments(), 0U);
}

/// A view that cuts nothing is not asked again below.
TEST_F(GridTerrainPainterGLTest, ATileInsideTheViewSparesTheTestsBelow) {
    top->split();
    for (unsigned i = 0; i < 4; ++i)
        (*top)[i].box = Bounds({1000, 1000, 0}, {1001, 1001, 1}); // out of view, were it asked
    EXPECT_EQ(only(paint(), "color").size(), 0U) << "they are hidden";
    EXPECT_EQ(GridTerrainPainterGL::statistics().tilesCounted, 4U);
    look({0, 100, 32}, {0, 0, 32});
    GridTerrainPainterGL::resetStatistics();
    paint();
    EXPECT_EQ(GridTerrainPainterGL::statistics().tilesCounted, 0U);
}

TEST_F(GridTerrainPainterGLTest, TheRootIsReadWhereItIsMissing) {
    top->isLoaded = false;
    EXPECT_EQ(only(paint(), "load"), Log{"load r"});
    EXPECT_EQ(top->requests, std::vector<double>{1e42});
    EXPECT_EQ(only(s_log, "color"), Log{"color r"});

    top->isLoaded = top->isReadable = false;
    EXPECT_EQ(only(paint(), "color"), Log{});
    EXPECT_EQ(reports.count(2, L"false", L"tile vertex data not loaded"), 2U) << reports;
    EXPECT_EQ(reports.size(), 2U);
    reports.clear();
}

TEST_F(GridTerrainPainterGLTest, ATileThatLosesItsBufferIsReported) {
    top->split()[1].buffersLeft = 1;
    const Log log = paint();
    EXPECT_EQ(only(log, "load"), Log{"load rb"});
    EXPECT_EQ((*top)[1].requests, std::vector<double>{1e42});
    EXPECT_EQ(only(log, "depth").size(), 3U);
    EXPECT_EQ(only(log, "color").size(), 3U);
    EXPECT_EQ(reports.count(2, L"!tile->parent()", L"no vertex buffer loaded for non-root tile"), 1U);
    EXPECT_EQ(reports.count(2, L"false", L"tile vertex data not loaded"), 2U);
    EXPECT_EQ(reports.size(), 3U) << reports;
    reports.clear();
}

TEST_F(GridTerrainPainterGLTest, TheRootIsUsedInEveryPicture) {
    top->split();
    paint();
    const unsigned before = top->touches;
    paint();
    EXPECT_EQ(top->touches, before + 2) << "first and last";
}

TEST_F(GridTerrainPainterGLTest, WhatAPictureUsesIsKeptToItsEnd) {
    const NBX::SO<NBX::SharedObj> first(new NBX::MemoryImage(1, 1, NBX::LS_Luminance));
    auto & main = *NBX::MainMemoryManager::instance();
    auto & graphics = *NBX::GraphicsMemoryManager::instance();
    const unsigned mainBudget = main.getBudget(), graphicsBudget = graphics.getBudget();
    main.setBudget(10);
    graphics.setBudget(10);
    Tile::s_onRender = [&](NBX::EngineGL *, const Tile &, bool colors) {
        if (!colors) return;
        main.add(first.get(), 100);
        graphics.add(first.get(), 100);
        EXPECT_TRUE(main.contains(first.get()));
        EXPECT_TRUE(graphics.contains(first.get()));
    };
    paint();
    EXPECT_FALSE(main.contains(first.get()));
    EXPECT_FALSE(graphics.contains(first.get()));
    main.setBudget(mainBudget);
    graphics.setBudget(graphicsBudget);
}

TEST_F(GridTerrainPainterGLTest, GeometryEffectsSeeTheChosenTilesFromTheTopDownwards) {
    const NBX::SO<TouchingEffect> below(new TouchingEffect("below")), above(new TouchingEffect("above"));
    ASSERT_TRUE(canvas->setSize(96, 64));
    top->split();
    look({65, 100, 40}, {65, 0, 40});
    EXPECT_EQ(only(paint({below.get(), above.get()}), "touch"),
              (Log{"touch above rb", "touch below rb", "touch above rd", "touch below rd"}));
    EXPECT_EQ(below->width_, 96U);
    EXPECT_EQ(below->height_, 64U);
    EXPECT_LT((below->viewInfo_->direction() - Point(0, 0, -1)).length(), 1e-9);
    EXPECT_LT((below->eye_ - Point(56, 40, 20)).length(), 1e-9) << "in grid space, inside the tile's box";
    EXPECT_EQ(only(paint(), "touch"), Log{});
}

TEST_F(GridTerrainPainterGLTest, EffectsAreAskedInTheFrameOfTheMap) {
    ASSERT_TRUE(canvas->setSize(96, 64));
    paint({low.get()});
    EXPECT_LT((low->last_.viewInfo->direction() - Point(0, -1, 0)).length(), 1e-9);
    EXPECT_LT((low->last_.viewInfo->position() - Point(32, 100, 32)).length(), 1e-9);
    EXPECT_LT((low->last_.eye - Point(32, 20, 32)).length(), 1e-9);
    EXPECT_EQ(low->last_.width, 96U);
    EXPECT_EQ(low->last_.height, 64U);
    EXPECT_EQ(low->last_.priority, double(72 * 56)) << "the fragments seen";
    EXPECT_TRUE(low->last_.asynchronous);
    look({65, 100, 40}, {65, 0, 40});
    paint({low.get()});
    EXPECT_LT((low->last_.eye - Point(56, 20, 40)).length(), 1e-9);
}

TEST_F(GridTerrainPainterGLTest, EffectsAreWalkedFromTheTopDownwards) {
    top->addChild(0);
    low->logsWalks_ = high->logsWalks_ = true;
    const Log log = paint({low.get(), high.get()});
    const Log refineWalk = {"refine high r", "ignore high r", "refine low r", "ignore low r"};
    Log expected = {"begin"};
    expected.insert(expected.end(), refineWalk.begin(), refineWalk.end());
    for (const char * entry :
         {"open depth", "depth r", "close depth", "open color", "request high r", "ignore high r",
          "request low r", "ignore low r", "color r", "close color", "end"})
        expected.emplace_back(entry);
    EXPECT_EQ(log, expected);
    high->ignoresPrevious_ = true;
    EXPECT_EQ(only(paint({low.get(), high.get()}), "refine"), Log{"refine high r"});
    EXPECT_EQ(only(s_log, "request"), Log{"request high r"});
}

TEST_F(GridTerrainPainterGLTest, AnEffectCanSplitATile) {
    top->split();
    top->splits = false;
    low->refined_ = {"r"};
    EXPECT_EQ(only(paint({low.get()}), "request"),
              (Log{"request low ra", "request low rb", "request low rc", "request low rd"}));
    EXPECT_EQ(only(s_log, "color").size(), 4U);
    high->ignoresPrevious_ = true;
    EXPECT_EQ(only(paint({low.get(), high.get()}), "color"), Log{"color r"});
}

TEST_F(GridTerrainPainterGLTest, OneTextureServesManyTiles) {
    top->split();
    (*top)[0].split();
    EXPECT_EQ(only(paint({low.get()}), "request"), Log{"request low r"});
    EXPECT_EQ(only(s_log, "color").size(), 7U);
    low->refined_ = {"r"};
    EXPECT_EQ(only(paint({low.get()}), "request").size(), 4U);
    EXPECT_EQ(only(s_log, "color").size(), 7U);
}

/// It wants finer textures as well as finer heights, but neither can be had.
TEST_F(GridTerrainPainterGLTest, AStandInIsDrawnThoughAnEffectWantsToSplitIt) {
    top->split(false);
    low->refined_ = {"r"};
    EXPECT_EQ(only(paint({low.get()}), "color"), Log{"color r"});
    EXPECT_EQ(only(s_log, "request low"), Log{"request low r"});
}

TEST_F(GridTerrainPainterGLTest, AnIncompleteTextureIsAskedForAgain) {
    paint({low.get()});
    EXPECT_FALSE(canvas->redisplayPending());
    low->isIncomplete_ = true;
    paint({low.get()});
    EXPECT_TRUE(canvas->redisplayPending());
    EXPECT_TRUE(GridTerrainPainterGL::statistics().isIncomplete);
    EXPECT_EQ(GridTerrainPainterGL::statistics().missingTiles, 0U);
}

TEST_F(GridTerrainPainterGLTest, TheColorsAreThoseOfTheEffects) {
    high->result_ = decal({0.0, 1.0, 0.0, 1.0});
    paint({high.get()});
    const auto picture = canvas->snapshot();
    EXPECT_EQ(pixel(picture, 8, 4), (std::array<int, 4>{0, 255, 0, 255}));
    EXPECT_EQ(pixel(picture, 55, 59), (std::array<int, 4>{0, 255, 0, 255}));
    EXPECT_EQ(pixel(picture, 7, 4)[3], 0);
    EXPECT_EQ(pixel(picture, 56, 59)[3], 0);
    EXPECT_EQ(pixel(picture, 55, 60)[3], 0);
}

/// Child b lies under child a and out of sight, c and d are plain.
TEST_F(GridTerrainPainterGLTest, FragmentsAreCountedAndHiddenTilesGetNoColors) {
    top->split();
    (*top)[0].box = Bounds({8, 4, 15}, {32, 32, 20});
    (*top)[1].box = Bounds({10, 6, 10}, {20, 30, 12});
    paint({low.get()});
    EXPECT_EQ(only(s_log, "depth"), (Log{"depth ra", "depth rc", "depth rd", "depth rb"}));
    EXPECT_EQ(only(s_log, "color"), (Log{"color ra", "color rc", "color rd"}));
    EXPECT_EQ((*top)[0].visibleFragments(), 24U * 28);
    EXPECT_EQ((*top)[1].visibleFragments(), 0U);
    EXPECT_EQ((*top)[1].frameState(), GridTerrainTile::FS_Occluded);
    EXPECT_EQ((*top)[2].visibleFragments(), 24U * 28);
    EXPECT_EQ(top->visibleFragments(), 3U * 24 * 28);
    EXPECT_EQ(GridTerrainPainterGL::statistics().tilesCounted, 4U);
    EXPECT_EQ(GridTerrainPainterGL::statistics().tilesDrawn, 3U);
    EXPECT_EQ(GridTerrainPainterGL::statistics().triangles, 8U);
    EXPECT_EQ(GridTerrainPainterGL::statistics().trianglesDrawn, 14U);
}

TEST_F(GridTerrainPainterGLTest, ARefinedTileOfWhichNothingIsSeenIsHiddenAsAWhole) {
    top->split();
    (*top)[1].split();
    (*top)[0].box = Bounds({8, 4, 15}, {32, 32, 20});
    for (unsigned i = 0; i < 4; ++i)
        (*top)[1][i].box = Bounds({10.0 + i, 6, 10}, {20, 30, 12});
    (*top)[1].box = Bounds({10, 6, 10}, {20, 30, 12});
    low->refined_ = {"r"};
    EXPECT_EQ(only(paint({low.get()}), "request"),
              (Log{"request low ra", "request low rc", "request low rd"}));
    EXPECT_EQ((*top)[1].frameState(), GridTerrainTile::FS_Occluded);
}

TEST_F(GridTerrainPainterGLTest, WithoutQueriesEveryTileCountsAsQuiteVisible) {
    top->split();
    (*top)[1].box = Bounds({10, 6, 1}, {20, 30, 2}); // hidden
    for (const bool isBlocking : {false, true}) {
        TerrainPainterGLSettings::enableOcclusionQueries(isBlocking);
        canvas->setRenderingMode(isBlocking ? 0 : 1);
        const Names names = countNames();
        EXPECT_EQ(only(paint(), "color").size(), 4U);
        for (unsigned i = 0; i < 4; ++i)
            EXPECT_EQ((*top)[i].visibleFragments(), 1024U);
        EXPECT_EQ(top->visibleFragments(), 4096U);
        EXPECT_EQ(countNames().queries, names.queries);
    }
}

TEST_F(GridTerrainPainterGLTest, QueriesAreUsedAgain) {
    top->split();
    paint();
    const Names names = countNames();
    EXPECT_GE(names.queries, 4);
    for (unsigned i = 0; i < 5; ++i)
        paint();
    EXPECT_EQ(countNames().queries, names.queries);
    EXPECT_EQ(TerrainPainterGLSettings::engineForOcclusionQueryPool().lock().get(), engine.get());
}

PFNGLGETQUERYOBJECTUIVPROC s_getQuery = nullptr;

TEST_F(GridTerrainPainterGLTest, CountsThatAreNotThereYetAreNotWaitedFor) {
    paint(); // which loads the functions of OpenGL
    s_getQuery = __glewGetQueryObjectuiv;
    __glewGetQueryObjectuiv = [](GLuint query, GLenum name, GLuint * result) {
        s_getQuery(query, name, result);
        if (name == GL_QUERY_RESULT_AVAILABLE) *result = GL_FALSE;
    };
    paint();
    __glewGetQueryObjectuiv = s_getQuery;
    EXPECT_EQ(top->visibleFragments(), 1024U);
}

/// Its query is free for others at once.
TEST_F(GridTerrainPainterGLTest, ATileWhoseCountIsNotThereYetCountsAsQuiteVisible) {
    ScriptedTerrain::s_finishesDepth = false;
    const Names names = countNames();
    paint();
    EXPECT_TRUE(top->visibleFragments() == 1024U || top->visibleFragments() == 48U * 56);
    EXPECT_LE(countNames().queries, names.queries + 1);
    ScriptedTerrain::s_finishesDepth = true;
}

TEST_F(GridTerrainPainterGLTest, AnotherEngineHasQueriesOfItsOwn) {
    top->split();
    paint();
    top->splits = false;
    const NBX::SO<NBX::OffscreenCanvasGL> other(new NBX::OffscreenCanvasGL(64, 64));
    other->setRenderingMode(1);
    other->append(root.get());
    top->visibleFragments(0);
    other->redisplay();
    EXPECT_EQ(top->visibleFragments(), 48U * 56);
    EXPECT_EQ(TerrainPainterGLSettings::engineForOcclusionQueryPool().lock().get(), other->engine().get());
    ASSERT_TRUE(canvas->makeContextCurrent());
    EXPECT_EQ(countNames().queries, 0) << "those of the first engine are dropped";
    canvas->releaseContext();
    top->visibleFragments(0);
    canvas->redisplay();
    EXPECT_EQ(top->visibleFragments(), 48U * 56);
}

TEST_F(GridTerrainPainterGLTest, DrapedTrianglesMakeATileCountMore) {
    const NBX::SO<Draped> draped(new Draped(Bounds({10, 5, 10}, {11, 15, 11})));
    top->split();
    paint({draped.get()});
    EXPECT_EQ((*top)[0].visibleFragments(), 2U * 24 * 28 + 1);
    EXPECT_EQ((*top)[1].visibleFragments(), 24U * 28);
    EXPECT_EQ(top->visibleFragments(), 2U * (5 * 24 * 28 + 1) + 1);
    const NBX::SO<Draped> bridge(new Draped(Bounds({10, 40, 10}, {11, 45, 11})));
    paint({bridge.get()});
    EXPECT_EQ((*top)[0].visibleFragments(), 2U * 24 * 28 + 1) << "high above the ground";
    look({200, 100, 32}, {200, 0, 32});
    paint({draped.get()});
    EXPECT_EQ(top->visibleFragments(), 1U) << "also out of view";
    EXPECT_EQ(top->frameState(), GridTerrainTile::FS_Culled);
}

TEST_F(GridTerrainPainterGLTest, CountsDoNotOverflow) {
    const NBX::SO<Draped> draped(new Draped(Bounds({10, 5, 10}, {11, 15, 11})));
    newRoot(40);
    Tile * tile = top.get();
    for (unsigned i = 0; i < 40; ++i) {
        tile->addChild(0)->box = top->box;
        tile->splits = true;
        tile = tile->children[0].get();
    }
    paint({draped.get()});
    EXPECT_EQ(top->visibleFragments(), UINT32_MAX);
    EXPECT_EQ(tile->visibleFragments(), 2U * 48 * 56 + 1);
}

/// They rise above the ground, which lies out of view.
TEST_F(GridTerrainPainterGLTest, DrapedTrianglesKeepTheirTileInView) {
    const Bounds tower({10, 0, 30}, {20, 50, 40});
    const NBX::SO<Draped> draped(new Draped(tower));
    look({30, 50, -50}, {30, 50, 0}, {0, 1, 0}); // from 18 to 82 high
    top->box = Bounds({8, 4, 1}, {56, 60, 2});
    EXPECT_EQ(GridTerrainPainterGL::statistics().tilesCounted, 0U);
    paint();
    EXPECT_EQ(GridTerrainPainterGL::statistics().tilesCounted, 0U);
    paint({draped.get()});
    EXPECT_EQ(GridTerrainPainterGL::statistics().tilesCounted, 1U);
    const NBX::SO<Draped> beside(new Draped(Bounds({60, 0, 30}, {70, 50, 40})));
    GridTerrainPainterGL::resetStatistics();
    paint({beside.get()});
    EXPECT_EQ(GridTerrainPainterGL::statistics().tilesCounted, 0U);
}

TEST_F(GridTerrainPainterGLTest, DrapedTrianglesLieOnTheGroundUnderItsTextures) {
    const Bounds square({10, 15, 12}, {20, 30, 22});
    const NBX::SO<Draped> draped(new Draped(square, square)), none(new Draped(square));
    std::vector<Matrix> models, planes;
    std::vector<GLint> functions;
    DrapedSquarePainter::s_observe = [&](NBX::Engine * e) {
        models.push_back(e->modelMatrix());
        const auto * texGen = dynamic_cast<NBX::TexGenGL *>(e->getAttribute(NBX::TexGenGL::ClassNameNBX()));
        planes.push_back(texGen->getPlanes());
        GLint function = 0, buffer = 0;
        glGetIntegerv(GL_DEPTH_FUNC, &function);
        glGetIntegerv(GL_ELEMENT_ARRAY_BUFFER_BINDING, &buffer);
        EXPECT_EQ(buffer, 0);
        functions.push_back(function);
    };
    top->split();
    low->refined_ = {"r"};
    const Log log = paint({low.get(), draped.get(), none.get()});
    EXPECT_EQ(log, (Log{"begin",          "open depth",     "depth ra",
                        "depth rb",       "depth rc",       "depth rd",
                        "close depth",    "open color",     "request low ra",
                        "color ra",       "close color",    "draped",
                        "open color",     "request low rb", "color rb",
                        "request low rc", "color rc",       "request low rd",
                        "color rd",       "close color",    "end"}));
    EXPECT_EQ(models, std::vector<Matrix>{Matrix()});
    EXPECT_EQ(planes.front(), Matrix({1, 0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1}));
    EXPECT_EQ(functions, std::vector<GLint>{GL_LESS});
    EXPECT_EQ(draped->asked_, std::vector<Bounds>{(*top)[0].visBoundingBox()});
    EXPECT_EQ(none->asked_, draped->asked_);
    const auto picture = canvas->snapshot();
    for (int y = 4; y < 60; ++y)
        for (int x = 8; x < 56; ++x) {
            const bool isDraped = x >= 10 && x < 20 && y >= 12 && y < 22;
            ASSERT_EQ(pixel(picture, x, y)[1], isDraped ? 0 : 255) << x << " " << y;
        }
}

/// Nothing is seen of its children, while the roof is over the tile.
TEST_F(GridTerrainPainterGLTest, DrapedTrianglesAreDrawnWhereNothingIsLeftOfTheirTile) {
    const Bounds square({10, 15, 12}, {20, 30, 22});
    const NBX::SO<Draped> draped(new Draped(square, square));
    top->split();
    for (unsigned i = 0; i < 4; ++i)
        (*top)[i].box = Bounds({200, 200, 10}, {210, 210, 20});
    const Log log = paint({low.get(), draped.get()});
    EXPECT_EQ(only(log, "color"), Log{});
    EXPECT_EQ(only(log, "draped"), Log{"draped"});
}

TEST_F(GridTerrainPainterGLTest, WithoutRenderingDrapedTrianglesAreAllThatIsDrawn) {
    const Bounds square({10, 15, 12}, {20, 30, 22});
    const NBX::SO<Draped> draped(new Draped(square, square));
    TerrainPainterGLSettings::enableRendering(false);
    EXPECT_EQ(paint({low.get()}), Log{});
    EXPECT_EQ(paint({low.get(), draped.get()}), (Log{"begin", "open color", "request low r", "close color",
                                                     "draped", "open color", "close color", "end"}));
    EXPECT_EQ(low->last_.priority, 2049.0);
    const auto picture = canvas->snapshot();
    EXPECT_EQ(pixel(picture, 15, 15), (std::array<int, 4>{255, 0, 0, 255}));
    EXPECT_EQ(pixel(picture, 30, 30)[3], 0);
}

/// `GL_LESS` only lets pass what the scene's own test is about.
TEST_F(GridTerrainPainterGLTest, UndefinedVerticesAreCutOutOfBothPasses) {
    const auto observe = [&](const std::vector<NBX::Attribute *> & attributes) {
        std::map<bool, std::pair<GLint, GLdouble>> seen;
        Tile::s_onRender = [&](NBX::EngineGL *, const Tile & tile, bool colors) {
            if (tile.name != "ra") return;
            GLint isEnabled = 0;
            glGetIntegerv(GL_ALPHA_TEST, &isEnabled);
            if (isEnabled) glGetIntegerv(GL_ALPHA_TEST_FUNC, &seen[colors].first);
            glGetDoublev(GL_ALPHA_TEST_REF, &seen[colors].second);
        };
        paint(attributes);
        return seen;
    };
    top->split();
    (*top)[0].alpha = 0.0;
    EXPECT_EQ(observe({})[true].first, 0);
    EXPECT_EQ(observe({})[false].first, 0);
    (*top)[0].hasVoids = true;
    (*top)[1].hasVoids = true;
    const auto plain = observe({});
    EXPECT_EQ(plain.at(true).first, GL_EQUAL);
    EXPECT_EQ(plain.at(true).second, 1.0);
    EXPECT_EQ((*top)[0].visibleFragments(), 0U) << "the test left nothing of it";
    EXPECT_EQ((*top)[1].visibleFragments(), 24U * 28);
    EXPECT_FALSE(plain.count(false)) << "nothing is seen of it";

    const NBX::SO<NBX::ColorBufferGL> test(NBX::ColorBufferGL::newAlphaTest(true, GL_GREATER, 0.25));
    const NBX::SO<NBX::ColorBufferGL> outer(NBX::ColorBufferGL::newAlphaTest(true, GL_LEQUAL, 0.75));
    const NBX::SO<NBX::ColorBufferGL> blending(NBX::ColorBufferGL::newBlending(false, 1, 0));
    const NBX::SO<NBX::ColorBufferGL> all(new NBX::ColorBufferGL(NBX::ColorBufferGL::O_All));
    (*top)[0].alpha = 1.0;
    EXPECT_EQ(observe({}).at(false).first, GL_ALWAYS);
    EXPECT_EQ(observe({outer.get(), test.get(), blending.get()}).at(true).first, GL_EQUAL);
    EXPECT_EQ(observe({outer.get(), test.get(), blending.get()}).at(false).first, GL_GREATER);
    EXPECT_EQ(observe({test.get(), all.get()}).at(false).first, GL_ALWAYS);
}

TEST_F(GridTerrainPainterGLTest, KeepsTheBoxOfWhatWasDrawn) {
    top->split();
    look({65, 100, 40}, {65, 0, 40});
    paint();
    EXPECT_EQ(TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches(),
              Bounds({32, 10, 4}, {56, 20, 60}));
    look({-60, 100, 40}, {-60, 0, 40});
    paint();
    EXPECT_FALSE(TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches().isDefined());
}

TEST_F(GridTerrainPainterGLTest, CallbacksOfFramesSeeTheCoordinatesOfTextures) {
    static unsigned s_seen;
    s_seen = 0;
    const auto look = callback([](const TerrainPainterFrameManager::Info & info) {
        s_seen += info.engine->getAttribute(NBX::TexGenGL::ClassNameNBX()) != nullptr;
        s_seen += 10 * !NBX::GraphicsMemoryManager::instance()->isInFrame();
    });
    TerrainPainterFrameManager::RegisterBeginFrameCallback(look);
    paint();
    TerrainPainterFrameManager::UnregisterBeginFrameCallback(look);
    EXPECT_EQ(s_seen, 1U);
}

TEST_F(GridTerrainPainterGLTest, EveryTileIsToldItsNeighbors) {
    top->split();
    paint();
    Tile &a = (*top)[0], &d = (*top)[3];
    EXPECT_FALSE(a.neighbor(GridTerrainTile::NI_LowX));
    EXPECT_FALSE(a.neighbor(GridTerrainTile::NI_LowY));
    EXPECT_EQ(a.neighbor(GridTerrainTile::NI_HighX).get(), top->children[1].get());
    EXPECT_EQ(a.neighbor(GridTerrainTile::NI_HighY).get(), top->children[2].get());
    EXPECT_EQ(d.neighbor(GridTerrainTile::NI_LowX).get(), top->children[2].get());
    EXPECT_EQ(d.neighbor(GridTerrainTile::NI_LowY).get(), top->children[1].get());
    EXPECT_FALSE(d.neighbor(GridTerrainTile::NI_HighX));
}

TEST_F(GridTerrainPainterGLTest, NeighborsAreNoFinerThanTheTileItself) {
    top->split();
    (*top)[1].split();
    (*top)[1][0].split();
    paint();
    Tile &a = (*top)[0], &b = (*top)[1];
    EXPECT_FALSE(a.neighbor(GridTerrainTile::NI_HighX)) << "refined: it closes its borders itself";
    EXPECT_EQ(a.neighbor(GridTerrainTile::NI_HighY).get(), top->children[2].get());
    EXPECT_EQ(b[2].neighbor(GridTerrainTile::NI_LowX).get(), &a) << "a coarser one";
    EXPECT_EQ(b[0][0].neighbor(GridTerrainTile::NI_LowX).get(), &a) << "two levels above";
    EXPECT_EQ(b[0][1].neighbor(GridTerrainTile::NI_HighX).get(), b.children[1].get());
    EXPECT_EQ(b[0][2].neighbor(GridTerrainTile::NI_HighY).get(), b.children[2].get());
    EXPECT_FALSE(b[1].neighbor(GridTerrainTile::NI_LowX)) << "refined";
    EXPECT_EQ(b[2].neighbor(GridTerrainTile::NI_HighY).get(), top->children[3].get());
    EXPECT_FALSE(b[0][0].neighbor(GridTerrainTile::NI_LowY)) << "the border of the terrain";
    // They are told anew in every picture.
    (*top)[1].splits = false;
    paint();
    EXPECT_EQ(a.neighbor(GridTerrainTile::NI_HighX).get(), &b);
    top->children[2] = nullptr;
    paint();
    EXPECT_FALSE(a.neighbor(GridTerrainTile::NI_HighY));
}

/// The parts of a coarse tile, however small they are cut, show its heights.
TEST_F(GridTerrainPainterGLTest, WhatHasCoarserHeightsCountsThoughItIsRefinedOrOutOfView) {
    const int coarse = 3;
    top->split();
    Tile &a = (*top)[0], &b = (*top)[1];
    b.split();
    b.detail = &coarse;
    for (unsigned i = 0; i < 4; ++i)
        b[i].detail = &coarse;
    paint();
    EXPECT_EQ(a.neighbor(GridTerrainTile::NI_HighX).get(), &b);
    EXPECT_EQ(b[0].neighbor(GridTerrainTile::NI_LowX).get(), &a);
    look({-1, 100, 32}, {-1, 0, 32});
    paint();
    EXPECT_EQ(b.frameState(), GridTerrainTile::FS_Culled);
    EXPECT_EQ(a.neighbor(GridTerrainTile::NI_HighX).get(), &b) << "what closes the border may be in view";
    b.detail = nullptr;
    paint();
    EXPECT_FALSE(a.neighbor(GridTerrainTile::NI_HighX)) << "there is nothing to close";
}

} // namespace
