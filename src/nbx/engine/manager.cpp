#include <nbx/engine/manager.h>

#include <nbx/engine/clock.h>

namespace NBX {

NBX_CLASS_IMPL(Manager, SharedObj)

void Manager::activate() {
    Clock::systemClock()->addManager(this);
}

void Manager::deactivate() {
    Clock::systemClock()->removeManager(this);
}

bool Manager::isActive() const {
    return Clock::systemClock()->hasManager(this);
}

} // namespace NBX
