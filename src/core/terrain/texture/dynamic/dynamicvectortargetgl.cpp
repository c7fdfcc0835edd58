#include "dynamicvectortargetgl.h"

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/tf.h>

#include "core/terrain/texture/vector/appendednodes.h"
#include "core/terrain/texture/vector/vectortexturecanvasgl.h"
#include "core/terrain/texture/vector/vectortextureimagegl.h"
#include "trapezoidfit.h"

namespace ZMT::CORE {

namespace {

using Matrix = NBX::Matrix4x4Base<double>;

/// All depths round to one, so that the later thing lies over the earlier one, and yet the matrix has an
/// inverse.
constexpr double s_depthOfHeight = 1e-15;

/// x, height and z to x, z and a depth.
constexpr Matrix inPlan({1, 0, 0, 0, 0, 0, 1, 0, 0, s_depthOfHeight, 0, 0, 0, 0, 0, 1});

} // namespace

DynamicVectorTargetGL::DynamicVectorTargetGL(unsigned size, NBX::GLCanvas * shared)
    : canvas_(VectorTextureCanvasGL::newCanvas(size, shared)), background_(new NBX::BackgroundGL),
      camera_(NBX::Camera::newNormalizedDeviceCoordsCamera(-1.0, 1.0, -1.0, 1.0, -1.0, 1.0)) {}

bool DynamicVectorTargetGL::draw(NBX::EngineGL * engine, const Matrix & fit, NBX::Shape * raster,
                                 NBX::SceneNode * scene) {
    const VectorTextureScopeGL scope(engine, canvas_);
    if (!scope.canvas()) return false;
    NBX::SO<NBX::SceneThing> root(new NBX::SceneThing);
    root->append(background_.get());
    root->append(camera_.get());
    if (raster) root->append(raster);
    // The terrain's scaling stands outside of it.
    const Matrix unscaled = canvas_->engine()->modelMatrix().inverse();
    root->append(new NBX::Tf(unscaled * TrapezoidFit::squareToClip() * fit * inPlan));
    if (scene) root->append(scene);
    {
        const AppendedNodes appended(*canvas_);
        canvas_->append(root.get());
        texture_ = VectorTextureImageGL::redraw(*canvas_, GL_RGBA, texture_);
    }
    if (!texture_) return false;
    texture_->setWrap(NBX::TextureGL::WM_ClampToEdge);
    texture_->setBorderColor(NBX::Color(1.0F, 1.0F, 1.0F, 0.0F));
    texture_->setMatrix(fit);
    return true;
}

} // namespace ZMT::CORE
