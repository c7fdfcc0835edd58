#include <nbx/scene/shape/composite.h>

#include <algorithm>

#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>

#include "nbx/scene/base/reaches.h"
#include "nbx/scene/base/serializeobjects.h"

namespace NBX {

NBX_STORED_CLASS_IMPL(Composite, Shape)

void Composite::append(Shape * shape) {
    NBX_CHECK(shape, L"no shape");
    if (!shape) return;
    const bool closesCycle = reaches<Composite>(shape, this);
    NBX_CHECK(!closesCycle, L"composite would contain itself");
    if (closesCycle) return;
    shapes_.emplace_back(shape);
    modified();
}

bool Composite::remove(const Shape * shape) {
    const auto found = std::find(shapes_.begin(), shapes_.end(), shape);
    if (found == shapes_.end()) return false;
    const SO<Shape> held = *found;
    shapes_.erase(found);
    modified();
    return true;
}

void Composite::clear() {
    if (shapes_.empty()) return;
    std::vector<SO<Shape>> held;
    held.swap(shapes_);
    modified();
}

Shape * Composite::shape(unsigned i) const {
    NBX_CHECK(i < shapes(), L"i out of range");
    return i < shapes() ? shapes_[i].get() : nullptr;
}

void Composite::acceptChildren(std::vector<Visitable *> & children) const {
    Shape::acceptChildren(children);
    for (const SO<Shape> & member : shapes_)
        children.push_back(member.get());
}

void Composite::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Shape>(m, this);
    std::vector<SO<Shape>> members = shapes_;
    serializeObjects(m, "shapes", members);
    if (!m.isReading()) return;
    leaveOutCircles<Composite>(m, members);
    shapes_.swap(members);
    modified();
}

Bounds Composite::boundingBox() const {
    Bounds box;
    std::vector<const Composite *> waiting{this};
    while (!waiting.empty()) {
        const Composite * composite = waiting.back();
        waiting.pop_back();
        for (const SO<Shape> & member : composite->shapes_) {
            if (!member->isEnabled()) continue;
            if (member->classInfoNBX() == ClassInfoNBX())
                waiting.push_back(static_cast<const Composite *>(member.get()));
            else
                box += member->boundingBox();
        }
    }
    return box;
}

} // namespace NBX
