// J. Jylänki, "A Thousand Ways to Pack the Bin", 2010: maximal free rectangles, bottom left.

#include "freerectanglepacking.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <tuple>

namespace NBX {

namespace {

struct Free {
    unsigned x, y, width, height;

    unsigned right() const { return x + width; }
    unsigned top() const { return y + height; }
    bool overlaps(const Free & o) const {
        return x < o.right() && o.x < right() && y < o.top() && o.y < top();
    }
    bool contains(const Free & o) const {
        return x <= o.x && y <= o.y && o.right() <= right() && o.top() <= top();
    }
};

/// What is left of `free` beside, below and above `used`.
void appendParts(const Free & free, const Free & used, std::vector<Free> & parts) {
    if (free.x < used.x) parts.push_back({free.x, free.y, used.x - free.x, free.height});
    if (used.right() < free.right())
        parts.push_back({used.right(), free.y, free.right() - used.right(), free.height});
    if (free.y < used.y) parts.push_back({free.x, free.y, free.width, used.y - free.y});
    if (used.top() < free.top()) parts.push_back({free.x, used.top(), free.width, free.top() - used.top()});
}

/// Takes `used` out of the free rectangles. They stay maximal: none lies within another one.
void use(std::vector<Free> & frees, const Free & used) {
    std::vector<Free> parts;
    std::erase_if(frees, [&](const Free & free) {
        if (!free.overlaps(used)) return false;
        appendParts(free, used, parts);
        return true;
    });
    // A rectangle that was not touched cannot lie within a part of another one.
    const std::size_t untouched = frees.size();
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const auto holds = [&](const Free & other) { return other.contains(parts[i]); };
        if (std::any_of(frees.begin(), frees.begin() + static_cast<std::ptrdiff_t>(untouched), holds))
            continue;
        bool isWithin = false;
        for (std::size_t k = 0; k < parts.size() && !isWithin; ++k)
            isWithin = k != i && holds(parts[k]);
        if (!isWithin) frees.push_back(parts[i]);
    }
}

} // namespace

bool packInFreeRectangles(std::span<const PackedSize> sizes, PackedSize page,
                          std::vector<PackedPlace> & places) {
    const auto area = [&](unsigned i) { return std::uint64_t(sizes[i].width) * sizes[i].height; };
    std::vector<unsigned> order(sizes.size());
    std::iota(order.begin(), order.end(), 0U);
    std::sort(order.begin(), order.end(), [&](unsigned a, unsigned b) {
        if (sizes[a].height != sizes[b].height) return sizes[a].height > sizes[b].height;
        return area(a) != area(b) ? area(a) > area(b) : a < b;
    });
    places.resize(sizes.size());
    std::vector<Free> frees = {{0, 0, page.width, page.height}};
    for (const unsigned i : order) {
        const Free * best = nullptr;
        for (const Free & free : frees) {
            if (sizes[i].width > free.width || sizes[i].height > free.height) continue;
            if (!best || std::tie(free.y, free.x) < std::tie(best->y, best->x)) best = &free;
        }
        if (!best) return false;
        places[i] = {best->x, best->y};
        use(frees, {best->x, best->y, sizes[i].width, sizes[i].height});
    }
    return true;
}

} // namespace NBX
