#include "terrainoutput.h"

#include <algorithm>
#include <vector>

#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>

#include "core/terrain/geometry/grid/creation/terrainlayout.h"
#include "core/terrain/geometry/grid/creation/unnamedfile.h"
#include "core/terrain/geometry/grid/creation/writtenfile.h"

namespace ZMT::CORE::GRID {

namespace {

/// Of the light map.
constexpr unsigned s_textureSize = 512;
constexpr std::uint64_t s_lightMapPiece = 0xa00000;

} // namespace

TerrainOutput::TerrainOutput(const std::string & path, const GridTerrainCreation & how)
    : how_(how), path_(path), writer_(path) {
    if (how.wkt) projection_.emplace(path, *how.wkt);
}

NBX::File & TerrainOutput::begin(const TerrainFileFormat::FileHeader & header) {
    header_ = header;
    writeHeader();
    return writer_.file();
}

void TerrainOutput::end(const TileAssembly & tiles) {
    if (!tiles.root().isBlock()) throw TerrainFailure::empty();
    header_.root = tiles.root();
    header_.sizeX = tiles.rootBox().max[0] + 1;
    header_.sizeY = tiles.rootBox().max[1] + 1;
    header_.dataSize = writer_.file().size();
    writer_.file().seek(0);
    writeHeader();
    if (how_.createShading) writeLightMap();
}

void TerrainOutput::commit() {
    const auto commit = [this] { writer_.commit(); };
    projection_ ? projection_->commitWith(commit) : commit();
}

void TerrainOutput::writeHeader() {
    writer_.file().write(&header_, sizeof header_);
}

/// Behind the tiles. It is made aside, since the terrain is read meanwhile.
void TerrainOutput::writeLightMap() {
    NBX::File & file = writer_.file();
    NBX::SO<NBX::File> side = unnamedFile(path_ + ".shading");
    const NBX::SO<NBX::File> written(&file);
    const NBX::SO<AsyncGridTerrain> terrain = AsyncGridTerrain::load(new WrittenFile(written));
    if (!terrain)
        throw TerrainFailure(TerrainFailure::tooLarge().shown(), L"the file that was written cannot be read");
    std::wstring problem;
    if (!AsyncQuadtreeTerrainTexture::createGridTerrainLightMap(
            side, terrain, header_.heightScale, how_.storesNormals, how_.ambientLight, how_.lightDirection,
            s_textureSize, 0, how_.threads, &problem)) {
        if (problem.empty()) throw CreationCancelled();
        throw TerrainFailure(TerrainFailure::tooLarge().shown(), problem);
    }
    file.seek(0, NBX::SM_End);
    side->seek(0);
    std::vector<char> piece(std::min(s_lightMapPiece, side->size()));
    while (const std::uint64_t bytes = side->read(piece.data(), piece.size()))
        file.write(piece.data(), bytes);
}

} // namespace ZMT::CORE::GRID
