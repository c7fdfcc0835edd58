// A ray against a full-resolution grid patch: the search that leaves out regions by their heights, the plain
// descent over all cells below the ray, and, where it is installed, Embree with the same grid in single
// precision.
//
// The rays begin up to 500 units above the highest place, and look at random places of the lowest level, so
// that nearly all of them hit, at every angle that an eye has.

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#ifdef ZMT_WITH_EMBREE
#include <embree3/rtcore.h>
#endif

#include "core/terrain/geometry/regular/gridheightbounds.h"
#include <nbx/engine/engine.h>
#include <nbx/engine/raytracingtechnique.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>
#include <zmt/core/terrain/geometry/regular/gridpatchrayintersector.h>

#include "syntheticterrain.h"

namespace {

using namespace ZMT::CORE;
using NBX::Ray;
using NBX::RayTracingTechnique;
using Matrix = NBX::Matrix4x4Base<double>;
using Point = NBX::Vector3Base<double>;

constexpr unsigned s_rays = 4096;

NBX::SO<GridPatch> wholeGrid(unsigned size) {
    const NBX::SO<GridData> grid(new GridData(makeSyntheticTerrain(size).get()));
    const NBX::Bounds box = grid->boundingBox();
    return new GridPatch(grid, NBX::Area(0, 0, size - 1, size - 1), box, 0.0, box.getLLF().y, nullptr);
}

std::vector<Ray> randomRays(const NBX::Bounds & box) {
    std::mt19937 random(1);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<Ray> rays;
    for (unsigned i = 0; i < s_rays; ++i) {
        const Point from = box.point(unit(random), 1.0, unit(random)) + Point(0.0, 500.0 * unit(random), 0.0);
        rays.emplace_back(from, (box.point(unit(random), 0.0, unit(random)) - from).normalized());
    }
    return rays;
}

/// The descent that the search stands in for.
class PlainDescent : public GridPatchRayIntersector {
public:
    PlainDescent(const GridPatch & patch, const Ray & ray)
        : grid_(*patch.grid()), ray_(ray), box_(patch.boundingBox()) {}

    double nearest(const NBX::Area & domain) {
        check(unsigned(domain.getX()), unsigned(domain.getY()), domain.getWidth(), domain.getHeight());
        return nearest_;
    }

private:
    void check(unsigned x, unsigned y, unsigned w, unsigned h) {
        const Point a = grid_.vertex(x, y), b = grid_.vertex(x + w, y + h);
        if (!RayTracingTechnique::checkBounds(
                ray_, NBX::Bounds({a.x, box_.getLLF().y, a.z}, {b.x, box_.getURB().y, b.z})))
            return;
        if (w == 1 && h == 1) return checkCell(x, y);
        const unsigned lowW = w == 1 ? 1 : w / 2, lowH = h == 1 ? 1 : h / 2;
        for (const unsigned dx : {0u, lowW})
            for (const unsigned dy : {0u, lowH})
                if (dx < w && dy < h) check(x + dx, y + dy, dx ? w - lowW : lowW, dy ? h - lowH : lowH);
    }

    void checkCell(unsigned x, unsigned y) {
        const Point low = grid_.vertex(x, y), high = grid_.vertex(x + 1, y + 1);
        for (const Point & other : {grid_.vertex(x, y + 1), grid_.vertex(x + 1, y)}) {
            double t = 0.0;
            if (intersectTriangle(ray_.getOrigin(), ray_.getDirection(), low, other, high, t))
                nearest_ = std::min(nearest_, t);
        }
    }

    const GridData & grid_;
    const Ray & ray_;
    NBX::Bounds box_;
    double nearest_ = std::numeric_limits<double>::infinity();
};

void bounds(benchmark::State & state) {
    const auto patch = wholeGrid(unsigned(state.range(0)));
    std::size_t bytes = 0;
    for (auto _ : state)
        bytes = GridHeightBounds(*patch->grid()).bytes();
    state.counters["share of the heights"] =
        double(bytes) / (double(patch->grid()->vertices()) * sizeof(float));
}

void search(benchmark::State & state) {
    const auto patch = wholeGrid(unsigned(state.range(0)));
    const std::vector<Ray> rays = randomRays(patch->boundingBox());
    const NBX::SO<NBX::Engine> engine(new NBX::Engine);
    GridPatchRayIntersector intersector;
    const Matrix identity;
    GridHeightBounds::of(*patch->grid());
    unsigned i = 0, hits = 0, tested = 0;
    for (auto _ : state) {
        const Ray & ray = rays[i++ % s_rays];
        const NBX::SO<RayTracingTechnique> technique(new RayTracingTechnique(ray));
        intersector.intersect(engine.get(), identity, identity, patch.get(), ray, technique.get());
        hits += technique->hasHit();
        ++tested;
    }
    state.counters["hits"] = double(hits) / tested;
}

void plainDescent(benchmark::State & state) {
    const auto patch = wholeGrid(unsigned(state.range(0)));
    const std::vector<Ray> rays = randomRays(patch->boundingBox());
    unsigned i = 0, hits = 0, tested = 0;
    for (auto _ : state) {
        hits += std::isfinite(PlainDescent(*patch, rays[i++ % s_rays]).nearest(patch->domain()));
        ++tested;
    }
    state.counters["hits"] = double(hits) / tested;
}

BENCHMARK(bounds)->Arg(4097)->Unit(benchmark::kMillisecond);
BENCHMARK(search)->Arg(1025)->Arg(4097);
BENCHMARK(plainDescent)->Arg(4097)->Unit(benchmark::kMicrosecond);

#ifdef ZMT_WITH_EMBREE

class EmbreeGrid {
public:
    explicit EmbreeGrid(const GridData & grid) {
        const unsigned size = grid.sizeX();
        const RTCGeometry geometry = rtcNewGeometry(device_, RTC_GEOMETRY_TYPE_GRID);
        auto * vertices = static_cast<float *>(rtcSetNewGeometryBuffer(
            geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 12, grid.vertices()));
        for (unsigned v = 0; v < grid.vertices(); ++v) {
            const Point p = grid.vertex(v);
            for (unsigned axis = 0; axis < 3; ++axis)
                *vertices++ = static_cast<float>(p[axis]);
        }
        auto * layout = static_cast<RTCGrid *>(
            rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_GRID, 0, RTC_FORMAT_GRID, sizeof(RTCGrid), 1));
        *layout = {0, size, static_cast<unsigned short>(size), static_cast<unsigned short>(size)};
        rtcCommitGeometry(geometry);
        rtcAttachGeometry(scene_, geometry);
        rtcReleaseGeometry(geometry);
        rtcCommitScene(scene_);
    }
    ~EmbreeGrid() {
        rtcReleaseScene(scene_);
        rtcReleaseDevice(device_);
    }
    EmbreeGrid(const EmbreeGrid &) = delete;
    EmbreeGrid & operator=(const EmbreeGrid &) = delete;

    bool isHit(const Ray & ray) const {
        const Point & o = ray.getOrigin();
        const Point & d = ray.getDirection();
        RTCRayHit query{};
        query.ray.org_x = float(o.x), query.ray.org_y = float(o.y), query.ray.org_z = float(o.z);
        query.ray.dir_x = float(d.x), query.ray.dir_y = float(d.y), query.ray.dir_z = float(d.z);
        query.ray.tfar = std::numeric_limits<float>::infinity();
        query.ray.mask = ~0u;
        query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
        RTCIntersectContext context;
        rtcInitIntersectContext(&context);
        rtcIntersect1(scene_, &context, &query);
        return query.hit.geomID != RTC_INVALID_GEOMETRY_ID;
    }

private:
    RTCDevice device_ = rtcNewDevice(nullptr);
    RTCScene scene_ = rtcNewScene(device_);
};

void embree(benchmark::State & state) {
    const auto patch = wholeGrid(unsigned(state.range(0)));
    const std::vector<Ray> rays = randomRays(patch->boundingBox());
    const EmbreeGrid grid(*patch->grid());
    unsigned i = 0, hits = 0, tested = 0;
    for (auto _ : state) {
        hits += grid.isHit(rays[i++ % s_rays]);
        ++tested;
    }
    state.counters["hits"] = double(hits) / tested;
}

BENCHMARK(embree)->Arg(4097);

#endif

} // namespace
