#pragma once

#include <vector>

#include <nbx/object/so.h>
#include <nbx/scene/attribute/attribute.h>

namespace NBX {

/// Several attributes as one: pushed in their order, popped in reverse.
class AttributeComposite : public Attribute {
    NBX_STORED_CLASS(AttributeComposite, Attribute)
public:
    explicit AttributeComposite(bool enabled = true) : Attribute(enabled) {}

    /// A null attribute is reported under "attribute" with "no attribute" and left out.
    void append(Attribute * attribute);
    /// False when the attribute is no member.
    bool remove(const Attribute * attribute);
    void clear();

    unsigned attributes() const { return static_cast<unsigned>(attributes_.size()); }
    /// Null for a number out of range, which is reported.
    Attribute * attribute(unsigned i) const;

    void acceptChildren(std::vector<Visitable *> & children) const override;
    /// Attribute "attributes": the members in order.
    void serialize(SerializationManager & m) override;

private:
    std::vector<SO<Attribute>> attributes_;
};

} // namespace NBX
