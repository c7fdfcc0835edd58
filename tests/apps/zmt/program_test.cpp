#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <limits>
#include <ostream>
#include <streambuf>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include "commands.h"
#include "datafiles.h"
#include "support/imagecompare.h"
#include "support/smallgeotiff.h"
#include "support/web/webapplication.h"
#include "support/wronguse.h"
#include "support/zmtrun.h"

namespace {

constexpr float s_undefined = -9999.0F;
const std::string s_jacksboroElsewhere = ZMT_DATA_DIR "/../tests/data/everest_image.tif";

/// A slope of heights 0, 1, 2, ...
SmallGeoTiff slope(unsigned width, unsigned height) {
    SmallGeoTiff tiff{width, height};
    for (unsigned i = 0; i < width * height; ++i)
        tiff.heights.push_back(float(i));
    tiff.noData = "-9999";
    return tiff;
}

SmallGeoTiff greyImage(unsigned width, unsigned height) {
    SmallGeoTiff tiff{width, height};
    tiff.pixels = SmallGeoTiff::Pixels::Colors;
    tiff.colors.assign(width * height * 3, 128);
    return tiff;
}

RunResult runZmt(const RunFolder & folder, const std::vector<std::string> & arguments,
                 const RunLimits & limits = {}) {
    return runProcess(ZMT_EXECUTABLE, arguments, folder, limits);
}

RunResult render(const RunFolder & folder, const std::string & terrain,
                 const std::vector<std::string> & more = {"--size", "48x32"}) {
    std::vector<std::string> arguments = {"render", "--terrain", terrain, "--out", folder.out("picture.png")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runZmt(folder, arguments);
}

RunResult lod(const RunFolder & folder, const std::string & terrain) {
    return runZmt(folder, {"lod", "--terrain", terrain, "--report", folder.out("r.json"), "--mesh", "0",
                           folder.out("m.obj")});
}

/// One line on the standard error stream, with all `words`, and nothing left behind.
void expectRefusal(const RunResult & run, int status, const std::vector<std::string> & words,
                   const RunFolder & folder) {
    EXPECT_EQ(status, run.status);
    EXPECT_EQ(1, std::count(run.errors.begin(), run.errors.end(), '\n')) << run.errors;
    EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
    for (const std::string & word : words)
        EXPECT_NE(std::string::npos, run.errors.find(word)) << word << "\nis missing in\n" << run.errors;
    EXPECT_EQ(std::vector<std::string>(), folder.results());
}

void expectPicture(const RunResult & run, const RunFolder & folder) {
    EXPECT_EQ(0, run.status) << run.errors;
    EXPECT_TRUE(run.errorLines().empty()) << run.errors;
    const auto picture = readPng(folder.out("picture.png"));
    ASSERT_TRUE(picture);
    EXPECT_EQ(48, picture->width());
    EXPECT_EQ(32, picture->height());
}

/// A terrain file that cannot be used: its bytes, and what the error says besides the file's name.
struct BadTerrain {
    const char * name;
    std::string bytes;
    std::vector<std::string> words;
};

std::ostream & operator<<(std::ostream & stream, const BadTerrain & c) {
    return stream << c.name;
}

class BadTerrainTest : public ::testing::TestWithParam<BadTerrain> {};

TEST_P(BadTerrainTest, IsToldByRenderAndLod) {
    const RunFolder folder;
    const std::string path = folder.write("terrain.tif", GetParam().bytes);
    std::vector<std::string> words = GetParam().words;
    words.push_back(path);
    expectRefusal(render(folder, path), 1, words, folder);
    expectRefusal(lod(folder, path), 1, words, folder);
    EXPECT_EQ(std::vector<std::string>{"terrain.tif"}, folder.inputs());
}

std::string allUndefined() {
    SmallGeoTiff tiff = slope(4, 4);
    tiff.heights.assign(16, s_undefined);
    return tiff.encode();
}

std::string cut(std::size_t length) {
    return slope(4, 4).encode().substr(0, length);
}

const std::size_t s_wholeLength = slope(4, 4).encode().size();

INSTANTIATE_TEST_SUITE_P(
    Program, BadTerrainTest,
    ::testing::Values(
        BadTerrain{"Empty", "", {"empty"}},
        BadTerrain{"Text", "Some text that is no raster.\n", {"no raster file"}},
        BadTerrain{"NoBands", "<VRTDataset rasterXSize=\"4\" rasterYSize=\"4\"></VRTDataset>", {"band"}},
        BadTerrain{"OneCell", slope(1, 1).encode(), {"1 by 1", "at least 2 by 2"}},
        BadTerrain{"OneColumn", slope(1, 9).encode(), {"1 by 9", "at least 2 by 2"}},
        BadTerrain{"OneRow", slope(9, 1).encode(), {"9 by 1", "at least 2 by 2"}},
        BadTerrain{"AllUndefined", allUndefined(), {"no defined height", "no-data"}},
        BadTerrain{"CutInTheHeader", cut(6), {}}, BadTerrain{"CutInTheDirectory", cut(60), {}},
        BadTerrain{"CutInTheValues", cut(s_wholeLength - 16 * 4 - 4), {}},
        BadTerrain{"CutAtThePixels", cut(s_wholeLength - 16 * 4), {}},
        BadTerrain{"CutBeforeTheLastByte", cut(s_wholeLength - 1), {}}),
    [](const auto & info) { return std::string(info.param.name); });

TEST(Program, NoSuchTerrain) {
    const RunFolder folder;
    expectRefusal(render(folder, folder.in("none.tif")), 1, {"no such file", folder.in("none.tif")}, folder);
    expectRefusal(lod(folder, folder.in("none.tif")), 1, {"no such file", folder.in("none.tif")}, folder);
    expectRefusal(runZmt(folder, {"info", folder.in("none.tif")}), 1, {"no such file"}, folder);
}

TEST(Program, ATerrainIsNoDirectory) {
    const RunFolder folder;
    const std::string directory = folder.path() / "in";
    expectRefusal(render(folder, directory), 1, {"directory", directory}, folder);
    expectRefusal(lod(folder, directory), 1, {"directory", directory}, folder);
    expectRefusal(runZmt(folder, {"info", directory}), 1, {"directory", directory}, folder);
}

TEST(Program, APipeIsNotWaitedFor) {
    const RunFolder folder;
    const std::string pipe = folder.in("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    expectRefusal(render(folder, pipe), 1, {"pipe"}, folder);
    expectRefusal(render(folder, s_jacksboroHeights, {"--image", pipe}), 1, {"pipe"}, folder);
    expectRefusal(render(folder, s_jacksboroHeights, {"--drape", pipe}), 1, {"pipe"}, folder);
    expectRefusal(runZmt(folder, {"info", pipe}), 1, {"pipe"}, folder);
    expectRefusal(runZmt(folder, {"build", "pyramid", pipe, folder.out("p.ztp")}), 1, {"pipe"}, folder);
}

TEST(Program, TwoByTwoCellsAreATerrain) {
    for (const char * view : {"overview", "closeup", "north"}) {
        const RunFolder folder;
        expectPicture(
            render(folder, folder.write("t.tif", slope(2, 2).encode()), {"--view", view, "--size", "48x32"}),
            folder);
    }
    const RunFolder folder;
    EXPECT_EQ(0, lod(folder, folder.write("t.tif", slope(2, 2).encode())).status);
    EXPECT_NE(std::string::npos, readWhole(folder.out("r.json")).find("\"kind\":\"grid\""));
}

TEST(Program, HeightsThatAreNoNumbersAreUndefined) {
    const float bad[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                         -std::numeric_limits<float>::infinity()};
    SmallGeoTiff tiff = slope(12, 9);
    for (unsigned i = 0; i < 3; ++i)
        tiff.heights[14 + 20 * i] = bad[i];
    const RunFolder folder;
    const std::string path = folder.write("t.tif", tiff.encode());
    for (const char * view : {"overview", "closeup", "north"})
        expectPicture(render(folder, path, {"--view", view, "--size", "48x32"}), folder);
    EXPECT_EQ(0, lod(folder, path).status);
    EXPECT_EQ(std::string::npos, readWhole(folder.out("m.obj")).find("nan"));
    EXPECT_EQ(std::string::npos, readWhole(folder.out("m.obj")).find("inf"));
    EXPECT_NE(std::string::npos,
              runZmt(folder, {"info", path, "--statistics"}).output.find("undefined:  2.78 %"));
}

TEST(Program, OneDefinedHeightIsATerrain) {
    SmallGeoTiff tiff = slope(5, 5);
    tiff.heights.assign(25, s_undefined);
    tiff.heights[12] = 7.0F;
    for (const char * view : {"overview", "closeup", "north"}) {
        const RunFolder folder;
        expectPicture(
            render(folder, folder.write("t.tif", tiff.encode()), {"--view", view, "--size", "48x32"}),
            folder);
    }
}

TEST(Program, TerrainsWithoutPlaceAreMeasuredInPixels) {
    SmallGeoTiff tiff = slope(9, 7);
    tiff.isPlaced = false;
    const RunFolder folder;
    const std::string path = folder.write("t.tif", tiff.encode());
    expectPicture(render(folder, path), folder);
    const RunResult info = runZmt(folder, {"info", path});
    EXPECT_EQ(0, info.status) << info.errors;
    EXPECT_NE(std::string::npos, info.output.find("cell:       1 by 1")) << info.output;
    EXPECT_NE(std::string::npos, info.output.find("system:     none")) << info.output;
}

TEST(Info, TellsOtherUnitsOfHeightsThanMetres) {
    const RunFolder folder;
    SmallGeoTiff heights = slope(9, 7);
    const auto told = [&](const char * unit) {
        heights.unit = unit;
        return runZmt(folder, {"info", folder.write("t.tif", heights.encode())}).output;
    };
    EXPECT_EQ(std::string::npos, told("metre").find("unit:"));
    EXPECT_NE(std::string::npos, told("ft").find("unit:       ft, 0.3048 metres")) << told("ft");
    EXPECT_NE(std::string::npos, told("stories").find("unit:       stories, which is not known"));
}

TEST(Program, InfoTellsWhatAFileHolds) {
    const RunFolder folder;
    const std::string path = folder.write("t.tif", slope(9, 7).encode());
    const RunResult info = runZmt(folder, {"info", path, "--statistics"});
    EXPECT_EQ(0, info.status);
    EXPECT_EQ("", info.errors);
    for (const char * line : {"format:     GTiff, bands: 1\n", "size:       9 by 7 cells\n",
                              "cell:       32 by 32 metre\n", "WGS 84 / UTM zone 45N (EPSG:32645), metre\n",
                              "x:          500000 to 500288, centres of cells 500016 to 500272\n",
                              "y:          3099776 to 3100000, centres of cells 3099792 to 3099984\n",
                              "band 1:     Float32, Gray, no data is -9999\n",
                              "heights:    0 to 62, average 31\n", "undefined:  0.00 %\n"})
        EXPECT_NE(std::string::npos, info.output.find(line)) << line << "is missing in\n" << info.output;
    const auto object =
        nlohmann::json::parse(runZmt(folder, {"info", path, "--statistics", "--json"}).output);
    EXPECT_EQ("heights", object.at("kind"));
    EXPECT_EQ(9, object.at("width"));
    EXPECT_EQ("EPSG:32645", object.at("crs"));
    EXPECT_EQ(500000.0, object.at("edges").at("min_x"));
    EXPECT_EQ(3100000.0, object.at("edges").at("max_y"));
    EXPECT_EQ(500016.0, object.at("centres").at("min_x"));
    EXPECT_EQ(3099984.0, object.at("centres").at("max_y"));
    ASSERT_EQ(1U, object.at("bands").size());
    EXPECT_EQ(62.0, object.at("bands")[0].at("maximum"));
    EXPECT_EQ(31.0, object.at("bands")[0].at("average"));
    EXPECT_EQ(-9999.0, object.at("bands")[0].at("no_data"));
}

TEST(Program, InfoTellsAllBandsOfAnImage) {
    const RunFolder folder;
    SmallGeoTiff tiff{2, 2, SmallGeoTiff::Pixels::Colors};
    tiff.colors = {1, 50, 200, 3, 50, 200, 5, 50, 200, 7, 50, 208};
    const std::string path = folder.write("i.tif", tiff.encode());
    const std::string brief = runZmt(folder, {"info", path}).output;
    for (const char * line :
         {"bands: 3\n", "size:       2 by 2 pixels\n", "pixel:      32 by 32 metre\n",
          "band 1:     Byte, Red\n", "band 2:     Byte, Green\n", "band 3:     Byte, Blue\n"})
        EXPECT_NE(std::string::npos, brief.find(line)) << line << "is missing in\n" << brief;
    EXPECT_EQ(std::string::npos, brief.find("values:")) << brief;
    const std::string all = runZmt(folder, {"info", path, "--statistics"}).output;
    for (const char * line : {"values:     1 to 7, average 4\n", "values:     50 to 50, average 50\n",
                              "values:     200 to 208, average 202\n"})
        EXPECT_NE(std::string::npos, all.find(line)) << line << "is missing in\n" << all;
    EXPECT_EQ(std::string::npos, all.find("heights")) << all;
    EXPECT_EQ(3U, nlohmann::json::parse(runZmt(folder, {"info", path, "--json"}).output).at("bands").size());
}

TEST(Program, InfoTellsEveryKindAsAnObject) {
    const RunFolder folder;
    SmallGeoTiff colors{2, 2, SmallGeoTiff::Pixels::Colors};
    colors.colors.assign(12, 90);
    const std::string heights = folder.write("t.tif", slope(9, 7).encode());
    const std::string image = folder.write("i.tif", colors.encode());
    const auto build = [&](const std::vector<std::string> & arguments, const std::string & result) {
        std::vector<std::string> all = {"build"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        EXPECT_EQ(0, runZmt(folder, all).status);
        return folder.out(result);
    };
    const std::string terrain = build({"terrain", heights, folder.out("t.ztt")}, "t.ztt");
    const std::pair<std::string, const char *> kinds[] = {
        {terrain, "streaming terrain"},
        {build({"tree", heights, folder.out("t.nbx")}, "t.nbx"), "built terrain"},
        {build({"pyramid", image, folder.out("i.ztp")}, "i.ztp"), "texture pyramid"},
        {build({"texture", image, folder.out("i.zts"), "--terrain", terrain}, "i.zts"), "streaming texture"},
        {ZMT_DATA_DIR "/everest_glaciers.geojson", "vectors"},
        {image, "image"}};
    for (const auto & [path, kind] : kinds) {
        const auto object = nlohmann::json::parse(runZmt(folder, {"info", path, "--json"}).output);
        EXPECT_EQ(kind, object.at("kind")) << path;
        EXPECT_EQ(path, object.at("file"));
    }
}

TEST(Program, ImagesElsewhereAreTold) {
    const RunFolder folder;
    expectRefusal(render(folder, s_jacksboroHeights, {"--image", s_jacksboroElsewhere}), 1,
                  {"lies elsewhere", s_jacksboroElsewhere}, folder);
    // On the same map, beside the terrain.
    SmallGeoTiff image = greyImage(8, 8);
    image.west += 100000.0;
    const std::string path = folder.write("i.tif", image.encode());
    expectRefusal(render(folder, folder.write("t.tif", slope(8, 8).encode()), {"--image", path}), 1,
                  {"lies elsewhere", path}, folder);
}

TEST(Program, ImagesWithoutPlaceAreTold) {
    const RunFolder folder;
    SmallGeoTiff image = greyImage(8, 8);
    image.isPlaced = false;
    const std::string path = folder.write("i.tif", image.encode());
    expectRefusal(render(folder, folder.write("t.tif", slope(8, 8).encode()), {"--image", path}), 1, {path},
                  folder);
}

TEST(Program, ImagesThatCannotBeReadAreTold) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", slope(8, 8).encode());
    const std::string text = folder.write("i.tif", "no image");
    const std::string whole = greyImage(8, 8).encode();
    const std::string shortened = folder.write("s.tif", whole.substr(0, whole.size() - 20));
    expectRefusal(render(folder, terrain, {"--image", text}), 1, {text}, folder);
    expectRefusal(render(folder, terrain, {"--image", folder.in("none.png")}), 1,
                  {"no such file", folder.in("none.png")}, folder);
    expectRefusal(render(folder, terrain, {"--image", shortened}), 1, {shortened}, folder);
}

class RenderUsage : public ::testing::TestWithParam<WrongUse> {};

TEST_P(RenderUsage, IsTold) {
    const RunFolder folder;
    expectRefusal(render(folder, s_jacksboroHeights, GetParam().arguments), 2, {GetParam().words, "--help"},
                  folder);
}

INSTANTIATE_TEST_SUITE_P(
    Program, RenderUsage,
    ::testing::Values(WrongUse{"SizeOfNothing", {"--size", "0x0"}, "--size must be"},
                      WrongUse{"NoWidth", {"--size", "0x10"}, "--size must be"},
                      WrongUse{"HugeSize", {"--size", "100000x100000"}, "--size must be"},
                      WrongUse{"HugeHeight", {"--size", "10x100000"}, "--size must be"},
                      WrongUse{"SizeBeyondNumbers", {"--size", "99999999999999999999x1"}, "--size must be"},
                      WrongUse{"NegativeSize", {"--size=-4x4"}, "--size must be"},
                      WrongUse{"SizeWithoutHeight", {"--size", "640"}, "--size must be"},
                      WrongUse{"SizeWithMore", {"--size", "640x480x3"}, "--size must be"},
                      WrongUse{"NoSize", {"--size", "large"}, "--size must be"},
                      WrongUse{"UnknownView", {"--view", "south"}, "--view must be"},
                      WrongUse{"FiveNumbers", {"--view", "1,2,3,4,5"}, "--view must be"},
                      WrongUse{"SevenNumbers", {"--view", "1,2,3,4,5,6,7"}, "--view must be"},
                      WrongUse{"NotANumberInView", {"--view", "1,2,nan,4,5,6"}, "--view must be"},
                      WrongUse{"NothingToSee", {"--view", "1,2,3,1,2,3"}, "same point"},
                      WrongUse{"NoExaggeration", {"--exaggeration", "0"}, "--exaggeration"},
                      WrongUse{"ExaggerationIsNoNumber", {"--exaggeration", "nan"}, "--exaggeration"},
                      WrongUse{"NegativeGeometryError", {"--geometry-error", "-1"}, "--geometry-error"},
                      WrongUse{"NegativeTextureError", {"--texture-error", "-1"}, "--texture-error"},
                      WrongUse{"EndlessGeometryError", {"--geometry-error", "inf"}, "--geometry-error"},
                      WrongUse{"TextureErrorIsNoNumber", {"--texture-error", "nan"}, "--texture-error"},
                      WrongUse{"NegativeExaggeration", {"--exaggeration=-2"}, "--exaggeration"},
                      WrongUse{"EndlessExaggeration", {"--exaggeration", "inf"}, "--exaggeration"},
                      WrongUse{"NegativeBudget", {"--max-vertices=-100"}, "--max-vertices"},
                      WrongUse{"EndlessView", {"--view", "1,2,inf,4,5,6"}, "--view must be"},
                      WrongUse{"ViewBeyondAllMaps", {"--view", "1e300,2,3,4,5,6"}, "--view must be"},
                      WrongUse{"AimBeyondAllMaps", {"--view", "1,2,3,4,-1e13,6"}, "--view must be"},
                      WrongUse{"SunIsNoNumber", {"--light", "nan,30"}, "--light must be"},
                      WrongUse{"SmallBudget", {"--max-vertices", "0"}, "--max-vertices must be"},
                      WrongUse{"NoThreads", {"--threads", "0"}, "--threads must be"},
                      WrongUse{"UnknownMethod", {"--method", "flat"}, "--method must be"},
                      WrongUse{"UnknownLighting", {"--lighting", "neon"}, "--lighting must be"},
                      WrongUse{"SunBelowTheHorizon", {"--light", "90,-5"}, "--light must be"},
                      WrongUse{"NoLift", {"--drape-lift", "nan"}, "--drape-lift must be"},
                      WrongUse{"NoNormals", {"--lighting", "vertex", "--method", "chunked"}, "--method tree"},
                      WrongUse{
                          "NoEdges", {"--breaklines", "x.geojson", "--method", "chunked"}, "--method tree"},
                      WrongUse{"UnknownOption", {"--colour", "red"}, "--colour"},
                      WrongUse{"Leftover", {"file"}, "file"},
                      WrongUse{"OptionWithoutValue", {"--image"}, "--image"}),
    [](const auto & info) { return std::string(info.param.name); });

TEST(Program, VectorFilesThatCannotBeUsedAreTold) {
    const RunFolder folder;
    const std::string elsewhere = folder.write(
        "elsewhere.geojson", R"({"type":"Polygon","coordinates":[[[10,10],[11,10],[11,11],[10,10]]]})");
    const std::string empty = folder.write("empty.geojson", R"({"type":"FeatureCollection","features":[]})");
    const std::string noVectors = folder.write("text.geojson", "no vectors");
    const std::string terrain = folder.write("t.tif", slope(8, 8).encode());
    for (const char * option : {"--breaklines", "--drape"})
        for (const std::string & path : {elsewhere, empty, noVectors, folder.in("missing.shp")})
            expectRefusal(render(folder, terrain, {option, path, "--size", "48x32"}), 1, {path}, folder);
}

TEST(Program, FilesOfAnotherKindAreTold) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", slope(8, 8).encode());
    const std::string areas =
        folder.write("areas.tif", R"({"type":"Polygon","coordinates":[[[10,10],[11,10],[11,11],[10,10]]]})");
    expectRefusal(render(folder, areas), 1, {"holds lines or areas", areas}, folder);
    expectRefusal(render(folder, terrain, {"--image", areas}), 1, {"holds lines or areas", areas}, folder);
    expectRefusal(render(folder, terrain, {"--drape", terrain}), 1, {"holds a raster", terrain}, folder);
    const RunResult info = runZmt(folder, {"info", areas});
    EXPECT_EQ(0, info.status) << info.errors;
    EXPECT_NE(std::string::npos, info.output.find("format:     GeoJSON, lines or areas, layers: 1"))
        << info.output;
}

TEST(Program, APictureWithoutTerrainIsToldOf) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", slope(8, 8).encode());
    const RunResult away =
        render(folder, terrain, {"--view", "500100,3000000,500,500100,2900000,0", "--size", "48x32"});
    EXPECT_EQ(0, away.status);
    ASSERT_EQ(1U, away.errorLines().size()) << away.errors;
    EXPECT_NE(std::string::npos, away.errorLines()[0].find("in sight"));
    EXPECT_NE(std::string::npos, away.errorLines()[0].find("500016,3099760,0 to 500240,3099984,63"));
    const std::string streaming = folder.in("t.ztt");
    ASSERT_EQ(0, runZmt(folder, {"build", "terrain", terrain, streaming}).status);
    // The eye is in the box of the terrain, which thus is drawn, and looks up.
    const std::string up = "500050,3099900,62,500050,3099910,162";
    for (const std::vector<std::string> & kind :
         {std::vector<std::string>{terrain, "tree"}, {terrain, "chunked"}, {streaming, "auto"}}) {
        const RunResult sky = render(folder, kind[0], {"--method", kind[1], "--view", up, "--size", "48x32"});
        EXPECT_EQ(0, sky.status) << sky.errors;
        ASSERT_EQ(1U, sky.errorLines().size()) << kind[1] << sky.errors;
        EXPECT_NE(std::string::npos, sky.errorLines()[0].find("in sight"));
    }
    const RunResult there = render(folder, terrain);
    EXPECT_EQ(0, there.status);
    EXPECT_EQ(0U, there.errorLines().size()) << there.errors;
}

TEST(Program, AreasBeyondTheTerrainAreCounted) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", slope(8, 8).encode());
    const auto square = [](int x, int y, int size) {
        const auto corner = [](int a, int b) {
            return "[" + std::to_string(a) + "," + std::to_string(b) + "]";
        };
        return "[[" + corner(x, y) + "," + corner(x + size, y) + "," + corner(x + size, y + size) + "," +
               corner(x, y + size) + "," + corner(x, y) + "]]";
    };
    const auto areas = [&](const std::vector<std::string> & coordinates) {
        std::string text;
        for (const std::string & c : coordinates)
            text += (text.empty() ? "" : ",") +
                    std::string(R"({"type":"Feature","properties":{},"geometry":{"type":"Polygon",)") +
                    R"("coordinates":)" + c + "}}";
        return R"({"type":"FeatureCollection","crs":{"type":"name","properties":{"name":"EPSG:32645"}},)"
               R"("features":[)" +
               text + "]}";
    };
    // The terrain is nothing beside the first one.
    const std::string all = square(-3000000, -1000000, 9000000), beyond = square(700000, 0, 10);
    const RunResult whole =
        render(folder, terrain, {"--drape", folder.write("a.geojson", areas({all})), "--size", "48x32"});
    EXPECT_EQ(0, whole.status);
    EXPECT_EQ(0U, whole.errorLines().size()) << whole.errors;
    const RunResult run =
        render(folder, terrain,
               {"--drape", folder.write("b.geojson", areas({beyond, all, beyond})), "--size", "48x32"});
    EXPECT_EQ(0, run.status);
    ASSERT_EQ(1U, run.errorLines().size()) << run.errors;
    EXPECT_NE(std::string::npos, run.errorLines()[0].find("b.geojson: 2 of 3 areas")) << run.errors;
}

TEST(Program, AreasTooLargeToBeDrapedAreToldOnce) {
    const RunFolder folder;
    const std::string all = folder.write(
        "all.geojson", R"({"type":"Polygon","coordinates":[[[80,20],[95,20],[95,40],[80,40],[80,20]]]})");
    SmallGeoTiff flat = slope(2100, 2100);
    flat.heights.assign(flat.heights.size(), 5.0F);
    expectRefusal(render(folder, folder.write("t.tif", flat.encode()), {"--drape", all, "--size", "48x32"}),
                  1, {all, "points", "4000000", "larger cells"}, folder);
}

TEST(Program, RastersTooLargeForChunkedTerrainsAreTold) {
    const RunFolder folder;
    expectRefusal(render(folder, folder.write("t.tif", slope(8194, 2).encode()),
                         {"--method", "chunked", "--size", "48x32"}),
                  1, {"8193", "--method tree"}, folder);
}

TEST(Program, DamagedPyramidsAreTold) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", slope(8, 8).encode());
    const std::string image = folder.write("i.tif", greyImage(8, 8).encode());
    ASSERT_EQ(0, runZmt(folder, {"build", "pyramid", image, folder.in("whole.ztp")}).status);
    const std::string bytes = readWhole(folder.in("whole.ztp"));
    for (const std::size_t length : {std::size_t(100), bytes.size() / 2, bytes.size() - 1}) {
        const std::string path = folder.write("cut.ztp", bytes.substr(0, length));
        expectRefusal(render(folder, terrain, {"--image", path, "--size", "48x32"}), 1, {path}, folder);
    }
}

TEST(Program, WedgesWithoutHeightsAreTold) {
    const RunFolder folder;
    SmallGeoTiff tiff{40, 40, SmallGeoTiff::Pixels::Heights, std::vector<float>(1600, 100.0F)};
    tiff.isInDegrees = true;
    tiff.system = 4326;
    tiff.west = 0.0;
    tiff.cell = 0.25;
    for (const double north : {85.0, 55.0}) {
        SCOPED_TRACE(north);
        tiff.north = north;
        const RunResult run = render(folder, folder.write("t.tif", tiff.encode()));
        EXPECT_EQ(0, run.status);
        if (north < 60.0) {
            EXPECT_EQ("", run.errors);
            continue;
        }
        ASSERT_EQ(1U, run.errorLines().size()) << run.errors;
        EXPECT_NE(std::string::npos,
                  run.errors.find("t.tif: its sides are not straight in WGS 84 / UPS North"))
            << run.errors;
        EXPECT_NE(std::string::npos, run.errors.find(" % of the terrain have no heights")) << run.errors;
        const std::size_t named = run.errors.find("--crs \"");
        ASSERT_NE(std::string::npos, named) << run.errors;
        const std::string system = run.errors.substr(named + 7, run.errors.rfind('"') - named - 7);
        EXPECT_EQ("+proj=eqc +lat_ts=80 +lon_0=5 +datum=WGS84", system);
        const RunResult other = render(folder, folder.in("t.tif"), {"--crs", system});
        EXPECT_EQ(0, other.status);
        EXPECT_EQ("", other.errors);
        for (const std::string corner : {"1,84", "9,84"}) {
            const RunResult pick = runZmt(folder, {"pick", "--terrain", folder.in("t.tif"), "--crs", system,
                                                   "--lonlat", "--view", corner + ",+5000," + corner + ",+0",
                                                   "--size", "64x64", "--json", "32,32"});
            EXPECT_EQ(0, pick.status) << corner << pick.errors;
            EXPECT_EQ(std::string::npos, pick.output.find("\"height\":null")) << corner << pick.output;
            EXPECT_NE(std::string::npos, pick.output.find("\"hit\":true")) << corner << pick.output;
        }
    }
}

/// Nobody can say of these that they are damaged.
TEST(Program, SoundFilesThatCannotBeReadAreTold) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", slope(8, 8).encode());
    const std::string path =
        folder.write("t.vrt", "<VRTDataset rasterXSize=\"8\" rasterYSize=\"8\"><SRS>EPSG:32645</SRS>"
                              "<GeoTransform>500000,32,0,3100000,0,-32</GeoTransform>"
                              "<VRTRasterBand dataType=\"Float32\" band=\"1\"><SimpleSource>"
                              "<SourceFilename>/missing.tif</SourceFilename><SourceBand>1</SourceBand>"
                              "<SrcRect xOff=\"0\" yOff=\"0\" xSize=\"8\" ySize=\"8\"/>"
                              "<DstRect xOff=\"0\" yOff=\"0\" xSize=\"8\" ySize=\"8\"/>"
                              "</SimpleSource></VRTRasterBand></VRTDataset>");
    const std::vector<std::string> words = {"cannot be read", "a file that it names", path, "/missing.tif"};
    expectRefusal(render(folder, path), 1, words, folder);
    expectRefusal(render(folder, terrain, {"--image", path}), 1, words, folder);
    expectRefusal(runZmt(folder, {"build", "pyramid", path, folder.out("p.ztp")}), 1, words, folder);
    expectRefusal(runZmt(folder, {"build", "terrain", path, folder.out("p.ztt")}), 1, words, folder);
}

TEST(Program, UsageIsTold) {
    const RunFolder folder;
    expectRefusal(runZmt(folder, {}), 2, {"--help"}, folder);
    expectRefusal(runZmt(folder, {"paint"}), 2, {"unknown command: paint", "render", "--help"}, folder);
    expectRefusal(runZmt(folder, {"build", "house"}), 2, {"unknown command: house", "pyramid"}, folder);
    expectRefusal(runZmt(folder, {"--paint"}), 2, {"--help"}, folder);
    expectRefusal(runZmt(folder, {"build"}), 2, {"zmt build --help"}, folder);
    expectRefusal(runZmt(folder, {"pick", "1,1"}), 2, {"--terrain", "--help"}, folder);
    expectRefusal(runZmt(folder, {"render", "--out", folder.out("p.png")}), 2,
                  {"--terrain is required, or --city", "--help"}, folder);
    expectRefusal(runZmt(folder, {"render", "--terrain", s_jacksboroHeights}), 2, {"--out", "--help"},
                  folder);
    expectRefusal(runZmt(folder, {"info"}), 2, {"FILE", "--help"}, folder);
    expectRefusal(runZmt(folder, {"build", "pyramid", "a", "b", "c"}), 2, {"zmt build pyramid --help"},
                  folder);
}

TEST(Program, LibrariesAreHeardOnRequestAlone) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", slope(8, 8).encode());
    const std::string image = folder.write("i.tif", greyImage(8, 8).encode());
    const std::string tree = "creating terrain for:\n", threads = "zmt: warning: using multi-threading";
    const std::pair<std::vector<std::string>, std::vector<std::string>> commands[] = {
        {{"render", "--method", "tree", "--image", image, "--terrain", terrain, "--size", "48x32", "--out",
          folder.out("p.png")},
         {tree, threads}},
        {{"lod", "--terrain", terrain, "--report", folder.out("r.json")}, {tree}},
        {{"build", "tree", terrain, folder.out("t.nbx")}, {tree}}};
    for (const auto & [command, texts] : commands) {
        SCOPED_TRACE(command.front());
        EXPECT_EQ("", runZmt(folder, command).errors);
        std::vector<std::string> verbose = command;
        verbose.emplace_back("--verbose");
        const RunResult run = runZmt(folder, verbose);
        EXPECT_EQ(0, run.status);
        for (const std::string & text : texts)
            EXPECT_NE(std::string::npos, run.errors.find(text)) << text << "\n" << run.errors;
    }
}

TEST(Program, WhatCannotBePrintedIsTold) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", slope(8, 8).encode());
    const std::string errors = folder.out("errors");
    for (const std::string & command : {"info " + terrain, "pick --terrain " + terrain + " 5,5",
                                        std::string("--help"), std::string("render --help")}) {
        const std::string line = ZMT_EXECUTABLE " " + command + " > /dev/full 2> " + errors;
        EXPECT_EQ(1, WEXITSTATUS(std::system(line.c_str()))) << command;
        EXPECT_NE(std::string::npos, readWhole(errors).find("zmt: the standard output")) << command;
    }
}

/// A raster of which nobody could hold a part, in a file of some bytes.
TEST(Program, RastersOfAnySizeAreTold) {
    const RunFolder folder;
    const std::string path =
        folder.write("t.vrt", "<VRTDataset rasterXSize=\"2000000000\" rasterYSize=\"2000000000\">"
                              "<VRTRasterBand dataType=\"Float32\" band=\"1\"/></VRTDataset>");
    expectRefusal(render(folder, path), 1, {path, "too large", "'zmt build terrain'"}, folder);
    expectRefusal(lod(folder, path), 1, {path, "too large", "400000000"}, folder);
    EXPECT_NE(std::string::npos,
              runZmt(folder, {"info", path}).output.find("2000000000 by 2000000000 cells"));
    expectRefusal(runZmt(folder, {"pick", "--terrain", path, "5,5"}), 1, {path, "too large"}, folder);
    expectRefusal(runZmt(folder, {"build", "pyramid", path, folder.out("p.ztp"), "--format", "RGBA8"}), 1,
                  {path, "too large"}, folder);
    const std::string terrain = folder.write("small.tif", slope(8, 8).encode());
    expectRefusal(render(folder, terrain, {"--image", path}), 1, {path}, folder);
}

TEST(Program, ATreeIsDescribedWholeOrNotAtAll) {
    const RunFolder folder;
    // Room for the surface of the root, but not for the report.
    const RunResult run = runZmt(folder,
                                 {"lod", "--terrain", s_jacksboroHeights, "--max-vertices", "50", "--report",
                                  folder.out("r.json"), "--mesh", "0", folder.out("m.obj")},
                                 {20000, {}});
    EXPECT_EQ(1, run.status);
    ASSERT_EQ(1U, run.errorLines().size()) << run.errors;
    EXPECT_NE(std::string::npos, run.errorLines()[0].find("r.json")) << run.errors;
    EXPECT_EQ(std::vector<std::string>(), folder.results());
}

TEST(Program, ALevelThatTheTreeDoesNotHaveIsTold) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", slope(8, 8).encode());
    const auto run = [&](const std::string & level) {
        return runZmt(folder, {"lod", "--terrain", terrain, "--report", folder.out("r.json"), "--mesh", level,
                               folder.out("m.obj")});
    };
    const RunResult refused = run("99");
    EXPECT_EQ(2, refused.status);
    ASSERT_EQ(1U, refused.errorLines().size()) << refused.errors;
    EXPECT_NE(std::string::npos, refused.errorLines()[0].find("--mesh: the tree has the levels 0 to 2: 99"));
    EXPECT_EQ(std::vector<std::string>(), folder.results());
    EXPECT_EQ(0, run("2").status);
    EXPECT_EQ(0, run("0").status);
}

TEST(Program, APictureIsWhatItsNameSays) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", slope(8, 8).encode());
    const auto run = [&](const std::string & name) {
        return runZmt(folder, {"render", "--terrain", terrain, "--size", "48x32", "--out", folder.out(name)});
    };
    for (const char * name : {"p.tif", "p.bmp", "p.jpg.txt"})
        expectRefusal(run(name), 2, {"--out", "PNG or JPEG", name}, folder);
    for (const char * name : {"p.jpg", "p.JPEG", "p.png", "p.PNG", "p"}) {
        EXPECT_EQ(0, run(name).status) << name;
        const std::string begin = readWhole(folder.out(name)).substr(0, 4);
        const bool isJpeg = std::string(name).find_first_of("jJ") != std::string::npos;
        EXPECT_EQ(isJpeg ? "\xFF\xD8\xFF\xE0" : "\x89PNG", begin) << name;
    }
}

TEST(Program, HelpAndVersionAreNoErrors) {
    const RunFolder folder;
    for (const char * option : {"--help", "--version"}) {
        const RunResult run = runZmt(folder, {option});
        EXPECT_EQ(0, run.status);
        EXPECT_EQ("", run.errors);
        EXPECT_NE("", run.output);
    }
    for (const char * command : {"render", "lod", "mesh", "info", "pick", "build"})
        EXPECT_EQ(0, runZmt(folder, {command, "--help"}).status);
}

/// Places where no file can be written, seen from a folder with a regular file "file" in it.
TEST(Program, OutputsThatCannotBeWrittenAreTold) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", slope(8, 8).encode());
    for (const std::string & out :
         {folder.out("none/picture.png"), terrain + "/picture.png", std::string("/proc/picture.png"),
          (folder.path() / "in").string(), std::string("/dev/full"), std::string("")}) {
        const RunResult run = runZmt(folder, {"render", "--terrain", terrain, "--size", "8x8", "--out", out});
        expectRefusal(run, 1, {out}, folder);
        expectRefusal(runZmt(folder, {"lod", "--terrain", terrain, "--report", out}), 1, {out}, folder);
    }
    // The other output is not written either.
    const std::string none = folder.out("none/s.json");
    expectRefusal(render(folder, terrain, {"--stats", none}), 1, {none}, folder);
    EXPECT_EQ(std::vector<std::string>{"t.tif"}, folder.inputs());
}

TEST(Program, AFullDiskLeavesNothing) {
    const RunFolder folder;
    const RunLimits limits{2048, {}};
    const RunResult picture =
        runZmt(folder,
               {"render", "--terrain", s_jacksboroHeights, "--size", "320x200", "--out", folder.out("p.png")},
               limits);
    EXPECT_EQ(1, picture.status);
    ASSERT_EQ(1U, picture.errorLines().size()) << picture.errors;
    EXPECT_NE(std::string::npos, picture.errorLines()[0].find("p.png")) << picture.errors;
    const RunResult tree =
        runZmt(folder, {"lod", "--terrain", s_jacksboroHeights, "--report", folder.out("r.json")}, limits);
    EXPECT_EQ(1, tree.status);
    ASSERT_EQ(1U, tree.errorLines().size()) << tree.errors;
    EXPECT_NE(std::string::npos, tree.errorLines()[0].find("r.json")) << tree.errors;
    EXPECT_EQ(std::vector<std::string>(), folder.results());
}

TEST(Program, AFullDiskKeepsTheOldFile) {
    const RunFolder folder;
    ASSERT_EQ(0, std::system(("echo old > " + folder.out("r.json")).c_str()));
    const RunResult run = runZmt(
        folder, {"lod", "--terrain", s_jacksboroHeights, "--report", folder.out("r.json")}, {2048, {}});
    EXPECT_EQ(1, run.status);
    EXPECT_EQ("old\n", readWhole(folder.out("r.json")));
    EXPECT_EQ(std::vector<std::string>{"r.json"}, folder.results());
}

TEST(Program, AnInterruptLeavesNothing) {
    const std::string terrain = ZMT_DATA_DIR "/everest_srtm3.tif";
    const std::vector<std::string> commands[] = {
        {"render", "--terrain", terrain, "--out"},
        {"lod", "--terrain", terrain, "--report"},
    };
    for (std::vector<std::string> arguments : commands) {
        const RunFolder folder;
        arguments.push_back(folder.out("result"));
        const RunResult run = runZmt(folder, arguments, {0, folder.path() / "out"});
        EXPECT_EQ(1, run.status);
        EXPECT_EQ(std::vector<std::string>{"zmt: cancelled"}, run.errorLines()) << run.errors;
        EXPECT_EQ(std::vector<std::string>(), folder.results());
    }
}

/// Looks, whenever something is printed, whether there is an application object.
class Onlooker : public std::streambuf {
public:
    Onlooker() : before_(std::cout.rdbuf(this)) {}
    ~Onlooker() override { std::cout.rdbuf(before_); }
    Onlooker(const Onlooker &) = delete;
    Onlooker & operator=(const Onlooker &) = delete;

    bool hasLooked = false, hasSeenOne = false;

protected:
    int_type overflow(int_type letter) override {
        hasLooked = true;
        hasSeenOne = hasSeenOne || WebApplication::exists();
        return traits_type::not_eof(letter);
    }

private:
    std::streambuf * before_;
};

/// Within this process, which has no application object of its own.
TEST(Program, AnEventLoopRunsOnlyForUrls) {
    const auto makesOne = [](std::vector<const char *> arguments) {
        arguments.insert(arguments.begin(), "zmt");
        arguments.push_back("--help");
        const Onlooker onlooker;
        EXPECT_EQ(0, runProgram(static_cast<int>(arguments.size()), arguments.data()));
        EXPECT_TRUE(onlooker.hasLooked);
        return onlooker.hasSeenOne;
    };
    EXPECT_TRUE(makesOne({"info", "http://127.0.0.1/t.ztt"}));
    EXPECT_TRUE(makesOne({"render", "--out", "p.png", "--image", "https://127.0.0.1/t.zts"}));
    EXPECT_TRUE(makesOne({"render", "--terrain=http://127.0.0.1/t.ztt"}));
    EXPECT_FALSE(makesOne({}));
    EXPECT_FALSE(makesOne({"info", "t.ztt"}));
    EXPECT_FALSE(makesOne({"info", "file:///t.ztt"}));
    EXPECT_FALSE(makesOne({"render", "--terrain=t.ztt", "--image", "http/t.zts"}));
    EXPECT_FALSE(WebApplication::exists()) << "it goes with the program";
}

} // namespace
