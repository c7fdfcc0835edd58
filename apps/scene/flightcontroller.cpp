// The eye by heading and pitch, so that the horizon stays level. Each movement computes a new place of the
// eye and ends in `moveTo`, which keeps it above the ground and near the landscape. Heights come from a
// function alone, so a ray is followed in steps of one length, and the step that passes the ground is halved;
// a ridge thinner than a step is missed.

#include "flightcontroller.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

using Point = NBX::Vector3Base<double>;
constexpr double s_pi = std::numbers::pi;

constexpr double s_steepestDown = -s_pi / 2.0;
constexpr double s_steepestUp = s_pi * 0.45;
/// Turn of a drag from the middle of the picture to its border.
constexpr double s_orbitTurn = s_pi * 0.5;
/// What remains of the distance after one step.
constexpr double s_zoomFactor = 0.8;
constexpr double s_turnPerSecond = s_pi / 4.0;
constexpr double s_fastFactor = 5.0;

// Shares of the diagonal of the ground.
constexpr double s_clearance = 2e-4;
constexpr double s_farthest = 8.0;
constexpr double s_leastSpeed = 0.004;
constexpr double s_largestSpeed = 0.5;

constexpr double s_nearestShare = 5e-5; ///< of the depth of what is seen; 24 bits of depth resolve it
constexpr int s_pickSteps = 1500;
constexpr int s_pickBisections = 40;

/// Where the ray lies in the box; nothing when it misses.
std::optional<std::pair<double, double>> clip(const NBX::Ray & ray, const NBX::Bounds & box) {
    double first = 0.0, last = HUGE_VAL;
    for (unsigned axis = 0; axis < 3; ++axis) {
        const double origin = ray.getOrigin()[axis], direction = ray.getDirection()[axis];
        double a = box.getLLF()[axis] - origin, b = box.getURB()[axis] - origin;
        if (direction == 0.0) {
            if (a > 0.0 || b < 0.0) return std::nullopt;
            continue;
        }
        a /= direction;
        b /= direction;
        first = std::max(first, std::min(a, b));
        last = std::min(last, std::max(a, b));
    }
    if (!(first <= last)) return std::nullopt;
    return std::pair{first, last};
}

} // namespace

bool FlightController::Flight::isNone() const {
    return forward == 0.0 && right == 0.0 && up == 0.0 && turn == 0.0 && tilt == 0.0;
}

void FlightController::setGround(const FlightGround & ground) {
    ground_ = ground;
    moveTo(eye_);
}

void FlightController::setView(const Point & eye, const Point & aim) {
    const Point d = aim - eye;
    const double plan = std::hypot(d.x, d.z);
    heading_ = plan > 0.0 ? std::atan2(d.x, d.z) : 0.0;
    pitch_ = std::clamp(std::atan2(d.y, plan), s_steepestDown, s_steepestUp);
    moveTo(eye);
}

void FlightController::setLens(double fieldOfViewDegrees, double aspect) {
    tangent_ = std::tan(fieldOfViewDegrees * s_pi / 360.0);
    aspect_ = aspect;
}

Point FlightController::forward() const {
    return {std::sin(heading_) * std::cos(pitch_), std::sin(pitch_), std::cos(heading_) * std::cos(pitch_)};
}

Point FlightController::up() const {
    return {-std::sin(heading_) * std::sin(pitch_), std::cos(pitch_), -std::cos(heading_) * std::sin(pitch_)};
}

Point FlightController::right() const {
    return {std::cos(heading_), 0.0, -std::sin(heading_)};
}

Point FlightController::offset(const Point & inView) const {
    return right() * inView.x + up() * inView.y + forward() * inView.z;
}

Point FlightController::inView(const Point & offset) const {
    return {offset.dot(right()), offset.dot(up()), offset.dot(forward())};
}

NBX::Ray FlightController::ray(double x, double y) const {
    const Point direction = offset(Point(x * tangent_ * aspect_, y * tangent_, 1.0));
    return {eye_, direction * (1.0 / direction.length())};
}

/// Steps of one length, then the step that passes the ground is halved.
std::optional<Point> FlightController::pick(const NBX::Ray & ray) const {
    if (!ground_.heightAt || !ground_.box.isDefined()) return std::nullopt;
    const auto range = clip(ray, ground_.box.expand(clearance()));
    if (!range) return std::nullopt;
    const auto isBelow = [&](double t) {
        const Point p = ray.point(t);
        return p.y < ground_.heightAt(p.x, p.z);
    };
    double above = range->first;
    if (isBelow(above)) return std::nullopt;
    for (int i = 1; i <= s_pickSteps; ++i) {
        double below = std::lerp(range->first, range->second, double(i) / s_pickSteps);
        if (!isBelow(below)) {
            above = below;
            continue;
        }
        for (int j = 0; j < s_pickBisections; ++j) {
            const double middle = (above + below) * 0.5;
            (isBelow(middle) ? below : above) = middle;
        }
        return ray.point(above);
    }
    return std::nullopt;
}

/// The nearer one of the ground and of what stands on it.
std::optional<Point> FlightController::target(const NBX::Ray & ray) const {
    const std::optional<Point> ground = pick(ray);
    const double distance = ground_.distanceAlong ? ground_.distanceAlong(ray) : HUGE_VAL;
    if (!std::isfinite(distance)) return ground;
    return ground && (*ground - ray.getOrigin()).length() < distance ? ground : ray.point(distance);
}

void FlightController::grab(double x, double y) {
    grabbed_ = target(ray(x, y)).value_or(ground_.box.isDefined() ? ground_.box.center() : eye_ + forward());
    grabbedX_ = x;
    grabbedY_ = y;
}

void FlightController::orbitTo(double x, double y) {
    const Point fromGrabbed = inView(eye_ - grabbed_);
    heading_ = std::remainder(heading_ + (x - grabbedX_) * s_orbitTurn * aspect_, 2.0 * s_pi);
    const double before = pitch_;
    pitch_ = std::clamp(pitch_ + (y - grabbedY_) * s_orbitTurn, s_steepestDown, s_steepestUp);
    const Point eye = grabbed_ + offset(fromGrabbed);
    // A tilt that leads into the ground is left out; the turn goes on.
    if (eye.y < lowestAllowed(eye)) pitch_ = before;
    moveTo(grabbed_ + offset(fromGrabbed));
    grabbedX_ = x;
    grabbedY_ = y;
}

void FlightController::panTo(double x, double y) {
    const NBX::Ray now = ray(x, y);
    const double drop = grabbed_.y - eye_.y;
    const double t = drop / now.getDirection().y;
    // Close to the horizon a pixel is worth any distance.
    const double longest = 4.0 * (grabbed_ - eye_).length() + size();
    if (!(t > 0.0) || t > longest) return;
    const Point hit = now.point(t);
    moveTo(eye_ + Point(grabbed_.x - hit.x, 0.0, grabbed_.z - hit.z));
}

void FlightController::zoom(double steps, double x, double y) {
    const NBX::Ray towards = ray(x, y);
    const double middle = ground_.box.isDefined() ? (ground_.box.center() - eye_).length() : 1.0;
    const Point goal = target(towards).value_or(towards.point(std::max(middle, clearance())));
    const double factor = std::pow(s_zoomFactor, steps);
    const double distance = (goal - eye_).length() * factor;
    if (steps > 0.0 && distance < 2.0 * clearance()) return;
    moveTo(goal + (eye_ - goal) * factor);
}

std::optional<double> FlightController::middleDistance() const {
    const auto middle = target(ray(0.0, 0.0));
    return middle ? std::optional((*middle - eye_).length()) : std::nullopt;
}

void FlightController::turnNorth() {
    const double distance = middleDistance().value_or(0.0);
    const Point middle = eye_ + forward() * distance;
    heading_ = 0.0;
    moveTo(middle - forward() * distance);
}

void FlightController::fly(const Flight & flight, double seconds) {
    heading_ = std::remainder(heading_ + flight.turn * s_turnPerSecond * seconds, 2.0 * s_pi);
    pitch_ = std::clamp(pitch_ + flight.tilt * s_turnPerSecond * seconds, s_steepestDown, s_steepestUp);
    double speed = std::clamp(heightAboveGround(), size() * s_leastSpeed, size() * s_largestSpeed);
    if (flight.isFast) speed *= s_fastFactor;
    const Point way = forward() * flight.forward + right() * flight.right + Point(0.0, flight.up, 0.0);
    moveTo(eye_ + way * (speed * seconds));
}

FlightController::ClipDistances FlightController::clipDistances() const {
    if (!ground_.box.isDefined()) return {0.1, 1000.0};
    const double far =
        ((ground_.box.center() - eye_).length() + ground_.box.diagonal().length() * 0.5) * 1.01;
    const double nearest = (ground_.box.nearestPoint(eye_) - eye_).length();
    return {std::max(nearest * 0.5, far * s_nearestShare), far};
}

double FlightController::clearance() const {
    return size() * s_clearance;
}

double FlightController::size() const {
    return ground_.box.isDefined() ? ground_.box.diagonal().length() : 1.0;
}

double FlightController::lowestAllowed(const Point & p) const {
    if (!ground_.box.isDefined()) return -HUGE_VAL;
    const double height = ground_.heightAt ? ground_.heightAt(p.x, p.z) : -HUGE_VAL;
    const double floor = ground_.box.getLLF().y;
    return (std::isfinite(height) ? std::max(height, floor) : floor) + clearance();
}

void FlightController::moveTo(const Point & eye) {
    eye_ = eye;
    if (!ground_.box.isDefined()) return;
    const Point middle = ground_.box.center();
    const double distance = (eye_ - middle).length(), farthest = s_farthest * size();
    if (distance > farthest) eye_ = middle + (eye_ - middle) * (farthest / distance);
    eye_.y = std::max(eye_.y, lowestAllowed(eye_));
}

double FlightController::heightAboveGround() const {
    return ground_.box.isDefined() ? eye_.y - lowestAllowed(eye_) : 1.0;
}
