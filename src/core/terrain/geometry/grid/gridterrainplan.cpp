// A part has the finest tiles of some rows, and the inner tiles whose last children are among them: so all
// parts, one behind the other, are the tiles in the order of the terrain.

#include <zmt/core/terrain/geometry/grid/gridterrainplan.h>

#include <algorithm>
#include <cmath>
#include <optional>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/object/exception.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>

#include "core/terrain/geometry/grid/creation/contenthash.h"
#include "core/terrain/geometry/grid/creation/heightpyramid.h"
#include "core/terrain/geometry/grid/creation/terrainlayout.h"
#include "core/terrain/geometry/grid/creation/terrainpartfile.h"
#include "core/terrain/geometry/grid/creation/terrainplanfile.h"
#include "core/terrain/geometry/grid/creation/tilemaker.h"
#include "terrainoutput.h"

namespace ZMT::CORE::GRID {

using namespace TerrainFileFormat;

namespace {

/// Places along each side of a raster where cells are compared, and how many of them.
constexpr unsigned s_places = 5, s_cells = 16;
/// What a row of tiles without heights costs, beside one that has as many heights.
constexpr std::uint64_t s_emptyShare = 16;

void addCells(ContentHash & hash, const RASTER::RasterBand & band) {
    const unsigned width = std::min(s_cells, band.cellsX());
    for (unsigned j = 0; j < s_places; ++j)
        for (unsigned i = 0; i < s_places; ++i) {
            float cells[s_cells];
            const auto at = [](unsigned cells, unsigned place) {
                return static_cast<unsigned>(std::uint64_t(cells) * place / (s_places - 1));
            };
            band.read(at(band.cellsX() - width, i), at(band.cellsY() - 1, j), width, 1, cells);
            for (unsigned x = 0; x < width; ++x)
                hash.add(std::isnan(cells[x]) ? -HUGE_VAL : double(cells[x]));
        }
}

void addTerrain(ContentHash & hash, const GridTerrain & terrain) {
    const NBX::SO<GridTerrainTile> root = terrain.rootTile();
    const NBX::SO<GridTerrainTileData> data = root->requestTileData(AsyncFile::topPriority, true, nullptr);
    if (!data) throw NBX::IOError(L"the root of the old terrain cannot be read");
    const std::uint32_t side = samplesPerSide(terrain.gridLevel());
    for (std::uint32_t y = 0; y < side; ++y)
        for (std::uint32_t x = 0; x < side; ++x)
            hash.add(double(data->value(x, y)));
    const NBX::Bounds box = terrain.geoBoundingBox();
    for (const double number : {box.getLLF().x, box.getLLF().y, box.getLLF().z, box.getURB().x,
                                box.getURB().y, box.getURB().z, double(root->level())})
        hash.add(number);
}

/// Tells rasters and old terrains apart.
std::uint64_t originHash(const RASTER::RasterBand & band, const NBX::SO<GridTerrain> & oldTerrain,
                         const std::string & stamp) {
    ContentHash hash;
    const RASTER::RasterGrid & grid = band.grid();
    for (const double number :
         {double(grid.cellsX), double(grid.cellsY), grid.minX, grid.minY, grid.cellSizeX, grid.cellSizeY})
        hash.add(number);
    addCells(hash, band);
    if (oldTerrain && oldTerrain->rootTile()) addTerrain(hash, *oldTerrain);
    hash.add(stamp);
    return hash.value();
}

/// Tells options apart.
std::uint64_t optionsHash(const TerrainPlanFile & plan) {
    ContentHash hash;
    hash.add(double(plan.header.tileLevel));
    for (const bool option :
         {plan.resampling == HeightResampling::Average, plan.createsShading, plan.storesNormals, plan.hasWkt})
        hash.add(double(option));
    for (const double number : {plan.ambientLight, plan.light[0], plan.light[1], plan.light[2]})
        hash.add(number);
    hash.add(plan.wkt);
    return hash.value();
}

TerrainPlanFile planOf(const GridTerrainCreation & how, const TerrainLayout & layout) {
    TerrainPlanFile plan;
    plan.header = layout.header;
    plan.sourceDepth = layout.sourceDepth;
    plan.sourceArea = layout.source->area();
    plan.area = layout.area();
    plan.resampling = how.resampling;
    plan.createsShading = how.createShading;
    plan.storesNormals = how.storesNormals;
    plan.ambientLight = how.ambientLight;
    plan.light[0] = how.lightDirection.x;
    plan.light[1] = how.lightDirection.y;
    plan.light[2] = how.lightDirection.z;
    plan.hasWkt = how.wkt.has_value();
    plan.wkt = how.wkt.value_or("");
    return plan;
}

/// How to end a terrain that was planned.
GridTerrainCreation creationOf(const TerrainPlanFile & plan, unsigned threads) {
    GridTerrainCreation how;
    how.threads = threads;
    how.createShading = plan.createsShading;
    how.storesNormals = plan.storesNormals;
    how.ambientLight = plan.ambientLight;
    how.lightDirection = {plan.light[0], plan.light[1], plan.light[2]};
    if (plan.hasWkt) how.wkt = plan.wkt;
    return how;
}

/// Points of each row of tiles that are defined, and some for the others. Old heights may be everywhere.
std::vector<std::uint64_t> workOf(const TerrainPlanFile & plan, const TerrainLayout & layout,
                                  const HeightPyramid & pyramid) {
    const TileRows::Range rows = plan.rows().rows(0);
    const std::uint64_t points = std::uint64_t(plan.area.width()) << plan.header.tileLevel;
    std::vector<std::uint64_t> work(rows.count(), layout.old ? points : points / s_emptyShare + 1);
    const std::uint32_t first = plan.sourceArea.minY >> plan.header.tileLevel;
    for (std::size_t i = 0; i < pyramid.definedPoints().size(); ++i)
        // The last row of points belongs to the row of tiles below.
        work[std::min<std::size_t>(first - rows.first + i, work.size() - 1)] += pyramid.definedPoints()[i];
    return work;
}

bool isSameLayout(const TerrainLayout & layout, const TerrainPlanFile & plan) {
    const FileHeader &a = layout.header, &b = plan.header;
    const LatticeArea area = layout.area(), source = layout.source->area();
    const auto isSame = [](const LatticeArea & one, const LatticeArea & other) {
        return one.minX == other.minX && one.minY == other.minY && one.maxX == other.maxX &&
               one.maxY == other.maxY;
    };
    return a.tileLevel == b.tileLevel && a.treeDepth == b.treeDepth && a.originX == b.originX &&
           a.originY == b.originY && a.cellSizeX == b.cellSizeX && a.cellSizeY == b.cellSizeY &&
           layout.sourceDepth == plan.sourceDepth && isSame(area, plan.area) &&
           isSame(source, plan.sourceArea);
}

std::string nameIn(const std::vector<std::string> & rasters) {
    return rasters.empty() ? "the raster" : rasters.front();
}

[[noreturn]] void throwForeign(const TerrainPart & part, const TerrainPlanFile & plan) {
    const TerrainPartHeader & header = part.header();
    if (header.options != plan.options)
        throw NBX::InputException(L"was made with other options than the plan; make it with this plan",
                                  part.path());
    if (header.origin != plan.origin)
        throw NBX::InputException(L"was made from another raster, or before that was changed; make it with "
                                  L"this plan",
                                  part.path());
    throw NBX::InputException(L"was made with another plan; make it with this one", part.path());
}

/// All parts of the plan, in their order.
std::vector<TerrainPart> openParts(const std::vector<std::string> & paths, const TerrainPlanFile & plan) {
    if (paths.empty()) throw NBX::InputException(L"no parts are named; name all that were made");
    std::vector<TerrainPart> parts;
    for (const std::string & path : paths) {
        const TerrainPart & part = parts.emplace_back(path);
        if (part.header().plan != plan.id()) throwForeign(part, plan);
        if (part.header().parts != parts.front().header().parts)
            throw NBX::InputException(L"is one of " + std::to_wstring(part.header().parts) + L" parts, but " +
                                          NBX::StringUtils::Utf8String2WString(paths.front()) + L" one of " +
                                          std::to_wstring(parts.front().header().parts) +
                                          L"; name the parts of one share-out",
                                      path);
    }
    std::stable_sort(parts.begin(), parts.end(), [](const TerrainPart & a, const TerrainPart & b) {
        return a.header().part < b.header().part;
    });
    const std::uint32_t count = parts.front().header().parts;
    std::uint32_t expected = 1;
    for (std::size_t i = 0; i < parts.size(); ++i, ++expected) {
        const std::uint32_t number = parts[i].header().part;
        if (number < expected)
            throw NBX::InputException(L"is part " + std::to_wstring(number) + L" once more, beside " +
                                          NBX::StringUtils::Utf8String2WString(parts[i - 1].path()) +
                                          L"; name each part once",
                                      parts[i].path());
        if (number > expected) break;
    }
    if (expected <= count) {
        const std::wstring share = std::to_wstring(expected) + L"/" + std::to_wstring(count);
        throw NBX::InputException(L"part " + share + L" is missing; make it by --part " + share +
                                  L" and name it as well");
    }
    return parts;
}

} // namespace

bool GridTerrainPlan::write(const std::string & path, const GridTerrainCreation & how,
                            const NBX::SO<RASTER::RasterBand> & band, const Origin & origin) try {
    const TerrainLayout layout(band, how.level, how.oldTerrain);
    TerrainPlanFile plan = planOf(how, layout);
    plan.rasters = origin.rasters;
    plan.oldTerrain = origin.oldTerrain;
    plan.system = origin.system;
    plan.options = optionsHash(plan);
    const std::string stamped = origin.stamp ? origin.stamp() : "";
    plan.origin = originHash(*band, how.oldTerrain, stamped);
    plan.work.resize(plan.rows().rows(0).count());
    NBX::AtomicFileWriter writer(path);
    HeightPyramid pyramid(*layout.source, plan.header.treeDepth, how.resampling, 1U << plan.header.tileLevel);
    const NBX::SO<NBX::File> file(&writer.file());
    pyramid.keepGuarded(file, plan.levelsStart());
    TileThreads threads(how.threads);
    NBX::Progress progress("reading the raster", layout.source->area().height());
    if (!pyramid.build(threads, progress)) return false;
    progress.finish();
    if (origin.stamp && origin.stamp() != stamped)
        throw NBX::InputException(L"was changed while it was read; start again", nameIn(origin.rasters));
    const HeightScale scale = layout.scale(pyramid);
    plan.header.minHeight = scale.minHeight;
    plan.header.heightScale = scale.step;
    plan.work = workOf(plan, layout, pyramid);
    file->resize(plan.levelsStart() + pyramid.guardedBytes());
    plan.write(*file);
    writer.commit();
    return true;
} catch (const TerrainFailure & failure) {
    throw NBX::InputException(failure.message(), nameIn(origin.rasters));
}

GridTerrainPlan::GridTerrainPlan(const std::string & path) : path_(path) {
    NBX::File file(path);
    plan_ = std::make_unique<const TerrainPlanFile>(TerrainPlanFile::read(file));
}

GridTerrainPlan::~GridTerrainPlan() = default;

const std::vector<std::string> & GridTerrainPlan::rasters() const {
    return plan_->rasters;
}

const std::string & GridTerrainPlan::oldTerrain() const {
    return plan_->oldTerrain;
}

const std::string & GridTerrainPlan::system() const {
    return plan_->system;
}

std::uint64_t GridTerrainPlan::id() const {
    return plan_->id();
}

unsigned GridTerrainPlan::level() const {
    return plan_->header.tileLevel;
}

unsigned GridTerrainPlan::levels() const {
    return plan_->header.treeDepth + 1;
}

const std::string & GridTerrainPlan::wkt() const {
    return plan_->wkt;
}

GridTerrainPlan::Kind GridTerrainPlan::kindOf(const std::string & path) {
    if (!NBX::File::isFile(path)) return K_Neither;
    NBX::File file(path);
    char start[8] = {};
    if (file.read(start, sizeof start) != sizeof start) return K_Neither;
    return TerrainPlanFile::isMagic(start) ? K_Plan : TerrainPartHeader::isMagic(start) ? K_Part : K_Neither;
}

GridTerrainPlan::Part GridTerrainPlan::describePart(const std::string & path) {
    const TerrainPartHeader header = TerrainPart(path).header();
    return {{header.part, header.parts}, header.plan};
}

bool GridTerrainPlan::writePart(const std::string & path, const Share & share,
                                const NBX::SO<RASTER::RasterBand> & band,
                                const NBX::SO<GridTerrain> & oldTerrain,
                                const std::function<std::string()> & stamp, unsigned threads) const {
    if (share.part < 1 || share.part > share.parts)
        throw NBX::InputException(L"a part is one of 1 to the number of parts");
    const std::string stamped = stamp ? stamp() : "";
    const auto check = [&](bool isSame) {
        if (isSame) return;
        throw NBX::InputException(L"was changed since the plan was made, or the plan is of another one; make "
                                  L"a new plan",
                                  nameIn(plan_->rasters));
    };
    check(originHash(*band, oldTerrain, stamped) == plan_->origin);
    const TerrainLayout layout(band, plan_->header.tileLevel, oldTerrain);
    if (!isSameLayout(layout, *plan_))
        throw NBX::InputException(L"does not fit the raster; make it anew", path_);
    NBX::AtomicFileWriter writer(path);
    TerrainPartHeader header = TerrainPartHeader::of(share.part, share.parts);
    header.plan = plan_->id();
    header.options = plan_->options;
    header.origin = plan_->origin;
    TerrainPartWriter part(header, writer.file());
    HeightLevels levels = plan_->levels(new NBX::File(path_));
    const TileRows rows = plan_->rows();
    TileThreads workers(threads);
    NBX::Progress progress("creating terrain LOD");
    TileMaker maker({*layout.source, levels, layout.old.get(), plan_->scale(), plan_->sourceDepth}, rows,
                    workers);
    const std::uint32_t first = plan_->firstRowOf(share.part, share.parts);
    const std::uint32_t end = plan_->firstRowOf(share.part + 1, share.parts);
    if (!maker.make(first, end - first, part, progress)) return false;
    check(!stamp || stamp() == stamped);
    part.finish();
    progress.finish();
    writer.commit();
    return true;
}

bool GridTerrainPlan::join(const std::vector<std::string> & paths, const std::string & path,
                           unsigned threads) const {
    const std::vector<TerrainPart> parts = openParts(paths, *plan_);
    const TileRows rows = plan_->rows();
    const auto countOf = [&](const TerrainPart & part) {
        const TerrainPartHeader & header = part.header();
        return plan_->firstRowOf(header.part + 1, header.parts) -
               plan_->firstRowOf(header.part, header.parts);
    };
    for (const TerrainPart & part : parts)
        part.checkRoom(rows, countOf(part));
    const GridTerrainCreation how = creationOf(*plan_, threads);
    TerrainOutput output(path, how);
    TileThreads workers(threads);
    TileAssembly assembly(rows, workers, output.begin(plan_->header));
    NBX::Progress progress("joining the parts", rows.rows(0).count());
    std::uint32_t done = 0;
    for (const TerrainPart & part : parts) {
        const std::uint32_t first = plan_->firstRowOf(part.header().part, part.header().parts);
        const std::uint32_t count = countOf(part);
        if (!part.deliver(rows, first, count, assembly,
                          [&](std::uint32_t finished) { return progress.update(done + finished); }))
            return false;
        done += count;
    }
    progress.finish();
    try {
        output.end(assembly);
    } catch (const CreationCancelled &) {
        return false;
    }
    output.commit();
    return true;
}

} // namespace ZMT::CORE::GRID
