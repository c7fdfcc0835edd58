// Commands are added, then the user's defaults to the command line, which runs the command while it is
// parsed. What the run took, and what was warned of, is told last.

#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "landscape/errors.h"
#include "landscape/reports.h"
#include "landscape/streamedfiles.h"
#include "program/defaults.h"
#include "program/stage.h"

#include <nbx/object/exception.h>
#include <nbx/object/progress.h>
#include <zmt/core/misc/eventloop.h>

namespace {

/// An argument, or the value of an option such as "--terrain=http://host/file".
bool namesUrl(const std::string & argument) {
    return isUrl(argument) ||
           (argument.rfind("--", 0) == 0 && isUrl(argument.substr(argument.find('=') + 1)));
}

/// The sub-command that was reached.
const CLI::App & commandOf(const CLI::App & app) {
    const auto used = app.get_subcommands();
    return used.empty() ? app : commandOf(*used.front());
}

/// A word in the place of a sub-command that is none; empty where that is not the fault.
std::string unknownCommand(const CLI::App & app) {
    const CLI::App & command = commandOf(app);
    const auto words = command.remaining();
    const bool hasCommands = !command.get_subcommands([](const CLI::App *) { return true; }).empty();
    if (!hasCommands || words.empty() || words.front().rfind('-', 0) == 0) return "";
    std::string names;
    for (const CLI::App * known : command.get_subcommands([](const CLI::App *) { return true; }))
        names += (names.empty() ? "" : ", ") + known->get_name();
    return "unknown command: " + words.front() + "; choose one of " + names;
}

int usageError(const CLI::App & app, const std::string & message) {
    std::string command = app.get_name();
    for (auto used = app.get_subcommands(); !used.empty(); used = used.front()->get_subcommands())
        command += " " + used.front()->get_name();
    writeError(message + " (see '" + command + " --help')");
    return ES_Usage;
}

int parse(CLI::App & app, const std::vector<std::string> & arguments, const Defaults & defaults) {
    std::vector<const char *> texts;
    texts.reserve(arguments.size());
    for (const std::string & argument : arguments)
        texts.push_back(argument.c_str());
    try {
        app.parse(static_cast<int>(texts.size()), texts.data());
        return ES_Success;
    } catch (const CLI::ParseError & error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        const std::string unknown = unknownCommand(app);
        const std::string message = error.what();
        return usageError(app, unknown.empty() ? message + defaults.originIn(message) : unknown);
    } catch (const UsageError & error) {
        const std::string message = error.what();
        return usageError(app, message + defaults.originIn(message));
    }
}

/// To all commands but `view`, whose options the window knows.
void addProfileOption(CLI::App & app, bool & isWanted) {
    for (CLI::App * command : app.get_subcommands([](const CLI::App *) { return true; })) {
        const bool hasCommands = !command->get_subcommands([](const CLI::App *) { return true; }).empty();
        if (hasCommands)
            addProfileOption(*command, isWanted);
        else if (command->get_help_ptr())
            command->add_flag("--profile", isWanted,
                              "Tell at the end, on the standard error stream, how long each stage of the run "
                              "took");
    }
}

/// What was printed may not have arrived, for example on a full disk.
int flushOutput() {
    std::cout.flush();
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0 && std::cout) return ES_Success;
    writeError("the standard output cannot be written; check the room on its disk");
    return ES_Data;
}

} // namespace

int runProgram(int argc, const char * const * argv) {
    RunProfile profile(L"other");
    CLI::App app("Turns height rasters into terrains and draws them.", "zmt");
    app.set_version_flag("--version", ZMT_VERSION);
    app.require_subcommand(1);
    addRenderCommand(app);
    addLodCommand(app);
    addMeshCommand(app);
    addInfoCommand(app);
    addPickCommand(app);
    addBuildCommand(app);
    addReliefCommand(app);
    addViewCommand(app);
    addValidateCommand(app);
    bool isProfileWanted = false;
    addProfileOption(app, isProfileWanted);

    Reports reports;
    Defaults defaults;
    const auto arguments = defaults.added(app, std::vector<std::string>(argv, argv + argc));
    for (const std::string & warning : defaults.warnings(app))
        writeError("warning: " + warning);
    std::optional<ZMT::CORE::EventLoop> eventLoop;
    if (std::any_of(arguments.begin(), arguments.end(), namesUrl)) eventLoop.emplace();
    NBX::ConsoleProgressDisplay display;
    NBX::Progress::setDisplay(&display);
    int status = ES_Data;
    try {
        status = parse(app, arguments, defaults);
        if (status == ES_Success) status = flushOutput();
    } catch (const std::exception & error) {
        writeError(messageOf(error));
    }
    NBX::Progress::setDisplay(nullptr);
    for (const std::string & message : reports.take())
        writeError("warning: " + message);
    if (isProfileWanted) profile.tell();
    return status;
}
