#include "cellarrangement.h"

#include <algorithm>
#include <cstdlib>
#include <tuple>

namespace ZMT::CORE {

namespace {

/// Twice the area of the triangle: positive if `c` is on the left of the way from `a` to `b`. Below 2^62.
std::int64_t orientation(const LatticeNode & a, const LatticeNode & b, const LatticeNode & c) {
    return (b.u - a.u) * (c.v - a.v) - (b.v - a.v) * (c.u - a.u);
}

bool areOpposite(std::int64_t a, std::int64_t b) {
    return (a < 0 && b > 0) || (a > 0 && b < 0);
}

void findCrossing(const LatticePiece & p, const LatticePiece & q, std::vector<LatticeNode> & found) {
    const std::int64_t a = orientation(q.a, q.b, p.a), b = orientation(q.a, q.b, p.b);
    if (!areOpposite(a, b)) return;
    if (!areOpposite(orientation(p.a, p.b, q.a), orientation(p.a, p.b, q.b))) return;
    __extension__ using Wide = __int128;
    const Wide part = std::abs(a), whole = part + std::abs(b);
    LatticeNode node{};
    node.u = p.a.u + roundedQuotient((p.b.u - p.a.u) * part, whole);
    node.v = p.a.v + roundedQuotient((p.b.v - p.a.v) * part, whole);
    const LatticePiece & later = p.a.feature < q.a.feature ? q : p;
    node.feature = later.a.feature;
    const double t = double(part) / double(whole);
    node.position = p.a.position * (1.0 - t) + p.b.position * t;
    node.position.y = heightBetween(later.a, later.b, node.u, node.v);
    found.push_back(node);
}

/// True if the piece passes through the square of one step around `node`.
bool isNear(const LatticePiece & piece, const LatticeNode & node) {
    const auto [low, high] = std::minmax(piece.a.v, piece.b.v);
    if (node.v < low || node.v > high) return false;
    return 2 * std::abs(orientation(piece.a, piece.b, node)) <=
           std::abs(piece.b.u - piece.a.u) + std::abs(piece.b.v - piece.a.v);
}

} // namespace

__extension__ std::int64_t roundedQuotient(__int128 n, __int128 d) {
    const auto twice = 2 * n + d;
    const auto quotient = twice / (2 * d);
    return static_cast<std::int64_t>(quotient - (twice % (2 * d) < 0 ? 1 : 0));
}

double heightBetween(const LatticeNode & a, const LatticeNode & b, std::int64_t u, std::int64_t v) {
    const bool isFlat = std::abs(b.u - a.u) >= std::abs(b.v - a.v);
    const auto whole = static_cast<double>(isFlat ? b.u - a.u : b.v - a.v);
    const auto part = static_cast<double>(isFlat ? u - a.u : v - a.v);
    const double t = whole != 0.0 ? std::clamp(part / whole, 0.0, 1.0) : 0.0;
    return a.position.y * (1.0 - t) + b.position.y * t;
}

std::vector<LatticeNode> CellArrangement::crossings(const std::vector<LatticePiece> & pieces) {
    std::vector<LatticePiece> sorted(pieces);
    for (LatticePiece & piece : sorted)
        if (piece.b.u < piece.a.u) std::swap(piece.a, piece.b);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const LatticePiece & p, const LatticePiece & q) { return p.a.u < q.a.u; });
    std::vector<LatticeNode> found;
    for (auto p = sorted.begin(); p != sorted.end(); ++p) {
        const auto [low, high] = std::minmax(p->a.v, p->b.v);
        for (auto q = p + 1; q != sorted.end() && q->a.u <= p->b.u; ++q)
            if (std::min(q->a.v, q->b.v) <= high && std::max(q->a.v, q->b.v) >= low)
                findCrossing(*p, *q, found);
    }
    return found;
}

// The order is total, so that two cells choose alike among the nodes at a place on their common border.
void CellArrangement::removeDuplicates(std::vector<LatticeNode> & nodes) {
    const auto key = [](const LatticeNode & n) {
        return std::tuple(n.u, n.v, ~n.feature, n.position.y, n.position.x, n.position.z);
    };
    std::sort(nodes.begin(), nodes.end(),
              [&key](const LatticeNode & a, const LatticeNode & b) { return key(a) < key(b); });
    const auto end = std::unique(nodes.begin(), nodes.end(),
                                 [](const LatticeNode & a, const LatticeNode & b) { return a.isAt(b); });
    nodes.erase(end, nodes.end());
}

std::vector<std::pair<unsigned, unsigned>> CellArrangement::edges(const std::vector<LatticePiece> & pieces,
                                                                  const std::vector<LatticeNode> & nodes) {
    std::vector<std::pair<unsigned, unsigned>> result;
    std::vector<std::pair<std::int64_t, unsigned>> way; // how far along the piece, and the node there
    for (const LatticePiece & piece : pieces) {
        if (piece.a.isAt(piece.b)) continue;
        const auto [low, high] = std::minmax(piece.a.u, piece.b.u);
        const std::int64_t du = piece.b.u - piece.a.u, dv = piece.b.v - piece.a.v;
        way.clear();
        auto n = std::lower_bound(nodes.begin(), nodes.end(), low,
                                  [](const LatticeNode & node, std::int64_t u) { return node.u < u; });
        for (; n != nodes.end() && n->u <= high; ++n)
            if (isNear(piece, *n))
                way.emplace_back((n->u - piece.a.u) * du + (n->v - piece.a.v) * dv,
                                 static_cast<unsigned>(n - nodes.begin()));
        std::sort(way.begin(), way.end());
        for (std::size_t i = 1; i < way.size(); ++i)
            result.emplace_back(std::minmax(way[i - 1].second, way[i].second));
    }
    std::sort(result.begin(), result.end());
    result.erase(std::unique(result.begin(), result.end()), result.end());
    return result;
}

} // namespace ZMT::CORE
