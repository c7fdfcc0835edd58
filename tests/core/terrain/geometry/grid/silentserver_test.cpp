// Questions about heights to a terrain on a web server that does not answer, or not in time.

#include <cmath>

#include "support/recordedreports.h"
#include "support/webtest.h"
#include "writtenterrain.h"

#include "core/file/filecalls.h"
#include "core/file/waitlimit.h"

#include <zmt/core/terrain/frame/geotransformation.h>

using namespace ZMT::CORE;
using namespace ZMT::CORE::GRID;
using NBX::SO;
using Point = NBX::Vector3Base<double>;

namespace {

/// In the middle of a cell of 1 by 1.
const Point s_place(37.5, 0.0, 22.5);
/// Over the whole terrain, close to the ground.
const NBX::Ray s_long(Point(-5.0, 190.0, 21.3), Point(60.0, -80.0, 20.0));

class Clock {
public:
    double seconds() const { return NBX::NBXTime::now() - start_; }

private:
    double start_ = NBX::NBXTime::now();
};

/// The clock of the waits goes on by a second each time it is looked at.
unsigned s_looks = 0;
double hurryingNow() {
    return ++s_looks;
}

class SilentServerTest : public WebTest {
protected:
    void SetUp() override {
        WebTest::SetUp();
        const SO<FunctionBand> band(new FunctionBand(65, 65, FunctionBand::hills));
        bytes_ = writtenTerrain(band, 3);
        server_.setFile("/t.ztt", std::string(bytes_.begin(), bytes_.end()));
        GeoTransformation::setNBXOrigin({});
        terrain_ = AsyncGridTerrain::load(server_.url("/t.ztt"));
        ASSERT_TRUE(terrain_);
        // The bound is not that of the transfers.
        IMPL::httpTimes().silenceMilliseconds = 60000;
        coarse_ = terrain_->calculateHeight(s_place, true);
        exact_ = memoryTerrain(bytes_)->calculateHeight(s_place, false);
        ASSERT_GT(std::abs(coarse_ - exact_), 0.01);
        server_.resetCounts();
    }
    void TearDown() override {
        server_.setHeld(false);
        terrain_ = nullptr;
        WebTest::TearDown();
    }

    std::vector<std::uint8_t> bytes_;
    SO<AsyncGridTerrain> terrain_;
    double coarse_ = 0.0, exact_ = 0.0;
};

TEST_F(SilentServerTest, CoarseHeightsAnswerWhenTheTimeIsOver) {
    const RecordedReports reports;
    server_.setHeld(true);
    const Clock clock;
    const GridTerrain::HeightAnswer answer = terrain_->heightWithin(0.3, s_place);
    EXPECT_GE(clock.seconds(), 0.25);
    EXPECT_LT(clock.seconds(), 1.0);
    EXPECT_TRUE(answer.isCoarse);
    EXPECT_EQ(answer.height, coarse_);
    EXPECT_TRUE(AsyncGridTerrain::readFailures().empty()) << "the tile is still on its way";
    EXPECT_TRUE(reports.empty()) << reports;
    server_.setHeld(false);
    const GridTerrain::HeightAnswer later = terrain_->heightWithin(20.0, s_place);
    EXPECT_FALSE(later.isCoarse);
    EXPECT_EQ(later.height, exact_);
    EXPECT_EQ(server_.requests(), 3U) << "each tile was asked for once";
}

TEST_F(SilentServerTest, TheTimeIsThatOfAllTilesTogether) {
    HttpAnswer slow;
    slow.delay = 0.25;
    server_.always(slow);
    const Clock clock;
    EXPECT_TRUE(terrain_->heightWithin(0.4, s_place).isCoarse);
    EXPECT_LT(clock.seconds(), 0.7) << "three tiles take longer";
    EXPECT_EQ(terrain_->heightWithin(20.0, s_place).height, exact_);
}

TEST_F(SilentServerTest, RaysDoNotWaitLongerForSeveralTiles) {
    const RecordedReports reports;
    server_.setHeld(true);
    const Clock clock;
    const GridTerrain::RayAnswer answer = terrain_->rayIntersectionWithin(0.3, s_long);
    EXPECT_LT(clock.seconds(), 1.0);
    EXPECT_TRUE(answer.isCoarse);
    ASSERT_TRUE(answer.point);
    Point loaded;
    ASSERT_TRUE(terrain_->rayIntersection(s_long, loaded, true));
    EXPECT_EQ(*answer.point, loaded);
    EXPECT_TRUE(reports.empty()) << reports;
    server_.setHeld(false);
    const GridTerrain::RayAnswer later = terrain_->rayIntersectionWithin(20.0, s_long);
    EXPECT_FALSE(later.isCoarse);
    Point exact;
    ASSERT_TRUE(memoryTerrain(bytes_)->rayIntersection(s_long, exact, false));
    EXPECT_EQ(later.point, exact);
    EXPECT_FALSE(terrain_->rayIntersectionWithin(1.0, {{0.0, 900.0, 0.0}, {0.0, 1.0, 0.0}}).point);
}

TEST_F(SilentServerTest, WhoDoesNotWaitGetsFinerAnswersLater) {
    const Clock clock;
    EXPECT_TRUE(terrain_->heightWithin(0.0, s_place).isCoarse);
    EXPECT_LT(clock.seconds(), 0.2);
    GridTerrain::HeightAnswer answer{};
    ASSERT_TRUE(runUntil([&] {
        answer = terrain_->heightWithin(0.0, s_place);
        return !answer.isCoarse;
    }));
    EXPECT_EQ(answer.height, exact_);
    EXPECT_EQ(server_.requests(), 3U);
}

TEST_F(SilentServerTest, WhatCannotBeReadIsAnsweredCoarselyAtOnce) {
    const RecordedReports reports;
    HttpAnswer broken;
    broken.status = 503;
    server_.always(broken);
    EXPECT_TRUE(terrain_->heightWithin(20.0, s_place).isCoarse);
    const Clock clock;
    const GridTerrain::HeightAnswer answer = terrain_->heightWithin(20.0, s_place);
    EXPECT_TRUE(answer.isCoarse);
    EXPECT_EQ(answer.height, coarse_);
    EXPECT_LT(clock.seconds(), 0.2) << "it is too early to ask again";
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_EQ(AsyncGridTerrain::readFailures().size(), 1U);
}

/// Without a bound of its own a question waits as long as one wait may take, and not that long for each tile.
TEST_F(SilentServerTest, AQuestionEndsAfterThirtySecondsInAll) {
    const RecordedReports reports;
    server_.setHeld(true);
    const IMPL::FileCalls before = IMPL::fileCalls();
    IMPL::fileCalls().now = hurryingNow;
    s_looks = 0;
    // Just below the highest summit, through two tiles.
    Point hit;
    terrain_->rayIntersection({{-5.0, terrain_->highestPoint().y - 0.01, 5.3}, {1.0, 0.0, 0.0}}, hit, false);
    IMPL::fileCalls() = before;
    EXPECT_GE(s_looks, 30U);
    EXPECT_LT(s_looks, 60U);
    EXPECT_GE(AsyncGridTerrain::readFailures().size(), 2U);
    EXPECT_EQ(reports.size(), 1U) << reports;
}

} // namespace
