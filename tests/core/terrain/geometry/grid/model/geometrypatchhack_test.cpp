#include "core/terrain/geometry/grid/model/geometrypatchhack.h"

#include <gtest/gtest.h>

#include <zmt/core/terrain/geometry/base/stripmesh.h>

#include "support/memorygridterrain.h"
#include "support/recordedreports.h"

using namespace ZMT::CORE::GRID;
using NBX::SO;
using Key = MemoryGrid::Key;
using Patch = ZMT::CORE::GeometryPatch;
using Point = NBX::Vector3Base<double>;

namespace {

SO<MemoryGridTerrain> smallTerrain() {
    MemoryGrid grid;
    grid.level = 2;
    grid.depth = 2;
    grid.kind = [](const Key & key) { return key == Key{1, 4, 0} ? 0U : key == Key{1, 0, 4} ? 1U : 2U; };
    grid.sample = [](unsigned, unsigned, unsigned) -> std::uint16_t { return 5; };
    return new MemoryGridTerrain(grid);
}

} // namespace

TEST(GeometryPatchHACK, IsOneObjectForATile) {
    const auto terrain = smallTerrain();
    const auto patch = terrain->rootTile()->geometryPatchHACK(terrain);
    EXPECT_EQ(patch, terrain->rootTile()->geometryPatchHACK(terrain));
    EXPECT_EQ(patch, patch->child(0)->parent());
    EXPECT_EQ(patch->child(0), patch->child(0));
    EXPECT_NE(patch->child(0).get(), patch->child(3).get());
}

TEST(GeometryPatchHACK, BoxIsInSceneCoordinatesAndFollowsTheirOrigin) {
    const auto terrain = smallTerrain();
    const auto patch = terrain->rootTile()->geometryPatchHACK(terrain);
    EXPECT_EQ(NBX::Bounds(Point(0, 4, 0), Point(16, 4, 16)), patch->boundingBox());
    ZMT::CORE::GeoTransformation::setNBXOrigin({1, 2, 3});
    EXPECT_EQ(NBX::Bounds(Point(-1, 2, -3), Point(15, 2, 13)), patch->boundingBox());
    ZMT::CORE::GeoTransformation::setNBXOrigin({});
}

TEST(GeometryPatchHACK, FollowsTheTree) {
    const RecordedReports reports;
    const auto terrain = smallTerrain();
    const auto patch = terrain->rootTile()->geometryPatchHACK(terrain);
    EXPECT_FALSE(patch->parent());
    EXPECT_FALSE(patch->data());
    ASSERT_EQ(4U, patch->children());
    EXPECT_FALSE(patch->child(1)) << "nothing lies there";
    EXPECT_EQ(NBX::Bounds(Point(0, 4, 8), Point(8, 4, 16)), patch->child(2)->boundingBox()) << "a part";
    EXPECT_EQ(NBX::Bounds(Point(8, 4, 8), Point(16, 4, 16)), patch->child(3)->boundingBox()) << "read for it";
    EXPECT_EQ(2U, terrain->state().totalLoads());
    // Down to single cells.
    SO<Patch> at = patch;
    unsigned depth = 0;
    for (; at->children() > 0; ++depth)
        at = at->child(3);
    EXPECT_EQ(4U, depth);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(GeometryPatchHACK, ChildWhoseBoxIsKnownIsNotReadAgain) {
    const auto terrain = smallTerrain();
    const auto patch = terrain->rootTile()->geometryPatchHACK(terrain);
    EXPECT_TRUE(patch->child(3));
    static_cast<MemoryGridTile &>(*terrain->rootTile()->child(3, false)).unloadOwnData();
    EXPECT_TRUE(patch->child(3)->boundingBox().isDefined());
    EXPECT_EQ(2U, terrain->state().totalLoads());
}

TEST(GeometryPatchHACK, ChildrenAreInMemoryOnceAllThatLieThereWereRead) {
    const auto terrain = smallTerrain();
    const auto patch = terrain->rootTile()->geometryPatchHACK(terrain);
    EXPECT_FALSE(patch->childrenAreInMemory());
    EXPECT_EQ(1U, terrain->state().totalLoads()) << "asking reads nothing";
    EXPECT_TRUE(patch->child(0));
    EXPECT_FALSE(patch->childrenAreInMemory()) << "the last one is missing";
    EXPECT_TRUE(patch->child(3));
    EXPECT_TRUE(patch->childrenAreInMemory()) << "1 does not lie there, and 2 is a part";
    EXPECT_TRUE(patch->child(2)->childrenAreInMemory()) << "parts of a part";
}

TEST(GeometryPatchHACK, ChildThatCannotBeReadIsNone) {
    const auto terrain = smallTerrain();
    terrain->state().failing = {{1, 4, 4}};
    const auto patch = terrain->rootTile()->geometryPatchHACK(terrain);
    EXPECT_FALSE(patch->child(3));
    terrain->state().failing.clear();
    EXPECT_TRUE(patch->child(3));
}

TEST(GeometryPatchHACK, ChildBeyondTheLastIsReported) {
    const auto terrain = smallTerrain();
    RecordedReports reports;
    EXPECT_FALSE(terrain->rootTile()->geometryPatchHACK(terrain)->child(4));
    EXPECT_EQ(1U, reports.count(0, L"i < children()", L"i out of range"));
}

TEST(GeometryPatchHACK, UnloadsTheChildrenOfTheTile) {
    const auto terrain = smallTerrain();
    const auto patch = terrain->rootTile()->geometryPatchHACK(terrain);
    const NBX::WO<GridTerrainTile> child(terrain->rootTile()->child(0, false));
    patch->unloadChildren();
    EXPECT_FALSE(child);
}

/// 4 by 4 cells of a step of 2: an undefined sample takes the six triangles that meet in it.
TEST(GeometryPatchHACK, SurfaceIsWhatTheTileShows) {
    MemoryGrid grid;
    grid.level = 2;
    grid.depth = 1;
    grid.grid2geo = MemoryGrid::toGeo(10.0, 20.0, 0.5, 1000.0, 2000.0, 100.0);
    grid.sample = [](unsigned, unsigned x, unsigned y) -> std::uint16_t {
        return x == 4 && y == 6 ? 0 : std::uint16_t(1 + x + 3 * y);
    };
    const SO<MemoryGridTerrain> terrain(new MemoryGridTerrain(grid));
    const auto patch = terrain->rootTile()->geometryPatchHACK(terrain);
    const auto description = patch->description();
    EXPECT_EQ(description.kind, "tile");
    EXPECT_EQ(description.cells, NBX::Area(0, 0, 8, 8));
    EXPECT_EQ(description.vertices, 25U);
    EXPECT_EQ(description.triangles, 32U - 6U);
    const auto mesh = patch->surface({1.0, 2.0, 3.0});
    ASSERT_EQ(mesh.vertices.size(), 25U);
    EXPECT_EQ(mesh.triangles(), 26U);
    EXPECT_EQ(mesh.vertices[0], Point(999, 98, 1997));
    EXPECT_EQ(mesh.vertices[1 + 5 * 2], Point(1019, 98 + 0.5 * (2 + 3 * 4), 2077));
    mesh.forEachTriangle([&](unsigned a, unsigned b, unsigned c) {
        const Point ab = mesh.vertices[b] - mesh.vertices[a], ac = mesh.vertices[c] - mesh.vertices[a];
        EXPECT_EQ(ac.x * ab.z - ac.z * ab.x, 20.0 * 40.0) << "clockwise as seen from above";
        for (const unsigned v : {a, b, c})
            EXPECT_NE(v, 2U + 5U * 3U);
    });
}

TEST(GeometryPatchHACK, SurfaceOfAPartIsThePartOfTheWholeTile) {
    MemoryGrid grid;
    grid.level = 2;
    grid.depth = 1;
    grid.kind = [](const Key & key) { return key.depth == 1 ? 2U : 1U; };
    grid.sample = [](unsigned, unsigned x, unsigned y) { return std::uint16_t(1 + x + 100 * y); };
    const SO<MemoryGridTerrain> terrain(new MemoryGridTerrain(grid));
    const auto part = terrain->rootTile()->geometryPatchHACK(terrain)->child(2)->child(1);
    EXPECT_EQ(part->description().cells, NBX::Area(2, 4, 2, 2));
    EXPECT_EQ(part->description().vertices, 4U);
    EXPECT_EQ(part->description().triangles, 2U);
    const auto mesh = part->surface({});
    ASSERT_EQ(mesh.vertices.size(), 4U);
    EXPECT_EQ(mesh.vertices[0], Point(2, 402, 4));
    EXPECT_EQ(mesh.vertices[3], Point(4, 604, 6));
}

TEST(GeometryPatchHACK, WithoutHeightsInMemoryThereIsNoSurface) {
    const auto terrain = smallTerrain();
    const auto patch = terrain->rootTile()->geometryPatchHACK(terrain);
    static_cast<MemoryGridTile &>(*terrain->rootTile()).unloadOwnData();
    EXPECT_EQ(patch->description().cells, NBX::Area(0, 0, 16, 16));
    EXPECT_EQ(patch->description().vertices, 0U);
    EXPECT_EQ(patch->description().triangles, 0U);
    EXPECT_TRUE(patch->surface({}).vertices.empty());
}

TEST(GeometryPatchHACK, OutlivesItsTileAsAPatchWithoutPlace) {
    SO<Patch> patch;
    NBX::WO<GridTerrainTile> tile;
    {
        const auto terrain = smallTerrain();
        patch = terrain->rootTile()->geometryPatchHACK(terrain)->child(0);
        tile = terrain->rootTile();
    }
    EXPECT_FALSE(tile) << "a patch does not keep the tree";
    EXPECT_FALSE(patch->boundingBox().isDefined());
    EXPECT_FALSE(patch->parent());
    EXPECT_FALSE(patch->data());
    EXPECT_EQ(0U, patch->children());
    patch->unloadChildren();
    EXPECT_EQ("tile", patch->description().kind);
    EXPECT_TRUE(patch->surface({}).strips.indices.empty());
}
