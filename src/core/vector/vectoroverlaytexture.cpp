// Features are read when the texture that shows them is drawn, and let go behind it: what a source keeps is
// its own concern. Their places become floats relative to the middle of the texture.

#include <zmt/core/vector/vectoroverlaytexture.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include <nbx/gl/context/glcanvas.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/node/scenething.h>

#include "core/terrain/texture/vector/vectortextureimagegl.h"
#include "drapedlabels.h"
#include "featurescenegl.h"
#include "featureshapes.h"
#include "vectoroverlayreader.h"

namespace ZMT::CORE {

NBX_CLASS_IMPL(VectorOverlayTexture, VectorTexture)

namespace {

using Point = NBX::Vector3Base<double>;
using RASTER::GeoExtent;

constexpr double s_overlayTolerance = 0.5; ///< of shapes, in texels
/// How large the largest texel is drawn, of its size by the style: the smallest one is half as large.
constexpr double s_largestShare = 1.5;

GeoExtent extentOf(const NBX::Bounds & box, double margin) {
    const Point & low = box.getLLF();
    const Point & high = box.getURB();
    return {low.x - margin, low.z - margin, high.x + margin, high.z + margin};
}

/// Of both axes; textures of oblong patches have oblong texels.
double metresPerPixel(const NBX::Bounds & box, unsigned size) {
    return std::sqrt(box.diagonal().x * box.diagonal().z) / size;
}

FeatureShapes::View viewOf(const NBX::Bounds & geoBox, unsigned size, double scale) {
    const Point center = geoBox.center(), half = geoBox.diagonal() * 0.5;
    return {{center.x, center.z}, half.x, half.z, metresPerPixel(geoBox, size), size, scale};
}

void drawOverlay(const VectorOverlay & overlay, const LocalFrame & frame, const NBX::Bounds & box,
                 unsigned size, double scale, FeatureSceneGL & scene) {
    const VectorOverlayReader reader(overlay);
    const NBX::Bounds geoBox = frame.toGeo(box);
    const double pixel = metresPerPixel(box, size) * scale; // of styles
    FeatureShapes shapes(overlay.styleSheet(), overlay.opacity(), viewOf(geoBox, size, scale));
    const double tolerance = s_overlayTolerance * std::min(box.diagonal().x, box.diagonal().z) / size;
    reader.read(extentOf(geoBox, overlay.styleSheet().reach(pixel)), tolerance,
                [&](const RASTER::VectorFeature & feature) {
                    shapes.add(feature);
                    return true;
                });
    const Point center = box.center();
    scene.append(shapes, {center.x, 0.0, center.z});
    VectorOverlay::Counts & counts = reader.counts();
    ++counts.textures;
    counts.features += shapes.features();
    for (const FeatureShapes::Group * group : shapes.groups())
        counts.vertices += group->vertices.size() / 3;
    reader.labels().visit(extentOf(geoBox, 0.0), pixel, [&](const DrapedLabels::Label & label) {
        const Point place = frame.fromGeo({label.x, 0.0, label.z});
        scene.append(DrapedLabels::newText(label, {place.x, 0.0, place.z}, overlay.opacity()).get());
        ++counts.labels;
        return true;
    });
}

} // namespace

VectorOverlayTexture::VectorOverlayTexture(Overlays overlays, const LocalFrame & frame,
                                           const NBX::Bounds & bbox, unsigned maxDepth)
    : VectorTexture(NBX::SO<NBX::SceneNode>(new NBX::SceneThing).get(), bbox, false, false, true, true,
                    maxDepth, 0),
      overlays_(std::move(overlays)), frame_(frame), drawnStateNo_(stateNo()) {}

VectorOverlayTexture::~VectorOverlayTexture() = default;

void VectorOverlayTexture::setOverlays(Overlays overlays) {
    overlays_ = std::move(overlays);
    drawnStateNo_ = stateNo();
    clearCache();
}

void VectorOverlayTexture::setLargestTexel(double pixels) {
    const bool isSize = std::isfinite(pixels) && pixels >= 0.0;
    NBX_CHECK(isSize, L"texels of " << pixels << L" pixels");
    if (!isSize || pixels == largestTexel_) return;
    largestTexel_ = pixels;
    clearCache();
}

double VectorOverlayTexture::allowed(double textureError) const {
    return largestTexel_ > 0.0 ? std::min(textureError, largestTexel_) : textureError;
}

double VectorOverlayTexture::scale() const {
    return largestTexel_ > 0.0 ? s_largestShare / largestTexel_ : 1.0;
}

bool VectorOverlayTexture::refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo,
                                  unsigned viewportWidth, unsigned viewportHeight, const Point & eye,
                                  double textureError, bool inMotion) const {
    return VectorTexture::refine(patch, viewInfo, viewportWidth, viewportHeight, eye, allowed(textureError),
                                 inMotion);
}

std::uint64_t VectorOverlayTexture::stateNo() const {
    std::uint64_t number = 0;
    for (const NBX::SO<VectorOverlay> & overlay : overlays_)
        number = std::max(number, overlay->lastTransactionNo());
    return number;
}

NBX::SO<NBX::TextureGL> VectorOverlayTexture::requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                                          const NBX::ViewInfo * viewInfo,
                                                          unsigned viewportWidth, unsigned viewportHeight,
                                                          double priority, const Point & eye,
                                                          double textureError, bool inMotion,
                                                          bool asynchronous, bool & incomplete) const {
    if (const std::uint64_t number = stateNo(); number != drawnStateNo_) {
        drawnStateNo_ = number;
        const_cast<VectorOverlayTexture *>(this)->clearCache();
    }
    return VectorTexture::requestImpl(patch, engine, viewInfo, viewportWidth, viewportHeight, priority, eye,
                                      allowed(textureError), inMotion, asynchronous, incomplete);
}

bool VectorOverlayTexture::meets(const NBX::Bounds & area, NBX::EngineGL *) const {
    const double pixel = metresPerPixel(area, getBufferSize()) * scale();
    const NBX::Bounds geoArea = frame_.toGeo(area);
    return std::any_of(overlays_.begin(), overlays_.end(), [&](const NBX::SO<VectorOverlay> & overlay) {
        const VectorOverlayReader reader(*overlay);
        if (!reader.isVisible()) return false;
        bool hasLabels = false;
        reader.labels().visit(extentOf(geoArea, 0.0), pixel, [&](const DrapedLabels::Label &) {
            hasLabels = true;
            return false;
        });
        return hasLabels || reader.hasFeatures(extentOf(geoArea, overlay->styleSheet().reach(pixel)));
    });
}

void VectorOverlayTexture::render(NBX::GLCanvas * canvas, const NBX::Bounds & bbox) const {
    NBX_CHECK(canvas, L"no canvas");
    if (!canvas) return;
    FeatureSceneGL scene;
    for (const NBX::SO<VectorOverlay> & overlay : overlays_)
        if (VectorOverlayReader(*overlay).isVisible())
            drawOverlay(*overlay, frame_, bbox, getBufferSize(), scale(), scene);
    canvas->append(scene.scene().get());
}

unsigned VectorOverlayTexture::texturesFor(std::uint64_t bytes, unsigned size, unsigned internalFormat) {
    const std::uint64_t texels = std::max<std::uint64_t>(std::uint64_t(size) * size, 1);
    const std::uint64_t each = texels * VectorTextureImageGL::texelBytes(internalFormat) * 4 / 3;
    return static_cast<unsigned>(
        std::clamp<std::uint64_t>(bytes / each, 1, std::numeric_limits<unsigned>::max()));
}

} // namespace ZMT::CORE
