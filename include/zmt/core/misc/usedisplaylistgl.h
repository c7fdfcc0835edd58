#pragma once

#include <nbx/scene/attribute/monoattribute.h>

namespace ZMT::CORE {

/// Turns the use of display lists on or off for what stands behind it.
class UseDisplayListGL : public NBX::MonoAttribute {
    NBX_STORED_CLASS(UseDisplayListGL, NBX::MonoAttribute)
public:
    explicit UseDisplayListGL(bool active = true) : NBX::MonoAttribute(true), active_(active) {}

    bool getActive() const { return active_; }
    void setActive(bool active);

    void serialize(NBX::SerializationManager & m) override;

private:
    bool active_;
};

} // namespace ZMT::CORE
