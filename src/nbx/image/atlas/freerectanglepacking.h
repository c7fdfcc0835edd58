#pragma once

#include <span>
#include <vector>

#include "packedrectangle.h"

namespace NBX {

/// As `packOnSkyline`, closer and slower: O(n f^2) with f free rectangles, about as many as lie side by side
/// on the border.
bool packInFreeRectangles(std::span<const PackedSize> sizes, PackedSize page,
                          std::vector<PackedPlace> & places);

} // namespace NBX
