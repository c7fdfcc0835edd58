#include <zmt/core/terrain/geometry/grid/model/gridterraintilevertexbuffer.h>

#include <cstring>
#include <random>

#include <gtest/gtest.h>

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/gl/mesh/bufferobjectgl.h>

#include "support/glfixture.h"
#include "support/memorygridterrain.h"

using namespace ZMT::CORE::GRID;
using NBX::GraphicsMemoryManager;
using NBX::SO;
using Point = NBX::Vector3Base<double>;
using Vertex = GridTerrainTileVertexBuffer::Vertex;

namespace {

MemoryGrid gridOf(unsigned level, MemoryGrid::Sample sample) {
    MemoryGrid grid;
    grid.level = level;
    grid.depth = 2;
    grid.sample = std::move(sample);
    return grid;
}

std::uint16_t noise(unsigned depth, unsigned x, unsigned y) {
    std::mt19937 random(depth * 7919 + x * 131 + y);
    return static_cast<std::uint16_t>(random() % 5 == 0 ? 0 : 1 + random() % 65535);
}

/// Gives the process's budget back at the end.
class Budget {
public:
    explicit Budget(unsigned bytes) : before_(GraphicsMemoryManager::instance()->getBudget()) {
        GraphicsMemoryManager::instance()->setBudget(bytes);
    }
    ~Budget() { GraphicsMemoryManager::instance()->setBudget(before_); }

private:
    unsigned before_;
};

} // namespace

TEST(GridTerrainTileVertexBuffer, VerticesAreTheGridAndThenTheBorders) {
    for (unsigned level = 1; level <= 7; ++level)
        for (const bool inOnePiece : {true, false}) {
            SCOPED_TRACE(level);
            const SO<MemoryGridTileData> data(
                new MemoryGridTileData(gridOf(level, noise), {1, 1U << level, 3U << level}));
            data->isInOnePiece = inOnePiece;
            const SO<GridTerrainTileVertexBuffer> buffer(new GridTerrainTileVertexBuffer(data));
            const std::span<const Vertex> vertices = buffer->waitingVertices();
            const unsigned n = 1U << level, samples = n + 1;
            ASSERT_EQ(samples * samples + 4 * ((2U << level) + level - 2), vertices.size());
            EXPECT_EQ(vertices.size() * 16, buffer->bytes());
            EXPECT_EQ(data, buffer->tileData());

            const auto expect = [](const Vertex & v, unsigned x, unsigned y, unsigned z, unsigned grey) {
                EXPECT_EQ(float(x), v.x);
                EXPECT_EQ(float(y), v.y);
                EXPECT_EQ(float(z), v.z);
                for (unsigned i = 0; i < 3; ++i)
                    EXPECT_EQ(grey, v.color[i]);
                EXPECT_EQ(z == 0 ? 0 : 255, v.color[3]);
            };
            const Vertex * next = vertices.data();
            for (unsigned y = 0; y < samples; ++y)
                for (unsigned x = 0; x < samples; ++x)
                    expect(*next++, (n + x) * 2, (3 * n + y) * 2, data->value(x, y), 192);
            for (unsigned b = 0; b < 4; ++b)
                for (unsigned k = 0; k < level; ++k)
                    for (unsigned i = 0; i <= n >> k; ++i) {
                        const unsigned along = i << k;
                        const unsigned x = b == 0   ? 0
                                           : b == 2 ? n
                                                    : along,
                                       y = b == 1   ? 0
                                           : b == 3 ? n
                                                    : along;
                        expect(*next++, (n + x) * 2, (3 * n + y) * 2, data->borderValue(b, k, i), 0);
                    }
        }
}

TEST(GridTerrainTileVertexBuffer, BoxAndExtremesAreThoseOfDefinedGridVertices) {
    // Defined are (2, 1), (5, 3), and (4, 6), of a tile with samples 2 apart.
    const auto sample = [](unsigned, unsigned x, unsigned y) -> std::uint16_t {
        if (x == 4 && y == 2) return 500;
        if (x == 10 && y == 6) return 20;
        return x == 8 && y == 12 ? 60000 : 0;
    };
    const SO<GridTerrainTileVertexBuffer> buffer(new GridTerrainTileVertexBuffer(
        SO<GridTerrainTileData>(new MemoryGridTileData(gridOf(3, sample), {1, 0, 0}))));
    EXPECT_EQ(NBX::Bounds(Point(4, 2, 20), Point(10, 12, 60000)), buffer->bbox());
    EXPECT_EQ(Point(10, 6, 20), buffer->lowestPoint());
    EXPECT_EQ(Point(8, 12, 60000), buffer->highestPoint());
    EXPECT_TRUE(buffer->hasUndefValues());
}

/// The tile's own edge is in its box; coarser tiles may see other heights there.
TEST(GridTerrainTileVertexBuffer, BorderBoxesHoldTheHeightsOfCoarserTiles) {
    const auto sample = [](unsigned depth, unsigned x, unsigned y) {
        return std::uint16_t(depth == 0 ? 100 : x == 0 && y == 4 ? 0 : 10 + depth * 500 + x * 10 + y);
    };
    const SO<GridTerrainTileVertexBuffer> buffer(new GridTerrainTileVertexBuffer(
        SO<GridTerrainTileData>(new MemoryGridTileData(gridOf(3, sample), {0, 0, 0}))));
    const auto expect = [&](unsigned border, const Point & low, const Point & high) {
        EXPECT_EQ(NBX::Bounds(low, high), buffer->borderBox(border)) << border;
    };
    expect(0, {0, 0, 510}, {0, 8, 1018});
    expect(1, {0, 0, 510}, {8, 0, 1090});
    expect(2, {8, 0, 590}, {8, 8, 1098});
    expect(3, {0, 8, 518}, {8, 8, 1098});
    const SO<GridTerrainTileVertexBuffer> rootless(new GridTerrainTileVertexBuffer(
        SO<GridTerrainTileData>(new MemoryGridTileData(gridOf(3, sample), {2, 0, 0}))));
    EXPECT_FALSE(rootless->borderBox(0).isDefined()) << "nothing is coarser";
    const SO<GridTerrainTileVertexBuffer> single(new GridTerrainTileVertexBuffer(
        SO<GridTerrainTileData>(new MemoryGridTileData(gridOf(1, sample), {0, 0, 0}))));
    EXPECT_FALSE(single->borderBox(0).isDefined()) << "there is but the row of its own edge";
}

TEST(GridTerrainTileVertexBuffer, FirstOfAlikeExtremesCounts) {
    const auto sample = [](unsigned, unsigned x, unsigned y) {
        return static_cast<std::uint16_t>(5 + (x + y) % 2);
    };
    const SO<GridTerrainTileVertexBuffer> buffer(new GridTerrainTileVertexBuffer(
        SO<GridTerrainTileData>(new MemoryGridTileData(gridOf(2, sample), {0, 0, 0}))));
    EXPECT_EQ(Point(0, 0, 5), buffer->lowestPoint());
    EXPECT_EQ(Point(1, 0, 6), buffer->highestPoint());
}

TEST(GridTerrainTileVertexBuffer, OneUndefinedGridVertexIsNoticedAndBordersAreNot) {
    for (const unsigned hole : {0U, 4U, 8U, 24U, 99U}) {
        const SO<GridTerrainTileVertexBuffer> buffer(new GridTerrainTileVertexBuffer(SO<GridTerrainTileData>(
            new MemoryGridTileData(gridOf(2,
                                          [&](unsigned depth, unsigned x, unsigned y) -> std::uint16_t {
                                              return depth == 0 && x + y * 5 == hole ? 0
                                                     : depth > 0                     ? 0
                                                                                     : 65535;
                                          }),
                                   {0, 0, 0}))));
        EXPECT_EQ(hole < 25, buffer->hasUndefValues()) << hole;
        EXPECT_EQ(65535.0, buffer->lowestPoint().z);
    }
}

TEST(GridTerrainTileVertexBuffer, UndefinedTileHasNoBox) {
    const SO<GridTerrainTileVertexBuffer> buffer(
        new GridTerrainTileVertexBuffer(SO<GridTerrainTileData>(new MemoryGridTileData(
            gridOf(2, [](unsigned, unsigned, unsigned) -> std::uint16_t { return 0; }), {0, 0, 0}))));
    EXPECT_FALSE(buffer->bbox().isDefined());
    EXPECT_TRUE(buffer->hasUndefValues());
}

TEST(GridTerrainTileVertexBuffer, BoxOfABorderIsThatOfTheCoarserHeightsAlongIt) {
    // Heights 10 times the depth plus the row; at depth 2 none along the low y border.
    MemoryGrid grid = gridOf(3, [](unsigned depth, unsigned, unsigned y) {
        return static_cast<std::uint16_t>(depth == 2 && y == 0 ? 0 : 100 + 10 * depth + y);
    });
    const SO<GridTerrainTileVertexBuffer> buffer(
        new GridTerrainTileVertexBuffer(SO<GridTerrainTileData>(new MemoryGridTileData(grid, {0, 0, 0}))));
    EXPECT_EQ(NBX::Bounds(Point(0, 0, 110), Point(0, 8, 128)), buffer->borderBox(0));
    EXPECT_EQ(NBX::Bounds(Point(0, 0, 110), Point(8, 0, 110)), buffer->borderBox(1));
    EXPECT_EQ(NBX::Bounds(Point(8, 0, 110), Point(8, 8, 128)), buffer->borderBox(2));
    EXPECT_EQ(NBX::Bounds(Point(0, 8, 118), Point(8, 8, 128)), buffer->borderBox(3));
    const SO<GridTerrainTileVertexBuffer> root(
        new GridTerrainTileVertexBuffer(SO<GridTerrainTileData>(new MemoryGridTileData(grid, {2, 0, 0}))));
    EXPECT_FALSE(root->borderBox(3).isDefined()) << "nothing is coarser";
}

TEST(GridTerrainTileVertexBuffer, ManagerHoldsItWithItsBytes) {
    GraphicsMemoryManager & manager = *GraphicsMemoryManager::instance();
    const auto before = manager.total();
    const SO<GridTerrainTileData> data(new MemoryGridTileData(gridOf(3, noise), {0, 0, 0}));
    NBX::WO<GridTerrainTileVertexBuffer> watched(new GridTerrainTileVertexBuffer(data));
    ASSERT_TRUE(watched) << "the manager owns it";
    EXPECT_EQ(before + watched.lock()->bytes(), manager.total());
    EXPECT_TRUE(manager.remove(watched.lock().get()));
    EXPECT_FALSE(watched);
    EXPECT_EQ(before, manager.total());
}

TEST(GridTerrainTileVertexBuffer, ManagerWithoutRoomDoesNotTakeItAway) {
    GraphicsMemoryManager & manager = *GraphicsMemoryManager::instance();
    const SO<GridTerrainTileData> data(new MemoryGridTileData(gridOf(3, noise), {0, 0, 0}));
    const Budget budget(100);
    const SO<GridTerrainTileVertexBuffer> outside(new GridTerrainTileVertexBuffer(data));
    EXPECT_EQ(1, outside->references());
    manager.beginFrame();
    NBX::WO<GridTerrainTileVertexBuffer> inside(new GridTerrainTileVertexBuffer(data));
    EXPECT_TRUE(inside) << "nothing used in a picture goes";
    manager.endFrame();
    EXPECT_FALSE(inside);
}

TEST(GridTerrainTileVertexBuffer, MissingDataAreReported) {
    RecordedReports reports;
    const SO<GridTerrainTileVertexBuffer> buffer(new GridTerrainTileVertexBuffer(nullptr));
    EXPECT_EQ(1U, reports.count(0, L"data", L"no tile data"));
    EXPECT_EQ(0U, buffer->bytes());
}

class GridTerrainTileVertexBufferGL : public GLFixture {};

TEST_F(GridTerrainTileVertexBufferGL, FirstUseBringsTheVerticesToTheCard) {
    const SO<GridTerrainTileData> data(new MemoryGridTileData(gridOf(3, noise), {0, 8, 0}));
    const SO<GridTerrainTileVertexBuffer> buffer(new GridTerrainTileVertexBuffer(data));
    const auto waiting = buffer->waitingVertices();
    const std::vector<Vertex> vertices(waiting.begin(), waiting.end());
    EXPECT_FALSE(buffer->vertexArray());
    buffer->bind(engine.get(), true);
    const SO<NBX::BufferObjectGL> array = buffer->vertexArray();
    ASSERT_TRUE(array);
    EXPECT_TRUE(buffer->waitingVertices().empty());
    ASSERT_EQ(buffer->bytes(), array->bytes());
    const void * content = array->mapPointer(NBX::BufferObjectGL::MA_Read);
    ASSERT_TRUE(content);
    EXPECT_EQ(0, std::memcmp(content, vertices.data(), buffer->bytes()));
    array->unmapPointer();
    buffer->bind(engine.get(), false);
    EXPECT_EQ(array, buffer->vertexArray()) << "once";
    GraphicsMemoryManager::instance()->remove(buffer.get());
}

TEST_F(GridTerrainTileVertexBufferGL, BindingPointsToTheVerticesAndNotesTheUse) {
    GraphicsMemoryManager & manager = *GraphicsMemoryManager::instance();
    const SO<GridTerrainTileData> data(new MemoryGridTileData(gridOf(1, noise), {0, 0, 0}));
    NBX::WO<GridTerrainTileVertexBuffer> older(new GridTerrainTileVertexBuffer(data));
    NBX::WO<GridTerrainTileVertexBuffer> newer(new GridTerrainTileVertexBuffer(data));
    for (const bool colors : {true, false}) {
        const auto before = stateOfGL();
        GridTerrainTileVertexBuffer::enable(colors);
        EXPECT_TRUE(glIsEnabled(GL_VERTEX_ARRAY));
        EXPECT_EQ(colors, glIsEnabled(GL_COLOR_ARRAY) == GL_TRUE);
        const SO<GridTerrainTileVertexBuffer> buffer = older.lock();
        buffer->bind(engine.get(), colors);
        const auto get = [](GLenum name) {
            GLint value = -1;
            glGetIntegerv(name, &value);
            return value;
        };
        const auto pointer = [](GLenum name) {
            void * value = nullptr;
            glGetPointerv(name, &value);
            return reinterpret_cast<std::uintptr_t>(value);
        };
        EXPECT_EQ(GLint(buffer->vertexArray()->name()), get(GL_VERTEX_ARRAY_BUFFER_BINDING));
        EXPECT_EQ(3, get(GL_VERTEX_ARRAY_SIZE));
        EXPECT_EQ(16, get(GL_VERTEX_ARRAY_STRIDE));
        EXPECT_EQ(0U, pointer(GL_VERTEX_ARRAY_POINTER));
        if (colors) {
            EXPECT_EQ(GLint(buffer->vertexArray()->name()), get(GL_COLOR_ARRAY_BUFFER_BINDING));
            EXPECT_EQ(4, get(GL_COLOR_ARRAY_SIZE));
            EXPECT_EQ(GL_UNSIGNED_BYTE, get(GL_COLOR_ARRAY_TYPE));
            EXPECT_EQ(16, get(GL_COLOR_ARRAY_STRIDE));
            EXPECT_EQ(12U, pointer(GL_COLOR_ARRAY_POINTER));
        }
        EXPECT_EQ(0, get(GL_ARRAY_BUFFER_BINDING));
        GridTerrainTileVertexBuffer::disable(colors);
        EXPECT_EQ(before, stateOfGL());
    }
    // Room for one of the two: the one that was not used goes.
    const unsigned bytes = newer.lock()->bytes();
    const Budget budget(static_cast<unsigned>(manager.total()) - 1);
    EXPECT_TRUE(older);
    EXPECT_FALSE(newer) << bytes;
    manager.remove(older.lock().get());
}
