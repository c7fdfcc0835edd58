// Streaming terrains and textures are opened here, on the thread of the event loop and before anything else
// of a landscape is read, since files on web servers belong to it. Their projections are fetched beside them.

#include "streamedfiles.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>

#include "errors.h"
#include "landscapeoptions.h"
#include "program/stage.h"
#include "reports.h"
#include "step.h"

#include <nbx/data/file.h>
#include <nbx/data/locator.h>
#include <nbx/data/objectstreamreader.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>
#include <zmt/core/texturedtriangles/citymodels.h>
#include <zmt/raster/gdal/geofile.h>
#include <zmt/raster/gdal/projectionfile.h>
#include <zmt/raster/simplerasterdata.h>

namespace {

using NBX::SO;
using ZMT::CORE::AsyncFile;
using ZMT::CORE::GRID::AsyncGridTerrain;
using ZMT::RASTER::ProjectionFile;
using Raster = ZMT::RASTER::SimpleRasterData<float>;

/// Vertices along the longer side of an overview: those of two levels of tiles.
constexpr unsigned s_overviewSide = 257;

bool isStreamed(const std::string & path, ZMT::RASTER::GeoFileKind kind) {
    if (isUrl(path)) return false;
    const ZMT::RASTER::GeoFileFormat * format = ZMT::RASTER::GeoFile::formatOf(path);
    return format && format->isStreamed() && format->kindOf(path) == kind;
}

constexpr std::uint64_t s_largestOverlay = 256U << 20U;
/// As the scenes of cities are.
bool isStoredObject(AsyncFile & file) {
    constexpr unsigned magicBytes = 8;
    const SO<NBX::DataResource> start = file.size() < magicBytes ? nullptr : file.readNow(0, magicBytes);
    return start && NBX::ObjectStreamReader::hasMagic(start->pointer(), start->size());
}

constexpr char s_terrainMagic[] = "ZMT-AQTG", s_textureMagic[] = "ZMT-AQTT";

/// `start` is the first 8 bytes of a file.
StreamedKind kindOfStart(std::uint64_t start, std::uint64_t key) {
    const auto isOf = [start](const char * letters, std::uint64_t scrambled) {
        std::uint64_t magic = 0;
        std::memcpy(&magic, letters, sizeof magic);
        return (start ^ scrambled) == magic;
    };
    if (isOf(s_terrainMagic, 0)) return StreamedKind::Terrain;
    return isOf(s_textureMagic, key) ? StreamedKind::Texture : StreamedKind::None;
}

bool isScrambledTexture(const std::string & path, std::uint64_t key) {
    NBX::File file(path);
    std::uint64_t start = 0;
    return file.read(&start, sizeof start) == sizeof start &&
           kindOfStart(start, key) == StreamedKind::Texture;
}

[[noreturn]] void throwProblem(const std::string & locator, const std::wstring & problem) {
    throw DataError(openingProblem(locator, {problem, false}));
}

ZMT::RASTER::GeoReference referenceOf(const AsyncGridTerrain & terrain, const std::string & locator) {
    const std::string wkt = terrain.wkt();
    return wkt.empty() ? ZMT::RASTER::GeoReference() : ProjectionFile::parse(wkt, shownName(locator));
}

SO<ZMT::CORE::GridData> makeOverview(const AsyncGridTerrain & terrain) {
    const NBX::Bounds box = terrain.geoBoundingBox();
    const auto [cellX, cellY] = terrain.getCellSize();
    const double width = box.diagonal().x, depth = box.diagonal().z;
    const double step = std::max({width, depth, cellX, cellY}) / (s_overviewSide - 1.0);
    const auto vertices = [](double length, double size) {
        return std::clamp(static_cast<unsigned>(std::lround(length / size)) + 1, 2U, s_overviewSide);
    };
    // No finer than the terrain itself.
    const unsigned columns = vertices(width, std::max(step, cellX));
    const unsigned rows = vertices(depth, std::max(step, cellY));
    const SO<Raster> raster(new Raster(columns, rows, box.getLLF().x, box.getLLF().z, width / (columns - 1.0),
                                       depth / (rows - 1.0), true, std::numeric_limits<float>::quiet_NaN()));
    terrain.resampleRasterData(raster.get());
    return new ZMT::CORE::GridData(raster.get());
}

} // namespace

bool isUrl(const std::string & locator) {
    return NBX::Locator(locator).isOnWebServer();
}

std::string shownName(const std::string & locator) {
    return NBX::Locator::shownIn(NBX::Locator(locator).shown());
}

std::string fileNameOf(const std::string & locator) {
    return std::filesystem::path(shownName(locator)).filename().string();
}

std::string openingProblem(const std::string & locator, const AsyncFile::Problem & problem) {
    return shownName(locator) + ": " + NBX::StringUtils::WString2Utf8String(problem.text) +
           (problem.isRedirectRefused ? "; give --follow-redirects if that is the right server" : "");
}

bool hasUrls(const LandscapeOptions & options) {
    const auto & cities = options.cities.files;
    return isUrl(options.terrain) || std::any_of(options.images.begin(), options.images.end(), isUrl) ||
           std::any_of(cities.begin(), cities.end(), isUrl) ||
           std::any_of(options.overlays.begin(), options.overlays.end(),
                       [](const OverlayOptions & overlay) { return isUrl(overlay.file); });
}

bool isStreamingTerrainFile(const std::string & path) {
    return isStreamed(path, ZMT::RASTER::GeoFileKind::Heights);
}

bool isStreamingTextureFile(const std::string & path, std::uint64_t key) {
    if (isUrl(path)) return false;
    if (isStreamed(path, ZMT::RASTER::GeoFileKind::Image)) return true;
    return NBX::File::isFile(path) &&
           (NBX::File::extensionName(path) == "zts" || (key != 0 && isScrambledTexture(path, key)));
}

bool isStreamedTerrain(const std::string & locator) {
    return isUrl(locator) || isStreamingTerrainFile(locator);
}

bool isStreamedTexture(const std::string & locator, std::uint64_t key) {
    return isUrl(locator) || isStreamingTextureFile(locator, key);
}

StreamedKind kindOfStreamed(AsyncFile & file, std::uint64_t key) {
    std::uint64_t start = 0;
    if (file.size() < sizeof start) return StreamedKind::None;
    std::wstring problem;
    const SO<NBX::DataResource> bytes = file.readNow(0, sizeof start, &problem);
    if (!bytes) throwProblem(NBX::StringUtils::WString2Utf8String(file.url()), problem);
    std::memcpy(&start, bytes->pointer(), sizeof start);
    return kindOfStart(start, key);
}

SO<AsyncFile> openStreamedFile(const std::string & locator) {
    AsyncFile::Problem problem;
    const Reports told; // by the problem
    const SO<AsyncFile> file =
        AsyncFile::create(NBX::StringUtils::Utf8String2WString(locator), false, problem);
    if (!file) throw DataError(openingProblem(locator, problem));
    return file;
}

StreamedTerrain openStreamedTerrain(const std::string & locator) {
    return openStreamedTerrain(locator, nullptr);
}

StreamedTerrain openStreamedTerrain(const std::string & locator, const SO<AsyncFile> & file) {
    const Stage stage(L"open");
    Step opening("opening " + shownName(locator));
    StreamedTerrain result;
    std::wstring problem;
    {
        const SO<AsyncFile> opened = file ? file : openStreamedFile(locator);
        const Reports told;
        result.terrain = AsyncGridTerrain::load(opened, false, &problem);
    }
    if (!result.terrain) throwProblem(locator, problem);
    result.reference = referenceOf(*result.terrain, locator);
    result.overview = makeOverview(*result.terrain);
    result.lightMapKind = result.terrain->lightMapKind(&problem);
    result.lightMapProblem = NBX::StringUtils::WString2Utf8String(problem);
    if (result.lightMapKind != AsyncGridTerrain::LM_None)
        result.lightMap = result.terrain->createStaticLightMap(0.0, {});
    opening.finish();
    return result;
}

StreamedTexture openStreamedTexture(const std::string & locator, std::uint64_t key) {
    return openStreamedTexture(locator, key, nullptr);
}

StreamedTexture openStreamedTexture(const std::string & locator, std::uint64_t key,
                                    const SO<AsyncFile> & file) {
    const Stage stage(L"open");
    Step opening("opening " + shownName(locator));
    StreamedTexture result;
    {
        result.file = file ? file : openStreamedFile(locator);
        const Reports told;
        result.texture = ZMT::CORE::AsyncQuadtreeTerrainTexture::load(result.file, 0, key);
    }
    if (!result.texture || !result.texture->boundingBox().isDefined())
        throw DataError(shownName(locator) +
                        ": is no streaming texture, is damaged, or was written with another --key");
    opening.finish();
    return result;
}

NBX::SO<NBX::DataResource> fetchCity(const std::string & url) {
    const Stage stage(L"open");
    Step opening("opening " + shownName(url));
    const auto bytes = ZMT::CORE::CityModels::fetch(*openStreamedFile(url));
    opening.finish();
    return bytes;
}

SO<NBX::DataResource> fetchOverlay(const std::string & url) {
    const Stage stage(L"open");
    Step opening("opening " + shownName(url));
    const SO<AsyncFile> file = openStreamedFile(url);
    if (file->size() > s_largestOverlay)
        throw DataError(shownName(url) + ": is too large to be fetched; download it, and give the file");
    std::wstring problem;
    SO<NBX::DataResource> bytes = file->readNow(0, file->size(), &problem);
    if (!bytes) throwProblem(url, problem);
    opening.finish();
    return bytes;
}

StreamedFiles::StreamedFiles(const LandscapeOptions & options, const std::vector<std::string> & more) {
    if (isStreamedTerrain(options.terrain))
        terrains_.emplace(options.terrain, openStreamedTerrain(options.terrain));
    for (const std::string & image : options.images)
        if (isStreamedTexture(image, options.key))
            textures_.emplace(image, openStreamedTexture(image, options.key));
    for (const std::string & city : options.cities.files)
        if (isUrl(city)) cities_.emplace(city, fetchCity(city));
    for (const OverlayOptions & overlay : options.overlays)
        if (isUrl(overlay.file)) overlays_.emplace(overlay.file, fetchOverlay(overlay.file));
    bool isFirst = options.terrain.empty();
    for (const std::string & file : more) {
        const SO<AsyncFile> opened = isUrl(file) ? openStreamedFile(file) : nullptr;
        if (opened && isStoredObject(*opened)) {
            cities_.emplace(file, ZMT::CORE::CityModels::fetch(*opened));
            continue;
        }
        if (!opened && ZMT::CORE::CityModels::isFile(file)) continue;
        if (isStreamingTerrainFile(file) || (opened && isFirst))
            terrains_.emplace(file, openStreamedTerrain(file, opened));
        else if (isStreamedTexture(file, options.key))
            textures_.emplace(file, openStreamedTexture(file, options.key, opened));
        isFirst = false;
    }
}

const StreamedTerrain * StreamedFiles::terrain(const std::string & locator) const {
    const auto found = terrains_.find(locator);
    return found == terrains_.end() ? nullptr : &found->second;
}

const StreamedTexture * StreamedFiles::texture(const std::string & locator) const {
    const auto found = textures_.find(locator);
    return found == textures_.end() ? nullptr : &found->second;
}

NBX::SO<NBX::DataResource> StreamedFiles::city(const std::string & locator) const {
    const auto found = cities_.find(locator);
    return found == cities_.end() ? nullptr : found->second;
}

NBX::SO<NBX::DataResource> StreamedFiles::overlay(const std::string & locator) const {
    const auto found = overlays_.find(locator);
    return found == overlays_.end() ? nullptr : found->second;
}
