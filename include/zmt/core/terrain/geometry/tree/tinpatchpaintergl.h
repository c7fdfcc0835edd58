#pragma once

#include <zmt/core/terrain/geometry/base/geometrypatchpaintergl.h>

namespace ZMT::CORE {

/// Draws a triangulated patch from buffers, which are made on first use and kept with the patch.
class TinPatchPainterGL : public GeometryPatchPainterGL {
    NBX_CLASS(TinPatchPainterGL, GeometryPatchPainterGL)
public:
    NBX::ID target() const override;
    void renderPatch(NBX::EngineGL * engine, const GeometryPatch * patch) override;
    void renderOuterWall(NBX::EngineGL * engine, const GeometryPatch * patch) override;
    bool shouldUseDisplayLists() const override { return false; }
};

} // namespace ZMT::CORE
