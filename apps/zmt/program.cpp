#include "commands.h"
#include "reports.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>

#include <CLI/CLI.hpp>

#include <nbx/object/exception.h>
#include <nbx/object/progress.h>

namespace {

enum ExitStatus { ES_Success = 0, ES_Data = 1, ES_Usage = 2 };

/// One line on the standard error stream, whatever `message` holds.
void writeError(std::string message) {
    std::replace(message.begin(), message.end(), '\n', ' ');
    std::fprintf(stderr, "zmt: %s\n", message.c_str());
}

int usageError(const CLI::App & app, const std::string & message) {
    const auto used = app.get_subcommands();
    const std::string command = used.empty() ? "zmt" : "zmt " + used.front()->get_name();
    writeError(message + " (see '" + command + " --help')");
    return ES_Usage;
}

int parse(CLI::App & app, int argc, const char * const * argv) {
    try {
        app.parse(argc, argv);
        return ES_Success;
    } catch (const CLI::ParseError & error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        return usageError(app, error.what());
    } catch (const UsageError & error) {
        return usageError(app, error.what());
    }
}

} // namespace

int runProgram(int argc, const char * const * argv) {
    CLI::App app("Turns height rasters into terrains and draws them.", "zmt");
    app.set_version_flag("--version", ZMT_VERSION);
    app.require_subcommand(1);
    addRenderCommand(app);
    addLodCommand(app);
    addInfoCommand(app);
    addPickCommand(app);
    addBuildCommand(app);
    addViewCommand(app);

    Reports reports;
    NBX::ConsoleProgressDisplay display;
    NBX::Progress::setDisplay(&display);
    int status = ES_Data;
    try {
        status = parse(app, argc, argv);
    } catch (const std::bad_alloc &) {
        writeError("out of memory; try a smaller raster or fewer vertices");
    } catch (const std::exception & error) {
        writeError(error.what());
    }
    NBX::Progress::setDisplay(nullptr);
    for (const std::string & message : reports.take())
        writeError("warning: " + message);
    return status;
}
