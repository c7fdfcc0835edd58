// J. Jylänki, "A Thousand Ways to Pack the Bin", 2010: skyline, bottom left, from the highest rectangle to
// the lowest.

#include "skylinepacking.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <numeric>
#include <optional>

#include "skyline.h"

namespace NBX {

namespace {

struct Spot {
    std::size_t step;
    unsigned y;
    std::uint64_t waste;
};

/// The spot at the left end of step `i`, unless it lies higher than `highest`.
std::optional<Spot> spotAt(const Skyline & skyline, std::size_t i, unsigned width, unsigned highest,
                           SkylineTie tie) {
    const unsigned end = skyline.x(i) + width;
    Spot spot{i, skyline.y(i), 0};
    std::size_t behind = i + 1;
    for (; skyline.x(behind) < end; ++behind)
        spot.y = std::max(spot.y, skyline.y(behind));
    if (spot.y > highest) return std::nullopt;
    if (tie == SkylineTie::LeastWaste)
        for (std::size_t k = i; k < behind; ++k)
            spot.waste +=
                std::uint64_t(spot.y - skyline.y(k)) * (std::min(end, skyline.x(k + 1)) - skyline.x(k));
    return spot;
}

/// The lowest one.
std::optional<Spot> bestSpot(const Skyline & skyline, PackedSize size, PackedSize page, SkylineTie tie) {
    std::optional<Spot> best;
    unsigned highest = page.height - size.height;
    for (std::size_t i = 0; i < skyline.size() && size.width <= page.width - skyline.x(i); ++i) {
        if (skyline.y(i) > highest) continue;
        const auto spot = spotAt(skyline, i, size.width, highest, tie);
        if (!spot || (best && spot->y == best->y && spot->waste >= best->waste)) continue;
        best = spot;
        highest = spot->y;
    }
    return best;
}

} // namespace

bool packOnSkyline(std::span<const PackedSize> sizes, PackedSize page, SkylineTie tie,
                   std::vector<PackedPlace> & places) {
    std::vector<unsigned> order(sizes.size());
    std::iota(order.begin(), order.end(), 0U);
    std::sort(order.begin(), order.end(), [&](unsigned a, unsigned b) {
        const PackedSize p = sizes[a], q = sizes[b];
        if (p.height != q.height) return p.height > q.height;
        return p.width != q.width ? p.width > q.width : a < b;
    });
    places.resize(sizes.size());
    Skyline skyline(page.width);
    for (const unsigned i : order) {
        const auto spot = bestSpot(skyline, sizes[i], page, tie);
        if (!spot) return false;
        places[i] = {skyline.x(spot->step), spot->y};
        skyline.cover(spot->step, places[i].x, places[i].x + sizes[i].width, spot->y + sizes[i].height);
    }
    return true;
}

} // namespace NBX
