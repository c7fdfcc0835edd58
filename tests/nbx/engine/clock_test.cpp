#include <nbx/engine/clock.h>

#include <functional>
#include <stdexcept>
#include <utility>

#include <gtest/gtest.h>

#include <nbx/engine/manager.h>
#include <support/recordedreports.h>
#include <support/steppedclock.h>

namespace {

using namespace NBX;

class CountingManager : public Manager {
public:
    explicit CountingManager(Clock * clock = nullptr) : Manager(clock) {}
    void tick(const NBXTime & now) override {
        last = now;
        ++ticks;
        if (leaves) deactivate();
        if (throws) throw std::runtime_error("told to throw");
    }

    int ticks = 0;
    double last = 0.0;
    bool leaves = false, throws = false;
};

TEST(Clock, CallsActiveManagersWithTheTime) {
    SO<CountingManager> manager(new CountingManager);
    EXPECT_FALSE(manager->isActive());
    manager->activate();
    manager->activate();
    EXPECT_TRUE(manager->isActive());
    Clock::systemClock()->tick(2.5);
    EXPECT_EQ(manager->ticks, 1);
    EXPECT_EQ(manager->last, 2.5);
    manager->deactivate();
    EXPECT_FALSE(manager->isActive());
    Clock::systemClock()->tick(3.0);
    EXPECT_EQ(manager->ticks, 1);
}

TEST(Clock, ManagersMayLeaveWhileTheyAreCalled) {
    SO<CountingManager> first(new CountingManager), second(new CountingManager);
    first->leaves = true;
    first->activate();
    second->activate();
    Clock::systemClock()->tick(1.0);
    EXPECT_FALSE(first->isActive());
    EXPECT_EQ(second->ticks, 1);
    second->deactivate();
}

TEST(Clock, KeepsAManagerUntilItIsRemoved) {
    SO<Clock> clock(new Clock);
    auto * manager = new CountingManager;
    const SO<Manager> held(manager);
    clock->addManager(manager);
    EXPECT_EQ(manager->references(), 2);
    EXPECT_TRUE(clock->removeManager(manager));
    EXPECT_FALSE(clock->removeManager(manager));
    EXPECT_EQ(manager->references(), 1);
}

TEST(Clock, ReportsANullManager) {
    RecordedReports reports;
    SO<Clock>(new Clock)->addManager(nullptr);
    EXPECT_EQ(reports.count(0, L"manager", L"no manager"), 1U) << reports;
}

/// Calls a function.
class ActingManager : public Manager {
public:
    ActingManager(Clock * clock, std::function<void()> action) : Manager(clock), action_(std::move(action)) {}
    void tick(const NBXTime &) override { action_(); }

private:
    std::function<void()> action_;
};

TEST(Clock, ManagersAddedWhileItTicksAreCalledFromTheNextTimeOn) {
    const SO<SteppedClock> clock(new SteppedClock);
    const SO<CountingManager> added(new CountingManager(clock.get()));
    const SO<Manager> adding(new ActingManager(clock.get(), [&] { added->activate(); }));
    adding->activate();
    clock->tick(1.0);
    EXPECT_EQ(added->ticks, 0);
    clock->tick(2.0);
    clock->tick(3.0);
    EXPECT_EQ(added->ticks, 2);
    adding->deactivate();
    added->deactivate();
}

TEST(Clock, ManagersRemovedWhileItTicksAreCalledNoMore) {
    const SO<SteppedClock> clock(new SteppedClock);
    const SO<CountingManager> removed(new CountingManager(clock.get()));
    const SO<Manager> removing(new ActingManager(clock.get(), [&] { removed->deactivate(); }));
    removing->activate();
    removed->activate();
    clock->tick(1.0);
    EXPECT_EQ(removed->ticks, 0);
    EXPECT_EQ(removed->references(), 1);
    removing->deactivate();
}

TEST(Clock, AManagerThatRemovesItselfMayDieOfIt) {
    const SO<SteppedClock> clock(new SteppedClock);
    Manager * alone = new CountingManager(clock.get());
    static_cast<CountingManager *>(alone)->leaves = true;
    clock->addManager(alone);
    clock->tick(1.0);
    EXPECT_EQ(clock->nextTick(), Clock::never());
}

TEST(Clock, AWatchedManagerMayBecomeAKeptOne) {
    const SO<SteppedClock> clock(new SteppedClock);
    const SO<CountingManager> manager(new CountingManager(clock.get()));
    clock->watchManager(manager.get());
    EXPECT_EQ(manager->references(), 1);
    clock->addManager(manager.get());
    clock->watchManager(manager.get());
    EXPECT_EQ(manager->references(), 2);
    clock->tick(1.0);
    EXPECT_EQ(manager->ticks, 1);
    EXPECT_TRUE(clock->removeManager(manager.get()));
    EXPECT_FALSE(clock->hasManager(manager.get()));
}

TEST(Clock, SleepsBetweenTheTicksOfManagers) {
    const SO<SteppedClock> clock(new SteppedClock);
    EXPECT_FALSE(clock->step()) << "without managers there is nothing to wait for";
    const SO<CountingManager> manager(new CountingManager(clock.get()));
    manager->activate();
    for (int i = 0; i < 51; ++i)
        EXPECT_TRUE(clock->step());
    EXPECT_EQ(manager->ticks, 51);
    EXPECT_EQ(clock->sleeps.size(), 50U) << "the first tick is due at once";
    EXPECT_NEAR(clock->time, 101.0, 1e-9);
    manager->deactivate();
    EXPECT_FALSE(clock->step());
}

TEST(Clock, GoesOnAfterAManagerThatThrows) {
    const SO<SteppedClock> clock(new SteppedClock);
    const SO<CountingManager> manager(new CountingManager(clock.get()));
    manager->throws = true;
    manager->activate();
    EXPECT_THROW(clock->tick(1.0), std::runtime_error);
    EXPECT_FALSE(clock->isTicking());
    manager->throws = false;
    clock->tick(2.0);
    EXPECT_EQ(manager->ticks, 2);
    manager->deactivate();
}

TEST(Clock, TheSystemClockSleepsInRealTime) {
    const SO<CountingManager> manager(new CountingManager);
    manager->activate();
    Clock * clock = Clock::systemClock();
    const double start = NBXTime::now();
    clock->tick(clock->now());
    while (manager->ticks < 4)
        ASSERT_TRUE(clock->step());
    EXPECT_GE(NBXTime::now() - start, 0.06);
    manager->deactivate();
}

} // namespace
