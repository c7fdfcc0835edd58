#include <zmt/raster/gdal/vectorfile.h>

#include <cmath>
#include <cstdlib>
#include <limits>

#include <gtest/gtest.h>

#include "geotiff.h"

#include <nbx/object/exception.h>

namespace {

using namespace ZMT::RASTER;
using Point = VectorLine::Point;
using Points = std::vector<Point>;

constexpr double infinity = std::numeric_limits<double>::infinity();
const GeoExtent everywhere{-infinity, -infinity, infinity, infinity};

/// Points of a line, map coordinates first.
Points line(std::initializer_list<std::array<double, 2>> places) {
    Points points;
    for (const auto & [x, y] : places)
        points.push_back({x, 0.0, y});
    return points;
}

class VectorFileTest : public testing::Test {
protected:
    /// A file of one feature a geometry, which are GeoJSON.
    std::string file(const std::vector<std::string> & geometries) {
        std::string text = R"({"type": "FeatureCollection", "features": [)";
        for (const std::string & geometry : geometries)
            text += (&geometry == geometries.data() ? "" : ",") +
                    std::string(R"({"type": "Feature", "properties": {}, "geometry": )") + geometry + "}";
        return directory.write("lines.geojson", text + "]}");
    }
    std::vector<VectorLine> read(const std::vector<std::string> & geometries,
                                 const GeoExtent & extent = everywhere) {
        return VectorFile(file(geometries)).read("", extent);
    }
    template <class Work> static std::string thrown(const Work & work) {
        try {
            work();
        } catch (const NBX::InputException & exception) {
            return exception.what();
        }
        return "";
    }
    static void expectPart(const std::string & text, const std::string & part) {
        EXPECT_TRUE(text.find(part) != std::string::npos) << text;
    }

    TestDirectory directory;
};

const char * const s_line = R"({"type": "LineString", "coordinates": [[0, 0], [10, 5], [20, 0]]})";

TEST_F(VectorFileTest, ReadsLinesAndRings) {
    const Points a = line({{0, 0}, {10, 5}, {20, 0}}), b = line({{1, 1}, {2, 2}});
    const Points ring = line({{0, 0}, {4, 0}, {4, 4}, {0, 0}}), hole = line({{2, 1}, {3, 1}, {3, 2}, {2, 1}});
    const std::string polygon = "[[[0,0],[4,0],[4,4],[0,0]],[[2,1],[3,1],[3,2],[2,1]]]";
    const struct {
        const char * name;
        std::string geometry;
        std::vector<Points> expected;
    } cases[] = {
        {"line", s_line, {a}},
        {"lines",
         R"({"type": "MultiLineString", "coordinates": [[[0,0],[10,5],[20,0]], [[1,1],[2,2]]]})",
         {a, b}},
        {"area with a hole", R"({"type": "Polygon", "coordinates": )" + polygon + "}", {ring, hole}},
        {"areas",
         R"({"type": "MultiPolygon", "coordinates": [)" + polygon + "," + polygon + "]}",
         {ring, hole, ring, hole}},
        {"collection",
         R"({"type": "GeometryCollection", "geometries": [)" + std::string(s_line) +
             R"(, {"type": "Point", "coordinates": [1, 2]}, {"type": "GeometryCollection", "geometries": [)" +
             s_line + "]}]}",
         {a, a}},
        {"point", R"({"type": "Point", "coordinates": [1, 2]})", {}},
        {"nothing", "null", {}},
        {"line without length", R"({"type": "LineString", "coordinates": [[1, 1], [1, 1]]})", {}}};
    for (const auto & c : cases) {
        SCOPED_TRACE(c.name);
        const auto lines = read({c.geometry});
        ASSERT_EQ(lines.size(), c.expected.size());
        for (std::size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(lines[i].points, c.expected[i]);
            EXPECT_EQ(lines[i].isClosed,
                      c.expected[i].size() > 2 && c.expected[i].front() == c.expected[i].back());
            EXPECT_FALSE(lines[i].hasHeights);
        }
    }
}

TEST_F(VectorFileTest, HeightsAreTheSecondComponent) {
    const auto lines =
        read({R"({"type": "LineString", "coordinates": [[0, 1, 100], [10, 5, 200]]})", s_line});
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_TRUE(lines[0].hasHeights);
    EXPECT_EQ(lines[0].points, (Points{{0, 100, 1}, {10, 200, 5}}));
    EXPECT_FALSE(lines[1].hasHeights);
}

TEST_F(VectorFileTest, CurvesBecomeShortLines) {
    const auto path = directory.write("curves.csv", "id,WKT\n1,\"CIRCULARSTRING (0 0, 1 1, 2 0)\"\n");
    const auto lines = VectorFile(path).read("", everywhere);
    ASSERT_EQ(lines.size(), 1U);
    ASSERT_GT(lines[0].points.size(), 10U);
    for (const Point & p : lines[0].points)
        EXPECT_NEAR(std::hypot(p.x - 1.0, p.z), 1.0, 1e-9);
}

TEST_F(VectorFileTest, LinesAreCutAtTheExtent) {
    const GeoExtent extent{5.0, -1.0, 15.0, 4.0};
    const auto lines =
        read({R"({"type": "LineString", "coordinates": [[0, 0, 0], [10, 1, 100], [20, 0, 200]]})",
              R"({"type": "Polygon", "coordinates": [[[6,0],[7,0],[7,1],[6,0]]]})",
              R"({"type": "Polygon", "coordinates": [[[3,0],[7,0],[7,1],[3,0]]]})",
              R"({"type": "LineString", "coordinates": [[0, 3], [20, 3]]})",
              R"({"type": "LineString", "coordinates": [[0, -8], [20, -8]]})",
              R"({"type": "LineString", "coordinates": [[4, -8], [4, 8]]})"},
             extent);
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0].points, (Points{{5, 50, 0.5}, {10, 100, 1}, {15, 150, 0.5}}));
    EXPECT_EQ(lines[1].points, line({{6, 0}, {7, 0}, {7, 1}, {6, 0}}));
    EXPECT_TRUE(lines[1].isClosed);
    EXPECT_EQ(lines[2].points, line({{5, 0}, {7, 0}, {7, 1}, {5, 0.5}}));
    EXPECT_FALSE(lines[2].isClosed);
    EXPECT_EQ(lines[3].points, line({{5, 3}, {15, 3}}));
}

TEST_F(VectorFileTest, CoordinatesAreBroughtIntoTheWantedSystem) {
    const VectorFile f(
        file({R"({"type": "LineString", "coordinates": [[87, 28], [87, 28.01], [-93, 28]]})"}));
    EXPECT_TRUE(f.reference().isGeographic);
    EXPECT_TRUE(f.reference().isGeoreferenced);
    EXPECT_EQ(f.layers(), 1U);
    EXPECT_EQ(f.format(), "GeoJSON");
    const auto lines = f.read("EPSG:32645", {400000, 3000000, 600000, 3200000});
    ASSERT_GE(lines.size(), 1U);
    EXPECT_NEAR(lines[0].points[0].x, 500000.0, 1e-3);
    EXPECT_NEAR(lines[0].points[0].z, 3097202.4, 1.0);
    EXPECT_NEAR(lines[0].points[1].z - lines[0].points[0].z, 1108.0, 1.0);
    expectPart(thrown([&] { f.read("no system", everywhere); }), "unknown coordinate system");
}

TEST_F(VectorFileTest, TooManyPointsAreRefused) {
    const VectorFile f(file({s_line, s_line}));
    EXPECT_EQ(f.read("", everywhere, 6).size(), 2U);
    const std::string message = thrown([&] { f.read("", everywhere, 5); });
    expectPart(message, "more than 5 points");
    expectPart(message, "lines.geojson");
    expectPart(thrown([&] { f.read("", everywhere, 2); }), "more points than can be held");
    EXPECT_EQ(f.read("", {100, 100, 101, 101}, 3).size(), 0U) << "points outside do not count";
}

TEST_F(VectorFileTest, UnusableFilesAreNamed) {
    const struct {
        const char * name;
        std::string path, part;
    } cases[] = {{"missing", directory.file("missing.shp"), "no such file"},
                 {"empty", directory.write("empty.geojson", ""), "is empty"},
                 {"directory", directory.file(""), "directory"},
                 {"text", directory.write("text.txt", "some words"), "no file of lines or areas"},
                 {"cut", directory.write("cut.geojson", R"({"type": "FeatureCollection", "features": [{)"),
                  "no file of lines or areas"}};
    for (const auto & c : cases) {
        SCOPED_TRACE(c.name);
        const std::string message = thrown([&] { VectorFile f(c.path); });
        expectPart(message, c.part);
        expectPart(message, c.path);
    }
    EXPECT_THROW(VectorFile(directory.file("missing.shp")), NBX::FileNotFoundException);
}

/// Whatever a file holds, it is read or refused.
TEST_F(VectorFileTest, CutFilesDoNoHarm) {
    const std::string whole =
        R"({"type": "Feature", "properties": {}, "geometry": )" + std::string(s_line) + "}";
    for (std::size_t size = 1; size < whole.size(); ++size)
        EXPECT_NE(thrown([&] { VectorFile(directory.write("cut.geojson", whole.substr(0, size))); }), "")
            << size;
    EXPECT_EQ(VectorFile(directory.write("whole.geojson", whole)).read("", everywhere).size(), 1U);
}

TEST_F(VectorFileTest, NumbersThatAreNoneCutALine) {
    const auto path = directory.write(
        "lines.csv",
        "id,WKT\n1,\"LINESTRING (0 0, 1 1, nan nan, 2 2, 3 3, inf 4)\"\n2,\"LINESTRING (0 0, 1 1)\"\n");
    for (const VectorLine & l : VectorFile(path).read("", everywhere))
        for (const Point & p : l.points)
            EXPECT_TRUE(std::isfinite(p.x) && std::isfinite(p.z));
}

TEST_F(VectorFileTest, ReadsContoursOfRealLand) {
    const std::string path = std::string(std::getenv("ZMT_TEST_DATA")) + "/everest_contours.geojson";
    const auto lines = VectorFile(path).read("EPSG:32645", everywhere);
    EXPECT_EQ(lines.size(), 71U);
    for (const VectorLine & l : lines)
        for (const Point & p : l.points) {
            EXPECT_NEAR(p.x, 485000.0, 8000.0);
            EXPECT_NEAR(p.z, 3087500.0, 8000.0);
        }
    const auto part = VectorFile(path).read("", {86.80, 27.90, 86.85, 27.93});
    EXPECT_GT(part.size(), 10U);
    for (const VectorLine & l : part)
        for (const Point & p : l.points)
            EXPECT_TRUE(p.x > 86.7999999 && p.x < 86.8500001 && p.z > 27.8999999 && p.z < 27.9300001);
}

} // namespace
