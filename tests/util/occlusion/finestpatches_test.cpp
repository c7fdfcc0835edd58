#include "util/occlusion/finestpatches.h"

#include <algorithm>
#include <map>
#include <utility>

#include <gtest/gtest.h>

#include <nbx/container/sequence/array.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>

#include "core/terrain/geometry/chunked/chunkedfixture.h"
#include "support/testterrain.h"

namespace {

using NBX::SO;
using ZMT::UTIL::FinestPatches;
using namespace ZMT::CORE;
using Patches = std::vector<SO<GridPatch>>;

SO<GridData> newGrid(unsigned width, unsigned height) {
    return TestTerrain::grid({width, height, 0.0, 0.0, 1.0, 1.0}, TestTerrain::bumpy);
}

SO<GeometryPatch> newTree(const SO<GridData> & grid) {
    testing::internal::CaptureStderr();
    const SO<GeometryPatch> root = CreateGeometryTree::create(grid.get(), 1100);
    testing::internal::GetCapturedStderr();
    return root;
}

SO<GridPatch> newLeaf(const SO<GridData> & grid, const NBX::Area & cells) {
    return new GridPatch(grid, cells, NBX::Bounds({0, 1, 0}, {2, 3, 2}), 0.0, 0.0, nullptr);
}

SO<GridPatch> newParent(const SO<GridData> & grid, const std::vector<SO<GeometryPatch>> & children) {
    return new GridPatch(grid, NBX::Area(0, 0, 1, 1), NBX::Bounds({0, 1, 0}, {4, 3, 4}), 1.0, 0.0,
                         new NBX::NonPersistentArray<SO<GeometryPatch>>(children));
}

TEST(FinestPatches, EachCellOfATreeLiesInOneOfFewPatches) {
    const SO<GridData> grid = newGrid(300, 141);
    const SO<GeometryPatch> root = newTree(grid);
    const Patches patches = FinestPatches::of(root);
    EXPECT_LE(patches.size(), 16U);
    std::map<std::pair<int, int>, int> covered;
    for (const SO<GridPatch> & patch : patches) {
        const NBX::Area & cells = patch->domain();
        EXPECT_EQ(grid, patch->grid());
        EXPECT_EQ(0U, patch->children());
        EXPECT_LE(std::max(cells.getWidth(), cells.getHeight()), FinestPatches::s_longestSide);
        for (unsigned y = 0; y < cells.getHeight(); ++y)
            for (unsigned x = 0; x < cells.getWidth(); ++x)
                ++covered[{cells.getX() + int(x), cells.getY() + int(y)}];
        const NBX::Bounds box = patch->boundingBox();
        EXPECT_EQ(cells.getX(), box.getLLF().x);
        EXPECT_EQ(cells.getX() + int(cells.getWidth()), box.getURB().x);
        EXPECT_EQ(cells.getY(), box.getLLF().z);
        EXPECT_EQ(cells.getY() + int(cells.getHeight()), box.getURB().z);
    }
    EXPECT_EQ(299U * 140U, covered.size());
    for (const auto & [cell, times] : covered)
        EXPECT_EQ(1, times) << cell.first << " " << cell.second;
}

TEST(FinestPatches, LeavesThatAreNoRectangleTogetherStayApart) {
    const SO<GridData> grid = newGrid(9, 9), other = newGrid(9, 9);
    const SO<GridPatch> first = newLeaf(grid, {0, 0, 2, 2});
    EXPECT_EQ(1U, FinestPatches::of(newParent(grid, {first, newLeaf(grid, {2, 0, 2, 2})})).size());
    EXPECT_EQ(2U, FinestPatches::of(newParent(grid, {first, newLeaf(grid, {2, 0, 2, 3})})).size());
    EXPECT_EQ(2U, FinestPatches::of(newParent(grid, {first, newLeaf(grid, {4, 0, 2, 2})})).size());
    EXPECT_EQ(2U, FinestPatches::of(newParent(grid, {first, newLeaf(other, {2, 0, 2, 2})})).size());
}

TEST(FinestPatches, ASingleLeafIsOne) {
    const SO<GridData> grid = newGrid(9, 9);
    const Patches patches = FinestPatches::of(newLeaf(grid, {1, 2, 5, 4}));
    ASSERT_EQ(1U, patches.size());
    EXPECT_EQ(NBX::Area(1, 2, 5, 4), patches[0]->domain());
}

TEST(FinestPatches, OtherKindsOfLeavesAreNotPutTogether) {
    const SO<GridData> grid = newGrid(9, 9);
    const SO<ChunkedLodTerrain> chunked =
        TestChunked::terrain({9, 9, 0.0, 0.0, 1.0, 1.0}, TestTerrain::bumpy);
    ASSERT_TRUE(chunked->root());
    EXPECT_TRUE(FinestPatches::of(chunked->root()).empty());
    EXPECT_TRUE(FinestPatches::of(newParent(grid, {newLeaf(grid, {0, 0, 2, 2}), chunked->root()})).empty());
    EXPECT_TRUE(FinestPatches::of(nullptr).empty());
}

} // namespace
