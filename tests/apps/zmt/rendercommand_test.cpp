#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <ostream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>

#include "datafiles.h"
#include "support/imagecompare.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

using NBX::Color;

const std::string s_everestDetail = s_data + "everest_image_detail.tif";

RunResult render(const RunFolder & folder, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "render");
    arguments.insert(arguments.end(), {"--out", folder.out("picture.png")});
    return runProcess(ZMT_EXECUTABLE, arguments, folder);
}

struct GoldenCase {
    const char * name;
    std::vector<std::string> arguments;
};

std::ostream & operator<<(std::ostream & stream, const GoldenCase & c) {
    return stream << c.name;
}

class Golden : public ::testing::TestWithParam<GoldenCase> {};

TEST_P(Golden, LooksAsBefore) {
    const RunFolder folder;
    std::vector<std::string> arguments = GetParam().arguments;
    arguments.insert(arguments.end(), {"--size", "320x200"});
    // The pictures are those of the tree, where they name no other method.
    if (std::find(arguments.begin(), arguments.end(), "--method") == arguments.end())
        arguments.insert(arguments.end(), {"--method", "tree"});
    const RunResult run = render(folder, arguments);
    ASSERT_EQ(0, run.status) << run.errors;
    EXPECT_EQ("", compareWithGolden(folder.out("picture.png"), GetParam().name));
}

const GoldenCase s_goldenCases[] = {
    {"overview", {"--terrain", s_everestHeights, "--image", s_everestImage}},
    {"closeup", {"--terrain", s_jacksboroHeights, "--view", "closeup", "--exaggeration", "1.5"}},
    {"north", {"--terrain", s_everestHeights, "--image", s_everestImage, "--view", "north"}},
    {"grazing", {"--terrain", s_jacksboroHeights, "--view", "751300,4048700,700,745000,4055000,500"}},
    {"walls",
     {"--terrain", s_everestHeights, "--image", s_everestImage, "--view",
      "478500,3079500,7000,484500,3085500,4500"}},
    {"patches",
     {"--terrain", s_jacksboroHeights, "--patches", "--max-vertices", "200", "--geometry-error", "1"}},
    {"wireframe",
     {"--terrain", s_jacksboroHeights, "--wireframe", "--max-vertices", "200", "--exaggeration", "2"}},
    {"two_images",
     {"--terrain", s_everestHeights, "--image", s_everestImage, "--image", s_everestDetail, "--view",
      "484500,3084000,8500,484500,3091000,5000"}},
    {"chunked", {"--terrain", s_everestHeights, "--image", s_everestImage, "--method", "chunked"}},
    {"static_light",
     {"--terrain", s_jacksboroHeights, "--lighting", "static", "--light", "90,30,0.2", "--exaggeration",
      "2"}},
    {"dynamic_light",
     {"--terrain", s_jacksboroHeights, "--lighting", "dynamic", "--light", "90,30,0.2", "--exaggeration",
      "2"}},
    {"vertex_light",
     {"--terrain", s_jacksboroHeights, "--lighting", "vertex", "--light", "90,30,0.2", "--exaggeration",
      "2"}},
    {"chunked_light",
     {"--terrain", s_jacksboroHeights, "--lighting", "dynamic", "--method", "chunked", "--light",
      "90,30,0.2"}},
    {"break_lines",
     {"--terrain", s_everestHeights, "--breaklines", s_glaciers, "--wireframe", "--view", "north",
      "--geometry-error", "0.5"}},
    {"draped",
     {"--terrain", s_everestHeights, "--image", s_everestImage, "--drape", s_glaciers, "--drape-lift", "150",
      "--view", "closeup"}},
};

INSTANTIATE_TEST_SUITE_P(RenderCommand, Golden, ::testing::ValuesIn(s_goldenCases),
                         [](const auto & info) { return std::string(info.param.name); });

constexpr unsigned s_cells = 17;

/// A plain of height 0.
SmallGeoTiff plain() {
    SmallGeoTiff tiff{s_cells, s_cells};
    tiff.heights.assign(s_cells * s_cells, 0.0F);
    return tiff;
}

/// The picture from straight above, whose middle is the middle of the terrain.
NBX::SO<NBX::Image> pictureFromAbove(const RunFolder & folder, std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--view", "north", "--size", "100x100", "--method", "tree"});
    const RunResult run = render(folder, arguments);
    EXPECT_EQ(0, run.status) << run.errors;
    return readPng(folder.out("picture.png"));
}

/// An image over the plain: red in the north-west, green in the north-east, blue in the south-west, red in
/// the south-east.
SmallGeoTiff quarters() {
    SmallGeoTiff tiff{16, 16};
    tiff.pixels = SmallGeoTiff::Pixels::Colors;
    tiff.cell = 34.0;
    const std::uint8_t colors[2][2][3] = {{{255, 0, 0}, {0, 255, 0}}, {{0, 0, 255}, {255, 0, 0}}};
    for (unsigned y = 0; y < 16; ++y)
        for (unsigned x = 0; x < 16; ++x)
            for (const std::uint8_t c : colors[y / 8][x / 8])
                tiff.colors.push_back(c);
    return tiff;
}

/// Index of the largest component.
int hue(const Color & c) {
    return int(std::max_element(c.data(), c.data() + 3) - c.data());
}

TEST(RenderCommand, ImagesLieWhereTheyBelong) {
    const RunFolder folder;
    const auto picture = pictureFromAbove(folder, {"--terrain", folder.write("t.tif", plain().encode()),
                                                   "--image", folder.write("i.tif", quarters().encode())});
    ASSERT_TRUE(picture);
    // Line 0 of a picture is the lowest one.
    EXPECT_EQ(0, hue(picture->getColor(35, 65))) << "north-west";
    EXPECT_EQ(1, hue(picture->getColor(65, 65))) << "north-east";
    EXPECT_EQ(2, hue(picture->getColor(35, 35))) << "south-west";
    EXPECT_EQ(0, hue(picture->getColor(65, 35))) << "south-east";
}

TEST(RenderCommand, AnErrorThatDoesNotShowFromAboveIsTold) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", plain().encode());
    const auto told = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"--terrain", terrain, "--size", "20x20"});
        const RunResult run = render(folder, arguments);
        EXPECT_EQ(0, run.status) << run.errors;
        return run.errors;
    };
    EXPECT_NE(std::string::npos, told({"--view", "north", "--geometry-error", "1"}).find("straight above"));
    EXPECT_EQ("", told({"--view", "north"}));
}

TEST(RenderCommand, BandsAndStretchAreOfEachImage) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", plain().encode());
    const std::string image = folder.write("i.tif", quarters().encode());
    const auto turned =
        pictureFromAbove(folder, {"--terrain", terrain, "--image", image, "--bands", "2,3,1"});
    ASSERT_TRUE(turned);
    EXPECT_EQ(2, hue(turned->getColor(35, 65))) << "north-west";
    EXPECT_EQ(0, hue(turned->getColor(65, 65))) << "north-east";
    EXPECT_EQ(1, hue(turned->getColor(35, 35))) << "south-west";
    const auto both =
        pictureFromAbove(folder, {"--terrain", terrain, "--image", image, "--image", image, "--opacity", "1",
                                  "--opacity", "0", "--bands", "3,1,2", "--bands", "1,2,3"});
    EXPECT_EQ(1, hue(both->getColor(35, 65))) << "the lower one, in its own bands";
    for (const auto & [option, value] : {std::pair("--bands", "4,1,1"), std::pair("--bands", "1;2"),
                                         std::pair("--opacity", "2"), std::pair("--stretch", "1")}) {
        const RunResult run = render(folder, {"--terrain", terrain, "--image", image, option, value});
        EXPECT_NE(0, run.status) << option;
        EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
    }
}

TEST(RenderCommand, OpacityMixesWithWhatLiesBelow) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", plain().encode());
    const std::string image = folder.write("i.tif", quarters().encode());
    const auto picture = [&](const char * opacity) {
        return pictureFromAbove(folder, {"--terrain", terrain, "--image", image, "--opacity", opacity});
    };
    const auto none = picture("0"), quarter = picture("0.25"), all = picture("1");
    const auto ground = pictureFromAbove(folder, {"--terrain", terrain});
    ASSERT_TRUE(none && quarter && all && ground);
    EXPECT_EQ(0.0, compareImages(*none, *ground).share);
    for (const auto & [x, y] : {std::pair(35, 65), std::pair(65, 65), std::pair(35, 35)})
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(0.75 * none->getColor(x, y)[i] + 0.25 * all->getColor(x, y)[i],
                        quarter->getColor(x, y)[i], 0.02)
                << x << " " << y << " " << i;
}

TEST(RenderCommand, NumbersWithoutDataShowTheGround) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", plain().encode());
    SmallGeoTiff numbers{16, 16};
    numbers.cell = 34.0;
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
            numbers.heights.push_back(x < 8 ? -9999.0F : y < 8 ? 4e5F : 5e5F);
    numbers.noData = "-9999";
    const auto ground = pictureFromAbove(folder, {"--terrain", terrain});
    const auto picture =
        pictureFromAbove(folder, {"--terrain", terrain, "--image", folder.write("i.tif", numbers.encode())});
    ASSERT_TRUE(ground && picture);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(ground->getColor(30, 65)[i], picture->getColor(30, 65)[i]) << "the west has no data";
        EXPECT_NEAR(0.0, picture->getColor(70, 70)[i], 0.02) << "the north is black";
        EXPECT_NEAR(1.0, picture->getColor(70, 30)[i], 0.02) << "the south is white";
    }
}

TEST(RenderCommand, AnInterruptEndsTheDrawingOfALargePicture) {
    const RunFolder folder;
    RunLimits limits;
    limits.interruptWhenIn = folder.path() / "out";
    limits.signalDelay = std::chrono::milliseconds(1500);
    const RunResult run =
        runProcess(ZMT_EXECUTABLE,
                   {"render", "--terrain", s_everestHeights, "--image", s_everestImage, "--size",
                    "10000x10000", "--geometry-error", "0", "--out", folder.out("picture.png")},
                   folder, limits);
    EXPECT_EQ(1, run.status);
    EXPECT_EQ(std::vector<std::string>{"zmt: cancelled"}, run.errorLines()) << run.errors;
    EXPECT_EQ(std::vector<std::string>(), folder.results());
    // Half a second, and what a busy machine adds.
    EXPECT_LT(run.secondsAfterSignal, 1.5);
}

/// The quarters in degrees, over a bit more than the plain.
SmallGeoTiff quartersInDegrees() {
    SmallGeoTiff tiff = quarters();
    tiff.isInDegrees = true;
    tiff.system = 4326;
    tiff.cell = 0.0056 / 16;
    tiff.west = 86.99997;
    tiff.north = 28.0256;
    return tiff;
}

TEST(RenderCommand, PyramidsOfImagesInDegreesLieWhereTheImagesLie) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", plain().encode());
    const std::string image = folder.write("i.tif", quartersInDegrees().encode());
    const RunResult build =
        runProcess(ZMT_EXECUTABLE, {"build", "pyramid", image, folder.in("p.ztp")}, folder);
    ASSERT_EQ(0, build.status) << build.errors;
    const auto expected = pictureFromAbove(folder, {"--terrain", terrain, "--image", image});
    const auto found = pictureFromAbove(folder, {"--terrain", terrain, "--image", folder.in("p.ztp")});
    ASSERT_TRUE(expected && found);
    EXPECT_EQ(1, hue(found->getColor(65, 65))) << "north-east";
    EXPECT_EQ(2, hue(found->getColor(35, 35))) << "south-west";
    EXPECT_LT(compareImages(*found, *expected).share, 0.02);
}

TEST(RenderCommand, APyramidWithoutASystemIsInThatOfTheTerrain) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", plain().encode());
    const std::string image = folder.write("i.tif", quarters().encode());
    ASSERT_EQ(0, runProcess(ZMT_EXECUTABLE, {"build", "pyramid", image, folder.in("p.ztp")}, folder).status);
    const auto expected = pictureFromAbove(folder, {"--terrain", terrain, "--image", folder.in("p.ztp")});
    std::filesystem::remove(folder.in("p.prj"));
    const auto found = pictureFromAbove(folder, {"--terrain", terrain, "--image", folder.in("p.ztp")});
    ASSERT_TRUE(expected && found);
    EXPECT_EQ(0.0, compareImages(*found, *expected).share);
}

TEST(RenderCommand, ASystemBesideAPyramidThatCannotBeReadIsTold) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", plain().encode());
    const std::string image = folder.write("i.tif", quarters().encode());
    ASSERT_EQ(0, runProcess(ZMT_EXECUTABLE, {"build", "pyramid", image, folder.in("p.ztp")}, folder).status);
    folder.write("p.prj", "no system");
    for (const RunResult & run : {render(folder, {"--terrain", terrain, "--image", folder.in("p.ztp")}),
                                  runProcess(ZMT_EXECUTABLE, {"info", folder.in("p.ztp")}, folder)}) {
        EXPECT_EQ(1, run.status);
        ASSERT_EQ(1U, run.errorLines().size()) << run.errors;
        EXPECT_NE(std::string::npos, run.errors.find("p.prj")) << run.errors;
        EXPECT_NE(std::string::npos, run.errors.find("WKT")) << run.errors;
    }
}

TEST(RenderCommand, ImagesAreRegisteredToThePixel) {
    const RunFolder folder;
    const auto picture = pictureFromAbove(folder, {"--terrain", folder.write("t.tif", plain().encode()),
                                                   "--image", folder.write("i.tif", quarters().encode())});
    ASSERT_TRUE(picture);
    for (const int y : {30, 70}) {
        EXPECT_NE(hue(picture->getColor(48, y)), hue(picture->getColor(51, y)));
        EXPECT_EQ(hue(picture->getColor(30, y)), hue(picture->getColor(48, y)));
        EXPECT_EQ(hue(picture->getColor(70, y)), hue(picture->getColor(51, y)));
    }
    for (const int x : {30, 70}) {
        EXPECT_NE(hue(picture->getColor(x, 48)), hue(picture->getColor(x, 51)));
        EXPECT_EQ(hue(picture->getColor(x, 30)), hue(picture->getColor(x, 48)));
        EXPECT_EQ(hue(picture->getColor(x, 70)), hue(picture->getColor(x, 51)));
    }
}

TEST(RenderCommand, LaterImagesLieOnTop) {
    const RunFolder folder;
    SmallGeoTiff red = quarters();
    for (std::size_t i = 0; i < red.colors.size(); ++i)
        red.colors[i] = i % 3 == 0 ? 255 : 0;
    const auto picture = pictureFromAbove(folder, {"--terrain", folder.write("t.tif", plain().encode()),
                                                   "--image", folder.write("i.tif", quarters().encode()),
                                                   "--image", folder.write("r.tif", red.encode())});
    ASSERT_TRUE(picture);
    for (const int x : {35, 65})
        for (const int y : {35, 65})
            EXPECT_EQ(0, hue(picture->getColor(x, y)));
}

TEST(RenderCommand, HillsLieWhereTheyBelong) {
    // A hill in the north-east; only it differs from the plain in colour.
    SmallGeoTiff hill = plain();
    for (unsigned y = 2; y < 6; ++y)
        for (unsigned x = 11; x < 15; ++x)
            hill.heights[y * s_cells + x] = 60.0F;
    const RunFolder folder;
    const auto picture = pictureFromAbove(folder, {"--terrain", folder.write("t.tif", hill.encode())});
    ASSERT_TRUE(picture);
    const Color ground = picture->getColor(23, 23);
    EXPECT_LT(colorDifference(ground, picture->getColor(23, 77)), 2.0) << "north-west";
    EXPECT_LT(colorDifference(ground, picture->getColor(77, 23)), 2.0) << "south-east";
    EXPECT_GT(colorDifference(ground, picture->getColor(77, 77)), 10.0) << "north-east";
}

TEST(RenderCommand, LightComesFromTheNorthWest) {
    // A cone in the middle of the plain.
    SmallGeoTiff cone = plain();
    for (int y = 0; y < int(s_cells); ++y)
        for (int x = 0; x < int(s_cells); ++x)
            cone.heights[std::size_t(y) * s_cells + std::size_t(x)] =
                float(std::max(0.0, 150.0 - 25.0 * std::hypot(x - 8, y - 8)));
    const RunFolder folder;
    const auto picture = pictureFromAbove(
        folder, {"--terrain", folder.write("t.tif", cone.encode()), "--patches", "--max-vertices", "1000"});
    ASSERT_TRUE(picture);
    const auto brightness = [&](int x, int y) {
        const Color c = picture->getColor(x, y);
        return c[0] + c[1] + c[2];
    };
    EXPECT_GT(brightness(43, 57), brightness(57, 43) * 1.2F);
}

TEST(RenderCommand, SizeIsAsAsked) {
    for (const auto & [width, height] : {std::pair(1, 1), std::pair(37, 113), std::pair(640, 2)}) {
        const RunFolder folder;
        const std::string size = std::to_string(width) + "x" + std::to_string(height);
        const RunResult run =
            render(folder, {"--terrain", folder.write("t.tif", plain().encode()), "--size", size});
        ASSERT_EQ(0, run.status) << size << run.errors;
        const auto picture = readPng(folder.out("picture.png"));
        ASSERT_TRUE(picture) << size;
        EXPECT_EQ(width, picture->width());
        EXPECT_EQ(height, picture->height());
    }
}

/// Steep cones under the four quarters, seen from the south.
NBX::SO<NBX::Image> conesPicture(const std::vector<std::string> & more) {
    SmallGeoTiff cones = plain();
    for (std::size_t i = 0; i < cones.heights.size(); ++i)
        cones.heights[i] = i % 3 == 0 ? 40.0F : 0.0F;
    const RunFolder folder;
    std::vector<std::string> arguments = {"--terrain",        folder.write("t.tif", cones.encode()),
                                          "--image",          folder.write("i.tif", quarters().encode()),
                                          "--geometry-error", "0",
                                          "--view",           "at:500272,3099728,0,35,900"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const RunResult run = render(folder, arguments);
    EXPECT_EQ(0, run.status) << run.errors;
    return readPng(folder.out("picture.png"));
}

/// Each pixel is the average of two by two.
NBX::SO<NBX::Image> halved(const NBX::Image & picture) {
    NBX::SO<NBX::Image> half(new NBX::MemoryImage(picture.width() / 2, picture.height() / 2, NBX::LS_RGB));
    for (int y = 0; y < half->height(); ++y)
        for (int x = 0; x < half->width(); ++x) {
            Color sum;
            for (const auto & [dx, dy] : {std::pair(0, 0), {1, 0}, {0, 1}, {1, 1}})
                for (int i = 0; i < 3; ++i)
                    sum[i] += picture.getColor(2 * x + dx, 2 * y + dy)[i] / 4.0F;
            half->setColor(x, y, sum);
        }
    return half;
}

TEST(RenderCommand, SamplesOfAPixelAreThoseOfAFinerPicture) {
    const auto finer = halved(*conesPicture({"--size", "240x160"}));
    const auto four = conesPicture({"--size", "120x80", "--samples", "4"});
    const auto one = conesPicture({"--size", "120x80", "--samples", "1"});
    EXPECT_LT(compareImages(*four, *finer, 3.0).share, 0.002);
    EXPECT_GT(compareImages(*one, *finer, 3.0).share, 0.02);
}

TEST(RenderCommand, OnlySquaresOfSamplesAreTaken) {
    for (const char * samples : {"0", "2", "8", "25", "-4", "4294967297", "many"}) {
        const RunFolder folder;
        const RunResult run =
            render(folder, {"--terrain", folder.write("t.tif", plain().encode()), "--samples", samples});
        EXPECT_EQ(2, run.status) << samples;
        EXPECT_NE(run.errors.find("--samples"), std::string::npos) << run.errors;
        EXPECT_TRUE(folder.results().empty());
    }
}

/// A wall of rock 320 m high from west to east, seen from the south and from below its top. Behind it every
/// cell stands by itself where the ground is rough.
SmallGeoTiff rock(bool isRoughBehind) {
    SmallGeoTiff tiff{33, 33};
    for (unsigned line = 0; line < 33; ++line)
        for (unsigned column = 0; column < 33; ++column)
            tiff.heights.push_back(line == 20                                             ? 320.0F
                                   : isRoughBehind && line < 16 && line * column % 3 == 1 ? 90.0F
                                                                                          : 0.0F);
    return tiff;
}

NBX::SO<NBX::Image> wireframeOf(const SmallGeoTiff & tiff, const std::string & method) {
    const RunFolder folder;
    const RunResult run = render(folder, {"--terrain", folder.write("t.tif", tiff.encode()), "--wireframe",
                                          "--geometry-error", "0", "--method", method, "--size", "160x120",
                                          "--view", "500528,3098300,150,500528,3099344,100"});
    EXPECT_EQ(0, run.status) << run.errors;
    return readPng(folder.out("picture.png"));
}

TEST(RenderCommand, WireframeHidesWhatIsBehind) {
    for (const char * method : {"tree", "chunked"})
        EXPECT_EQ(
            0.0,
            compareImages(*wireframeOf(rock(false), method), *wireframeOf(rock(true), method), 1.0).share)
            << method;
}

/// Below the southern edge of the ground, in line 34, there is sky, but for the ends of the skirts between
/// patches.
TEST(RenderCommand, WireframeLeavesWallsOut) {
    for (const char * method : {"tree", "chunked"}) {
        const auto picture = wireframeOf(rock(false), method);
        int columns = 0;
        for (int x = 0; x < picture->width(); ++x) {
            bool isSky = true;
            for (int y = 0; y < 30; ++y)
                isSky = isSky && picture->getColor(x, y)[2] > 0.85;
            columns += isSky ? 0 : 1;
        }
        EXPECT_LT(columns, 16) << method;
    }
}

nlohmann::json statsOf(const std::vector<std::string> & more) {
    const RunFolder folder;
    std::vector<std::string> arguments = {"--terrain", s_jacksboroHeights,   "--size", "160x100",
                                          "--stats",   folder.out("s.json"), "--view", "closeup"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const RunResult run = render(folder, arguments);
    EXPECT_EQ(0, run.status) << run.errors;
    EXPECT_EQ((std::vector<std::string>{"picture.png", "s.json"}), folder.results());
    return nlohmann::json::parse(readWhole(folder.out("s.json")));
}

TEST(RenderCommand, StatisticsTellWhatWasDrawn) {
    const auto stats = statsOf({});
    EXPECT_EQ("EPSG:32616", stats["crs"]);
    EXPECT_EQ("WGS 84 / UTM zone 16N", stats["crs_name"]);
    EXPECT_EQ(160, stats["width"]);
    EXPECT_EQ(100, stats["height"]);
    EXPECT_EQ(true, stats["complete"]);
    EXPECT_GE(stats["frames"], 1);
    EXPECT_GE(stats["patches"], 1);
    EXPECT_GT(stats["build_ms"], 0.0);
    EXPECT_GT(stats["frame_ms"], 0.0);
    EXPECT_GT(stats["peak_rss_bytes"], 1 << 20);
    EXPECT_FALSE(stats["renderer"].get<std::string>().empty());
}

/// Map coordinates of a raster in degrees are in a system that nobody has chosen.
TEST(RenderCommand, NamesTheSystemOfItsMapCoordinates) {
    const RunFolder folder;
    const RunResult chosen = render(folder, {"--terrain", s_jacksboroHeights, "--size", "16x10"});
    EXPECT_EQ("map coordinates: WGS 84 / UTM zone 16N (EPSG:32616), metre\n", chosen.output) << chosen.errors;
    const RunResult named =
        render(folder, {"--terrain", s_jacksboroHeights, "--size", "16x10", "--crs", "EPSG:32617"});
    EXPECT_EQ("map coordinates: WGS 84 / UTM zone 17N (EPSG:32617), metre\n", named.output) << named.errors;
}

TEST(RenderCommand, ASystemFarAwayIsRefused) {
    const RunFolder folder;
    for (const char * crs : {"EPSG:32733", "EPSG:28992", "EPSG:3031", "EPSG:32601"}) {
        const RunResult run =
            render(folder, {"--terrain", s_jacksboroHeights, "--size", "16x10", "--crs", crs});
        EXPECT_GE(1, run.status) << crs << run.errors;
        EXPECT_EQ(std::size_t(run.status), run.errorLines().size()) << crs << run.errors;
    }
}

/// A place in longitude and latitude is the same place in whatever system the raster is laid.
TEST(RenderCommand, LongitudeAndLatitudeLookAtTheSamePlaceInEverySystem) {
    const RunFolder folder;
    const std::vector<std::string> view = {"--terrain",
                                           s_jacksboroHeights,
                                           "--lonlat",
                                           "--view",
                                           "-84.24,36.55,4000,-84.24,36.59,500",
                                           "--size",
                                           "96x64",
                                           "--out"};
    const auto drawn = [&](const std::string & name, const std::vector<std::string> & more) {
        std::vector<std::string> arguments = {"render"};
        arguments.insert(arguments.end(), view.begin(), view.end());
        arguments.push_back(folder.out(name));
        arguments.insert(arguments.end(), more.begin(), more.end());
        const RunResult run = runProcess(ZMT_EXECUTABLE, arguments, folder);
        EXPECT_EQ(0, run.status) << run.errors;
        return readPng(folder.out(name));
    };
    // Meridians converge: the neighbouring zone is turned by four degrees, and shows the same by and large.
    const auto own = drawn("a.png", {}), same = drawn("b.png", {"--crs", "EPSG:32616"});
    EXPECT_EQ(0.0, compareImages(*own, *same, 0.5).share);
}

TEST(RenderCommand, LessErrorTakesMoreTriangles) {
    const std::vector<std::string> budget = {"--max-vertices", "200"};
    const auto triangles = [&](const char * error) {
        std::vector<std::string> arguments = budget;
        arguments.insert(arguments.end(), {"--geometry-error", error});
        return statsOf(arguments)["triangles"].get<unsigned>();
    };
    const unsigned coarse = triangles("50"), fine = triangles("0.5");
    EXPECT_LT(0U, coarse);
    EXPECT_LT(coarse, fine);
}

TEST(RenderCommand, AnExistingPictureIsReplaced) {
    const RunFolder folder;
    ASSERT_EQ(0, ::system(("echo old > " + folder.out("picture.png")).c_str()));
    const RunResult run =
        render(folder, {"--terrain", folder.write("t.tif", plain().encode()), "--size", "20x20"});
    ASSERT_EQ(0, run.status) << run.errors;
    EXPECT_TRUE(readPng(folder.out("picture.png")));
    EXPECT_EQ(std::vector<std::string>{"picture.png"}, folder.results());
    EXPECT_EQ(std::vector<std::string>{"t.tif"}, folder.inputs());
}

} // namespace
