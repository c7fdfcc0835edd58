#pragma once

#include <algorithm>
#include <cstdint>

namespace ZMT::CORE {

/// A triangle whose corners have whole coordinates, counter-clockwise with columns to the right and rows
/// upwards.
struct LatticeTriangle {
    struct Corner {
        std::int64_t column, row;
    };

    Corner corners[3];

    /// Calls `visit(row, first, last)` with the columns that lie in the triangle or on its border, row by
    /// row; exact. `first` is beyond `last` in a row without any.
    template <class Visit> void forEachRow(Visit visit) const {
        const auto [low, high] = std::minmax({corners[0].row, corners[1].row, corners[2].row});
        for (std::int64_t row = low; row <= high; ++row) {
            std::int64_t first = INT64_MIN, last = INT64_MAX;
            for (unsigned k = 0; k < 3; ++k)
                clipRow(row, corners[k], corners[(k + 1) % 3], first, last);
            visit(row, first, last);
        }
    }

private:
    static std::int64_t floorDivide(std::int64_t a, std::int64_t b) {
        // Divisions of 64 bits take several times as long.
        const bool isShort = a == std::int32_t(a) && b == std::int32_t(b);
        const std::int64_t q = isShort ? std::int32_t(a) / std::int32_t(b) : a / b;
        return q * b > a ? q - 1 : q;
    }

    /// Narrows the columns of a row to those that are not right of the edge from `a` to `b`.
    static void clipRow(std::int64_t row, const Corner & a, const Corner & b, std::int64_t & first,
                        std::int64_t & last) {
        const std::int64_t rise = b.row - a.row;
        if (rise == 0) {
            if (row != a.row) return;
            first = std::max(first, std::min(a.column, b.column));
            last = std::min(last, std::max(a.column, b.column));
            return;
        }
        const std::int64_t run = (row - a.row) * (b.column - a.column);
        if (rise > 0)
            last = std::min(last, row == b.row ? b.column : a.column + floorDivide(run, rise));
        else
            first = std::max(first, row == b.row ? b.column : a.column - floorDivide(run, -rise));
    }
};

} // namespace ZMT::CORE
