#pragma once

#include <functional>
#include <limits>
#include <thread>
#include <vector>

#include <nbx/object/classpattern.h>
#include <nbx/object/nbxtime.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>
#include <nbx/object/wo.h>

namespace NBX {

class Manager;

/// What drives everything that goes on by itself: the managers that were added to it, canvases among them.
/// Belongs to the thread that made it.
///
/// A program without an event loop calls `step` again and again. One with an event loop calls `serve` at the
/// time of `nextTick`, which it asks for again after each call and after each alarm.
class Clock : public SharedObj {
    NBX_CLASS(Clock, SharedObj)
public:
    /// The clock of the process, on the thread of the canvases.
    static Clock * systemClock();
    /// The time of what is not awaited.
    static NBXTime never() { return std::numeric_limits<double>::infinity(); }

    /// Keeps `manager`, once. Null is reported under "manager" with "no manager".
    void addManager(Manager * manager);
    /// The same without keeping it: it is off the clock when it dies. Does nothing for one that is kept. May
    /// be called in the manager's constructor. Does nothing on another thread: what a canvas shows there is
    /// its owner's business.
    void watchManager(Manager * manager);
    /// False when the manager was not there.
    bool removeManager(Manager * manager);
    bool hasManager(const Manager * manager) const;

    /// The time by this clock: `NBXTime::now()`.
    virtual NBXTime now() const;
    /// Calls each manager in the order of adding. One may add managers, which are called from the next time
    /// on, and remove managers, which are called no more. Does nothing while it is under way already.
    void tick(const NBXTime & now);
    bool isTicking() const { return isTicking_; }

    /// When the first manager wants to be called; `never()` where none does.
    NBXTime nextTick() const;
    /// Ticks if it is time to; whether it was.
    bool serve();
    /// Sleeps until it is time to, and ticks. False, at once, when nothing is awaited.
    bool step();

    /// `alarm` is called when `nextTick` may have come nearer, but not from within `tick`. Empty for none.
    void setAlarm(std::function<void()> alarm);
    /// To be called by a manager that wants to be called earlier than it said before. Does nothing on another
    /// thread.
    void hasten();

protected:
    /// `time` is one of `now()`.
    virtual void sleepUntil(const NBXTime & time);

private:
    struct Entry {
        Manager * manager; ///< to be used while `watched` is not null
        WO<Manager> watched;
        SO<Manager> kept; ///< null for one that is only watched
    };
    std::vector<Entry>::iterator find(const Manager * manager);
    void enter(Manager * manager, bool isKept);
    bool isOnItsThread() const { return std::this_thread::get_id() == thread_; }

    const std::thread::id thread_ = std::this_thread::get_id();
    std::vector<Entry> entries_;
    std::function<void()> alarm_;
    NBXTime lastTick_ = -never();
    bool isTicking_ = false;
};

} // namespace NBX
