#include <nbx/scene/shape/lineset.h>

#include "boxofvertices.h"
#include <nbx/object/exception.h>
#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(LineSet, Shape)

LineSet::LineSet() : Shape(true) {}

LineSet::LineSet(PrimitiveType type, SO<Vertices> vertices) : Shape(true), type_(type), vertices_(vertices) {}

void LineSet::setPrimitiveType(PrimitiveType type) {
    type_ = type;
    modified();
}

void LineSet::setVertexIterator(SO<Vertices> vertices) {
    vertices_.swap(vertices);
    modified();
}

void LineSet::setColorIterator(SO<Colors> colors) {
    colors_.swap(colors);
    modified();
}

Bounds LineSet::boundingBox() const {
    if (boxValid_) return box_;
    box_ = boxOfVertices(vertices_.get());
    boxValid_ = true;
    return box_;
}

void LineSet::modified() {
    boxValid_ = false;
    Shape::modified();
}

void LineSet::acceptChildren(std::vector<Visitable *> & children) const {
    Shape::acceptChildren(children);
    children.insert(children.end(), {vertices_.get(), colors_.get()});
}

void LineSet::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Shape>(m, this);
    int type = type_;
    attributeWithDefault(m, "primitiveType", type, static_cast<int>(PT_Lines));
    attributeWithDefault(m, "vertices", vertices_, nullptr);
    attributeWithDefault(m, "colors", colors_, nullptr);
    if (!m.isReading()) return;
    if (type < PT_Lines || type > PT_LineLoop) throw IOError(L"stored line set is damaged");
    type_ = static_cast<PrimitiveType>(type);
    modified();
}

} // namespace NBX
