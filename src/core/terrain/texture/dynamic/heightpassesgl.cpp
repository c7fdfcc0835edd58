// A first trapezoid of fixed heights is filled with 128 by 128 heights; their mesh, seen by the camera with
// what hides what, tells which rows of the trapezoid and which heights are seen. These rows, and a twentieth
// on each side, are stretched over the whole square, which is filled with the heights that are drawn. Then
// one texture takes what lies on the terrain: the effects in force, the bottom one first, patch by patch; the
// light, which multiplies them; and the scene of the caller.
//
// The mesh's matrices begin at a point of the ground in view: single precision would not do for coordinates
// of countries.

#include "heightpassesgl.h"

#include <algorithm>
#include <array>

#include <GL/glew.h>

#include <nbx/container/sequence/array.h>
#include <nbx/engine/engine.h>
#include <nbx/engine/modelmatrixscope.h>
#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/attribute/disableshading.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/texture/dynamic/dynamicvectortexture.h>

#include "core/terrain/frame/terraintexgen.h"
#include "core/terrain/geometry/view/terrainpaintinggl.h"
#include "heightreductiongl.h"
#include "trapezoidfit.h"
#include "trapezoidgridgl.h"
#include "trapezoidpass.h"
#include "trapezoidprogramsgl.h"

namespace ZMT::CORE {

namespace {

using Matrix = HeightPassesGL::Matrix;
using Point = HeightPassesGL::Point;

constexpr double s_slab = 1000.0; ///< up and down
constexpr double s_widening = 1.0 + 0.1;
/// A mesh of which one row is seen has a range as well.
constexpr double s_leastRange = 1e-3;
constexpr unsigned s_textureSize = 2048;

/// x, z and height to x, height and z, and back.
constexpr Matrix exchanged({1, 0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1});

/// What is drawn stands in the cube from -1 to 1 as it is.
class CubeScope {
public:
    explicit CubeScope(NBX::Engine & engine) : engine_(engine) {
        engine_.pushCamera(engine_.modelMatrix().inverse(), Matrix());
    }
    ~CubeScope() { engine_.popCamera(); }
    CubeScope(const CubeScope &) = delete;
    CubeScope & operator=(const CubeScope &) = delete;

private:
    NBX::Engine & engine_;
};

/// The state of OpenGL and the program as they are found.
class StateGuard {
public:
    StateGuard() : program_(glGetHandleARB(GL_PROGRAM_OBJECT_ARB)) { glPushAttrib(GL_ALL_ATTRIB_BITS); }
    ~StateGuard() {
        glPopAttrib();
        glUseProgramObjectARB(program_);
    }
    StateGuard(const StateGuard &) = delete;
    StateGuard & operator=(const StateGuard &) = delete;

private:
    const GLhandleARB program_;
};

/// Nothing in force that keeps a fragment out of a target, or changes it.
class PassState {
public:
    explicit PassState(NBX::EngineGL & engine)
        : depth_(&engine, NBX::SO<NBX::Attribute>(new NBX::DepthBufferGL(false, false)).get()),
          color_(&engine, NBX::SO<NBX::Attribute>(new NBX::ColorBufferGL(NBX::ColorBufferGL::O_All)).get()),
          shading_(&engine, NBX::SO<NBX::Attribute>(new NBX::DisableShading).get()) {
        guard_ = std::make_unique<StateGuard>();
        for (const GLenum state :
             {GL_SCISSOR_TEST, GL_STENCIL_TEST, GL_CULL_FACE, GL_POLYGON_OFFSET_FILL, GL_CLIP_PLANE0,
              GL_CLIP_PLANE1, GL_CLIP_PLANE2, GL_CLIP_PLANE3, GL_CLIP_PLANE4, GL_CLIP_PLANE5, GL_FOG})
            glDisable(state);
        glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
        for (unsigned unit = engine.maxTextureUnits(); unit-- > 0;) {
            glActiveTexture(GL_TEXTURE0 + unit);
            for (const GLenum state :
                 {GL_TEXTURE_2D, GL_TEXTURE_GEN_S, GL_TEXTURE_GEN_T, GL_TEXTURE_GEN_R, GL_TEXTURE_GEN_Q})
                glDisable(state);
        }
        NBX::GL2::ProgramObject::useNone();
    }
    PassState(const PassState &) = delete;
    PassState & operator=(const PassState &) = delete;

private:
    NBX::AttributeScope depth_, color_, shading_;
    std::unique_ptr<StateGuard> guard_;
};

/// Corners of a box in plan, at height 0.
NBX::SO<NBX::PolygonSet> newQuad(const NBX::Bounds & box) {
    const Point & low = box.getLLF();
    const Point & high = box.getURB();
    return new NBX::PolygonSet(
        NBX::PolygonSet::PT_Quads,
        new NBX::Array<Point>(std::vector<Point>{Point(low.x, 0.0, low.z), Point(high.x, 0.0, low.z),
                                                 Point(high.x, 0.0, high.z), Point(low.x, 0.0, high.z)}));
}

/// With the part of the picture that is drawn, where that is not the whole one.
Matrix projectionOfGL() {
    std::array<GLdouble, 16> columns{};
    glGetDoublev(GL_PROJECTION_MATRIX, columns.data());
    return Matrix(columns).transposed();
}

void setMesh(TrapezoidProgramGL & program, const Matrix & fit, const Matrix & mvp) {
    const Matrix inverse = fit.inverse();
    const Point center = inverse * Point(0.5, 0.0, 0.0);
    const Point inPlan(center.x, center.y, 0.0);
    program.set("invTrapMat", Matrix::translation(-inPlan) * inverse);
    program.set("mvpMat", mvp * Matrix::translation(inPlan));
}

NBX::SO<NBX::SceneThing> newGraph(const NBX::SO<NBX::Tf> & tf,
                                  const NBX::SO<NBX::GL2::ProgramObject> & program) {
    NBX::SO<NBX::SceneThing> graph(new NBX::SceneThing);
    graph->append(tf.get());
    graph->append(program.get());
    return graph;
}

} // namespace

/// What belongs to one context.
struct HeightPassesGL::Card {
    Card(NBX::EngineGL * engine, unsigned drawnSize)
        : measured(engine, DynamicHeightTextureRendering::measuringSize), drawn(engine, drawnSize),
          seen(engine, DynamicHeightTextureRendering::measuringSize),
          reduction(engine, DynamicHeightTextureRendering::measuringSize),
          texture(new NBX::RenderTextureGL(engine, s_textureSize, s_textureSize, GL_UNSIGNED_BYTE, GL_RGBA,
                                           true)),
          textureTarget(new NBX::FrameBufferObjectGL(engine, s_textureSize, s_textureSize)) {
        texture->attachTo(textureTarget.get());
    }
    bool isUsable() const {
        return measured.isUsable() && drawn.isUsable() && seen.isUsable() && textureTarget->isComplete();
    }

    TrapezoidGridGL measured, drawn;
    FloatTargetGL seen; ///< the mesh as the camera sees it
    HeightReductionGL reduction;
    NBX::SO<NBX::RenderTextureGL> texture;
    NBX::SO<NBX::FrameBufferObjectGL> textureTarget;
};

/// What all passes of one picture need.
struct HeightPassesGL::Pass {
    NBX::EngineGL & engine;
    const Settings & settings;
    TerrainPaintingGL & painting;
    Matrix mvp; ///< from x, z and height to the cube of the whole picture

    void set(TrapezoidPass & pass, const Matrix & trapMat) const {
        pass.trapMat = trapMat;
        pass.view = painting.viewInfo();
        pass.viewportWidth = painting.viewportWidth();
        pass.viewportHeight = painting.viewportHeight();
        pass.engine = &engine;
        pass.terrain = settings.terrain;
        pass.textureError = painting.textureError();
        pass.inMotion = painting.isInMotion();
        pass.asynchronous = painting.isAsynchronous();
    }
    /// Draws a graph into the trapezoid.
    void draw(NBX::SceneThing & graph, NBX::Tf & tf, const Matrix & trapMat) const {
        TrapezoidPass pass;
        set(pass, trapMat);
        const TrapezoidProgramsGL::TrapMatScope scope(trapMat);
        tf.setMatrix(trapMat);
        graph.evaluate(&engine);
        if (pass.isIncomplete) painting.setIncomplete();
    }
};

HeightPassesGL::HeightPassesGL(unsigned drawnSize)
    : drawnSize_(drawnSize), heightTf_(new NBX::Tf), textureTf_(new NBX::Tf) {
    heightGraph_ = newGraph(heightTf_, TrapezoidProgramsGL::height().program());
    textureGraph_ = newGraph(textureTf_, TrapezoidProgramsGL::vectors().program());
}

HeightPassesGL::~HeightPassesGL() = default;

bool HeightPassesGL::isSupported(const NBX::EngineGL & engine) {
    return engine.isVersion(3, 0) && NBX::FrameBufferObjectGL::isSupported();
}

bool HeightPassesGL::prepare(NBX::EngineGL & engine) {
    if (!card_ || engine_.lock() != &engine) {
        card_ = std::make_unique<Card>(&engine, drawnSize_);
        engine_ = &engine;
    }
    return card_->isUsable();
}

bool HeightPassesGL::render(NBX::EngineGL & engine, const Settings & settings) {
    if (!prepare(engine)) return false;
    TerrainPaintingGL painting(&engine);
    painting.paintFrame([&] { paint(engine, settings, painting); });
    painting.postForRedisplay();
    return true;
}

void HeightPassesGL::paint(NBX::EngineGL & engine, const Settings & settings, TerrainPaintingGL & painting) {
    const NBX::ModelMatrixScope level(&engine, Matrix::translation({0.0, settings.level, 0.0}));
    const Pass pass{engine, settings, painting,
                    engine.projectionMatrix() * engine.modelViewMatrix() * exchanged};
    Matrix fit =
        DynamicVectorTexture::calculateTrapezoidProjection(NBX::SO<NBX::EngineGL>(&engine), -s_slab, s_slab);
    {
        const PassState state(engine);
        const CubeScope cube(engine);
        fill(card_->measured, fit, pass);
        measure(fit, pass);
        if (!statistics_.seesGround()) return;
        fit = stretched(fit);
        fill(card_->drawn, fit, pass);
        drawTexture(fit, pass);
    }
    drawMesh(fit, pass);
}

void HeightPassesGL::fill(TrapezoidGridGL & grid, const Matrix & fit, const Pass & pass) {
    grid.fill(&pass.engine, [&] {
        pass.draw(*heightGraph_, *heightTf_, grid.toPixelMiddles() * TrapezoidFit::squareToClip() * fit);
    });
}

void HeightPassesGL::measure(const Matrix & fit, const Pass & pass) {
    TrapezoidProgramGL & mesh = TrapezoidProgramsGL::mesh();
    const auto heights = card_->reduction.reduce(&pass.engine, TrapezoidProgramsGL::heightStatistics(),
                                                 *card_->measured.texture());
    setMesh(mesh, fit, pass.mvp);
    card_->seen.drawInto(&pass.engine, [&] {
        glPushAttrib(GL_DEPTH_BUFFER_BIT);
        glEnable(GL_DEPTH_TEST);
        glDepthMask(GL_TRUE);
        if (mesh.use()) card_->measured.draw(&pass.engine);
        glPopAttrib();
    });
    const auto used =
        card_->reduction.reduce(&pass.engine, TrapezoidProgramsGL::usedRange(), *card_->seen.texture());
    NBX::GL2::ProgramObject::useNone();
    statistics_ = {heights.x, heights.y, heights.z, used.x, used.y, used.z, used.w};
}

Matrix HeightPassesGL::stretched(const Matrix & fit) const {
    const double range = std::max<double>(statistics_.far - statistics_.near, s_leastRange) * s_widening;
    const double low = (double(statistics_.near) + statistics_.far - range) / 2.0;
    return Matrix::scaling({1.0, 1.0 / range, 1.0}) * Matrix::translation({0.0, -low, 0.0}) * fit;
}

void HeightPassesGL::drawTexture(const Matrix & fit, const Pass & pass) {
    const Matrix trapMat = TrapezoidFit::squareToClip() * fit;
    const NBX::FrameBufferObjectGL::Scope scope(&pass.engine, *card_->textureTarget);
    glClearColor(1.0F, 1.0F, 1.0F, 1.0F);
    glClear(GL_COLOR_BUFFER_BIT);
    if (pass.painting.hasEffects()) {
        const NBX::ModelMatrixScope trapezoid(&pass.engine, trapMat * exchanged);
        const NBX::AttributeScope texGen(&pass.engine, terrainTexGen().get());
        patches_.walk(
            pass.settings.terrain, *pass.painting.viewInfo(),
            [&](const GeometryPatch & patch, const Point & eye) {
                return pass.painting.wantsDetail(patch, eye);
            },
            [&](const GeometryPatch & patch, const Point & eye) { drawEffects(patch, eye, pass); });
    }
    drawLight(fit, pass);
    {
        const NBX::AttributeScope blending(
            &pass.engine, NBX::SO<NBX::Attribute>(
                              NBX::ColorBufferGL::newBlending(true, GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA))
                              .get());
        pass.draw(*textureGraph_, *textureTf_, trapMat);
    }
    card_->texture->texture()->contentChanged();
}

void HeightPassesGL::drawEffects(const GeometryPatch & patch, const Point & eye, const Pass & pass) {
    const NBX::Bounds box = patch.boundingBox();
    NBX::SO<NBX::SceneThing> thing(new NBX::SceneThing);
    pass.painting.appendEffects(*thing, patch, 1.0, eye);
    TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches() += box;
    if (thing->objects() == 0) return;
    thing->append(newQuad(box).get());
    const NBX::AttributeScope white(
        &pass.engine, NBX::SO<NBX::Attribute>(new NBX::ColorAttribute(NBX::Color::white)).get());
    thing->evaluate(&pass.engine);
}

void HeightPassesGL::drawLight(const Matrix & fit, const Pass & pass) const {
    const Point direction = pass.settings.lightDirection.normalized();
    if (direction == Point()) return;
    const auto size = static_cast<float>(card_->drawn.size());
    TrapezoidProgramGL & lighting = TrapezoidProgramsGL::lighting();
    const Matrix inverse = fit.inverse();
    const Point center = inverse * Point(0.5, 0.0, 0.0);
    lighting.set("invTrapMat", Matrix::translation({-center.x, -center.y, 0.0}) * inverse);
    lighting.set("lightDir", direction);
    lighting.set("textureDimension", std::array{size, size});
    if (!lighting.use()) return;
    glPushAttrib(GL_COLOR_BUFFER_BIT);
    glEnable(GL_BLEND);
    glBlendFunc(GL_DST_COLOR, GL_ZERO);
    card_->drawn.texture()->bind(&pass.engine);
    glRecti(-1, -1, 1, 1);
    glPopAttrib();
    NBX::GL2::ProgramObject::useNone();
}

void HeightPassesGL::drawMesh(const Matrix & fit, const Pass & pass) const {
    const StateGuard guard;
    TrapezoidProgramGL & program =
        pass.settings.showsPattern ? TrapezoidProgramsGL::meshPattern() : TrapezoidProgramsGL::meshTextured();
    setMesh(program, fit, projectionOfGL() * pass.engine.modelViewMatrix() * exchanged);
    if (!program.use()) return;
    glDisable(GL_CULL_FACE);
    glActiveTexture(GL_TEXTURE0);
    card_->texture->texture()->bind(&pass.engine);
    card_->drawn.draw(&pass.engine);
}

} // namespace ZMT::CORE
