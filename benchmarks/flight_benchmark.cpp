// Ten minutes of flight low over a chunked terrain, a picture for each second: what its meshes take of
// graphics memory, and what its patches take of main memory. Fails when the meshes take more than the budget
// and what one picture needs.
//
//     flight_benchmark --benchmark_filter=flight/16/30     # budget in MiB, allowed error in tenths of pixels

#include <algorithm>
#include <cmath>
#include <fstream>
#include <numbers>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include "core/terrain/geometry/chunked/chunkedlodterrainpatch.h"
#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/inspect/patchinspectorgl.h>

#include "syntheticterrain.h"

namespace {

using namespace ZMT::CORE;
using Point = NBX::Vector3Base<double>;

constexpr unsigned s_cells = 4097;
constexpr double s_extent = (s_cells - 1) * 30.0;
constexpr int s_seconds = 600;
constexpr double s_mebibyte = 1 << 20;

double residentMebibytes() {
    std::ifstream file("/proc/self/statm");
    double all = 0.0, resident = 0.0;
    file >> all >> resident;
    return resident * double(sysconf(_SC_PAGESIZE)) / s_mebibyte;
}

/// All over the terrain in ten minutes, 150 to 1000 above the ground.
Point placeAt(double second, const GridData & grid) {
    const double turn = 2.0 * std::numbers::pi * second / s_seconds;
    const Point p(s_extent * (0.5 + 0.45 * std::sin(3.0 * turn)), 0.0,
                  s_extent * (0.5 + 0.45 * std::sin(5.0 * turn + 0.5)));
    return {p.x, grid.calculateHeight(p) + 575.0 + 425.0 * std::sin(11.0 * turn), p.z};
}

struct Counts {
    unsigned patches = 0, meshes = 0;
    std::uint64_t bytes = 0;   ///< of the meshes
    std::uint64_t largest = 0; ///< bytes of a mesh
};

void count(const ChunkedLodTerrain::Patch & patch, Counts & counts) {
    ++counts.patches;
    if (const auto meshes = patch.meshes()) {
        ++counts.meshes;
        counts.bytes += meshes->bytes;
        counts.largest = std::max<std::uint64_t>(counts.largest, meshes->bytes);
    }
    for (unsigned i = 0; i < patch.GeometryPatch::children(); ++i)
        count(dynamic_cast<const ChunkedLodTerrain::Patch &>(*patch.GeometryPatch::child(i)), counts);
}

void flight(benchmark::State & state) {
    auto * memory = NBX::GraphicsMemoryManager::instance();
    memory->setBudget(unsigned(state.range(0)) << 20U);
    unsigned reports = 0;
    const auto before = NBX::ErrorHandler::setHandler([&](const NBX::ErrorReport & report) {
        if (report.condition == L"needed <= getBudget()") ++reports;
    });
    const NBX::SO<GridData> grid(new GridData(makeSyntheticTerrain(s_cells).get()));
    const NBX::SO<ChunkedLodTerrain> terrain(new ChunkedLodTerrain(grid.get()));
    TerrainPainterGLSettings::setGeometryError(double(state.range(1)) / 10.0 / terrain->worstErrorRatio());
    const NBX::SO<NBX::OffscreenCanvasGL> canvas(new NBX::OffscreenCanvasGL(640, 360));
    if (!canvas->create()) return state.SkipWithError("no OpenGL context");
    PatchInspectorGL::registerAll(false);
    const double residentAtStart = residentMebibytes();
    for (auto _ : state) {
        const NBX::SO<GeometryPatch> root = terrain->root();
        std::uint64_t mostBytes = 0;
        Counts counts;
        unsigned mostDrawn = 0;
        bool isWithinBound = true;
        for (int second = 0; second < s_seconds; ++second) {
            const Point eye = placeAt(second, *grid), ahead = placeAt(second + 1.0, *grid);
            const NBX::SO<NBX::LookAt> look(new NBX::LookAt(eye, {ahead.x, eye.y - 100.0, ahead.z}));
            const NBX::SO<NBX::Perspective> lens(new NBX::Perspective(45.0, 10.0, 2.0 * s_extent));
            const NBX::SO<NBX::SceneThing> scene(new NBX::SceneThing);
            scene->append(new NBX::Camera(look.get(), lens.get()));
            scene->append(terrain.get());
            PatchInspectorGL::reset();
            canvas->append(scene.get());
            canvas->redisplay();
            canvas->remove(scene.get());
            const unsigned drawn = PatchInspectorGL::statistics().patches;
            mostDrawn = std::max(mostDrawn, drawn);
            counts = Counts();
            count(dynamic_cast<const ChunkedLodTerrain::Patch &>(*root), counts);
            isWithinBound = isWithinBound && counts.bytes <= memory->getBudget() + drawn * counts.largest;
            mostBytes = std::max(mostBytes, counts.bytes);
        }
        state.counters["MiB_meshes_at_most"] = double(mostBytes) / s_mebibyte;
        state.counters["meshes_at_end"] = counts.meshes;
        state.counters["patches_drawn_at_most"] = mostDrawn;
        state.counters["patches_made"] = counts.patches;
        state.counters["B_patch"] = sizeof(ChunkedLodTerrain::Patch);
        state.counters["MiB_more_resident"] = residentMebibytes() - residentAtStart;
        state.counters["reports_of_a_small_budget"] = reports;
        if (!isWithinBound) {
            state.SkipWithError("the meshes took more than the budget and one picture");
            break;
        }
    }
    NBX::ErrorHandler::setHandler(before);
}
BENCHMARK(flight)->ArgsProduct({{256, 16, 1}, {30, 3}})->Unit(benchmark::kSecond)->Iterations(1);

} // namespace
