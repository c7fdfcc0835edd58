// How the painter of a terrain draws the triangles that lie on it.

#include <map>
#include <numbers>
#include <random>

#include <support/glfixture.h>
#include <support/roundtrip.h>

#include <nbx/engine/shapepainter.h>
#include <nbx/engine/simplifier.h>
#include <nbx/gl/effect/additivemultitexturingeffectgl.h>
#include <nbx/gl/effect/decalmultitexturingeffectgl.h>
#include <nbx/gl/effect/modulatemultitexturingeffectgl.h>
#include <nbx/gl/mesh/primitivequadtreeareagl.h>
#include <nbx/gl/mesh/primitivequadtreegl.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/gl/texture/textureunitsettinggl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/scene/attribute/clipplane.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/attribute/directionallight.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/draped/terraintexturedtriangles.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/areadraping.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/terraintexturingeffect.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/gdal/rasterwarp.h>

#include "support/testterrain.h"

using NBX::Bounds;
using NBX::EngineGL;
using NBX::PolygonSet;
using NBX::PrimitiveQuadTreeGL;
using NBX::SO;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::Terrain;
using ZMT::CORE::TerrainPainterGLSettings;
using ZMT::CORE::TerrainTexturedTriangles;
using Point = NBX::Vector3Base<double>;

namespace {

constexpr unsigned s_size = 200;
/// Engines with fewer units use the stencil buffer.
constexpr unsigned s_unitsWithStencil = 2;
/// Of a picture, through which the border of a patch runs so close to the middle that rounding decides whose
/// they are.
constexpr int s_borderPixels = 8;

class DrapedTrianglesGLTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        canvas->setSize(s_size, s_size);
    }
    void TearDown() override {
        EngineGL::setMaxTextureUnitsLimit(0);
        GLFixture::TearDown();
    }

    /// A sheet of `n` by `n` squares around the origin, turned about the vertical, with bumps.
    static SO<PolygonSet> sheet(unsigned n, double angle, double bumps = 0.1) {
        std::vector<Point> vertices;
        const auto at = [&](unsigned i, unsigned k) {
            const double u = 2.0 * i / n - 1.0, v = 2.0 * k / n - 1.0;
            return Point(u * std::cos(angle) - v * std::sin(angle), bumps * std::sin(5 * u) * std::cos(7 * v),
                         u * std::sin(angle) + v * std::cos(angle));
        };
        for (unsigned i = 0; i < n; ++i)
            for (unsigned k = 0; k < n; ++k) {
                const Point a = at(i, k), b = at(i, k + 1), c = at(i + 1, k + 1), d = at(i + 1, k);
                vertices.insert(vertices.end(), {a, b, c, a, c, d});
            }
        return new PolygonSet(PolygonSet::PT_Triangles, TestTerrain::array(std::move(vertices)));
    }
    /// Rectangles that share their sides, and cover -2..2 in x and z.
    static std::vector<Bounds> patches(std::mt19937 & random, unsigned columns, unsigned rows) {
        std::uniform_real_distribution<double> place(-0.9, 0.9);
        const auto lines = [&](unsigned count) {
            std::vector<double> result{-2.0, 2.0};
            for (unsigned i = 1; i < count; ++i)
                result.push_back(place(random));
            std::sort(result.begin(), result.end());
            return result;
        };
        const std::vector<double> x = lines(columns), z = lines(rows);
        std::vector<Bounds> result;
        for (unsigned i = 0; i < columns; ++i)
            for (unsigned k = 0; k < rows; ++k)
                result.emplace_back(Point(x[i], -1, z[k]), Point(x[i + 1], 1, z[k + 1]));
        return result;
    }
    static SO<NBX::Camera> randomView(std::mt19937 & random) {
        std::uniform_real_distribution<double> angle(0.0, 2.0 * std::numbers::pi), height(0.4, 3.0);
        const double a = angle(random);
        return new NBX::Camera(new NBX::LookAt({2.0 * std::cos(a), height(random), 2.0 * std::sin(a)}, {}),
                               new NBX::Perspective(50.0, 0.1, 10.0));
    }
    void appendParts(const TerrainTexturedTriangles & triangles, const std::vector<Bounds> & boxes) {
        for (const Bounds & box : boxes)
            if (const auto part = triangles.geometry(box)) root->append(part.get());
    }
    static SO<NBX::Image> blank() { return new NBX::MemoryImage(s_size, s_size, NBX::LS_RGBA); }
    static int differingPixels(const SO<NBX::Image> & a, const SO<NBX::Image> & b, int tolerance = 0) {
        int count = 0;
        for (int y = 0; y < a->height(); ++y)
            for (int x = 0; x < a->width(); ++x) {
                const auto p = pixel(a, x, y), q = pixel(b, x, y);
                bool differs = false;
                for (unsigned i = 0; i < 3; ++i)
                    differs = differs || std::abs(p[i] - q[i]) > tolerance;
                count += differs;
            }
        return count;
    }
};

/// Without depth and with colours added up, a pixel that two patches draw is twice as bright, and one that
/// they forget is black. The sheet is flat, so that it does not hide itself.
TEST_F(DrapedTrianglesGLTest, PatchesSideBySideDrawEveryPixelOnce) {
    std::mt19937 random(5);
    int seamPixels = 0;
    for (unsigned round = 0; round < 40; ++round) {
        const SO<PrimitiveQuadTreeGL> tree(
            new PrimitiveQuadTreeGL(2, sheet(20, 0.1 * round, 0.0), Bounds(), true));
        const SO<TerrainTexturedTriangles> triangles(new TerrainTexturedTriangles(tree, {}));
        const std::vector<Bounds> boxes = patches(random, 3, 4);
        const SO<NBX::Camera> camera = randomView(random);
        const auto picture = [&](bool whole) {
            root->clear();
            root->append(camera.get());
            root->append(new NBX::DepthBufferGL(false, false));
            root->append(NBX::ColorBufferGL::newBlending(true, GL_ONE, GL_ONE));
            root->append(new NBX::ColorAttribute(NBX::Color(0.25)));
            if (whole)
                root->append(tree.get());
            else
                appendParts(*triangles, boxes);
            return draw();
        };
        const auto whole = picture(true);
        for (const unsigned units : {0U, s_unitsWithStencil}) {
            EngineGL::setMaxTextureUnitsLimit(units);
            const int differing = differingPixels(whole, picture(false));
            EXPECT_LE(differing, 2) << "round " << round << ", units " << units;
            seamPixels += differing;
        }
        EngineGL::setMaxTextureUnitsLimit(0);
    }
    RecordProperty("pixels", seamPixels);
    EXPECT_LE(seamPixels, 10);
}

TEST_F(DrapedTrianglesGLTest, BothWaysDrawTheSamePixels) {
    std::mt19937 random(17);
    for (unsigned round = 0; round < 30; ++round) {
        const SO<PrimitiveQuadTreeGL> tree(
            new PrimitiveQuadTreeGL(2, sheet(12, 0.2 * round), Bounds(), true));
        const SO<TerrainTexturedTriangles> triangles(
            new TerrainTexturedTriangles(tree, round % 2 ? Point(0, 0.2, 0) : Point(0.1, 0, -0.3)));
        const std::vector<Bounds> boxes = patches(random, 3, 3);
        root->clear();
        root->append(randomView(random).get());
        root->append(new NBX::Box(Bounds({-0.5, -1, -0.5}, {0, 0.3, 0})));
        for (std::size_t i = 0; i < boxes.size(); i += 2) {
            root->append(new NBX::ColorAttribute(NBX::Color(0.1 * double(i), 1.0 - 0.1 * double(i), 0.5)));
            appendParts(*triangles, {boxes[i]});
        }
        EngineGL::setMaxTextureUnitsLimit(0);
        const auto clipped = draw();
        EngineGL::setMaxTextureUnitsLimit(s_unitsWithStencil);
        const auto stencilled = draw();
        EXPECT_LE(differingPixels(clipped, stencilled), s_borderPixels) << "round " << round;
        EXPECT_GT(differingPixels(clipped, blank()), 500) << "round " << round;
    }
}

/// Drivers without programs have no such function.
TEST_F(DrapedTrianglesGLTest, TheStencilWayNeedsNoPrograms) {
    std::mt19937 random(17);
    const SO<PrimitiveQuadTreeGL> tree(new PrimitiveQuadTreeGL(2, sheet(12, 0.2), Bounds(), true));
    root->append(randomView(random).get());
    appendParts(*SO<TerrainTexturedTriangles>(new TerrainTexturedTriangles(tree, {})),
                {Bounds({-0.5, 0, -0.5}, {0.5, 0, 0.5})});
    EngineGL::setMaxTextureUnitsLimit(s_unitsWithStencil);
    const auto expected = draw();
    EXPECT_GT(differingPixels(expected, blank()), 500);
    const auto known = std::exchange(__glewUseProgram, nullptr);
    const auto picture = draw();
    __glewUseProgram = known;
    EXPECT_EQ(differingPixels(expected, picture), 0);
}

/// Six can be in force at a time, and a patch has four sides.
TEST_F(DrapedTrianglesGLTest, TheSceneMayHaveClipPlanesOfItsOwn) {
    std::mt19937 random(29);
    const SO<PrimitiveQuadTreeGL> tree(new PrimitiveQuadTreeGL(2, sheet(12, 0.3), Bounds(), true));
    const SO<TerrainTexturedTriangles> triangles(new TerrainTexturedTriangles(tree, {}));
    const std::vector<Bounds> boxes = patches(random, 3, 3);
    const SO<NBX::Camera> camera = randomView(random);
    const auto picture = [&](unsigned planes) {
        root->clear();
        root->append(camera.get());
        for (unsigned i = 0; i < planes; ++i)
            root->append(new NBX::ClipPlane({1, 0, 0}, 0.3));
        for (std::size_t i = 0; i < boxes.size(); i += 2)
            appendParts(*triangles, {boxes[i]});
        return draw();
    };
    const auto expected = picture(1);
    EXPECT_GT(differingPixels(expected, blank()), 500);
    EXPECT_GT(differingPixels(expected, picture(0)), 500);
    for (const unsigned planes : {2U, 3U, 6U})
        EXPECT_LE(differingPixels(expected, picture(planes)), s_borderPixels) << planes;
    EXPECT_TRUE(reports.empty()) << reports;
}

/// Where a box stands, counts the pixels that are marked, and those that are not black, instead of painting
/// it.
class PixelCounter : public NBX::ShapePainter {
    NBX_TEMPLATE_CLASS(PixelCounter, NBX::ShapePainter)
public:
    NBX::ID target() const override { return NBX::Box::ClassNameNBX(); }
    bool render(NBX::Engine *, const NBX::Shape *) override {
        marked = count(GL_STENCIL_INDEX);
        painted = count(GL_RED);
        return true;
    }

    std::ptrdiff_t marked = -1, painted = -1;

private:
    static std::ptrdiff_t count(GLenum format) {
        std::vector<unsigned char> values(s_size * s_size);
        glReadPixels(0, 0, s_size, s_size, format, GL_UNSIGNED_BYTE, values.data());
        return std::ptrdiff_t(values.size()) - std::count(values.begin(), values.end(), 0);
    }
};

TEST_F(DrapedTrianglesGLTest, TheStencilIsLeftAsItWas) {
    const SO<PrimitiveQuadTreeGL> tree(new PrimitiveQuadTreeGL(0, sheet(4, 0.3), Bounds(), true));
    const SO<TerrainTexturedTriangles> triangles(new TerrainTexturedTriangles(tree, {}));
    const SO<PixelCounter> counter(new PixelCounter);
    EngineGL::setMaxTextureUnitsLimit(s_unitsWithStencil);
    std::mt19937 random(3);
    root->append(randomView(random).get());
    appendParts(*triangles, {Bounds({-0.5, 0, -0.5}, {0.5, 0, 0.5})});
    root->append(counter.get());
    root->append(new NBX::Box);
    canvas->redisplay();
    EXPECT_GT(counter->painted, 500);
    EXPECT_EQ(counter->marked, 0);
}

/// What is in force while a tree is painted.
struct PaintedState {
    bool hasArea, isLit, hasTexGen, showsTexture, writesColor, testsAlpha, testsDepth, writesDepth;
    int depthFunction, stencilFunction, stencilReference, onPass;
    unsigned planes;
    bool operator==(const PaintedState &) const = default;
};

/// What lets through only the pixels inside a box.
struct MaskState {
    GLint alphaFunction = 0, environment = 0, wrapS = 0, wrapT = 0, minFilter = 0, magFilter = 0;
    GLfloat alphaReference = 0.0F;
    std::vector<GLubyte> texels; ///< red, green, blue, alpha

    static MaskState current() {
        MaskState mask;
        glGetIntegerv(GL_ALPHA_TEST_FUNC, &mask.alphaFunction);
        glGetFloatv(GL_ALPHA_TEST_REF, &mask.alphaReference);
        glGetTexEnviv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, &mask.environment);
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, &mask.wrapS);
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, &mask.wrapT);
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &mask.minFilter);
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, &mask.magFilter);
        GLint width = 0, height = 0;
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &width);
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &height);
        mask.texels.resize(std::size_t(4) * unsigned(width) * unsigned(height));
        glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, mask.texels.data());
        return mask;
    }
};

/// Paints nothing, and notes what is in force.
class NotingPainter : public NBX::ShapePainter {
    NBX_TEMPLATE_CLASS(NotingPainter, NBX::ShapePainter)
public:
    explicit NotingPainter(const Bounds & area) : area_(area) {}
    NBX::ID target() const override { return PrimitiveQuadTreeGL::ClassNameNBX(); }
    bool render(NBX::Engine * engine, const NBX::Shape *) override {
        const auto isOn = [](GLenum name) {
            GLboolean value = GL_FALSE;
            glGetBooleanv(name, &value);
            return value == GL_TRUE;
        };
        const auto number = [](GLenum name) {
            GLint value = 0;
            glGetIntegerv(name, &value);
            return glIsEnabled(GL_STENCIL_TEST) || name == GL_DEPTH_FUNC ? value : -1;
        };
        const auto * area = dynamic_cast<const NBX::PrimitiveQuadTreeAreaGL *>(
            engine->getAttribute(NBX::PrimitiveQuadTreeAreaGL::ClassNameNBX()));
        glActiveTexture(GL_TEXTURE1);
        const bool showsTexture = isOn(GL_TEXTURE_2D);
        glActiveTexture(GL_TEXTURE0);
        states.push_back({area && area->getBox() == area_, isOn(GL_LIGHTING), isOn(GL_TEXTURE_GEN_T),
                          showsTexture, isOn(GL_COLOR_WRITEMASK), isOn(GL_ALPHA_TEST), isOn(GL_DEPTH_TEST),
                          isOn(GL_DEPTH_WRITEMASK), number(GL_DEPTH_FUNC), number(GL_STENCIL_FUNC),
                          number(GL_STENCIL_REF), number(GL_STENCIL_PASS_DEPTH_PASS),
                          engine->polyAttributeCount(NBX::ClipPlane::ClassNameNBX(), 1)});
        if (isOn(GL_ALPHA_TEST)) masks.push_back(MaskState::current());
        return true;
    }

    std::vector<PaintedState> states;
    std::vector<MaskState> masks; ///< of those that test alpha

private:
    Bounds area_;
};

class PaintedStateTest : public DrapedTrianglesGLTest {
protected:
    void SetUp() override {
        DrapedTrianglesGLTest::SetUp();
        canvas->prepareRedisplay();
        for (const auto & attribute : attributes)
            engine->push(attribute.get());
        engine->pushHandler(painter.get());
    }
    void TearDown() override {
        engine->popHandler(painter.get());
        for (auto i = attributes.rbegin(); i != attributes.rend(); ++i)
            engine->pop(i->get());
        canvas->finishRedisplay();
        DrapedTrianglesGLTest::TearDown();
    }
    std::vector<PaintedState> statesWithUnits(unsigned units) {
        const SO<PrimitiveQuadTreeGL> tree(new PrimitiveQuadTreeGL(0, sheet(2, 0.3), Bounds(), true));
        const SO<TerrainTexturedTriangles> triangles(new TerrainTexturedTriangles(tree, {}));
        EngineGL::setMaxTextureUnitsLimit(units);
        painter->states.clear();
        triangles->geometry(box)->evaluate(engine.get());
        return painter->states;
    }

    const Bounds box{{-0.5, 0, -0.5}, {0.5, 0, 0.5}};
    const SO<NotingPainter> painter{new NotingPainter(box)};
    /// What the mask must not be disturbed by.
    const std::vector<SO<NBX::Attribute>> attributes{
        new NBX::DirectionalLight(Point(0, -1, 0)),
        new NBX::TextureUnitSettingGL(1, SO<NBX::TextureGL>(new NBX::ImageTexture2DGL(nullptr)).get())};
};

TEST_F(PaintedStateTest, FourPlanesCutTheTrianglesOfTheArea) {
    EXPECT_EQ((std::vector<PaintedState>{
                  {true, true, true, true, true, false, true, true, GL_LESS, -1, -1, -1, 4}}),
              statesWithUnits(0));
}

TEST_F(PaintedStateTest, AMaskIsDrawnBeforeAndTakenAwayAfterwards) {
    const auto expected = [](int reference, bool testsDepth) {
        const PaintedState mark{true,       false,   true,      false,     false,      true, testsDepth,
                                testsDepth, GL_LESS, GL_ALWAYS, reference, GL_REPLACE, 0};
        PaintedState clear = mark;
        clear.stencilReference = 0;
        clear.depthFunction = testsDepth ? GL_LEQUAL : GL_LESS;
        clear.writesDepth = false;
        const PaintedState real{
            true,     true,      true,    true, true, false, testsDepth, false, clear.depthFunction,
            GL_EQUAL, reference, GL_KEEP, 0};
        return std::vector<PaintedState>{mark, real, clear};
    };
    int reference = statesWithUnits(s_unitsWithStencil).at(0).stencilReference;
    EXPECT_GE(reference, 1);
    EXPECT_LE(reference, 255);
    for (unsigned i = 0; i < 300; ++i) {
        reference = reference == 255 ? 1 : reference + 1;
        ASSERT_EQ(expected(reference, true), statesWithUnits(s_unitsWithStencil)) << reference;
    }
    const SO<NBX::DepthBufferGL> noDepth(new NBX::DepthBufferGL(false, false));
    const NBX::AttributeScope scope(engine.get(), noDepth.get());
    reference = reference == 255 ? 1 : reference + 1;
    EXPECT_EQ(expected(reference, false), statesWithUnits(s_unitsWithStencil));
}

/// Its middle covers the box, and what is beyond goes on as its border.
TEST_F(PaintedStateTest, TheMaskIsOpaqueInItsMiddleAndNowhereElse) {
    statesWithUnits(s_unitsWithStencil);
    ASSERT_EQ(2U, painter->masks.size()) << "marking and taking away";
    const std::vector<GLubyte> r{255, 0, 0, 0}, w{255, 255, 255, 255};
    std::vector<GLubyte> expected;
    for (const auto & texel : {r, r, r, r, r, w, w, r, r, w, w, r, r, r, r, r})
        expected.insert(expected.end(), texel.begin(), texel.end());
    for (const MaskState & mask : painter->masks) {
        EXPECT_EQ(GL_GEQUAL, mask.alphaFunction);
        EXPECT_EQ(0.5F, mask.alphaReference);
        EXPECT_EQ(GL_REPLACE, mask.environment);
        EXPECT_EQ(GL_CLAMP_TO_EDGE, mask.wrapS);
        EXPECT_EQ(GL_CLAMP_TO_EDGE, mask.wrapT);
        EXPECT_EQ(GL_NEAREST, mask.minFilter);
        EXPECT_EQ(GL_NEAREST, mask.magFilter);
        EXPECT_EQ(expected, mask.texels);
    }
}

TEST_F(DrapedTrianglesGLTest, TheStateIsLeftAsItWas) {
    const SO<PrimitiveQuadTreeGL> tree(new PrimitiveQuadTreeGL(0, sheet(4, 0.3), Bounds(), true));
    const SO<TerrainTexturedTriangles> triangles(new TerrainTexturedTriangles(tree, {0, 1, 0}));
    const SO<NBX::SceneThing> part =
        NBX::soCast<NBX::SceneThing>(triangles->geometry(Bounds({-0.5, 0, -0.5}, {0.5, 0, 0.5})));
    canvas->prepareRedisplay();
    for (const unsigned units : {0U, 2U, 1U}) {
        EngineGL::setMaxTextureUnitsLimit(units);
        const std::vector<int> before = stateOfGL();
        part->evaluate(engine.get());
        EXPECT_EQ(before, stateOfGL()) << units;
        EXPECT_FALSE(glIsEnabled(GL_CLIP_PLANE0));
        EXPECT_EQ(0U, engine->polyAttributeCount("ClipPlane", 3));
    }
    canvas->finishRedisplay();
}

TEST_F(DrapedTrianglesGLTest, EnginesThatDoNotDrawLeaveThemOut) {
    const SO<PrimitiveQuadTreeGL> tree(new PrimitiveQuadTreeGL(0, sheet(4, 0.3), Bounds(), true));
    const SO<TerrainTexturedTriangles> triangles(new TerrainTexturedTriangles(tree, {0, 1, 0}));
    const SO<NBX::SceneThing> part =
        NBX::soCast<NBX::SceneThing>(triangles->geometry(Bounds({-0.5, 0, -0.5}, {0.5, 0, 0.5})));
    const NBX::ClassInfo * shape = part->object(1)->classInfoNBX();
    EXPECT_TRUE(engine->findHandler(NBX::Simplifier::ClassNameNBX(), shape));
    const SO<NBX::Engine> plain(new NBX::Engine);
    EXPECT_FALSE(plain->findHandler(NBX::Simplifier::ClassNameNBX(), shape));
    part->evaluate(plain.get());
    EXPECT_EQ(0U, plain->polyAttributeCount("ClipPlane", 3));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(DrapedTrianglesGLTest, BoxesWithoutAreaShowNothing) {
    const SO<PrimitiveQuadTreeGL> tree(new PrimitiveQuadTreeGL(0, sheet(4, 0.3), Bounds(), true));
    const SO<TerrainTexturedTriangles> triangles(new TerrainTexturedTriangles(tree, {}));
    for (const unsigned units : {0U, s_unitsWithStencil}) {
        EngineGL::setMaxTextureUnitsLimit(units);
        root->clear();
        appendParts(*triangles, {Bounds({0, 0, -0.5}, {0, 0, 0.5}), Bounds({-0.5, 0, 0}, {0.5, 0, 0})});
        EXPECT_EQ(0, differingPixels(draw(), blank()));
    }
}

/// Whatever bytes are changed: an exception, or something that can be drawn.
TEST_F(DrapedTrianglesGLTest, BadStreamsDoNoHarm) {
    const SO<PolygonSet> set = sheet(2, 0.3);
    set->setIndexIterator(TestTerrain::array<unsigned>({0, 1, 2, 3, 4, 5, 6, 7, 8}));
    set->setVertexIterator(ZMT::CORE::GeoTransformation::geo2nbxTf(set->newVertexIterator()));
    set->setColorIterator(TestTerrain::array<NBX::Color>(std::vector<NBX::Color>(24)));
    const SO<PrimitiveQuadTreeGL> tree(
        new PrimitiveQuadTreeGL(3, set, Bounds({-1, -1, -1}, {1, 1, 1}), true));
    const SO<TerrainTexturedTriangles> whole(new TerrainTexturedTriangles(tree, {1, 2, 3}));
    const auto bytes = NBX::ObjectStreamWriter::write(*whole, true);
    unsigned drawn = 0;
    canvas->prepareRedisplay();
    const auto drawAll = [&](const std::vector<std::uint8_t> & stream) {
        try {
            const auto read = NBX::ObjectStreamReader(stream.data(), stream.size()).read();
            const auto * triangles = dynamic_cast<const TerrainTexturedTriangles *>(read.get());
            const SO<NBX::SceneNode> part =
                triangles ? triangles->geometry(Bounds({-0.5, 0, -0.5}, {0.5, 0, 0.5})) : nullptr;
            if (!part) return;
            part->evaluate(engine.get());
            ++drawn;
        } catch (const NBX::Exception &) {
        }
    };
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        drawAll({bytes.begin(), bytes.begin() + long(i)});
        for (const int change : {1, 16, 128, 255}) {
            auto changed = bytes;
            changed[i] = std::uint8_t(changed[i] + change);
            drawAll(changed);
        }
    }
    canvas->finishRedisplay();
    EXPECT_GT(drawn, bytes.size()) << "most bytes are coordinates";
    reports.clear();
}

/// Splits everything, and gives each patch a colour of its own.
class ColoredPatchesEffect : public ZMT::CORE::TerrainTexturingEffect {
    NBX_TEMPLATE_CLASS(ColoredPatchesEffect, ZMT::CORE::TerrainTexturingEffect)
public:
    enum Kind { Decal, Additive, Modulate };
    explicit ColoredPatchesEffect(Kind kind) : kind_(kind) {}

    bool refine(const GeometryPatch *, const NBX::ViewInfo *, unsigned, unsigned, const Point &, double,
                bool) const override {
        return true;
    }
    bool ignorePreviousEffects(const GeometryPatch *, const NBX::ViewInfo *, unsigned, unsigned,
                               const Point &, double, bool) const override {
        return false;
    }
    SO<NBX::TexturingEffectGL> request(const GeometryPatch * patch, EngineGL *, const NBX::ViewInfo *,
                                       unsigned, unsigned, double, const Point &, double, bool, bool,
                                       bool &) const override {
        const SO<NBX::Array<SO<NBX::TextureGL>>> textures(new NBX::Array<SO<NBX::TextureGL>>);
        textures->append(texture(patch, 0));
        if (kind_ == Additive) textures->append(texture(patch, 1));
        if (kind_ == Modulate) return new NBX::ModulateMultiTexturingEffectGL(textures.get(), nullptr, false);
        if (kind_ == Decal) return new NBX::DecalMultiTexturingEffectGL(textures.get(), nullptr, false);
        const SO<NBX::Array<double>> weights(new NBX::Array<double>(std::vector<double>{0.5, 0.5}));
        return new NBX::AdditiveMultiTexturingEffectGL(textures.get(), weights.get(), nullptr, 0.25, false);
    }

private:
    SO<NBX::TextureGL> texture(const GeometryPatch * patch, unsigned number) const {
        SO<NBX::TextureGL> & result = textures_[{patch, number}];
        if (!result) {
            std::mt19937 random(unsigned(textures_.size()) * 31 + unsigned(kind_));
            const SO<NBX::MemoryImage> image(new NBX::MemoryImage(1, 1, NBX::LS_RGB));
            for (unsigned i = 0; i < 3; ++i)
                image->lineComponentsU8(0)[i] = static_cast<unsigned char>(100 + random() % 156);
            result = new NBX::ImageTexture2DGL(image);
        }
        return result;
    }

    Kind kind_;
    mutable std::map<std::pair<const GeometryPatch *, unsigned>, SO<NBX::TextureGL>> textures_;
};

class DrapedTerrainGLTest : public DrapedTrianglesGLTest {
protected:
    void SetUp() override {
        DrapedTrianglesGLTest::SetUp();
        grid = TestTerrain::grid({65, 65, 0.0, 0.0, 1.0, 1.0}, [](unsigned x, unsigned y) {
            return 4.0 * std::sin(x * 0.2) * std::cos(y * 0.15);
        });
        testing::internal::CaptureStderr();
        terrain = new Terrain(grid.get(), ZMT::CORE::CreateGeometryTree::create(grid.get(), 300).get());
        testing::internal::GetCapturedStderr();
        ZMT::CORE::GeoTransformation::setNBXOrigin(grid->origin());
    }
    void TearDown() override {
        TerrainPainterGLSettings::enableRendering(true);
        TerrainPainterGLSettings::setGeometryError(3.0);
        ZMT::CORE::GeoTransformation::setNBXOrigin({});
        DrapedTrianglesGLTest::TearDown();
    }
    /// A ring with a hole over the middle of the terrain.
    SO<PolygonSet> ring(double lift) const {
        std::vector<std::vector<Point>> rings(2);
        for (unsigned i = 0; i < 40; ++i) {
            const double a = 2.0 * std::numbers::pi * i / 40;
            rings[0].emplace_back(32 + 25 * std::cos(a), 0, 32 + 20 * std::sin(a));
            rings[1].emplace_back(32 + 12 * std::cos(a), 0, 32 + 10 * std::sin(a));
        }
        return ZMT::CORE::AreaDraping::drape(*terrain, rings, 1.0, lift);
    }
    SO<NBX::Image> picture(const std::vector<SO<NBX::Attribute>> & attributes) {
        root->clear();
        root->append(camera.get());
        for (const auto & attribute : attributes)
            root->append(attribute.get());
        root->append(terrain.get());
        return draw();
    }
    static SO<NBX::Attribute> effect(ColoredPatchesEffect::Kind kind) {
        return new ColoredPatchesEffect(kind);
    }

    SO<ZMT::CORE::GridData> grid;
    SO<Terrain> terrain;
    SO<NBX::Camera> camera =
        new NBX::Camera(new NBX::LookAt({32, 45, -20}, {32, 0, 30}), new NBX::Perspective(50.0, 1.0, 200.0));
};

/// Seen from straight above, triangles hide the ground, and look like it.
TEST_F(DrapedTerrainGLTest, TrianglesTakeTheTexturesOfTheGround) {
    camera = new NBX::Camera(new NBX::LookAt({32, 50, 32}, {32, 0, 32}, {0, 0, 1}),
                             new NBX::Ortho(-30, 30, -30, 30, 1, 100));
    const SO<NBX::Attribute> decal = effect(ColoredPatchesEffect::Decal);
    const auto ground = picture({decal});
    for (const unsigned units : {0U, 2U, 1U}) {
        EngineGL::setMaxTextureUnitsLimit(units);
        const SO<NBX::Attribute> draped = terrain->createTerrainTexturedTriangles(ring(5.0)).get();
        EXPECT_LE(differingPixels(ground, picture({decal, draped}), 2), s_borderPixels) << units;
    }
    // The check above would see triangles of another colour.
    TerrainPainterGLSettings::enableRendering(false);
    const SO<NBX::Attribute> draped = terrain->createTerrainTexturedTriangles(ring(5.0)).get();
    const int uncovered = differingPixels(ground, picture({decal, draped}), 2);
    EXPECT_GT(uncovered, int(s_size * s_size / 4));
    EXPECT_LT(uncovered, int(s_size * s_size * 3 / 4));
}

TEST_F(DrapedTerrainGLTest, OnePassAndSeveralShowTheSame) {
    using Kind = ColoredPatchesEffect;
    const SO<NBX::Attribute> draped = terrain->createTerrainTexturedTriangles(ring(2.0)).get();
    const std::vector<std::vector<SO<NBX::Attribute>>> stacks = {
        {effect(Kind::Additive), draped},
        {effect(Kind::Decal), effect(Kind::Modulate), draped},
        {effect(Kind::Decal), effect(Kind::Additive), effect(Kind::Modulate), draped}};
    for (const bool withGround : {true, false})
        for (const auto & stack : stacks) {
            TerrainPainterGLSettings::enableRendering(withGround);
            EngineGL::setMaxTextureUnitsLimit(0);
            const auto all = picture(stack);
            EXPECT_GT(differingPixels(all, blank()), int(s_size * s_size / 10));
            for (const unsigned units : {2U, 1U}) {
                EngineGL::setMaxTextureUnitsLimit(units);
                EXPECT_LE(differingPixels(all, picture(stack), 3), s_borderPixels) << units << " units";
            }
        }
}

TEST_F(DrapedTerrainGLTest, WithoutTexturesTrianglesAreStillDrawn) {
    const SO<NBX::Attribute> draped = terrain->createTerrainTexturedTriangles(ring(2.0)).get();
    TerrainPainterGLSettings::enableRendering(false);
    for (const unsigned units : {0U, s_unitsWithStencil}) {
        EngineGL::setMaxTextureUnitsLimit(units);
        const auto image = picture({draped});
        EXPECT_GT(differingPixels(image, blank()), int(s_size * s_size / 10));
        EXPECT_EQ(0, differingPixels(picture({}), blank()));
    }
}

/// A canvas need not have a stencil buffer; then planes cut, however few units there are.
TEST_F(DrapedTerrainGLTest, NoStencilBufferIsNeeded) {
    const SO<NBX::Attribute> draped = terrain->createTerrainTexturedTriangles(ring(2.0)).get();
    const SO<NBX::Attribute> decal = effect(ColoredPatchesEffect::Decal);
    TerrainPainterGLSettings::enableRendering(false);
    EngineGL::setMaxTextureUnitsLimit(s_unitsWithStencil);
    const auto expected = picture({decal, draped});
    canvas->releaseContext();
    const SO<NBX::PBufferCanvasGL> plain(
        new NBX::PBufferCanvasGL(s_size, s_size, NBX::GLCanvas::COLOR_BUFFER | NBX::GLCanvas::DEPTH_BUFFER));
    ASSERT_TRUE(plain->isCreated());
    plain->append(root.get());
    plain->redisplay();
    EXPECT_LE(differingPixels(expected, plain->snapshot(), 2), s_borderPixels);
    plain->remove(root.get());
    ASSERT_TRUE(canvas->makeContextCurrent());
}

/// Real ground, with undefined places in it, and a lake that is not there.
TEST_F(DrapedTerrainGLTest, ALakeLiesOnRealGround) {
    const ZMT::RASTER::GeoRaster raster = ZMT::RASTER::RasterWarp::toMetric(
        ZMT::RASTER::RasterFile(ZMT_DATA_DIR "/../tests/data/everest_heights.tif").read());
    grid = new ZMT::CORE::GridData(raster.raster.get());
    testing::internal::CaptureStderr();
    terrain = new Terrain(grid.get(), ZMT::CORE::CreateGeometryTree::create(grid.get(), 1000).get());
    testing::internal::GetCapturedStderr();
    ZMT::CORE::GeoTransformation::setNBXOrigin(grid->origin());
    const Bounds box = terrain->boundingBox();
    const Point size = box.diagonal();
    std::vector<std::vector<Point>> shore(1);
    for (const auto & [u, v] : std::vector<std::pair<double, double>>{
             {0.2, 0.3}, {0.5, 0.15}, {0.7, 0.3}, {0.6, 0.5}, {0.8, 0.8}, {0.45, 0.6}, {0.25, 0.7}})
        shore[0].push_back(box.point(u, 0.0, v) + grid->origin());
    const SO<PolygonSet> lake = ZMT::CORE::AreaDraping::drape(*terrain, shore, 60.0, 30.0);
    ASSERT_TRUE(lake);
    const SO<NBX::Attribute> draped = terrain->createTerrainTexturedTriangles(lake).get();
    const SO<NBX::Attribute> decal = effect(ColoredPatchesEffect::Decal);

    // The finest ground, so that it is where the lake is.
    TerrainPainterGLSettings::setGeometryError(1e-3);
    const Point center = box.center();
    camera =
        new NBX::Camera(new NBX::LookAt(center + Point(0, size.x, 0), center, {0, 0, 1}),
                        new NBX::Ortho(-size.x / 2, size.x / 2, -size.x / 2, size.x / 2, 10, 3 * size.x));
    const auto ground = picture({decal});
    EXPECT_LE(differingPixels(ground, picture({decal, draped}), 2), s_borderPixels) << "seen from above";

    TerrainPainterGLSettings::enableRendering(false);
    camera = new NBX::Camera(new NBX::LookAt(center + Point(0, 0.6 * size.x, -size.z), center),
                             new NBX::Perspective(45.0, 100.0, 1e5));
    const auto clipped = picture({decal, draped});
    EXPECT_GT(differingPixels(clipped, blank()), int(s_size * s_size / 20));
    EngineGL::setMaxTextureUnitsLimit(s_unitsWithStencil);
    EXPECT_LE(differingPixels(clipped, picture({decal, draped}), 2), s_borderPixels);
}

} // namespace
