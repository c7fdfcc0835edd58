#include <zmt/raster/gdal/heightsource.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <limits>

#include <gtest/gtest.h>

#include "geotiff.h"

#include <nbx/object/exception.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/gdal/rasterwarp.h>

namespace {

using namespace ZMT::RASTER;

const double s_noHeight = std::numeric_limits<double>::quiet_NaN();

class HeightSourceTest : public testing::Test {
protected:
    std::string write(const std::string & name, const TiffContent & content) {
        return writeTiff(directory.file(name), content);
    }

    /// Row by row from the southern one.
    static std::vector<float> cellsOf(const HeightSource & source) {
        const RasterBand & band = *source.band();
        std::vector<float> cells(std::size_t(band.cellsX()) * band.cellsY());
        band.read(0, 0, band.cellsX(), band.cellsY(), cells.data());
        return cells;
    }

    static void expectCells(const std::vector<double> & expected, const HeightSource & source) {
        const std::vector<float> cells = cellsOf(source);
        ASSERT_EQ(expected.size(), cells.size());
        for (std::size_t i = 0; i < cells.size(); ++i)
            if (std::isnan(expected[i]))
                EXPECT_TRUE(std::isnan(cells[i])) << i;
            else
                EXPECT_FLOAT_EQ(float(expected[i]), cells[i]) << i;
    }

    static std::string problemOf(const std::vector<std::string> & paths) {
        try {
            HeightSource source(paths);
        } catch (const NBX::InputException & problem) {
            return problem.what();
        }
        return "";
    }

    /// A raster in degrees whose heights are 10 * longitude + latitude.
    TiffContent degrees(int width, int height, double west, double north, double size) {
        TiffContent content{width, height};
        content.system = "EPSG:4326";
        content.geoTransform = {west - 0.5 * size, size, 0.0, north + 0.5 * size, 0.0, -size};
        for (int line = 0; line < height; ++line)
            for (int column = 0; column < width; ++column)
                content.values.push_back(10.0 * (west + column * size) + north - line * size);
        return content;
    }

    TestDirectory directory;
};

/// Cells that differ by a ten-thousandth are off by a hundredth of one in the hundredth column.
TEST_F(HeightSourceTest, CellsThatDriftAreResampled) {
    TiffContent south{101, 2}, north{100, 2};
    south.values.assign(202, 7.0);
    for (int i = 0; i < 200; ++i)
        north.values.push_back(i % 100);
    constexpr double cell = 30.003;
    south.geoTransform = {500000.0, 30.0, 0.0, 3100000.0, 0.0, -20.0};
    north.geoTransform = {500015.0 - 0.5 * cell, cell, 0.0, 3100040.0, 0.0, -20.0};
    const HeightSource source({write("south.tif", south), write("north.tif", north)});
    ASSERT_EQ(101U, source.band()->cellsX());
    ASSERT_EQ(4U, source.band()->cellsY());
    EXPECT_NEAR(90.0 * 30.0 / cell, cellsOf(source)[2 * 101 + 90], 0.002);
}

TEST_F(HeightSourceTest, ReadsARasterInMetresAsItIs) {
    const HeightSource source({write("a.tif", {3, 2, {1, 2, 3, 4, 5, 6}})});
    EXPECT_EQ(source.reference().name, "WGS 84 / UTM zone 45N");
    EXPECT_EQ(source.band()->minX(), 500015.0);
    EXPECT_EQ(source.band()->minY(), 3099970.0);
    EXPECT_EQ(source.band()->cellSizeX(), 30.0);
    EXPECT_EQ(source.band()->cellSizeY(), 20.0);
    expectCells({4, 5, 6, 1, 2, 3}, source);
}

TEST_F(HeightSourceTest, LaysLaterRastersAboveEarlierOnesWhereTheyAreDefined) {
    const std::string first = write("a.tif", {3, 2, {1, 2, 3, 4, 5, 6}});
    // A column to the east and a line to the south.
    TiffContent content{2, 3, {70, -1, -1, 80, 90, 100}};
    content.geoTransform = {500060.0, 30.0, 0.0, 3099980.0, 0.0, -20.0};
    content.hasNoData = true;
    content.noData = -1;
    const HeightSource source({first, write("b.tif", content)});
    EXPECT_EQ(source.band()->cellsX(), 4U);
    EXPECT_EQ(source.band()->cellsY(), 4U);
    EXPECT_EQ(source.band()->minY(), 3099930.0);
    expectCells({s_noHeight, s_noHeight, 90, 100, s_noHeight, s_noHeight, s_noHeight, 80, 4, 5, 70,
                 s_noHeight, 1, 2, 3, s_noHeight},
                source);
    expectCells({s_noHeight, s_noHeight, 90, 100, s_noHeight, s_noHeight, s_noHeight, 80, 4, 5, 6, s_noHeight,
                 1, 2, 3, s_noHeight},
                HeightSource({directory.file("b.tif"), first}));
}

TEST_F(HeightSourceTest, ReadsWindowsAcrossLayers) {
    const std::string first = write("a.tif", {3, 2, {1, 2, 3, 4, 5, 6}});
    TiffContent content{2, 2, {7, 8, 9, 10}};
    content.geoTransform = {500090.0, 30.0, 0.0, 3100000.0, 0.0, -20.0};
    const HeightSource source({first, write("b.tif", content)});
    std::vector<float> cells(4);
    source.band()->read(2, 0, 2, 2, cells.data());
    EXPECT_EQ(cells, (std::vector<float>{6, 9, 3, 7}));
}

TEST_F(HeightSourceTest, ResamplesWhatLiesBetweenTheCellsOfTheFinest) {
    // Both show 2 * x + 3 * y in cells of the finer one.
    TiffContent fine{8, 6}, coarse{6, 5};
    fine.geoTransform = {500000.0, 10.0, 0.0, 3000060.0, 0.0, -10.0};
    coarse.geoTransform = {500053.0, 20.0, 0.0, 3000107.0, 0.0, -20.0};
    const auto fill = [](TiffContent & content) {
        const auto & t = content.geoTransform;
        for (int line = 0; line < content.height; ++line)
            for (int column = 0; column < content.width; ++column)
                content.values.push_back(2.0 * (t[0] + (column + 0.5) * t[1] - 500005.0) / 10.0 +
                                         3.0 * (t[3] + (line + 0.5) * t[5] - 3000005.0) / 10.0);
    };
    fill(fine);
    fill(coarse);
    const HeightSource source({write("coarse.tif", coarse), write("fine.tif", fine)});
    const RasterBand & band = *source.band();
    EXPECT_EQ(band.cellSizeX(), 10.0);
    EXPECT_EQ(band.minX(), 500005.0);
    const std::vector<float> cells = cellsOf(source);
    unsigned defined = 0;
    for (unsigned y = 0; y < band.cellsY(); ++y)
        for (unsigned x = 0; x < band.cellsX(); ++x) {
            const float height = cells[y * band.cellsX() + x];
            if (std::isnan(height)) continue;
            ++defined;
            // Beyond the centres of the coarse cells at the border there is half a cell of the same height.
            const bool isFine = x < 8 && y < 6;
            const bool isInside = isFine || (x >= 6 && x <= 15 && y >= 2 && y <= 9);
            EXPECT_NEAR(height, 2.0 * x + 3.0 * y, isInside ? 1e-3 : 6.0) << x << " " << y;
        }
    EXPECT_GT(defined, 48U + 40U);
}

TEST_F(HeightSourceTest, BringsDegreesToMetresAsTheWholeRasterWouldBe) {
    // More than one block a side.
    const std::string path = write("degrees.tif", degrees(700, 560, 86.0, 29.0, 0.002));
    const HeightSource source({path});
    const RasterFile file(path);
    const GeoRaster whole = RasterWarp::toMetric(file.read());
    EXPECT_EQ(source.reference().name, "WGS 84 / UTM zone 45N");
    EXPECT_EQ(source.reference().wkt, whole.reference.wkt);
    const RasterBand & band = *source.band();
    ASSERT_EQ(band.cellsX(), whole.raster->cellsX());
    ASSERT_EQ(band.cellsY(), whole.raster->cellsY());
    ASSERT_GT(band.cellsX(), 512U);
    EXPECT_EQ(band.minX(), whole.raster->minX());
    EXPECT_EQ(band.minY(), whole.raster->minY());
    const std::vector<float> cells = cellsOf(source);
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const float expected = whole.raster->cells()[i];
        ASSERT_EQ(std::isnan(expected), std::isnan(cells[i])) << i;
        // A tenth of a cell, which is what the quick conversion of places may be off.
        if (std::isnan(expected)) continue;
        ASSERT_NEAR(expected, cells[i], 0.002) << i;
    }
}

TEST_F(HeightSourceTest, CellsDoNotDependOnTheWindow) {
    const HeightSource source({write("degrees.tif", degrees(700, 560, 86.0, 29.0, 0.002))});
    const RasterBand & band = *source.band();
    const std::vector<float> all = cellsOf(source);
    std::vector<float> cells(130 * 41);
    for (const auto & [col, row] : {std::pair(0U, 0U), std::pair(450U, 500U), std::pair(300U, 511U),
                                    std::pair(band.cellsX() - 130, band.cellsY() - 41)}) {
        band.read(col, row, 130, 41, cells.data());
        for (unsigned y = 0; y < 41; ++y)
            for (unsigned x = 0; x < 130; ++x) {
                const float expected = all[std::size_t(row + y) * band.cellsX() + col + x];
                const float cell = cells[y * 130 + x];
                ASSERT_TRUE(expected == cell || (std::isnan(expected) && std::isnan(cell)));
            }
    }
}

TEST_F(HeightSourceTest, LaysSeveralRastersInDegreesOnOneGrid) {
    const std::string west = write("west.tif", degrees(60, 50, 86.0, 29.0, 0.01));
    const std::string east = write("east.tif", degrees(60, 50, 86.6, 29.0, 0.01));
    const HeightSource both({west, east}), one({west});
    EXPECT_GT(both.band()->cellsX(), one.band()->cellsX() * 19 / 10);
    const std::vector<float> cells = cellsOf(both);
    unsigned undefined = 0;
    for (const float cell : cells)
        undefined += std::isnan(cell);
    EXPECT_LT(undefined, cells.size() / 50);
    const unsigned width = both.band()->cellsX(), row = both.band()->cellsY() / 2;
    for (unsigned x = 2; x + 2 < width; ++x) {
        const float left = cells[std::size_t(row) * width + x - 1],
                    right = cells[std::size_t(row) * width + x];
        if (std::isnan(left) || std::isnan(right)) continue;
        EXPECT_NEAR(right - left, 0.1, 0.02) << x;
    }
}

TEST_F(HeightSourceTest, BringsFeetToMetres) {
    TiffContent content{3, 2, {1, 2, 3, 4, 5, 6}};
    content.system = "EPSG:2263";
    content.geoTransform = {980000.0, 30.0, 0.0, 200000.0, 0.0, -20.0};
    const HeightSource source({write("feet.tif", content)});
    const double foot = 1200.0 / 3937.0;
    EXPECT_NEAR(source.band()->minX(), 980015.0 * foot, 1e-6);
    EXPECT_NEAR(source.band()->minY(), 199970.0 * foot, 1e-6);
    EXPECT_NEAR(source.band()->cellSizeX(), 30.0 * foot, 1e-9);
    EXPECT_NEAR(source.band()->cellSizeY(), 20.0 * foot, 1e-9);
    EXPECT_EQ(source.reference().unit, 1.0);
    expectCells({4, 5, 6, 1, 2, 3}, source);
}

TEST_F(HeightSourceTest, BringsAnotherSystemToThatOfTheFirst) {
    TiffContent other{40, 30};
    other.system = "EPSG:32644";
    other.values.assign(40 * 30, 7.0);
    // The same place as the first in the zone beside.
    other.geoTransform = {1091000.0, 30.0, 0.0, 3107000.0, 0.0, -30.0};
    TiffContent first{2, 2, {1, 2, 3, 4}};
    const HeightSource source({write("a.tif", first), write("b.tif", other)});
    EXPECT_EQ(source.reference().name, "WGS 84 / UTM zone 45N");
    const std::vector<float> cells = cellsOf(source);
    EXPECT_GT(std::count(cells.begin(), cells.end(), 7.0F), 900);
}

TEST_F(HeightSourceTest, BringsAllToTheWantedSystem) {
    TiffContent other{40, 30};
    other.system = "EPSG:32644";
    other.values.assign(40 * 30, 7.0);
    other.geoTransform = {1091000.0, 30.0, 0.0, 3107000.0, 0.0, -30.0};
    TiffContent degrees{40, 30};
    degrees.system = "EPSG:4326";
    degrees.values.assign(40 * 30, 9.0);
    degrees.geoTransform = {87.0, 0.0003, 0.0, 28.02, 0.0, -0.0003};
    const std::string zone = write("zone.tif", other), globe = write("globe.tif", degrees);
    const std::string wanted = HeightSource({write("wanted.tif", {2, 2, {1, 2, 3, 4}})}).reference().wkt;
    for (const std::vector<std::string> & paths : {std::vector{zone}, {globe}, {zone, globe}}) {
        const HeightSource source(paths, wanted);
        EXPECT_EQ(source.reference().name, "WGS 84 / UTM zone 45N");
        const std::vector<float> cells = cellsOf(source);
        EXPECT_GT(std::count_if(cells.begin(), cells.end(), [](float h) { return h == 7.0F || h == 9.0F; }),
                  900);
    }
    const HeightSource source({globe}, wanted);
    EXPECT_NEAR(source.band()->minX(), 500000.0, 60.0);
    EXPECT_NEAR(source.band()->cellSizeX(), 31.0, 3.0);
}

TEST_F(HeightSourceTest, SaysWhatCannotBeLaidTogether) {
    const std::string placed = write("a.tif", {2, 2, {1, 2, 3, 4}});
    TiffContent content{2, 2, {1, 2, 3, 4}};
    content.system = "";
    const std::string unplaced = write("b.tif", content);
    EXPECT_NE(problemOf({placed, unplaced}).find("either all or none have a coordinate system"),
              std::string::npos);
    EXPECT_NE(problemOf({placed, unplaced}).find("b.tif"), std::string::npos);
    EXPECT_NE(problemOf({}).find("no raster"), std::string::npos);
    TiffContent far{2, 2, {1, 2, 3, 4}};
    far.geoTransform = {1e15, 30.0, 0.0, 3100000.0, 0.0, -20.0};
    EXPECT_NE(problemOf({placed, write("c.tif", far)}).find("too far"), std::string::npos);
}

/// More than may be open at once: processes have a bound of open files.
TEST_F(HeightSourceTest, OfManyFilesSomeAreOpen) {
    constexpr int files = 100, mostOpen = 64;
    const auto openFiles = [] {
        const std::filesystem::directory_iterator first("/proc/self/fd");
        return std::distance(first, std::filesystem::directory_iterator());
    };
    std::vector<std::string> paths;
    for (int i = 0; i < files; ++i) {
        TiffContent content{1, 2};
        content.geoTransform = {double(i), 1.0, 0.0, 2.0, 0.0, -1.0};
        content.values = {1000.0 + i, 2000.0 + i};
        paths.push_back(write("tile" + std::to_string(i) + ".tif", content));
    }
    const auto before = openFiles();
    const HeightSource source(paths);
    EXPECT_LE(openFiles() - before, mostOpen);
    EXPECT_GT(openFiles() - before, mostOpen / 2);
    std::vector<double> expected;
    for (const double row : {2000.0, 1000.0})
        for (int i = 0; i < files; ++i)
            expected.push_back(row + i);
    expectCells(expected, source);
    expectCells(expected, source);
    EXPECT_LE(openFiles() - before, mostOpen);
}

TEST_F(HeightSourceTest, FilesThatChangeWhileTheyAreClosedAreReported) {
    std::vector<std::string> paths;
    for (int i = 0; i < 70; ++i) {
        TiffContent content{1, 1};
        content.geoTransform = {double(i), 1.0, 0.0, 1.0, 0.0, -1.0};
        content.values = {double(i)};
        paths.push_back(write("tile" + std::to_string(i) + ".tif", content));
    }
    const HeightSource source(paths);
    TiffContent other{2, 1};
    other.geoTransform = {0.0, 0.5, 0.0, 1.0, 0.0, -1.0};
    other.values = {1.0, 2.0};
    write("tile0.tif", other);
    try {
        cellsOf(source);
        FAIL() << "another file was read";
    } catch (const NBX::InputException & problem) {
        EXPECT_NE(std::string(problem.what()).find("was changed while it was read; start again"),
                  std::string::npos)
            << problem.what();
    }
}

TEST_F(HeightSourceTest, LaysHeightsInTheSystemThatIsGiven) {
    const std::string path = write("a.tif", degrees(60, 40, 86.0, 28.0, 0.01));
    const std::string target = RasterWarp::toMetric(RasterFile(path).read()).reference.wkt;
    const HeightSource source({path}, "",
                              RasterWarp::toSystem(RasterFile(path).read(), target).reference.wkt);
    const HeightSource chosen({path});
    EXPECT_EQ(chosen.reference().name, source.reference().name);
    const std::vector<float> expected = cellsOf(chosen), cells = cellsOf(source);
    EXPECT_EQ(expected, cells);

    const HeightSource mercator({path}, "", "EPSG:3857");
    EXPECT_EQ(mercator.reference().name, "WGS 84 / Pseudo-Mercator");
    const GeoRaster whole = RasterWarp::toSystem(RasterFile(path).read(), "EPSG:3857");
    EXPECT_EQ(mercator.band()->cellsX(), whole.raster->cellsX());
    EXPECT_EQ(mercator.band()->minY(), whole.raster->minY());
}

TEST_F(HeightSourceTest, HeightsInTheSystemThatIsGivenStayAsTheyAre) {
    const std::string path = write("a.tif", {3, 2, {1, 2, 3, 4, 5, 6}});
    expectCells({4, 5, 6, 1, 2, 3}, HeightSource({path}, "", "EPSG:32645"));
    TiffContent bare{3, 2, {1, 2, 3, 4, 5, 6}};
    bare.system = "";
    const HeightSource source({write("bare.tif", bare)}, "", "EPSG:32645");
    EXPECT_EQ(source.reference().name, "WGS 84 / UTM zone 45N");
    expectCells({4, 5, 6, 1, 2, 3}, source);
}

TEST_F(HeightSourceTest, heightsAreMetresWhateverTheirUnit) {
    TiffContent feet{2, 2, {10, 20, -1, 40}};
    feet.unit = "ft";
    feet.hasNoData = true;
    feet.noData = -1.0;
    const std::string low = write("feet.tif", feet);
    expectCells({s_noHeight, 12.192, 3.048, 6.096}, HeightSource({low}));
    // Beside one in metres, and in another system.
    TiffContent metres{2, 2, {1, 2, 3, 4}};
    metres.geoTransform[0] += 60.0;
    metres.unit = "m";
    const HeightSource both({low, write("metres.tif", metres)});
    expectCells({s_noHeight, 12.192, 3, 4, 3.048, 6.096, 1, 2}, both);
    ASSERT_EQ(2U, both.files().size());
    EXPECT_EQ("ft", both.files()[0].heightUnit);
    EXPECT_EQ("m", both.files()[1].heightUnit);
    TiffContent globe = degrees(40, 40, 86.0, 28.0, 0.01);
    globe.values.assign(1600, 100.0);
    globe.unit = "ft";
    const std::vector<float> cells = cellsOf(HeightSource({write("globe.tif", globe)}));
    EXPECT_GT(std::count_if(cells.begin(), cells.end(), [](float h) { return std::abs(h - 30.48F) < 1e-4F; }),
              1000);

    feet.unit = "stories";
    feet.bands = 2;
    feet.values.resize(8);
    const HeightSource strange({write("stories.tif", feet)});
    expectCells({s_noHeight, 40, 10, 20}, strange);
    EXPECT_EQ("stories", strange.files()[0].heightUnit);
    EXPECT_EQ(2U, strange.files()[0].bands);
}

TEST_F(HeightSourceTest, takesHeightsInMemory) {
    TiffContent content{3, 2, {1, 2, 3, -1, 5, 6}};
    content.hasNoData = true;
    content.noData = -1.0;
    GeoRaster raster = RasterFile(write("a.tif", content)).read();
    const HeightSource source(raster);
    expectCells({s_noHeight, 5, 6, 1, 2, 3}, source);
    float part[2];
    source.band()->read(1, 0, 1, 2, part);
    EXPECT_EQ(5.0F, part[0]);
    EXPECT_EQ(2.0F, part[1]);
    EXPECT_EQ("WGS 84 / UTM zone 45N", source.reference().name);
    EXPECT_EQ(3100000.0 - 30.0, source.band()->minY());
    EXPECT_TRUE(source.files().empty());
}

TEST_F(HeightSourceTest, saysWhatAFileWithoutHeightsIs) {
    const std::string lines =
        directory.write("a.geojson", R"({"type":"LineString","coordinates":[[86.9,27.9],[86.91,27.91]]})");
    EXPECT_NE(std::string::npos, problemOf({lines}).find("holds lines or areas and no heights"))
        << problemOf({lines});
}

} // namespace
