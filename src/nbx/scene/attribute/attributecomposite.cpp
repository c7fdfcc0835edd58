#include <nbx/scene/attribute/attributecomposite.h>

#include <algorithm>

#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>

#include "nbx/scene/base/reaches.h"
#include "nbx/scene/base/serializeobjects.h"

namespace NBX {

NBX_STORED_CLASS_IMPL(AttributeComposite, Attribute)

void AttributeComposite::append(Attribute * attribute) {
    NBX_CHECK(attribute, L"no attribute");
    if (!attribute) return;
    const bool closesCycle = reaches<AttributeComposite>(attribute, this);
    NBX_CHECK(!closesCycle, L"composite would contain itself");
    if (closesCycle) return;
    attributes_.emplace_back(attribute);
    modified();
}

bool AttributeComposite::remove(const Attribute * attribute) {
    const auto found = std::find(attributes_.begin(), attributes_.end(), attribute);
    if (found == attributes_.end()) return false;
    const SO<Attribute> held = *found;
    attributes_.erase(found);
    modified();
    return true;
}

void AttributeComposite::clear() {
    if (attributes_.empty()) return;
    std::vector<SO<Attribute>> held;
    held.swap(attributes_);
    modified();
}

Attribute * AttributeComposite::attribute(unsigned i) const {
    NBX_CHECK(i < attributes(), L"i out of range");
    return i < attributes() ? attributes_[i].get() : nullptr;
}

void AttributeComposite::acceptChildren(std::vector<Visitable *> & children) const {
    Attribute::acceptChildren(children);
    for (const SO<Attribute> & member : attributes_)
        children.push_back(member.get());
}

void AttributeComposite::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Attribute>(m, this);
    std::vector<SO<Attribute>> members = attributes_;
    serializeObjects(m, "attributes", members);
    if (!m.isReading()) return;
    leaveOutCircles<AttributeComposite>(m, members);
    attributes_.swap(members);
    modified();
}

} // namespace NBX
