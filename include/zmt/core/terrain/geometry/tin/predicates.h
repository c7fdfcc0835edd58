#pragma once

#include <nbx/math/vector3base.h>

#include <cmath>

namespace ZMT::CORE {

/// Constants of the adaptive predicates, derived at load time from the machine's own arithmetic.
struct PredicateBounds {
    PredicateBounds();

    double epsilon;                   ///< largest power of two with `1 + epsilon` rounded to 1
    double splitter;                  ///< splits a `double` into two halves of its significand
    double result;                    ///< relative error of an estimate of an expansion
    double ccwA, ccwB, ccwC;          ///< error bounds of the three stages of `orient2d`
    double circleA, circleB, circleC; ///< error bounds of the three stages of `incircle`
    double circleFilter;              ///< of the first stage, for a rough magnitude
};

extern const PredicateBounds predicateBounds;

/// The exact stages behind the filters of `orient2d` and `incircle`; not for direct use.
double orient2dAdapt(const NBX::Vector3Base<double> & a, const NBX::Vector3Base<double> & b,
                     const NBX::Vector3Base<double> & c, double magnitude);
double incircleAdapt(const NBX::Vector3Base<double> & a, const NBX::Vector3Base<double> & b,
                     const NBX::Vector3Base<double> & c, const NBX::Vector3Base<double> & d);

/// Side of `c` with respect to the directed line from `a` to `b`, in the plane of the first two
/// components: positive on the left, negative on the right, 0 exactly on the line. The sign is exact as
/// long as no product of coordinate differences leaves the range of `double`; the magnitude means nothing.
/// Needs default rounding and no contraction of products and sums. NaN for coordinates that are not finite.
///
/// Source: J. R. Shewchuk, Adaptive Precision Floating-Point Arithmetic and Fast Robust Geometric
/// Predicates, Discrete & Computational Geometry 18, 1997.
inline double orient2d(const NBX::Vector3Base<double> & a, const NBX::Vector3Base<double> & b,
                       const NBX::Vector3Base<double> & c) {
    const double left = (a.x - c.x) * (b.y - c.y);
    const double right = (a.y - c.y) * (b.x - c.x);
    const double det = left - right;
    const double magnitude = std::fabs(left + right); // with unlike signs `det` is larger anyway
    if (std::fabs(det) >= predicateBounds.ccwA * magnitude) [[likely]]
        return det;
    return orient2dAdapt(a, b, c, magnitude);
}

/// Position of `d` with respect to the circle through `a`, `b`, `c`, which turn left: positive strictly
/// inside, negative strictly outside, 0 exactly on the circle. Otherwise as `orient2d`.
inline double incircle(const NBX::Vector3Base<double> & a, const NBX::Vector3Base<double> & b,
                       const NBX::Vector3Base<double> & c, const NBX::Vector3Base<double> & d) {
    const double adx = a.x - d.x, ady = a.y - d.y;
    const double bdx = b.x - d.x, bdy = b.y - d.y;
    const double cdx = c.x - d.x, cdy = c.y - d.y;
    const double aLift = adx * adx + ady * ady;
    const double bLift = bdx * bdx + bdy * bdy;
    const double cLift = cdx * cdx + cdy * cdy;
    const double det =
        aLift * (bdx * cdy - cdx * bdy) + bLift * (cdx * ady - adx * cdy) + cLift * (adx * bdy - bdx * ady);
    // By the inequality of Cauchy and Schwarz no smaller than the sum of the magnitudes of all products.
    const double magnitude = aLift * (bLift + cLift) + bLift * cLift;
    if (std::fabs(det) > predicateBounds.circleFilter * magnitude) [[likely]]
        return det;
    return incircleAdapt(a, b, c, d);
}

} // namespace ZMT::CORE
