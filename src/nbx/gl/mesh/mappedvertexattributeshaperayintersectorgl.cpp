#include <optional>

#include <nbx/engine/engine.h>
#include <nbx/engine/rayintersector.h>
#include <nbx/engine/raytracingtechnique.h>
#include <nbx/gl/mesh/mappedvertexattributeshapegl.h>

#include "nbx/container/space/trianglehierarchy.h"

namespace NBX {

namespace {

using V = Vector3Base<double>;
using Mesh = MappedVertexAttributeShapeGL;

/// Finds the nearest triangle of a mesh. Both sides are hit; the normal looks at the ray's origin.
class MappedVertexAttributeShapeRayIntersectorGL : public RayIntersector {
    NBX_TEMPLATE_CLASS(MappedVertexAttributeShapeRayIntersectorGL, RayIntersector)
public:
    ID target() const override { return Mesh::ClassNameNBX(); }

    bool hitsTriangles() const override { return true; }

    bool intersect(Engine * engine, const Matrix4x4Base<double> &, const Matrix4x4Base<double> &,
                   const Shape * shape, const Ray & ray, RayTracingTechnique * technique) override {
        const auto * mesh = dynamic_cast<const Mesh *>(shape);
        if (!mesh) return false;
        std::optional<Hit> hit;
        if (const TriangleHierarchy * hierarchy = mesh->hierarchy())
            hit = nearestOf(*hierarchy, ray, technique->limit());
        else if (RayTracingTechnique::checkBounds(ray, mesh->boundingBox()))
            hit = nearestOf(*mesh, ray);
        if (hit) technique->reportTriangle(engine, ray, hit->distance, hit->corners, mesh);
        return true;
    }

private:
    struct Hit {
        double distance;
        std::array<V, 3> corners;
    };

    static std::array<V, 3> wide(const TriangleHierarchy::Corners & corners) {
        const auto wideOne = [](const Vector3Base<float> & v) { return V(v.x, v.y, v.z); };
        return {wideOne(corners[0]), wideOne(corners[1]), wideOne(corners[2])};
    }

    static std::optional<Hit> nearestOf(const TriangleHierarchy & hierarchy, const Ray & ray, double limit) {
        const auto found = hierarchy.nearest(ray, limit);
        if (!found) return std::nullopt;
        return Hit{found->distance, wide(found->corners)};
    }

    static std::optional<Hit> nearestOf(const Mesh & mesh, const Ray & ray) {
        std::optional<Hit> best;
        std::array<unsigned, 3> triangle{};
        double distance = 0.0;
        for (unsigned i = 0; i < mesh.triangles(); ++i) {
            if (!mesh.triangle(i, triangle)) continue;
            const std::array<V, 3> corners{mesh.vertex(triangle[0]), mesh.vertex(triangle[1]),
                                           mesh.vertex(triangle[2])};
            const bool isHit = intersectTriangle(ray.getOrigin(), ray.getDirection(), corners[0], corners[1],
                                                 corners[2], distance);
            if (isHit && (!best || distance < best->distance)) best = Hit{distance, corners};
        }
        return best;
    }
};

} // namespace

NBX_REGISTER_HANDLER(MappedVertexAttributeShapeRayIntersectorGL)

} // namespace NBX
