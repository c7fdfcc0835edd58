#include <zmt/util/mesh/rasterrefinement.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <random>
#include <set>

#include <nbx/object/progress.h>
#include <zmt/core/terrain/geometry/tin/tinalgorithmpointstotin.h>

#include "support/cancelingdisplay.h"
#include "util/mesh/facescan.h"

namespace {

using ZMT::UTIL::RasterRefinement;
using ZMT::UTIL::RasterSurface;
using Heights = RasterRefinement::Heights;

constexpr float s_void = std::numeric_limits<float>::quiet_NaN();

NBX::SO<Heights> flat(unsigned columns, unsigned rows, float height = 0.0f) {
    NBX::SO<Heights> raster(new Heights(columns, rows, 0.0, 0.0, 1.0, 1.0, true, s_void));
    std::fill_n(raster->cells(), std::size_t(columns) * rows, height);
    return raster;
}

/// Hills, with noise on them so that there are no ties.
NBX::SO<Heights> hills(unsigned columns, unsigned rows, unsigned seed = 1) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> noise(-3.0f, 3.0f);
    auto raster = flat(columns, rows);
    for (unsigned y = 0; y < rows; ++y)
        for (unsigned x = 0; x < columns; ++x)
            raster->setValue(x, y,
                             80.0f * std::sin(float(x) * 0.11f) * std::cos(float(y) * 0.07f) + noise(random));
    return raster;
}

std::int64_t areaOf(const RasterSurface & surface, const std::array<std::uint32_t, 3> & triangle) {
    const auto & a = surface.vertices[triangle[0]];
    const auto & b = surface.vertices[triangle[1]];
    const auto & c = surface.vertices[triangle[2]];
    return (std::int64_t(b.column) - a.column) * (std::int64_t(c.row) - a.row) -
           (std::int64_t(b.row) - a.row) * (std::int64_t(c.column) - a.column);
}

/// Whether a vertex lies in a triangle or on its border.
bool contains(const RasterSurface & surface, const std::array<std::uint32_t, 3> & triangle, unsigned column,
              unsigned row, double weights[3]) {
    const double area = double(areaOf(surface, triangle));
    for (unsigned k = 0; k < 3; ++k) {
        const auto & from = surface.vertices[triangle[(k + 1) % 3]];
        const auto & to = surface.vertices[triangle[(k + 2) % 3]];
        const std::int64_t side = (std::int64_t(to.column) - from.column) * (std::int64_t(row) - from.row) -
                                  (std::int64_t(to.row) - from.row) * (std::int64_t(column) - from.column);
        if (side < 0) return false;
        weights[k] = double(side) / area;
    }
    return true;
}

/// Whether a vertex has a height, and a cell with two more beside it.
bool mayBeCovered(const Heights & raster, unsigned x, unsigned y) {
    if (std::isnan(raster.value(x, y))) return false;
    const auto hasHeight = [&](int column, int row) {
        return column >= 0 && row >= 0 && column < int(raster.cellsX()) && row < int(raster.cellsY()) &&
               !std::isnan(raster.value(unsigned(column), unsigned(row)));
    };
    for (const int dx : {-1, 1})
        for (const int dy : {-1, 1})
            if (hasHeight(int(x) + dx, int(y)) + hasHeight(int(x), int(y) + dy) +
                    hasHeight(int(x) + dx, int(y) + dy) >=
                2)
                return true;
    return false;
}

/// What the surface is like, found by trying all vertices in all triangles.
struct Measured {
    double error = 0.0;
    std::size_t uncovered = 0;    ///< heights that no triangle covers
    std::size_t coveredVoids = 0; ///< vertices without heights that one does
};

Measured measure(const Heights & raster, const RasterSurface & surface) {
    std::vector<bool> covered(std::size_t(raster.cellsX()) * raster.cellsY());
    Measured result;
    for (const auto & triangle : surface.triangles) {
        unsigned lowX = ~0u, highX = 0, lowY = ~0u, highY = 0;
        for (const std::uint32_t corner : triangle) {
            lowX = std::min(lowX, surface.vertices[corner].column);
            highX = std::max(highX, surface.vertices[corner].column);
            lowY = std::min(lowY, surface.vertices[corner].row);
            highY = std::max(highY, surface.vertices[corner].row);
        }
        for (unsigned y = lowY; y <= highY; ++y)
            for (unsigned x = lowX; x <= highX; ++x) {
                double weights[3];
                if (!contains(surface, triangle, x, y, weights)) continue;
                covered[std::size_t(y) * raster.cellsX() + x] = true;
                const double height = raster.value(x, y);
                if (std::isnan(height)) {
                    ++result.coveredVoids;
                    continue;
                }
                double plane = 0.0;
                for (unsigned k = 0; k < 3; ++k) {
                    const auto & corner = surface.vertices[triangle[k]];
                    plane += weights[k] * raster.value(corner.column, corner.row);
                }
                result.error = std::max(result.error, std::fabs(plane - height));
            }
    }
    for (unsigned y = 0; y < raster.cellsY(); ++y)
        for (unsigned x = 0; x < raster.cellsX(); ++x)
            result.uncovered += !covered[std::size_t(y) * raster.cellsX() + x] && mayBeCovered(raster, x, y);
    return result;
}

std::int64_t totalArea(const RasterSurface & surface) {
    std::int64_t area = 0;
    for (const auto & triangle : surface.triangles) {
        EXPECT_GT(areaOf(surface, triangle), 0);
        area += areaOf(surface, triangle);
    }
    return area;
}

TEST(RasterRefinement, TheErrorIsTheOneOfAllVertices) {
    const auto raster = hills(70, 53);
    RasterRefinement refinement(*raster);
    for (const double goal : {60.0, 20.0, 5.0, 1.0, 0.0}) {
        ASSERT_TRUE(refinement.refine({goal}));
        const RasterSurface surface = refinement.surface();
        const Measured measured = measure(*raster, surface);
        EXPECT_NEAR(measured.error, refinement.error(), 1e-9) << goal;
        EXPECT_LE(refinement.error(), goal);
        EXPECT_EQ(2 * 69 * 52, totalArea(surface));
        EXPECT_EQ(0u, measured.uncovered);
        EXPECT_EQ(surface.triangles.size(), refinement.triangles());
    }
}

TEST(RasterRefinement, MakesTheMeshOfTheRefinementByLists) {
    struct Listed {
        static const Heights *& raster() {
            static const Heights * listed = nullptr;
            return listed;
        }
        static NBX::Vector3Base<double> point(unsigned number) {
            const unsigned x = number % raster()->cellsX(), y = number / raster()->cellsX();
            return {double(x), double(y), raster()->value(x, y)};
        }
    };
    const auto raster = hills(90, 61);
    Listed::raster() = raster.get();
    std::vector<unsigned> points(90 * 61);
    std::iota(points.begin(), points.end(), 0u);
    ZMT::CORE::Tin<Listed> tin;
    tin.init(0, 89, 90 * 61 - 1, 90 * 60);
    const double error = ZMT::CORE::TinAlgorithmPointsToTin<Listed>().run(tin, points, 2.0, ~0u);

    RasterRefinement refinement(*raster);
    refinement.refine({2.0});
    EXPECT_NEAR(error, refinement.error(), 1e-9);
    EXPECT_EQ(tin.faces(), refinement.triangles());
    std::set<unsigned> expected, found;
    for (unsigned n = 0; n < tin.nodes(); ++n)
        expected.insert(tin.number(tin.node(n)));
    for (const auto & vertex : refinement.surface().vertices)
        found.insert(vertex.row * 90 + vertex.column);
    EXPECT_EQ(expected, found);
}

TEST(RasterRefinement, TrianglesEndItAndTheErrorSaysWhatIsLeft) {
    const auto raster = hills(70, 53);
    RasterRefinement refinement(*raster);
    refinement.refine({0.0, 500});
    EXPECT_GE(refinement.triangles(), 500u);
    EXPECT_LE(refinement.triangles(), 501u); // two for each vertex, one on the border
    EXPECT_NEAR(measure(*raster, refinement.surface()).error, refinement.error(), 1e-9);
}

TEST(RasterRefinement, OfEqualErrorsTheFirstVertexIsTaken) {
    for (const auto & [first, second] :
         {std::pair(std::pair(14u, 3u), std::pair(3u, 14u)), {{3u, 9u}, {14u, 12u}}}) {
        const auto raster = flat(20, 20); // in both of the first triangles
        raster->setValue(first.first, first.second, 5.0f);
        raster->setValue(second.first, second.second, 5.0f);
        RasterRefinement refinement(*raster);
        refinement.refine({0.0, 4});
        const auto vertices = refinement.surface().vertices;
        ASSERT_EQ(5u, vertices.size());
        EXPECT_TRUE(std::any_of(vertices.begin(), vertices.end(), [&](const auto & vertex) {
            return vertex.column == first.first && vertex.row == first.second;
        }));
    }
}

TEST(RasterRefinement, NeighboursShareTheEdge) {
    auto raster = hills(40, 30);
    for (unsigned y = 10; y < 18; ++y)
        for (unsigned x = 12; x < 29; ++x)
            raster->setValue(x, y, s_void);
    RasterRefinement refinement(*raster);
    refinement.refine({4.0});
    const RasterSurface surface = refinement.surface();
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> triangleAt;
    for (std::uint32_t t = 0; t < surface.triangles.size(); ++t)
        for (unsigned k = 0; k < 3; ++k)
            triangleAt[{surface.triangles[t][k], surface.triangles[t][(k + 1) % 3]}] = t;
    for (std::uint32_t t = 0; t < surface.triangles.size(); ++t)
        for (unsigned k = 0; k < 3; ++k) {
            const auto beyond = triangleAt.find({surface.triangles[t][(k + 1) % 3], surface.triangles[t][k]});
            EXPECT_EQ(beyond == triangleAt.end() ? RasterSurface::s_none : beyond->second,
                      surface.neighbours[t][k]);
        }
}

TEST(RasterRefinement, VoidsAreHolesWithExactOutlines) {
    for (const unsigned seed : {1u, 2u, 3u}) {
        std::mt19937 random(seed);
        auto raster = hills(64, 48, seed);
        for (unsigned y = 0; y < 48; ++y) // a turned picture, a lake, and single ones
            for (unsigned x = 0; x < 64; ++x)
                if (x + 3 * y < 40 || 2 * x + y > 150 || (x - 30) * (x - 30) + (y - 25) * (y - 25) < 60 ||
                    random() % (seed == 3 ? 4 : 150) == 0)
                    raster->setValue(x, y, s_void);
        RasterRefinement refinement(*raster);
        refinement.refine({6.0});
        const Measured measured = measure(*raster, refinement.surface());
        EXPECT_EQ(0u, measured.coveredVoids);
        EXPECT_LE(measured.error, 6.0);
        EXPECT_NEAR(measured.error, refinement.error(), 1e-9);
        EXPECT_EQ(0u, measured.uncovered);
    }
}

TEST(RasterRefinement, AnUndefinedValueIsAVoidAsNaNIs) {
    NBX::SO<Heights> raster(new Heights(6, 6, 0.0, 0.0, 1.0, 1.0, true, -9999.0f));
    for (unsigned i = 0; i < 36; ++i)
        if (i != 14) raster->setValue(i % 6, i / 6, 5.0f);
    RasterRefinement refinement(*raster);
    refinement.refine({});
    EXPECT_EQ(0.0, refinement.error());
    EXPECT_LT(totalArea(refinement.surface()), 2 * 25);
    EXPECT_GE(totalArea(refinement.surface()), 2 * (25 - 4));
}

TEST(RasterRefinement, WhereTrianglesAreTooFewForTheOutlineTheErrorIsInfinite) {
    auto raster = flat(40, 40);
    for (unsigned i = 0; i < 40; ++i)
        raster->setValue((i * 7) % 40, i, s_void);
    RasterRefinement refinement(*raster);
    refinement.refine({0.0, 20});
    EXPECT_TRUE(std::isinf(refinement.error()));
    refinement.refine({});
    EXPECT_EQ(0.0, refinement.error());
}

TEST(RasterRefinement, WithoutHeightsThereIsNoTriangle) {
    auto raster = flat(9, 5, s_void);
    RasterRefinement refinement(*raster);
    refinement.refine({});
    EXPECT_EQ(0u, refinement.triangles());
    EXPECT_EQ(0.0, refinement.error());
    raster->setValue(4, 2, 1.0f); // one alone makes none either
    RasterRefinement lonely(*raster);
    lonely.refine({});
    EXPECT_EQ(0u, lonely.triangles());
}

TEST(RasterRefinement, SmallAndEvenRastersAreTwoTriangles) {
    for (const auto & [columns, rows] : {std::pair(2u, 2u), {2u, 9u}, {50u, 40u}}) {
        const auto raster = flat(columns, rows, 7.5f);
        RasterRefinement refinement(*raster);
        refinement.refine({});
        EXPECT_EQ(2u, refinement.triangles());
        EXPECT_EQ(0.0, refinement.error());
    }
    auto slope = flat(33, 21);
    for (unsigned y = 0; y < 21; ++y)
        for (unsigned x = 0; x < 33; ++x)
            slope->setValue(x, y, 3.0f * float(x) - 5.0f * float(y));
    RasterRefinement refinement(*slope);
    refinement.refine({});
    EXPECT_EQ(2u, refinement.triangles()) << "rounding is no error";
}

TEST(RasterRefinement, OneRowIsNoSurface) {
    EXPECT_THROW(RasterRefinement(*flat(9, 1)), std::length_error);
    EXPECT_THROW(RasterRefinement(*flat(1, 9)), std::length_error);
}

TEST(RasterRefinement, GoesOnFromWhereItWas) {
    const auto raster = hills(60, 60);
    RasterRefinement once(*raster), twice(*raster);
    once.refine({2.0});
    twice.refine({15.0});
    twice.refine({2.0});
    const RasterSurface a = once.surface(), b = twice.surface();
    EXPECT_EQ(a.triangles, b.triangles);
}

TEST(RasterRefinement, AVertexIsInsertedWhateverItsError) {
    const auto raster = flat(20, 20);
    RasterRefinement refinement(*raster);
    refinement.insert(7, 11);
    refinement.insert(7, 11);
    refinement.insert(19, 0); // a corner
    EXPECT_EQ(4u, refinement.triangles());
    EXPECT_EQ(0.0, refinement.error());
}

/// The longest edge over the width that belongs to it, on the average, where cells are `ratio` times as high
/// as wide.
double slenderness(const Heights & raster, double ratio, double given) {
    RasterRefinement refinement(raster, given);
    refinement.refine({0.0, 2000});
    const RasterSurface surface = refinement.surface();
    double sum = 0.0;
    for (const auto & triangle : surface.triangles) {
        double longest = 0.0;
        for (unsigned k = 0; k < 3; ++k) {
            const auto & a = surface.vertices[triangle[k]];
            const auto & b = surface.vertices[triangle[(k + 1) % 3]];
            longest =
                std::max(longest, std::hypot(double(a.column) - b.column, (double(a.row) - b.row) * ratio));
        }
        sum += longest * longest / (double(areaOf(surface, triangle)) * ratio);
    }
    return sum / double(surface.triangles.size());
}

TEST(RasterRefinement, CellsThatAreNotSquareMakeOtherTriangles) {
    const auto raster = hills(80, 80);
    for (const double ratio : {0.25, 4.0})
        EXPECT_LT(slenderness(*raster, ratio, ratio), 0.7 * slenderness(*raster, ratio, 1.0)) << ratio;
}

TEST(RasterRefinement, CanBeCancelled) {
    CancelingDisplay display;
    NBX::Progress progress("refining");
    const auto raster = hills(60, 60);
    RasterRefinement refinement(*raster);
    EXPECT_FALSE(refinement.refine({}, &progress));
}

} // namespace
