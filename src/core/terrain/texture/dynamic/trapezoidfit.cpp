// After T. Martin, T. Tan, "Anti-aliasing and Continuity with Trapezoidal Shadow Maps", 2004: the view
// volume, cut by the highest and the lowest ground, is seen in plan, and its hull laid between two lines
// across the view and two of its own edges, the longest one that leads away from the viewer and the longest
// one that leads back. The hull is gone round clockwise as seen from above, as terrains wind: so the first
// leg is the left one, the square is seen from above as the ground is, and what is turned to the viewer of a
// scene, or has its size in texels, as upright text has, is not mirrored.
//
// These edges share a corner where the hull is a triangle, and nearly do where the eye stands between the two
// heights; the quadrilateral would have three corners, which no projective map takes to a square, or nearly
// so, and all rows of texels would lie at the feet of the viewer. So the narrow side is widened. Where the
// ground ends within the hull, the legs keep their directions, so that texels become larger with the distance
// as before: edges of the ground say nothing of the view.

#include "trapezoidfit.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace ZMT::CORE {

namespace {

using Matrix = TrapezoidFit::Matrix;
using Point = TrapezoidFit::Point;
using Loop = NBX::AlgorithmImpl::Loop;

constexpr std::array<std::array<unsigned, 2>, 12> s_edges = {
    {{0, 1}, {0, 2}, {0, 4}, {1, 3}, {1, 5}, {2, 3}, {2, 6}, {3, 7}, {4, 6}, {4, 5}, {5, 7}, {6, 7}}};

/// Of a view of length 1; below it rounding decides where it shows to in plan.
constexpr double s_leastPlanLength = 1e-6;

/// A view without a far plane is cut half a billion times as far off as its near plane.
constexpr double s_endless = 1e-9;

/// A corner of the cube, or of a plane through it, in the frame of the ground.
Point corner(const Matrix & m, double x, double y, double z) {
    const auto fourth = [&](double depth) { return m(3, 0) * x + m(3, 1) * y + m(3, 2) * depth + m(3, 3); };
    const bool isEndless = z > 0.0 && std::abs(fourth(z)) < s_endless * std::abs(fourth(-z));
    return m * Point(x, y, isEndless ? z - 4.0 * s_endless : z);
}

std::array<Point, 8> cornersOfVolume(const Matrix & m) {
    std::array<Point, 8> corners;
    for (unsigned i = 0; i < 8; ++i)
        corners[i] = corner(m, i & 4U ? 1.0 : -1.0, i & 2U ? 1.0 : -1.0, i & 1U ? 1.0 : -1.0);
    return corners;
}

Point atHeight(double height, const Point & a, const Point & b) {
    Point result = a;
    NBX::AlgorithmImpl::linePlaneIntersection(Point(0.0, 1.0, 0.0), Point(0.0, height, 0.0), a, b, result,
                                              false);
    return result;
}

Point inPlan(const Point & direction) {
    return {direction.x, 0.0, direction.z};
}

/// Where the view shows to in plan, length 1; straight down, where the upper border of the picture lies.
Point planDirection(const Matrix & m) {
    const Point view = inPlan((corner(m, 0.0, 0.0, 1.0) - corner(m, 0.0, 0.0, -1.0)).normalized());
    if (view.length() > s_leastPlanLength) return view.normalized();
    const Point up = inPlan((m * Point(0.0, 1.0, -1.0) - m * Point(0.0, -1.0, -1.0)).normalized());
    return up.length() > s_leastPlanLength ? up.normalized() : Point(1.0, 0.0, 0.0);
}

/// Turns `d` to x.
Matrix turnToX(const Point & d) {
    return Matrix({d.x, 0, d.z, 0, 0, 1, 0, 0, -d.z, 0, d.x, 0, 0, 0, 0, 1});
}

/// Numbers of edges of a hull.
struct Legs {
    std::size_t forward = 0, backward = 0;
};

Legs legsOf(const Loop & turned) {
    Legs legs;
    double largest = 0.0, smallest = 0.0;
    for (std::size_t i = 0; i < turned.size(); ++i) {
        const double growth = turned[(i + 1) % turned.size()].x - turned[i].x;
        if (growth > largest) {
            largest = growth;
            legs.forward = i;
        }
        if (growth < smallest) {
            smallest = growth;
            legs.backward = i;
        }
    }
    return legs;
}

Point onLeg(const Loop & turned, std::size_t leg, double x) {
    Point result = turned[leg];
    NBX::AlgorithmImpl::linePlaneIntersection(Point(1.0, 0.0, 0.0), Point(x, 0.0, 0.0), turned[leg],
                                              turned[(leg + 1) % turned.size()], result, false);
    return {x, 0.0, result.z};
}

/// The legs of `hull`, clockwise, round that part of it, `seen`, whose ground counts: they are moved to it
/// side by side.
std::array<Point, 4> cornersOf(const Loop & hull, const Loop & seen) {
    const Legs legs = legsOf(hull);
    const auto [near, far] = std::minmax_element(seen.begin(), seen.end(),
                                                 [](const Point & a, const Point & b) { return a.x < b.x; });
    double backward = std::numeric_limits<double>::infinity(), forward = -backward;
    for (const Point & p : seen) {
        forward = std::max(forward, p.z - onLeg(hull, legs.forward, p.x).z);
        backward = std::min(backward, p.z - onLeg(hull, legs.backward, p.x).z);
    }
    const Point onForward(0.0, 0.0, forward), onBackward(0.0, 0.0, backward);
    return {onLeg(hull, legs.forward, near->x) + onForward, onLeg(hull, legs.backward, near->x) + onBackward,
            onLeg(hull, legs.backward, far->x) + onBackward, onLeg(hull, legs.forward, far->x) + onForward};
}

Loop turnedBy(const Matrix & turn, const Loop & loop) {
    Loop turned;
    turned.reserve(loop.size());
    for (const Point & p : loop)
        turned.push_back(turn * inPlan(p));
    return turned;
}

/// What of a hull lies on the ground.
Loop onGround(const Loop & hull, const NBX::Bounds & ground) {
    if (!ground.isDefined()) return hull;
    const Loop corners = {ground.point(0.0, 0.0, 0.0), ground.point(1.0, 0.0, 0.0),
                          ground.point(1.0, 0.0, 1.0), ground.point(0.0, 0.0, 1.0)};
    return NBX::AlgorithmImpl::convexHull2D(NBX::AlgorithmImpl::clipConvexPolygons(hull, corners));
}

/// Moves the two ends of a side apart, of which `low` has the lesser z.
void widen(Point & low, Point & high, double leastWidth) {
    const double missing = leastWidth - (high.z - low.z);
    if (!(missing > 0.0)) return;
    low.z -= missing / 2.0;
    high.z += missing / 2.0;
}

} // namespace

std::vector<Point> TrapezoidFit::footprint(const Matrix & m, double minHeight, double maxHeight) {
    const std::array<Point, 8> corners = cornersOfVolume(m);
    std::vector<Point> points;
    points.reserve(2 * s_edges.size());
    for (const auto & [first, second] : s_edges) {
        Point a = corners[first], b = corners[second];
        if (b.y < a.y) std::swap(a, b);
        if (b.y < minHeight || a.y > maxHeight) continue;
        points.push_back(b.y > maxHeight ? atHeight(maxHeight, a, b) : b);
        points.push_back(a.y < minHeight ? atHeight(minHeight, a, b) : a);
    }
    return points;
}

std::optional<TrapezoidFit::Trapezoid> TrapezoidFit::trapezoid(const Matrix & m, double minHeight,
                                                               double maxHeight, double nearest,
                                                               const NBX::Bounds & ground) {
    const std::vector<Point> points = footprint(m, minHeight, maxHeight);
    if (points.size() < 3) return std::nullopt;
    const Loop hull = NBX::AlgorithmImpl::convexHull2D(points);
    if (hull.size() < 3) return std::nullopt;
    Trapezoid result;
    result.hull = onGround(hull, ground);
    if (result.hull.size() < 3) return std::nullopt;

    const Matrix turn = turnToX(planDirection(m)), back = turn.transposed();
    auto & c = result.corners;
    Loop clockwise = turnedBy(turn, hull);
    // From the same point on.
    std::reverse(clockwise.begin() + 1, clockwise.end());
    c = cornersOf(clockwise, turnedBy(turn, result.hull));
    const double ratio = nearest > 0.0 ? nearest / (nearest + c[2].x - c[0].x) : 0.0;
    const double nearWidth = c[0].z - c[1].z, farWidth = c[3].z - c[2].z;
    widen(c[1], c[0], std::max(ratio, leastRatio) * farWidth);
    widen(c[2], c[3], leastRatio * nearWidth);
    for (Point & corner : c)
        corner = back * corner;
    return result;
}

bool TrapezoidFit::fit(const Trapezoid & trapezoid, Matrix & result) {
    const auto corner = [&](unsigned i) {
        return Point(trapezoid.corners[i].x, trapezoid.corners[i].z, 0.0);
    };
    const Matrix map = NBX::AlgorithmImpl::quadrilateralToQuadTransform(
        corner(0), corner(1), corner(2), corner(3), Point(0.0, 0.0, 0.0), Point(1.0, 1.0, 0.0));
    const auto & entries = map.rows();
    if (!std::all_of(entries.begin(), entries.end(), [](double e) { return std::isfinite(e); })) return false;
    result = map;
    return true;
}

bool TrapezoidFit::fit(const Matrix & m, double minHeight, double maxHeight, Matrix & result) {
    const std::optional<Trapezoid> found = trapezoid(m, minHeight, maxHeight);
    return found && fit(*found, result);
}

Matrix TrapezoidFit::squareToClip() {
    return Matrix::translation({-1.0, -1.0, 0.0}) * Matrix::scaling({2.0, 2.0, 1.0});
}

} // namespace ZMT::CORE
