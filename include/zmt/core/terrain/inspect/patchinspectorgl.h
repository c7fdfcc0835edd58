#pragma once

#include <cstdint>

#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/base/geometrypatchpaintergl.h>

namespace ZMT::CORE {

/// Stands in front of a patch painter and shows what it does: notes the patches drawn, and can draw each in a
/// colour of its own, so that the level of detail is seen. Where edges are drawn, it leaves out the outer
/// walls. Registered behind the painter it takes its place.
/// Render thread only.
class PatchInspectorGL : public GeometryPatchPainterGL {
    NBX_CLASS(PatchInspectorGL, GeometryPatchPainterGL)
public:
    /// What was drawn since the last `reset`. A patch drawn in several passes counts once. Tiles of streaming
    /// terrains count as patches, in every picture anew.
    struct Statistics {
        unsigned patches = 0;
        std::uint64_t triangles = 0; ///< of the surfaces, without skirts and walls; tiles with closed borders
        unsigned missingTiles = 0;   ///< of streaming terrains and textures: wanted, but not there
    };

    /// Keeps `painter`. All inspectors of the process share the statistics.
    PatchInspectorGL(GeometryPatchPainterGL * painter, bool colorsPatches);

    /// Registers inspectors for all patch painters of this library. Later calls only change whether they draw
    /// in colours.
    static void registerAll(bool colorsPatches);
    static Statistics statistics();
    static void reset();

    NBX::ID target() const override;
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override;
    void renderPatch(NBX::EngineGL * engine, const GeometryPatch * patch) override;
    void renderOuterWall(NBX::EngineGL * engine, const GeometryPatch * patch) override;

private:
    NBX::SO<GeometryPatchPainterGL> painter_;
    bool colorsPatches_;
};

} // namespace ZMT::CORE
