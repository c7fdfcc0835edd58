// A tile is refined when one of its samples, or a texel on it, shows too large, and all of its children are
// there. Otherwise it is drawn itself, in the place of all of them, so that no hole opens and no two tiles
// overlap while they arrive.

#include "gridterrainselection.h"

#include <algorithm>
#include <cmath>

#include <nbx/object/errorhandler.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintilevertexbuffer.h>

#include "core/terrain/geometry/view/terrainpaintinggl.h"
#include "gridterrainframe.h"

namespace ZMT::CORE::GRID {

namespace {

constexpr int s_inside = 1;
constexpr int s_outside = -1;
constexpr std::array s_neighbors = {GridTerrainTile::NI_LowX, GridTerrainTile::NI_LowY,
                                    GridTerrainTile::NI_HighX, GridTerrainTile::NI_HighY};

/// Draped triangles that rise above the ground are in view together with their tile.
NBX::Bounds withDraped(const NBX::Bounds & box, const std::vector<NBX::Bounds> & drapedBoxes) {
    NBX::Bounds result = box;
    for (const NBX::Bounds & draped : drapedBoxes)
        if (draped.intersects(box))
            result += GridTerrainFrame::Point(box.getURB().x, box.getURB().y, draped.getURB().z);
    return result;
}

constexpr bool isAlongY(GridTerrainTile::NeighborIndex index) {
    return index == GridTerrainTile::NI_LowY || index == GridTerrainTile::NI_HighY;
}

constexpr bool isHigh(GridTerrainTile::NeighborIndex index) {
    return index == GridTerrainTile::NI_HighX || index == GridTerrainTile::NI_HighY;
}

/// The bit of a child's number that says on which side of a parent it lies.
constexpr unsigned halfBit(GridTerrainTile::NeighborIndex index) {
    return isAlongY(index) ? 2 : 1;
}

/// Whether `tile` lies at that border of the tile whose heights it shows.
bool reachesBorder(const NBX::SO<GridTerrainTile> & tile, GridTerrainTile::NeighborIndex index) {
    if (tile->level() == tile->detailLevel()) return true;
    const NBX::SO<GridTerrainTile> parent = tile->parent();
    if (!parent) return true;
    const bool isInHighHalf = (parent->childIndex(tile) & halfBit(index)) != 0;
    return isInHighHalf == isHigh(index) && reachesBorder(parent, index);
}

/// With what closes the borders of the tile, or of tiles below it, towards coarser ones outside.
NBX::Bounds withBorders(const NBX::SO<GridTerrainTile> & tile) {
    NBX::Bounds box = tile->gridBoundingBox();
    const NBX::SO<GridTerrainTileVertexBuffer> vertices = tile->vertexBuffer();
    for (const auto index : s_neighbors)
        if (vertices && reachesBorder(tile, index)) box += vertices->borderBox(index);
    return box;
}

bool isReady(GridTerrainTile & tile) {
    return tile.tileData() && tile.vertexBuffer();
}

/// What is seen most comes first, and among that the coarsest. Levels are negative below the finest heights
/// and may be large, so that nothing is shifted here.
double priorityOf(const GridTerrainTile & tile) {
    return std::ldexp(static_cast<double>(tile.visibleFragments()), tile.level());
}

} // namespace

void GridTerrainSelection::run() {
    select(frame_.root, 0);
    setNeighbors(frame_.root);
}

/// `clip` is what was found of the parent.
void GridTerrainSelection::select(const Tile & tile, int clip) {
    if (clip != s_inside)
        clip = frame_.viewInfo->cull(withDraped(tile->gridBoundingBox(), frame_.drapedBoxes));
    if (clip == s_outside) {
        // Its borders may be in view all the same, whatever level closes them.
        if (frame_.viewInfo->cull(withBorders(tile)) != s_outside)
            choose(tile);
        else
            tile->frameState(GridTerrainTile::FS_Culled);
        return;
    }
    if (tile->hasChildren(false) && isToBeRefined(*tile) && refine(*tile, clip)) return;
    choose(tile);
}

bool GridTerrainSelection::isToBeRefined(const GridTerrainTile & tile) const {
    const TerrainPaintingGL & painting = frame_.painting;
    return tile.shouldBeRefined(frame_.viewInfo.get(), painting.viewportWidth(), painting.viewportHeight(),
                                frame_.geometryError) ||
           frame_.wantsTextureDetail(tile);
}

/// False when the tile has to stand in for its children. In a picture that waits, that is so when one of
/// them cannot be read: a hole would be worse.
bool GridTerrainSelection::refine(GridTerrainTile & tile, int clip) {
    Children children;
    for (unsigned i = 0; i < 4; ++i)
        children[i] = tile.child(i, false);
    if (std::none_of(children.begin(), children.end(), [](const Tile & child) { return bool(child); }))
        return false;
    const std::size_t missingBefore = frame_.missing.size();
    request(tile, children);
    if (frame_.missing.size() > missingBefore) {
        frame_.painting.setIncomplete();
        return false;
    }
    tile.frameState(GridTerrainTile::FS_Refined);
    for (const Tile & child : children)
        if (child) select(child, clip);
    return true;
}

/// Notes the children that are missing.
void GridTerrainSelection::request(const GridTerrainTile & tile, const Children & children) {
    const double priority = priorityOf(tile);
    Children missing;
    unsigned count = 0;
    for (const Tile & child : children)
        if (child && !isReady(*child)) {
            child->requestTileData(priority, false, nullptr);
            missing[count++] = child;
        }
    for (unsigned i = 0; i < count; ++i) {
        if (frame_.isBlocking) missing[i]->requestTileData(priority, true, nullptr);
        if (!frame_.isBlocking || !isReady(*missing[i])) frame_.missing.push_back(missing[i].get());
    }
}

void GridTerrainSelection::choose(const Tile & tile) {
    if (!tile->vertexBuffer()) {
        if (tile->parent()) NBX_REPORT(2, L"!tile->parent()", L"no vertex buffer loaded for non-root tile");
        tile->requestTileData(AsyncFile::topPriority, true, nullptr);
    }
    const TerrainPaintingGL & painting = frame_.painting;
    const GridTerrainFrame::Point eye = tile->gridBoundingBox().nearestPoint(frame_.nearPoint);
    for (const auto & effect : frame_.geometryEffects)
        effect->touch(tile.get(), frame_.viewInfo.get(), painting.viewportWidth(), painting.viewportHeight(),
                      eye);
    tile->frameState(GridTerrainTile::FS_Drawn);
    frame_.chosen.push_back(tile.get());
    frame_.statistics.minLevel = std::min(frame_.statistics.minLevel, tile->level());
    frame_.statistics.maxLevel = std::max(frame_.statistics.maxLevel, tile->level());
    TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches() += tile->visBoundingBox();
}

/// A chosen tile knows what is drawn beside it no finer than itself: finer ones close their borders
/// themselves. It also knows what has coarser heights and is not drawn as such. That may be refined: a part
/// of a coarse tile is cut smaller for its textures, and shows the same heights. Or it is out of view, while
/// what closes the border towards it is not.
void GridTerrainSelection::setNeighbors(const Tile & tile) {
    if (tile->frameState() == GridTerrainTile::FS_Refined)
        for (unsigned i = 0; i < 4; ++i)
            if (const Tile child = tile->child(i, false)) setNeighbors(child);
    if (tile->frameState() != GridTerrainTile::FS_Drawn) return;
    for (const auto index : s_neighbors) {
        Tile neighbor = findNeighbor(tile, index);
        const bool counts = neighbor && (neighbor->frameState() == GridTerrainTile::FS_Drawn ||
                                         neighbor->detailLevel() > tile->detailLevel());
        tile->neighbor(index, counts ? neighbor : nullptr);
    }
}

NBX::SO<GridTerrainTile> GridTerrainSelection::findNeighbor(const Tile & tile,
                                                            GridTerrainTile::NeighborIndex index) {
    const Tile parent = tile->parent();
    if (!parent) return nullptr;
    const unsigned child = parent->childIndex(tile);
    const unsigned half = halfBit(index);
    // The same child number serves a sibling and the child of a neighbour: it lies in the other half.
    if (((child & half) != 0) != isHigh(index)) return parent->child(child ^ half, false);
    const Tile beside = findNeighbor(parent, index);
    if (beside && beside->frameState() == GridTerrainTile::FS_Refined)
        return beside->child(child ^ half, false);
    return beside;
}

} // namespace ZMT::CORE::GRID
