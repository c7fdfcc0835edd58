#include <nbx/engine/resourcemanager.h>

#include <functional>
#include <random>

#include <gtest/gtest.h>

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/object/wo.h>
#include <support/recordedreports.h>

namespace {

using namespace NBX;
using Manager = ResourceManager<SharedObj, unsigned>;

struct ResourceManagerTest : testing::Test {
    Manager manager{100};
    RecordedReports reports;

    WO<SharedObj> add(unsigned size) {
        const SO<SharedObj> resource(new SharedObj());
        manager.add(resource.get(), size);
        return resource;
    }
    bool touch(const WO<SharedObj> & resource) {
        const SO<SharedObj> alive = resource.lock();
        return alive && manager.touch(alive.get());
    }
    bool remove(const WO<SharedObj> & resource) {
        const SO<SharedObj> alive = resource.lock();
        return alive && manager.remove(alive.get());
    }
};

TEST_F(ResourceManagerTest, KeepsResourcesAliveWithinTheBudget) {
    const auto a = add(40), b = add(60);
    EXPECT_TRUE(a);
    EXPECT_TRUE(b);
    EXPECT_EQ(manager.total(), 100U);
    EXPECT_EQ(manager.count(), 2U);
}

TEST_F(ResourceManagerTest, DropsWhatWasUsedTheLongestTimeAgo) {
    const auto a = add(40), b = add(40);
    EXPECT_TRUE(touch(a));
    const auto c = add(40);
    EXPECT_TRUE(a);
    EXPECT_FALSE(b);
    EXPECT_TRUE(c);
    EXPECT_EQ(manager.total(), 80U);
}

TEST_F(ResourceManagerTest, UnknownResourcesCannotBeTouchedOrRemoved) {
    const SO<SharedObj> stranger(new SharedObj());
    EXPECT_FALSE(manager.touch(stranger.get()));
    EXPECT_FALSE(manager.remove(stranger.get()));
    EXPECT_FALSE(manager.touch(nullptr));
    manager.add(nullptr, 1);
    EXPECT_EQ(reports.count(0, L"resource", L"no resource"), 1U);
}

TEST_F(ResourceManagerTest, RemoveLetsGo) {
    const auto a = add(40);
    EXPECT_TRUE(remove(a));
    EXPECT_FALSE(a);
    EXPECT_EQ(manager.total(), 0U);
}

TEST_F(ResourceManagerTest, AddingAgainChangesTheSize) {
    const SO<SharedObj> a(new SharedObj());
    manager.add(a.get(), 40);
    manager.add(a.get(), 70);
    EXPECT_EQ(manager.total(), 70U);
    EXPECT_EQ(manager.count(), 1U);
}

TEST_F(ResourceManagerTest, LargerThanTheBudgetIsKeptInAFrameOnly) {
    EXPECT_FALSE(add(101));
    manager.beginFrame();
    const auto a = add(101);
    EXPECT_TRUE(a);
    manager.endFrame();
    EXPECT_FALSE(a);
    EXPECT_EQ(manager.total(), 0U);
}

TEST_F(ResourceManagerTest, WhatWasUsedInThisFrameStaysEvenBeyondTheBudget) {
    const auto old = add(30), used = add(30);
    manager.beginFrame();
    EXPECT_TRUE(touch(used));
    const auto a = add(60), b = add(60);
    EXPECT_FALSE(old);
    EXPECT_TRUE(used);
    EXPECT_TRUE(a);
    EXPECT_TRUE(b);
    EXPECT_EQ(manager.total(), 150U);
    manager.endFrame();
    EXPECT_FALSE(used);
    EXPECT_FALSE(a);
    EXPECT_TRUE(b);
}

TEST_F(ResourceManagerTest, TheFirstUsedMayBeUsedAgainAndTheOthersStay) {
    manager.beginFrame();
    const auto a = add(50), b = add(50);
    EXPECT_TRUE(touch(a));
    const auto c = add(50);
    EXPECT_TRUE(a);
    EXPECT_TRUE(b);
    EXPECT_TRUE(c);
    manager.endFrame();
    EXPECT_FALSE(b);
}

TEST_F(ResourceManagerTest, FramesNest) {
    manager.beginFrame();
    const auto a = add(80);
    manager.beginFrame();
    const auto b = add(80);
    manager.endFrame();
    EXPECT_TRUE(a);
    EXPECT_TRUE(b);
    manager.endFrame();
    EXPECT_FALSE(a);
    manager.endFrame();
    EXPECT_EQ(reports.count(L"endFrame without beginFrame"), 1U);
}

TEST_F(ResourceManagerTest, RemovalsWaitForTheEndOfTheFrame) {
    const auto a = add(40);
    manager.beginFrame();
    EXPECT_TRUE(remove(a));
    EXPECT_TRUE(a);
    EXPECT_FALSE(touch(a));
    EXPECT_FALSE(remove(a));
    manager.endFrame();
    EXPECT_FALSE(a);
    EXPECT_EQ(manager.total(), 0U);
}

TEST_F(ResourceManagerTest, AddingAgainTakesARemovalBack) {
    const auto a = add(40);
    manager.beginFrame();
    EXPECT_TRUE(remove(a));
    manager.add(a.lock().get(), 45);
    manager.endFrame();
    EXPECT_TRUE(a);
    EXPECT_EQ(manager.total(), 45U);
}

TEST_F(ResourceManagerTest, SmallerBudgetActsAtOnce) {
    const auto a = add(40), b = add(40);
    manager.setBudget(50);
    EXPECT_FALSE(a);
    EXPECT_TRUE(b);
    manager.clear();
    EXPECT_FALSE(b);
    EXPECT_EQ(manager.total(), 0U);
}

/// Calls a function when it dies.
class Dying : public SharedObj {
public:
    explicit Dying(std::function<void()> last) : last_(std::move(last)) {}
    ~Dying() override { last_(); }

private:
    std::function<void()> last_;
};

TEST_F(ResourceManagerTest, DestructorsMayCallTheManager) {
    const SO<SharedObj> companion(new SharedObj());
    const WO<SharedObj> watched = companion;
    manager.add(companion.get(), 10);
    {
        const SO<SharedObj> owner(new Dying([&] { manager.remove(companion.get()); }));
        manager.add(owner.get(), 50);
    }
    manager.touch(companion.get());
    add(45); // drops the owner, which takes its companion along
    EXPECT_FALSE(manager.contains(companion.get()));
    EXPECT_EQ(manager.total(), 45U);
    EXPECT_EQ(manager.count(), 1U);
}

TEST_F(ResourceManagerTest, LawsHoldForRandomUse) {
    const unsigned seed = 4711;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::vector<WO<SharedObj>> all, usedInFrame;
    bool inFrame = false;
    for (unsigned n = 0; n < 20000; ++n) {
        const unsigned what = random() % 16;
        if (what == 0) {
            inFrame ? manager.endFrame() : manager.beginFrame();
            inFrame = !inFrame;
            usedInFrame.clear();
        } else if (what < 5 || all.empty()) {
            all.push_back(add(random() % 30));
            if (inFrame) usedInFrame.push_back(all.back());
        } else {
            const auto & some = all[random() % all.size()];
            if (touch(some) && inFrame) usedInFrame.push_back(some);
        }
        if (!inFrame) {
            ASSERT_LE(manager.total(), 100U);
        }
        for (const auto & used : usedInFrame)
            ASSERT_TRUE(used) << n;
    }
}

TEST(MemoryManagers, AreOneOfEachKindWithABudget) {
    EXPECT_EQ(MainMemoryManager::instance(), MainMemoryManager::instance());
    EXPECT_EQ(MainMemoryManager::instance()->getBudget(), MainMemoryManager::defaultBudget);
    EXPECT_EQ(GraphicsMemoryManager::instance(), GraphicsMemoryManager::instance());
    EXPECT_EQ(GraphicsMemoryManager::instance()->getBudget(), GraphicsMemoryManager::defaultBudget);
}

} // namespace
