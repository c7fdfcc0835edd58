#include <zmt/core/cache/resourcemanager.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <thread>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include <support/recordedreports.h>

#include <zmt/core/misc/semaphore.h>

using NBX::SO;
using ZMT::CORE::MutexLocker;
using ZMT::CORE::ResourceManager;
using ZMT::CORE::Semaphore;
using ZMT::CORE::Thread;

namespace {

class Key : public NBX::SharedObj {
    NBX_TEMPLATE_CLASS(Key, NBX::SharedObj)
public:
    explicit Key(std::string keyName, double keySize = 10.0) : name(std::move(keyName)), size(keySize) {}
    const std::string name;
    const double size;
};

class Resource : public NBX::SharedObj {
    NBX_TEMPLATE_CLASS(Resource, NBX::SharedObj)
public:
    explicit Resource(std::string keyName) : name(std::move(keyName)) {}
    ~Resource() override {
        if (diedOn) *diedOn = std::this_thread::get_id();
    }
    const std::string name;
    std::thread::id * diedOn = nullptr;
};

/// Notes the keys that it is called with.
class Preparer : public NBX::CallbackR1<SO<Resource>, SO<Key>> {
    using Base = NBX::CallbackR1<SO<Resource>, SO<Key>>;
    NBX_TEMPLATE_CLASS(Preparer, Base)
public:
    SO<Resource> call(SO<Key> key) override {
        if (during) during();
        const std::lock_guard lock(mutex_);
        calls_ += key->name;
        thread_ = std::this_thread::get_id();
        if (fails) throw std::runtime_error("unreadable");
        return givesNull ? nullptr : new Resource(key->name);
    }
    std::string calls() const {
        const std::lock_guard lock(mutex_);
        return calls_;
    }
    std::thread::id thread() const {
        const std::lock_guard lock(mutex_);
        return thread_;
    }
    std::function<void()> during;
    bool givesNull = false;
    std::atomic<bool> fails = false;

private:
    mutable std::mutex mutex_;
    std::string calls_;
    std::thread::id thread_;
};

class Manager : public ResourceManager<Key, Resource> {
    using Base = ResourceManager<Key, Resource>;
    NBX_TEMPLATE_CLASS(Manager, Base)
public:
    explicit Manager(double maxMemory = 1000.0, bool multiThreaded = false, unsigned ageLimit = 5,
                     double idleSleep = 0.001)
        : ResourceManager(maxMemory, multiThreaded, ageLimit, idleSleep) {}
    ~Manager() override {
        if (shutsDown) shutdown();
    }

    double sizeOf(const SO<Key> & key) const override { return key->size; }
    NBX::NBXTime now() const override { return clock ? NBX::NBXTime(clock()) : NBX::NBXTime::now(); }

    /// The cached resources, used last first.
    std::string cached() const {
        const MutexLocker lock(mutex_.get());
        std::string names;
        for (const Entry & entry : cache_)
            names += entry.value ? entry.value->name : "-";
        return names;
    }
    /// The requested keys in the order of their first request.
    std::string requested() const {
        const MutexLocker lock(mutex_.get());
        std::string names;
        for (const auto & request : requests_)
            names += request.key->name;
        return names;
    }
    double priorityOf(const SO<Key> & key) const {
        const MutexLocker lock(mutex_.get());
        for (const auto & request : requests_)
            if (request.key == key) return request.priority;
        return 0.0;
    }
    /// What waits for a frame, made first first.
    std::string waiting() const {
        const MutexLocker lock(mutex_.get());
        std::string names;
        for (const Entry & entry : waiting_)
            names += entry.value ? entry.value->name : "-";
        return names;
    }
    bool isToEnd() const {
        const MutexLocker lock(mutex_.get());
        return shutdownRequested_;
    }
    void waitForWorker() const {
        while (isRunning())
            sleep(0.001);
    }

    std::function<double()> clock;
    bool shutsDown = true;
};

/// Does something on a thread of its own, and is waited for.
class Meanwhile : public Thread {
    NBX_TEMPLATE_CLASS(Meanwhile, Thread)
public:
    explicit Meanwhile(std::function<void()> work) : work_(std::move(work)) { start(); }
    ~Meanwhile() override {
        while (isRunning())
            sleep(0.001);
    }
    void run() override { work_(); }

private:
    std::function<void()> work_;
};

SO<Key> key(const char * name, double size = 10.0) {
    return new Key(name, size);
}

class ResourceManagerTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_TRUE(reports.empty()) << reports; }

    /// Prepared at once.
    SO<Resource> demand(Manager & manager, const SO<Key> & wanted) {
        return manager.request(wanted, preparer, Manager::s_immediately);
    }
    static SO<Resource> look(Manager & manager, const SO<Key> & wanted) {
        return manager.request(wanted, nullptr, Manager::s_lookOnly);
    }

    RecordedReports reports;
    const SO<Preparer> preparer{new Preparer};
    const SO<Manager> manager{new Manager};
    const SO<Key> a = key("a"), b = key("b"), c = key("c"), d = key("d");
};

TEST_F(ResourceManagerTest, ALookPreparesAndQueuesNothing) {
    for (const double priority : {-1e42, -1.0, 0.0, std::nan("")}) {
        EXPECT_FALSE(manager->request(a, preparer, priority));
        EXPECT_EQ(manager->requested(), "") << priority;
    }
    EXPECT_FALSE(manager->request(a, nullptr, 5.0)) << "nobody could prepare it";
    EXPECT_FALSE(manager->request(a, nullptr, 1e42));
    EXPECT_FALSE(manager->request(nullptr, preparer, 1e42));
    EXPECT_EQ(manager->requested(), "");
    EXPECT_EQ(preparer->calls(), "");
}

TEST_F(ResourceManagerTest, AtTheHighestPriorityTheResourceComesAtOnce) {
    const SO<Resource> resource = demand(*manager, a);
    ASSERT_TRUE(resource);
    EXPECT_EQ(resource->name, "a");
    EXPECT_EQ(preparer->thread(), std::this_thread::get_id());
    EXPECT_EQ(manager->usedMemory(), 10.0);
    EXPECT_EQ(look(*manager, a), resource);
    EXPECT_EQ(demand(*manager, a), resource);
    EXPECT_EQ(preparer->calls(), "a");
    EXPECT_FALSE(manager->request(b, preparer, std::nextafter(1e42, 0.0))) << "just below";
    EXPECT_EQ(manager->requested(), "b");
}

TEST_F(ResourceManagerTest, RequestsQueueInOrderAndAddUp) {
    EXPECT_FALSE(manager->request(a, preparer, 1.0));
    EXPECT_FALSE(manager->request(b, preparer, 0.5));
    EXPECT_FALSE(manager->request(a, preparer, 2.0));
    EXPECT_EQ(manager->requested(), "ab");
    EXPECT_EQ(manager->priorityOf(a), 3.0);
    EXPECT_EQ(manager->priorityOf(b), 0.5);
    const SO<Preparer> other(new Preparer);
    manager->request(a, other, 4.0);
    EXPECT_EQ(manager->requested(), "aba") << "another preparer is another request";
    EXPECT_EQ(manager->priorityOf(a), 3.0);
}

TEST_F(ResourceManagerTest, CountsTheRequestsThatWait) {
    EXPECT_EQ(manager->pendingRequests(), 0U);
    manager->request(a, preparer, 1.0);
    manager->request(b, preparer, 2.0);
    manager->request(a, preparer, 1.0);
    look(*manager, c);
    demand(*manager, d);
    EXPECT_EQ(manager->pendingRequests(), 2U);
    std::size_t meanwhile = 0;
    preparer->during = [&] { meanwhile = manager->pendingRequests(); };
    manager->prepareOne();
    EXPECT_EQ(meanwhile, 1U) << "the one that is being prepared does not wait";
    manager->beginFrame();
    EXPECT_EQ(manager->pendingRequests(), 0U);
}

TEST_F(ResourceManagerTest, OnePreparationServesTwoPreparersOfAKey) {
    const SO<Preparer> other(new Preparer);
    manager->request(a, preparer, 1.0);
    manager->request(a, other, 2.0);
    manager->prepareOne();
    EXPECT_EQ(other->calls(), "a");
    EXPECT_EQ(manager->requested(), "");
    manager->prepareOne();
    EXPECT_EQ(preparer->calls(), "");
}

TEST_F(ResourceManagerTest, OnlyOneFurtherRequestOfAKeyGoesWithIt) {
    const SO<Preparer> second(new Preparer), third(new Preparer);
    manager->request(a, preparer, 1.0);
    manager->request(a, second, 1.0);
    manager->request(a, third, 1.0);
    manager->prepareOne();
    EXPECT_EQ(manager->requested(), "a");
    manager->prepareOne();
    EXPECT_EQ(manager->requested(), "");
    EXPECT_EQ(preparer->calls() + second->calls() + third->calls(), "a") << "it is there by now";
}

TEST_F(ResourceManagerTest, TheMostWantedIsPreparedFirstTheEarliestOnTies) {
    manager->request(a, preparer, 1.0);
    manager->request(b, preparer, 3.0);
    manager->request(c, preparer, 3.0);
    manager->request(d, preparer, 2.0);
    for (int i = 0; i < 5; ++i)
        manager->prepareOne();
    EXPECT_EQ(preparer->calls(), "bcda");
    EXPECT_EQ(manager->cached(), "adcb");
    EXPECT_EQ(manager->usedMemory(), 40.0);
}

TEST_F(ResourceManagerTest, WhatWasDemandedMeanwhileIsNotPreparedAgain) {
    manager->request(a, preparer, 2.0);
    manager->request(b, preparer, 1.0);
    demand(*manager, a);
    manager->prepareOne();
    EXPECT_EQ(preparer->calls(), "ab");
    EXPECT_EQ(manager->usedMemory(), 20.0);
}

TEST_F(ResourceManagerTest, AKeyDemandedDuringItsPreparationIsCountedOnce) {
    manager->request(a, preparer, 1.0);
    SO<Resource> demanded;
    const SO<Preparer> other(new Preparer);
    preparer->during = [&] { demanded = manager->request(a, other, 1e42); };
    manager->prepareOne();
    ASSERT_TRUE(demanded);
    EXPECT_EQ(manager->cached(), "a");
    EXPECT_EQ(manager->usedMemory(), 10.0);
    EXPECT_NE(look(*manager, a), demanded);
}

TEST_F(ResourceManagerTest, ANullResourceIsCachedToo) {
    preparer->givesNull = true;
    EXPECT_FALSE(demand(*manager, a));
    EXPECT_FALSE(manager->request(a, preparer, 1.0));
    EXPECT_EQ(manager->requested(), "");
    EXPECT_EQ(manager->cached(), "-");
    EXPECT_EQ(preparer->calls(), "a");
}

using Outcome = Manager::Outcome;

TEST_F(ResourceManagerTest, TellsWhatCameOfAPreparation) {
    EXPECT_EQ(manager->outcome(a), Outcome::None);
    EXPECT_EQ(manager->outcome(nullptr), Outcome::None);
    manager->request(a, preparer, 1.0);
    EXPECT_EQ(manager->outcome(a), Outcome::None) << "it waits";
    manager->prepareOne();
    EXPECT_EQ(manager->outcome(a), Outcome::Done);
    preparer->givesNull = true;
    demand(*manager, b);
    EXPECT_EQ(manager->outcome(b), Outcome::Done) << "there is nothing";
    preparer->fails = true;
    demand(*manager, c);
    EXPECT_EQ(manager->outcome(c), Outcome::Failed);
    manager->remove(a);
    EXPECT_EQ(manager->outcome(a), Outcome::None);
}

TEST_F(ResourceManagerTest, AFailureIsTriedAgainInTheFirstFrameAfterAWhile) {
    double time = 100.0;
    manager->clock = [&] { return time; };
    preparer->fails = true;
    EXPECT_FALSE(demand(*manager, a));
    manager->request(b, preparer, 1.0);
    manager->prepareOne();
    EXPECT_EQ(preparer->calls(), "ab");
    EXPECT_EQ(manager->usedMemory(), 0.0) << "there is no resource";

    preparer->fails = false;
    time = std::nextafter(100.0 + Manager::s_retryTime, 0.0);
    manager->beginFrame();
    EXPECT_FALSE(demand(*manager, a));
    EXPECT_FALSE(manager->request(b, preparer, 1.0));
    EXPECT_EQ(manager->requested(), "");
    manager->endFrame();
    EXPECT_EQ(preparer->calls(), "ab") << "not yet";

    time = 100.0 + Manager::s_retryTime;
    manager->beginFrame();
    EXPECT_EQ(manager->outcome(a), Outcome::None);
    EXPECT_TRUE(demand(*manager, a));
    manager->request(b, preparer, 1.0);
    manager->prepareOne();
    EXPECT_TRUE(look(*manager, b));
    manager->endFrame();
    EXPECT_EQ(manager->usedMemory(), 20.0);
}

TEST_F(ResourceManagerTest, AFailureDoesNotReplaceAResourceThatWasDemandedMeanwhile) {
    manager->request(a, preparer, 1.0);
    SO<Resource> demanded;
    const SO<Preparer> other(new Preparer);
    preparer->during = [&] { demanded = manager->request(a, other, 1e42); };
    preparer->fails = true;
    manager->prepareOne();
    ASSERT_TRUE(demanded);
    EXPECT_EQ(look(*manager, a), demanded);
    EXPECT_EQ(manager->usedMemory(), 10.0);
}

TEST_F(ResourceManagerTest, AFailureOnTheWorkerDoesNotEndIt) {
    const SO<Manager> threaded(new Manager(1000.0, true));
    preparer->fails = true;
    threaded->request(a, preparer, 2.0);
    const SO<Preparer> sound(new Preparer);
    threaded->request(b, sound, 1.0);
    threaded->endFrame();
    while (!look(*threaded, b))
        Thread::sleep(0.001);
    EXPECT_EQ(threaded->outcome(a), Outcome::Failed);
}

TEST_F(ResourceManagerTest, RemovesOneResource) {
    demand(*manager, a);
    demand(*manager, b);
    manager->remove(a);
    manager->remove(a);
    manager->remove(c);
    manager->remove(nullptr);
    EXPECT_EQ(manager->cached(), "b");
    EXPECT_EQ(manager->usedMemory(), 10.0);
    EXPECT_FALSE(look(*manager, a));
    demand(*manager, a);
    EXPECT_EQ(preparer->calls(), "aba");
}

// Frames without a worker.

TEST_F(ResourceManagerTest, WithoutAWorkerEachFramePreparesTheMostWantedOfTheFrameBefore) {
    manager->beginFrame();
    manager->request(a, preparer, 1.0);
    manager->request(b, preparer, 2.0);
    manager->endFrame();
    EXPECT_EQ(preparer->calls(), "");
    manager->beginFrame();
    EXPECT_EQ(preparer->calls(), "b");
    EXPECT_EQ(manager->requested(), "") << "the others have to ask again";
    EXPECT_TRUE(look(*manager, b));
    manager->endFrame();
    manager->beginFrame();
    EXPECT_EQ(preparer->calls(), "b");
    EXPECT_FALSE(manager->isRunning());
}

TEST_F(ResourceManagerTest, TheCacheIsInOrderOfLastUse) {
    for (const auto & wanted : {a, b, c})
        demand(*manager, wanted);
    EXPECT_EQ(manager->cached(), "cba");
    look(*manager, a);
    EXPECT_EQ(manager->cached(), "acb");
    demand(*manager, a);
    EXPECT_EQ(manager->cached(), "acb");
}

TEST_F(ResourceManagerTest, TheEndOfAFrameDropsWhatWasUsedLongestAgo) {
    for (const auto & wanted : {a, b, c, d})
        demand(*manager, wanted);
    manager->beginFrame();
    look(*manager, a);
    manager->setMaxMemory(25.0);
    EXPECT_EQ(manager->maxMemory(), 25.0);
    EXPECT_EQ(manager->usedMemory(), 40.0) << "only the end of the frame looks";
    manager->endFrame();
    EXPECT_EQ(manager->cached(), "ad");
    EXPECT_EQ(manager->usedMemory(), 20.0);
}

TEST_F(ResourceManagerTest, AFullBudgetIsWithinTheBudget) {
    for (const auto & wanted : {a, b})
        demand(*manager, wanted);
    manager->setMaxMemory(20.0);
    manager->beginFrame();
    manager->endFrame();
    EXPECT_EQ(manager->cached(), "ba");
}

TEST_F(ResourceManagerTest, WhatAFrameUsesStaysOverBudgetUntilAFrameDoesNot) {
    manager->setMaxMemory(15.0);
    manager->beginFrame();
    for (const auto & wanted : {a, b, c})
        demand(*manager, wanted);
    manager->endFrame();
    EXPECT_EQ(manager->cached(), "cba");
    EXPECT_GT(manager->usedMemory(), manager->maxMemory());

    manager->beginFrame();
    look(*manager, b);
    look(*manager, c);
    manager->endFrame();
    EXPECT_EQ(manager->cached(), "cb");

    manager->beginFrame();
    manager->endFrame();
    EXPECT_EQ(manager->cached(), "c");
    EXPECT_EQ(manager->usedMemory(), 10.0);
}

TEST_F(ResourceManagerTest, UsingTheFirstOneAgainKeepsTheOthersOfTheFrame) {
    for (const auto & wanted : {d, a, b, c})
        demand(*manager, wanted);
    manager->setMaxMemory(5.0);
    manager->beginFrame();
    look(*manager, a);
    look(*manager, b);
    look(*manager, a);
    look(*manager, a);
    manager->endFrame();
    EXPECT_EQ(manager->cached(), "ab");
    manager->beginFrame();
    look(*manager, a);
    manager->remove(a);
    look(*manager, b);
    manager->endFrame();
    EXPECT_EQ(manager->cached(), "b");
}

TEST_F(ResourceManagerTest, APreparationCountsAsUseInItsFrame) {
    manager->setMaxMemory(5.0);
    manager->beginFrame();
    manager->request(a, preparer, 1.0);
    manager->endFrame();
    manager->beginFrame();
    manager->endFrame();
    EXPECT_EQ(manager->cached(), "a");
    manager->beginFrame();
    manager->endFrame();
    EXPECT_EQ(manager->cached(), "");
    EXPECT_EQ(manager->usedMemory(), 0.0);
}

TEST_F(ResourceManagerTest, TheResourceOfADeadKeyGoesAtTheEndOfTheFrame) {
    SO<Key> dying = key("x", 7.0);
    demand(*manager, a);
    demand(*manager, dying);
    manager->beginFrame();
    look(*manager, dying);
    look(*manager, a);
    dying = nullptr;
    EXPECT_EQ(manager->usedMemory(), 17.0);
    manager->endFrame();
    EXPECT_EQ(manager->cached(), "a");
    EXPECT_EQ(manager->usedMemory(), 10.0);
}

TEST_F(ResourceManagerTest, TheDeadGoBeforeTheBudgetIsLookedAt) {
    SO<Key> dying = key("x");
    for (const auto & wanted : {a, b, dying})
        demand(*manager, wanted);
    manager->setMaxMemory(20.0);
    dying = nullptr;
    manager->beginFrame();
    manager->endFrame();
    EXPECT_EQ(manager->cached(), "ba");
}

TEST_F(ResourceManagerTest, TheOthersOfAFrameStayWhenItsFirstKeyDies) {
    SO<Key> first = key("x");
    for (const auto & wanted : {a, b, first, c})
        demand(*manager, wanted);
    manager->setMaxMemory(5.0);
    manager->beginFrame();
    for (const auto & wanted : {first, b, c})
        look(*manager, wanted);
    first = nullptr;
    manager->endFrame();
    EXPECT_EQ(manager->cached(), "cb");
}

/// The storage is the same for all, so that the addresses are.
struct Placed : Key {
    using Key::Key;
    static void * operator new(std::size_t size) {
        static void * const storage = ::operator new(size);
        return storage;
    }
    static void operator delete(void *) {}
};

TEST_F(ResourceManagerTest, ANewKeyInThePlaceOfADeadOneIsAnotherKey) {
    SO<Key> placed(new Placed("1"));
    const Key * const address = placed.get();
    demand(*manager, placed);
    placed = nullptr;
    placed = new Placed("2");
    ASSERT_EQ(placed.get(), address);
    EXPECT_FALSE(look(*manager, placed));
    demand(*manager, placed);
    EXPECT_EQ(manager->cached(), "21");
    manager->endFrame();
    EXPECT_EQ(manager->cached(), "2");
    EXPECT_EQ(look(*manager, placed)->name, "2");
    EXPECT_EQ(manager->usedMemory(), 10.0);
}

/// The linear look-ups that the index stands for, on names.
struct Reference {
    struct Entry {
        std::string name;
        double size;
        bool isUsed;
    };
    bool use(const std::string & name) {
        const auto found =
            std::find_if(entries.begin(), entries.end(), [&](const Entry & e) { return e.name == name; });
        if (found == entries.end()) return false;
        found->isUsed = true;
        entries.splice(entries.begin(), entries, found);
        return true;
    }
    void insert(const std::string & name, double size) { entries.push_front({name, size, true}); }
    void endFrame(double budget) {
        while (used() > budget && !entries.empty() && !entries.back().isUsed)
            entries.pop_back();
        for (Entry & entry : entries)
            entry.isUsed = false;
    }
    double used() const {
        double sum = 0.0;
        for (const Entry & entry : entries)
            sum += entry.size;
        return sum;
    }
    std::string names() const {
        std::string text;
        for (const Entry & entry : entries)
            text += entry.name;
        return text;
    }
    std::list<Entry> entries;
};

TEST_F(ResourceManagerTest, AgreesWithLinearLookUps) {
    constexpr unsigned seed = 4711;
    std::mt19937 random(seed);
    std::vector<SO<Key>> keys;
    for (int i = 0; i < 20; ++i)
        keys.push_back(key(std::string(1, static_cast<char>('A' + i)).c_str(), 1.0 + i % 4));
    Reference reference;
    for (int frame = 0; frame < 500; ++frame) {
        const double budget = random() % 30;
        manager->setMaxMemory(budget);
        manager->beginFrame();
        for (unsigned uses = random() % 12; uses > 0; --uses) {
            const SO<Key> & wanted = keys[random() % keys.size()];
            const bool isThere = static_cast<bool>(look(*manager, wanted));
            ASSERT_EQ(isThere, reference.use(wanted->name)) << "frame " << frame << ", seed " << seed;
            if (isThere || random() % 3 == 0) continue;
            demand(*manager, wanted);
            reference.insert(wanted->name, wanted->size);
        }
        manager->endFrame();
        reference.endFrame(budget);
        ASSERT_EQ(manager->cached(), reference.names()) << "frame " << frame << ", seed " << seed;
        ASSERT_EQ(manager->usedMemory(), reference.used());
    }
}

// The worker's loop, on this thread and under a stepped clock.

TEST_F(ResourceManagerTest, TheLoopServesAllAndEndsAfterASecondWithoutWork) {
    double time = 100.0;
    int looks = 0;
    manager->clock = [&] {
        ++looks;
        return time += 0.25;
    };
    manager->request(a, preparer, 1.0);
    manager->request(b, preparer, 2.0);
    manager->run();
    EXPECT_EQ(preparer->calls(), "ba");
    // The start, two looks for each of two preparations, and four idle rounds of a quarter of a second.
    EXPECT_EQ(looks, 1 + 2 * 2 + 3);
}

TEST_F(ResourceManagerTest, TheLoopEndsExactlyAtASecond) {
    double time = 0.0;
    int looks = 0;
    manager->clock = [&] { return ++looks == 1 ? time : time = 1.0; };
    manager->run();
    EXPECT_EQ(looks, 2);
}

TEST_F(ResourceManagerTest, TheLoopPausesBetweenTwoLooks) {
    constexpr double pause = 0.02;
    const SO<Manager> pausing(new Manager(1000.0, false, 5, pause));
    double time = 0.0;
    pausing->clock = [&] { return time += 0.375; };
    const double before = NBX::NBXTime::now();
    pausing->run();
    EXPECT_EQ(time, 4 * 0.375) << "three looks after the start";
    EXPECT_GE(NBX::NBXTime::now() - before, 3 * pause);
}

TEST_F(ResourceManagerTest, WorkKeepsTheLoopGoing) {
    double time = 0.0;
    manager->clock = [&] { return time += 0.3; };
    int left = 10;
    preparer->during = [&] {
        if (--left > 0) manager->request(key("n"), preparer, 1.0);
    };
    manager->request(a, preparer, 1.0);
    manager->run();
    EXPECT_EQ(left, 0);
}

// With a worker.

class ThreadedResourceManagerTest : public ResourceManagerTest {
protected:
    /// Lets the worker wait inside the preparation of its first key.
    void holdWorker() {
        preparer->during = [this, first = true]() mutable {
            if (!std::exchange(first, false)) return;
            arrived->increase();
            go->decrease();
        };
    }

    const SO<Semaphore> go{new Semaphore}, arrived{new Semaphore};
    const SO<Manager> threaded{new Manager(1000.0, true)};
};

TEST_F(ThreadedResourceManagerTest, TheWorkerStartsWithRequestsOnly) {
    threaded->beginFrame();
    threaded->endFrame();
    EXPECT_FALSE(threaded->isRunning());
    threaded->request(a, preparer, 1.0);
    EXPECT_FALSE(threaded->isRunning()) << "frames start it";
    threaded->endFrame();
    EXPECT_TRUE(threaded->isRunning());
    while (!look(*threaded, a))
        Thread::sleep(0.001);
    EXPECT_EQ(preparer->calls(), "a");
    EXPECT_NE(preparer->thread(), std::this_thread::get_id());
}

TEST_F(ThreadedResourceManagerTest, TheWorkerComesBehindTheRenderThread) {
    const int own = getpriority(PRIO_PROCESS, 0);
    std::atomic<int> nice{-100};
    preparer->during = [&] { nice = getpriority(PRIO_PROCESS, 0); };
    threaded->request(a, preparer, 1.0);
    threaded->beginFrame();
    while (!look(*threaded, a))
        Thread::sleep(0.001);
    EXPECT_EQ(nice, std::min(own + 5, 19));
}

TEST_F(ThreadedResourceManagerTest, TheWorkerEndsWhenIdleAndIsStartedAgain) {
    // The worker may ask once more when the test is over.
    const auto time = std::make_shared<std::atomic<double>>(0.0);
    threaded->clock = [time] { return time->load(); };
    for (const auto & wanted : {a, b}) {
        threaded->beginFrame();
        threaded->request(wanted, preparer, 1.0);
        threaded->endFrame();
        while (!look(*threaded, wanted))
            Thread::sleep(0.001);
        EXPECT_TRUE(threaded->isRunning()) << "its second is not over";
        while (threaded->isRunning()) {
            *time = *time + 1.0;
            Thread::sleep(0.001);
        }
    }
    threaded->request(c, preparer, 1.0);
    threaded->beginFrame();
    EXPECT_TRUE(threaded->isRunning()) << "the begin of a frame starts it as well";
}

TEST_F(ThreadedResourceManagerTest, AWorkerWithoutWorkSleepsUntilThereIsSome) {
    std::atomic<int> looks{0};
    const SO<Manager> sleeping(new Manager(1000.0, true, 5, 0.0));
    sleeping->clock = [&] {
        ++looks;
        return 0.0;
    };
    sleeping->request(a, preparer, 1.0);
    sleeping->endFrame();
    while (!look(*sleeping, a))
        Thread::sleep(0.001);
    const int before = looks;
    Thread::sleep(0.1);
    EXPECT_LT(looks - before, 100) << "a worker that merely yields looks thousands of times";
    EXPECT_TRUE(sleeping->isRunning());

    sleeping->request(b, preparer, 1.0);
    while (!look(*sleeping, b))
        Thread::sleep(0.001);
}

/// Twenty keys, "a" to "t", wanted in this order, of which the worker has made what it can in one frame.
class PreparedManagerTest : public ThreadedResourceManagerTest {
protected:
    void SetUp() override {
        for (char name = 'a'; name <= 't'; ++name)
            keys.push_back(key(std::string(1, name).c_str()));
        wantAll(*threaded);
        threaded->endFrame();
        waitForMade(s_entering + s_waiting);
    }
    /// Requests are forgotten when they are not repeated.
    void wantAll(Manager & manager) {
        for (std::size_t i = 0; i < keys.size(); ++i)
            manager.request(keys[i], preparer, 100.0 - double(i));
    }
    /// Until so many resources are there.
    void waitForMade(std::size_t count) {
        while (threaded->cached().size() + threaded->waiting().size() < count)
            Thread::sleep(0.001);
    }
    static std::string reversed(std::string text) { return {text.rbegin(), text.rend()}; }

    static constexpr std::size_t s_entering = Manager::s_entriesPerFrame, s_waiting = Manager::s_mostWaiting;
    const std::string all = "abcdefghijklmnopqrst";
    std::vector<SO<Key>> keys;
};

TEST_F(PreparedManagerTest, AFrameTakesAFewInTheOrderInWhichTheyWereMade) {
    for (std::size_t entered = s_entering; entered < all.size(); entered += s_entering) {
        const std::size_t made = std::min(entered + s_waiting, all.size());
        waitForMade(made);
        EXPECT_EQ(threaded->cached(), reversed(all.substr(0, entered)));
        EXPECT_EQ(threaded->waiting(), all.substr(entered, made - entered));
        EXPECT_EQ(threaded->usedMemory(), 10.0 * double(entered));
        EXPECT_EQ(threaded->outcome(keys[entered]), Outcome::None);
        EXPECT_FALSE(look(*threaded, keys[entered]));
        threaded->beginFrame();
        wantAll(*threaded);
        threaded->endFrame();
    }
    EXPECT_EQ(threaded->waiting(), "");
    EXPECT_EQ(preparer->calls(), all) << "each once";
}

TEST_F(PreparedManagerTest, TheWorkerRestsWhileMuchWaits) {
    Thread::sleep(0.05);
    EXPECT_EQ(preparer->calls(), all.substr(0, s_entering + s_waiting));
    EXPECT_EQ(threaded->waiting(), all.substr(s_entering, s_waiting));
    EXPECT_EQ(threaded->pendingRequests(), all.size() - s_entering) << "for the worker, or for a frame";
}

TEST_F(PreparedManagerTest, WhatIsDemandedAtOnceDoesNotWait) {
    const SO<Resource> last = demand(*threaded, keys[11]);
    ASSERT_TRUE(last);
    EXPECT_EQ(last->name, "l");
    EXPECT_EQ(look(*threaded, keys[11]), last);
    EXPECT_EQ(preparer->calls().find('l'), preparer->calls().rfind('l')) << "it has been made";
    const SO<Key> fresh = key("x");
    EXPECT_TRUE(demand(*threaded, fresh));
    threaded->beginFrame();
    EXPECT_EQ(threaded->cached(), reversed("abcdlxefgh")) << "beside those of the frame";
}

TEST_F(PreparedManagerTest, WhatWaitsIsNotRequestedAgain) {
    const std::string before = threaded->requested();
    EXPECT_FALSE(threaded->request(keys[5], preparer, 5.0));
    EXPECT_EQ(threaded->requested(), before);
}

TEST_F(ThreadedResourceManagerTest, WhatWaitsServesAllItsRequests) {
    const SO<Preparer> second(new Preparer), third(new Preparer);
    std::vector<SO<Key>> keys;
    for (unsigned i = 0; i <= Manager::s_entriesPerFrame; ++i)
        threaded->request(keys.emplace_back(key("k")), preparer, 10.0 - i);
    for (const auto & other : {second, third})
        threaded->request(keys.back(), other, 1.0);
    threaded->endFrame();
    while (!threaded->requested().empty())
        Thread::sleep(0.001);
    threaded->shutdown();
    EXPECT_EQ(threaded->waiting(), "k");
    EXPECT_EQ(second->calls() + third->calls(), "");
}

TEST_F(PreparedManagerTest, WhatHasFailedTakesNoPlace) {
    threaded->shutdown();
    const SO<Manager> other(new Manager(1000.0, true));
    preparer->fails = true;
    wantAll(*other);
    other->endFrame();
    while (!other->requested().empty())
        Thread::sleep(0.001);
    other->shutdown();
    for (const SO<Key> & failed : keys)
        EXPECT_EQ(other->outcome(failed), Outcome::Failed);
}

TEST_F(ThreadedResourceManagerTest, ANewKeyInThePlaceOfADeadOneThatWaitsIsAnotherKey) {
    std::vector<SO<Key>> keys;
    for (unsigned i = 0; i < Manager::s_entriesPerFrame; ++i)
        threaded->request(keys.emplace_back(key("k")), preparer, 10.0);
    SO<Key> placed(new Placed("1"));
    threaded->request(placed, preparer, 1.0);
    threaded->endFrame();
    while (threaded->waiting().empty())
        Thread::sleep(0.001);
    threaded->shutdown();
    threaded->endFrame();
    EXPECT_EQ(threaded->waiting(), "1");
    placed = nullptr;
    placed = new Placed("2");
    threaded->request(placed, preparer, 1.0);
    EXPECT_EQ(threaded->requested(), "2");
}

TEST_F(PreparedManagerTest, TheDeadAndTheRemovedDoNotEnter) {
    threaded->shutdown();
    threaded->endFrame();
    keys[4] = nullptr;
    threaded->remove(keys[5]);
    EXPECT_EQ(threaded->waiting(), "eghijkl");
    threaded->endFrame();
    EXPECT_EQ(threaded->waiting(), "ghijkl");
    keys[6] = nullptr;
    threaded->beginFrame();
    EXPECT_EQ(threaded->cached(), reversed("abcdhij")) << "dead in between";
}

TEST_F(ThreadedResourceManagerTest, PrioritiesFadeAndAddUp) {
    holdWorker();
    threaded->request(a, preparer, 1.0);
    threaded->endFrame();
    arrived->decrease();

    const double p = 3.0;
    double expected = 0.0;
    for (int frame = 0; frame < 5; ++frame) {
        threaded->beginFrame();
        threaded->request(b, preparer, p);
        expected = expected * 0.8 + p;
        EXPECT_DOUBLE_EQ(threaded->priorityOf(b), expected);
        threaded->endFrame();
    }
    EXPECT_NEAR(expected, p * (1 + 0.8 + 0.64 + 0.512 + 0.4096), 1e-12);
    go->increase();
}

TEST_F(ThreadedResourceManagerTest, ARequestNotRepeatedIsForgottenAfterItsAge) {
    holdWorker();
    threaded->request(a, preparer, 1.0);
    threaded->endFrame();
    arrived->decrease();

    threaded->beginFrame();
    threaded->request(b, preparer, 1.0);
    for (int frame = 1; frame <= 5; ++frame) {
        threaded->beginFrame();
        EXPECT_EQ(threaded->requested(), "b") << frame;
    }
    EXPECT_DOUBLE_EQ(threaded->priorityOf(b), std::pow(0.8, 5));
    threaded->beginFrame();
    EXPECT_EQ(threaded->requested(), "");
    EXPECT_EQ(b->references(), 1);
    go->increase();
}

TEST_F(ThreadedResourceManagerTest, ARepeatedRequestIsAsYoungAsANewOne) {
    holdWorker();
    threaded->request(a, preparer, 1.0);
    threaded->endFrame();
    arrived->decrease();

    for (int time = 0; time < 2; ++time) {
        threaded->request(b, preparer, 1.0);
        for (int frame = 1; frame <= 5; ++frame) {
            threaded->beginFrame();
            EXPECT_EQ(threaded->requested(), "b") << time << ", " << frame;
        }
    }
    threaded->beginFrame();
    EXPECT_EQ(threaded->requested(), "");
    go->increase();
}

TEST_F(ThreadedResourceManagerTest, ALookDoesNotWaitForAPreparationADemandDoes) {
    holdWorker();
    threaded->request(a, preparer, 1.0);
    threaded->endFrame();
    arrived->decrease();
    EXPECT_FALSE(look(*threaded, b));
    EXPECT_FALSE(threaded->request(b, preparer, 1.0));
    threaded->beginFrame();
    threaded->endFrame();

    const SO<Preparer> other(new Preparer);
    const SO<Meanwhile> releaser(new Meanwhile([this] {
        Thread::sleep(0.02);
        go->increase();
    }));
    EXPECT_TRUE(threaded->request(c, other, 1e42));
    EXPECT_EQ(preparer->calls().substr(0, 1), "a") << "prepared before the demanded one";
}

TEST_F(ThreadedResourceManagerTest, ShutdownWaitsForThePreparationAndServesNoFurther) {
    holdWorker();
    threaded->request(a, preparer, 2.0);
    threaded->request(b, preparer, 1.0);
    threaded->endFrame();
    arrived->decrease();
    const SO<Meanwhile> releaser(new Meanwhile([this] {
        while (!threaded->isToEnd())
            Thread::sleep(0.001);
        go->increase();
    }));
    threaded->shutdown();
    EXPECT_FALSE(threaded->isRunning());
    EXPECT_EQ(preparer->calls(), "a");
    EXPECT_TRUE(look(*threaded, a));
    EXPECT_EQ(threaded->requested(), "b");
    threaded->shutdown();

    threaded->beginFrame();
    threaded->waitForWorker();
    EXPECT_EQ(preparer->calls(), "a") << "a worker that is started once more leaves at once";
}

TEST_F(ThreadedResourceManagerTest, ShutdownWithoutAWorkerLeavesNoTrace) {
    threaded->shutdown();
    EXPECT_FALSE(threaded->isToEnd());
    threaded->request(a, preparer, 1.0);
    threaded->endFrame();
    while (!look(*threaded, a))
        Thread::sleep(0.001);
    EXPECT_EQ(preparer->calls(), "a");
}

TEST_F(ThreadedResourceManagerTest, TheWorkerIsNeverTheLastToHoldAnything) {
    holdWorker();
    std::thread::id diedOn;
    class Mortal : public Key {
        NBX_TEMPLATE_CLASS(Mortal, Key)
    public:
        explicit Mortal(std::thread::id * diedOn) : Key("m"), diedOn_(diedOn) {}
        ~Mortal() override { *diedOn_ = std::this_thread::get_id(); }

    private:
        std::thread::id * diedOn_;
    };
    SO<Key> mortal(new Mortal(&diedOn));
    threaded->request(mortal, preparer, 1.0);
    threaded->endFrame();
    arrived->decrease();
    mortal = nullptr;
    go->increase();
    threaded->shutdown();
    EXPECT_EQ(diedOn, std::thread::id());
    threaded->endFrame();
    EXPECT_EQ(diedOn, std::this_thread::get_id());
    EXPECT_EQ(threaded->cached(), "");
    EXPECT_EQ(threaded->usedMemory(), 0.0);
}

TEST_F(ThreadedResourceManagerTest, DestructionWithAWorkerIsReported) {
    NBX::ErrorHandler::Handler before = NBX::ErrorHandler::setHandler(nullptr);
    int count = 0;
    NBX::ErrorHandler::setHandler([&](const NBX::ErrorReport & report) {
        ++count;
        EXPECT_EQ(report.level, 0);
        EXPECT_EQ(report.condition, L"!multiThreaded_ || !isRunning()");
        EXPECT_EQ(report.message, L"shutdown() must be called before destruction");
        go->increase();
    });
    class Holding : public Manager {
        NBX_TEMPLATE_CLASS(Holding, Manager)
    public:
        Holding(Semaphore * arrived, Semaphore * go) : Manager(1000.0, true), arrived_(arrived), go_(go) {
            shutsDown = false;
        }
        void run() override {
            const SO<Semaphore> go = go_;
            arrived_->increase();
            go->decrease();
        }

    private:
        SO<Semaphore> arrived_, go_;
    };
    {
        const SO<Holding> holding(new Holding(arrived.get(), go.get()));
        holding->request(a, preparer, 1.0);
        holding->endFrame();
        arrived->decrease();
    }
    NBX::ErrorHandler::setHandler(before);
    EXPECT_EQ(count, 1);
}

TEST_F(ThreadedResourceManagerTest, ServesMovingWishes) {
    threaded->setMaxMemory(100.0);
    const SO<Preparer> plain(new Preparer);
    std::mt19937 random(7);
    std::vector<SO<Key>> keys(50);
    for (int frame = 0; frame < 300; ++frame) {
        threaded->beginFrame();
        for (int i = 0; i < 20; ++i) {
            SO<Key> & wanted = keys[random() % keys.size()];
            if (!wanted || random() % 10 == 0) wanted = key("k");
            threaded->request(wanted, plain, random() % 100 == 0 ? 1e42 : 1.0 + random() % 10);
        }
        threaded->endFrame();
    }
    while (!threaded->requested().empty()) {
        threaded->beginFrame();
        threaded->endFrame();
        Thread::sleep(0.001);
    }
    threaded->shutdown();
    keys.clear();
    threaded->beginFrame();
    threaded->endFrame();
    EXPECT_EQ(threaded->cached(), "");
    EXPECT_EQ(threaded->usedMemory(), 0.0);
}

} // namespace
