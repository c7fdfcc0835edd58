#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/environmentvariable.h"
#include "support/imagecompare.h"
#include "support/zmtrun.h"
#include "viewertest.h"

namespace {

RunResult view(const RunFolder & folder, const std::vector<std::string> & arguments) {
    return runProcess(ZMT_VIEWER_EXECUTABLE, arguments, folder);
}

void expectFailure(const RunResult & run, int status, const std::string & word) {
    EXPECT_EQ(status, run.status) << run.errors;
    ASSERT_EQ(1U, run.errorLines().size()) << run.errors;
    EXPECT_NE(std::string::npos, run.errorLines().front().find(word)) << run.errors;
}

TEST(ViewerProgram, SavesTheWholeWindow) {
    const RunFolder folder;
    const RunResult run = view(
        folder, {s_everest, s_everestImage, "--size", "640x420", "--screenshot", folder.out("window.png")});
    EXPECT_EQ(0, run.status) << run.errors;
    const auto picture = readPng(folder.out("window.png"));
    ASSERT_TRUE(picture);
    EXPECT_EQ(640, picture->width());
    EXPECT_EQ(420, picture->height());
}

TEST(ViewerProgram, BadFilesAreErrorsOfData) {
    const RunFolder folder;
    expectFailure(view(folder, {"/nowhere/at/all.tif", "--screenshot", folder.out("w.png")}), 1, "/nowhere");
    expectFailure(view(folder, {s_everestImage, "--screenshot", folder.out("w.png")}), 1, "height raster");
    expectFailure(view(folder, {s_jacksboro, "--screenshot", "/nowhere/w.png"}), 1, "/nowhere/w.png");
    EXPECT_TRUE(folder.results().empty());
}

TEST(ViewerProgram, WrongArgumentsAreErrorsOfUsage) {
    const RunFolder folder;
    expectFailure(view(folder, {"--no-such-option"}), 2, "zmt view --help");
    expectFailure(view(folder, {s_everest, "--view", "nowhere"}), 2, "--view");
    expectFailure(view(folder, {s_everest, "--size", "big"}), 2, "--size");
    expectFailure(view(folder, {s_everest, "--geometry-error", "-1"}), 2, "--geometry-error");
    expectFailure(view(folder, {s_everest, "--texture-error", "nan"}), 2, "--texture-error");
    expectFailure(view(folder, {"--screenshot", folder.out("w.png")}), 2, "--screenshot");
    expectFailure(view(folder, {s_everest, "--method", "flat"}), 2, "--method");
    expectFailure(view(folder, {s_everest, "--lighting", "neon"}), 2, "--lighting");
    expectFailure(view(folder, {s_everest, "--light", "north"}), 2, "--light");
    expectFailure(view(folder, {s_everest, "--exaggeration", "nan"}), 2, "--exaggeration");
    expectFailure(view(folder, {s_everest, "--geometry-error", "inf"}), 2, "--geometry-error");
    expectFailure(view(folder, {s_everest, "--max-vertices", "1"}), 2, "--max-vertices");
    expectFailure(view(folder, {s_everest, "--allow-incomplete"}), 2, "--screenshot");
    expectFailure(view(folder, {s_everest, "--memory", "4096"}), 2, "--memory");
    expectFailure(view(folder, {s_everest, "--graphics-memory", "0"}), 2, "--graphics-memory");
}

TEST(ViewerProgram, AScreenshotIsWhatItsNameSays) {
    const RunFolder folder;
    expectFailure(view(folder, {s_jacksboro, "--screenshot", folder.out("w.tif")}), 2, "PNG or JPEG");
    EXPECT_EQ(0,
              view(folder, {s_jacksboro, "--size", "480x360", "--screenshot", folder.out("w.jpg")}).status);
    EXPECT_EQ("\xFF\xD8\xFF", readWhole(folder.out("w.jpg")).substr(0, 3));
}

TEST(ViewerProgram, AScreenshotIsNoneOfTheFilesThatAreShown) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", readWhole(s_jacksboro));
    const std::string image = folder.write("i.tif", readWhole(s_everestImage));
    expectFailure(view(folder, {terrain, "--screenshot", folder.in("./t.tif")}), 2, "FILE");
    expectFailure(view(folder, {terrain, "--image", image, "--screenshot", image}), 2, "--image");
    EXPECT_EQ(readWhole(s_jacksboro), readWhole(terrain));
    EXPECT_EQ(readWhole(s_everestImage), readWhole(image));
}

TEST(ViewerProgram, TakesTheOptionsOfPictures) {
    const RunFolder folder;
    const std::vector<std::vector<std::string>> cases = {
        {"--wireframe", "--patches"},
        {"--lighting", "static"},
        {"--lighting", "dynamic", "--method", "tree"},
        {"--lighting", "vertex", "--light", "300.5,30"},
        {"--breaklines", ZMT_DATA_DIR "/everest_glaciers.geojson"},
        {"--drape", ZMT_DATA_DIR "/everest_glaciers.geojson", "--drape-lift", "100"},
        {"--image", s_everestImage, "--image", s_detailImage, "--exaggeration", "2", "--view", "closeup"},
    };
    for (const auto & options : cases) {
        std::vector<std::string> arguments = {s_everest,       "--size",         "480x360", "--screenshot",
                                              folder.out("w"), "--max-vertices", "200"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const RunResult run = view(folder, arguments);
        EXPECT_EQ(0, run.status) << options[0] << run.errors;
        // Most of the glaciers lie beyond the small terrain, which is told.
        const bool tells = options[0] == "--drape";
        ASSERT_EQ(tells ? 1U : 0U, run.errorLines().size()) << options[0] << run.errors;
        EXPECT_EQ(tells, run.errors.find("areas lie beyond the terrain") != std::string::npos) << run.errors;
    }
}

TEST(ViewerProgram, ShowsCities) {
    const RunFolder folder;
    const std::string city = folder.out("p.city"), textures = folder.out("p.1.opaque.city");
    const std::string picture = folder.out("w.png");
    ASSERT_EQ(0, runProcess(ZMT_EXECUTABLE,
                            {"build", "city", ZMT_DATA_DIR "/../tests/data/models/prism.obj", "--up", "z",
                             "--at", "747000,4053000,500", "--system", "EPSG:32616", "--atlas-size", "64",
                             "--quality", "8", "--out", city},
                            folder)
                     .status);
    for (const std::vector<std::string> & files :
         {std::vector<std::string>{"--city", city, "--city-quality", "2", "--city-distance", "5000"},
          {s_jacksboro, city, "--city-memory", "100", "--exaggeration", "2"}}) {
        std::vector<std::string> arguments = files;
        arguments.insert(arguments.end(), {"--size", "480x360", "--screenshot", picture});
        const RunResult run = view(folder, arguments);
        EXPECT_EQ(0, run.status) << run.errors;
        EXPECT_EQ("", run.errors);
        EXPECT_TRUE(std::filesystem::remove(picture));
    }
    expectFailure(view(folder, {"--city", city, "--exaggeration", "2", "--screenshot", picture}), 2,
                  "needs a terrain");
    expectFailure(view(folder, {"--city", city, "--city-quality", "0"}), 2, "--city-quality");
    expectFailure(view(folder, {"--city", city, "--city-memory", "0"}), 2, "--city-memory");
    expectFailure(view(folder, {"--city", city, "--screenshot", city}), 2, "--city");
    const std::string link = folder.out("link.png");
    std::filesystem::create_symlink(textures, link);
    expectFailure(view(folder, {"--city", city, "--screenshot", link}), 1, "--city");
    EXPECT_FALSE(readWhole(textures).empty());
    expectFailure(view(folder, {"--city", s_jacksboro, "--screenshot", picture}), 1, "is no city");
    std::filesystem::remove(textures);
    expectFailure(view(folder, {"--city", city, "--screenshot", picture}), 1, "--allow-incomplete");
    const RunResult blurred = view(folder, {"--city", city, "--allow-incomplete", "--screenshot", picture});
    EXPECT_EQ(0, blurred.status) << blurred.errors;
    EXPECT_NE(std::string::npos, blurred.errors.find("p.1.opaque.city")) << blurred.errors;
    EXPECT_TRUE(std::filesystem::exists(picture));
}

TEST(ViewerProgram, AFullDiskLeavesNothing) {
    const RunFolder folder;
    RunLimits limits;
    limits.largestFile = 4096;
    const RunResult run = runProcess(ZMT_VIEWER_EXECUTABLE,
                                     {s_everest, "--screenshot", folder.out("window.png")}, folder, limits);
    expectFailure(run, 1, "window.png");
    EXPECT_TRUE(folder.results().empty());
}

TEST(ViewerProgram, AMissingDisplayIsToldInOneLine) {
    const RunFolder folder;
    const EnvironmentVariable wayland("WAYLAND_DISPLAY", nullptr), platform("QT_QPA_PLATFORM", nullptr);
    for (const char * display : {static_cast<const char *>(nullptr), ":4711", "nowhere.invalid:0"}) {
        const EnvironmentVariable variable("DISPLAY", display);
        const RunResult run = view(folder, {s_everest});
        expectFailure(run, 1, "display");
        EXPECT_EQ(1, std::count(run.errors.begin(), run.errors.end(), '\n')) << run.errors;
    }
}

TEST(ViewerProgram, ADisplayWithoutOpenGLIsToldInOneLine) {
    const RunFolder folder;
    for (const auto & [name, value] :
         {std::pair("QT_QPA_PLATFORM", "minimal"), std::pair("QT_XCB_GL_INTEGRATION", "none")}) {
        const EnvironmentVariable variable(name, value);
        const RunResult run = view(folder, {s_everest});
        expectFailure(run, 1, "OpenGL");
        EXPECT_EQ(1, std::count(run.errors.begin(), run.errors.end(), '\n')) << run.errors;
    }
}

TEST(ViewerProgram, ExplainsItself) {
    const RunFolder folder;
    const RunResult run = view(folder, {"--help"});
    EXPECT_EQ(0, run.status);
    for (const char * word : {"FILE", "--image", "--exaggeration", "--view", "--screenshot", "--patches"})
        EXPECT_NE(std::string::npos, run.output.find(word)) << word;
}

} // namespace
