#include <zmt/core/misc/thread.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <support/interruptingsignal.h>
#include <support/recordedreports.h>
#include <support/slotorder.h>

#include <nbx/object/nbxtime.h>
#include <nbx/object/so.h>
#include <zmt/core/misc/semaphore.h>

#include "threadend.h"

using NBX::NBXTime;
using ZMT::CORE::Semaphore;
using ZMT::CORE::Thread;

namespace {

thread_local int s_yields = 0;

} // namespace

/// Stands before the C library's, and counts.
extern "C" __attribute__((visibility("default"))) int sched_yield() noexcept {
    ++s_yields;
    return static_cast<int>(::syscall(SYS_sched_yield));
}

namespace {

class Work : public Thread {
    NBX_TEMPLATE_CLASS(Work, Thread)
public:
    explicit Work(std::function<void()> work, Priority priority = P_Normal, bool keepsRunning = true)
        : Thread(priority, keepsRunning), work_(std::move(work)) {}
    void run() override { work_(); }

private:
    std::function<void()> work_;
};

double secondsOf(double sleep) {
    const double before = NBXTime::now();
    Thread::sleep(sleep);
    return NBXTime::now() - before;
}

/// Others may take the slice, so the shortest of several tries counts.
double shortestSecondsOf(double sleep) {
    double shortest = 1.0;
    for (int i = 0; i < 20; ++i)
        shortest = std::min(shortest, secondsOf(sleep));
    return shortest;
}

/// Whether a thread of this process may get any share of the processor above that of its creator.
bool mayBeRaised() {
    bool result = false;
    const NBX::SO<Work> work(new Work([&] {
        const int own = getpriority(PRIO_PROCESS, 0);
        result = own > -20 && setpriority(PRIO_PROCESS, 0, own - 19) == 0;
    }));
    work->start();
    waitForEnd(*work);
    return result;
}

/// While it lives, the system has no room for the stack of a further thread.
class NoMoreThreads {
public:
    NoMoreThreads() {
        pthread_getattr_default_np(&before_);
        pthread_attr_t huge = before_;
        pthread_attr_setstacksize(&huge, std::size_t(1) << 47);
        pthread_setattr_default_np(&huge);
    }
    ~NoMoreThreads() { pthread_setattr_default_np(&before_); }
    NoMoreThreads(const NoMoreThreads &) = delete;
    NoMoreThreads & operator=(const NoMoreThreads &) = delete;

private:
    pthread_attr_t before_;
};

TEST(Thread, RunsOnAThreadOfItsOwnAndSaysSo) {
    const NBX::SO<Semaphore> go(new Semaphore);
    pthread_t other = pthread_self();
    const NBX::SO<Work> work(new Work([&] {
        other = pthread_self();
        go->decrease();
    }));
    EXPECT_FALSE(work->isRunning());
    work->start();
    EXPECT_TRUE(work->isRunning());
    Thread::sleep(0.01);
    EXPECT_TRUE(work->isRunning());
    go->increase();
    waitForEnd(*work);
    EXPECT_FALSE(pthread_equal(other, pthread_self()));
}

TEST(Thread, MayBeStartedAgain) {
    const RecordedReports reports;
    int runs = 0;
    const NBX::SO<Work> work(new Work([&] { ++runs; }));
    for (int i = 1; i <= 20; ++i) {
        work->start();
        waitForEnd(*work);
        EXPECT_EQ(runs, i);
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(Thread, StartingARunningOneIsReportedAndStartsASecondThread) {
    const RecordedReports reports;
    const NBX::SO<Semaphore> go(new Semaphore), arrived(new Semaphore);
    // The first that ends clears the flag: what else can be seen of the second is that its variables die.
    static std::atomic<int> gone{0};
    struct Farewell {
        ~Farewell() { ++gone; }
        int touched = 0;
    };
    gone = 0;
    NBX::SO<Work> work(new Work([go, arrived] {
        static thread_local Farewell farewell;
        ++farewell.touched;
        arrived->increase();
        go->decrease();
    }));
    work->start();
    arrived->decrease();
    EXPECT_TRUE(reports.empty()) << reports;
    work->start();
    arrived->decrease();
    EXPECT_EQ(reports.size(), 1U) << reports;
    EXPECT_EQ(reports.count(0, L"!isRunning_", L"thread already running"), 1U) << reports;
    go->increase();
    go->increase();
    while (gone < 2)
        Thread::sleep(0.001);
}

TEST(Thread, WithoutAThreadOfTheSystemItDoesNotRun) {
    const RecordedReports reports;
    int runs = 0;
    const NBX::SO<Work> work(new Work([&] { ++runs; }));
    {
        const NoMoreThreads noMoreThreads;
        work->start();
        EXPECT_FALSE(work->isRunning());
    }
    work->start();
    waitForEnd(*work);
    EXPECT_EQ(runs, 1) << "the second time there was one";
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(Thread, OneThatWorksRunsOnWhenTheSystemHasNoSecondThread) {
    const RecordedReports reports;
    const NBX::SO<Semaphore> go(new Semaphore);
    const NBX::SO<Work> work(new Work([&] { go->decrease(); }));
    work->start();
    {
        const NoMoreThreads noMoreThreads;
        work->start();
    }
    EXPECT_EQ(reports.count(0, L"!isRunning_", L"thread already running"), 1U) << reports;
    EXPECT_TRUE(work->isRunning()) << "the first one";
    go->increase();
    waitForEnd(*work);
    {
        const NoMoreThreads noMoreThreads;
        work->start();
    }
    EXPECT_FALSE(work->isRunning()) << "its work was done";
}

TEST(Thread, ObjectsWithoutAThreadDieQuietly) {
    const RecordedReports reports;
    for (const bool keepsRunning : {true, false})
        NBX::SO<Work>(new Work([] {}, Thread::P_Normal, keepsRunning));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(Thread, GoesOnWithoutItsObject) {
    const NBX::SO<Semaphore> go(new Semaphore), done(new Semaphore);
    // The object only has to live while `run` uses it: here, until its work was copied.
    class Leaving : public Thread {
        NBX_TEMPLATE_CLASS(Leaving, Thread)
    public:
        Leaving(Semaphore * go, Semaphore * done) : go_(go), done_(done) {}
        void run() override {
            const NBX::SO<Semaphore> done = done_;
            go_->increase();
            done->increase();
        }

    private:
        NBX::SO<Semaphore> go_, done_;
    };
    NBX::SO<Leaving> thread(new Leaving(go.get(), done.get()));
    thread->start();
    go->decrease();
    done->decrease();
    waitForEnd(*thread);
    thread = nullptr;
}

TEST(Thread, OneWhoseWorkIsDoneIsGoneWithItsObject) {
    static std::atomic<int> gone{0};
    struct SlowFarewell {
        ~SlowFarewell() {
            Thread::sleep(0.02);
            ++gone;
        }
        int touched = 0;
    };
    gone = 0;
    NBX::SO<Work> thread(new Work([] {
        static thread_local SlowFarewell farewell;
        ++farewell.touched;
    }));
    thread->start();
    waitForEnd(*thread);
    thread = nullptr;
    EXPECT_EQ(gone, 1);
}

TEST(Thread, OneThatDoesNotKeepRunningIsEndedWithItsObject) {
    std::atomic<int> steps{0};
    NBX::SO<Work> work(new Work(
        [&] {
            while (true) {
                ++steps;
                Thread::sleep(0.001);
            }
        },
        Thread::P_Normal, false));
    work->start();
    while (steps < 3)
        Thread::sleep(0.001);
    work = nullptr;
    const int before = steps;
    Thread::sleep(0.02);
    EXPECT_EQ(steps, before);
}

TEST(Thread, OneThatDoesNotKeepRunningMayHaveEndedOrStartedAgain) {
    int runs = 0;
    NBX::SO<Work> work(new Work([&] { ++runs; }, Thread::P_Normal, false));
    for (int i = 0; i < 3; ++i) {
        work->start();
        waitForEnd(*work);
    }
    work = nullptr;
    EXPECT_EQ(runs, 3);
}

TEST(Thread, OneThatDoesNotKeepRunningForgetsItsFirstThreadWhenItIsStartedAgain) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a thread that is forgotten is a leak, as it has to be";
#endif
    const RecordedReports reports;
    std::atomic<int> begun{0}, done{0};
    std::atomic<bool> go{false};
    const NBX::SO<Work> work(new Work(
        [&] {
            ++begun;
            while (!go)
                Thread::sleep(0.001);
            ++done;
        },
        Thread::P_Normal, false));
    for (int i = 1; i <= 2; ++i) {
        work->start();
        while (begun < i)
            Thread::sleep(0.001);
    }
    EXPECT_EQ(reports.count(0, L"!isRunning_", L"thread already running"), 1U) << reports;
    go = true;
    for (int i = 0; i < 5000 && done < 2; ++i)
        Thread::sleep(0.001);
    EXPECT_EQ(done, 2) << "the first one ends its work";
    // A thread that was forgotten may come back to its object until it has ended, which nobody learns.
    static auto & kept = *new NBX::SO<Work>;
    kept = work;
}

/// Works on numbers that outlive it, so that it may die while it runs.
class Counting : public Thread {
    NBX_TEMPLATE_CLASS(Counting, Thread)
public:
    struct Numbers {
        std::atomic<int> steps{0}, nice{100};
    };
    explicit Counting(Priority priority, bool keepsRunning) : Thread(priority, keepsRunning) {}
    void run() override {
        // Nothing is to be released here where the thread is ended: the address sanitizer takes that for a
        // fault.
        Numbers * const numbers = numbers_.get();
        numbers->nice = getpriority(PRIO_PROCESS, 0);
        while (true) {
            ++numbers->steps;
            Thread::sleep(0.001);
        }
    }
    void runFor(const std::shared_ptr<Numbers> & numbers) {
        numbers_ = numbers;
        start();
        waitForSteps(*numbers);
    }
    static void waitForSteps(const Numbers & numbers) {
        for (const int end = numbers.steps + 3; numbers.steps < end;)
            Thread::sleep(0.001);
    }
    /// Whether the work goes on.
    static bool isCounting(const Numbers & numbers) {
        const int before = numbers.steps;
        Thread::sleep(0.02);
        return numbers.steps != before;
    }

private:
    std::shared_ptr<Numbers> numbers_;
};

using CountingCopy = std::function<NBX::SO<Counting>(const Counting &)>;
const std::pair<const char *, CountingCopy> s_countingCopies[] = {
    {"copied", [](const Counting & other) { return NBX::SO<Counting>(new Counting(other)); }},
    {"assigned", [](const Counting & other) {
         NBX::SO<Counting> copy(new Counting(Thread::P_Normal, true));
         *copy = other;
         return copy;
     }}};

TEST(Thread, ACopyHasThePriorityAndIsEndedLikeTheOther) {
    for (const auto & [name, copyOf] : s_countingCopies) {
        SCOPED_TRACE(name);
        const NBX::SO<Counting> other(new Counting(Thread::P_Idle, false));
        NBX::SO<Counting> copy = copyOf(*other);
        EXPECT_FALSE(copy->isRunning());
        const auto numbers = std::make_shared<Counting::Numbers>();
        copy->runFor(numbers);
        EXPECT_GT(numbers->nice, std::min(getpriority(PRIO_PROCESS, 0), 18)) << "idle";
        EXPECT_FALSE(other->isRunning());
        copy = nullptr;
        EXPECT_FALSE(Counting::isCounting(*numbers));
    }
}

TEST(Thread, ACopyHoldsTheThreadOfTheOther) {
    for (const auto & [name, copyOf] : s_countingCopies) {
        SCOPED_TRACE(name);
        NBX::SO<Counting> other(new Counting(Thread::P_Normal, false));
        const auto numbers = std::make_shared<Counting::Numbers>();
        other->runFor(numbers);
        NBX::SO<Counting> copy = copyOf(*other);
        EXPECT_TRUE(copy->isRunning());
        other = nullptr;
        Counting::waitForSteps(*numbers); // the copy holds it
        copy = nullptr;
        EXPECT_FALSE(Counting::isCounting(*numbers));
    }
}

TEST(Thread, AssignedToItselfItStaysWhatItIs) {
    const NBX::SO<Counting> thread(new Counting(Thread::P_Normal, false));
    const auto numbers = std::make_shared<Counting::Numbers>();
    thread->runFor(numbers);
    const Counting & same = *thread;
    *thread = same;
    EXPECT_TRUE(thread->isRunning());
    Counting::waitForSteps(*numbers);
}

TEST(Thread, ACopyIsNoSecondThread) {
    std::atomic<int> runs{0};
    const NBX::SO<Semaphore> go(new Semaphore);
    const NBX::SO<Work> work(new Work([&] {
        ++runs;
        go->decrease();
    }));
    work->start();
    const NBX::SO<Work> copy(new Work(*work));
    EXPECT_TRUE(copy->isRunning()) << "a copied field";
    go->increase();
    waitForEnd(*work);
    EXPECT_EQ(runs, 1);
}

struct PriorityCase {
    const char * name;
    int priority;
    int sign; ///< of what it does to the nice value
};

class ThreadPriorityTest : public testing::TestWithParam<PriorityCase> {};

TEST_P(ThreadPriorityTest, ChangesTheNiceValueOfTheThreadAlone) {
    const int own = getpriority(PRIO_PROCESS, 0);
    int nice = 100;
    const NBX::SO<Work> work(new Work([&] { nice = getpriority(PRIO_PROCESS, 0); },
                                      static_cast<Thread::Priority>(GetParam().priority)));
    work->start();
    waitForEnd(*work);
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), own);
    if (GetParam().sign == 0)
        EXPECT_EQ(nice, own);
    else if (GetParam().sign < 0)
        EXPECT_TRUE(mayBeRaised() ? nice < own : nice <= own) << nice;
    else
        EXPECT_GT(nice, std::min(own, 18));
}

INSTANTIATE_TEST_SUITE_P(Priorities, ThreadPriorityTest,
                         testing::Values(PriorityCase{"idle", 0, 1}, PriorityCase{"lowest", 1, 1},
                                         PriorityCase{"belowNormal", 2, 1}, PriorityCase{"normal", 3, 0},
                                         PriorityCase{"aboveNormal", 4, -1}, PriorityCase{"highest", 5, -1},
                                         PriorityCase{"timeCritical", 6, -1}, PriorityCase{"below", -1, 0},
                                         PriorityCase{"above", 7, 0}),
                         [](const auto & info) { return std::string(info.param.name); });

TEST(Thread, PrioritiesAreInOrder) {
    std::vector<int> nice(7);
    for (unsigned priority = 0; priority < nice.size(); ++priority) {
        const NBX::SO<Work> work(new Work([&] { nice[priority] = getpriority(PRIO_PROCESS, 0); },
                                          static_cast<Thread::Priority>(priority)));
        work->start();
        waitForEnd(*work);
    }
    EXPECT_TRUE(std::is_sorted(nice.rbegin(), nice.rend())) << testing::PrintToString(nice);
}

TEST(Thread, SleepsWholeMilliseconds) {
    s_yields = 0;
    for (const auto & [seconds, whole] : {std::pair(0.001, 0.001), std::pair(0.0029, 0.002),
                                          std::pair(0.0209, 0.020), std::pair(-4294967.295, 0.001)}) {
        const double shortest = shortestSecondsOf(seconds);
        EXPECT_GE(shortest, whole) << seconds;
        EXPECT_LT(shortest, whole + 0.0008) << seconds;
    }
    EXPECT_EQ(s_yields, 0);
}

TEST(Thread, LessThanAMillisecondYields) {
    for (const double seconds : {0.0, 0.0004, 0.00099, -0.0009, 4294967.296, 1e300, -1e300,
                                 std::numeric_limits<double>::quiet_NaN()}) {
        s_yields = 0;
        double shortest = shortestSecondsOf(seconds);
        EXPECT_EQ(s_yields, 20) << seconds;
        // Others may want the processor more for a while; who slept would never be quicker.
        for (int i = 0; i < 20 && shortest >= 0.00095; ++i)
            shortest = shortestSecondsOf(seconds);
        EXPECT_LT(shortest, 0.00095) << seconds;
    }
}

TEST(Thread, ASignalDoesNotEndItsSleep) {
    const InterruptingSignal signal;
    const pthread_t sleeper = pthread_self();
    const NBX::SO<Work> work(new Work([&] {
        for (int i = 0; i < 5; ++i) {
            Thread::sleep(0.002);
            signal.sendTo(sleeper);
        }
    }));
    work->start();
    EXPECT_GE(secondsOf(0.05), 0.05);
    waitForEnd(*work);
}

TEST(Thread, ItsWorkStandsBehindTheOperationsOfEveryObject) {
    EXPECT_TRUE(inSlotOrder(&NBX::SharedObj::isRegisteredForSerialization, &Thread::run));
}

} // namespace
