#include "modeloptions.h"

#include <charconv>
#include <cmath>

#include <CLI/CLI.hpp>

#include <nbx/data/file.h>

#include "landscape/commandoptions.h"
#include "landscape/errors.h"

namespace {

NBX::ModelUp parseUp(const std::string & text) {
    if (text == "y") return NBX::ModelUp::Y;
    if (text == "z") return NBX::ModelUp::Z;
    throw UsageError("--up must be y or z: " + text);
}

double parseUnits(const std::string & text) {
    double metres = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), metres);
    const bool isWhole = error == std::errc() && end == text.data() + text.size();
    if (isWhole && std::isfinite(metres) && metres > 0.0) return metres;
    throw UsageError("--units must be a number of metres above 0: " + text);
}

std::string parseTextureFolder(const std::string & text) {
    if (!NBX::File::isDir(text)) throw UsageError("--textures is no folder: " + text);
    return text;
}

} // namespace

void addModelAxisOptions(CLI::App & command, NBX::ModelOptions & options) {
    addParsedOption(
        command, "--up", options.up, parseUp,
        "The axis of models that is upwards, y or z; without it as the file says, else z for 3DS, "
        "STL and PLY, and y for others")
        ->type_name("AXIS");
    addParsedOption(command, "--units", options.metresPerUnit, parseUnits,
                    "Metres of a unit of models; without it as the file says, else 0.01 for FBX, and 1 for "
                    "others")
        ->type_name("METRES");
}

void addModelOptions(CLI::App & command, NBX::ModelOptions & options) {
    addModelAxisOptions(command, options);
    addParsedList(command, "--textures", options.textureFolders, parseTextureFolder,
                  "A folder where textures are looked for after the model's own; may be repeated")
        ->type_name("FOLDER");
}
