// Lines of up to two pixels are segments that OpenGL draws, wider ones and those in metres are ribbons. What
// is narrower than a pixel is drawn one pixel wide with that share of its opacity, so that it fades in the
// distance and neither breaks up nor grows.

#include "featureshapes.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace ZMT::CORE {

namespace {

using Kind = VectorStyleSheet::Kind;
using Form = VectorStyle::Symbol::Form;

/// Beyond it, in pixels of styles, gaps would show at the bends of segments.
constexpr double s_widestSegments = 2.0;
constexpr double s_shortestPeriod = 2.0; ///< of dashes, in pixels
constexpr double s_tolerance = 0.1;      ///< of round shapes, in pixels
constexpr double s_windowMargin = 4.0;   ///< of the window, in pixels

void push(const PlanPoint & p, std::vector<float> & vertices) {
    vertices.insert(vertices.end(), {static_cast<float>(p.x), 0.0F, static_cast<float>(p.z)});
}

void pushFan(const std::vector<PlanPoint> & corners, const PlanPoint & at, std::vector<float> & vertices) {
    for (std::size_t i = 2; i < corners.size(); ++i)
        for (const std::size_t corner : {std::size_t(0), i - 1, i})
            push(at + corners[corner], vertices);
}

std::vector<PlanPoint> circle(double radius, double tolerance) {
    const double step = 2.0 * std::acos(1.0 - std::min(tolerance / radius, 0.5));
    const auto count =
        static_cast<unsigned>(std::clamp(std::ceil(2.0 * std::numbers::pi / step), 8.0, 180.0));
    std::vector<PlanPoint> corners;
    corners.reserve(count);
    for (unsigned i = 0; i < count; ++i) {
        const double angle = 2.0 * std::numbers::pi * i / count;
        corners.push_back({radius * std::cos(angle), radius * std::sin(angle)});
    }
    return corners;
}

std::vector<PlanPoint> rectangle(double halfX, double halfZ) {
    return {{-halfX, -halfZ}, {halfX, -halfZ}, {halfX, halfZ}, {-halfX, halfZ}};
}

/// Convex parts around the origin.
std::vector<std::vector<PlanPoint>> partsOf(Form form, double size, double tolerance) {
    const double half = size / 2.0;
    const double height = half * std::sqrt(3.0) / 2.0; // of the triangle, above and below the middle
    switch (form) {
    case Form::Circle:
        return {circle(half, tolerance)};
    case Form::Square:
        return {rectangle(half, half)};
    case Form::Diamond:
        return {{{-half, 0.0}, {0.0, -half}, {half, 0.0}, {0.0, half}}};
    case Form::Triangle:
        return {{{-half, -height}, {half, -height}, {0.0, height}}};
    case Form::Cross:
        return {rectangle(half, half / 3.0), rectangle(half / 3.0, half)};
    }
    return {};
}

} // namespace

FeatureShapes::FeatureShapes(const VectorStyleSheet & sheet, double opacity, const View & view)
    : sheet_(sheet), opacity_(opacity), view_(view),
      window_(PlanWindow(view.halfX, view.halfZ).grownBy(s_windowMargin * view.metresPerPixel)),
      fill_(view.halfX, view.halfZ, view.size) {}

FeatureShapes::Group & FeatureShapes::group(const Key & key, NBX::Color color, double share,
                                            double lineWidth) {
    Group & group = groups_[key];
    color[3] *= static_cast<float>(opacity_ * share);
    group.color = color;
    group.lineWidth = lineWidth;
    return group;
}

void FeatureShapes::setStroke(Look & look, const VectorStyle::Stroke & stroke, const Key & key) {
    const double width = stroke.width.pixels(view_.metresPerPixel, view_.scale);
    const bool isSegments = width < 1.0 || (stroke.width.unit == VectorSize::Unit::Pixels &&
                                            stroke.width.value <= s_widestSegments);
    double share = std::min(width, 1.0), period = 0.0, drawn = 0.0;
    for (std::size_t i = 0; i < stroke.dash.size(); ++i) {
        period += stroke.dash[i] * view_.scale;
        if (i % 2 == 0) drawn += stroke.dash[i] * view_.scale;
    }
    LineStroke::Pen pen;
    if (period >= s_shortestPeriod) {
        pen.dash = stroke.dash;
        for (double & length : pen.dash)
            length *= view_.scale * view_.metresPerPixel;
    } else if (period > 0.0)
        share *= drawn / period;
    pen.tolerance = s_tolerance * view_.metresPerPixel;
    pen.halfWidth = isSegments ? 0.0 : width * view_.metresPerPixel / 2.0;
    Group & target = group(key, stroke.color, share, isSegments ? std::max(width, 1.0) : 0.0);
    look.stroke = std::make_unique<LineStroke>(window_, std::move(pen), target.vertices);
}

FeatureShapes::Look FeatureShapes::newLook(std::size_t rule, Kind kind, const std::string & own) {
    const VectorStyle style = sheet_.styleOf(rule, kind, own);
    const auto key = [&](Layer layer) { return Key(layer, VectorStyleSheet::noRule - rule, own); };
    Look look;
    if (style.fill) look.fill = &group(key(L_Fill), *style.fill, 1.0, 0.0);
    if (style.stroke) setStroke(look, *style.stroke, key(L_Line));
    if (style.symbol) {
        const double pixels = style.symbol->size.pixels(view_.metresPerPixel, view_.scale);
        const double share = std::min(pixels, 1.0);
        look.form = style.symbol->form;
        look.symbolSize = std::max(pixels, 1.0) * view_.metresPerPixel;
        look.symbol = &group(key(L_Symbol), style.symbol->color, share * share, 0.0);
    }
    return look;
}

FeatureShapes::Looks & FeatureShapes::looksOf(std::size_t rule, const std::string & own) {
    if (lastLooks_ && lastLooks_->first.first == rule && lastLooks_->first.second == own)
        return lastLooks_->second;
    const auto [entry, isNew] = looks_.try_emplace({rule, own});
    if (isNew)
        entry->second = {newLook(rule, Kind::Point, own), newLook(rule, Kind::Line, own),
                         newLook(rule, Kind::Area, own)};
    lastLooks_ = &*entry;
    return entry->second;
}

void FeatureShapes::add(const RASTER::VectorFeature & feature) {
    const std::size_t rule = sheet_.ruleOf(feature.values);
    if (rule == VectorStyleSheet::noRule || !feature.hasGeometry()) return;
    Looks & looks = looksOf(rule, feature.style);
    ++features_;
    for (const auto & area : feature.areas)
        addArea(looks.area, area);
    if (looks.line.stroke)
        for (const auto & line : feature.lines) {
            toPlan(line, line_);
            looks.line.stroke->draw(line_, false);
        }
    if (looks.point.symbol)
        for (const auto & point : feature.points)
            addSymbol(looks.point, PlanPoint{point.x, point.z} - view_.center);
}

void FeatureShapes::toPlan(const RASTER::VectorFeature::Line & line, std::vector<PlanPoint> & points) const {
    points.clear();
    points.reserve(line.size());
    for (const auto & p : line)
        points.push_back(PlanPoint{p.x, p.z} - view_.center);
}

void FeatureShapes::addArea(Look & look, const RASTER::VectorFeature::Area & area) {
    std::vector<AreaFill::Ring> rings(area.size());
    for (std::size_t i = 0; i < area.size(); ++i)
        toPlan(area[i], rings[i]);
    if (look.fill) fill_.fill(rings, look.fill->vertices);
    for (const AreaFill::Ring & ring : rings)
        if (look.stroke) look.stroke->draw(ring, true);
}

void FeatureShapes::addSymbol(const Look & look, const PlanPoint & at) {
    if (!window_.grownBy(look.symbolSize / 2.0).contains(at)) return;
    for (const auto & part : partsOf(look.form, look.symbolSize, s_tolerance * view_.metresPerPixel))
        pushFan(part, at, look.symbol->vertices);
}

std::vector<const FeatureShapes::Group *> FeatureShapes::groups() const {
    std::vector<const Group *> groups;
    for (const auto & [key, group] : groups_)
        if (!group.vertices.empty() && group.color[3] > 0.0F) groups.push_back(&group);
    return groups;
}

} // namespace ZMT::CORE
