#include "landscapeoptions.h"

#include <cmath>

#include <zmt/raster/gdal/projectionfile.h>

#include "errors.h"
#include "terraininput.h"

TerrainMethod parseMethod(const std::string & text) {
    if (text == "auto") return TerrainMethod::Auto;
    if (text == "tree") return TerrainMethod::Tree;
    if (text == "chunked") return TerrainMethod::Chunked;
    throw UsageError("--method must be auto, tree or chunked: " + text);
}

void checkLandscape(const LandscapeOptions & options) {
    checkTreeOptions(options.tree);
    checkExaggeration(options.exaggeration);
    if (!std::isfinite(options.drapeLift)) throw UsageError("--drape-lift must be a number of height units");
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
    if (!isBuiltTerrain(options.terrain)) return;
    checkBuiltOptions(options.terrain, options.tree, {.fillVoids = options.fillVoids});
    const char * given = options.method == TerrainMethod::Chunked ? "--method chunked"
                         : !options.breakLines.empty()            ? "--breaklines"
                                                                  : nullptr;
    if (given) throw UsageError(notForBuilt(given, options.terrain));
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
    return files;
}
