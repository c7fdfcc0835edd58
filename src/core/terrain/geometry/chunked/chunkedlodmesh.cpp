// P. Lindstrom, V. Pascucci: Visualization of large terrains made easy, 2001: the recursion that gives one
// triangle strip, which turns back on itself where the parity of levels asks for it.

#include "chunkedlodmesh.h"

#include <algorithm>

#include "chunkedlodterrainimpl.h"
#include <nbx/object/errorhandler.h>

namespace ZMT::CORE {

namespace {

using Lattice = ChunkedLodTerrain::Impl;

/// A lattice position as one number, column in the low and row in the high half: the sum of two of them does
/// not overflow, and the middle of two whose differences are even is found by one shift.
using Position = std::uint32_t;

constexpr unsigned s_rowShift = 16;
static_assert(2 * ChunkedLodTerrain::s_maxSize < (1U << s_rowShift));

Position positionOf(unsigned x, unsigned y) {
    return x | y << s_rowShift;
}

unsigned columnOf(Position p) {
    return p & ((1U << s_rowShift) - 1);
}

unsigned rowOf(Position p) {
    return p >> s_rowShift;
}

Position middleOf(Position a, Position b) {
    return (a + b) >> 1;
}

/// The corners and the centre of a window, and the number of bisections from an edge to its finest vertices.
struct Window {
    Window(unsigned x, unsigned y, unsigned size)
        : a(positionOf(x, y)), b(positionOf(x + size - 1, y)), c(positionOf(x + size - 1, y + size - 1)),
          d(positionOf(x, y + size - 1)), centre(positionOf(x + size / 2, y + size / 2)) {
        while ((1U << depth) + 1 < size)
            ++depth;
    }

    Position a, b, c, d, centre;
    unsigned depth = 0;
};

/// Whether the mesh has a vertex, which then stands in the middle of an edge of a coarser mesh.
class Presence {
public:
    Presence(const Lattice & lattice, unsigned short threshold)
        : errors_(lattice.errors()), level_(lattice.level()), threshold_(threshold) {}

    bool operator()(Position p) const {
        const std::size_t row = rowOf(p);
        return errors_[columnOf(p) + row + (row << level_)] >= threshold_;
    }

private:
    const unsigned short * errors_;
    unsigned level_;
    unsigned short threshold_;
};

/// The numbers in the store of a lattice that is the raster, or of one that is larger.
template <bool IsSquare> class Numbering {
public:
    explicit Numbering(const Lattice & lattice)
        : level_(lattice.level()), width_(lattice.sizeX()), lastX_(lattice.sizeX() - 1),
          lastY_(lattice.sizeY() - 1) {}

    unsigned operator()(Position p) const {
        const unsigned x = columnOf(p), y = rowOf(p);
        if (IsSquare) return x + y + (y << level_);
        return std::min(x, lastX_) + std::min(y, lastY_) * width_;
    }

private:
    unsigned level_, width_, lastX_, lastY_;
};

/// The strip, in an array that grows by factors and is cut to its length at the end.
template <bool IsSquare> class Strip {
public:
    Strip(const Lattice & lattice, unsigned short threshold, std::vector<unsigned> & out, std::size_t limit)
        : isPresent_(lattice, threshold), numbering_(lattice), out_(out), limit_(limit) {
        out_.resize(std::max<std::size_t>(out_.capacity(), s_firstRoom));
        next_ = out_.data();
        end_ = next_ + out_.size();
    }

    /// False when it became longer than allowed.
    bool build(const Window & w) {
        last_ = beforeLast_ = w.a;
        put(w.a);
        put(w.a);
        const unsigned level = 2 * w.depth - 1;
        refine(level, w.centre, w.a, w.b);
        append(w.b, 0);
        refine(level, w.centre, w.b, w.c);
        append(w.c, 0);
        refine(level, w.centre, w.c, w.d);
        append(w.d, 0);
        refine(level, w.centre, w.d, w.a);
        put(w.a);
        const auto length = static_cast<std::size_t>(next_ - out_.data());
        out_.resize(length);
        return length <= limit_;
    }

private:
    static constexpr std::size_t s_firstRoom = 1024;

    /// The triangle with the right angle at `i` and the long edge from `j` to `k`.
    void refine(unsigned level, Position i, Position j, Position k) {
        const Position m = middleOf(j, k);
        const bool isSplit = level != 0 && isPresent_(m) && !isTooLong();
        if (!isSplit) return append(i, level & 1);
        if (level == 1) {
            append(m, 0);
            append(i, 1);
            return append(m, 0);
        }
        refine(level - 1, m, j, i);
        append(i, level & 1);
        refine(level - 1, m, i, k);
    }

    /// Turns are decided on the lattice: positions beyond the raster have the numbers of others, and a strip
    /// that took them for those would lose triangles.
    void append(Position p, unsigned parity) {
        if (p == beforeLast_ || p == last_) return;
        if (parity == parity_) {
            put(beforeLast_);
            last_ = beforeLast_;
        }
        put(p);
        beforeLast_ = last_;
        last_ = p;
        parity_ = parity;
    }

    void put(Position p) {
        if (next_ == end_) grow();
        *next_++ = numbering_(p);
        // Beyond the raster many positions have one number. To and fro again makes no triangle.
        if (!IsSquare && next_ - out_.data() > 4 && next_[-1] == next_[-3] && next_[-2] == next_[-4])
            next_ -= 2;
    }

    void grow() {
        const auto length = static_cast<std::size_t>(next_ - out_.data());
        out_.resize(2 * length);
        next_ = out_.data() + length;
        end_ = out_.data() + out_.size();
    }

    bool isTooLong() const { return static_cast<std::size_t>(next_ - out_.data()) > limit_; }

    Presence isPresent_;
    Numbering<IsSquare> numbering_;
    std::vector<unsigned> & out_;
    std::size_t limit_;
    unsigned *next_ = nullptr, *end_ = nullptr;
    Position beforeLast_ = 0, last_ = 0;
    unsigned parity_ = 1;
};

/// The vertices along one side of a window.
template <bool IsSquare> class Boundary {
public:
    Boundary(const Lattice & lattice, unsigned short threshold, std::vector<unsigned> & out)
        : isPresent_(lattice, threshold), numbering_(lattice), out_(out) {}

    void build(unsigned depth, Position from, Position to) {
        out_.push_back(numbering_(from));
        walk(depth, from, to);
        out_.push_back(numbering_(to));
    }

private:
    void walk(unsigned depth, Position from, Position to) {
        const Position m = middleOf(from, to);
        if (depth == 0 || !isPresent_(m)) return;
        walk(depth - 1, from, m);
        if (const unsigned number = numbering_(m); number != out_.back()) out_.push_back(number);
        walk(depth - 1, m, to);
    }

    Presence isPresent_;
    Numbering<IsSquare> numbering_;
    std::vector<unsigned> & out_;
};

/// The range of heights of a mesh, found without making its strip.
template <bool IsSquare> class Range {
public:
    Range(const Lattice & lattice, unsigned short threshold)
        : isPresent_(lattice, threshold), numbering_(lattice), heights_(lattice.heights()) {}

    void build(const Window & w) {
        for (const Position p : {w.a, w.b, w.c, w.d, w.centre})
            add(p);
        const unsigned level = 2 * w.depth - 1;
        refine(level, w.centre, w.a, w.b);
        refine(level, w.centre, w.b, w.c);
        refine(level, w.centre, w.c, w.d);
        refine(level, w.centre, w.d, w.a);
    }

    unsigned short low() const { return low_; }
    unsigned short high() const { return high_; }

private:
    void refine(unsigned level, Position i, Position j, Position k) {
        const Position m = middleOf(j, k);
        if (!isPresent_(m)) return;
        add(m);
        if (level == 1) return;
        refine(level - 1, m, j, i);
        refine(level - 1, m, i, k);
    }

    void add(Position p) {
        const unsigned short height = heights_[numbering_(p)];
        low_ = std::min(low_, height);
        high_ = std::max(high_, height);
    }

    Presence isPresent_;
    Numbering<IsSquare> numbering_;
    const unsigned short * heights_;
    unsigned short low_ = 65535, high_ = 0;
};

/// The range of heights in the window, row by row: every vertex is present.
std::pair<unsigned short, unsigned short> fullRange(const Lattice & lattice, unsigned x, unsigned y,
                                                    unsigned size) {
    const unsigned lastX = std::min(x + size, lattice.sizeX()) - 1;
    const unsigned lastY = std::min(y + size, lattice.sizeY()) - 1;
    unsigned short low = 65535, high = 0;
    for (unsigned row = std::min(y, lastY); row <= lastY; ++row) {
        const unsigned short * begin = lattice.heights() + lattice.heightIndex(std::min(x, lastX), row);
        const unsigned short * end = lattice.heights() + lattice.heightIndex(lastX, row) + 1;
        for (const unsigned short * height = begin; height != end; ++height) {
            low = std::min(low, *height);
            high = std::max(high, *height);
        }
    }
    return {low, high};
}

template <class Builder>
std::pair<unsigned short, unsigned short> rangeOf(Builder builder, const Window & w) {
    builder.build(w);
    return {builder.low(), builder.high()};
}

} // namespace

bool ChunkedLodMesh::buildMesh(const Lattice & lattice, unsigned x, unsigned y, unsigned size,
                               unsigned short threshold, std::vector<unsigned> & out, std::size_t limit) {
    const Window window(x, y, size);
    if (lattice.isSquare()) return Strip<true>(lattice, threshold, out, limit).build(window);
    return Strip<false>(lattice, threshold, out, limit).build(window);
}

void ChunkedLodMesh::buildBoundary(const Lattice & lattice, unsigned x, unsigned y, unsigned size,
                                   unsigned short threshold, std::vector<unsigned> & out, unsigned side) {
    const Window w(x, y, size);
    const Position corners[] = {w.a, w.d, w.c, w.b, w.a};
    out.clear();
    if (side > S_LowY) {
        NBX_FAILURE(L"unsupported boundary enum");
        return;
    }
    if (lattice.isSquare())
        Boundary<true>(lattice, threshold, out).build(w.depth, corners[side], corners[side + 1]);
    else
        Boundary<false>(lattice, threshold, out).build(w.depth, corners[side], corners[side + 1]);
}

std::pair<unsigned short, unsigned short> ChunkedLodMesh::heightRange(const Lattice & lattice, unsigned x,
                                                                      unsigned y, unsigned size,
                                                                      unsigned short threshold) {
    if (threshold == 0) return fullRange(lattice, x, y, size);
    const Window window(x, y, size);
    if (lattice.isSquare()) return rangeOf(Range<true>(lattice, threshold), window);
    return rangeOf(Range<false>(lattice, threshold), window);
}

} // namespace ZMT::CORE
