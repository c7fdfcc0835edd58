#include "trianglecontainer.h"

#include <nbx/object/errorhandler.h>

#include "core/texturedtriangles/modelnumber.h"

namespace ZMT::CORE {

using NBX::Array;
using NBX::Iterator;
using NBX::PolygonSet;
using NBX::SO;

NBX_CLASS_IMPL(TriangleContainer, SharedObj)

namespace {

using Vector = TriangleContainer::Vector;

SO<Array<double>> areasOf(const PolygonSet & geometry) {
    const SO<PolygonSet::Vertices> vertices = geometry.newVertexIterator();
    const SO<Array<double>> areas(new Array<double>(vertices ? vertices->size() / 3 : 0));
    for (unsigned i = 0; i < areas->size(); ++i) {
        const Vector a = vertices->get(3 * i);
        areas->set(i, (vertices->get(3 * i + 1) - a).cross(vertices->get(3 * i + 2) - a).length() / 2.0);
    }
    return areas;
}

std::array<Vector, 3> three(const Iterator<Vector> * values, unsigned triangle) {
    std::array<Vector, 3> result;
    for (unsigned k = 0; k < 3; ++k)
        if (values && 3 * triangle + k < values->size()) result[k] = values->get(3 * triangle + k);
    return result;
}

} // namespace

TriangleContainer::TriangleContainer(SO<Iterator<TexturedMesh>> meshes)
    : meshes_(meshes), areas_(new Array<SO<Array<double>>>()) {
    NBX_CHECK(meshes, L"no meshes");
    if (!meshes_) meshes_ = new NBX::NonPersistentArray<TexturedMesh>();
    for (const TexturedMesh & mesh : *meshes_) {
        geometries_.push_back(mesh.geometry ? mesh.geometry : SO<PolygonSet>(new PolygonSet()));
        areas_->append(areasOf(*geometries_.back()));
    }
}

TriangleContainer::~TriangleContainer() = default;

unsigned TriangleContainer::numberOfTriangles(unsigned mesh) const {
    NBX_CHECK(mesh < numberOfMeshes(), L"no such mesh");
    return mesh < numberOfMeshes() ? areas_->stl()[mesh]->size() : 0;
}

bool TriangleContainer::contains(const TriangleID & id) const {
    return id.mesh >= 0 && unsigned(id.mesh) < areas_->size() && id.triangle >= 0 &&
           unsigned(id.triangle) < areas_->stl()[unsigned(id.mesh)]->size();
}

double TriangleContainer::area(const TriangleID & id) const {
    NBX_CHECK(contains(id), L"no such triangle");
    return contains(id) ? areas_->stl()[unsigned(id.mesh)]->stl()[unsigned(id.triangle)] : 0.0;
}

TriangleContainer::Triangle TriangleContainer::triangle(const TriangleID & id, unsigned set) const {
    NBX_CHECK(contains(id), L"no such triangle");
    if (!contains(id)) return {};
    const auto i = unsigned(id.triangle);
    return {three(geometry(id).newVertexIterator().get(), i),
            three(geometry(id).newTextureIterator(set).get(), i)};
}

NBX::Color TriangleContainer::color(const TriangleID & id, unsigned k) const {
    NBX_CHECK(contains(id), L"no such triangle");
    if (!contains(id)) return NBX::Color::white;
    const SO<PolygonSet::Colors> & colors = geometry(id).newColorIterator();
    const unsigned i = 3 * unsigned(id.triangle) + k;
    return colors && i < colors->size() ? colors->get(i) : NBX::Color::white;
}

std::optional<Vector> TriangleContainer::model(const TriangleID & id) const {
    NBX_CHECK(contains(id), L"no such triangle");
    if (!contains(id)) return {};
    const SO<PolygonSet::Vertices> models = geometry(id).newTextureIterator(ModelNumber::unit);
    const unsigned first = 3 * unsigned(id.triangle);
    return models && first < models->size() ? std::optional(models->get(first)) : std::nullopt;
}

void TriangleContainer::setTexCoords(const TriangleID & id, const std::array<Vector, 3> & values) {
    NBX_CHECK(contains(id), L"no such triangle");
    if (!contains(id)) return;
    PolygonSet & geometry = *geometries_[unsigned(id.mesh)];
    const SO<PolygonSet::Vertices> texCoords = geometry.newTextureIterator(0);
    auto * texCoordPointer = dynamic_cast<NBX::NonPersistentArray<Vector> *>(texCoords.get());
    NBX_CHECK(texCoordPointer, L"texture coordinates must be stored as an array");
    if (!texCoordPointer) return;
    for (unsigned k = 0; k < 3; ++k) {
        const unsigned index = 3 * unsigned(id.triangle) + k;
        if (index < texCoords->size())
            texCoordPointer->set(index, values[k]);
        else
            NBX_REPORT(0, L"texCoords->size()>index", L"index out of range");
    }
    geometry.modified();
}

} // namespace ZMT::CORE
