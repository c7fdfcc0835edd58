#include <zmt/raster/gdal/geofile.h>

#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "geotiff.h"

#include <nbx/image/image.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/exception.h>
#include <zmt/raster/imagecolors.h>
#include <zmt/raster/memorytiledgeoimagepyramid.h>
#include <zmt/raster/tiledgeoimage.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

#include <support/recordedreports.h>
#include <support/thrownwords.h>

namespace {

using namespace ZMT::RASTER;
using NBX::SO;

const char * const s_areas =
    R"({"type": "Polygon", "coordinates": [[[0, 0], [10, 0], [10, 10], [0, 10], [0, 0]]]})";

/// A format of files that begin with "spots". Tests install it once.
class Spots : public GeoFileFormat {
public:
    std::string name() const override { return "a sheet of spots"; }
    GeoFileKind kindOf(const std::string & path) const override {
        std::ifstream file(path, std::ios::binary);
        std::string head(5, ' ');
        file.read(head.data(), 5);
        return head == "spots" ? GeoFileKind::Image : GeoFileKind::Unknown;
    }
    SO<TiledGeoImagePyramid> openImage(const std::string &, const std::string &) const override {
        const SO<NBX::MemoryImage> image(new NBX::MemoryImage(2, 2, NBX::LS_Luminance));
        return new MemoryTiledGeoImagePyramid(image.get(), NBX::Bounds({0.0, 0.0, 0.0}, {7.0, 7.0, 0.0}));
    }
    static void installOnce() {
        static const bool installed = (GeoFile::install(std::make_unique<const Spots>()), true);
        EXPECT_TRUE(installed);
    }
};

class GeoFileTest : public testing::Test {
protected:
    std::string tiff(int bands, GDALDataType type, const std::string & name = "raster.tif") {
        return writeTiff(directory.file(name), {.width = 2,
                                                .height = 2,
                                                .values = std::vector<double>(std::size_t(4) * bands, 7.0),
                                                .bands = bands,
                                                .type = type});
    }
    std::string paletteTiff() {
        const std::string path = tiff(1, GDT_Byte, "palette.tif");
        GDALDataset * dataset = GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE);
        GDALColorTable table;
        const GDALColorEntry red = {255, 0, 0, 255};
        table.SetColorEntry(7, &red);
        EXPECT_EQ(CE_None, dataset->GetRasterBand(1)->SetColorTable(&table));
        GDALClose(dataset);
        return path;
    }

    TestDirectory directory;
};

TEST_F(GeoFileTest, KindsFollowTheContentWhateverTheName) {
    EXPECT_EQ(GeoFileKind::Heights, GeoFile::kindOf(tiff(1, GDT_Float32)));
    EXPECT_EQ(GeoFileKind::Heights, GeoFile::kindOf(tiff(1, GDT_Byte, "heights.png")));
    EXPECT_EQ(GeoFileKind::Image, GeoFile::kindOf(tiff(3, GDT_Byte, "areas.geojson")));
    EXPECT_EQ(GeoFileKind::Image, GeoFile::kindOf(tiff(2, GDT_Byte)));
    EXPECT_EQ(GeoFileKind::Image, GeoFile::kindOf(paletteTiff())) << "numbers of colours are no heights";
    EXPECT_EQ(GeoFileKind::Vectors, GeoFile::kindOf(directory.write("areas.geojson", s_areas)));
    EXPECT_EQ(GeoFileKind::Vectors, GeoFile::kindOf(directory.write("image.tif", s_areas)));
}

TEST_F(GeoFileTest, WhatCannotBeReadIsUnknown) {
    EXPECT_EQ(GeoFileKind::Unknown, GeoFile::kindOf(""));
    EXPECT_EQ(GeoFileKind::Unknown, GeoFile::kindOf(directory.file("none.tif")));
    EXPECT_EQ(GeoFileKind::Unknown, GeoFile::kindOf(directory.file("")));
    EXPECT_EQ(GeoFileKind::Unknown, GeoFile::kindOf(directory.write("empty.tif", "")));
    EXPECT_EQ(GeoFileKind::Unknown, GeoFile::kindOf(directory.write("text.tif", "some words")));
    EXPECT_EQ(GeoFileKind::Unknown, GeoFile::kindOf(directory.write(
                                        "no.vrt", "<VRTDataset rasterXSize=\"4\" rasterYSize=\"4\"/>")));
}

TEST_F(GeoFileTest, OpensEachKind) {
    EXPECT_EQ(1U, GeoFile::openHeights(tiff(1, GDT_Float32))->bands());
    EXPECT_EQ(3U, GeoFile::openHeights(tiff(3, GDT_Byte))->bands()) << "who asks for heights knows";
    const SO<TiledGeoImagePyramid> image = GeoFile::openImage(tiff(3, GDT_Byte));
    EXPECT_EQ(2U, image->overviews());
    const double metres = image->minX();
    EXPECT_NEAR(87.0, GeoFile::openImage(tiff(3, GDT_Byte), "EPSG:4326")->minX(), 0.01);
    EXPECT_EQ(500000.0, metres);
    EXPECT_EQ(1U, GeoFile::openVectors(directory.write("areas.geojson", s_areas))->layers());
}

TEST_F(GeoFileTest, AFileOfAnotherKindIsTold) {
    const std::string vectors = directory.write("areas.geojson", s_areas);
    for (const std::string & text :
         {thrown([&] { GeoFile::openHeights(vectors); }), thrown([&] { GeoFile::openImage(vectors); })}) {
        expectPart(text, "holds lines or areas");
        expectPart(text, vectors);
    }
    expectPart(thrown([&] { GeoFile::openVectors(tiff(1, GDT_Float32)); }), "holds a raster");
}

TEST_F(GeoFileTest, WhatIsNothingKeepsTheReason) {
    const std::string text = directory.write("text.tif", "some words"), none = directory.file("none.tif");
    expectPart(thrown([&] { GeoFile::openHeights(text); }), "is no raster file");
    expectPart(thrown([&] { GeoFile::openImage(text); }), "is no raster file");
    expectPart(thrown([&] { GeoFile::openVectors(text); }), "is no file of lines or areas");
    EXPECT_THROW(GeoFile::openHeights(none), NBX::FileNotFoundException);
    EXPECT_THROW(GeoFile::openImage(none), NBX::FileNotFoundException);
    EXPECT_THROW(GeoFile::openVectors(none), NBX::FileNotFoundException);
    expectPart(thrown([&] { GeoFile::openImage(tiff(3, GDT_Byte), "no system"); }),
               "unknown coordinate system");
}

TEST_F(GeoFileTest, InstalledFormatsComeFirst) {
    Spots::installOnce();
    const std::string path = directory.write("sheet.tif", "spots: 1, 2");
    EXPECT_EQ(GeoFileKind::Image, GeoFile::kindOf(path));
    ASSERT_TRUE(GeoFile::formatOf(path));
    EXPECT_EQ("a sheet of spots", GeoFile::formatOf(path)->name());
    EXPECT_EQ(7.0, GeoFile::openImage(path)->maxX());
    expectPart(thrown([&] { GeoFile::openHeights(path); }), "is a sheet of spots, which has no heights");
    expectPart(thrown([&] { GeoFile::openVectors(path); }), "is a sheet of spots, which has no lines");
    EXPECT_FALSE(GeoFile::formatOf(tiff(1, GDT_Float32)));
    EXPECT_FALSE(GeoFile::formatOf(directory.file("none.tif")));
}

TEST_F(GeoFileTest, StreamedFilesAreKnownAndNotOpened) {
    static const bool installed =
        (GeoFile::install(std::make_unique<const StreamedFileFormat>("a river of heights", "rivers!",
                                                                     GeoFileKind::Heights)),
         GeoFile::install(
             std::make_unique<const StreamedFileFormat>("a river of colours", "colours", GeoFileKind::Image)),
         true);
    ASSERT_TRUE(installed);
    const std::string heights = directory.write("a.tif", "rivers! and more");
    const std::string image = directory.write("b.tif", "colours");
    EXPECT_EQ(GeoFileKind::Heights, GeoFile::kindOf(heights));
    EXPECT_EQ(GeoFileKind::Image, GeoFile::kindOf(image));
    EXPECT_TRUE(GeoFile::formatOf(image)->isStreamed());
    expectPart(thrown([&] { GeoFile::openHeights(heights); }),
               "is a river of heights, which is only drawn; choose what it was built from");
    expectPart(thrown([&] { GeoFile::openImage(heights); }), "is a river of heights, which has no image");
    expectPart(thrown([&] { GeoFile::openVectors(heights); }), "is a river of heights, which has no lines");
    expectPart(thrown([&] { GeoFile::openHeights(image); }), "is a river of colours, which has no heights");
    expectPart(thrown([&] { GeoFile::openImage(image); }),
               "is a river of colours, which is only drawn; choose the image that it was built from");
    for (const char * other : {"", "river", "Rivers! and more"})
        EXPECT_EQ(GeoFileKind::Unknown, GeoFile::kindOf(directory.write("c.tif", other))) << other;
    EXPECT_FALSE(GeoFile::formatOf(directory.file("")));
}

TEST_F(GeoFileTest, ImagesAreOpenedInColoursWhereThereAreSome) {
    Spots::installOnce();
    const auto bands = ImageColors::parse("2,1,3;;").value();
    EXPECT_EQ(2.0, GeoFile::openImage(tiff(3, GDT_Byte), "", bands)->overview(0)->pixelsX());
    EXPECT_EQ(NBX::Image::UInt8, GeoFile::openImage(tiff(1, GDT_Float32), "", ImageColors())
                                     ->overview(0)
                                     ->createEmptyImage(1, 1)
                                     ->dataType());
    expectPart(thrown([&] { GeoFile::openImage(tiff(2, GDT_Byte), "", bands); }), "has no band 3, only 2");
    const std::string sheet = directory.write("sheet.tif", "spots: 1, 2");
    EXPECT_EQ(7.0, GeoFile::openImage(sheet, "", ImageColors())->maxX());
    expectPart(thrown([&] { GeoFile::openImage(sheet, "", bands); }),
               "is a sheet of spots, whose colours are settled");
}

TEST_F(GeoFileTest, NoFormatIsReported) {
    const RecordedReports reports;
    GeoFile::install(nullptr);
    EXPECT_EQ(1U, reports.size());
}

} // namespace
