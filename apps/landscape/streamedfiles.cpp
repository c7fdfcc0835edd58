#include "streamedfiles.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "errors.h"
#include "landscapeoptions.h"
#include "reports.h"
#include "step.h"

#include <nbx/data/file.h>
#include <nbx/data/locator.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>
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

bool isScrambledTexture(const std::string & path, std::uint64_t key) {
    NBX::File file(path);
    std::uint64_t start = 0, magic = 0;
    std::memcpy(&magic, "ZMT-AQTT", sizeof magic);
    return file.read(&start, sizeof start) == sizeof start && (start ^ key) == magic;
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
    return NBX::Locator(locator).shown();
}

bool hasUrls(const LandscapeOptions & options) {
    return isUrl(options.terrain) || std::any_of(options.images.begin(), options.images.end(), isUrl);
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

StreamedTerrain openStreamedTerrain(const std::string & locator) {
    Step opening("opening " + shownName(locator));
    StreamedTerrain result;
    std::wstring problem;
    {
        const Reports told; // by the problem
        result.terrain =
            AsyncGridTerrain::load(NBX::StringUtils::Utf8String2WString(locator), false, &problem);
    }
    if (!result.terrain)
        throw DataError(shownName(locator) + ": " + NBX::StringUtils::WString2Utf8String(problem));
    result.reference = referenceOf(*result.terrain, locator);
    result.overview = makeOverview(*result.terrain);
    result.lightMapKind = result.terrain->lightMapKind();
    if (result.lightMapKind != AsyncGridTerrain::LM_None)
        result.lightMap = result.terrain->createStaticLightMap(0.0, {});
    opening.finish();
    return result;
}

StreamedTexture openStreamedTexture(const std::string & locator, std::uint64_t key) {
    Step opening("opening " + shownName(locator));
    const std::wstring path = NBX::StringUtils::Utf8String2WString(locator);
    std::wstring problem;
    StreamedTexture result;
    {
        const Reports told;
        result.file = AsyncFile::create(path, false, &problem);
        if (result.file) result.texture = ZMT::CORE::AsyncQuadtreeTerrainTexture::load(result.file, 0, key);
    }
    if (!problem.empty())
        throw DataError(shownName(locator) + ": " + NBX::StringUtils::WString2Utf8String(problem));
    if (!result.texture || !result.texture->boundingBox().isDefined())
        throw DataError(shownName(locator) +
                        ": is no streaming texture, is damaged, or was written with another --key");
    opening.finish();
    return result;
}

StreamedFiles::StreamedFiles(const LandscapeOptions & options, const std::vector<std::string> & more) {
    if (isStreamedTerrain(options.terrain))
        terrains_.emplace(options.terrain, openStreamedTerrain(options.terrain));
    for (const std::string & image : options.images)
        if (isStreamedTexture(image, options.key))
            textures_.emplace(image, openStreamedTexture(image, options.key));
    for (const std::string & file : more) {
        const bool isFirst = options.terrain.empty() && &file == &more.front();
        if (isStreamingTerrainFile(file) || (isUrl(file) && isFirst))
            terrains_.emplace(file, openStreamedTerrain(file));
        else if (isStreamedTexture(file, options.key))
            textures_.emplace(file, openStreamedTexture(file, options.key));
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
