#include "warpedrasterband.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include <nbx/object/exception.h>

namespace ZMT::RASTER {

NBX_CLASS_IMPL(WarpedRasterBand, RasterBand)

namespace {

constexpr float undefined = std::numeric_limits<float>::quiet_NaN();
/// Places of a block, along each side, whose cells of the source are looked for.
constexpr unsigned samples = 17;

/// Places in the source of a block's cells, in cells.
struct Reach {
    double low = HUGE_VAL, high = -HUGE_VAL;

    void add(double value) {
        low = std::min(low, value);
        high = std::max(high, value);
    }
    /// The cells that all places between the samples may need, of `count` that there are. False without any.
    bool cells(unsigned count, unsigned & first, unsigned & number) const {
        if (!(low <= high)) return false;
        const double slack = 2.0 + (high - low) / (samples - 1.0);
        const double begin = std::max(0.0, std::floor(low - slack));
        const double end = std::min<double>(count, std::ceil(high + slack) + 1.0);
        if (!(begin < end)) return false;
        first = static_cast<unsigned>(begin);
        number = static_cast<unsigned>(end - begin);
        return true;
    }
};

} // namespace

WarpedRasterBand::WarpedRasterBand(const NBX::SO<RasterBand> & source, const std::string & wkt,
                                   const std::string & system, const RasterGrid & grid,
                                   const std::string & path)
    : RasterBand(grid), source_(source), wkt_(wkt), targetWkt_(system), path_(path) {
    const GdalErrorTrap trap;
    const OGRSpatialReference from = spatialReference(system), to = spatialReference(wkt);
    toSource_.reset(OGRCreateCoordinateTransformation(&from, &to));
    if (!toSource_)
        throw NBX::InputException(L"cannot be brought into another coordinate system; check the "
                                  L"coordinate system of the file",
                                  path_, 0, trap.text());
}

void WarpedRasterBand::readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                                 float * cells) const {
    for (unsigned line = row / s_blockHeight; line <= (row + height - 1) / s_blockHeight; ++line)
        for (unsigned column = col / s_blockWidth; column <= (col + width - 1) / s_blockWidth; ++column) {
            const Block source = block(column, line);
            const unsigned x0 = column * s_blockWidth, y0 = line * s_blockHeight;
            const unsigned first = std::max(col, x0), end = std::min(col + width, x0 + source->cellsX());
            for (unsigned y = std::max(row, y0); y < std::min(row + height, y0 + source->cellsY()); ++y) {
                const float * from = source->cells() + std::size_t(y - y0) * source->cellsX() + (first - x0);
                std::copy_n(from, end - first, cells + std::size_t(y - row) * width + (first - col));
            }
        }
}

WarpedRasterBand::Block WarpedRasterBand::block(unsigned column, unsigned line) const {
    const std::uint64_t name = std::uint64_t(line) << 32 | column;
    if (const Block * kept = blocks_.find(name)) return *kept;
    const Block made = makeBlock(column, line);
    while (blocks_.size() >= s_mostBlocks)
        blocks_.removeOldest();
    blocks_.insert(name, made);
    return made;
}

WarpedRasterBand::Block WarpedRasterBand::makeBlock(unsigned column, unsigned line) const {
    const unsigned x0 = column * s_blockWidth, y0 = line * s_blockHeight;
    const Block result(new Raster(std::min(s_blockWidth, cellsX() - x0),
                                  std::min(s_blockHeight, cellsY() - y0), minX() + x0 * cellSizeX(),
                                  minY() + y0 * cellSizeY(), cellSizeX(), cellSizeY(), true, undefined));
    Window window{};
    if (!findSourceWindow(result->grid(), window)) return result;
    const RasterGrid & from = source_->grid();
    const NBX::SO<Raster> input(
        new Raster(window.width, window.height, from.minX + window.col * from.cellSizeX,
                   from.minY + window.row * from.cellSizeY, from.cellSizeX, from.cellSizeY, true, undefined));
    source_->read(window.col, window.row, window.width, window.height, input->cells());
    const GdalDataset inputData = wrapRaster(*input, wkt_), outputData = wrapRaster(*result, targetWkt_);
    warpBilinear(*inputData, *outputData, false, path_, nullptr, Precision::Exact);
    return result;
}

/// The cells of the source that the cells of `part` may need; false without any.
bool WarpedRasterBand::findSourceWindow(const RasterGrid & part, Window & window) const {
    const GdalErrorTrap trap;
    std::vector<double> x, y;
    for (unsigned j = 0; j < samples; ++j)
        for (unsigned i = 0; i < samples; ++i) {
            const double u = i / (samples - 1.0), v = j / (samples - 1.0);
            x.push_back(part.minX + ((part.cellsX - 1.0) * u) * part.cellSizeX);
            y.push_back(part.minY + ((part.cellsY - 1.0) * v) * part.cellSizeY);
        }
    std::vector<int> worked(x.size());
    toSource_->Transform(static_cast<int>(x.size()), x.data(), y.data(), nullptr, worked.data());
    Reach columns, rows;
    const RasterGrid & from = source_->grid();
    for (std::size_t i = 0; i < x.size(); ++i) {
        if (!worked[i] || !std::isfinite(x[i]) || !std::isfinite(y[i])) continue;
        columns.add((x[i] - from.minX) / from.cellSizeX);
        rows.add((y[i] - from.minY) / from.cellSizeY);
    }
    return columns.cells(from.cellsX, window.col, window.width) &&
           rows.cells(from.cellsY, window.row, window.height);
}

} // namespace ZMT::RASTER
