// Each segment is a rectangle of its own, and at each bend the wedge that two rectangles leave open is filled
// by a fan around the vertex. They overlap on the inner side of a bend, which shows nowhere, as what is
// translucent is drawn once for each pixel; and where they meet, by the tolerance, since there would be holes
// of single pixels between triangles that have no common corners. Dashes are cut here, as the pattern of
// OpenGL begins anew with each segment.

#include "linestroke.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace ZMT::CORE {

namespace {

/// Beyond it a place along a segment is not known to a metre any more.
constexpr double s_longest = 1e14;
constexpr double s_largestStep = std::numbers::pi / 4.0, s_smallestStep = std::numbers::pi / 90.0;

double lengthOf(const PlanPoint & way) {
    return std::sqrt(way.x * way.x + way.z * way.z);
}

PlanPoint leftOf(const PlanPoint & direction) {
    return {-direction.z, direction.x};
}

} // namespace

struct LineStroke::Segment {
    PlanPoint start, direction;
    double length;

    Segment(const PlanPoint & a, const PlanPoint & b) : start(a), direction(b - a), length(lengthOf(b - a)) {
        direction = direction * (1.0 / length);
    }
    PlanPoint at(double along) const { return start + direction * along; }
};

LineStroke::LineStroke(const PlanWindow & window, Pen pen, std::vector<float> & vertices)
    : window_(window.grownBy(pen.halfWidth)), pen_(std::move(pen)), step_(s_largestStep),
      vertices_(vertices) {
    for (const double length : pen_.dash)
        period_ += length;
    if (pen_.halfWidth > pen_.tolerance)
        step_ =
            std::clamp(2.0 * std::acos(1.0 - pen_.tolerance / pen_.halfWidth), s_smallestStep, s_largestStep);
}

/// The way of most lines: nothing but their ends is needed.
void LineStroke::drawSegments(const std::vector<PlanPoint> & line, bool isClosed) {
    for (std::size_t i = isClosed ? 0 : 1; i < line.size(); ++i) {
        const PlanPoint & a = line[i == 0 ? line.size() - 1 : i - 1];
        const PlanPoint & b = line[i];
        double from = 0.0, to = 1.0;
        if (a == b || !window_.clip(a, b, from, to)) continue;
        push(from > 0.0 ? a + (b - a) * from : a);
        push(to < 1.0 ? a + (b - a) * to : b);
    }
}

void LineStroke::draw(const std::vector<PlanPoint> & line, bool isClosed) {
    if (pen_.halfWidth <= 0.0 && period_ <= 0.0) return drawSegments(line, isClosed);
    points_.clear();
    for (const PlanPoint & p : line)
        if (points_.empty() || !(points_.back() == p)) points_.push_back(p);
    if (isClosed && !points_.empty()) {
        if (points_.back() == points_.front()) points_.pop_back();
        points_.push_back(points_.front());
    }
    if (points_.size() < 2) return;
    const bool isDashed = period_ > 0.0;
    double start = 0.0;
    PlanPoint before{0.0, 0.0}, first{0.0, 0.0};
    for (std::size_t i = 0; i + 1 < points_.size(); ++i) {
        const Segment segment(points_[i], points_[i + 1]);
        if (!(segment.length < s_longest)) continue;
        if (isDashed)
            drawDashes(segment, start);
        else
            drawWhole(segment);
        if (i == 0)
            first = segment.direction;
        else if (!isDashed || isDash(start))
            drawJoint(points_[i], before, segment.direction);
        before = segment.direction;
        start += segment.length;
    }
    if (isClosed) {
        if (!isDashed || isDash(start)) drawJoint(points_.front(), before, first);
    } else if (!isDashed) {
        drawJoint(points_.front(), first * -1.0, first);
        drawJoint(points_.back(), before, before * -1.0);
    }
}

void LineStroke::drawWhole(const Segment & segment) {
    double from = 0.0, to = 1.0;
    if (window_.clip(segment.start, segment.at(segment.length), from, to))
        drawPiece(segment, from * segment.length, to * segment.length);
}

bool LineStroke::isDash(double along) const {
    double rest = std::fmod(along, period_);
    for (std::size_t i = 0; i < pen_.dash.size(); rest -= pen_.dash[i++])
        if (rest < pen_.dash[i]) return i % 2 == 0;
    return false;
}

void LineStroke::drawDashes(const Segment & segment, double start) {
    double from = 0.0, to = 1.0;
    if (!window_.clip(segment.start, segment.at(segment.length), from, to)) return;
    from *= segment.length;
    to *= segment.length;
    // The pattern, from the beginning of the round in which the visible part begins.
    double end = from - std::fmod(start + from, period_);
    for (std::size_t i = 0; end < to; i = (i + 1) % pen_.dash.size()) {
        const double begin = std::max(end, from);
        end += pen_.dash[i];
        if (i % 2 == 1 || !(begin < std::min(end, to))) continue;
        if (++dashes_ > mostDashes) return drawPiece(segment, begin, to);
        drawPiece(segment, begin, std::min(end, to));
    }
}

void LineStroke::drawPiece(const Segment & segment, double from, double to) {
    if (pen_.halfWidth <= 0.0) { // of a dash
        push(segment.at(from));
        push(segment.at(to));
        return;
    }
    const PlanPoint a = segment.at(from > 0.0 ? from : -pen_.tolerance);
    const PlanPoint b = segment.at(to < segment.length ? to : segment.length + pen_.tolerance);
    const PlanPoint side = leftOf(segment.direction) * pen_.halfWidth;
    for (const PlanPoint & corner : {a - side, b - side, b + side, a - side, b + side, a + side})
        push(corner);
}

/// The fan on the outer side of a bend; half a circle where the line turns back.
void LineStroke::drawJoint(const PlanPoint & at, const PlanPoint & before, const PlanPoint & behind) {
    if (pen_.halfWidth <= 0.0 || !window_.contains(at)) return;
    const double turn = before.x * behind.z - before.z * behind.x; // above 0 to the left
    const double angle = std::atan2(std::abs(turn), before.x * behind.x + before.z * behind.z);
    if (angle * pen_.halfWidth <= pen_.tolerance) return;
    const double side = turn > 0.0 ? -pen_.halfWidth : pen_.halfWidth;
    const PlanPoint first = leftOf(before) * side, across = before * std::abs(side);
    const auto steps = static_cast<unsigned>(std::ceil(angle / step_));
    PlanPoint last = first;
    for (unsigned i = 1; i <= steps; ++i) {
        const double part = angle * i / steps;
        const PlanPoint next = first * std::cos(part) + across * std::sin(part);
        for (const PlanPoint & corner : {at, at + last, at + next})
            push(corner);
        last = next;
    }
}

void LineStroke::push(const PlanPoint & p) {
    const std::size_t place = vertices_.size();
    vertices_.resize(place + 3); // 0 in height
    vertices_[place] = static_cast<float>(p.x);
    vertices_[place + 2] = static_cast<float>(p.z);
}

} // namespace ZMT::CORE
