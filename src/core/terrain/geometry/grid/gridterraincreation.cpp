#include <zmt/core/terrain/geometry/grid/gridterraincreation.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>

#include "core/terrain/geometry/grid/creation/heightpyramid.h"
#include "core/terrain/geometry/grid/creation/terrainlayout.h"
#include "core/terrain/geometry/grid/creation/tileassembly.h"
#include "core/terrain/geometry/grid/creation/tilemaker.h"
#include "terrainoutput.h"

namespace ZMT::CORE::GRID {

using namespace TerrainFileFormat;

namespace {

GridTerrainCreation::MessageBox s_messageBox = nullptr;

constexpr const wchar_t * s_caption = L"Failed to Create Terrain";

void writeTiles(const TerrainLayout & layout, const HeightScale & scale, HeightLevels & levels,
                TileThreads & threads, TerrainOutput & output) {
    FileHeader header = layout.header;
    header.minHeight = scale.minHeight;
    header.heightScale = scale.step;
    const TileRows rows(header.tileLevel, header.treeDepth, layout.area());
    const double tiles = (std::ldexp(1.0, 2 * static_cast<int>(header.treeDepth) + 2) - 1.0) / 3.0;
    NBX::Progress progress("creating terrain LOD", tiles);
    TileAssembly assembly(rows, threads, output.begin(header));
    TileMaker maker({*layout.source, levels, layout.old.get(), scale, layout.sourceDepth}, rows, threads);
    if (!maker.make(rows.rows(0).first, rows.rows(0).count(), assembly, progress)) throw CreationCancelled();
    progress.finish();
    output.end(assembly);
}

/// One file on its way.
void create(const GridTerrainCreation & how, const std::string & path,
            const NBX::SO<RASTER::RasterBand> & band) {
    const TerrainLayout layout(band, how.level, how.oldTerrain);
    TerrainOutput output(path, how);
    TileThreads threads(how.threads);
    HeightPyramid pyramid(*layout.source, layout.header.treeDepth, how.resampling, path);
    {
        NBX::Progress progress("reading the raster", layout.source->area().height());
        if (!pyramid.build(threads, progress)) throw CreationCancelled();
        progress.finish();
    }
    writeTiles(layout, layout.scale(pyramid), pyramid, threads, output);
    output.commit();
}

} // namespace

bool GridTerrainCreation::run(const std::wstring & path, const NBX::SO<RASTER::RasterBand> & band,
                              std::wstring * problem) const {
    NBX_CHECK(band, L"no band");
    if (!band) return false;
    std::wstring shown = TerrainFailure::tooLarge().shown(), reason;
    try {
        create(*this, NBX::StringUtils::WString2Utf8String(path), band);
        return true;
    } catch (const CreationCancelled &) {
        return false;
    } catch (const TerrainFailure & thrown) {
        shown = thrown.shown();
        reason = thrown.message();
    } catch (const std::exception & thrown) {
        reason = NBX::StringUtils::Utf8String2WString(thrown.what());
    }
    if (problem) {
        *problem = reason;
        return false;
    }
    if (reason != shown) NBX_FAILURE(reason);
    if (s_messageBox)
        s_messageBox(s_caption, shown);
    else
        NBX_FAILURE(shown);
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
