#include <zmt/raster/relief/squarecells.h>

#include <gtest/gtest.h>

namespace {

using Raster = ZMT::RASTER::SimpleRasterData<float>;
using ZMT::RASTER::SquareCells;

NBX::SO<Raster> plane(unsigned width, unsigned height, double sizeX, double sizeY) {
    NBX::SO<Raster> raster(new Raster(width, height, 100.0, 200.0, sizeX, sizeY, true, -1.0F));
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
            raster->setValue(x, y, float(2.0 * x * sizeX + 3.0 * y * sizeY));
    return raster;
}

TEST(SquareCells, SquareOnesStay) {
    for (const double size : {10.0, 10.009}) {
        const auto raster = plane(5, 4, 10.0, size);
        EXPECT_EQ(raster, SquareCells::of(raster));
    }
    const auto line = plane(5, 1, 10.0, 30.0);
    EXPECT_EQ(line, SquareCells::of(line));
}

TEST(SquareCells, OthersKeepTheirCornersAndHeights) {
    const auto raster = plane(5, 4, 10.0, 30.0);
    const auto square = SquareCells::of(raster);
    EXPECT_EQ(5U, square->cellsX());
    EXPECT_EQ(10U, square->cellsY());
    EXPECT_EQ(100.0, square->minX());
    EXPECT_EQ(200.0, square->minY());
    EXPECT_EQ(140.0, square->maxX());
    EXPECT_EQ(290.0, square->maxY());
    for (unsigned y = 0; y < 10; ++y)
        for (unsigned x = 0; x < 5; ++x)
            EXPECT_FLOAT_EQ(float(20.0 * x + 30.0 * y), float(square->value(x, y)));
}

} // namespace
