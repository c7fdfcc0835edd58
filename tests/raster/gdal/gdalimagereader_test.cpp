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

Picture read(const std::string & path) {
    const GdalSource source(path, GdalSource::Outside::Transparent);
    const GdalImageReader reader(source);
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

TEST_F(GdalImageReaderTest, SixteenBitsAreScaledByTheGreatestValue) {
    const auto image = read(write({.width = 3, .height = 1, .values = {0, 2000, 4000}, .type = GDT_UInt16}));
    EXPECT_EQ(0, pixel(image, 0, 0)[0]);
    EXPECT_EQ(128, pixel(image, 1, 0)[0]);
    EXPECT_EQ(255, pixel(image, 2, 0)[0]);
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
