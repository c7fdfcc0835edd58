#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "packedrectangle.h"
#include "skyline.h"

namespace NBX {

/// Fills one page after the other, each with what suits best of all that is left.
class BestFitPacking {
public:
    /// None of `sizes`, which must outlive this object, is larger than the page.
    BestFitPacking(std::span<const PackedSize> sizes, PackedSize page);

    std::size_t left() const { return left_; }
    /// Fills the next page; the numbers of the sizes that lie on it, whose `places` are set.
    std::vector<unsigned> fillPage(std::vector<PackedPlace> & places);

private:
    /// The sizes of one width, a range of `order_`, from the highest to the lowest.
    struct Column {
        unsigned width;
        std::size_t begin, end, left;
    };

    std::optional<unsigned> take(unsigned width, unsigned height);
    std::size_t firstLeft(std::size_t at);
    std::size_t columnLeft(std::size_t behind);

    std::span<const PackedSize> sizes_;
    PackedSize page_;
    std::size_t left_;
    unsigned leastHeight_;
    std::vector<unsigned> order_; ///< by width, then from the highest to the lowest
    std::vector<Column> columns_; ///< ascending by width
    std::vector<std::size_t>
        nextLeft_; ///< at a place of `order_` that was taken: one nearer to the next left
    std::vector<std::size_t> columnBefore_; ///< behind an empty column: one nearer to the next lower one left
};

} // namespace NBX
