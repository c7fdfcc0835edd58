#pragma once

#include <array>
#include <optional>
#include <vector>

#include <nbx/math/algorithmimpl.h>
#include <nbx/math/bounds.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/math/vector3base.h>

namespace ZMT::CORE {

/// The trapezoid of the ground that a camera sees, and the projective map that takes it to the unit square:
/// its texels lie densely near the viewer and sparsely far away. Ground is the plane of x and z; y is height.
///
/// Laws: (1) what lies in the view volume between the two heights is mapped into the unit square, but for
/// rounding; (2) its fourth component is above 0 there; (3) the second coordinate grows with the distance
/// along the view, and depends on nothing else; (4) the first one grows to the right of the view, so that
/// nothing is mirrored.
class TrapezoidFit {
public:
    using Matrix = NBX::Matrix4x4Base<double>;
    using Point = NBX::Vector3Base<double>;

    /// No narrower is the one of the parallel sides than this times the other. So the sides never meet, as
    /// those of a triangle would, and the nearest ground does not take all texels.
    static constexpr double leastRatio = 1.0 / 256.0;

    struct Trapezoid {
        std::vector<Point> hull; ///< of what is seen, in plan, counter-clockwise
        /// On the leg that leads away from the viewer, at the left, and on the one that leads back: near
        /// left, near right, far right, far left.
        std::array<Point, 4> corners;
    };

    /// The corners of the view volume between two heights. `m` takes the cube from -1 to 1 to the frame of
    /// the ground.
    static std::vector<Point> footprint(const Matrix & m, double minHeight, double maxHeight);
    /// Nothing where the footprint has no area. What lies outside of the plan of `ground`, where that is
    /// defined, does not count. The legs meet no nearer than `nearest` before the near side: the distance
    /// within which nothing is seen.
    static std::optional<Trapezoid> trapezoid(const Matrix & m, double minHeight, double maxHeight,
                                              double nearest = 0.0,
                                              const NBX::Bounds & ground = NBX::Bounds());
    /// The map of (x, z), as the first two of its coordinates, to the unit square. False, with `result` as it
    /// was, where there is no trapezoid.
    static bool fit(const Matrix & m, double minHeight, double maxHeight, Matrix & result);
    static bool fit(const Trapezoid & trapezoid, Matrix & result);

    /// From the unit square to the cube from -1 to 1.
    static Matrix squareToClip();
};

} // namespace ZMT::CORE
