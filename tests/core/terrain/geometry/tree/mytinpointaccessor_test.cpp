#include <zmt/core/terrain/geometry/tree/mytinpointaccessor.h>

#include <gtest/gtest.h>

#include <support/recordedreports.h>

#include "support/testterrain.h"

using ZMT::CORE::MyTinPointAccessor;
using Point = NBX::Vector3Base<double>;

namespace {

TEST(MyTinPointAccessor, GivesPlaneAndHeight) {
    MyTinPointAccessor::currentData = TestTerrain::grid({5, 4, 100.0, 200.0, 2.0, 3.0}, TestTerrain::bumpy);
    EXPECT_EQ(MyTinPointAccessor().point(0), Point(0, 0, TestTerrain::bumpy(0, 0)));
    EXPECT_EQ(MyTinPointAccessor().point(13), Point(6, 6, TestTerrain::bumpy(3, 2)));
    MyTinPointAccessor::currentData = nullptr;
}

TEST(MyTinPointAccessor, HasOnePointOfItsOwn) {
    const RecordedReports reports;
    MyTinPointAccessor::centerPoint = Point(1, 2, 3);
    EXPECT_EQ(MyTinPointAccessor().point(0xFFFFFFFF), Point(1, 2, 3));
    MyTinPointAccessor::centerPoint = Point();
    EXPECT_TRUE(reports.empty()) << "no data are needed";
}

TEST(MyTinPointAccessor, ReportsMissingData) {
    const RecordedReports reports;
    MyTinPointAccessor::currentData = nullptr;
    EXPECT_EQ(MyTinPointAccessor().point(3), Point());
    EXPECT_EQ(reports.count(0, L"data", L"no geometry-data"), 1U) << reports;
}

} // namespace
