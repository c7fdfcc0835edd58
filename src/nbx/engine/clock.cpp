#include <nbx/engine/clock.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include <nbx/engine/manager.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(Clock, SharedObj)

namespace {

/// Sets a flag as long as it lives.
class Flagged {
public:
    explicit Flagged(bool & flag) : flag_(flag) { flag_ = true; }
    ~Flagged() { flag_ = false; }
    Flagged(const Flagged &) = delete;
    Flagged & operator=(const Flagged &) = delete;

private:
    bool & flag_;
};

} // namespace

Clock * Clock::systemClock() {
    // Never destroyed, since objects of file scope may take managers off while the process ends.
    static SO<Clock> & clock = *new SO<Clock>(new Clock);
    return clock.get();
}

std::vector<Clock::Entry>::iterator Clock::find(const Manager * manager) {
    return std::find_if(entries_.begin(), entries_.end(),
                        [manager](const Entry & entry) { return entry.manager == manager && entry.watched; });
}

void Clock::enter(Manager * manager, bool isKept) {
    NBX_CHECK(manager, L"no manager");
    if (!manager) return;
    std::erase_if(entries_, [](const Entry & entry) { return !entry.watched; });
    const auto place = find(manager);
    if (place == entries_.end())
        entries_.push_back({manager, manager, isKept ? manager : nullptr});
    else if (isKept)
        place->kept = manager;
    if (isKept) hasten();
}

void Clock::addManager(Manager * manager) {
    enter(manager, true);
}

void Clock::watchManager(Manager * manager) {
    if (isOnItsThread()) enter(manager, false);
}

bool Clock::removeManager(Manager * manager) {
    const auto place = find(manager);
    if (place == entries_.end()) return false;
    // Its end may come back to this list.
    const Entry last = std::move(*place);
    entries_.erase(place);
    return true;
}

bool Clock::hasManager(const Manager * manager) const {
    return const_cast<Clock *>(this)->find(manager) != entries_.end();
}

NBXTime Clock::now() const {
    return NBXTime::now();
}

void Clock::tick(const NBXTime & now) {
    if (isTicking_) return;
    const Flagged flagged(isTicking_);
    lastTick_ = now;
    std::vector<WO<Manager>> round;
    for (const Entry & entry : entries_)
        round.push_back(entry.watched);
    for (const WO<Manager> & watched : round)
        if (const SO<Manager> manager = watched.lock(); manager && hasManager(manager.get()))
            manager->tick(now);
}

NBXTime Clock::nextTick() const {
    double next = never();
    for (const Entry & entry : entries_)
        if (entry.watched) next = std::min(next, double(entry.manager->nextTick(lastTick_)));
    return next;
}

bool Clock::serve() {
    const NBXTime time = now();
    if (nextTick() > time) return false;
    tick(time);
    return true;
}

bool Clock::step() {
    const NBXTime next = nextTick();
    if (next == never()) return false;
    if (next > now()) sleepUntil(next);
    serve();
    return true;
}

void Clock::setAlarm(std::function<void()> alarm) {
    alarm_ = std::move(alarm);
}

void Clock::hasten() {
    if (isOnItsThread() && alarm_ && !isTicking_) alarm_();
}

void Clock::sleepUntil(const NBXTime & time) {
    std::this_thread::sleep_for(std::chrono::duration<double>(time - NBXTime::now()));
}

} // namespace NBX
