// One mesh of a whole raster: refinement that scans faces, next to that by lists of candidates, of the same
// heights in the same run. Heights are fractal, as `float`.

#include <zmt/core/terrain/geometry/tin/tinalgorithmpointstotin.h>
#include <zmt/util/mesh/rasterrefinement.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

namespace {

using Heights = ZMT::RASTER::SimpleRasterData<float>;
using Point = NBX::Vector3Base<double>;

/// Midpoint displacement with the roughness of mountains, on `2^n + 1` columns.
NBX::SO<Heights> makeTerrain(unsigned size) {
    NBX::SO<Heights> raster(new Heights(size, size, 0.0, 0.0, 1.0, 1.0, false, 0.0f));
    float * heights = raster->cells();
    const int n = static_cast<int>(size);
    const auto mean = [&](int x, int y, int dx, int dy) {
        float sum = 0.0f, count = 0.0f;
        for (const auto & [toX, toY] : {std::pair(dx, dy), {-dx, -dy}, {dy, -dx}, {-dy, dx}}) {
            if (x + toX < 0 || x + toX >= n || y + toY < 0 || y + toY >= n) continue;
            sum += heights[std::size_t(y + toY) * size + std::size_t(x + toX)];
            count += 1.0f;
        }
        return sum / count;
    };
    std::mt19937 random(1);
    std::normal_distribution<float> normal(0.0f, 1.0f);
    float amplitude = 1000.0f;
    for (int step = n - 1; step > 1; step /= 2, amplitude *= 0.55f) {
        const int h = step / 2;
        const auto displace = [&](int x, int y, int dx, int dy) {
            heights[std::size_t(y) * size + std::size_t(x)] = mean(x, y, dx, dy) + amplitude * normal(random);
        };
        for (int y = h; y < n; y += step)
            for (int x = h; x < n; x += step)
                displace(x, y, h, h);
        for (int y = 0; y < n; y += h)
            for (int x = (y / h) % 2 ? 0 : h; x < n; x += step)
                displace(x, y, h, 0);
    }
    return raster;
}

/// One at a time: the large ones take much memory.
const Heights & terrain(unsigned size) {
    static NBX::SO<Heights> raster;
    if (!raster || raster->cellsX() != size) raster = makeTerrain(size);
    return *raster;
}

struct Listed {
    static Point point(unsigned number) { return Point(number % size, number / size, heights[number]); }
    static inline unsigned size = 0;
    static inline const float * heights = nullptr;
};

double range(const Heights & raster) {
    return raster.maxValue() - raster.minValue();
}

void report(benchmark::State & state, double triangles, double error, double range) {
    state.counters["triangles"] = triangles;
    state.counters["error/range"] = error / range;
}

/// Arguments: columns, and the error in thousandths of the range.
void refineByScan(benchmark::State & state) {
    const Heights & raster = terrain(static_cast<unsigned>(state.range(0)));
    const double threshold = double(state.range(1)) * 0.001 * range(raster);
    for (auto _ : state) {
        ZMT::UTIL::RasterRefinement refinement(raster);
        refinement.refine({threshold});
        report(state, double(refinement.triangles()), refinement.error(), range(raster));
    }
}

void refineByList(benchmark::State & state) {
    const Heights & raster = terrain(static_cast<unsigned>(state.range(0)));
    const unsigned size = raster.cellsX();
    Listed::size = size;
    Listed::heights = raster.cells();
    const double threshold = double(state.range(1)) * 0.001 * range(raster);
    std::vector<unsigned> points(std::size_t(size) * size);
    std::iota(points.begin(), points.end(), 0u);
    for (auto _ : state) {
        ZMT::CORE::Tin<Listed> tin;
        tin.init(0, size - 1, size * size - 1, size * (size - 1));
        const double error = ZMT::CORE::TinAlgorithmPointsToTin<Listed>().run(tin, points, threshold, ~0u);
        report(state, tin.faces(), error, range(raster));
    }
}

void sizesAndErrors(benchmark::internal::Benchmark * benchmark) {
    benchmark->ArgNames({"columns", "thousandths"})->Unit(benchmark::kMillisecond);
    for (const int size : {1025, 4097})
        for (const int error : {10, 1})
            benchmark->Args({size, error});
}
BENCHMARK(refineByScan)->Apply(sizesAndErrors);
BENCHMARK(refineByList)->Apply(sizesAndErrors);

} // namespace
