#include "commands.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "landscape/errors.h"

namespace {

namespace fs = std::filesystem;

constexpr const char * s_viewer = "zmt_viewer";

/// Puts the window's program in the place of this process. Comes back only when that fails.
void becomeViewer(const std::vector<std::string> & arguments) {
    const fs::path viewer = fs::read_symlink("/proc/self/exe").parent_path() / s_viewer;
    if (!fs::exists(viewer))
        throw DataError(viewer.string() + " is missing: it is built where Qt 6 is installed (qt6-base-dev)");
    const std::string path = viewer.string();
    std::vector<std::string> texts = arguments;
    texts.insert(texts.begin(), path);
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string & text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    ::execv(path.c_str(), pointers.data());
    throw DataError(path + ": cannot be started: " + std::strerror(errno));
}

} // namespace

void addViewCommand(CLI::App & app) {
    auto * command = app.add_subcommand("view", "Shows a landscape in a window: zmt view FILE...");
    // The window knows its options, and explains them.
    command->set_help_flag();
    command->prefix_command();
    command->callback([command] { becomeViewer(command->remaining()); });
}
