#pragma once

#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>

namespace NBX {

/// Base of what takes part in rendering: nodes, shapes, attributes and handlers. Each can be switched off
/// without being removed. Belongs to the thread that renders it.
class RenderObj : public SharedObj {
    NBX_CLASS(RenderObj, SharedObj)
public:
    explicit RenderObj(bool enabled = true) : enabled_(enabled) {}

    virtual void setEnableState(bool enabled);
    virtual bool isEnabled() const;

    /// Attribute "enabled", default true.
    void serialize(SerializationManager & m) override;

private:
    bool enabled_;
};

} // namespace NBX
