#include <zmt/raster/histogram.h>

#include <algorithm>
#include <bit>
#include <limits>
#include <memory>
#include <vector>

#include <nbx/object/errorhandler.h>
#include <zmt/raster/rasterdata.h>

namespace ZMT::RASTER {

namespace {

/// Counts distinct numbers in a list that is sorted whenever it has doubled.
template <class T> class SortedCounter {
public:
    void insert(T value) {
        values_.push_back(value);
        if (values_.size() >= limit_) compact();
    }
    std::uint64_t count() {
        compact();
        return values_.size();
    }

private:
    void compact() {
        std::sort(values_.begin(), values_.end());
        values_.erase(std::unique(values_.begin(), values_.end()), values_.end());
        limit_ = std::max<std::size_t>(1 << 20, 2 * values_.size());
    }

    std::vector<T> values_;
    std::size_t limit_ = 1 << 20;
};

/// Counts distinct floats. The bit patterns are marked in a bit set of which only those pages exist that
/// have a mark: heights share their leading bits, so that a few pages hold them all. Behind the last page
/// allowed, values go to a list, which bounds the memory.
class FloatCounter {
public:
    FloatCounter() : pages_(1 << 16) {}

    void insert(float value) {
        const auto bits = std::bit_cast<std::uint32_t>(value + 0.0f);
        std::unique_ptr<Page> & page = pages_[bits >> 16];
        if (!page) {
            if (pagesLeft_ == 0) {
                others_.insert(value + 0.0f);
                return;
            }
            --pagesLeft_;
            page = std::make_unique<Page>();
        }
        std::uint64_t & word = page->words[(bits & 0xffff) / 64];
        const std::uint64_t mark = std::uint64_t(1) << (bits % 64);
        count_ += (word & mark) == 0;
        word |= mark;
    }

    std::uint64_t count() { return count_ + others_.count(); }

private:
    struct Page {
        std::uint64_t words[1024] = {};
    };

    std::vector<std::unique_ptr<Page>> pages_;
    unsigned pagesLeft_ = 8192;
    std::uint64_t count_ = 0;
    SortedCounter<float> others_;
};

/// Counts distinct numbers of which most are floats.
class DistinctCounter {
public:
    void insert(float value) { floats_.insert(value); }
    void insert(double value) {
        if (static_cast<double>(static_cast<float>(value)) == value)
            floats_.insert(static_cast<float>(value));
        else
            doubles_.insert(value);
    }
    std::uint64_t count() { return floats_.count() + doubles_.count(); }

private:
    FloatCounter floats_;
    SortedCounter<double> doubles_;
};

/// What is known of the values seen so far.
struct Summary {
    std::uint64_t defined = 0;
    double minimum = std::numeric_limits<double>::infinity();
    double maximum = -std::numeric_limits<double>::infinity();
    long double sum = 0.0;
    DistinctCounter distinct;

    /// One row at a time, so that the rows' sums are of like size when they are added.
    template <class T> void addRow(const RasterData & raster, const T * values) {
        double rowSum = 0.0;
        for (unsigned column = 0; column < raster.cellsX(); ++column) {
            const T value = values[column];
            if (raster.isUndefValue(value)) continue;
            ++defined;
            minimum = std::min<double>(minimum, value);
            maximum = std::max<double>(maximum, value);
            rowSum += value;
            distinct.insert(value);
        }
        sum += rowSum;
    }
};

void addAll(const RasterData & raster, Summary & summary) {
    const float * cells = raster.floatCells();
    std::vector<double> values(cells ? 0 : raster.cellsX());
    for (unsigned row = 0; row < raster.cellsY(); ++row) {
        if (cells) {
            summary.addRow(raster, cells + static_cast<std::size_t>(row) * raster.cellsX());
        } else {
            raster.valueRow(row, values.data());
            summary.addRow(raster, values.data());
        }
    }
}

} // namespace

Histogram::Histogram(const RasterData * raster)
    : minimum_(std::numeric_limits<double>::quiet_NaN()), maximum_(minimum_), average_(minimum_) {
    NBX_CHECK(raster, L"no raster");
    if (!raster) return;
    Summary summary;
    addAll(*raster, summary);
    defined_ = summary.defined;
    undefined_ = static_cast<std::uint64_t>(raster->cellsX()) * raster->cellsY() - defined_;
    different_ = summary.distinct.count();
    if (defined_ == 0) return;
    minimum_ = summary.minimum;
    maximum_ = summary.maximum;
    average_ = static_cast<double>(summary.sum / static_cast<long double>(defined_));
}

} // namespace ZMT::RASTER
