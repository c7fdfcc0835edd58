#include <zmt/raster/rasterdata.h>

#include <algorithm>
#include <cmath>

#include <nbx/object/errorhandler.h>
#include <zmt/raster/simplerasterdata.h>

namespace ZMT::RASTER {

namespace {

/// A position along one axis: between the cells `index` and `index + 1`; the latter has the weight
/// `fraction`, and is not touched where that is 0.
struct AxisPosition {
    unsigned index;
    double fraction;
};

/// False outside the cells. A position within a few roundings of a cell is that of the cell.
bool locate(double position, double minimum, double cellSize, unsigned cells, AxisPosition & result) {
    if (cells == 0) return false;
    double offset = (position - minimum) / cellSize;
    const double nearest = std::round(offset);
    const double rounding = 4.0 * std::numeric_limits<double>::epsilon() *
                            (std::max(std::abs(position), std::abs(minimum)) / cellSize + std::abs(offset));
    if (std::abs(offset - nearest) <= rounding) offset = nearest;
    if (!(offset >= 0.0 && offset <= cells - 1.0)) return false;
    result.index = static_cast<unsigned>(offset);
    result.fraction = offset - result.index;
    return true;
}

unsigned nearestIndex(const AxisPosition & p) {
    return p.fraction < 0.5 ? p.index : p.index + 1;
}

/// Bilinear mean of the cells with a weight above 0; false if one of them is undefined.
template <class Cell>
bool interpolate(const RasterData & raster, const Cell & cell, const AxisPosition & x, const AxisPosition & y,
                 double & result) {
    result = 0.0;
    for (unsigned j = 0; j < 2; ++j) {
        const double weightY = j ? y.fraction : 1.0 - y.fraction;
        for (unsigned i = 0; i < 2; ++i) {
            const double weight = weightY * (i ? x.fraction : 1.0 - x.fraction);
            if (weight == 0.0) continue;
            const double value = cell(x.index + i, y.index + j);
            if (raster.isUndefValue(value)) return false;
            result += weight * value;
        }
    }
    return true;
}

/// False where the raster is undefined at the map position.
bool lookUp(const RasterData & raster, double x, double y, double & result) {
    const RasterGrid & grid = raster.grid();
    AxisPosition column, row;
    if (!locate(x, grid.minX, grid.cellSizeX, grid.cellsX, column) ||
        !locate(y, grid.minY, grid.cellSizeY, grid.cellsY, row))
        return false;
    if (!raster.useLinearInterpolation()) {
        column = {nearestIndex(column), 0.0};
        row = {nearestIndex(row), 0.0};
    }
    if (const float * cells = raster.floatCells()) {
        const auto cell = [&](unsigned i, unsigned j) -> double {
            return cells[static_cast<std::size_t>(j) * grid.cellsX + i];
        };
        return interpolate(raster, cell, column, row, result);
    }
    const auto cell = [&](unsigned i, unsigned j) { return raster.value(i, j); };
    return interpolate(raster, cell, column, row, result);
}

} // namespace

RasterData::RasterData(const RasterGrid & grid, bool hasUndefValue, double undefValue)
    : grid_(grid), hasUndefValue_(hasUndefValue), undefValue_(undefValue) {
    NBX_CHECK(grid.cellSizeX > 0.0 && grid.cellSizeY > 0.0, L"cell size not above 0");
}

double RasterData::value(double x, double y) const {
    double result;
    return lookUp(*this, x, y, result) ? result : undefValue();
}

bool RasterData::isUndef(double x, double y) const {
    double result;
    return !lookUp(*this, x, y, result);
}

void RasterData::valueRow(unsigned row, double * values) const {
    for (unsigned column = 0; column < cellsX(); ++column)
        values[column] = value(column, row);
}

bool RasterData::resampleRasterData(SimpleRasterData<float> * target) const {
    NBX_CHECK(target, L"no target");
    if (!target) return false;
    bool meets = false;
    AxisPosition unused;
    for (unsigned row = 0; row < target->cellsY(); ++row) {
        const double y = target->minY() + row * target->cellSizeY();
        const bool rowMeets = locate(y, minY(), cellSizeY(), cellsY(), unused);
        for (unsigned column = 0; column < target->cellsX(); ++column) {
            const double x = target->minX() + column * target->cellSizeX();
            double result;
            const bool defined = rowMeets && lookUp(*this, x, y, result);
            target->setValue(column, row, static_cast<float>(defined ? result : target->undefValue()));
            meets = meets || (rowMeets && locate(x, minX(), cellSizeX(), cellsX(), unused));
        }
    }
    return meets;
}

NBX_CLASS_IMPL(RasterData, NBX::SharedObj)

} // namespace ZMT::RASTER
