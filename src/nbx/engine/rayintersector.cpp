#include <nbx/engine/rayintersector.h>

#include <nbx/math/triangletest.h>

namespace NBX {

NBX_CLASS_IMPL(RayIntersector, Handler)

ID RayIntersector::service() const {
    return ClassNameNBX();
}

bool RayIntersector::intersectTriangle(const Vector3Base<double> & origin,
                                       const Vector3Base<double> & direction, const Vector3Base<double> & a,
                                       const Vector3Base<double> & b, const Vector3Base<double> & c,
                                       double & distance) {
    double t = 0.0;
    if (!meetsTriangle(origin, direction, a, b, c, t, [](bool is) { return is; })) return false;
    distance = t;
    return true;
}

} // namespace NBX
