#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include <nbx/math/vector3base.h>

namespace ZMT::CORE {

/// A place on a lattice of whole numbers, with what belongs to it.
struct LatticeNode {
    static constexpr unsigned s_cellBits = 30;
    static constexpr std::int64_t s_cell = std::int64_t(1) << s_cellBits; ///< steps of the lattice to a cell

    bool isOnColumn() const { return u % s_cell == 0; }
    bool isOnRow() const { return v % s_cell == 0; }
    bool isGridVertex() const { return isOnColumn() && isOnRow(); }
    bool isAt(const LatticeNode & other) const { return u == other.u && v == other.v; }

    std::int64_t u, v;
    unsigned feature;                  ///< where several nodes are at a place, the latest feature counts
    NBX::Vector3Base<double> position; ///< in geo coordinates
};

struct LatticePiece {
    LatticeNode a, b;
};

/// Pieces of lines in one cell as edges that meet in nodes only. `s_cell` is the largest distance of two
/// nodes in u or v.
///
/// Every end and every crossing, rounded to the lattice, is a node, and a piece is bent through each node
/// from which it is less than half a step away; so rounding makes no new crossings. Source: J. D. Hobby,
/// Practical Segment Intersection with Finite Precision Output, Computational Geometry 13, 1999.
namespace CellArrangement {

/// Where two pieces cross between their ends, with the height of the later one.
std::vector<LatticeNode> crossings(const std::vector<LatticePiece> & pieces);

/// Sorts by place, and leaves the latest at each.
void removeDuplicates(std::vector<LatticeNode> & nodes);

/// Pairs of places in `nodes`, sorted and without duplicates, between which there are edges. The ends of all
/// pieces are among `nodes`.
std::vector<std::pair<unsigned, unsigned>> edges(const std::vector<LatticePiece> & pieces,
                                                 const std::vector<LatticeNode> & nodes);

} // namespace CellArrangement

/// `n / d` to the nearest whole number, halves up; `d` is above 0.
__extension__ std::int64_t roundedQuotient(__int128 n, __int128 d);

/// Height of the line from `a` to `b` at a place near it.
double heightBetween(const LatticeNode & a, const LatticeNode & b, std::int64_t u, std::int64_t v);

} // namespace ZMT::CORE
