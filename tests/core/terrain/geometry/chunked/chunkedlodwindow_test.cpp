#include <zmt/core/terrain/geometry/chunked/chunkedlodwindow.h>

#include "core/terrain/geometry/chunked/chunkedlodmesh.h"
#include "core/terrain/geometry/chunked/chunkedlodpatchmesh.h"

#include "chunkedfixture.h"

using TestChunked::Lattice;
using ZMT::CORE::ChunkedLodMesh;
using ZMT::CORE::ChunkedLodPatchMesh;
using ZMT::CORE::ChunkedLodWindow;

namespace {

/// Noise: a mesh of many vertices is too long for 16 bits nearly at every threshold. Large errors are rare
/// where `power` is large.
NBX::SO<Lattice> noise(unsigned size, double power) {
    NBX::SO<Lattice> lattice(new Lattice(size, size));
    for (unsigned y = 0; y < size; ++y)
        for (unsigned x = 0; x < size; ++x)
            lattice->heights()[lattice->heightIndex(x, y)] = static_cast<unsigned short>(
                65534.0 * std::pow((x * 7919 + y * 104729) % 10007 / 10007.0, power));
    lattice->computeErrors();
    return lattice;
}

bool fits(const Lattice & lattice, const ChunkedLodWindow & w, unsigned threshold) {
    std::vector<unsigned> strip;
    return ChunkedLodMesh::buildMesh(lattice, w.x, w.y, w.size, static_cast<unsigned short>(threshold), strip,
                                     ChunkedLodPatchMesh::s_maxEntries);
}

TEST(ChunkedLodWindow, TakesTheFirstThresholdOfItsRowWhoseStripFits) {
    const auto lattice = noise(257, 6.0);
    const auto window = ChunkedLodWindow::drawn(*lattice, 0, 0, 257, 0);
    unsigned threshold = 0; // then 1, 2, 4, 7, 11, ...
    while (!fits(*lattice, window, threshold))
        threshold = threshold * 3 / 2 + 1;
    EXPECT_GT(threshold, 0U);
    EXPECT_EQ(window.threshold, threshold);
}

TEST(ChunkedLodWindow, AFittingOneKeepsItsThreshold) {
    const auto lattice = noise(257, 6.0);
    EXPECT_EQ(ChunkedLodWindow::drawn(*lattice, 0, 0, 257, 60000).threshold, 60000);
    EXPECT_EQ(ChunkedLodWindow::drawn(*lattice, 64, 64, 65, 0).threshold, 0);
}

void expectLaws(const Lattice & lattice, const ChunkedLodWindow & parent) {
    EXPECT_TRUE(fits(lattice, parent, parent.threshold));
    EXPECT_TRUE(parent.children(lattice) > 0 || parent.threshold == 0);
    for (unsigned i = 0; i < parent.children(lattice); ++i) {
        const auto child = parent.child(lattice, i);
        EXPECT_LE(child.threshold, parent.threshold);
        EXPECT_TRUE(child.size < 4 || child.threshold >= parent.threshold / 2);
        expectLaws(lattice, child);
    }
}

TEST(ChunkedLodWindow, NoChildIsCoarserThanItsParent) {
    for (const double power : {1.0, 3.0, 6.0}) {
        SCOPED_TRACE(power);
        const auto lattice = noise(513, power);
        for (const unsigned short root : {0, 300, 20000, 60000})
            expectLaws(*lattice, ChunkedLodWindow::drawn(*lattice, 0, 0, 513, root));
    }
}

TEST(ChunkedLodWindow, AChildThatDoesNotFitEndsAtTheThresholdOfItsParent) {
    const auto lattice = noise(513, 1.0);
    // The last threshold at which the whole fits: its quarters, half as coarse, have no room for more.
    ChunkedLodWindow parent = ChunkedLodWindow::drawn(*lattice, 0, 0, 513, 0);
    const auto child = parent.child(*lattice, 0);
    EXPECT_FALSE(fits(*lattice, child, parent.threshold / 2));
    EXPECT_GT(child.threshold, parent.threshold / 2);
    EXPECT_LE(child.threshold, parent.threshold);
}

TEST(ChunkedLodWindow, TheFinestShowEveryVertex) {
    const auto lattice = noise(17, 1.0);
    EXPECT_EQ(ChunkedLodWindow::drawn(*lattice, 4, 8, 3, 500).threshold, 0);
    EXPECT_EQ(ChunkedLodWindow::drawn(*lattice, 4, 8, 5, 500).threshold, 500);
}

} // namespace
