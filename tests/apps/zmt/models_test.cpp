#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "cityrun.h"
#include "support/zmtrun.h"

namespace {

using CityRun::s_models;

const std::string s_railwayFolder = ZMT_DATA_DIR "/../tests/data/railway";

RunResult info(const RunFolder & folder, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "info");
    return runProcess(ZMT_EXECUTABLE, arguments, folder);
}

nlohmann::json objectOf(const RunFolder & folder, std::vector<std::string> arguments) {
    arguments.push_back("--json");
    const RunResult run = info(folder, arguments);
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.errors, "");
    return nlohmann::json::parse(run.output);
}

/// One line on the standard error stream with all `words`.
void expectOneLine(const RunResult & run, int status, const std::vector<std::string> & words) {
    EXPECT_EQ(run.status, status);
    EXPECT_EQ(std::count(run.errors.begin(), run.errors.end(), '\n'), 1) << run.errors;
    for (const std::string & word : words)
        EXPECT_NE(run.errors.find(word), std::string::npos) << word << " is missing in " << run.errors;
}

} // namespace

TEST(ModelInfo, TellsWhatAModelHolds) {
    const RunFolder folder;
    const RunResult run = info(folder, {s_models + "/prism.obj", "--up", "z", "--units", "2"});
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.errors, "");
    for (const char * line :
         {"format:     OBJ\n", "axes:       z up, as asked for\n", "unit:       2 metres, as asked for\n",
          "meshes:     3\n", "triangles:  8, vertices: 18\n", "materials:  3\n", "east:       0 to 6 m\n",
          "north:      0 to 4 m\n", "up:         0 to 10 m\n", "textures:   1\n",
          "texture:    Textures\\LETTER.png, 8 by 8 pixels\n"})
        EXPECT_NE(run.output.find(line), std::string::npos) << line << "is missing in\n" << run.output;
}

TEST(ModelInfo, TellsProgramsTheSame) {
    const RunFolder folder;
    const auto object = objectOf(folder, {s_models + "/prism.glb"});
    EXPECT_EQ(object.at("kind"), "model");
    EXPECT_EQ(object.at("format"), "binary glTF");
    EXPECT_EQ(object.at("up"), "y");
    EXPECT_EQ(object.at("up_by"), "file");
    EXPECT_EQ(object.at("metres"), 1.0);
    EXPECT_EQ(object.at("triangles"), 8);
    EXPECT_EQ(object.at("box").at("up"), (nlohmann::json{300.0, 305.0}));
    EXPECT_EQ(object.at("box").at("north"), (nlohmann::json{200.0, 202.0}));
    EXPECT_TRUE(object.at("textures").at(0).at("file").is_null());
    EXPECT_EQ(object.at("textures").at(0).at("width"), 8);
    EXPECT_TRUE(object.at("left_out").empty());
}

TEST(ModelInfo, TellsWhyATextureIsLeftOutAndFindsItInAFolderThatIsGiven) {
    const RunFolder folder;
    const auto lost = objectOf(folder, {s_models + "/prism.3ds"}).at("textures").at(0);
    EXPECT_EQ(lost.at("name"), "letter.png");
    EXPECT_NE(lost.at("failure").get<std::string>().find("there is no such file"), std::string::npos);
    const auto found = objectOf(folder, {s_models + "/prism.3ds", "--textures", s_models + "/textures"})
                           .at("textures")
                           .at(0);
    EXPECT_TRUE(found.at("failure").is_null());
    EXPECT_EQ(found.at("height"), 8);
}

TEST(ModelInfo, DamagedModelsAreErrorsOfOneLine) {
    const RunFolder folder;
    expectOneLine(info(folder, {folder.write("a.glb", "glTF no more")}), 1,
                  {"a.glb", "cannot be read as glb"});
    expectOneLine(info(folder, {folder.write("a.ply", "ply\nformat")}), 1, {"a.ply", "its head has no end"});
    expectOneLine(info(folder, {folder.in("none.obj")}), 1, {"none.obj", "file not found"});
    EXPECT_TRUE(folder.results().empty());
}

TEST(ModelInfo, OptionsOfModelsAreRefusedElsewhere) {
    const RunFolder folder;
    const std::string model = s_models + "/prism.obj";
    expectOneLine(info(folder, {model, "--up", "x"}), 2, {"--up must be y or z"});
    for (const char * units : {"0", "-1", "nan", "1m", "inf", ""})
        expectOneLine(info(folder, {model, "--units", units}), 2, {"--units must be"});
    for (const std::vector<std::string> & options :
         {std::vector<std::string>{"--up", "y"}, {"--units", "1"}, {"--textures", s_models}}) {
        std::vector<std::string> arguments = options;
        arguments.insert(arguments.begin(), s_railwayFolder + "/railway.kml");
        expectOneLine(info(folder, arguments), 2, {"are for models", "railway.kml"});
    }
}

TEST(PlacementInfo, TellsModelsAndPlaces) {
    const RunFolder folder;
    const auto object = objectOf(folder, {s_railwayFolder + "/railway.kml"});
    EXPECT_EQ(object.at("kind"), "placements of models");
    ASSERT_EQ(object.at("models").size(), 2U);
    EXPECT_TRUE(object.at("left_out").empty()) << object.at("left_out");
    const auto & bridge = object.at("models").at(0);
    EXPECT_EQ(bridge.at("name"), "GMLID_BUI205585_1385_1373");
    EXPECT_EQ(bridge.at("altitude_mode"), "absolute");
    EXPECT_NEAR(bridge.at("longitude").get<double>(), 13.03, 0.01);
    EXPECT_NEAR(bridge.at("heading").get<double>(), 359.5427119, 1e-9);
    for (const auto & placed : object.at("models")) {
        const auto model = objectOf(folder, {placed.at("file").get<std::string>()});
        EXPECT_EQ(model.at("up"), "z");
        EXPECT_GT(model.at("triangles"), 10);
        for (const auto & texture : model.at("textures"))
            EXPECT_TRUE(texture.at("failure").is_null()) << texture;
    }
    const std::string output = info(folder, {s_railwayFolder + "/railway.kml"}).output;
    EXPECT_NE(output.find("models:     2\n"), std::string::npos) << output;
}

TEST(PlacementInfo, AKmlOfLinesIsAFileOfLines) {
    const RunFolder folder;
    const std::string path = folder.write(
        "lines.kml",
        "<kml xmlns=\"http://www.opengis.net/kml/2.2\"><Document><Placemark><LineString><coordinates>"
        "1,2 3,4</coordinates></LineString></Placemark></Document></kml>");
    EXPECT_EQ(objectOf(folder, {path}).at("kind"), "vectors");
}
