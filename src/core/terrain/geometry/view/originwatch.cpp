#include "originwatch.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include <nbx/object/errorhandler.h>
#include <nbx/object/wo.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>
#include <zmt/core/terrain/geometry/view/terrain.h>

namespace ZMT::CORE {

namespace {

/// A cell that fills a picture of this many pixels is displaced by less than one of them.
constexpr double stepsInCell = 1000.0;
/// A terrain this many times its size away from the origin is elsewhere.
constexpr double sizesAway = 4.0;

double farthest(const NBX::Bounds & box) {
    const auto low = box.getLLF(), high = box.getURB();
    return std::max({std::abs(low.x), std::abs(low.z), std::abs(high.x), std::abs(high.z)});
}

double floatStep(double value) {
    const auto f = static_cast<float>(value);
    return std::nextafter(f, std::numeric_limits<float>::infinity()) - f;
}

bool isSpoiled(const NBX::Bounds & box, double cell) {
    if (!box.isDefined() || !(cell > 0.0)) return false;
    const auto size = box.diagonal();
    const double distance = farthest(box);
    return distance > sizesAway * std::hypot(size.x, size.z) && floatStep(distance) * stepsInCell > cell;
}

/// Whether the terrain is here for the first time.
bool isNew(const Terrain & terrain) {
    static std::vector<NBX::WO<const Terrain>> seen;
    std::erase_if(seen, [](const auto & other) { return !other; });
    if (std::any_of(seen.begin(), seen.end(),
                    [&](const auto & other) { return other.lock().get() == &terrain; }))
        return false;
    seen.emplace_back(&terrain);
    return true;
}

} // namespace

void OriginWatch::check(const Terrain & terrain) {
    if (!isNew(terrain) || !terrain.data()) return;
    const NBX::Bounds box = terrain.boundingBox();
    const auto [cellX, cellZ] = terrain.getCellSize();
    const double cell = std::min(cellX, cellZ);
    if (!isSpoiled(box, cell)) return;
    NBX_FAILURE(L"the scene's origin is missing: the terrain lies at coordinates up to "
                << farthest(box) << L", where single precision has steps of " << floatStep(farthest(box))
                << L" for cells of " << cell
                << L"; call GeoTransformation::setNBXOrigin with the origin of the terrain first");
}

} // namespace ZMT::CORE
