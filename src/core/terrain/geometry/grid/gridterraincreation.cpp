#include <zmt/core/terrain/geometry/grid/gridterraincreation.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>
#include <zmt/raster/gdal/projectionfile.h>

#include "core/terrain/geometry/grid/creation/gridterrainwriter.h"
#include "core/terrain/geometry/grid/creation/heightpyramid.h"
#include "core/terrain/geometry/grid/creation/heightsource.h"
#include "core/terrain/geometry/grid/creation/oldterrainheights.h"
#include "core/terrain/geometry/grid/creation/unnamedfile.h"
#include "core/terrain/geometry/grid/creation/writtenfile.h"
#include "core/terrain/geometry/grid/model/terrainfileformat.h"

namespace ZMT::CORE::GRID {

using namespace TerrainFileFormat;

namespace {

GridTerrainCreation::MessageBox s_messageBox = nullptr;

constexpr const wchar_t * s_caption = L"Failed to Create Terrain";
constexpr const wchar_t * s_tooLarge = L"The terrain extent is too large.";

/// Cell sizes that differ by less are the same.
constexpr double s_sameSize = 1e-6;
/// Of the light map.
constexpr unsigned s_textureSize = 512;
constexpr std::uint64_t s_copiedAtOnce = 0xa00000;

std::string utf8(const std::wstring & text) {
    return NBX::StringUtils::WString2Utf8String(text);
}

/// What ends the creation: `shown` is for the user, `reason` for who looks closer.
struct Failure {
    std::wstring shown, reason;
};

/// The user cancelled.
struct Cancelled {};

} // namespace

namespace {

/// One file on its way.
class GridTerrainCreator {
public:
    GridTerrainCreator(const GridTerrainCreation & how, const std::string & path,
                       const NBX::SO<RASTER::RasterBand> & band)
        : how_(how), path_(path), band_(band), threads_(how.threads) {}

    void run() {
        planTree();
        NBX::AtomicFileWriter writer(path_);
        std::optional<RASTER::ProjectionFile> projection;
        if (how_.wkt) projection.emplace(path_, *how_.wkt);
        writeTiles(writer.file());
        if (how_.createShading) writeLightMap(writer.file());
        const auto commit = [&writer] { writer.commit(); };
        projection ? projection->commitWith(commit) : commit();
    }

private:
    void planTree();
    void planFor(const GridTerrain & old);
    void writeTiles(NBX::File & file);
    void writeHeader(NBX::File & file) const;
    void writeLightMap(NBX::File & file) const;

    const GridTerrainCreation & how_;
    const std::string path_;
    const NBX::SO<RASTER::RasterBand> band_;
    TileThreads threads_;
    FileHeader header_ = FileHeader::blank();
    std::uint32_t sourceDepth_ = 0;
    std::unique_ptr<HeightSource> source_;
    std::unique_ptr<OldTerrainHeights> old_;
};

void GridTerrainCreator::planTree() {
    const std::uint32_t smaller = std::min(band_->cellsX(), band_->cellsY());
    const std::uint32_t larger = std::max(band_->cellsX(), band_->cellsY());
    if (smaller < 2) {
        const std::wstring text = L"The raster is only one cell wide. Take one of two by two cells at least.";
        throw Failure{text, text};
    }
    if (how_.oldTerrain && how_.oldTerrain->rootTile()) return planFor(*how_.oldTerrain);
    header_.tileLevel = std::min(how_.level, maxTileLevel);
    while (1U << header_.tileLevel >= smaller)
        --header_.tileLevel;
    if (larger >= 0x80000002) throw Failure{s_tooLarge, s_tooLarge};
    while ((std::uint64_t(1) << (header_.tileLevel + header_.treeDepth)) + 1 < larger)
        ++header_.treeDepth;
    header_.cellSizeX = band_->cellSizeX();
    header_.cellSizeY = band_->cellSizeY();
    header_.originX = band_->minX();
    header_.originY = band_->minY();
    source_ = std::make_unique<BandHeightSource>(band_);
}

/// The square stays that of the old terrain; it is divided until its cells are not larger than the band's.
void GridTerrainCreator::planFor(const GridTerrain & old) {
    header_.tileLevel = old.gridLevel();
    header_.treeDepth = static_cast<std::uint32_t>(old.rootTile()->level());
    std::tie(header_.cellSizeX, header_.cellSizeY) = old.getCellSize();
    std::uint32_t halvings = 0;
    while (header_.cellSizeX > band_->cellSizeX() * (1.0 + s_sameSize) ||
           header_.cellSizeY > band_->cellSizeY() * (1.0 + s_sameSize)) {
        header_.cellSizeX /= 2.0;
        header_.cellSizeY /= 2.0;
        ++halvings;
        if (header_.tileLevel + ++header_.treeDepth > maxExtentLevel) throw Failure{s_tooLarge, s_tooLarge};
    }
    header_.originX = old.geoBoundingBox().getLLF().x;
    header_.originY = old.geoBoundingBox().getLLF().z;
    const std::uint32_t points = (1U << (header_.tileLevel + header_.treeDepth)) + 1;
    auto source = std::make_unique<ResampledHeightSource>(
        band_, RASTER::RasterGrid{points, points, header_.originX, header_.originY, header_.cellSizeX,
                                  header_.cellSizeY});
    if (!source->isOnBand()) {
        const std::wstring text = L"The raster lies outside of the old terrain. Make a new one of both.";
        throw Failure{text, text};
    }
    source_ = std::move(source);
    old_ = std::make_unique<OldTerrainHeights>(how_.oldTerrain, halvings);
    // Where the tile above is as fine as the band, there is nothing to add.
    const auto hasDetail = [this](double cellSize, double bandCellSize) {
        return std::ldexp(cellSize, static_cast<int>(sourceDepth_) + 1) > bandCellSize * (1.0 + s_sameSize);
    };
    while (sourceDepth_ < header_.treeDepth && !hasDetail(header_.cellSizeX, band_->cellSizeX()) &&
           !hasDetail(header_.cellSizeY, band_->cellSizeY()))
        ++sourceDepth_;
}

void GridTerrainCreator::writeTiles(NBX::File & file) {
    HeightPyramid pyramid(*source_, header_.treeDepth, how_.resampling, path_);
    {
        NBX::Progress progress("reading the raster", source_->area().height());
        if (!pyramid.build(threads_, progress)) throw Cancelled();
        progress.finish();
    }
    if (!pyramid.hasHeights() && !old_) throw Failure{s_tooLarge, L"the raster has no height at all"};
    double low = pyramid.minHeight(), high = pyramid.maxHeight();
    if (old_) {
        low = std::min(low, old_->minHeight());
        high = std::max(high, old_->maxHeight());
    }
    const HeightScale scale = HeightScale::ofRange(low, high);
    header_.minHeight = scale.minHeight;
    header_.heightScale = scale.step;
    writeHeader(file);
    const double tiles = (std::ldexp(1.0, 2 * static_cast<int>(header_.treeDepth) + 2) - 1.0) / 3.0;
    NBX::Progress progress("creating terrain LOD", tiles);
    GridTerrainWriter writer({header_.tileLevel, header_.treeDepth, scale, sourceDepth_}, *source_, pyramid,
                             old_.get(), threads_, file);
    if (!writer.write(progress)) throw Cancelled();
    if (!writer.root().isBlock()) throw Failure{s_tooLarge, L"the raster has no height at all"};
    header_.root = writer.root();
    header_.sizeX = writer.rootBox().max[0] + 1;
    header_.sizeY = writer.rootBox().max[1] + 1;
    header_.dataSize = file.size();
    file.seek(0);
    writeHeader(file);
    progress.finish();
}

void GridTerrainCreator::writeHeader(NBX::File & file) const {
    file.write(&header_, sizeof header_);
}

/// Behind the tiles. It is made aside, since the terrain is read meanwhile.
void GridTerrainCreator::writeLightMap(NBX::File & file) const {
    NBX::SO<NBX::File> side = unnamedFile(path_ + ".shading");
    const NBX::SO<NBX::File> written(&file);
    const NBX::SO<AsyncGridTerrain> terrain = AsyncGridTerrain::load(new WrittenFile(written));
    if (!terrain) throw Failure{s_tooLarge, L"the file that was written cannot be read"};
    if (!AsyncQuadtreeTerrainTexture::createGridTerrainLightMap(
            side, terrain, header_.heightScale, how_.storesNormals, how_.ambientLight, how_.lightDirection,
            s_textureSize, 0, how_.threads))
        throw Cancelled();
    file.seek(0, NBX::SM_End);
    side->seek(0);
    std::vector<char> piece(std::min(s_copiedAtOnce, side->size()));
    while (const std::uint64_t bytes = side->read(piece.data(), piece.size()))
        file.write(piece.data(), bytes);
}

} // namespace

bool GridTerrainCreation::run(const std::wstring & path, const NBX::SO<RASTER::RasterBand> & band,
                              std::wstring * problem) const {
    NBX_CHECK(band, L"no band");
    if (!band) return false;
    Failure failure;
    try {
        GridTerrainCreator(*this, utf8(path), band).run();
        return true;
    } catch (const Cancelled &) {
        return false;
    } catch (const Failure & thrown) {
        failure = thrown;
    } catch (const std::exception & thrown) {
        failure = {s_tooLarge, NBX::StringUtils::Utf8String2WString(thrown.what())};
    }
    if (problem) {
        *problem = failure.reason;
        return false;
    }
    if (failure.reason != failure.shown) NBX_FAILURE(failure.reason);
    if (s_messageBox)
        s_messageBox(s_caption, failure.shown);
    else
        NBX_FAILURE(failure.shown);
    return false;
}

double GridTerrainCreation::shareOutside(const RASTER::RasterGrid & grid, const GridTerrain & old) {
    const NBX::SO<GridTerrainTile> root = old.rootTile();
    if (!root || grid.cellsX == 0 || grid.cellsY == 0) return 1.0;
    const double cells = std::ldexp(1.0, static_cast<int>(old.gridLevel()) + root->level());
    // A single row of cells has an extent as well.
    const auto shareInside = [cells](double low, unsigned points, double size, double square, double cell) {
        const double high = low + points * size;
        return std::max(0.0, std::min(high, square + cells * cell + size) - std::max(low, square)) /
               (high - low);
    };
    const NBX::Vector3Base<double> corner = old.geoBoundingBox().getLLF();
    const auto [cellX, cellY] = old.getCellSize();
    return 1.0 - shareInside(grid.minX, grid.cellsX, grid.cellSizeX, corner.x, cellX) *
                     shareInside(grid.minY, grid.cellsY, grid.cellSizeY, corner.z, cellY);
}

GridTerrainCreation::MessageBox GridTerrainCreation::setMessageBox(MessageBox box) {
    return std::exchange(s_messageBox, box);
}

} // namespace ZMT::CORE::GRID
