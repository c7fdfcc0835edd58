#pragma once

namespace NBX {

/// The size of a rectangle that is to be packed, above 0 in both directions.
struct PackedSize {
    unsigned width, height;
};

/// Where its lower left corner comes to lie.
struct PackedPlace {
    unsigned x = 0, y = 0;
};

} // namespace NBX
