#pragma once

#include <zmt/core/terrain/geometry/tin/tin.h>

namespace ZMT::CORE {

/// Cuts a triangulation into triangle strips. The faces form a tree that converges on a random root face: the
/// parent of a face lies across an edge beyond which the centre of the root is. Strips follow this tree
/// outwards, leaving their faces by the next and the previous edge by turns.
///
/// Laws: (1) decoded as triangle strips, with every second triangle turned, the strips hold each face once
/// and nothing else; (2) all triangles turn as the faces do, counter-clockwise.
///
/// The root is picked by `rand()`, unless it is given. The accessor's point 0xFFFFFFFF is the centre: an
/// accessor with a static member `centerPoint` has it set.
template <class Accessor> class TinAlgorithmTinToTristrips {
public:
    using Point = NBX::Vector3Base<double>;

    virtual ~TinAlgorithmTinToTristrips() = default;

protected:
    /// Hands all strips to the operations below. The mesh must not be empty.
    void run(const Tin<Accessor> & tin);
    /// The same from a given face. Neither draws nor sets the accessor's point.
    void run(const Tin<Accessor> & tin, TinFace root);
    /// Where the strips of the latest run converge.
    const Point & centre() const { return centre_; }

    /// Begins a strip with a face: ends the strip before, then takes the three corners.
    virtual void triangle(TinNode a, TinNode b, TinNode c) = 0;
    /// Goes on with the strip by one more face.
    virtual void vertex(TinNode n) = 0;
    /// Ends the strip, if there is one.
    virtual void finishStrip() = 0;

private:
    void setCentre(const Tin<Accessor> & tin, TinFace f);
    void cut(const Tin<Accessor> & tin, TinFace root);
    TinEdge findParentEdge(const Tin<Accessor> & tin, TinFace f) const;
    bool isChild(const Tin<Accessor> & tin, TinEdge e);
    void visitAll(const Tin<Accessor> & tin, TinEdge e);
    void followStrip(const Tin<Accessor> & tin, TinEdge e);
    void emitFace(const Tin<Accessor> & tin, TinFace f);

    Point centre_;
    TinFace root_;
    std::vector<unsigned char> isDone_;
    std::vector<TinEdge> parentEdges_; ///< of the faces; null until asked for
    std::vector<TinEdge> pending_;     ///< entries of the strips to come, last in, first out
};

template <class Accessor> void TinAlgorithmTinToTristrips<Accessor>::run(const Tin<Accessor> & tin) {
    NBX_CHECK(tin.faces() > 0, L"empty tin");
    if (tin.empty()) return;
    setCentre(tin, tin.face(static_cast<unsigned>(std::rand()) % tin.faces()));
    if constexpr (requires { Accessor::centerPoint = Point(); }) Accessor::centerPoint = centre_;
    cut(tin, tin.locate(centre_));
}

template <class Accessor>
void TinAlgorithmTinToTristrips<Accessor>::run(const Tin<Accessor> & tin, TinFace root) {
    NBX_CHECK(tin.faces() > 0, L"empty tin");
    if (tin.empty()) return;
    setCentre(tin, root);
    cut(tin, tin.locate(centre_, root));
}

template <class Accessor>
void TinAlgorithmTinToTristrips<Accessor>::setCentre(const Tin<Accessor> & tin, TinFace f) {
    const auto corner = [&](unsigned k) { return tin.position(tin.corner(f, k)); };
    centre_ = (corner(0) + corner(1) + corner(2)) / 3.0;
}

/// Cuts the mesh from the face in which the centre was found.
template <class Accessor>
void TinAlgorithmTinToTristrips<Accessor>::cut(const Tin<Accessor> & tin, TinFace f) {
    NBX_CHECK(f, L"internal error");
    root_ = f ? f : tin.face(0u);
    isDone_.assign(tin.faces(), 0);
    parentEdges_.assign(tin.faces(), TinEdge());

    const TinEdge e = tin.edge(root_);
    visitAll(tin, e);
    if (isChild(tin, e)) visitAll(tin, tin.twin(e));
    // With constrained edges the way to the centre may turn in a circle, which leaves the root out.
    for (unsigned i = 0; i < tin.faces(); ++i)
        if (!isDone_[i]) emitFace(tin, tin.face(i));
    finishStrip();
}

/// The edge of a face across which its parent lies.
template <class Accessor>
TinEdge TinAlgorithmTinToTristrips<Accessor>::findParentEdge(const Tin<Accessor> & tin, TinFace f) const {
    const auto isRightOf = [&](TinEdge e) {
        return orient2d(tin.position(tin.origin(e)), tin.position(tin.destination(e)), centre_) < 0.0;
    };
    const TinEdge first = tin.edge(f);
    if (isRightOf(first)) {
        const TinEdge last = tin.previous(first);
        return isRightOf(last) ? last : first;
    }
    const TinEdge second = tin.next(first);
    return isRightOf(second) ? second : tin.next(second);
}

/// True if the face across `e` is there, still to be done, and has the face of `e` as its parent.
template <class Accessor>
bool TinAlgorithmTinToTristrips<Accessor>::isChild(const Tin<Accessor> & tin, TinEdge e) {
    const TinEdge across = tin.twin(e);
    const TinFace f = tin.face(across);
    if (!f || f == root_ || isDone_[f.index()]) return false;
    TinEdge & parent = parentEdges_[f.index()];
    if (!parent) parent = findParentEdge(tin, f);
    return parent == across;
}

/// "visit" of the edge by which a face is entered, and of all that branches off behind it.
template <class Accessor>
void TinAlgorithmTinToTristrips<Accessor>::visitAll(const Tin<Accessor> & tin, TinEdge e) {
    pending_.assign(1, e);
    while (!pending_.empty()) {
        const TinEdge entry = pending_.back();
        pending_.pop_back();
        followStrip(tin, entry);
    }
}

// The last two vertices of a strip are the edge to go on by: of the second face, the fourth and so on, this
// is the edge before the entry, of the third and so on, the one after it. The first face is turned as needed.
// A child on the other side begins a strip of its own, after all that lies behind the present one.
template <class Accessor>
void TinAlgorithmTinToTristrips<Accessor>::followStrip(const Tin<Accessor> & tin, TinEdge e) {
    isDone_[tin.face(e).index()] = 1;
    const TinNode a = tin.origin(e), b = tin.origin(tin.next(e)), c = tin.origin(tin.previous(e));
    const bool startsByNext = isChild(tin, tin.next(e));
    if (startsByNext) {
        triangle(a, b, c);
    } else {
        triangle(b, c, a);
    }
    for (unsigned length = 1;; ++length) {
        const bool byNext = length == 1 ? startsByNext : length % 2 == 1;
        const TinEdge onward = byNext ? tin.next(e) : tin.previous(e);
        const TinEdge aside = byNext ? tin.previous(e) : tin.next(e);
        if (isChild(tin, aside)) pending_.push_back(tin.twin(aside));
        if (!isChild(tin, onward)) return;
        e = tin.twin(onward);
        isDone_[tin.face(e).index()] = 1;
        vertex(tin.origin(tin.previous(e)));
    }
}

template <class Accessor>
void TinAlgorithmTinToTristrips<Accessor>::emitFace(const Tin<Accessor> & tin, TinFace f) {
    isDone_[f.index()] = 1;
    triangle(tin.corner(f, 0), tin.corner(f, 1), tin.corner(f, 2));
}

} // namespace ZMT::CORE
