// The trapezoid is the camera's projection, above the middle of it: in a transformation it would be a model
// matrix that is not affine, by which neither texts in metres nor culling can work, and coordinates far from
// the origin would lose what single precision has no digits for.

#include "dynamicvectortargetgl.h"

#include <utility>

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>

#include "core/terrain/texture/vector/appendednodes.h"
#include "core/terrain/texture/vector/vectortexturecanvasgl.h"
#include "core/terrain/texture/vector/vectortextureimagegl.h"
#include "trapezoidfit.h"

namespace ZMT::CORE {

namespace {

using Matrix = NBX::Matrix4x4Base<double>;
using Point = NBX::Vector3Base<double>;

/// All depths round to one, so that the later thing lies over the earlier one, and yet the matrix has an
/// inverse.
constexpr double s_depthOfHeight = 1e-15;

/// Of a view straight down.
class TrapezoidProjection : public NBX::Projection {
    NBX_TEMPLATE_CLASS(TrapezoidProjection, NBX::Projection)
public:
    explicit TrapezoidProjection(const Matrix & matrix) : matrix_(matrix) {}
    Matrix matrix(double) const override { return matrix_; }

private:
    Matrix matrix_;
};

/// Sees the plan by `fit`.
NBX::SO<NBX::Camera> newCamera(const Matrix & fit) {
    const Point middle = fit.inverse() * Point(0.5, 0.5, 0.0);
    const NBX::SO<NBX::LookAt> down(
        new NBX::LookAt({middle.x, 0.0, middle.y}, {middle.x, -1.0, middle.y}, {0.0, 0.0, 1.0}));
    const NBX::SO<NBX::Projection> projection(new TrapezoidProjection(
        TrapezoidFit::squareToClip() * fit * Matrix::translation({middle.x, middle.y, 0.0}) *
        Matrix::scaling({1.0, 1.0, -s_depthOfHeight})));
    return new NBX::Camera(down.get(), projection.get());
}

} // namespace

DynamicVectorTargetGL::DynamicVectorTargetGL(unsigned size, NBX::GLCanvas * shared)
    : canvas_(VectorTextureCanvasGL::newCanvas(size, shared)), background_(new NBX::BackgroundGL) {}

bool DynamicVectorTargetGL::draw(NBX::EngineGL * engine, const Matrix & fit, NBX::Shape * raster,
                                 NBX::SceneNode * scene) {
    const NBX::SO<NBX::Texture2DGL> before = std::exchange(texture_, nullptr);
    const VectorTextureScopeGL scope(engine, canvas_);
    if (!scope.canvas()) return false;
    NBX::SO<NBX::SceneThing> root(new NBX::SceneThing);
    root->append(background_.get());
    root->append(newCamera(fit).get());
    if (raster) root->append(raster);
    if (scene) root->append(scene);
    {
        const AppendedNodes appended(*canvas_);
        canvas_->append(root.get());
        texture_ = VectorTextureImageGL::redraw(*canvas_, GL_RGBA, before);
    }
    if (!texture_) return false;
    texture_->setWrap(NBX::TextureGL::WM_ClampToEdge);
    texture_->setBorderColor(NBX::Color(1.0F, 1.0F, 1.0F, 0.0F));
    texture_->setMatrix(fit);
    return true;
}

} // namespace ZMT::CORE
