#include "program/defaults.h"

#include <gtest/gtest.h>

#include <support/environmentvariable.h>
#include <support/recordedreports.h>
#include <support/zmtrun.h>

namespace {

using Arguments = std::vector<std::string>;

/// A program with a command of each kind.
class DefaultsTest : public testing::Test {
protected:
    DefaultsTest() {
        app_.set_version_flag("--version", "1");
        CLI::App * draw = app_.add_subcommand("draw", "");
        draw->add_option("--scale,-s", scale_);
        draw->add_option("--image", images_);
        draw->add_option("--pair", pair_);
        draw->add_flag("--shade,!--no-shade", isShaded_);
        draw->add_option("FILE", file_);
        CLI::App * build = app_.add_subcommand("build", "");
        build->add_subcommand("tree", "")->add_option("--seed", seed_);
    }

    Defaults defaultsOf(const std::string & text) { return Defaults(folder_.write("defaults.ini", text)); }
    Arguments added(const std::string & text, const Arguments & arguments) {
        return defaultsOf(text).added(app_, arguments);
    }

    RecordedReports reports_;
    RunFolder folder_;
    CLI::App app_{"", "zmt"};
    double scale_ = 1.0;
    std::vector<std::string> images_;
    std::pair<int, std::string> pair_;
    bool isShaded_ = false;
    std::string file_;
    unsigned seed_ = 0;
};

TEST_F(DefaultsTest, HoldForEachCommandThatHasTheOption) {
    const std::string text = "scale = 2\nseed=7\n";
    EXPECT_EQ(added(text, {"zmt", "draw", "a.tif"}), (Arguments{"zmt", "draw", "--scale=2", "a.tif"}));
    EXPECT_EQ(added(text, {"zmt", "build", "tree"}), (Arguments{"zmt", "build", "tree", "--seed=7"}));
    for (const Arguments & none : {Arguments{"zmt"}, Arguments{"zmt", "build"}, Arguments{"zmt", "nonsense"},
                                   Arguments{"zmt", "--version"}, Arguments{}})
        EXPECT_EQ(added(text, none), none);
}

TEST_F(DefaultsTest, TheCommandLineWins) {
    const std::string text = "scale=2\nimage=b.tif\nshade=true\n";
    for (const Arguments & given : {Arguments{"--scale", "3"}, Arguments{"--scale=3"}}) {
        Arguments all = {"zmt", "draw", "--image", "a.tif", "--no-shade"};
        all.insert(all.end(), given.begin(), given.end());
        EXPECT_EQ(added(text, all), all);
    }
    EXPECT_EQ(added("scale=2\n", {"zmt", "draw", "--", "--scale"}),
              (Arguments{"zmt", "draw", "--scale=2", "--", "--scale"}))
        << "behind -- stand files";
}

TEST_F(DefaultsTest, AreTakenAsOptionsAre) {
    const Arguments arguments =
        added("scale=2.5\npair=3 x\nshade=true\nimage=a b.tif\n", {"zmt", "draw", "c.tif"});
    app_.parse(Arguments(arguments.rbegin(), arguments.rend() - 1));
    EXPECT_EQ(scale_, 2.5);
    EXPECT_EQ(pair_, std::make_pair(3, std::string("x")));
    EXPECT_TRUE(isShaded_);
    EXPECT_EQ(images_, Arguments{"a b.tif"});
    EXPECT_EQ(file_, "c.tif");
    isShaded_ = true;
    const Arguments off = added("shade=false\n", {"zmt", "draw"});
    app_.parse(Arguments(off.rbegin(), off.rend() - 1));
    EXPECT_FALSE(isShaded_);
}

TEST_F(DefaultsTest, AnUnknownKeyIsTold) {
    const Defaults defaults = defaultsOf("scale=2\nscael=3\nseed=1\nhelp=true\nversion=1\nFILE=a\n");
    const auto lines = defaults.warnings(app_);
    ASSERT_EQ(lines.size(), 4U);
    const std::string file = folder_.in("defaults.ini");
    EXPECT_EQ(lines[2], file + ": no command has an option --scael; correct the line, or remove it");
    EXPECT_NE(lines[1].find("--help;"), std::string::npos) << "which is a question, not a setting";
    EXPECT_EQ(defaultsOf("help=true\n").added(app_, {"zmt", "draw"}), (Arguments{"zmt", "draw"}));
}

TEST_F(DefaultsTest, SayWhatComesFromThem) {
    Defaults defaults = defaultsOf("scale=x\nseed=1\n");
    defaults.added(app_, {"zmt", "draw"});
    const std::string origin = "; --scale comes from " + folder_.in("defaults.ini");
    EXPECT_EQ(defaults.originIn("Could not convert: --scale = x"), origin);
    EXPECT_EQ(defaults.originIn("--scale: wrong"), origin);
    EXPECT_EQ(defaults.originIn("wrong: --scale"), origin);
    EXPECT_EQ(defaults.originIn("--scale-all: wrong"), "") << "another option";
    EXPECT_EQ(defaults.originIn("--seed: wrong"), "") << "of another command";
    EXPECT_EQ(defaults.originIn(""), "");
}

TEST_F(DefaultsTest, WithoutAFileThereAreNone) {
    const EnvironmentVariable home("XDG_CONFIG_HOME", folder_.out("c").c_str());
    EXPECT_EQ(Defaults::userFile(), folder_.out("c/zmt/defaults.ini"));
    for (const std::string & file : {Defaults::userFile(), std::string(), folder_.out("")}) {
        Defaults defaults(file);
        EXPECT_EQ(defaults.added(app_, {"zmt", "draw"}), (Arguments{"zmt", "draw"}));
        EXPECT_TRUE(defaults.warnings(app_).empty());
    }
    EXPECT_TRUE(reports_.empty()) << reports_;
    EXPECT_TRUE(folder_.results().empty()) << "and none is made";
}

} // namespace
