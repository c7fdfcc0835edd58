#pragma once

#include <vector>

#include <nbx/object/classpattern.h>
#include <nbx/object/nbxtime.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace NBX {

class Manager;

/// What drives everything that goes on by itself: the managers that were added to it. Belongs to one thread.
class Clock : public SharedObj {
    NBX_CLASS(Clock, SharedObj)
public:
    /// The clock of the process, on the thread of the canvases.
    static Clock * systemClock();

    /// Keeps `manager`, once. Null is reported under "manager" with "no manager".
    void addManager(Manager * manager);
    /// False when the manager was not there.
    bool removeManager(Manager * manager);
    bool hasManager(const Manager * manager) const;

    /// Calls each manager in the order of adding. One may add or remove managers.
    void tick(const NBXTime & now);

private:
    std::vector<SO<Manager>> managers_;
};

} // namespace NBX
