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

constexpr double unlimited = std::numeric_limits<double>::infinity();
const GeoExtent everywhere{-unlimited, -unlimited, unlimited, unlimited};

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

TEST_F(VectorFileTest, LinesOfAnotherSystemMayBeginFarBeyondIt) {
    const VectorFile f(file({R"({"type": "LineString", "coordinates": [[-179, 28, 0], [179, 28, 358]]})"}));
    const auto lines = f.read("EPSG:32645", {400000, 3000000, 600000, 3200000});
    ASSERT_EQ(lines.size(), 1U);
    const Points & points = lines[0].points;
    EXPECT_EQ(points.front().x, 400000.0);
    EXPECT_EQ(points.back().x, 600000.0);
    for (const Point & p : points) {
        // A parallel is no straight line there.
        EXPECT_NEAR(p.z, 3097202.4 + 4.17e-8 * (p.x - 500000.0) * (p.x - 500000.0), 5.0);
        EXPECT_NEAR(p.y, 266.0, 1.1) << "heights go along";
    }
}

std::string rectangle(double west, double south, double east, double north) {
    const auto corner = [](double x, double y) {
        return "[" + std::to_string(x) + "," + std::to_string(y) + "]";
    };
    return "[" + corner(west, south) + "," + corner(east, south) + "," + corner(east, north) + "," +
           corner(west, north) + "," + corner(west, south) + "]";
}

std::string area(const std::string & rings) {
    return R"({"type": "Polygon", "coordinates": [)" + rings + "]}";
}

bool contains(const VectorAreas & areas, double x, double y) {
    bool isInside = false;
    for (const VectorLine & outline : areas.outlines)
        for (std::size_t i = 1; i < outline.points.size(); ++i) {
            const Point &a = outline.points[i - 1], &b = outline.points[i];
            if ((a.z > y) != (b.z > y) && x < a.x + (y - a.z) / (b.z - a.z) * (b.x - a.x))
                isInside = !isInside;
        }
    return isInside;
}

/// Four rows of four places in the extent, from north to south.
std::string drawing(const VectorAreas & areas, const GeoExtent & extent) {
    std::string text;
    for (unsigned row = 0; row < 4; ++row) {
        for (unsigned column = 0; column < 4; ++column) {
            const double x = extent.minX + (extent.maxX - extent.minX) * (column + 0.51) / 4;
            const double y = extent.maxY - (extent.maxY - extent.minY) * (row + 0.52) / 4;
            text += contains(areas, x, y) ? '#' : '.';
        }
        text += row < 3 ? "|" : "";
    }
    return text;
}

void expectOutlines(const VectorAreas & areas, const GeoExtent & extent) {
    for (const VectorLine & outline : areas.outlines) {
        EXPECT_TRUE(outline.isClosed);
        EXPECT_GT(outline.points.size(), 3U);
        EXPECT_EQ(outline.points.front(), outline.points.back());
        for (const Point & p : outline.points)
            EXPECT_TRUE(p.x >= extent.minX && p.x <= extent.maxX && p.z >= extent.minY && p.z <= extent.maxY);
    }
}

const std::string s_empty = "....|....|....|....", s_full = "####|####|####|####";

TEST_F(VectorFileTest, AreasAreCutAtTheExtent) {
    const std::string hole = rectangle(1, 1, 3, 3), all = rectangle(-9, -9, 9, 9);
    const struct {
        const char * name;
        std::vector<std::string> geometries;
        std::string expected;
        unsigned inside, outside;
    } cases[] = {
        {"inside", {area(hole)}, "....|.##.|.##.|....", 1, 0},
        {"covers the extent", {area(all)}, s_full, 1, 0},
        {"reaches very far", {area(rectangle(-1e9, -2e9, 3e9, 1e9))}, s_full, 1, 0},
        {"is the extent", {area(rectangle(0, 0, 4, 4))}, s_full, 1, 0},
        {"with a hole", {area(all + "," + hole)}, "####|#..#|#..#|####", 1, 0},
        {"hole over all", {area(rectangle(-20, -20, 20, 20) + "," + all)}, s_empty, 0, 1},
        {"across a corner", {area(rectangle(2, -9, 9, 2))}, "....|....|..##|..##", 1, 0},
        {"across two sides", {area(rectangle(-9, 1, 9, 2))}, "....|....|####|....", 1, 0},
        {"beside", {area(rectangle(5, 0, 6, 4))}, s_empty, 0, 1},
        {"touches", {area(rectangle(4, 0, 6, 4))}, s_empty, 0, 1},
        {"some are beside",
         {area(rectangle(5, 0, 6, 4)), area(hole), area(rectangle(-6, 0, -5, 4))},
         "....|.##.|.##.|....",
         1,
         2},
        {"one part is beside",
         {R"({"type": "MultiPolygon", "coordinates": [[)" + hole + "],[" + rectangle(7, 7, 8, 8) + "]]}"},
         "....|.##.|.##.|....",
         1,
         0},
        {"one on another",
         {area(rectangle(-9, 1, 3, 3)), area(rectangle(1, 1, 9, 4))},
         ".###|####|####|....",
         2,
         0},
        {"twice the same", {area(hole), area(hole)}, "....|.##.|.##.|....", 2, 0},
        {"spike", {area("[[0,0],[4,0],[4,4],[9,9],[4,4],[0,4],[0,0]]")}, s_full, 1, 0},
        {"closed line",
         {R"({"type": "LineString", "coordinates": )" + hole + "}"},
         "....|.##.|.##.|....",
         1,
         0},
        {"open line", {R"({"type": "LineString", "coordinates": [[0,0],[4,0],[4,4]]})"}, s_empty, 0, 0},
        {"point", {R"({"type": "Point", "coordinates": [1, 2]})"}, s_empty, 0, 0},
        {"collection",
         {R"({"type": "GeometryCollection", "geometries": [)" + area(hole) + "," + area(all) + "]}"},
         s_full,
         1,
         0},
        {"without an area", {area("[[1,1],[3,1],[1,1],[1,1]]")}, s_empty, 0, 1},
        {"nothing", {"null"}, s_empty, 0, 0}};
    const GeoExtent extent{0, 0, 4, 4};
    for (const auto & c : cases) {
        SCOPED_TRACE(c.name);
        const VectorAreas areas = VectorFile(file(c.geometries)).readAreas("", extent);
        EXPECT_EQ(drawing(areas, extent), c.expected);
        EXPECT_EQ(areas.inside, c.inside);
        EXPECT_EQ(areas.outside, c.outside);
        EXPECT_EQ(areas.outlines.empty(), c.inside == 0U);
        expectOutlines(areas, extent);
    }
    EXPECT_EQ(VectorFile(file({area(all)})).readAreas("", extent).outlines[0].points.size(), 5U);
    EXPECT_EQ(VectorFile(file({area(all)})).readAreas("", everywhere).outlines[0].points.size(), 5U);
}

TEST_F(VectorFileTest, AnOutlineThatCrossesItselfHasTwoInsides) {
    const GeoExtent extent{0, 0, 4, 4};
    const VectorAreas areas =
        VectorFile(file({area("[[-4,-4],[8,8],[8,-4],[-4,8],[-4,-4]]")})).readAreas("", extent);
    EXPECT_TRUE(contains(areas, 0.5, 2.0));
    EXPECT_TRUE(contains(areas, 3.5, 2.0));
    EXPECT_FALSE(contains(areas, 2.0, 0.5));
    EXPECT_FALSE(contains(areas, 2.0, 3.5));
}

TEST_F(VectorFileTest, AreasOfAnotherSystemAreCutAtTheExtent) {
    const GeoExtent everest{400000, 3000000, 600000, 3200000}, antimeridian{780000, 100000, 880000, 200000};
    const GeoExtent arctic{-1e6, -1e6, 1e6, 1e6}, world{-20037508, -10018754, 20037508, 10018754};
    const GeoExtent mercator{-2e7, -2e7, 2e7, 2e7};
    const std::string pacific = "+proj=eqc +lon_0=180 +datum=WGS84 +type=crs";
    const struct {
        const char * name;
        std::string wkt;
        GeoExtent extent;
        std::vector<std::string> geometries;
        std::string expected;
        unsigned outside;
    } cases[] = {
        {"the whole world on a valley",
         "EPSG:32645",
         everest,
         {area(rectangle(-180, -90, 180, 90))},
         s_full,
         0},
        {"half of the world",
         "EPSG:32645",
         everest,
         {area(rectangle(87, -90, 180, 90))},
         "..##|..##|..##|..##",
         0},
        {"the other side of the world",
         "EPSG:32645",
         everest,
         {area(rectangle(-100, -40, -80, 40))},
         s_empty,
         1},
        {"up to the antimeridian",
         "EPSG:32660",
         antimeridian,
         {area(rectangle(170, -5, 180, 5))},
         "##..|##..|##..|##..",
         0},
        {"on both of its sides",
         "EPSG:32660",
         antimeridian,
         {area(rectangle(170, -5, 180, 5)), area(rectangle(-180, -5, -170, 5))},
         s_full,
         0},
        {"across it", "EPSG:32660", antimeridian, {area(rectangle(170, -5, 190, 5))}, s_full, 0},
        {"across it from the other side",
         "EPSG:32660",
         antimeridian,
         {area(rectangle(-190, -5, -170, 5))},
         s_full,
         0},
        {"around a pole", "EPSG:3995", arctic, {area(rectangle(-180, 50, 180, 90))}, s_full, 0},
        {"a quarter around a pole",
         "EPSG:3995",
         arctic,
         {area(rectangle(0, -90, 90, 90))},
         "....|....|..##|..##",
         0},
        {"the world on itself", "EPSG:4087", world, {area(rectangle(-180, -90, 180, 90))}, s_full, 0},
        {"the world cut elsewhere", pacific, world, {area(rectangle(-180, -90, 180, 90))}, s_full, 0},
        {"across the line where it is cut",
         pacific,
         world,
         {area(rectangle(-80, -40, 85, 40))},
         "....|#..#|#..#|....",
         0},
        {"no place for the poles", "EPSG:3857", mercator, {area(rectangle(-180, -90, 180, 90))}, s_full, 0}};
    for (const auto & c : cases) {
        SCOPED_TRACE(c.name);
        const VectorAreas areas = VectorFile(file(c.geometries)).readAreas(c.wkt, c.extent);
        EXPECT_EQ(drawing(areas, c.extent), c.expected);
        EXPECT_EQ(areas.outside, c.outside);
        EXPECT_EQ(areas.inside, c.geometries.size() - c.outside);
        expectOutlines(areas, c.extent);
    }
}

TEST_F(VectorFileTest, TooManyPointsOfAreasAreRefused) {
    const VectorFile f(file({area(rectangle(0, 0, 1, 1)), area(rectangle(2, 0, 3, 1))}));
    EXPECT_EQ(f.readAreas("", everywhere, 10).outlines.size(), 2U);
    expectPart(thrown([&] { f.readAreas("", everywhere, 9); }), "more than 9 points");
    EXPECT_EQ(f.readAreas("", {0, 0, 1, 1}, 5).outlines.size(), 1U) << "points outside do not count";
}

TEST_F(VectorFileTest, AreasWithNumbersThatAreNoneDoNoHarm) {
    const auto path = directory.write(
        "areas.csv", "id,WKT\n1,\"POLYGON ((0 0, 4 0, nan nan, 4 4, 0 4, 0 0))\"\n2,\"POLYGON ((0 0, nan 1, "
                     "2 inf, 0 0))\"\n3,\"POLYGON ((0 0, 1e308 0, 1e308 1e308, 0 1e308, 0 0))\"\n");
    const GeoExtent extent{0, 0, 4, 4};
    for (const char * wkt : {"", "EPSG:32645"}) {
        const std::string message =
            thrown([&] { expectOutlines(VectorFile(path).readAreas(wkt, extent), extent); });
        if (!message.empty()) expectPart(message, "areas.csv");
    }
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
