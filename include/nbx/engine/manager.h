#pragma once

#include <nbx/object/classpattern.h>
#include <nbx/object/nbxtime.h>
#include <nbx/object/sharedobj.h>

namespace NBX {

/// Something that goes on by itself while it is active: the system clock calls it.
class Manager : public SharedObj {
    NBX_CLASS(Manager, SharedObj)
public:
    /// Adds it to the system clock, which then keeps it.
    virtual void activate();
    virtual void deactivate();
    bool isActive() const;

    virtual void tick(const NBXTime & now) = 0;
};

} // namespace NBX
