#include <zmt/raster/gdal/rasterfile.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>

#include <gtest/gtest.h>

#include "geotiff.h"

#include <nbx/object/exception.h>
#include <support/cancelingdisplay.h>
#include <zmt/raster/histogram.h>

namespace {

using namespace ZMT::RASTER;

const double notANumber = std::numeric_limits<double>::quiet_NaN();
const double infinity = std::numeric_limits<double>::infinity();

class RasterFileTest : public testing::Test {
protected:
    GeoRaster read(const TiffContent & content) { return RasterFile(write(content)).read(); }
    std::string write(const TiffContent & content) {
        return writeTiff(directory.file("heights.tif"), content);
    }

    /// The message of the exception that `work` throws; empty where it throws none.
    template <class E> static std::string thrown(const std::function<void()> & work) {
        try {
            work();
        } catch (const E & exception) {
            return exception.what();
        }
        return "";
    }
    std::string openingFails(const std::string & path) {
        return thrown<NBX::InputException>([&] { RasterFile file(path); });
    }

    TestDirectory directory;
};

void expectCells(const std::vector<double> & expected, const GeoRaster & raster) {
    ASSERT_TRUE(raster.raster);
    const auto & cells = *raster.raster;
    ASSERT_EQ(expected.size(), std::size_t(cells.cellsX()) * cells.cellsY());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (std::isnan(expected[i]))
            EXPECT_TRUE(std::isnan(cells.cells()[i])) << i;
        else
            EXPECT_EQ(expected[i], cells.cells()[i]) << i;
    }
}

bool contains(const std::string & text, const std::string & part) {
    return text.find(part) != std::string::npos;
}

TEST_F(RasterFileTest, NorthUpFileIsReadFromTheSouth) {
    const GeoRaster raster = read({.width = 3, .height = 2, .values = {1, 2, 3, 4, 5, 6}});
    expectCells({4, 5, 6, 1, 2, 3}, raster);
    EXPECT_EQ(500015.0, raster.raster->minX());
    EXPECT_EQ(500075.0, raster.raster->maxX());
    EXPECT_EQ(3100000.0 - 30.0, raster.raster->minY());
    EXPECT_EQ(3100000.0 - 10.0, raster.raster->maxY());
    EXPECT_EQ(30.0, raster.raster->cellSizeX());
    EXPECT_EQ(20.0, raster.raster->cellSizeY());
    EXPECT_TRUE(raster.reference.isGeoreferenced);
    EXPECT_FALSE(raster.reference.isGeographic);
    EXPECT_EQ("metre", raster.reference.unitName);
    EXPECT_EQ("WGS 84 / UTM zone 45N", raster.reference.name);
    EXPECT_TRUE(contains(raster.reference.wkt, "32645"));
}

/// A share of the memory of the machine would be its own choice.
TEST_F(RasterFileTest, BlocksOfFilesInMemoryAreBounded) {
    if (std::getenv("GDAL_CACHEMAX")) GTEST_SKIP() << "the environment says otherwise";
    read({.width = 1, .height = 1, .values = {1}});
    EXPECT_LE(GDALGetCacheMax64(), GIntBig(256) << 20);
    EXPECT_GE(GDALGetCacheMax64(), GIntBig(16) << 20);
}

TEST_F(RasterFileTest, SouthUpFile) {
    const GeoRaster raster = read({.width = 2,
                                   .height = 2,
                                   .values = {1, 2, 3, 4},
                                   .geoTransform = {500000.0, 30.0, 0.0, 3100000.0, 0.0, 20.0}});
    expectCells({1, 2, 3, 4}, raster);
    EXPECT_EQ(3100010.0, raster.raster->minY());
    EXPECT_EQ(20.0, raster.raster->cellSizeY());
}

TEST_F(RasterFileTest, MirroredFile) {
    const GeoRaster raster = read({.width = 3,
                                   .height = 1,
                                   .values = {1, 2, 3},
                                   .geoTransform = {500000.0, -30.0, 0.0, 3100000.0, 0.0, -20.0}});
    expectCells({3, 2, 1}, raster);
    EXPECT_EQ(500000.0 - 75.0, raster.raster->minX());
    EXPECT_EQ(500000.0 - 15.0, raster.raster->maxX());
}

TEST_F(RasterFileTest, FileTurnedByARightAngle) {
    // The columns of the file run south, its lines run east.
    const GeoRaster raster = read({.width = 2,
                                   .height = 3,
                                   .values = {1, 2, 3, 4, 5, 6},
                                   .geoTransform = {500000.0, 0.0, 30.0, 3100000.0, -20.0, 0.0}});
    ASSERT_EQ(3u, raster.raster->cellsX());
    ASSERT_EQ(2u, raster.raster->cellsY());
    expectCells({2, 4, 6, 1, 3, 5}, raster);
    EXPECT_EQ(30.0, raster.raster->cellSizeX());
    EXPECT_EQ(20.0, raster.raster->cellSizeY());
    EXPECT_EQ(500015.0, raster.raster->minX());
    EXPECT_EQ(3100000.0 - 30.0, raster.raster->minY());
}

TEST_F(RasterFileTest, RotatedFileHasUndefinedCorners) {
    TiffContent content{.width = 40, .height = 40, .values = std::vector<double>(1600, 7.0)};
    content.geoTransform = {500000.0, 20.0, 20.0, 3100000.0, -20.0, 20.0};
    const GeoRaster raster = read(content);
    const auto & cells = *raster.raster;
    EXPECT_TRUE(cells.isUndefValue(cells.value(0u, 0u)));
    EXPECT_NEAR(7.0, cells.value(0.5 * (cells.minX() + cells.maxX()), 0.5 * (cells.minY() + cells.maxY())),
                1e-5);
}

TEST_F(RasterFileTest, PointAndAreaRegistrationOfOneTagDifferByHalfAPixel) {
    const TiffContent area{.width = 2, .height = 2, .values = {1, 2, 3, 4}};
    // The writer places the tag such that the pixels lie at the same positions; the reader has to undo it.
    const std::string path = directory.file("point.tif");
    writeTiff(path, area);
    {
        GDALDataset * dataset = static_cast<GDALDataset *>(GDALOpen(path.c_str(), GA_Update));
        dataset->SetMetadataItem("AREA_OR_POINT", "Point");
        auto transform = area.geoTransform;
        dataset->SetGeoTransform(transform.data());
        GDALClose(dataset);
    }
    setenv("GTIFF_POINT_GEO_IGNORE", "YES", 1);
    const RasterFile file(path);
    unsetenv("GTIFF_POINT_GEO_IGNORE");
    EXPECT_EQ(500015.0, file.grid().minX);
    EXPECT_EQ(3100000.0 - 30.0, file.grid().minY);
}

TEST_F(RasterFileTest, NoDataBecomesUndefined) {
    for (const GDALDataType type : {GDT_Int16, GDT_Int32, GDT_Float32, GDT_Float64}) {
        const GeoRaster raster = read({.width = 2,
                                       .height = 1,
                                       .values = {-9999, 5},
                                       .type = type,
                                       .hasNoData = true,
                                       .noData = -9999});
        expectCells({notANumber, 5}, raster);
    }
}

TEST_F(RasterFileTest, NoDataWrittenWithFewDigits) {
    expectCells({notANumber, 5}, read({.width = 2,
                                       .height = 1,
                                       .values = {-3.4028234663852886e38, 5},
                                       .hasNoData = true,
                                       .noData = -3.40282e38}));
}

TEST_F(RasterFileTest, NoDataNearAWholeNumberIsNotThatNumber) {
    expectCells({65535, 5}, read({.width = 2,
                                  .height = 1,
                                  .values = {65535, 5},
                                  .type = GDT_UInt16,
                                  .hasNoData = true,
                                  .noData = 65535.001}));
}

TEST_F(RasterFileTest, InfiniteNoDataLeavesTheOthers) {
    expectCells(
        {notANumber, 5},
        read({.width = 2, .height = 1, .values = {-infinity, 5}, .hasNoData = true, .noData = -infinity}));
}

TEST_F(RasterFileTest, NotANumberAndInfinityBecomeUndefined) {
    expectCells({notANumber, notANumber, notANumber, 5},
                read({.width = 4, .height = 1, .values = {notANumber, infinity, -infinity, 5}}));
    expectCells({notANumber, 5}, read({.width = 2, .height = 1, .values = {1e300, 5}, .type = GDT_Float64}));
}

TEST_F(RasterFileTest, MaskBecomesUndefined) {
    const std::string path = write({.width = 2, .height = 2, .values = {1, 2, 3, 4}});
    {
        GDALDataset * dataset = static_cast<GDALDataset *>(GDALOpen(path.c_str(), GA_Update));
        dataset->CreateMaskBand(GMF_PER_DATASET);
        std::uint8_t mask[4] = {255, 0, 255, 255};
        EXPECT_EQ(CE_None, dataset->GetRasterBand(1)->GetMaskBand()->RasterIO(GF_Write, 0, 0, 2, 2, mask, 2,
                                                                              2, GDT_Byte, 0, 0, nullptr));
        GDALClose(dataset);
    }
    expectCells({3, 4, 1, notANumber}, RasterFile(path).read());
}

TEST_F(RasterFileTest, ScaleAndOffsetAreApplied) {
    expectCells({110, notANumber}, read({.width = 2,
                                         .height = 1,
                                         .values = {100, -1},
                                         .type = GDT_Int16,
                                         .hasNoData = true,
                                         .noData = -1,
                                         .scale = 0.1,
                                         .offset = 100}));
}

TEST_F(RasterFileTest, WideIntegersAreRoundedToFloat) {
    expectCells({16777216, 16777216 * 2.0},
                read({.width = 2, .height = 1, .values = {16777216, 33554433}, .type = GDT_Int32}));
}

TEST_F(RasterFileTest, AllUndefined) {
    const GeoRaster raster =
        read({.width = 2, .height = 2, .values = {-1, -1, -1, -1}, .hasNoData = true, .noData = -1});
    EXPECT_EQ(0u, Histogram(raster.raster.get()).numberOfDefinedValues());
}

TEST_F(RasterFileTest, SmallestSizes) {
    expectCells({7}, read({.width = 1, .height = 1, .values = {7}}));
    expectCells({3, 2, 1}, read({.width = 1, .height = 3, .values = {1, 2, 3}}));
    expectCells({1, 2, 3}, read({.width = 3, .height = 1, .values = {1, 2, 3}}));
    expectCells({3, 4, 1, 2}, read({.width = 2, .height = 2, .values = {1, 2, 3, 4}}));
}

TEST_F(RasterFileTest, WithoutGeoreferencePixelsAreCounted) {
    const GeoRaster raster =
        read({.width = 3, .height = 2, .values = {1, 2, 3, 4, 5, 6}, .isPlaced = false, .system = ""});
    expectCells({4, 5, 6, 1, 2, 3}, raster);
    EXPECT_FALSE(raster.reference.isGeoreferenced);
    EXPECT_TRUE(raster.reference.wkt.empty());
    EXPECT_EQ(0.0, raster.raster->minX());
    EXPECT_EQ(0.0, raster.raster->minY());
    EXPECT_EQ(1.0, raster.raster->cellSizeX());
    EXPECT_EQ(1.0, raster.raster->cellSizeY());
}

TEST_F(RasterFileTest, UnitsOfTheSystem) {
    const GeoRaster degrees = read({.width = 2,
                                    .height = 2,
                                    .values = {1, 2, 3, 4},
                                    .geoTransform = {86, 0.1, 0, 28, 0, -0.1},
                                    .system = "EPSG:4326"});
    EXPECT_TRUE(degrees.reference.isGeographic);
    EXPECT_EQ("degree", degrees.reference.unitName);
    EXPECT_EQ(1.0, degrees.reference.unit);
    const GeoRaster feet = read({.width = 2, .height = 2, .values = {1, 2, 3, 4}, .system = "EPSG:2263"});
    EXPECT_FALSE(feet.reference.isGeographic);
    EXPECT_NEAR(0.3048006, feet.reference.unit, 1e-7);
    const GeoRaster unknown = read({.width = 2, .height = 2, .values = {1, 2, 3, 4}, .system = ""});
    EXPECT_TRUE(unknown.reference.isGeoreferenced);
    EXPECT_EQ("", unknown.reference.wkt);
}

TEST_F(RasterFileTest, BandsAreReadInWindows) {
    const std::string path =
        write({.width = 3, .height = 2, .values = {0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6}, .bands = 2});
    NBX::SO<RasterBand> band;
    {
        const RasterFile file(path);
        EXPECT_EQ(2u, file.bands());
        EXPECT_EQ("GTiff", file.format());
        EXPECT_EQ(path, file.path());
        band = file.band(1);
        EXPECT_TRUE(contains(thrown<NBX::InputException>([&] { file.band(2); }), "has no band 3"));
    }
    float cells[2];
    band->read(1, 0, 2, 1, cells);
    EXPECT_EQ(5.0f, cells[0]);
    EXPECT_EQ(6.0f, cells[1]);
    EXPECT_EQ(1.0, band->minValue());
    EXPECT_EQ(6.0, band->maxValue());
    EXPECT_EQ(500015.0, band->minX());
}

TEST_F(RasterFileTest, NoSuchFile) {
    const std::string path = directory.file("missing.tif");
    const std::string message = thrown<NBX::FileNotFoundException>([&] { RasterFile file(path); });
    EXPECT_TRUE(contains(message, "no such file")) << message;
    EXPECT_TRUE(contains(message, path)) << message;
}

TEST_F(RasterFileTest, FilesThatAreNoRasters) {
    EXPECT_TRUE(contains(openingFails(directory.file("")), "is a directory"));
    EXPECT_TRUE(contains(openingFails(directory.write("notes.txt", "Heights of the hills, by hand.\n")),
                         "is no raster file"));
    EXPECT_TRUE(contains(openingFails(directory.write("empty.tif", "")), "the file is empty"));
    EXPECT_TRUE(contains(openingFails(""), "no such file"));
}

TEST_F(RasterFileTest, FilesWithoutTheRightToRead) {
    const std::string path = directory.write("hidden.tif", "whatever");
    ASSERT_EQ(0, ::chmod(directory.file("").c_str(), 0755));
    ASSERT_EQ(0, ::chmod(path.c_str(), 0));
    // Nothing is hidden from root.
    const uid_t user = ::geteuid(), nobody = 65534;
    if (user == 0) {
        ASSERT_EQ(0, ::seteuid(nobody));
    }
    const std::string message = openingFails(path);
    ASSERT_EQ(0, ::seteuid(user));
    EXPECT_TRUE(contains(message, "cannot be read; check its access rights")) << message;
}

TEST_F(RasterFileTest, FileWithoutBands) {
    const std::string path =
        writeTiff(directory.file("bandless.pix"), {.width = 2, .height = 2, .bands = 0, .format = "PCIDSK"});
    EXPECT_TRUE(contains(openingFails(path), "has no raster bands")) << openingFails(path);
}

TEST_F(RasterFileTest, FileOfSeveralRastersNamesThem) {
    const std::string path = directory.file("several.gpkg");
    TiffContent content{.width = 2, .height = 2, .values = {1, 2, 3, 4}, .type = GDT_Byte, .format = "GPKG"};
    content.options = {"RASTER_TABLE=first"};
    writeTiff(path, content);
    content.options = {"RASTER_TABLE=second", "APPEND_SUBDATASET=YES"};
    writeTiff(path, content);
    EXPECT_TRUE(contains(openingFails(path), "holds several rasters")) << openingFails(path);
    EXPECT_TRUE(contains(openingFails(path), "first")) << openingFails(path);
}

TEST_F(RasterFileTest, UnusableGeoreference) {
    const std::string content = "<VRTDataset rasterXSize=\"2\" rasterYSize=\"2\"><GeoTransform>5,0,0,5,0,0"
                                "</GeoTransform><VRTRasterBand dataType=\"Byte\" band=\"1\"/></VRTDataset>";
    EXPECT_TRUE(contains(openingFails(directory.write("flat.vrt", content)), "georeference is unusable"));
}

TEST_F(RasterFileTest, ComplexNumbersAreNoHeights) {
    const RasterFile file(write({.width = 1, .height = 1, .values = {1}, .type = GDT_CFloat32}));
    EXPECT_TRUE(contains(thrown<NBX::InputException>([&] { file.read(); }), "complex numbers"));
}

TEST_F(RasterFileTest, TooLargeIsRefusedBeforeMemoryIsTaken) {
    const std::string path = directory.file("huge.tif");
    CPLStringList options;
    for (const char * option : {"SPARSE_OK=TRUE", "TILED=YES", "BLOCKXSIZE=4096", "BLOCKYSIZE=4096"})
        options.AddString(option);
    GDALAllRegister();
    GDALDriver * driver = GetGDALDriverManager()->GetDriverByName("GTiff");
    GDALDataset * dataset = driver->Create(path.c_str(), 2'000'000, 2'000'000, 1, GDT_Byte, options.List());
    GDALClose(dataset);
    const std::string message = thrown<NBX::InputException>([&] { RasterFile(path).read(); });
    EXPECT_TRUE(contains(message, "too large: 2000000 x 2000000")) << message;
    EXPECT_THROW(RasterFile(write({.width = 2, .height = 2, .values = {1, 2, 3, 4}})).read(0, nullptr, 3),
                 NBX::InputException);
    EXPECT_NO_THROW(RasterFile(write({.width = 2, .height = 2, .values = {1, 2, 3, 4}})).read(0, nullptr, 4));
}

TEST_F(RasterFileTest, CancelledReadingGivesNull) {
    {
        const CancelingDisplay display;
        NBX::Progress progress("reading", 10.0);
        EXPECT_FALSE(
            RasterFile(write({.width = 2, .height = 2, .values = {1, 2, 3, 4}})).read(0, &progress).raster);
    }
    NBX::Progress progress("reading", 10.0);
    EXPECT_TRUE(
        RasterFile(write({.width = 2, .height = 2, .values = {1, 2, 3, 4}})).read(0, &progress).raster);
    EXPECT_EQ(10.0, progress.currentValue());
}

/// Options of the writer; every one gives another reader of blocks.
class RasterFileCutTest : public RasterFileTest,
                          public testing::WithParamInterface<std::vector<std::string>> {};

// A file that was cut off must throw at every length: delivering zeros would make ground of nothing.
TEST_P(RasterFileCutTest, CutFileThrowsAtEveryLength) {
    TiffContent content{.width = 70, .height = 50};
    for (int i = 0; i < 3500; ++i)
        content.values.push_back(1000.0 + (i * 7919) % 1013);
    content.options = GetParam();
    const std::string whole = write(content);
    std::ifstream stream(whole, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stream)), {});
    ASSERT_GT(bytes.size(), 2000u);
    for (std::size_t length = 0; length < bytes.size(); length += length < 600 ? 23 : 397) {
        const std::string path = directory.write("cut.tif", bytes.substr(0, length));
        EXPECT_THROW(RasterFile(path).read(), NBX::InputException) << length << " of " << bytes.size();
    }
    EXPECT_THROW(RasterFile(directory.write("cut.tif", bytes.substr(0, bytes.size() - 64))).read(),
                 NBX::InputException);
}

INSTANTIATE_TEST_SUITE_P(Blocks, RasterFileCutTest,
                         testing::Values(std::vector<std::string>{},
                                         std::vector<std::string>{"COMPRESS=DEFLATE"},
                                         std::vector<std::string>{"COMPRESS=LZW", "PREDICTOR=3"},
                                         std::vector<std::string>{"TILED=YES", "BLOCKXSIZE=16",
                                                                  "BLOCKYSIZE=16", "COMPRESS=PACKBITS"}));

TEST_F(RasterFileTest, RealHeights) {
    const GeoRaster raster = RasterFile(ZMT_DATA_DIR "/everest_srtm3.tif").read();
    EXPECT_EQ(1201u, raster.raster->cellsX());
    EXPECT_NEAR(86.0, raster.raster->minX(), 1e-9);
    EXPECT_NEAR(28.0, raster.raster->maxY(), 1e-9);
    const Histogram histogram(raster.raster.get());
    EXPECT_EQ(192.0, histogram.minimum());
    EXPECT_EQ(8642.0, histogram.maximum());
    EXPECT_NEAR(0.0908, double(histogram.numberOfUndefinedValues()) / (1201 * 1201), 1e-4);
    // Pixel (1080, 120) of the file.
    EXPECT_EQ(4929.0, raster.raster->value(1080u, 1200u - 120u));
    EXPECT_NEAR(4929.0, raster.raster->value(86.9, 27.9), 1e-6);
}

} // namespace
