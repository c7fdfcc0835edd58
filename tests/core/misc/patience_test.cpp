#include <zmt/core/misc/patience.h>

#include <gtest/gtest.h>

#include <support/scriptedfilecalls.h>

using ZMT::CORE::Patience;

namespace {

TEST(Patience, EndsAfterItsTime) {
    ScriptedFileCalls calls;
    calls.laterSeconds = 1000.0;
    EXPECT_FALSE(Patience::hasEnded()) << "nobody has any";
    {
        const Patience patience(2.0);
        EXPECT_FALSE(Patience::hasEnded());
        calls.laterSeconds = 1001.9;
        EXPECT_FALSE(Patience::hasEnded());
        calls.laterSeconds = 1002.0;
        EXPECT_TRUE(Patience::hasEnded());
        EXPECT_FALSE(Patience::takesInput());
    }
    EXPECT_FALSE(Patience::hasEnded());
    const Patience none(0.0);
    EXPECT_TRUE(Patience::hasEnded());
}

TEST(Patience, EndsWhenItIsLost) {
    bool isLost = false;
    {
        const Patience patience([&] { return isLost; });
        EXPECT_FALSE(Patience::hasEnded());
        EXPECT_TRUE(Patience::takesInput());
        isLost = true;
        EXPECT_TRUE(Patience::hasEnded());
    }
    EXPECT_FALSE(Patience::hasEnded());
    EXPECT_FALSE(Patience::takesInput());
}

TEST(Patience, OfSeveralTheFirstToEndCounts) {
    ScriptedFileCalls calls;
    calls.laterSeconds = 1000.0;
    bool isLost = false;
    const Patience outer([&] { return isLost; });
    {
        const Patience inner(5.0);
        {
            const Patience innermost(9.0);
            EXPECT_TRUE(Patience::takesInput());
            EXPECT_FALSE(Patience::hasEnded());
            calls.laterSeconds = 1006.0;
            EXPECT_TRUE(Patience::hasEnded());
            calls.laterSeconds = 1000.0;
            isLost = true;
            EXPECT_TRUE(Patience::hasEnded());
            isLost = false;
        }
        calls.laterSeconds = 1006.0;
        EXPECT_TRUE(Patience::hasEnded());
    }
    EXPECT_FALSE(Patience::hasEnded());
}

TEST(Patience, IsThatOfItsThread) {
    const Patience none(0.0);
    bool hasEnded = true;
    std::thread([&] { hasEnded = Patience::hasEnded(); }).join();
    EXPECT_FALSE(hasEnded);
}

} // namespace
