#pragma once

#include <zmt/core/terrain/geometry/tin/tin.h>

#include <span>

namespace ZMT::CORE {

/// Greedy refinement of a triangulation: of a list of points, the one that is farthest from the surface in
/// height is inserted, again and again.
///
/// Points wait in the list of the face that contains them. After an insertion only the faces that it changed
/// are searched again. Laws: (1) each face with an entry among the errors has there the largest error of its
/// list; (2) the same points in the same order give the same mesh.
///
/// Ties: of equal largest errors the one that was found last is taken; within a list, the first point.
/// Changed faces are handled in the order of their change: those of flips as they happen, then what is left
/// of the ring around the new node, counter-clockwise.
template <class Accessor> class TinAlgorithmPointsToTin : public Tin<Accessor> {
    using Base = Tin<Accessor>;

public:
    using Base::Base;
    using Base::insert;
    using typename Base::Point;

    /// Refines `tin` by points from `points` until no error is above `threshold`, or the mesh has `budget`
    /// faces. The result is the largest error left over all points, measured in height. Points outside the
    /// mesh are reported and left out. A pass that has raised the largest error goes on over the budget until
    /// the error is back where it was. Not reentrant; memory about 32 bytes for each point, kept for
    /// the next run.
    double run(Tin<Accessor> & tin, std::span<const unsigned> points, double threshold, unsigned budget);

    /// Also marks the faces around the node as changed.
    TinNode insert(const TinPoint & point, TinFace hint = TinFace()) override;
    /// Also marks both faces as changed.
    void flip(TinEdge edge) override;

private:
    using Base::faces_;
    using Base::nodes_;
    using Base::noLink;
    using Base::none;

    /// A point that waits; the list of a face is chained through `next`.
    struct Candidate {
        Point position;
        unsigned number;
        std::uint32_t next;
    };
    static_assert(sizeof(Candidate) == 32);

    struct FaceState {
        std::uint32_t firstCandidate = none;
        std::uint32_t best = none;
        std::uint32_t entry = none; ///< place in `errors_`
        std::uint32_t mark = none;  ///< place in `changed_`, or of its sector; none if not changed
    };

    /// The largest error of a face. Equal errors are in the order of their finding.
    struct Entry {
        double error;
        std::uint32_t sequence;
        std::uint32_t face;

        bool isAbove(const Entry & e) const {
            return error > e.error || (error == e.error && sequence > e.sequence);
        }
    };
    static_assert(sizeof(Entry) == 16);

    /// A list that is being built, with its best candidate so far.
    struct List {
        std::uint32_t first = none, last = none, best = none;
        double error = 0.0;
    };

    /// A face of the star around the new node, relative to this node.
    struct Sector {
        double x1, y1, x2, y2; ///< the two outer corners
        double area;
        double rise1, rise2; ///< heights of the outer corners over the node
        List list;
        std::uint32_t face;
    };

    /// Weights of the outer corners of a sector at a position relative to the node; negative beyond the
    /// second, or the first, of its spokes.
    struct Weights {
        Weights(const Sector & s, double dx, double dy)
            : first(s.y2 * dx - s.x2 * dy), second(s.x1 * dy - s.y1 * dx) {}
        double height(const Sector & s, double origin) const {
            return Base::interpolate(origin, first, s.rise1, second, s.rise2, s.area);
        }

        double first, second;
    };

    bool finished(double threshold, unsigned budget) const;
    double maxError() const { return errors_.empty() ? 0.0 : errors_.front().error; }
    void takePoints(std::span<const unsigned> points);
    bool hasShortCoordinates() const;
    void insertBest();
    void update(std::uint32_t inserted, TinNode node);
    void markChanged(std::uint32_t f);
    void clearChanged();

    bool makeStar(TinNode node);
    void updateStar(std::uint32_t inserted, const Point & centre);
    void distribute(std::uint32_t first, std::uint32_t sector, std::uint32_t inserted, const Point & centre);
    bool turnTo(std::uint32_t & sector, double dx, double dy) const;
    bool turnLikeWalk(std::uint32_t & sector, const Point & p, double dx, double dy) const;
    void settle(std::uint32_t candidate, std::uint32_t sector, const Point & centre);
    void updateByWalk(std::uint32_t inserted);
    void append(std::uint32_t candidate, std::uint32_t f);
    void evaluate(std::uint32_t f);
    void addTo(Sector & sector, std::uint32_t candidate, const Weights & w, double origin);

    void setEntry(std::uint32_t f, const List & list);
    void removeEntry(std::uint32_t place);
    void siftUp(std::uint32_t place, const Entry & entry);
    void siftDown(std::uint32_t place, const Entry & entry);
    void put(std::uint32_t place, const Entry & entry) {
        errors_[place] = entry;
        states_[entry.face].entry = place;
    }
    std::uint32_t nextSequence();

    std::vector<Candidate> candidates_;
    std::vector<FaceState> states_;
    std::vector<std::uint32_t> changed_; ///< the set of dirty faces
    std::vector<Entry> errors_;          ///< a heap of four children, largest first
    std::uint32_t sequence_ = 0;
    std::vector<Sector> sectors_;     ///< counter-clockwise
    bool isClosed_ = false;           ///< the sectors go all around the node
    bool isExact_ = false;            ///< determinants of differences of points are not rounded
    double certain_ = 0.0;            ///< determinants above it have the right sign, in the present star
    std::vector<std::uint32_t> last_; ///< last candidate of a face that is being filled by `append`
};

template <class Accessor>
double TinAlgorithmPointsToTin<Accessor>::run(Tin<Accessor> & tin, std::span<const unsigned> points,
                                              double threshold, unsigned budget) {
    this->swap(tin);
    states_.assign(this->faces(), FaceState());
    errors_.clear();
    changed_.clear();
    sequence_ = 0;
    if (!this->empty()) {
        takePoints(points);
        clearChanged();
    }
    while (!finished(threshold, budget)) {
        const double e = maxError();
        do {
            insertBest();
            clearChanged();
        } while (maxError() > e);
    }
    const double error = maxError();
    this->swap(tin);
    return error;
}

template <class Accessor>
bool TinAlgorithmPointsToTin<Accessor>::finished(double threshold, unsigned budget) const {
    return errors_.empty() || maxError() <= threshold || budget <= this->faces();
}

template <class Accessor>
void TinAlgorithmPointsToTin<Accessor>::takePoints(std::span<const unsigned> points) {
    if (points.size() >= none) throw std::length_error("points of a triangulation");
    candidates_.clear();
    candidates_.reserve(points.size());
    for (const unsigned number : points) {
        const Point p = Base::accessor_.point(number);
        const bool isFinite = p.x - p.x == 0.0 && p.y - p.y == 0.0;
        NBX_CHECK(isFinite, L"point outside the triangulation");
        if (isFinite) candidates_.push_back({p, number, static_cast<std::uint32_t>(candidates_.size() + 1)});
    }
    if (!candidates_.empty()) {
        candidates_.back().next = none;
        states_[0].firstCandidate = 0;
    }
    isExact_ = hasShortCoordinates();
    for (std::uint32_t f = 0; f < this->faces(); ++f)
        markChanged(f);
    update(none, this->node(0)); // two faces are the star of the first corner
}

/// Whether all points lie on a lattice of powers of two, at most 2^24 steps away in each direction, as those
/// of grids with a cell size of few digits do. Differences are then below 2^25 steps, their products below
/// 2^50, and a sum of six such products is exact.
template <class Accessor> bool TinAlgorithmPointsToTin<Accessor>::hasShortCoordinates() const {
    double largestX = 0.0, largestY = 0.0;
    const auto extend = [&](const Point & p) {
        largestX = std::max(largestX, std::fabs(p.x));
        largestY = std::max(largestY, std::fabs(p.y));
    };
    for (const Candidate & candidate : candidates_)
        extend(candidate.position);
    for (const auto & node : nodes_)
        extend(node.position);
    // Steps are not so small that products vanish, nor so large that they overflow.
    if (largestX > 1e100 || largestY > 1e100) return false;
    const auto stepsOf = [](double largest) {
        return std::ldexp(1.0, 24 - std::ilogb(std::max(largest, 1e-100)) - 1);
    };
    const double stepsX = stepsOf(largestX), stepsY = stepsOf(largestY);
    const auto isShort = [&](const Point & p) {
        constexpr double rounder = 0x1.8p52; // adding it leaves whole numbers
        const double x = p.x * stepsX, y = p.y * stepsY;
        return (x + rounder) - rounder == x && (y + rounder) - rounder == y;
    };
    return std::all_of(candidates_.begin(), candidates_.end(),
                       [&](const Candidate & c) { return isShort(c.position); }) &&
           std::all_of(nodes_.begin(), nodes_.end(),
                       [&](const auto & node) { return isShort(node.position); });
}

template <class Accessor> void TinAlgorithmPointsToTin<Accessor>::insertBest() {
    const std::uint32_t f = errors_.front().face;
    const std::uint32_t best = states_[f].best;
    const Candidate & candidate = candidates_[best];
    const TinNode n = this->insert(TinPoint{candidate.position, candidate.number}, TinFace(f));
    if (!n) markChanged(f);
    update(best, n);
}

// A point on a node takes over the node's height without a change of the mesh: the planes around it change,
// so they have to be searched again as well, or the same point would be the best one for ever.
template <class Accessor>
TinNode TinAlgorithmPointsToTin<Accessor>::insert(const TinPoint & point, TinFace hint) {
    const TinNode n = Base::insert(point, hint);
    if (!n) return n;
    const std::uint32_t own = nodes_[n.index()].edge;
    const std::uint32_t border = Base::firstAround(own);
    const std::uint32_t first = border == none ? own : border;
    std::uint32_t e = first;
    do {
        markChanged(e >> 2);
        e = Base::twinOf(Base::previousOf(e));
    } while (e != noLink && e != first);
    return n;
}

template <class Accessor> void TinAlgorithmPointsToTin<Accessor>::flip(TinEdge edge) {
    if (const TinFace f = this->face(edge)) markChanged(f.index());
    if (const TinFace f = this->face(this->twin(edge))) markChanged(f.index());
    Base::flip(edge);
}

template <class Accessor> void TinAlgorithmPointsToTin<Accessor>::markChanged(std::uint32_t f) {
    if (states_.size() < faces_.size()) states_.resize(faces_.size());
    if (states_[f].mark != none) return;
    states_[f].mark = static_cast<std::uint32_t>(changed_.size());
    changed_.push_back(f);
}

template <class Accessor> void TinAlgorithmPointsToTin<Accessor>::clearChanged() {
    for (const std::uint32_t f : changed_)
        states_[f].mark = none;
    changed_.clear();
}

template <class Accessor>
void TinAlgorithmPointsToTin<Accessor>::update(std::uint32_t inserted, TinNode node) {
    if (node && makeStar(node)) {
        updateStar(inserted, this->position(node));
    } else {
        updateByWalk(inserted);
    }
}

template <class Accessor>
inline void TinAlgorithmPointsToTin<Accessor>::addTo(Sector & sector, std::uint32_t i, const Weights & w,
                                                     double origin) {
    List & list = sector.list;
    (list.first == none ? list.first : candidates_[list.last].next) = i;
    list.last = i;
    candidates_[i].next = none;
    const double error = std::fabs(w.height(sector, origin) - candidates_[i].position.z);
    if (error > list.error) {
        list.error = error;
        list.best = i;
    }
}

// The common case: the changed faces are just those around the new node, which is their first corner. False,
// if they are not.
template <class Accessor> bool TinAlgorithmPointsToTin<Accessor>::makeStar(TinNode node) {
    sectors_.clear();
    const Point centre = this->position(node);
    double extentX = 0.0, extentY = 0.0;
    const auto toCorner = [&](std::uint32_t n) {
        const Point & p = Base::positionOf(n);
        const Point d(p.x - centre.x, p.y - centre.y, p.z - centre.z);
        extentX = std::max(extentX, std::fabs(d.x));
        extentY = std::max(extentY, std::fabs(d.y));
        return d;
    };
    const std::uint32_t first = nodes_[node.index()].edge;
    if (first & 3u) return false;
    std::uint32_t e = first;
    Point from = toCorner(faces_[e >> 2].corner[1]);
    do {
        const std::uint32_t f = e >> 2;
        if ((e & 3u) || states_[f].mark == none) return false;
        const Point to = toCorner(faces_[f].corner[2]);
        sectors_.push_back(
            {from.x, from.y, to.x, to.y, from.x * to.y - from.y * to.x, from.z, to.z, List(), f});
        from = to;
        e = faces_[f].link[2] & ~Base::constrainedBit;
    } while (e != noLink && e != first);
    if (sectors_.size() != changed_.size()) return false;

    isClosed_ = e == first;
    // Twice the bound of the sum of both products is the worst of one determinant; the third one of a face
    // comes from the other two and the area.
    certain_ = isExact_ ? 0.0 : 8.0 * predicateBounds.ccwA * 2.0 * extentX * extentY + 1e-300;
    for (std::uint32_t s = 0; s < sectors_.size(); ++s)
        states_[sectors_[s].face].mark = s;
    return true;
}

template <class Accessor>
void TinAlgorithmPointsToTin<Accessor>::updateStar(std::uint32_t inserted, const Point & centre) {
    const std::size_t starSize = changed_.size();
    for (std::size_t i = 0; i < starSize; ++i) {
        const FaceState & state = states_[changed_[i]];
        distribute(state.firstCandidate, state.mark, inserted, centre);
    }
    for (std::size_t i = 0; i < starSize; ++i) {
        FaceState & state = states_[changed_[i]];
        const List & list = sectors_[state.mark].list;
        state.firstCandidate = list.first;
        setEntry(changed_[i], list);
    }
    for (std::size_t i = starSize; i < changed_.size(); ++i)
        evaluate(changed_[i]);
}

// The weights that decide on a sector are also those of the height. Whatever is too close to an edge goes the
// long way, by the walk from the face that it was in.
template <class Accessor>
void TinAlgorithmPointsToTin<Accessor>::distribute(std::uint32_t first, std::uint32_t own,
                                                   std::uint32_t inserted, const Point & centre) {
    for (std::uint32_t i = first, next; i != none; i = next) {
        next = candidates_[i].next;
        if (i == inserted) continue;
        const Point & p = candidates_[i].position;
        const double dx = p.x - centre.x, dy = p.y - centre.y;
        std::uint32_t s = own;
        if (turnLikeWalk(s, p, dx, dy) || turnTo(s = own, dx, dy))
            addTo(sectors_[s], i, Weights(sectors_[s], dx, dy), centre.z);
        else
            settle(i, own, centre);
    }
}

/// Turns `s` to the sector with a position strictly inside; false if there is none, or if it is not certain.
template <class Accessor>
inline bool TinAlgorithmPointsToTin<Accessor>::turnTo(std::uint32_t & s, double dx, double dy) const {
    const auto count = static_cast<std::uint32_t>(sectors_.size());
    for (std::uint32_t turns = 0; turns < count; ++turns) {
        const Weights w(sectors_[s], dx, dy);
        if (w.first > certain_ && w.second > certain_)
            return sectors_[s].area - w.first - w.second > certain_;
        if (w.second < -certain_) {
            if (s == 0 && !isClosed_) return false;
            s = s == 0 ? count - 1 : s - 1;
        } else if (w.first < -certain_) {
            if (s + 1 == count && !isClosed_) return false;
            s = s + 1 == count ? 0 : s + 1;
        } else {
            return false;
        }
    }
    return false;
}

/// Goes from `s` to the sector where the walk from its face would end, as long as that turns around the node:
/// it makes the same comparisons in the same order. False where the walk leaves the star, or where a sign is
/// not certain. Points on the edges, of which a grid has many, have their zeros from equal coordinates.
template <class Accessor>
bool TinAlgorithmPointsToTin<Accessor>::turnLikeWalk(std::uint32_t & s, const Point & p, double dx,
                                                     double dy) const {
    enum Side { S_Inside, S_Right, S_Unknown };
    const auto sideOf = [&](double determinant, auto isZero) {
        if (determinant > certain_) return S_Inside;
        if (determinant < -certain_) return S_Right;
        return isExact_ || isZero() ? S_Inside : S_Unknown;
    };
    const auto spoke = [&](double determinant, double x, double y) {
        return sideOf(determinant, [&] { return (x == 0.0 && dx == 0.0) || (y == 0.0 && dy == 0.0); });
    };
    const auto outer = [&](const Sector & sector, const Weights & w) {
        return sideOf(sector.area - w.first - w.second, [&] {
            const auto & corner = faces_[sector.face].corner;
            const Point & a = Base::positionOf(corner[1]);
            const Point & b = Base::positionOf(corner[2]);
            return (a.x == p.x && b.x == p.x) || (a.y == p.y && b.y == p.y);
        });
    };

    const auto count = static_cast<std::uint32_t>(sectors_.size());
    const Weights own(sectors_[s], dx, dy);
    const Side low = spoke(own.second, sectors_[s].x1, sectors_[s].y1);
    if (low == S_Unknown) return false;
    Side high = S_Inside;
    if (low == S_Inside) {
        if (outer(sectors_[s], own) != S_Inside) return false;
        high = spoke(own.first, sectors_[s].x2, sectors_[s].y2);
        if (high == S_Unknown) return false;
        if (high == S_Inside) return true;
    }
    const bool isClockwise = low == S_Right;
    for (std::uint32_t turns = 1; turns < count; ++turns) {
        const std::uint32_t last = isClockwise ? 0 : count - 1;
        if (s == last && !isClosed_) return false;
        s = s == last ? count - 1 - last : isClockwise ? s - 1 : s + 1;
        const Sector & sector = sectors_[s];
        const Weights w(sector, dx, dy);
        // The spoke comes before the outer edge clockwise, and behind it the other way.
        if (!isClockwise && outer(sector, w) != S_Inside) return false;
        const Side side =
            isClockwise ? spoke(w.second, sector.x1, sector.y1) : spoke(w.first, sector.x2, sector.y2);
        if (side == S_Unknown) return false;
        if (side == S_Right) continue;
        return !isClockwise || outer(sector, w) == S_Inside;
    }
    return false;
}

/// Puts a candidate of a sector's face where the walk leads.
template <class Accessor>
void TinAlgorithmPointsToTin<Accessor>::settle(std::uint32_t i, std::uint32_t own, const Point & centre) {
    const Point & p = candidates_[i].position;
    const TinFace f(Base::walk(sectors_[own].face, p));
    NBX_CHECK(f, L"point outside the triangulation");
    if (!f) return;
    const std::uint32_t s = states_[f.index()].mark;
    if (s >= sectors_.size() || sectors_[s].face != f.index())
        append(i, f.index());
    else
        addTo(sectors_[s], i, Weights(sectors_[s], p.x - centre.x, p.y - centre.y), centre.z);
}

/// Puts a candidate at the end of a face's list. A face that was not changed before is marked, and keeps what
/// it has.
template <class Accessor> void TinAlgorithmPointsToTin<Accessor>::append(std::uint32_t i, std::uint32_t f) {
    if (last_.size() < faces_.size()) last_.resize(faces_.size());
    FaceState & state = states_[f];
    if (state.mark == none) {
        markChanged(f);
        last_[f] = none;
        for (std::uint32_t j = state.firstCandidate; j != none; j = candidates_[j].next)
            last_[f] = j;
    }
    candidates_[i].next = none;
    (state.firstCandidate == none ? state.firstCandidate : candidates_[last_[f]].next) = i;
    last_[f] = i;
}

template <class Accessor> void TinAlgorithmPointsToTin<Accessor>::updateByWalk(std::uint32_t inserted) {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> waiting; // candidate, face
    if (last_.size() < faces_.size()) last_.resize(faces_.size());
    for (const std::uint32_t f : changed_) {
        for (std::uint32_t i = states_[f].firstCandidate; i != none; i = candidates_[i].next)
            if (i != inserted) waiting.emplace_back(i, f);
        states_[f].firstCandidate = none;
        last_[f] = none;
    }
    for (const auto & [i, hint] : waiting) {
        const TinFace found = this->locate(candidates_[i].position, TinFace(hint));
        NBX_CHECK(found, L"point outside the triangulation");
        if (found) append(i, found.index());
    }
    for (const std::uint32_t f : changed_)
        evaluate(f);
}

template <class Accessor> void TinAlgorithmPointsToTin<Accessor>::evaluate(std::uint32_t f) {
    List list;
    for (std::uint32_t i = states_[f].firstCandidate; i != none; i = candidates_[i].next) {
        const Point & p = candidates_[i].position;
        const double error = std::fabs(this->heightOn(TinFace(f), p) - p.z);
        if (error > list.error) {
            list.error = error;
            list.best = i;
        }
    }
    setEntry(f, list);
}

template <class Accessor>
void TinAlgorithmPointsToTin<Accessor>::setEntry(std::uint32_t f, const List & list) {
    FaceState & state = states_[f];
    state.best = list.best;
    if (!(list.error > 0.0)) {
        if (state.entry != none) removeEntry(state.entry);
        return;
    }
    const Entry entry{list.error, nextSequence(), f};
    if (state.entry == none) {
        errors_.emplace_back();
        siftUp(static_cast<std::uint32_t>(errors_.size() - 1), entry);
    } else if (entry.isAbove(errors_[state.entry])) {
        siftUp(state.entry, entry);
    } else {
        siftDown(state.entry, entry);
    }
}

template <class Accessor> void TinAlgorithmPointsToTin<Accessor>::removeEntry(std::uint32_t place) {
    states_[errors_[place].face].entry = none;
    const Entry removed = errors_[place], last = errors_.back();
    errors_.pop_back();
    if (place == errors_.size()) return;
    if (last.isAbove(removed)) {
        siftUp(place, last);
    } else {
        siftDown(place, last);
    }
}

template <class Accessor>
void TinAlgorithmPointsToTin<Accessor>::siftUp(std::uint32_t place, const Entry & entry) {
    while (place > 0) {
        const std::uint32_t parent = (place - 1) / 4;
        if (!entry.isAbove(errors_[parent])) break;
        put(place, errors_[parent]);
        place = parent;
    }
    put(place, entry);
}

template <class Accessor>
void TinAlgorithmPointsToTin<Accessor>::siftDown(std::uint32_t place, const Entry & entry) {
    const auto size = static_cast<std::uint32_t>(errors_.size());
    for (;;) {
        const std::uint32_t firstChild = 4 * place + 1;
        if (firstChild >= size) break;
        std::uint32_t largest = firstChild;
        const std::uint32_t end = std::min(firstChild + 4, size);
        for (std::uint32_t child = firstChild + 1; child < end; ++child)
            if (errors_[child].isAbove(errors_[largest])) largest = child;
        if (!errors_[largest].isAbove(entry)) break;
        put(place, errors_[largest]);
        place = largest;
    }
    put(place, entry);
}

/// Numbers the entries in the order of their finding; when the numbers run out, the entries are numbered
/// anew.
template <class Accessor> std::uint32_t TinAlgorithmPointsToTin<Accessor>::nextSequence() {
    if (sequence_ == none) {
        std::vector<std::uint32_t> order(errors_.size());
        for (std::uint32_t i = 0; i < order.size(); ++i)
            order[i] = i;
        std::sort(order.begin(), order.end(), [this](std::uint32_t a, std::uint32_t b) {
            return errors_[a].sequence < errors_[b].sequence;
        });
        sequence_ = 0;
        for (const std::uint32_t place : order)
            errors_[place].sequence = sequence_++;
    }
    return sequence_++;
}

} // namespace ZMT::CORE
