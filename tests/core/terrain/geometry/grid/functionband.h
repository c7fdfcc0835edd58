#pragma once

#include <functional>
#include <limits>
#include <utility>

#include <nbx/object/exception.h>
#include <zmt/raster/rasterband.h>

/// A band whose cells are computed. It counts what is read of it, and may fail.
class FunctionBand : public ZMT::RASTER::RasterBand {
    NBX_TEMPLATE_CLASS(FunctionBand, ZMT::RASTER::RasterBand)
public:
    using Cell = std::function<double(unsigned x, unsigned y)>;

    static constexpr float none = std::numeric_limits<float>::quiet_NaN();

    FunctionBand(const ZMT::RASTER::RasterGrid & grid, Cell cell)
        : ZMT::RASTER::RasterBand(grid), cell_(std::move(cell)) {}
    /// Cells of 1 by 1 from (0, 0) on.
    FunctionBand(unsigned cellsX, unsigned cellsY, Cell cell)
        : FunctionBand({cellsX, cellsY, 0.0, 0.0, 1.0, 1.0}, std::move(cell)) {}

    /// Hills, of which neighbouring heights differ.
    static double hills(unsigned x, unsigned y) {
        return 100.0 + (x * 37 % 101) * 0.5 + (y * 53 % 97) * 0.25 + (x ^ y) % 7;
    }
    /// The same with holes in groups and alone.
    static double hillsWithHoles(unsigned x, unsigned y) {
        const bool isHole = (x / 5 + y / 7) % 3 == 1 || (x * 31 + y * 17) % 11 == 0;
        return isHole ? none : hills(x, y);
    }

    /// Cells that were read so far; with `failsAfter`, reads of more throw.
    mutable std::uint64_t cellsRead = 0;
    std::uint64_t failsAfter = UINT64_MAX;

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                   float * cells) const override {
        cellsRead += std::uint64_t(width) * height;
        if (cellsRead > failsAfter) throw NBX::InputException(L"the disk is on fire", "band");
        for (unsigned y = row; y < row + height; ++y)
            for (unsigned x = col; x < col + width; ++x)
                *cells++ = static_cast<float>(cell_(x, y));
    }

private:
    Cell cell_;
};
