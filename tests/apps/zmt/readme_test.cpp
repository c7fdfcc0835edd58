#include <algorithm>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "documentedkeys.h"

namespace {

using Options = std::set<std::string>;

Options optionsIn(const std::string & text) {
    static const std::regex option("--[a-z][a-z-]*");
    Options found;
    for (std::sregex_iterator at(text.begin(), text.end(), option); at != std::sregex_iterator(); ++at)
        found.insert(at->str());
    return found;
}

/// The options that a document names; those of other programs' commands are left out.
Options documentedOptions(const std::string & name = "README.md") {
    Options options;
    std::ifstream file(ZMT_DATA_DIR "/../" + name);
    for (std::string line; std::getline(file, line);)
        if (line.find("cmake ") == std::string::npos) options.merge(optionsIn(line));
    return options;
}

using Commands = std::vector<std::vector<std::string>>;

const Commands s_commands = {{"--help"},
                             {"render", "--help"},
                             {"lod", "--help"},
                             {"mesh", "--help"},
                             {"info", "--help"},
                             {"pick", "--help"},
                             {"build", "pyramid", "--help"},
                             {"build", "tree", "--help"},
                             {"build", "terrain", "--help"},
                             {"build", "texture", "--help"},
                             {"build", "city", "--help"}};

Options offeredOptions(const Commands & commands = s_commands) {
    const RunFolder folder;
    Options options;
    for (const auto & command : commands)
        options.merge(optionsIn(runProcess(ZMT_EXECUTABLE, command, folder).output));
    return options;
}

TEST(Readme, NamesTheOptionsThatThereAre) {
    Options offered = offeredOptions();
    EXPECT_GT(offered.size(), 20U);
    for (const char * option : {"--screenshot", "--bookmark", "--measure", "--flight", "--frames"})
        offered.insert(option); // of the window alone
    Options documented = documentedOptions();
    documented.insert("--version"); // speaks for itself
    EXPECT_EQ(offered, documented);
}

TEST(Readme, TheGuideToReliefNamesTheOptionsThatThereAre) {
    Options offered = offeredOptions({{"relief", "hachures", "--help"},
                                      {"relief", "slope", "--help"},
                                      {"relief", "curvature", "--help"},
                                      {"relief", "shade", "--help"},
                                      {"relief", "occlusion", "--help"},
                                      {"relief", "sun", "--help"}});
    EXPECT_GT(offered.size(), 20U);
    Options documented = documentedOptions("docs/relief.md");
    documented.insert("--help"); // speaks for itself
    EXPECT_EQ(offered, documented);
}

/// Where the note of `command` on what goes with what names all options that the table has.
TEST(Readme, HelpTellsWhichOptionsGoTogether) {
    const RunFolder folder;
    const std::string readme = readWhole(ZMT_DATA_DIR "/../README.md");
    const std::size_t begin = readme.find("| | chunked | tree |");
    ASSERT_NE(std::string::npos, begin);
    std::istringstream lines(readme.substr(begin, readme.find("\n\n", begin) - begin));
    const std::string help = runProcess(ZMT_EXECUTABLE, {"render", "--help"}, folder).output;
    const std::size_t note = help.find("All options go with every terrain, but for these");
    ASSERT_NE(std::string::npos, note);
    const Options told = optionsIn(help.substr(note));
    unsigned restricted = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("`--") == std::string::npos ||
            line.find("| yes | yes | yes | yes |") != std::string::npos)
            continue;
        for (const std::string & option : optionsIn(line)) {
            EXPECT_EQ(1U, told.count(option)) << option;
            ++restricted;
        }
    }
    EXPECT_GT(restricted, 6U);
}

TEST(Readme, NamesTheKeysOfStatisticsAndReports) {
    const RunFolder folder;
    const std::string heights = ZMT_DATA_DIR "/../tests/data/jacksboro_heights.tif";
    ASSERT_EQ(0, runProcess(ZMT_EXECUTABLE,
                            {"render", "--terrain", heights, "--size", "60x40", "--out", folder.out("p.png"),
                             "--stats", folder.out("stats.json")},
                            folder)
                     .status);
    ASSERT_EQ(0, runProcess(ZMT_EXECUTABLE,
                            {"lod", "--terrain", heights, "--max-vertices", "500", "--report",
                             folder.out("report.json")},
                            folder)
                     .status);
    for (const char * name : {"stats.json", "report.json"}) {
        const auto json = nlohmann::json::parse(readWhole(folder.out(name)));
        EXPECT_GT(json.size(), 2U);
        EXPECT_EQ(std::set<std::string>(), undocumentedKeys(json)) << name;
    }
    EXPECT_EQ(std::set<std::string>{"no_such_key"},
              undocumentedKeys({{"nodes", {{{"no_such_key", 1}, {"error", 2}}}}}));
}

std::string textOf(const std::string & path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/// The lines between two marks, with four columns less.
std::string markedStretch(const std::string & text, const std::string & mark) {
    std::istringstream lines(text);
    std::string result;
    bool isMarked = false;
    for (std::string line; std::getline(lines, line);)
        if (line.find(mark) != std::string::npos)
            isMarked = !isMarked;
        else if (isMarked)
            result += line.substr(std::min<std::size_t>(4, line.size())) + "\n";
    return result;
}

TEST(Readme, ShowsTheCodeOfTheExample) {
    const std::string code =
        markedStretch(textOf(ZMT_DATA_DIR "/../examples/firstpicture/firstpicture.cpp"), "// [draw]");
    EXPECT_GT(std::count(code.begin(), code.end(), '\n'), 10);
    EXPECT_NE(std::string::npos, textOf(ZMT_DATA_DIR "/../README.md").find("```cpp\n" + code + "```\n"))
        << code;
}

} // namespace
