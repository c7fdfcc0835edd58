#include <nbx/engine/graphicsmemorymanager.h>

#include <vector>

#include <gtest/gtest.h>

#include <nbx/object/wo.h>
#include <support/recordedreports.h>

namespace {

using namespace NBX;

class GraphicsMemoryManagerTest : public testing::Test {
protected:
    void SetUp() override { manager.setBudget(100); }
    ~GraphicsMemoryManagerTest() override {
        manager.setBudget(GraphicsMemoryManager::defaultBudget);
        manager.clear();
        frame({});
        frame({});
        EXPECT_TRUE(reports.empty()) << reports;
    }

    /// Draws what `resources` still has, and makes the others again. The number of those.
    unsigned frame(const std::vector<WO<SharedObj> *> & resources, unsigned size = 40) {
        unsigned made = 0;
        manager.beginFrame();
        for (WO<SharedObj> * resource : resources) {
            SO<SharedObj> held = resource->lock();
            if (!held) {
                held = new SharedObj;
                *resource = held;
                ++made;
            }
            manager.use(held.get(), size);
        }
        manager.endFrame();
        return made;
    }
    void expectOneReport() {
        EXPECT_EQ(
            reports.count(2, L"needed <= getBudget()",
                          L"a picture needs 0 KiB of graphics memory, more than the budget of 0 KiB; it is "
                          L"drawn all the same, raise the budget or allow larger errors"),
            1U)
            << reports;
        EXPECT_EQ(reports.size(), 1U);
        reports.clear();
    }

    GraphicsMemoryManager & manager = *GraphicsMemoryManager::instance();
    WO<SharedObj> a, b, c, d;
    RecordedReports reports;
};

TEST_F(GraphicsMemoryManagerTest, WhatAPictureNeedsBeyondTheBudgetIsNotMadeAgainForTheNext) {
    EXPECT_EQ(frame({&a, &b, &c, &d}), 4U);
    EXPECT_LE(manager.total(), 100U);
    for (unsigned run = 0; run < 5; ++run)
        EXPECT_EQ(frame({&a, &b, &c, &d}), 0U);
    expectOneReport();
}

TEST_F(GraphicsMemoryManagerTest, WhatIsNotUsedAnyMoreGoesOnceThereIsNoRoom) {
    frame({&a, &b, &c, &d});
    frame({&c, &d});
    EXPECT_TRUE(c && d);
    EXPECT_FALSE(a || b);
    expectOneReport();
}

TEST_F(GraphicsMemoryManagerTest, WhatFitsStays) {
    frame({&a, &b});
    frame({});
    frame({});
    EXPECT_TRUE(a && b);
    frame({&c});
    EXPECT_FALSE(a) << "used the longest time ago";
    EXPECT_TRUE(b && c);
}

TEST_F(GraphicsMemoryManagerTest, ASmallBudgetIsReportedOnceForEachBudget) {
    frame({&a}, 101);
    frame({&a}, 102);
    expectOneReport();
    manager.setBudget(50);
    frame({&a}, 101);
    expectOneReport();
    frame({&a}, 50);
}

TEST_F(GraphicsMemoryManagerTest, RemovedResourcesGoAtOnceOrWithTheFrame) {
    frame({&a, &b});
    EXPECT_TRUE(manager.remove(a.lock().get()));
    EXPECT_FALSE(a);
    manager.beginFrame();
    manager.use(b.lock().get(), 40);
    EXPECT_TRUE(manager.remove(b.lock().get()));
    EXPECT_TRUE(b);
    manager.endFrame();
    EXPECT_FALSE(b);
}

TEST_F(GraphicsMemoryManagerTest, PicturesInPicturesAreOne) {
    manager.beginFrame();
    frame({&a, &b, &c});
    EXPECT_TRUE(a && b && c);
    manager.endFrame();
    EXPECT_EQ(frame({&a, &b, &c}), 0U);
    expectOneReport();
}

} // namespace
