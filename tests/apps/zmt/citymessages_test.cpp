// What people are told of cities, and of models that become one: refusals, warnings, names.

#include <algorithm>
#include <filesystem>
#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <nbx/object/stringutils.h>

#include "cityrun.h"
#include "nbx/io/smallzip.h"
#include "support/scriptedhttpserver.h"

namespace {

using namespace CityRun;

/// A square with a letter on it, and nothing else.
RunResult buildLetter(const RunFolder & folder, const std::string & out) {
    std::filesystem::copy(s_models, folder.in("m"), std::filesystem::copy_options::recursive);
    const std::string square =
        folder.write("m/square.obj", "mtllib prism.mtl\nusemtl letter\nv 0 0 0\nv 5 0 0\nv 5 0 5\nv 0 0 5\n"
                                     "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nf 1/1 2/2 3/3\nf 1/1 3/3 4/4\n");
    return zmt(folder, {"build", "city", square, "--up", "z", "--at", "370000.25,5800000.5,40",
                        "--atlas-size", "64", "--out", folder.out(out)});
}

} // namespace

TEST(CityMessages, OnTheGroundMeansATerrain) {
    const RunFolder folder;
    std::filesystem::copy(s_models, folder.in("m"), std::filesystem::copy_options::recursive);
    const std::string kml = folder.write(
        "m/p.kml",
        kmlOf("prism.dae", "<Location><longitude>13</longitude><latitude>52</latitude></Location>"));
    expectFailure(zmt(folder, {"build", "city", kml, "--out", folder.out("p.city")}), 1,
                  {"prism.dae", "stands on the ground", "--terrain"});
    expectFailure(zmt(folder, {"build", "city", kml, "--terrain", s_heights, "--out", folder.out("p.city")}),
                  1, {"prism.dae", "has no ground"});
    EXPECT_TRUE(folder.results().empty());
}

TEST(CityMessages, ATextureFileThatIsGoneIsTold) {
    const RunFolder folder;
    ASSERT_EQ(buildPrism(folder, "p.city", {"--quality", "8"}).status, 0);
    std::filesystem::remove(folder.out("p.1.opaque.city"));
    const std::vector<std::string> render = {"render",  "--city", folder.out("p.city"), "--size",
                                             "160x120", "--out",  folder.out("p.png")};
    expectFailure(zmt(folder, render), 1, {"p.1.opaque.city", "--allow-incomplete"});
    EXPECT_EQ(folder.results(), (std::vector<std::string>{"p.city"}));
    std::vector<std::string> incomplete = render;
    incomplete.insert(incomplete.end(), {"--allow-incomplete", "--stats", folder.out("p.json")});
    const RunResult drawn = zmt(folder, incomplete);
    EXPECT_EQ(drawn.status, 0) << drawn.errors;
    EXPECT_GT(shownShare(folder.out("p.png")), 0.1) << "blurred, and whole";
    EXPECT_EQ(nlohmann::json::parse(readWhole(folder.out("p.json"))).at("complete"), false);
}

TEST(CityMessages, WhatDoesNotFitIsRefused) {
    const RunFolder folder;
    ASSERT_EQ(buildPrism(folder, "p.city").status, 0);
    const std::string city = folder.out("p.city"), picture = folder.out("p.png");
    const auto before = folder.results();
    expectFailure(zmt(folder, {"render", "--terrain", s_heights, "--city", city, "--out", picture}), 1,
                  {"p.city", "EPSG:32633", "EPSG:32616"});
    expectFailure(zmt(folder, {"render", "--out", picture}), 2, {"--terrain is required, or --city"});
    expectFailure(zmt(folder, {"render", "--city", city, "--image", s_heights, "--out", picture}), 2,
                  {"--image needs a terrain"});
    expectFailure(zmt(folder, {"render", "--city", city, "--lighting", "static", "--out", picture}), 2,
                  {"--lighting needs a terrain"});
    expectFailure(zmt(folder, {"render", "--city", city, "--city-quality", "0", "--out", picture}), 2,
                  {"--city-quality"});
    expectFailure(zmt(folder, {"render", "--city", city, "--city-distance", "-1", "--out", picture}), 2,
                  {"--city-distance"});
    expectFailure(zmt(folder, {"render", "--city", city, "--city-memory", "4096", "--out", picture}), 2,
                  {"--city-memory"});
    expectFailure(zmt(folder, {"render", "--city", city, "--out", city}), 2, {"--city"});
    expectFailure(zmt(folder, {"render", "--city", s_heights, "--out", picture}), 1, {"is no city"});
    expectFailure(buildPrism(folder, "q.city", {"--atlas-size", "100"}), 2, {"--atlas-size"});
    expectFailure(buildPrism(folder, "q.city", {"--format", "png"}), 2, {"--format", "png"});
    expectFailure(buildPrism(folder, "q.city", {"--distance", "0"}), 2, {"--distance"});
    expectFailure(buildPrism(folder, "q.city", {"--quality", "-1"}), 2, {"--quality"});
    expectFailure(buildPrism(folder, "q.city", {"--shade", "north"}), 2, {"--shade"});
    for (const char * place : {"1", "1,2,3,4", "a,b", "1,2,x", "1e13,0", ""})
        expectFailure(zmt(folder, {"build", "city", s_models + "/prism.obj", "--at", place, "--out",
                                   folder.out("q.city")}),
                      2, {"--at"});
    expectFailure(zmt(folder, {"build", "city", folder.in("none.obj"), "--out", folder.out("q.city")}), 1,
                  {"none.obj"});
    EXPECT_EQ(folder.results(), before);
}

TEST(CityMessages, WhatIsNoFileOfACityIsToldAsWhatItIs) {
    const RunFolder folder;
    const auto refused = [&](const std::string & path, const std::string & words) {
        expectFailure(zmt(folder, {"render", "--city", path, "--out", folder.out("p.png")}), 1,
                      {words + ": " + path});
    };
    refused(folder.in("none.city"), "no such file; check the name");
    refused(folder.in(""), "is a directory; name a file in it");
    refused(folder.write("empty.city", ""), "the file is empty; get it anew");
    refused(s_heights, "is no city; name a file that was built as one");
}

TEST(CityMessages, HelpTellsWhatDistancesLeaveOut) {
    const RunFolder folder;
    const RunResult help = zmt(folder, {"render", "--help"});
    EXPECT_NE(help.output.find("nothing of cities that has a texture is drawn"), std::string::npos);
    EXPECT_NE(help.output.find("terrain or of a city"), std::string::npos) << "also beyond terrains";
}

TEST(CityMessages, APictureOfNothingTellsWhatMayLeaveItOut) {
    const RunFolder folder;
    ASSERT_EQ(buildLetter(folder, "p.city").status, 0);
    std::vector<std::string> arguments = {"render", "--city", folder.out("p.city"), "--size",
                                          "64x48",  "--out",  folder.out("p.png")};
    const auto warning = [&](const std::vector<std::string> & more) {
        std::vector<std::string> all = arguments;
        all.insert(all.end(), more.begin(), more.end());
        const RunResult run = zmt(folder, all);
        EXPECT_EQ(run.status, 0) << run.errors;
        EXPECT_EQ(run.errors.find("terrain"), std::string::npos) << run.errors;
        return run.errors;
    };
    EXPECT_EQ(warning({}), "");
    const std::string away = warning({"--view", "370000,5800100,50,370000,5800200,50"});
    EXPECT_NE(away.find("nothing is drawn"), std::string::npos) << away;
    EXPECT_NE(away.find("370000.25,5800000.5,40 to"), std::string::npos) << away;
    EXPECT_EQ(away.find("--city-distance"), std::string::npos) << away;
    const std::string near = warning({"--city-distance", "1"});
    EXPECT_NE(near.find("nothing is drawn"), std::string::npos) << near;
    EXPECT_NE(near.find("--city-distance"), std::string::npos) << near;
}

TEST(CityMessages, TreesWithoutAnythingAreNotTold) {
    const RunFolder folder;
    ASSERT_EQ(buildLetter(folder, "p.city").status, 0);
    EXPECT_EQ(infoOf(folder, folder.out("p.city")).at("trees").size(), 1U);
    EXPECT_EQ(zmt(folder, {"info", folder.out("p.city")}).output.find("no textures"), std::string::npos);
    const std::string bare = folder.write("bare.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    ASSERT_EQ(zmt(folder, {"build", "city", bare, "--at", "0,0,0", "--out", folder.out("b.city")}).status, 0);
    EXPECT_EQ(infoOf(folder, folder.out("b.city")).at("trees").size(), 1U);
    EXPECT_NE(zmt(folder, {"info", folder.out("b.city")}).output.find("no textures"), std::string::npos);
}

TEST(CityMessages, CitiesThatAreDamagedAreErrorsOfOneLine) {
    const RunFolder folder;
    ASSERT_EQ(buildPrism(folder, "p.city").status, 0);
    const std::string good = readWhole(folder.out("p.city"));
    for (const std::size_t size : {std::size_t(4), std::size_t(40), good.size() / 2, good.size() - 1}) {
        const std::string cut = folder.write("cut.city", good.substr(0, size));
        const RunResult run = zmt(folder, {"render", "--city", cut, "--out", folder.out("p.png")});
        expectFailure(run, 1, {"cut.city"});
        EXPECT_EQ(run.errorLines().size(), 1U) << run.errors;
    }
}

/// Names that cannot stand in a URL or a scene, before the work is done.
TEST(CityMessages, NamesThatASceneCannotNameAreRefusedAtOnce) {
    const RunFolder folder;
    for (const char * character : {"#", "?", ":", "\\"}) {
        const RunResult run = zmt(folder, {"build", "city", folder.in("none.obj"), "--out",
                                           folder.out(std::string("a") + character + "b.city")});
        expectFailure(run, 2, {"--out", std::string("'") + character + "'"});
    }
    std::filesystem::create_directory(folder.in("a#b"));
    EXPECT_EQ(
        zmt(folder, {"build", "city", s_models + "/prism.obj", "--out", folder.in("a#b/c.city")}).status, 0)
        << "folders may be called so";
}

TEST(CityMessages, TextureFoldersThatAreNoneAreRefused) {
    const RunFolder folder;
    for (const std::string & path : {folder.in("none"), s_models + "/prism.obj"})
        expectFailure(buildPrism(folder, "p.city", {"--textures", path}), 2,
                      {"--textures", path, "no folder"});
    EXPECT_EQ(buildPrism(folder, "p.city", {"--textures", s_models, "--textures", folder.in("")}).status, 0);
}

/// Of models whose files do not say, those alike in one line.
TEST(CityMessages, AxesAndUnitsThatWereAssumedAreTold) {
    const RunFolder folder;
    const auto linesOf = [&](std::vector<std::string> more) {
        more.insert(more.begin(), {"build", "city", "--out", folder.out("p.city")});
        const RunResult run = zmt(folder, more);
        EXPECT_EQ(run.status, 0) << run.errors;
        std::vector<std::string> lines;
        std::istringstream output(run.output);
        for (std::string line; std::getline(output, line);)
            if (line.rfind("assumed: ", 0) == 0) lines.push_back(line.substr(9));
        return lines;
    };
    const std::string obj = s_models + "/prism.obj";
    using Lines = std::vector<std::string>;
    const std::string up = "y up (--up)", unit = "a unit of 1 m (--units)",
                      usual = ", as OBJ files usually have";
    EXPECT_EQ(linesOf({obj}), Lines{"prism.obj: " + up + ", " + unit + usual});
    EXPECT_EQ(linesOf({obj, "--up", "y"}), Lines{"prism.obj: " + unit + usual});
    EXPECT_EQ(linesOf({obj, "--units", "1"}), Lines{"prism.obj: " + up + usual});
    EXPECT_EQ(linesOf({obj, "--up", "z", "--units", "1"}), Lines());
    for (const std::string name : {"again.obj", "zagain.obj"}) {
        std::filesystem::copy_file(obj, folder.in(name));
        EXPECT_EQ(linesOf({obj, folder.in(name)}), Lines{std::min(name, std::string("prism.obj")) +
                                                         " and 1 more: " + up + ", " + unit + usual});
    }
    EXPECT_EQ(linesOf({s_models + "/prism.dae"}), Lines()) << "this one tells both";
}

TEST(CityMessages, ModelsOutsideOfTheTerrainAreTold) {
    const RunFolder folder;
    const auto warningOf = [&](const std::string & at) {
        const RunResult run =
            zmt(folder, {"build", "city", s_models + "/prism.obj", s_models + "/prism.dae", "--at", at,
                         "--terrain", s_heights, "--out", folder.out("p.city")});
        EXPECT_EQ(run.status, 0) << run.errors;
        return run.errors;
    };
    const std::string told = warningOf("1000,1000,40");
    EXPECT_NE(told.find("warning: 2 of 2 models"), std::string::npos) << told;
    EXPECT_NE(told.find("the first of them prism"), std::string::npos) << told;
    EXPECT_EQ(warningOf("747000,4053000,400"), "");
}

TEST(CityMessages, APlaceThatNoModelNeedsIsRefused) {
    const RunFolder folder;
    expectFailure(
        zmt(folder, {"build", "city", s_railway, "--at", "370000,5800000,0", "--out", folder.out("p.city")}),
        2, {"--at", "leave it out"});
    EXPECT_TRUE(folder.results().empty());
}

TEST(CityMessages, WhatIsReadIsNotOverwritten) {
    const RunFolder folder;
    std::filesystem::copy(s_models, folder.in("m"), std::filesystem::copy_options::recursive);
    const std::string place = "<Location><longitude>13</longitude><latitude>52</latitude>"
                              "<altitude>7</altitude></Location><altitudeMode>absolute</altitudeMode>";
    const std::string kml = folder.write("m/p.kml", kmlOf("prism.obj", place));
    for (const char * out : {"m/prism.obj", "m/textures/letter.png"}) {
        const std::string before = readWhole(folder.in(out));
        expectFailure(zmt(folder, {"build", "city", kml, "--out", folder.in(out)}), 2, {"--out", out});
        EXPECT_EQ(readWhole(folder.in(out)), before) << out;
    }
    ASSERT_EQ(buildPrism(folder, "p.city").status, 0);
    const std::string textures = readWhole(folder.out("p.1.opaque.city"));
    expectFailure(zmt(folder, {"render", "--city", folder.out("p.city"), "--out", folder.out("p.png"),
                               "--stats", folder.out("p.1.opaque.city")}),
                  2, {"--stats", "--city"});
    EXPECT_EQ(readWhole(folder.out("p.1.opaque.city")), textures);
}

TEST(CityMessages, PlacesThatCannotBeMeantAreTold) {
    const RunFolder folder;
    std::filesystem::copy(s_models, folder.in("m"), std::filesystem::copy_options::recursive);
    const auto kml = [&](const std::string & name, const std::string & more) {
        return folder.write("m/" + name,
                            kmlOf("prism.obj", "<Location><longitude>13</longitude><latitude>52</latitude>"
                                               "<altitude>7</altitude></Location>"
                                               "<altitudeMode>absolute</altitudeMode>" +
                                                   more));
    };
    const std::string plain = kml("plain.kml", ""), out = folder.out("p.city");
    const auto build = [&](std::vector<std::string> more) {
        more.insert(more.begin(), {"build", "city", "--out", out});
        return zmt(folder, more);
    };
    for (const char * system : {"EPSG:4326", "EPSG:2225", "nonsense"})
        expectFailure(build({plain, "--system", system}), 2, {"--system"});
    expectFailure(build({plain, s_models + "/prism.dae"}), 1, {"prism.dae", "placed by no file", "--at"});
    expectFailure(build({plain, s_models + "/prism.dae", "--at", "1e9,0,0"}), 1, {"km apart"});
    EXPECT_TRUE(folder.results().empty());
    const RunResult far = build({s_models + "/prism.dae", plain, "--at", "400000,5800000,0"});
    EXPECT_EQ(far.status, 0) << far.errors;
    EXPECT_NE(far.errors.find("right to"), std::string::npos) << far.errors;
}

/// The folder of their own into which they are unpacked is nobody's business.
TEST(CityMessages, FilesInArchivesAreToldAsSuch) {
    const RunFolder folder;
    const auto kmz = [&](const std::string & name, const std::string & model) {
        const std::string place = "<Location><longitude>15</longitude><latitude>52</latitude></Location>";
        return folder.write(
            name, SmallZip::of({{"doc.kml", kmlOf("m/a.obj", place)}, {"m/a.obj", model}}, true, 1));
    };
    const RunResult ground =
        zmt(folder, {"build", "city", kmz("g.kmz", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n"), "--out",
                     folder.out("g.city")});
    expectFailure(ground, 1, {folder.in("g.kmz") + ": m/a.obj: stands on the ground"});
    const RunResult damaged = zmt(folder, {"build", "city", kmz("d.kmz", "nothing"), "--terrain", s_heights,
                                           "--out", folder.out("d.city")});
    expectFailure(damaged, 1, {folder.in("d.kmz") + ": "});
    for (const RunResult & run : {ground, damaged})
        EXPECT_EQ(run.errors.find("zmt-archive"), std::string::npos) << run.errors;
}

TEST(CityMessages, OnAServerIsToldLikeAFile) {
    const RunFolder folder;
    ASSERT_EQ(buildPrism(folder, "p.city").status, 0);
    ScriptedHttpServer server;
    server.setFile("/town/p.city", readWhole(folder.out("p.city")));
    const std::string plain = NBX::StringUtils::WString2Utf8String(server.url("/town/p.city"));
    const std::string url = "http://me:secret@" + plain.substr(7) + "?key=hidden";
    nlohmann::json local = infoOf(folder, folder.out("p.city")), told = infoOf(folder, url);
    EXPECT_EQ(told.at("file"), plain);
    EXPECT_EQ(told.at("trees").at(0).at("layers").at(0).at("file"),
              plain.substr(0, plain.size() - 6) + "p.1.opaque.city");
    for (nlohmann::json * object : {&local, &told}) {
        object->erase("file");
        object->at("trees").at(0).erase("layers");
    }
    EXPECT_EQ(told, local);
    server.setFile("/town/p.city", readWhole(folder.out("p.city")).substr(0, 500));
    const RunResult cut = zmt(folder, {"info", url});
    expectFailure(cut, 1, {"p.city", "damaged"});
    EXPECT_EQ(cut.errors.find("secret"), std::string::npos) << cut.errors;
}

/// A file from elsewhere.
TEST(CityMessages, NamesInFilesCannotForgeLines) {
    const RunFolder folder;
    const std::string name = "prism\x1b[2J\nmodels:     0.obj";
    std::filesystem::create_directories(folder.in("m"));
    std::filesystem::copy_file(s_models + "/prism.obj", folder.in("m/" + name));
    const RunResult built =
        zmt(folder, {"build", "city", folder.in("m/" + name), "--out", folder.out("p.city")});
    ASSERT_EQ(built.status, 0) << built.errors;
    const RunResult told = zmt(folder, {"info", folder.out("p.city")});
    EXPECT_EQ(told.status, 0) << told.errors;
    EXPECT_EQ(told.output.find('\x1b'), std::string::npos);
    EXPECT_EQ(told.output.find("\nmodels:     0"), std::string::npos) << told.output;
    EXPECT_NE(told.output.find("models:     0.obj"), std::string::npos) << told.output;
}

TEST(CityMessages, CitiesOfTwoSystemsAreBothNamed) {
    const RunFolder folder;
    ASSERT_EQ(buildPrism(folder, "p.city").status, 0);
    ASSERT_EQ(buildPrismAt("370000,5800000,40", "EPSG:32634", folder, "q.city").status, 0);
    const std::vector<std::string> words = {"p.city", "EPSG:32633", "q.city", "EPSG:32634", "--system"};
    const RunResult drawn = zmt(folder, {"render", "--city", folder.out("p.city"), "--city",
                                         folder.out("q.city"), "--out", folder.out("p.png")});
    expectFailure(drawn, 1, words);
    EXPECT_EQ(drawn.errors.find("terrain"), std::string::npos) << drawn.errors;
    expectFailure(
        zmt(folder, {"pick", "--city", folder.out("p.city"), "--city", folder.out("q.city"), "5,5"}), 1,
        words);
}

TEST(CityMessages, LongitudesNeedASystemOfTheCity) {
    const RunFolder folder;
    ASSERT_EQ(zmt(folder, {"build", "city", s_models + "/prism.obj", "--up", "z", "--at", "0,0,0", "--out",
                           folder.out("p.city")})
                  .status,
              0);
    const std::vector<std::string> words = {"--lonlat", "p.city", "without --lonlat"};
    const RunResult drawn = zmt(folder, {"render", "--city", folder.out("p.city"), "--lonlat", "--view",
                                         "13,52,90,13,52,1", "--out", folder.out("p.png")});
    expectFailure(drawn, 2, words);
    EXPECT_EQ(drawn.errors.find("terrain"), std::string::npos) << drawn.errors;
    expectFailure(zmt(folder, {"pick", "--city", folder.out("p.city"), "--lonlat", "--view",
                               "13,52,90,13,52,1", "5,5"}),
                  2, words);
}

TEST(CityMessages, OneOutsideOfTheTerrainIsTold) {
    const RunFolder folder;
    const auto drawn = [&](const std::string & name, const std::string & place) {
        const RunResult built = buildPrismAt(place, "EPSG:32616", folder, name);
        EXPECT_EQ(built.status, 0) << built.errors;
        const RunResult run =
            zmt(folder, {"render", "--terrain", s_heights, "--crs", "EPSG:32616", "--city", folder.out(name),
                         "--size", "64x48", "--out", folder.out("p.png")});
        EXPECT_EQ(run.status, 0) << run.errors;
        return run.errors;
    };
    const std::string far = drawn("far.city", "370000,5800000,40");
    EXPECT_NE(far.find("far.city: lies outside of the terrain"), std::string::npos) << far;
    EXPECT_EQ(drawn("on.city", "745961,4054000,400"), "");
    const RunResult sky =
        zmt(folder, {"render", "--terrain", s_heights, "--crs", "EPSG:32616", "--city", folder.out("on.city"),
                     "--size", "64x48", "--view", "745961,4054000,5000,745961,4054100,6000", "--out",
                     folder.out("p.png")});
    EXPECT_EQ(sky.status, 0) << sky.errors;
    EXPECT_NE(sky.errors.find("nothing is drawn of the terrain and the models"), std::string::npos)
        << sky.errors;
}

TEST(CityMessages, WhatBelongsToOneIsNotTakenForATerrain) {
    const RunFolder folder;
    ASSERT_EQ(buildPrism(folder, "p.city").status, 0);
    const RunResult paging = zmt(folder, {"validate", folder.out("p.1.opaque.city")});
    EXPECT_EQ(paging.status, 1);
    EXPECT_NE(paging.output.find("give the scene of the city"), std::string::npos) << paging.output;
    const RunResult model = zmt(folder, {"validate", s_models + "/prism.obj"});
    EXPECT_EQ(model.status, 1);
    EXPECT_NE(model.output.find("texture pyramid or city"), std::string::npos) << model.output;
    EXPECT_EQ(model.output.find("scene of the city"), std::string::npos) << model.output;
    expectFailure(zmt(folder, {"render", "--terrain", s_models + "/prism.obj", "--out", folder.out("p.png")}),
                  1, {"prism.obj", "build city"});
}
