#include "core/terrain/geometry/chunked/chunkedlodpatchmesh.h"

#include <set>

#include <support/recordedreports.h>

#include "core/terrain/geometry/chunked/chunkedlodmesh.h"
#include <zmt/core/terrain/frame/geotransformation.h>

#include "chunkedfixture.h"

using TestChunked::Patch;
using ZMT::CORE::ChunkedLodMesh;
using ZMT::CORE::ChunkedLodPatchMesh;
using ZMT::CORE::ChunkedLodTerrain;
using ZMT::CORE::GeoTransformation;
using ZMT::CORE::StripMesh;

namespace {

constexpr double s_wall = -50.0;

class ChunkedLodPatchMeshTest : public testing::Test {
protected:
    ~ChunkedLodPatchMeshTest() override {
        GeoTransformation::setNBXOrigin({});
        EXPECT_TRUE(reports.empty()) << reports;
    }

    static double hilly(unsigned x, unsigned y) { return (x * x + 3 * y * y + x * y) % 101; }
    /// Large errors are rare.
    static double noisy(unsigned x, unsigned y) {
        return std::pow((x * 7919 + y * 104729) % 10007 * 1e-3, 6);
    }

    RecordedReports reports;
};

TEST_F(ChunkedLodPatchMeshTest, VerticesAreInSceneCoordinates) {
    const auto terrain = TestChunked::terrain({7, 9, 1000.0, 2000.0, 10.0, 20.0}, hilly);
    GeoTransformation::setNBXOrigin({990.0, 5.0, 1980.0});
    const ChunkedLodPatchMesh mesh(Patch(terrain, 0, 0, 9, 0, s_wall));
    std::set<std::pair<unsigned, unsigned>> cells;
    for (const auto & v : mesh.vertices) {
        const unsigned column = unsigned(std::lround((v.x - 10.0) / 10.0));
        const unsigned row = unsigned(std::lround((v.z - 20.0) / 20.0));
        EXPECT_DOUBLE_EQ(v.x, 10.0 + column * 10.0);
        if (std::abs(v.y - (s_wall - 5.0)) < 1e-3) continue;
        EXPECT_NEAR(v.y, hilly(column, row) - 5.0, 0.01);
        EXPECT_TRUE(cells.insert({column, row}).second) << "twice";
    }
    EXPECT_EQ(cells.size(), 63U);
}

TEST_F(ChunkedLodPatchMeshTest, CountsTheTrianglesOfTheSurface) {
    const auto terrain = TestChunked::terrain({9, 9}, hilly);
    EXPECT_EQ(128U, ChunkedLodPatchMesh(Patch(terrain, 0, 0, 9, 0, s_wall)).surfaceTriangles) << "two a cell";
    EXPECT_EQ(32U, ChunkedLodPatchMesh(Patch(terrain, 4, 4, 5, 0, s_wall)).surfaceTriangles);
    EXPECT_EQ(4U, ChunkedLodPatchMesh(Patch(terrain, 0, 0, 9, 65535, s_wall)).surfaceTriangles);
}

TEST_F(ChunkedLodPatchMeshTest, InnerSidesHaveSkirtsAndOuterOnesWalls) {
    const auto terrain = TestChunked::terrain({9, 7}, hilly);
    const struct {
        const char * name;
        unsigned x, y, size;
        std::size_t skirts, walls;
    } cases[] = {{"whole", 0, 0, 9, 0, 4},
                 {"low corner", 0, 0, 5, 2, 2},
                 {"high corner, beyond the raster", 4, 4, 5, 2, 2},
                 {"inside", 2, 2, 3, 4, 0},
                 {"low edge", 2, 0, 3, 3, 1},
                 {"right edge", 6, 2, 3, 3, 1}};
    for (const auto & c : cases) {
        SCOPED_TRACE(c.name);
        const ChunkedLodPatchMesh mesh(Patch(terrain, c.x, c.y, c.size, 0, s_wall));
        EXPECT_EQ(mesh.strips.ranges.size(), 1 + c.skirts);
        EXPECT_EQ(mesh.outerWall.ranges.size(), c.walls);
        EXPECT_EQ(mesh.strips.ranges.back(), mesh.strips.indices.size());
        EXPECT_EQ(mesh.outerWall.indices.empty(), c.walls == 0);
    }
}

TEST_F(ChunkedLodPatchMeshTest, TheSurfaceAloneIsWithoutSkirtsAndWhereItIsAskedFor) {
    const auto terrain = TestChunked::terrain({7, 9, 1000.0, 2000.0, 10.0, 20.0}, hilly);
    GeoTransformation::setNBXOrigin({990.0, 5.0, 1980.0});
    const Patch patch(terrain, 4, 0, 5, 0, s_wall);
    const ChunkedLodPatchMesh drawn(patch);
    const StripMesh surface = ChunkedLodPatchMesh::surfaceOf(patch, {}),
                    shifted = ChunkedLodPatchMesh::surfaceOf(patch, {1.0, 2.0, 3.0});
    ASSERT_EQ(surface.vertices.size(), drawn.surfaceVertices);
    EXPECT_LT(surface.vertices.size(), drawn.vertices.size());
    EXPECT_EQ(surface.triangles(), drawn.surfaceTriangles);
    EXPECT_EQ(surface.strips.ranges, (std::vector<unsigned>{drawn.strips.ranges[0]}));
    for (std::size_t i = 0; i < surface.vertices.size(); ++i) {
        EXPECT_LT((surface.vertices[i] - drawn.vertices[i] - StripMesh::Point(990.0, 5.0, 1980.0)).length(),
                  1e-9);
        EXPECT_LT((surface.vertices[i] - shifted.vertices[i] - StripMesh::Point(1.0, 2.0, 3.0)).length(),
                  1e-9);
    }
}

/// The curtains of a strip list: each pair of indices is a vertex, and one below it on the wall.
void expectCurtains(const ChunkedLodPatchMesh & mesh, const StripMesh::Strips & strips,
                    std::size_t firstStrip) {
    for (std::size_t strip = firstStrip; strip < strips.ranges.size(); ++strip) {
        const unsigned begin = strip == 0 ? 0 : strips.ranges[strip - 1], end = strips.ranges[strip];
        ASSERT_EQ((end - begin) % 2, 0U);
        for (unsigned i = begin; i < end; i += 2) {
            const auto &top = mesh.vertices[strips.indices[i]],
                       &bottom = mesh.vertices[strips.indices[i + 1]];
            ASSERT_EQ(top.x, bottom.x);
            ASSERT_EQ(top.z, bottom.z);
            ASSERT_EQ(bottom.y, s_wall);
            ASSERT_GT(top.y, bottom.y);
        }
    }
}

TEST_F(ChunkedLodPatchMeshTest, CurtainsReachFromTheSidesOfTheMeshDownToTheWall) {
    const auto terrain = TestChunked::terrain({60, 65}, hilly);
    TestChunked::Random random(1);
    for (unsigned run = 0; run < 100; ++run) {
        SCOPED_TRACE(run);
        const auto window = TestChunked::randomWindow(*terrain->impl(), random);
        if (window.x >= 60) continue;
        const unsigned short threshold = TestChunked::randomThreshold(*terrain->impl(), random);
        const Patch patch(terrain, window.x, window.y, window.size, threshold, s_wall);
        const ChunkedLodPatchMesh mesh(patch);
        EXPECT_EQ(patch.threshold(), window.size > 3 ? threshold : 0);
        expectCurtains(mesh, mesh.strips, 1);
        expectCurtains(mesh, mesh.outerWall, 0);
        std::size_t tops = 0;
        std::vector<unsigned> side;
        for (unsigned i = 0; i < 4; ++i) {
            ChunkedLodMesh::buildBoundary(*terrain->impl(), window.x, window.y, window.size,
                                          patch.threshold(), side, i);
            tops += side.size();
        }
        EXPECT_EQ(mesh.strips.indices.size() - mesh.strips.ranges[0] + mesh.outerWall.indices.size(),
                  2 * tops);
    }
}

TEST_F(ChunkedLodPatchMeshTest, StripsKeepWithinSixteenBits) {
    const auto terrain = TestChunked::terrain({257, 257}, noisy);
    const Patch patch(terrain, 0, 0, 257, 0, s_wall);
    const ChunkedLodPatchMesh mesh(patch);
    EXPECT_LT(mesh.strips.ranges[0], 65535U);
    EXPECT_GT(mesh.strips.ranges[0], 1000U);
    EXPECT_LE(mesh.vertices.size(), 65536U);
    EXPECT_GT(patch.threshold(), 0);
}

TEST_F(ChunkedLodPatchMeshTest, TheSmallestGroundsHaveMeshes) {
    for (unsigned sizeX = 1; sizeX <= 3; ++sizeX)
        for (unsigned sizeY = 1; sizeY <= 3; ++sizeY) {
            SCOPED_TRACE(testing::Message() << sizeX << " by " << sizeY);
            const auto terrain = TestChunked::terrain({sizeX, sizeY}, hilly);
            const auto root = TestChunked::patch(terrain->root());
            const ChunkedLodPatchMesh mesh(*root);
            EXPECT_EQ(root->size(), 3U);
            EXPECT_EQ(root->children(), 0U);
            EXPECT_EQ(mesh.outerWall.ranges.size(), 4U);
        }
}

} // namespace
