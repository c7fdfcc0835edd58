#pragma once

#include <nbx/engine/handler.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/math/ray.h>

namespace NBX {

class Engine;
class RayTracingTechnique;
class Shape;

/// Intersects the shapes of one class with the ray of a ray test.
class RayIntersector : public Handler {
    NBX_CLASS(RayIntersector, Handler)
public:
    ID service() const override;

    /// Tells `technique` the intersections with `shape`, by `RayTracingTechnique::report`. `ray` is in the
    /// frame of the shape, which `model` takes to the scene and `inverseModel` from there. False when the
    /// shape could not be tested, and the simplifier of its class is to be asked.
    virtual bool intersect(Engine * engine, const Matrix4x4Base<double> & model,
                           const Matrix4x4Base<double> & inverseModel, const Shape * shape, const Ray & ray,
                           RayTracingTechnique * technique) = 0;

    /// Whether all that it does is to report the nearest triangle of a mesh, so that who knows the triangles
    /// may do so in its place.
    virtual bool hitsTriangles() const { return false; }

protected:
    /// Both sides of the triangle count, its border as well. On a hit `distance` is the parameter along
    /// `direction`, 0 or more; a triangle without area is never hit.
    static bool intersectTriangle(const Vector3Base<double> & origin, const Vector3Base<double> & direction,
                                  const Vector3Base<double> & a, const Vector3Base<double> & b,
                                  const Vector3Base<double> & c, double & distance);
};

} // namespace NBX
