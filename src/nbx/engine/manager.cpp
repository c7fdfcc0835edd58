#include <nbx/engine/manager.h>

#include <nbx/engine/clock.h>

namespace NBX {

NBX_CLASS_IMPL(Manager, SharedObj)

namespace {

constexpr double s_period = 0.02;

} // namespace

Manager::Manager(Clock * clock) : clock_(clock ? clock : Clock::systemClock()) {}

Manager::~Manager() = default;

void Manager::activate() {
    clock_->addManager(this);
}

void Manager::deactivate() {
    clock_->removeManager(this);
}

bool Manager::isActive() const {
    return clock_->hasManager(this);
}

NBXTime Manager::nextTick(const NBXTime & lastTick) const {
    return lastTick + s_period;
}

} // namespace NBX
