#include "util/hachures/strokefield.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include <zmt/raster/relief/morphologicalparameters.h>

namespace ZMT::UTIL {

namespace {

/// Smaller for greater heights, and the greatest for no height.
std::uint32_t fallingKey(float height) {
    if (std::isnan(height)) return std::numeric_limits<std::uint32_t>::max();
    constexpr std::uint32_t sign = 0x80000000U;
    const auto bits = std::bit_cast<std::uint32_t>(height + 0.0F); // the two zeros are one
    return bits & sign ? bits : ~(bits | sign);
}

/// The position of a cell is that of the cell, whatever it was rounded to on the way.
double onCell(double place) {
    constexpr double rounding = 1e-9;
    const double nearest = std::round(place);
    return std::abs(place - nearest) <= rounding ? nearest : place;
}

} // namespace

StrokeField::StrokeField(const RASTER::RasterData & raster,
                         const RASTER::MorphologicalParameters & parameters, unsigned width, unsigned height)
    : cellsX_(raster.cellsX()), cellsY_(raster.cellsY()), width_(width), height_(height),
      perPixelX_((cellsX_ - 1.0) / (width - 1.0)), perPixelY_((cellsY_ - 1.0) / (height - 1.0)),
      cells_(std::size_t(cellsX_) * cellsY_) {
    std::vector<double> heights(cellsX_);
    std::size_t cell = 0;
    for (unsigned y = 0; y < cellsY_; ++y) {
        raster.valueRow(y, heights.data());
        for (unsigned x = 0; x < cellsX_; ++x, ++cell)
            cells_[cell] = {parameters.coefficientX()->cells()[cell],
                            parameters.coefficientY()->cells()[cell], parameters.slope()->cells()[cell],
                            parameters.crossSectionCurvature()->cells()[cell],
                            raster.isUndefValue(heights[x]) ? std::numeric_limits<float>::quiet_NaN()
                                                            : static_cast<float>(heights[x])};
    }
}

bool StrokeField::sample(double x, double y, Sample & result) const {
    const double column = onCell(x * perPixelX_), row = onCell(y * perPixelY_);
    const auto i = std::min(static_cast<std::size_t>(column), std::size_t(cellsX_ - 1));
    const auto j = std::min(static_cast<std::size_t>(row), std::size_t(cellsY_ - 1));
    const double toEast = column - double(i), toNorth = row - double(j);
    result = {};
    for (unsigned corner = 0; corner < 4; ++corner) {
        const bool isEast = corner & 1, isNorth = corner & 2;
        const double weight = (isEast ? toEast : 1.0 - toEast) * (isNorth ? toNorth : 1.0 - toNorth);
        if (weight == 0.0) continue;
        const Cell & cell = cells_[(j + isNorth) * cellsX_ + i + isEast];
        result.gradientX += weight * cell.gradientX;
        result.gradientY += weight * cell.gradientY;
        result.slope += weight * cell.slope;
        result.curvature += weight * cell.curvature;
        result.height += weight * cell.height;
    }
    const double sum = result.gradientX + result.gradientY + result.slope + result.curvature + result.height;
    return !std::isnan(sum);
}

std::vector<std::uint32_t> StrokeField::cellsByHeight() const {
    std::vector<std::uint64_t> keys(cells_.size());
    for (std::size_t cell = 0; cell < cells_.size(); ++cell)
        keys[cell] = std::uint64_t(fallingKey(cells_[cell].height)) << 32 | cell;
    std::sort(keys.begin(), keys.end());
    std::vector<std::uint32_t> cells(keys.size());
    std::transform(keys.begin(), keys.end(), cells.begin(),
                   [](std::uint64_t key) { return static_cast<std::uint32_t>(key); });
    return cells;
}

} // namespace ZMT::UTIL
