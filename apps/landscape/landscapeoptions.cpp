#include "landscapeoptions.h"

#include <charconv>
#include <cmath>

#include <zmt/raster/gdal/projectionfile.h>

#include "errors.h"
#include "streamedfiles.h"
#include "terraininput.h"

TerrainMethod parseMethod(const std::string & text) {
    if (text == "auto") return TerrainMethod::Auto;
    if (text == "tree") return TerrainMethod::Tree;
    if (text == "chunked") return TerrainMethod::Chunked;
    throw UsageError("--method must be auto, tree or chunked: " + text);
}

std::uint64_t parseKey(const std::string & text) {
    const bool isHexadecimal = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
    const char * begin = text.data() + (isHexadecimal ? 2 : 0);
    std::uint64_t key = 0;
    const auto [end, error] = std::from_chars(begin, text.data() + text.size(), key, isHexadecimal ? 16 : 10);
    if (error == std::errc() && end == text.data() + text.size()) return key;
    throw UsageError("--key must be a whole number of 64 bits, decimal or 0x and hexadecimal: " + text);
}

namespace {

/// What takes heights in memory, triangles of other shapes, or building.
void checkStreamedOptions(const LandscapeOptions & options) {
    const char * given = options.tree.maxVertices                ? "--max-vertices"
                         : options.tree.threads                  ? "--threads"
                         : options.fillVoids                     ? "--fill-voids"
                         : !options.crs.empty()                  ? "--crs"
                         : options.method != TerrainMethod::Auto ? "--method"
                         : !options.breakLines.empty()           ? "--breaklines"
                         : !options.draped.empty()               ? "--drape"
                         : options.lighting == Lighting::Vertex  ? "--lighting vertex"
                                                                 : nullptr;
    if (given)
        throw UsageError(std::string(given) + " needs a height raster, and " + shownName(options.terrain) +
                         " is a streaming terrain; leave it out, or give the raster");
}

/// What lies on a terrain.
void checkBareCities(const LandscapeOptions & options) {
    const char * given = !options.images.empty()                 ? "--image"
                         : !options.overlays.empty()             ? "--overlay"
                         : options.contours                      ? "--contours"
                         : !options.tracks.files.empty()         ? "--track"
                         : options.flood                         ? "--flood"
                         : !options.breakLines.empty()           ? "--breaklines"
                         : !options.draped.empty()               ? "--drape"
                         : options.fillVoids                     ? "--fill-voids"
                         : !options.crs.empty()                  ? "--crs"
                         : options.lighting                      ? "--lighting"
                         : options.light                         ? "--light"
                         : options.method != TerrainMethod::Auto ? "--method"
                         : options.tree.maxVertices              ? "--max-vertices"
                         : options.exaggeration != 1.0           ? "--exaggeration"
                                                                 : nullptr;
    if (given) throw UsageError(std::string(given) + " needs a terrain; give --terrain, or leave it out");
}

} // namespace

void checkLandscape(const LandscapeOptions & options) {
    checkTreeOptions(options.tree);
    checkExaggeration(options.exaggeration);
    if (!std::isfinite(options.drapeLift)) throw UsageError("--drape-lift must be a number of height units");
    if (options.contours && (!std::isfinite(*options.contours) || *options.contours <= 0.0))
        throw UsageError("--contours must be a number of metres above 0");
    if (options.lighting == Lighting::Vertex && options.shadeImages == false)
        throw UsageError(
            "--no-shade-images cannot go with --lighting vertex, which lights all; choose another lighting");
    if (options.method == TerrainMethod::Chunked && options.lighting == Lighting::Vertex)
        throw UsageError(
            "--lighting vertex needs normals, which chunked terrains do not have; give --method tree");
    if (options.method == TerrainMethod::Chunked && !options.breakLines.empty())
        throw UsageError(
            "--breaklines needs triangles of any shape, which chunked terrains do not have; give "
            "--method tree");
    checkCityOptions(options.cities);
    checkTrackOptions(options.tracks);
    if (options.terrain.empty() && !options.cities.files.empty()) return checkBareCities(options);
    if (isStreamedTerrain(options.terrain)) return checkStreamedOptions(options);
    if (!isBuiltTerrain(options.terrain)) return;
    checkBuiltOptions(options.terrain, options.tree, {.fillVoids = options.fillVoids, .crs = options.crs});
    const char * given = options.method == TerrainMethod::Chunked ? "--method chunked"
                         : !options.breakLines.empty()            ? "--breaklines"
                                                                  : nullptr;
    if (given) throw UsageError(notForBuilt(given, options.terrain));
}

std::string mainFile(const LandscapeOptions & options) {
    const auto & cities = options.cities.files;
    return !options.terrain.empty() || cities.empty() ? options.terrain : cities.front();
}

std::vector<NamedFile> inputFiles(const LandscapeOptions & options) {
    std::vector<NamedFile> files = {{"--terrain", options.terrain}};
    for (const std::string & path : options.images) {
        files.push_back({"--image", path});
        files.push_back({"the .prj beside --image", ZMT::RASTER::ProjectionFile::pathFor(path)});
    }
    for (const std::string & path : options.breakLines)
        files.push_back({"--breaklines", path});
    for (const std::string & path : options.draped)
        files.push_back({"--drape", path});
    for (const std::string & path : options.vectors)
        files.push_back({"FILE", path});
    for (const std::string & path : options.cities.files)
        files.push_back({"--city", path});
    for (const std::string & path : options.tracks.files)
        files.push_back({"--track", path});
    for (const OverlayOptions & overlay : options.overlays) {
        files.push_back({"--overlay", overlay.file});
        if (isStyleFile(overlay.style)) files.push_back({"--style", overlay.style});
    }
    return files;
}
