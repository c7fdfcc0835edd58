// Building the tree of levels of detail of a large raster, and choosing patches from it.
//
// One tree is built a process, so that the peak of memory is its own:
//     tree_benchmark --benchmark_filter=build/2049/1
// builds 2049 by 2049 heights on one thread; the processor time is that of all threads.

#include <cstdlib>
#include <iostream>

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <nbx/engine/canvas.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/draped/terraintexturedgeometry.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/inspect/patchinspectorgl.h>

#include "syntheticterrain.h"

namespace {

using namespace ZMT::CORE;

constexpr unsigned s_maxVertices = 4000;

double peakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

NBX::SO<GeometryPatch> buildQuietly(GridData * grid, unsigned maxVertices, unsigned threads) {
    std::srand(1);
    std::cerr.setstate(std::ios::failbit);
    NBX::SO<GeometryPatch> root = CreateGeometryTree::create(grid, maxVertices, threads);
    std::cerr.clear();
    return root;
}

unsigned countPatches(const GeometryPatch & patch) {
    unsigned count = 1;
    for (unsigned i = 0; i < patch.children(); ++i)
        count += countPatches(*patch.child(i));
    return count;
}

void build(benchmark::State & state) {
    NBX::SO<GridData> grid(new GridData(makeSyntheticTerrain(unsigned(state.range(0))).get()));
    const double before = peakMegabytes();
    for (auto _ : state) {
        const auto root = buildQuietly(grid.get(), s_maxVertices, unsigned(state.range(1)));
        state.counters["patches"] = countPatches(*root);
        state.counters["root_error"] = root->approximationError();
    }
    state.counters["MB_beyond_raster"] = peakMegabytes() - before;
}
BENCHMARK(build)
    ->ArgsProduct({{1025, 2049, 4097, 8193}, {1, 2}})
    ->Unit(benchmark::kSecond)
    ->Iterations(1)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

/// Makes the painter traverse without drawing: there is something to drape, and it has no part anywhere.
class NothingDraped : public TerrainTexturedGeometry {
public:
    NBX::SO<NBX::SceneNode> geometry(const NBX::Bounds &) const override { return nullptr; }
    NBX::Bounds boundingBox() const override { return {}; }
};

/// A frame without drawing. The counter tells how many patches it selects.
void traverse(benchmark::State & state) {
    NBX::SO<GridData> grid(new GridData(makeSyntheticTerrain(1025).get()));
    NBX::SO<Terrain> terrain(new Terrain(grid.get(), buildQuietly(grid.get(), 64, 1).get()));
    const double extent = 1024.0 * 30.0;
    NBX::SO<NBX::OffscreenCanvasGL> canvas(new NBX::OffscreenCanvasGL(1280, 720));
    if (!canvas->create()) {
        state.SkipWithError("no OpenGL context");
        return;
    }
    NBX::SO<NBX::LookAt> eye(
        new NBX::LookAt({extent * 0.5, 9000.0, -extent * 0.5}, {extent * 0.5, 0.0, extent * 0.5}));
    NBX::SO<NBX::Perspective> lens(new NBX::Perspective(45.0, 100.0, 3.0 * extent));
    NBX::SO<NBX::SceneThing> scene(new NBX::SceneThing);
    scene->append(new NBX::Camera(eye.get(), lens.get()));
    scene->append(new NothingDraped);
    scene->append(terrain.get());
    canvas->append(scene.get());
    TerrainPainterGLSettings::setGeometryError(0.05);
    PatchInspectorGL::registerAll(false);
    canvas->redisplay();
    state.counters["patches"] = PatchInspectorGL::statistics().patches;
    TerrainPainterGLSettings::enableRendering(false);
    for (auto _ : state)
        canvas->redisplay();
}
BENCHMARK(traverse)->Unit(benchmark::kMillisecond);

} // namespace
