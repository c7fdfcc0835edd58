#include <zmt/core/misc/plugin.h>

#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <nbx/data/file.h>
#include <nbx/data/plugin.h>
#include <nbx/object/exception.h>

namespace ZMT::CORE {

namespace {

/// Marker files are lists of a few paths; a larger file is none.
constexpr std::uint64_t s_largestMarkerFile = 1 << 20;

const std::string s_product = "zmt_";
const std::string s_platform = "x64";
const std::string s_suffix = "_*.qpi";

/// The lines of a text file, also of one written on a system that ends them with two characters. None for a
/// file that cannot be read.
std::vector<std::string> linesOf(const std::string & path) {
    std::vector<std::string> lines;
    try {
        const std::vector<std::uint8_t> bytes = NBX::File::contents(path, s_largestMarkerFile);
        std::istringstream text(std::string(bytes.begin(), bytes.end()));
        for (std::string line; std::getline(text, line);) {
            if (line.ends_with('\r')) line.pop_back();
            lines.push_back(line);
        }
    } catch (const NBX::Exception &) {
        lines.clear();
    }
    return lines;
}

void loadMarkedLibraries(const std::string & folder, const std::string & markerFile) {
    std::cerr << "Loading plugin: " << markerFile << "\n";
    bool isLoaded = false;
    for (const std::string & line : linesOf(folder + markerFile)) {
        const std::string library = NBX::File::isRelative(line) ? folder + line : line;
        if (!NBX::File::isFile(library)) continue;
        std::cerr << "\tloading: " << library << "...\n";
        isLoaded = NBX::PlugIn::load(library, "", false);
    }
    std::cerr << "\t\t" << (isLoaded ? "OK" : "FAILED") << "!" << std::endl;
}

void scan(const std::string & folder, const std::string & pattern) {
    if (folder.empty() || pattern.empty() || !NBX::File::isDir(folder)) return;
    for (const std::string & markerFile : NBX::File::matchingEntries(folder, pattern))
        if (markerFile.find("_debug_") == std::string::npos) loadMarkedLibraries(folder, markerFile);
}

/// The folder for the plug-ins of a loaded library, or of the program for the empty name. Empty when it is
/// not known where that lies.
std::string pluginFolder(const std::string & libraryName) {
    const std::string library = NBX::PlugIn::fullName(libraryName);
    return library.empty() ? "" : NBX::File::pathName(library) + "plugins/";
}

} // namespace

void Plugin::InitializePlugins() {
    const std::string pattern = s_product + s_platform + s_suffix;
    const std::string besideLibrary = pluginFolder("zmt_core.dll");
    const std::string besideProgram = pluginFolder("");
    scan(besideLibrary, pattern);
    if (besideProgram != besideLibrary) scan(besideProgram, pattern);
}

} // namespace ZMT::CORE
