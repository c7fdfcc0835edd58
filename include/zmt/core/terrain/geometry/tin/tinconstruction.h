#pragma once

#include <nbx/math/vector3base.h>

#include <compare>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

namespace ZMT::CORE {

/// Names an element of a triangulation. A default-made handle is null. Handles of nodes and faces stay valid
/// until the mesh is cleared; a handle of a half-edge stays valid until one of its faces is changed.
template <class Tag> class TinHandle {
public:
    constexpr TinHandle() = default;
    constexpr explicit TinHandle(std::uint32_t index) : index_(index) {}

    constexpr explicit operator bool() const { return index_ != 0xFFFFFFFFu; }
    constexpr std::uint32_t index() const { return index_; }
    constexpr auto operator<=>(const TinHandle &) const = default;

private:
    std::uint32_t index_ = 0xFFFFFFFFu;
};

using TinNode = TinHandle<struct TinNodeTag>;
using TinEdge = TinHandle<struct TinEdgeTag>;
using TinFace = TinHandle<struct TinFaceTag>;

/// A half-edge mesh of triangles in the plane, with a number and a position on each node. The plane position
/// is in the first two components, the height in the third. Faces turn counter-clockwise.
///
/// `Accessor` offers `point(number)`, static or not, which gives a `Vector3Base<double>`. It is asked once
/// for each node: a node keeps its position.
///
/// Nodes and faces are listed in the order of their making. Half-edges come in pairs of twins; the half-edge
/// on the outside of the mesh has a null face. A record of a face holds its three half-edges, those on the
/// outside are derived, so that a face and its neighbours are one cache line.
///
/// Laws: (1) `twin(twin(e)) == e`; (2) `next(e) == onext(twin(e))` and `previous(e) == twin(oprev(e))`;
/// (3) `onext` and `oprev` undo each other, and run clockwise and counter-clockwise around the origin;
/// (4) `next` returns after three steps inside, and runs clockwise along the whole border outside.
/// Not for concurrent use while it changes.
template <class Accessor> class TinConstruction {
public:
    using Point = NBX::Vector3Base<double>;

    explicit TinConstruction(Accessor accessor = Accessor()) : accessor_(std::move(accessor)) {}
    TinConstruction(const TinConstruction &) = delete;
    TinConstruction & operator=(const TinConstruction &) = delete;

    unsigned nodes() const { return static_cast<unsigned>(nodes_.size()); }
    unsigned faces() const { return static_cast<unsigned>(faces_.size()); }
    bool empty() const { return faces_.empty(); }

    /// The element at a place of its list, which must be below `nodes()` or `faces()`.
    TinNode node(unsigned place) const { return TinNode(place); }
    TinFace face(unsigned place) const { return TinFace(place); }

    unsigned number(TinNode n) const { return nodes_[n.index()].number; }
    const Point & position(TinNode n) const { return nodes_[n.index()].position; }

    /// One outgoing half-edge, always one with a face.
    TinEdge edge(TinNode n) const { return TinEdge(nodes_[n.index()].edge); }
    /// The first of the three half-edges of a face.
    TinEdge edge(TinFace f) const { return TinEdge(4 * f.index()); }
    /// Corner `k` of a face: the origin of its half-edge `k`, with `k` below 3.
    TinNode corner(TinFace f, unsigned k) const { return TinNode(faces_[f.index()].corner[k]); }

    TinNode origin(TinEdge e) const {
        return TinNode(isOuter(e) ? destinationOf(inner(e)) : originOf(inner(e)));
    }
    TinNode destination(TinEdge e) const {
        return TinNode(isOuter(e) ? originOf(inner(e)) : destinationOf(inner(e)));
    }
    TinEdge twin(TinEdge e) const;
    /// The neighbour of `e` in the ring around its origin, clockwise.
    TinEdge onext(TinEdge e) const { return next(twin(e)); }
    /// The neighbour of `e` in the ring around its origin, counter-clockwise.
    TinEdge oprev(TinEdge e) const { return twin(previous(e)); }
    /// Null on the outside of the mesh.
    TinFace face(TinEdge e) const { return isOuter(e) ? TinFace() : TinFace(e.index() >> 2); }
    bool constrained(TinEdge e) const { return (linkOf(inner(e)) & constrainedBit) != 0; }
    /// The next half-edge of the face, or of the border. O(1) inside, O(degree) outside.
    TinEdge next(TinEdge e) const;
    TinEdge previous(TinEdge e) const;

    /// The half-edge that leaves a border node along the outside: its face is null, and `next` goes on
    /// clockwise along the border. Null for a node inside the mesh. O(degree).
    TinEdge boundaryEdge(TinNode n) const;

    /// The half-edge from `a` to `b`, or null. O(degree).
    TinEdge findEdge(TinNode a, TinNode b) const;

    /// All half-edges that leave `n`, counter-clockwise, in `ring`, which is emptied first. It starts at
    /// `edge(n)` inside the mesh; on the border the half-edge on the outside comes last.
    void collectRing(TinNode n, std::vector<TinEdge> & ring) const;

protected:
    static constexpr std::uint32_t none = 0xFFFFFFFFu;
    static constexpr std::uint32_t outerBit = 0x80000000u;       ///< of a handle
    static constexpr std::uint32_t constrainedBit = 0x80000000u; ///< of a link
    static constexpr std::uint32_t noLink = 0x7FFFFFFFu;         ///< nothing across the edge
    static constexpr std::uint32_t maxFaces = 0x1FFFFFFFu;

    struct Node {
        Point position;
        unsigned number;
        std::uint32_t edge;
    };
    static_assert(sizeof(Node) == 32);

    /// Half-edge `k` of face `f` has the number `4 * f + k`, and leads from corner `k` to corner `k + 1`.
    struct alignas(32) Face {
        std::uint32_t corner[4]; ///< the last one is not used
        std::uint32_t link[4];   ///< number of the twin, or `noLink`; with `constrainedBit`
    };
    static_assert(sizeof(Face) == 32);

    static bool isOuter(TinEdge e) { return (e.index() & outerBit) != 0; }
    static std::uint32_t inner(TinEdge e) { return e.index() & ~outerBit; }
    static std::uint32_t nextOf(std::uint32_t e) { return (e & 3u) == 2 ? e - 2 : e + 1; }
    static std::uint32_t previousOf(std::uint32_t e) { return (e & 3u) == 0 ? e + 2 : e - 1; }

    std::uint32_t originOf(std::uint32_t e) const { return faces_[e >> 2].corner[e & 3u]; }
    std::uint32_t destinationOf(std::uint32_t e) const { return originOf(nextOf(e)); }
    std::uint32_t linkOf(std::uint32_t e) const { return faces_[e >> 2].link[e & 3u]; }
    std::uint32_t twinOf(std::uint32_t e) const { return linkOf(e) & ~constrainedBit; }
    const Point & positionOf(std::uint32_t n) const { return nodes_[n].position; }

    std::uint32_t appendNode(unsigned number, const Point & position) {
        nodes_.push_back({position, number, none});
        return nodes() - 1;
    }
    /// A face without neighbours.
    std::uint32_t appendFace(std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        if (faces_.size() >= maxFaces) throw std::length_error("triangulation");
        faces_.push_back({{a, b, c, none}, {noLink, noLink, noLink, noLink}});
        return faces() - 1;
    }
    void setCorners(std::uint32_t f, std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        faces_[f].corner[0] = a;
        faces_[f].corner[1] = b;
        faces_[f].corner[2] = c;
    }
    /// Puts `link`, as it was read from another half-edge, across `e`, on both sides.
    void relink(std::uint32_t e, std::uint32_t link) {
        faces_[e >> 2].link[e & 3u] = link;
        const std::uint32_t other = link & ~constrainedBit;
        if (other != noLink) faces_[other >> 2].link[other & 3u] = e | (link & constrainedBit);
    }
    /// Makes two half-edges twins of each other, without constraint.
    void join(std::uint32_t e, std::uint32_t f) {
        faces_[e >> 2].link[e & 3u] = f;
        faces_[f >> 2].link[f & 3u] = e;
    }
    void setConstrained(std::uint32_t e, bool constrained);
    void setNodeEdge(std::uint32_t n, std::uint32_t e) { nodes_[n].edge = e; }

    /// The half-edge on the border that ends at the origin of `e`, found clockwise, or `none`.
    std::uint32_t lastAround(std::uint32_t e) const;
    /// The half-edge on the border that leaves the origin of `e`, found the other way, or `none`.
    std::uint32_t firstAround(std::uint32_t e) const;

    void clearElements() {
        nodes_.clear();
        faces_.clear();
    }
    void swapElements(TinConstruction & other) {
        nodes_.swap(other.nodes_);
        faces_.swap(other.faces_);
    }

    [[no_unique_address]] Accessor accessor_;
    std::vector<Node> nodes_;
    std::vector<Face> faces_;
};

template <class Accessor> TinEdge TinConstruction<Accessor>::twin(TinEdge e) const {
    if (isOuter(e)) return TinEdge(inner(e));
    const std::uint32_t t = twinOf(e.index());
    return TinEdge(t == noLink ? e.index() | outerBit : t);
}

template <class Accessor> std::uint32_t TinConstruction<Accessor>::lastAround(std::uint32_t e) const {
    const std::uint32_t start = e;
    do {
        const std::uint32_t incoming = previousOf(e);
        const std::uint32_t t = twinOf(incoming);
        if (t == noLink) return incoming;
        e = t;
    } while (e != start);
    return none;
}

template <class Accessor> std::uint32_t TinConstruction<Accessor>::firstAround(std::uint32_t e) const {
    const std::uint32_t start = e;
    do {
        const std::uint32_t t = twinOf(e);
        if (t == noLink) return e;
        e = nextOf(t);
    } while (e != start);
    return none;
}

template <class Accessor> TinEdge TinConstruction<Accessor>::next(TinEdge e) const {
    if (!isOuter(e)) return TinEdge(nextOf(e.index()));
    return TinEdge(lastAround(inner(e)) | outerBit);
}

template <class Accessor> TinEdge TinConstruction<Accessor>::previous(TinEdge e) const {
    if (!isOuter(e)) return TinEdge(previousOf(e.index()));
    return TinEdge(firstAround(nextOf(inner(e))) | outerBit);
}

template <class Accessor> TinEdge TinConstruction<Accessor>::boundaryEdge(TinNode n) const {
    const std::uint32_t e = lastAround(nodes_[n.index()].edge);
    return e == none ? TinEdge() : TinEdge(e | outerBit);
}

template <class Accessor>
void TinConstruction<Accessor>::collectRing(TinNode n, std::vector<TinEdge> & ring) const {
    ring.clear();
    const std::uint32_t own = nodes_[n.index()].edge;
    const std::uint32_t first = firstAround(own);
    const TinEdge start(first == none ? own : first);
    TinEdge e = start;
    do {
        ring.push_back(e);
        if (isOuter(e)) return;
        e = twin(previous(e));
    } while (e != start);
}

template <class Accessor> TinEdge TinConstruction<Accessor>::findEdge(TinNode a, TinNode b) const {
    const std::uint32_t own = nodes_[a.index()].edge;
    const std::uint32_t first = firstAround(own);
    const std::uint32_t start = first == none ? own : first;
    std::uint32_t e = start;
    do {
        if (destinationOf(e) == b.index()) return TinEdge(e);
        const std::uint32_t incoming = previousOf(e);
        e = twinOf(incoming);
        if (e == noLink) return originOf(incoming) == b.index() ? TinEdge(incoming | outerBit) : TinEdge();
    } while (e != start);
    return TinEdge();
}

template <class Accessor> void TinConstruction<Accessor>::setConstrained(std::uint32_t e, bool constrained) {
    const auto set = [&](std::uint32_t & link) {
        link = constrained ? link | constrainedBit : link & ~constrainedBit;
    };
    const std::uint32_t t = twinOf(e);
    set(faces_[e >> 2].link[e & 3u]);
    if (t != noLink) set(faces_[t >> 2].link[t & 3u]);
}

} // namespace ZMT::CORE
