// The picture is taken as the affine map that it is close to the place: two pairs of rays beside it tell how
// ground moves with the pixel. Distances are taken between offsets in pixels.

#include <zmt/core/vector/featurepicking.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include <nbx/scene/view/camera.h>

namespace ZMT::CORE {

namespace {

using Position = NBX::Vector3Base<double>;
using Pixels = PixelFootprint::Pixels;
using RASTER::VectorFeature;

constexpr double s_infinite = std::numeric_limits<double>::infinity();
constexpr double s_step = 0.5; ///< from the place to each ray, in pixels
/// How many times longer than wide the ground of a pixel may be; beyond, it is seen edge on.
constexpr double s_flattest = 1e5;
constexpr double s_growth = 4.0; ///< of the box that is searched for a whole feature

/// Where a ray meets level ground; none where it does not.
std::optional<Position> onGround(const NBX::Ray & ray, double ground) {
    const double distance = (ground - ray.getOrigin().y) / ray.getDirection().y;
    if (!std::isfinite(distance) || distance <= 0.0) return {};
    return ray.point(distance);
}

double length(const Pixels & p) {
    return std::hypot(p.columns, p.rows);
}

/// From offset 0.
double toSegment(const Pixels & a, const Pixels & b) {
    const double dx = b.columns - a.columns, dy = b.rows - a.rows, square = dx * dx + dy * dy;
    const double along = square > 0.0 ? -(a.columns * dx + a.rows * dy) / square : 0.0;
    const double share = std::clamp(along, 0.0, 1.0);
    return length({a.columns + share * dx, a.rows + share * dy});
}

/// Whether the edge is met on the way to the right from offset 0.
bool crosses(const Pixels & a, const Pixels & b) {
    if ((a.rows > 0.0) == (b.rows > 0.0)) return false;
    return a.columns + (b.columns - a.columns) * (a.rows / (a.rows - b.rows)) > 0.0;
}

int rankOf(const VectorFeature & feature) {
    if (!feature.points.empty()) return 0;
    return feature.lines.empty() ? 2 : 1;
}

/// How far it reaches from a place, to the east, the west, the north or the south.
double reachOf(const VectorFeature & feature, const Position & place) {
    double reach = 0.0;
    const auto take = [&](const VectorFeature::Line & positions) {
        for (const Position & p : positions)
            reach = std::max({reach, std::abs(p.x - place.x), std::abs(p.z - place.z)});
    };
    take(feature.points);
    for (const VectorFeature::Line & line : feature.lines)
        take(line);
    for (const VectorFeature::Area & area : feature.areas)
        for (const VectorFeature::Line & ring : area)
            take(ring);
    return reach;
}

} // namespace

PixelFootprint::PixelFootprint(double columnsPerX, double rowsPerX, double columnsPerZ, double rowsPerZ)
    : xx_(columnsPerX), xz_(columnsPerZ), zx_(rowsPerX), zz_(rowsPerZ) {}

std::optional<PixelFootprint> PixelFootprint::at(const NBX::Camera & camera, double x, double y,
                                                 unsigned width, unsigned height, double ground) {
    const auto groundAt = [&](double right, double up) {
        return onGround(camera.rayThrough(x + right, y + up, width, height), ground);
    };
    const auto west = groundAt(-s_step, 0.0), east = groundAt(s_step, 0.0);
    const auto south = groundAt(0.0, -s_step), north = groundAt(0.0, s_step);
    if (!west || !east || !south || !north) return {};
    const Position column = *east - *west, row = *north - *south;
    const double area = column.x * row.z - column.z * row.x;
    const double longest = std::max(std::hypot(column.x, column.z), std::hypot(row.x, row.z));
    if (!std::isfinite(area) || std::abs(area) * s_flattest <= longest * longest) return {};
    return PixelFootprint(row.z / area, -column.z / area, -row.x / area, column.x / area);
}

Position PixelFootprint::reach(double pixels) const {
    const double area = std::abs(xx_ * zz_ - xz_ * zx_);
    return {pixels * std::hypot(zz_, xz_) / area, 0.0, pixels * std::hypot(zx_, xx_) / area};
}

RASTER::GeoExtent FeatureDistance::box(double pixels) const {
    const Position half = footprint_.reach(pixels);
    return {place_.x - half.x, place_.z - half.z, place_.x + half.x, place_.z + half.z};
}

Pixels FeatureDistance::offset(const Position & p) const {
    return footprint_.toPixels(p.x - place_.x, p.z - place_.z);
}

double FeatureDistance::toLine(const VectorFeature::Line & line, bool isClosed) const {
    double nearest = s_infinite;
    for (std::size_t i = isClosed ? 0 : 1; i < line.size(); ++i)
        nearest =
            std::min(nearest, toSegment(offset(line[i > 0 ? i - 1 : line.size() - 1]), offset(line[i])));
    return nearest;
}

double FeatureDistance::toArea(const VectorFeature::Area & area) const {
    bool isInside = false;
    double nearest = s_infinite;
    for (const VectorFeature::Line & ring : area) {
        for (std::size_t i = 0; i < ring.size(); ++i)
            if (crosses(offset(ring[i > 0 ? i - 1 : ring.size() - 1]), offset(ring[i]))) isInside = !isInside;
        nearest = std::min(nearest, toLine(ring, true));
    }
    return isInside ? 0.0 : nearest;
}

double FeatureDistance::of(const VectorFeature & feature) const {
    double nearest = s_infinite;
    for (const Position & point : feature.points)
        nearest = std::min(nearest, length(offset(point)));
    for (const VectorFeature::Line & line : feature.lines)
        nearest = std::min(nearest, toLine(line, false));
    for (const VectorFeature::Area & area : feature.areas)
        nearest = std::min(nearest, toArea(area));
    return nearest;
}

std::vector<PickedFeature> featuresAt(const RASTER::FeatureSource & source, const FeatureDistance & place,
                                      double tolerance, std::size_t most) {
    RASTER::FeatureSource::Query query{place.box(tolerance), 0.0, {}};
    query.fields.resize(source.fields().size());
    std::iota(query.fields.begin(), query.fields.end(), 0U);
    const auto isNearer = [](const PickedFeature & a, const PickedFeature & b) {
        return a.pixels != b.pixels ? a.pixels < b.pixels : rankOf(a.feature) < rankOf(b.feature);
    };
    std::vector<PickedFeature> picked;
    source.read(query, [&](const VectorFeature & feature) {
        const double pixels = place.of(feature);
        if (!(pixels <= tolerance)) return true;
        const PickedFeature next{feature, pixels};
        picked.insert(std::upper_bound(picked.begin(), picked.end(), next, isNearer), next);
        if (picked.size() > most) picked.pop_back();
        return true;
    });
    return picked;
}

VectorFeature wholeFeature(const RASTER::FeatureSource & source, const VectorFeature & picked,
                           const Position & place, std::size_t most) {
    VectorFeature whole = picked;
    whole.values.clear();
    whole.style.clear();
    const auto extent = source.extent();
    if (!extent) return whole;
    const double farthest = std::max(
        {place.x - extent->minX, extent->maxX - place.x, place.z - extent->minY, extent->maxY - place.z});
    // What is cut off ends beyond the box; so a feature within the box is whole.
    std::size_t features = 0;
    for (double reach = reachOf(picked, place); features <= most; reach *= s_growth) {
        const RASTER::GeoExtent box{place.x - reach, place.z - reach, place.x + reach, place.z + reach};
        source.read({box, 0.0, {}}, [&](const VectorFeature & feature) {
            if (feature.id != picked.id) return ++features <= most;
            whole.points = feature.points;
            whole.lines = feature.lines;
            whole.areas = feature.areas;
            return false;
        });
        if (reachOf(whole, place) <= reach || reach >= farthest) break;
    }
    return whole;
}

} // namespace ZMT::CORE
