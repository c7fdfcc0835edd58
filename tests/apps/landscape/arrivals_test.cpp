#include <gtest/gtest.h>

#include "landscape/arrivals.h"

#include <nbx/engine/graphicsmemorymanager.h>

namespace {

class Held : public NBX::SharedObj {};

/// Asks twice a second from `start` on, for so many seconds.
bool endsWithin(Arrivals & arrivals, double & now, double seconds) {
    for (const double end = now + seconds; now < end; now += 0.5)
        if (arrivals.haveEnded(now)) return true;
    return false;
}

TEST(Arrivals, EndTenSecondsBehindTheLastProgress) {
    Arrivals arrivals;
    double now = NBX::NBXTime::now();
    EXPECT_FALSE(endsWithin(arrivals, now, 9.5));
    EXPECT_TRUE(endsWithin(arrivals, now, 1.5));
}

TEST(Arrivals, WhatIsTakenIsProgress) {
    Arrivals arrivals;
    double now = NBX::NBXTime::now();
    EXPECT_FALSE(endsWithin(arrivals, now, 9.0));
    const NBX::SO<NBX::SharedObj> held(new Held);
    NBX::GraphicsMemoryManager::instance()->add(held.get(), 1000);
    EXPECT_FALSE(endsWithin(arrivals, now, 9.0)) << "something was uploaded";
    NBX::GraphicsMemoryManager::instance()->remove(held.get());
    EXPECT_FALSE(endsWithin(arrivals, now, 9.0));
    EXPECT_TRUE(endsWithin(arrivals, now, 3.0));
}

/// With fewer bytes than that, nobody can wait for the end.
TEST(Arrivals, WhatComesForTheFirstTimeIsProgress) {
    Arrivals arrivals;
    double now = NBX::NBXTime::now();
    ZMT::CORE::ReadProgress file;
    EXPECT_FALSE(endsWithin(arrivals, now, 9.0));
    file.note(100, Arrivals::s_fewestBytes - 1);
    EXPECT_FALSE(endsWithin(arrivals, now, 0.5));
    file.note(100, Arrivals::s_fewestBytes);
    EXPECT_FALSE(endsWithin(arrivals, now, 10.0)) << "bytes add up";
    file.note(100, Arrivals::s_fewestBytes);
    EXPECT_TRUE(endsWithin(arrivals, now, 1.5)) << "the same came again";
}

TEST(Arrivals, DropsAreNoProgress) {
    Arrivals arrivals;
    double now = NBX::NBXTime::now();
    ZMT::CORE::ReadProgress file;
    bool hasEnded = false;
    for (unsigned second = 1; second <= 12 && !hasEnded; ++second) {
        file.note(100, 4 * second);
        hasEnded = endsWithin(arrivals, now, 1.0);
    }
    EXPECT_TRUE(hasEnded);
}

TEST(Arrivals, SlowPicturesAreWaitedFor) {
    Arrivals arrivals;
    double now = NBX::NBXTime::now();
    for (unsigned picture = 0; picture + 1 < Arrivals::s_fewestAsks; ++picture, now += 30.0)
        EXPECT_FALSE(arrivals.haveEnded(now)) << picture;
    EXPECT_TRUE(arrivals.haveEnded(now));
}

} // namespace
