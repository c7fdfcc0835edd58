#include <nbx/object/progress.h>

#include <gtest/gtest.h>

#include <csignal>
#include <thread>

using NBX::Progress;

namespace {

class Display : public NBX::ProgressDisplay {
public:
    Display() : before_(Progress::setDisplay(this)) {}
    ~Display() override { Progress::setDisplay(before_); }
    void begin(const Progress &) override { ++begun; }
    bool update(const Progress & progress) override {
        ++updated;
        shown = progress.text() + "|" + progress.detail();
        return goOn;
    }
    void end(const Progress &) override { ++ended; }

    int begun = 0, updated = 0, ended = 0;
    bool goOn = true;
    std::string shown;

private:
    NBX::ProgressDisplay * before_;
};

TEST(Progress, WithoutADisplayItCountsAndIsNeverCancelled) {
    Progress progress("build", 10.0);
    EXPECT_TRUE(progress.update(4.0));
    EXPECT_EQ(progress.currentValue(), 4.0);
    EXPECT_EQ(progress.totalValue(), 10.0);
    EXPECT_FALSE(progress.isCanceled());
    EXPECT_FALSE(progress.isFinished());
    progress.finish();
    EXPECT_TRUE(progress.isFinished());
    EXPECT_EQ(progress.currentValue(), 10.0);
}

TEST(Progress, TextsStayUntilReplaced) {
    Display display;
    Progress progress("build", 10.0, true, true, "reading");
    progress.update(1.0);
    EXPECT_EQ(display.shown, "reading|");
    progress.update(2.0, "", "tile 3");
    progress.finish();
    EXPECT_EQ(display.shown, "reading|tile 3");
}

TEST(Progress, BeginAndEndComeOnce) {
    Display display;
    {
        Progress progress("build");
        EXPECT_EQ(display.begun, 1);
        progress.finish();
        EXPECT_EQ(display.ended, 0);
    }
    EXPECT_EQ(display.ended, 1);
}

TEST(Progress, TheDisplayIsNotAskedForEveryStep) {
    Display display;
    Progress progress("build", 1e6);
    for (int i = 0; i < 1000; ++i)
        progress.update(i);
    EXPECT_GE(display.updated, 1);
    EXPECT_LT(display.updated, 100);
}

TEST(Progress, TheDisplayCancelsAndThatLasts) {
    Display display;
    display.goOn = false;
    Progress progress("build", 10.0);
    EXPECT_FALSE(progress.update(1.0));
    EXPECT_TRUE(progress.isCanceled());
    display.goOn = true;
    EXPECT_FALSE(progress.update(2.0));
}

TEST(Progress, WhatCannotBeCancelledDoesNotHear) {
    Display display;
    display.goOn = false;
    Progress progress("build", 10.0, false);
    EXPECT_TRUE(progress.update(1.0));
    EXPECT_FALSE(progress.isCanceled());
}

TEST(Progress, TimeLeftIsUnknownAtTheStartAndZeroAtTheEnd) {
    Progress progress("build", 10.0);
    EXPECT_LT(progress.timeLeft(), 0.0);
    progress.update(10.0);
    EXPECT_EQ(progress.timeLeft(), 0.0);
    EXPECT_LT(Progress("nothing", 0.0).timeLeft(), 0.0);
}

TEST(ConsoleProgressDisplay, LineFillsTheWidth) {
    Progress progress("build", 4.0, true, false);
    progress.update(1.0, "tiles");
    const std::string line = NBX::ConsoleProgressDisplay::line(progress, 60);
    EXPECT_EQ(line.size(), 60U);
    EXPECT_EQ(line.find("build: tiles ["), 0U);
    EXPECT_NE(line.find("  25 %"), std::string::npos) << line;
    const std::size_t bar = line.find('['), end = line.find(']');
    ASSERT_NE(end, std::string::npos);
    const std::string inside = line.substr(bar + 1, end - bar - 1);
    EXPECT_EQ(inside.find('.'), inside.size() / 4) << inside;
}

TEST(ConsoleProgressDisplay, NarrowTerminalsAndOddValuesAreSurvived) {
    Progress progress("a long title that does not fit", 4.0);
    for (const double value : {-1.0, 0.0, 3.9, 4.0, 400.0}) {
        progress.update(value);
        for (const unsigned width : {0U, 1U, 10U, 40U, 200U})
            EXPECT_EQ(NBX::ConsoleProgressDisplay::line(progress, width).size(), width);
    }
    progress.update(1.0, "gr\xC3\xBCn");
    EXPECT_NE(NBX::ConsoleProgressDisplay::line(Progress("none", 0.0), 40).find("  0 %"), std::string::npos);
}

TEST(ConsoleProgressDisplay, InterruptCancels) {
    NBX::ConsoleProgressDisplay console;
    NBX::ProgressDisplay * before = Progress::setDisplay(&console);
    {
        Progress progress("build", 10.0);
        EXPECT_TRUE(progress.update(1.0));
        std::raise(SIGINT);
        EXPECT_TRUE(NBX::ConsoleProgressDisplay::interrupted());
        std::this_thread::sleep_for(std::chrono::milliseconds(110));
        EXPECT_FALSE(progress.update(2.0));
    }
    Progress::setDisplay(before);
}

TEST(ConsoleProgressDisplay, ASecondCtrlCEndsTheProcess) {
    EXPECT_EXIT(
        {
            const NBX::ConsoleProgressDisplay display;
            std::raise(SIGINT);
            if (NBX::ConsoleProgressDisplay::interrupted()) std::raise(SIGINT);
            std::exit(0);
        },
        testing::KilledBySignal(SIGINT), "");
}

/// Goes on and on without a look at what the user wishes. Under the thread sanitizer signals arrive in calls
/// of the system alone.
[[noreturn]] void workForever() {
    for (;;)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

TEST(ConsoleProgressDisplay, PatienceEndsWhatDoesNotLook) {
    EXPECT_EXIT(
        {
            NBX::ConsoleProgressDisplay::setPatience(0.05, "enough\n", 7);
            const NBX::ConsoleProgressDisplay display;
            std::raise(SIGINT);
            workForever();
        },
        testing::ExitedWithCode(7), "^enough\n$");
    EXPECT_EXIT(
        {
            NBX::ConsoleProgressDisplay::setPatience(0.05, "enough\n", 7);
            {
                const NBX::ConsoleProgressDisplay display;
                std::raise(SIGINT);
            }
            workForever();
        },
        testing::ExitedWithCode(7), "^$")
        << "without a display somebody else has told it";
}

TEST(ConsoleProgressDisplay, WithoutPatienceOrCtrlCEverythingTakesItsTime) {
    EXPECT_EXIT(
        {
            const NBX::ConsoleProgressDisplay display;
            std::raise(SIGINT);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            std::_Exit(3);
        },
        testing::ExitedWithCode(3), "");
    EXPECT_EXIT(
        {
            NBX::ConsoleProgressDisplay::setPatience(0.01, "enough\n", 7);
            const NBX::ConsoleProgressDisplay display;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            std::_Exit(3);
        },
        testing::ExitedWithCode(3), "");
}

} // namespace
