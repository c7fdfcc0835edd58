#include <zmt/raster/bandstatistics.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include <nbx/object/progress.h>
#include <zmt/raster/rasterband.h>

namespace ZMT::RASTER {

namespace {

constexpr unsigned s_cellsAtOnce = 1U << 20;

} // namespace

BandStatistics BandStatistics::of(const RasterBand & band, NBX::Progress * progress) {
    BandStatistics result;
    result.minimum = result.maximum = result.average = std::numeric_limits<double>::quiet_NaN();
    // Narrow windows of very wide bands would read each of their blocks again and again.
    const unsigned width = std::min(band.cellsX(), s_cellsAtOnce);
    const unsigned height = std::max(1U, s_cellsAtOnce / std::max(1U, width));
    std::vector<float> cells;
    double sum = 0.0;
    for (unsigned row = 0; row < band.cellsY();) {
        if (progress && !progress->update(progress->totalValue() * row / band.cellsY())) return result;
        const unsigned rows = std::min(height, band.cellsY() - row);
        for (unsigned col = 0; col < band.cellsX();) {
            const unsigned columns = std::min(width, band.cellsX() - col);
            cells.resize(std::size_t(columns) * rows);
            band.read(col, row, columns, rows, cells.data());
            for (const float value : cells) {
                if (band.isUndefValue(value)) continue;
                result.minimum = std::fmin(result.minimum, value);
                result.maximum = std::fmax(result.maximum, value);
                sum += value;
                ++result.defined;
            }
            col += columns;
        }
        row += rows;
    }
    result.undefined = std::uint64_t(band.cellsX()) * band.cellsY() - result.defined;
    if (result.defined > 0) result.average = sum / static_cast<double>(result.defined);
    result.isComplete = !progress || progress->update(progress->totalValue());
    return result;
}

} // namespace ZMT::RASTER
