#include "tilesamples.h"

#include <algorithm>
#include <cstddef>

// Heights become numbers in registers that hold several, rounded in the same way.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC optimize("O3")
#endif

namespace ZMT::CORE::GRID {

using namespace TerrainFileFormat;

namespace {

constexpr double s_units = 65534.0;

/// Without a branch for each height. NaN becomes 0.
template <class Height>
void quantise(const HeightScale & scale, const Height * heights, std::uint32_t count,
              std::uint16_t * values) {
    const double low = scale.minHeight, step = scale.step;
    for (std::uint32_t i = 0; i < count; ++i) {
        const double height = heights[i];
        // Comparisons with NaN are false.
        double unit = (height - low) / step + 1.5;
        unit = unit > 1.0 ? unit : 1.0;
        unit = unit < double(TerrainFileFormat::maxHeight) ? unit : double(TerrainFileFormat::maxHeight);
        values[i] = height == height ? static_cast<std::uint16_t>(static_cast<int>(unit)) : 0;
    }
}

} // namespace

HeightScale HeightScale::ofRange(double minHeight, double maxHeight) {
    return {minHeight, maxHeight > minHeight ? (maxHeight - minHeight) / s_units : 1.0};
}

std::uint16_t HeightScale::quantised(double height) const {
    std::uint16_t value = 0;
    quantise(*this, &height, 1, &value);
    return value;
}

TileSamples TileSamples::quantised(const TilePlace & place, const LatticeRows & rows,
                                   const HeightScale & scale) {
    TileSamples tile;
    tile.place = place;
    tile.block.resize(blockSize(place.tileLevel) / 2);
    const std::uint32_t side = samplesPerSide(place.tileLevel);
    // Positions reach 2^31.
    const std::uint32_t firstX = std::max(place.tileX, rows.area.minX);
    const std::uint32_t firstY = std::max(place.tileY, rows.area.minY);
    const std::uint32_t endX = std::min(place.tileX + side, rows.area.maxX + 1);
    const std::uint32_t endY = std::min(place.tileY + side, rows.area.maxY + 1);
    for (std::uint32_t y = firstY; rows.heights && firstX < endX && y < endY; ++y) {
        const float * const from =
            rows.heights + std::size_t(y - rows.area.minY) * rows.area.width() + (firstX - rows.area.minX);
        std::uint16_t * const to =
            tile.values() + std::size_t(y - place.tileY) * side + (firstX - place.tileX);
        quantise(scale, from, endX - firstX, to);
    }
    tile.findBox();
    return tile;
}

void TileSamples::findBox() {
    const std::uint32_t side = samplesPerSide(place.tileLevel), last = side - 1;
    std::uint32_t minX = last, maxX = 0, minY = last, maxY = 0, low = TerrainFileFormat::maxHeight, high = 0;
    const std::uint16_t * row = values();
    for (std::uint32_t y = 0; y < side; ++y, row += side) {
        // 0 becomes the largest number.
        std::uint32_t lowest = UINT32_MAX, highest = 0;
        for (std::uint32_t x = 0; x < side; ++x) {
            lowest = std::min(lowest, row[x] - 1U);
            highest = std::max<std::uint32_t>(highest, row[x]);
        }
        if (highest == 0) continue;
        low = std::min(low, lowest + 1);
        high = std::max(high, highest);
        minY = std::min(minY, y);
        maxY = y;
        std::uint32_t x = 0;
        while (x < minX && row[x] == 0)
            ++x;
        minX = std::min(minX, x);
        for (x = last; x > maxX && row[x] == 0;)
            --x;
        maxX = std::max(maxX, x);
    }
    if (high == 0) return block.clear();
    const auto low1 = [](std::uint32_t v) { return v > 0 ? v - 1 : 0; };
    const auto high1 = [last](std::uint32_t v) { return std::min(v + 1, last); };
    box = {{(place.tileX + low1(minX)) << place.depth, (place.tileY + low1(minY)) << place.depth, low},
           {(place.tileX + high1(maxX)) << place.depth, (place.tileY + high1(maxY)) << place.depth, high}};
}

void TileSamples::setBorders(std::uint32_t k, const TileSamples & ancestor) {
    if (!ancestor.isDefined()) return;
    const std::uint32_t side = samplesPerSide(place.tileLevel), cells = side - 1;
    const std::uint32_t count = borderRowSize(place.tileLevel, k);
    const std::uint32_t lowX = place.tileX >> k & (cells - 1), lowY = place.tileY >> k & (cells - 1);
    // What ends with the ancestor ends at its last sample.
    const std::uint32_t highX = lowX + count - 1, highY = lowY + count - 1;
    const std::uint16_t * const from = ancestor.values();
    for (std::uint32_t border = 0; border < 4; ++border) {
        std::uint16_t * const to = values() + borderRowStart(place.tileLevel, border, k);
        const std::uint32_t x = border == 2 ? highX : lowX, y = border == 3 ? highY : lowY;
        const std::uint32_t step = border % 2 == 0 ? side : 1;
        const std::uint16_t * const first = from + std::size_t(y) * side + x;
        for (std::uint32_t i = 0; i < count; ++i)
            to[i] = first[std::size_t(i) * step];
    }
}

} // namespace ZMT::CORE::GRID
