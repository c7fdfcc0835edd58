#pragma once

#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// While it is in force shapes show their plain colour, whatever lights, light models and materials say.
class DisableShading : public MonoAttribute {
    NBX_STORED_CLASS(DisableShading, MonoAttribute)
public:
    DisableShading() : MonoAttribute(true) {}

    /// The name of this class for all subclasses.
    ID category() const override;
    void serialize(SerializationManager & m) override;
};

} // namespace NBX
