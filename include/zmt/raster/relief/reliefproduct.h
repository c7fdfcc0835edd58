#pragma once

namespace ZMT::RASTER {

/// Numbers of the cells of a height raster that follow from the heights around them, row by row. Several
/// threads may use one object.
class ReliefProduct {
public:
    /// What stands for nothing where products are stored.
    static constexpr float s_noData = -9999.0F;

    virtual ~ReliefProduct() = default;

    /// Cells that the numbers of one follow from, itself included, in each direction: an odd number from 3
    /// on.
    virtual unsigned windowSize() const = 0;

    /// The numbers of a row: `rows` are the `windowSize()` rows around it, the southern one first, of `width`
    /// heights each, and NaN where there is none. A number is NaN where a height of its window is, or lies
    /// beyond either end of the row. Cell sizes are in the unit of the heights.
    virtual void computeRow(const float * const * rows, unsigned width, double cellSizeX, double cellSizeY,
                            float * values) const = 0;

protected:
    ReliefProduct() = default;
    ReliefProduct(const ReliefProduct &) = default;
    ReliefProduct & operator=(const ReliefProduct &) = default;
};

} // namespace ZMT::RASTER
