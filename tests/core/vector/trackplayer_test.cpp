#include <zmt/core/vector/trackplayer.h>

#include <cmath>

#include <gtest/gtest.h>

#include "support/recordedreports.h"
#include "support/steppedclock.h"

namespace {

using namespace ZMT::CORE;
using NBX::SO;

class TrackPlayerTest : public testing::Test {
protected:
    /// With places from 0 to 10, at 15, and from 20 to 30.
    TrackPlayerTest() : player(new TrackPlayer(gappedTrack(), clock.get())) {
        player->setObserver([this] { ++changes; });
    }
    /// A clock and what it calls hold each other.
    ~TrackPlayerTest() override { player->pause(); }
    static SO<const VectorTrack> gappedTrack() {
        return new VectorTrack({{{0, {}}, {10, {}}}, {{15, {}}}, {{20, {}}, {30, {}}}}, 10.0);
    }
    void wait(double seconds) {
        clock->time += seconds;
        clock->serve();
    }

    const SO<SteppedClock> clock{new SteppedClock};
    const SO<TrackPlayer> player;
    int changes = 0;
};

TEST_F(TrackPlayerTest, NothingGoesOnBeforeItPlays) {
    wait(3.0);
    EXPECT_EQ(0.0, player->time());
    EXPECT_FALSE(player->isPlaying());
    EXPECT_EQ(NBX::Clock::never(), clock->nextTick());
    EXPECT_EQ(0, changes);
}

TEST_F(TrackPlayerTest, TimeGoesOnWithTheClock) {
    clock->time = 500.0;
    player->play();
    EXPECT_TRUE(player->isPlaying());
    wait(0.5);
    EXPECT_EQ(0.5, player->time());
    player->setSpeed(4.0);
    wait(1.0);
    EXPECT_EQ(4.5, player->time());
    EXPECT_EQ(3, changes);
    EXPECT_NEAR(clock->time + 0.02, clock->nextTick(), 1e-9);
    player->pause();
    EXPECT_EQ(NBX::Clock::never(), clock->nextTick());
    wait(5.0);
    EXPECT_EQ(4.5, player->time());
    player->play();
    wait(0.25);
    EXPECT_EQ(5.5, player->time()) << "the pause does not count";
}

TEST_F(TrackPlayerTest, GapsTakeNoTime) {
    player->play();
    player->seek(9.0);
    wait(1.5);
    EXPECT_EQ(20.5, player->time());
    player->seek(12.0);
    EXPECT_FALSE(player->place());
    wait(2.0);
    EXPECT_EQ(22.0, player->time()) << "from a gap on it begins behind it";
    player->seek(0.0);
    player->setSpeed(100.0);
    wait(0.15);
    EXPECT_NEAR(25.0, player->time(), 1e-9) << "nor are they leapt over for the time that they last";
}

TEST_F(TrackPlayerTest, ItPausesAtTheEndAndBeginsAnew) {
    player->play();
    player->seek(29.0);
    wait(2.0);
    EXPECT_EQ(30.0, player->time());
    EXPECT_FALSE(player->isPlaying());
    EXPECT_EQ(NBX::Clock::never(), clock->nextTick());
    player->play();
    EXPECT_EQ(0.0, player->time());
    wait(1.0);
    EXPECT_EQ(1.0, player->time());
}

TEST_F(TrackPlayerTest, LoopsGoOnFromTheStart) {
    player->setLooping(true);
    player->play();
    player->seek(29.0);
    wait(1.5);
    EXPECT_EQ(0.5, player->time());
    EXPECT_TRUE(player->isPlaying());
    wait(3 * 20.0 + 10.0);
    EXPECT_EQ(20.5, player->time());
    player->setSpeed(1e308);
    wait(1e10);
    EXPECT_EQ(20.5, player->time()) << "faster than numbers count";
}

TEST_F(TrackPlayerTest, PointsAloneAreNoLoop) {
    const SO<TrackPlayer> points(new TrackPlayer(new VectorTrack({{{1, {}}}, {{5, {}}}}, 1.0), clock.get()));
    points->setLooping(true);
    points->play();
    wait(1.0);
    EXPECT_EQ(5.0, points->time());
    EXPECT_FALSE(points->isPlaying());
}

TEST_F(TrackPlayerTest, AnEmptyTrackDoesNotPlay) {
    for (const SO<const VectorTrack> & track :
         {SO<const VectorTrack>(new VectorTrack({})), SO<const VectorTrack>()}) {
        RecordedReports reports;
        const SO<TrackPlayer> empty(new TrackPlayer(track, clock.get()));
        EXPECT_EQ(track ? 0U : 1U, reports.size());
        empty->play();
        EXPECT_FALSE(empty->isPlaying());
        EXPECT_FALSE(empty->place());
        empty->seek(4.0);
        EXPECT_EQ(0.0, empty->time());
    }
}

TEST_F(TrackPlayerTest, SeekingStaysOnTheTrack) {
    player->seek(-5.0);
    EXPECT_EQ(0.0, player->time());
    player->seek(1e9);
    EXPECT_EQ(30.0, player->time());
    RecordedReports reports;
    player->seek(NAN);
    EXPECT_EQ(30.0, player->time());
    EXPECT_EQ(1U, reports.size());
    for (const double speed : {0.0, -1.0, HUGE_VAL, double(NAN)})
        player->setSpeed(speed);
    EXPECT_EQ(5U, reports.size());
    EXPECT_EQ(1.0, player->speed());
}

TEST_F(TrackPlayerTest, ItMayBeDroppedWhileItPlays) {
    SO<TrackPlayer> dropped(new TrackPlayer(gappedTrack(), clock.get()));
    bool isPaused = false;
    dropped->setObserver([&, player = dropped.get()] { isPaused = !player->isPlaying(); });
    dropped->play();
    dropped->seek(29.5);
    dropped = nullptr;
    EXPECT_FALSE(isPaused);
    wait(1.0);
    EXPECT_TRUE(isPaused);
}

TEST_F(TrackPlayerTest, ObserversMayPauseIt) {
    player->setObserver([this] { player->pause(); });
    player->play();
    EXPECT_FALSE(player->isPlaying());
    EXPECT_FALSE(player->isActive());
}

} // namespace
