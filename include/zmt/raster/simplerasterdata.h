#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <nbx/object/serializationmanager.h>
#include <zmt/raster/rasterdata.h>

namespace ZMT::RASTER {

/// A raster whose cells lie in memory. `T` is `float`, `double` or `std::int16_t`, for which the library
/// holds the code.
/// Stored attributes: "cellsX", "cellsY", "cellSizeX", "cellSizeY", "minX", "minY", "hasUndefValue",
/// "undefValue", "minValue", "maxValue", "values". Reading a size that the stream cannot hold throws
/// `NBX::IOError` and leaves an empty raster.
template <class T> class SimpleRasterData : public RasterData {
    NBX_STORED_TEMPLATE_CLASS(SimpleRasterData, RasterData)
public:
    /// A raster without cells.
    SimpleRasterData() = default;
    /// All cells are `undefValue`. `minX`, `minY` are the position of the first cell.
    SimpleRasterData(unsigned cellsX, unsigned cellsY, double minX, double minY, double cellSizeX,
                     double cellSizeY, bool hasUndefValue, T undefValue);

    using RasterData::value;
    double value(unsigned col, unsigned row) const override;
    void valueRow(unsigned row, double * values) const override;
    const float * floatCells() const override;

    /// A cell outside is reported, and nothing is stored.
    void setValue(unsigned col, unsigned row, T value);

    /// All cells, row by row from row 0; `cellsX() * cellsY()` of them.
    const T * cells() const { return values_.data(); }
    T * cells() { return values_.data(); }

    /// Smallest and greatest defined value; NaN without any. O(cells).
    double minValue() const;
    double maxValue() const;

    void serialize(NBX::SerializationManager & m) override;

private:
    std::size_t index(unsigned col, unsigned row) const {
        return static_cast<std::size_t>(row) * grid_.cellsX + col;
    }
    void checkCell(unsigned col, unsigned row) const;
    void serializeCells(NBX::SerializationManager & m);

    std::vector<T> values_;
};

} // namespace ZMT::RASTER
