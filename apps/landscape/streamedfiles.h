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

/// A path or a URL as messages, titles and lists show it: without login and query, also of a URL in a path,
/// such as that of a raster behind "/vsicurl/".
std::string shownName(const std::string & locator);
/// The same without folders.
std::string fileNameOf(const std::string & locator);

/// Why a file cannot be opened, for people: `problem` of the library, and what helps where the programs have
/// an option for it.
std::string openingProblem(const std::string & locator, const ZMT::CORE::AsyncFile::Problem & problem);

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
    /// Why what lies behind its tiles cannot be read, and counts as none; empty otherwise.
    std::string lightMapProblem;
    /// As the file beside it tells; without one nothing is known.
    ZMT::RASTER::GeoReference reference;
};

/// A texture that was opened, and what it is read from.
struct StreamedTexture {
    NBX::SO<ZMT::CORE::TerrainTexture> texture;
    NBX::SO<ZMT::CORE::AsyncFile> file;
};

enum class StreamedKind { None, Terrain, Texture };
/// What the first bytes of an opened file tell, of a texture that was written with `key`. Throws `DataError`
/// where they cannot be read.
StreamedKind kindOfStreamed(ZMT::CORE::AsyncFile & file, std::uint64_t key);

/// Throws `DataError` for what cannot be opened.
NBX::SO<ZMT::CORE::AsyncFile> openStreamedFile(const std::string & locator);
/// Waits for the root and some tiles below. Throws `DataError` for what cannot be opened.
StreamedTerrain openStreamedTerrain(const std::string & locator);
/// Of `file`, which was opened by that name.
StreamedTerrain openStreamedTerrain(const std::string & locator, const NBX::SO<ZMT::CORE::AsyncFile> & file);
/// Waits for the root. `key` is that with which it was written. Throws `DataError`.
StreamedTexture openStreamedTexture(const std::string & locator, std::uint64_t key);
StreamedTexture openStreamedTexture(const std::string & locator, std::uint64_t key,
                                    const NBX::SO<ZMT::CORE::AsyncFile> & file);

/// The bytes of the scene of a city on a web server. Throws `DataError`, and what `CityModels` throws.
NBX::SO<NBX::DataResource> fetchCity(const std::string & url);

/// The bytes of a vector file on a web server. Throws `DataError`.
NBX::SO<NBX::DataResource> fetchOverlay(const std::string & url);

/// The streamed files of a landscape, opened before it is built, which may happen on another thread; of
/// cities on web servers the bytes of their scenes, of overlays those of the file.
class StreamedFiles {
public:
    /// None.
    StreamedFiles() = default;
    /// Those of `options`, and those among `more`. What lies at a URL is a city where it begins as one, or
    /// else, as the first of them, the terrain where `options` have none; others are images. Throws as above.
    explicit StreamedFiles(const LandscapeOptions & options, const std::vector<std::string> & more = {});

    /// Null for what was not opened.
    const StreamedTerrain * terrain(const std::string & locator) const;
    const StreamedTexture * texture(const std::string & locator) const;
    NBX::SO<NBX::DataResource> city(const std::string & locator) const;
    NBX::SO<NBX::DataResource> overlay(const std::string & locator) const;

private:
    std::map<std::string, StreamedTerrain> terrains_;
    std::map<std::string, StreamedTexture> textures_;
    std::map<std::string, NBX::SO<NBX::DataResource>> cities_, overlays_;
};
