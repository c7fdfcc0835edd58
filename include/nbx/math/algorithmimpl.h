#pragma once

#include <array>
#include <optional>
#include <span>
#include <vector>

#include <nbx/container/sequence/iterator.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>

namespace NBX {

/// Operations of plane geometry and on sequences of points.
///
/// What is said to happen in the plane reads x and z alone. There, counter-clockwise is the turn from x to z,
/// and a loop is a closed line of points, the first of which does not stand at its end once more.
class AlgorithmImpl {
public:
    using Vector = Vector3Base<double>;
    using Matrix = Matrix4x4Base<double>;
    using Loop = std::vector<Vector>;
    /// Four corners, counter-clockwise.
    using Rectangle = std::array<Vector, 4>;

    /// The shortest turn that takes `normal`, of any length, to y; straight down it goes about x. The
    /// identity for a vector without a direction.
    static Matrix rotateToXZPlane(const Vector & normal);
    /// The points under `matrix`; null for null.
    static SO<Iterator<Vector>> transform(const Iterator<Vector> * points, const Matrix & matrix);
    /// The affine map of three points to their images, the same all along the normal of their plane.
    /// Not-a-number throughout when the three points lie on one line.
    static Matrix computeVertexTf(const std::array<Vector, 3> & points, const std::array<Vector, 3> & images);
    /// Of `point` from the plane through `planePoint`, above 0 on the side to which `normal`, of length 1,
    /// shows.
    static double signedDistance(const Vector & planePoint, const Vector & normal, const Vector & point);
    /// Whether the line through `lineA` and `lineB` meets the plane through `planePoint` with the normal
    /// `normal`, of any length, and where. With `onSegment` the line ends at both points, which count as its
    /// own. Of a line that lies in the plane it is `lineA`. False, with `result` as it was, for a line beside
    /// the plane, for a plane or a line without direction, and when a coordinate is not finite.
    static bool linePlaneIntersection(const Vector & normal, const Vector & planePoint, const Vector & lineA,
                                      const Vector & lineB, Vector & result, bool onSegment);
    /// The projective map of the x and y, not z, of four corners to those of an axis-aligned rectangle: `q0`
    /// to `rectMin`, `q1` to the corner beside it in x, `q2` to `rectMax`, `q3`; z stays, but for the
    /// division by the fourth component. That is 1 at `q0`, and above 0 within a convex quadrilateral,
    /// whichever way it turns. Not-a-number throughout when three of the corners lie on one line, which no
    /// such map straightens, and when one is not finite.
    static Matrix quadrilateralToQuadTransform(const Vector & q0, const Vector & q1, const Vector & q2,
                                               const Vector & q3, const Vector & rectMin,
                                               const Vector & rectMax);

    /// In the plane: the corners of the convex hull, counter-clockwise from the one with the least x, without
    /// points on its edges. Of equal points there is one, of a line its two ends. Points that are not finite
    /// are left out. O(n log n).
    static Loop convexHull2D(std::span<const Vector> points);
    /// The same; null for null.
    static SO<Iterator<Vector>> convexHull2D(const Iterator<Vector> * points);
    /// In the plane: the rectangle of the smallest area that holds all points, in whatever direction it lies;
    /// of those with the same area, as all of an acute triangle, that of the least circumference.
    /// Its corners have the y of the first point. It has no area where the points lie on one line. Nothing
    /// without points, and when one is not finite. O(n log n).
    static std::optional<Rectangle> boundingRectangle(const Iterator<Vector> * points);
    static std::optional<Rectangle> boundingRectangle(std::span<const Vector> points);
    /// Quicker for the corners of a triangle.
    static std::optional<Rectangle> boundingRectangle(const Vector & a, const Vector & b, const Vector & c);

    /// In the plane: the area that a loop encloses, above 0 when it runs counter-clockwise.
    static double signedArea(std::span<const Vector> loop);
    /// In the plane: turns a loop to run counter-clockwise.
    static void orientLoop(std::span<Vector> loop);
    /// In the plane: whether two convex loops, both counter-clockwise, have a point in common. False
    /// when a point is not finite.
    static bool intersectionTest(std::span<const Vector> a, std::span<const Vector> b);
    /// In the plane: what two convex loops, both counter-clockwise, have in common, with the y of `loop`;
    /// empty when that is nothing. Of loops that only touch it is a point or a line.
    static Loop clipConvexPolygons(std::span<const Vector> loop, std::span<const Vector> clip);
    /// In the plane: length 1, outwards from the edge from `a` to `b` of a counter-clockwise loop. Zero for
    /// an edge without length.
    static Vector getEdgeNormal(const Vector & a, const Vector & b);
    /// In the plane: the radians, from 0 up to a full turn, by which `from` turns counter-clockwise to show
    /// along `to`. 0 where one has no direction.
    static double calculateAngleCCW(const Vector & from, const Vector & to);
};

} // namespace NBX
