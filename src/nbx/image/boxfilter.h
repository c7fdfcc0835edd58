#pragma once

#include <cstddef>
#include <cstdint>

namespace NBX {

/// Two lines of pixels of `N` bytes to one of half the width, `width` pixels: of each two by two the average,
/// rounded to the nearest, halves upwards. `right` is the distance of the second pixel of a pair in bytes, 0
/// where the source is one pixel wide. Every byte counts by itself: this is no filter for colours that are to
/// be weighted by an alpha beside them.
template <std::size_t N>
void halveLine(const std::uint8_t * lower, const std::uint8_t * upper, std::size_t right, std::uint8_t * to,
               int width) {
    for (int x = 0; x < width; ++x, lower += 2 * N, upper += 2 * N)
        for (std::size_t c = 0; c < N; ++c)
            *to++ = static_cast<std::uint8_t>(
                (lower[c] + lower[c + right] + upper[c] + upper[c + right] + 2) >> 2);
}

/// The same with a number of layers from 1 to 4 that is not known before.
inline void halveLine(int layers, const std::uint8_t * lower, const std::uint8_t * upper, std::size_t right,
                      std::uint8_t * to, int width) {
    switch (layers) {
    case 1:
        return halveLine<1>(lower, upper, right, to, width);
    case 2:
        return halveLine<2>(lower, upper, right, to, width);
    case 3:
        return halveLine<3>(lower, upper, right, to, width);
    default:
        return halveLine<4>(lower, upper, right, to, width);
    }
}

} // namespace NBX
