#include <algorithm>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/zmtrun.h"

namespace {

using Options = std::set<std::string>;

Options optionsIn(const std::string & text) {
    static const std::regex option("--[a-z][a-z-]*");
    Options found;
    for (std::sregex_iterator at(text.begin(), text.end(), option); at != std::sregex_iterator(); ++at)
        found.insert(at->str());
    return found;
}

/// The options that README.md names; those of other programs' commands are left out.
Options documentedOptions() {
    Options options;
    std::ifstream file(ZMT_DATA_DIR "/../README.md");
    for (std::string line; std::getline(file, line);)
        if (line.find("cmake ") == std::string::npos) options.merge(optionsIn(line));
    return options;
}

Options offeredOptions() {
    const std::vector<std::vector<std::string>> commands = {{"--help"},
                                                            {"render", "--help"},
                                                            {"lod", "--help"},
                                                            {"info", "--help"},
                                                            {"pick", "--help"},
                                                            {"build", "pyramid", "--help"},
                                                            {"build", "tree", "--help"},
                                                            {"build", "terrain", "--help"},
                                                            {"build", "texture", "--help"}};
    const RunFolder folder;
    Options options;
    for (const auto & command : commands)
        options.merge(optionsIn(runProcess(ZMT_EXECUTABLE, command, folder).output));
    return options;
}

TEST(Readme, NamesTheOptionsThatThereAre) {
    Options offered = offeredOptions();
    EXPECT_GT(offered.size(), 20U);
    offered.insert("--screenshot"); // of the window alone
    Options documented = documentedOptions();
    documented.insert("--version"); // speaks for itself
    EXPECT_EQ(offered, documented);
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
