// A cell is divided from its low right to its high left corner, as it is drawn. Its triangles are functions
// of the plane, so that a ray is followed by its height above them: over each triangle that is linear, and
// the ray hits where it changes its sign. Neighbouring triangles see the same heights at their common edge,
// so that no ray passes between them; what roundings may do is covered by small overlaps.

#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "tilesurface.h"
#include <nbx/math/isfinite.h>

namespace ZMT::CORE::GRID {

namespace {

using Point = NBX::Vector3Base<double>;

/// Overlap of triangles in the plane, in cells, and how near to a triangle a ray meets it, in quantised
/// units.
constexpr double s_planeMargin = 1e-9, s_heightMargin = 1e-8;
/// Weight of a corner that only roundings give it.
constexpr double s_noWeight = 1e-9;
constexpr double s_highestValue = 65535.0;

/// The heights of a cell's corners, and where its low corner lies, in cells of the tile. 0 stands for none.
struct Cell {
    unsigned x, y;
    double h00, h10, h01, h11;

    Cell(const GridTerrainTileData & data, unsigned column, unsigned row)
        : x(column), y(row), h00(data.value(column, row)), h10(data.value(column + 1, row)),
          h01(data.value(column, row + 1)), h11(data.value(column + 1, row + 1)) {}

    bool hasLowTriangle() const { return h00 != 0.0 && h10 != 0.0 && h01 != 0.0; }
    bool hasHighTriangle() const { return h11 != 0.0 && h10 != 0.0 && h01 != 0.0; }
};

/// Part of a ray over a triangle, in cells of the tile and quantised units.
struct Track {
    Point origin, direction;
    RaySpan span;

    /// Where it meets the plane through `corner` with the slopes `slopeX` and `slopeY`, at or behind the
    /// begin.
    bool meets(const Point & corner, double slopeX, double slopeY, double & t) const {
        if (span.isEmpty()) return false;
        const auto above = [&](double at) {
            const Point p = origin + direction * at;
            return p.z - (corner.z + slopeX * (p.x - corner.x) + slopeY * (p.y - corner.y));
        };
        const double first = above(span.begin), last = above(span.end);
        if (!(std::min(first, last) <= s_heightMargin && std::max(first, last) >= -s_heightMargin))
            return false;
        const double share = first == last ? 0.0 : std::clamp(first / (first - last), 0.0, 1.0);
        t = span.begin + (span.end - span.begin) * share;
        return true;
    }
};

/// Follows a ray over the cells of a tile.
class Walk {
public:
    Walk(const GridTerrainTileData & data, const GridRectangle & part, const GridRay & ray, double limit)
        : data_(data) {
        const double step = data.step(), cells = data.cells() - 1.0;
        const Point corner(data.tileX() * step, data.tileY() * step, 0.0);
        const Point perCell(1.0 / step, 1.0 / step, 1.0);
        const auto scaled = [&](const Point & p) {
            return Point(p.x * perCell.x, p.y * perCell.y, p.z * perCell.z);
        };
        track_.direction = scaled(ray.direction());
        track_.origin = scaled(ray.origin() - corner);
        track_.span.end = limit;
        clip(0, std::max((part.minX - corner.x) / step, 0.0), std::min((part.maxX - corner.x) / step, cells));
        clip(1, std::max((part.minY - corner.y) / step, 0.0), std::min((part.maxY - corner.y) / step, cells));
        clip(2, 1.0, s_highestValue);
        if (track_.span.isEmpty()) return;
        // What lies before is of no use, and may be far away.
        start_ = track_.span.begin;
        track_.origin += track_.direction * start_;
        track_.span = {0.0, track_.span.end - start_};
    }

    bool run(double & t) {
        if (track_.span.isEmpty() || data_.cells() < 2) return false;
        const auto [first, last] = range(1, track_.span);
        const bool backwards = track_.direction.y < 0.0;
        for (unsigned i = 0; i <= last - first; ++i) {
            const unsigned row = backwards ? last - i : first + i;
            RaySpan span = track_.span;
            span.clip(track_.origin.y, track_.direction.y, row - s_planeMargin, row + 1 + s_planeMargin);
            if (span.isEmpty()) continue;
            const auto [left, right] = range(0, span);
            for (unsigned column = left; column <= right; ++column)
                testCell(column, row, span);
        }
        if (!found_) return false;
        t = start_ + track_.span.end;
        return true;
    }

private:
    void clip(unsigned axis, double low, double high) {
        track_.span.clip(track_.origin[axis], track_.direction[axis], low - s_planeMargin,
                         high + s_planeMargin);
    }

    /// The cells that a part of the ray touches along an axis.
    std::pair<unsigned, unsigned> range(unsigned axis, const RaySpan & span) const {
        const double a = track_.origin[axis] + track_.direction[axis] * span.begin;
        const double b = track_.origin[axis] + track_.direction[axis] * span.end;
        const double last = data_.cells() - 2.0;
        const auto cell = [&](double at) { return static_cast<unsigned>(std::clamp(at, 0.0, last)); };
        return {cell(std::min(a, b) - s_planeMargin), cell(std::max(a, b) + s_planeMargin)};
    }

    void testCell(unsigned column, unsigned row, const RaySpan & span) {
        const Cell cell(data_, column, row);
        const bool low = cell.hasLowTriangle(), high = cell.hasHighTriangle();
        if (!low && !high) return;
        Track track{track_.origin, track_.direction, span};
        track.span.clip(track.origin.x, track.direction.x, column - s_planeMargin,
                        column + 1 + s_planeMargin);
        // Along the diagonal the coordinates of the corners add up to one more than at the low corner.
        const double sum = track.origin.x + track.origin.y, along = track.direction.x + track.direction.y;
        const double diagonal = column + row + 1.0;
        double t = 0.0;
        if (low) {
            Track half = track;
            half.span.clip(sum, along, diagonal - 1.0 - 2.0 * s_planeMargin, diagonal + s_planeMargin);
            const Point corner(column, row, cell.h00);
            if (half.meets(corner, cell.h10 - cell.h00, cell.h01 - cell.h00, t)) take(t);
        }
        if (high) {
            Track half = track;
            half.span.clip(sum, along, diagonal - s_planeMargin, diagonal + 1.0 + 2.0 * s_planeMargin);
            const Point corner(column + 1.0, row + 1.0, cell.h11);
            if (half.meets(corner, cell.h11 - cell.h01, cell.h11 - cell.h10, t)) take(t);
        }
    }

    /// Nothing behind the nearest hit counts.
    void take(double t) {
        found_ = true;
        track_.span.end = std::min(track_.span.end, t);
    }

    const GridTerrainTileData & data_;
    Track track_;
    double start_ = 0.0; ///< parameter of the ray where the track begins
    bool found_ = false;
};

} // namespace

NBX_CLASS_IMPL(GridTerrainTileData, NBX::SharedObj)

GridRay::GridRay(const NBX::Ray & ray) {
    const Point & d = ray.getDirection();
    const double largest = std::max({std::abs(d.x), std::abs(d.y), std::abs(d.z)});
    if (!isFinite(ray.getOrigin()) || !isFinite(d) || !(largest > 0.0)) return;
    ray_ = NBX::Ray(ray.getOrigin(), Point(d.x / largest, d.y / largest, d.z / largest));
    isValid_ = true;
}

void RaySpan::clip(double from, double along, double low, double high) {
    if (along == 0.0) {
        if (!(from >= low && from <= high)) end = -std::numeric_limits<double>::infinity();
        return;
    }
    const double a = (low - from) / along, b = (high - from) / along;
    begin = std::max(begin, std::min(a, b));
    end = std::min(end, std::max(a, b));
}

bool findFirstHit(const GridTerrainTileData & data, const GridRectangle & part, const GridRay & ray,
                  double & t) {
    return ray.isValid() && Walk(data, part, ray, t).run(t);
}

bool GridTerrainTileData::calculateRayIntersection(const NBX::Ray & ray, Point & point) const {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const GridRay gridRay(ray);
    double t = infinity;
    if (!findFirstHit(*this, {-infinity, -infinity, infinity, infinity}, gridRay, t)) return false;
    point = gridRay.point(t);
    return true;
}

// A corner without weight is not needed: at a sample and between two of them, others may be undefined.
double GridTerrainTileData::calculateVerticalRayIntersection(double x, double y) const {
    const double distance = step(), last = cells() - 1.0;
    const double u = (x - tileX() * distance) / distance, v = (y - tileY() * distance) / distance;
    if (!(u >= 0.0 && u <= last && v >= 0.0 && v <= last) || cells() < 2) return noHeight;
    const unsigned column = std::min(static_cast<unsigned>(u), cells() - 2);
    const unsigned row = std::min(static_cast<unsigned>(v), cells() - 2);
    const Cell cell(*this, column, row);
    const double s = u - column, t = v - row;
    const bool isLow = s + t <= 1.0;
    const std::array<double, 4> heights{cell.h00, cell.h10, cell.h01, cell.h11};
    const std::array<double, 4> weights{isLow ? 1.0 - s - t : 0.0, isLow ? s : 1.0 - t, isLow ? t : 1.0 - s,
                                        isLow ? 0.0 : s + t - 1.0};
    double height = 0.0;
    for (unsigned i = 0; i < 4; ++i) {
        if (heights[i] == 0.0 && weights[i] > s_noWeight) return noHeight;
        height += weights[i] * heights[i];
    }
    return height;
}

} // namespace ZMT::CORE::GRID
