#pragma once

#include <utility>
#include <vector>

#include <nbx/object/so.h>
#include <nbx/scene/shape/shape.h>

namespace NBX {
class PolygonSet;
class Progress;
} // namespace NBX

namespace ZMT::RASTER {
template <class T> class SimpleRasterData;
}

namespace ZMT::CORE {

class GeometryData;
class GeometryPatch;
class TerrainTexturedGeometry;
class TerrainTexture;

/// What an application puts into a scene to show a landscape: the geometry of the whole area, and the root
/// of a tree of levels of detail over it. Draws nothing itself; the engine finds the painter by its class.
///
/// Both parts may be shared by several terrains. `boundingBox()` is in scene coordinates, height queries
/// take geo coordinates. The flag that tells height queries to look at loaded data alone is heeded by
/// terrains that stream. A terrain that was read without its parts is drawn as nothing and has an undefined
/// box; what else asks the data needs them.
class Terrain : public NBX::Shape {
    NBX_STORED_CLASS(Terrain, NBX::Shape)
public:
    using Point = NBX::Vector3Base<double>;

    Terrain(GeometryData * data, GeometryPatch * root);
    ~Terrain() override;

    NBX::Bounds boundingBox() const override;

    virtual NBX::SO<GeometryData> data() const;
    virtual NBX::SO<GeometryPatch> root() const;
    /// The shift from local to geo coordinates.
    virtual Point origin() const;
    virtual double calculateHeight(const Point & p, bool loadedOnly) const;
    virtual bool hasUndefinedHeight(const Point & p, bool loadedOnly) const;
    virtual bool isUndefinedHeightValue(double height) const;
    virtual std::pair<double, double> getCellSize() const;
    virtual bool resampleRasterData(RASTER::SimpleRasterData<float> * target) const;
    virtual NBX::SO<NBX::PolygonSet> extractMesh(const NBX::Bounds & box, NBX::Progress * progress) const;
    /// The light that falls on the ground, to be modulated with what shows there. `direction` leads to the
    /// light, which counts as if its height were divided by 2.5. The larger `shade`, from 0 to 1, the darker
    /// the whole picture. One pixel for each vertex of a grid; 2100 by 2100 of other data. Render thread.
    virtual NBX::SO<TerrainTexture> createStaticLightMap(double shade, const Point & direction);
    /// The normals of the ground, for light that is computed while drawing: each component, from -1 to 1, as
    /// a colour from 0 to 1. The size is as above. Render thread.
    virtual NBX::SO<TerrainTexture> createDynamicLightMap();

    /// Triangles that take the textures of the terrain, made of all the sets together as by the operation
    /// below. The sets given are changed: they lose their normals, their colours and the texture coordinates
    /// of unit 0. Null when there are no triangles.
    virtual NBX::SO<TerrainTexturedGeometry>
    createTerrainTexturedTriangles(const std::vector<NBX::SO<NBX::PolygonSet>> & sets);
    /// The triangles lie where the set has them, in geo coordinates and with its heights; they show where
    /// they wind counter-clockwise as seen in the picture. Null for null.
    virtual NBX::SO<TerrainTexturedGeometry> createTerrainTexturedTriangles(NBX::SO<NBX::PolygonSet> set);

    void acceptChildren(std::vector<NBX::Visitable *> & children) const override;
    void serialize(NBX::SerializationManager & m) override;

protected:
    /// Null data and root, for subclasses and for reading.
    Terrain();

private:
    NBX::SO<GeometryData> data_;
    NBX::SO<GeometryPatch> root_;
};

} // namespace ZMT::CORE
