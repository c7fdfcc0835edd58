#include <zmt/raster/relief/squarecells.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace ZMT::RASTER {

namespace {

constexpr double s_mostOblong = 1e-3;

unsigned cellsAlong(double low, double high, double size) {
    return static_cast<unsigned>(std::max(1L, std::lround((high - low) / size))) + 1;
}

} // namespace

NBX::SO<SimpleRasterData<float>> SquareCells::of(const NBX::SO<SimpleRasterData<float>> & raster) {
    const double sizeX = raster->cellSizeX(), sizeY = raster->cellSizeY(), size = std::min(sizeX, sizeY);
    const bool isLine = raster->cellsX() < 2 || raster->cellsY() < 2;
    if (isLine || std::max(sizeX, sizeY) <= size * (1.0 + s_mostOblong)) return raster;
    const unsigned x = cellsAlong(raster->minX(), raster->maxX(), size);
    const unsigned y = cellsAlong(raster->minY(), raster->maxY(), size);
    NBX::SO<SimpleRasterData<float>> square(new SimpleRasterData<float>(
        x, y, raster->minX(), raster->minY(), (raster->maxX() - raster->minX()) / (x - 1.0),
        (raster->maxY() - raster->minY()) / (y - 1.0), true, std::numeric_limits<float>::quiet_NaN()));
    raster->resampleRasterData(square.get());
    return square;
}

} // namespace ZMT::RASTER
