#pragma once

namespace ZMT::RASTER {

/// Takes the rows of a raster as they are computed: a file, say.
class RowSink {
public:
    /// Rows that are put at once: those of a tile. The last ones may be fewer.
    static constexpr unsigned s_rows = 256;

    virtual ~RowSink() = default;

    /// Rows are counted from the north here: `count` of them, from `first` on, row by row: `s_rows`, or those
    /// that are left at the end. NaN stands for nothing. Each row comes once, in order. The values may be
    /// changed. Throws `NBX::IOException` where they cannot be kept.
    virtual void put(unsigned first, unsigned count, float * values) = 0;

protected:
    RowSink() = default;
    RowSink(const RowSink &) = default;
    RowSink & operator=(const RowSink &) = default;
};

} // namespace ZMT::RASTER
