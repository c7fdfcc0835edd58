#include <nbx/engine/clock.h>

#include <gtest/gtest.h>

#include <nbx/engine/manager.h>
#include <support/recordedreports.h>

namespace {

using namespace NBX;

class CountingManager : public Manager {
public:
    void tick(const NBXTime & now) override {
        last = now;
        ++ticks;
        if (leaves) deactivate();
    }

    int ticks = 0;
    double last = 0.0;
    bool leaves = false;
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

} // namespace
