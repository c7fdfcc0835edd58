#pragma once

#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>
#include <zmt/raster/rasterdata.h>

namespace ZMT::RASTER {

/// A source of numbers on a regular grid that is read in windows, so that it need not fit into memory.
/// The frame is that of `RasterGrid`. One thread at a time uses a band.
class RasterBand : public NBX::SharedObj {
    NBX_CLASS(RasterBand, NBX::SharedObj)
public:
    unsigned cellsX() const { return grid_.cellsX; }
    unsigned cellsY() const { return grid_.cellsY; }
    double cellSizeX() const { return grid_.cellSizeX; }
    double cellSizeY() const { return grid_.cellSizeY; }
    double minX() const { return grid_.minX; }
    double minY() const { return grid_.minY; }
    const RasterGrid & grid() const { return grid_; }

    /// Smallest and greatest defined value; NaN without any. The first call reads all cells.
    double minValue() const;
    double maxValue() const;

    /// Undefined cells are delivered as NaN.
    bool isUndefValue(float value) const { return value != value; }

    /// Reads `width * height` cells from (`col`, `row`) on, row by row from the southern one, undefined
    /// ones as NaN. A window that leaves the band is reported, and all its cells are NaN. Throws
    /// `NBX::InputException` where the source cannot be read.
    void read(unsigned col, unsigned row, unsigned width, unsigned height, float * cells) const;

protected:
    explicit RasterBand(const RasterGrid & grid);

    /// The work of `read` for a window inside the band that is not empty.
    virtual void readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                           float * cells) const = 0;

private:
    void findRange() const;

    RasterGrid grid_;
    mutable bool rangeIsKnown_ = false;
    mutable double minValue_ = 0.0;
    mutable double maxValue_ = 0.0;
};

} // namespace ZMT::RASTER
