// What a run took, and settings that hold for all runs, as a user meets them.

#include <filesystem>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "datafiles.h"
#include "support/environmentvariable.h"
#include "support/zmtrun.h"

#include <nbx/object/nbxtime.h>

namespace {

RunResult runProfiled(const RunFolder & folder, const std::vector<std::string> & arguments) {
    return runProcess(ZMT_EXECUTABLE, arguments, folder);
}

double secondsOf(const std::string & cell) {
    double value = 0.0;
    std::string unit;
    std::istringstream(cell) >> value >> unit;
    const std::map<std::string, double> units = {{"s", 1.0}, {"ms", 1e-3}, {"us", 1e-6}, {"ns", 1e-9}};
    return value * units.at(unit);
}

/// The total time of each row but the profiler's own.
std::map<std::string, double> stagesIn(const std::string & text) {
    std::map<std::string, double> stages;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] != '|' || line.find("description") != line.npos) continue;
        std::istringstream cells(line.substr(1));
        std::string name, calls, total;
        std::getline(std::getline(std::getline(cells, name, '|'), calls, '|'), total, '|');
        name = name.substr(1, name.find_last_not_of(' '));
        if (name != "profiler") stages[name] = secondsOf(total);
    }
    return stages;
}

TEST(Profile, TellsTheStagesOfARun) {
    const RunFolder folder;
    const double start = NBX::NBXTime::now();
    const RunResult run = runProfiled(folder, {"render", "--terrain", s_jacksboroHeights, "--size", "200x100",
                                               "--out", folder.out("a.png"), "--profile"});
    const double seconds = NBX::NBXTime::now() - start;
    ASSERT_EQ(0, run.status) << run.errors;
    EXPECT_EQ(run.output.find("Profiler"), run.output.npos) << "results stay apart";
    const auto stages = stagesIn(run.errors);
    double sum = 0.0;
    for (const auto & [name, time] : stages)
        sum += time;
    for (const char * name : {"prepare", "read", "build", "settle", "draw", "write", "other"})
        EXPECT_TRUE(stages.contains(name)) << name << " is missing in\n" << run.errors;
    EXPECT_LE(sum, seconds);
    // What is left are the start and the end of the process, which take a while on a busy machine.
    EXPECT_GE(sum, 0.6 * seconds - 0.5) << run.errors;
    EXPECT_LE(stages.at("other"), 0.5 * sum + 0.1) << "most of it has a name\n" << run.errors;
}

TEST(Profile, IsToldOnlyWhereItIsAskedFor) {
    const RunFolder folder;
    const RunResult run = runProfiled(folder, {"info", s_jacksboroHeights});
    EXPECT_EQ(0, run.status);
    EXPECT_EQ("", run.errors);
    EXPECT_EQ(1U,
              stagesIn(runProfiled(folder, {"info", s_jacksboroHeights, "--profile"}).errors).count("read"));
}

TEST(Profile, EveryCommandTells) {
    const RunFolder folder;
    const std::vector<std::vector<std::string>> commands = {{"render"},
                                                            {"lod"},
                                                            {"info"},
                                                            {"pick"},
                                                            {"validate"},
                                                            {"build", "pyramid"},
                                                            {"build", "tree"},
                                                            {"build", "terrain"},
                                                            {"build", "texture"},
                                                            {"build", "city"}};
    for (std::vector<std::string> command : commands) {
        command.emplace_back("--help");
        EXPECT_NE(std::string::npos, runProfiled(folder, command).output.find("--profile"))
            << command.front();
    }
    const RunResult tree = runProfiled(folder, {"build", "tree", s_jacksboroHeights, folder.out("a.nbx"),
                                                "--max-vertices", "500", "--profile"});
    for (const char * name : {"read", "build", "write"})
        EXPECT_TRUE(stagesIn(tree.errors).contains(name)) << name << " is missing in\n" << tree.errors;
    EXPECT_TRUE(
        stagesIn(runProfiled(folder, {"validate", s_jacksboroHeights, "--profile"}).errors).contains("check"))
        << "also when the run fails";
}

/// With settings in a folder of its own.
class UserDefaults : public testing::Test {
protected:
    void set(const std::string & text) const {
        std::filesystem::create_directories(folder_.in("zmt"));
        folder_.write("zmt/defaults.ini", text);
    }
    RunResult render(const std::vector<std::string> & more = {}) const {
        std::vector<std::string> arguments = {
            "render",  "--terrain",          s_jacksboroHeights, "--out", folder_.out("a.png"),
            "--stats", folder_.out("a.json")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runProfiled(folder_, arguments);
    }
    int widthOfPicture() const {
        return nlohmann::json::parse(readWhole(folder_.out("a.json")))["width"].get<int>();
    }

    RunFolder folder_;
    EnvironmentVariable settings_{"XDG_CONFIG_HOME", folder_.in("").c_str()};
};

TEST_F(UserDefaults, HoldWhereTheCommandLineSaysNothing) {
    set("\xEF\xBB\xBF# pictures\nsize = 120x80\nseed = 3\n");
    const std::string before = readWhole(folder_.in("zmt/defaults.ini"));
    const RunResult run = render();
    ASSERT_EQ(0, run.status) << run.errors;
    EXPECT_EQ("", run.errors);
    EXPECT_EQ(120, widthOfPicture());
    EXPECT_EQ(0, render({"--size", "90x60"}).status);
    EXPECT_EQ(90, widthOfPicture());
    EXPECT_EQ(before, readWhole(folder_.in("zmt/defaults.ini"))) << "the user's file stays as it is";
    EXPECT_EQ(std::vector<std::string>{"zmt"}, folder_.inputs());
}

TEST_F(UserDefaults, AnUnknownKeyIsOneWarning) {
    set("size=90x60\nsizes=1\n");
    const RunResult run = render();
    EXPECT_EQ(0, run.status);
    EXPECT_EQ(run.errors, "zmt: warning: " + folder_.in("zmt/defaults.ini") +
                              ": no command has an option --sizes; correct the line, or remove it\n");
}

TEST_F(UserDefaults, AWrongValueIsToldWithItsFile) {
    for (const char * text : {"exaggeration=high\n", "size=wide\n"}) {
        set(text);
        const RunResult run = render();
        EXPECT_EQ(2, run.status) << text;
        EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
        EXPECT_NE(run.errors.npos, run.errors.find(folder_.in("zmt/defaults.ini"))) << run.errors;
        EXPECT_TRUE(folder_.results().empty());
    }
    EXPECT_EQ(0, render({"--size", "90x60"}).status) << "unless the command line gives another one";
}

} // namespace
