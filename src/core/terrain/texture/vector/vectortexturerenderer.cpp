// A texture is a picture of the scene from straight above, by a parallel projection of the patch's box and a
// margin around it, in which lines that end at the border of the patch are still whole.

#include "vectortexturerenderer.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>

#include "appendednodes.h"
#include "vectorsamplesgl.h"
#include "vectortexturecanvasgl.h"
#include "vectortextureimagegl.h"
#include "vectortexturetables.h"

namespace ZMT::CORE {

namespace {

using Matrix = NBX::Matrix4x4Base<double>;
using Point = NBX::Vector3Base<double>;

constexpr double s_margin = 16.0; ///< in pixels
constexpr double s_eyeHeight = 10000.0, s_near = 1.0, s_far = 20000.0;
constexpr double s_redisplayDelay = 0.05;
constexpr double s_oblong = 1.5; ///< texels that are more so are sampled several times

unsigned long s_count = 0;

/// Looks at a box from above; east is at the right, north at the top.
NBX::SO<NBX::SceneThing> newView(const NBX::Bounds & box) {
    const Point center = box.center(), half = box.diagonal() * 0.5;
    const NBX::SO<NBX::LookAt> eye(new NBX::LookAt(Point(center.x, s_eyeHeight, center.z),
                                                   Point(center.x, 0.0, center.z), Point(0.0, 0.0, 1.0)));
    const NBX::SO<NBX::Ortho> projection(new NBX::Ortho(-half.x, half.x, -half.z, half.z, s_near, s_far));
    const NBX::SO<NBX::Camera> camera(new NBX::Camera(eye.get(), projection.get(), NBX::Camera::S_Global));
    NBX::SO<NBX::SceneThing> view(new NBX::SceneThing);
    view->append(camera.get());
    return view;
}

/// Of texels, the longer side by the shorter one. The card chooses the level for the shorter one, and without
/// several samples along the longer one those texels are blurred: the tiles at the border of a streaming
/// terrain may be a tenth as wide as they are long.
double oblongness(const NBX::Bounds & box) {
    const Point size = box.diagonal();
    return std::max(size.x / size.z, size.z / size.x);
}

Matrix textureMatrix(const NBX::Bounds & box) {
    const Point size = box.diagonal(), low = box.getLLF();
    return Matrix::scaling({1.0 / size.x, 1.0 / size.z, 1.0}) * Matrix::translation({-low.x, -low.z, 0.0});
}

} // namespace

NBX::Bounds VectorTextureRenderer::widened(const NBX::Bounds & bbox) {
    const double share = s_margin / VectorTextureTables::instance().canvasSize;
    const Point margin(bbox.diagonal().x * share, 0.0, bbox.diagonal().z * share);
    return {bbox.getLLF() - margin, bbox.getURB() + margin};
}

bool VectorTextureRenderer::isRendering() {
    return VectorTextureScopeGL::isActive();
}

unsigned long VectorTextureRenderer::count() {
    return s_count;
}

void VectorTextureRenderer::releaseCanvas() {
    VectorTextureImageGL::release();
    VectorTextureCanvasGL::release();
}

NBX::SO<NBX::Texture2DGL> VectorTextureRenderer::renderTexture(const VectorTexture & owner,
                                                               NBX::GLCanvas & canvas,
                                                               const NBX::Bounds & bbox) {
    NBX_CHECK(bbox.isDefined(), L"illegal bounding box");
    if (!bbox.isDefined()) return nullptr;
    // Where a context was made there is something to let go.
    static const bool isRegistered = std::atexit(VectorTexture::releaseSharedObjects) == 0;
    static_cast<void>(isRegistered);
    const NBX::Bounds box = widened(bbox);
    if (!(box.diagonal().x > 0.0 && box.diagonal().z > 0.0)) return nullptr;

    NBX::SO<NBX::Texture2DGL> texture;
    {
        const AppendedNodes appended(canvas);
        const VectorSamplesGL samples(canvas, VectorTextureTables::instance().samples);
        owner.render(&canvas, box);
        canvas.append(newView(box).get());
        texture = VectorTextureImageGL::draw(canvas, VectorTextureTables::instance().textureFormat, &samples);
    }
    if (!texture) return nullptr;
    ++s_count;
    texture->setWrap(NBX::TextureGL::WM_ClampToEdge);
    texture->setBorderColor(NBX::Color(1.0F, 1.0F, 1.0F, 0.0F));
    // Others may be seen at an angle as well, but all of the ground would pay for that.
    const double oblong = oblongness(box);
    texture->setAnisotropy(oblong > s_oblong ? oblong : 1.0);
    texture->setMatrix(textureMatrix(box));
    return texture;
}

void VectorTextureRenderer::renderPatch(VectorTexture::Patch & patch, NBX::GLCanvas & canvas) {
    const auto texture = renderTexture(*patch.owner, canvas, patch.boundingBox());
    if (texture) VectorTextureTables::instance().store(&patch, texture);
}

void VectorTextureRenderer::render(VectorTexture::Patch & patch) const {
    const VectorTextureScopeGL scope(engine_, VectorTextureTables::instance().canvasSize);
    if (scope.canvas()) renderPatch(patch, *scope.canvas());
}

void VectorTextureRenderer::renderQueue() const {
    if (VectorTextureTables::instance().queueLength() == 0) return;
    const bool wasFull = VectorTextureTables::instance().isFull();
    const std::vector<NBX::SO<VectorTexture::Patch>> patches = VectorTextureTables::instance().takeQueue();
    // Nobody was told that more would come.
    const bool isUntold = wasFull && !VectorTextureTables::instance().isFull();
    if (isUntold && engine_ && engine_->getCanvas()) engine_->getCanvas()->postForRedisplay(s_redisplayDelay);
    if (patches.empty()) return;
    const VectorTextureScopeGL scope(engine_, VectorTextureTables::instance().canvasSize);
    if (!scope.canvas()) return;
    for (const NBX::SO<VectorTexture::Patch> & patch : patches)
        renderPatch(*patch, *scope.canvas());
}

NBX::SO<NBX::Texture2DGL> VectorTextureRenderer::renderFast(const VectorTexture & fastOwner,
                                                            const NBX::Bounds & fastBBox) const {
    NBX_CHECK(fastBBox.isDefined(), L"internal error");
    if (!fastBBox.isDefined()) return nullptr;
    const VectorTextureScopeGL scope(engine_, VectorTextureTables::instance().canvasSize);
    return scope.canvas() ? renderTexture(fastOwner, *scope.canvas(), fastBBox) : nullptr;
}

} // namespace ZMT::CORE
