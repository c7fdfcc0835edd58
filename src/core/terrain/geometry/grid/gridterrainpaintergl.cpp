// One picture: the tiles are chosen and learn their neighbours, then they are drawn twice. The effects are
// asked in the frame in which the terrain stands, all else is done in grid space, whose numbers are small.

#include <zmt/core/terrain/geometry/grid/gridterrainpaintergl.h>

#include <algorithm>
#include <unordered_set>

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/engine/modelmatrixscope.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/scene/attribute/facestyle.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintilevertexbuffer.h>

#include "core/terrain/frame/terraintexgen.h"
#include "core/terrain/geometry/view/terrainpaintinggl.h"
#include "gridterrainframe.h"
#include "gridterrainpassesgl.h"
#include "gridterrainselection.h"

namespace ZMT::CORE::GRID {

NBX_CLASS_IMPL(GridTerrainPainterGL, NBX::ShapePainter)

namespace {

/// In pixels. Finer than that nothing is to be seen.
constexpr double s_smallestError = 1.0;

// Made when the library loads and never changed. The light of the ground is in its textures.

const NBX::SO<NBX::LightModelGL> noLighting(new NBX::LightModelGL(0));
const NBX::SO<NBX::FaceStyle> faceStyle(new NBX::FaceStyle(2, 2, 0));

/// What was painted since the last reset. A picture may be painted several times, with edges above a hidden
/// surface or in parts, and its tiles count once.
class Tally {
public:
    void add(const GridTerrainFrame & frame) {
        sum_.add(frame.statistics);
        for (const GridTerrainTile * tile : frame.chosen)
            sum_.tilesCounted += chosen_.insert(tile).second ? 1 : 0;
        for (const GridTerrainTile * tile : frame.missing)
            sum_.missingTiles += missing_.insert(tile).second ? 1 : 0;
        for (const auto & [tile, triangles] : frame.drawn)
            sum_.triangles += drawn_.insert(tile).second ? triangles : 0;
    }
    const GridTerrainPainterGL::Statistics & sum() const { return sum_; }

private:
    using Tiles = std::unordered_set<const GridTerrainTile *>; ///< some may have gone

    GridTerrainPainterGL::Statistics sum_;
    Tiles chosen_, missing_, drawn_;
};

Tally & tallySoFar() {
    static Tally tally;
    return tally;
}

std::uint64_t nextFrameNumber() {
    static std::uint64_t last = 0;
    return ++last;
}

/// The scene's alpha test, unless another attribute hides it; null without one.
NBX::SO<NBX::ColorBufferGL> alphaTestOf(const NBX::Engine & engine) {
    const auto * stack = engine.monoTable(NBX::ColorBufferGL::ClassNameNBX());
    for (unsigned i = stack ? stack->size() : 0; i > 0; --i) {
        auto entry = NBX::soCast<NBX::ColorBufferGL>(stack->get(i - 1));
        if (!entry) continue;
        if (entry->operations() & NBX::ColorBufferGL::O_All) return nullptr;
        if (entry->operations() & NBX::ColorBufferGL::O_AlphaTest) return entry;
    }
    return nullptr;
}

std::vector<NBX::SO<TerrainGeometryEffect>> geometryEffectsOf(const NBX::Engine & engine) {
    std::vector<NBX::SO<TerrainGeometryEffect>> effects;
    const auto * stack = engine.monoTable(TerrainGeometryEffect::ClassNameNBX());
    for (unsigned i = stack ? stack->size() : 0; i > 0; --i)
        if (auto effect = NBX::soCast<TerrainGeometryEffect>(stack->get(i - 1))) effects.push_back(effect);
    return effects;
}

/// In grid space and down to its height 0, so that they meet the ground that they lie above.
std::vector<NBX::Bounds> drapedBoxesOf(const TerrainPaintingGL & painting, const GridTerrain & terrain) {
    std::vector<NBX::Bounds> boxes;
    for (const auto & geometry : painting.texturedGeometries()) {
        if (!geometry->boundingBox().isDefined()) continue;
        NBX::Bounds box = geometry->boundingBox().transform(terrain.vis2gridTf());
        box += GridTerrainFrame::Point(box.getLLF().x, box.getLLF().y, 0.0);
        boxes.push_back(box);
    }
    return boxes;
}

/// A picture that must be complete at once is also as fine as can be seen.
GridTerrainFrame newFrame(TerrainPaintingGL & painting, const NBX::SO<GridTerrain> & terrain) {
    GridTerrainFrame frame{painting, terrain, terrain->rootTile()};
    frame.isBlocking = !painting.isAsynchronous();
    if (frame.isBlocking) painting.setStill();
    const auto allowed = [&](double error) {
        return frame.isBlocking ? s_smallestError : std::max(error, s_smallestError);
    };
    frame.geometryError = allowed(TerrainPainterGLSettings::getGeometryError());
    painting.setTextureError(allowed(TerrainPainterGLSettings::getTextureError()));
    frame.isRenderingEnabled = TerrainPainterGLSettings::renderingEnabled();
    frame.countsFragments = TerrainPainterGLSettings::occlusionQueriesEnabled();
    frame.alphaTest = alphaTestOf(*painting.engine());
    frame.geometryEffects = geometryEffectsOf(*painting.engine());
    frame.drapedBoxes = drapedBoxesOf(painting, *terrain);
    return frame;
}

/// The root stands in for everything, so that it is used in every picture: first, so that it is not dropped
/// while the picture is drawn, and last, so that it is the last to be dropped behind it.
void touchRoot(const GridTerrainFrame & frame) {
    if (frame.root->tileData()) frame.root->vertexBuffer();
}

void paintTiles(GridTerrainFrame & frame) {
    touchRoot(frame);
    GridTerrainSelection(frame).run();
    GridTerrainPassesGL passes(frame);
    if (frame.isRenderingEnabled) passes.paintDepth();
    passes.readQueries();
    passes.paintColor();
    touchRoot(frame);
}

void beginFrame(const TerrainPainterFrameManager::Info & info) {
    TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches() = NBX::Bounds();
    TerrainPainterFrameManager::CallBeginFrameCallbacks(info);
    NBX::MainMemoryManager::instance()->beginFrame();
    NBX::GraphicsMemoryManager::instance()->beginFrame();
}

void endFrame(const TerrainPainterFrameManager::Info & info) {
    NBX::GraphicsMemoryManager::instance()->endFrame();
    NBX::MainMemoryManager::instance()->endFrame();
    TerrainPainterFrameManager::CallEndFrameCallbacks(info);
}

/// Between the callbacks of the frame, in grid space. Who has begun the frame ends it, also where a tile or
/// an effect throws: caches are cut to their budgets there.
void paintFrame(GridTerrainFrame & frame) {
    NBX::Engine * engine = frame.painting.engine();
    const NBX::Matrix4x4Base<double> grid2vis = frame.terrain->grid2visTf();
    const NBX::SO<NBX::TexGenGL> texGen(
        new NBX::TexGenGL(NBX::TexGenGL::M_ObjectLinear, terrainTexGen()->getPlanes() * grid2vis));
    const TerrainPainterFrameManager::Info info{engine, frame.painting.isInMotion()};
    {
        const NBX::ModelMatrixScope gridSpace(engine, grid2vis);
        frame.viewInfo = engine->viewInfo();
        frame.nearPoint = TerrainPaintingGL::nearPoint(*frame.viewInfo);
        const NBX::AttributeScope texGenScope(engine, texGen.get());
        const NBX::AttributeScope lighting(engine, noLighting.get());
        const NBX::AttributeScope faces(engine, faceStyle.get());
        frame.statistics.frameNumber = nextFrameNumber();
        beginFrame(info);
        try {
            paintTiles(frame);
        } catch (...) {
            endFrame(info);
            throw;
        }
    }
    frame.painting.postForRedisplay();
    endFrame(info);
}

} // namespace

void GridTerrainPainterGL::Statistics::add(const Statistics & other) {
    paintings += other.paintings;
    frameNumber = std::max(frameNumber, other.frameNumber);
    tilesCounted += other.tilesCounted;
    tilesDrawn += other.tilesDrawn;
    triangles += other.triangles;
    trianglesDrawn += other.trianglesDrawn;
    missingTiles += other.missingTiles;
    isIncomplete = isIncomplete || other.isIncomplete;
    minLevel = std::min(minLevel, other.minLevel);
    maxLevel = std::max(maxLevel, other.maxLevel);
}

const GridTerrainPainterGL::Statistics & GridTerrainPainterGL::statistics() {
    return tallySoFar().sum();
}

void GridTerrainPainterGL::resetStatistics() {
    tallySoFar() = {};
}

NBX::ID GridTerrainPainterGL::target() const {
    return GridTerrain::ClassNameNBX();
}

bool GridTerrainPainterGL::render(NBX::Engine * engine, const NBX::Shape * shape) {
    const NBX::SO<GridTerrain> terrain(dynamic_cast<GridTerrain *>(const_cast<NBX::Shape *>(shape)));
    if (!terrain) return false;
    if (!terrain->rootTile()) return true; // read without its file
    TerrainPaintingGL painting(engine);
    if (painting.isIdle()) return true;
    GridTerrainFrame frame = newFrame(painting, terrain);
    paintFrame(frame);
    frame.statistics.paintings = 1;
    frame.statistics.isIncomplete = painting.isIncomplete();
    tallySoFar().add(frame);
    return true;
}

namespace {

[[maybe_unused]] const bool hasTexGen = (terrainTexGen(), true);

} // namespace

NBX_REGISTER_HANDLER_GL(GridTerrainPainterGL)

} // namespace ZMT::CORE::GRID
