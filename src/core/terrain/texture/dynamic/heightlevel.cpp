#include <zmt/core/terrain/texture/dynamic/heightlevel.h>

#include <cmath>

namespace ZMT::CORE {

namespace {

/// Where the highest point comes to lie. The view volume is cut at 1000 above and below, and begins to be
/// seen the later the closer the ground is to the upper cut.
constexpr double s_top = 1000.0;
/// Rasters mostly have heights of whole units; none of them shall be 0.
constexpr double s_fraction = 1.0 / 3.0;

} // namespace

HeightLevel::HeightLevel(const NBX::Bounds & terrain) {
    if (!terrain.isDefined()) return;
    const double low = terrain.getLLF().y, high = terrain.getURB().y;
    if (!std::isfinite(low) || !std::isfinite(high) || high - low > mostRange) return;
    fits_ = true;
    level_ = std::ceil(high) - s_top + s_fraction;
}

} // namespace ZMT::CORE
