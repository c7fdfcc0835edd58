// All but light maps and draped triangles is passed on to the geometry data, so that kinds of terrain
// override what they know better. Light maps are drawn with the scene's origin at the terrain's, where
// patches and scene coordinates agree.

#include <zmt/core/terrain/geometry/view/terrain.h>

#include <algorithm>
#include <cmath>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/mesh/primitivequadtreegl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/scene/attribute/distantlight.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/shape/polygonsettool.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/draped/terraintexturedtriangles.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/view/createtexture.h>
#include <zmt/core/terrain/texture/terraintexture.h>

namespace ZMT::CORE {

namespace {

/// Of light maps, where the ground is no grid.
constexpr int s_lightMapSize = 2100;
/// The sun of a light map stands lower than it is given, so that gentle slopes show.
constexpr double s_sunFlattening = 2.5;

NBX::SO<NBX::MemoryImage> newLightMapImage(const GeometryData * data, NBX::LayerSequence layers) {
    const auto * grid = dynamic_cast<const GridData *>(data);
    const int width = grid ? static_cast<int>(grid->sizeX()) : s_lightMapSize;
    const int height = grid ? static_cast<int>(grid->sizeY()) : s_lightMapSize;
    return new NBX::MemoryImage(width, height, layers, NBX::Image::UInt8, 8, NBX::ML_Interleaved);
}

/// Puts the scene's origin where patches are drawn right, while it lives.
class SceneOriginScope {
public:
    explicit SceneOriginScope(const Terrain::Point & origin) : before_(GeoTransformation::nbx2geoOffset()) {
        GeoTransformation::setNBXOrigin(origin);
    }
    ~SceneOriginScope() { GeoTransformation::setNBXOrigin(before_); }
    SceneOriginScope(const SceneOriginScope &) = delete;
    SceneOriginScope & operator=(const SceneOriginScope &) = delete;

private:
    Terrain::Point before_;
};

/// What the terrain's textures take the place of.
void clearAppearance(NBX::PolygonSet & set) {
    set.setNormalIterator(nullptr);
    set.setTextureIterator(nullptr, 0);
    set.setColorIterator(nullptr);
}

/// One level for every factor of four above a thousand corners.
unsigned levelsFor(const NBX::PolygonSet & set) {
    unsigned n = set.newVertexIterator() ? set.newVertexIterator()->size() : 0;
    if (set.newIndexIterator()) n = set.newIndexIterator()->size();
    return static_cast<unsigned>(std::max(std::log(n / 1000.0), 0.0) / std::log(4.0) + 0.5);
}

} // namespace

Terrain::Terrain() : NBX::Shape(true) {}

Terrain::Terrain(GeometryData * data, GeometryPatch * root) : NBX::Shape(true), data_(data), root_(root) {}

Terrain::~Terrain() = default;

NBX::Bounds Terrain::boundingBox() const {
    const NBX::SO<GeometryData> geometry = data();
    const NBX::Bounds box = geometry ? geometry->boundingBox() : NBX::Bounds();
    if (!box.isDefined()) return box;
    const Point offset = GeoTransformation::geo2nbxOffset() + origin();
    return NBX::Bounds(box.getLLF() + offset, box.getURB() + offset);
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
    const Point flattened(direction.x, direction.y / s_sunFlattening, direction.z);
    const NBX::SO<NBX::DistantLight> light(new NBX::DistantLight(flattened, NBX::Color::white, 1.0, 0.5));
    const auto image = newLightMapImage(data().get(), NBX::LS_Luminance);
    const SceneOriginScope scope(origin());
    return CreateTexture::createShading(this, light, image, NBX::Color(1.0 - shade), Point(1, 1, 1));
}

NBX::SO<TerrainTexture> Terrain::createDynamicLightMap() {
    const auto image = newLightMapImage(data().get(), NBX::LS_RGB);
    const SceneOriginScope scope(origin());
    return CreateTexture::createNormal(this, image, Point(1, 1, 1));
}

NBX::SO<TerrainTexturedGeometry>
Terrain::createTerrainTexturedTriangles(const std::vector<NBX::SO<NBX::PolygonSet>> & sets) {
    for (const NBX::SO<NBX::PolygonSet> & set : sets)
        if (set) clearAppearance(*set);
    const NBX::SO<NBX::Array<NBX::SO<NBX::PolygonSet>>> list(
        new NBX::Array<NBX::SO<NBX::PolygonSet>>(std::vector<NBX::SO<NBX::PolygonSet>>(sets)));
    const NBX::SO<NBX::PolygonSet> merged = NBX::PolygonSetTool::mergePolygonSets(list.get());
    return merged ? createTerrainTexturedTriangles(merged) : nullptr;
}

NBX::SO<TerrainTexturedGeometry> Terrain::createTerrainTexturedTriangles(NBX::SO<NBX::PolygonSet> set) {
    if (!set) return nullptr;
    // Terrains are painted with front faces that wind clockwise.
    set = NBX::PolygonSetTool::invertOrientation(set.get());
    clearAppearance(*set);
    if (const auto vertices = set->newVertexIterator())
        set->setVertexIterator(GeoTransformation::geo2nbxTf(vertices));
    const NBX::SO<NBX::PrimitiveQuadTreeGL> tree(
        new NBX::PrimitiveQuadTreeGL(levelsFor(*set), set, NBX::Bounds(), true));
    return new TerrainTexturedTriangles(tree, Point());
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
