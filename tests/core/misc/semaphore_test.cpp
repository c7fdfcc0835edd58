#include <zmt/core/misc/semaphore.h>

#include <gtest/gtest.h>
#include <pthread.h>

#include <support/interruptingsignal.h>
#include <support/slotorder.h>

#include <nbx/object/so.h>
#include <zmt/core/misc/thread.h>

#include "threadend.h"

using ZMT::CORE::Semaphore;
using ZMT::CORE::Thread;

namespace {

/// Takes `count` counts, one after the other.
class CountTaker : public Thread {
    NBX_TEMPLATE_CLASS(CountTaker, Thread)
public:
    CountTaker(Semaphore * semaphore, int count) : semaphore_(semaphore), count_(count) {}
    void run() override {
        systemThread = pthread_self();
        for (int i = 0; i < count_; ++i) {
            semaphore_->decrease();
            ++taken;
        }
    }
    std::atomic<int> taken{0};
    std::atomic<pthread_t> systemThread{};

private:
    NBX::SO<Semaphore> semaphore_;
    int count_;
};

TEST(Semaphore, ANewOneBlocksUntilTheFirstIncrease) {
    const NBX::SO<Semaphore> semaphore(new Semaphore);
    const NBX::SO<CountTaker> taker(new CountTaker(semaphore.get(), 1));
    taker->start();
    Thread::sleep(0.02);
    EXPECT_EQ(taker->taken, 0);
    semaphore->increase();
    waitForEnd(*taker);
    EXPECT_EQ(taker->taken, 1);
}

TEST(Semaphore, ASignalDoesNotEndTheWait) {
    const InterruptingSignal signal;
    const NBX::SO<Semaphore> semaphore(new Semaphore);
    const NBX::SO<CountTaker> taker(new CountTaker(semaphore.get(), 1));
    taker->start();
    for (int i = 0; i < 5; ++i) {
        Thread::sleep(0.005);
        if (taker->systemThread) signal.sendTo(taker->systemThread);
    }
    Thread::sleep(0.005);
    EXPECT_TRUE(taker->systemThread);
    EXPECT_EQ(taker->taken, 0);
    semaphore->increase();
    waitForEnd(*taker);
}

TEST(Semaphore, KeepsCountsForLater) {
    const NBX::SO<Semaphore> semaphore(new Semaphore);
    for (int i = 0; i < 3; ++i)
        semaphore->increase();
    for (int i = 0; i < 3; ++i)
        semaphore->decrease();
    const NBX::SO<CountTaker> taker(new CountTaker(semaphore.get(), 2));
    taker->start();
    semaphore->increase();
    Thread::sleep(0.02);
    EXPECT_LE(taker->taken, 1) << "one count lets one pass";
    semaphore->increase();
    waitForEnd(*taker);
    EXPECT_EQ(taker->taken, 2);
}

TEST(Semaphore, EachCountLetsOneOfSeveralPass) {
    const NBX::SO<Semaphore> semaphore(new Semaphore);
    const NBX::SO<CountTaker> a(new CountTaker(semaphore.get(), 50)), b(new CountTaker(semaphore.get(), 50));
    a->start();
    b->start();
    for (int i = 0; i < 100; ++i)
        semaphore->increase();
    waitForEnd(*a);
    waitForEnd(*b);
    EXPECT_EQ(a->taken + b->taken, 100);
}

TEST(Semaphore, ACopyStandsForTheSameCount) {
    const NBX::SO<Semaphore> semaphore(new Semaphore);
    const NBX::SO<Semaphore> copy(new Semaphore(*semaphore));
    copy->increase();
    semaphore->decrease();
}

TEST(Semaphore, OperationsKeepTheirOrder) {
    EXPECT_TRUE(inSlotOrder(&NBX::SharedObj::isRegisteredForSerialization, &Semaphore::increase,
                            &Semaphore::decrease));
}

} // namespace
