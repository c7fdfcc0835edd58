#include "lodtexturerequest.h"

#include <cmath>

#include <nbx/scene/view/viewinfo.h>

namespace ZMT::CORE {

namespace {

/// In doubles, since sizes from files may be of any magnitude; exact as far as pixels can be counted.
double neededPixels(double length, double pixelSize, unsigned granularity) {
    const double tile = std::max(granularity, 1U);
    return (std::floor(std::floor(length / pixelSize + 0.5) / tile) + 2.0) * tile;
}

} // namespace

NBX::Bounds LODTextureRequest::overlap(const NBX::Bounds & texture, const NBX::Bounds & patch) {
    const NBX::Bounds shared = texture.intersection(patch);
    if (!shared.isDefined()) return shared;
    const Point size = shared.diagonal();
    return size.x * size.z > 0.0 ? shared : NBX::Bounds();
}

unsigned LODTextureRequest::chooseLevel(const Levels & levels, const NBX::Bounds & box) {
    const Point size = box.diagonal();
    for (unsigned i = 0; box.isDefined() && i < levels.size(); ++i) {
        const LODTextureLevel & level = levels[i];
        const double needed = std::max(neededPixels(size.x, level.pixelSizeX, level.granularityX),
                                       neededPixels(size.z, level.pixelSizeY, level.granularityY));
        if (needed <= s_maxTextureSize) return i;
    }
    return static_cast<unsigned>(levels.size() - 1);
}

double LODTextureRequest::screenTexelSize(const LODTextureLevel & level, const NBX::ViewInfo & viewInfo,
                                          const Point & eye) {
    const Point a(level.pixelSizeX * 0.5, 0.0, 0.0), b(0.0, 0.0, level.pixelSizeY * 0.5);
    return std::sqrt(
        std::max(viewInfo.screenDistance2(eye - a, eye + a), viewInfo.screenDistance2(eye - b, eye + b)));
}

bool LODTextureRequest::refine(const Levels & levels, const NBX::Bounds & box, const NBX::ViewInfo & viewInfo,
                               const Point & eye, double textureError) {
    const unsigned level = chooseLevel(levels, box);
    return level > 0 && screenTexelSize(levels[level], viewInfo, eye) > textureError;
}

unsigned LODTextureRequest::textureSize(std::uint64_t pixels) {
    const std::uint64_t size = std::clamp<std::uint64_t>(pixels, 1, s_maxTextureSize);
    return static_cast<unsigned>(std::bit_ceil(size));
}

} // namespace ZMT::CORE
