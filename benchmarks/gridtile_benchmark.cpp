// What it takes to make the vertex buffer of a tile of 129 by 129 samples and to bring it to the card,
// against a copy of the same bytes and their upload.

#include <algorithm>
#include <cstring>
#include <random>

#include <benchmark/benchmark.h>

#include <GL/glew.h>

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/gl/mesh/bufferobjectgl.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>

#include "support/memorygridterrain.h"

namespace {

using namespace ZMT::CORE::GRID;
using NBX::SO;

struct Card {
    SO<NBX::OffscreenCanvasGL> canvas{new NBX::OffscreenCanvasGL(64, 64)};
    Card() { canvas->makeContextCurrent(); }
};

NBX::EngineGL * engine() {
    static const Card card;
    return card.canvas->engine().get();
}

SO<MemoryGridTileData> tile() {
    MemoryGrid grid;
    grid.level = 7;
    grid.sample = [](unsigned, unsigned x, unsigned y) {
        return static_cast<std::uint16_t>(1 + (x * 40503U ^ y * 30011U) % 60000);
    };
    return new MemoryGridTileData(grid, {0, 128, 256});
}

void copyAndUpload(benchmark::State & state) {
    const SO<GridTerrainTileVertexBuffer> made(new GridTerrainTileVertexBuffer(tile()));
    const auto source = made->waitingVertices();
    const std::size_t bytes = source.size() * sizeof source[0];
    for (auto _ : state) {
        std::vector<GridTerrainTileVertexBuffer::Vertex> copy(source.begin(), source.end());
        const SO<NBX::BufferObjectGL> buffer(new NBX::BufferObjectGL(engine(), bytes, copy.data(),
                                                                     NBX::BufferObjectGL::DT_VertexAttributes,
                                                                     NBX::BufferObjectGL::UP_Static));
        benchmark::DoNotOptimize(buffer.get());
    }
    NBX::GraphicsMemoryManager::instance()->clear();
}

void vertexBuffer(benchmark::State & state) {
    const SO<MemoryGridTileData> data = tile();
    data->isInOnePiece = state.range(0) != 0;
    for (auto _ : state) {
        const SO<GridTerrainTileVertexBuffer> buffer(new GridTerrainTileVertexBuffer(data));
        buffer->bind(engine(), true);
        NBX::GraphicsMemoryManager::instance()->remove(buffer.get());
    }
}

BENCHMARK(copyAndUpload)->Unit(benchmark::kMicrosecond);
BENCHMARK(vertexBuffer)->ArgName("samples in one piece")->Arg(1)->Arg(0)->Unit(benchmark::kMicrosecond);

} // namespace
