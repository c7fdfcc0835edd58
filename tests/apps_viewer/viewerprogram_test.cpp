#include <string>
#include <vector>

#include <gtest/gtest.h>

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
}

TEST(ViewerProgram, ExplainsItself) {
    const RunFolder folder;
    const RunResult run = view(folder, {"--help"});
    EXPECT_EQ(0, run.status);
    for (const char * word : {"FILE", "--image", "--exaggeration", "--view", "--screenshot"})
        EXPECT_NE(std::string::npos, run.output.find(word)) << word;
}

} // namespace
