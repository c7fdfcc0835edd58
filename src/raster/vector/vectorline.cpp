#include <zmt/raster/vector/vectorline.h>

#include <algorithm>

namespace ZMT::RASTER {

std::optional<std::pair<double, double>> VectorLine::clip(const GeoExtent & extent, const Point & a,
                                                          const Point & b) {
    const double way[] = {a.x - b.x, b.x - a.x, a.z - b.z, b.z - a.z};
    const double room[] = {a.x - extent.minX, extent.maxX - a.x, a.z - extent.minY, extent.maxY - a.z};
    double from = 0.0, to = 1.0;
    for (unsigned side = 0; side < 4; ++side) {
        if (way[side] < 0.0) {
            from = std::max(from, room[side] / way[side]);
        } else if (way[side] > 0.0) {
            to = std::min(to, room[side] / way[side]);
        } else if (!(way[side] == 0.0 && room[side] >= 0.0)) {
            return std::nullopt;
        }
    }
    if (from > to) return std::nullopt;
    return std::pair(from, to);
}

} // namespace ZMT::RASTER
