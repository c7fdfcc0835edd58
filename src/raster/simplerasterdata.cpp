#include <zmt/raster/simplerasterdata.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>

namespace ZMT::RASTER {

namespace {

/// What a stream has a single value of: integers are stored as `int`.
template <class T> using StoredValue = std::conditional_t<std::is_integral_v<T>, int, T>;

template <class T> void serializeValue(NBX::SerializationManager & m, const char * name, T & value) {
    StoredValue<T> stored = value;
    m.attribute(name, stored);
    value = static_cast<T>(stored);
}

/// Derived from the cells: written for other readers, and not believed when read.
template <class T> void serializeDerived(NBX::SerializationManager & m, const char * name, double value) {
    T stored = std::isnan(value) && std::is_integral_v<T> ? T() : static_cast<T>(value);
    serializeValue(m, name, stored);
}

bool isUsable(const RasterGrid & grid) {
    return std::isfinite(grid.minX) && std::isfinite(grid.minY) && grid.cellSizeX > 0.0 &&
           std::isfinite(grid.cellSizeX) && grid.cellSizeY > 0.0 && std::isfinite(grid.cellSizeY);
}

std::size_t numberOfCells(const RasterGrid & grid) {
    return static_cast<std::size_t>(grid.cellsX) * grid.cellsY;
}

template <class T, class Better> double extreme(const SimpleRasterData<T> & raster, const Better & better) {
    double result = std::numeric_limits<double>::quiet_NaN();
    const T * end = raster.cells() + numberOfCells(raster.grid());
    for (const T * cell = raster.cells(); cell != end; ++cell)
        if (!raster.isUndefValue(*cell) && (std::isnan(result) || better(*cell, result))) result = *cell;
    return result;
}

} // namespace

template <class T>
SimpleRasterData<T>::SimpleRasterData(unsigned cellsX, unsigned cellsY, double minX, double minY,
                                      double cellSizeX, double cellSizeY, bool hasUndefValue, T undefValue)
    : RasterData({cellsX, cellsY, minX, minY, cellSizeX, cellSizeY}, hasUndefValue, undefValue),
      values_(numberOfCells(grid_), undefValue) {}

template <class T> void SimpleRasterData<T>::checkCell(unsigned col, unsigned row) const {
    NBX_CHECK(col < cellsX(), L"column out of range");
    NBX_CHECK(row < cellsY(), L"row out of range");
}

template <class T> double SimpleRasterData<T>::value(unsigned col, unsigned row) const {
    if (col < grid_.cellsX && row < grid_.cellsY) return values_[index(col, row)];
    checkCell(col, row);
    return undefValue();
}

template <class T> void SimpleRasterData<T>::valueRow(unsigned row, double * values) const {
    if (row < grid_.cellsY) {
        const auto first = values_.begin() + static_cast<std::ptrdiff_t>(index(0, row));
        std::copy(first, first + grid_.cellsX, values);
    } else {
        NBX_CHECK(row < cellsY(), L"row out of range");
        std::fill_n(values, cellsX(), undefValue());
    }
}

template <class T> const float * SimpleRasterData<T>::floatCells() const {
    if constexpr (std::is_same_v<T, float>) return values_.data();
    return nullptr;
}

template <class T> void SimpleRasterData<T>::setValue(unsigned col, unsigned row, T value) {
    if (col < grid_.cellsX && row < grid_.cellsY)
        values_[index(col, row)] = value;
    else
        checkCell(col, row);
}

template <class T> double SimpleRasterData<T>::minValue() const {
    return extreme(*this, [](double a, double b) { return a < b; });
}

template <class T> double SimpleRasterData<T>::maxValue() const {
    return extreme(*this, [](double a, double b) { return a > b; });
}

template <class T> void SimpleRasterData<T>::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<RasterData>(m, this);
    m.attribute("cellsX", grid_.cellsX);
    m.attribute("cellsY", grid_.cellsY);
    m.attribute("cellSizeX", grid_.cellSizeX);
    m.attribute("cellSizeY", grid_.cellSizeY);
    m.attribute("minX", grid_.minX);
    m.attribute("minY", grid_.minY);
    m.attribute("hasUndefValue", hasUndefValue_);
    T undefined = static_cast<T>(undefValue_);
    serializeValue(m, "undefValue", undefined);
    undefValue_ = undefined;
    serializeDerived<T>(m, "minValue", m.isReading() ? 0.0 : minValue());
    serializeDerived<T>(m, "maxValue", m.isReading() ? 0.0 : maxValue());
    serializeCells(m);
}

template <class T> void SimpleRasterData<T>::serializeCells(NBX::SerializationManager & m) {
    const std::uint64_t cells = numberOfCells(grid_);
    if (m.isReading()) {
        values_.clear();
        const bool usable = isUsable(grid_) && cells <= m.bytesLeft() / sizeof(T);
        if (usable) values_.resize(cells);
        if (usable && (cells == 0 || m.rawAttribute("values", values_.data(), cells * sizeof(T)))) return;
        values_.clear();
        grid_ = RasterGrid();
        throw NBX::IOError(L"unusable raster", usable ? L"its values are missing" : L"its size is wrong");
    }
    if (cells > 0) m.rawAttribute("values", values_.data(), cells * sizeof(T));
}

template class SimpleRasterData<float>;
template class SimpleRasterData<double>;
template class SimpleRasterData<std::int16_t>;

} // namespace ZMT::RASTER
