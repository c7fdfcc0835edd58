#pragma once

#include <limits>

#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace ZMT::RASTER {

template <class T> class SimpleRasterData;

/// The grid of a raster in map coordinates. `minX`, `minY` are the position of the first cell, which is a
/// point (the centre of a pixel, not its edge); columns grow with x, rows with y: row 0 is the southern one.
struct RasterGrid {
    unsigned cellsX = 0;
    unsigned cellsY = 0;
    double minX = 0.0;
    double minY = 0.0;
    double cellSizeX = 1.0; ///< greater than 0
    double cellSizeY = 1.0; ///< greater than 0
};

/// A regular grid of heights or other numbers in map coordinates; see `RasterGrid` for the frame. The
/// store of the cells is the subclass's. Reading is safe from several threads while nobody writes.
class RasterData : public NBX::SharedObj {
    NBX_CLASS(RasterData, NBX::SharedObj)
public:
    unsigned cellsX() const { return grid_.cellsX; }
    unsigned cellsY() const { return grid_.cellsY; }
    double cellSizeX() const { return grid_.cellSizeX; }
    double cellSizeY() const { return grid_.cellSizeY; }
    double minX() const { return grid_.minX; }
    double minY() const { return grid_.minY; }
    /// Position of the last column: `minX + (cellsX - 1) * cellSizeX`.
    double maxX() const { return grid_.minX + (static_cast<double>(grid_.cellsX) - 1.0) * grid_.cellSizeX; }
    double maxY() const { return grid_.minY + (static_cast<double>(grid_.cellsY) - 1.0) * grid_.cellSizeY; }
    const RasterGrid & grid() const { return grid_; }

    bool hasUndefValue() const { return hasUndefValue_; }
    /// The value that means "no data": NaN where the raster has none of its own.
    double undefValue() const {
        return hasUndefValue_ ? undefValue_ : std::numeric_limits<double>::quiet_NaN();
    }
    /// True for NaN, and for the raster's own undefined value.
    bool isUndefValue(double value) const {
        return value != value || (hasUndefValue_ && value == undefValue_);
    }

    /// The stored value. A cell outside is reported, and `undefValue()` is given.
    virtual double value(unsigned col, unsigned row) const = 0;
    /// The value at a map position: between the four cells around it, or that of the nearest cell (see
    /// `useLinearInterpolation`). `undefValue()` outside the cell positions and where a cell with a weight
    /// above 0 is undefined. Positions are taken as exact up to a few roundings, so that a position
    /// computed for a cell or for the border meets it.
    double value(double x, double y) const;
    /// True where `value(x, y)` would touch no data: also outside the raster.
    bool isUndef(double x, double y) const;

    /// Copies the `cellsX()` values of one row. Use this, or `floatCells`, in loops over all cells.
    virtual void valueRow(unsigned row, double * values) const;
    /// All cells, row by row from row 0, where they lie in memory as `float`; else null.
    virtual const float * floatCells() const { return nullptr; }

    /// Fills all cells of `target`, which defines its own grid, with the interpolated values, and with its
    /// undefined value where there is none. False if no cell of `target` lies on this raster.
    bool resampleRasterData(SimpleRasterData<float> * target) const;

    /// True (at start): `value(x, y)` is bilinear. False: it is the value of the nearest cell.
    bool useLinearInterpolation() const { return linear_; }
    void setUseLinearInterpolation(bool linear) { linear_ = linear; }

protected:
    RasterData() = default;
    /// A cell size that is not above 0 is reported.
    RasterData(const RasterGrid & grid, bool hasUndefValue, double undefValue);

    RasterGrid grid_;
    bool hasUndefValue_ = false;
    double undefValue_ = 0.0;

private:
    bool linear_ = true;
};

} // namespace ZMT::RASTER
