#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <nbx/object/so.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/raster/georeference.h>

// Files that are read while they are looked at, from a disk or a web server. They are opened, used and let go
// of on one thread: that of the event loop.

struct LandscapeOptions;

/// Whether `locator` is a URL of a web server, and no path.
bool isUrl(const std::string & locator);

/// A path or a URL as messages, titles and lists show it: without login and query.
std::string shownName(const std::string & locator);

/// Whether anything of a landscape lies on a web server.
bool hasUrls(const LandscapeOptions & options);

/// What the first bytes of a file tell; false for URLs. Textures that were written with another key are told
/// by their suffix.
bool isStreamingTerrainFile(const std::string & path);
bool isStreamingTextureFile(const std::string & path, std::uint64_t key = 0);
/// A streaming terrain, or a URL, at which nothing else can lie.
bool isStreamedTerrain(const std::string & locator);
bool isStreamedTexture(const std::string & locator, std::uint64_t key = 0);

/// A terrain that was opened.
struct StreamedTerrain {
    NBX::SO<ZMT::CORE::GRID::AsyncGridTerrain> terrain;
    /// Coarse heights of all of it, for what needs them in memory: colours by height, where to stand.
    NBX::SO<ZMT::CORE::GridData> overview;
    /// What lies behind its tiles, and that as a texture; null without any.
    ZMT::CORE::GRID::AsyncGridTerrain::LightMap lightMapKind = ZMT::CORE::GRID::AsyncGridTerrain::LM_None;
    NBX::SO<ZMT::CORE::TerrainTexture> lightMap;
    /// As the file beside it tells; without one nothing is known.
    ZMT::RASTER::GeoReference reference;
};

/// A texture that was opened, and what it is read from.
struct StreamedTexture {
    NBX::SO<ZMT::CORE::TerrainTexture> texture;
    NBX::SO<ZMT::CORE::AsyncFile> file;
};

/// Waits for the root and some tiles below. Throws `DataError` for what cannot be opened.
StreamedTerrain openStreamedTerrain(const std::string & locator);
/// Waits for the root. `key` is that with which it was written. Throws `DataError`.
StreamedTexture openStreamedTexture(const std::string & locator, std::uint64_t key);

/// The streamed files of a landscape, opened before it is built, which may happen on another thread.
class StreamedFiles {
public:
    /// None.
    StreamedFiles() = default;
    /// Those of `options`, and those among `more`, whose first one is the terrain where it is a URL and
    /// `options` have no terrain; other URLs are images. Throws as above.
    explicit StreamedFiles(const LandscapeOptions & options, const std::vector<std::string> & more = {});

    /// Null for what was not opened.
    const StreamedTerrain * terrain(const std::string & locator) const;
    const StreamedTexture * texture(const std::string & locator) const;

private:
    std::map<std::string, StreamedTerrain> terrains_;
    std::map<std::string, StreamedTexture> textures_;
};
