#include "core/http/httpbackoff.h"

#include <gtest/gtest.h>

#include "core/http/httptimes.h"

using ZMT::CORE::IMPL::HttpBackoff;

TEST(HttpBackoff, SpansOfTimeAreThoseStated) {
    const ZMT::CORE::IMPL::HttpTimes times;
    EXPECT_EQ(times.silenceMilliseconds, 2000);
    EXPECT_EQ(times.firstPause, 0.25);
    EXPECT_EQ(times.longestPause, 10.0);
}

TEST(HttpBackoff, NothingIsLeftAloneAtFirst) {
    const HttpBackoff backoff;
    EXPECT_EQ(backoff.remaining("a", 0.0), 0.0);
    EXPECT_EQ(backoff.lastFailure("a"), L"");
}

TEST(HttpBackoff, KnowsWhenTheLastFailureWas) {
    HttpBackoff backoff;
    EXPECT_FALSE(backoff.failureTime("a"));
    backoff.failed("a", 9.0, 10.0, 0.0, L"");
    backoff.failed("a", 9.5, 12.0, 0.0, L"");
    EXPECT_EQ(12.0, backoff.failureTime("a"));
    EXPECT_FALSE(backoff.failureTime("b"));
    backoff.succeeded("a", 13.0);
    EXPECT_FALSE(backoff.failureTime("a"));
}

TEST(HttpBackoff, PauseDoublesUpToTheLongest) {
    HttpBackoff backoff;
    double now = 100.0;
    for (const double pause : {0.25, 0.5, 1.0, 2.0, 4.0, 8.0, 10.0, 10.0}) {
        backoff.failed("a", now, now, 0.0, L"why");
        EXPECT_DOUBLE_EQ(backoff.remaining("a", now), pause);
        EXPECT_EQ(backoff.remaining("b", now), 0.0);
        now += pause;
        EXPECT_EQ(backoff.remaining("a", now), 0.0);
    }
    EXPECT_EQ(backoff.lastFailure("a"), L"why");
}

TEST(HttpBackoff, TransfersThatFailTogetherAreOneFailure) {
    HttpBackoff backoff;
    for (const double now : {101.0, 101.01, 101.02, 101.03})
        backoff.failed("a", 100.0, now, 0.0, L"");
    EXPECT_NEAR(backoff.remaining("a", 101.03), 0.25, 1e-9);
}

TEST(HttpBackoff, SuccessBeginsAnew) {
    HttpBackoff backoff;
    backoff.failed("a", 100.0, 100.0, 0.0, L"");
    backoff.failed("a", 101.0, 101.0, 0.0, L"");
    backoff.succeeded("a", 102.0);
    EXPECT_EQ(backoff.remaining("a", 102.0), 0.0);
    backoff.failed("a", 103.0, 103.0, 0.0, L"");
    EXPECT_DOUBLE_EQ(backoff.remaining("a", 103.0), 0.25);
}

TEST(HttpBackoff, SuccessOfWhatBeganBeforeTheFailureChangesNothing) {
    HttpBackoff backoff;
    backoff.failed("a", 100.0, 101.0, 0.0, L"");
    backoff.succeeded("a", 100.5);
    backoff.succeeded("b", 102.0);
    EXPECT_DOUBLE_EQ(backoff.remaining("a", 101.0), 0.25);
}

TEST(HttpBackoff, ServerAsksForALongerPause) {
    HttpBackoff backoff;
    backoff.failed("a", 100.0, 100.0, 60.0, L"");
    EXPECT_DOUBLE_EQ(backoff.remaining("a", 100.0), 60.0);
    backoff.failed("a", 99.0, 101.0, 0.0, L"");
    EXPECT_DOUBLE_EQ(backoff.remaining("a", 101.0), 59.0);
    // A shorter wish than the pause is no reason to hurry.
    backoff.failed("b", 100.0, 100.0, 0.1, L"");
    EXPECT_DOUBLE_EQ(backoff.remaining("b", 100.0), 0.25);
}
