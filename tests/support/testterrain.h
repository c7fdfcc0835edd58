#pragma once

#include <functional>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/raster/simplerasterdata.h>

/// Small terrains for the tests of this folder.
namespace TestTerrain {

using Point = NBX::Vector3Base<double>;
using Height = std::function<double(unsigned, unsigned)>;

constexpr double s_undefined = -9999.0;

/// A raster with the undefined value -9999.
template <class T = float>
NBX::SO<ZMT::RASTER::SimpleRasterData<T>> raster(const ZMT::RASTER::RasterGrid & grid,
                                                 const Height & height) {
    NBX::SO<ZMT::RASTER::SimpleRasterData<T>> result(
        new ZMT::RASTER::SimpleRasterData<T>(grid.cellsX, grid.cellsY, grid.minX, grid.minY, grid.cellSizeX,
                                             grid.cellSizeY, true, static_cast<T>(s_undefined)));
    for (unsigned y = 0; y < grid.cellsY; ++y)
        for (unsigned x = 0; x < grid.cellsX; ++x)
            result->setValue(x, y, static_cast<T>(height(x, y)));
    return result;
}

inline NBX::SO<ZMT::CORE::GridData> grid(const ZMT::RASTER::RasterGrid & layout, const Height & height) {
    return new ZMT::CORE::GridData(raster(layout, height).get());
}

/// Every cell has another height, and no three lie on a line.
inline double bumpy(unsigned x, unsigned y) {
    return x * x + 10.0 * y * y + x * y + 1.0;
}

template <class T> std::vector<T> values(const NBX::Iterator<T> * sequence) {
    std::vector<T> result;
    for (unsigned i = 0; sequence && i < sequence->size(); ++i)
        result.push_back(sequence->get(i));
    return result;
}

/// The same for a sequence that the caller has to take.
template <class T> std::vector<T> taken(NBX::Iterator<T> * sequence) {
    const NBX::SO<NBX::Iterator<T>> held(sequence);
    return values<T>(sequence);
}

template <class T> NBX::SO<NBX::Array<T>> array(std::vector<T> elements) {
    return new NBX::Array<T>(std::move(elements));
}

} // namespace TestTerrain
