#include <zmt/core/cache/requestqueue.h>

#include <gtest/gtest.h>

#include <nbx/data/memorydataresource.h>

namespace {

using NBX::MemoryDataResource;
using NBX::SO;
using Queue = ZMT::CORE::RequestQueue<MemoryDataResource, MemoryDataResource>;

SO<MemoryDataResource> makeObject() {
    return new MemoryDataResource(1);
}

struct RequestQueueTest : testing::Test {
    SO<MemoryDataResource> a = makeObject(), b = makeObject(), preparer = makeObject();
    Queue queue;
    Queue::Requests taken;

    const MemoryDataResource * mostWanted() {
        return queue.takeMostWanted(taken) ? taken.back().key.get() : nullptr;
    }
};

TEST_F(RequestQueueTest, AddsUpPrioritiesOfEqualRequests) {
    queue.add(a, preparer, 2.0, 0);
    queue.add(b, preparer, 3.0, 0);
    queue.add(a, preparer, 2.0, 0);
    EXPECT_EQ(queue.size(), 2U);
    EXPECT_EQ(mostWanted(), a.get());
    EXPECT_EQ(taken.back().priority, 4.0);
    EXPECT_EQ(mostWanted(), b.get());
    EXPECT_EQ(mostWanted(), nullptr);
}

TEST_F(RequestQueueTest, KeepsRequestsForOneKeyWithOtherPreparersApart) {
    const auto other = makeObject();
    queue.add(a, preparer, 1.0, 0);
    queue.add(a, other, 1.0, 0);
    EXPECT_EQ(queue.size(), 2U);
    queue.takeOneFor(a.get(), taken);
    EXPECT_EQ(taken.back().preparer, preparer);
    EXPECT_EQ(queue.size(), 1U);
    queue.takeOneFor(b.get(), taken);
    EXPECT_EQ(queue.size(), 1U);
}

TEST_F(RequestQueueTest, ServesTheFirstAmongEquals) {
    queue.add(b, preparer, 1.0, 0);
    queue.add(a, preparer, 1.0, 0);
    EXPECT_EQ(mostWanted(), b.get());
}

TEST_F(RequestQueueTest, FadesAndForgetsWhatIsNotRepeated) {
    queue.add(a, preparer, 8.0, 0);
    queue.add(b, preparer, 8.0, 0);
    queue.fade(0.5, 3, 3, taken);
    EXPECT_TRUE(taken.empty());
    queue.add(b, preparer, 1.0, 3);
    queue.fade(0.5, 4, 3, taken);
    ASSERT_EQ(taken.size(), 1U);
    EXPECT_EQ(taken.front().key, a);
    EXPECT_EQ(mostWanted(), b.get());
    EXPECT_EQ(taken.back().priority, 2.5);
}

TEST_F(RequestQueueTest, StartsAnewAfterClear) {
    queue.add(a, preparer, 8.0, 0);
    queue.clear();
    EXPECT_TRUE(queue.isEmpty());
    queue.add(a, preparer, 1.0, 0);
    EXPECT_EQ(mostWanted(), a.get());
    EXPECT_EQ(taken.back().priority, 1.0);
}

} // namespace
