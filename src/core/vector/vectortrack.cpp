#include <zmt/core/vector/vectortrack.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include <nbx/math/isfinite.h>
#include <nbx/object/errorhandler.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(VectorTrack, NBX::SharedObj)

namespace {

using RASTER::TrackPiece;
using RASTER::TrackPoint;
using Position = VectorTrack::Position;

bool isEarlier(const TrackPoint & a, const TrackPoint & b) {
    return a.time < b.time;
}

/// Degrees clockwise from north; NaN for a step that leads nowhere.
double headingOf(const TrackPoint & from, const TrackPoint & to) {
    const double x = to.position.x - from.position.x, z = to.position.z - from.position.z;
    if (x == 0.0 && z == 0.0) return NAN;
    const double degrees = std::atan2(x, z) * 180.0 / std::numbers::pi;
    // A negative angle may be so small that it vanishes in the sum.
    return degrees >= 0.0 ? degrees : std::fmod(degrees + 360.0, 360.0);
}

/// Those of steps that lead nowhere are those of the step before, at the beginning of the one behind.
std::vector<double> headingsOf(const TrackPiece & points) {
    std::vector<double> headings;
    headings.reserve(points.size());
    for (std::size_t i = 1; i < points.size(); ++i)
        headings.push_back(headingOf(points[i - 1], points[i]));
    for (std::size_t i = 1; i < headings.size(); ++i)
        if (std::isnan(headings[i])) headings[i] = headings[i - 1];
    for (std::size_t i = headings.size(); i-- > 0;)
        if (std::isnan(headings[i])) headings[i] = i + 1 < headings.size() ? headings[i + 1] : 0.0;
    return headings;
}

Position between(const TrackPoint & a, const TrackPoint & b, double time) {
    const double part = (time - a.time) / (b.time - a.time);
    return a.position * (1.0 - part) + b.position * part;
}

} // namespace

VectorTrack::VectorTrack(const std::vector<TrackPiece> & pieces, double longestStep) {
    const bool isStep = longestStep > 0.0;
    NBX_CHECK(isStep, L"invalid longest step of a track: " << longestStep);
    for (const TrackPiece & piece : pieces)
        addStretches(usable(piece), isStep ? longestStep : usualLongestStep);
    std::stable_sort(stretches_.begin(), stretches_.end(),
                     [](const Stretch & a, const Stretch & b) { return a.begin() < b.begin(); });
    findSpans();
}

/// Sorted by time.
TrackPiece VectorTrack::usable(const TrackPiece & piece) {
    TrackPiece points;
    points.reserve(piece.size());
    for (const TrackPoint & point : piece) {
        if (!std::isfinite(point.time))
            ++counts_.withoutTime;
        else if (!NBX::isFinite(point.position))
            ++counts_.withoutPlace;
        else {
            if (!points.empty() && isEarlier(point, points.back())) ++counts_.unordered;
            points.push_back(point);
        }
    }
    std::stable_sort(points.begin(), points.end(), isEarlier);
    const auto isRepeated = [](const TrackPoint & a, const TrackPoint & b) { return a.time == b.time; };
    const auto end = std::unique(points.begin(), points.end(), isRepeated);
    counts_.repeated += std::uint64_t(points.end() - end);
    points.erase(end, points.end());
    return points;
}

void VectorTrack::addStretches(const TrackPiece & points, double longestStep) {
    for (auto begin = points.begin(); begin != points.end();) {
        auto end = begin + 1;
        while (end != points.end() && end->time - (end - 1)->time <= longestStep)
            ++end;
        TrackPiece stretch(begin, end);
        std::vector<double> headings = headingsOf(stretch);
        stretches_.push_back({std::move(stretch), std::move(headings), 0.0});
        begin = end;
    }
}

void VectorTrack::findSpans() {
    for (Stretch & stretch : stretches_) {
        if (spans_.empty() || stretch.begin() > spans_.back().end)
            spans_.push_back({stretch.begin(), stretch.end()});
        else
            spans_.back().end = std::max(spans_.back().end, stretch.end());
        stretch.latestEnd = spans_.back().end;
    }
}

const VectorTrack::Stretch * VectorTrack::stretchAt(double time) const {
    auto place = std::upper_bound(stretches_.begin(), stretches_.end(), time,
                                  [](double t, const Stretch & stretch) { return t < stretch.begin(); });
    while (place != stretches_.begin()) {
        --place;
        if (place->end() >= time) return &*place;
        if (place->latestEnd < time) return nullptr;
    }
    return nullptr;
}

std::optional<VectorTrack::Place> VectorTrack::placeAt(double time) const {
    const Stretch * stretch = stretchAt(time);
    if (!stretch) return {};
    const TrackPiece & points = stretch->points;
    if (points.size() == 1) return Place{points.front().position, 0.0};
    auto behind = std::upper_bound(points.begin() + 1, points.end() - 1, TrackPoint{time, {}}, isEarlier);
    return Place{between(*(behind - 1), *behind, time), stretch->headings[behind - points.begin() - 1]};
}

std::vector<VectorTrack::Line> VectorTrack::passed(double time) const {
    std::vector<Line> lines;
    for (const Stretch & stretch : stretches_) {
        if (!(stretch.begin() < time)) break;
        const TrackPiece & points = stretch.points;
        const auto end = std::upper_bound(points.begin(), points.end(), TrackPoint{time, {}}, isEarlier);
        Line line;
        line.reserve(std::size_t(end - points.begin()) + 1);
        std::transform(points.begin(), end, std::back_inserter(line),
                       [](const TrackPoint & point) { return point.position; });
        if (end != points.end() && (end - 1)->time < time) line.push_back(between(*(end - 1), *end, time));
        if (line.size() > 1) lines.push_back(std::move(line));
    }
    return lines;
}

} // namespace ZMT::CORE
