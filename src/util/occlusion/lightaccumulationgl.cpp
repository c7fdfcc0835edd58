// Two passes for each direction. The first draws the depths of the casters, moved back a little, so that what
// is lit does not shade itself. The second draws the receiver where its texels are, adds the light to what is
// there, and lets the shadow map decide, texel by texel.

#include "lightaccumulationgl.h"

#include <array>

#include <GL/glew.h>

#include <nbx/engine/engine.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/program/uniformvariable.h>
#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/gl/state/polygonmodegl.h>
#include <nbx/gl/state/polygonoffsetgl.h>
#include <nbx/gl/texture/texture2dgl.h>
#include <nbx/object/progress.h>
#include <nbx/scene/attribute/linestyle.h>
#include <nbx/scene/view/viewport.h>

#include "ambientocclusionshaders.h"
#include "lightcamera.h"
#include "lighttargetsgl.h"

namespace ZMT::UTIL {

namespace {

using NBX::AttributeScope;
using NBX::SO;
using Matrix = LitSceneGL::Matrix;
using Vector = LightList::Vector;

/// Passes that are added in 16-bit floats before they go to a sum of 32 bits. Of more of them each loses a
/// part, up to standstill; where they are cut instead of rounded, as by Mesa's software renderer, 256 lose 4
/// %.
constexpr unsigned s_partialPasses = 16;

class CameraScope {
public:
    CameraScope(NBX::EngineGL & engine, const Matrix & view, const Matrix & projection) : engine_(engine) {
        engine_.pushCamera(view, projection);
    }
    ~CameraScope() { engine_.popCamera(); }
    CameraScope(const CameraScope &) = delete;
    CameraScope & operator=(const CameraScope &) = delete;

private:
    NBX::EngineGL & engine_;
};

/// A value for a variable of a program, while it lives.
template <class T> class VariableScope {
public:
    VariableScope(NBX::GL2::ProgramObject & program, const std::string & name, const T & value)
        : program_(program), variable_(new NBX::GL2::UniformVariable<T>(name, value)) {
        program_.attach(SO<NBX::GL2::BaseUniformVariable>(variable_));
    }
    ~VariableScope() { program_.detach(variable_.get()); }
    VariableScope(const VariableScope &) = delete;
    VariableScope & operator=(const VariableScope &) = delete;

    void set(const T & value) { variable_->setValue(value); }

private:
    NBX::GL2::ProgramObject & program_;
    SO<NBX::GL2::UniformVariable<T>> variable_;
};

/// The variables of the programs that light is drawn with.
class LightVariables {
public:
    LightVariables(NBX::GL2::ProgramObject & program, unsigned size)
        : mvp0_(program, "mvp0", {}), mvp1_(program, "mvp1", {}), mvp2_(program, "mvp2", {}),
          mvp3_(program, "mvp3", {}), mvit0_(program, "mvit0", {}), mvit1_(program, "mvit1", {}),
          mvit2_(program, "mvit2", {}), intensity_(program, "intensityPerLightDir", {}),
          texelDelta_(program, "texelDelta", 1.0F / static_cast<float>(size)) {}

    /// `fromReceiver`: from the coordinates that the program has to those of the scene.
    void set(const LightCamera & camera, const Matrix & fromReceiver, const Vector & color) {
        const Matrix view = camera.view() * fromReceiver, whole = camera.projection() * view;
        mvp0_.set(row(whole, 0));
        mvp1_.set(row(whole, 1));
        mvp2_.set(row(whole, 2));
        mvp3_.set(row(whole, 3));
        // The view only turns, so that it is its own inverse transpose; the cube has z the other way round.
        mvit0_.set({view(0, 0), view(0, 1), view(0, 2)});
        mvit1_.set({view(1, 0), view(1, 1), view(1, 2)});
        mvit2_.set({-view(2, 0), -view(2, 1), -view(2, 2)});
        intensity_.set(color);
    }

private:
    using Row = std::array<float, 4>;

    static Row row(const Matrix & m, unsigned i) {
        return {static_cast<float>(m(i, 0)), static_cast<float>(m(i, 1)), static_cast<float>(m(i, 2)),
                static_cast<float>(m(i, 3))};
    }

    VariableScope<Row> mvp0_, mvp1_, mvp2_, mvp3_;
    VariableScope<Vector> mvit0_, mvit1_, mvit2_, intensity_;
    VariableScope<float> texelDelta_;
};

SO<NBX::Viewport> newViewport(unsigned size) {
    return new NBX::Viewport(NBX::Area(0, 0, size, size));
}

void drawDepths(LightTargetsGL & targets, const LitSceneGL & scene, const LightCamera & camera) {
    static const SO<NBX::PolygonOffsetGL> offset(
        new NBX::PolygonOffsetGL(NBX::PolygonOffsetGL::F_Filled, 1.0, 1.0));
    static const SO<NBX::ColorBufferGL> lock(NBX::ColorBufferGL::newLock(false, false, false, false));
    NBX::EngineGL * engine = targets.engine();
    targets.beginDepth();
    {
        const AttributeScope viewport(engine, newViewport(targets.shadowSize()).get());
        const CameraScope view(*engine, camera.view(), camera.projection());
        const AttributeScope offsetScope(engine, offset.get()), lockScope(engine, lock.get());
        if (scene.casters) engine->evaluate(scene.casters.get());
    }
    targets.endDepth();
}

void bindShadowMap(NBX::EngineGL * engine, const NBX::Texture2DGL & map) {
    glActiveTexture(GL_TEXTURE0);
    map.bind(engine);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_COMPARE_MODE, GL_COMPARE_R_TO_TEXTURE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_COMPARE_FUNC, GL_LEQUAL);
    glTexParameteri(GL_TEXTURE_2D, GL_DEPTH_TEXTURE_MODE, GL_LUMINANCE);
    // The offset reaches for the texel that is hit, but not for its neighbours.
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
}

void addLight(LightTargetsGL & targets, const LitSceneGL & scene) {
    static const SO<NBX::DepthBufferGL> noDepth(new NBX::DepthBufferGL(false, false));
    static const SO<NBX::ColorBufferGL> adding(NBX::ColorBufferGL::newBlending(true, GL_ONE, GL_ONE));
    NBX::EngineGL * engine = targets.engine();
    targets.beginLight();
    {
        const AttributeScope viewport(engine, newViewport(targets.size()).get());
        const CameraScope view(*engine, scene.receiverView, scene.receiverProjection);
        const AttributeScope depthScope(engine, noDepth.get()), addingScope(engine, adding.get()),
            program(engine, scene.program.get());
        bindShadowMap(engine, targets.shadowMap());
        // Vertices without normals are told by this.
        glNormal3f(0.0F, 0.0F, 0.0F);
        engine->evaluate(scene.receiver.get());
        glNormal3f(0.0F, 0.0F, 1.0F);
        glBindTexture(GL_TEXTURE_2D, 0);
    }
    targets.endLight();
}

/// The triangles of the atlas, and around them their outlines, three texels wide.
void drawBorder(NBX::EngineGL & engine, NBX::GL2::ProgramObject & program, const NBX::Texture2DGL & texture,
                NBX::SceneNode & border) {
    static const SO<NBX::DepthBufferGL> noDepth(new NBX::DepthBufferGL(false, false));
    static const SO<NBX::PolygonModeGL> lines(new NBX::PolygonModeGL(NBX::PolygonModeGL::M_Line));
    static const SO<NBX::LineStyle> width(new NBX::LineStyle(3.0));
    const AttributeScope depthScope(&engine, noDepth.get()), programScope(&engine, &program);
    glActiveTexture(GL_TEXTURE0);
    texture.bind(&engine);
    engine.evaluate(&border);
    {
        const AttributeScope linesScope(&engine, lines.get()), widthScope(&engine, width.get());
        engine.evaluate(&border);
    }
    glBindTexture(GL_TEXTURE_2D, 0);
}

} // namespace

void clearLightGL() {
    glClearColor(0.0F, 0.0F, 0.0F, 0.0F);
    glClear(GL_COLOR_BUFFER_BIT);
}

void drawWholeTargetGL(NBX::EngineGL & engine, NBX::GL2::ProgramObject & program,
                       const NBX::Texture2DGL & texture) {
    static const SO<NBX::DepthBufferGL> noDepth(new NBX::DepthBufferGL(false, false));
    const AttributeScope depthScope(&engine, noDepth.get()), programScope(&engine, &program);
    glActiveTexture(GL_TEXTURE0);
    texture.bind(&engine);
    glBegin(GL_TRIANGLE_STRIP);
    for (const auto & [s, t] : {std::pair(0.0F, 0.0F), {1.0F, 0.0F}, {0.0F, 1.0F}, {1.0F, 1.0F}}) {
        glTexCoord2f(s, t);
        glVertex2f(s, t);
    }
    glEnd();
    glBindTexture(GL_TEXTURE_2D, 0);
}

bool accumulateLightGL(LightTargetsGL & targets, const LitSceneGL & scene, const LightList & lights,
                       NBX::Progress * progress) {
    LightVariables variables(*scene.program, targets.shadowSize());
    const Matrix fromReceiver = scene.receiverView.inverse();
    const auto count = static_cast<unsigned>(lights.directions.size());
    const bool usesPartialSums = count > s_partialPasses;
    for (unsigned i = 0; i < count; ++i) {
        if (progress && !progress->update(progress->currentValue() + 1.0)) return false;
        if (lights.directions[i].length2() > 0.0) {
            const LightCamera camera(scene.lit, scene.casting, lights.directions[i]);
            drawDepths(targets, scene, camera);
            variables.set(camera, fromReceiver, lights.colors[i]);
            addLight(targets, scene);
        }
        if (usesPartialSums && ((i + 1) % s_partialPasses == 0 || i + 1 == count)) {
            const AttributeScope viewport(targets.engine(), newViewport(targets.size()).get());
            targets.addPartialSum();
        }
    }
    return true;
}

void closeLightGL(LightTargetsGL & targets, const LitSceneGL & scene, int borderWidth) {
    NBX::EngineGL & engine = *targets.engine();
    const AttributeScope viewport(&engine, newViewport(targets.size()).get());
    const SO<NBX::GL2::ProgramObject> program = AmbientOcclusionShaders::getTriangleBorderProgram();
    const VariableScope<float> screenSize(*program, "screenSize", static_cast<float>(targets.size()));
    for (int pass = 0; pass < borderWidth; ++pass) {
        const SO<NBX::Texture2DGL> before = targets.light();
        targets.draw([&] {
            if (pass == 0 && scene.border)
                drawBorder(engine, *program, *before, *scene.border);
            else
                drawWholeTargetGL(engine, *program, *before);
        });
    }
}

} // namespace ZMT::UTIL
