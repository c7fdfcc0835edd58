#pragma once

#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/geometry/tin/predicates.h>
#include <zmt/core/terrain/geometry/tin/tinconstruction.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace ZMT::CORE {

/// A point on its way into a triangulation. Several nodes may have the same number.
struct TinPoint {
    NBX::Vector3Base<double> position;
    unsigned number;
};

/// A triangulation that is kept Delaunay by edge flips, with constrained edges. All decisions are exact; only
/// heights are rounded.
///
/// Laws, once `init` was given a convex quadrilateral: (1) no fourth corner lies strictly in the circle of a
/// face, except across a constrained edge, and within rounding of the place where two constraints cross; (2)
/// the faces cover the quadrilateral without overlap; (3) every operation ends, also for coordinates that are
/// not finite.
///
/// `locate` without a hint draws on `rand()`. Source of the structure: L. Guibas and J. Stolfi, Primitives
/// for the Manipulation of General Subdivisions and the Computation of Voronoi Diagrams, ACM TOG 4, 1985.
template <class Accessor> class Tin : public TinConstruction<Accessor> {
    using Base = TinConstruction<Accessor>;

public:
    using Base::Base;
    using typename Base::Point;

    virtual ~Tin() = default;

    /// Back to the state of a new one.
    virtual void clear();

    /// The first two triangles: `a, b, c`, and `a, c, d` over the edge from `c` to `a`. The numbers name the
    /// corners of a convex quadrilateral, counter-clockwise. The mesh must be empty.
    virtual void init(unsigned a, unsigned b, unsigned c, unsigned d);

    /// Adds a point, and gives its node. A node at the same plane position takes over number and height
    /// instead. Outside the mesh: reported, null.
    virtual TinNode insert(const TinPoint & point, TinFace hint = TinFace());

    /// Makes the way between two nodes a chain of constrained edges, by inserting midpoints, with the number
    /// 0, where there is no edge. Nodes exactly on the way become part of the chain. Where it crosses another
    /// chain at no representable point, both lead through one node within the rounding of the crossing: a new
    /// one with the number 0, or one of theirs. A way that stays open nevertheless is reported under
    /// "isResolved" with "constraint cannot be resolved".
    virtual void constrain(TinNode a, TinNode b);

    /// The face that contains the plane position of `p`, border included; null outside or if not finite. It
    /// walks from `hint`, if there is one, else from the nearest of some random nodes.
    virtual TinFace locate(const Point & p, TinFace hint = TinFace()) const;

    /// The node at the plane position of `p`, or null.
    virtual TinNode findNode(const Point & p, TinFace hint = TinFace()) const;

    /// Height of the surface at the plane position of `p`, which must be inside; otherwise it is reported,
    /// and the result is negative infinity.
    virtual double height(const Point & p, TinFace hint = TinFace()) const;

    /// Swaps the diagonal of the two faces at an edge, which must be on both sides of it and form a strictly
    /// convex quadrilateral. With `c` and `d` the corners to the left and right of the edge from `a` to `b`,
    /// its faces become `c, a, d` and `c, d, b`. A constraint is lifted, and forced again by the next
    /// insertion.
    virtual void flip(TinEdge edge);

    /// Splits an edge at a point on it: two faces into four, or one into two on the border. The faces around
    /// the new node begin at it. A constraint is lifted, and forced again by the next insertion.
    virtual TinNode splitEdge(TinEdge edge, const TinPoint & point);

    /// Splits a face at a point inside: one into three. The faces around the new node begin at it.
    virtual TinNode splitFace(TinFace face, const TinPoint & point);

    /// Flips `edge`, opposite to the new node `point` in its face, if it is not Delaunay, and goes on to the
    /// edges beyond it.
    virtual void legalize(TinEdge edge, TinNode point);

    /// The same, for points that are known by their number.
    TinNode insert(unsigned number, TinFace hint = TinFace()) { return insert(point(number), hint); }
    TinFace locate(unsigned number, TinFace hint = TinFace()) const {
        return locate(Base::accessor_.point(number), hint);
    }
    TinNode findNode(unsigned number, TinFace hint = TinFace()) const {
        return findNode(Base::accessor_.point(number), hint);
    }
    double height(unsigned number, TinFace hint = TinFace()) const {
        return height(Base::accessor_.point(number), hint);
    }

    /// Height of the plane of `face` at the plane position of `p`, in double precision.
    double heightOn(TinFace face, const Point & p) const;

    /// True if the plane position of `p` is in `face`, border included.
    bool contains(TinFace face, const Point & p) const;

    /// True if `flip` can be done: faces on both sides, no constraint, a strictly convex quadrilateral.
    bool isFlippable(TinEdge edge) const;

    /// The rectangle around the four corners.
    double minX() const { return minX_; }
    double minY() const { return minY_; }
    double maxX() const { return maxX_; }
    double maxY() const { return maxY_; }

    void swap(Tin & other);

protected:
    using Base::faces_;
    using Base::nodes_;
    using Base::noLink;
    using Base::none;

    TinPoint point(unsigned number) const { return {Base::accessor_.point(number), number}; }

    /// `locate` from a face, for a finite position; `none` outside.
    std::uint32_t walk(std::uint32_t face, const Point & p) const;

    /// A height from the two unnormalised weights and the heights of the second and third corner over the
    /// first one. All heights go through here, so that equal input gives equal bits.
    static double interpolate(double z, double weight1, double rise1, double weight2, double rise2,
                              double area) {
        return z + weight1 / area * rise1 + weight2 / area * rise2;
    }

private:
    static constexpr unsigned maxHalvings = 64;
    static constexpr double nearby = 4.0;        ///< in lengths of a way that cannot be halved
    static constexpr unsigned maxCrossings = 64; ///< of one way, once it cannot be halved

    struct PendingConstraint {
        TinNode a, b;
        unsigned halvings; ///< how often the way to be constrained was cut
    };

    static bool isRightOf(const Point & a, const Point & b, const Point & p) {
        return orient2d(a, b, p) < 0.0;
    }

    std::uint32_t seedFace(const Point & p) const;
    std::uint32_t scan(const Point & p) const;
    TinNode cornerAt(TinFace f, const Point & p) const;
    TinNode split(TinFace f, const TinPoint & point);
    bool isIllegal(std::uint32_t e) const;
    void liftConstraint(std::uint32_t e);
    void processPendingConstraints();
    void resolve(const PendingConstraint & pair);
    TinEdge edgeOnTheWay(TinNode from, TinNode to);
    TinNode insertMidpoint(TinNode a, TinNode b);
    TinEdge crossedEdge(TinNode from, TinNode to);
    Point crossing(TinEdge crossed, TinNode from, TinNode to) const;
    bool canSplit(TinEdge edge, const Point & p) const;
    bool isConvexAt(TinEdge edge) const;
    bool crossAnew(TinNode from, TinNode to, unsigned halvings);
    bool crossSharing(TinNode from, TinNode to, unsigned halvings);
    bool passBy(TinNode from, TinNode to, unsigned halvings);
    void setConstrained(TinNode a, TinNode b);

    double minX_ = std::numeric_limits<double>::max();
    double minY_ = std::numeric_limits<double>::max();
    double maxX_ = std::numeric_limits<double>::lowest();
    double maxY_ = std::numeric_limits<double>::lowest();
    std::vector<PendingConstraint> pendingConstraints_; ///< last in, first out
    bool isProcessingConstraints_ = false;
    std::vector<std::uint32_t> pendingEdges_; ///< of `legalize`, last in, first out
    std::vector<TinEdge> ring_;
};

template <class Accessor> void Tin<Accessor>::clear() {
    Base::clearElements();
    pendingConstraints_.clear();
    pendingEdges_.clear();
    isProcessingConstraints_ = false;
    minX_ = minY_ = std::numeric_limits<double>::max();
    maxX_ = maxY_ = std::numeric_limits<double>::lowest();
}

template <class Accessor> void Tin<Accessor>::swap(Tin & other) {
    Base::swapElements(other);
    std::swap(minX_, other.minX_);
    std::swap(minY_, other.minY_);
    std::swap(maxX_, other.maxX_);
    std::swap(maxY_, other.maxY_);
    pendingConstraints_.swap(other.pendingConstraints_);
    pendingEdges_.swap(other.pendingEdges_);
    std::swap(isProcessingConstraints_, other.isProcessingConstraints_);
}

template <class Accessor> void Tin<Accessor>::init(unsigned a, unsigned b, unsigned c, unsigned d) {
    NBX_CHECK(this->empty(), L"triangulation is not empty");
    if (!this->empty()) return;
    for (const unsigned number : {a, b, c, d}) {
        const Point p = Base::accessor_.point(number);
        Base::appendNode(number, p);
        minX_ = std::min(minX_, p.x);
        minY_ = std::min(minY_, p.y);
        maxX_ = std::max(maxX_, p.x);
        maxY_ = std::max(maxY_, p.y);
    }
    Base::appendFace(0, 1, 2);
    Base::appendFace(0, 2, 3);
    Base::join(2, 4);
    Base::setNodeEdge(0, 0);
    Base::setNodeEdge(1, 1);
    Base::setNodeEdge(2, 2);
    Base::setNodeEdge(3, 6);
}

template <class Accessor> TinFace Tin<Accessor>::locate(const Point & p, TinFace hint) const {
    const bool isFinite = p.x - p.x == 0.0 && p.y - p.y == 0.0;
    if (!isFinite || this->empty()) return TinFace();
    return TinFace(walk(hint ? hint.index() : seedFace(p), p));
}

template <class Accessor> std::uint32_t Tin<Accessor>::seedFace(const Point & p) const {
    const unsigned count = this->nodes();
    const auto draws = static_cast<unsigned>(std::sqrt(static_cast<double>(count)));
    std::uint32_t nearest = 0;
    double least = std::numeric_limits<double>::infinity();
    for (unsigned i = 0; i < draws; ++i) {
        const unsigned n = static_cast<unsigned>(std::rand()) % count;
        const Point & q = Base::positionOf(n);
        const double distance2 = (q.x - p.x) * (q.x - p.x) + (q.y - p.y) * (q.y - p.y);
        if (distance2 < least) {
            least = distance2;
            nearest = n;
        }
    }
    return nodes_[nearest].edge >> 2;
}

// The edges are tested in turn, beginning at the one that was crossed, which needs no test: the signs are
// exact, so that the point is strictly on the left of its twin. In a Delaunay mesh no face comes twice. With
// constraints the walk could turn in a circle, hence the bound.
template <class Accessor> std::uint32_t Tin<Accessor>::walk(std::uint32_t f, const Point & p) const {
    const auto * face = &faces_[f];
    const Point * from = &nodes_[face->corner[0]].position;
    const Point * to = &nodes_[face->corner[1]].position;
    const Point * apex = &nodes_[face->corner[2]].position;
    unsigned exit;
    if (isRightOf(*from, *to, p)) {
        exit = 0;
    } else if (isRightOf(*to, *apex, p)) {
        exit = 1;
        from = to;
        to = apex;
    } else if (isRightOf(*apex, *from, p)) {
        exit = 2;
        to = from;
        from = apex;
    } else {
        return f;
    }

    for (std::size_t steps = faces_.size(); steps > 0; --steps) {
        const std::uint32_t entry = face->link[exit] & ~Base::constrainedBit;
        if (entry == noLink) return none;
        f = entry >> 2;
        face = &faces_[f];
        const unsigned next = Base::nextOf(entry) & 3u, previous = Base::previousOf(entry) & 3u;
        apex = &nodes_[face->corner[previous]].position;
        if (isRightOf(*from, *apex, p)) {
            exit = next;
            to = apex;
        } else if (isRightOf(*apex, *to, p)) {
            exit = previous;
            from = apex;
        } else {
            return f;
        }
    }
    return scan(p);
}

template <class Accessor> std::uint32_t Tin<Accessor>::scan(const Point & p) const {
    for (unsigned i = 0; i < this->faces(); ++i)
        if (contains(TinFace(i), p)) return i;
    return none;
}

template <class Accessor> bool Tin<Accessor>::contains(TinFace face, const Point & p) const {
    const auto & corner = faces_[face.index()].corner;
    for (unsigned k = 0; k < 3; ++k) {
        const Point & from = Base::positionOf(corner[k]);
        const Point & to = Base::positionOf(corner[k == 2 ? 0 : k + 1]);
        if (!(orient2d(from, to, p) >= 0.0)) return false;
    }
    return true;
}

template <class Accessor> TinNode Tin<Accessor>::cornerAt(TinFace f, const Point & p) const {
    for (unsigned k = 0; k < 3; ++k) {
        const TinNode n = this->corner(f, k);
        const Point & q = this->position(n);
        if (q.x == p.x && q.y == p.y) return n;
    }
    return TinNode();
}

template <class Accessor> TinNode Tin<Accessor>::findNode(const Point & p, TinFace hint) const {
    const TinFace f = locate(p, hint);
    return f ? cornerAt(f, p) : TinNode();
}

template <class Accessor> double Tin<Accessor>::height(const Point & p, TinFace hint) const {
    const TinFace face = locate(p, hint);
    NBX_CHECK(face, L"point outside the triangulation");
    return face ? heightOn(face, p) : -std::numeric_limits<double>::infinity();
}

template <class Accessor> double Tin<Accessor>::heightOn(TinFace face, const Point & at) const {
    const auto & corner = faces_[face.index()].corner;
    const Point & p = Base::positionOf(corner[0]);
    const Point & q = Base::positionOf(corner[1]);
    const Point & r = Base::positionOf(corner[2]);
    const double area = (q.x - p.x) * (r.y - p.y) - (q.y - p.y) * (r.x - p.x);
    const double weight1 = (r.y - p.y) * (at.x - p.x) - (r.x - p.x) * (at.y - p.y);
    const double weight2 = (q.x - p.x) * (at.y - p.y) - (q.y - p.y) * (at.x - p.x);
    return interpolate(p.z, weight1, q.z - p.z, weight2, r.z - p.z, area);
}

template <class Accessor> TinNode Tin<Accessor>::insert(const TinPoint & point, TinFace hint) {
    const TinFace face = locate(point.position, hint);
    NBX_CHECK(face, L"point outside the triangulation");
    if (!face) return TinNode();
    const TinNode existing = cornerAt(face, point.position);
    if (existing) {
        nodes_[existing.index()].number = point.number;
        nodes_[existing.index()].position = point.position;
        return existing;
    }
    const TinNode n = split(face, point);
    std::uint32_t spokes[4];
    unsigned count = 0;
    const std::uint32_t first = nodes_[n.index()].edge;
    for (std::uint32_t e = first; count < 4;) {
        spokes[count++] = e;
        e = Base::twinOf(Base::previousOf(e));
        if (e == noLink || e == first) break;
    }
    for (unsigned i = 0; i < count; ++i)
        legalize(TinEdge(Base::nextOf(spokes[i])), n);
    processPendingConstraints();
    return n;
}

template <class Accessor> TinNode Tin<Accessor>::split(TinFace f, const TinPoint & point) {
    for (unsigned k = 0; k < 3; ++k) {
        const TinEdge e(4 * f.index() + k);
        const Point & from = this->position(this->origin(e));
        const Point & to = this->position(this->destination(e));
        if (orient2d(from, to, point.position) <= 0.0) return splitEdge(e, point);
    }
    return splitFace(f, point);
}

template <class Accessor> TinNode Tin<Accessor>::splitFace(TinFace face, const TinPoint & point) {
    const std::uint32_t f = face.index();
    const auto old = faces_[f];
    const auto [a, b, c, unused] = old.corner;
    const std::uint32_t p = Base::appendNode(point.number, point.position);
    const std::uint32_t f1 = Base::appendFace(p, b, c);
    const std::uint32_t f2 = Base::appendFace(p, c, a);
    Base::setCorners(f, p, a, b);
    Base::relink(4 * f + 1, old.link[0]);
    Base::relink(4 * f1 + 1, old.link[1]);
    Base::relink(4 * f2 + 1, old.link[2]);
    Base::join(4 * f + 2, 4 * f1);
    Base::join(4 * f1 + 2, 4 * f2);
    Base::join(4 * f2 + 2, 4 * f);
    Base::setNodeEdge(p, 4 * f);
    Base::setNodeEdge(a, 4 * f + 1);
    Base::setNodeEdge(b, 4 * f1 + 1);
    Base::setNodeEdge(c, 4 * f2 + 1);
    return TinNode(p);
}

template <class Accessor> TinNode Tin<Accessor>::splitEdge(TinEdge edge, const TinPoint & point) {
    const std::uint32_t e = Base::inner(edge);
    liftConstraint(e);
    const std::uint32_t f = e >> 2, t = Base::linkOf(e);
    const std::uint32_t a = Base::originOf(e), b = Base::destinationOf(e);
    const std::uint32_t c = Base::originOf(Base::previousOf(e));
    const std::uint32_t linkBC = Base::linkOf(Base::nextOf(e)), linkCA = Base::linkOf(Base::previousOf(e));

    const std::uint32_t p = Base::appendNode(point.number, point.position);
    Base::setCorners(f, p, c, a);
    if (t == noLink) {
        const std::uint32_t f1 = Base::appendFace(p, b, c);
        faces_[f].link[2] = noLink;
        Base::relink(4 * f + 1, linkCA);
        Base::relink(4 * f1 + 1, linkBC);
        Base::join(4 * f1 + 2, 4 * f);
        Base::setNodeEdge(p, 4 * f1);
        Base::setNodeEdge(a, 4 * f + 2);
        Base::setNodeEdge(b, 4 * f1 + 1);
        Base::setNodeEdge(c, 4 * f + 1);
        return TinNode(p);
    }

    const std::uint32_t g = t >> 2, d = Base::originOf(Base::previousOf(t));
    const std::uint32_t linkAD = Base::linkOf(Base::nextOf(t)), linkDB = Base::linkOf(Base::previousOf(t));
    const std::uint32_t g1 = Base::appendFace(p, d, b);
    const std::uint32_t f1 = Base::appendFace(p, b, c);
    Base::setCorners(g, p, a, d);
    Base::relink(4 * f + 1, linkCA);
    Base::relink(4 * g + 1, linkAD);
    Base::relink(4 * g1 + 1, linkDB);
    Base::relink(4 * f1 + 1, linkBC);
    Base::join(4 * f + 2, 4 * g);
    Base::join(4 * g + 2, 4 * g1);
    Base::join(4 * g1 + 2, 4 * f1);
    Base::join(4 * f1 + 2, 4 * f);
    Base::setNodeEdge(p, 4 * f);
    Base::setNodeEdge(a, 4 * g + 1);
    Base::setNodeEdge(b, 4 * f1 + 1);
    Base::setNodeEdge(c, 4 * f + 1);
    Base::setNodeEdge(d, 4 * g1 + 1);
    return TinNode(p);
}

template <class Accessor> void Tin<Accessor>::flip(TinEdge edge) {
    NBX_CHECK(this->face(edge) && this->face(this->twin(edge)), L"no face to flip with");
    if (!this->face(edge) || !this->face(this->twin(edge))) return;
    const std::uint32_t e = edge.index();
    liftConstraint(e);
    const std::uint32_t t = Base::twinOf(e), f = e >> 2, g = t >> 2;
    const std::uint32_t eNext = Base::nextOf(e), ePrevious = Base::previousOf(e);
    const std::uint32_t tNext = Base::nextOf(t), tPrevious = Base::previousOf(t);
    const std::uint32_t a = Base::originOf(e), b = Base::originOf(t);
    const std::uint32_t c = Base::originOf(ePrevious), d = Base::originOf(tPrevious);
    const std::uint32_t linkBC = Base::linkOf(eNext), linkCA = Base::linkOf(ePrevious);
    const std::uint32_t linkAD = Base::linkOf(tNext), linkDB = Base::linkOf(tPrevious);

    Base::setCorners(f, c, a, d);
    Base::setCorners(g, c, d, b);
    if (ePrevious != 4 * f) {
        Base::relink(4 * f, linkCA);
        if (nodes_[c].edge == ePrevious) nodes_[c].edge = 4 * f;
    }
    Base::relink(4 * f + 1, linkAD);
    Base::relink(4 * g + 1, linkDB);
    Base::relink(4 * g + 2, linkBC);
    Base::join(4 * f + 2, 4 * g);
    Base::setNodeEdge(a, 4 * f + 1);
    Base::setNodeEdge(d, 4 * g + 1);
    Base::setNodeEdge(b, 4 * g + 2);
}

template <class Accessor> bool Tin<Accessor>::isFlippable(TinEdge edge) const {
    const TinEdge opposite = this->twin(edge);
    return this->face(edge) && this->face(opposite) && !this->constrained(edge) && isConvexAt(edge);
}

template <class Accessor> bool Tin<Accessor>::isIllegal(std::uint32_t e) const {
    const std::uint32_t t = Base::linkOf(e);
    if ((t & noLink) == noLink || (t & Base::constrainedBit)) return false;
    const Point & a = Base::positionOf(Base::originOf(e));
    const Point & b = Base::positionOf(Base::destinationOf(e));
    const Point & c = Base::positionOf(Base::originOf(Base::previousOf(e)));
    const Point & d = Base::positionOf(Base::originOf(Base::previousOf(t)));
    return incircle(a, b, c, d) > 0.0 && orient2d(c, a, d) > 0.0 && orient2d(d, b, c) > 0.0;
}

// The faces around the new node share nothing but spokes: a flip leaves the other pending edges where they
// are. So a stack does the same as recursion.
template <class Accessor> void Tin<Accessor>::legalize(TinEdge edge, TinNode) {
    const std::size_t bottom = pendingEdges_.size();
    pendingEdges_.push_back(edge.index());
    while (pendingEdges_.size() > bottom) {
        const std::uint32_t e = pendingEdges_.back();
        pendingEdges_.pop_back();
        if ((e & Base::outerBit) || !isIllegal(e)) continue;
        const std::uint32_t f = e >> 2, g = Base::twinOf(e) >> 2;
        flip(TinEdge(e));
        pendingEdges_.push_back(4 * g + 1);
        pendingEdges_.push_back(4 * f + 1);
    }
}

template <class Accessor> void Tin<Accessor>::liftConstraint(std::uint32_t e) {
    if (!(Base::linkOf(e) & Base::constrainedBit)) return;
    Base::setConstrained(e, false);
    pendingConstraints_.push_back({TinNode(Base::originOf(e)), TinNode(Base::destinationOf(e)), 0});
}

template <class Accessor> void Tin<Accessor>::constrain(TinNode a, TinNode b) {
    NBX_CHECK(a && b, L"no node");
    if (!a || !b) return;
    pendingConstraints_.push_back({a, b, 0});
    processPendingConstraints();
}

// An insertion on the way comes back here; what it leaves pending is handled by the outermost call.
template <class Accessor> void Tin<Accessor>::processPendingConstraints() {
    if (pendingConstraints_.empty() || isProcessingConstraints_) return;
    isProcessingConstraints_ = true;
    while (!pendingConstraints_.empty()) {
        const PendingConstraint pair = pendingConstraints_.back();
        pendingConstraints_.pop_back();
        resolve(pair);
    }
    isProcessingConstraints_ = false;
}

template <class Accessor> void Tin<Accessor>::resolve(const PendingConstraint & pair) {
    const auto [a, b, halvings] = pair;
    if (a == b) return;
    const auto mark = [this](TinEdge e) { Base::setConstrained(Base::inner(e), true); };
    if (const TinEdge e = this->findEdge(a, b)) {
        mark(e);
    } else if (const TinEdge fromA = edgeOnTheWay(a, b)) {
        mark(fromA);
        pendingConstraints_.push_back({this->destination(fromA), b, halvings});
    } else if (const TinEdge fromB = edgeOnTheWay(b, a)) {
        mark(fromB);
        pendingConstraints_.push_back({a, this->destination(fromB), halvings});
    } else {
        const TinNode middle = halvings < maxHalvings ? insertMidpoint(a, b) : TinNode();
        if (middle && middle != a && middle != b) {
            pendingConstraints_.push_back({a, middle, halvings + 1});
            pendingConstraints_.push_back({middle, b, halvings + 1});
            return;
        }
        const bool isResolved =
            halvings < maxHalvings + maxCrossings &&
            (crossAnew(a, b, halvings) || crossSharing(a, b, halvings) || crossSharing(b, a, halvings) ||
             passBy(a, b, halvings) || passBy(b, a, halvings));
        NBX_CHECK(isResolved, L"constraint cannot be resolved");
    }
}

template <class Accessor> TinEdge Tin<Accessor>::edgeOnTheWay(TinNode from, TinNode to) {
    const Point & a = this->position(from);
    const Point & b = this->position(to);
    const auto distance2 = [&b](const Point & p) {
        return (b.x - p.x) * (b.x - p.x) + (b.y - p.y) * (b.y - p.y);
    };
    this->collectRing(from, ring_);
    for (const TinEdge e : ring_) {
        const Point & p = this->position(this->destination(e));
        if (orient2d(a, b, p) == 0.0 && distance2(p) < distance2(a)) return e;
    }
    return TinEdge();
}

// A node that happens to be there already is taken as it is. Where two constraints cross, the middle becomes
// one of the ends in the end, as there is no number left between them; then the ends lie beside the other
// constraint, and what follows takes over.
template <class Accessor> TinNode Tin<Accessor>::insertMidpoint(TinNode a, TinNode b) {
    const Point middle = (this->position(a) + this->position(b)) * 0.5;
    const TinFace hint = this->face(this->edge(a));
    const TinNode existing = findNode(middle, hint);
    return existing ? existing : insert({middle, 0}, hint);
}

/// The edge opposite to `from` through which the way to `to` leaves the faces around `from`. Null where no
/// face lies beyond it.
template <class Accessor> TinEdge Tin<Accessor>::crossedEdge(TinNode from, TinNode to) {
    const Point & a = this->position(from);
    const Point & b = this->position(to);
    this->collectRing(from, ring_);
    for (const TinEdge e : ring_) {
        if (!this->face(e)) continue;
        const TinEdge opposite = this->next(e);
        if (orient2d(a, b, this->position(this->origin(opposite))) < 0.0 &&
            orient2d(a, b, this->position(this->destination(opposite))) > 0.0)
            return this->face(this->twin(opposite)) ? opposite : TinEdge();
    }
    return TinEdge();
}

/// Rounded, between `from` and `to`: of the predicates the signs are exact, not the values. The height is
/// that of the edge.
template <class Accessor>
auto Tin<Accessor>::crossing(TinEdge crossed, TinNode from, TinNode to) const -> Point {
    const Point & a = this->position(from);
    const Point & b = this->position(to);
    const Point & p = this->position(this->origin(crossed));
    const Point & q = this->position(this->destination(crossed));
    const double before = orient2d(p, q, a), behind = -orient2d(p, q, b);
    const Point met = a + (b - a) * (before / (before + behind)), along = q - p;
    const double way =
        ((met.x - p.x) * along.x + (met.y - p.y) * along.y) / (along.x * along.x + along.y * along.y);
    return {met.x, met.y, p.z + std::clamp(way, 0.0, 1.0) * along.z};
}

/// True if the four faces that splitting the edge at `p` gives turn counter-clockwise.
template <class Accessor> bool Tin<Accessor>::canSplit(TinEdge edge, const Point & p) const {
    const TinEdge opposite = this->twin(edge);
    const Point & a = this->position(this->origin(edge));
    const Point & b = this->position(this->destination(edge));
    const Point & c = this->position(this->origin(this->previous(edge)));
    const Point & d = this->position(this->origin(this->previous(opposite)));
    return orient2d(p, c, a) > 0.0 && orient2d(p, a, d) > 0.0 && orient2d(p, d, b) > 0.0 &&
           orient2d(p, b, c) > 0.0;
}

template <class Accessor> bool Tin<Accessor>::isConvexAt(TinEdge edge) const {
    const TinEdge opposite = this->twin(edge);
    const Point & a = this->position(this->origin(edge));
    const Point & b = this->position(this->origin(opposite));
    const Point & c = this->position(this->origin(this->previous(edge)));
    const Point & d = this->position(this->origin(this->previous(opposite)));
    return orient2d(c, a, d) > 0.0 && orient2d(d, b, c) > 0.0;
}

template <class Accessor> void Tin<Accessor>::setConstrained(TinNode a, TinNode b) {
    if (const TinEdge e = this->findEdge(a, b)) Base::setConstrained(Base::inner(e), true);
}

/// Leads the way over a new node on the edge that it crosses first.
template <class Accessor> bool Tin<Accessor>::crossAnew(TinNode from, TinNode to, unsigned halvings) {
    const TinEdge crossed = crossedEdge(from, to);
    if (!crossed) return false;
    const Point p = crossing(crossed, from, to);
    if (!canSplit(crossed, p)) return false;
    const TinNode ends[] = {this->origin(crossed), this->destination(crossed)};
    const bool isConstraint = this->constrained(crossed);
    Base::setConstrained(Base::inner(crossed), false);
    const TinNode n = splitEdge(crossed, {p, 0});
    setConstrained(from, n);
    for (const TinNode end : ends)
        if (isConstraint) setConstrained(end, n);
    this->collectRing(n, ring_);
    for (const TinEdge spoke : std::vector<TinEdge>(ring_))
        legalize(this->next(spoke), n);
    pendingConstraints_.push_back({n, to, halvings + 1});
    return true;
}

/// Leads a constraint that the way crosses first over `from` itself, which lies beside it.
template <class Accessor> bool Tin<Accessor>::crossSharing(TinNode from, TinNode to, unsigned halvings) {
    const TinEdge crossed = crossedEdge(from, to);
    if (!crossed || !isConvexAt(crossed)) return false;
    const TinNode ends[] = {this->origin(crossed), this->destination(crossed)};
    const bool isConstraint = this->constrained(crossed);
    Base::setConstrained(Base::inner(crossed), false);
    flip(crossed);
    for (const TinNode end : ends)
        if (isConstraint) setConstrained(end, from);
    pendingConstraints_.push_back({from, to, halvings + 1});
    return true;
}

/// Leads the way over an end of the edge that it crosses first, which must be about as near as `to`.
template <class Accessor> bool Tin<Accessor>::passBy(TinNode from, TinNode to, unsigned halvings) {
    const TinEdge crossed = crossedEdge(from, to);
    if (!crossed) return false;
    const Point & a = this->position(from);
    const auto distance = [&](TinNode n) {
        const Point & p = this->position(n);
        return std::hypot(p.x - a.x, p.y - a.y);
    };
    TinNode end = this->origin(crossed), other = this->destination(crossed);
    if (distance(other) < distance(end)) std::swap(end, other);
    if (!(distance(end) <= nearby * distance(to))) return false;
    setConstrained(from, end);
    pendingConstraints_.push_back({end, to, halvings + 1});
    return true;
}

} // namespace ZMT::CORE
