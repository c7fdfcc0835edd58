#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>

#include "support/glfixture.h"
#include "support/memorygridterrain.h"
#include "support/recordedreports.h"

using namespace ZMT::CORE::GRID;
using NBX::Matrix4x4Base;
using NBX::SO;
using Tile = GridTerrainTile;
using Key = MemoryGrid::Key;
using Point = NBX::Vector3Base<double>;

namespace {

MemoryGrid flatGrid(unsigned level, unsigned depth) {
    MemoryGrid grid;
    grid.level = level;
    grid.depth = depth;
    grid.sample = [](unsigned, unsigned, unsigned) -> std::uint16_t { return 100; };
    return grid;
}

/// From above: a cell of grid space takes `pixels` pixels along x, and half of that along y.
SO<NBX::ViewInfo> mapView(double pixels) {
    Matrix4x4Base<double> projection;
    projection(0, 0) = 2.0 * pixels / 1000.0;
    projection(1, 1) = pixels / 1000.0;
    projection(2, 2) = 1e-6;
    return new NBX::ViewInfo(Matrix4x4Base<double>(), projection, NBX::Area(0, 0, 1000, 1000));
}

} // namespace

TEST(GridTerrainTile, BoxesFollowTheMatrices) {
    MemoryGrid grid = flatGrid(2, 0);
    grid.grid2geo = MemoryGrid::toGeo(10.0, 20.0, 0.5, 1000.0, 2000.0, 3.0);
    const MemoryGridTerrain terrain(grid);
    EXPECT_EQ(NBX::Bounds(Point(1000, 52.5, 2000), Point(1040, 52.5, 2080)),
              terrain.rootTile()->geoBoundingBox());
    ZMT::CORE::GeoTransformation::setNBXOrigin({1000, 0, 2000});
    EXPECT_EQ(NBX::Bounds(Point(0, 52.5, 0), Point(40, 52.5, 80)), terrain.rootTile()->visBoundingBox());
    ZMT::CORE::GeoTransformation::setNBXOrigin({});
}

TEST(GridTerrainTile, IsRefinedWhereAStepOfItsSamplesIsTooLarge) {
    const MemoryGridTerrain terrain(flatGrid(2, 3));
    for (unsigned depth = 1; depth <= 3; ++depth) {
        const auto tile = terrain.tile({depth, 0, 0});
        const double step = 1U << depth;
        // The larger of both axes counts, and the threshold itself is allowed.
        const auto view = mapView(0.25);
        const double pixels = std::sqrt(view->screenDistance2(Point(0, 0, 100), Point(step, 0, 100)));
        EXPECT_NEAR(0.25 * step, pixels, 1e-9);
        EXPECT_TRUE(tile->shouldBeRefined(view.get(), 1000, 1000, pixels * 0.999));
        EXPECT_FALSE(tile->shouldBeRefined(view.get(), 1000, 1000, pixels * 1.001));
    }
    // 2^3 cells of half a pixel each are 4 pixels, without any rounding.
    const auto exact = mapView(0.5);
    EXPECT_EQ(16.0, exact->screenDistance2(Point(-4, 0, 0), Point(4, 0, 0)));
    const auto root = terrain.rootTile();
    EXPECT_FALSE(root->shouldBeRefined(exact.get(), 1000, 1000, 4.0));
}

TEST(GridTerrainTile, FinestTilesAndTheirPartsAreNotRefined) {
    const MemoryGridTerrain terrain(flatGrid(2, 1));
    const auto finest = terrain.tile({0, 0, 0});
    const auto view = mapView(1e6);
    EXPECT_TRUE(terrain.rootTile()->shouldBeRefined(view.get(), 1000, 1000, 1.0));
    EXPECT_FALSE(finest->shouldBeRefined(view.get(), 1000, 1000, 1.0));
    EXPECT_FALSE(finest->child(0, false)->shouldBeRefined(view.get(), 1000, 1000, 1.0));
    EXPECT_FALSE(terrain.rootTile()->shouldBeRefined(nullptr, 1000, 1000, 1.0));
}

TEST(GridTerrainTile, NearestPointOfItsBoxDecidesAboutRefinement) {
    // The low left tile is defined in its far quarter alone: for an eye at 0 that is farther than its square.
    MemoryGrid grid = flatGrid(3, 2);
    grid.sample = [](unsigned, unsigned x, unsigned y) -> std::uint16_t {
        return x >= 12 && y >= 12 ? 100 : 0;
    };
    const MemoryGridTerrain terrain(grid);
    const auto tile = terrain.tile({1, 0, 0});
    EXPECT_EQ(Point(10, 10, 100), tile->gridBoundingBox().getLLF());
    // A perspective view downwards from 100 above the corner.
    Matrix4x4Base<double> modelView = Matrix4x4Base<double>::translation({0, 0, -200});
    const double near = 1.0, far = 1000.0;
    const Matrix4x4Base<double> projection({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -(far + near) / (far - near),
                                            -2 * far * near / (far - near), 0, 0, -1, 0});
    const SO<NBX::ViewInfo> view(new NBX::ViewInfo(modelView, projection, NBX::Area(0, 0, 1000, 1000)));
    const double pixels = std::sqrt(
        view->screenDistance2(Point(9, 10, 100), Point(11, 10, 100))); // a step of two cells, at the box
    EXPECT_TRUE(tile->shouldBeRefined(view.get(), 1000, 1000, pixels * 0.9999));
    EXPECT_FALSE(tile->shouldBeRefined(view.get(), 1000, 1000, pixels * 1.0001));
}

TEST(GridTerrainTile, ChildrenComeByTheDistanceOfTheirBoxesInThePlane) {
    const MemoryGridTerrain terrain(flatGrid(2, 1));
    terrain.loadAll();
    const auto order = [&](const Point & eye) {
        std::string text;
        for (const auto & child : terrain.rootTile()->distanceSortedChildren(eye))
            text += std::to_string(int(terrain.rootTile()->childIndex(child)));
        return text;
    };
    EXPECT_EQ("0123", order({-1, -1, 1e9}));
    EXPECT_EQ("1032", order({9, -3, 0}));
    EXPECT_EQ("2031", order({-2, 9, 0}));
    EXPECT_EQ("3120", order({10, 7, 0}));
    EXPECT_EQ("0123", order({4, 4, 0})) << "alike ones in their own order";
    EXPECT_EQ("0123", order({std::nan(""), 4, 0}));
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(4U, order({infinity, -infinity, 0}).size());
}

TEST(GridTerrainTile, ChildWithoutBoxComesLastAndAMissingOneIsLeftOut) {
    MemoryGrid grid = flatGrid(2, 1);
    grid.kind = [](const Key & key) { return key == Key{0, 4, 0} ? 0U : 2U; };
    const MemoryGridTerrain terrain(grid);
    terrain.tile({0, 0, 4});
    terrain.tile({0, 4, 4});
    const auto sorted = terrain.rootTile()->distanceSortedChildren({0, 0, 0});
    ASSERT_EQ(3U, sorted.size());
    EXPECT_EQ(terrain.rootTile()->child(0, false), sorted[2]) << "never read";
}

TEST(GridTerrainTile, KeepsWhatAFrameSaysOfIt) {
    const MemoryGridTerrain terrain(flatGrid(2, 1));
    const auto tile = terrain.tile({0, 0, 0}), beside = terrain.tile({0, 4, 0});
    tile->neighbor(Tile::NI_HighX, beside);
    EXPECT_EQ(beside, tile->neighbor(Tile::NI_HighX));
    EXPECT_FALSE(tile->neighbor(Tile::NI_LowX));
    tile->neighbor(Tile::NI_HighX, nullptr);
    EXPECT_FALSE(tile->neighbor(Tile::NI_HighX));
    tile->frameState(Tile::FS_Occluded);
    EXPECT_EQ(Tile::FS_Occluded, tile->frameState());
    tile->visibleFragments(77);
    EXPECT_EQ(77U, tile->visibleFragments());
}

TEST(GridTerrainTile, NeighborIsWatchedAlone) {
    MemoryGridTerrain terrain(flatGrid(2, 1));
    const auto tile = terrain.tile({0, 0, 0});
    tile->neighbor(Tile::NI_HighX, terrain.tile({0, 4, 0}));
    terrain.rootTile()->unloadChild(1);
    EXPECT_FALSE(tile->neighbor(Tile::NI_HighX));
}

class GridTerrainTileGL : public GLFixture {
protected:
    /// The triangles of a tile beside `neighbor`, which lies at a border.
    unsigned trianglesBeside(const MemoryGridTerrain & terrain, Tile & tile, Tile::NeighborIndex border,
                             const SO<Tile> & neighbor) {
        tile.neighbor(border, neighbor);
        terrain.preRender(engine.get(), true);
        const unsigned triangles = tile.renderGeometry(engine.get(), true);
        terrain.postRender(engine.get(), true);
        tile.neighbor(border, nullptr);
        return triangles;
    }
};

TEST_F(GridTerrainTileGL, BordersAreClosedTowardsCoarserHeights) {
    const MemoryGridTerrain terrain(flatGrid(3, 5));
    const unsigned own = 2 * 64;
    for (const auto border : {Tile::NI_LowX, Tile::NI_LowY, Tile::NI_HighX, Tile::NI_HighY}) {
        const auto tile = terrain.tile({1, 0, 0});
        EXPECT_EQ(own, trianglesBeside(terrain, *tile, border, nullptr));
        EXPECT_EQ(own, trianglesBeside(terrain, *tile, border, terrain.tile({0, 0, 0}))) << "finer";
        EXPECT_EQ(own, trianglesBeside(terrain, *tile, border, terrain.tile({1, 8, 0})));
        EXPECT_EQ(own + 8 + 4, trianglesBeside(terrain, *tile, border, terrain.tile({2, 8, 0})));
        EXPECT_EQ(own + 8 + 2, trianglesBeside(terrain, *tile, border, terrain.tile({3, 8, 0})));
        EXPECT_EQ(own + 8 + 2, trianglesBeside(terrain, *tile, border, terrain.rootTile())) << "the last row";
    }
}

TEST_F(GridTerrainTileGL, LevelOfTheHeightsDecidesAndNotThatOfTheTile) {
    MemoryGrid grid = flatGrid(3, 3);
    grid.kind = [](const Key & key) { return key == Key{2, 8, 0} ? 1U : 2U; };
    const MemoryGridTerrain terrain(grid);
    const auto part = terrain.rootTile()->child(1, false); // of level 2, with heights of level 3
    ASSERT_EQ(2, part->level());
    ASSERT_EQ(3, part->detailLevel());
    const auto beside = terrain.tile({2, 0, 0});
    EXPECT_EQ(2U * 64 + 8 + 4, trianglesBeside(terrain, *beside, Tile::NI_HighX, part)) << "else a crack";
    const auto smaller = part->child(0, false)->child(0, false); // of level 0
    const auto fine = terrain.tile({1, 8, 8});
    EXPECT_EQ(2U * 64 + 8 + 2, trianglesBeside(terrain, *fine, Tile::NI_LowY, smaller));
    EXPECT_EQ(2U, trianglesBeside(terrain, *smaller, Tile::NI_HighY, fine)) << "else a fin";
}

TEST_F(GridTerrainTileGL, SmallestTilesHaveNothingToCloseBordersWith) {
    const MemoryGridTerrain terrain(flatGrid(1, 2));
    EXPECT_EQ(8U, trianglesBeside(terrain, *terrain.tile({0, 0, 0}), Tile::NI_LowX, terrain.rootTile()));
}

TEST_F(GridTerrainTileGL, TileWithoutDataDrawsNothing) {
    const MemoryGridTerrain terrain(flatGrid(2, 1));
    terrain.rootTile()->unloadData();
    EXPECT_EQ(0U, trianglesBeside(terrain, *terrain.rootTile(), Tile::NI_LowX, nullptr));
}

TEST_F(GridTerrainTileGL, DrawingLeavesTheStateAsFound) {
    const MemoryGridTerrain terrain(flatGrid(2, 1));
    for (const bool colors : {false, true}) {
        const auto before = stateOfGL();
        terrain.preRender(engine.get(), colors);
        EXPECT_EQ(32U, terrain.rootTile()->renderGeometry(engine.get(), colors));
        terrain.postRender(engine.get(), colors);
        EXPECT_EQ(before, stateOfGL());
    }
}
