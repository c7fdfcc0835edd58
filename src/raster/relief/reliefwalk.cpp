#include <zmt/raster/relief/reliefwalk.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

#include <nbx/object/errorhandler.h>
#include <nbx/object/progress.h>
#include <zmt/raster/rasterband.h>

namespace ZMT::RASTER {

namespace {

constexpr std::int64_t s_stripRows = ReliefWalk::s_rows;

/// `ReliefWalk::s_rows` rows of a band and those within reach of them, the southern one first, NaN beyond the
/// band.
class Strip {
public:
    Strip(const RasterBand & band, unsigned reach)
        : band_(band), overlap_(2 * std::int64_t(reach)), low_(std::int64_t(band.cellsY()) - reach),
          heights_(std::size_t(s_stripRows + overlap_) * band.cellsX()) {
        read(low_, low_ + overlap_);
    }

    /// To the next rows; at first to the northern ones of the band.
    void goSouth() {
        const std::size_t kept = std::size_t(overlap_) * band_.cellsX();
        std::copy_backward(heights_.begin(), heights_.begin() + std::ptrdiff_t(kept), heights_.end());
        low_ -= s_stripRows;
        read(low_, low_ + s_stripRows);
    }
    /// A row that the strip has, by its number in the band.
    const float * row(std::int64_t number) const {
        return heights_.data() + std::size_t(number - low_) * band_.cellsX();
    }

private:
    void read(std::int64_t first, std::int64_t end) {
        const std::int64_t from = std::clamp<std::int64_t>(first, 0, band_.cellsY());
        const std::int64_t to = std::clamp<std::int64_t>(end, from, band_.cellsY());
        const std::int64_t width = band_.cellsX();
        const auto begin = heights_.begin() + (first - low_) * width;
        std::fill(begin, begin + (end - first) * width, std::numeric_limits<float>::quiet_NaN());
        if (from < to)
            band_.read(0, unsigned(from), band_.cellsX(), unsigned(to - from),
                       heights_.data() + (from - low_) * width);
    }

    const RasterBand & band_;
    std::int64_t overlap_; ///< rows that the next strip needs as well
    std::int64_t low_;     ///< number of the southern row in the band
    std::vector<float> heights_;
};

} // namespace

namespace {

/// The cells of a raster in memory as a band.
class MemoryBand : public RasterBand {
public:
    explicit MemoryBand(const SimpleRasterData<float> & raster)
        : RasterBand(raster.grid()), raster_(raster) {}

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                   float * cells) const override {
        for (unsigned y = 0; y < height; ++y) {
            const float * from = raster_.cells() + std::size_t(row + y) * raster_.cellsX() + col;
            cells = std::transform(from, from + width, cells, [this](float value) {
                return raster_.isUndefValue(value) ? std::numeric_limits<float>::quiet_NaN() : value;
            });
        }
    }

private:
    const SimpleRasterData<float> & raster_;
};

/// Keeps the rows, the southern one first.
class RasterSink : public RowSink {
public:
    explicit RasterSink(SimpleRasterData<float> & raster) : raster_(raster) {}
    void put(unsigned first, unsigned count, float * values) override {
        const std::size_t width = raster_.cellsX();
        for (unsigned line = 0; line < count; ++line)
            std::copy_n(values + line * width, width,
                        raster_.cells() + (raster_.cellsY() - 1 - first - line) * width);
    }

private:
    SimpleRasterData<float> & raster_;
};

} // namespace

NBX::SO<SimpleRasterData<float>> ReliefWalk::over(const SimpleRasterData<float> & raster,
                                                  const ReliefProduct & product) {
    NBX::SO<SimpleRasterData<float>> result(new SimpleRasterData<float>(
        raster.cellsX(), raster.cellsY(), raster.minX(), raster.minY(), raster.cellSizeX(),
        raster.cellSizeY(), true, std::numeric_limits<float>::quiet_NaN()));
    RasterSink sink(*result);
    const NBX::SO<RasterBand> band(new MemoryBand(raster));
    run(*band, product, std::vector<CellSize>(raster.cellsY(), {raster.cellSizeX(), raster.cellSizeY()}),
        sink);
    return result;
}

bool ReliefWalk::run(const RasterBand & band, const ReliefProduct & product,
                     const std::vector<CellSize> & cells, RowSink & sink, NBX::Progress * progress) {
    const unsigned width = band.cellsX(), height = band.cellsY(), reach = product.windowSize() / 2;
    NBX_CHECK(cells.size() == height, L"not one size of cells for each row");
    if (cells.size() != height) return false;
    Strip strip(band, reach);
    std::vector<float> values(std::size_t(std::min(s_rows, height)) * width);
    std::vector<const float *> window(product.windowSize());
    for (unsigned first = 0; first < height; first += s_rows) {
        if (progress && !progress->update(progress->totalValue() * first / height)) return false;
        const unsigned count = std::min(s_rows, height - first);
        strip.goSouth();
        for (unsigned line = 0; line < count; ++line) {
            const std::int64_t row = std::int64_t(height) - 1 - first - line;
            for (std::size_t j = 0; j < window.size(); ++j)
                window[j] = strip.row(row - reach + std::int64_t(j));
            const CellSize & size = cells[std::size_t(row)];
            product.computeRow(window.data(), width, size.x, size.y, &values[std::size_t(line) * width]);
        }
        sink.put(first, count, values.data());
    }
    return !progress || progress->update(progress->totalValue());
}

} // namespace ZMT::RASTER
