#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>
#include <optional>

#include <CLI/CLI.hpp>

#include "landscape/errors.h"
#include "landscape/reports.h"
#include "landscape/streamedfiles.h"

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

int parse(CLI::App & app, int argc, const char * const * argv) {
    try {
        app.parse(argc, argv);
        return ES_Success;
    } catch (const CLI::ParseError & error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        const std::string unknown = unknownCommand(app);
        return usageError(app, unknown.empty() ? error.what() : unknown);
    } catch (const UsageError & error) {
        return usageError(app, error.what());
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

    std::optional<ZMT::CORE::EventLoop> eventLoop;
    if (std::any_of(argv + 1, argv + std::max(argc, 1), namesUrl)) eventLoop.emplace();
    Reports reports;
    NBX::ConsoleProgressDisplay display;
    NBX::Progress::setDisplay(&display);
    int status = ES_Data;
    try {
        status = parse(app, argc, argv);
        if (status == ES_Success) status = flushOutput();
    } catch (const std::exception & error) {
        writeError(messageOf(error));
    }
    NBX::Progress::setDisplay(nullptr);
    for (const std::string & message : reports.take())
        writeError("warning: " + message);
    return status;
}
