#include "featurelevels.h"

#include <algorithm>
#include <cmath>

namespace ZMT::RASTER {

namespace {

/// Of the texture that shows all, in pixels.
constexpr double s_widestTexture = 1024.0;
constexpr unsigned s_mostLevels = 12;
/// Windows with fewer positions are read as they are.
constexpr double s_fewPositions = 1U << 18U;
constexpr double s_positionsPerPixel = 4.0;
/// Of the indices of all levels; there are no more of them then.
constexpr std::size_t s_mostBytes = 96U << 20U;

} // namespace

void FeatureLevels::setExtent(const GeoExtent & extent) {
    const double width = std::max(extent.maxX - extent.minX, extent.maxY - extent.minY);
    // Half of the half pixel that a texture allows.
    coarsest_ = std::isfinite(width) ? width / s_widestTexture / 4.0 : 0.0;
}

std::optional<unsigned> FeatureLevels::levelOf(double tolerance) const {
    if (!(coarsest_ > 0.0 && tolerance > 0.0)) return std::nullopt;
    unsigned level = 0;
    while (this->tolerance(level) > tolerance / 2.0 * (1.0 + 1e-9))
        if (++level == s_mostLevels) return std::nullopt;
    return level;
}

double FeatureLevels::tolerance(unsigned level) const {
    return coarsest_ * std::pow(4.0, -static_cast<double>(level));
}

bool FeatureLevels::isWanted(unsigned level) const {
    std::size_t bytes = 0;
    for (const auto & [number, features] : levels_)
        bytes += features->indexBytes();
    return wanted_.contains(level) && !levels_.contains(level) && bytes < s_mostBytes;
}

void FeatureLevels::add(unsigned level, std::unique_ptr<StoredFeatures> features) {
    levels_[level] = std::move(features);
}

StoredFeatures * FeatureLevels::find(unsigned level) const {
    const auto found = levels_.lower_bound(level);
    return found == levels_.end() ? nullptr : found->second.get();
}

void FeatureLevels::note(unsigned level, const GeoExtent & box, double tolerance, std::uint64_t positions) {
    const double pixel = 2.0 * tolerance;
    const double pixels = (box.maxX - box.minX) / pixel * ((box.maxY - box.minY) / pixel);
    if (static_cast<double>(positions) > std::max(s_fewPositions, s_positionsPerPixel * pixels))
        wanted_.insert(level);
}

} // namespace ZMT::RASTER
