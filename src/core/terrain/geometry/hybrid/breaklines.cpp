#include <zmt/core/terrain/geometry/hybrid/breaklines.h>

#include "core/terrain/geometry/regular/griddomain.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace ZMT::CORE {

namespace {

using Point = NBX::Vector3Base<double>;
using RASTER::VectorLine;

bool isPlace(const Point & p) {
    return std::isfinite(p.x) && std::isfinite(p.z);
}

class FeatureCollector {
public:
    explicit FeatureCollector(const GridData & grid);

    void add(const VectorLine & line);
    BreakLines::Features take() { return std::move(features_); }

private:
    void addEdge(const Point & a, const Point & b);
    void drape(const Point & a, const Point & b);
    void addCrossings(double a, double b, double origin, double cellSize);

    const GridData & grid_;
    RASTER::GeoExtent extent_;
    std::vector<double> crossings_; ///< from 0 to 1 along an edge
    BreakLines::Features features_;
};

FeatureCollector::FeatureCollector(const GridData & grid) : grid_(grid) {
    const NBX::Bounds place = placeOf(grid);
    extent_ = {place.getLLF().x, place.getLLF().z, place.getURB().x, place.getURB().z};
}

void FeatureCollector::add(const VectorLine & line) {
    for (std::size_t i = 1; i < line.points.size(); ++i) {
        const Point &a = line.points[i - 1], &b = line.points[i];
        const auto part = isPlace(a) && isPlace(b) ? VectorLine::clip(extent_, a, b) : std::nullopt;
        if (!part) continue;
        // The upper borders do not belong to a grid, and the rounding of a clipped point must not bring it
        // outside.
        const auto pointAt = [&](double t) {
            const Point p = t == 0.0 ? a : t == 1.0 ? b : a + (b - a) * t;
            return Point(std::clamp(p.x, extent_.minX, std::nextafter(extent_.maxX, extent_.minX)), p.y,
                         std::clamp(p.z, extent_.minY, std::nextafter(extent_.maxY, extent_.minY)));
        };
        const Point from = pointAt(part->first), to = pointAt(part->second);
        if (from.x == to.x && from.z == to.z) continue;
        if (line.hasHeights)
            addEdge(from, to);
        else
            drape(from, to);
    }
}

void FeatureCollector::addEdge(const Point & a, const Point & b) {
    if (std::isfinite(a.y) && std::isfinite(b.y)) features_.push_back({a, b});
}

void FeatureCollector::drape(const Point & a, const Point & b) {
    const Point origin = grid_.origin(), scale = grid_.scale();
    crossings_ = {0.0, 1.0};
    addCrossings(a.x, b.x, origin.x, scale.x);
    addCrossings(a.z, b.z, origin.z, scale.z);
    std::sort(crossings_.begin(), crossings_.end());
    const auto onGround = [&](double t) {
        Point p = t == 1.0 ? b : a + (b - a) * t;
        p.y = grid_.calculateHeight(p);
        if (grid_.isUndefinedHeightValue(p.y)) p.y = std::numeric_limits<double>::quiet_NaN();
        return p;
    };
    Point last = onGround(0.0);
    for (std::size_t i = 1; i < crossings_.size(); ++i) {
        if (crossings_[i] == crossings_[i - 1]) continue;
        const Point next = onGround(crossings_[i]);
        addEdge(last, next);
        last = next;
    }
}

void FeatureCollector::addCrossings(double a, double b, double origin, double cellSize) {
    const double low = std::floor((std::min(a, b) - origin) / cellSize) + 1.0;
    const double high = std::ceil((std::max(a, b) - origin) / cellSize) - 1.0;
    for (double line = low; line <= high; line += 1.0)
        crossings_.push_back(std::clamp((origin + line * cellSize - a) / (b - a), 0.0, 1.0));
}

} // namespace

BreakLines::Features BreakLines::toFeatures(const GridData & grid, const std::vector<VectorLine> & lines) {
    if (grid.sizeX() < 2 || grid.sizeY() < 2) return {};
    FeatureCollector collector(grid);
    for (const VectorLine & line : lines)
        collector.add(line);
    return collector.take();
}

} // namespace ZMT::CORE
