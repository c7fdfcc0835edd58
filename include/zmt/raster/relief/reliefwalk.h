#pragma once

#include <vector>

#include <zmt/raster/relief/reliefproduct.h>
#include <zmt/raster/relief/rowsink.h>
#include <zmt/raster/simplerasterdata.h>

namespace NBX {
class Progress;
}

namespace ZMT::RASTER {

class RasterBand;

/// The size of cells in the unit of their heights, which may differ from row to row.
struct CellSize {
    double x = 1.0, y = 1.0; ///< NaN where cells have none, such as at a pole
};

/// Goes over a raster of any size from the north to the south, a few rows at a time.
class ReliefWalk {
public:
    /// Rows that are read and put at once.
    static constexpr unsigned s_rows = RowSink::s_rows;

    /// Computes all numbers of `product` and puts them into `sink`. `cells` are the sizes of the cells of
    /// each row, counted from the south as those of `band` are. False when `progress`, which may be null, was
    /// cancelled. Takes memory for 2 `s_rows` rows and those of a window. Throws what the band and the sink
    /// throw.
    static bool run(const RasterBand & band, const ReliefProduct & product,
                    const std::vector<CellSize> & cells, RowSink & sink, NBX::Progress * progress = nullptr);

    /// The same of a raster in memory whose map unit is that of its heights. The undefined value is NaN.
    static NBX::SO<SimpleRasterData<float>> over(const SimpleRasterData<float> & raster,
                                                 const ReliefProduct & product);
};

} // namespace ZMT::RASTER
