// I. Wald, "On fast Construction of SAH-based Bounding Volume Hierarchies", 2007: boxes are split where the
// surface area heuristic over bins of their centres costs least, then boxes in twos become boxes in eights.
// They are wider than what was given by more than the rounding of the tests, so that a flat roof is not
// missed by its flat box.

#include "boxhierarchy.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace NBX {

namespace {

constexpr unsigned s_bins = 12;
/// Leaves that a test of a box costs.
constexpr float s_boxCost = 1.0F;
/// Of the largest coordinate.
constexpr float s_margin = 3e-6F;

template <class Box> float centerOf(const Box & box, unsigned axis) {
    return 0.5F * (box.low[axis] + box.high[axis]);
}

struct Extent {
    std::array<float, 3> low, high;

    Extent() {
        low.fill(std::numeric_limits<float>::infinity());
        high.fill(-std::numeric_limits<float>::infinity());
    }
    template <class Other> void add(const Other & other) {
        for (unsigned axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], other.low[axis]);
            high[axis] = std::max(high[axis], other.high[axis]);
        }
    }
};

/// Half of the surface; 0 for an empty one.
template <class Box> float areaOf(const Box & box) {
    if (box.low[0] > box.high[0]) return 0.0F;
    const float x = box.high[0] - box.low[0], y = box.high[1] - box.low[1], z = box.high[2] - box.low[2];
    return x * y + y * z + z * x;
}

BoxHierarchy::Box around(const std::vector<BoxHierarchy::Box> & boxes, std::size_t begin, std::size_t end,
                         float margin) {
    Extent extent;
    for (std::size_t i = begin; i < end; ++i)
        extent.add(boxes[i]);
    for (unsigned axis = 0; axis < 3; ++axis) {
        extent.low[axis] -= margin;
        extent.high[axis] += margin;
    }
    return {extent.low, extent.high, 0};
}

bool isFinite(const Vector3Base<double> & v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

} // namespace

BoxRay::BoxRay(const Ray & ray) : origin_(ray.getOrigin()) {
    const Vector3Base<double> & direction = ray.getDirection();
    if (!isFinite(origin_) || !isFinite(direction)) return;
    // Scaled first, as squares of very long and very short directions are no numbers.
    const double largest = std::max({std::abs(direction.x), std::abs(direction.y), std::abs(direction.z)});
    if (!(largest > 0.0)) return;
    const Vector3Base<double> scaled = direction / largest;
    along_ = scaled.normalized();
    length_ = scaled.length() * largest;
    isUsable_ = true;
    // Along an axis on which it hardly moves, the ray is between two sides always or never. The number is
    // finite, as 0 times infinity is nothing.
    constexpr double never = 1e25;
    for (unsigned axis = 0; axis < 3; ++axis) {
        inverse_[axis] = 1.0 / along_[axis];
        isBackward_[axis] = along_[axis] < -1.0 / never ? 1 : 0;
        finiteInverse_[axis] = float(std::abs(along_[axis]) > 1.0 / never ? inverse_[axis] : never);
    }
}

BoxHierarchy::BoxHierarchy(std::vector<Box> boxes, unsigned leafSize, const AddLeaf & addLeaf)
    : leafSize_(std::max(leafSize, 1U)) {
    if (boxes.empty()) return;
    float largest = 0.0F;
    for (const Box & box : boxes)
        for (unsigned axis = 0; axis < 3; ++axis)
            largest = std::max({largest, std::abs(box.low[axis]), std::abs(box.high[axis])});
    const std::vector<Pair> pairs = pairsOf(boxes, largest * s_margin);
    all_ = pairs.front().box;
    std::uint32_t leaves = 0;
    widen(pairs, [&](const Pair & leaf) {
        addLeaf(&boxes[leaf.first], leaf.count);
        return leaves++;
    });
}

auto BoxHierarchy::bestSplit(const std::vector<Box> & boxes, std::size_t begin, std::size_t end) const
    -> Split {
    // A leaf costs the same however few are in it.
    const auto leavesOf = [&](std::size_t count) {
        const std::size_t leaves = (count + leafSize_ - 1) / leafSize_;
        return float(leaves);
    };
    Extent whole, centers;
    for (std::size_t i = begin; i < end; ++i) {
        whole.add(boxes[i]);
        Extent center;
        for (unsigned axis = 0; axis < 3; ++axis)
            center.low[axis] = center.high[axis] = centerOf(boxes[i], axis);
        centers.add(center);
    }
    Split best{0, 0.0F, false};
    float leastCost = areaOf(whole) * leavesOf(end - begin);
    for (unsigned axis = 0; axis < 3; ++axis) {
        const float low = centers.low[axis], width = centers.high[axis] - low;
        if (!(width > 0.0F)) continue;
        std::array<Extent, s_bins> bins;
        std::array<std::size_t, s_bins> counts{};
        for (std::size_t i = begin; i < end; ++i) {
            const auto bin =
                std::min(unsigned((centerOf(boxes[i], axis) - low) / width * s_bins), s_bins - 1);
            bins[bin].add(boxes[i]);
            ++counts[bin];
        }
        std::array<float, s_bins> costsAbove{};
        Extent above;
        std::size_t count = 0;
        for (unsigned bin = s_bins - 1; bin > 0; --bin) {
            above.add(bins[bin]);
            count += counts[bin];
            costsAbove[bin] = areaOf(above) * leavesOf(count);
        }
        Extent below;
        count = 0;
        for (unsigned bin = 1; bin < s_bins; ++bin) {
            below.add(bins[bin - 1]);
            count += counts[bin - 1];
            const float cost = areaOf(below) * leavesOf(count) + costsAbove[bin] + areaOf(whole) * s_boxCost;
            if (cost < leastCost) {
                leastCost = cost;
                best = {axis, low + width * float(bin) / s_bins, true};
            }
        }
    }
    return best;
}

auto BoxHierarchy::pairsOf(std::vector<Box> & boxes, float margin) const -> std::vector<Pair> {
    struct Open {
        std::size_t pair;
        unsigned depth;
    };
    const auto pairAround = [&](std::size_t begin, std::size_t end) {
        return Pair{around(boxes, begin, end, margin), std::uint32_t(begin), std::uint32_t(end - begin)};
    };
    std::vector<Pair> pairs{pairAround(0, boxes.size())};
    std::vector<Open> open{{0, 1}};
    while (!open.empty()) {
        const Open next = open.back();
        open.pop_back();
        const std::size_t begin = pairs[next.pair].first, end = begin + pairs[next.pair].count;
        if (end - begin <= leafSize_) continue;
        const auto at = [&](std::size_t i) { return boxes.begin() + std::ptrdiff_t(i); };
        std::size_t middle = begin + (end - begin) / 2;
        const Split split = bestSplit(boxes, begin, end);
        if (next.depth < s_mostDepth / 2 && split.isWorthIt) {
            const auto isBelow = [&](const Box & box) { return centerOf(box, split.axis) < split.place; };
            middle = std::size_t(std::partition(at(begin), at(end), isBelow) - boxes.begin());
        }
        // Halves by number where no place is worth it: they stay short enough for the depth.
        if (middle == begin || middle == end) middle = begin + (end - begin) / 2;
        pairs[next.pair].first = std::uint32_t(pairs.size());
        pairs[next.pair].count = 0;
        pairs.push_back(pairAround(begin, middle));
        pairs.push_back(pairAround(middle, end));
        open.push_back({pairs.size() - 2, next.depth + 1});
        open.push_back({pairs.size() - 1, next.depth + 1});
    }
    return pairs;
}

/// From the root on, the largest of the boxes in a node gives way to the two in it, until there are eight.
void BoxHierarchy::widen(const std::vector<Pair> & pairs,
                         const std::function<std::uint32_t(const Pair &)> & leafOf) {
    struct Open {
        std::uint32_t pair, node;
    };
    nodes_.emplace_back();
    std::vector<Open> open{{0, 0}};
    while (!open.empty()) {
        const Open next = open.back();
        open.pop_back();
        std::vector<std::uint32_t> children{next.pair};
        for (bool isOpened = true; isOpened && children.size() < s_width;) {
            isOpened = false;
            std::size_t largest = 0;
            for (std::size_t i = 0; i < children.size(); ++i) {
                if (pairs[children[i]].count > 0) continue;
                if (!isOpened || areaOf(pairs[children[i]].box) > areaOf(pairs[children[largest]].box))
                    largest = i;
                isOpened = true;
            }
            if (!isOpened) break;
            const std::uint32_t first = pairs[children[largest]].first;
            children[largest] = first;
            children.push_back(first + 1);
        }
        Node node{};
        for (auto & [low, high] : node.sides) {
            low.fill(Lanes{} + std::numeric_limits<float>::infinity());
            high.fill(Lanes{} - std::numeric_limits<float>::infinity());
        }
        for (unsigned lane = 0; lane < children.size(); ++lane) {
            const Pair & child = pairs[children[lane]];
            for (unsigned axis = 0; axis < 3; ++axis) {
                node.sides[axis][0][lane / s_lanes][lane % s_lanes] = child.box.low[axis];
                node.sides[axis][1][lane / s_lanes][lane % s_lanes] = child.box.high[axis];
            }
            node.children[lane] = child.count > 0 ? leafOf(child) | s_isLeaf : std::uint32_t(nodes_.size());
            if (child.count > 0) continue;
            open.push_back({children[lane], std::uint32_t(nodes_.size())});
            nodes_.emplace_back();
        }
        nodes_[next.node] = node;
    }
    nodes_.shrink_to_fit();
}

BoxHierarchy::Test::Test(const BoxRay & ray, const Box & all)
    : isBackward_(ray.isBackward()), length_(ray.length()) {
    if (!ray.isUsable()) return;
    const Vector3Base<double> &from = ray.origin(), &along = ray.along();
    double enter = 0.0, leave = std::numeric_limits<double>::max();
    for (unsigned axis = 0; axis < 3; ++axis) {
        if (!std::isfinite(ray.inverse()[axis])) {
            if (!(from[axis] >= all.low[axis] && from[axis] <= all.high[axis])) return;
            continue;
        }
        const double a = (all.low[axis] - from[axis]) * ray.inverse()[axis];
        const double b = (all.high[axis] - from[axis]) * ray.inverse()[axis];
        enter = std::max(enter, std::min(a, b));
        leave = std::min(leave, std::max(a, b));
    }
    if (!(enter <= leave)) return;
    meets_ = true;
    start_ = enter;
    for (unsigned axis = 0; axis < 3; ++axis) {
        origin_[axis] = Lanes{} + float(from[axis] + along[axis] * enter);
        inverse_[axis] = Lanes{} + ray.finiteInverse()[axis];
    }
}

} // namespace NBX
