// All but light maps and draped triangles is passed on to the geometry data, so that kinds of terrain
// override what they know better. Light maps are drawn with the scene's origin at the terrain's, where
// patches and scene coordinates agree.

#include <zmt/core/terrain/geometry/view/terrain.h>

#include "core/terrain/geometry/draped/createtexturedtriangles.h"
#include "terrainlightmap.h"
#include <nbx/object/serializationmanager.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/localframe.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/draped/terraintexturedgeometry.h>
#include <zmt/core/terrain/texture/terraintexture.h>

namespace ZMT::CORE {

Terrain::Terrain() : NBX::Shape(true) {}

Terrain::Terrain(GeometryData * data, GeometryPatch * root) : NBX::Shape(true), data_(data), root_(root) {}

Terrain::~Terrain() = default;

NBX::Bounds Terrain::boundingBox() const {
    const NBX::SO<GeometryData> geometry = data();
    const NBX::Bounds localBox = geometry ? geometry->boundingBox() : NBX::Bounds();
    return localBox.isDefined() ? LocalFrame(origin()).toScene(localBox) : localBox;
}

NBX::SO<GeometryData> Terrain::data() const {
    return data_;
}

NBX::SO<GeometryPatch> Terrain::root() const {
    return root_;
}

Terrain::Point Terrain::origin() const {
    return data()->origin();
}

double Terrain::calculateHeight(const Point & p, bool) const {
    return data()->calculateHeight(p);
}

bool Terrain::hasUndefinedHeight(const Point & p, bool) const {
    return data()->hasUndefinedHeight(p);
}

bool Terrain::isUndefinedHeightValue(double height) const {
    return data()->isUndefinedHeightValue(height);
}

std::pair<double, double> Terrain::getCellSize() const {
    return data()->getCellSize();
}

bool Terrain::resampleRasterData(RASTER::SimpleRasterData<float> * target) const {
    return data()->resampleRasterData(target);
}

NBX::SO<NBX::PolygonSet> Terrain::extractMesh(const NBX::Bounds & box, NBX::Progress * progress) const {
    return data()->extractMesh(box, progress);
}

NBX::SO<TerrainTexture> Terrain::createStaticLightMap(double shade, const Point & direction) {
    return TerrainLightMap::createStatic(*this, shade, direction);
}

NBX::SO<TerrainTexture> Terrain::createDynamicLightMap() {
    return TerrainLightMap::createDynamic(*this);
}

NBX::SO<TerrainTexturedGeometry>
Terrain::createTerrainTexturedTriangles(const std::vector<NBX::SO<NBX::PolygonSet>> & sets) {
    const NBX::SO<NBX::PolygonSet> merged = CreateTexturedTriangles::merged(sets);
    return merged ? createTerrainTexturedTriangles(merged) : nullptr;
}

NBX::SO<TerrainTexturedGeometry> Terrain::createTerrainTexturedTriangles(NBX::SO<NBX::PolygonSet> set) {
    return CreateTexturedTriangles::create(set);
}

void Terrain::acceptChildren(std::vector<NBX::Visitable *> & children) const {
    NBX::Shape::acceptChildren(children);
    children.push_back(data_.get());
    children.push_back(root_.get());
}

void Terrain::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<NBX::Shape>(m, this);
    m.attribute("data", data_);
    m.attribute("root", root_);
}

NBX_STORED_CLASS_IMPL(Terrain, NBX::Shape)

} // namespace ZMT::CORE
