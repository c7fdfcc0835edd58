#include "nbx/object/heldreports.h"

#include <thread>

#include <gtest/gtest.h>

#include <support/recordedreports.h>

using NBX::ErrorReport;
using NBX::HeldReports;

TEST(HeldReports, NoHandlerIsCalledWhileReportsAreHeld) {
    RecordedReports reports;
    std::vector<ErrorReport> list;
    {
        const HeldReports held(list);
        NBX_FAILURE(L"first " << 1);
        NBX_CHECK(1 > 2, L"second");
    }
    EXPECT_TRUE(reports.empty()) << reports;
    NBX_FAILURE(L"third");
    EXPECT_EQ(reports.size(), 1U) << reports;

    ASSERT_EQ(list.size(), 2U);
    HeldReports::release(list);
    ASSERT_EQ(reports.size(), 3U) << reports;
    EXPECT_EQ(reports[1].level, 2);
    EXPECT_EQ(reports[1].message, L"first 1");
    EXPECT_EQ(reports[2].condition, L"1 > 2");
    EXPECT_EQ(reports[2].line, list[1].line);
    EXPECT_EQ(reports[2].sourcePath, list[1].sourcePath);
}

TEST(HeldReports, TheInnerOneTakesAll) {
    RecordedReports reports;
    std::vector<ErrorReport> outer, inner;
    const HeldReports heldOutside(outer);
    {
        const HeldReports held(inner);
        NBX_FAILURE(L"in");
    }
    NBX_FAILURE(L"out");
    EXPECT_EQ(inner.size(), 1U);
    EXPECT_EQ(outer.size(), 1U);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(HeldReports, OtherThreadsReportAsBefore) {
    RecordedReports reports;
    std::vector<ErrorReport> list;
    const HeldReports held(list);
    std::thread([] { NBX_FAILURE(L"elsewhere"); }).join();
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(reports.count(L"elsewhere"), 1U) << reports;
}
