// A patch states as its error that of the mesh which is really drawn. Where 16-bit numbers ask for a coarser
// mesh than half of the parent's threshold, that is found when the patch is made and not when it is first
// drawn, and ends at the parent's threshold: the quarter of a mesh that fits does fit. Else a patch would
// state the error of a mesh that it never shows, and a child could be coarser than what it refines. The
// finest patches are drawn whole: no finer ones could replace them where their error shows.

#include <zmt/core/terrain/geometry/chunked/chunkedlodwindow.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "chunkedlodmesh.h"
#include "chunkedlodpatchmesh.h"
#include "chunkedlodterrainimpl.h"

namespace ZMT::CORE {

namespace {

/// A window this small has no vertex between its corners and its centre to be split at.
constexpr unsigned s_smallestSplit = 4;

constexpr unsigned short s_maxThreshold = 65535;

/// Two triangles a cell, less than two nodes of the recursion for each, at most two entries a node: windows
/// of this size fit always.
constexpr unsigned s_largestFit = 65;
static_assert(std::size_t(8) * (s_largestFit - 1) * (s_largestFit - 1) <= ChunkedLodPatchMesh::s_maxEntries);

unsigned short coarser(unsigned threshold) {
    return static_cast<unsigned short>(std::min<unsigned>(s_maxThreshold, threshold * 3 / 2 + 1));
}

} // namespace

ChunkedLodWindow ChunkedLodWindow::drawn(const ChunkedLodTerrain::Impl & lattice, unsigned x, unsigned y,
                                         unsigned size, unsigned short threshold, unsigned short coarsest) {
    if (size < s_smallestSplit) return {x, y, size, 0};
    if (size <= s_largestFit) return {x, y, size, threshold};
    std::vector<unsigned> strip;
    unsigned short largest = std::max(threshold, coarsest);
    while (!ChunkedLodMesh::buildMesh(lattice, x, y, size, threshold, strip,
                                      ChunkedLodPatchMesh::s_maxEntries) &&
           threshold < s_maxThreshold) {
        if (threshold == largest) largest = s_maxThreshold;
        threshold = std::min(largest, coarser(threshold));
    }
    return {x, y, size, threshold};
}

unsigned ChunkedLodWindow::children(const ChunkedLodTerrain::Impl & lattice) const {
    if (size < s_smallestSplit) return 0;
    return (x + size / 2 < lattice.sizeX() ? 2U : 1U) * (y + size / 2 < lattice.sizeY() ? 2U : 1U);
}

ChunkedLodWindow ChunkedLodWindow::child(const ChunkedLodTerrain::Impl & lattice, unsigned i) const {
    const unsigned half = size / 2;
    const bool isInsideY = y + half < lattice.sizeY();
    // Round the centre: low y, high y, both high, high x.
    const bool highX = isInsideY ? i >= 2 : i == 1;
    const bool highY = isInsideY && (i == 1 || i == 2);
    return drawn(lattice, highX ? x + half : x, highY ? y + half : y, half + 1, threshold / 2, threshold);
}

} // namespace ZMT::CORE
