// Exact predicates, insertion and greedy refinement, next to plain determinants and to CGAL's Delaunay
// triangulation on the same points. Heights are fractal, as `float`.

#include <zmt/core/terrain/geometry/tin/tinalgorithmpointstotin.h>

#include <benchmark/benchmark.h>

#ifdef ZMT_WITH_CGAL
#include <CGAL/Delaunay_triangulation_2.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/spatial_sort.h>
#endif

#include <numeric>
#include <random>

using namespace ZMT::CORE;

namespace {

using Point = NBX::Vector3Base<double>;

/// A square raster with `2^n + 1` columns.
struct Terrain {
    static Point point(unsigned number) {
        return Point(number % size, number / size, heights[number]); // cells of one unit
    }
    static inline unsigned size = 0;
    static inline std::vector<float> heights;
};

/// The mean of the neighbours at the corners of a diamond or a square, as far as there are any.
float mean(int x, int y, int dx1, int dy1, int dx2, int dy2) {
    const int size = static_cast<int>(Terrain::size);
    float sum = 0.0f, count = 0.0f;
    const int offsets[4][2] = {{dx1, dy1}, {-dx1, -dy1}, {dx2, dy2}, {-dx2, -dy2}};
    for (const auto & [dx, dy] : offsets) {
        if (x + dx < 0 || x + dx >= size || y + dy < 0 || y + dy >= size) continue;
        sum += Terrain::heights[(y + dy) * size + x + dx];
        count += 1.0f;
    }
    return sum / count;
}

/// Midpoint displacement with the roughness of mountains.
void makeTerrain(unsigned size) {
    if (Terrain::size == size) return;
    Terrain::size = size;
    Terrain::heights.assign(std::size_t(size) * size, 0.0f);
    std::mt19937 random(1);
    std::normal_distribution<float> normal(0.0f, 1.0f);
    const int n = static_cast<int>(size);
    float amplitude = 1000.0f;
    for (int step = n - 1; step > 1; step /= 2, amplitude *= 0.55f) {
        const int h = step / 2;
        for (int y = h; y < n; y += step)
            for (int x = h; x < n; x += step)
                Terrain::heights[y * n + x] = mean(x, y, h, h, h, -h) + amplitude * normal(random);
        for (int y = 0; y < n; y += h)
            for (int x = (y / h) % 2 ? 0 : h; x < n; x += step)
                Terrain::heights[y * n + x] = mean(x, y, h, 0, 0, h) + amplitude * normal(random);
    }
}

void initOnTerrain(Tin<Terrain> & tin) {
    const unsigned n = Terrain::size;
    tin.init(0, n - 1, n * n - 1, n * (n - 1));
}

/// Refines the whole raster, and reports the triangles and the error it came to.
void refine(benchmark::State & state, unsigned size, double threshold, unsigned budget) {
    makeTerrain(size);
    const auto [low, high] = std::minmax_element(Terrain::heights.begin(), Terrain::heights.end());
    std::vector<unsigned> points(Terrain::heights.size());
    std::iota(points.begin(), points.end(), 0u);
    unsigned faces = 0;
    double error = 0.0;
    for (auto _ : state) {
        Tin<Terrain> tin;
        initOnTerrain(tin);
        error = TinAlgorithmPointsToTin<Terrain>().run(tin, points, threshold * (*high - *low), budget);
        faces = tin.faces();
        benchmark::DoNotOptimize(faces);
    }
    state.counters["triangles"] = faces;
    state.counters["error/range"] = error / (*high - *low);
    state.SetItemsProcessed(state.iterations() * (faces / 2));
}

void refineWindow(benchmark::State & state) {
    refine(state, 257, 0.0, 4000);
}
void refineRaster(benchmark::State & state) {
    refine(state, 1025, 0.001, ~0u);
}
BENCHMARK(refineWindow)->Unit(benchmark::kMillisecond);
BENCHMARK(refineRaster)->Unit(benchmark::kMillisecond);

void locateInRowOrder(benchmark::State & state) {
    makeTerrain(257);
    std::vector<unsigned> points(Terrain::heights.size());
    std::iota(points.begin(), points.end(), 0u);
    Tin<Terrain> tin;
    initOnTerrain(tin);
    TinAlgorithmPointsToTin<Terrain>().run(tin, points, 0.0, 4000);
    for (auto _ : state) {
        TinFace hint;
        double error = 0.0;
        for (const unsigned i : points) {
            const Point p = Terrain::point(i);
            hint = tin.locate(p, hint);
            error = std::max(error, std::fabs(tin.heightOn(hint, p) - p.z));
        }
        benchmark::DoNotOptimize(error);
    }
    state.SetItemsProcessed(state.iterations() * points.size());
}
BENCHMARK(locateInRowOrder)->Unit(benchmark::kMillisecond);

/// Scattered points, by number.
struct Scattered {
    static Point point(unsigned number) { return points[number]; }
    static inline std::vector<Point> points;
};

constexpr unsigned scatteredPoints = 200000;

/// In random order, or along a curve that fills the square.
void makeScattered(bool sorted) {
    std::mt19937 random(2);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    Scattered::points.clear();
    for (unsigned i = 0; i < scatteredPoints; ++i)
        Scattered::points.emplace_back(unit(random), unit(random), 0.0);
    if (sorted) {
        constexpr double columns = 400.0;
        const auto key = [](const Point & p) {
            const double column = std::floor(p.x * columns);
            return std::pair(column, std::fmod(column, 2.0) == 0.0 ? p.y : -p.y);
        };
        std::sort(Scattered::points.begin(), Scattered::points.end(),
                  [&](const Point & a, const Point & b) { return key(a) < key(b); });
    }
    for (const Point & corner : {Point(-1, -1, 0), Point(2, -1, 0), Point(2, 2, 0), Point(-1, 2, 0)})
        Scattered::points.push_back(corner);
}

void insertScattered(benchmark::State & state) {
    makeScattered(state.range(0) != 0);
    std::srand(1);
    for (auto _ : state) {
        Tin<Scattered> tin;
        tin.init(scatteredPoints, scatteredPoints + 1, scatteredPoints + 2, scatteredPoints + 3);
        TinFace hint;
        for (unsigned i = 0; i < scatteredPoints; ++i)
            hint = tin.face(tin.edge(tin.insert(i, hint)));
        benchmark::DoNotOptimize(tin.faces());
    }
    state.SetItemsProcessed(state.iterations() * scatteredPoints);
}
BENCHMARK(insertScattered)->ArgName("sorted")->Arg(1)->Unit(benchmark::kMillisecond);

#ifdef ZMT_WITH_CGAL
void insertScatteredCgal(benchmark::State & state) {
    using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
    using Delaunay = CGAL::Delaunay_triangulation_2<Kernel>;
    makeScattered(true);
    std::vector<Kernel::Point_2> points;
    for (unsigned i = 0; i < scatteredPoints; ++i)
        points.emplace_back(Scattered::points[i].x, Scattered::points[i].y);
    if (state.range(0) == 2) CGAL::spatial_sort(points.begin(), points.end());
    for (auto _ : state) {
        Delaunay mesh;
        Delaunay::Face_handle hint;
        for (const auto & p : points)
            hint = mesh.insert(p, hint)->face();
        benchmark::DoNotOptimize(mesh.number_of_faces());
    }
    state.SetItemsProcessed(state.iterations() * scatteredPoints);
}
BENCHMARK(insertScatteredCgal)->ArgName("sorted")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
#endif

double plainOrient(const Point & a, const Point & b, const Point & c) {
    return (a.x - c.x) * (b.y - c.y) - (a.y - c.y) * (b.x - c.x);
}

double plainCircle(const Point & a, const Point & b, const Point & c, const Point & d) {
    const double adx = a.x - d.x, ady = a.y - d.y, bdx = b.x - d.x, bdy = b.y - d.y;
    const double cdx = c.x - d.x, cdy = c.y - d.y;
    return (adx * adx + ady * ady) * (bdx * cdy - cdx * bdy) +
           (bdx * bdx + bdy * bdy) * (cdx * ady - adx * cdy) +
           (cdx * cdx + cdy * cdy) * (adx * bdy - bdx * ady);
}

/// Takes random points four by four; counts positive results, as a user branches on them.
template <class Predicate> void evaluate(benchmark::State & state, Predicate predicate) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<Point> points;
    for (int i = 0; i < 4096; ++i)
        points.emplace_back(unit(random), unit(random), 0.0);
    for (auto _ : state) {
        unsigned positive = 0;
        for (std::size_t i = 0; i + 3 < points.size(); ++i)
            positive += predicate(points[i], points[i + 1], points[i + 2], points[i + 3]) > 0.0;
        benchmark::DoNotOptimize(positive);
    }
    state.SetItemsProcessed(state.iterations() * (points.size() - 3));
}

void orientPlain(benchmark::State & state) {
    evaluate(state, [](const Point & a, const Point & b, const Point & c, const Point &) {
        return plainOrient(a, b, c);
    });
}
void orientExact(benchmark::State & state) {
    evaluate(state, [](const Point & a, const Point & b, const Point & c, const Point &) {
        return orient2d(a, b, c);
    });
}
void circlePlain(benchmark::State & state) {
    evaluate(state, plainCircle);
}
void circleExact(benchmark::State & state) {
    evaluate(state, [](const Point & a, const Point & b, const Point & c, const Point & d) {
        return incircle(a, b, c, d);
    });
}
BENCHMARK(orientPlain);
BENCHMARK(orientExact);
BENCHMARK(circlePlain);
BENCHMARK(circleExact);

} // namespace
