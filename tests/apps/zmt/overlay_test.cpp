// Vector files on the ground: what the program draws, and what it tells of them.

#include <algorithm>
#include <cmath>
#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "cityrun.h"
#include "support/imagecompare.h"
#include "support/scriptedhttpserver.h"
#include "support/smallgeotiff.h"

#include <nbx/image/memoryimage.h>
#include <nbx/object/stringutils.h>
#include <zmt/raster/gdal/coordinatesystem.h>

namespace {

using CityRun::expectFailure;
using CityRun::zmt;

/// Level ground of 64 by 48 cells of 10 m, in zone 45.
constexpr double s_groundWest = 500000.0, s_south = 3100000.0;
constexpr int s_columns = 64, s_rows = 48;
constexpr double s_groundCell = 10.0;

std::string ground(double height = 100.0) {
    SmallGeoTiff tiff{s_columns, s_rows};
    tiff.west = s_groundWest;
    tiff.north = s_south + s_rows * s_groundCell;
    tiff.cell = s_groundCell;
    tiff.heights.assign(std::size_t(s_columns) * s_rows, float(height));
    return tiff.encode();
}

/// Longitude and latitude of a place of the ground, as GeoJSON has them.
std::string place(double x, double y) {
    static const ZMT::RASTER::CoordinateSystem system(ZMT::RASTER::CoordinateSystem::parse("EPSG:32645").wkt);
    const auto at = system.toLonLat({s_groundWest + x, s_south + y});
    std::ostringstream text;
    text.precision(12);
    text << "[" << at->longitude << "," << at->latitude << "]";
    return text.str();
}

std::string feature(const std::string & geometry, const std::string & properties = "{}") {
    return R"({"type":"Feature","properties":)" + properties + R"(,"geometry":)" + geometry + "}";
}

std::string area(double west, double south, double east, double north) {
    return R"({"type":"Polygon","coordinates":[[)" + place(west, south) + "," + place(east, south) + "," +
           place(east, north) + "," + place(west, north) + "," + place(west, south) + "]]}";
}

std::string line(double x0, double y0, double x1, double y1) {
    return R"({"type":"LineString","coordinates":[)" + place(x0, y0) + "," + place(x1, y1) + "]}";
}

std::string point(double x, double y) {
    return R"({"type":"Point","coordinates":)" + place(x, y) + "}";
}

std::string collection(const std::vector<std::string> & features) {
    std::string text = R"({"type":"FeatureCollection","features":[)";
    for (const std::string & one : features)
        text.append(&one == &features.front() ? "" : ",").append(one);
    return text + "]}";
}

class OverlayRun : public ::testing::Test {
protected:
    RunResult render(std::vector<std::string> more, const std::string & out = "p.png") const {
        more.insert(more.begin(), {"render", "--terrain", terrain, "--view", "north", "--size", "320x240",
                                   "--texture-error", "0.5", "--out", folder.out(out)});
        return zmt(folder, more);
    }
    NBX::SO<NBX::Image> picture(const std::string & out = "p.png") const {
        const NBX::SO<NBX::Image> image = CityRun::pictureIn(folder.out(out));
        return image ? image : NBX::SO<NBX::Image>(new NBX::MemoryImage(320, 240, NBX::LS_RGB));
    }
    /// At a place of the ground.
    NBX::Color colorAt(const NBX::Image & image, double x, double y) const {
        const auto [column, row] = pixelOf(x, y);
        return image.getColor(column, image.height() - 1 - row);
    }
    NBX::Color colorAt(double x, double y) const { return colorAt(*picture(), x, y); }
    /// The pixel that shows a place, from the upper left.
    std::pair<int, int> pixelOf(double x, double y) const {
        static const auto [west, south] = groundAt(100, 160);
        static const auto [east, north] = groundAt(220, 80);
        const double column = 100.0 + 120.0 * (s_groundWest + x - west) / (east - west);
        const double row = 160.0 - 80.0 * (s_south + y - south) / (north - south);
        return {int(std::lround(column)), int(std::lround(row))};
    }
    std::pair<double, double> groundAt(int column, int row) const {
        const nlohmann::json at = pick({}, column, row);
        return {at["x"].get<double>(), at["y"].get<double>()};
    }
    nlohmann::json pick(std::vector<std::string> more, int column, int row) const {
        more.insert(more.begin(), {"pick", "--terrain", terrain, "--view", "north", "--size", "320x240",
                                   "--json", std::to_string(column) + "," + std::to_string(row)});
        const RunResult run = zmt(folder, more);
        EXPECT_EQ(run.status, 0) << run.errors;
        return nlohmann::json::parse(run.output);
    }

    RunFolder folder;
    const std::string terrain = folder.write("ground.tif", ground());
    const std::string areas = folder.write(
        "areas.geojson", collection({feature(area(160, 120, 320, 240), R"({"name":"field","use":1})"),
                                     feature(area(400, 120, 480, 240), R"({"name":"wood","use":2})")}));
};

bool isRed(const NBX::Color & color) {
    return color[0] > 0.95F && color[1] < 0.05F && color[2] < 0.05F;
}

bool isBlue(const NBX::Color & color) {
    return color[2] > 0.95F && color[0] < 0.05F && color[1] < 0.05F;
}

TEST_F(OverlayRun, FeaturesLieInTheirPlaces) {
    const RunResult run = render({"--overlay", areas, "--style", "fill=#ff0000,width=0"});
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_TRUE(run.errors.empty()) << run.errors;
    for (const auto & [x, y] : {std::pair(170.0, 130.0), std::pair(310.0, 230.0), std::pair(410.0, 230.0)})
        EXPECT_TRUE(isRed(colorAt(x, y))) << x << ", " << y;
    for (const auto & [x, y] : {std::pair(150.0, 130.0), std::pair(330.0, 230.0), std::pair(310.0, 250.0),
                                std::pair(490.0, 180.0), std::pair(200.0, 110.0)})
        EXPECT_FALSE(isRed(colorAt(x, y))) << x << ", " << y;
}

TEST_F(OverlayRun, ExaggerationAndOtherKindsOfTerrainLeaveThemThere) {
    for (const std::vector<std::string> & more :
         {std::vector<std::string>{"--exaggeration", "5"}, {"--method", "tree"}, {"--lighting", "dynamic"}}) {
        std::vector<std::string> options = {"--overlay", areas, "--style", "fill=#ff0000,width=0"};
        options.insert(options.end(), more.begin(), more.end());
        const RunResult run = render(options);
        ASSERT_EQ(run.status, 0) << run.errors;
        if (more.front() != "--exaggeration") {
            EXPECT_TRUE(isRed(colorAt(310.0, 230.0))) << more.front();
        }
        EXPECT_TRUE(isRed(colorAt(240.0, 180.0))) << more.front();
        EXPECT_FALSE(isRed(colorAt(20.0, 20.0))) << more.front();
    }
}

TEST_F(OverlayRun, WidthsAreThoseOfTheScreenWhateverTheTexels) {
    const std::string crossing = folder.write("line.geojson", collection({feature(line(0, 180, 640, 180))}));
    // Of a column in the middle, in pixels.
    const auto width = [&](const char * error, const char * samples) {
        const RunResult run =
            zmt(folder, {"render", "--terrain", terrain, "--view", "north", "--size", "320x240", "--overlay",
                         crossing, "--style", "color=#ff0000,width=6", "--texture-error", error, "--samples",
                         samples, "--out", folder.out("p.png")});
        EXPECT_EQ(run.status, 0) << run.errors;
        const auto bare = colorAt(100.0, 60.0), full = NBX::Color(1.0, 0.0, 0.0);
        const auto image = picture();
        double sum = 0.0;
        for (int y = 0; y < image->height(); ++y)
            sum += std::clamp((bare[1] - image->getColor(160, y)[1]) / (bare[1] - full[1]), 0.0F, 1.0F);
        return sum;
    };
    const double usual = width("0.5", "1");
    const double finer = width("0.2", "1");
    for (const double one : {usual, finer}) {
        EXPECT_GT(one, 6.0 * 0.75 - 0.5);
        EXPECT_LT(one, 6.0 * 1.5 + 0.5);
    }
    EXPECT_NEAR(width("0.5", "4"), usual, 0.1 * usual);
    EXPECT_NEAR(width("0.5", "16"), usual, 0.1 * usual);
    EXPECT_NEAR(width("0.2", "9"), finer, 0.1 * finer);
}

/// Where they were not, those of larger areas would stand in, with wide lines.
TEST_F(OverlayRun, AllTexturesOfAPictureAreDrawnWhateverIsKeptOfThem) {
    const std::string streamed = folder.in("ground.ztt");
    ASSERT_EQ(zmt(folder, {"build", "terrain", terrain, streamed, "--level", "4"}).status, 0);
    const std::string cross = folder.write(
        "cross.geojson", collection({feature(line(0, 0, 640, 480)), feature(line(0, 480, 640, 0))}));
    std::vector<NBX::SO<NBX::Image>> pictures;
    for (const char * memory : {"1", "1000"}) {
        const RunResult run =
            zmt(folder, {"render", "--terrain", streamed, "--view", "north", "--size", "1600x1200",
                         "--overlay", cross, "--style", "color=#ff0000,width=3", "--texture-memory", memory,
                         "--out", folder.out("p.png")});
        ASSERT_EQ(run.status, 0) << run.errors;
        pictures.push_back(picture());
    }
    EXPECT_EQ(compareImages(*pictures[0], *pictures[1], 1.0).share, 0.0);
}

TEST_F(OverlayRun, LaterOnesLieOnTop) {
    const std::string more = folder.write("line.geojson", collection({feature(line(0, 180, 640, 180))}));
    const std::vector<std::string> red = {"--overlay", areas, "--style", "fill=#ff0000,width=0"},
                                   blue = {"--overlay", more, "--style", "color=#0000ff,width=30m"};
    std::vector<std::string> up = red, down = blue;
    up.insert(up.end(), blue.begin(), blue.end());
    down.insert(down.end(), red.begin(), red.end());
    ASSERT_EQ(render(up).status, 0);
    EXPECT_TRUE(isBlue(colorAt(240.0, 180.0)));
    EXPECT_TRUE(isBlue(colorAt(360.0, 180.0)));
    ASSERT_EQ(render(down).status, 0);
    EXPECT_TRUE(isRed(colorAt(240.0, 180.0)));
    EXPECT_TRUE(isBlue(colorAt(360.0, 180.0)));
}

TEST_F(OverlayRun, RulesOfAStyleFileHold) {
    const std::string style = folder.write(
        "use.style", "# by use\nuse = 1: fill=#ff0000, width=0\nname = wood: fill=#0000ff, width=0\n");
    ASSERT_EQ(render({"--overlay", areas, "--style", style}).status, 0);
    EXPECT_TRUE(isRed(colorAt(240.0, 180.0)));
    EXPECT_TRUE(isBlue(colorAt(440.0, 180.0)));
}

TEST_F(OverlayRun, NamesStandInThePicture) {
    ASSERT_EQ(render({"--overlay", areas, "--style", "fill=#ffffff,width=0"}, "plain.png").status, 0);
    ASSERT_EQ(render({"--overlay", areas, "--style",
                      "fill=#ffffff,width=0,label=name,label-color=#ff0000,label-size=24"},
                     "named.png")
                  .status,
              0);
    const NBX::SO<NBX::Image> plain = picture("plain.png"), named = picture("named.png");
    unsigned reds = 0;
    for (double x = 170.0; x < 310.0; x += 2.0)
        for (double y = 160.0; y < 200.0; y += 2.0) {
            EXPECT_GT(colorAt(*plain, x, y)[1], 0.9F);
            reds += isRed(colorAt(*named, x, y)) ? 1 : 0;
        }
    EXPECT_GT(reds, 0U);
}

TEST_F(OverlayRun, PickNamesWhatLiesThere) {
    const std::string points = folder.write(
        "points.geojson", collection({feature(point(240, 180), R"({"kind":"well","depth":12.5})")}));
    const auto [column, row] = pixelOf(240.0, 180.0);
    const std::vector<std::string> both = {"--overlay", areas, "--overlay", points};
    const nlohmann::json at = pick(both, column, row);
    ASSERT_EQ(at["features"].size(), 2U) << at;
    EXPECT_EQ(at["features"][0]["overlay"], "points.geojson");
    EXPECT_EQ(at["features"][0]["fields"], nlohmann::json({{"kind", "well"}, {"depth", 12.5}}));
    EXPECT_LT(at["features"][0]["pixels"], 1.0);
    EXPECT_EQ(at["features"][1]["fields"]["name"], "field");
    EXPECT_EQ(at["features"][1]["fields"]["use"], 1);
    EXPECT_EQ(pick(both, column + 6, row)["features"].size(), 1U) << "the point is too far";
    std::vector<std::string> far = both;
    far.insert(far.end(), {"--tolerance", "8"});
    EXPECT_EQ(pick(far, column + 6, row)["features"].size(), 2U);
    EXPECT_TRUE(pick(both, 5, 5).value("features", nlohmann::json::array()).empty());
    const RunResult lines =
        zmt(folder, {"pick", "--terrain", terrain, "--view", "north", "--size", "320x240", "--overlay", areas,
                     std::to_string(column) + "," + std::to_string(row)});
    EXPECT_NE(lines.output.find("areas.geojson: feature 0, name=field, use=1\n"), std::string::npos)
        << lines.output;
}

TEST_F(OverlayRun, WhatIsWrongIsTold) {
    const std::string none = folder.in("none.geojson");
    expectFailure(render({"--overlay", none}), 1, {none});
    expectFailure(render({"--overlay", terrain}), 1, {"ground.tif"});
    expectFailure(render({"--overlay", areas + ",roads"}), 1, {"areas.geojson", "roads"});
    expectFailure(render({"--overlay", areas, "--style", "colour=#ff0000"}), 1, {"colour", "color"});
    expectFailure(render({"--overlay", areas, "--style", folder.in("none.style")}), 1, {"none.style"});
    expectFailure(render({"--overlay", areas, "--style", "label=title"}), 1,
                  {"areas.geojson", "title", "name"});
    expectFailure(render({"--style", "width=1"}), 2, {"--overlay"});
    expectFailure(zmt(folder, {"render", "--city", areas, "--overlay", areas, "--out", folder.out("p.png")}),
                  2, {"--overlay", "--terrain"});
    expectFailure(render({"--overlay", folder.out("p.png")}), 2, {"--overlay", "--out"});
    EXPECT_TRUE(folder.results().empty());
}

TEST_F(OverlayRun, FilesOnServersAreFetched) {
    ScriptedHttpServer server;
    server.setFile("/areas.geojson", readWhole(areas));
    const auto at = [&](const char * path) { return NBX::StringUtils::WString2Utf8String(server.url(path)); };
    const RunResult run = render({"--overlay", at("/areas.geojson"), "--style", "fill=#ff0000,width=0"});
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_TRUE(isRed(colorAt(240.0, 180.0)));
    expectFailure(render({"--overlay", at("/none.geojson")}), 1, {"none.geojson", "answered"});
}

/// From west to east along the middle of the ground, 60 m a minute.
std::string way() {
    std::string text = "<gpx version=\"1.1\"><trk><trkseg>";
    for (int minute = 0; minute <= 10; ++minute) {
        std::string at = place(20.0 + 60.0 * minute, 240.0);
        const std::size_t comma = at.find(',');
        text += "<trkpt lon=\"" + at.substr(1, comma - 1) + "\" lat=\"" +
                at.substr(comma + 1, at.size() - comma - 2) +
                "\"><time>2024-05-01T12:" + (minute < 10 ? "0" : "") + std::to_string(minute) +
                ":00Z</time></trkpt>";
    }
    return text + "</trkseg></trk></gpx>";
}

bool isWay(const NBX::Color & color) {
    return color[0] > 0.7F && color[1] < 0.4F && color[2] < 0.4F;
}

TEST_F(OverlayRun, ATrackIsDrawnUpToItsTime) {
    const std::string track = folder.write("way.gpx", way());
    const auto isDrawnAt = [&](double x) {
        const auto [column, row] = pixelOf(x, 240.0);
        const NBX::SO<NBX::Image> image = picture();
        for (int dy = -2; dy <= 2; ++dy)
            if (isWay(image->getColor(column, image->height() - 1 - row + dy))) return true;
        return false;
    };
    for (const std::string & time : {std::string("+300"), std::string("2024-05-01T14:05:00+02:00")}) {
        ASSERT_EQ(render({"--track", track, "--time", time}).status, 0);
        EXPECT_TRUE(isDrawnAt(100.0)) << time;
        EXPECT_TRUE(isDrawnAt(280.0)) << time;
        EXPECT_FALSE(isDrawnAt(420.0)) << time;
        EXPECT_FALSE(isDrawnAt(560.0)) << time;
        EXPECT_TRUE(isWay(colorAt(320.0, 240.0))) << "the mark, at " << time;
    }
    ASSERT_EQ(render({"--track", track}).status, 0);
    EXPECT_TRUE(isDrawnAt(560.0)) << "all of it";
    ASSERT_EQ(render({"--track", track, "--time", "2024-05-01T11:00:00Z"}).status, 0);
    EXPECT_FALSE(isDrawnAt(100.0)) << "before it began";
}

TEST_F(OverlayRun, TracksThatCannotBeAreTold) {
    const std::string track = folder.write("way.gpx", way());
    expectFailure(render({"--time", "+3"}), 2, {"--track"});
    for (const char * time : {"now", "+", "-3", "+3s", "2024-13-01"})
        expectFailure(render({"--track", track, "--time", time}), 2, {"--time", time});
    expectFailure(render({"--track", areas}), 1, {"areas.geojson"});
    const std::string timeless =
        folder.write("timeless.gpx",
                     "<gpx version=\"1.1\"><trk><trkseg><trkpt lon=\"87\" lat=\"28\"/></trkseg></trk></gpx>");
    expectFailure(render({"--track", timeless}), 1, {"timeless.gpx", "time", "--overlay"});
    expectFailure(zmt(folder, {"render", "--city", areas, "--track", track, "--out", folder.out("p.png")}), 2,
                  {"--track", "--terrain"});
}

/// Rises to the east by a metre for each cell, from 100 on.
std::string slope() {
    SmallGeoTiff tiff{s_columns, s_rows};
    tiff.west = s_groundWest;
    tiff.north = s_south + s_rows * s_groundCell;
    tiff.cell = s_groundCell;
    tiff.noData = "-9999";
    for (int i = 0; i < s_columns * s_rows; ++i)
        tiff.heights.push_back(i / s_columns < 10 ? -9999.0F : float(i % s_columns - 50));
    return tiff.encode();
}

TEST_F(OverlayRun, AFloodCoversWhatLiesBelow) {
    folder.write("ground.tif", slope());
    // The vertices stand in the middle of their cells: -20.5 is 300 m to the east.
    const double shore = (29.5 + 0.5) * s_groundCell;
    for (const char * exaggeration : {"1", "3"}) {
        const bool isPlain = exaggeration == std::string("1");
        ASSERT_EQ(render({"--exaggeration", exaggeration}, "dry.png").status, 0);
        ASSERT_EQ(render({"--exaggeration", exaggeration, "--flood", "-20.5,#0000ff80"}).status, 0);
        const auto dry = picture("dry.png"), wet = picture();
        for (const double x : {isPlain ? 50.0 : 200.0, isPlain ? shore - 6.0 : 200.0}) {
            const NBX::Color under = colorAt(*dry, x, 200.0), over = colorAt(*wet, x, 200.0);
            EXPECT_NEAR(over[2], under[2] + (1.0F - under[2]) * 128.0F / 255.0F, 3.0F / 255.0F) << x;
            EXPECT_NEAR(over[0], under[0] * 127.0F / 255.0F, 3.0F / 255.0F) << x;
        }
        for (const double x : {isPlain ? shore + 6.0 : 420.0, 500.0})
            EXPECT_EQ(colorAt(*dry, x, 200.0), colorAt(*wet, x, 200.0)) << x;
        EXPECT_EQ(colorAt(*dry, 100.0, 440.0), colorAt(*wet, 100.0, 440.0)) << "no ground is known there";
    }
    expectFailure(render({"--flood", "deep"}), 2, {"--flood", "deep"});
    expectFailure(zmt(folder, {"render", "--city", areas, "--flood", "3", "--out", folder.out("p.png")}), 2,
                  {"--flood", "--terrain"});
}

TEST_F(OverlayRun, ContourLinesAreDrawnAtTheirHeights) {
    // Rises to the east by one in ten, from 100 in the middle of the first cell on.
    SmallGeoTiff tiff{s_columns, s_rows};
    tiff.west = s_groundWest;
    tiff.north = s_south + s_rows * s_groundCell;
    tiff.cell = s_groundCell;
    for (int i = 0; i < s_columns * s_rows; ++i)
        tiff.heights.push_back(100.0F + float(i % s_columns));
    const std::string slope = folder.write("slope.tif", tiff.encode());
    const auto draw = [&](const std::vector<std::string> & more) {
        std::vector<std::string> arguments = {"render", "--terrain", slope,   "--view",           "north",
                                              "--size", "640x480",   "--out", folder.out("c.png")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        EXPECT_EQ(zmt(folder, arguments).status, 0);
        return CityRun::pictureIn(folder.out("c.png"));
    };
    const auto bare = draw({}), lined = draw({"--contours", "20"});
    ASSERT_TRUE(bare && lined);
    // Runs of columns that differ in a row of the picture away from names.
    std::vector<double> lines;
    for (int x = 0; x < 640; ++x) {
        const auto *a = bare->pixelComponentsU8(x, 130), *b = lined->pixelComponentsU8(x, 130);
        if (std::abs(a[0] - b[0]) < 20) continue;
        if (lines.empty() || x > lines.back() + 3.0) lines.push_back(x);
    }
    // At 100, 120, 140 and 160 m: the first lies at the very edge.
    ASSERT_GE(lines.size(), 3U);
    const std::size_t last = lines.size() - 1;
    const double step = lines[last] - lines[last - 1];
    // What is higher is nearer to the eye.
    EXPECT_NEAR(step / (lines[last - 1] - lines[last - 2]), 1.04, 0.04);
    const auto ends = std::pair(pixelOf(0.0, 240.0).first, pixelOf(600.0, 240.0).first);
    EXPECT_NEAR(step, 2.0 * (ends.second - ends.first) / 3.0, 6.0) << "twice as large as the usual picture";
}

TEST_F(OverlayRun, ContourLinesThatCannotBeAreRefused) {
    for (const char * interval : {"0", "-5", "nan"})
        expectFailure(zmt(folder, {"render", "--terrain", terrain, "--contours", interval, "--out",
                                   folder.out("c.png")}),
                      2, {"--contours must be a number of metres above 0"});
    expectFailure(
        zmt(folder, {"render", "--terrain", terrain, "--contours", "30", "--out", folder.out("c.png")}), 1,
        {"contour lines", "would be none"});
    EXPECT_TRUE(folder.results().empty());
}

} // namespace
