// Rays against a city in a textured triangle tree, and, where it is installed, against the same triangles in
// Embree. Both structures are built before. Rays begin up to 300 units above the ground and look at random
// places of it, as picks and questions for heights do.

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#ifdef ZMT_WITH_EMBREE
#include <embree3/rtcore.h>
#endif

#include <nbx/container/sequence/array.h>
#include <nbx/engine/engine.h>
#include <nbx/engine/raytracingtechnique.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>

namespace {

using namespace ZMT::CORE;
using NBX::SO;
using V = NBX::Vector3Base<double>;
using Mesh = NBX::MappedVertexAttributeShapeGL;

constexpr unsigned s_side = 100;   ///< buildings along an axis
constexpr double s_pitch = 20.0;   ///< from one building to the next
constexpr unsigned s_leafSide = 8; ///< most buildings along an axis of a leaf
constexpr unsigned s_rays = 100000;

void addQuad(std::vector<V> & vertices, const V & a, const V & b, const V & c, const V & d) {
    vertices.insert(vertices.end(), {a, b, c, a, c, d});
}

/// A house with a gable, and windows that stand out of its walls.
void addBuilding(std::vector<V> & vertices, unsigned i, unsigned j) {
    std::mt19937 random(i * 977 + j);
    const auto between = [&](double low, double high) {
        return low + (high - low) * double(random()) / double(std::mt19937::max());
    };
    const double x = i * s_pitch + between(0, 4), z = j * s_pitch + between(0, 4), h = between(4, 40);
    const double w = between(8, 14), d = between(8, 14), gable = h + between(1, 5);
    const V a(x, 0, z), b(x + w, 0, z), c(x + w, 0, z + d), e(x, 0, z + d), up(0, h, 0);
    addQuad(vertices, a, b, b + up, a + up);
    addQuad(vertices, b, c, c + up, b + up);
    addQuad(vertices, c, e, e + up, c + up);
    addQuad(vertices, e, a, a + up, e + up);
    const V m1(x + w / 2, gable, z), m2(x + w / 2, gable, z + d);
    addQuad(vertices, a + up, m1, m2, e + up);
    addQuad(vertices, m1, b + up, c + up, m2);
    for (double y = 1.0; y + 2.0 < h; y += 3.0)
        for (double along = 1.0; along + 1.5 < w; along += 3.0)
            addQuad(vertices, V(x + along, y, z - 0.1), V(x + along + 1.5, y, z - 0.1),
                    V(x + along + 1.5, y + 1.5, z - 0.1), V(x + along, y + 1.5, z - 0.1));
}

struct City {
    SO<RenderTree> nodes{new RenderTree({0.0, 0.0}, {s_side * s_pitch, s_side * s_pitch}, {0U, 2U})};
    SO<NBX::SceneThing> scene{new NBX::SceneThing()};
    SO<TexturedTriangleTree> tree{new TexturedTriangleTree()};
    std::vector<V> vertices;
    std::vector<NBX::Ray> rays;

    City() {
        grow(nodes->root(), {0, 0, s_side, s_side});
        tree->setRenderTree(nodes);
        scene->append(tree.get());
        std::mt19937 random(1);
        std::uniform_real_distribution<double> place(0.0, s_side * s_pitch), height(2.0, 300.0);
        for (unsigned i = 0; i < s_rays; ++i) {
            const V from(place(random), height(random), place(random)), to(place(random), 0.0, place(random));
            rays.emplace_back(from, (to - from).normalized());
        }
    }

private:
    struct Block {
        unsigned x, z, width, depth; ///< in buildings
    };
    void grow(const RenderTree::NodePointer & node, const Block & block) {
        RenderNode & content = node->content;
        if (block.width > s_leafSide) {
            nodes->createChildren(node);
            const unsigned w = block.width / 2, d = block.depth / 2;
            for (unsigned c = 0; c < 4; ++c) {
                const RenderTree::NodePointer child = nodes->child(node, c);
                const bool isRight = (c & 1U) != 0, isBack = (c & 2U) != 0;
                grow(child, {block.x + (isRight ? w : 0), block.z + (isBack ? d : 0),
                             isRight ? block.width - w : w, isBack ? block.depth - d : d});
                content.bounds += child->content.bounds;
            }
            return;
        }
        std::vector<V> own;
        for (unsigned x = block.x; x < block.x + block.width; ++x)
            for (unsigned z = block.z; z < block.z + block.depth; ++z)
                addBuilding(own, x, z);
        vertices.insert(vertices.end(), own.begin(), own.end());
        const SO<NBX::PolygonSet> set(
            new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, new NBX::Array<V>(own)));
        content.triangles = new Mesh(set.get(), NBX::BufferObjectGL::UP_Static);
        content.bounds = content.triangles->boundingBox();
    }
};

City & city() {
    static City & city = *new City();
    return city;
}

unsigned treeHits(NBX::Engine * engine) {
    unsigned hits = 0;
    for (const NBX::Ray & ray : city().rays) {
        const SO<NBX::RayTracingTechnique> technique(new NBX::RayTracingTechnique(ray));
        hits += technique->trace(engine, city().scene.get()) ? 1 : 0;
    }
    return hits;
}

void treeRays(benchmark::State & state) {
    const SO<NBX::Engine> engine(new NBX::Engine());
    unsigned hits = treeHits(engine.get()); // which makes what the rays need
    for (auto _ : state)
        hits = treeHits(engine.get());
    state.counters["hits"] = hits;
    state.counters["triangles"] = double(city().vertices.size() / 3);
    state.counters["rays_MiB"] = double(city().tree->rayBytes()) / (1 << 20);
    state.SetItemsProcessed(state.iterations() * s_rays);
}

#ifdef ZMT_WITH_EMBREE
void embreeRays(benchmark::State & state) {
    RTCDevice device = rtcNewDevice(nullptr);
    RTCScene scene = rtcNewScene(device);
    RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
    const std::vector<V> & all = city().vertices;
    auto * target = static_cast<float *>(rtcSetNewGeometryBuffer(
        geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 3 * sizeof(float), all.size()));
    auto * indices = static_cast<unsigned *>(rtcSetNewGeometryBuffer(
        geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(unsigned), all.size() / 3));
    for (std::size_t i = 0; i < all.size(); ++i) {
        for (unsigned c = 0; c < 3; ++c)
            *target++ = float(all[i][c]);
        indices[i] = unsigned(i);
    }
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(scene, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(scene);
    unsigned hits = 0;
    for (auto _ : state) {
        hits = 0;
        for (const NBX::Ray & ray : city().rays) {
            RTCIntersectContext context;
            rtcInitIntersectContext(&context);
            RTCRayHit query{};
            query.ray.org_x = float(ray.getOrigin().x);
            query.ray.org_y = float(ray.getOrigin().y);
            query.ray.org_z = float(ray.getOrigin().z);
            query.ray.dir_x = float(ray.getDirection().x);
            query.ray.dir_y = float(ray.getDirection().y);
            query.ray.dir_z = float(ray.getDirection().z);
            query.ray.tfar = std::numeric_limits<float>::infinity();
            query.ray.mask = ~0U;
            query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
            rtcIntersect1(scene, &context, &query);
            hits += query.hit.geomID != RTC_INVALID_GEOMETRY_ID ? 1 : 0;
        }
    }
    state.counters["hits"] = hits;
    state.SetItemsProcessed(state.iterations() * s_rays);
    rtcReleaseScene(scene);
    rtcReleaseDevice(device);
}
BENCHMARK(embreeRays)->Unit(benchmark::kMillisecond);
#endif

BENCHMARK(treeRays)->Unit(benchmark::kMillisecond);

} // namespace
