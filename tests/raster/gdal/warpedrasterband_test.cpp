#include "raster/gdal/warpedrasterband.h"

#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace ZMT::RASTER;
using NBX::SO;

/// A slope that counts the cells that are read of it.
class CountedSlope : public RasterBand {
    NBX_TEMPLATE_CLASS(CountedSlope, RasterBand)
public:
    explicit CountedSlope(const RasterGrid & grid) : RasterBand(grid) {}

    mutable std::uint64_t cellsRead = 0;

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                   float * cells) const override {
        cellsRead += std::uint64_t(width) * height;
        for (unsigned y = row; y < row + height; ++y)
            for (unsigned x = col; x < col + width; ++x)
                *cells++ = float(x) + float(y);
    }
};

TEST(WarpedRasterBandTest, WideRastersThatAreReadByRowsAreMadeOnce) {
    // The same system: what is made costs little.
    const std::string system = "EPSG:4087";
    const RasterGrid grid{40000, 48, 0.0, 0.0, 1.0, 1.0};
    const SO<CountedSlope> source(new CountedSlope(grid));
    const WarpedRasterBand band(source, system, system, grid, "wide");
    std::vector<float> rows(std::size_t(grid.cellsX) * 16);
    for (unsigned row = 0; row < grid.cellsY; row += 16) {
        band.read(0, row, grid.cellsX, 16, rows.data());
        for (const unsigned x : {0U, 511U, 512U, 39999U})
            EXPECT_EQ(float(x) + float(row), rows[x]) << row;
    }
    EXPECT_LT(source->cellsRead, std::uint64_t(grid.cellsX) * grid.cellsY * 3 / 2);
}

} // namespace
