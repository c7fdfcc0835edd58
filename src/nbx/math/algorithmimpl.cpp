// Convex hull: A. M. Andrew, "Another Efficient Algorithm for Convex Hulls in Two Dimensions", 1979. Smallest
// rectangle: it has a side along an edge of the hull (H. Freeman, R. Shapira, "Determining the Minimum-Area
// Encasing Rectangle for an Arbitrary Closed Curve", 1975), and going round, the points that it leans on move
// forwards only (G. Toussaint, "Solving Geometric Problems with the Rotating Calipers", 1983). Clipping:
// I. E. Sutherland, G. W. Hodgman, "Reentrant Polygon Clipping", 1974. Projective maps: P. S. Heckbert,
// "Fundamentals of Texture Mapping and Image Warping", 1989, section 2.2. Points are taken relative to one of
// them wherever products are formed, so that a place far from the origin costs no digits.

#include <nbx/math/algorithmimpl.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <numbers>
#include <utility>

#include <nbx/container/sequence/array.h>
#include <nbx/math/bounds.h>

namespace NBX {

namespace {

using Vector = AlgorithmImpl::Vector;
using Loop = AlgorithmImpl::Loop;
using Rectangle = AlgorithmImpl::Rectangle;
using Matrix = AlgorithmImpl::Matrix;

bool isFinite(const Vector & v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

/// Twice the area of the triangle of the origin, `u` and `v`, in the plane.
double cross(const Vector & u, const Vector & v) {
    return u.x * v.z - u.z * v.x;
}

double dot(const Vector & u, const Vector & v) {
    return u.x * v.x + u.z * v.z;
}

/// Above 0 for a point to the left of the line from `a` to `b`.
double side(const Vector & a, const Vector & b, const Vector & p) {
    return cross(b - a, p - a);
}

/// The points in the order of x, then z, each place once, without what has no order.
Loop sortedPlaces(std::span<const Vector> points) {
    Loop sorted;
    sorted.reserve(points.size());
    std::copy_if(points.begin(), points.end(), std::back_inserter(sorted), isFinite);
    const auto before = [](const Vector & a, const Vector & b) { return a.x != b.x ? a.x < b.x : a.z < b.z; };
    std::sort(sorted.begin(), sorted.end(), before);
    const auto same = [](const Vector & a, const Vector & b) { return a.x == b.x && a.z == b.z; };
    sorted.erase(std::unique(sorted.begin(), sorted.end(), same), sorted.end());
    return sorted;
}

/// The rectangle along one direction of length 1 that holds some points, which are relative to an origin.
struct Encasing {
    Vector along;
    double left, right, bottom, top;

    double area() const { return (right - left) * (top - bottom); }
    double semiperimeter() const { return right - left + top - bottom; }
    /// What differs by rounding alone is equal.
    bool isBetterThan(const Encasing & o) const {
        constexpr double rounding = 1e-12;
        if (area() < o.area() * (1.0 - rounding)) return true;
        return area() <= o.area() * (1.0 + rounding) &&
               semiperimeter() < o.semiperimeter() * (1.0 - rounding);
    }
    Rectangle corners(const Vector & origin) const {
        const Vector across(-along.z, 0.0, along.x);
        const auto at = [&](double u, double v) { return origin + along * u + across * v; };
        return {at(left, bottom), at(right, bottom), at(right, top), at(left, top)};
    }
};

Vector inPlane(const Vector & v) {
    return {v.x, 0.0, v.z};
}

/// The one with a side along edge `i` of a hull. `reached` are the points that the right, upper and left side
/// lean on: at first any, then those of the edge before.
Encasing encasingAlong(const Loop & hull, std::size_t i, std::array<std::size_t, 3> & reached) {
    const std::size_t n = hull.size();
    const Vector along = (hull[(i + 1) % n] - hull[i]).normalized(), across(-along.z, 0.0, along.x);
    const std::array<Vector, 3> towards = {along, across, -along};
    for (std::size_t k = 0; k < 3; ++k) {
        std::size_t & at = reached[k];
        // No side leans on a point before that of the side before it.
        if (k > 0 && (at + n - i) % n < (reached[k - 1] + n - i) % n) at = reached[k - 1];
        for (std::size_t steps = 0; steps < n && dot(hull[(at + 1) % n] - hull[at], towards[k]) > 0.0;
             ++steps)
            at = (at + 1) % n;
    }
    return {along, dot(hull[reached[2]], along), dot(hull[reached[0]], along), dot(hull[i], across),
            dot(hull[reached[1]], across)};
}

Encasing smallestEncasing(const Loop & hull) {
    std::array<std::size_t, 3> reached = {1, 1, 1};
    Encasing best = encasingAlong(hull, 0, reached);
    for (std::size_t i = 1; i < hull.size(); ++i) {
        const Encasing next = encasingAlong(hull, i, reached);
        if (next.isBetterThan(best)) best = next;
    }
    return best;
}

bool isSeparatedByAnEdge(std::span<const Vector> loop, std::span<const Vector> other) {
    for (std::size_t i = 0; i < loop.size(); ++i) {
        const Vector & a = loop[i];
        const Vector & b = loop[(i + 1) % loop.size()];
        if (std::none_of(other.begin(), other.end(), [&](const Vector & p) { return side(a, b, p) >= 0.0; }))
            return true;
    }
    return false;
}

/// Edges alone do not separate loops without area.
bool isSeparatedAlong(double Vector::*axis, std::span<const Vector> a, std::span<const Vector> b) {
    const auto less = [axis](const Vector & p, const Vector & q) { return p.*axis < q.*axis; };
    const auto [leastA, mostA] = std::minmax_element(a.begin(), a.end(), less);
    const auto [leastB, mostB] = std::minmax_element(b.begin(), b.end(), less);
    return *mostA.*axis < *leastB.*axis || *mostB.*axis < *leastA.*axis;
}

/// The part of `loop` to the left of the line from `a` to `b`.
Loop clippedByLine(const Loop & loop, const Vector & a, const Vector & b) {
    Loop result;
    for (std::size_t i = 0; i < loop.size(); ++i) {
        const Vector & p = loop[i];
        const Vector & q = loop[(i + 1) % loop.size()];
        const double sideP = side(a, b, p), sideQ = side(a, b, q);
        if (sideP >= 0.0) result.push_back(p);
        if ((sideP > 0.0 && sideQ < 0.0) || (sideP < 0.0 && sideQ > 0.0))
            result.push_back(p + (q - p) * (sideP / (sideP - sideQ)));
    }
    return result;
}

Matrix notANumberMatrix() {
    std::array<double, 16> rows;
    rows.fill(std::numeric_limits<double>::quiet_NaN());
    return Matrix(rows);
}

/// Twice the area of a triangle in x and y.
double crossXY(const Vector & a, const Vector & b, const Vector & c) {
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

/// The map of the unit square to four corners, singular where three of these lie on one line.
Matrix squareToQuadrilateral(const std::array<Vector, 4> & q) {
    const Vector d1 = q[1] - q[2], d2 = q[3] - q[2], sum = q[0] - q[1] + q[2] - q[3];
    const double divisor = d1.x * d2.y - d2.x * d1.y;
    const double g = (sum.x * d2.y - d2.x * sum.y) / divisor, h = (d1.x * sum.y - sum.x * d1.y) / divisor;
    const Vector u = q[1] - q[0] + q[1] * g, v = q[3] - q[0] + q[3] * h;
    return Matrix({u.x, v.x, 0, q[0].x, u.y, v.y, 0, q[0].y, 0, 0, 1, 0, g, h, 0, 1});
}

/// Whether three of four corners, of a size of about 1, lie on one line but for rounding.
bool hasThreeOnOneLine(const std::array<Vector, 4> & q) {
    constexpr double rounding = 1e-14;
    for (unsigned i = 0; i < 4; ++i)
        if (!(std::abs(crossXY(q[i], q[(i + 1) % 4], q[(i + 2) % 4])) > rounding)) return true;
    return false;
}

} // namespace

AlgorithmImpl::Matrix AlgorithmImpl::rotateToXZPlane(const Vector & normal) {
    // Before the length, so that neither a tiny nor a huge one is lost.
    const double size = std::max({std::abs(normal.x), std::abs(normal.y), std::abs(normal.z)});
    if (!(size > 0.0) || !isFinite(normal)) return Matrix();
    const Vector n = (normal / size).normalized();
    const Vector axis(-n.z, 0.0, n.x); // n x y
    const double sine = axis.length();
    if (sine == 0.0) return n.y > 0.0 ? Matrix() : Matrix({1, 0, 0, 0, 0, -1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1});
    return Matrix::rotation(axis / sine, std::atan2(sine, n.y));
}

SO<Iterator<AlgorithmImpl::Vector>> AlgorithmImpl::transform(const Iterator<Vector> * points,
                                                             const Matrix & matrix) {
    if (!points) return nullptr;
    Loop result;
    result.reserve(points->size());
    for (const Vector & p : *points)
        result.push_back(matrix * p);
    return new Array<Vector>(std::move(result));
}

AlgorithmImpl::Matrix AlgorithmImpl::computeVertexTf(const std::array<Vector, 3> & points,
                                                     const std::array<Vector, 3> & images) {
    const Vector u = points[1] - points[0], v = points[2] - points[0];
    const Vector normal = u.cross(v);
    const double squared = normal.length2();
    if (!(squared > 0.0)) return notANumberMatrix();
    Matrix m;
    // How far a point lies along u and along v.
    const Vector alongU = v.cross(normal) / squared, alongV = normal.cross(u) / squared;
    const Vector imageU = images[1] - images[0], imageV = images[2] - images[0];
    for (unsigned row = 0; row < 3; ++row) {
        for (unsigned column = 0; column < 3; ++column)
            m(row, column) = imageU[row] * alongU[column] + imageV[row] * alongV[column];
        m(row, 3) =
            images[0][row] - imageU[row] * alongU.dot(points[0]) - imageV[row] * alongV.dot(points[0]);
    }
    return m;
}

double AlgorithmImpl::signedDistance(const Vector & planePoint, const Vector & normal, const Vector & point) {
    return (point - planePoint).dot(normal);
}

bool AlgorithmImpl::linePlaneIntersection(const Vector & normal, const Vector & planePoint,
                                          const Vector & lineA, const Vector & lineB, Vector & result,
                                          bool onSegment) {
    const double size = std::max({std::abs(normal.x), std::abs(normal.y), std::abs(normal.z)});
    if (!(size > 0.0) || !isFinite(normal)) return false;
    const Vector n = normal / size;
    const double a = signedDistance(planePoint, n, lineA), b = signedDistance(planePoint, n, lineB);
    if (!std::isfinite(a) || !std::isfinite(b) || !isFinite(lineA) || !isFinite(lineB)) return false;
    if (a == 0.0) {
        result = lineA;
        return true;
    }
    if (a == b || (onSegment && (a > 0.0) == (b > 0.0) && b != 0.0)) return false;
    // From the nearer end, so that one in the plane is met exactly.
    const bool fromA = std::abs(a) <= std::abs(b);
    const double ratio = fromA ? a / b : b / a, part = -ratio / (1.0 - ratio);
    const Vector & from = fromA ? lineA : lineB;
    const Vector met = from + ((fromA ? lineB : lineA) - from) * part;
    if (!isFinite(met)) return false;
    result = met;
    return true;
}

AlgorithmImpl::Matrix AlgorithmImpl::quadrilateralToQuadTransform(const Vector & q0, const Vector & q1,
                                                                  const Vector & q2, const Vector & q3,
                                                                  const Vector & rectMin,
                                                                  const Vector & rectMax) {
    Bounds box(Vector(q0.x, q0.y, 0.0));
    for (const Vector & q : {q1, q2, q3})
        box += Vector(q.x, q.y, 0.0);
    const Vector centre = box.point(0.5, 0.5, 0.5), diagonal = box.diagonal();
    const double size = std::max(diagonal.x, diagonal.y) * 0.5;
    const auto relative = [&](const Vector & q) {
        return Vector((q.x - centre.x) / size, (q.y - centre.y) / size, 0.0);
    };
    const std::array<Vector, 4> corners = {relative(q0), relative(q1), relative(q2), relative(q3)};
    if (!std::all_of(corners.begin(), corners.end(), isFinite) || hasThreeOnOneLine(corners))
        return notANumberMatrix();
    const Matrix toSquare = squareToQuadrilateral(corners).inverse();
    const Vector extent = rectMax - rectMin;
    return Matrix::translation({rectMin.x, rectMin.y, 0.0}) * Matrix::scaling({extent.x, extent.y, 1.0}) *
           toSquare * Matrix::scaling({1.0 / size, 1.0 / size, 1.0}) *
           Matrix::translation({-centre.x, -centre.y, 0.0});
}

AlgorithmImpl::Loop AlgorithmImpl::convexHull2D(std::span<const Vector> points) {
    const Loop sorted = sortedPlaces(points);
    if (sorted.size() < 3) return sorted;
    Loop hull;
    const auto append = [&hull](const Vector & p, std::size_t keep) {
        while (hull.size() > keep && side(hull[hull.size() - 2], hull.back(), p) <= 0.0)
            hull.pop_back();
        hull.push_back(p);
    };
    for (const Vector & p : sorted)
        append(p, 1);
    const std::size_t lower = hull.size();
    for (std::size_t i = sorted.size() - 1; i-- > 0;)
        append(sorted[i], lower);
    hull.pop_back();
    return hull;
}

SO<Iterator<AlgorithmImpl::Vector>> AlgorithmImpl::convexHull2D(const Iterator<Vector> * points) {
    if (!points) return nullptr;
    return new Array<Vector>(convexHull2D(Loop(points->begin(), points->end())));
}

std::optional<AlgorithmImpl::Rectangle> AlgorithmImpl::boundingRectangle(const Iterator<Vector> * points) {
    if (!points) return std::nullopt;
    if (const Vector * first = points->pointer()) return boundingRectangle({first, points->size()});
    const Loop copy(points->begin(), points->end());
    return boundingRectangle(copy);
}

std::optional<AlgorithmImpl::Rectangle> AlgorithmImpl::boundingRectangle(std::span<const Vector> points) {
    if (points.empty() || !std::all_of(points.begin(), points.end(), isFinite)) return std::nullopt;
    Loop relative;
    relative.reserve(points.size());
    for (const Vector & p : points)
        relative.push_back(inPlane(p - points[0]));
    const Loop hull = convexHull2D(relative);
    if (hull.size() == 1) return Rectangle{points[0], points[0], points[0], points[0]};
    return smallestEncasing(hull).corners(points[0]);
}

std::optional<AlgorithmImpl::Rectangle> AlgorithmImpl::boundingRectangle(const Vector & a, const Vector & b,
                                                                         const Vector & c) {
    if (!isFinite(a) || !isFinite(b) || !isFinite(c)) return std::nullopt;
    const std::array<Vector, 3> points = {Vector(), inPlane(b - a), inPlane(c - a)};
    std::optional<Encasing> best;
    for (std::size_t i = 0; i < 3; ++i) {
        const Vector along = (points[(i + 1) % 3] - points[i]).normalized(), across(-along.z, 0.0, along.x);
        if (along == Vector()) continue;
        const auto [left, right] =
            std::minmax({dot(points[0], along), dot(points[1], along), dot(points[2], along)});
        const auto [bottom, top] =
            std::minmax({dot(points[0], across), dot(points[1], across), dot(points[2], across)});
        const Encasing next{along, left, right, bottom, top};
        if (!best || next.isBetterThan(*best)) best = next;
    }
    return best ? best->corners(a) : Rectangle{a, a, a, a};
}

double AlgorithmImpl::signedArea(std::span<const Vector> loop) {
    double twice = 0.0;
    for (std::size_t i = 1; i + 1 < loop.size(); ++i)
        twice += side(loop[0], loop[i], loop[i + 1]);
    return twice * 0.5;
}

void AlgorithmImpl::orientLoop(std::span<Vector> loop) {
    if (signedArea(loop) < 0.0) std::reverse(loop.begin(), loop.end());
}

bool AlgorithmImpl::intersectionTest(std::span<const Vector> a, std::span<const Vector> b) {
    if (a.empty() || b.empty()) return false;
    if (!std::all_of(a.begin(), a.end(), isFinite) || !std::all_of(b.begin(), b.end(), isFinite))
        return false;
    return !isSeparatedAlong(&Vector::x, a, b) && !isSeparatedAlong(&Vector::z, a, b) &&
           !isSeparatedByAnEdge(a, b) && !isSeparatedByAnEdge(b, a);
}

AlgorithmImpl::Loop AlgorithmImpl::clipConvexPolygons(std::span<const Vector> loop,
                                                      std::span<const Vector> clip) {
    if (!intersectionTest(loop, clip)) return {};
    // A point has no edges that could cut, and a line no end.
    if (signedArea(clip) == 0.0) std::swap(loop, clip);
    Loop result(loop.begin(), loop.end());
    for (std::size_t i = 0; i < clip.size(); ++i)
        result = clippedByLine(result, clip[i], clip[(i + 1) % clip.size()]);
    return result;
}

AlgorithmImpl::Vector AlgorithmImpl::getEdgeNormal(const Vector & a, const Vector & b) {
    return Vector(b.z - a.z, 0.0, a.x - b.x).normalized();
}

double AlgorithmImpl::calculateAngleCCW(const Vector & from, const Vector & to) {
    const double angle = std::atan2(cross(from, to), dot(from, to));
    // What is less than nothing by rounding alone would come out as a full turn.
    const double turn = angle < 0.0 ? angle + 2.0 * std::numbers::pi : angle;
    return turn < 2.0 * std::numbers::pi ? turn : 0.0;
}

} // namespace NBX
