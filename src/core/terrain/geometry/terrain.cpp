#include <zmt/core/terrain/geometry/terrain.h>

#include <nbx/object/serializationmanager.h>
#include <nbx/scene/polygonset.h>
#include <zmt/core/terrain/geometry/geometrydata.h>
#include <zmt/core/terrain/geometry/geometrypatch.h>
#include <zmt/core/terrain/geometry/geotransformation.h>

namespace ZMT::CORE {

Terrain::Terrain() : NBX::Shape(true) {}

Terrain::Terrain(GeometryData * data, GeometryPatch * root) : NBX::Shape(true), data_(data), root_(root) {}

Terrain::~Terrain() = default;

NBX::Bounds Terrain::boundingBox() const {
    const NBX::Bounds box = data()->boundingBox();
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
