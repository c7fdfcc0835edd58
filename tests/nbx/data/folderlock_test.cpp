#include <nbx/data/folderlock.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "support/temporaryfolder.h"

namespace NBX {
namespace {

TEST(FolderLock, OneHasItAtATime) {
    const TemporaryFolder folder;
    const std::string path = std::getenv("TMPDIR");
    std::atomic<bool> isFree{false}, isWaiting{false};
    std::thread other;
    {
        const FolderLock lock(path);
        ASSERT_TRUE(lock.isLocked());
        other = std::thread([&] {
            int waits = 0;
            const FolderLock second(path, [&] {
                EXPECT_FALSE(isFree);
                isWaiting = true;
                ++waits;
            });
            EXPECT_TRUE(second.isLocked());
            EXPECT_TRUE(isFree);
            EXPECT_EQ(waits, 1);
        });
        while (!isWaiting)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        isFree = true;
    }
    other.join();
    const auto nobodyWaits = [] { FAIL() << "nobody else has it"; };
    EXPECT_TRUE(FolderLock("", nobodyWaits).isLocked());
    EXPECT_FALSE(FolderLock(path + "/none", nobodyWaits).isLocked());
}

} // namespace
} // namespace NBX
