// T. Möller, B. Trumbore, "Fast, Minimum Storage Ray/Triangle Intersection", 1997, for both sides. Its border
// is widened by rounding, so that a ray does not slip through the edge that two triangles share.

#include <nbx/engine/rayintersector.h>

namespace NBX {

NBX_CLASS_IMPL(RayIntersector, Handler)

ID RayIntersector::service() const {
    return ClassNameNBX();
}

bool RayIntersector::intersectTriangle(const Vector3Base<double> & origin,
                                       const Vector3Base<double> & direction, const Vector3Base<double> & a,
                                       const Vector3Base<double> & b, const Vector3Base<double> & c,
                                       double & distance) {
    constexpr double border = 1e-12;
    const Vector3Base<double> edge1 = b - a, edge2 = c - a;
    const Vector3Base<double> p = direction.cross(edge2);
    const double det = edge1.dot(p);
    if (det == 0.0) return false;
    const Vector3Base<double> toOrigin = origin - a;
    const double u = toOrigin.dot(p) / det;
    if (!(u >= -border && u <= 1.0 + border)) return false;
    const Vector3Base<double> q = toOrigin.cross(edge1);
    const double v = direction.dot(q) / det;
    if (!(v >= -border && u + v <= 1.0 + border)) return false;
    const double t = edge2.dot(q) / det;
    if (!(t >= 0.0)) return false;
    distance = t;
    return true;
}

} // namespace NBX
