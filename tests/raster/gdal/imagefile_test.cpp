#include <zmt/raster/gdal/imagefile.h>

#include <array>
#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

#include "geotiff.h"

#include <nbx/object/exception.h>
#include <nbx/object/progress.h>

namespace {

using namespace ZMT::RASTER;

using Rgba = std::array<int, 4>;

Rgba pixel(const GeoImageData & image, unsigned x, unsigned y) {
    Rgba result;
    for (std::size_t i = 0; i < 4; ++i)
        result[i] = image.rgba.at(4 * (static_cast<std::size_t>(y) * image.width + x) + i);
    return result;
}

/// The colour at a position of the image's system.
Rgba colourAt(const GeoImageData & image, double x, double y) {
    const GeoExtent & e = image.extent;
    return pixel(image, static_cast<unsigned>((x - e.minX) / (e.maxX - e.minX) * image.width),
                 static_cast<unsigned>((y - e.minY) / (e.maxY - e.minY) * image.height));
}

class ImageFileTest : public testing::Test {
protected:
    std::string write(const TiffContent & content) { return writeTiff(directory.file("image.tif"), content); }

    /// The left half red, the right half blue, the lower half with green in addition.
    static TiffContent quarters(int width, int height) {
        TiffContent content{.width = width, .height = height, .bands = 3, .type = GDT_Byte};
        for (int band = 0; band < 3; ++band)
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x) {
                    const bool on = band == 0 ? x < width / 2 : band == 1 ? y >= height / 2 : x >= width / 2;
                    content.values.push_back(on ? 200 : 0);
                }
        return content;
    }

    TestDirectory directory;
};

TEST_F(ImageFileTest, ColoursFromTheSouth) {
    const ImageFile file(write({.width = 2,
                                .height = 2,
                                .values = {1, 2, 3, 4, 11, 12, 13, 14, 21, 22, 23, 24},
                                .bands = 3,
                                .type = GDT_Byte}));
    EXPECT_EQ(2u, file.width());
    EXPECT_EQ(2u, file.height());
    EXPECT_EQ(500000.0, file.extent().minX);
    EXPECT_EQ(500060.0, file.extent().maxX);
    EXPECT_EQ(3099960.0, file.extent().minY);
    EXPECT_EQ(3100000.0, file.extent().maxY);
    const auto image = file.read();
    ASSERT_TRUE(image);
    EXPECT_EQ((Rgba{3, 13, 23, 255}), pixel(*image, 0, 0));
    EXPECT_EQ((Rgba{2, 12, 22, 255}), pixel(*image, 1, 1));
}

TEST_F(ImageFileTest, SouthUpAndMirroredFile) {
    const auto image = ImageFile(write({.width = 2,
                                        .height = 2,
                                        .values = {1, 2, 3, 4},
                                        .type = GDT_Byte,
                                        .geoTransform = {0, -1, 0, 0, 0, 1}}))
                           .read();
    EXPECT_EQ(2, pixel(*image, 0, 0)[0]);
    EXPECT_EQ(3, pixel(*image, 1, 1)[0]);
}

TEST_F(ImageFileTest, GrayWithAndWithoutAlpha) {
    const auto gray = ImageFile(write({.width = 2, .height = 1, .values = {7, 9}, .type = GDT_Byte})).read();
    EXPECT_EQ((Rgba{9, 9, 9, 255}), pixel(*gray, 1, 0));
    const auto alpha = ImageFile(write({.width = 2,
                                        .height = 1,
                                        .values = {7, 9, 0, 128},
                                        .bands = 2,
                                        .type = GDT_Byte,
                                        .options = {"ALPHA=YES"}}))
                           .read();
    EXPECT_EQ((Rgba{7, 7, 7, 0}), pixel(*alpha, 0, 0));
    EXPECT_EQ((Rgba{9, 9, 9, 128}), pixel(*alpha, 1, 0));
}

TEST_F(ImageFileTest, FourthBandIsAlphaOnlyWhereItSaysSo) {
    const std::vector<double> values = {10, 20, 30, 40};
    const auto infrared = ImageFile(write({.width = 1,
                                           .height = 1,
                                           .values = values,
                                           .bands = 4,
                                           .type = GDT_Byte,
                                           .options = {"PHOTOMETRIC=RGB", "ALPHA=NO"}}))
                              .read();
    EXPECT_EQ((Rgba{10, 20, 30, 255}), pixel(*infrared, 0, 0));
    const auto alpha = ImageFile(write({.width = 1,
                                        .height = 1,
                                        .values = values,
                                        .bands = 4,
                                        .type = GDT_Byte,
                                        .options = {"PHOTOMETRIC=RGB", "ALPHA=YES"}}))
                           .read();
    EXPECT_EQ((Rgba{10, 20, 30, 40}), pixel(*alpha, 0, 0));
}

TEST_F(ImageFileTest, NoDataInAllColoursIsTransparent) {
    const auto image = ImageFile(write({.width = 2,
                                        .height = 1,
                                        .values = {0, 0, 0, 5, 0, 0},
                                        .bands = 3,
                                        .type = GDT_Byte,
                                        .hasNoData = true,
                                        .noData = 0}))
                           .read();
    EXPECT_EQ(0, pixel(*image, 0, 0)[3]);
    EXPECT_EQ((Rgba{0, 5, 0, 255}), pixel(*image, 1, 0)) << "black in two colours only";
}

TEST_F(ImageFileTest, MaskIsAlpha) {
    const std::string path =
        write({.width = 2, .height = 1, .values = {1, 2, 3, 4, 5, 6}, .bands = 3, .type = GDT_Byte});
    GDALDataset * dataset = static_cast<GDALDataset *>(GDALOpen(path.c_str(), GA_Update));
    dataset->CreateMaskBand(GMF_PER_DATASET);
    std::uint8_t mask[2] = {0, 255};
    EXPECT_EQ(CE_None, dataset->GetRasterBand(1)->GetMaskBand()->RasterIO(GF_Write, 0, 0, 2, 1, mask, 2, 1,
                                                                          GDT_Byte, 0, 0, nullptr));
    GDALClose(dataset);
    const auto image = ImageFile(path).read();
    EXPECT_EQ(0, pixel(*image, 0, 0)[3]);
    EXPECT_EQ(255, pixel(*image, 1, 0)[3]);
}

TEST_F(ImageFileTest, Palette) {
    const std::string path = directory.file("palette.tif");
    GDALAllRegister();
    GDALDataset * dataset =
        GetGDALDriverManager()->GetDriverByName("GTiff")->Create(path.c_str(), 3, 1, 1, GDT_Byte, nullptr);
    GDALColorTable table;
    const GDALColorEntry red = {255, 0, 0, 255}, green = {0, 128, 0, 255};
    table.SetColorEntry(0, &red);
    table.SetColorEntry(1, &green);
    dataset->GetRasterBand(1)->SetColorTable(&table);
    dataset->GetRasterBand(1)->SetNoDataValue(2);
    std::uint8_t indices[3] = {0, 1, 2};
    EXPECT_EQ(CE_None, dataset->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, 3, 1, indices, 3, 1, GDT_Byte, 0,
                                                           0, nullptr));
    GDALClose(dataset);
    const auto image = ImageFile(path).read();
    EXPECT_EQ((Rgba{255, 0, 0, 255}), pixel(*image, 0, 0));
    EXPECT_EQ((Rgba{0, 128, 0, 255}), pixel(*image, 1, 0));
    EXPECT_EQ(0, pixel(*image, 2, 0)[3]);
}

TEST_F(ImageFileTest, SixteenBitsAreScaledByTheGreatestValue) {
    const auto image =
        ImageFile(write({.width = 3, .height = 1, .values = {0, 2000, 4000}, .type = GDT_UInt16})).read();
    EXPECT_EQ(0, pixel(*image, 0, 0)[0]);
    EXPECT_EQ(128, pixel(*image, 1, 0)[0]);
    EXPECT_EQ(255, pixel(*image, 2, 0)[0]);
}

TEST_F(ImageFileTest, DeclaredBitsAreTheScale) {
    const auto image =
        ImageFile(
            write(
                {.width = 2, .height = 1, .values = {0, 2048}, .type = GDT_UInt16, .options = {"NBITS=12"}}))
            .read();
    EXPECT_EQ(128, pixel(*image, 1, 0)[0]);
    const auto bits =
        ImageFile(
            write({.width = 2, .height = 1, .values = {0, 1}, .type = GDT_Byte, .options = {"NBITS=1"}}))
            .read();
    EXPECT_EQ(255, pixel(*bits, 1, 0)[0]);
}

TEST_F(ImageFileTest, LongSideIsReduced) {
    const auto image = ImageFile(write(quarters(64, 32))).read(16);
    EXPECT_EQ(16u, image->width);
    EXPECT_EQ(8u, image->height);
    EXPECT_EQ((Rgba{200, 200, 0, 255}), pixel(*image, 0, 0));
    EXPECT_EQ((Rgba{0, 0, 200, 255}), pixel(*image, 15, 7));
    EXPECT_EQ(500000.0 + 64 * 30.0, image->extent.maxX);
    EXPECT_EQ(3100000.0 - 32 * 20.0, image->extent.minY);
}

TEST_F(ImageFileTest, SameSystemIsCutToTheExtent) {
    const ImageFile file(write(quarters(64, 64)));
    const GeoExtent extent = {500000.0 + 960.0 - 300.0, 3100000.0 - 1280.0, 500000.0 + 1920.0 + 900.0,
                              3100000.0};
    ASSERT_TRUE(file.overlaps(file.reference().wkt, extent));
    const auto image = file.warp(file.reference().wkt, extent);
    ASSERT_TRUE(image);
    EXPECT_NEAR(extent.minX, image->extent.minX, 1e-6);
    EXPECT_NEAR(500000.0 + 1920.0, image->extent.maxX, 1e-6) << "the image ends before the area";
    // Square pixels with the area of those of the file.
    EXPECT_EQ(52u, image->height);
    EXPECT_EQ(51u, image->width);
    EXPECT_EQ((Rgba{200, 200, 0, 255}), colourAt(*image, 500000.0 + 900.0, 3100000.0 - 1000.0));
    EXPECT_EQ((Rgba{0, 0, 200, 255}), colourAt(*image, 500000.0 + 1200.0, 3100000.0 - 200.0));
}

TEST_F(ImageFileTest, DegreesAreWarpedToMetres) {
    TiffContent content = quarters(100, 100);
    content.geoTransform = {86.0, 0.01, 0, 28.0, 0, -0.01};
    content.system = "EPSG:4326";
    const ImageFile file(write(content));
    const GeoExtent extent = {445000.0, 3036000.0, 459000.0, 3050000.0};
    const auto image = file.warp("EPSG:32645", extent);
    ASSERT_TRUE(image);
    // The middle of the image, 86.5 E 27.5 N, lies at 450613 E 3041840 N.
    EXPECT_EQ((Rgba{200, 0, 0, 255}), colourAt(*image, 448000.0, 3048000.0));
    EXPECT_EQ((Rgba{0, 0, 200, 255}), colourAt(*image, 458000.0, 3048000.0));
    EXPECT_EQ((Rgba{0, 200, 200, 255}), colourAt(*image, 458000.0, 3040300.0));
    EXPECT_NEAR(1.0, image->width / double(image->height), 0.15) << "square pixels";
    EXPECT_LE(file.warp("EPSG:32645", extent, 4)->width, 4u);
}

TEST_F(ImageFileTest, ImageElsewhereThrows) {
    const ImageFile file(write(quarters(10, 10)));
    const GeoExtent tennessee = {730980.0, 4036631.0, 761881.0, 4069184.0};
    EXPECT_FALSE(file.overlaps("EPSG:32616", tennessee));
    try {
        file.warp("EPSG:32616", tennessee);
        FAIL() << "no exception";
    } catch (const NBX::InputException & exception) {
        EXPECT_NE(nullptr, strstr(exception.what(), "lies elsewhere"));
        EXPECT_EQ(file.path(), exception.path());
    }
    const GeoExtent beside = {500300.0 + 1.0, 3099700.0, 500600.0, 3100000.0};
    EXPECT_FALSE(file.overlaps(file.reference().wkt, beside));
}

TEST_F(ImageFileTest, SmallImageInALargeArea) {
    const ImageFile file(write(quarters(10, 10)));
    const GeoExtent area = {0.0, 0.0, 1e6, 9e6};
    ASSERT_TRUE(file.overlaps("EPSG:32645", area));
    const auto image = file.warp("EPSG:32645", area);
    EXPECT_NEAR(500000.0, image->extent.minX, 1e-3);
    EXPECT_EQ(12u, image->width);
    EXPECT_EQ(8u, image->height);
}

TEST_F(ImageFileTest, SmallAreaInALargeImage) {
    TiffContent content = quarters(360, 180);
    content.geoTransform = {-180.0, 1.0, 0, 90.0, 0, -1.0};
    content.system = "EPSG:4326";
    const ImageFile file(write(content));
    const GeoExtent area = {480000.0, 3000000.0, 490000.0, 3010000.0};
    ASSERT_TRUE(file.overlaps("EPSG:32645", area));
    const auto image = file.warp("EPSG:32645", area);
    EXPECT_EQ(area.minX, image->extent.minX);
    EXPECT_EQ(area.maxY, image->extent.maxY);
    EXPECT_EQ((Rgba{0, 0, 200, 255}), pixel(*image, 0, 0));
}

TEST_F(ImageFileTest, WorldOnWorld) {
    TiffContent content = quarters(360, 180);
    content.geoTransform = {-180.0, 1.0, 0, 90.0, 0, -1.0};
    content.system = "EPSG:4326";
    const ImageFile file(write(content));
    const GeoExtent area = {-20037508.3, -10018754.2, 20028231.7, 10018754.2};
    ASSERT_TRUE(file.overlaps("EPSG:4087", area));
    const auto image = file.warp("EPSG:4087", area, 128);
    EXPECT_EQ(128u, image->width);
    EXPECT_EQ(64u, image->height);
    EXPECT_EQ((Rgba{200, 200, 0, 255}), pixel(*image, 1, 1));
    EXPECT_EQ((Rgba{0, 0, 200, 255}), pixel(*image, 126, 62));
}

TEST_F(ImageFileTest, UnknownSystemCountsAsTheSame) {
    TiffContent content = quarters(10, 10);
    content.system = "";
    const ImageFile file(write(content));
    const GeoExtent area = {500000.0, 3099700.0, 500300.0, 3100000.0};
    EXPECT_TRUE(file.overlaps("EPSG:4326", area));
    EXPECT_EQ(12u, file.warp("EPSG:32645", area)->width);
    EXPECT_TRUE(ImageFile(write(quarters(10, 10))).overlaps("", area));
}

TEST_F(ImageFileTest, WithoutGeoreferenceItLiesNowhere) {
    TiffContent content = quarters(10, 10);
    content.system = "";
    content.isPlaced = false;
    const ImageFile file(write(content));
    EXPECT_FALSE(file.reference().isGeoreferenced);
    EXPECT_FALSE(file.overlaps("EPSG:32645", {0.0, 0.0, 10.0, 10.0}));
    EXPECT_THROW(file.warp("EPSG:32645", {0.0, 0.0, 10.0, 10.0}), NBX::InputException);
    const auto image = file.read();
    EXPECT_EQ(0.0 - 0.5, image->extent.minX);
    EXPECT_EQ((Rgba{200, 200, 0, 255}), pixel(*image, 0, 0)) << "the last line is the southern one";
}

TEST_F(ImageFileTest, SidecarFilesGiveThePlace) {
    TiffContent content = quarters(10, 10);
    content.isPlaced = false;
    content.system = "";
    const std::string tiff = write(content);
    GDALDataset * source = static_cast<GDALDataset *>(GDALOpen(tiff.c_str(), GA_ReadOnly));
    const std::string path = directory.file("image.png");
    GDALClose(GetGDALDriverManager()->GetDriverByName("PNG")->CreateCopy(path.c_str(), source, FALSE, nullptr,
                                                                         nullptr, nullptr));
    GDALClose(source);
    directory.write("image.pgw", "30\n0\n0\n-20\n500015\n3099990\n");
    const ImageFile file(path);
    EXPECT_TRUE(file.reference().isGeoreferenced);
    EXPECT_EQ(500000.0, file.extent().minX);
    EXPECT_EQ(3100000.0, file.extent().maxY);
    EXPECT_EQ(500300.0, file.extent().maxX);
    EXPECT_EQ(3099800.0, file.extent().minY);
}

TEST_F(ImageFileTest, ControlPointsGiveThePlace) {
    TiffContent content = quarters(40, 40);
    content.isPlaced = false;
    content.system = "";
    const std::string path = write(content);
    GDALDataset * dataset = static_cast<GDALDataset *>(GDALOpen(path.c_str(), GA_Update));
    GDAL_GCP points[4];
    GDALInitGCPs(4, points);
    for (int i = 0; i < 4; ++i) {
        points[i].dfGCPPixel = i % 2 ? 40.0 : 0.0;
        points[i].dfGCPLine = i / 2 ? 40.0 : 0.0;
        points[i].dfGCPX = 500000.0 + 30.0 * points[i].dfGCPPixel;
        points[i].dfGCPY = 3100000.0 - 20.0 * points[i].dfGCPLine;
    }
    OGRSpatialReference system;
    system.importFromEPSG(32645);
    dataset->SetGCPs(4, points, &system);
    GDALDeinitGCPs(4, points);
    GDALClose(dataset);
    const ImageFile file(path);
    EXPECT_TRUE(file.reference().isGeoreferenced);
    EXPECT_NEAR(500000.0, file.extent().minX, 1.0);
    EXPECT_EQ((Rgba{0, 0, 200, 255}), pixel(*file.read(), file.width() - 2, file.height() - 2));
}

TEST_F(ImageFileTest, BadFilesThrow) {
    EXPECT_THROW(ImageFile(directory.file("missing.png")), NBX::FileNotFoundException);
    EXPECT_THROW(ImageFile(directory.file("")), NBX::InputException);
    EXPECT_THROW(ImageFile(directory.write("notes.txt", "no image")), NBX::InputException);
    const ImageFile file(write(quarters(4, 4)));
    EXPECT_THROW(file.warp("no coordinate system", {500000.0, 3099900.0, 500100.0, 3100000.0}),
                 NBX::InputException);
}

TEST_F(ImageFileTest, CutFileThrowsAtEveryLength) {
    for (const char * format : {"GTiff", "PNG", "JPEG"}) {
        const std::string tiff = write(quarters(200, 120));
        const std::string whole = directory.file(std::string("whole.") + format);
        GDALDataset * source = static_cast<GDALDataset *>(GDALOpen(tiff.c_str(), GA_ReadOnly));
        GDALClose(GetGDALDriverManager()->GetDriverByName(format)->CreateCopy(whole.c_str(), source, FALSE,
                                                                              nullptr, nullptr, nullptr));
        GDALClose(source);
        std::ifstream stream(whole, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(stream)), {});
        // The last bytes of these formats mark the end and hold no pixels.
        for (std::size_t length = 0; length + 100 < bytes.size(); length += 1 + bytes.size() / 41) {
            const std::string path = directory.write("cut", bytes.substr(0, length));
            EXPECT_THROW(ImageFile(path).read(), NBX::InputException)
                << format << " " << length << " of " << bytes.size();
        }
    }
}

TEST_F(ImageFileTest, RealImageLiesOnTheRealHeights) {
    const ImageFile file(ZMT_DATA_DIR "/everest_landsat7_rgb.tif");
    const GeoExtent heights = {400783.8, 2986454.3, 499956.3, 3097608.0};
    ASSERT_TRUE(file.overlaps("EPSG:32645", heights));
    const auto image = file.warp("EPSG:32645", heights);
    EXPECT_NEAR(478000.0, image->extent.minX, 1.0);
    EXPECT_NEAR(3097608.0, image->extent.maxY, 1.0);
    EXPECT_EQ(732u, image->width);
    EXPECT_EQ(304u, image->height);
    EXPECT_EQ(255, pixel(*image, 300, 150)[3]);
}

} // namespace
