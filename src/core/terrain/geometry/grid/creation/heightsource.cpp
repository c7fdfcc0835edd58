#include "heightsource.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>
#include <utility>
#include <vector>

// Heights are compared in registers that hold several.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC optimize("O3")
#endif

namespace ZMT::CORE::GRID {

namespace {

/// Positions this near to a cell, in cells, are taken for it: roundings make them differ.
constexpr double s_sameCell = 1e-6;

/// No range has room for what is infinite.
void removeInfinite(float * heights, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        heights[i] = std::abs(heights[i]) <= std::numeric_limits<float>::max() ? heights[i] : noLatticeHeight;
}

/// The first and the last of `points` points, `step` apart from `first` on, between `low` and `high`; the
/// first is the larger one where there is none.
std::pair<std::uint32_t, std::uint32_t> pointsBetween(double low, double high, double first, double step,
                                                      std::uint32_t points) {
    const double from = std::max(0.0, std::ceil((low - first) / step - s_sameCell));
    const double to = std::min(points - 1.0, std::floor((high - first) / step + s_sameCell));
    if (!(from <= to)) return {1, 0};
    return {static_cast<std::uint32_t>(from), static_cast<std::uint32_t>(to)};
}

} // namespace

void BandHeightSource::read(std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height,
                            float * heights) const {
    band_->read(x, y, width, height, heights);
    removeInfinite(heights, std::size_t(width) * height);
}

ResampledHeightSource::ResampledHeightSource(const NBX::SO<RASTER::RasterBand> & band,
                                             const RASTER::RasterGrid & lattice)
    : band_(band), lattice_(lattice) {
    const double maxX = band->minX() + (band->cellsX() - 1.0) * band->cellSizeX();
    const double maxY = band->minY() + (band->cellsY() - 1.0) * band->cellSizeY();
    std::tie(area_.minX, area_.maxX) =
        pointsBetween(band->minX(), maxX, lattice.minX, lattice.cellSizeX, lattice.cellsX);
    std::tie(area_.minY, area_.maxY) =
        pointsBetween(band->minY(), maxY, lattice.minY, lattice.cellSizeY, lattice.cellsY);
    isOnBand_ = area_.minX <= area_.maxX && area_.minY <= area_.maxY;
}

ResampledHeightSource::Between ResampledHeightSource::between(double position, std::uint32_t cells) {
    const double inside = std::clamp(position, 0.0, cells - 1.0);
    const double nearest = std::round(inside);
    if (std::abs(inside - nearest) < s_sameCell) return {static_cast<std::uint32_t>(nearest), 0.0F};
    return {static_cast<std::uint32_t>(inside), static_cast<float>(inside - std::floor(inside))};
}

void ResampledHeightSource::read(std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height,
                                 float * heights) const {
    std::vector<Between> columns(width), rows(height);
    for (std::uint32_t i = 0; i < width; ++i)
        columns[i] = between((lattice_.minX + (double(x) + i) * lattice_.cellSizeX - band_->minX()) /
                                 band_->cellSizeX(),
                             band_->cellsX());
    for (std::uint32_t j = 0; j < height; ++j)
        rows[j] = between((lattice_.minY + (double(y) + j) * lattice_.cellSizeY - band_->minY()) /
                              band_->cellSizeY(),
                          band_->cellsY());
    const std::uint32_t col = columns.front().cell, row = rows.front().cell;
    const std::uint32_t endCol = columns.back().cell + (columns.back().share > 0.0F ? 2 : 1);
    const std::uint32_t endRow = rows.back().cell + (rows.back().share > 0.0F ? 2 : 1);
    std::vector<float> cells(std::size_t(endCol - col) * (endRow - row));
    band_->read(col, row, endCol - col, endRow - row, cells.data());
    removeInfinite(cells.data(), cells.size());
    const auto add = [&](std::uint32_t i, std::uint32_t j, double weight, double & sum, double & weights) {
        if (weight <= 0.0) return;
        const float cell = cells[std::size_t(j - row) * (endCol - col) + (i - col)];
        if (cell != cell) return;
        sum += weight * cell;
        weights += weight;
    };
    for (const Between & r : rows)
        for (const Between & c : columns) {
            double sum = 0.0, weights = 0.0;
            add(c.cell, r.cell, (1.0 - c.share) * (1.0 - r.share), sum, weights);
            add(c.cell + 1, r.cell, c.share * (1.0 - r.share), sum, weights);
            add(c.cell, r.cell + 1, (1.0 - c.share) * r.share, sum, weights);
            add(c.cell + 1, r.cell + 1, c.share * r.share, sum, weights);
            *heights++ = weights > 0.0 ? static_cast<float>(sum / weights) : noLatticeHeight;
        }
}

} // namespace ZMT::CORE::GRID
