#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "citylayer.h"
#include "flood.h"
#include "imageoptions.h"
#include "lighting.h"
#include "outputfiles.h"
#include "overlayoptions.h"
#include "terrainoptions.h"
#include "tracks.h"

/// Which kind of terrain is made of a height raster.
enum class TerrainMethod {
    Auto,    ///< by chunks, unless something asks for a tree
    Tree,    ///< the best levels of detail, built once
    Chunked, ///< starts within seconds
};

/// auto, tree or chunked. Throws `UsageError`.
TerrainMethod parseMethod(const std::string & text);

/// What a landscape is made of.
struct LandscapeOptions {
    /// A height raster, a terrain that was built, a streaming one or its URL; empty for cities alone.
    std::string terrain;
    bool fillVoids = false; ///< interpolate where heights are missing
    std::string crs;        ///< WKT of the system in which a raster is laid; empty leaves the choice
    std::vector<std::string> images;
    ImageOptions look;                   ///< of the images
    std::vector<std::string> breakLines; ///< vector files
    std::vector<std::string> draped;     ///< vector files
    std::vector<std::string> vectors;    ///< vector files: areas are draped, lines alone are break lines
    double drapeLift = 0.0;              ///< in units of the heights
    std::optional<Sunlight> light;       ///< without it from the north-west
    /// Without it a relief; on a streaming terrain the light that its file has.
    std::optional<Lighting> lighting;
    std::optional<bool> shadeImages; ///< by default with dynamic lighting alone; vertex lighting always does
    TerrainMethod method = TerrainMethod::Auto;
    TreeOptions tree;
    CityOptions cities;
    std::vector<OverlayOptions> overlays; ///< later ones on top
    std::optional<double> contours; ///< metres from each contour line to the next; without it there are none
    TrackOptions tracks;
    std::optional<FloodOptions> flood;
    double exaggeration = 1.0;
    std::uint64_t key = 0; ///< of streaming textures
    bool plain = false;    ///< shading alone, neither colours by height nor images
};

/// 0 to 2^64 - 1, decimal, or hexadecimal behind "0x". Throws `UsageError`.
std::uint64_t parseKey(const std::string & text);

/// Throws `UsageError` for options that cannot be, for a raster, a built terrain or a streaming one as the
/// first bytes of the file tell; whatever else the files hold.
void checkLandscape(const LandscapeOptions & options);

/// The path or URL of what a landscape is called by: its terrain, or the first of cities alone; empty for
/// neither.
std::string mainFile(const LandscapeOptions & options);

/// The files that `options` name, for `checkOutputs`.
std::vector<NamedFile> inputFiles(const LandscapeOptions & options);
