#pragma once

#include <nbx/math/vector3base.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {
class ViewInfo;
}

namespace ZMT::CORE {

namespace GRID {
class GridTerrainTile;
}

/// Base of what changes how the geometry of a terrain is painted, or looks on; all subclasses share one
/// stack.
class TerrainGeometryEffect : public NBX::MonoAttribute {
    NBX_CLASS(TerrainGeometryEffect, NBX::MonoAttribute)
public:
    /// The name of this class for all subclasses.
    NBX::ID category() const override;

    /// Called by the painter of streaming terrains for each tile that it has chosen, before anything is
    /// drawn. `viewInfo` and `eye`, the point of the tile's box that is nearest to the viewer, are in grid
    /// space. Does nothing here.
    virtual void touch(GRID::GridTerrainTile * tile, const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                       unsigned viewportHeight, const NBX::Vector3Base<double> & eye) const;

protected:
    TerrainGeometryEffect() : NBX::MonoAttribute(true) {}
};

} // namespace ZMT::CORE
