#pragma once

#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "nbx/image/atlas/packedrectangle.h"

/// Sizes with sides from `least` to `most`, whose areas add up to at most `area`.
inline std::vector<NBX::PackedSize> randomSizes(std::mt19937 & random, unsigned least, unsigned most,
                                                std::uint64_t area) {
    std::uniform_int_distribution<unsigned> side(least, most);
    std::vector<NBX::PackedSize> sizes;
    for (std::uint64_t sum = 0;;) {
        const unsigned width = side(random), height = side(random);
        sum += std::uint64_t(width) * height;
        if (sum > area) return sizes;
        sizes.push_back({width, height});
    }
}

/// What is wrong with places on a page; nothing when all is right. `isPlaced` is asked by number.
template <class IsPlaced>
std::string faultOfPlaces(std::span<const NBX::PackedSize> sizes,
                          const std::vector<NBX::PackedPlace> & places, NBX::PackedSize page,
                          IsPlaced isPlaced) {
    std::vector<int> covered(std::size_t(page.width) * page.height, -1);
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        if (!isPlaced(i)) continue;
        const NBX::PackedPlace place = places.at(i);
        if (place.x > page.width || sizes[i].width > page.width - place.x || place.y > page.height ||
            sizes[i].height > page.height - place.y)
            return std::to_string(i) + " reaches beyond the page";
        for (unsigned y = 0; y < sizes[i].height; ++y)
            for (unsigned x = 0; x < sizes[i].width; ++x) {
                int & cell = covered[std::size_t(place.y + y) * page.width + place.x + x];
                if (cell >= 0) return std::to_string(i) + " overlaps " + std::to_string(cell);
                cell = static_cast<int>(i);
            }
    }
    return {};
}

inline std::string faultOfPlaces(std::span<const NBX::PackedSize> sizes,
                                 const std::vector<NBX::PackedPlace> & places, NBX::PackedSize page) {
    return faultOfPlaces(sizes, places, page, [](std::size_t) { return true; });
}
