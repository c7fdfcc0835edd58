// Making a chunked terrain of a large raster, and cutting meshes from it.
//
// One terrain is made a process, so that the peak of memory is its own:
//     chunked_benchmark --benchmark_filter=start/8193

#include <chrono>
#include <cstdlib>

#include <benchmark/benchmark.h>

#include "core/terrain/geometry/chunked/chunkedloderrorfield.h"
#include "core/terrain/geometry/chunked/chunkedlodmesh.h"
#include "core/terrain/geometry/chunked/chunkedlodterrainimpl.h"
#include "core/terrain/geometry/chunked/chunkedlodworsterror.h"
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/object/progress.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>

#include "syntheticterrain.h"

namespace {

using namespace ZMT::CORE;
using Values = std::vector<unsigned short>;

Values syntheticHeights(unsigned size) {
    const auto raster = makeSyntheticTerrain(size);
    Values heights(std::size_t(size) * size);
    for (std::size_t i = 0; i < heights.size(); ++i)
        heights[i] = static_cast<unsigned short>(raster->cells()[i] * 30.0F);
    return heights;
}

/// The rival: level by level over the whole lattice, with the usual care for loops.
class LevelByLevel {
public:
    LevelByLevel(const Values & heights, unsigned level, Values & errors)
        : heights_(heights.data()), errors_(errors.data()), m_(1 << level) {
        int s = 1, step = 2, d = 1;
        while (s != m_) {
            for (int j = 0; j <= m_; j += s)
                for (int i = (j / s) % 2 == 0 ? s : 0; i <= m_; i += step)
                    (j / s) % 2 == 0 ? edge(i, j, s, 0, s) : edge(i, j, 0, s, s);
            for (int j = s; j < m_; j += step) {
                for (int i = s; i < m_; i += step) {
                    face(i, j, s, d);
                    d = -d;
                }
                d = -d;
            }
            d = s = step;
            step *= 2;
        }
        for (const std::ptrdiff_t v : {at(0, 0), at(m_, 0), at(0, m_), at(m_, m_), at(m_ / 2, m_ / 2)})
            errors_[v] = 65535;
    }

private:
    std::ptrdiff_t at(int x, int y) const { return x + std::ptrdiff_t(y) * (m_ + 1); }

    int bend(int i, int j, int di, int dj) const {
        return std::abs(heights_[at(i, j)] -
                        (heights_[at(i - di, j - dj)] + heights_[at(i + di, j + dj)]) / 2);
    }

    void edge(int i, int j, int di, int dj, int s) {
        int e = bend(i, j, di, dj);
        const int h = s / 2;
        if (h > 0) {
            if (i > 0 && j > 0) e = std::max<int>(e, errors_[at(i - h, j - h)]);
            if (i < m_ && j > 0) e = std::max<int>(e, errors_[at(i + h, j - h)]);
            if (i > 0 && j < m_) e = std::max<int>(e, errors_[at(i - h, j + h)]);
            if (i < m_ && j < m_) e = std::max<int>(e, errors_[at(i + h, j + h)]);
        }
        errors_[at(i, j)] = static_cast<unsigned short>(e);
    }

    void face(int i, int j, int s, int d) {
        int e = bend(i, j, s, d);
        for (const std::ptrdiff_t v : {at(i - s, j), at(i + s, j), at(i, j - s), at(i, j + s)})
            e = std::max<int>(e, errors_[v]);
        errors_[at(i, j)] = static_cast<unsigned short>(e);
    }

    const unsigned short * heights_;
    unsigned short * errors_;
    int m_;
};

constexpr unsigned s_level = 12, s_size = (1U << s_level) + 1;
constexpr double s_vertices = double(s_size) * s_size;

/// Seconds for one vertex.
benchmark::Counter perVertex() {
    return benchmark::Counter(s_vertices,
                              benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void errorField(benchmark::State & state) {
    const Values heights = syntheticHeights(s_size);
    Values errors(heights.size()), expected(heights.size());
    for (auto _ : state)
        ChunkedLodErrorField::compute(heights.data(), s_size, s_size, s_level, errors.data());
    LevelByLevel(heights, s_level, expected);
    if (errors != expected) state.SkipWithError("differs from the plain sweep");
    state.counters["s/vertex"] = perVertex();
}
BENCHMARK(errorField)->Unit(benchmark::kMillisecond);

void errorFieldLevelByLevel(benchmark::State & state) {
    const Values heights = syntheticHeights(s_size);
    Values errors(heights.size());
    for (auto _ : state)
        LevelByLevel(heights, s_level, errors);
    state.counters["s/vertex"] = perVertex();
}
BENCHMARK(errorFieldLevelByLevel)->Unit(benchmark::kMillisecond);

std::size_t countTriangles(const std::vector<unsigned> & strip) {
    std::size_t count = 0;
    for (std::size_t i = 2; i < strip.size(); ++i)
        count += strip[i] != strip[i - 1] && strip[i] != strip[i - 2] && strip[i - 1] != strip[i - 2];
    return count;
}

/// Meshes of patches of 257 by 257 vertices as large as 16-bit numbers allow, about.
void strips(benchmark::State & state) {
    const auto extentX = unsigned(state.range(0)), size = 257U;
    const NBX::SO<ChunkedLodTerrain::Impl> lattice(new ChunkedLodTerrain::Impl(extentX, 1025));
    const Values heights = syntheticHeights(1025);
    for (unsigned y = 0; y < 1025; ++y)
        for (unsigned x = 0; x < extentX; ++x)
            lattice->heights()[lattice->heightIndex(x, y)] = heights[x + y * 1025];
    lattice->computeErrors();
    std::vector<unsigned> strip;
    std::size_t triangles = 0, entries = 0;
    for (auto _ : state)
        for (unsigned y = 0; y < 1024; y += size - 1)
            for (unsigned x = 0; x < 768; x += size - 1) {
                ChunkedLodMesh::buildMesh(*lattice, x, y, size, 12, strip);
                entries += strip.size();
                state.PauseTiming();
                triangles += countTriangles(strip);
                state.ResumeTiming();
            }
    state.counters["triangles/s"] = benchmark::Counter(double(triangles), benchmark::Counter::kIsRate);
    state.counters["entries/s"] = benchmark::Counter(double(entries), benchmark::Counter::kIsRate);
    state.counters["entries"] = double(entries) / double(state.iterations());
}
BENCHMARK(strips)->Arg(1025)->Arg(1000)->Unit(benchmark::kMillisecond);

/// The seconds that each phase with a `Progress` took.
class PhaseTimes : public NBX::ProgressDisplay {
public:
    PhaseTimes() : before_(NBX::Progress::setDisplay(this)) {}
    ~PhaseTimes() override { NBX::Progress::setDisplay(before_); }
    void begin(const NBX::Progress &) override {}
    bool update(const NBX::Progress &) override { return true; }
    void end(const NBX::Progress & progress) override { seconds.push_back(progress.elapsed()); }

    std::vector<double> seconds;

private:
    NBX::ProgressDisplay * before_;
};

/// How far patches may be worse than they state, which is found while a terrain starts.
void worstErrorRatio(benchmark::State & state) {
    const auto size = unsigned(state.range(0));
    const NBX::SO<GridData> grid(new GridData(makeSyntheticTerrain(size).get()));
    const NBX::SO<ChunkedLodTerrain> terrain(new ChunkedLodTerrain(grid.get()));
    for (auto _ : state)
        benchmark::DoNotOptimize(ChunkedLodWorstError::ratio(*terrain->impl(), terrain->rootThreshold()));
    state.counters["ratio"] = terrain->worstErrorRatio();
}
BENCHMARK(worstErrorRatio)->Arg(4097)->Unit(benchmark::kMillisecond);

/// From a raster in memory to the first picture, and to the second one.
void start(benchmark::State & state) {
    const auto size = unsigned(state.range(0));
    const double extent = size * 30.0;
    const NBX::SO<GridData> grid(new GridData(makeSyntheticTerrain(size).get()));
    const NBX::SO<NBX::OffscreenCanvasGL> canvas(new NBX::OffscreenCanvasGL(1280, 720));
    if (!canvas->create()) return state.SkipWithError("no OpenGL context");
    using Clock = std::chrono::steady_clock;
    const auto since = [](Clock::time_point t) {
        return std::chrono::duration<double>(Clock::now() - t).count();
    };
    for (auto _ : state) {
        const PhaseTimes phases;
        auto begin = Clock::now();
        const NBX::SO<ChunkedLodTerrain> terrain(new ChunkedLodTerrain(grid.get()));
        state.counters["s_prepare"] = since(begin);
        state.counters["s_heights"] = phases.seconds.at(0);
        state.counters["s_errors"] = phases.seconds.at(1);
        state.counters["s_histogram"] = phases.seconds.at(2);
        begin = Clock::now();
        const auto root = terrain->root();
        const NBX::SO<NBX::LookAt> eye(
            new NBX::LookAt({extent * 0.5, 9000.0, -extent * 0.1}, {extent * 0.5, 0.0, extent * 0.5}));
        const NBX::SO<NBX::Perspective> lens(new NBX::Perspective(45.0, 100.0, 3.0 * extent));
        const NBX::SO<NBX::SceneThing> scene(new NBX::SceneThing);
        scene->append(new NBX::Camera(eye.get(), lens.get()));
        scene->append(terrain.get());
        canvas->append(scene.get());
        canvas->redisplay();
        state.counters["s_first_picture"] = since(begin);
        begin = Clock::now();
        canvas->redisplay();
        state.counters["s_second_picture"] = since(begin);
        canvas->remove(scene.get());
    }
}
BENCHMARK(start)->Arg(4097)->Arg(8193)->Unit(benchmark::kSecond)->Iterations(1);

} // namespace
