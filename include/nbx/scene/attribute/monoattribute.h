#pragma once

#include <nbx/scene/attribute/attribute.h>

namespace NBX {

/// An attribute of which one per category holds at a time: the last one pushed.
class MonoAttribute : public Attribute {
    NBX_CLASS(MonoAttribute, Attribute)
public:
    explicit MonoAttribute(bool enabled) : Attribute(enabled) {}
};

} // namespace NBX
