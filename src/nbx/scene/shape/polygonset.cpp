// Iterators are set by swapping, so that the one before ends after the set has the new one. All kinds of
// primitives are read as triangles of one winding, through the indices where there are some.

#include <nbx/scene/shape/polygonset.h>

#include <string>

#include "boxofvertices.h"
#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>

namespace NBX {

namespace {

/// The corners of triangle `i` as positions in the sequence of corners.
std::array<unsigned, 3> corners(PolygonSet::PrimitiveType type, unsigned i) {
    switch (type) {
    case PolygonSet::PT_TriangleStrip:
        // Every second triangle of a strip winds the other way round.
        if (i % 2 == 0) return {i, i + 1, i + 2};
        return {i + 1, i, i + 2};
    case PolygonSet::PT_TriangleFan:
        return {0, i + 1, i + 2};
    case PolygonSet::PT_Quads: {
        const unsigned first = i / 2 * 4;
        if (i % 2 == 0) return {first, first + 1, first + 2};
        return {first, first + 2, first + 3};
    }
    case PolygonSet::PT_Triangles:
        break;
    }
    return {i * 3, i * 3 + 1, i * 3 + 2};
}

bool isPrimitiveType(int type) {
    return type >= PolygonSet::PT_TriangleStrip && type <= PolygonSet::PT_Quads;
}

} // namespace

NBX_STORED_CLASS_IMPL(PolygonSet, Shape)

PolygonSet::PolygonSet() : Shape(true) {}

PolygonSet::PolygonSet(PrimitiveType type, SO<Vertices> vertices, SO<Indices> indices)
    : Shape(true), type_(type), vertices_(vertices), indices_(indices) {}

void PolygonSet::setPrimitiveType(PrimitiveType type) {
    type_ = type;
    modified();
}

void PolygonSet::setVertexIterator(SO<Vertices> vertices) {
    vertices_.swap(vertices);
    modified();
}

void PolygonSet::setIndexIterator(SO<Indices> indices) {
    indices_.swap(indices);
    modified();
}

void PolygonSet::setNormalIterator(SO<Vertices> normals) {
    normals_.swap(normals);
    modified();
}

void PolygonSet::setColorIterator(SO<Colors> colors) {
    colors_.swap(colors);
    modified();
}

void PolygonSet::setTextureIterator(SO<Vertices> coordinates, unsigned unit) {
    NBX_CHECK(unit < maxTextureUnits, L"unit out of range");
    if (unit >= maxTextureUnits) return;
    if (unit >= textures_.size()) textures_.resize(unit + 1);
    textures_[unit].swap(coordinates);
    while (!textures_.empty() && !textures_.back())
        textures_.pop_back();
    modified();
}

SO<PolygonSet::Vertices> PolygonSet::newTextureIterator(unsigned unit) const {
    return unit < textures_.size() ? textures_[unit] : nullptr;
}

unsigned PolygonSet::corners() const {
    if (!vertices_) return 0;
    return indices_ ? indices_->size() : vertices_->size();
}

unsigned PolygonSet::triangles() const {
    const unsigned n = corners();
    switch (type_) {
    case PT_TriangleStrip:
    case PT_TriangleFan:
        return n > 2 ? n - 2 : 0;
    case PT_Quads:
        return n / 4 * 2;
    case PT_Triangles:
        break;
    }
    return n / 3;
}

bool PolygonSet::triangle(unsigned i, std::array<unsigned, 3> & vertices) const {
    if (i >= triangles()) return false;
    vertices = NBX::corners(type_, i);
    const unsigned n = vertices_->size();
    for (unsigned & vertex : vertices) {
        if (indices_) vertex = indices_->get(vertex);
        if (vertex >= n) return false;
    }
    return true;
}

Bounds PolygonSet::boundingBox() const {
    if (boxValid_) return box_;
    box_ = boxOfVertices(vertices_.get());
    boxValid_ = true;
    return box_;
}

void PolygonSet::modified() {
    boxValid_ = false;
    Shape::modified();
}

void PolygonSet::acceptChildren(std::vector<Visitable *> & children) const {
    Shape::acceptChildren(children);
    children.insert(children.end(), {vertices_.get(), indices_.get(), normals_.get(), colors_.get()});
    for (const SO<Vertices> & coordinates : textures_)
        children.push_back(coordinates.get());
}

void PolygonSet::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Shape>(m, this);
    int type = type_;
    attributeWithDefault(m, "primitiveType", type, static_cast<int>(PT_Triangles));
    attributeWithDefault(m, "vertices", vertices_, nullptr);
    attributeWithDefault(m, "indices", indices_, nullptr);
    attributeWithDefault(m, "normals", normals_, nullptr);
    attributeWithDefault(m, "colors", colors_, nullptr);
    auto units = static_cast<unsigned>(textures_.size());
    attributeWithDefault(m, "textureUnits", units, 0U);
    if (m.isReading()) {
        if (!isPrimitiveType(type) || units > maxTextureUnits)
            throw IOError(L"stored polygon set is damaged");
        type_ = static_cast<PrimitiveType>(type);
        textures_.assign(units, nullptr);
    }
    for (unsigned unit = 0; unit < units; ++unit)
        attributeWithDefault(m, ("texture_" + std::to_string(unit)).c_str(), textures_[unit], nullptr);
    if (m.isReading()) modified();
}

} // namespace NBX
