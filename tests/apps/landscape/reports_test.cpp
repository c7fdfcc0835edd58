#include "landscape/reports.h"

#include <gtest/gtest.h>

#include "landscape/errors.h"

namespace {

void report(const std::wstring & message) {
    NBX_REPORT(2, L"false", message);
}

using Messages = std::vector<std::string>;

TEST(Reports, EqualMessagesComeOnceAndAreTakenOnce) {
    Reports reports;
    report(L"one");
    report(L"two");
    report(L"one");
    EXPECT_EQ((Messages{"one", "two"}), reports.take());
    EXPECT_EQ(Messages(), reports.take());
}

TEST(Reports, AreBounded) {
    Reports reports;
    for (int i = 0; i < 1000; ++i)
        report(std::to_wstring(i));
    EXPECT_EQ(20U, reports.take().size());
}

TEST(Reports, TheFirstIsThrown) {
    EXPECT_NO_THROW(Reports::throwFirst()) << "nobody gathers";
    Reports reports;
    EXPECT_NO_THROW(Reports::throwFirst());
    report(L"one");
    report(L"two");
    try {
        Reports::throwFirst();
        FAIL();
    } catch (const DataError & error) {
        EXPECT_STREQ("one", error.what());
    }
    EXPECT_EQ(Messages(), reports.take());
}

TEST(Reports, AWarningIsToldButNotThrown) {
    Reports reports;
    NBX_REPORT(2, L"needed <= getBudget()", L"little memory");
    EXPECT_NO_THROW(Reports::throwFirst());
    EXPECT_EQ((std::vector<std::string>{"little memory"}), reports.take());
    EXPECT_TRUE(reports.take().empty());
    NBX_REPORT(2, L"projection", L"no system");
    NBX_REPORT(2, L"light map", L"no light");
    NBX_REPORT(2, L"texture format", L"no alpha");
    NBX_REPORT(2, L"texData", L"no texture");
    EXPECT_NO_THROW(Reports::throwFirst());
    EXPECT_EQ(4U, reports.take().size());
}

TEST(Reports, HowALibraryWorksIsToldOnRequestAlone) {
    Reports reports;
    NBX_REPORT(2, L"!USE_MULTI_THREADING", L"several threads");
    EXPECT_EQ(Messages(), reports.take());
    Reports::setVerbose(true);
    NBX_REPORT(2, L"!USE_MULTI_THREADING", L"several threads");
    EXPECT_NO_THROW(Reports::throwFirst());
    Reports::setVerbose(false);
    EXPECT_EQ(Messages{"several threads"}, reports.take());
}

TEST(Reports, TheLaterGatherersComeFirst) {
    Reports outer;
    {
        Reports inner;
        report(L"inner");
        EXPECT_EQ(Messages(), outer.take());
        EXPECT_THROW(Reports::throwFirst(), DataError);
    }
    report(L"outer");
    EXPECT_THROW(Reports::throwFirst(), DataError);
    report(L"again");
    EXPECT_EQ(Messages{"again"}, outer.take());
}

} // namespace
