#include <zmt/raster/rasterband.h>

#include <algorithm>
#include <limits>
#include <vector>

#include <nbx/object/errorhandler.h>

namespace ZMT::RASTER {

RasterBand::RasterBand(const RasterGrid & grid) : grid_(grid) {
    NBX_CHECK(grid.cellSizeX > 0.0 && grid.cellSizeY > 0.0, L"cell size not above 0");
}

double RasterBand::minValue() const {
    findRange();
    return minValue_;
}

double RasterBand::maxValue() const {
    findRange();
    return maxValue_;
}

void RasterBand::read(unsigned col, unsigned row, unsigned width, unsigned height, float * cells) const {
    if (width == 0 || height == 0) return;
    const bool isInside =
        col < cellsX() && width <= cellsX() - col && row < cellsY() && height <= cellsY() - row;
    NBX_CHECK(isInside, L"window outside the band");
    if (isInside) {
        readCells(col, row, width, height, cells);
    } else {
        std::fill_n(cells, static_cast<std::size_t>(width) * height, std::numeric_limits<float>::quiet_NaN());
    }
}

void RasterBand::findRange() const {
    if (rangeIsKnown_) return;
    minValue_ = maxValue_ = std::numeric_limits<double>::quiet_NaN();
    const unsigned rowsAtOnce = std::max(1u, (1u << 20) / std::max(1u, cellsX()));
    std::vector<float> values(static_cast<std::size_t>(std::min(rowsAtOnce, cellsY())) * cellsX());
    for (unsigned row = 0; row < cellsY(); row += rowsAtOnce) {
        const unsigned rows = std::min(rowsAtOnce, cellsY() - row);
        read(0, row, cellsX(), rows, values.data());
        for (std::size_t i = 0; i < static_cast<std::size_t>(rows) * cellsX(); ++i) {
            if (isUndefValue(values[i])) continue;
            if (!(minValue_ <= values[i])) minValue_ = values[i];
            if (!(maxValue_ >= values[i])) maxValue_ = values[i];
        }
    }
    rangeIsKnown_ = true;
}

NBX_CLASS_IMPL(RasterBand, NBX::SharedObj)

} // namespace ZMT::RASTER
