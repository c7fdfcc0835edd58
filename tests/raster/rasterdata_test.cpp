#include <zmt/raster/rasterdata.h>

#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include <support/recordedreports.h>
#include <zmt/raster/simplerasterdata.h>

namespace {

using namespace ZMT::RASTER;

/// 3 x 2 cells of 10 x 20 units from (100, 200) on; the south-eastern cell is undefined.
NBX::SO<SimpleRasterData<float>> smallRaster() {
    NBX::SO<SimpleRasterData<float>> raster(
        new SimpleRasterData<float>(3, 2, 100.0, 200.0, 10.0, 20.0, true, -9999.0f));
    raster->setValue(0, 0, 1.0f);
    raster->setValue(1, 0, 3.0f);
    raster->setValue(0, 1, 5.0f);
    raster->setValue(1, 1, 7.0f);
    raster->setValue(2, 1, 11.0f);
    return raster;
}

/// A raster whose store is no block of floats.
class Plane : public RasterData {
public:
    Plane() : RasterData({4, 3, 0.0, 0.0, 1.0, 2.0}, false, 0.0) {}
    using RasterData::value;
    double value(unsigned col, unsigned row) const override { return 2.0 * col + 0.5 * row; }
};

TEST(RasterData, ExtentGoesFromCellToCell) {
    const auto raster = smallRaster();
    EXPECT_EQ(120.0, raster->maxX());
    EXPECT_EQ(220.0, raster->maxY());
}

TEST(RasterData, InterpolatesBetweenFourCells) {
    const auto raster = smallRaster();
    EXPECT_EQ(4.0, raster->value(105.0, 210.0));
    EXPECT_EQ(2.5, raster->value(102.5, 205.0));
    EXPECT_FALSE(raster->isUndef(105.0, 210.0));
}

TEST(RasterData, LastRowAndColumnAreInside) {
    const auto raster = smallRaster();
    EXPECT_EQ(11.0, raster->value(120.0, 220.0));
    EXPECT_EQ(9.0, raster->value(115.0, 220.0));
    EXPECT_EQ(1.0, raster->value(100.0, 200.0));
}

TEST(RasterData, OutsideIsUndefined) {
    const auto raster = smallRaster();
    for (const auto & [x, y] :
         {std::pair(99.9, 210.0), std::pair(120.1, 220.0), std::pair(105.0, 199.9), std::pair(105.0, 220.1),
          std::pair(std::nan(""), 210.0), std::pair(105.0, std::numeric_limits<double>::infinity())}) {
        EXPECT_TRUE(raster->isUndef(x, y)) << x << " " << y;
        EXPECT_EQ(-9999.0, raster->value(x, y)) << x << " " << y;
    }
}

TEST(RasterData, UndefinedCellCountsOnlyWithWeight) {
    const auto raster = smallRaster();
    EXPECT_TRUE(raster->isUndef(111.0, 201.0));
    EXPECT_EQ(-9999.0, raster->value(111.0, 201.0));
    EXPECT_TRUE(raster->isUndef(110.0 + 1e-6, 200.0)) << "a weight of a ten millionth is above 0";
    EXPECT_FALSE(raster->isUndef(110.0, 200.0)) << "the column beside has no weight";
    EXPECT_FALSE(raster->isUndef(115.0, 220.0)) << "the row below has no weight";
}

TEST(RasterData, NearestCellWithoutInterpolation) {
    const auto raster = smallRaster();
    raster->setUseLinearInterpolation(false);
    EXPECT_EQ(3.0, raster->value(105.0, 209.0));
    EXPECT_EQ(7.0, raster->value(114.9, 210.0));
    EXPECT_TRUE(raster->isUndef(115.0, 200.0));
    EXPECT_EQ(11.0, raster->value(120.0, 220.0));
}

TEST(RasterData, NotANumberIsAlwaysUndefined) {
    const Plane plane;
    EXPECT_TRUE(plane.isUndefValue(std::nan("")));
    EXPECT_FALSE(plane.isUndefValue(0.0)) << "without an undefined value, its default means nothing";
    EXPECT_TRUE(std::isnan(plane.undefValue()));
    EXPECT_TRUE(std::isnan(plane.value(-1.0, 0.0)));
}

TEST(RasterData, InfiniteUndefinedValueDoesNotSpoilNeighbours) {
    const float undefined = -std::numeric_limits<float>::infinity();
    const NBX::SO<SimpleRasterData<float>> raster(
        new SimpleRasterData<float>(2, 2, 0.0, 0.0, 1.0, 1.0, true, undefined));
    raster->setValue(0, 0, 4.0f);
    raster->setValue(1, 0, 8.0f);
    EXPECT_EQ(6.0, raster->value(0.5, 0.0));
    EXPECT_EQ(undefined, raster->value(0.5, 0.5));
}

TEST(RasterData, PlaneIsReproducedByAnyStore) {
    const Plane plane;
    std::mt19937 random(7);
    std::uniform_real_distribution<double> positionX(0.0, 3.0), positionY(0.0, 4.0);
    for (int i = 0; i < 1000; ++i) {
        const double x = positionX(random), y = positionY(random);
        EXPECT_NEAR(2.0 * x + 0.25 * y, plane.value(x, y), 1e-12) << x << " " << y;
    }
    double row[4];
    plane.valueRow(2, row);
    EXPECT_EQ(7.0, row[3]);
    EXPECT_EQ(nullptr, plane.floatCells());
}

// Positions computed for a cell, far from the origin and with cell sizes that are no binary fractions, meet
// that cell although every other cell is undefined.
TEST(RasterData, ComputedPositionsMeetTheirCell) {
    std::mt19937 random(11);
    for (int i = 0; i < 2000; ++i) {
        const double cellSize = std::ldexp(std::uniform_real_distribution<>(1.0, 2.0)(random), i % 20 - 10);
        const double minX = std::uniform_real_distribution<>(-6e6, 6e6)(random);
        const unsigned cells = 2 + random() % 3000;
        const NBX::SO<SimpleRasterData<float>> raster(
            new SimpleRasterData<float>(cells, 1, minX, minX, cellSize, cellSize, true, -1.0f));
        const unsigned column = random() % cells;
        raster->setValue(column, 0, 5.0f);
        EXPECT_EQ(5.0, raster->value(minX + column * cellSize, minX)) << minX << " " << cellSize;
        raster->setValue(cells - 1, 0, 6.0f);
        EXPECT_EQ(6.0, raster->value(raster->maxX(), minX)) << minX << " " << cellSize;
    }
}

TEST(RasterData, SingleCell) {
    const NBX::SO<SimpleRasterData<float>> raster(
        new SimpleRasterData<float>(1, 1, 5.0, 6.0, 1.0, 1.0, false, 2.0f));
    EXPECT_EQ(2.0, raster->value(5.0, 6.0));
    EXPECT_TRUE(raster->isUndef(5.1, 6.0));
}

TEST(RasterData, EmptyRasterIsUndefinedEverywhere) {
    const NBX::SO<SimpleRasterData<float>> raster(new SimpleRasterData<float>);
    EXPECT_TRUE(raster->isUndef(0.0, 0.0));
    EXPECT_TRUE(std::isnan(raster->value(0.0, 0.0)));
}

TEST(RasterData, CellSizeZeroIsReported) {
    RecordedReports reports;
    const NBX::SO<SimpleRasterData<float>> raster(
        new SimpleRasterData<float>(2, 2, 0.0, 0.0, 0.0, 1.0, false, 0.0f));
    EXPECT_EQ(1u, reports.count(L"cell size not above 0"));
}

TEST(RasterData, ResamplesOntoTheGridOfTheTarget) {
    const auto raster = smallRaster();
    const NBX::SO<SimpleRasterData<float>> target(
        new SimpleRasterData<float>(4, 1, 95.0, 210.0, 5.0, 5.0, true, -1.0f));
    std::fill_n(target->cells(), 4, 77.0f);
    EXPECT_TRUE(raster->resampleRasterData(target.get()));
    EXPECT_EQ(-1.0, target->value(0u, 0u)) << "outside";
    EXPECT_EQ(3.0, target->value(1u, 0u));
    EXPECT_EQ(4.0, target->value(2u, 0u));
    EXPECT_EQ(5.0, target->value(3u, 0u));
}

TEST(RasterData, ResamplingElsewhereFillsWithUndefined) {
    const auto raster = smallRaster();
    const NBX::SO<SimpleRasterData<float>> target(
        new SimpleRasterData<float>(2, 2, 1000.0, 210.0, 5.0, 5.0, false, 0.0f));
    EXPECT_FALSE(raster->resampleRasterData(target.get()));
    EXPECT_TRUE(std::isnan(target->value(1u, 1u)));
    RecordedReports reports;
    EXPECT_FALSE(raster->resampleRasterData(nullptr));
    EXPECT_EQ(1u, reports.count(0, L"target", L"no target"));
}

} // namespace
