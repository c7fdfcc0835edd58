#include "defaults.h"

#include <algorithm>
#include <sstream>

#include "userfolder.h"

#include <nbx/data/file.h>
#include <nbx/object/stringutils.h>
#include <zmt/util/inireader.h>

namespace {

using Arguments = std::vector<std::string>;
using NBX::StringUtils;

std::vector<const CLI::App *> commandsOf(const CLI::App & app) {
    return app.get_subcommands([](const CLI::App *) { return true; });
}

/// The command that `arguments` name, and behind which of them; nothing of their options is looked at.
const CLI::App & commandOf(const CLI::App & app, const Arguments & arguments, std::size_t & behind) {
    if (behind >= arguments.size()) return app;
    for (const CLI::App * command : commandsOf(app))
        if (command->get_name() == arguments[behind]) return commandOf(*command, arguments, ++behind);
    return app;
}

/// Null for what no file may ask for.
const CLI::Option * optionOf(const CLI::App & command, const std::string & key) {
    const CLI::Option * option = command.get_option_no_throw("--" + key);
    const bool isQuestion = option == command.get_help_ptr() || option == command.get_version_ptr();
    return isQuestion ? nullptr : option;
}

bool isKnown(const CLI::App & app, const std::string & key) {
    const auto commands = commandsOf(app);
    return optionOf(app, key) || std::any_of(commands.begin(), commands.end(), [&](const CLI::App * command) {
               return isKnown(*command, key);
           });
}

bool isGiven(const CLI::Option & option, const Arguments & arguments, std::size_t from) {
    const auto begin = arguments.begin() + static_cast<std::ptrdiff_t>(from);
    const auto & names = option.get_lnames();
    return std::any_of(begin, std::find(begin, arguments.end(), "--"), [&](const std::string & argument) {
        return argument.starts_with("--") &&
               std::find(names.begin(), names.end(), argument.substr(2, argument.find('=') - 2)) !=
                   names.end();
    });
}

/// What would stand on the command line.
Arguments argumentsFor(const CLI::Option & option, const std::string & key, const std::string & value) {
    if (option.get_items_expected_min() < 2) return {"--" + key + "=" + value};
    Arguments result = {"--" + key};
    std::istringstream words(value);
    for (std::string word; words >> word;)
        result.push_back(word);
    return result;
}

bool namesOption(const std::string & message, const std::string & key) {
    const std::string option = "--" + key;
    for (std::size_t at = message.find(option); at != message.npos; at = message.find(option, at + 1)) {
        const char behind = at + option.size() < message.size() ? message[at + option.size()] : ' ';
        if (behind != '-' && !(behind >= 'a' && behind <= 'z')) return true;
    }
    return false;
}

} // namespace

std::string Defaults::userFile() {
    const std::string folder = userFolder();
    return folder.empty() ? "" : folder + "defaults.ini";
}

Defaults::Defaults(const std::string & file) : file_(file) {
    if (!NBX::File::isFile(file)) return;
    std::map<std::wstring, std::wstring> values;
    ZMT::UTIL::IniReader::Parse(StringUtils::Utf8String2WString(file), values);
    for (const auto & [key, value] : values)
        values_[StringUtils::WString2Utf8String(key)] = StringUtils::WString2Utf8String(value);
}

std::vector<std::string> Defaults::added(const CLI::App & app, const std::vector<std::string> & arguments) {
    std::size_t behind = 1;
    const CLI::App & command = commandOf(app, arguments, behind);
    if (behind > arguments.size()) return arguments;
    const auto split = arguments.begin() + static_cast<std::ptrdiff_t>(behind);
    Arguments result(arguments.begin(), split);
    for (const auto & [key, value] : values_) {
        const CLI::Option * option = optionOf(command, key);
        if (!option || isGiven(*option, arguments, behind)) continue;
        const Arguments more = argumentsFor(*option, key, value);
        result.insert(result.end(), more.begin(), more.end());
        added_.push_back(key);
    }
    result.insert(result.end(), split, arguments.end());
    return result;
}

std::vector<std::string> Defaults::warnings(const CLI::App & app) const {
    std::vector<std::string> lines;
    for (const auto & [key, value] : values_)
        if (!isKnown(app, key))
            lines.push_back(file_ + ": no command has an option --" + key +
                            "; correct the line, or remove it");
    return lines;
}

std::string Defaults::originIn(const std::string & message) const {
    std::string origin;
    for (const std::string & key : added_)
        if (namesOption(message, key)) origin.append(origin.empty() ? "--" : ", --").append(key);
    return origin.empty() ? "" : "; " + origin + " comes from " + file_;
}
