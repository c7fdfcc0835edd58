#pragma once

#include <optional>
#include <string>
#include <vector>

#include <zmt/core/texturedtriangles/texturedtriangletree.h>

#include "cityinputs.h"
#include "landscape/lighting.h"
#include "landscape/outputfiles.h"
#include "landscape/terrainoptions.h"

/// How models become a city.
struct CityBuilding : CityInputs {
    std::string terrain;     ///< for models whose heights count from the ground
    double distance = 100.0; ///< from which textures are to be sharp, in metres
    double quality = 1.0;
    int atlasSize = 1024;
    ZMT::CORE::TexturedTriangleTree::TextureFormat format =
        ZMT::CORE::TexturedTriangleTree::TextureFormatDXT1;
    bool isUnique = false; ///< every triangle gets texels of its own
    /// Ground and neighbours shade the models, in a second layer, which needs these, too.
    bool hasOcclusion = false;
    bool isShaded = true;
    std::optional<Sunlight> light; ///< without it from the north-west
    std::string out;
};

/// What became of it.
struct CityReport {
    std::size_t models = 0;
    std::uint64_t triangles = 0;
    std::size_t textures = 0;  ///< different ones that were found
    std::uint64_t atlases = 0; ///< in the paging files, and those of the roots
    std::uint64_t bytes = 0;   ///< of the scene and its paging files
    /// Shares of the texels of the finest atlases that textures take; nothing without atlases.
    std::optional<double> opaqueFill, transparentFill;
    std::vector<std::string> assumptions; ///< of axes and units that no file tells, a line each
    std::vector<std::string> files;
};

/// rgba8, luminance, rgba5551, dxt1 or jpeg. Throws `UsageError`.
ZMT::CORE::TexturedTriangleTree::TextureFormat parseCityFormat(const std::string & text);
/// Throws `UsageError` for what cannot be.
void checkCityBuilding(const CityBuilding & building);
/// The files that are read, for `checkOutputs`.
std::vector<NamedFile> inputFiles(const CityBuilding & building);

/// Reads the models, builds their trees and writes the files, the scene last. What models lack is told by a
/// line each. Throws `DataError` and what the engine throws for files that cannot be used, and after a
/// cancel, which leaves nothing behind.
CityReport buildCity(const CityBuilding & building);
