// Models become a city, which is drawn from its files.

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "cityrun.h"
#include "support/imagecompare.h"

namespace {

using namespace CityRun;

/// Places of a picture, from its upper left corner, and what is there: red, green and blue from 0 to 255.
struct KnownColor {
    int x, y;
    std::array<double, 3> color;
};

/// Means of 7 by 7 pixels round each place.
void expectColors(const std::string & path, const std::vector<KnownColor> & known, double tolerance) {
    const NBX::SO<NBX::Image> image = readPng(path);
    ASSERT_TRUE(image) << path;
    for (const KnownColor & at : known) {
        constexpr int reach = 3, side = 2 * reach + 1;
        std::array<double, 3> mean = {0.0, 0.0, 0.0};
        for (int y = at.y - reach; y <= at.y + reach; ++y)
            for (int x = at.x - reach; x <= at.x + reach; ++x)
                for (unsigned c = 0; c < 3; ++c)
                    mean[c] += 255.0 * image->getColor(x, image->height() - 1 - y)[c] / (side * side);
        for (unsigned c = 0; c < 3; ++c)
            EXPECT_NEAR(mean[c], at.color[c], tolerance)
                << "component " << c << " at " << at.x << ", " << at.y;
    }
}

} // namespace

TEST(City, IsBuiltToldAndDrawn) {
    const RunFolder folder;
    const RunResult built = buildPrism(folder, "p.city");
    EXPECT_EQ(built.status, 0) << built.errors;
    EXPECT_NE(built.output.find("models: 1, triangles: 8, textures: 1, "), std::string::npos) << built.output;
    EXPECT_EQ(folder.results(), (std::vector<std::string>{"p.1.opaque.city", "p.city"}));
    int fill = 0;
    const std::size_t at = built.output.find("atlas fill: ");
    ASSERT_NE(at, std::string::npos) << built.output;
    EXPECT_EQ(std::sscanf(built.output.c_str() + at, "atlas fill: %d %% opaque\n", &fill), 1) << built.output;
    EXPECT_GT(fill, 5);
    EXPECT_LE(fill, 100);

    const auto told = infoOf(folder, folder.out("p.city"));
    EXPECT_EQ(told.at("kind"), "city");
    EXPECT_EQ(told.at("crs"), "EPSG:32633");
    EXPECT_EQ(told.at("models").at(0).at("name"), "prism");
    EXPECT_EQ(told.at("models").at(0).at("source"), "prism.obj");
    EXPECT_EQ(told.at("models").at(0).at("place"), (nlohmann::json{370000.25, 5800000.5, 40.0}));
    EXPECT_EQ(told.at("heights"), (nlohmann::json{40.0, 45.0}));
    EXPECT_EQ(told.at("trees").at(0).at("layers").at(0).at("format"), "dxt1");

    const RunResult drawn = zmt(folder, {"render", "--city", folder.out("p.city"), "--size", "320x240",
                                         "--out", folder.out("p.png"), "--stats", folder.out("p.json")});
    EXPECT_EQ(drawn.status, 0) << drawn.errors;
    EXPECT_EQ(drawn.errors, "");
    EXPECT_GT(shownShare(folder.out("p.png")), 0.1);
    const auto stats = nlohmann::json::parse(readWhole(folder.out("p.json")));
    EXPECT_EQ(stats.at("complete"), true);
    EXPECT_EQ(stats.at("crs"), "EPSG:32633");
}

namespace {

/// A house of 5 m and a wall of 16 m to the north of it, with z upwards.
std::string houseBeforeAWall() {
    std::string text;
    int first = 1;
    for (const auto & [low, high] :
         {std::pair(std::array{0, 0, 0}, std::array{8, 8, 5}), {{-4, 11, 0}, {12, 13, 16}}}) {
        for (unsigned i = 0; i < 8; ++i)
            text += "v " + std::to_string((i & 1 ? high : low)[0]) + " " +
                    std::to_string((i & 2 ? high : low)[1]) + " " + std::to_string((i & 4 ? high : low)[2]) +
                    "\n";
        for (const auto & face :
             {std::array{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}}) {
            text += "f";
            for (const int corner : face)
                text += " " + std::to_string(first + corner);
            text += "\n";
        }
        first += 8;
    }
    return text;
}

/// The darkest and the brightest pixel that is not the background.
std::pair<double, double> rangeIn(const std::string & path) {
    const NBX::SO<NBX::Image> image = pictureIn(path);
    const NBX::Color sky = image->getColor(0, 0);
    std::pair<double, double> range(1.0, 0.0);
    for (int y = 0; y < image->height(); ++y)
        for (int x = 0; x < image->width(); ++x) {
            const NBX::Color color = image->getColor(x, y);
            if (color == sky) continue;
            range = {std::min(range.first, double(color[1])), std::max(range.second, double(color[1]))};
        }
    return range;
}

} // namespace

TEST(City, NeighboursShadeEachOtherInASecondLayer) {
    const RunFolder folder;
    const std::string model = folder.write("street.obj", houseBeforeAWall());
    const auto build = [&](const std::vector<std::string> & more) {
        std::vector<std::string> arguments = {
            "build",      "city",         model, "--up",    "z",    "--at",  "370000,5800000,40", "--system",
            "EPSG:32633", "--atlas-size", "128", "--shade", "none", "--out", folder.out("s.city")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const RunResult run = zmt(folder, arguments);
        EXPECT_EQ(run.status, 0) << run.errors;
        return run.output;
    };
    const auto range = [&] {
        const RunResult drawn =
            zmt(folder, {"render", "--city", folder.out("s.city"), "--size", "320x240", "--view",
                         "370020,5799980,60,370004,5800006,43", "--out", folder.out("s.png")});
        EXPECT_EQ(drawn.status, 0) << drawn.errors;
        const auto found = rangeIn(folder.out("s.png"));
        std::filesystem::remove(folder.out("s.png"));
        return found;
    };
    build({"--unique"});
    const auto [plain, brightestPlain] = range();
    EXPECT_NEAR(plain, brightestPlain, 0.02) << "all is of one colour";
    const std::string told = build({"--occlusion"});
    EXPECT_EQ(folder.results(),
              (std::vector<std::string>{"s.2.opaque.city", "s.2.opaque.light.city", "s.city"}));
    EXPECT_NE(told.find("s.2.opaque.light.city\n"), std::string::npos) << told;
    const auto layers = infoOf(folder, folder.out("s.city")).at("trees").at(0).at("layers");
    ASSERT_EQ(layers.size(), 2U);
    EXPECT_EQ(layers.at(1).at("format"), "luminance");
    EXPECT_EQ(zmt(folder, {"validate", folder.out("s.city")}).status, 0);
    const auto [darkest, brightest] = range();
    EXPECT_LT(darkest, 0.7 * plain) << "between house and wall";
    EXPECT_NEAR(plain, brightest, 0.02) << "what is open";
    const std::string light = readWhole(folder.out("s.2.opaque.light.city"));
    build({"--occlusion"});
    EXPECT_EQ(readWhole(folder.out("s.3.opaque.light.city")), light);
    // A build without takes the light away.
    build({"--unique"});
    EXPECT_EQ(folder.results(), (std::vector<std::string>{"s.4.opaque.city", "s.city"}));
}

TEST(City, HasTheSameBytesEachTime) {
    const RunFolder a, b;
    for (const RunFolder * folder : {&a, &b})
        ASSERT_EQ(buildPrism(*folder, "p.city").status, 0);
    for (const std::string & name : a.results())
        EXPECT_EQ(readWhole(a.out(name)), readWhole(b.out(name))) << name;
}

/// Who looks at the former build has its files open.
TEST(City, ANewBuildHasFilesOfOtherNames) {
    const RunFolder folder;
    ASSERT_EQ(buildPrism(folder, "p.city").status, 0);
    ASSERT_EQ(buildPrism(folder, "p.city", {"--format", "rgba8"}).status, 0);
    EXPECT_EQ(folder.results(), (std::vector<std::string>{"p.2.opaque.city", "p.city"}));
    EXPECT_EQ(infoOf(folder, folder.out("p.city")).at("trees").at(0).at("layers").at(0).at("format"),
              "rgba8");
}

/// A red wall with a white F, which a mirror would turn round, and a brown roof in the shade.
TEST(City, EveryFormatHasItsColoursInTheirPlaces) {
    const struct {
        const char * format;
        bool isGrey;
        double tolerance;
    } formats[] = {{"rgba8", false, 1.0},
                   {"luminance", true, 1.0},
                   {"rgba5551", false, 5.0},
                   {"dxt1", false, 2.0},
                   {"jpeg", false, 13.0}};
    for (const auto & [format, isGrey, tolerance] : formats) {
        SCOPED_TRACE(format);
        const RunFolder folder;
        ASSERT_EQ(buildPrism(folder, "p.city", {"--format", format}).status, 0);
        const RunResult drawn = zmt(folder, {"render", "--city", folder.out("p.city"), "--size", "320x240",
                                             "--out", folder.out("p.png")});
        EXPECT_EQ(drawn.status, 0) << drawn.errors;
        const double red = 200.0, grey = 0.299 * red;
        const std::array<double, 3> wall = isGrey ? std::array{grey, grey, grey} : std::array{red, 0.0, 0.0};
        expectColors(folder.out("p.png"),
                     {{160, 225, wall},
                      {210, 190, wall},
                      {130, 60, {79, 40, 20}},
                      {20, 20, {184, 207, 230}},
                      {300, 120, {184, 207, 230}}},
                     tolerance);
        if (!isGrey) // the stem, left of the middle, where JPEG has red of the wall
            expectColors(folder.out("p.png"), {{120, 170, {253, 246, 246}}}, 4.0 * tolerance);
    }
}

/// Whoever comes last has it, whole; nothing of the others is left.
TEST(City, BuildsAtTheSameTimeDoNotMix) {
    const std::array<const char *, 2> formats = {"rgba8", "dxt1"};
    std::map<std::string, std::string> textures;
    for (const char * format : formats) {
        const RunFolder alone;
        ASSERT_EQ(buildPrism(alone, "p.city", {"--format", format}).status, 0);
        textures[format] = readWhole(alone.out("p.1.opaque.city"));
    }
    const RunFolder folder;
    for (int round = 0; round < 2; ++round) {
        std::vector<std::thread> builds;
        std::array<RunResult, 2> runs;
        for (std::size_t i = 0; i < runs.size(); ++i)
            builds.emplace_back([&, i] { runs[i] = buildPrism(folder, "p.city", {"--format", formats[i]}); });
        for (std::thread & build : builds)
            build.join();
        for (const RunResult & run : runs)
            EXPECT_EQ(run.status, 0) << run.errors;
        const std::vector<std::string> results = folder.results();
        ASSERT_EQ(results.size(), 2U) << testing::PrintToString(results);
        const auto layer = infoOf(folder, folder.out("p.city")).at("trees").at(0).at("layers").at(0);
        EXPECT_TRUE(readWhole(folder.out(results[0])) == textures.at(layer.at("format").get<std::string>()));
        const RunResult drawn = zmt(folder, {"render", "--city", folder.out("p.city"), "--size", "64x64",
                                             "--out", folder.out("p.png")});
        EXPECT_EQ(drawn.status, 0) << drawn.errors;
        std::filesystem::remove(folder.out("p.png"));
    }
}

/// At whatever step it is; the last one may be over before.
TEST(City, AnInterruptedBuildLeavesNothing) {
    const RunFolder folder;
    for (const int signal : {SIGINT, SIGKILL})
        for (const int milliseconds : {0, 100, 250}) {
            SCOPED_TRACE(testing::Message() << "signal " << signal << " after " << milliseconds << " ms");
            RunLimits limits;
            limits.interruptWhenIn = folder.path() / "out";
            limits.signal = signal;
            limits.signalDelay = std::chrono::milliseconds(milliseconds);
            const RunResult run = runProcess(
                ZMT_EXECUTABLE, {"build", "city", s_railway, "--quality", "4", "--out", folder.out("r.city")},
                folder, limits);
            if (std::filesystem::exists(folder.out("r.city"))) {
                // It was over: all of it is there.
                EXPECT_EQ(folder.results(), (std::vector<std::string>{"r.1.opaque.city", "r.city"}));
                for (const std::string & name : folder.results())
                    std::filesystem::remove(folder.out(name));
                break;
            }
            EXPECT_EQ(run.status, signal == SIGKILL ? 1000 + SIGKILL : 1) << run.errors;
            EXPECT_EQ(run.errorLines().empty(), signal == SIGKILL) << run.errors;
            EXPECT_EQ(folder.results(), std::vector<std::string>());
        }
}

/// Wall between the windows and at the sides, roof, a shop's pane, and the sky beside the house.
TEST(City, TheTestTownHasItsColoursInTheirPlaces) {
    const RunFolder folder;
    const std::string town = ZMT_DATA_DIR "/testtown/testtown_lod3.obj";
    const RunResult built =
        zmt(folder, {"build", "city", town, "--up", "z", "--at", "370000,5800000,40", "--system",
                     "EPSG:32633", "--distance", "40", "--atlas-size", "512", "--out", folder.out("t.city")});
    EXPECT_EQ(built.status, 0) << built.errors;
    const RunResult drawn =
        zmt(folder, {"render", "--city", folder.out("t.city"), "--size", "320x240", "--view",
                     "369970,5800002,55,370000,5800000,50", "--out", folder.out("t.png")});
    EXPECT_EQ(drawn.status, 0) << drawn.errors;
    expectColors(folder.out("t.png"),
                 {{130, 65, {198, 189, 167}},
                  {185, 65, {198, 189, 169}},
                  {130, 115, {198, 189, 168}},
                  {184, 112, {198, 189, 169}},
                  {190, 20, {107, 118, 132}},
                  {130, 21, {106, 117, 131}},
                  {158, 215, {63, 75, 80}},
                  {20, 100, {184, 207, 230}},
                  {300, 100, {184, 207, 230}}},
                 4.0);
    // With less memory than the view would take it is coarser, and still comes to an end.
    for (const auto & [megabytes, view] : {std::pair("3", "369970,5800002,55,370000,5800000,50"),
                                           std::pair("4", "369993,5800002,45,370000,5800002,45"),
                                           std::pair("4", "370000,5799992,44,370000,5800000,44")}) {
        const RunResult scarce =
            zmt(folder, {"render", "--city", folder.out("t.city"), "--city-memory", megabytes, "--size",
                         "320x240", "--view", view, "--out", folder.out("scarce.png")});
        EXPECT_EQ(scarce.status, 0) << megabytes << " MiB, " << view << ": " << scarce.errors;
    }
}

TEST(City, PlacementsAreEnough) {
    const RunFolder folder;
    const RunResult built =
        zmt(folder, {"build", "city", s_railway, "--atlas-size", "256", "--out", folder.out("r.city")});
    EXPECT_EQ(built.status, 0) << built.errors;
    const auto told = infoOf(folder, folder.out("r.city"));
    EXPECT_EQ(told.at("crs"), "EPSG:32633");
    EXPECT_GT(told.at("models").size(), 1U);
    for (const auto & model : told.at("models")) {
        EXPECT_NEAR(model.at("place").at(0), 365700.0, 1000.0);
        EXPECT_NEAR(model.at("place").at(1), 5800000.0, 2000.0);
    }
}

TEST(City, ModelsStandOnTheGroundOfTheTerrain) {
    const RunFolder folder;
    const std::string place = "<Location><longitude>-84.25</longitude><latitude>36.6</latitude>"
                              "<altitude>7</altitude></Location><altitudeMode>";
    const auto kml = [&](const std::string & mode) {
        std::filesystem::copy(s_models, folder.in(mode), std::filesystem::copy_options::recursive);
        return folder.write(mode + "/" + mode + ".kml", kmlOf("prism.dae", place + mode + "</altitudeMode>"));
    };
    const auto heightOf = [&](const std::string & mode) {
        const RunResult built = zmt(folder, {"build", "city", kml(mode), "--terrain", s_heights, "--out",
                                             folder.out(mode + ".city")});
        EXPECT_EQ(built.status, 0) << built.errors;
        return infoOf(folder, folder.out(mode + ".city")).at("models").at(0).at("place").at(2).get<double>();
    };
    std::filesystem::create_directories(folder.in("clampToGround"));
    const double clamped = heightOf("clampToGround");
    EXPECT_GT(clamped, 200.0);
    EXPECT_LT(clamped, 1100.0);
    EXPECT_DOUBLE_EQ(heightOf("relativeToGround"), clamped + 7.0);
    EXPECT_DOUBLE_EQ(heightOf("absolute"), 7.0);
    const RunResult drawn =
        zmt(folder, {"render", "--terrain", s_heights, "--city", folder.out("clampToGround.city"), "--size",
                     "160x120", "--out", folder.out("p.png")});
    EXPECT_EQ(drawn.status, 0) << drawn.errors;
}

/// A viewer may look at any former build, not only at the last one: its names are never given again.
TEST(City, ANewBuildNeverTakesOrRemovesWhatIsNotItsOwn) {
    const RunFolder folder;
    ASSERT_EQ(buildPrism(folder, "town").status, 0);
    ASSERT_EQ(buildPrism(folder, "town").status, 0);
    EXPECT_EQ(folder.results(), (std::vector<std::string>{"town", "town.2.opaque.city"}));
    std::filesystem::remove(folder.out("town.2.opaque.city"));
    ASSERT_EQ(buildPrism(folder, "town").status, 0);
    EXPECT_EQ(folder.results(), (std::vector<std::string>{"town", "town.3.opaque.city"}));
    const RunResult drawn = zmt(
        folder, {"render", "--city", folder.out("town"), "--size", "160x120", "--out", folder.out("p.png")});
    EXPECT_EQ(drawn.status, 0) << drawn.errors;

    // A scene that came from elsewhere, under another name, names files of its own.
    std::filesystem::rename(folder.out("town"), folder.out("other.city"));
    ASSERT_EQ(buildPrism(folder, "other.city").status, 0);
    EXPECT_EQ(folder.results(),
              (std::vector<std::string>{"other.1.opaque.city", "other.city", "p.png", "town.3.opaque.city"}));
}

/// Of whatever kind they are; what only looks like one, or is no number, does not count.
TEST(City, ANewBuildTakesTheNumberAfterTheHighestInTheFolder) {
    const RunFolder folder;
    for (const char * name : {"p.9.trans.city", "p.012.opaque.dat", "p.99999999999999999999.opaque.city",
                              "p.x.opaque.city", "p.20.opaque.city.old", "pp.30.opaque.city"})
        std::ofstream(folder.out(name)) << "old";
    ASSERT_EQ(buildPrism(folder, "p.city").status, 0);
    EXPECT_TRUE(std::filesystem::exists(folder.out("p.10.opaque.city")));
    EXPECT_EQ(folder.results().size(), 8U) << testing::PrintToString(folder.results());
}

/// Which may lead into another folder: there the scene is written, and its files beside it.
TEST(City, ALinkIsFollowedByAllFilesOfABuild) {
    const RunFolder folder;
    std::filesystem::create_symlink(folder.out("real.city"), folder.in("link.city"));
    for (const char * number : {"1", "2"}) {
        const RunResult built =
            zmt(folder, {"build", "city", s_models + "/prism.obj", "--out", folder.in("link.city")});
        ASSERT_EQ(built.status, 0) << built.errors;
        EXPECT_EQ(folder.results(),
                  (std::vector<std::string>{std::string("real.") + number + ".opaque.city", "real.city"}));
        EXPECT_EQ(folder.inputs(), std::vector<std::string>{"link.city"});
    }
}

TEST(City, PlacementsPlaceModelsOfOtherFolders) {
    const RunFolder folder;
    const std::string place =
        "<Location><longitude>13</longitude><latitude>52</latitude><altitude>7</altitude>"
        "</Location><altitudeMode>absolute</altitudeMode>";
    const std::string kml = folder.write("k.kml", kmlOf("anywhere/prism.dae", place));
    const std::string city = folder.out("p.city");
    const RunResult built =
        zmt(folder, {"build", "city", s_models + "/prism.dae", "--placements", kml, "--out", city});
    EXPECT_EQ(built.status, 0) << built.errors;
    const auto model = infoOf(folder, city).at("models").at(0);
    EXPECT_EQ(model.at("name"), "a house");
    EXPECT_NEAR(model.at("place").at(0), 362705.6, 1.0);
    EXPECT_NEAR(model.at("place").at(1), 5762926.8, 1.0);
    expectFailure(zmt(folder, {"build", "city", s_models + "/prism.glb", "--placements", kml, "--out",
                               folder.out("q")}),
                  1, {"k.kml", "places none of the models"});
}

/// Which way models look.
TEST(City, HeadingTurnsClockwise) {
    const RunFolder folder;
    std::filesystem::copy(s_models, folder.in("m"), std::filesystem::copy_options::recursive);
    const auto sizeWith = [&](const std::string & orientation) {
        const std::string kml = folder.write(
            "m/p.kml", kmlOf("prism.obj", "<Location><longitude>15</longitude><latitude>52</latitude>"
                                          "<altitude>7</altitude></Location>"
                                          "<altitudeMode>absolute</altitudeMode>" +
                                              orientation));
        const std::string city = folder.out("p.city");
        const RunResult built = zmt(folder, {"build", "city", kml, "--up", "z", "--out", city});
        EXPECT_EQ(built.status, 0) << built.errors;
        const auto edges = infoOf(folder, city).at("edges");
        return std::pair(edges.at("max_x").get<double>() - edges.at("min_x").get<double>(),
                         edges.at("max_y").get<double>() - edges.at("min_y").get<double>());
    };
    const auto [width, depth] = sizeWith("");
    EXPECT_NEAR(width, 3.0 * 0.9996, 0.01);
    EXPECT_NEAR(depth, 2.0 * 0.9996, 0.01);
    const auto [turnedWidth, turnedDepth] = sizeWith("<Orientation><heading>90</heading></Orientation>");
    EXPECT_NEAR(turnedWidth, depth, 0.01);
    EXPECT_NEAR(turnedDepth, width, 0.01);
}

/// And are whole from both sides.
TEST(City, ModelsMayBeMirrored) {
    const RunFolder folder;
    std::filesystem::copy(s_models, folder.in("m"), std::filesystem::copy_options::recursive);
    const auto shareWith = [&](const std::string & scale, const std::string & view) {
        const std::string kml = folder.write(
            "m/p.kml", kmlOf("prism.obj", "<Location><longitude>15</longitude><latitude>52</latitude>"
                                          "</Location><altitudeMode>absolute</altitudeMode>" +
                                              scale));
        const std::string city = folder.out("p.city"), picture = folder.out("p.png");
        const RunResult built = zmt(folder, {"build", "city", kml, "--up", "z", "--out", city});
        EXPECT_EQ(built.status, 0) << built.errors;
        EXPECT_EQ(built.errors.find("left out"), std::string::npos) << built.errors;
        EXPECT_EQ(zmt(folder, {"render", "--city", city, "--view", view, "--lonlat", "--size", "160x120",
                               "--out", picture})
                      .status,
                  0);
        return shownShare(picture);
    };
    const std::string south = "14.99998,51.99985,4,14.99998,52.00001,2", north = "15,52.0002,4,15,52.00001,2";
    const std::string mirrored = "<Scale><x>-1</x><y>1</y><z>1</z></Scale>";
    EXPECT_GT(shareWith(mirrored, south), 0.01);
    EXPECT_GT(shareWith(mirrored, north), 0.01);
}
