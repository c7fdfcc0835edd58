#include "commands.h"

#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "citybuilding.h"
#include "landscape/commandoptions.h"
#include "landscape/errors.h"
#include "landscape/outputfiles.h"
#include "modeloptions.h"
#include "program/stage.h"

namespace {

/// Azimuth and elevation, or "none".
std::optional<Sunlight> parseShade(const std::string & text) {
    if (text == "none") return {};
    try {
        return parseSunlight(text);
    } catch (const UsageError &) {
        throw UsageError("--shade must be AZIMUTH,ELEVATION[,AMBIENT], as for --light, or none: " + text);
    }
}

void tellFill(const CityReport & report) {
    std::string shares;
    const auto append = [&](const std::optional<double> & share, const char * what) {
        if (!share) return;
        shares += shares.empty() ? "" : ", ";
        shares += std::to_string(std::lround(100.0 * *share)) + " % " + what;
    };
    append(report.opaqueFill, "opaque");
    append(report.transparentFill, "transparent");
    if (!shares.empty()) std::printf("atlas fill: %s\n", shares.c_str());
}

void runBuildCity(const CityBuilding & building) {
    checkCityBuilding(building);
    checkOutputs(inputFiles(building), {{"--out", building.out}});
    const Stage stage(L"build");
    const CityReport report = buildCity(building);
    std::printf("models: %zu, triangles: %llu, textures: %zu, atlases: %llu, bytes: %llu\n", report.models,
                static_cast<unsigned long long>(report.triangles), report.textures,
                static_cast<unsigned long long>(report.atlases),
                static_cast<unsigned long long>(report.bytes));
    tellFill(report);
    for (const std::string & line : report.assumptions)
        std::printf("assumed: %s\n", line.c_str());
    for (const std::string & file : report.files)
        std::printf("file: %s\n", file.c_str());
}

void addPlaceOptions(CLI::App & command, CityBuilding & building) {
    command.add_option("--placements", building.placements, "KML or KMZ file with the places of the models");
    addParsedOption(
        command, "--at", building.at, parseCityPlace,
        "Map coordinates of models that no file places, and their height; without a height they "
        "stand on the ground of --terrain, and without the option where their own coordinates say")
        ->type_name("X,Y[,Z]");
    addParsedOption(command, "--system", building.system, parseCitySystem,
                    "Coordinate system of the map, in metres, such as EPSG:32633; without it that of the "
                    "terrain, or the UTM zone of the first place")
        ->type_name("EPSG|WKT|PROJ");
    command.add_option("--terrain", building.terrain,
                       "Ground on which models stand: a height raster, or a terrain of any kind");
}

void addAtlasOptions(CLI::App & command, CityBuilding & building) {
    command
        .add_option("--distance", building.distance,
                    "Metres from which the finest textures are sharp on 800 pixels and 90 degrees")
        ->capture_default_str();
    command.add_option("--quality", building.quality, "Texels for each of those pixels")
        ->capture_default_str();
    command.add_option("--atlas-size", building.atlasSize, "Edge of an atlas of textures, a power of two")
        ->capture_default_str();
    addParsedOption(
        command, "--format", building.format, parseCityFormat,
        "Textures in the files: rgba8, luminance, rgba5551, dxt1 or jpeg, which becomes dxt1 when "
        "it is read. What is seen through is stored as rgba8 where the format has no full alpha")
        ->default_str("dxt1");
    command.add_flag("--unique", building.isUnique,
                     "Give triangles texels of their own in place of whole textures");
    command.add_flag(
        "--occlusion", building.hasOcclusion,
        "Darken what sees little of the sky past the other models and the ground of --terrain, in a "
        "second layer of textures; triangles get texels of their own for it");
    command
        .add_option_function<std::string>(
            "--shade",
            [&building](const std::string & text) {
                building.light = parseShade(text);
                building.isShaded = building.light.has_value();
            },
            "Sun and sky on faces without texture, as AZIMUTH,ELEVATION[,AMBIENT], or none")
        ->default_str("315,45");
}

} // namespace

void addCityBuildCommand(CLI::App & app) {
    auto * command = app.add_subcommand(
        "city",
        "Writes textured models into trees of texture atlases, which are read while they are looked at.");
    const auto building = std::make_shared<CityBuilding>();
    command
        ->add_option(
            "MODELS", building->inputs,
            "COLLADA, OBJ, glTF, GLB, FBX, 3DS, STL or PLY files, and KML or KMZ files with the places "
            "of such models")
        ->required();
    command
        ->add_option("--out", building->out,
                     "The file; its usual suffix is city. Files with the textures stand beside it")
        ->required();
    addPlaceOptions(*command, *building);
    addModelOptions(*command, building->reading);
    addAtlasOptions(*command, *building);
    addOutputNote(*command);
    command->callback([building] { runBuildCity(*building); });
}
