#pragma once

#include <nbx/scene/attribute/attribute.h>

namespace NBX {

/// An attribute of which all that are pushed hold together, such as lights.
class PolyAttribute : public Attribute {
    NBX_CLASS(PolyAttribute, Attribute)
public:
    explicit PolyAttribute(bool enabled) : Attribute(enabled) {}
};

} // namespace NBX
