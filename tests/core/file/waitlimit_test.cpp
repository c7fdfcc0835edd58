#include <core/file/waitlimit.h>

#include <gtest/gtest.h>

#include <support/scriptedfilecalls.h>

using ZMT::CORE::IMPL::WaitLimit;

namespace {

TEST(WaitLimit, PassesThirtySecondsAfterItBegan) {
    ScriptedFileCalls calls;
    calls.laterSeconds = 1000.0;
    const WaitLimit limit;
    EXPECT_FALSE(limit.hasPassed());
    calls.laterSeconds = 1029.0;
    EXPECT_FALSE(limit.hasPassed());
    calls.laterSeconds = 1030.0;
    EXPECT_TRUE(limit.hasPassed());
}

TEST(WaitLimit, EndsWithTheOuterOne) {
    ScriptedFileCalls calls;
    {
        const WaitLimit outer;
        calls.laterSeconds = 20.0;
        {
            const WaitLimit inner;
            EXPECT_FALSE(inner.hasPassed());
            calls.laterSeconds = 30.0;
            EXPECT_TRUE(inner.hasPassed());
        }
        EXPECT_TRUE(outer.hasPassed());
    }
    const WaitLimit next;
    EXPECT_FALSE(next.hasPassed()) << "it is no inner one";
    calls.laterSeconds = 60.0;
    EXPECT_TRUE(next.hasPassed());
}

} // namespace
