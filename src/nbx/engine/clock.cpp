#include <nbx/engine/clock.h>

#include <algorithm>

#include <nbx/engine/manager.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(Clock, SharedObj)

Clock * Clock::systemClock() {
    // Never destroyed, since objects of file scope may take managers off while the process ends.
    static SO<Clock> & clock = *new SO<Clock>(new Clock);
    return clock.get();
}

void Clock::addManager(Manager * manager) {
    NBX_CHECK(manager, L"no manager");
    if (manager && !hasManager(manager)) managers_.push_back(manager);
}

bool Clock::removeManager(Manager * manager) {
    const auto place = std::find(managers_.begin(), managers_.end(), SO<Manager>(manager));
    if (place == managers_.end()) return false;
    managers_.erase(place);
    return true;
}

bool Clock::hasManager(const Manager * manager) const {
    return std::any_of(managers_.begin(), managers_.end(),
                       [manager](const SO<Manager> & m) { return m.get() == manager; });
}

void Clock::tick(const NBXTime & now) {
    const std::vector<SO<Manager>> managers = managers_;
    for (const auto & manager : managers)
        if (hasManager(manager.get())) manager->tick(now);
}

} // namespace NBX
