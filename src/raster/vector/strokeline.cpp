#include <zmt/raster/vector/strokeline.h>

#include <algorithm>

namespace ZMT::RASTER {

std::vector<StrokeLine> StrokeLine::partsOfOneWidth() const {
    std::vector<StrokeLine> parts;
    for (auto first = points.begin(); first != points.end();) {
        const double width = first->width;
        const auto next =
            std::find_if(first, points.end(), [width](const Point & point) { return point.width != width; });
        StrokeLine part;
        part.points.assign(first, next);
        if (next != points.end()) part.points.push_back({next->x, next->y, width});
        parts.push_back(std::move(part));
        // The last point has no way to go.
        if (next != points.end() && next + 1 == points.end()) break;
        first = next;
    }
    return parts;
}

bool StrokeLine::hasLength() const {
    return std::any_of(points.begin(), points.end(), [this](const Point & point) {
        return point.x != points.front().x || point.y != points.front().y;
    });
}

} // namespace ZMT::RASTER
