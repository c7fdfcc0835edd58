#include <nbx/object/so.h>

#include <gtest/gtest.h>

#include <thread>
#include <unordered_set>
#include <vector>

#include <nbx/object/sharedobj.h>

using NBX::SharedObj;
using NBX::SO;

namespace {

class Counted : public SharedObj {
    NBX_TEMPLATE_CLASS(Counted, SharedObj)
public:
    explicit Counted(int & alive) : alive_(alive) { ++alive_; }
    ~Counted() override { --alive_; }

private:
    int & alive_;
};

TEST(SO, NullIsLegalAndFalse) {
    const SO<SharedObj> none;
    EXPECT_FALSE(none);
    EXPECT_TRUE(none == nullptr);
    const SO<SharedObj> copy(none);
    EXPECT_FALSE(copy);
    const SO<SharedObj> fromNull(static_cast<SharedObj *>(nullptr));
    EXPECT_EQ(fromNull.get(), nullptr);
}

TEST(SO, TheLastHolderDeletes) {
    int alive = 0;
    {
        SO<Counted> first(new Counted(alive));
        EXPECT_EQ(first->references(), 1);
        SO<SharedObj> second = first;
        EXPECT_EQ(first->references(), 2);
        first = nullptr;
        EXPECT_EQ(alive, 1);
        EXPECT_EQ(second->references(), 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST(SO, MovingKeepsTheCount) {
    int alive = 0;
    SO<Counted> first(new Counted(alive));
    SO<Counted> second(std::move(first));
    EXPECT_FALSE(first);
    EXPECT_EQ(second->references(), 1);
    first = std::move(second);
    EXPECT_EQ(first->references(), 1);
}

TEST(SO, AssigningItselfKeepsTheObject) {
    int alive = 0;
    SO<Counted> object(new Counted(alive));
    object = *&object;
    EXPECT_EQ(alive, 1);
    object = object.get();
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(object->references(), 1);
}

/// The old object holds the new one: releasing it first would end both.
TEST(SO, CountsTheNewObjectBeforeItReleasesTheOld) {
    struct Link : SharedObj {
        SO<Link> next;
    };
    SO<Link> head(new Link);
    head->next = new Link;
    head = head->next;
    ASSERT_TRUE(head);
    EXPECT_EQ(head->references(), 1);
    EXPECT_FALSE(head->next);
}

TEST(SO, AHolderInADestructorDoesNotDeleteTwice) {
    struct SelfHolding : SharedObj {
        explicit SelfHolding(int & ends) : ends_(ends) {}
        ~SelfHolding() override {
            const SO<SharedObj> self(this);
            ++ends_;
        }
        int & ends_;
    };
    int ends = 0;
    SO<SelfHolding>(new SelfHolding(ends));
    EXPECT_EQ(ends, 1);
}

TEST(SO, CastGivesNullForAnotherClass) {
    int alive = 0;
    const SO<SharedObj> object(new Counted(alive));
    EXPECT_EQ(NBX::soCast<Counted>(object).get(), object.get());
    EXPECT_FALSE(NBX::soCast<Counted>(SO<SharedObj>(new SharedObj)));
    EXPECT_FALSE(NBX::soCast<Counted>(SO<SharedObj>()));
}

TEST(SO, ServesAsAKey) {
    const SO<SharedObj> a(new SharedObj), b(new SharedObj);
    const std::unordered_set<SO<SharedObj>> set{a, b, a};
    EXPECT_EQ(set.size(), 2U);
    EXPECT_NE(a < b, b < a);
}

TEST(SO, DifferentHoldersMayBeUsedByDifferentThreads) {
    int alive = 0;
    SO<Counted> object(new Counted(alive));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([object] {
            for (int i = 0; i < 20000; ++i) {
                const SO<SharedObj> copy(object);
                SO<SharedObj> other;
                other = copy;
            }
        });
    for (std::thread & thread : threads)
        thread.join();
    threads.clear();
    EXPECT_EQ(object->references(), 1);
    object = nullptr;
    EXPECT_EQ(alive, 0);
}

} // namespace
