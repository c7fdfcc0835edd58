// E. K. Burke, G. Kendall, G. Whitwell, "A New Placement Heuristic for the Orthogonal Stock-Cutting Problem",
// 2004: the lowest gap of the skyline takes the widest rectangle that fits, next to its higher neighbour.
// Here with a page's end: of one width, the highest that fits is taken. What was taken is skipped by
// short-cuts, as in R. E. Tarjan's union of disjoint sets.

#include "bestfitpacking.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace NBX {

namespace {

/// Follows short-cuts to where one leads to itself, and halves the way for the next time.
std::size_t followed(std::vector<std::size_t> & shortcuts, std::size_t at) {
    while (shortcuts[at] != at) {
        shortcuts[at] = shortcuts[shortcuts[at]];
        at = shortcuts[at];
    }
    return at;
}

std::size_t lowestStep(const Skyline & skyline) {
    std::size_t lowest = 0;
    for (std::size_t i = 1; i < skyline.size(); ++i)
        if (skyline.y(i) < skyline.y(lowest)) lowest = i;
    return lowest;
}

} // namespace

BestFitPacking::BestFitPacking(std::span<const PackedSize> sizes, PackedSize page)
    : sizes_(sizes), page_(page), left_(sizes.size()), leastHeight_(std::numeric_limits<unsigned>::max()),
      order_(sizes.size()), nextLeft_(sizes.size() + 1) {
    std::iota(order_.begin(), order_.end(), 0U);
    std::sort(order_.begin(), order_.end(), [&](unsigned a, unsigned b) {
        if (sizes[a].width != sizes[b].width) return sizes[a].width < sizes[b].width;
        return sizes[a].height != sizes[b].height ? sizes[a].height > sizes[b].height : a < b;
    });
    for (std::size_t i = 0; i < order_.size(); ++i) {
        const PackedSize size = sizes[order_[i]];
        leastHeight_ = std::min(leastHeight_, size.height);
        if (columns_.empty() || columns_.back().width != size.width)
            columns_.push_back({size.width, i, i, 0});
        ++columns_.back().end;
        ++columns_.back().left;
    }
    columnBefore_.resize(columns_.size() + 1);
    std::iota(nextLeft_.begin(), nextLeft_.end(), std::size_t(0));
    std::iota(columnBefore_.begin(), columnBefore_.end(), std::size_t(0));
}

/// The first place of `order_` from `at` on that was not taken.
std::size_t BestFitPacking::firstLeft(std::size_t at) {
    return followed(nextLeft_, at);
}

/// The number behind that of the last column before `behind` that is not empty; 0 when all are.
std::size_t BestFitPacking::columnLeft(std::size_t behind) {
    return followed(columnBefore_, behind);
}

/// The widest, then highest size that fits, which is taken.
std::optional<unsigned> BestFitPacking::take(unsigned width, unsigned height) {
    if (height < leastHeight_) return std::nullopt;
    const auto wider = [](unsigned w, const Column & column) { return w < column.width; };
    const auto firstWider = std::upper_bound(columns_.begin(), columns_.end(), width, wider);
    auto behind = static_cast<std::size_t>(firstWider - columns_.begin());
    while ((behind = columnLeft(behind)) > 0) {
        Column & column = columns_[behind - 1];
        std::size_t at = firstLeft(column.begin);
        if (sizes_[order_[at]].height > height) {
            const auto begin = order_.begin() + static_cast<std::ptrdiff_t>(at);
            const auto end = order_.begin() + static_cast<std::ptrdiff_t>(column.end);
            const auto higher = [this](unsigned i, unsigned h) { return sizes_[i].height > h; };
            at = firstLeft(
                static_cast<std::size_t>(std::lower_bound(begin, end, height, higher) - order_.begin()));
        }
        if (at < column.end) {
            nextLeft_[at] = at + 1;
            if (--column.left == 0) columnBefore_[behind] = behind - 1;
            --left_;
            return order_[at];
        }
        --behind;
    }
    return std::nullopt;
}

std::vector<unsigned> BestFitPacking::fillPage(std::vector<PackedPlace> & places) {
    places.resize(sizes_.size());
    std::vector<unsigned> onPage;
    Skyline skyline(page_.width);
    while (left_ > 0) {
        const std::size_t step = lowestStep(skyline);
        const unsigned x = skyline.x(step), y = skyline.y(step), gap = skyline.width(step);
        const auto number = take(gap, page_.height - y);
        if (!number) {
            if (!skyline.raise(step)) break;
            continue;
        }
        const PackedSize size = sizes_[*number];
        // The border of the page is the highest neighbour.
        const bool isLeft = step == 0 || skyline.y(step - 1) >= skyline.y(step + 1);
        places[*number] = {isLeft ? x : x + gap - size.width, y};
        skyline.cover(step, places[*number].x, places[*number].x + size.width, y + size.height);
        onPage.push_back(*number);
    }
    return onPage;
}

} // namespace NBX
