// Geometry becomes lists of positions, is cut at the windows of the source system, gets more positions on
// long edges, and is transformed. Places without a position in the wanted system part a line, and are left
// out of rings. Sources in degrees are seen in three windows, as longitudes may count a turn more or less;
// edges of more than half a turn are taken to go the short way, across the date line.

#include "featurewarper.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include <ogr_geometry.h>

#include "raster/gdal/gdalsupport.h"
#include "raster/gdal/sourcewindows.h"

namespace ZMT::RASTER {

namespace {

using Position = FeatureShapes::Position;
using Kind = FeatureShapes::Kind;

constexpr double s_infinity = std::numeric_limits<double>::infinity();
constexpr GeoExtent s_everywhere{-s_infinity, -s_infinity, s_infinity, s_infinity};
constexpr GeoExtent s_nowhere{s_infinity, s_infinity, -s_infinity, -s_infinity};
constexpr double s_farthest = std::numeric_limits<double>::max();
/// How far edges may be from where they belong, as a share of the area's diagonal.
constexpr double s_edgeError = 1e-8;
constexpr unsigned s_deepest = 16;
/// What a feature may get of positions on long edges, beyond those that it has.
constexpr double s_mostNew = 1e6;

GeoExtent around(const GeoExtent & a, const GeoExtent & b) {
    if (isEmpty(a)) return b;
    if (isEmpty(b)) return a;
    return {std::min(a.minX, b.minX), std::min(a.minY, b.minY), std::max(a.maxX, b.maxX),
            std::max(a.maxY, b.maxY)};
}

void widen(GeoExtent & extent, double x, double y) {
    extent.minX = std::min(extent.minX, x);
    extent.maxX = std::max(extent.maxX, x);
    extent.minY = std::min(extent.minY, y);
    extent.maxY = std::max(extent.maxY, y);
}

/// By its own size on each side.
GeoExtent widened(const GeoExtent & extent) {
    if (!isBounded(extent)) return extent;
    const double x = extent.maxX - extent.minX, y = extent.maxY - extent.minY;
    return {extent.minX - x, extent.minY - y, extent.maxX + x, extent.maxY + y};
}

GeoExtent moved(const GeoExtent & extent, double x) {
    return {extent.minX + x, extent.minY, extent.maxX + x, extent.maxY};
}

double diagonal(const GeoExtent & extent) {
    return std::hypot(extent.maxX - extent.minX, extent.maxY - extent.minY);
}

double turnOf(const OGRSpatialReference * source) {
    if (!source || !source->IsGeographic()) return 0.0;
    const double unit = source->GetAngularUnits();
    return unit > 0.0 ? 2.0 * std::numbers::pi / unit : 0.0;
}

/// Positions of the way from one place to another, in the other system; none where one has no place there.
bool bend(OGRCoordinateTransformation & transformation, const Position & from, const Position & to,
          double & result) {
    double x[] = {from.x, (from.x + to.x) / 2.0, to.x}, y[] = {from.z, (from.z + to.z) / 2.0, to.z};
    int isKnown[3] = {};
    transformation.Transform(3, x, y, nullptr, isKnown);
    for (unsigned i = 0; i < 3; ++i)
        if (!isKnown[i] || !std::isfinite(x[i]) || !std::isfinite(y[i])) return false;
    result = std::hypot((x[0] + x[2]) / 2.0 - x[1], (y[0] + y[2]) / 2.0 - y[1]);
    // Where the system is cut open nothing bends.
    return result < std::hypot(x[2] - x[0], y[2] - y[0]);
}

/// Makes edges of more than half a turn go the other way round, where that ends where it began.
void unwrap(std::vector<Position> & positions, std::size_t first, bool isRing, double turn) {
    const auto isAtEnd = [&](double x) { return std::abs(std::abs(x) - turn / 2.0) <= turn * 1e-9; };
    const auto jump = [&](double from, double to) {
        const double way = to - from;
        if (!(std::abs(way) > turn / 2.0 && std::abs(way) < turn) || isAtEnd(from) || isAtEnd(to)) return 0.0;
        return way > 0.0 ? -turn : turn;
    };
    double whole = 0.0;
    bool isJumping = false;
    for (std::size_t i = first + 1; i < positions.size(); ++i) {
        const double by = jump(positions[i - 1].x, positions[i].x);
        isJumping |= by != 0.0;
        whole += by;
    }
    if (isRing) whole += jump(positions.back().x, positions[first].x);
    if (!isJumping || (isRing && whole != 0.0)) return;
    double before = positions[first].x, shift = 0.0;
    for (std::size_t i = first + 1; i < positions.size(); ++i) {
        shift += jump(before, positions[i].x);
        before = positions[i].x;
        positions[i].x += shift;
    }
}

} // namespace

FeatureWarper::FeatureWarper(const OGRSpatialReference * source, const std::string & wkt,
                             const GeoExtent & area, const GeoExtent & sourceArea, const std::string & path)
    : transformation_(newTransformation(source, wkt, path)), turn_(turnOf(source)), area_(area),
      step_(s_infinity) {
    if (transformation_) back_.reset(transformation_->GetInverse());
    if (transformation_ && !isBounded(area_) && isBounded(sourceArea))
        area_ = extentOf(sourceArea).value_or(area_);
    setWindows(sourceArea);
    if (transformation_) setStep();
}

FeatureWarper::~FeatureWarper() = default;

std::vector<GeoExtent> FeatureWarper::sourceBoxes(const GeoExtent & part) const {
    // What is small does not bend much.
    constexpr double small = 1.0 / 8.0;
    constexpr std::size_t few = 9, many = 33;
    if (transformation_)
        return sourceWindows(*transformation_, back_.get(), part,
                             diagonal(part) < small * diagonal(area_) ? few : many);
    if (turn_ == 0.0 || !isBounded(area_)) return {part};
    return {moved(part, -turn_), part, moved(part, turn_)};
}

void FeatureWarper::setWindows(const GeoExtent & sourceArea) {
    const std::vector<GeoExtent> boxes = sourceBoxes(area_);
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        const bool isMoved = !transformation_ && boxes.size() > 1 && i != 1;
        GeoExtent cut = transformation_ || isMoved ? boxes[i] : widened(boxes[i]);
        if (isMoved) { // what lies on the border shows on its own side
            cut.minX += turn_ * 1e-12;
            cut.maxX -= turn_ * 1e-12;
        }
        if (transformation_ && !isBounded(cut) && isBounded(sourceArea)) cut = sourceArea;
        windows_.push_back({common(boxes[i], cut), cut, isMoved ? boxes[1].minX - boxes[i].minX : 0.0});
    }
}

std::vector<FeatureWarper::Window> FeatureWarper::windowsOf(const GeoExtent & part) const {
    const std::vector<GeoExtent> boxes = sourceBoxes(part);
    std::vector<Window> result;
    for (std::size_t i = 0; i < windows_.size(); ++i) {
        const Window & window = windows_[i];
        GeoExtent wanted = s_nowhere;
        // A part may count longitudes from another turn than the whole.
        for (std::size_t k = 0; k < boxes.size(); ++k)
            if (const GeoExtent both = common(boxes[k], window.cut);
                !isEmpty(both) && (transformation_ || i == k))
                wanted = around(wanted, both);
        if (!isEmpty(wanted)) result.push_back({wanted, common(widened(wanted), window.cut), window.shift});
    }
    return result;
}

std::vector<GeoExtent> FeatureWarper::readBoxes(const std::vector<Window> & windows,
                                                const std::optional<GeoExtent> & known) const {
    const GeoExtent all = known.value_or(s_everywhere);
    const double near = turn_ / 36.0;
    std::vector<GeoExtent> boxes;
    GeoExtent crossing = s_nowhere;
    for (const Window & window : windows) {
        if (touches(window.wanted, all)) boxes.push_back(window.wanted);
        // The next half turn, odd ones of which are the date line.
        const double line = (std::ceil((window.wanted.minX - near) / turn_ - 0.5) + 0.5) * turn_;
        if (turn_ > 0.0 && line <= window.wanted.maxX + near) crossing = around(crossing, window.wanted);
    }
    if (!isEmpty(crossing) && all.minX <= 0.0 && all.maxX >= 0.0 && !(all.maxX - all.minX <= turn_ / 2.0)) {
        const double height = std::max(crossing.maxY - crossing.minY, near);
        boxes.push_back({-turn_ * 1e-9, crossing.minY - height, turn_ * 1e-9, crossing.maxY + height});
    }
    return boxes;
}

std::optional<GeoExtent> FeatureWarper::extentOf(const GeoExtent & source) const {
    constexpr std::size_t samples = 33;
    if (!transformation_)
        return isEmpty(common(source, area_)) ? std::nullopt : std::optional(common(source, area_));
    std::vector<double> x, y;
    for (std::size_t i = 0; i < samples * samples; ++i) {
        const std::size_t row = i / samples, column = i % samples;
        x.push_back(std::lerp(source.minX, source.maxX, static_cast<double>(column) / (samples - 1)));
        y.push_back(std::lerp(source.minY, source.maxY, static_cast<double>(row) / (samples - 1)));
    }
    std::vector<int> isKnown(x.size(), FALSE);
    const GdalErrorTrap trap; // places outside of a projection are no fault
    transformation_->Transform(static_cast<int>(x.size()), x.data(), y.data(), nullptr, isKnown.data());
    GeoExtent extent = s_nowhere;
    for (std::size_t i = 0; i < x.size(); ++i)
        if (isKnown[i] && std::isfinite(x[i]) && std::isfinite(y[i]))
            extent = around(extent, {x[i], y[i], x[i], y[i]});
    if (isEmpty(extent)) return std::nullopt;
    const double roomX = (extent.maxX - extent.minX) / samples, roomY = (extent.maxY - extent.minY) / samples;
    extent =
        common({extent.minX - roomX, extent.minY - roomY, extent.maxX + roomX, extent.maxY + roomY}, area_);
    return isEmpty(extent) ? std::nullopt : std::optional(extent);
}

/// Edges bend with the square of their length, so that what the longest do tells how long they may be.
void FeatureWarper::setStep() {
    constexpr unsigned samples = 9;
    constexpr double shortest = 1.0 / 200.0;
    const GeoExtent & window = windows_[windows_.size() / 2].wanted;
    if (!back_ || !isBounded(area_) || !isBounded(window)) return;
    const GdalErrorTrap trap; // as above
    const double longest = diagonal(window) / edgesAcrossWindow;
    double most = 0.0;
    for (unsigned i = 0; i < samples * samples; ++i) {
        const unsigned row = i / samples, column = i % samples;
        double x = std::lerp(area_.minX, area_.maxX, column / (samples - 1.0));
        double y = std::lerp(area_.minY, area_.maxY, row / (samples - 1.0));
        int isKnown = FALSE;
        back_->Transform(1, &x, &y, nullptr, &isKnown);
        if (!isKnown || !std::isfinite(x) || !std::isfinite(y)) continue;
        const double half = longest / 2.0;
        double bent = 0.0;
        for (const auto & [alongX, alongY] : {std::pair(half, 0.0), std::pair(0.0, half)})
            if (bend(*transformation_, {x - alongX, 0.0, y - alongY}, {x + alongX, 0.0, y + alongY}, bent))
                most = std::max(most, bent);
    }
    const double allowed = s_edgeError * diagonal(area_) / 2.0;
    step_ = longest * (most > allowed ? std::max(std::sqrt(allowed / most), shortest) : 1.0);
}

unsigned FeatureWarper::collect(const OGRGeometry & geometry, unsigned depth) {
    if (depth > s_deepest) return FeatureLoss::tooDeep;
    unsigned lost = 0;
    switch (wkbFlatten(geometry.getGeometryType())) {
    case wkbPoint: {
        const auto & point = *geometry.toPoint();
        if (point.IsEmpty()) return 0;
        read_.assign(1, {point.getX(), point.getZ(), point.getY()});
        return addRead(Kind::Points);
    }
    case wkbLineString:
    case wkbLinearRing:
        return addPath(*geometry.toSimpleCurve(), Kind::Line);
    case wkbPolygon:
    case wkbTriangle: {
        bool isOutline = true;
        for (const OGRLinearRing * ring : *geometry.toPolygon()) {
            lost |= addPath(*ring, isOutline ? Kind::Outline : Kind::Hole);
            isOutline = false;
        }
        return lost;
    }
    case wkbPolyhedralSurface:
    case wkbTIN:
        for (const OGRPolygon * part : *geometry.toPolyhedralSurface())
            lost |= collect(*part, depth + 1);
        return lost;
    case wkbCircularString:
    case wkbCompoundCurve:
    case wkbCurvePolygon: {
        const GdalErrorTrap trap; // arcs through places that are no numbers
        const std::unique_ptr<OGRGeometry> lines(geometry.getLinearGeometry());
        return lines && !lines->hasCurveGeometry(TRUE) ? collect(*lines, depth + 1) : FeatureLoss::notFinite;
    }
    default:
        if (!OGR_GT_IsSubClassOf(geometry.getGeometryType(), wkbGeometryCollection))
            return FeatureLoss::noGeometry;
        for (const OGRGeometry * part : *geometry.toGeometryCollection())
            lost |= collect(*part, depth + 1);
        return lost;
    }
}

/// What is plain is taken at once, from where the library keeps it.
unsigned FeatureWarper::addPath(const OGRSimpleCurve & curve, Kind kind) {
    std::vector<Position> & positions = source_.positions;
    const std::size_t first = positions.size();
    const int count = curve.getNumPoints();
    const double highest = highestPlace();
    bool isPlain = true;
    GeoExtent box = s_nowhere;
    positions.resize(first + static_cast<std::size_t>(count));
    Position * path = positions.data() + first;
    for (int i = 0; i < count; ++i) {
        const double x = curve.getX(i), y = curve.getY(i);
        isPlain = isPlain && std::abs(x) <= s_farthest && std::abs(y) <= highest;
        widen(box, x, y);
        path[i] = {x, 0.0, y};
    }
    if (curve.Is3D())
        for (int i = 0; i < count; ++i) {
            path[i].y = curve.getZ(i);
            isPlain &= std::isfinite(path[i].y);
        }
    if (isPlain) return closePath(kind, box);
    read_.assign(positions.begin() + first, positions.end());
    positions.resize(first);
    return addRead(kind);
}

/// In y, from 0.
double FeatureWarper::highestPlace() const {
    return turn_ == 0.0 ? s_farthest : turn_ / 4.0 * (1.0 + 1e-9);
}

/// A line is parted where a place is no number, or beyond a pole.
unsigned FeatureWarper::addRead(Kind kind) {
    unsigned lost = 0;
    bool isOpen = false;
    GeoExtent box = s_nowhere;
    for (const Position & p : read_) {
        const bool isOnGlobe = std::abs(p.z) <= highestPlace();
        if (std::isfinite(p.x) && std::isfinite(p.z) && isOnGlobe) {
            source_.positions.emplace_back(p.x, std::isfinite(p.y) ? p.y : 0.0, p.z);
            widen(box, p.x, p.z);
            isOpen = true;
            continue;
        }
        lost |= isOnGlobe || !std::isfinite(p.z) ? FeatureLoss::notFinite : FeatureLoss::noPosition;
        if (kind != Kind::Line) continue;
        if (isOpen) lost |= closePath(kind, box);
        isOpen = false;
        box = s_nowhere;
    }
    if (isOpen || read_.empty() || kind != Kind::Line) lost |= closePath(kind, box);
    // Too few are left for a reason.
    return lost == FeatureLoss::tooFewPoints ? lost : lost & ~FeatureLoss::tooFewPoints;
}

/// The path behind the last one, which has this box.
unsigned FeatureWarper::closePath(Kind kind, GeoExtent box) {
    std::vector<Position> & positions = source_.positions;
    const std::size_t first = source_.begin(source_.paths.size());
    const auto isFirst = [&](const Position & p) {
        return p.x == positions[first].x && p.z == positions[first].z;
    };
    if (kind == Kind::Outline || kind == Kind::Hole)
        while (positions.size() > first + 1 && isFirst(positions.back()))
            positions.pop_back();
    if (kind == Kind::Line && std::all_of(positions.begin() + first, positions.end(), isFirst))
        positions.resize(first);
    if (turn_ > 0.0 && kind != Kind::Points && box.maxX - box.minX > turn_ / 2.0) {
        unwrap(positions, first, kind != Kind::Line, turn_);
        box = boxAround(positions.data() + first, positions.data() + positions.size());
    }
    if (!source_.close(kind)) return FeatureLoss::tooFewPoints;
    sourceBox_ = around(sourceBox_, box);
    return 0;
}

bool FeatureWarper::needsMore(const FeatureShapes & shapes) const {
    if (!std::isfinite(step_)) return false;
    for (std::size_t i = 0; i < shapes.paths.size(); ++i) {
        if (shapes.paths[i].kind == Kind::Points) continue;
        const std::size_t begin = shapes.begin(i), end = shapes.paths[i].end;
        const bool isRing = shapes.paths[i].kind != Kind::Line;
        for (std::size_t k = begin + (isRing ? 0 : 1); k < end; ++k) {
            const Position &a = shapes.positions[k == begin ? end - 1 : k - 1], &b = shapes.positions[k];
            const double x = b.x - a.x, y = b.z - a.z;
            if (x * x + y * y > step_ * step_) return true;
        }
    }
    return false;
}

/// Into `dense_`: edges in as many parts as it takes for them to be no longer than `step_`.
void FeatureWarper::densify(const FeatureShapes & shapes) {
    double whole = 0.0;
    for (std::size_t i = 1; i < shapes.positions.size(); ++i)
        whole += std::hypot(shapes.positions[i].x - shapes.positions[i - 1].x,
                            shapes.positions[i].z - shapes.positions[i - 1].z);
    const double step = std::max(step_, whole / s_mostNew);
    dense_.clear();
    for (std::size_t i = 0; i < shapes.paths.size(); ++i) {
        const Kind kind = shapes.paths[i].kind;
        const std::size_t begin = shapes.begin(i), end = shapes.paths[i].end;
        for (std::size_t k = begin; k < end; ++k) {
            const Position & a = shapes.positions[k];
            dense_.positions.push_back(a);
            if (kind == Kind::Points || (kind == Kind::Line && k + 1 == end)) continue;
            const Position & b = shapes.positions[k + 1 == end ? begin : k + 1];
            const double parts = std::ceil(std::hypot(b.x - a.x, b.z - a.z) / step);
            for (double part = 1.0; part < parts; ++part)
                dense_.positions.push_back(a + (b - a) * (part / parts));
        }
        dense_.close(kind);
    }
}

/// Appends to `result`.
unsigned FeatureWarper::transform(const FeatureShapes & shapes, double shift, FeatureShapes & result) {
    const std::vector<Position> & positions = shapes.positions;
    const std::size_t count = positions.size();
    if (transformation_) {
        x_.resize(count);
        y_.resize(count);
        z_.resize(count);
        for (std::size_t i = 0; i < count; ++i) {
            x_[i] = positions[i].x;
            y_[i] = positions[i].z;
            z_[i] = positions[i].y;
        }
        isKnown_.assign(count, FALSE);
        const GdalErrorTrap trap; // as above
        transformation_->Transform(static_cast<int>(count), x_.data(), y_.data(),
                                   has3d_ ? z_.data() : nullptr, isKnown_.data());
    }
    unsigned lost = 0;
    for (std::size_t i = 0, next = 0; i < shapes.paths.size(); ++i) {
        const Kind kind = shapes.paths[i].kind;
        const std::size_t before = result.positions.size();
        for (; next < shapes.paths[i].end; ++next) {
            if (!transformation_) {
                result.positions.emplace_back(positions[next].x + shift, positions[next].y,
                                              positions[next].z);
            } else if (isKnown_[next] && std::isfinite(x_[next]) && std::isfinite(y_[next])) {
                result.positions.emplace_back(x_[next], std::isfinite(z_[next]) ? z_[next] : 0.0, y_[next]);
            } else {
                lost |= FeatureLoss::noPosition;
                if (kind == Kind::Line && result.positions.size() > before) result.close(kind);
            }
        }
        result.close(kind);
    }
    return lost;
}

unsigned FeatureWarper::convert(const OGRGeometry & geometry, const std::vector<Window> & windows,
                                FeatureShapes & result) {
    result.clear();
    source_.clear();
    sourceBox_ = s_nowhere;
    has3d_ = geometry.Is3D();
    unsigned lost = collect(geometry, 0);
    if (source_.isEmpty()) return lost == 0 ? FeatureLoss::noGeometry : lost;
    const auto seen = std::count_if(windows.begin(), windows.end(),
                                    [&](const Window & window) { return touches(window.cut, sourceBox_); });
    for (const Window & window : windows) {
        if (!touches(window.cut, sourceBox_)) continue;
        const FeatureShapes * shapes = &source_;
        if (!contains(window.cut, sourceBox_)) {
            cutShapes(source_, window.cut, cut_);
            shapes = &cut_;
        }
        if (needsMore(*shapes)) {
            densify(*shapes);
            shapes = &dense_;
        }
        if (!transformation_ && window.shift == 0.0 && shapes == &source_ && seen == 1)
            std::swap(source_, result); // as it is
        else if (!shapes->isEmpty())
            lost |= transform(*shapes, window.shift, result);
    }
    return lost;
}

} // namespace ZMT::RASTER
