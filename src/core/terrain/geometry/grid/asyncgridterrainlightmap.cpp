// The pixels of the root of a light map tell what it is: luminance is light, colours are normals. A terrain
// without light looks like one that was built so, so that a light map that cannot be read is told.

#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>

#include <cstring>

#include <nbx/data/dataresource.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/misc/asyncfile.h>

#include "asyncgridterraintile.h"
#include "core/terrain/geometry/grid/model/tileblock.h"
#include "core/terrain/texture/streaming/asyncquadtreeterraintexture_impl.h"

namespace ZMT::CORE::GRID {

namespace {

using NBX::DataResource;
using NBX::SO;

/// What to tell where a read gave `problem`, or, where that is empty, bytes that are no light map.
std::wstring reasonOf(const std::wstring & problem) {
    return problem.empty() ? L"it is damaged or was cut off; get the file anew"
                           : problem + L"; open the terrain again";
}

void tell(const AsyncFile & file, const std::wstring & reason) {
    NBX_REPORT(2, L"light map",
               L"the light map behind the terrain cannot be read, and counts as none: " << reason << L": "
                                                                                        << file.url());
}

template <class Record> bool take(const SO<DataResource> & data, Record & record) {
    if (!data || data->size() < sizeof record) return false;
    std::memcpy(&record, data->pointer(), sizeof record);
    return true;
}

/// Null where there is none, and where it cannot be read, for which `reason` is given.
const StreamingTextureFormat::StreamHeader * lightMapOf(AsyncGridTerrainFile & terrain,
                                                        std::wstring & reason) {
    AsyncFile & file = *terrain.file;
    const std::uint64_t offset = terrain.header.dataSize;
    if (file.size() <= offset) return nullptr;
    if (terrain.lightMap) return &*terrain.lightMap;
    StreamingTextureFormat::StreamHeader header;
    std::wstring problem;
    const bool isWhole =
        file.size() - offset >= sizeof header && take(file.readNow(offset, sizeof header, &problem), header);
    if (isWhole && header.isSound(file.size() - offset)) return &terrain.lightMap.emplace(header);
    reason = reasonOf(problem);
    return nullptr;
}

AsyncGridTerrain::LightMap kindOf(AsyncGridTerrainFile & terrain, std::wstring & reason) {
    const auto * stream = lightMapOf(terrain, reason);
    if (!stream) return AsyncGridTerrain::LM_None;
    std::wstring problem;
    const SO<DataResource> stored = terrain.file->readNow(terrain.header.dataSize + stream->root.offset,
                                                          stream->root.storedSize, &problem);
    StreamingTextureFormat::TileHeader root;
    if (!stored || !take(TileBlock::inflated(stream->root, stored), root) ||
        !root.isSound(stream->root, stream->dataSize)) {
        reason = reasonOf(problem);
        return AsyncGridTerrain::LM_None;
    }
    return root.pixelFormat == StreamingTextureFormat::PF_Luminance ? AsyncGridTerrain::LM_Light
                                                                    : AsyncGridTerrain::LM_Normals;
}

} // namespace

AsyncGridTerrain::LightMap AsyncGridTerrain::lightMapKind(std::wstring * problem) const {
    const SO<AsyncGridTerrainFile> terrain = terrainFile();
    std::wstring reason;
    const LightMap kind = terrain ? kindOf(*terrain, reason) : LM_None;
    if (problem)
        *problem = reason;
    else if (!reason.empty())
        tell(*terrain->file, reason);
    return kind;
}

SO<TerrainTexture> AsyncGridTerrain::createStaticLightMap(double, const Point &) {
    return lightMap();
}

SO<TerrainTexture> AsyncGridTerrain::createDynamicLightMap() {
    return lightMap();
}

SO<TerrainTexture> AsyncGridTerrain::lightMap() const {
    const SO<AsyncGridTerrainFile> terrain = terrainFile();
    std::wstring reason;
    const auto * stream = terrain ? lightMapOf(*terrain, reason) : nullptr;
    if (!reason.empty()) tell(*terrain->file, reason);
    if (!stream) return nullptr;
    return new AsyncQuadtreeTerrainTexture_Impl(
        {terrain->file, terrain->header.dataSize, stream->dataSize, 0}, stream->root);
}

} // namespace ZMT::CORE::GRID
