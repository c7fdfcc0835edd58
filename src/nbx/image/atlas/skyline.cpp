#include "skyline.h"

#include <algorithm>
#include <array>

namespace NBX {

void Skyline::cover(std::size_t first, unsigned x, unsigned end, unsigned top) {
    std::size_t behind = first + 1;
    while (steps_[behind].x < end)
        ++behind;
    // What stays of the first step, the cover, and what stays of the last one.
    std::array<Step, 3> fresh;
    std::size_t count = 0;
    if (steps_[first].x < x) fresh[count++] = steps_[first];
    const std::size_t covered = first + count;
    fresh[count++] = {x, top};
    if (end < steps_[behind].x) fresh[count++] = {end, steps_[behind - 1].y};

    const std::size_t reused = std::min(count, behind - first);
    const auto at = steps_.begin() + static_cast<std::ptrdiff_t>(first);
    const auto rest = std::copy_n(fresh.begin(), reused, at);
    if (reused < count)
        steps_.insert(rest, fresh.begin() + reused, fresh.begin() + count);
    else
        steps_.erase(rest, steps_.begin() + static_cast<std::ptrdiff_t>(behind));
    join(covered);
}

void Skyline::join(std::size_t i) {
    const auto erase = [this](std::size_t k) {
        steps_.erase(steps_.begin() + static_cast<std::ptrdiff_t>(k));
    };
    if (i + 1 < size() && steps_[i + 1].y == steps_[i].y) erase(i + 1);
    if (i > 0 && steps_[i - 1].y == steps_[i].y) erase(i);
}

bool Skyline::raise(std::size_t i) {
    if (size() == 1) return false;
    const unsigned left = i > 0 ? steps_[i - 1].y : steps_.back().y;
    const unsigned right = steps_[i + 1].y;
    steps_[i].y = std::min(left, right);
    join(i);
    return true;
}

} // namespace NBX
