#pragma once

#include <cstddef>
#include <limits>
#include <vector>

namespace NBX {

/// The upper border of what lies on an area: steps from left to right, each of them flat, neighbours at
/// different heights. A step without end stands behind the last one.
class Skyline {
public:
    explicit Skyline(unsigned width) : steps_{{0, 0}, {width, std::numeric_limits<unsigned>::max()}} {}

    std::size_t size() const { return steps_.size() - 1; }
    /// Of a step, up to that at `size()`.
    unsigned x(std::size_t i) const { return steps_[i].x; }
    unsigned y(std::size_t i) const { return steps_[i].y; }
    unsigned width(std::size_t i) const { return steps_[i + 1].x - steps_[i].x; }

    /// The border lies at `top` from `x`, on step `first`, up to `end`.
    void cover(std::size_t first, unsigned x, unsigned end, unsigned top);
    /// Gives a step up: it rises to the lower one of its neighbours. False when it has none.
    bool raise(std::size_t i);

private:
    struct Step {
        unsigned x, y;
    };

    void join(std::size_t i);

    std::vector<Step> steps_;
};

} // namespace NBX
