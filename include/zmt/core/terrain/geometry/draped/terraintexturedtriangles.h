#pragma once

#include <nbx/math/vector3base.h>
#include <zmt/core/terrain/geometry/draped/terraintexturedgeometry.h>

namespace NBX {
class PrimitiveQuadTreeGL;
}

namespace ZMT::CORE {

/// Triangles over a terrain, such as footprints and roads, that are drawn with the textures of the terrain
/// beneath them, each patch's part under the textures of the patch.
///
/// `Terrain::createTerrainTexturedTriangles` makes them of polygon sets in geo coordinates.
class TerrainTexturedTriangles : public TerrainTexturedGeometry {
    NBX_STORED_CLASS(TerrainTexturedTriangles, TerrainTexturedGeometry)
public:
    using Point = NBX::Vector3Base<double>;

    /// `tree` is in coordinates of the terrain's patches, winds clockwise as seen from above, and may be
    /// null.
    TerrainTexturedTriangles(const NBX::SO<NBX::PrimitiveQuadTreeGL> & tree, const Point & offset);
    ~TerrainTexturedTriangles() override;

    void setPrimitiveQuadTree(const NBX::SO<NBX::PrimitiveQuadTreeGL> & tree);
    NBX::SO<NBX::PrimitiveQuadTreeGL> primitiveQuadTree() const;
    /// By how much the triangles are moved when they are drawn. They are cut and textured as if they were
    /// not.
    void setOffset(const Point & offset);
    Point getOffset() const { return offset_; }

    /// Draws what lies inside the rectangle of `box` in x and z. Null when the rectangle of all triangles
    /// only touches it.
    NBX::SO<NBX::SceneNode> geometry(const NBX::Bounds & box) const override;
    /// Without the offset; undefined without a tree.
    NBX::Bounds boundingBox() const override;

    void acceptChildren(std::vector<NBX::Visitable *> & children) const override;
    /// Attributes "tree" (default null) and "offset" (zero).
    void serialize(NBX::SerializationManager & m) override;

protected:
    TerrainTexturedTriangles();

private:
    NBX::SO<NBX::PrimitiveQuadTreeGL> tree_;
    Point offset_;
};

} // namespace ZMT::CORE
