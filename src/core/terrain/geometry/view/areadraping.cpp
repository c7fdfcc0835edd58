#include <zmt/core/terrain/geometry/view/areadraping.h>

#include <cmath>

#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/geometry/view/terrain.h>

namespace ZMT::CORE {

NBX::SO<NBX::PolygonSet> AreaDraping::drape(const Terrain & terrain, const std::vector<Ring> & rings,
                                            double spacing, double lift) {
    using Point = PolygonTriangulation::Point;
    return PolygonTriangulation::triangulateFinely(rings, spacing, [&](Point & p) {
        if (terrain.hasUndefinedHeight(p, false)) return false;
        p.y = terrain.calculateHeight(p, false) + lift;
        return std::isfinite(p.y);
    });
}

} // namespace ZMT::CORE
