#include "windowstate.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <system_error>

#include <unistd.h>

#include "userfolder.h"

#include <nbx/data/file.h>
#include <nbx/data/locator.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/stringutils.h>
#include <zmt/util/inireader.h>

namespace {

using NBX::StringUtils;
using Values = std::map<std::wstring, std::wstring>;

constexpr std::size_t s_longestText = 4096;
constexpr int s_leastSide = 100, s_mostSide = 32767, s_farthest = 100'000;
const std::string s_panel = "panel.", s_recent = "recent.";

/// The values of a file, decoded; those that no window writes are left out.
class Stored {
public:
    explicit Stored(const Values & values) {
        for (const auto & [key, value] : values) {
            const std::string text = NBX::Locator::decoded(StringUtils::WString2Utf8String(value));
            const bool isSound =
                !text.empty() && text.size() <= s_longestText && text.find('\0') == text.npos;
            if (isSound) texts_[NBX::Locator::decoded(StringUtils::WString2Utf8String(key))] = text;
        }
    }

    std::string text(const std::string & key) const {
        const auto found = texts_.find(key);
        return found == texts_.end() ? "" : found->second;
    }
    std::optional<int> number(const std::string & key, int least, int most) const {
        const std::string digits = text(key);
        int value = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
        const bool isNumber = error == std::errc() && end == digits.data() + digits.size();
        return isNumber && value >= least && value <= most ? std::optional(value) : std::nullopt;
    }
    /// The texts whose keys begin so, by what follows there.
    std::map<std::string, std::string> below(const std::string & beginning) const {
        std::map<std::string, std::string> found;
        for (const auto & [key, value] : texts_)
            if (key.starts_with(beginning)) found[key.substr(beginning.size())] = value;
        return found;
    }

private:
    std::map<std::string, std::string> texts_;
};

std::optional<WindowState::Place> placeIn(const Stored & stored) {
    const auto x = stored.number("x", -s_farthest, s_farthest),
               y = stored.number("y", -s_farthest, s_farthest);
    const auto width = stored.number("width", s_leastSide, s_mostSide),
               height = stored.number("height", s_leastSide, s_mostSide);
    if (!x || !y || !width || !height) return {};
    return WindowState::Place{*x, *y, *width, *height};
}

bool isTheme(const std::string & text) {
    return text == "system" || text == "light" || text == "dark";
}

const char * wordOf(bool isShown) {
    return isShown ? "shown" : "hidden";
}

} // namespace

std::string WindowState::userFile() {
    const std::string folder = userFolder();
    return folder.empty() ? "" : folder + "window.ini";
}

WindowState WindowState::read(const std::string & file) {
    WindowState state;
    Values values;
    if (NBX::File::isFile(file) && ::access(file.c_str(), R_OK) == 0)
        ZMT::UTIL::IniReader::Parse(StringUtils::Utf8String2WString(file), values);
    const Stored stored(values);
    state.place = placeIn(stored);
    state.isMaximized = stored.text("maximized") == "true";
    for (const auto & [name, word] : stored.below(s_panel))
        if (word == wordOf(true) || word == wordOf(false)) state.panels[name] = word == wordOf(true);
    state.folder = stored.text("folder");
    for (std::size_t i = mostRecentFiles; i-- > 0;)
        if (const std::string recent = stored.text(s_recent + std::to_string(i)); !recent.empty())
            state.addRecentFile(recent);
    if (isTheme(stored.text("theme"))) state.theme = stored.text("theme");
    return state;
}

bool WindowState::write(const std::string & file) const {
    if (file.empty()) return false;
    std::map<std::string, std::string> texts = {
        {"maximized", isMaximized ? "true" : "false"}, {"folder", folder}, {"theme", theme}};
    if (place)
        texts.insert({{"x", std::to_string(place->x)},
                      {"y", std::to_string(place->y)},
                      {"width", std::to_string(place->width)},
                      {"height", std::to_string(place->height)}});
    for (const auto & [name, isShown] : panels)
        texts[s_panel + name] = wordOf(isShown);
    for (std::size_t i = 0; i < recentFiles.size(); ++i)
        texts[s_recent + std::to_string(i)] = recentFiles[i];

    Values values;
    for (const auto & [key, text] : texts)
        values[StringUtils::Utf8String2WString(percentEncoded(key))] =
            StringUtils::Utf8String2WString(percentEncoded(text));
    std::error_code error;
    std::filesystem::create_directories(NBX::File::pathName(file), error);
    const auto before = NBX::ErrorHandler::setHandler([](const NBX::ErrorReport &) {});
    const bool isWritten = ZMT::UTIL::IniReader::Write(StringUtils::Utf8String2WString(file), values);
    NBX::ErrorHandler::setHandler(before);
    return isWritten;
}

void WindowState::addRecentFile(const std::string & file) {
    const NBX::Locator locator(file);
    const std::string kept = locator.isFile() ? NBX::File::absolutePath(locator.text())
                                              : NBX::Locator::withoutLoginsIn(locator.text());
    std::erase(recentFiles, kept);
    recentFiles.insert(recentFiles.begin(), kept);
    if (recentFiles.size() > mostRecentFiles) recentFiles.resize(mostRecentFiles);
}
