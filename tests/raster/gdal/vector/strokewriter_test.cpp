#include <zmt/raster/gdal/vector/strokewriter.h>

#include <fstream>
#include <iterator>

#include <gtest/gtest.h>
#include <ogrsf_frmts.h>

#include <nbx/object/exception.h>
#include <nbx/object/progress.h>
#include <zmt/raster/gdal/coordinatesystem.h>

#include "raster/gdal/geotiff.h"
#include "support/cancelingdisplay.h"

namespace {

using namespace ZMT::RASTER;

/// A picture of 11 by 6 pixels, 10 m apart.
StrokeWriter::Place place() {
    StrokeWriter::Place result{{500000.0, 3000000.0, 500100.0, 3000050.0}, 11, 6, {}};
    result.reference = CoordinateSystem::parse("EPSG:32645");
    result.reference.isGeoreferenced = true;
    return result;
}

/// The second one becomes thinner on its way, the third is a point.
const std::vector<StrokeLine> s_lines = {
    {{{500000.0, 3000050.0, 20.0}, {500010.0, 3000040.0, 20.0}, {500030.0, 3000030.0, 20.0}}},
    {{{500050.0, 3000050.0, 20.0}, {500060.0, 3000040.0, 10.0}, {500070.0, 3000030.0, 10.0}}},
    {{{500100.0, 3000000.0, 20.0}}},
};

struct Line {
    double width;
    std::vector<std::pair<double, double>> points;
};

std::vector<Line> linesIn(const std::string & path, std::string * system = nullptr) {
    GDALAllRegister();
    GDALDataset * dataset = GDALDataset::Open(path.c_str(), GDAL_OF_VECTOR);
    std::vector<Line> lines;
    if (!dataset) return lines;
    OGRLayer & layer = *dataset->GetLayer(0);
    EXPECT_EQ(std::string("strokes"), layer.GetName());
    if (system && layer.GetSpatialRef()) *system = layer.GetSpatialRef()->GetName();
    for (const auto & feature : layer) {
        const OGRLineString & shape = *feature->GetGeometryRef()->toLineString();
        Line line{feature->GetFieldAsDouble("width"), {}};
        for (int i = 0; i < shape.getNumPoints(); ++i)
            line.points.emplace_back(shape.getX(i), shape.getY(i));
        lines.push_back(line);
    }
    GDALClose(dataset);
    return lines;
}

TEST(StrokeWriter, GeoPackagesHoldLinesAndWidths) {
    const TestDirectory folder;
    ASSERT_TRUE(StrokeWriter::write(folder.file("s.gpkg"), s_lines, place()));
    std::string system;
    const auto lines = linesIn(folder.file("s.gpkg"), &system);
    EXPECT_EQ("WGS 84 / UTM zone 45N", system);
    ASSERT_EQ(3U, lines.size());
    EXPECT_EQ(20.0, lines[0].width);
    ASSERT_EQ(3U, lines[0].points.size());
    EXPECT_EQ(std::pair(500030.0, 3000030.0), lines[0].points[2]);
    EXPECT_EQ(20.0, lines[1].width);
    EXPECT_EQ((std::vector<std::pair<double, double>>{{500050.0, 3000050.0}, {500060.0, 3000040.0}}),
              lines[1].points);
    EXPECT_EQ(10.0, lines[2].width) << "begins where the thick part ends";
    EXPECT_EQ((std::vector<std::pair<double, double>>{{500060.0, 3000040.0}, {500070.0, 3000030.0}}),
              lines[2].points);
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(folder.file("")),
                               std::filesystem::directory_iterator()))
        << "no files beside it";
}

TEST(StrokeWriter, GeoJsonIsInLongitudeAndLatitude) {
    const TestDirectory folder;
    ASSERT_TRUE(StrokeWriter::write(folder.file("s.geojson"), s_lines, place()));
    const auto lines = linesIn(folder.file("s.geojson"));
    ASSERT_EQ(3U, lines.size());
    const CoordinateSystem system(place().reference.wkt);
    const auto expected = system.toLonLat({500030.0, 3000030.0});
    EXPECT_NEAR(expected->longitude, lines[0].points[2].first, 1e-7);
    EXPECT_NEAR(expected->latitude, lines[0].points[2].second, 1e-7);
    EXPECT_EQ(20.0, lines[0].width);
}

TEST(StrokeWriter, SvgIsThePictureInLines) {
    const TestDirectory folder;
    ASSERT_TRUE(StrokeWriter::write(folder.file("s.svg"), s_lines, place()));
    std::ifstream file(folder.file("s.svg"));
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_EQ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"11\" height=\"6\" viewBox=\"0 0 11 6\">\n"
              "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n"
              "<g fill=\"none\" stroke=\"#000\" stroke-linecap=\"round\" stroke-linejoin=\"round\">\n"
              "<path stroke-width=\"2.00\" d=\"M0.50 0.50L1.50 1.50 3.50 2.50\"/>\n"
              "<path stroke-width=\"2.00\" d=\"M5.50 0.50L6.50 1.50\"/>\n"
              "<path stroke-width=\"1.00\" d=\"M6.50 1.50L7.50 2.50\"/>\n"
              "<path stroke-width=\"2.00\" d=\"M10.50 5.50h0\"/>\n"
              "</g>\n</svg>\n",
              text);
}

TEST(StrokeWriter, LinesWithoutAPlaceKeepTheirCoordinates) {
    const TestDirectory folder;
    StrokeWriter::Place nowhere = place();
    nowhere.reference = {};
    for (const char * name : {"s.gpkg", "s.json"}) {
        ASSERT_TRUE(StrokeWriter::write(folder.file(name), s_lines, nowhere));
        const auto lines = linesIn(folder.file(name));
        ASSERT_EQ(3U, lines.size()) << name;
        EXPECT_EQ(std::pair(500030.0, 3000030.0), lines[0].points[2]) << name;
    }
}

TEST(StrokeWriter, CancelledLeavesNothing) {
    const TestDirectory folder;
    for (const char * name : {"s.gpkg", "s.geojson", "s.svg"}) {
        const CancelingDisplay display;
        NBX::Progress progress("writing");
        EXPECT_FALSE(StrokeWriter::write(folder.file(name), s_lines, place(), &progress)) << name;
    }
    EXPECT_THROW(StrokeWriter::write(folder.file("s.shp"), s_lines, place()), NBX::IOException);
    EXPECT_TRUE(std::filesystem::is_empty(folder.file("")));
}

} // namespace
