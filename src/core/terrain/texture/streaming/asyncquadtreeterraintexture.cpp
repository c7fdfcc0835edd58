#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>

#include <algorithm>
#include <cstring>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/object/callback.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>
#include <zmt/raster/tiledgeoimage.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

#include "asyncquadtreeterraintexture_impl.h"
#include "lightmapwriter.h"
#include "patchtexturewriter.h"
#include "streamingtextureformat.h"
#include "texturetransfers.h"

namespace ZMT::CORE {

namespace {

using StreamingTextureFormat::headerSize;
using StreamingTextureFormat::StreamHeader;

/// A pyramid gives nothing, and no exception, for what it cannot read.
bool hasFailed(const RASTER::TiledGeoImagePyramid & pyramid) {
    for (unsigned i = 0; i < pyramid.overviews(); ++i)
        if (const NBX::SO<RASTER::TiledGeoImage> level = pyramid.overview(i); level && level->failed())
            return true;
    return false;
}

bool isTileSize(unsigned size) {
    NBX_CHECK_RANGE(1U, size, StreamingTextureFormat::maxTileSize + 1);
    return size > 0 && size <= StreamingTextureFormat::maxTileSize;
}

/// Null where it cannot be had whole.
NBX::SO<NBX::DataResource> readHeader(AsyncFile & file, std::uint64_t offset) {
    if (offset > file.size() || file.size() - offset < headerSize) return nullptr;
    return file.readNow(offset, headerSize);
}

using Callback = NBX::FunctionCallback1<const TerrainPainterFrameManager::Info &>;

const bool s_isInFrames =
    TerrainPainterFrameManager::RegisterBeginFrameCallback(
        new Callback(AsyncQuadtreeTerrainTexture::beginFrame)) &&
    TerrainPainterFrameManager::RegisterEndFrameCallback(new Callback(AsyncQuadtreeTerrainTexture::endFrame));

} // namespace

bool AsyncQuadtreeTerrainTexture::create(const std::wstring & path, const NBX::SO<GeometryPatch> & root,
                                         const NBX::SO<RASTER::TiledGeoImagePyramid> & pyramid,
                                         unsigned tileSize, std::uint64_t key,
                                         const StreamingTextureOptions & options) {
    NBX::AtomicFileWriter writer(NBX::StringUtils::WString2Utf8String(path));
    if (!create(&writer.file(), root, pyramid, tileSize, key, options)) return false;
    writer.commit();
    return true;
}

bool AsyncQuadtreeTerrainTexture::create(const NBX::SO<NBX::File> & file, const NBX::SO<GeometryPatch> & root,
                                         const NBX::SO<RASTER::TiledGeoImagePyramid> & pyramid,
                                         unsigned tileSize, std::uint64_t key,
                                         const StreamingTextureOptions & options) {
    NBX_CHECK(file, L"no file");
    NBX_CHECK(pyramid, L"no image pyramid");
    if (!isTileSize(tileSize) || !file || !pyramid) return false;
    StreamingTextureWriter writer(file, key, options.threads);
    const auto tile = PatchTextureWriter(*pyramid, tileSize, options.pixels, writer).write(root);
    if (writer.isCanceled()) return false;
    if (hasFailed(*pyramid)) {
        NBX_FAILURE(L"a part of the image could not be read; the texture is not complete");
        return false;
    }
    writer.finish(tile);
    return true;
}

bool AsyncQuadtreeTerrainTexture::createGridTerrainLightMap(
    const NBX::SO<NBX::File> & file, const NBX::SO<GRID::GridTerrain> & terrain, double exaggeration,
    bool asNormalMap, double ambient, const NBX::Vector3Base<double> & lightDirection, unsigned textureSize,
    std::uint64_t key, unsigned threads, std::wstring * problem) {
    NBX_CHECK(file, L"no file");
    NBX_CHECK(terrain, L"no terrain");
    const NBX::SO<GRID::GridTerrainTile> root = terrain ? terrain->rootTile() : nullptr;
    if (!isTileSize(textureSize) || !file || !root) return false;
    StreamingTextureWriter writer(file, key, threads);
    LightMapWriter walk(root, {exaggeration, asNormalMap, ambient, lightDirection}, textureSize, writer);
    const auto tile = walk.write();
    if (writer.isCanceled()) return false;
    if (walk.isIncomplete()) {
        const wchar_t * reason = L"a tile of the terrain could not be read; the light map is not complete";
        if (problem)
            *problem = reason;
        else
            NBX_FAILURE(reason);
        return false;
    }
    writer.finish(tile);
    return true;
}

NBX::SO<TerrainTexture> AsyncQuadtreeTerrainTexture::load(const std::wstring & path, std::uint64_t key) {
    return load(AsyncFile::create(path, false), 0, key);
}

NBX::SO<TerrainTexture> AsyncQuadtreeTerrainTexture::load(const NBX::SO<AsyncFile> & file,
                                                          std::uint64_t offset, std::uint64_t key) {
    const NBX::SO<NBX::DataResource> data = file ? readHeader(*file, offset) : nullptr;
    if (!data) return nullptr;
    StreamHeader header;
    std::memcpy(&header, data->pointer(), sizeof header);
    StreamingTextureFormat::scramble(&header, sizeof header, key);
    if (!header.isSound(file->size() - offset)) return nullptr;
    return new AsyncQuadtreeTerrainTexture_Impl({file, offset, header.dataSize, key}, header.root);
}

std::vector<AsyncQuadtreeTerrainTexture::ReadFailure> AsyncQuadtreeTerrainTexture::readFailures() {
    std::vector<ReadFailure> result;
    for (const TexturePatchRequest * node : TexturePatchRequest::failed())
        if (node->isStillFailing())
            result.push_back({node->stream().file->url(), node->stream().offset + node->tileRef().offset,
                              node->tileRef().storedSize, node->failure(),
                              std::max(0.0, node->retryTime() - TextureTransfers::now())});
    return result;
}

unsigned AsyncQuadtreeTerrainTexture::missingTiles() {
    return TexturePatchRequest::countMissing();
}

void AsyncQuadtreeTerrainTexture::resetStatistics() {
    TexturePatchRequest::forgetMissing();
}

void AsyncQuadtreeTerrainTexture::beginFrame(const TerrainPainterFrameManager::Info &) {
    TextureTransfers::beginFrame();
}

void AsyncQuadtreeTerrainTexture::endFrame(const TerrainPainterFrameManager::Info &) {}

} // namespace ZMT::CORE
