#include "util/mesh/meshsolid.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace {

using namespace ZMT::UTIL;
using Heights = RasterRefinement::Heights;

constexpr float s_hole = std::numeric_limits<float>::quiet_NaN();

/// The closed mesh over the cells of a raster, a unit each, at full detail.
SurfaceMesh solid(const Heights & raster, float base) {
    RasterRefinement refinement(raster);
    refinement.refine({});
    const RasterSurface surface = refinement.surface();
    SurfaceMesh mesh;
    mesh.triangles = surface.triangles;
    for (const auto & v : surface.vertices)
        mesh.positions.push_back({float(v.column), float(v.row), float(raster.value(v.column, v.row))});
    MeshSolid::close(mesh, surface, base, 1.0);
    return mesh;
}

/// Edges, by the places of their ends, without exactly one triangle in each direction.
std::size_t openEdges(const SurfaceMesh & mesh) {
    using Position = std::array<float, 3>;
    std::map<std::pair<Position, Position>, int> uses;
    for (const auto & t : mesh.triangles)
        for (unsigned k = 0; k < 3; ++k)
            ++uses[{mesh.positions[t[k]], mesh.positions[t[(k + 1) % 3]]}];
    std::size_t open = 0;
    for (const auto & [edge, count] : uses) {
        const auto back = uses.find({edge.second, edge.first});
        open += count != 1 || back == uses.end() || back->second != 1;
    }
    return open;
}

double volume(const SurfaceMesh & mesh) {
    double six = 0.0;
    for (const auto & t : mesh.triangles) {
        const auto &a = mesh.positions[t[0]], &b = mesh.positions[t[1]], &c = mesh.positions[t[2]];
        six += double(a[0]) * (double(b[1]) * c[2] - double(b[2]) * c[1]) +
               double(a[1]) * (double(b[2]) * c[0] - double(b[0]) * c[2]) +
               double(a[2]) * (double(b[0]) * c[1] - double(b[1]) * c[0]);
    }
    return six / 6.0;
}

NBX::SO<Heights> plain(unsigned columns, unsigned rows, float height) {
    NBX::SO<Heights> raster(new Heights(columns, rows, 0.0, 0.0, 1.0, 1.0, true, s_hole));
    std::fill_n(raster->cells(), std::size_t(columns) * rows, height);
    return raster;
}

TEST(MeshSolid, ACellIsABox) {
    const SurfaceMesh mesh = solid(*plain(2, 2, 5.0f), 2.0f);
    EXPECT_EQ(12u, mesh.triangles.size());
    EXPECT_EQ(8u, mesh.positions.size());
    EXPECT_EQ(0u, openEdges(mesh));
    EXPECT_DOUBLE_EQ(3.0, volume(mesh));
}

TEST(MeshSolid, AHoleHasWallsInside) {
    const auto raster = plain(5, 5, 1.0f);
    raster->setValue(2, 2, s_hole);
    const SurfaceMesh mesh = solid(*raster, 0.0f);
    EXPECT_EQ(0u, openEdges(mesh));
    EXPECT_DOUBLE_EQ(16.0 - 2.0, volume(mesh)); // half of each cell at the hole
}

TEST(MeshSolid, PartsThatTouchInAVertexArePartedThere) {
    // Two cells with a vertex in common, in both diagonals.
    for (const bool isMirrored : {false, true}) {
        const auto raster = plain(3, 3, 1.0f);
        raster->setValue(isMirrored ? 0 : 2, 0, s_hole);
        raster->setValue(isMirrored ? 2 : 0, 2, s_hole);
        raster->setValue(1, isMirrored ? 0 : 2, s_hole);
        raster->setValue(1, isMirrored ? 2 : 0, s_hole);
        const SurfaceMesh mesh = solid(*raster, 0.0f);
        EXPECT_EQ(0u, openEdges(mesh));
        EXPECT_GT(volume(mesh), 0.9);
    }
}

TEST(MeshSolid, IsClosedWhateverIsMissing) {
    for (const unsigned seed : {1u, 2u, 3u, 4u}) {
        std::mt19937 random(seed);
        const auto raster = plain(40, 30, 1.0f);
        for (unsigned i = 0; i < 1200; ++i)
            raster->setValue(i % 40, i / 40,
                             random() % (seed + 1) == 0 ? s_hole : 5.0f + float(random() % 9));
        const SurfaceMesh mesh = solid(*raster, 0.0f);
        ASSERT_GT(mesh.triangles.size(), 50u);
        EXPECT_EQ(0u, openEdges(mesh)) << seed;
        EXPECT_GT(volume(mesh), 0.0);
    }
}

} // namespace
