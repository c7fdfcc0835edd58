#pragma once

#include <nbx/engine/shapepainter.h>

namespace NBX {
class EngineGL;
}

namespace ZMT::CORE {

class GeometryPatch;

/// Draws a patch in one of two ways: with an attribute of the category `outerWallFlag()` the wall along the
/// outer edge of the terrain, else the surface, with skirts that close the gaps to patches of other levels.
class GeometryPatchPainterGL : public NBX::ShapePainter {
    NBX_CLASS(GeometryPatchPainterGL, NBX::ShapePainter)
public:
    /// "RenderOuterWallFlag".
    static const NBX::ID & outerWallFlag();

    bool render(NBX::Engine * engine, const NBX::Shape * shape) override;
    virtual void renderPatch(NBX::EngineGL * engine, const GeometryPatch * patch) = 0;
    virtual void renderOuterWall(NBX::EngineGL * engine, const GeometryPatch * patch) = 0;
    /// Whether the surface may be kept in a display list, where nothing else speaks against it.
    virtual bool shouldUseDisplayLists() const { return true; }
    /// About what a display list of the surface takes of graphics memory.
    virtual unsigned displayListBytes(const GeometryPatch * patch) const;
};

} // namespace ZMT::CORE
