#include "terrainoptions.h"

#include <cmath>

#include "errors.h"

#include <nbx/object/exception.h>
#include <zmt/raster/gdal/coordinatesystem.h>

namespace {

constexpr unsigned s_mostThreads = 1024;

ZMT::RASTER::GeoReference parseSystem(const std::string & option, const std::string & text) {
    try {
        return ZMT::RASTER::CoordinateSystem::parse(text);
    } catch (const NBX::InputException & error) {
        throw UsageError(option + ": " + error.what());
    }
}

} // namespace

std::string parseCrs(const std::string & text) {
    return parseSystemOf("--crs", text);
}

std::string parseSystemOf(const std::string & option, const std::string & text) {
    const ZMT::RASTER::GeoReference system = parseSystem(option, text);
    if (system.isGeographic || std::abs(system.unit - 1.0) > 1e-9)
        throw UsageError(option + " must be a map system in metres, and the unit of " + system.name +
                         " is the " + system.unitName + "; choose another one, such as a UTM zone");
    return system.wkt;
}

void checkTreeOptions(const TreeOptions & options) {
    const unsigned maxVertices = options.maxVertices.value_or(TreeOptions::s_leastVertices);
    if (maxVertices < TreeOptions::s_leastVertices || maxVertices > TreeOptions::s_mostVertices)
        throw UsageError("--max-vertices must be from " + std::to_string(TreeOptions::s_leastVertices) +
                         " to " + std::to_string(TreeOptions::s_mostVertices) + ": " +
                         std::to_string(maxVertices));
    const unsigned threads = options.threads.value_or(1);
    if (threads < 1 || threads > s_mostThreads)
        throw UsageError("--threads must be from 1 to " + std::to_string(s_mostThreads) + ": " +
                         std::to_string(threads));
}

void checkBuiltOptions(const std::string & path, const TreeOptions & options, const TerrainReading & how) {
    const char * given = options.maxVertices ? "--max-vertices"
                         : options.threads   ? "--threads"
                         : how.fillVoids     ? "--fill-voids"
                         : how.native        ? "--native"
                         : !how.crs.empty()  ? "--crs"
                                             : nullptr;
    if (given) throw UsageError(notForBuilt(given, path));
}

std::string notForBuilt(const std::string & option, const std::string & path) {
    return option + " is for building, and " + path + " is built; leave it out, or give the heights";
}

void checkExaggeration(double exaggeration) {
    if (!(exaggeration > 0.0) || !(exaggeration <= 1000.0))
        throw UsageError("--exaggeration must be above 0, and at most 1000");
}
