#include <nbx/object/errorhandler.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <nbx/object/callback.h>
#include <support/recordedreports.h>

using NBX::ErrorHandler;

namespace {

TEST(ErrorHandler, ACheckReportsConditionAndMessageAndGoesOn) {
    const RecordedReports reports;
    const bool isRunning = true;
    bool reached = false;
    const int before = __LINE__;
    NBX_CHECK(!isRunning, L"still running: " << 3);
    reached = true;
    EXPECT_TRUE(reached);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].level, 0);
    EXPECT_EQ(reports[0].condition, L"!isRunning");
    EXPECT_EQ(reports[0].message, L"still running: 3");
    EXPECT_EQ(reports[0].line, before + 1);
}

TEST(ErrorHandler, AConditionThatHoldsReportsNothingAndStreamsNothing) {
    const RecordedReports reports;
    int streamed = 0;
    NBX_CHECK(reports.empty(), ++streamed);
    EXPECT_TRUE(reports.empty());
    EXPECT_EQ(streamed, 0);
}

TEST(ErrorHandler, RangeChecksTellTheRange) {
    const RecordedReports reports;
    for (const int i : {-1, 0, 4, 5})
        NBX_CHECK_RANGE(0, i, 5);
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_EQ(reports[0].message, L"range error: [0, 5), -1");
    EXPECT_EQ(reports[1].message, L"range error: [0, 5), 5");
}

TEST(ErrorHandler, LevelsAndConditionsOfTheOtherMacros) {
    const RecordedReports reports;
    NBX_FAILURE(L"disk on fire");
    NBX_NOT_IMPLEMENTED(L"no such thing");
    EXPECT_EQ(reports.count(2, L"false", L"disk on fire"), 1U);
    EXPECT_EQ(reports.count(3, L"L\"Not implemented\"", L"no such thing"), 1U);
}

TEST(ErrorHandler, SourcePathsAreRelativeToTheSourceFolder) {
    const RecordedReports reports;
    const NBX::SO<NBX::CallbackBase> callback(new NBX::FunctionCallback1<int>(nullptr));
    EXPECT_TRUE(std::string(reports[0].sourcePath).starts_with("..\\..\\src\\")) << reports[0].sourcePath;
}

TEST(ErrorHandler, MessagesDoNotMixBetweenThreads) {
    const RecordedReports reports;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 200; ++i)
                NBX_FAILURE(L"thread " << t << L" says " << t);
        });
    for (std::thread & thread : threads)
        thread.join();
    EXPECT_EQ(reports.size(), 800U);
    for (int t = 0; t < 4; ++t) {
        const std::wstring number = std::to_wstring(t);
        EXPECT_EQ(reports.count(L"thread " + number + L" says " + number), 200U);
    }
}

TEST(ErrorHandler, AReportMadeWhileAMessageIsStreamedLeavesItWhole) {
    const RecordedReports reports;
    const auto value = [] {
        NBX_FAILURE(L"inner " << [] {
            NBX_FAILURE(L"innermost");
            return 2;
        }());
        return 1;
    };
    NBX_REPORT(0, L"outer condition", L"before " << value() << L" behind");
    ASSERT_EQ(reports.size(), 3U);
    EXPECT_EQ(reports[0].message, L"innermost");
    EXPECT_EQ(reports[1].message, L"inner 2");
    EXPECT_EQ(reports[2].message, L"before 1 behind");
    EXPECT_EQ(reports[2].condition, L"outer condition");
}

TEST(ErrorHandler, MessagesThatAnExceptionLeftBehindDoNotShow) {
    const RecordedReports reports;
    const auto fails = []() -> int { throw std::runtime_error("no value"); };
    for (int i = 0; i < 100; ++i)
        EXPECT_THROW(NBX_FAILURE(L"left behind " << fails()), std::runtime_error);
    NBX_FAILURE(L"whole");
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].message, L"whole");
}

TEST(ErrorHandler, AHandlerMayReportItself) {
    int calls = 0;
    const auto before = ErrorHandler::setHandler([&](const NBX::ErrorReport &) {
        if (++calls == 1) NBX_FAILURE(L"within");
    });
    NBX_FAILURE(L"outside");
    ErrorHandler::setHandler(before);
    EXPECT_EQ(calls, 2);
}

TEST(ErrorHandler, SettingGivesTheHandlerBefore) {
    const RecordedReports outer;
    {
        const RecordedReports inner;
        NBX_FAILURE(L"for the inner one");
        EXPECT_EQ(inner.size(), 1U);
    }
    EXPECT_TRUE(outer.empty());
    NBX_FAILURE(L"for the outer one");
    EXPECT_EQ(outer.last().message, L"for the outer one");
}

TEST(ErrorHandler, TheFirstHandlerWritesOneLineToTheErrorStream) {
    const auto before = ErrorHandler::setHandler({});
    testing::internal::CaptureStderr();
    NBX_FAILURE(L"gr\u00fcn");
    const std::string written = testing::internal::GetCapturedStderr();
    ErrorHandler::setHandler(before);
    EXPECT_NE(written.find("gr\xC3\xBCn"), std::string::npos) << written;
    EXPECT_EQ(written.find('\n'), written.size() - 1);
}

TEST(ErrorHandler, LastErrorIsTheSystemsText) {
    errno = ENOENT;
    const std::wstring missing = ErrorHandler::getLastError();
    errno = EACCES;
    EXPECT_NE(missing, ErrorHandler::getLastError());
    EXPECT_FALSE(missing.empty());
}

} // namespace
