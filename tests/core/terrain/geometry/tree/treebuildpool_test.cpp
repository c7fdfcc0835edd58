#include <algorithm>
#include <stdexcept>

#include <gtest/gtest.h>

#include <support/recordedreports.h>

#include <nbx/data/objectstreamwriter.h>
#include <zmt/core/terrain/geometry/hybrid/createhybriddata.h>
#include <zmt/core/terrain/geometry/tree/mytinpointaccessor.h>

#include "core/terrain/geometry/treetest.h"

using TreeTest::build;
using TreeTest::flatGrid;
using TreeTest::StoppingDisplay;
using ZMT::CORE::CreateGeometryTree;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::GridData;

namespace {

using Point = NBX::Vector3Base<double>;

/// Byte for byte, strips included.
TEST(TreeBuildPool, AnyNumberOfThreadsGivesTheSameTree) {
    const RecordedReports reports;
    const std::vector<std::vector<Point>> towers{{{10.5, 75.0, 10.5}}, {{16.0, 30.0, 8.5}}};
    const NBX::SO<GridData> grids[] = {
        TestTerrain::grid({50, 60}, TestTerrain::bumpy), TestTerrain::grid({190, 9}, TestTerrain::bumpy),
        ZMT::CORE::CreateHybridData::create(flatGrid(32, 32), towers).get(), flatGrid(1, 1)};
    for (const NBX::SO<GridData> & grid : grids) {
        const auto alone = NBX::ObjectStreamWriter::write(*build(grid, 60));
        const int next = std::rand();
        for (const unsigned threads : {2U, 3U, 8U}) {
            SCOPED_TRACE(testing::Message() << grid->sizeX() << " columns, " << threads << " threads");
            EXPECT_TRUE(alone == NBX::ObjectStreamWriter::write(*build(grid, 60, threads)));
            EXPECT_EQ(std::rand(), next) << "as much was drawn";
        }
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(TreeBuildPool, ThreadsLeaveTheValuesOfTheProcessAsOneThreadDoes) {
    const auto grid = TestTerrain::grid({50, 60}, TestTerrain::bumpy);
    const Point nowhere(-1e9, -2e9, -3e9);
    ZMT::CORE::MyTinPointAccessor::centerPoint = nowhere;
    build(grid, 50);
    const Point centre = ZMT::CORE::MyTinPointAccessor::centerPoint;
    EXPECT_NE(centre, nowhere) << "one thread sets it";
    ZMT::CORE::MyTinPointAccessor::currentData = nullptr;
    ZMT::CORE::MyTinPointAccessor::centerPoint = Point();
    build(grid, 50, 4);
    EXPECT_EQ(ZMT::CORE::MyTinPointAccessor::currentData, grid);
    EXPECT_EQ(ZMT::CORE::MyTinPointAccessor::centerPoint, centre);
    ZMT::CORE::MyTinPointAccessor::currentData = nullptr;
}

TEST(TreeBuildPool, ReportsOfThreadsComeInTheOrderOfOne) {
    // A column of vertices: each rectangle of it is reported.
    const auto grid = TestTerrain::grid({1, 3000}, TestTerrain::bumpy);
    const auto reported = [&](unsigned threads) {
        const std::thread::id own = std::this_thread::get_id();
        std::vector<std::wstring> messages;
        const auto before = NBX::ErrorHandler::setHandler([&](const NBX::ErrorReport & report) {
            EXPECT_EQ(std::this_thread::get_id(), own);
            messages.push_back(report.condition + report.message);
        });
        build(grid, 50, threads);
        NBX::ErrorHandler::setHandler(before);
        return messages;
    };
    const auto alone = reported(1);
    EXPECT_GT(alone.size(), 100U);
    EXPECT_EQ(reported(4), alone);
}

/// Heights that cannot be read at some places.
class BrokenRaster : public ZMT::RASTER::SimpleRasterData<double> {
public:
    BrokenRaster() : SimpleRasterData(200, 200, 0.0, 0.0, 1.0, 1.0, false, 0.0) {}
    double value(unsigned x, unsigned y) const override {
        if (isBroken && y >= 90 && x % 50 == 20) throw std::runtime_error(std::to_string(x));
        return x * 3.0 + y;
    }
    bool isBroken = false;
};

TEST(TreeBuildPool, TheFirstExceptionOfThreadsReachesTheCaller) {
    NBX::SO<BrokenRaster> raster(new BrokenRaster);
    const NBX::SO<GridData> grid(new GridData(raster.get()));
    raster->isBroken = true;
    const auto thrown = [&](unsigned threads) -> std::string {
        testing::internal::CaptureStderr();
        std::string what = "nothing";
        try {
            CreateGeometryTree::create(grid.get(), 50, threads);
        } catch (const std::runtime_error & error) {
            what = error.what();
        }
        testing::internal::GetCapturedStderr();
        return what;
    };
    const std::string alone = thrown(1);
    EXPECT_NE(alone, "nothing");
    for (unsigned round = 0; round < 20; ++round)
        EXPECT_EQ(thrown(4), alone);
    raster->isBroken = false;
    EXPECT_TRUE(build(grid, 50, 4)) << "nothing is left behind";
}

TEST(TreeBuildPool, CanBeCancelled) {
    const auto grid = TestTerrain::grid({400, 400}, TestTerrain::bumpy);
    for (const unsigned updates : {0U, 1U}) {
        StoppingDisplay display(updates);
        EXPECT_FALSE(build(grid, 50, 3)) << updates;
        EXPECT_EQ(display.values_.size(), updates + 1) << "nothing follows";
        EXPECT_EQ(display.ends_, 1U);
        EXPECT_FALSE(display.isFinished_);
    }
    EXPECT_TRUE(build(flatGrid(30, 30), 50, 3)) << "not from the run before";
}

TEST(TreeBuildPool, TheProgressOfThreadsIsShownByTheCallerAndNeverFalls) {
    struct Display : StoppingDisplay {
        using StoppingDisplay::StoppingDisplay;
        bool update(const NBX::Progress & progress) override {
            EXPECT_EQ(std::this_thread::get_id(), own);
            return StoppingDisplay::update(progress);
        }
        std::thread::id own = std::this_thread::get_id();
    } display(1000);
    EXPECT_TRUE(build(TestTerrain::grid({150, 150}, TestTerrain::bumpy), 50, 3));
    EXPECT_TRUE(display.isFinished_);
    EXPECT_GE(display.values_.front(), 0.0);
    EXPECT_EQ(display.values_.back(), 1.0);
    EXPECT_TRUE(std::is_sorted(display.values_.begin(), display.values_.end()));
}

} // namespace
