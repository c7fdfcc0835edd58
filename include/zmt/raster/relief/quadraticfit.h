#pragma once

#include <cstddef>
#include <vector>

#include <zmt/raster/relief/quadraticsurface.h>

namespace ZMT::RASTER {

/// The surface of the second degree that lies nearest, by least squares, to the heights in a square window
/// around a cell. Heights count by binomial weights, so that near ones count most: 1 2 1 in each direction
/// for 3 by 3 cells, where the gradient is B. K. P. Horn's (Hill Shading and the Reflectance Map, Proceedings
/// of the IEEE 69, 1981). Otherwise after J. Wood, 1996, who fits windows of any size. The fit is linear in
/// the heights and separable. Several threads may use one object.
class QuadraticFit {
public:
    static constexpr unsigned s_largestWindow = 255;

    /// `windowSize` is odd, from 3 to `s_largestWindow`; the nearest one that is takes the place of others,
    /// which are reported.
    explicit QuadraticFit(unsigned windowSize);

    unsigned windowSize() const { return static_cast<unsigned>(mean_.size()); }
    /// Cells around the one in the middle, on each side.
    unsigned reach() const { return windowSize() / 2; }

    /// The surfaces around the `width` cells of a row: `rows` are `windowSize()` rows, the southern one
    /// first, of `width` heights each, and NaN where there is none. A surface is NaN where a height of its
    /// window is, or lies beyond either end of the row. Cell sizes are in map units.
    void fitRow(const float * const * rows, unsigned width, double cellSizeX, double cellSizeY,
                QuadraticSurface * surfaces) const;

private:
    /// What each height of a column or row adds to the mean, the slope and the bend along it; sizes of cells
    /// are 1.
    std::vector<double> mean_, slope_, bend_;
};

} // namespace ZMT::RASTER
