#include "core/terrain/geometry/grid/model/geometrypatchhack.h"

#include <gtest/gtest.h>

#include "support/memorygridterrain.h"
#include "support/recordedreports.h"

using namespace ZMT::CORE::GRID;
using NBX::SO;
using Key = MemoryGrid::Key;
using Patch = ZMT::CORE::GeometryPatch;
using Point = NBX::Vector3Base<double>;

namespace {

SO<MemoryGridTerrain> terrainOf() {
    MemoryGrid grid;
    grid.level = 2;
    grid.depth = 2;
    grid.kind = [](const Key & key) { return key == Key{1, 4, 0} ? 0U : key == Key{1, 0, 4} ? 1U : 2U; };
    grid.sample = [](unsigned, unsigned, unsigned) -> std::uint16_t { return 5; };
    return new MemoryGridTerrain(grid);
}

} // namespace

TEST(GeometryPatchHACK, IsOneObjectForATile) {
    const auto terrain = terrainOf();
    const auto patch = terrain->rootTile()->geometryPatchHACK(terrain);
    EXPECT_EQ(patch, terrain->rootTile()->geometryPatchHACK(terrain));
    EXPECT_EQ(patch, patch->child(0)->parent());
    EXPECT_EQ(patch->child(0), patch->child(0));
    EXPECT_NE(patch->child(0).get(), patch->child(3).get());
}

TEST(GeometryPatchHACK, BoxIsInSceneCoordinatesAndFollowsTheirOrigin) {
    const auto terrain = terrainOf();
    const auto patch = terrain->rootTile()->geometryPatchHACK(terrain);
    EXPECT_EQ(NBX::Bounds(Point(0, 4, 0), Point(16, 4, 16)), patch->boundingBox());
    ZMT::CORE::GeoTransformation::setNBXOrigin({1, 2, 3});
    EXPECT_EQ(NBX::Bounds(Point(-1, 2, -3), Point(15, 2, 13)), patch->boundingBox());
    ZMT::CORE::GeoTransformation::setNBXOrigin({});
}

TEST(GeometryPatchHACK, FollowsTheTree) {
    const RecordedReports reports;
    const auto terrain = terrainOf();
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
    const auto terrain = terrainOf();
    const auto patch = terrain->rootTile()->geometryPatchHACK(terrain);
    EXPECT_TRUE(patch->child(3));
    static_cast<MemoryGridTile &>(*terrain->rootTile()->child(3, false)).unloadOwnData();
    EXPECT_TRUE(patch->child(3)->boundingBox().isDefined());
    EXPECT_EQ(2U, terrain->state().totalLoads());
}

TEST(GeometryPatchHACK, ChildThatCannotBeReadIsNone) {
    const auto terrain = terrainOf();
    terrain->state().failing = {{1, 4, 4}};
    const auto patch = terrain->rootTile()->geometryPatchHACK(terrain);
    EXPECT_FALSE(patch->child(3));
    terrain->state().failing.clear();
    EXPECT_TRUE(patch->child(3));
}

TEST(GeometryPatchHACK, ChildBeyondTheLastIsReported) {
    const auto terrain = terrainOf();
    RecordedReports reports;
    EXPECT_FALSE(terrain->rootTile()->geometryPatchHACK(terrain)->child(4));
    EXPECT_EQ(1U, reports.count(0, L"i < children()", L"i out of range"));
}

TEST(GeometryPatchHACK, UnloadsTheChildrenOfTheTile) {
    const auto terrain = terrainOf();
    const auto patch = terrain->rootTile()->geometryPatchHACK(terrain);
    const NBX::WO<GridTerrainTile> child(terrain->rootTile()->child(0, false));
    patch->unloadChildren();
    EXPECT_FALSE(child);
}

TEST(GeometryPatchHACK, OutlivesItsTileAsAPatchWithoutPlace) {
    SO<Patch> patch;
    NBX::WO<GridTerrainTile> tile;
    {
        const auto terrain = terrainOf();
        patch = terrain->rootTile()->geometryPatchHACK(terrain)->child(0);
        tile = terrain->rootTile();
    }
    EXPECT_FALSE(tile) << "a patch does not keep the tree";
    EXPECT_FALSE(patch->boundingBox().isDefined());
    EXPECT_FALSE(patch->parent());
    EXPECT_FALSE(patch->data());
    EXPECT_EQ(0U, patch->children());
    patch->unloadChildren();
}
