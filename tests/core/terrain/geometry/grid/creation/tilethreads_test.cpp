#include "core/terrain/geometry/grid/creation/tilethreads.h"

#include <atomic>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace {

using namespace ZMT::CORE::GRID;

TEST(TileThreadsTest, DoesEachWorkOnce) {
    for (const unsigned count : {1U, 2U, 5U}) {
        TileThreads threads(count);
        EXPECT_EQ(count, threads.threads());
        for (const std::size_t works : {0U, 1U, 3U, 1000U}) {
            std::vector<std::atomic<int>> done(works);
            threads.run(works, [&](std::size_t i) { ++done[i]; });
            for (const std::atomic<int> & times : done)
                EXPECT_EQ(1, times);
        }
    }
    EXPECT_LE(1U, TileThreads(0).threads());
}

TEST(TileThreadsTest, OthersBeginBeforeAnybodyWaits) {
    TileThreads threads(2);
    std::atomic<int> done{0};
    threads.start(3, [&](std::size_t) { ++done; });
    while (done < 3)
        std::this_thread::yield();
    threads.finish();
    EXPECT_EQ(3, done);
}

TEST(TileThreadsTest, TheFirstFailureIsThrown) {
    for (const unsigned count : {1U, 4U}) {
        TileThreads threads(count);
        for (int round = 0; round < 50; ++round) {
            std::mutex mutex;
            std::set<std::size_t> failed;
            const auto work = [&](std::size_t i) {
                if (i < 5 || i % 3 != 0) return;
                const std::lock_guard<std::mutex> lock(mutex);
                failed.insert(i);
                throw std::runtime_error(std::to_string(i));
            };
            try {
                threads.run(60, work);
                FAIL();
            } catch (const std::runtime_error & e) {
                EXPECT_EQ(std::to_string(*failed.begin()), e.what());
            }
            EXPECT_GE(count, failed.size()) << "nothing more is begun";
        }
        threads.run(3, [](std::size_t) {});
    }
}

TEST(TileThreadsTest, TheFirstFailureIsThatOfTheLowestNumber) {
    TileThreads threads(2);
    for (int round = 0; round < 50; ++round) {
        std::atomic<bool> isThrown{false};
        try {
            threads.run(2, [&](std::size_t i) {
                for (int waits = 0; i == 0 && (!isThrown || waits < 1000); ++waits)
                    std::this_thread::yield();
                isThrown = true;
                throw std::runtime_error(std::to_string(i));
            });
            FAIL();
        } catch (const std::runtime_error & e) {
            EXPECT_STREQ("0", e.what());
        }
    }
}

TEST(TileThreadsTest, AbandonedWorkIsOverWhenItsScopeEnds) {
    TileThreads threads(3);
    std::atomic<int> running{0}, begun{0};
    {
        const AbandonedTileWork abandoned(threads);
        threads.start(100000, [&](std::size_t) {
            ++begun;
            ++running;
            std::this_thread::yield();
            --running;
            throw std::runtime_error("nobody hears");
        });
    }
    EXPECT_EQ(0, running);
    EXPECT_GE(3, begun);
    threads.run(1, [&](std::size_t) { begun = -1; });
    EXPECT_EQ(-1, begun);
}

} // namespace
