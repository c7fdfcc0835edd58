#include "raster/gdal/gdalimagereader.h"

#include <array>
#include <cstring>

#include <gtest/gtest.h>

#include "geotiff.h"

#include <nbx/object/exception.h>
#include <zmt/raster/geoextent.h>

namespace {

using namespace ZMT::RASTER;

using Rgba = std::array<int, 4>;

/// An image in its own system, line 0 the southern one.
struct Picture {
    unsigned width = 0, height = 0;
    GeoExtent extent;
    bool isGeoreferenced = false;
    std::vector<std::uint8_t> rgba;
};

ImageColors colors(const std::string & text) {
    return ImageColors::parse(text).value();
}

Picture read(const std::string & path, const std::string & how = "") {
    const GdalSource source(path, GdalSource::Outside::Transparent);
    const GdalImageReader reader(source, colors(how));
    const RasterGrid grid = source.grid();
    Picture picture = {source.width(), source.height(), {}, source.reference().isGeoreferenced, {}};
    picture.extent = {grid.minX - 0.5 * grid.cellSizeX, grid.minY - 0.5 * grid.cellSizeY,
                      grid.minX + (grid.cellsX - 0.5) * grid.cellSizeX,
                      grid.minY + (grid.cellsY - 0.5) * grid.cellSizeY};
    const GdalWindow all = {0, 0, static_cast<int>(picture.width), static_cast<int>(picture.height)};
    picture.rgba = reader.readRgba(-1, all, picture.width, picture.height);
    reader.orient(picture.rgba.data(), picture.width, picture.height, 4);
    return picture;
}

Rgba pixel(const Picture & picture, unsigned x, unsigned y) {
    Rgba result;
    for (std::size_t i = 0; i < 4; ++i)
        result[i] = picture.rgba.at(4 * (static_cast<std::size_t>(y) * picture.width + x) + i);
    return result;
}

class GdalImageReaderTest : public testing::Test {
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

TEST_F(GdalImageReaderTest, ColoursFromTheSouth) {
    const Picture image = read(write({.width = 2,
                                      .height = 2,
                                      .values = {1, 2, 3, 4, 11, 12, 13, 14, 21, 22, 23, 24},
                                      .bands = 3,
                                      .type = GDT_Byte}));
    EXPECT_EQ(2u, image.width);
    EXPECT_EQ(2u, image.height);
    EXPECT_EQ(500000.0, image.extent.minX);
    EXPECT_EQ(500060.0, image.extent.maxX);
    EXPECT_EQ(3099960.0, image.extent.minY);
    EXPECT_EQ(3100000.0, image.extent.maxY);
    EXPECT_EQ((Rgba{3, 13, 23, 255}), pixel(image, 0, 0));
    EXPECT_EQ((Rgba{2, 12, 22, 255}), pixel(image, 1, 1));
}

TEST_F(GdalImageReaderTest, SouthUpAndMirroredFile) {
    const auto image = read(write({.width = 2,
                                   .height = 2,
                                   .values = {1, 2, 3, 4},
                                   .type = GDT_Byte,
                                   .geoTransform = {0, -1, 0, 0, 0, 1}}));
    EXPECT_EQ(2, pixel(image, 0, 0)[0]);
    EXPECT_EQ(3, pixel(image, 1, 1)[0]);
}

TEST_F(GdalImageReaderTest, GrayWithAndWithoutAlpha) {
    const auto gray = read(write({.width = 2, .height = 1, .values = {7, 9}, .type = GDT_Byte}));
    EXPECT_EQ((Rgba{9, 9, 9, 255}), pixel(gray, 1, 0));
    const auto alpha = read(write({.width = 2,
                                   .height = 1,
                                   .values = {7, 9, 0, 128},
                                   .bands = 2,
                                   .type = GDT_Byte,
                                   .options = {"ALPHA=YES"}}));
    EXPECT_EQ((Rgba{7, 7, 7, 0}), pixel(alpha, 0, 0));
    EXPECT_EQ((Rgba{9, 9, 9, 128}), pixel(alpha, 1, 0));
}

TEST_F(GdalImageReaderTest, FourthBandIsAlphaOnlyWhereItSaysSo) {
    const std::vector<double> values = {10, 20, 30, 40};
    const auto infrared = read(write({.width = 1,
                                      .height = 1,
                                      .values = values,
                                      .bands = 4,
                                      .type = GDT_Byte,
                                      .options = {"PHOTOMETRIC=RGB", "ALPHA=NO"}}));
    EXPECT_EQ((Rgba{10, 20, 30, 255}), pixel(infrared, 0, 0));
    const auto alpha = read(write({.width = 1,
                                   .height = 1,
                                   .values = values,
                                   .bands = 4,
                                   .type = GDT_Byte,
                                   .options = {"PHOTOMETRIC=RGB", "ALPHA=YES"}}));
    EXPECT_EQ((Rgba{10, 20, 30, 40}), pixel(alpha, 0, 0));
}

TEST_F(GdalImageReaderTest, NoDataInAllColoursIsTransparent) {
    const auto image = read(write({.width = 2,
                                   .height = 1,
                                   .values = {0, 0, 0, 5, 0, 0},
                                   .bands = 3,
                                   .type = GDT_Byte,
                                   .hasNoData = true,
                                   .noData = 0}));
    EXPECT_EQ(0, pixel(image, 0, 0)[3]);
    EXPECT_EQ((Rgba{0, 5, 0, 255}), pixel(image, 1, 0)) << "black in two colours only";
}

TEST_F(GdalImageReaderTest, MaskIsAlpha) {
    const std::string path =
        write({.width = 2, .height = 1, .values = {1, 2, 3, 4, 5, 6}, .bands = 3, .type = GDT_Byte});
    GDALDataset * dataset = static_cast<GDALDataset *>(GDALOpen(path.c_str(), GA_Update));
    dataset->CreateMaskBand(GMF_PER_DATASET);
    std::uint8_t mask[2] = {0, 255};
    EXPECT_EQ(CE_None, dataset->GetRasterBand(1)->GetMaskBand()->RasterIO(GF_Write, 0, 0, 2, 1, mask, 2, 1,
                                                                          GDT_Byte, 0, 0, nullptr));
    GDALClose(dataset);
    const auto image = read(path);
    EXPECT_EQ(0, pixel(image, 0, 0)[3]);
    EXPECT_EQ(255, pixel(image, 1, 0)[3]);
}

TEST_F(GdalImageReaderTest, Palette) {
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
    const auto image = read(path);
    EXPECT_EQ((Rgba{255, 0, 0, 255}), pixel(image, 0, 0));
    EXPECT_EQ((Rgba{0, 128, 0, 255}), pixel(image, 1, 0));
    EXPECT_EQ(0, pixel(image, 2, 0)[3]);
}

TEST_F(GdalImageReaderTest, SixteenBitsAreStretchedFromTheLeastToTheGreatestOfFewValues) {
    const auto image =
        read(write({.width = 3, .height = 1, .values = {1000, 2000, 3000}, .type = GDT_UInt16}));
    EXPECT_EQ(0, pixel(image, 0, 0)[0]);
    EXPECT_EQ(128, pixel(image, 1, 0)[0]);
    EXPECT_EQ(255, pixel(image, 2, 0)[0]);
}

TEST_F(GdalImageReaderTest, TheEndsOfEachBandAreLeftOut) {
    // 100 values that differ a lot among the bands, and far away one below and one above.
    TiffContent content{.width = 102, .height = 1, .bands = 3, .type = GDT_Float32};
    for (const double factor : {1.0, 10.0, 0.001})
        for (int x = 0; x < 102; ++x)
            content.values.push_back(factor * (x == 0 ? -1e6 : x == 101 ? 1e6 : x));
    const auto image = read(write(content));
    for (std::size_t channel = 0; channel < 3; ++channel) {
        EXPECT_EQ(0, pixel(image, 0, 0)[channel]);
        EXPECT_EQ(0, pixel(image, 2, 0)[channel]);
        EXPECT_NEAR(127.5, pixel(image, 51, 0)[channel], 2.0) << channel;
        EXPECT_LT(pixel(image, 98, 0)[channel], 255);
        EXPECT_EQ(255, pixel(image, 100, 0)[channel]);
        EXPECT_EQ(255, pixel(image, 101, 0)[channel]);
    }
}

TEST_F(GdalImageReaderTest, WhatHasNoDataIsTransparentAndDoesNotCount) {
    const double lowest = -3.4028234663852886e38;
    const auto image = read(write({.width = 4,
                                   .height = 1,
                                   .values = {lowest, 10, 20, NAN},
                                   .type = GDT_Float32,
                                   .hasNoData = true,
                                   .noData = -3.4028e38}));
    EXPECT_EQ(0, pixel(image, 0, 0)[3]) << "the limits of the type are written with few digits";
    EXPECT_EQ((Rgba{0, 0, 0, 255}), pixel(image, 1, 0));
    EXPECT_EQ((Rgba{255, 255, 255, 255}), pixel(image, 2, 0));
    EXPECT_EQ(0, pixel(image, 3, 0)[3]);
}

TEST_F(GdalImageReaderTest, WhatIsMaskedDoesNotCount) {
    const auto image = read(write({.width = 3,
                                   .height = 1,
                                   .values = {10, 20, 900, 65535, 65535, 0},
                                   .bands = 2,
                                   .type = GDT_UInt16,
                                   .options = {"ALPHA=YES"}}));
    EXPECT_EQ((Rgba{0, 0, 0, 255}), pixel(image, 0, 0));
    EXPECT_EQ((Rgba{255, 255, 255, 255}), pixel(image, 1, 0));
    EXPECT_EQ(0, pixel(image, 2, 0)[3]);
}

TEST_F(GdalImageReaderTest, OneValueAloneAndNoneAtAll) {
    const auto one = read(write({.width = 2, .height = 1, .values = {7, 7}, .type = GDT_UInt16}));
    EXPECT_EQ((Rgba{255, 255, 255, 255}), pixel(one, 0, 0));
    const auto zero = read(write({.width = 2, .height = 1, .values = {0, 0}, .type = GDT_UInt16}));
    EXPECT_EQ((Rgba{0, 0, 0, 255}), pixel(zero, 0, 0));
    const auto none = read(write({.width = 2, .height = 1, .values = {NAN, NAN}, .type = GDT_Float32}));
    EXPECT_EQ(0, pixel(none, 0, 0)[3]);
}

TEST_F(GdalImageReaderTest, LargeImagesAreSampledAllOverOrFromACoarseLevel) {
    TiffContent content{.width = 2500, .height = 1700, .type = GDT_UInt16};
    for (int y = 0; y < 1700; ++y)
        for (int x = 0; x < 2500; ++x)
            content.values.push_back(1000 + x);
    const std::string path = write(content);
    const auto all = read(path);
    EXPECT_NEAR(127.5, pixel(all, 1250, 3)[0], 3.0);
    EXPECT_EQ(0, pixel(all, 20, 3)[0]);
    EXPECT_EQ(255, pixel(all, 2480, 3)[0]);
    GDALDataset * dataset = GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE);
    int factor = 4;
    EXPECT_EQ(CE_None, dataset->BuildOverviews("NEAREST", 1, &factor, 0, nullptr, nullptr, nullptr));
    std::vector<std::uint16_t> level(625 * 425);
    for (std::size_t i = 0; i < level.size(); ++i)
        level[i] = static_cast<std::uint16_t>(2000 + i % 2 * 1000);
    EXPECT_EQ(CE_None, dataset->GetRasterBand(1)->GetOverview(0)->RasterIO(
                           GF_Write, 0, 0, 625, 425, level.data(), 625, 425, GDT_UInt16, 0, 0, nullptr));
    GDALClose(dataset);
    const auto coarse = read(path);
    EXPECT_EQ(0, pixel(coarse, 1000, 3)[0]);
    EXPECT_NEAR(127.5, pixel(coarse, 1500, 3)[0], 1.0);
    EXPECT_EQ(255, pixel(coarse, 2000, 3)[0]);
}

TEST_F(GdalImageReaderTest, StretchIsTold) {
    const std::string bytes = write({.width = 3, .height = 1, .values = {100, 110, 120}, .type = GDT_Byte});
    EXPECT_EQ(110, pixel(read(bytes), 1, 0)[0]) << "bytes are colours";
    EXPECT_EQ((Rgba{0, 0, 0, 255}), pixel(read(bytes, ";auto;"), 0, 0));
    EXPECT_EQ(128, pixel(read(bytes, ";auto;"), 1, 0)[0]);
    EXPECT_EQ(64, pixel(read(bytes, ";105,125;"), 1, 0)[0]);
    EXPECT_EQ(0, pixel(read(bytes, ";105,125;"), 0, 0)[0]);
    const std::string counts =
        write({.width = 3, .height = 1, .values = {0, 13107, 300}, .type = GDT_UInt16});
    EXPECT_EQ(51, pixel(read(counts, ";none;"), 1, 0)[0]);
    const std::string shares = write({.width = 3, .height = 1, .values = {-1, 0.2, 3}, .type = GDT_Float32});
    EXPECT_EQ(0, pixel(read(shares, ";none;"), 0, 0)[0]);
    EXPECT_EQ(51, pixel(read(shares, ";none;"), 1, 0)[0]);
    EXPECT_EQ(255, pixel(read(shares, ";none;"), 2, 0)[0]);
}

TEST_F(GdalImageReaderTest, GammaLeavesBlackAndWhite) {
    const std::string bytes = write({.width = 3, .height = 1, .values = {0, 64, 255}, .type = GDT_Byte});
    const auto image = read(bytes, ";;2");
    EXPECT_EQ(0, pixel(image, 0, 0)[0]);
    EXPECT_EQ(128, pixel(image, 1, 0)[0]);
    EXPECT_EQ(255, pixel(image, 2, 0)[0]);
    const std::string shares = write({.width = 3, .height = 1, .values = {0, 0.25, 1}, .type = GDT_Float32});
    EXPECT_EQ(128, pixel(read(shares, ";none;2"), 1, 0)[0]);
}

TEST_F(GdalImageReaderTest, HalfFloatsDeclareNoWhite) {
    const auto image = read(
        write({.width = 2, .height = 1, .values = {1.0, 2.0}, .type = GDT_Float32, .options = {"NBITS=16"}}));
    EXPECT_EQ(0, pixel(image, 0, 0)[0]);
    EXPECT_EQ(255, pixel(image, 1, 0)[0]);
}

TEST_F(GdalImageReaderTest, BandsAreTold) {
    const std::string path = write({.width = 1,
                                    .height = 1,
                                    .values = {10, 20, 30, 40},
                                    .bands = 4,
                                    .type = GDT_Byte,
                                    .options = {"PHOTOMETRIC=RGB", "ALPHA=NO"}});
    EXPECT_EQ((Rgba{40, 10, 20, 255}), pixel(read(path, "4,1,2;;"), 0, 0));
    EXPECT_EQ((Rgba{30, 30, 30, 255}), pixel(read(path, "3;;"), 0, 0));
    EXPECT_EQ((Rgba{20, 20, 10, 255}), pixel(read(path, "2,2,1;;"), 0, 0)) << "two alike are not gray";
    EXPECT_THROW(read(path, "5,1,2;;"), NBX::InputException);
    EXPECT_THROW(read(path, "5;;"), NBX::InputException);
}

TEST_F(GdalImageReaderTest, TheAlphaOfResamplingIsNoBand) {
    const std::string path = write({.width = 40,
                                    .height = 40,
                                    .values = std::vector<double>(1600, 9.0),
                                    .type = GDT_Byte,
                                    .geoTransform = {500000, 30, 10, 3100000, 10, -30}});
    EXPECT_THROW(read(path, "2;;"), NBX::InputException);
    EXPECT_NO_THROW(read(path, "1;;"));
}

TEST_F(GdalImageReaderTest, AnAlphaBandThatIsShownIsNoAlpha) {
    const std::string path = write({.width = 1,
                                    .height = 1,
                                    .values = {10, 20, 30, 40},
                                    .bands = 4,
                                    .type = GDT_Byte,
                                    .options = {"PHOTOMETRIC=RGB", "ALPHA=YES"}});
    EXPECT_EQ((Rgba{40, 10, 20, 255}), pixel(read(path, "4,1,2;;"), 0, 0));
    EXPECT_EQ((Rgba{30, 10, 20, 40}), pixel(read(path, "3,1,2;;"), 0, 0));
}

TEST_F(GdalImageReaderTest, ColoursAreFoundByKindAndByName) {
    const std::string path = write({.width = 1,
                                    .height = 1,
                                    .values = {40, 30, 20, 10},
                                    .bands = 4,
                                    .type = GDT_Byte,
                                    .options = {"PHOTOMETRIC=MINISBLACK", "ALPHA=NO"}});
    EXPECT_EQ((Rgba{40, 30, 20, 255}), pixel(read(path), 0, 0)) << "in their order";
    GDALDataset * dataset = GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE);
    const char * names[] = {"NIR", "Blue", "green", "RED"};
    for (int i = 0; i < 4; ++i)
        dataset->GetRasterBand(i + 1)->SetDescription(names[i]);
    GDALClose(dataset);
    EXPECT_EQ((Rgba{10, 20, 30, 255}), pixel(read(path), 0, 0));
    const std::string turned = write({.width = 1,
                                      .height = 1,
                                      .values = {10, 20, 30},
                                      .bands = 3,
                                      .type = GDT_Byte,
                                      .options = {"PHOTOMETRIC=MINISBLACK"}});
    dataset = GDALDataset::Open(turned.c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE);
    const GDALColorInterp kinds[] = {GCI_BlueBand, GCI_GreenBand, GCI_RedBand};
    for (int i = 0; i < 3; ++i)
        dataset->GetRasterBand(i + 1)->SetColorInterpretation(kinds[i]);
    GDALClose(dataset);
    EXPECT_EQ((Rgba{30, 20, 10, 255}), pixel(read(turned), 0, 0));
}

TEST_F(GdalImageReaderTest, PalettesAreNotStretched) {
    const std::string path = directory.file("palette.tif");
    GDALAllRegister();
    GDALDataset * dataset =
        GetGDALDriverManager()->GetDriverByName("GTiff")->Create(path.c_str(), 1, 1, 1, GDT_Byte, nullptr);
    GDALColorTable table;
    const GDALColorEntry colour = {64, 0, 255, 255};
    table.SetColorEntry(0, &colour);
    dataset->GetRasterBand(1)->SetColorTable(&table);
    GDALClose(dataset);
    EXPECT_THROW(read(path, ";auto;"), NBX::InputException);
    EXPECT_THROW(read(path, ";0,9;"), NBX::InputException);
    EXPECT_EQ((Rgba{128, 0, 255, 255}), pixel(read(path, ";none;2"), 0, 0));
    EXPECT_EQ((Rgba{64, 0, 255, 255}), pixel(read(path, "1;;"), 0, 0));
}

TEST_F(GdalImageReaderTest, DeclaredBitsAreTheScale) {
    const auto image = read(
        write({.width = 2, .height = 1, .values = {0, 2048}, .type = GDT_UInt16, .options = {"NBITS=12"}}));
    EXPECT_EQ(128, pixel(image, 1, 0)[0]);
    const auto bits =
        read(write({.width = 2, .height = 1, .values = {0, 1}, .type = GDT_Byte, .options = {"NBITS=1"}}));
    EXPECT_EQ(255, pixel(bits, 1, 0)[0]);
}

TEST_F(GdalImageReaderTest, WithoutGeoreferencePixelsAreTheUnit) {
    TiffContent content = quarters(10, 10);
    content.system = "";
    content.isPlaced = false;
    const Picture image = read(write(content));
    EXPECT_FALSE(image.isGeoreferenced);
    EXPECT_EQ(0.0 - 0.5, image.extent.minX);
    EXPECT_EQ((Rgba{200, 200, 0, 255}), pixel(image, 0, 0)) << "the last line is the southern one";
}

TEST_F(GdalImageReaderTest, SidecarFilesGiveThePlace) {
    TiffContent content = quarters(10, 10);
    content.isPlaced = false;
    content.system = "";
    const std::string tiff = write(content);
    GDALDataset * source = static_cast<GDALDataset *>(GDALOpen(tiff.c_str(), GA_ReadOnly));
    const std::string path = directory.file("image.png");
    GDALClose(GetGDALDriverManager()->GetDriverByName("PNG")->CreateCopy(path.c_str(), source, FALSE, nullptr,
                                                                         nullptr, nullptr));
    GDALClose(source);
    directory.write("image.pgw", "30\n0\n0\n-30\n500015\n3099985\n");
    const Picture image = read(path);
    EXPECT_TRUE(image.isGeoreferenced);
    EXPECT_EQ(500000.0, image.extent.minX);
    EXPECT_EQ(3100000.0, image.extent.maxY);
}

TEST_F(GdalImageReaderTest, ControlPointsGiveThePlace) {
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
        points[i].dfGCPY = 3100000.0 - 30.0 * points[i].dfGCPLine;
    }
    OGRSpatialReference system;
    system.importFromEPSG(32645);
    dataset->SetGCPs(4, points, &system);
    GDALDeinitGCPs(4, points);
    GDALClose(dataset);
    const Picture image = read(path);
    EXPECT_TRUE(image.isGeoreferenced);
    EXPECT_NEAR(500000.0, image.extent.minX, 1.0);
    EXPECT_EQ((Rgba{0, 0, 200, 255}), pixel(image, image.width - 2, image.height - 2));
}

TEST_F(GdalImageReaderTest, BadFilesThrow) {
    EXPECT_THROW(read(directory.file("missing.png")), NBX::FileNotFoundException);
    EXPECT_THROW(read(directory.file("")), NBX::InputException);
    EXPECT_THROW(read(directory.write("notes.txt", "no image")), NBX::InputException);
}

TEST_F(GdalImageReaderTest, CutFileThrowsAtEveryLength) {
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
            EXPECT_THROW(read(path), NBX::InputException)
                << format << " " << length << " of " << bytes.size();
        }
    }
}

} // namespace
