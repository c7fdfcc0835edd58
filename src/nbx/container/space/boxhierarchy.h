#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <vector>

#include <nbx/math/ray.h>

namespace NBX {

/// A ray with what its tests against boxes have in common: its direction has the length 1.
class BoxRay {
public:
    explicit BoxRay(const Ray & ray);

    /// Whether it is finite and goes somewhere; else it meets nothing.
    bool isUsable() const { return isUsable_; }
    const Vector3Base<double> & origin() const { return origin_; }
    const Vector3Base<double> & along() const { return along_; }
    /// Units of distance in one of the ray's parameter.
    double length() const { return length_; }
    /// One by the direction; not finite where it hardly moves along the axis.
    const std::array<double, 3> & inverse() const { return inverse_; }
    /// The same, but finite.
    const std::array<float, 3> & finiteInverse() const { return finiteInverse_; }
    /// By axis 1 where it goes to smaller coordinates, else 0.
    const std::array<std::uint8_t, 3> & isBackward() const { return isBackward_; }

private:
    Vector3Base<double> origin_, along_;
    double length_ = 0.0;
    std::array<double, 3> inverse_{};
    std::array<float, 3> finiteInverse_{};
    std::array<std::uint8_t, 3> isBackward_{};
    bool isUsable_ = false;
};

/// Boxes within boxes, for rays: each box that a ray enters is found, and some that it passes closely.
/// Immutable.
class BoxHierarchy {
public:
    /// Asks memory for what will be needed soon: most of the time of a ray is waiting for memory.
    template <class T> static void fetchAhead(const T & object) {
        constexpr unsigned line = 64;
        for (unsigned i = 0; i < sizeof(T); i += line)
            __builtin_prefetch(reinterpret_cast<const char *>(&object) + i);
    }

    struct Box {
        std::array<float, 3> low, high;
        std::uint32_t number; ///< the caller's
    };
    /// Takes the boxes of a leaf. Leaves are numbered from 0 on in the order of the calls.
    using AddLeaf = std::function<void(const Box * first, unsigned count)>;

    BoxHierarchy() = default;
    /// `boxes` are finite; up to `leafSize` of them come into a leaf.
    BoxHierarchy(std::vector<Box> boxes, unsigned leafSize, const AddLeaf & addLeaf);

    /// Leads `ray` through the leaves, near ones first. `visit(leaf)` gives the parameter beyond which leaves
    /// need no visit any more; before the first one that is `limit`. `prefetch(leaf)` tells that a visit may
    /// come.
    template <class Visit, class Prefetch>
    void visit(const BoxRay & ray, double limit, const Visit & visit, const Prefetch & prefetch) const;

    /// Asks memory for what a visit begins with.
    void fetchAhead() const {
        if (!nodes_.empty()) fetchAhead(nodes_.front());
    }

    std::size_t bytes() const { return nodes_.capacity() * sizeof(Node); }

private:
    static constexpr unsigned s_lanes = 4;
    static constexpr unsigned s_width = 8;
    using Lanes = float __attribute__((vector_size(s_lanes * sizeof(float))));
    using Row = std::array<Lanes, s_width / s_lanes>;
    /// No branch of the boxes in twos is longer: below half of it, they are halved by number.
    static constexpr unsigned s_mostDepth = 64;
    static constexpr unsigned s_mostWaiting = s_mostDepth * (s_width - 1) + 1;
    static constexpr std::uint32_t s_isLeaf = 1U << 31U;

    /// Boxes, or two nodes, which lie behind each other from `first` on.
    struct Pair {
        Box box;
        std::uint32_t first, count; ///< `count` is 0 for two nodes
    };
    /// Up to eight boxes in one. What is in a lane is the node of that number, or a leaf with `s_isLeaf`; a
    /// lane without anything has a box that no ray meets.
    struct Node {
        std::array<std::array<Row, 2>, 3> sides; ///< by axis: the low ones, the high ones
        std::array<std::uint32_t, s_width> children;
    };
    struct Split {
        unsigned axis;
        float place;
        bool isWorthIt;
    };

    /// A ray as it goes on from the box of all, so that floats suffice.
    class Test {
    public:
        Test(const BoxRay & ray, const Box & all);

        bool meets() const { return meets_; }
        /// The lanes whose boxes are entered no later than `most`, as bits, and where they are entered.
        unsigned enter(const Node & node, float most, std::array<float, s_width> & enters) const;
        /// A parameter of the ray as a distance from where it goes on, somewhat too large.
        float distanceOf(double parameter) const {
            constexpr double slack = 1e-5;
            constexpr double most = std::numeric_limits<float>::max();
            const double distance = parameter * length_ - start_;
            const double larger = distance + std::abs(distance) * slack + start_ * slack;
            return larger <= most ? float(larger) : float(most);
        }

    private:
        std::array<Lanes, 3> origin_, inverse_;
        std::array<std::uint8_t, 3> isBackward_;
        double start_ = 0.0, length_;
        bool meets_ = false;
    };

    std::vector<Pair> pairsOf(std::vector<Box> & boxes, float margin) const;
    Split bestSplit(const std::vector<Box> & boxes, std::size_t begin, std::size_t end) const;
    void widen(const std::vector<Pair> & pairs, const std::function<std::uint32_t(const Pair &)> & leafOf);

    unsigned leafSize_ = 1;
    Box all_{};
    std::vector<Node> nodes_;
};

inline unsigned BoxHierarchy::Test::enter(const Node & node, float most,
                                          std::array<float, s_width> & enters) const {
    unsigned bits = 0;
#pragma GCC unroll 2
    for (unsigned part = 0; part < s_width / s_lanes; ++part) {
        Lanes enter = {}, leave = enter + most;
#pragma GCC unroll 3
        for (unsigned axis = 0; axis < 3; ++axis) {
            const auto & sides = node.sides[axis];
            const Lanes near = (sides[isBackward_[axis]][part] - origin_[axis]) * inverse_[axis];
            const Lanes far = (sides[1U - isBackward_[axis]][part] - origin_[axis]) * inverse_[axis];
            enter = near > enter ? near : enter;
            leave = far < leave ? far : leave;
        }
        std::memcpy(enters.data() + std::size_t{part} * s_lanes, &enter, sizeof enter);
        const auto isMet = enter <= leave;
#ifdef __SSE__
        bits |= unsigned(__builtin_ia32_movmskps(reinterpret_cast<Lanes>(isMet))) << part * s_lanes;
#else
        for (unsigned lane = 0; lane < s_lanes; ++lane)
            bits |= (isMet[lane] ? 1U : 0U) << (part * s_lanes + lane);
#endif
    }
    return bits;
}

template <class Visit, class Prefetch>
void BoxHierarchy::visit(const BoxRay & ray, double limit, const Visit & visit,
                         const Prefetch & prefetch) const {
    if (nodes_.empty()) return;
    const Test test(ray, all_);
    if (!test.meets()) return;
    struct Waiting {
        std::uint32_t child;
        float enter;
    };
    std::array<Waiting, s_mostWaiting> stack;
    unsigned waiting = 0;
    stack[waiting++] = {0, 0.0F};
    float most = test.distanceOf(limit);
    while (waiting > 0) {
        const Waiting next = stack[--waiting];
        if (!(next.enter <= most)) continue;
        if ((next.child & s_isLeaf) != 0) {
            const double nearer = visit(next.child & ~s_isLeaf);
            if (nearer < limit) most = test.distanceOf(limit = nearer);
            continue;
        }
        const Node & node = nodes_[next.child];
        std::array<float, s_width> enters;
        const unsigned before = waiting;
        for (unsigned met = test.enter(node, most, enters); met != 0; met &= met - 1) {
            const auto lane = unsigned(__builtin_ctz(met));
            // The nearest stays at the end.
            unsigned at = waiting++;
            for (; at > before && stack[at - 1].enter < enters[lane]; --at)
                stack[at] = stack[at - 1];
            stack[at] = {node.children[lane], enters[lane]};
            if ((node.children[lane] & s_isLeaf) != 0)
                prefetch(node.children[lane] & ~s_isLeaf);
            else
                fetchAhead(nodes_[node.children[lane]]);
        }
    }
}

} // namespace NBX
