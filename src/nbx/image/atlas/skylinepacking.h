#pragma once

#include <span>
#include <vector>

#include "packedrectangle.h"

namespace NBX {

/// Which of several lowest places is taken.
enum class SkylineTie {
    LeastWaste, ///< the one that buries the least area below it
    Leftmost,
};

/// Packs all of `sizes`, none of which is larger than the page, on one page. False when a way to do so was
/// not found; `places` are of no meaning then. O(n s) with s steps across the page.
bool packOnSkyline(std::span<const PackedSize> sizes, PackedSize page, SkylineTie tie,
                   std::vector<PackedPlace> & places);

} // namespace NBX
