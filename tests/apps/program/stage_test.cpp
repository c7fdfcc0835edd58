#include "program/stage.h"

#include <memory>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include <zmt/util/profiler.h>

namespace {

using ZMT::UTIL::Profiler;

/// In thousandths of a second, as the tests step it.
std::int64_t s_now = 0;

class StageTest : public testing::Test {
protected:
    void SetUp() override {
        before_ = Profiler::setCounter({[](std::int64_t & ticks) {
                                            ticks = s_now;
                                            return true;
                                        },
                                        [](std::int64_t & frequency) {
                                            frequency = 1000;
                                            return true;
                                        }});
    }
    void TearDown() override { Profiler::setCounter(before_); }

    /// Cells of the rows that have any calls, without spaces, by their names.
    static std::vector<std::pair<std::string, std::vector<std::string>>> told(RunProfile & profile) {
        testing::internal::CaptureStderr();
        profile.tell();
        std::istringstream text(testing::internal::GetCapturedStderr());
        std::vector<std::pair<std::string, std::vector<std::string>>> rows;
        for (std::string line; std::getline(text, line);) {
            if (line.empty() || line[0] != '|') continue;
            std::vector<std::string> cells;
            std::istringstream row(line.substr(1));
            for (std::string cell; std::getline(row, cell, '|');) {
                std::erase(cell, ' ');
                cells.push_back(cell);
            }
            if (cells.at(1) == "0") continue; // of another run
            rows.emplace_back(cells.at(0), std::vector<std::string>(cells.begin() + 1, cells.end()));
        }
        rows.erase(rows.begin(), rows.begin() + 2); // the heading, and the profiler's own
        return rows;
    }

    RunProfile & start() {
        profile_.reset();
        profile_ = std::make_unique<RunProfile>(L"other");
        return *profile_;
    }

private:
    Profiler::Counter before_{};
    std::unique_ptr<RunProfile> profile_;
};

TEST_F(StageTest, AStageWithinAnotherTakesItsTimeFromIt) {
    RunProfile & run = start();
    s_now += 100;
    {
        const Stage reading(L"read");
        s_now += 1000;
        {
            const Stage building(L"build");
            s_now += 4000;
        }
        s_now += 2000;
    }
    {
        const Stage reading(L"read");
        s_now += 500;
    }
    s_now += 50;
    const auto rows = told(run);
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0].first, "other");
    EXPECT_EQ(rows[0].second.at(1), "150.00ms");
    EXPECT_EQ(rows[1].first, "read") << "in the order in which they began";
    EXPECT_EQ(rows[1].second.at(0), "3") << "in three stretches";
    EXPECT_EQ(rows[1].second.at(1), "3.500s");
    EXPECT_EQ(rows[2].first, "build");
    EXPECT_EQ(rows[2].second.at(1), "4.000s");
}

TEST_F(StageTest, EachRunBeginsAnew) {
    {
        RunProfile & run = start();
        const Stage reading(L"read");
        s_now += 1000;
        told(run);
    }
    RunProfile & run = start();
    const Stage building(L"build");
    s_now += 10;
    const auto rows = told(run);
    ASSERT_EQ(rows.size(), 1U) << "nothing of the run before, and no row of no time";
    EXPECT_EQ(rows[0].first, "build");
    EXPECT_EQ(rows[0].second.at(1), "10.00ms");
}

TEST_F(StageTest, OnlyTheThreadOfTheRunCounts) {
    RunProfile & run = start();
    s_now += 10;
    std::thread([] {
        const Stage reading(L"read");
        s_now += 1000;
    }).join();
    const auto rows = told(run);
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].second.at(1), "1.010s");
}

TEST_F(StageTest, WithoutARunItIsNothing) {
    const Stage reading(L"read");
    s_now += 1000;
    RunProfile & run = start();
    s_now += 10;
    const auto rows = told(run);
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].second.at(1), "10.00ms");
}

} // namespace
