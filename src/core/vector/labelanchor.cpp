// The place in an area is its pole of inaccessibility: V. Agafonkin, "A new algorithm for finding a visual
// center of a polygon", 2016. Squares that cover the area are kept in the order of the largest distance from
// the border that any place in them may have; the first one is divided into four, until it promises little
// more than the best middle so far. We begin with a place that lies inside for sure, the middle of the widest
// stretch of a row, so that the number of squares may be bounded: slivers and ragged areas of many vertices
// would need any number of them. Areas are brought to the size 1 about their first vertex, since the
// differences that count vanish far from the origin.

#include <zmt/core/vector/labelanchor.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <queue>
#include <utility>
#include <vector>

namespace ZMT::CORE {

namespace {

using RASTER::VectorFeature;
using Position = LabelAnchor::Position;

struct Place {
    double x, z;
};
using UnitRing = std::vector<Place>;

/// An area at the size 1.
struct UnitArea {
    std::vector<UnitRing> rings; ///< the outline first
    Place low{0.0, 0.0}, high{0.0, 0.0};
    Position origin;   ///< of the map
    double unit = 0.0; ///< on the map; 0 for an area that has no size, or one beyond all numbers
};

double sizeOf(const VectorFeature::Line & outline) {
    double size = 0.0;
    for (const Position & p : outline)
        size = std::max({size, std::abs(p.x - outline.front().x), std::abs(p.z - outline.front().z)});
    return size;
}

UnitArea unitArea(const VectorFeature::Area & area) {
    UnitArea result;
    if (area.empty() || area.front().size() < 3) return result;
    result.origin = area.front().front();
    const double size = sizeOf(area.front());
    if (!std::isfinite(size) || size == 0.0) return result;
    result.unit = size;
    result.rings.reserve(area.size());
    for (const VectorFeature::Line & line : area) {
        UnitRing ring;
        ring.reserve(line.size());
        for (const Position & p : line)
            ring.push_back({(p.x - result.origin.x) / size, (p.z - result.origin.z) / size});
        result.rings.push_back(std::move(ring));
    }
    for (const Place & p : result.rings.front()) {
        result.low = {std::min(result.low.x, p.x), std::min(result.low.z, p.z)};
        result.high = {std::max(result.high.x, p.x), std::max(result.high.z, p.z)};
    }
    return result;
}

double roomOf(const UnitRing & ring) {
    double twice = 0.0;
    for (std::size_t i = 0, before = ring.size() - 1; i < ring.size(); before = i++)
        twice += ring[before].x * ring[i].z - ring[i].x * ring[before].z;
    return std::abs(twice) * 0.5;
}

/// In units of the area, without holes. What rounding leaves of a line is no room.
double roomOf(const UnitArea & area) {
    double room = 0.0;
    for (std::size_t i = 0; i < area.rings.size(); ++i)
        if (!area.rings[i].empty()) room += (i == 0 ? 1.0 : -1.0) * roomOf(area.rings[i]);
    return room > 1e-12 ? room : 0.0;
}

double squaredDistance(const Place & p, const Place & a, const Place & b) {
    const double x = b.x - a.x, z = b.z - a.z, length2 = x * x + z * z;
    double part = length2 > 0.0 ? ((p.x - a.x) * x + (p.z - a.z) * z) / length2 : 0.0;
    part = std::clamp(part, 0.0, 1.0);
    const double dx = a.x + part * x - p.x, dz = a.z + part * z - p.z;
    return dx * dx + dz * dz;
}

/// From the nearest border, above 0 inside.
double distanceInside(const UnitArea & area, const Place & p) {
    bool isInside = false;
    double nearest2 = HUGE_VAL;
    for (const UnitRing & ring : area.rings)
        for (std::size_t i = 0, before = ring.size() - 1; i < ring.size(); before = i++) {
            const Place &a = ring[i], &b = ring[before];
            if ((a.z > p.z) != (b.z > p.z) && p.x < (b.x - a.x) * (p.z - a.z) / (b.z - a.z) + a.x)
                isInside = !isInside;
            nearest2 = std::min(nearest2, squaredDistance(p, a, b));
        }
    return std::sqrt(nearest2) * (isInside ? 1.0 : -1.0);
}

struct Inside {
    Place place;
    double distance;
};

/// The middle of the widest stretch of the area in the row `z`.
Inside widestInRow(const UnitArea & area, double z) {
    std::vector<double> crossings;
    for (const UnitRing & ring : area.rings)
        for (std::size_t i = 0, before = ring.size() - 1; i < ring.size(); before = i++) {
            const Place &a = ring[i], &b = ring[before];
            if ((a.z > z) != (b.z > z)) crossings.push_back((b.x - a.x) * (z - a.z) / (b.z - a.z) + a.x);
        }
    std::sort(crossings.begin(), crossings.end());
    double widest = -1.0;
    Place place{area.low.x, z};
    for (std::size_t i = 1; i < crossings.size(); i += 2)
        if (crossings[i] - crossings[i - 1] > widest) {
            widest = crossings[i] - crossings[i - 1];
            place.x = std::midpoint(crossings[i], crossings[i - 1]);
        }
    return {place, distanceInside(area, place)};
}

/// Some place inside, if there is one in a few rows.
Inside firstInside(const UnitArea & area) {
    Inside best{{0.0, 0.0}, -HUGE_VAL};
    for (const double part : {0.5, 0.31, 0.69, 0.13, 0.87}) {
        const Inside found = widestInRow(area, std::lerp(area.low.z, area.high.z, part));
        if (found.distance > best.distance) best = found;
        if (part == 0.5 && best.distance > 0.0) break;
    }
    return best;
}

struct Square {
    Place middle;
    double half;
    double distance; ///< of the middle from the border
    double promise;  ///< how far from the border a place in it may be

    Square(const UnitArea & area, const Place & middle, double half)
        : middle(middle), half(half), distance(distanceInside(area, middle)),
          promise(distance + half * std::numbers::sqrt2) {}
    bool operator<(const Square & other) const { return promise < other.promise; }
};

/// So many squares are looked at, each of which goes through all vertices.
std::size_t mostSquares(const UnitArea & area) {
    std::size_t vertices = 1;
    for (const UnitRing & ring : area.rings)
        vertices += ring.size();
    return std::clamp<std::size_t>(2'000'000 / vertices, 100, 4'000);
}

Inside poleOfInaccessibility(const UnitArea & area) {
    constexpr double precision = 0.01;
    Inside best = firstInside(area);
    std::priority_queue<Square> squares;
    std::size_t left = mostSquares(area);
    const auto look = [&](const Place & middle, double half) {
        const Square square(area, middle, half);
        if (square.distance > best.distance) best = {middle, square.distance};
        squares.push(square);
        left -= std::min<std::size_t>(left, 1);
    };
    const double width = area.high.x - area.low.x, height = area.high.z - area.low.z;
    const double side = std::max(std::min(width, height), std::max(width, height) / 16.0);
    for (double x = area.low.x + side * 0.5; x < area.high.x + side * 0.5; x += side)
        for (double z = area.low.z + side * 0.5; z < area.high.z + side * 0.5; z += side)
            look({x, z}, side * 0.5);
    while (left > 0 && !squares.empty()) {
        const Square square = squares.top();
        if (square.promise <= best.distance + precision * std::abs(best.distance)) break;
        squares.pop();
        const double half = square.half * 0.5;
        for (const auto & [x, z] : {std::pair(-half, -half), {half, -half}, {-half, half}, {half, half}})
            look({square.middle.x + x, square.middle.z + z}, half);
    }
    return best;
}

std::optional<LabelAnchor> inLargestArea(const VectorFeature & feature) {
    UnitArea largest;
    double extent = 0.0;
    for (const VectorFeature::Area & area : feature.areas) {
        UnitArea unit = unitArea(area);
        const double found = unit.unit > 0.0 ? std::sqrt(roomOf(unit)) * unit.unit : 0.0;
        if (!(found > extent)) continue;
        extent = found;
        largest = std::move(unit);
    }
    if (!(extent > 0.0)) return {};
    const Inside pole = poleOfInaccessibility(largest);
    if (!(pole.distance > 0.0)) return {};
    return LabelAnchor{{largest.origin.x + pole.place.x * largest.unit, largest.origin.y,
                        largest.origin.z + pole.place.z * largest.unit},
                       extent};
}

double lengthOf(const Position & a, const Position & b) {
    return std::hypot(b.x - a.x, b.z - a.z);
}

double lengthOf(const VectorFeature::Line & line, bool isClosed) {
    double length = 0.0;
    for (std::size_t i = 1; i < line.size(); ++i)
        length += lengthOf(line[i - 1], line[i]);
    return isClosed && !line.empty() ? length + lengthOf(line.back(), line.front()) : length;
}

/// Of a line that begins with the length `length`.
Position halfWay(const VectorFeature::Line & line, double length) {
    double left = length * 0.5;
    for (std::size_t i = 1; i < line.size(); ++i) {
        const double step = lengthOf(line[i - 1], line[i]);
        if (step > 0.0 && left <= step) {
            const double part = left / step;
            return line[i - 1] * (1.0 - part) + line[i] * part;
        }
        left -= step;
    }
    return line.back();
}

std::optional<LabelAnchor> onLongestLine(const VectorFeature & feature) {
    const VectorFeature::Line * longest = nullptr;
    double length = 0.0;
    const auto look = [&](const VectorFeature::Line & line, bool isClosed) {
        const double found = lengthOf(line, isClosed);
        if (!line.empty() && std::isfinite(found) && (!longest || found > length)) {
            longest = &line;
            length = found;
        }
    };
    for (const VectorFeature::Line & line : feature.lines)
        look(line, false);
    if (!longest)
        for (const VectorFeature::Area & area : feature.areas)
            if (!area.empty()) look(area.front(), true);
    if (!longest) return {};
    return LabelAnchor{halfWay(*longest, length), length};
}

} // namespace

std::optional<LabelAnchor> LabelAnchor::of(const VectorFeature & feature) {
    if (const auto anchor = inLargestArea(feature)) return anchor;
    if (const auto anchor = onLongestLine(feature)) return anchor;
    if (feature.points.empty()) return {};
    return LabelAnchor{feature.points.front(), 0.0};
}

} // namespace ZMT::CORE
