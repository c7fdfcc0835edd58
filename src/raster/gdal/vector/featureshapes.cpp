// Lines are cut segment by segment; rings as I. E. Sutherland and G. W. Hodgman describe it, Reentrant
// Polygon Clipping, CACM 17, 1974: at one side of the rectangle after the other. What is drawn by the
// even-odd rule keeps its inside that way; parts of a ring that fall apart stay joined along the border.
// Shapes are simplified after D. H. Douglas and T. K. Peucker, Algorithms for the Reduction of the Number of
// Points Required to Represent a Digitized Line or its Caricature, 1973, by distances from segments, not from
// lines, and in stretches of a bounded number of positions, as its time grows with the square in bad cases.

#include "featureshapes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <span>
#include <utility>

#include <zmt/raster/vector/vectorline.h>

namespace ZMT::RASTER {

namespace {

using Position = FeatureShapes::Position;
using Kind = FeatureShapes::Kind;
using Positions = std::span<const Position>;

Positions pathOf(const FeatureShapes & shapes, std::size_t path) {
    return Positions(shapes.positions)
        .subspan(shapes.begin(path), shapes.paths[path].end - shapes.begin(path));
}

void append(FeatureShapes & result, Positions positions) {
    result.positions.insert(result.positions.end(), positions.begin(), positions.end());
}

void cutLine(Positions line, const GeoExtent & extent, FeatureShapes & result) {
    bool isOpen = false;
    for (std::size_t i = 1; i < line.size(); ++i) {
        const Position &a = line[i - 1], &b = line[i];
        const auto part = VectorLine::clip(extent, a, b);
        if (isOpen && !part) {
            result.close(Kind::Line);
            isOpen = false;
        }
        if (!part) continue;
        const auto [from, to] = *part;
        if (!isOpen) result.positions.push_back(from > 0.0 ? a + (b - a) * from : a);
        result.positions.push_back(to < 1.0 ? a + (b - a) * to : b);
        isOpen = to >= 1.0;
        if (!isOpen) result.close(Kind::Line);
    }
    if (isOpen) result.close(Kind::Line);
}

/// One side of a rectangle, of which the inside is where `sign * coordinate <= sign * limit`.
struct Side {
    unsigned axis;
    double sign, limit;

    double inside(const Position & p) const { return sign * (limit - p[axis]); }
};

void cutAtSide(const std::vector<Position> & ring, const Side & side, std::vector<Position> & result) {
    result.clear();
    for (std::size_t i = 0; i < ring.size(); ++i) {
        const Position &a = ring[i == 0 ? ring.size() - 1 : i - 1], &b = ring[i];
        const double insideA = side.inside(a), insideB = side.inside(b);
        if ((insideA >= 0.0) != (insideB >= 0.0)) {
            Position crossing = a + (b - a) * (insideA / (insideA - insideB));
            crossing[side.axis] = side.limit;
            result.push_back(crossing);
        }
        if (insideB >= 0.0) result.push_back(b);
    }
}

/// False for what has no inside, as it lies on one line across or upwards.
bool hasBreadth(const std::vector<Position> & ring) {
    if (ring.size() < 3) return false;
    const GeoExtent box = boxAround(ring.data(), ring.data() + ring.size());
    return box.minX < box.maxX && box.minY < box.maxY;
}

void cutRing(Positions positions, Kind kind, const GeoExtent & extent, FeatureShapes & result) {
    thread_local std::vector<Position> ring, next;
    ring.assign(positions.begin(), positions.end());
    for (const Side & side : {Side{0, 1.0, extent.maxX}, Side{0, -1.0, extent.minX},
                              Side{2, 1.0, extent.maxY}, Side{2, -1.0, extent.minY}}) {
        if (!std::isfinite(side.limit)) continue;
        cutAtSide(ring, side, next);
        ring.swap(next);
    }
    if (hasBreadth(ring)) append(result, ring);
    result.close(kind);
}

double square(double value) {
    return value * value;
}

/// On the map.
class Segment {
public:
    Segment(const Position & a, const Position & b)
        : aX_(a.x), aY_(a.z), x_(b.x - a.x), y_(b.z - a.z), length2_(x_ * x_ + y_ * y_) {}

    /// The square of it.
    double distance2(const Position & p) const {
        const double along = length2_ > 0.0 ? ((p.x - aX_) * x_ + (p.z - aY_) * y_) / length2_ : 0.0;
        const double t = std::clamp(along, 0.0, 1.0);
        return square(p.x - (aX_ + t * x_)) + square(p.z - (aY_ + t * y_));
    }

private:
    double aX_, aY_, x_, y_, length2_;
};

/// The position between `from` and `to` that is farthest from the segment between them.
std::pair<std::size_t, double> farthest(Positions line, std::size_t from, std::size_t to) {
    std::pair<std::size_t, double> found(from, -1.0);
    const Segment segment(line[from], line[to]);
    for (std::size_t i = from + 1; i < to; ++i)
        if (const double far = segment.distance2(line[i]); far > found.second) found = {i, far};
    return found;
}

/// Lists of one thread that keep their memory.
struct Scratch {
    std::vector<Position> turned;
    std::vector<std::size_t> ends;
};

/// Appends the positions that are needed, the first one included and the last one not.
void reduce(Positions line, double tolerance, std::vector<std::size_t> & ends,
            std::vector<Position> & result) {
    constexpr std::size_t stretch = 1024;
    for (std::size_t begin = 0; begin + 1 < line.size(); begin += stretch) {
        std::size_t from = begin;
        ends.assign(1, std::min(begin + stretch, line.size() - 1));
        while (!ends.empty()) {
            const auto [middle, far] = farthest(line, from, ends.back());
            if (far > tolerance * tolerance) {
                ends.push_back(middle);
            } else {
                result.push_back(line[from]);
                from = ends.back();
                ends.pop_back();
            }
        }
    }
}

bool isSmaller(const GeoExtent & box, double tolerance) {
    return box.maxX - box.minX < tolerance && box.maxY - box.minY < tolerance;
}

void simplifyRing(Positions ring, Kind kind, double tolerance, Scratch & scratch, FeatureShapes & result) {
    std::vector<Position> & turned = scratch.turned;
    const bool isVanishing = isSmaller(boxAround(ring.data(), ring.data() + ring.size()), tolerance);
    if (ring.size() > 3 && !isVanishing) {
        const auto away2 = [&](const Position & p) {
            return square(p.x - ring[0].x) + square(p.z - ring[0].z);
        };
        std::size_t middle = 0;
        double most = 0.0;
        for (std::size_t i = 1; i < ring.size(); ++i)
            if (const double far = away2(ring[i]); far > most) {
                middle = i;
                most = far;
            }
        turned.assign(ring.begin(), ring.end());
        turned.push_back(ring[0]);
        const std::size_t first = result.positions.size();
        reduce(Positions(turned).first(middle + 1), tolerance, scratch.ends, result.positions);
        reduce(Positions(turned).subspan(middle), tolerance, scratch.ends, result.positions);
        if (result.positions.size() - first == 2) {
            // Narrower than the tolerance, and long: a triangle with the place that is farthest out.
            const auto before = farthest(turned, 0, middle), behind = farthest(turned, middle, ring.size());
            result.positions.push_back(turned[before.second > behind.second ? before.first : behind.first]);
        }
    } else if (!isVanishing) {
        append(result, ring);
    }
    result.close(kind);
}

} // namespace

void FeatureShapes::clear() {
    positions.clear();
    paths.clear();
    hasOutline_ = false;
}

bool FeatureShapes::close(Kind kind) {
    const std::size_t least = kind == Kind::Points ? 1 : kind == Kind::Line ? 2 : 3;
    const bool isLong = positions.size() >= closed() + least;
    if (kind == Kind::Outline) hasOutline_ = isLong;
    if (!isLong || (kind == Kind::Hole && !hasOutline_)) {
        positions.resize(closed());
        return false;
    }
    paths.push_back({static_cast<std::uint32_t>(positions.size()), kind});
    return true;
}

std::optional<GeoExtent> FeatureShapes::box() const {
    if (positions.empty()) return std::nullopt;
    return boxAround(positions.data(), positions.data() + positions.size());
}

void FeatureShapes::copyTo(VectorFeature & feature) const {
    feature.points.clear();
    std::size_t lines = 0, areas = 0;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const Positions path = pathOf(*this, i);
        if (paths[i].kind == Kind::Points) {
            feature.points.insert(feature.points.end(), path.begin(), path.end());
        } else if (paths[i].kind == Kind::Line) {
            if (feature.lines.size() == lines) feature.lines.emplace_back();
            feature.lines[lines++].assign(path.begin(), path.end());
        } else {
            std::size_t rings = 1;
            for (; i + rings < paths.size() && paths[i + rings].kind == Kind::Hole;)
                ++rings;
            if (feature.areas.size() == areas) feature.areas.emplace_back();
            VectorFeature::Area & area = feature.areas[areas++];
            area.resize(rings);
            for (std::size_t k = 0; k < rings; ++k) {
                const Positions ring = pathOf(*this, i + k);
                area[k].assign(ring.begin(), ring.end());
            }
            i += rings - 1;
        }
    }
    feature.lines.resize(lines);
    feature.areas.resize(areas);
}

GeoExtent boxAround(const Position * first, const Position * last) {
    GeoExtent box{first->x, first->z, first->x, first->z};
    for (const Position * p = first; p != last; ++p) {
        box.minX = std::min(box.minX, p->x);
        box.maxX = std::max(box.maxX, p->x);
        box.minY = std::min(box.minY, p->z);
        box.maxY = std::max(box.maxY, p->z);
    }
    return box;
}

void cutShapes(const FeatureShapes & shapes, const GeoExtent & extent, FeatureShapes & result) {
    result.clear();
    for (std::size_t i = 0; i < shapes.paths.size(); ++i) {
        const Positions path = pathOf(shapes, i);
        const Kind kind = shapes.paths[i].kind;
        const GeoExtent box = boxAround(path.data(), path.data() + path.size());
        if (contains(extent, box)) {
            append(result, path);
            result.close(kind);
        } else if (!touches(extent, box)) {
            result.close(kind); // an outline that is left out takes its holes along
        } else if (kind == Kind::Points) {
            std::copy_if(path.begin(), path.end(), std::back_inserter(result.positions),
                         [&](const Position & p) {
                             return contains(extent, {p.x, p.z, p.x, p.z});
                         });
            result.close(kind);
        } else if (kind == Kind::Line) {
            cutLine(path, extent, result);
        } else {
            cutRing(path, kind, extent, result);
        }
    }
}

void simplifyShapes(const FeatureShapes & shapes, double tolerance, FeatureShapes & result) {
    thread_local Scratch scratch;
    result.clear();
    for (std::size_t i = 0; i < shapes.paths.size(); ++i) {
        const Positions path = pathOf(shapes, i);
        const Kind kind = shapes.paths[i].kind;
        if (kind == Kind::Outline || kind == Kind::Hole) {
            simplifyRing(path, kind, tolerance, scratch, result);
            continue;
        }
        if (kind == Kind::Line && path.size() > 2) {
            reduce(path, tolerance, scratch.ends, result.positions);
            result.positions.push_back(path.back());
        } else {
            append(result, path);
        }
        result.close(kind);
    }
}

} // namespace ZMT::RASTER
