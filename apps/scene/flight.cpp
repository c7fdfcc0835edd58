// Between positions the way is a cubic Hermite spline of eye, heading and pitch over time, with the speeds
// of Catmull and Rom ("A class of local interpolating splines", 1974) for unequal times: at a position, that
// of the parabola through it and both neighbours. Headings go the shorter way. A circle is its own leg, in
// angle, distance and height about its aim.

#include "flight.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <nbx/object/errorhandler.h>

namespace {

enum FlightValue { FV_X, FV_Y, FV_Z, FV_Heading, FV_Pitch, FV_Distance };

constexpr double s_fullTurn = 2.0 * M_PI;

/// The same angle, from -pi to pi.
double smallTurn(double angle) {
    return std::remainder(angle, s_fullTurn);
}

/// From 0 to 1, at rest at both ends.
double eased(double share) {
    return share * share * (3.0 - 2.0 * share);
}

double mixed(double from, double to, double share) {
    return from + (to - from) * share;
}

} // namespace

Flight::Flight(const std::vector<Position> & positions) {
    double time = 0.0;
    const auto add = [&](const ZMT::UTIL::CameraPosition & position) {
        Station station;
        station.state = stateOf(position.getFrom(), position.getTo());
        station.aim = position.getTo();
        station.isCircle = position.getIsCircle() && !stations_.empty();
        if (!stations_.empty()) {
            const double before = stations_.back().state[FV_Heading];
            station.state[FV_Heading] = before + smallTurn(station.state[FV_Heading] - before);
            time += std::isfinite(position.getDuration()) ? std::max(position.getDuration(), 0.0) : 0.0;
        }
        station.time = time;
        stations_.push_back(station);
    };
    stations_.reserve(positions.size() + 1);
    if (!positions.empty() && positions.front()->getIsCircle()) add(*positions.front());
    for (const Position & position : positions)
        add(*position);
    findSpeeds();
}

Flight::State Flight::stateOf(const Point & eye, const Point & aim) {
    const Point way = aim - eye;
    const double along = std::hypot(way.x, way.z);
    return {
        eye.x, eye.y, eye.z, std::atan2(way.x, way.z), std::atan2(way.y, along), std::hypot(along, way.y)};
}

Flight::Place Flight::placeOf(const State & state) {
    const Point eye(state[FV_X], state[FV_Y], state[FV_Z]);
    const double along = std::cos(state[FV_Pitch]) * state[FV_Distance];
    return {eye,
            eye + Point(std::sin(state[FV_Heading]) * along, std::sin(state[FV_Pitch]) * state[FV_Distance],
                        std::cos(state[FV_Heading]) * along)};
}

/// At rest at both ends, beside circles and beside leaps.
void Flight::findSpeeds() {
    for (std::size_t i = 1; i + 1 < stations_.size(); ++i) {
        const Station &before = stations_[i - 1], &behind = stations_[i + 1];
        Station & station = stations_[i];
        const double first = station.time - before.time, second = behind.time - station.time;
        if (station.isCircle || behind.isCircle || first <= 0.0 || second <= 0.0) continue;
        for (std::size_t v = 0; v < station.state.size(); ++v) {
            const double speedBefore = (station.state[v] - before.state[v]) / first;
            const double speedBehind = (behind.state[v] - station.state[v]) / second;
            station.speed[v] = (speedBefore * second + speedBehind * first) / (first + second);
        }
    }
}

Flight::Place Flight::at(double seconds) const {
    NBX_CHECK(!empty(), L"a flight that goes nowhere");
    if (empty()) return {};
    const auto later = [](double time, const Station & station) { return time < station.time; };
    const auto next = std::upper_bound(stations_.begin(), stations_.end(), seconds, later);
    if (next == stations_.begin()) return placeOf(stations_.front().state);
    if (next == stations_.end()) return placeOf(stations_.back().state);
    const auto leg = std::size_t(next - stations_.begin());
    const double start = stations_[leg - 1].time;
    const double share = (seconds - start) / (next->time - start);
    return placeOf(next->isCircle ? onCircle(leg, share) : onCurve(leg, share));
}

Flight::State Flight::onCurve(std::size_t leg, double share) const {
    const Station &from = stations_[leg - 1], &to = stations_[leg];
    const double length = to.time - from.time;
    const double rest = 1.0 - share;
    State state;
    for (std::size_t v = 0; v < state.size(); ++v)
        state[v] = mixed(from.state[v], to.state[v], eased(share)) +
                   length * share * rest * (from.speed[v] * rest - to.speed[v] * share);
    return state;
}

Flight::State Flight::onCircle(std::size_t leg, double share) const {
    const Station &from = stations_[leg - 1], &to = stations_[leg];
    const double done = eased(share);
    const auto about = [&](const State & state) {
        const double east = state[FV_X] - to.aim.x, north = state[FV_Z] - to.aim.z;
        return std::pair(std::atan2(east, north), std::hypot(east, north));
    };
    const auto [startAngle, startRadius] = about(from.state);
    const auto [endAngle, endRadius] = about(to.state);
    const double angle = startAngle + (s_fullTurn + smallTurn(endAngle - startAngle)) * done;
    const double radius = mixed(startRadius, endRadius, done);
    const Point eye(to.aim.x + std::sin(angle) * radius, mixed(from.state[FV_Y], to.state[FV_Y], done),
                    to.aim.z + std::cos(angle) * radius);
    State state = stateOf(eye, to.aim);
    // Where the position before did not look at it the view turns there.
    const State first = stateOf({from.state[FV_X], from.state[FV_Y], from.state[FV_Z]}, to.aim);
    state[FV_Heading] += smallTurn(from.state[FV_Heading] - first[FV_Heading]) * (1.0 - done);
    for (const FlightValue v : {FV_Pitch, FV_Distance})
        state[v] += (from.state[v] - first[v]) * (1.0 - done);
    return state;
}
