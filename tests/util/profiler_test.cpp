#include <zmt/util/profiler.h>

#include <iomanip>
#include <sstream>

#include <gtest/gtest.h>

#include <nbx/object/stringutils.h>

namespace {

using ZMT::UTIL::Profiler;
using ZMT::UTIL::ProfilerData;
using Lines = std::vector<std::string>;

/// A clock of a thousand ticks a second that goes on by itself at each look.
struct FakeClock {
    std::int64_t now = 0, pace = 0, growth = 0; ///< of the pace
    bool hasTicks = true, hasFrequency = true;
} s_clock;

class FreshProfiler : public Profiler {};

class ProfilerTest : public testing::Test {
protected:
    void SetUp() override {
        s_clock = {};
        before_ = Profiler::setCounter({[](std::int64_t & ticks) {
                                            ticks = s_clock.now;
                                            s_clock.now += s_clock.pace;
                                            s_clock.pace += s_clock.growth;
                                            return s_clock.hasTicks;
                                        },
                                        [](std::int64_t & frequency) {
                                            frequency = 1000;
                                            return s_clock.hasFrequency;
                                        }});
    }
    void TearDown() override { Profiler::setCounter(before_); }

    void measure(ProfilerData * data, std::int64_t ticks) {
        profiler_.start(data);
        s_clock.now += ticks;
        profiler_.stop(data);
    }
    template <class Dump> static Lines linesOf(const Dump & dump) {
        testing::internal::CaptureStderr();
        dump();
        std::istringstream text(testing::internal::GetCapturedStderr());
        Lines lines;
        for (std::string line; std::getline(text, line);)
            lines.push_back(line);
        return lines;
    }
    Lines table(long long minCalls = 0, double minTotalTime = 0.0) {
        return linesOf([&] { profiler_.dumpAll(minCalls, minTotalTime); });
    }
    /// The cells of the row of `data`, with their spaces.
    Lines cellsOf(const ProfilerData & data) {
        const std::string row = linesOf([&] { profiler_.dump(&data); }).at(0);
        Lines cells;
        for (std::size_t at = 2, end = 0; (end = row.find(" |", at)) != row.npos; at = end + 3)
            cells.push_back(row.substr(at, end - at));
        return cells;
    }
    std::string timeText(double seconds) { return cellsOf({L"", 1, -1, seconds, 0, 0, 0}).at(2); }
    std::string countText(std::int64_t calls) { return cellsOf({L"", calls, -1, 0, 0, 0, 0}).at(1); }

    FreshProfiler profiler_;

private:
    Profiler::Counter before_{};
};

TEST_F(ProfilerTest, ThereIsOneOfTheProcess) {
    EXPECT_EQ(&Profiler::instance(), &Profiler::instance());
    EXPECT_TRUE(std::has_virtual_destructor_v<Profiler>);
}

TEST_F(ProfilerTest, ANewRowIsAtItsStart) {
    const ProfilerData * data = profiler_.newId(L"read");
    EXPECT_STREQ(data->name, L"read");
    EXPECT_EQ(data->calls, 0);
    EXPECT_EQ(data->startTicks, -1);
    EXPECT_EQ(data->totalTime, 0.0);
    EXPECT_EQ(data->minTime, 1e100);
    EXPECT_EQ(data->maxTime, 0.0);
    EXPECT_EQ(data->startEvent, 0);
    EXPECT_NE(profiler_.newId(L"read"), data);
}

TEST_F(ProfilerTest, AddsUpWhatItMeasures) {
    ProfilerData * data = profiler_.newId(L"read");
    measure(data, 250);
    measure(data, 1000);
    measure(data, 50);
    EXPECT_EQ(data->calls, 3);
    EXPECT_DOUBLE_EQ(data->totalTime, 1.3);
    EXPECT_DOUBLE_EQ(data->minTime, 0.05);
    EXPECT_DOUBLE_EQ(data->maxTime, 1.0);
    EXPECT_EQ(data->startTicks, -1);
    EXPECT_EQ(data->startEvent, 3);
}

TEST_F(ProfilerTest, StopWithoutStartChangesNothing) {
    ProfilerData * data = profiler_.newId(L"read");
    s_clock.now = 500;
    profiler_.stop(data);
    EXPECT_EQ(data->calls, 0);
    EXPECT_EQ(data->totalTime, 0.0);
    EXPECT_EQ(data->minTime, 1e100);
    profiler_.start(nullptr);
    profiler_.stop(nullptr);
    profiler_.dump(nullptr);
    measure(data, 100);
    EXPECT_EQ(data->startEvent, 1) << "null is no event";
}

TEST_F(ProfilerTest, WhatTheClockCannotTellDoesNotCount) {
    ProfilerData * data = profiler_.newId(L"read");
    measure(data, 0);
    EXPECT_EQ(data->calls, 0) << "the clock stood still";
    measure(data, -5);
    EXPECT_EQ(data->calls, 0) << "or went back";
    EXPECT_EQ(data->startTicks, -1);
    s_clock.hasTicks = false;
    profiler_.start(data);
    EXPECT_EQ(data->startTicks, -1);
    s_clock.hasTicks = true;
    s_clock.now += 100;
    profiler_.stop(data);
    EXPECT_EQ(data->calls, 0);
    profiler_.start(data);
    s_clock.hasTicks = false;
    s_clock.now += 100;
    profiler_.stop(data);
    EXPECT_EQ(data->calls, 0);
    EXPECT_EQ(data->startTicks, -1);
}

TEST_F(ProfilerTest, AnUnknownFrequencyIsThatOfOldClocks) {
    ProfilerData * data = profiler_.newId(L"read");
    s_clock.hasFrequency = false;
    measure(data, 2 * 1193180);
    EXPECT_DOUBLE_EQ(data->totalTime, 2.0);
}

/// A measurement of nothing sees one step of the clock, one around it three.
TEST_F(ProfilerTest, WhatMeasuringCostsIsTakenOff) {
    ProfilerData * outer = profiler_.newId(L"outer");
    ProfilerData * inner = profiler_.newId(L"inner");
    s_clock.pace = 2;
    profiler_.measureOverhead(3, 10);
    EXPECT_EQ(outer->calls, 0);
    profiler_.start(outer);
    for (int i = 0; i < 5; ++i)
        measure(inner, 100);
    s_clock.now += 1000;
    profiler_.stop(outer);
    EXPECT_NEAR(inner->totalTime, 0.5, 1e-12);
    EXPECT_NEAR(outer->totalTime, 1.5, 1e-12) << "without the costs of five inner ones";
}

TEST_F(ProfilerTest, TheLeastMeanOfTheRoundsCounts) {
    ProfilerData * data = profiler_.newId(L"read");
    s_clock.pace = 0;
    profiler_.measureOverhead(2, 3);
    measure(data, 7);
    EXPECT_DOUBLE_EQ(data->totalTime, 0.007) << "a clock that stands still measures no cost";
    s_clock.pace = 1;
    profiler_.measureOverhead(0, 10);
    profiler_.measureOverhead(10, 0);
    profiler_.reset();
    s_clock.pace = 0;
    measure(data, 7);
    EXPECT_DOUBLE_EQ(data->totalTime, 0.007) << "without rounds and loops there is none";
}

/// The first round costs 2 and 1 + 2 + 3, the next ones more.
TEST_F(ProfilerTest, RoundsThatTakeLongerAndEarlierCostsDoNotCount) {
    ProfilerData * outer = profiler_.newId(L"outer");
    ProfilerData * inner = profiler_.newId(L"inner");
    for (int again = 0; again < 2; ++again) {
        s_clock.pace = s_clock.growth = 1;
        profiler_.measureOverhead(3, 1);
        s_clock.pace = s_clock.growth = 0;
        profiler_.reset();
        profiler_.start(outer);
        measure(inner, 100);
        profiler_.stop(outer);
        EXPECT_NEAR(inner->totalTime, 0.1 - 0.002, 1e-12) << again;
        EXPECT_NEAR(outer->totalTime, 0.1 - 0.002 - 0.004, 1e-12) << again;
    }
}

TEST_F(ProfilerTest, ResetForgetsAllButTheRows) {
    ProfilerData * data = profiler_.newId(L"read");
    ProfilerData foreign{L"of the caller"};
    measure(data, 10);
    profiler_.start(&foreign);
    profiler_.start(data);
    profiler_.reset();
    EXPECT_STREQ(data->name, L"read");
    EXPECT_EQ(data->calls, 0);
    EXPECT_EQ(data->startTicks, -1);
    EXPECT_EQ(data->minTime, 1e100);
    s_clock.now += 10;
    profiler_.stop(data);
    profiler_.stop(&foreign);
    EXPECT_EQ(data->calls, 0);
    EXPECT_EQ(foreign.calls, 0) << "it began before the events that are counted";
    measure(data, 10);
    EXPECT_EQ(data->startEvent, 1);
}

TEST_F(ProfilerTest, ARowShowsNameCallsTotalLeastMeanAndMost) {
    const ProfilerData data{L"read", 4, -1, 6.0, 0.5, 3.0, 0};
    EXPECT_EQ(linesOf([&] { profiler_.dump(&data); }),
              Lines{"| read                 |      4   |   6.000s | 500.00ms |   1.500s |   3.000s |"});
}

TEST_F(ProfilerTest, WithoutCallsThereAreNoTimes) {
    EXPECT_EQ(
        linesOf([&] { profiler_.dump(profiler_.newId(L"gelände \u00FC")); }),
        Lines{"| gelände \xC3\xBC            |      0   |   0.00ns |      N/A |      N/A |      N/A |"});
}

TEST_F(ProfilerTest, TimesTakeTheFirstFormThatHoldsThem) {
    const struct {
        double seconds;
        const char * text;
    } rows[] = {
        {863999956801.0, " >=10^6d"}, {863999956800.0, " 9999999d"},
        {8.64e7, "   1000d"},         {8.64e9, " 100000d"},
        {86399999.0, "999d 23h"},     {864000.0, " 10d  0h"},
        {863999.0, "9d 23.9h"},       {360000.0, "4d  4.0h"},
        {359999.0, " 99h 59m"},       {36000.0, " 10h  0m"},
        {35999.0, "9h 59.9m"},        {6000.0, "1h 40.0m"},
        {5999.0, " 99m 59s"},         {600.0, " 10m  0s"},
        {599.999, "599.999s"},        {1.0, "  1.000s"},
        {0.9999999, "999.99ms"},      {0.5, "500.00ms"},
        {0.001, "  1.00ms"},          {0.00099999999, "999.99us"},
        {0.0000125, " 12.50us"},      {1e-6, "  1.00us"},
        {2.5e-8, " 25.00ns"},         {0.0, "  0.00ns"},
        {-2e-9, " -2.00ns"},
    };
    for (const auto & row : rows)
        EXPECT_EQ(timeText(row.seconds), row.text) << std::setprecision(17) << row.seconds;
    for (double seconds = 1e-11; seconds < 8.64e10; seconds *= 1.03)
        EXPECT_LE(timeText(seconds).size(), seconds < 8.64e7 ? 8U : 9U) << seconds;
}

TEST_F(ProfilerTest, CountsTakeTheFirstFormThatHoldsThem) {
    const struct {
        std::int64_t calls;
        const char * text;
    } rows[] = {
        {0, "     0  "},
        {9999, "  9999  "},
        {10000, " 10.00 k"},
        {123456, "123.46 k"},
        {9999999, "10000.00 k"},
        {10000000, " 10.00 M"},
        {9999999999, "10000.00 M"},
        {10000000000, " 10.00 G"},
        {123456789012, "123.46 G"},
    };
    for (const auto & row : rows)
        EXPECT_EQ(countText(row.calls), row.text) << row.calls;
}

TEST_F(ProfilerTest, TheTableHasItsOwnCostAndTheRowsInTheOrderOfCreation) {
    const std::string rule =
        "+----------------------+----------+----------+----------+----------+----------+";
    std::vector<ProfilerData *> rows;
    for (const wchar_t * name : {L"z", L"a", L"m"})
        rows.push_back(profiler_.newId(name));
    measure(rows[1], 2000);
    measure(rows[1], 1000);
    measure(rows[2], 500);
    EXPECT_EQ(
        table(),
        (Lines{"Profiler statistics", rule,
               "| description          | calls    | tot.time | min time | avg time | max time |", rule,
               "| profiler             |      3   |   0.00ns |   0.00ns |   0.00ns |   0.00ns |",
               "| z                    |      0   |   0.00ns |      N/A |      N/A |      N/A |",
               "| a                    |      2   |   3.000s |   1.000s |   1.500s |   2.000s |",
               "| m                    |      1   | 500.00ms | 500.00ms | 500.00ms | 500.00ms |", rule}));
}

/// Addresses of new rows may be in any order.
TEST_F(ProfilerTest, ManyRowsKeepTheirOrder) {
    std::vector<std::wstring> names(300);
    for (std::size_t i = 0; i < names.size(); ++i) {
        names[i] = std::to_wstring(i);
        profiler_.newId(names[i].c_str());
    }
    const Lines lines = table();
    ASSERT_EQ(lines.size(), names.size() + 6);
    for (std::size_t i = 0; i < names.size(); ++i)
        EXPECT_EQ(lines[i + 5].substr(2, 4).substr(0, std::to_string(i).size() + 1), std::to_string(i) + " ");
}

TEST_F(ProfilerTest, TheCostOfMeasuringIsThatOfItsEvents) {
    s_clock.pace = 2;
    profiler_.measureOverhead(1, 5);
    profiler_.reset();
    s_clock.pace = 0;
    ProfilerData * data = profiler_.newId(L"a");
    for (int i = 0; i < 3; ++i)
        measure(data, 1000);
    EXPECT_EQ(table().at(4),
              "| profiler             |      3   |  12.00ms |   4.00ms |   4.00ms |   4.00ms |");
}

TEST_F(ProfilerTest, TheHeadingTellsWhatIsLeftOut) {
    ProfilerData * a = profiler_.newId(L"a");
    ProfilerData * b = profiler_.newId(L"b");
    for (int i = 0; i < 3; ++i)
        measure(a, 1);
    measure(b, 2500);
    const auto namesIn = [](const Lines & lines) {
        Lines names;
        for (std::size_t i = 4; i + 1 < lines.size(); ++i)
            names.push_back(lines[i].substr(2, lines[i].find(' ', 2) - 2));
        return names;
    };
    EXPECT_EQ(table(0, 2.5).at(0),
              "Profiler statistics for all IDs with at least 2.5 seconds total runtime ");
    EXPECT_EQ(namesIn(table(0, 2.5)), Lines{"b"});
    EXPECT_EQ(table(3, 0.0).at(0), "Profiler statistics for all IDs with at least 3 calls");
    EXPECT_EQ(namesIn(table(3, 0.0)), (Lines{"profiler", "a"}));
    EXPECT_EQ(table(1, 0.5).at(0),
              "Profiler statistics for all IDs with at least 0.5 seconds total runtime and at least 1 calls");
    EXPECT_EQ(namesIn(table(1, 0.5)), Lines{"b"});
    EXPECT_EQ(table(0, -1.0).at(0), "Profiler statistics");
    EXPECT_EQ(namesIn(table(5, 0.0)), Lines());
}

} // namespace
