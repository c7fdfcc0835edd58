// M. Garland, P. Heckbert: Fast Polygonal Approximation of Terrains and Height Fields, 1995, from which the
// scan of a face by rows is taken. Their borders are rounded; here they are exact, so that neighbours miss
// nothing.

#include "facescan.h"

#include <algorithm>
#include <cmath>
#include <utility>

#define ZMT_INLINE __attribute__((always_inline))

namespace ZMT::UTIL {

namespace {

using Corner = FaceScan::Corner;

constexpr int s_lanes = 2;
using Doubles = double __attribute__((vector_size(s_lanes * sizeof(double))));
using Floats = float __attribute__((vector_size(s_lanes * sizeof(float))));

/// The columns where an edge meets the rows, one row after the other, as a whole number and a rest.
class Side {
public:
    Side(const Corner & low, const Corner & high)
        : column_(low.column), rise_(std::max(high.row - low.row, 1)) {
        const std::int32_t run = high.row == low.row ? 0 : high.column - low.column;
        step_ = run / rise_;
        part_ = run % rise_;
        if (part_ < 0) {
            part_ += rise_;
            --step_;
        }
    }

    void next() {
        column_ += step_;
        rest_ += part_;
        if (rest_ < rise_) return;
        rest_ -= rise_;
        ++column_;
    }
    std::int32_t floor() const { return column_; }
    std::int32_t ceil() const { return column_ + (rest_ > 0 ? 1 : 0); }

private:
    std::int32_t column_;
    std::int32_t rise_, step_ = 0, part_ = 0, rest_ = 0;
};

/// Twice the area, positive where the corners turn left.
inline std::int64_t turn(const Corner & a, const Corner & b, const Corner & c) {
    return std::int64_t(b.column - a.column) * (c.row - a.row) -
           std::int64_t(b.row - a.row) * (c.column - a.column);
}

/// Calls `visit(row, first, last)` for the columns of a face, corners left out, row by row upwards;
/// `longIsLeft` tells where the edge from the lowest to the highest corner is. A row may have no columns.
template <bool longIsLeft, class Visit>
ZMT_INLINE inline void visitRows(const Corner & low, const Corner & middle, const Corner & high,
                                 Visit && visit) {
    Side longSide(low, high);
    const auto call = [&](std::int32_t row, const Side & shortSide, int atShort, int atLong) {
        if (longIsLeft)
            visit(row, longSide.ceil() + atLong, shortSide.floor() - atShort);
        else
            visit(row, shortSide.ceil() + atShort, longSide.floor() - atLong);
    };
    if (middle.row > low.row) {
        Side shortSide(low, middle);
        for (std::int32_t row = low.row + 1; row < middle.row; ++row) {
            longSide.next();
            shortSide.next();
            call(row, shortSide, 0, 0);
        }
        longSide.next();
    }
    Side shortSide(middle, high);
    const bool isFlat = middle.row == low.row || middle.row == high.row;
    call(middle.row, shortSide, 1, isFlat ? 1 : 0);
    for (std::int32_t row = middle.row + 1; row < high.row; ++row) {
        longSide.next();
        shortSide.next();
        call(row, shortSide, 0, 0);
    }
}

template <class Visit> ZMT_INLINE inline void visitRows(const FaceScan::Face & face, Visit && visit) {
    const Corner * low = &face.corners[0];
    const Corner * middle = &face.corners[1];
    const Corner * high = &face.corners[2];
    // Which way the corners turn in their order, changes with each exchange of two.
    bool turnsLeft = true;
    const auto sort = [&](const Corner *& a, const Corner *& b) {
        if (a->row <= b->row) return;
        std::swap(a, b);
        turnsLeft = !turnsLeft;
    };
    sort(low, middle);
    sort(middle, high);
    sort(low, middle);
    if (turnsLeft)
        visitRows<true>(*low, *middle, *high, visit);
    else
        visitRows<false>(*low, *middle, *high, visit);
}

/// The largest error so far and its vertex; of equal errors the first vertex counts.
struct LargestError {
    double error;
    std::uint32_t cell = 0;

    /// `count` vertices, the first of which has the number `start`, under a plane that has `height` there.
    /// Four are looked at together, and one by one only where they hold a larger error, which happens seldom.
    ZMT_INLINE void takeRow(const float * vertices, std::size_t start, std::int32_t count, double height,
                            double slope) {
        constexpr std::int32_t s_step = 2 * s_lanes;
        std::int32_t i = 0;
        for (; i + s_step <= count; i += s_step)
            if (isAnyLarger(vertices + i, i, height, slope))
                takeEach(vertices, start, i, i + s_step, height, slope);
        takeEach(vertices, start, i, count, height, slope);
    }

private:
    ZMT_INLINE void takeEach(const float * vertices, std::size_t start, std::int32_t i, std::int32_t end,
                             double height, double slope) {
        for (double step = i; i < end; ++i, step += 1.0) {
            const double found = std::fabs(height + slope * step - double(vertices[i]));
            if (!(found > error)) continue;
            error = found;
            cell = static_cast<std::uint32_t>(start) + static_cast<std::uint32_t>(i);
        }
    }

    ZMT_INLINE bool isAnyLarger(const float * vertices, std::int32_t i, double height, double slope) const {
        const Doubles first = double(i) + Doubles{0.0, 1.0}, second = double(i) + Doubles{2.0, 3.0};
        const Doubles a = distances(vertices, height + slope * first);
        const Doubles b = distances(vertices + s_lanes, height + slope * second);
        const auto larger = (a > error) | (b > error);
        return (larger[0] | larger[1]) != 0;
    }

    ZMT_INLINE static Doubles distances(const float * vertices, Doubles plane) {
        Floats narrow;
        __builtin_memcpy(&narrow, vertices, sizeof narrow);
        const Doubles difference = plane - __builtin_convertvector(narrow, Doubles);
        return difference < 0.0 ? -difference : difference;
    }
};

/// Of a face with three heights.
FaceScan::Worst scanSurface(const float * heights, std::size_t columns, const FaceScan::Face & face,
                            double noise) {
    const Corner &a = face.corners[0], &b = face.corners[1], &c = face.corners[2];
    const double x1 = b.column - a.column, y1 = b.row - a.row, rise1 = b.height - a.height;
    const double x2 = c.column - a.column, y2 = c.row - a.row, rise2 = c.height - a.height;
    const double area = x1 * y2 - x2 * y1;
    if (area == 1.0) return {}; // half a cell: there are no vertices but the corners
    const double inverse = 1.0 / area;
    const double alongRow = (y2 * rise1 - y1 * rise2) * inverse;
    const double alongColumn = (x1 * rise2 - x2 * rise1) * inverse;
    LargestError largest{noise};
    visitRows(face, [&](std::int32_t row, std::int32_t first, std::int32_t last) ZMT_INLINE {
        if (first > last) return;
        const std::size_t start = std::size_t(row) * columns + std::size_t(first);
        __builtin_prefetch(heights + start + 4 * columns); // wanted soon, and far away in the memory
        const double height = a.height + alongColumn * (row - a.row) + alongRow * (first - a.column);
        largest.takeRow(heights + start, start, last - first + 1, height, alongRow);
    });
    if (!(largest.error > noise)) return {};
    return {largest.error, largest.cell};
}

} // namespace

bool FaceScan::isSurface(const Face & face) {
    return !std::isnan(face.corners[0].height + face.corners[1].height + face.corners[2].height);
}

FaceScan::Worst FaceScan::worst(const Face & face) const {
    if (!hasVoids_) return scanSurface(heights_, columns_, face, noise_);
    const bool isHole = !isSurface(face);
    return isHole || hasVoid(face) ? deepest(face, isHole) : scanSurface(heights_, columns_, face, noise_);
}

bool FaceScan::hasVoid(const Face & face) const {
    bool found = false;
    visitRows(face, [&](std::int32_t row, std::int32_t first, std::int32_t last) {
        const float * vertices = heights_ + std::size_t(row) * columns_;
        for (std::int32_t column = first; column <= last && !found; ++column)
            found = std::isnan(vertices[column]);
    });
    return found;
}

FaceScan::Worst FaceScan::deepest(const Face & face, bool isHole) const {
    Worst worst;
    std::int64_t depth = -1;
    visitRows(face, [&](std::int32_t row, std::int32_t first, std::int32_t last) {
        const std::size_t start = std::size_t(row) * columns_;
        for (std::int32_t column = first; column <= last; ++column) {
            if (std::isnan(heights_[start + std::size_t(column)]) == isHole) continue;
            const Corner at{column, row, 0.0};
            std::int64_t least = std::numeric_limits<std::int64_t>::max();
            bool isCovered = false;
            for (unsigned k = 0; k < 3; ++k) {
                const std::int64_t side = turn(face.corners[k], face.corners[(k + 1) % 3], at);
                isCovered = isCovered || (isHole && side == 0 && face.goesOn[k]);
                least = std::min(least, side);
            }
            if (isCovered || least <= depth) continue;
            depth = least;
            worst = {Worst::s_outline, static_cast<std::uint32_t>(start + std::size_t(column))};
        }
    });
    return worst;
}

} // namespace ZMT::UTIL
