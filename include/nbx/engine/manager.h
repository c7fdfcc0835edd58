#pragma once

#include <nbx/object/classpattern.h>
#include <nbx/object/nbxtime.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace NBX {

class Clock;

/// Something that goes on by itself while it is active: its clock calls it, on the clock's thread.
class Manager : public SharedObj {
    NBX_CLASS(Manager, SharedObj)
public:
    ~Manager() override;

    /// Adds it to its clock, which then keeps it.
    virtual void activate();
    virtual void deactivate();
    bool isActive() const;
    /// The clock that it was made for.
    Clock * clock() const { return clock_.get(); }

    virtual void tick(const NBXTime & now) = 0;
    /// When it wants to be called, by its clock, whose last round was at `lastTick`; `Clock::never()` for one
    /// that waits for something else. If not overridden, 50 times a second.
    virtual NBXTime nextTick(const NBXTime & lastTick) const;

protected:
    /// Null for the clock of the process. An active manager and another clock keep each other.
    explicit Manager(Clock * clock = nullptr);

private:
    SO<Clock> clock_;
};

} // namespace NBX
