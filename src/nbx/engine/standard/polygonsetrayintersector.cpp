#include <nbx/engine/engine.h>
#include <nbx/engine/rayintersector.h>
#include <nbx/engine/raytracingtechnique.h>
#include <nbx/scene/shape/polygonset.h>

namespace NBX {

namespace {

/// Tests the triangles of a polygon set one by one. Both sides are hit; the normal looks at the ray's origin.
class PolygonSetRayIntersector : public RayIntersector {
    NBX_TEMPLATE_CLASS(PolygonSetRayIntersector, RayIntersector)
public:
    ID target() const override { return PolygonSet::ClassNameNBX(); }

    bool intersect(Engine * engine, const Matrix4x4Base<double> &, const Matrix4x4Base<double> &,
                   const Shape * shape, const Ray & ray, RayTracingTechnique * technique) override {
        const auto * set = dynamic_cast<const PolygonSet *>(shape);
        if (!set) return false;
        if (!RayTracingTechnique::checkBounds(ray, set->boundingBox())) return true;
        std::array<unsigned, 3> triangle{};
        for (unsigned i = 0; i < set->triangles(); ++i)
            if (set->triangle(i, triangle)) intersectOne(engine, *set, triangle, ray, technique);
        return true;
    }

private:
    static void intersectOne(Engine * engine, const PolygonSet & set,
                             const std::array<unsigned, 3> & triangle, const Ray & ray,
                             RayTracingTechnique * technique) {
        const PolygonSet::Vertices & vertices = *set.newVertexIterator();
        const Vector3Base<double> a = vertices.get(triangle[0]), b = vertices.get(triangle[1]),
                                  c = vertices.get(triangle[2]);
        double distance = 0.0;
        if (!intersectTriangle(ray.getOrigin(), ray.getDirection(), a, b, c, distance)) return;
        technique->reportTriangle(engine, ray, distance, {a, b, c}, &set);
    }
};

} // namespace

NBX_REGISTER_HANDLER(PolygonSetRayIntersector)

} // namespace NBX
