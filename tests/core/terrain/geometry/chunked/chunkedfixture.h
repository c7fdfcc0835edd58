#pragma once

#include <algorithm>
#include <random>
#include <vector>

#include "core/terrain/geometry/chunked/chunkedlodterrainimpl.h"
#include "core/terrain/geometry/chunked/chunkedlodterrainpatch.h"
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>

#include "support/testterrain.h"

/// Chunked terrains and their lattices for tests.
namespace TestChunked {

using ZMT::CORE::ChunkedLodTerrain;
using Lattice = ChunkedLodTerrain::Impl;
using Patch = ChunkedLodTerrain::Patch;
using Random = std::mt19937;

/// Hills with noise; their ratio differs from case to case, so that errors are spread over all levels.
inline NBX::SO<Lattice> randomLattice(unsigned sizeX, unsigned sizeY, Random & random) {
    NBX::SO<Lattice> lattice(new Lattice(sizeX, sizeY));
    const unsigned noise = 1U << random() % 16, slope = random() % 3000;
    for (unsigned y = 0; y < sizeY; ++y)
        for (unsigned x = 0; x < sizeX; ++x) {
            const unsigned hill = slope * ((x * x + x * y) / 16 % 37);
            lattice->heights()[lattice->heightIndex(x, y)] =
                static_cast<unsigned short>(std::min<unsigned>(hill % 32000 + random() % noise, 65534));
        }
    lattice->computeErrors();
    return lattice;
}

/// Half of them square.
inline NBX::SO<Lattice> randomLattice(Random & random) {
    const unsigned size = (1U << (1 + random() % 6)) + 1;
    if (random() % 2 == 0) return randomLattice(size, size, random);
    return randomLattice(1 + random() % size, 1 + random() % size, random);
}

/// Any quantile of the errors, or a little more than one.
inline unsigned short randomThreshold(const Lattice & lattice, Random & random) {
    const std::size_t vertices = std::size_t(lattice.paddedSize()) * lattice.paddedSize();
    return static_cast<unsigned short>(
        std::min<unsigned>(65535, lattice.errors()[random() % vertices] + random() % 2));
}

struct Window {
    unsigned x, y, size;
};

/// Any patch of the tree, the whole lattice included.
inline Window randomWindow(const Lattice & lattice, Random & random) {
    const unsigned depth = 1 + random() % lattice.level(), cells = 1U << depth;
    const unsigned windows = (lattice.paddedSize() - 1) / cells;
    return {unsigned(random() % windows) * cells, unsigned(random() % windows) * cells, cells + 1};
}

inline NBX::SO<ChunkedLodTerrain> terrain(const ZMT::RASTER::RasterGrid & layout,
                                          const TestTerrain::Height & height) {
    return new ChunkedLodTerrain(TestTerrain::grid(layout, height).get());
}

inline NBX::SO<Patch> patch(const NBX::SO<ZMT::CORE::GeometryPatch> & patch) {
    return dynamic_cast<Patch *>(patch.get());
}

} // namespace TestChunked
