#include <zmt/raster/gdal/rasterwarp.h>

#include <cmath>
#include <limits>

#include <gtest/gtest.h>
#include <ogr_spatialref.h>

#include "wktof.h"

#include <nbx/object/exception.h>
#include <support/cancelingdisplay.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/histogram.h>

namespace {

using namespace ZMT::RASTER;

const float noHeight = std::numeric_limits<float>::quiet_NaN();

/// A raster in degrees whose heights are 10 * longitude + latitude.
GeoRaster degrees(unsigned width, unsigned height, double minX, double minY, double cellSize) {
    GeoRaster result;
    result.raster = NBX::SO<SimpleRasterData<float>>(
        new SimpleRasterData<float>(width, height, minX, minY, cellSize, cellSize, true, noHeight));
    for (unsigned row = 0; row < height; ++row)
        for (unsigned column = 0; column < width; ++column)
            result.raster->setValue(column, row,
                                    float(10.0 * (minX + column * cellSize) + minY + row * cellSize));
    result.reference = {true, wktOf("EPSG:4326"), "WGS 84", true, 1.0, "degree"};
    return result;
}

/// The position of the raster's cell in degrees.
std::pair<double, double> degreesOf(const GeoRaster & raster, unsigned column, unsigned row) {
    OGRSpatialReference from, to;
    from.SetFromUserInput(raster.reference.wkt.c_str());
    to.SetFromUserInput("EPSG:4326");
    from.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    to.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    double x = raster.raster->minX() + column * raster.raster->cellSizeX();
    double y = raster.raster->minY() + row * raster.raster->cellSizeY();
    OGRCoordinateTransformation * transformation = OGRCreateCoordinateTransformation(&from, &to);
    EXPECT_TRUE(transformation->Transform(1, &x, &y));
    delete transformation;
    return {x, y};
}

/// The heights tell where they came from: nothing may have moved by more than a tenth of a cell.
void expectHeightsInPlace(const GeoRaster & warped, double cellSizeDegrees) {
    const auto & cells = *warped.raster;
    unsigned defined = 0;
    for (unsigned row = 0; row < cells.cellsY(); row += 1 + cells.cellsY() / 23) {
        for (unsigned column = 0; column < cells.cellsX(); column += 1 + cells.cellsX() / 23) {
            const double height = cells.value(column, row);
            if (std::isnan(height)) continue;
            const auto [x, y] = degreesOf(warped, column, row);
            // The border of half a cell is extrapolated.
            const bool isBorder =
                row == 0 || column == 0 || row + 2 > cells.cellsY() || column + 2 > cells.cellsX();
            EXPECT_NEAR(10.0 * x + y, height, (isBorder ? 7.0 : 1.0) * cellSizeDegrees)
                << column << " " << row;
            ++defined;
        }
    }
    EXPECT_GT(defined, 100u);
}

TEST(RasterWarp, SmallRasterGoesToItsUtmZone) {
    const GeoRaster warped = RasterWarp::toMetric(degrees(200, 150, 86.0, 27.0, 0.005));
    EXPECT_EQ("WGS 84 / UTM zone 45N", warped.reference.name);
    EXPECT_EQ(warped.raster->cellSizeX(), warped.raster->cellSizeY());
    EXPECT_NEAR(525.0, warped.raster->cellSizeX(), 30.0);
    EXPECT_FALSE(warped.reference.isGeographic);
    EXPECT_EQ(1.0, warped.reference.unit);
    expectHeightsInPlace(warped, 0.005);
    EXPECT_EQ(0u, Histogram(warped.raster.get()).numberOfUndefinedValues())
        << "the meridians converge; the empty wedges along the border are cut off";
    EXPECT_GT(warped.raster->cellsX() * warped.raster->cellsY(), 0.9 * 200 * 150);
}

TEST(RasterWarp, ZonesOfBothHemispheresAndBehindTheDateLine) {
    const auto zoneOf = [](double x, double y) {
        return RasterWarp::toMetric(degrees(20, 20, x, y, 0.01)).reference.name;
    };
    EXPECT_EQ("WGS 84 / UTM zone 18S", zoneOf(-73.0, -47.0));
    EXPECT_EQ("WGS 84 / UTM zone 1N", zoneOf(-180.0, 10.0));
    EXPECT_EQ("WGS 84 / UTM zone 60N", zoneOf(179.0, 10.0));
    EXPECT_EQ("WGS 84 / UTM zone 16N", zoneOf(275.0, 36.0)) << "longitudes from 0 to 360";
}

TEST(RasterWarp, VoidsStayVoids) {
    GeoRaster source = degrees(60, 60, 86.0, 27.0, 0.01);
    for (unsigned row = 20; row < 40; ++row)
        for (unsigned column = 20; column < 40; ++column)
            source.raster->setValue(column, row, noHeight);
    const GeoRaster warped = RasterWarp::toMetric(source);
    const auto & cells = *warped.raster;
    EXPECT_TRUE(std::isnan(cells.value(cells.cellsX() / 2, cells.cellsY() / 2)));
    EXPECT_FALSE(std::isnan(cells.value(cells.cellsX() / 5, cells.cellsY() / 2)));
    expectHeightsInPlace(warped, 0.01);
}

TEST(RasterWarp, UndefinedValueThatIsANumberDoesNotBleed) {
    GeoRaster source = degrees(30, 30, 86.0, 27.0, 0.01);
    const NBX::SO<SimpleRasterData<float>> holes(
        new SimpleRasterData<float>(30, 30, 86.0, 27.0, 0.01, 0.01, true, -9999.0f));
    for (unsigned row = 0; row < 30; ++row)
        for (unsigned column = 0; column < 30; ++column)
            if ((row + column) % 3)
                holes->setValue(column, row, static_cast<float>(source.raster->value(column, row)));
    source.raster = holes;
    const Histogram histogram(RasterWarp::toMetric(source).raster.get());
    EXPECT_GT(histogram.minimum(), 880.0);
}

// Rows 0 and 180 are the poles, so that the outer edges lie behind them by half a cell.
TEST(RasterWarp, WorldKeepsItsCells) {
    const GeoRaster source = degrees(360, 181, -180.0, -90.0, 1.0);
    const GeoRaster warped = RasterWarp::toMetric(source);
    ASSERT_EQ(360u, warped.raster->cellsX());
    ASSERT_EQ(181u, warped.raster->cellsY());
    EXPECT_NEAR(-20037508.34, warped.raster->minX(), 1.0);
    EXPECT_NEAR(111319.49, warped.raster->cellSizeX(), 0.01);
    EXPECT_NEAR(warped.raster->cellSizeX(), warped.raster->cellSizeY(), 400.0);
    for (unsigned row = 0; row < 181; ++row)
        for (unsigned column = 0; column < 360; ++column)
            ASSERT_NEAR(source.raster->value(column, row), warped.raster->value(column, row), 0.2)
                << column << " " << row;
}

TEST(RasterWarp, WorldFromZeroTo360) {
    const GeoRaster source = degrees(360, 181, 0.0, -90.0, 1.0);
    const GeoRaster warped = RasterWarp::toMetric(source);
    for (unsigned row = 0; row < 181; row += 9)
        for (unsigned column = 0; column < 360; column += 7)
            ASSERT_NEAR(source.raster->value(column, row), warped.raster->value(column, row), 0.2)
                << column << " " << row;
}

TEST(RasterWarp, ContinentIsTrueToScaleInItsMiddle) {
    const GeoRaster warped = RasterWarp::toMetric(degrees(80, 60, 10.0, 40.0, 0.5));
    EXPECT_EQ(80u, warped.raster->cellsX());
    EXPECT_NEAR(0.5 * 111319.49 * std::cos(55.0 * M_PI / 180.0), warped.raster->cellSizeX(), 100.0);
    EXPECT_NEAR(0.5 * 111319.49, warped.raster->cellSizeY(), 300.0);
    expectHeightsInPlace(warped, 0.5);
}

TEST(RasterWarp, PolarRaster) {
    const GeoRaster warped = RasterWarp::toMetric(degrees(60, 40, 20.0, 85.0, 0.1));
    EXPECT_EQ("WGS 84 / UPS North (E,N)", warped.reference.name);
    EXPECT_GT(Histogram(warped.raster.get()).numberOfDefinedValues(), 100u);
}

TEST(RasterWarp, RowsBehindThePolesAreLeftOut) {
    const GeoRaster warped = RasterWarp::toMetric(degrees(360, 185, -180.0, -92.0, 1.0));
    EXPECT_EQ(181u, warped.raster->cellsY());
}

TEST(RasterWarp, NumbersThatAreNoDegreesThrow) {
    EXPECT_THROW(RasterWarp::toMetric(degrees(4, 4, 500000.0, 3100000.0, 30.0)), NBX::InputException);
    EXPECT_THROW(RasterWarp::toMetric(degrees(4, 4, 0.0, 3100000.0, 30.0)), NBX::InputException);
}

TEST(RasterWarp, SmallestSizes) {
    for (const auto & [width, height] :
         {std::pair(1u, 1u), std::pair(1u, 5u), std::pair(5u, 1u), std::pair(2u, 2u)}) {
        const GeoRaster warped = RasterWarp::toMetric(degrees(width, height, 86.0, 27.0, 0.01));
        EXPECT_GT(Histogram(warped.raster.get()).numberOfDefinedValues(), 0u) << width << " x " << height;
        EXPECT_LT(warped.raster->cellsX() * warped.raster->cellsY(), 2000u);
    }
    const GeoRaster column = RasterWarp::toMetric(degrees(1, 100, 86.0, -50.0, 1.0));
    EXPECT_EQ(1u, column.raster->cellsX());
    EXPECT_GT(column.raster->cellSizeX(), 0.0);
}

TEST(RasterWarp, AllUndefinedStaysSo) {
    GeoRaster source = degrees(5, 5, 86.0, 27.0, 0.01);
    std::fill_n(source.raster->cells(), 25, noHeight);
    EXPECT_EQ(0u, Histogram(RasterWarp::toMetric(source).raster.get()).numberOfDefinedValues());
}

TEST(RasterWarp, MetresAndUnknownSystemsStayAsTheyAre) {
    GeoRaster source = degrees(5, 5, 500000.0, 3100000.0, 30.0);
    source.reference = {true, wktOf("EPSG:32645"), "", false, 1.0, "metre"};
    EXPECT_FALSE(RasterWarp::isNeeded(source.reference));
    EXPECT_TRUE(RasterWarp::toMetric(source).raster == source.raster);
    source.reference = GeoReference();
    EXPECT_TRUE(RasterWarp::toMetric(source).raster == source.raster);
    EXPECT_FALSE(RasterWarp::toMetric(GeoRaster()).raster);
}

TEST(RasterWarp, FeetBecomeMetresWithoutResampling) {
    GeoRaster source = degrees(5, 4, 1000.0, 2000.0, 10.0);
    source.reference = {true, wktOf("EPSG:2263"), "", false, 1200.0 / 3937.0, "US survey foot"};
    const GeoRaster scaled = RasterWarp::toMetric(source);
    EXPECT_NEAR(304.8006096, scaled.raster->minX(), 1e-6);
    EXPECT_NEAR(3.048006096, scaled.raster->cellSizeY(), 1e-8);
    EXPECT_EQ(1.0, scaled.reference.unit);
    EXPECT_TRUE(std::equal(source.raster->cells(), source.raster->cells() + 20, scaled.raster->cells()));
    EXPECT_FALSE(RasterWarp::isNeeded(scaled.reference));
}

TEST(RasterWarp, CancelledWarpGivesNull) {
    const CancelingDisplay display;
    NBX::Progress progress("warping", 5.0);
    EXPECT_FALSE(RasterWarp::toMetric(degrees(50, 50, 86.0, 27.0, 0.01), &progress).raster);
}

TEST(RasterWarp, RealHeightsKeepTheirRange) {
    const GeoRaster source = RasterFile(ZMT_DATA_DIR "/jacksboro_srtm3.tif").read();
    const GeoRaster warped = RasterWarp::toMetric(source);
    EXPECT_EQ("WGS 84 / UTM zone 16N", warped.reference.name);
    const Histogram before(source.raster.get()), after(warped.raster.get());
    EXPECT_EQ(0u, after.numberOfUndefinedValues());
    EXPECT_NEAR(before.average(), after.average(), 5.0) << "strips along the border are cut off";
    EXPECT_GE(after.minimum(), before.minimum());
    EXPECT_LE(after.maximum(), before.maximum());
}

TEST(RasterWarp, GoesToTheSystemThatIsNamed) {
    const GeoRaster warped = RasterWarp::toSystem(degrees(200, 150, 86.0, 27.0, 0.005), wktOf("EPSG:3857"));
    EXPECT_EQ("WGS 84 / Pseudo-Mercator", warped.reference.name);
    EXPECT_TRUE(warped.reference.isGeoreferenced);
    expectHeightsInPlace(warped, 0.005);
}

/// Borders that the other system bends would leave wedges without heights.
TEST(RasterWarp, NoWedgesAreLeftInASystemThatIsNamed) {
    const GeoRaster first = RasterWarp::toMetric(degrees(200, 150, 86.0, 27.0, 0.005));
    const GeoRaster second = RasterWarp::toSystem(first, wktOf("EPSG:32644"));
    EXPECT_EQ("WGS 84 / UTM zone 44N", second.reference.name);
    const Histogram histogram(second.raster.get());
    EXPECT_LT(histogram.numberOfUndefinedValues(), 0.005 * histogram.numberOfDefinedValues());
}

TEST(RasterWarp, ASystemThatIsTheSameOrUnknownChangesNothing) {
    GeoRaster source = degrees(20, 15, 86.0, 27.0, 0.005);
    EXPECT_EQ(source.raster, RasterWarp::toSystem(source, wktOf("EPSG:4326")).raster);
    source.reference = {};
    EXPECT_EQ(source.raster, RasterWarp::toSystem(source, wktOf("EPSG:32645")).raster);
}

TEST(RasterWarp, TheWayToASystemCanBeCancelled) {
    const CancelingDisplay canceling;
    NBX::Progress progress("warping");
    EXPECT_FALSE(
        RasterWarp::toSystem(degrees(200, 150, 86.0, 27.0, 0.005), wktOf("EPSG:3857"), &progress).raster);
}

} // namespace
