// Depth comes first, so that textures are fetched for visible fragments alone. What is seen of a tile then
// orders the loading of the next picture, and what is hidden gets no colours. Draped triangles have depths of
// their own and coordinates of the map: they are drawn between the tiles, outside of the tiles' state.

#include "gridterrainpassesgl.h"

#include <algorithm>
#include <limits>
#include <unordered_map>

#include <GL/gl.h>

#include <nbx/engine/modelmatrixscope.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/gl/state/occlusionquerygl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/node/scenething.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintilevertexbuffer.h>

#include "core/terrain/frame/terraintexgen.h"
#include "core/terrain/geometry/view/terrainpaintinggl.h"
#include "geometrytilebaghackgl.h"
#include "gridterrainframe.h"

namespace ZMT::CORE::GRID {

namespace {

using NBX::AttributeScope;
using NBX::SO;

/// What a tile counts for that was not measured: it is taken as quite visible.
constexpr std::uint64_t s_unmeasured = 1024;

// The attributes of all terrains, made when the library loads and never changed.

const SO<NBX::ColorBufferGL> undefinedAlphaTest(NBX::ColorBufferGL::newAlphaTest(true, GL_EQUAL, 1.0));
const SO<NBX::ColorBufferGL> colorLock(NBX::ColorBufferGL::newLock(false, false, false, false));
/// The range stays that of the scene, by which the depths were drawn.
const SO<NBX::DepthBufferGL> depthEqual(new NBX::DepthBufferGL(NBX::DepthBufferGL::O_Test |
                                                                   NBX::DepthBufferGL::O_Write |
                                                                   NBX::DepthBufferGL::O_Function,
                                                               false, true, GL_EQUAL, 0.0, 1.0));

using Queries = std::vector<SO<NBX::OcclusionQueryGL>>;

/// Those that count nothing at present. They belong to the engine of the settings.
Queries & queryPool() {
    static Queries pool;
    return pool;
}

/// Those of the running depth pass.
std::unordered_map<const GridTerrainTile *, SO<NBX::OcclusionQueryGL>> & tileQueries() {
    static std::unordered_map<const GridTerrainTile *, SO<NBX::OcclusionQueryGL>> queries;
    return queries;
}

SO<NBX::OcclusionQueryGL> takeQuery(NBX::Engine * engine) {
    Queries & pool = queryPool();
    NBX::WO<NBX::Engine> & poolEngine = TerrainPainterGLSettings::engineForOcclusionQueryPool();
    if (poolEngine.lock().get() != engine) {
        pool.clear();
        poolEngine = engine;
    }
    if (pool.empty()) return new NBX::OcclusionQueryGL(1);
    SO<NBX::OcclusionQueryGL> query = pool.back();
    pool.pop_back();
    return query;
}

/// The count is not waited for.
std::uint64_t countedFragments(const GridTerrainTile & tile) {
    const auto found = tileQueries().find(&tile);
    if (found == tileQueries().end()) return s_unmeasured;
    const SO<NBX::OcclusionQueryGL> query = found->second;
    tileQueries().erase(found);
    queryPool().push_back(query);
    return query->isAvailable() ? query->fragmentCount() : s_unmeasured;
}

} // namespace

/// The colours of the vertices leave no current colour that is defined.
void GridTerrainPassesGL::paintDepth() {
    tileQueries().clear(); // of a pass that threw before they were read
    const AttributeScope lock(frame_.painting.engine(), colorLock.get());
    glPushAttrib(GL_CURRENT_BIT);
    frame_.terrain->preRender(frame_.painting.engineGL(), true);
    drawDepth(frame_.root);
    frame_.terrain->postRender(frame_.painting.engineGL(), true);
    glPopAttrib();
}

void GridTerrainPassesGL::drawDepth(const Tile & tile) {
    if (tile->frameState() == GridTerrainTile::FS_Refined)
        for (const Tile & child : tile->distanceSortedChildren(frame_.nearPoint))
            drawDepth(child);
    if (tile->frameState() != GridTerrainTile::FS_Drawn) return;
    if (!tile->vertexBuffer()) {
        NBX_FAILURE(L"tile vertex data not loaded");
        return;
    }
    NBX::Engine * engine = frame_.painting.engine();
    const AttributeScope alphaTest(engine, tile->hasUndefValues() ? undefinedAlphaTest.get() : nullptr);
    SO<NBX::OcclusionQueryGL> query;
    if (frame_.countsFragments && !frame_.isBlocking) query = tileQueries()[tile.get()] = takeQuery(engine);
    const AttributeScope counting(engine, query.get());
    const unsigned triangles = tile->renderGeometry(frame_.painting.engineGL(), true);
    frame_.drawn.emplace_back(tile.get(), triangles);
    frame_.statistics.trianglesDrawn += triangles;
}

void GridTerrainPassesGL::readQueries() {
    readQueries(frame_.root);
}

/// A tile under draped triangles counts more than what is seen of it, since these may be seen.
std::uint64_t GridTerrainPassesGL::readQueries(const Tile & tile) {
    std::uint64_t count = 0;
    if (tile->frameState() == GridTerrainTile::FS_Refined) {
        for (unsigned i = 0; i < 4; ++i)
            if (const Tile child = tile->child(i, false)) count += readQueries(child);
    } else if (tile->frameState() == GridTerrainTile::FS_Drawn)
        count = countedFragments(*tile);
    if (frame_.meetsDrapedBox(tile->gridBoundingBox())) count = count * 2 + 1;
    count = std::min<std::uint64_t>(count, std::numeric_limits<std::uint32_t>::max());
    tile->visibleFragments(static_cast<std::uint32_t>(count));
    if (count == 0 && tile->frameState() != GridTerrainTile::FS_Culled)
        tile->frameState(GridTerrainTile::FS_Occluded);
    return count;
}

void GridTerrainPassesGL::openColorBracket() const {
    frame_.painting.engine()->push(depthEqual.get());
    frame_.terrain->preRender(frame_.painting.engineGL(), false);
}

void GridTerrainPassesGL::closeColorBracket() const {
    frame_.terrain->postRender(frame_.painting.engineGL(), false);
    frame_.painting.engine()->pop(depthEqual.get());
}

void GridTerrainPassesGL::paintColor() {
    openColorBracket();
    collect(frame_.root);
    closeColorBracket();
}

/// Goes down to where the textures are fine enough, or cannot become finer because the tile stands in for
/// children that are missing.
void GridTerrainPassesGL::collect(const Tile & tile) {
    const bool isRefined = tile->frameState() == GridTerrainTile::FS_Refined;
    if (!isRefined && tile->frameState() != GridTerrainTile::FS_Drawn) return;
    if (isRefined && frame_.wantsTextureDetail(*tile)) {
        for (const Tile & child : tile->distanceSortedChildren(frame_.nearPoint))
            collect(child);
        return;
    }
    const SO<GeometryTileBagHACK> bag(
        new GeometryTileBagHACK(frame_.terrain, frame_.alphaTest, frame_.statistics.trianglesDrawn));
    fill(*bag, tile);
    if (!bag->tiles().empty() || !frame_.drapedBoxes.empty()) paintBag(*tile, bag);
}

void GridTerrainPassesGL::fill(GeometryTileBagHACK & bag, const Tile & tile) const {
    if (tile->frameState() == GridTerrainTile::FS_Refined)
        for (const Tile & child : tile->distanceSortedChildren(frame_.nearPoint))
            fill(bag, child);
    if (tile->frameState() == GridTerrainTile::FS_Drawn) bag.append(tile);
}

void GridTerrainPassesGL::paintBag(GridTerrainTile & tile, const SO<GeometryTileBagHACK> & bag) {
    const SO<GeometryPatch> patch = tile.geometryPatchHACK(frame_.terrain);
    const SO<NBX::SceneThing> thing(new NBX::SceneThing);
    frame_.painting.appendEffects(*thing, *patch, tile.visibleFragments(),
                                  patch->boundingBox().nearestPoint(frame_.painting.nearPoint()));
    if (frame_.isRenderingEnabled) {
        thing->append(bag.get());
        thing->evaluate(frame_.painting.engine());
        frame_.statistics.tilesDrawn += static_cast<unsigned>(bag->tiles().size());
    }
    if (frame_.meetsDrapedBox(tile.gridBoundingBox())) paintDraped(*thing, bag, tile);
}

/// Under the same textures as the tiles of `bag`, which stands in `thing`, in the frame of the terrain and
/// with depths that are tested as the scene says.
void GridTerrainPassesGL::paintDraped(NBX::SceneThing & thing, const SO<GeometryTileBagHACK> & bag,
                                      const GridTerrainTile & tile) {
    thing.remove(bag.get());
    if (!frame_.painting.appendTexturedGeometries(thing, tile.visBoundingBox())) return;
    NBX::Engine * engine = frame_.painting.engine();
    closeColorBracket();
    {
        const NBX::ModelMatrixScope frame(engine, frame_.terrain->vis2gridTf());
        const AttributeScope texGen(engine, terrainTexGen().get());
        thing.evaluate(engine);
    }
    openColorBracket();
}

} // namespace ZMT::CORE::GRID
