#include <zmt/core/terrain/inspect/patchmesh.h>

#include <gtest/gtest.h>

#include <zmt/core/terrain/geometry/regular/gridpatch.h>
#include <zmt/core/terrain/geometry/tree/tinpatch.h>

#include <zmt/core/terrain/frame/geotransformation.h>

#include "core/terrain/geometry/chunked/chunkedfixture.h"
#include "support/smallhybrid.h"
#include "support/testterrain.h"

using NBX::Area;
using ZMT::CORE::PatchMesh;
using Point = NBX::Vector3Base<double>;

namespace {

using Triangles = std::vector<std::array<unsigned, 3>>;

const NBX::Bounds s_box(Point(0, 0, 0), Point(1, 1, 1));

NBX::SO<ZMT::CORE::GridData> grid() {
    return TestTerrain::grid({5, 4, 100.0, 200.0, 2.0, 3.0}, TestTerrain::bumpy);
}

Triangles trianglesOf(const PatchMesh & mesh) {
    Triangles triangles;
    mesh.forEachTriangle([&](unsigned a, unsigned b, unsigned c) { triangles.push_back({a, b, c}); });
    return triangles;
}

/// Twice the area in the plane, positive for triangles that turn clockwise as seen from above.
double area(const PatchMesh & mesh, const std::array<unsigned, 3> & t) {
    const Point a = mesh.geoPosition(t[0]), b = mesh.geoPosition(t[1]) - a, c = mesh.geoPosition(t[2]) - a;
    return c.x * b.z - c.z * b.x;
}

TEST(PatchMesh, OfAGridHasTwoTrianglesACell) {
    const NBX::SO<ZMT::CORE::GridPatch> patch(
        new ZMT::CORE::GridPatch(grid(), Area(1, 1, 2, 1), s_box, 0.0, 0.0, nullptr));
    const PatchMesh mesh(*patch);
    EXPECT_EQ(patch->description().kind, "grid");
    EXPECT_EQ(patch->description().vertices, 6U);
    EXPECT_EQ(patch->description().triangles, 4U);
    EXPECT_EQ(mesh.domain(), Area(1, 1, 2, 1));
    EXPECT_EQ(mesh.vertices(), 6U);
    EXPECT_EQ(mesh.triangles(), 4U);
    EXPECT_EQ(trianglesOf(mesh), (Triangles{{0, 3, 1}, {1, 3, 4}, {1, 4, 2}, {2, 4, 5}}));
    EXPECT_EQ(mesh.geoPosition(0), Point(102, TestTerrain::bumpy(1, 1), 203));
    EXPECT_EQ(mesh.geoPosition(5), Point(106, TestTerrain::bumpy(3, 2), 206));
    for (const auto & t : trianglesOf(mesh))
        EXPECT_EQ(area(mesh, t), 6.0);
}

/// Two strips: a fan-like one of three triangles, and one of a single triangle.
TEST(PatchMesh, OfATriangulationFollowsItsStrips) {
    using TestTerrain::array;
    // 3 - 4 at the upper side, 0 - 1 - 2 at the lower one.
    const NBX::SO<ZMT::CORE::TinPatch> patch(new ZMT::CORE::TinPatch(
        grid(), array<unsigned>({5, 6, 7, 15, 17}), array<unsigned short>({0, 1, 3, 4, 1, 2, 4}),
        array<unsigned>({4, 7}), array<unsigned short>({0, 3}), true, array<unsigned short>({3, 4}), true,
        array<unsigned short>({4, 2}), false, array<unsigned short>({2, 1, 0}), false, s_box, 0.0, 0.0,
        nullptr));
    const PatchMesh mesh(*patch);
    EXPECT_EQ(patch->description().kind, "tin");
    EXPECT_EQ(patch->description().vertices, 5U);
    EXPECT_EQ(patch->description().triangles, 3U);
    EXPECT_EQ(mesh.domain(), Area(0, 1, 2, 2));
    EXPECT_EQ(mesh.vertices(), 5U);
    EXPECT_EQ(mesh.triangles(), 3U);
    EXPECT_EQ(trianglesOf(mesh), (Triangles{{1, 0, 3}, {1, 3, 4}, {2, 1, 4}}));
    EXPECT_EQ(mesh.geoPosition(4), Point(104, TestTerrain::bumpy(2, 3), 209));
    double sum = 0.0;
    for (const auto & t : trianglesOf(mesh)) {
        EXPECT_GT(area(mesh, t), 0.0);
        sum += area(mesh, t);
    }
    EXPECT_EQ(sum, 2.0 * 4.0 * 6.0);
}

/// Cells with shapes of their own in a corner and beside a plain cell.
TEST(PatchMesh, OfAGridWithMicroStructuresHasTheirTriangles) {
    const auto data = SmallHybrid::hybrid({5, 4, 100.0, 200.0, 2.0, 3.0}, TestTerrain::bumpy,
                                          {{1, 1, 70.0}, {3, 1, 80.0}, {2, 2, 90.0}, {0, 0, 60.0}});
    const NBX::SO<ZMT::CORE::GridPatch> patch(
        new ZMT::CORE::GridPatch(data, Area(1, 1, 3, 2), s_box, 0.0, 0.0, nullptr));
    const PatchMesh mesh(*patch);
    EXPECT_EQ(mesh.vertices(), 12U + 3U);
    EXPECT_EQ(mesh.triangles(), 3U * 2 + 3U * 4);
    EXPECT_EQ(patch->description().vertices, 15U);
    EXPECT_EQ(patch->description().triangles, 18U);
    EXPECT_EQ(mesh.geoPosition(12), Point(103, 70, 204.5));
    EXPECT_EQ(mesh.geoPosition(13), Point(107, 80, 204.5));
    EXPECT_EQ(mesh.geoPosition(14), Point(105, 90, 207.5));
    double sum = 0.0;
    for (const auto & t : trianglesOf(mesh)) {
        EXPECT_GT(area(mesh, t), 0.0);
        sum += area(mesh, t);
    }
    EXPECT_EQ(sum, 2.0 * 6.0 * 6.0) << "each place once";
}

TEST(PatchMesh, OfAChunkIsWhatIsDrawnWithinTheRaster) {
    const auto terrain = TestChunked::terrain({7, 6, 100.0, 200.0, 2.0, 3.0}, TestTerrain::bumpy);
    ZMT::CORE::GeoTransformation::setNBXOrigin({50, 60, 70});
    const NBX::SO<TestChunked::Patch> patch(new TestChunked::Patch(terrain, 4, 4, 5, 0, -3.0)),
        beyond(new TestChunked::Patch(terrain, 4, 6, 3, 0, -3.0));
    const PatchMesh mesh(*patch);
    EXPECT_EQ(patch->description().kind, "chunked");
    EXPECT_EQ(mesh.domain(), Area(4, 4, 2, 1));
    EXPECT_EQ(mesh.vertices(), 6U);
    EXPECT_EQ(mesh.triangles(), 4U);
    EXPECT_EQ(patch->description().vertices, 6U);
    EXPECT_EQ(patch->description().triangles, 4U);
    EXPECT_EQ(beyond->description().cells, Area(4, 6, 2, 0)) << "one row beyond the last";
    double sum = 0.0;
    for (const auto & t : trianglesOf(mesh)) {
        EXPECT_GT(area(mesh, t), 0.0);
        sum += area(mesh, t);
        for (const unsigned v : t) {
            const Point p = mesh.geoPosition(v);
            const double height = TestTerrain::bumpy(unsigned(std::lround((p.x - 100) / 2)),
                                                     unsigned(std::lround((p.z - 200) / 3)));
            EXPECT_NEAR(p.y, height, terrain->heightScale());
        }
    }
    EXPECT_NEAR(sum, 2.0 * 2.0 * 6.0, 1e-3);
    ZMT::CORE::GeoTransformation::setNBXOrigin({});
}

class OtherPatch : public ZMT::CORE::GeometryPatch {
    NBX_TEMPLATE_CLASS(OtherPatch, ZMT::CORE::GeometryPatch)
public:
    OtherPatch() : GeometryPatch(s_box, 0.0, 0.0, nullptr) {}
    NBX::SO<ZMT::CORE::GeometryData> data() const override { return nullptr; }
};

TEST(PatchMesh, OfAnotherPatchIsEmpty) {
    const NBX::SO<OtherPatch> patch(new OtherPatch);
    const PatchMesh mesh(*patch);
    EXPECT_EQ(patch->description().kind, "");
    EXPECT_EQ(patch->description().triangles, 0U);
    EXPECT_EQ(mesh.domain(), Area());
    EXPECT_EQ(mesh.vertices(), 0U);
    EXPECT_EQ(mesh.triangles(), 0U);
    EXPECT_TRUE(trianglesOf(mesh).empty());
}

} // namespace
