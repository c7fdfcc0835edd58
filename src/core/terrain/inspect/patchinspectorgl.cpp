#include <zmt/core/terrain/inspect/patchinspectorgl.h>

#include <array>
#include <cmath>
#include <unordered_set>

#include <GL/gl.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/state/polygonmodegl.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/grid/gridterrainpaintergl.h>
#include <zmt/core/terrain/geometry/regular/gridpatchpaintergl.h>
#include <zmt/core/terrain/geometry/tree/tinpatchpaintergl.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>

#include "core/terrain/geometry/chunked/chunkedlodterrainpatchpaintergl.h"

namespace ZMT::CORE {

namespace {

std::unordered_set<const GeometryPatch *> s_drawn;
std::uint64_t s_triangles = 0;

/// A colour that differs from those of the neighbours: its hue turns by the golden ratio with the place of
/// the patch, so that it is the same in every frame and run.
std::array<float, 3> colorOf(const GeometryPatch & patch) {
    const NBX::Bounds box = patch.boundingBox();
    const auto centre = box.center();
    const double turn = std::fmod(std::abs(centre.x * 0.6180339887 + centre.z * 0.7548776662) /
                                      std::max(box.diagonal().x + box.diagonal().z, 1e-9) * 3.7,
                                  1.0);
    std::array<float, 3> color;
    for (unsigned c = 0; c < 3; ++c)
        color[c] = static_cast<float>(0.65 + 0.35 * std::cos(6.283185307 * (turn + c / 3.0)));
    return color;
}

/// Among edges, walls are nothing but a curtain of lines.
bool drawsEdges(const NBX::Engine & engine) {
    const auto * mode =
        dynamic_cast<const NBX::PolygonModeGL *>(engine.getAttribute(NBX::PolygonModeGL::ClassNameNBX()));
    return mode && mode->getMode() == NBX::PolygonModeGL::M_Line;
}

} // namespace

NBX_CLASS_IMPL(PatchInspectorGL, GeometryPatchPainterGL)

PatchInspectorGL::PatchInspectorGL(GeometryPatchPainterGL * painter, bool colorsPatches)
    : painter_(painter), colorsPatches_(colorsPatches) {
    NBX_CHECK(painter, L"no painter");
}

void PatchInspectorGL::registerAll(bool colorsPatches) {
    const auto registered = [](GeometryPatchPainterGL * painter) {
        auto * inspector = new PatchInspectorGL(painter, false);
        NBX::EngineGL::registerHandler(inspector);
        return inspector;
    };
    static const std::array inspectors = {registered(new GridPatchPainterGL),
                                          registered(new TinPatchPainterGL),
                                          registered(newChunkedLodTerrainPatchPainterGL())};
    for (PatchInspectorGL * inspector : inspectors)
        inspector->colorsPatches_ = colorsPatches;
}

PatchInspectorGL::Statistics PatchInspectorGL::statistics() {
    const auto & tiles = GRID::GridTerrainPainterGL::statistics();
    return {static_cast<unsigned>(s_drawn.size()) + tiles.tilesCounted, s_triangles + tiles.triangles,
            tiles.missingTiles + AsyncQuadtreeTerrainTexture::missingTiles()};
}

void PatchInspectorGL::reset() {
    s_drawn.clear();
    s_triangles = 0;
    GRID::GridTerrainPainterGL::resetStatistics();
    AsyncQuadtreeTerrainTexture::resetStatistics();
}

NBX::ID PatchInspectorGL::target() const {
    return painter_->target();
}

bool PatchInspectorGL::render(NBX::Engine * engine, const NBX::Shape * shape) {
    const auto * patch = dynamic_cast<const GeometryPatch *>(shape);
    if (!patch) return painter_->render(engine, shape);
    if (engine->getAttribute(GeometryPatchPainterGL::outerWallFlag()))
        return drawsEdges(*engine) || painter_->render(engine, shape);

    if (colorsPatches_) {
        glPushAttrib(GL_CURRENT_BIT);
        glColor3fv(colorOf(*patch).data());
    }
    const bool painted = painter_->render(engine, shape);
    if (colorsPatches_) glPopAttrib();
    // Some patches make their mesh for it, which they have now.
    if (s_drawn.insert(patch).second) s_triangles += patch->description().triangles;
    return painted;
}

void PatchInspectorGL::renderPatch(NBX::EngineGL * engine, const GeometryPatch * patch) {
    painter_->renderPatch(engine, patch);
}

void PatchInspectorGL::renderOuterWall(NBX::EngineGL * engine, const GeometryPatch * patch) {
    painter_->renderOuterWall(engine, patch);
}

} // namespace ZMT::CORE
