#include <nbx/engine/mainmemoryshare.h>

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/engine/mainmemorymanager.h>
#include <nbx/object/wo.h>

namespace {

using namespace NBX;

class MainMemoryShareTest : public testing::Test {
protected:
    MainMemoryShareTest() { manager.setBudget(100); }
    ~MainMemoryShareTest() override {
        manager.clear();
        manager.setBudget(MainMemoryManager::defaultBudget);
    }
    MainMemoryManager & manager = *MainMemoryManager::instance();
};

TEST_F(MainMemoryShareTest, CountsForTheBudget) {
    {
        MainMemoryShare share;
        share.setUsed(90);
        EXPECT_EQ(manager.excess(), 0U);
        share.setUsed(130);
        EXPECT_EQ(manager.excess(), 30U);
        EXPECT_EQ(share.excess(), 30U);
    }
    EXPECT_EQ(manager.excess(), 0U);
}

TEST_F(MainMemoryShareTest, ResourcesHaveToDoWithWhatIsLeft) {
    const SO<SharedObj> resource(new SharedObj);
    manager.add(resource.get(), 60);
    MainMemoryShare share;
    share.setUsed(50);
    EXPECT_EQ(manager.count(), 1U) << "shares do not touch them: that is for the rendering thread";
    manager.beginFrame();
    manager.endFrame();
    EXPECT_EQ(manager.count(), 0U);
}

TEST_F(MainMemoryShareTest, OnlyThoseWithMoreThanTheirPartGiveWay) {
    MainMemoryShare large, small;
    large.setUsed(80);
    small.setUsed(45);
    EXPECT_EQ(large.excess(), 25U);
    EXPECT_EQ(small.excess(), 0U);
    large.setUsed(55);
    EXPECT_EQ(large.excess(), 0U);
}

TEST_F(MainMemoryShareTest, SharesBelongToAnyThread) {
    constexpr unsigned threads = 4, steps = 2000;
    std::vector<std::thread> running;
    for (unsigned i = 0; i < threads; ++i)
        running.emplace_back([&] {
            MainMemoryShare share;
            for (unsigned step = 1; step <= steps; ++step) {
                share.setUsed(step % 60);
                EXPECT_LE(share.excess(), 60U);
            }
        });
    for (std::thread & thread : running)
        thread.join();
    EXPECT_EQ(manager.excess(), 0U);
    manager.setBudget(0);
    EXPECT_EQ(manager.excess(), 0U) << "nothing is left counted";
}

} // namespace
