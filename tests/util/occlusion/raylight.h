#pragma once

#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include <embree3/rtcore.h>

#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>

#include "util/occlusion/lightlist.h"

/// Light that is computed on the processor, one ray for each point and direction.
class RayLight {
public:
    using V = NBX::Vector3Base<double>;

    RayLight() : device_(rtcNewDevice(nullptr)), scene_(rtcNewScene(device_)) {
        rtcSetSceneFlags(scene_, RTC_SCENE_FLAG_ROBUST);
    }
    ~RayLight() {
        rtcReleaseScene(scene_);
        rtcReleaseDevice(device_);
    }
    RayLight(const RayLight &) = delete;
    RayLight & operator=(const RayLight &) = delete;

    void add(const V & a, const V & b, const V & c) {
        for (const V & p : {a, b, c})
            corners_.insert(corners_.end(), {float(p.x), float(p.y), float(p.z)});
    }
    void add(const NBX::PolygonSet & set) {
        std::array<unsigned, 3> t{};
        for (unsigned i = 0; i < set.triangles(); ++i)
            if (set.triangle(i, t))
                add(set.newVertexIterator()->get(t[0]), set.newVertexIterator()->get(t[1]),
                    set.newVertexIterator()->get(t[2]));
    }
    /// With the cells divided as they are drawn.
    void add(const ZMT::CORE::GridData & grid) {
        for (unsigned y = 0; y + 1 < grid.sizeY(); ++y)
            for (unsigned x = 0; x + 1 < grid.sizeX(); ++x) {
                add(grid.vertex(x, y), grid.vertex(x, y + 1), grid.vertex(x + 1, y));
                add(grid.vertex(x + 1, y), grid.vertex(x, y + 1), grid.vertex(x + 1, y + 1));
            }
    }
    void commit() {
        const RTCGeometry geometry = rtcNewGeometry(device_, RTC_GEOMETRY_TYPE_TRIANGLE);
        const std::size_t vertices = corners_.size() / 3;
        auto * to = static_cast<float *>(
            rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 12, vertices));
        std::copy(corners_.begin(), corners_.end(), to);
        auto * indices = static_cast<unsigned *>(
            rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 12, vertices / 3));
        for (unsigned i = 0; i < vertices; ++i)
            indices[i] = i;
        rtcCommitGeometry(geometry);
        rtcAttachGeometry(scene_, geometry);
        rtcReleaseGeometry(geometry);
        rtcCommitScene(scene_);
    }

    /// Whether nothing lies between `from` and the light in the direction `to`.
    bool sees(const V & from, const V & to) const {
        RTCIntersectContext context;
        rtcInitIntersectContext(&context);
        RTCRay ray{};
        ray.org_x = float(from.x), ray.org_y = float(from.y), ray.org_z = float(from.z);
        ray.dir_x = float(to.x), ray.dir_y = float(to.y), ray.dir_z = float(to.z);
        ray.tfar = std::numeric_limits<float>::infinity();
        ray.mask = ~0U;
        rtcOccluded1(scene_, &context, &ray);
        return ray.tfar >= 0.0F;
    }
    /// The green light at `p`, which has the normal `normal` of length 1, from all directions. Rays begin
    /// `lift` above it.
    double light(const V & p, const V & normal, const ZMT::UTIL::LightList & lights, double lift) const {
        double sum = 0.0;
        for (std::size_t i = 0; i < lights.directions.size(); ++i) {
            const V to = lights.directions[i].normalized();
            const double weight = normal.dot(to);
            if (weight > 0.0 && sees(p + normal * lift, to)) sum += weight * lights.colors[i].y;
        }
        return sum;
    }

private:
    RTCDevice device_;
    RTCScene scene_;
    std::vector<float> corners_;
};
