#pragma once

#include <optional>
#include <string>

/// What is done to a height raster when it is read.
struct TerrainReading {
    bool native = false;    ///< keep the cells, even where they are degrees
    bool fillVoids = false; ///< interpolate where heights are missing
    std::string crs = {};   ///< WKT of the system to lay it in; empty: its own, or one in metres
};

/// WKT of a system in metres, by its number, such as EPSG:32645, or itself. Throws `UsageError`.
std::string parseCrs(const std::string & text);
/// The same for another option.
std::string parseSystemOf(const std::string & option, const std::string & text);

/// How a tree is built, as far as it was told.
struct TreeOptions {
    static constexpr unsigned s_leastVertices = 50;
    static constexpr unsigned s_maxVertices = 4000;
    static constexpr unsigned s_mostVertices = 32000;

    std::optional<unsigned> maxVertices; ///< of a node; without it `s_maxVertices`
    std::optional<unsigned> threads;     ///< without it one for each core
};

/// Throws `UsageError` when a tree cannot be built so.
void checkTreeOptions(const TreeOptions & options);
/// Throws `UsageError` for options of the building, when it is done.
void checkBuiltOptions(const std::string & path, const TreeOptions & options, const TerrainReading & how);
/// What is said of an option of the building.
std::string notForBuilt(const std::string & option, const std::string & path);

/// Throws `UsageError` for a factor of the heights that nothing can be drawn with.
void checkExaggeration(double exaggeration);
