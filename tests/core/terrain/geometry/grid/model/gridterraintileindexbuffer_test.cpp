#include <zmt/core/terrain/geometry/grid/model/gridterraintileindexbuffer.h>

#include <array>
#include <cstdlib>
#include <set>

#include <gtest/gtest.h>

#include "support/glfixture.h"
#include "support/memorygridterrain.h"
#include "support/recordedreports.h"

using namespace ZMT::CORE::GRID;
using NBX::SO;

namespace {

using Triangle = std::array<unsigned, 3>;

std::vector<Triangle> trianglesOf(const GridTerrainTileIndexBuffer & buffer, const IndexRange & range) {
    EXPECT_EQ(IndexRange::triangles, range.mode);
    EXPECT_LE(range.start + range.count, buffer.indices().size());
    std::vector<Triangle> triangles;
    for (std::uint32_t i = range.start; i + 2 < range.start + range.count; i += 3)
        triangles.push_back({buffer.indices()[i], buffer.indices()[i + 1], buffer.indices()[i + 2]});
    return triangles;
}

/// The numbers of vertices, as the vertex buffer has them.
struct Numbers {
    unsigned level;

    unsigned cells() const { return 1U << level; }
    unsigned grid(unsigned x, unsigned y) const { return x + y * (cells() + 1); }
    unsigned edge(unsigned border, unsigned i) const {
        return border == 0   ? grid(0, i)
               : border == 1 ? grid(i, 0)
               : border == 2 ? grid(cells(), i)
                             : grid(i, cells());
    }
    unsigned row(unsigned border, unsigned k) const {
        unsigned at = (cells() + 1) * (cells() + 1) + border * ((2U << level) + level - 2);
        for (unsigned j = 0; j < k; ++j)
            at += (1U << (level - j)) + 1;
        return at;
    }
};

using Edges = std::set<std::set<unsigned>>;

/// Puts in an edge, or takes it out where it is in.
void toggle(Edges & edges, unsigned a, unsigned b) {
    if (!edges.insert({a, b}).second) edges.erase({a, b});
}

/// The edges that an odd number of triangles has.
Edges openEdges(const std::vector<Triangle> & triangles) {
    Edges edges;
    for (const Triangle & t : triangles)
        for (unsigned i = 0; i < 3; ++i)
            toggle(edges, t[i], t[(i + 1) % 3]);
    return edges;
}

} // namespace

TEST(GridTerrainTileIndexBuffer, TileIsItsCellsInZOrder) {
    const SO<GridTerrainTileIndexBuffer> buffer(new GridTerrainTileIndexBuffer(2));
    EXPECT_EQ(0U, buffer->tileIndices().start);
    EXPECT_EQ(6U * 16, buffer->tileIndices().count);
    const unsigned order[16][2] = {{0, 0}, {1, 0}, {0, 1}, {1, 1}, {2, 0}, {3, 0}, {2, 1}, {3, 1},
                                   {0, 2}, {1, 2}, {0, 3}, {1, 3}, {2, 2}, {3, 2}, {2, 3}, {3, 3}};
    const auto triangles = trianglesOf(*buffer, buffer->tileIndices());
    for (unsigned cell = 0; cell < 16; ++cell) {
        const unsigned i = order[cell][0] + order[cell][1] * 5;
        EXPECT_EQ((Triangle{i, i + 1, i + 5}), triangles[cell * 2]) << cell;
        EXPECT_EQ((Triangle{i + 5, i + 1, i + 6}), triangles[cell * 2 + 1]) << cell;
    }
}

TEST(GridTerrainTileIndexBuffer, SingleCellsAreTwoTrianglesWithoutBorders) {
    const SO<GridTerrainTileIndexBuffer> buffer(new GridTerrainTileIndexBuffer(0));
    EXPECT_EQ((std::vector<std::uint16_t>{0, 1, 2, 2, 1, 3}), buffer->indices());
    EXPECT_EQ(6U, buffer->tileIndices().count);
    EXPECT_TRUE(buffer->borderLODIndices(0).empty());
}

TEST(GridTerrainTileIndexBuffer, EachLevelHasItsEntriesAndSixteenBitsSuffice) {
    for (unsigned level = 1; level <= GridTerrainTileIndexBuffer::maxLevel; ++level) {
        const SO<GridTerrainTileIndexBuffer> buffer(new GridTerrainTileIndexBuffer(level));
        const Numbers numbers{level};
        const unsigned vertices = numbers.row(4, 0);
        EXPECT_LE(vertices, 65536U);
        for (unsigned border = 0; border < 4; ++border) {
            EXPECT_EQ(level, buffer->borderLODIndices(border).size());
            const IndexRange & strip = buffer->borderLODIndices(border)[0];
            EXPECT_EQ(IndexRange::triangleStrip, strip.mode);
            ASSERT_EQ(2 * (numbers.cells() + 1), strip.count);
            for (unsigned i = 0; i <= numbers.cells(); ++i) {
                EXPECT_EQ(numbers.edge(border, i), buffer->indices()[strip.start + 2 * i]);
                EXPECT_EQ(numbers.row(border, 0) + i, buffer->indices()[strip.start + 2 * i + 1]);
            }
        }
        for (const std::uint16_t index : buffer->indices())
            ASSERT_LT(index, vertices);
    }
}

TEST(GridTerrainTileIndexBuffer, SmallestEntryIsTheOneOfTheDefinition) {
    // n = 4, k = 1: two cells of the edge for each vertex of the row; the switch lies at the even cells.
    const SO<GridTerrainTileIndexBuffer> buffer(new GridTerrainTileIndexBuffer(2));
    const auto triangles = trianglesOf(*buffer, buffer->borderLODIndices(0)[1]);
    const unsigned c = 25 + 5; // behind the grid and row 0
    const std::vector<Triangle> expected{{0, 5, c},       {c, c + 1, 5},      {5, 10, c + 1},
                                         {10, 15, c + 1}, {c + 1, c + 2, 15}, {15, 20, c + 2}};
    EXPECT_EQ(expected, triangles);
    // Along x the first two vertices are swapped.
    const unsigned d = 25 + (5 + 3) + 5;
    const std::vector<Triangle> alongX{{1, 0, d},     {d + 1, d, 1},     {2, 1, d + 1},
                                       {3, 2, d + 1}, {d + 2, d + 1, 3}, {4, 3, d + 2}};
    EXPECT_EQ(alongX, trianglesOf(*buffer, buffer->borderLODIndices(1)[1]));
    EXPECT_EQ(6U * 3, buffer->borderLODIndices(2)[1].count);
    EXPECT_EQ(4U, buffer->indices()[buffer->borderLODIndices(2)[1].start]) << "along y again";
    EXPECT_EQ(21U, buffer->indices()[buffer->borderLODIndices(3)[1].start]) << "along x again";
}

// For every tile level, border and difference of levels: the tile and the entry are one surface, and along
// that border it ends on the line of the coarser neighbour.
TEST(GridTerrainTileIndexBuffer, ClosedBorderEndsOnTheLineOfTheNeighbour) {
    for (unsigned level = 1; level <= GridTerrainTileIndexBuffer::maxLevel; ++level) {
        const SO<GridTerrainTileIndexBuffer> buffer(new GridTerrainTileIndexBuffer(level));
        const Numbers numbers{level};
        const auto tile = trianglesOf(*buffer, buffer->tileIndices());
        const auto tileEdges = openEdges(tile);
        EXPECT_EQ(4 * numbers.cells(), tileEdges.size());
        for (unsigned border = 0; border < 4; ++border)
            for (unsigned k = 1; k < level; ++k) {
                SCOPED_TRACE(testing::Message() << "level " << level << ", border " << border << ", k " << k);
                std::vector<Triangle> all = tile;
                const auto closing = trianglesOf(*buffer, buffer->borderLODIndices(border)[k]);
                EXPECT_EQ(numbers.cells() + (numbers.cells() >> k), closing.size());
                all.insert(all.end(), closing.begin(), closing.end());

                // The tile's edge along the border gives way to the row and to two sides, of length 0 in the
                // plane.
                Edges expected = tileEdges;
                for (unsigned i = 0; i < numbers.cells(); ++i)
                    toggle(expected, numbers.edge(border, i), numbers.edge(border, i + 1));
                const unsigned row = numbers.row(border, k), last = numbers.cells() >> k;
                for (unsigned j = 0; j < last; ++j)
                    toggle(expected, row + j, row + j + 1);
                toggle(expected, numbers.edge(border, 0), row);
                toggle(expected, row + last, numbers.edge(border, numbers.cells()));
                EXPECT_EQ(expected, openEdges(all));
            }
    }
}

// Each cell of the edge is joined to the nearest vertex of the row, so that no triangle crosses another one.
TEST(GridTerrainTileIndexBuffer, TrianglesOfABorderDoNotOverlap) {
    const Numbers numbers{5};
    const SO<GridTerrainTileIndexBuffer> buffer(new GridTerrainTileIndexBuffer(5));
    for (unsigned k = 1; k < 5; ++k) {
        // Seen from the side: the edge at height 1, the row at height 0. Twice the area is that of
        // the strip, so that nothing is covered twice.
        int area = 0;
        for (const Triangle & t : trianglesOf(*buffer, buffer->borderLODIndices(0)[k])) {
            std::array<int, 3> u, v;
            for (unsigned i = 0; i < 3; ++i) {
                const bool isEdge = t[i] < 33 * 33;
                u[i] = isEdge ? int(t[i] / 33) : int((t[i] - numbers.row(0, k)) << k);
                v[i] = isEdge ? 1 : 0;
            }
            const int twice = (u[1] - u[0]) * (v[2] - v[0]) - (u[2] - u[0]) * (v[1] - v[0]);
            EXPECT_NE(twice, 0);
            area += std::abs(twice);
        }
        EXPECT_EQ(2 * 32, area);
    }
}

TEST(GridTerrainTileIndexBuffer, StretchesOfABorderAreTheEntryTogether) {
    for (unsigned level = 2; level <= 5; ++level) {
        const SO<GridTerrainTileIndexBuffer> buffer(new GridTerrainTileIndexBuffer(level));
        const unsigned cells = 1U << level;
        for (unsigned border = 0; border < 4; ++border)
            for (unsigned k = 1; k < level; ++k)
                for (unsigned size = 1; size <= cells; size *= 2) {
                    std::uint32_t next = buffer->borderLODIndices(border)[k].start;
                    for (unsigned first = 0; first < cells; first += size) {
                        const IndexRange stretch = buffer->borderStretch(border, k, first, size);
                        EXPECT_EQ(next, stretch.start);
                        next += stretch.count;
                        // Its own cells of the edge, each once, and no others.
                        std::set<unsigned> edges;
                        const Numbers numbers{level};
                        for (const Triangle & t : trianglesOf(*buffer, stretch)) {
                            const std::set<unsigned> corners(t.begin(), t.end());
                            for (unsigned i = 0; i < cells; ++i) {
                                const bool hasEdge = corners.count(numbers.edge(border, i)) > 0 &&
                                                     corners.count(numbers.edge(border, i + 1)) > 0;
                                EXPECT_TRUE(!hasEdge || edges.insert(i).second);
                            }
                        }
                        EXPECT_EQ(size, edges.size());
                        EXPECT_EQ(first, *edges.begin());
                        EXPECT_EQ(first + size - 1, *edges.rbegin());
                    }
                    const IndexRange & whole = buffer->borderLODIndices(border)[k];
                    EXPECT_EQ(whole.start + whole.count, next);
                }
    }
}

// Together with the entry's side, from the edge down to the row, they end on the steps from level to level,
// so that the sides of any levels that meet above a point are the same line.
TEST(GridTerrainTileIndexBuffer, CornersDivideTheSideOfAnEntryAtEachLevel) {
    for (unsigned level = 1; level <= GridTerrainTileIndexBuffer::maxLevel; ++level) {
        const SO<GridTerrainTileIndexBuffer> buffer(new GridTerrainTileIndexBuffer(level));
        const Numbers numbers{level};
        for (unsigned border = 0; border < 4; ++border)
            for (unsigned k = 1; k < level; ++k)
                for (unsigned cell = 0; cell <= numbers.cells(); ++cell) {
                    SCOPED_TRACE(testing::Message() << level << ", " << border << ", " << k << ", " << cell);
                    const IndexRange range = buffer->borderCorner(border, k, cell);
                    ASSERT_EQ(cell % (1U << k) == 0 ? (k - 1) * 3 : 0, range.count);
                    if (range.count == 0) continue;
                    const auto corner = trianglesOf(*buffer, range);
                    const auto vertex = [&](unsigned row) {
                        return row == 0 ? numbers.edge(border, cell)
                                        : numbers.row(border, row) + (cell >> row);
                    };
                    Edges open = openEdges(corner), steps;
                    toggle(open, vertex(0), vertex(k));
                    for (unsigned row = 0; row < k; ++row)
                        steps.insert({vertex(row), vertex(row + 1)});
                    EXPECT_EQ(steps, open);
                }
    }
}

TEST(GridTerrainTileIndexBuffer, CornerBeyondTheBorderIsReported) {
    RecordedReports reports;
    const SO<GridTerrainTileIndexBuffer> buffer(new GridTerrainTileIndexBuffer(3));
    for (const std::array<unsigned, 3> & wrong :
         std::vector<std::array<unsigned, 3>>{{4, 2, 0}, {0, 3, 0}, {0, 2, 9}, {0, 2, ~0U}})
        EXPECT_EQ(0U, buffer->borderCorner(wrong[0], wrong[1], wrong[2]).count);
    EXPECT_EQ(4U, reports.size());
}

TEST(GridTerrainTileIndexBuffer, StretchBeyondTheBorderIsReported) {
    RecordedReports reports;
    const SO<GridTerrainTileIndexBuffer> buffer(new GridTerrainTileIndexBuffer(3));
    for (const std::array<unsigned, 4> & wrong : std::vector<std::array<unsigned, 4>>{
             {4, 1, 0, 8}, {0, 0, 0, 8}, {0, 3, 0, 8}, {0, 1, 9, 0}, {0, 1, 4, 5}, {0, 1, 0, ~0U}})
        EXPECT_EQ(0U, buffer->borderStretch(wrong[0], wrong[1], wrong[2], wrong[3]).count);
    EXPECT_EQ(6U, reports.size());
}

TEST(GridTerrainTileIndexBuffer, LevelsBeyondSixteenBitsAreReported) {
    for (const unsigned level : {8U, 31U, ~0U}) {
        RecordedReports reports;
        const SO<GridTerrainTileIndexBuffer> buffer(new GridTerrainTileIndexBuffer(level));
        EXPECT_EQ(1U, reports.size()) << level;
        EXPECT_EQ(0, reports.last().level);
        EXPECT_TRUE(buffer->indices().empty());
        EXPECT_EQ(0U, buffer->tileIndices().count);
        EXPECT_TRUE(buffer->borderLODIndices(3).empty());
    }
}

class GridTerrainTileIndexBufferGL : public GLFixture {};

TEST_F(GridTerrainTileIndexBufferGL, DrawingCountsTriangles) {
    MemoryGrid grid;
    grid.level = 2;
    const MemoryGridTerrain terrain(grid);
    const SO<GridTerrainTileIndexBuffer> buffer = terrain.rootTile()->indexBuffer();
    const auto before = stateOfGL();
    buffer->bind(engine.get());
    GridTerrainTileVertexBuffer::enable(false);
    terrain.rootTile()->vertexBuffer()->bind(engine.get(), false);
    EXPECT_EQ(32U, buffer->drawElements(buffer->tileIndices()));
    EXPECT_EQ(6U, buffer->drawElements(buffer->borderLODIndices(2)[1]));
    EXPECT_EQ(8U, buffer->drawElements(buffer->borderLODIndices(2)[0])) << "a strip of 10";
    EXPECT_EQ(4U, buffer->drawElements({IndexRange::triangleFan, 0, 6}));
    EXPECT_EQ(0U, buffer->drawElements({IndexRange::triangleStrip, 0, 2}));
    EXPECT_EQ(0U, buffer->drawElements({}));
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_EQ(0U, buffer->drawElements({1, 0, 6}));
    EXPECT_EQ(1U, reports.count(0, L"false", L"not implemented yet"));
    EXPECT_EQ(0U, buffer->drawElements({IndexRange::triangles, std::uint32_t(buffer->indices().size()), 3}));
    EXPECT_EQ(2U, reports.size());
    reports.clear();
    GridTerrainTileVertexBuffer::disable(false);
    buffer->unbind(engine.get());
    EXPECT_EQ(before, stateOfGL());
}
