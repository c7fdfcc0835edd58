#include "dynamiclayer.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

#include "groundlayers.h"
#include "viewpoint.h"

#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/localframe.h>

namespace {

using NBX::SO;
using ZMT::CORE::GeoTransformation;
using ZMT::CORE::LocalFrame;

/// Marks keep their size while the eye comes nearer by less than a twentieth.
constexpr double s_sizeStep = 0.05;
/// Sides of the texture, which has about two texels for a pixel as far as that can be paid.
constexpr unsigned s_leastSize = 512, s_largestSize = 2048;

LocalFrame frame() {
    return LocalFrame(GeoTransformation::nbx2geoOffset());
}

} // namespace

DynamicLayer::DynamicLayer(SO<ZMT::CORE::Terrain> terrain, double exaggeration)
    : terrain_(std::move(terrain)),
      exaggeration_(exaggeration), parts_{Shown(frame()), Shown(frame()), Shown(frame()), Shown(frame())},
      scene_(new NBX::SceneThing) {
    for (const Shown & part : parts_)
        scene_->append(part.features.node().get());
    texture_ = new ZMT::CORE::DynamicVectorTexture(scene_.get());
    effect_ = makeDecal(texture_);
    effect_->setEnableState(false);
}

bool DynamicLayer::isEmpty() const {
    return std::all_of(parts_.begin(), parts_.end(), [](const Shown & part) { return part.isEmpty; });
}

void DynamicLayer::show(Part part, Groups groups, const std::optional<Point> & at) {
    Shown & shown = partOf(part);
    shown.groups = std::move(groups);
    shown.isEmpty = shown.groups.empty();
    if (shown.isEmpty) shown.features.set({}, 1.0);
    shown.at = at;
    shown.drawnSize = 0.0;
    effect_->setEnableState(!isEmpty());
}

void DynamicLayer::show(Part part, const std::vector<Point> & corners, const NBX::Color & color) {
    Shown & shown = partOf(part);
    shown.groups.clear();
    shown.isEmpty = corners.empty();
    shown.features.set(corners, color);
    effect_->setEnableState(!isEmpty());
}

double DynamicLayer::metresPerPixel(const std::optional<Point> & at, const NBX::Camera & camera,
                                    unsigned height) const {
    Point seen = terrain_->boundingBox().center();
    if (at) {
        const double ground = terrain_->calculateHeight(*at, true);
        const bool isKnown = !terrain_->isUndefinedHeightValue(ground);
        seen = GeoTransformation::geo2nbxTf(Point(at->x, isKnown ? ground : at->y, at->z));
    }
    seen.y *= exaggeration_;
    const double distance = (seen - camera.rayThrough(0.0, 0.0, 1, 1).getOrigin()).length();
    return std::max(distance, 1.0) * 2.0 * std::tan(s_fieldOfView * M_PI / 360.0) / height;
}

void DynamicLayer::prepare(const NBX::Camera & camera, unsigned height) {
    const unsigned size = std::bit_ceil(std::clamp(2 * height, s_leastSize, s_largestSize));
    if (size != texture_->getTextureSize()) texture_->setTextureSize(size);
    for (Shown & part : parts_) {
        if (part.groups.empty()) continue;
        const double size = metresPerPixel(part.at, camera, height);
        if (std::abs(std::log(size / part.drawnSize)) < s_sizeStep) continue;
        part.drawnSize = size;
        part.features.set(part.groups, size);
    }
}
