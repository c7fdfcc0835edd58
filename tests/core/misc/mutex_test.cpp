#include <zmt/core/misc/mutex.h>

#include <gtest/gtest.h>

#include <support/slotorder.h>

#include <zmt/core/misc/thread.h>

using ZMT::CORE::Mutex;
using ZMT::CORE::MutexLocker;
using ZMT::CORE::Thread;

namespace {

/// Takes the mutex once, and says when it has it.
class MutexTaker : public Thread {
    NBX_TEMPLATE_CLASS(MutexTaker, Thread)
public:
    explicit MutexTaker(Mutex * mutex) : mutex_(mutex) {}
    void run() override {
        const MutexLocker lock(mutex_.get());
        hasTaken = true;
    }
    std::atomic<bool> hasTaken{false};

private:
    NBX::SO<Mutex> mutex_;
};

/// Whether another thread gets the mutex now; it is waited for in any case.
class OtherThread {
public:
    explicit OtherThread(Mutex * mutex) : taker_(new MutexTaker(mutex)) { taker_->start(); }
    ~OtherThread() { waitForEnd(); }

    bool isLockedOut() const {
        Thread::sleep(0.02);
        return !taker_->hasTaken;
    }
    bool waitForEnd() const {
        while (taker_->isRunning())
            Thread::sleep(0.001);
        return taker_->hasTaken;
    }

private:
    NBX::SO<MutexTaker> taker_;
};

TEST(Mutex, IsRecursiveAndUnlockedAsOften) {
    const NBX::SO<Mutex> mutex(new Mutex);
    mutex->lock();
    mutex->lock();
    const OtherThread other(mutex.get());
    mutex->unlock();
    EXPECT_TRUE(other.isLockedOut());
    mutex->unlock();
    EXPECT_TRUE(other.waitForEnd());
}

TEST(Mutex, ABornLockedOneBelongsToItsMaker) {
    const NBX::SO<Mutex> mutex(new Mutex(true));
    const OtherThread other(mutex.get());
    EXPECT_TRUE(other.isLockedOut());
    mutex->lock();
    mutex->unlock();
    EXPECT_TRUE(other.isLockedOut()) << "locked twice, unlocked once";
    mutex->unlock();
    EXPECT_TRUE(other.waitForEnd());
}

TEST(Mutex, ANewOneIsFree) {
    const NBX::SO<Mutex> mutex(new Mutex);
    EXPECT_TRUE(OtherThread(mutex.get()).waitForEnd());
}

TEST(Mutex, ACopyStandsForTheSameLock) {
    const NBX::SO<Mutex> mutex(new Mutex);
    const NBX::SO<Mutex> copy(new Mutex(*mutex));
    mutex->lock();
    const OtherThread other(copy.get());
    EXPECT_TRUE(other.isLockedOut());
    copy->unlock();
    EXPECT_TRUE(other.waitForEnd());
}

TEST(Mutex, KeepsCountersRight) {
    class Counter : public Thread {
        NBX_TEMPLATE_CLASS(Counter, Thread)
    public:
        Counter(Mutex * mutex, int * count) : mutex_(mutex), count_(count) {}
        void run() override {
            for (int i = 0; i < 10000; ++i) {
                const MutexLocker lock(mutex_.get());
                ++*count_;
            }
        }

    private:
        NBX::SO<Mutex> mutex_;
        int * count_;
    };
    const NBX::SO<Mutex> mutex(new Mutex);
    int count = 0;
    const NBX::SO<Counter> a(new Counter(mutex.get(), &count)), b(new Counter(mutex.get(), &count));
    a->start();
    b->start();
    while (a->isRunning() || b->isRunning())
        Thread::sleep(0.001);
    EXPECT_EQ(count, 20000);
}

TEST(MutexLocker, LocksWhileItLivesAndKeepsTheMutex) {
    NBX::SO<Mutex> mutex(new Mutex);
    {
        const MutexLocker lock(mutex.get());
        EXPECT_EQ(mutex->references(), 2);
        EXPECT_TRUE(OtherThread(nullptr).waitForEnd());
    }
    EXPECT_EQ(mutex->references(), 1);
    EXPECT_TRUE(OtherThread(mutex.get()).waitForEnd());

    const MutexLocker last(mutex.get());
    mutex = nullptr;
}

TEST(MutexLocker, DoesNothingWithoutAMutex) {
    const MutexLocker lock(nullptr);
    const MutexLocker again(nullptr);
}

TEST(MutexLocker, UsesTheVirtualOperations) {
    class Noted : public Mutex {
        NBX_TEMPLATE_CLASS(Noted, Mutex)
    public:
        void lock() override { text += "l"; }
        void unlock() override { text += "u"; }
        std::string text;
    };
    const NBX::SO<Noted> mutex(new Noted);
    {
        const MutexLocker outer(mutex.get());
        const MutexLocker inner(mutex.get());
    }
    EXPECT_EQ(mutex->text, "lluu");
}

TEST(Mutex, OperationsKeepTheirOrder) {
    EXPECT_TRUE(inSlotOrder(&NBX::SharedObj::isRegisteredForSerialization, &Mutex::lock, &Mutex::unlock));
}

} // namespace
