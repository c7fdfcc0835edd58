#include <zmt/raster/gdal/vector/featurefile.h>

#include <cmath>
#include <map>
#include <random>
#include <set>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "raster/gdal/geotiff.h"
#include "raster/gdal/vector/writtenfeatures.h"
#include "support/thrownwords.h"

#include <nbx/data/memorydataresource.h>
#include <nbx/object/progress.h>
#include <zmt/raster/vector/vectorline.h>

namespace {

using namespace ZMT::RASTER;
using Position = VectorFeature::Position;

const GeoExtent s_everywhere = FeatureFile::everywhere;

std::vector<VectorFeature> readAll(const FeatureSource & source,
                                   const FeatureSource::Query & query = {s_everywhere}) {
    std::vector<VectorFeature> features;
    source.read(query, [&](const VectorFeature & feature) {
        features.push_back(feature);
        return true;
    });
    return features;
}

/// "P2" for two points, "L3,2" for lines of three and two positions, "A4-3" for an area with a hole.
std::string summary(const VectorFeature & feature) {
    std::string text;
    if (!feature.points.empty()) text += "P" + std::to_string(feature.points.size());
    for (const auto & line : feature.lines)
        text += "L" + std::to_string(line.size());
    for (const auto & area : feature.areas)
        for (const auto & ring : area)
            text += (&ring == area.data() ? "A" : "-") + std::to_string(ring.size());
    return text;
}

class FeatureFileTest : public testing::Test {
protected:
    std::string write(const WrittenFile & file, const std::vector<WrittenFeature> & features,
                      const std::string & system = "EPSG:32645") {
        return writeFeatures(directory.file("features" + std::to_string(++files)), file, system, features);
    }

    TestDirectory directory;
    unsigned files = 0;
};

TEST_F(FeatureFileTest, ShapesOfEveryKindAreRead) {
    const struct {
        const char *name, *geometry, *expected;
    } cases[] = {
        {"point", "POINT (1 2)", "P1"},
        {"points", "MULTIPOINT (1 2, 3 4, 5 6)", "P3"},
        {"line", "LINESTRING (0 0, 1 1, 2 0)", "L3"},
        {"lines", "MULTILINESTRING ((0 0, 1 1, 2 0), (5 5, 6 6))", "L3L2"},
        {"area", "POLYGON ((0 0, 4 0, 4 4, 0 0))", "A3"},
        {"area with holes",
         "POLYGON ((0 0, 9 0, 9 9, 0 9, 0 0), (1 1, 2 1, 2 2, 1 1), (4 4, 5 4, 5 5, 4 5, 4 4))", "A4-3-4"},
        {"areas", "MULTIPOLYGON (((0 0, 4 0, 4 4, 0 0)), ((5 5, 6 5, 6 6, 5 6, 5 5)))", "A3A4"},
        {"collection",
         "GEOMETRYCOLLECTION (POINT (1 2), LINESTRING (0 0, 1 1), GEOMETRYCOLLECTION (POLYGON ((0 0, 4 0, 4 "
         "4, 0 0))))",
         "P1L2A3"},
        {"with heights", "LINESTRING Z (0 0 5, 1 1 6)", "L2"},
        {"measured", "LINESTRING M (0 0 5, 1 1 6)", "L2"},
        {"measured with heights", "POINT ZM (1 2 3 4)", "P1"},
        {"compound curve", "COMPOUNDCURVE ((0 0, 1 0), (1 0, 2 0))", "L3"},
        {"surface", "POLYHEDRALSURFACE Z (((0 0 1, 4 0 1, 4 4 1, 0 0 1)), ((0 0 1, 4 4 1, 0 4 1, 0 0 1)))",
         "A3A3"},
        {"triangles", "TIN Z (((0 0 1, 4 0 1, 4 4 1, 0 0 1)))", "A3"},
        {"triangle", "TRIANGLE ((0 0, 4 0, 4 4, 0 0))", "A3"},
        {"crosses itself", "POLYGON ((0 0, 4 4, 4 0, 0 4, 0 0))", "A4"},
        {"ring that is not closed", "POLYGON ((0 0, 4 0, 4 4))", "A3"},
        {"hole without an outline", "POLYGON ((0 0, 1 1, 0 0), (1 1, 2 1, 2 2, 1 1))", ""},
        {"ring of two places", "POLYGON ((0 0, 1 1, 0 0))", ""},
        {"line without length", "LINESTRING (1 1, 1 1)", ""},
        {"line with one bad part", "MULTILINESTRING ((1 1, 1 1), (0 0, 2 2))", "L2"},
        {"empty", "POLYGON EMPTY", ""},
        {"empty collection", "GEOMETRYCOLLECTION EMPTY", ""},
        {"empty point", "POINT EMPTY", ""},
    };
    for (const WrittenFile & format : {s_indexed, s_text}) {
        std::vector<WrittenFeature> features;
        for (const auto & c : cases)
            features.push_back({c.geometry, c.name});
        const FeatureFile file(write(format, features));
        EXPECT_EQ(file.size(), features.size());
        std::map<std::string, std::string> found;
        const unsigned name = format.format == s_text.format ? 1 : 0; // behind the geometry
        for (const VectorFeature & feature : readAll(file, {s_everywhere, 0.0, {name}}))
            found[std::get<std::string>(feature.values.at(0))] = summary(feature);
        for (const auto & c : cases) {
            EXPECT_EQ(found[c.name], c.expected) << format.format << ": " << c.name;
        }
    }
}

TEST_F(FeatureFileTest, HeightsAreTheSecondComponent) {
    const FeatureFile file(
        write(s_indexed, {{"LINESTRING Z (0 1 100, 10 5 200)"}, {"LINESTRING (0 1, 10 5)"}}));
    const auto features = readAll(file);
    ASSERT_EQ(features.size(), 2U);
    EXPECT_EQ(features[0].lines[0], (VectorFeature::Line{{0, 100, 1}, {10, 200, 5}}));
    EXPECT_EQ(features[1].lines[0], (VectorFeature::Line{{0, 0, 1}, {10, 0, 5}}));
}

TEST_F(FeatureFileTest, FieldsHaveTypesAndValues) {
    const std::string path = directory.write("fields.csv", "WKT,name,count,height,day,moment,hour\n"
                                                           "POINT (1 2),Lhotse,-7,8516.5,1956/05/18,"
                                                           "2024/02/29 12:30:15+02,07:08:09\n"
                                                           "POINT (3 4),,,,,,\n");
    directory.write("fields.csvt",
                    "\"String\",\"String\",\"Integer\",\"Real\",\"Date\",\"DateTime\",\"Time\"");
    const FeatureFile file(path);
    std::vector<std::string> names;
    std::vector<VectorField::Type> types;
    for (const VectorField & field : file.fields()) {
        names.push_back(field.name);
        types.push_back(field.type);
    }
    using Type = VectorField::Type;
    EXPECT_EQ(names, (std::vector<std::string>{"WKT", "name", "count", "height", "day", "moment", "hour"}));
    EXPECT_EQ(types, (std::vector{Type::Text, Type::Text, Type::Integer, Type::Real, Type::Text, Type::Text,
                                  Type::Text}));
    const auto features = readAll(file, {s_everywhere, 0.0, {6, 1, 2, 3, 4, 5}});
    ASSERT_EQ(features.size(), 2U);
    EXPECT_EQ(features[0].values, (std::vector<FieldValue>{"07:08:09", "Lhotse", std::int64_t(-7), 8516.5,
                                                           "1956-05-18", "2024-02-29T12:30:15+02:00"}));
    EXPECT_EQ(features[1].values[2], FieldValue());
    EXPECT_EQ(features[1].values[3], FieldValue());
    EXPECT_TRUE(readAll(file)[0].values.empty());
}

TEST_F(FeatureFileTest, LongTextsAreCutBetweenLetters) {
    std::string text(1023, 'a');
    text += std::string("\xC3\xA4") + "y";
    for (const WrittenFile & format : {s_indexed, s_plain}) {
        const FeatureFile file(write(format, {{"POINT (1 2)", text}}, "EPSG:4326"));
        EXPECT_EQ(readAll(file, {s_everywhere, 0.0, {0}}).at(0).values.at(0),
                  FieldValue(std::string(1023, 'a')));
    }
}

TEST_F(FeatureFileTest, UnusableFilesAreNamed) {
    const std::string good = write(s_indexed, {{"POINT (1 2)"}});
    const std::string geojson = write(s_plain, {{"POINT (1 2)"}}, "EPSG:4326");
    TiffContent tiff;
    tiff.width = tiff.height = 2;
    tiff.values = {1, 2, 3, 4};
    const std::string raster = writeTiff(directory.file("raster.tif"), tiff);
    const std::string pipe = directory.file("pipe");
    ASSERT_EQ(0, ::mkfifo(pipe.c_str(), 0600));
    const struct {
        const char * name;
        std::string path, layer, wkt, expected;
    } cases[] = {
        {"none", directory.file("none.gpkg"), "", "", "none.gpkg"},
        {"folder", directory.file(""), "", "", "is a directory"},
        {"pipe", pipe, "", "", "is a pipe"},
        {"empty", directory.write("empty.geojson", ""), "", "", "is empty"},
        {"text", directory.write("text.geojson", "no features"), "", "",
         "is no file of points, lines or areas"},
        {"raster", raster, "", "", "holds an image or heights, and neither points"},
        {"layer", good, "roads", "", "has no layer \"roads\"; choose one of those it has: things"},
        {"system", geojson, "", "no system", "unknown coordinate system"},
        {"no way", geojson, "", "LOCAL_CS[\"mine\",UNIT[\"metre\",1]]", "cannot be brought into another"},
    };
    for (const auto & c : cases) {
        SCOPED_TRACE(c.name);
        const std::string text = thrown([&] { FeatureFile(c.path, c.layer, c.wkt); });
        expectPart(text, c.expected);
        expectPart(text, c.wkt.empty() ? c.path : "");
        EXPECT_EQ(text.find('\n'), std::string::npos) << text;
    }
}

TEST_F(FeatureFileTest, LayersAreFoundByName) {
    const std::string path = directory.write("tracks.gpx", R"(<?xml version="1.0"?>
<gpx version="1.1" creator="test" xmlns="http://www.topografix.com/GPX/1/1">
<trk><name>way</name><trkseg><trkpt lat="28" lon="87"><ele>5000</ele></trkpt>
<trkpt lat="28.1" lon="87.1"></trkpt></trkseg></trk></gpx>)");
    std::vector<std::string> names;
    std::vector<std::size_t> sizes;
    for (const auto & layer : FeatureFile::layers(path)) {
        names.push_back(layer->layerName());
        sizes.push_back(readAll(*layer).size());
    }
    EXPECT_EQ(names, (std::vector<std::string>{"waypoints", "routes", "tracks"}));
    EXPECT_EQ(sizes, (std::vector<std::size_t>{0, 0, 1}));
    const FeatureFile first(path), named(path, "track_points");
    EXPECT_EQ(summary(readAll(first).at(0)), "L2") << "that has features";
    EXPECT_EQ(readAll(named).size(), 2U);
    EXPECT_TRUE(first.kinds().lines);
    EXPECT_FALSE(first.kinds().points);
}

/// Seeded features around a place: small lines and areas, points, and a few large ones.
std::vector<WrittenFeature> scattered(unsigned count, const GeoExtent & extent) {
    std::mt19937 random(4711);
    const double width = extent.maxX - extent.minX, height = extent.maxY - extent.minY;
    const auto number = [&](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    std::vector<WrittenFeature> features;
    for (unsigned i = 0; i < count; ++i) {
        const double x = number(extent.minX, extent.maxX), y = number(extent.minY, extent.maxY);
        const double size = (i % 50 == 0 ? 0.5 : 0.01) * number(0.1, 1.0);
        const auto place = [&](double right, double up) {
            return std::to_string(x + right * size * width) + " " + std::to_string(y + up * size * height);
        };
        std::string geometry;
        if (i % 3 == 0) geometry = "POINT (" + place(0, 0) + ")";
        if (i % 3 == 1)
            geometry = "LINESTRING (" + place(-1, 0) + "," + place(0.3, 0.2) + "," + place(1, -1) + ")";
        if (i % 3 == 2)
            geometry = "POLYGON ((" + place(-1, -1) + "," + place(1, -1) + "," + place(0, 1) + "," +
                       place(-1, -1) + "))";
        features.push_back({geometry, "n" + std::to_string(i), static_cast<int>(i)});
    }
    return features;
}

GeoExtent boxOf(const VectorFeature & feature) {
    GeoExtent box{1e300, 1e300, -1e300, -1e300};
    const auto add = [&](const std::vector<Position> & positions) {
        for (const Position & p : positions)
            box = {std::min(box.minX, p.x), std::min(box.minY, p.z), std::max(box.maxX, p.x),
                   std::max(box.maxY, p.z)};
    };
    add(feature.points);
    for (const auto & line : feature.lines)
        add(line);
    for (const auto & area : feature.areas)
        for (const auto & ring : area)
            add(ring);
    return box;
}

bool isInside(const VectorFeature::Area & area, double x, double y) {
    bool isInside = false;
    for (const auto & ring : area)
        for (std::size_t i = 0; i < ring.size(); ++i) {
            const Position &a = ring[i == 0 ? ring.size() - 1 : i - 1], &b = ring[i];
            if ((a.z > y) != (b.z > y) && x < a.x + (y - a.z) / (b.z - a.z) * (b.x - a.x))
                isInside = !isInside;
        }
    return isInside;
}

bool crosses(const VectorFeature::Line & line, const GeoExtent & box, bool isRing) {
    for (std::size_t i = isRing ? 0 : 1; i < line.size(); ++i)
        if (VectorLine::clip(box, line[i == 0 ? line.size() - 1 : i - 1], line[i])) return true;
    return false;
}

/// Whether a part of it lies in the box.
bool isSeenIn(const VectorFeature & feature, const GeoExtent & box) {
    const auto isIn = [&](const Position & p) { return VectorLine::clip(box, p, p).has_value(); };
    if (std::any_of(feature.points.begin(), feature.points.end(), isIn)) return true;
    for (const auto & line : feature.lines)
        if (crosses(line, box, false)) return true;
    for (const auto & area : feature.areas) {
        for (const auto & ring : area)
            if (crosses(ring, box, true)) return true;
        if (isInside(area, box.minX, box.minY)) return true;
    }
    return false;
}

const WrittenFile s_formats[] = {
    s_indexed,
    s_plain,
    {"FlatGeobuf", ".fgb"},
    {"FlatGeobuf", ".plain.fgb", {"SPATIAL_INDEX=NO"}},
    {"GPKG", ".plain.gpkg", {"SPATIAL_INDEX=NO"}},
    {"GeoJSONSeq", ".geojsons"},
    s_text,
};

TEST_F(FeatureFileTest, WindowsHoldWhatAllOfTheFileHasThere) {
    const GeoExtent extent{86.5, 27.5, 87.5, 28.5};
    const GeoExtent area{440000, 3030000, 560000, 3170000};
    std::mt19937 random(42);
    for (const std::string & wkt : {std::string(), std::string("EPSG:32645")})
        for (const WrittenFile & format : s_formats) {
            SCOPED_TRACE(std::string(format.suffix) + " " + wkt);
            const FeatureFile file(write(format, scattered(1000, extent), "EPSG:4326"), "", wkt,
                                   wkt.empty() ? s_everywhere : area);
            EXPECT_EQ(file.size(), 1000U);
            const auto all = readAll(file);
            ASSERT_EQ(all.size(), 1000U);
            const GeoExtent within = file.extent().value();
            for (unsigned i = 0; i < 20; ++i) {
                const auto place = [&](double low, double high) {
                    return std::uniform_real_distribution<double>(low, high)(random);
                };
                const double x = place(within.minX, within.maxX), y = place(within.minY, within.maxY);
                const double width = place(0.0, 0.2) * (within.maxX - within.minX);
                const GeoExtent box{x, y, std::min(x + width, within.maxX), std::min(y + width, within.maxY)};
                std::vector<std::int64_t> found;
                for (const VectorFeature & feature : readAll(file, {box}))
                    found.push_back(feature.id);
                EXPECT_TRUE(std::is_sorted(found.begin(), found.end())) << "the order of the file";
                const std::set<std::int64_t> ids(found.begin(), found.end());
                EXPECT_EQ(ids.size(), found.size());
                for (const VectorFeature & feature : all) {
                    const GeoExtent b = boxOf(feature);
                    const bool isNear =
                        b.minX <= box.maxX && box.minX <= b.maxX && b.minY <= box.maxY && box.minY <= b.maxY;
                    if (ids.contains(feature.id))
                        EXPECT_TRUE(isNear) << feature.id;
                    else
                        EXPECT_FALSE(isSeenIn(feature, box)) << feature.id;
                }
            }
        }
}

TEST_F(FeatureFileTest, PlacesAreThoseOfTheOtherSystem) {
    const GeoExtent extent{86.5, 27.5, 87.5, 28.5};
    const auto written = scattered(300, extent);
    const OGRSpatialReference from = systemOf("EPSG:4326"), to = systemOf("EPSG:32645");
    const std::unique_ptr<OGRCoordinateTransformation> transformation(
        OGRCreateCoordinateTransformation(&from, &to));
    for (const WrittenFile & format : {s_indexed, s_plain}) {
        const FeatureFile file(write(format, written, "EPSG:4326"), "", "EPSG:32645",
                               {300000, 2900000, 700000, 3300000});
        EXPECT_TRUE(file.reference().isGeographic);
        for (const VectorFeature & feature : readAll(file, {s_everywhere, 0.0, {1}})) {
            const auto & source = written.at(std::get<std::int64_t>(feature.values[0]));
            const std::unique_ptr<OGRGeometry> geometry = geometryOf(source.geometry);
            ASSERT_EQ(OGRERR_NONE, geometry->transform(transformation.get()));
            OGRPoint expected;
            if (geometry->getGeometryType() == wkbPoint)
                expected = *geometry->toPoint();
            else if (geometry->getGeometryType() == wkbLineString)
                geometry->toLineString()->getPoint(0, &expected);
            else
                geometry->toPolygon()->getExteriorRing()->getPoint(0, &expected);
            const Position & p = !feature.points.empty()  ? feature.points[0]
                                 : !feature.lines.empty() ? feature.lines[0][0]
                                                          : feature.areas[0][0][0];
            EXPECT_NEAR(p.x, expected.getX(), 1e-9 * 1e6);
            EXPECT_NEAR(p.z, expected.getY(), 1e-9 * 1e6);
        }
    }
}

TEST_F(FeatureFileTest, LongEdgesBendWithTheMap) {
    // A parallel over four degrees sags by hundreds of metres in the other system.
    const OGRSpatialReference from = systemOf("EPSG:4326"), to = systemOf("EPSG:32645");
    const std::unique_ptr<OGRCoordinateTransformation> transformation(
        OGRCreateCoordinateTransformation(&from, &to));
    const GeoExtent area{300000, 2900000, 700000, 3300000};
    for (const WrittenFile & format : {s_indexed, s_plain})
        for (const char * geometry :
             {"LINESTRING (85 28, 89 28)", "POLYGON ((85 28, 89 28, 89 28.5, 85 28))"}) {
            const FeatureFile file(write(format, {{geometry}}, "EPSG:4326"), "", "EPSG:32645", area);
            const VectorFeature feature = readAll(file).at(0);
            const auto & line = feature.lines.empty() ? feature.areas.at(0).at(0) : feature.lines.at(0);
            for (double longitude = 86.0; longitude < 88.0; longitude += 0.01) {
                double x = longitude, y = 28.0;
                ASSERT_TRUE(transformation->Transform(1, &x, &y));
                double nearest = 1e300;
                for (std::size_t i = 1; i < line.size(); ++i) {
                    const Position &a = line[i - 1], &b = line[i];
                    const double t = std::clamp(((x - a.x) * (b.x - a.x) + (y - a.z) * (b.z - a.z)) /
                                                    (std::pow(b.x - a.x, 2) + std::pow(b.z - a.z, 2)),
                                                0.0, 1.0);
                    nearest =
                        std::min(nearest, std::hypot(x - a.x - t * (b.x - a.x), y - a.z - t * (b.z - a.z)));
                }
                EXPECT_LT(nearest, 0.01) << longitude;
            }
        }
}

TEST_F(FeatureFileTest, BytesInMemoryAreAFile) {
    for (const WrittenFile & format : {s_indexed, s_plain}) {
        const std::string path = write(format, {{"POINT (87 28)"}}, "EPSG:4326");
        std::ifstream stream(path, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
        NBX::SO<NBX::DataResource> data(new NBX::MemoryDataResource(bytes.data(), bytes.size()));
        const auto layers = FeatureFile::layers(data, "places" + std::string(format.suffix));
        ASSERT_EQ(layers.size(), 1U);
        EXPECT_EQ(readAll(*layers[0]).at(0).points.at(0), Position(87, 0, 28));
        const FeatureFile file(data, "places" + std::string(format.suffix));
        EXPECT_EQ(file.name(), "places" + std::string(format.suffix));
        EXPECT_EQ(readAll(file).at(0).points.at(0), Position(87, 0, 28));
    }
    NBX::SO<NBX::DataResource> nothing(new NBX::MemoryDataResource("{}", 2));
    expectPart(thrown([&] { FeatureFile(nothing, "server/places.geojson"); }), "server/places.geojson");
}

TEST_F(FeatureFileTest, LossesAreCountedByReason) {
    const std::vector<WrittenFeature> features = {
        {""},
        {"POLYGON EMPTY"},
        {"LINESTRING (1 1, 1 1)"},
        {"POLYGON ((0 0, 1 1, 0 0))"},
        {"LINESTRING (0 0, 1 1)"},
        {"LINESTRING (86 28, 86 29, 86 95)"},
        {"POINT (87 95)"},
        {"MULTILINESTRING ((1 1, 1 1), (0 0, 2 2))"},
    };
    for (const WrittenFile & format : {s_indexed, s_text}) {
        SCOPED_TRACE(format.format);
        const FeatureFile file(write(format, features, "EPSG:4326"), "", "EPSG:3857");
        for (unsigned i = 0; i < 3; ++i) {
            EXPECT_EQ(readAll(file).size(), 3U);
        }
        EXPECT_EQ(file.losses().withoutGeometry, 2U);
        EXPECT_EQ(file.losses().tooFewPoints, 3U);
        EXPECT_EQ(file.losses().withoutPosition, 2U);
        EXPECT_EQ(file.lossReport(),
                  file.name() +
                      ": features are drawn in part or not at all: 2 without geometry; 2 with places that "
                      "the coordinate system does not have; 3 with lines or areas of too few points");
    }
    EXPECT_EQ(FeatureFile(write(s_plain, {{"POINT (1 2)"}}, "EPSG:4326")).lossReport(), "");
}

TEST_F(FeatureFileTest, NumbersThatAreNonePartALine) {
    const std::string path = directory.write("numbers.geojson", R"({"type": "FeatureCollection", "features": [
{"type": "Feature", "properties": {"height": 1.5}, "geometry": {"type": "LineString",
 "coordinates": [[0,0],[1,1],[NaN,2],[3,3],[4,4],[1e999,5],[6,6]]}},
{"type": "Feature", "properties": {"height": NaN}, "geometry": {"type": "Polygon",
 "coordinates": [[[0,0],[9,0],[NaN,NaN],[9,9],[0,0]]]}},
{"type": "Feature", "properties": {}, "geometry": {"type": "Point", "coordinates": [Infinity,3]}},
{"type": "Feature", "properties": {}, "geometry": {"type": "Point", "coordinates": [1,2,NaN]}},
{"type": "Feature", "properties": {}, "geometry": {"type": "LineString", "coordinates": [[1,2,NaN],[3,4,5]]}},
{"type": "Feature", "properties": {}, "geometry": {"type": "LineString", "coordinates": [[NaN,0],[0,NaN]]}}]})");
    const FeatureFile file(path);
    const auto features = readAll(file, {s_everywhere, 0.0, {0}});
    ASSERT_EQ(features.size(), 4U);
    EXPECT_EQ(summary(features[0]), "L2L2");
    EXPECT_EQ(summary(features[1]), "A3");
    EXPECT_EQ(features[2].points.at(0), Position(1, 0, 2));
    EXPECT_EQ(features[3].lines.at(0), (VectorFeature::Line{{1, 0, 2}, {3, 5, 4}}));
    EXPECT_EQ(features[0].values.at(0), FieldValue(1.5));
    EXPECT_EQ(features[1].values.at(0), FieldValue());
    EXPECT_EQ(file.losses().notFinite, 4U);
}

TEST_F(FeatureFileTest, CollectionsTooDeepAreLost) {
    std::string deep = "POINT (1 2)";
    for (unsigned i = 0; i < 20; ++i)
        deep = "GEOMETRYCOLLECTION (" + deep + ")";
    const FeatureFile file(write(s_text, {{deep}, {"POINT (3 4)"}}));
    EXPECT_EQ(readAll(file).size(), 1U);
    EXPECT_EQ(file.losses().tooDeep, 1U);
}

TEST_F(FeatureFileTest, ShapesAcrossTheDateLineShowOnBothSides) {
    const struct {
        const char *name, *geometry, *wkt;
        GeoExtent area;
        std::vector<std::array<double, 2>> inside; ///< an edge or an inside is there
        std::vector<std::array<double, 2>> outside;
    } cases[] = {
        {"line of small steps",
         "LINESTRING (178 10, 179.5 10, -179.5 10, -178 10)",
         "",
         {-180, -90, 180, 90},
         {{179, 10}, {179.9, 10}, {-179.9, 10}, {-179, 10}},
         {{0, 10}, {100, 10}}},
        {"longitudes beyond a half turn",
         "LINESTRING (178 10, 182 10)",
         "",
         {-180, -90, 180, 90},
         {{179, 10}, {-179, 10}},
         {{0, 10}}},
        {"area",
         "POLYGON ((178 0, -178 0, -178 20, 178 20, 178 0))",
         "",
         {-180, -90, 180, 90},
         {{179, 10}, {-179, 10}},
         {{0, 10}, {177, 10}}},
        {"a line around the globe",
         "LINESTRING (-180 10, 180 10)",
         "",
         {-180, -90, 180, 90},
         {{0, 10}, {90, 10}},
         {}},
        {"longitudes from 0 to 360",
         "LINESTRING (-100 10, -90 10)",
         "",
         {0, -90, 360, 90},
         {{265, 10}},
         {{100, 10}}},
        {"line in metres",
         "LINESTRING (178 10, 179.5 10, -179.5 10, -178 10)",
         "EPSG:32660",
         {0, 0, 1200000, 3000000},
         {{829500, 1107000}, {938900, 1108900}, {1048500, 1110900}},
         {}},
        {"in a world map",
         "LINESTRING (178 10, 179.5 10, -179.5 10, -178 10)",
         "EPSG:3857",
         {-2.0037e7, -2e7, 2.0037e7, 2e7},
         {{19926188, 1118890}, {-19926188, 1118890}},
         {{0, 1118890}}},
    };
    for (const auto & c : cases)
        for (const WrittenFile & format : {s_indexed, s_plain}) {
            SCOPED_TRACE(std::string(c.name) + " " + format.format);
            const FeatureFile file(write(format, {{c.geometry}}, "EPSG:4326"), "", c.wkt, c.area);
            const double near = (c.area.maxX - c.area.minX) * 2e-3;
            const auto isSeen = [&](const std::array<double, 2> & p) {
                const GeoExtent box{p[0] - near, p[1] - near, p[0] + near, p[1] + near};
                const auto found = readAll(file, {box}), all = readAll(file);
                EXPECT_LE(all.size(), 1U);
                const auto sees = [&](const VectorFeature & feature) { return isSeenIn(feature, box); };
                EXPECT_EQ(std::any_of(found.begin(), found.end(), sees),
                          std::any_of(all.begin(), all.end(), sees));
                return std::any_of(found.begin(), found.end(), sees);
            };
            for (const auto & p : c.inside)
                EXPECT_TRUE(isSeen(p)) << p[0] << " " << p[1];
            for (const auto & p : c.outside)
                EXPECT_FALSE(isSeen(p)) << p[0] << " " << p[1];
        }
}

TEST_F(FeatureFileTest, RingsAroundAPoleStayAsTheyAre) {
    // The way back across the date line does not end where it began.
    const char * ring = "POLYGON ((0 80, 120 60, -120 60, 0 80))";
    for (const WrittenFile & format : {s_indexed, s_plain}) {
        const FeatureFile file(write(format, {{ring}}, "EPSG:4326"), "", "", {-180, -90, 180, 90});
        const auto found = readAll(file);
        ASSERT_EQ(found.size(), 1U);
        EXPECT_TRUE(isInside(found[0].areas.at(0), 0, 70));
    }
}

TEST_F(FeatureFileTest, HeightsAreBroughtIntoTheOtherSystem) {
    const std::string feet = "+proj=utm +zone=45 +datum=WGS84 +vunits=ft +type=crs";
    const FeatureFile file(write(s_indexed, {{"POINT Z (87 28 30.48)"}}, "EPSG:4979"), "", feet,
                           {400000, 3000000, 600000, 3200000});
    EXPECT_NEAR(readAll(file).at(0).points.at(0).y, 100.0, 1e-6);
}

TEST_F(FeatureFileTest, PolesOfAMapAreNoHarm) {
    // Around the south pole, on a map of it; and on one that has no place for it.
    const char * cap = "POLYGON ((-180 -90, -180 -70, -90 -70, 0 -70, 90 -70, 180 -70, 180 -90, -180 -90))";
    for (const WrittenFile & format : {s_indexed, s_plain}) {
        const std::string path = write(format, {{cap}}, "EPSG:4326");
        const FeatureFile polar(path, "", "EPSG:3031", {-3e6, -3e6, 3e6, 3e6});
        for (const double x : {-1.5e6, -1e6, -1e5, 1e5, 1e6, 1.5e6}) {
            const auto found = readAll(polar, {{x, x, x + 1e4, x + 1e4}});
            ASSERT_EQ(found.size(), 1U) << x;
            EXPECT_TRUE(isSeenIn(found[0], {x, x, x + 1e4, x + 1e4})) << x;
        }
        const FeatureFile mercator(path, "", "EPSG:3857", {-2e7, -2e7, 2e7, 2e7});
        const GeoExtent box{5e6, -1.2e7, 5.1e6, -1.19e7};
        ASSERT_EQ(readAll(mercator, {box}).size(), 1U);
        EXPECT_TRUE(isSeenIn(readAll(mercator, {box})[0], box));
    }
}

/// A coast of so many positions around a place, in metres.
std::string coast(unsigned positions, double radius) {
    std::string text = "POLYGON ((";
    for (unsigned i = 0; i <= positions; ++i) {
        const double angle = 2.0 * M_PI * (i % positions) / positions;
        const double r = radius * (1.0 + 0.1 * std::sin(40 * angle) + 0.01 * std::sin(901 * angle));
        text += (i ? "," : "") + std::to_string(500000 + r * std::cos(angle)) + " " +
                std::to_string(3000000 + r * std::sin(angle));
    }
    return text + "))";
}

TEST_F(FeatureFileTest, HugeShapesAreCutAroundTheBox) {
    const std::string geometry = coast(20000, 100000);
    for (const WrittenFile & format : {s_indexed, s_text}) {
        const FeatureFile file(write(format, {{geometry}}));
        const VectorFeature whole = readAll(file).at(0);
        EXPECT_EQ(summary(whole), "A20000");
        for (const GeoExtent & box : {GeoExtent{595000, 2995000, 605000, 3005000},
                                      {500000, 3095000, 510000, 3105000},
                                      {450000, 3000000, 460000, 3010000},
                                      {300000, 2800000, 700000, 3200000}}) {
            const auto found = readAll(file, {box});
            ASSERT_EQ(found.size(), 1U);
            const double width = box.maxX - box.minX;
            const GeoExtent b = boxOf(found[0]);
            EXPECT_TRUE(b.minX >= box.minX - width - 1 && b.maxX <= box.maxX + width + 1 &&
                        b.minY >= box.minY - width - 1 && b.maxY <= box.maxY + width + 1);
            if (width < 100000) {
                EXPECT_LT(found[0].areas[0][0].size(), 5000U);
            }
            for (unsigned i = 0; i < 100; ++i) {
                const double x = std::lerp(box.minX, box.maxX, (i % 10 + 0.37) / 10),
                             y = std::lerp(box.minY, box.maxY, (i / 10 + 0.41) / 10);
                EXPECT_EQ(isInside(found[0].areas[0], x, y), isInside(whole.areas[0], x, y)) << x << " " << y;
            }
        }
    }
}

double distance(const Position & p, const VectorFeature::Line & ring) {
    double nearest = 1e300;
    for (std::size_t i = 0; i < ring.size(); ++i) {
        const Position &a = ring[i == 0 ? ring.size() - 1 : i - 1], &b = ring[i];
        const double x = b.x - a.x, y = b.z - a.z;
        const double t = std::clamp(((p.x - a.x) * x + (p.z - a.z) * y) / (x * x + y * y), 0.0, 1.0);
        nearest = std::min(nearest, std::hypot(p.x - a.x - t * x, p.z - a.z - t * y));
    }
    return nearest;
}

TEST_F(FeatureFileTest, LevelsKeepTheTolerance) {
    const std::string geometry = coast(300000, 100000); // more than is read as it is
    const auto areaOf = [](const std::vector<VectorFeature> & features) {
        return features.at(features.at(0).areas.empty() ? 1 : 0);
    };
    for (const WrittenFile & format : {s_formats[2], s_formats[3]}) {
        SCOPED_TRACE(format.suffix);
        const FeatureFile file(write(format, {{geometry, "coast"}, {"POINT (500000 3000000)", "middle"}}));
        const VectorFeature whole = areaOf(readAll(file));
        for (const double tolerance : {800.0, 100.0})
            for (unsigned i = 0; i < 2; ++i) {
                const auto found = readAll(file, {s_everywhere, tolerance, {0}});
                ASSERT_EQ(found.size(), 2U) << tolerance;
                const VectorFeature simple = areaOf(found);
                EXPECT_EQ(simple.values.at(0), FieldValue("coast"));
                EXPECT_EQ(simple.id, whole.id);
                const auto & ring = simple.areas.at(0).at(0);
                EXPECT_LT(ring.size(), 30000U) << tolerance;
                for (std::size_t k = 0; k < whole.areas[0][0].size(); k += 997)
                    EXPECT_LE(distance(whole.areas[0][0][k], ring), tolerance * (1 + 1e-9));
            }
        // What was simplified needs the file no more.
        std::filesystem::resize_file(file.name(), 1000);
        EXPECT_EQ(readAll(file, {s_everywhere, 800.0}).size(), 2U);
    }
}

TEST_F(FeatureFileTest, ReadingEndsWhereNobodyWantsMore) {
    for (const WrittenFile & format : s_formats) {
        const FeatureFile file(write(format, scattered(100, {86, 27, 87, 28}), "EPSG:4326"));
        unsigned count = 0;
        file.read({s_everywhere}, [&](const VectorFeature &) { return ++count < 3; });
        EXPECT_EQ(count, 3U) << format.suffix;
        count = 0;
        file.read({{NAN, NAN, NAN, NAN}}, [&](const VectorFeature &) { return ++count < 3; });
        EXPECT_EQ(count, 0U) << format.suffix;
    }
}

TEST_F(FeatureFileTest, CutFilesDoNoHarm) {
    const std::vector<WrittenFeature> features = scattered(300, {86, 27, 87, 28});
    std::vector<WrittenFeature> lines;
    for (const WrittenFeature & feature : features)
        if (feature.geometry[0] == 'L') lines.push_back(feature);
    const WrittenFile formats[] = {s_indexed,
                                   s_plain,
                                   {"FlatGeobuf", ".fgb"},
                                   {"FlatGeobuf", ".plain.fgb", {"SPATIAL_INDEX=NO"}},
                                   {"ESRI Shapefile", ".shp"},
                                   {"GPX", ".gpx", {"FORCE_GPX_TRACK=YES"}}};
    for (const WrittenFile & format : formats) {
        SCOPED_TRACE(format.suffix);
        const bool areLines = std::string(format.suffix) == ".shp" || std::string(format.suffix) == ".gpx";
        const std::string path =
            areLines ? writeFeatures(directory.file("lines"), format, "EPSG:4326", lines, wkbLineString)
                     : write(format, features, "EPSG:4326");
        const std::uintmax_t size = std::filesystem::file_size(path);
        const std::size_t whole = readAll(FeatureFile(path)).size();
        EXPECT_EQ(whole, areLines ? lines.size() : features.size());
        unsigned refused = 0;
        for (unsigned part = 39; part > 0; --part) {
            std::filesystem::resize_file(path, size * part / 40);
            try {
                const FeatureFile file(path);
                EXPECT_LE(readAll(file).size(), whole);
                readAll(file, {{86.2, 27.2, 86.5, 27.5}, 0.001});
            } catch (const NBX::InputException & exception) {
                ++refused;
                const std::string text = exception.what();
                EXPECT_NE(text.find(path), std::string::npos) << text;
                EXPECT_EQ(text.find('\n'), std::string::npos) << text;
            }
        }
        EXPECT_GE(refused, 35U) << "what is missing is told";
    }
}

TEST_F(FeatureFileTest, FilesThatAreCutWhileTheyAreReadSaySo) {
    for (const WrittenFile & format : {s_indexed, WrittenFile{"FlatGeobuf", ".fgb"}}) {
        const std::string path = write(format, scattered(5000, {86, 27, 87, 28}), "EPSG:4326");
        const FeatureFile file(path);
        for (const std::uintmax_t bytes : {std::filesystem::file_size(path) / 3, std::uintmax_t(1000)}) {
            std::filesystem::resize_file(path, bytes);
            expectPart(thrown([&] { readAll(file); }), path);
            expectPart(thrown([&] { readAll(file, {{86.2, 27.2, 86.3, 27.3}}); }), path);
        }
    }
}

TEST_F(FeatureFileTest, FeaturesWithoutGeometryAreQuick) {
    const char * all = std::getenv("ZMT_TEST_EMPTY_FEATURES"); // 2000000 in their time
    const unsigned count = all ? static_cast<unsigned>(std::strtoul(all, nullptr, 10)) : 20000;
    for (const WrittenFile & format : {s_indexed, WrittenFile{"GeoJSONSeq", ".geojsons"}}) {
        const FeatureFile file(
            write(format, std::vector<WrittenFeature>(count, WrittenFeature{""}), "EPSG:4326"), "",
            "EPSG:32645", {400000, 3000000, 600000, 3200000});
        EXPECT_EQ(file.size(), count);
        EXPECT_TRUE(readAll(file).empty());
        EXPECT_TRUE(readAll(file, {{450000, 3000000, 500000, 3100000}, 10.0}).empty());
        EXPECT_FALSE(file.extent());
    }
}

class Cancelling : public NBX::ProgressDisplay {
public:
    Cancelling() : before_(NBX::Progress::setDisplay(this)) {}
    ~Cancelling() override { NBX::Progress::setDisplay(before_); }
    void begin(const NBX::Progress &) override {}
    bool update(const NBX::Progress &) override { return false; }
    void end(const NBX::Progress &) override {}

private:
    NBX::ProgressDisplay * before_;
};

TEST_F(FeatureFileTest, ReadingAllCanBeCancelled) {
    const std::string path = write(s_plain, scattered(100, {86, 27, 87, 28}), "EPSG:4326");
    const Cancelling display;
    expectPart(thrown([&] { FeatureFile file(path); }), "cancelled: " + path);
}

/// As a program writes it whose format has no other place for that.
void addStyleColumn(const std::string & path, const char * style) {
    const GDALDatasetUniquePtr dataset(GDALDataset::Open(path.c_str(), GDAL_OF_VECTOR | GDAL_OF_UPDATE));
    OGRLayer & layer = *dataset->GetLayer(0);
    OGRFieldDefn column("OGR_STYLE", OFTString);
    ASSERT_EQ(OGRERR_NONE, layer.CreateField(&column));
    const OGRFeatureUniquePtr feature(layer.GetNextFeature());
    feature->SetField("OGR_STYLE", style);
    ASSERT_EQ(OGRERR_NONE, layer.SetFeature(feature.get()));
}

TEST_F(FeatureFileTest, StylesOfTheFileAreGiven) {
    const char * style = "PEN(c:#ff0000,w:2px)";
    const std::vector<WrittenFeature> styled{{"LINESTRING (0 0, 1 1)", "", 0, style}};
    const std::string column = write(s_indexed, {{"LINESTRING (0 0, 1 1)"}});
    addStyleColumn(column, style);
    for (const std::string & path : {write({"MapInfo File", ".mif", {"FORMAT=MIF"}}, styled),
                                     write({"MapInfo File", ".tab"}, styled), column}) {
        SCOPED_TRACE(path);
        const FeatureFile file(path);
        const VectorFeature feature = readAll(file, {file.extent().value(), 0.0, {0}}).at(0);
        expectPart(feature.style, "color=#ff0000");
        expectPart(feature.style, "width=2");
    }
    EXPECT_EQ(readAll(FeatureFile(write(s_indexed, styled))).at(0).style, "");
}

TEST_F(FeatureFileTest, RealCoastsAreRead) {
    const std::string data = std::getenv("ZMT_TEST_DATA");
    const FeatureFile file(data + "/everest_contours.geojson", "", "EPSG:32645",
                           {450000, 3060000, 520000, 3130000});
    EXPECT_TRUE(file.kinds().lines);
    const auto all = readAll(file, {s_everywhere, 200.0});
    EXPECT_GT(all.size(), 10U);
    std::size_t coarse = 0, fine = 0;
    for (const VectorFeature & feature : all)
        for (const auto & line : feature.lines)
            coarse += line.size();
    for (const VectorFeature & feature : readAll(file))
        for (const auto & line : feature.lines)
            fine += line.size();
    EXPECT_LT(coarse * 4, fine * 3);
    EXPECT_EQ(file.lossReport(), "");
}

} // namespace
