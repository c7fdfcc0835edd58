#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/zmtrun.h"

namespace {

namespace fs = std::filesystem;

/// The program in a folder of its own, and beside it what stands for the window.
class ViewCommand : public ::testing::Test {
protected:
    void SetUp() override { fs::copy_file(ZMT_EXECUTABLE, program); }

    void writeViewer(const std::string & script, fs::perms permissions = fs::perms::owner_all) const {
        folder.write("zmt_viewer", script);
        fs::permissions(folder.in("zmt_viewer"), permissions);
    }

    RunResult view(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "view");
        return runProcess(program, arguments, folder);
    }

    RunFolder folder;
    std::string program = folder.in("zmt");
};

TEST_F(ViewCommand, PassesAllArgumentsOn) {
    writeViewer("#!/bin/sh\nprintf '%s\\n' \"$@\"\nexit 7\n");
    const std::vector<std::vector<std::string>> cases = {
        {"heights.tif", "image.tif"},
        {"heights with spaces.tif"},
        {"--exaggeration", "2", "heights.tif", "--view", "closeup"},
        {"heights.tif", "--help"},
        {"--help"},
        {"--version"},
        {"--no-such-option", "info", "-x"},
    };
    for (const auto & arguments : cases) {
        const RunResult run = view(arguments);
        std::string expected;
        for (const std::string & argument : arguments)
            expected += argument + "\n";
        EXPECT_EQ(expected, run.output);
        EXPECT_EQ(7, run.status) << run.errors;
    }
}

TEST_F(ViewCommand, SaysThatTheWindowWasNotBuilt) {
    const RunResult run = view({"heights.tif"});
    EXPECT_EQ(1, run.status);
    ASSERT_EQ(1U, run.errorLines().size()) << run.errors;
    EXPECT_NE(std::string::npos, run.errors.find("zmt_viewer is missing"));
    EXPECT_NE(std::string::npos, run.errors.find("Qt"));
}

TEST_F(ViewCommand, SaysWhenTheWindowCannotBeStarted) {
    writeViewer("nothing", fs::perms::owner_read);
    const RunResult run = view({"heights.tif"});
    EXPECT_EQ(1, run.status);
    ASSERT_EQ(1U, run.errorLines().size()) << run.errors;
    EXPECT_NE(std::string::npos, run.errors.find("cannot be started"));
}

TEST_F(ViewCommand, IsNamedInTheHelp) {
    const RunResult run = runProcess(program, {"--help"}, folder);
    EXPECT_EQ(0, run.status);
    EXPECT_NE(std::string::npos, run.output.find("view"));
}

} // namespace
