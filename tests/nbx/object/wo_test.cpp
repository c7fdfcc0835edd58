#include <nbx/object/wo.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include <nbx/object/sharedobj.h>

using NBX::SharedObj;
using NBX::SO;
using NBX::WO;

namespace {

TEST(WO, TurnsNullWhenTheObjectDies) {
    SO<SharedObj> object(new SharedObj);
    const WO<SharedObj> watcher(object);
    EXPECT_TRUE(watcher);
    EXPECT_EQ(watcher.lock().get(), object.get());
    EXPECT_EQ(object->references(), 1);
    object = nullptr;
    EXPECT_FALSE(watcher);
    EXPECT_FALSE(watcher.lock());
}

TEST(WO, NullIsLegal) {
    const WO<SharedObj> none;
    EXPECT_FALSE(none);
    EXPECT_FALSE(none.lock());
    const WO<SharedObj> copy(none);
    EXPECT_FALSE(copy.lock());
}

TEST(WO, AllCopiesTurnNull) {
    SO<SharedObj> object(new SharedObj);
    std::vector<WO<SharedObj>> watchers(10, WO<SharedObj>(object));
    watchers.erase(watchers.begin() + 3);
    watchers[0] = watchers[5];
    watchers[1] = WO<SharedObj>();
    watchers[2] = *&watchers[2];
    EXPECT_TRUE(watchers[2]);
    object = nullptr;
    for (const WO<SharedObj> & watcher : watchers)
        EXPECT_FALSE(watcher);
}

TEST(WO, CanWatchAnotherObjectAndOutlivedOnes) {
    SO<SharedObj> a(new SharedObj), b(new SharedObj);
    WO<SharedObj> watcher(a);
    watcher = b;
    a = nullptr;
    EXPECT_EQ(watcher.lock().get(), b.get());
    b = nullptr;
    watcher = nullptr;
    EXPECT_FALSE(watcher);
}

TEST(WO, IsNullWithinTheDestructor) {
    struct Watched : SharedObj {
        explicit Watched(bool & seen) : seen_(seen) {}
        ~Watched() override {
            seen_ = self.lock().get() != nullptr;
            const SO<SharedObj> holder(this);
        }
        WO<SharedObj> self;
        bool & seen_;
    };
    bool seen = true;
    SO<Watched> object(new Watched(seen));
    object->self = SO<SharedObj>(object);
    object = nullptr;
    EXPECT_FALSE(seen);
}

TEST(WO, ACopiedObjectIsNotWatched) {
    SO<SharedObj> object(new SharedObj);
    const WO<SharedObj> watcher(object);
    const SO<SharedObj> copy(new SharedObj(*object));
    object = nullptr;
    EXPECT_FALSE(watcher);
}

/// One thread drops the last strong pointer while others lock: each gets the whole object or null.
TEST(WO, LockingRacesWithTheEndOfTheObject) {
    struct Marked : SharedObj {
        ~Marked() override { mark = 0; }
        std::atomic<int> mark{42};
    };
    for (int round = 0; round < 300; ++round) {
        SO<Marked> object(new Marked);
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t)
            threads.emplace_back([watcher = WO<Marked>(object)] {
                for (int i = 0; i < 50; ++i)
                    if (const SO<Marked> locked = watcher.lock()) {
                        EXPECT_EQ(locked->mark, 42);
                    }
            });
        object = nullptr;
        for (std::thread & thread : threads)
            thread.join();
    }
}

} // namespace
