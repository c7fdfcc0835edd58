#pragma once

#include <nbx/math/bounds.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/polyattribute.h>

namespace NBX {
class SceneNode;
}

namespace ZMT::CORE {

/// Triangles that are given the textures of the terrain beneath them. All coordinates are those of the
/// terrain's patches.
class TerrainTexturedGeometry : public NBX::PolyAttribute {
    NBX_CLASS(TerrainTexturedGeometry, NBX::PolyAttribute)
public:
    /// The name of this class for all subclasses.
    NBX::ID category() const override;

    /// The part of the triangles inside `box`; null when there is none.
    virtual NBX::SO<NBX::SceneNode> geometry(const NBX::Bounds & box) const = 0;
    virtual NBX::Bounds boundingBox() const = 0;

protected:
    TerrainTexturedGeometry() : NBX::PolyAttribute(true) {}
};

} // namespace ZMT::CORE
