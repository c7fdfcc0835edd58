#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "landscapeoptions.h"
#include "memorybudgets.h"
#include "picture.h"
#include "viewpoint.h"

// The options that several commands have. Each text is parsed once, while the command line is read.

/// Adds an option whose text becomes `value` by `parse`. What that throws comes out of the parsing of the
/// command line.
template <class Value, class Parsed>
CLI::Option * addParsedOption(CLI::App & command, const char * name, Value & value,
                              Parsed (*parse)(const std::string &), const std::string & description) {
    return command.add_option_function<std::string>(
        name, [&value, parse](const std::string & text) { value = parse(text); }, description);
}

/// The same for an option that may be repeated: each text is one more of `values`.
template <class Value>
CLI::Option * addParsedList(CLI::App & command, const char * name, std::vector<Value> & values,
                            Value (*parse)(const std::string &), const std::string & description) {
    return command
        .add_option_function<std::vector<std::string>>(
            name,
            [&values, parse](const std::vector<std::string> & texts) {
                for (const std::string & text : texts)
                    values.push_back(parse(text));
            },
            description)
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

/// Adds an option that takes one file each time it is given.
void addFilesOption(CLI::App & command, const char * name, std::vector<std::string> & files,
                    const char * description);
/// Adds the option `--terrain`, which is needed.
CLI::Option * addTerrainOption(CLI::App & command, std::string & terrain);
/// Adds the option `--city`.
void addCityFilesOption(CLI::App & command, std::vector<std::string> & files);
/// Adds that, and the options `--city-quality` and `--city-distance`.
void addCityOptions(CLI::App & command, CityOptions & options);
/// Adds the options `--overlay` and `--style`, which are taken in their order.
void addOverlayOptions(CLI::App & command, std::vector<OverlayOptions> & overlays);
/// Adds the option `--fill-voids`.
void addVoidOption(CLI::App & command, bool & fillVoids);
/// Adds the option `--crs`.
void addCrsOption(CLI::App & command, std::string & crs);
/// Adds the options `--max-vertices`, `--threads` and `--verbose`.
void addTreeOptions(CLI::App & command, TreeOptions & options);
/// Adds the options `--bands`, `--stretch` and `--gamma`.
void addColorOptions(CLI::App & command, ImageOptions & options);
/// Adds the option `--no-cache`.
void addCacheOption(CLI::App & command, bool & cache);
/// Adds the option `--follow-redirects`, which holds for all files on web servers.
void addRedirectsOption(CLI::App & command);
/// Adds the options that make a landscape; all but the terrain itself.
void addLandscapeOptions(CLI::App & command, LandscapeOptions & options);
/// Adds the options `--view` and `--size`.
void addViewOptions(CLI::App & command, View & view, PictureSize & size);
/// Adds the options `--geometry-error` and `--texture-error`.
void addErrorOptions(CLI::App & command, AllowedErrors & errors);
/// Adds the options `--memory` and `--graphics-memory`.
void addMemoryOptions(CLI::App & command, MemoryBudgets & budgets);
/// Tells in the help of `command` what becomes of files that are there already.
void addOutputNote(CLI::App & command);
/// The same of a command that draws, and which of its options go with which terrains.
void addPictureNotes(CLI::App & command);
