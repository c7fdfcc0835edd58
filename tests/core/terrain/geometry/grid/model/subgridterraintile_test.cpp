#include <zmt/core/terrain/geometry/grid/model/subgridterraintile.h>

#include <set>

#include <gtest/gtest.h>

#include <zmt/core/terrain/geometry/base/geometrypatch.h>

#include "support/glfixture.h"
#include "support/memorygridterrain.h"
#include "support/recordedreports.h"

using namespace ZMT::CORE::GRID;
using NBX::SO;
using Tile = GridTerrainTile;
using Key = MemoryGrid::Key;
using Point = NBX::Vector3Base<double>;

namespace {

/// A root of 8 by 8 cells, the low right quarter of which has no heights of its own.
MemoryGrid gridWithPart(unsigned level = 3, unsigned depth = 3) {
    MemoryGrid grid;
    grid.level = level;
    grid.depth = depth;
    grid.sample = [](unsigned, unsigned x, unsigned y) {
        return static_cast<std::uint16_t>(100 + x * 3 + y * 5);
    };
    grid.kind = [=](const Key & key) { return key == Key{depth - 1, 1U << level, 0} ? 1U : 2U; };
    return grid;
}

/// What goes on below a part of a tile.
SO<Tile> descend(SO<Tile> tile, std::initializer_list<unsigned> path) {
    for (const unsigned i : path)
        tile = tile->child(i, false);
    return tile;
}

} // namespace

TEST(SubGridTerrainTile, ForwardsToItsMaster) {
    const MemoryGridTerrain terrain(gridWithPart());
    const auto root = terrain.rootTile();
    const auto part = root->child(1, false);
    ASSERT_TRUE(NBX::soCast<SubGridTerrainTile>(part));
    EXPECT_EQ(root, part->parent());
    EXPECT_EQ(Tile::CI_HighXLowY, root->childIndex(part));
    EXPECT_EQ(3U, part->gridLevel());
    EXPECT_EQ(2, part->level());
    EXPECT_EQ(3, part->detailLevel());
    EXPECT_EQ(root->tileData(), part->tileData());
    EXPECT_EQ(root->vertexBuffer(), part->vertexBuffer());
    EXPECT_EQ(root->indexBuffer(), part->indexBuffer());
    EXPECT_EQ(root->grid2geoTf(), part->grid2geoTf());
    EXPECT_EQ(root->geo2gridTf(), part->geo2gridTf());
    EXPECT_EQ(root->grid2visTf(), part->grid2visTf());
    EXPECT_EQ(root->vis2gridTf(), part->vis2gridTf());
    EXPECT_FALSE(part->hasUndefValues());
    EXPECT_EQ(root->child(1, false), part) << "made once";

    const auto below = descend(part, {3, 0});
    EXPECT_EQ(0, below->level());
    EXPECT_EQ(3, below->detailLevel());
}

TEST(SubGridTerrainTile, RequestsGoToTheMaster) {
    const MemoryGridTerrain terrain(gridWithPart());
    const auto part = terrain.rootTile()->child(1, false);
    static_cast<MemoryGridTile &>(*terrain.rootTile()).unloadOwnData();
    EXPECT_FALSE(part->tileData());
    EXPECT_FALSE(part->requestTileData(5.0, false, nullptr));
    EXPECT_EQ(5.0, terrain.state().waiting.at({3, 0, 0}));
    bool failed = false;
    terrain.state().failing = {{3, 0, 0}};
    EXPECT_FALSE(part->requestTileData(5.0, true, &failed));
    EXPECT_TRUE(failed);
    terrain.state().failing.clear();
    EXPECT_TRUE(part->requestTileData(5.0, true, &failed));
    EXPECT_FALSE(failed);
    part->unloadData();
    EXPECT_TRUE(terrain.rootTile()->tileData()) << "the heights are not its own";
}

TEST(SubGridTerrainTile, BoxIsThatOfTheDefinedHeightsOfItsCells) {
    MemoryGrid grid = gridWithPart();
    const auto plane = grid.sample;
    // Samples 8 apart. Of the low right part, columns 4 to 8, nothing left of column 6.
    grid.sample = [=](unsigned d, unsigned x, unsigned y) -> std::uint16_t {
        return x > 8 && x < 48 ? 0 : plane(d, x, y);
    };
    const MemoryGridTerrain terrain(grid);
    const auto part = terrain.rootTile()->child(1, false);
    EXPECT_EQ(NBX::Bounds(Point(40, 0, 100 + 48 * 3), Point(64, 32, 100 + 64 * 3 + 32 * 5)),
              part->gridBoundingBox())
        << "one sample wider";
    EXPECT_EQ(NBX::Bounds(Point(40, 16, 100 + 48 * 3 + 16 * 5), Point(48, 32, 100 + 48 * 3 + 32 * 5)),
              part->child(2, false)->gridBoundingBox())
        << "within its own cells";
    EXPECT_FALSE(descend(part, {0, 0})->gridBoundingBox().isDefined()) << "nothing is defined there";
}

TEST(SubGridTerrainTile, BoxIsTheParentsUntilTheHeightsWereInMemory) {
    const MemoryGridTerrain terrain(gridWithPart());
    auto & root = static_cast<MemoryGridTile &>(*terrain.rootTile());
    const auto part = root.child(1, false);
    root.unloadOwnData();
    EXPECT_EQ(root.gridBoundingBox(), part->gridBoundingBox());
    root.requestTileData(1.0, true, nullptr);
    const NBX::Bounds box = part->gridBoundingBox();
    EXPECT_EQ(NBX::Bounds(Point(32, 0, 100 + 96), Point(64, 32, 100 + 192 + 160)), box);
    root.unloadOwnData();
    EXPECT_EQ(box, part->gridBoundingBox()) << "known from then on";
}

TEST(SubGridTerrainTile, DividesDownToSingleCells) {
    const MemoryGridTerrain terrain(gridWithPart());
    auto tile = terrain.rootTile()->child(1, false);
    for (unsigned size = 4; size > 1; size /= 2) {
        EXPECT_TRUE(tile->hasChildren(false)) << size;
        EXPECT_FALSE(tile->hasChildren(true)) << size;
        EXPECT_FALSE(tile->child(0, true)) << "no block lies there";
        tile = tile->child(3, false);
    }
    EXPECT_FALSE(tile->hasChildren(false));
    EXPECT_FALSE(tile->child(0, false));
    EXPECT_EQ(NBX::Bounds(Point(56, 24, 100 + 56 * 3 + 24 * 5), Point(64, 32, 100 + 64 * 3 + 32 * 5)),
              tile->gridBoundingBox());
}

TEST(SubGridTerrainTile, PartsOfTheFinestTilesHaveNegativeLevels) {
    const MemoryGridTerrain terrain(gridWithPart(2, 1));
    const auto finest = terrain.tile({0, 0, 0});
    EXPECT_EQ(-1, finest->child(0, false)->level());
    EXPECT_EQ(-2, descend(finest, {0, 3})->level());
    EXPECT_EQ(0, descend(finest, {0, 3})->detailLevel());
}

TEST(SubGridTerrainTile, ChildrenAreMadeOnceAndDropped) {
    const RecordedReports reports;
    const MemoryGridTerrain terrain(gridWithPart());
    const auto part = terrain.rootTile()->child(1, false);
    std::vector<NBX::WO<Tile>> children;
    for (unsigned i = 0; i < 4; ++i) {
        children.emplace_back(part->child(i, false));
        EXPECT_EQ(children[i].lock(), part->child(i, false));
        EXPECT_EQ(i, unsigned(part->childIndex(part->child(i, false))));
    }
    EXPECT_EQ(Tile::CI_LowXLowY, part->childIndex(terrain.rootTile()));
    EXPECT_EQ(Tile::CI_LowXLowY, part->childIndex(nullptr));
    part->unloadChild(2);
    EXPECT_FALSE(children[2]);
    EXPECT_TRUE(children[1]);
    part->unloadChildren();
    for (const auto & child : children)
        EXPECT_FALSE(child);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(SubGridTerrainTile, IndicesBeyondTheFourAreReported) {
    const MemoryGridTerrain terrain(gridWithPart());
    const auto part = terrain.rootTile()->child(1, false);
    RecordedReports reports;
    EXPECT_FALSE(part->child(4, false));
    part->unloadChild(4);
    EXPECT_EQ(2U, reports.size());
}

TEST(SubGridTerrainTile, TreeWithPartsFreesItself) {
    NBX::WO<Tile> root, part;
    {
        const MemoryGridTerrain terrain(gridWithPart());
        root = terrain.rootTile();
        part = descend(terrain.rootTile(), {1, 2});
        EXPECT_TRUE(part);
    }
    EXPECT_FALSE(root);
    EXPECT_FALSE(part);
}

TEST(SubGridTerrainTile, MissingMasterAndParentAreReported) {
    RecordedReports reports;
    SO<Tile> part;
    {
        const MemoryGridTerrain terrain(gridWithPart());
        part = terrain.rootTile()->child(1, false);
    }
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_FALSE(part->parent());
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_FALSE(part->tileData());
    EXPECT_FALSE(part->requestTileData(1.0, true, nullptr));
    EXPECT_FALSE(part->vertexBuffer());
    EXPECT_FALSE(part->indexBuffer());
    EXPECT_FALSE(part->hasUndefValues());
    EXPECT_EQ(0, part->detailLevel());
    EXPECT_EQ(MemoryGrid::Matrix(), part->grid2geoTf());
    EXPECT_EQ(0U, part->renderGeometry(nullptr, true));
    EXPECT_EQ(8U, reports.count(0, L"master", L"no master"));
    reports.clear();
    EXPECT_EQ(0U, part->gridLevel());
    EXPECT_EQ(0, part->level());
    EXPECT_EQ(2U, reports.count(0, L"parent", L"no parent"));
    EXPECT_EQ(2U, reports.size());
    reports.clear();
    EXPECT_FALSE(part->gridBoundingBox().isDefined());
}

class SubGridTerrainTileGL : public GLFixture {
protected:
    unsigned draw(const MemoryGridTerrain & terrain, const Tile & tile) {
        terrain.preRender(engine.get(), false);
        const unsigned triangles = tile.renderGeometry(engine.get(), false);
        terrain.postRender(engine.get(), false);
        return triangles;
    }
};

TEST_F(SubGridTerrainTileGL, DrawsItsPartOfTheTriangles) {
    const MemoryGridTerrain terrain(gridWithPart());
    const auto part = terrain.rootTile()->child(1, false);
    EXPECT_EQ(32U, draw(terrain, *part));
    EXPECT_EQ(8U, draw(terrain, *part->child(0, false)));
    EXPECT_EQ(2U, draw(terrain, *descend(part, {0, 0})));
}

TEST_F(SubGridTerrainTileGL, ClosesItsOwnStretchOfTheMastersBorderAndNothingElse) {
    // The master has 16 by 16 cells and level 1, its neighbours level 4: 8 cells of its edge for one of
    // theirs.
    MemoryGrid grid = gridWithPart(4, 5);
    grid.kind = [](const Key & key) { return key.depth == 0 ? 1U : 2U; };
    const MemoryGridTerrain terrain(grid);
    const auto coarse = terrain.tile({4, 0, 0});
    const auto master = terrain.tile({1, 32, 32});
    master->child(0, false); // a tile of kind 1 has parts beside blocks, or alone
    const unsigned whole = 16 + 2;

    for (const auto border : {Tile::NI_LowX, Tile::NI_LowY, Tile::NI_HighX, Tile::NI_HighY}) {
        SCOPED_TRACE(int(border));
        const unsigned bit = border == Tile::NI_LowX || border == Tile::NI_HighX ? 1 : 2;
        const bool high = border == Tile::NI_HighX || border == Tile::NI_HighY;
        std::vector<SO<Tile>> parts{master};
        for (unsigned size = 8; size >= 1; size /= 2) {
            std::vector<SO<Tile>> finer;
            for (const auto & tile : parts)
                for (unsigned i = 0; i < 4; ++i)
                    finer.push_back(tile->child(i, false));
            parts = finer;
            unsigned closing = 0, closers = 0;
            for (const auto & tile : parts) {
                tile->neighbor(border, coarse);
                const unsigned triangles = draw(terrain, *tile) - 2 * size * size;
                tile->neighbor(border, nullptr);
                closing += triangles;
                closers += triangles > 0;
                if (triangles == 0) continue;
                // Those that lie on the border: up to the master, always the child on that side.
                for (SO<Tile> at = tile; at != master; at = at->parent())
                    EXPECT_EQ(high, (at->parent()->childIndex(at) & bit) != 0);
            }
            EXPECT_EQ(whole, closing) << "together what the master would draw, size " << size;
            EXPECT_EQ(16 / size, closers);
        }
    }
}
