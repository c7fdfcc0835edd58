#include <nbx/engine/pathnavigation.h>

#include <algorithm>

namespace NBX {

NBX_CLASS_IMPL(PathNavigation, Navigation)

PathNavigation::PathNavigation(LookAt * eye, std::vector<Key> keys)
    : Navigation(eye), keys_(std::move(keys)) {
    std::stable_sort(keys_.begin(), keys_.end(),
                     [](const Key & a, const Key & b) { return a.time < b.time; });
}

double PathNavigation::duration() const {
    return keys_.empty() ? 0.0 : keys_.back().time - keys_.front().time;
}

bool PathNavigation::update(double time) {
    if (keys_.empty() || !eye()) return false;
    const auto next = std::upper_bound(keys_.begin(), keys_.end(), time,
                                       [](double moment, const Key & key) { return moment < key.time; });
    const Key & b = next == keys_.end() ? keys_.back() : *next;
    const Key & a = next == keys_.begin() ? b : *std::prev(next);
    const double share = b.time > a.time ? (time - a.time) / (b.time - a.time) : 0.0;
    eye()->setFrom(a.from + (b.from - a.from) * share);
    eye()->setTo(a.to + (b.to - a.to) * share);
    return next != keys_.end();
}

} // namespace NBX
