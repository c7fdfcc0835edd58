#include <nbx/object/classpattern.h>

#include <gtest/gtest.h>

#include <nbx/object/serializationmanager.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

using NBX::ID;
using NBX::SharedObj;
using NBX::SO;
using NBX::Visitable;
using NBX::VisitMode;

namespace patterntest {

class Node : public SharedObj {
    NBX_STORED_CLASS(Node, SharedObj)
public:
    void append(SharedObj * child) { children_.push_back(child); }
    void acceptChildren(std::vector<Visitable *> & children) const override {
        SharedObj::acceptChildren(children);
        for (const SO<SharedObj> & child : children_)
            children.push_back(child.get());
    }

private:
    std::vector<SO<SharedObj>> children_;
};
NBX_STORED_CLASS_IMPL(Node, SharedObj)

class Special : public Node {
    NBX_CLASS(Special, Node)
};
NBX_CLASS_IMPL(Special, Node)

class Other : public SharedObj {
    NBX_TEMPLATE_CLASS(Other, SharedObj)
};

} // namespace patterntest

using namespace patterntest;

namespace {

/// Notes what it visits as "+Class" before and "-Class" behind the children.
class Recorder : public NBX::Visitor<Node> {
public:
    VisitMode visit(Node * node, bool pre) override {
        const std::string name = node->classInfoNBX()->name().text();
        log += (pre ? "+" : "-") + name.substr(name.rfind(':') + 1) + std::to_string(path().size()) + " ";
        if (node == modeAt) return pre ? mode : behindMode;
        return NBX::VM_Continue;
    }

    std::string log;
    const SharedObj * modeAt = nullptr;
    VisitMode mode = NBX::VM_Continue;
    VisitMode behindMode = NBX::VM_Continue;
};

class ExactRecorder : public Recorder {
public:
    bool acceptsOnlyExactType() const override { return true; }
    VisitMode defaultMode() const override { return default_; }
    VisitMode default_ = NBX::VM_Continue;
};

TEST(ClassPattern, ClassInfoIsOneOfTheClass) {
    const SO<SharedObj> special(new Special);
    EXPECT_EQ(special->classInfoNBX(), Special::ClassInfoNBX());
    EXPECT_EQ(Special::ClassNameNBX(), ID("patterntest::Special"));
    EXPECT_EQ(Special::ClassInfoNBX()->parent(), Node::ClassInfoNBX());
    EXPECT_TRUE(special->classInfoNBX()->isA(SharedObj::ClassNameNBX()));
    EXPECT_EQ(Other::ClassInfoNBX()->parent(), SharedObj::ClassInfoNBX());
}

TEST(ClassPattern, EqualIsTheSameObjectOnly) {
    const SO<Node> a(new Node), b(new Node);
    const SO<Special> special(new Special);
    EXPECT_TRUE(a->isEqual(a.get()));
    EXPECT_FALSE(a->isEqual(nullptr));
    EXPECT_FALSE(a->isEqual(b.get()));
    EXPECT_FALSE(a->isEqual(special.get()));
    EXPECT_FALSE(SO<SharedObj>(new SharedObj)->isEqual(nullptr));
}

TEST(ClassPattern, StoredClassesAreRegisteredAtLoad) {
    EXPECT_TRUE(NBX::SerializationManager::isRegistered(Node::ClassNameNBX()));
    EXPECT_FALSE(NBX::SerializationManager::isRegistered(Special::ClassNameNBX()));
    const SO<SharedObj> made(NBX::SerializationManager::newInstance("patterntest::Node"));
    ASSERT_TRUE(made);
    EXPECT_EQ(made->classInfoNBX(), Node::ClassInfoNBX());
    EXPECT_TRUE(made->isRegisteredForSerialization());
    EXPECT_TRUE(SO<SharedObj>(Node::newInstance()));
    EXPECT_EQ(NBX::SerializationManager::newInstance("no such class"), nullptr);
    EXPECT_FALSE(SO<SharedObj>(new Other)->isRegisteredForSerialization());
}

TEST(Visiting, WalksChildrenBetweenBothVisits) {
    const SO<Node> root(new Node);
    root->append(new Special);
    root->append(nullptr);
    root->append(new Node);
    Recorder recorder;
    EXPECT_EQ(root->accept(recorder), NBX::VM_Continue);
    EXPECT_EQ(recorder.log, "+Node0 +Special1 -Special1 +Node1 -Node1 -Node0 ");
    EXPECT_TRUE(recorder.path().empty());
}

TEST(Visiting, AnObjectWithoutChildrenIsVisitedTwice) {
    Recorder recorder;
    SO<Node>(new Node)->accept(recorder);
    EXPECT_EQ(recorder.log, "+Node0 -Node0 ");
}

TEST(Visiting, SkippingLeavesTheChildrenOutAndGoesOn) {
    const SO<Node> root(new Node), middle(new Node);
    middle->append(new Special);
    root->append(middle.get());
    root->append(new Special);
    Recorder recorder;
    recorder.modeAt = middle.get();
    recorder.mode = NBX::VM_SkipChildren;
    EXPECT_EQ(root->accept(recorder), NBX::VM_Continue);
    EXPECT_EQ(recorder.log, "+Node0 +Node1 -Node1 +Special1 -Special1 -Node0 ");
    EXPECT_EQ(middle->accept(recorder), NBX::VM_SkipChildren);
}

TEST(Visiting, StoppingEndsTheWalkAndClosesWhatIsOpen) {
    const SO<Node> root(new Node), middle(new Node);
    middle->append(new Special);
    root->append(middle.get());
    root->append(new Special);
    Recorder recorder;
    recorder.modeAt = middle.get();
    recorder.mode = NBX::VM_Stop;
    EXPECT_EQ(root->accept(recorder), NBX::VM_Stop);
    EXPECT_EQ(recorder.log, "+Node0 +Node1 -Node1 -Node0 ");
    EXPECT_TRUE(recorder.path().empty());
}

TEST(Visiting, StoppingBehindTheChildrenStopsToo) {
    const SO<Node> root(new Node), middle(new Node);
    root->append(middle.get());
    root->append(new Special);
    Recorder recorder;
    recorder.modeAt = middle.get();
    recorder.behindMode = NBX::VM_Stop;
    EXPECT_EQ(root->accept(recorder), NBX::VM_Stop);
    EXPECT_EQ(recorder.log, "+Node0 +Node1 -Node1 -Node0 ");
}

TEST(Visiting, ObjectsOfOtherClassesGiveTheDefaultButAreWalked) {
    const SO<Other> other(new Other);
    Recorder recorder;
    EXPECT_EQ(other->accept(recorder), NBX::VM_Continue);
    EXPECT_EQ(recorder.log, "");
}

TEST(Visiting, AnExactVisitorDoesNotSeeDerivedClasses) {
    const SO<Node> root(new Node);
    root->append(new Special);
    ExactRecorder recorder;
    EXPECT_EQ(root->accept(recorder), NBX::VM_Continue);
    EXPECT_EQ(recorder.log, "+Node0 -Node0 ");
    recorder.default_ = NBX::VM_Stop;
    EXPECT_EQ(SO<Special>(new Special)->accept(recorder), NBX::VM_Stop);
}

TEST(Visiting, TheVisitorOfTheDerivedClassComesFirst) {
    struct Both : NBX::Visitor<Node>, NBX::Visitor<Special> {
        VisitMode visit(Node *, bool) override { return ++nodes, NBX::VM_Continue; }
        VisitMode visit(Special *, bool) override { return ++specials, NBX::VM_Continue; }
        int nodes = 0, specials = 0;
    };
    const SO<Node> root(new Node);
    root->append(new Special);
    Both both;
    root->accept(both);
    EXPECT_EQ(both.nodes, 2);
    EXPECT_EQ(both.specials, 2);
}

TEST(Visiting, AcceptedImplOnlyAnswersForItsOwnVisitor) {
    const SO<Special> special(new Special);
    Recorder recorder;
    VisitMode mode = NBX::VM_Stop;
    EXPECT_FALSE(special->acceptedImpl(recorder, true, mode));
    EXPECT_EQ(mode, NBX::VM_Stop);
    EXPECT_TRUE(special->Node::acceptedImpl(recorder, true, mode));
    EXPECT_EQ(mode, NBX::VM_Continue);
}

TEST(Visiting, PathNamesTheParents) {
    struct PathCheck : NBX::Visitor<Special> {
        VisitMode visit(Special *, bool) override {
            found = path();
            return NBX::VM_Stop;
        }
        std::vector<Visitable *> found;
    };
    const SO<Node> root(new Node), middle(new Node);
    root->append(middle.get());
    middle->append(new Special);
    PathCheck check;
    root->accept(check);
    EXPECT_EQ(check.found, (std::vector<Visitable *>{root.get(), middle.get()}));
}

} // namespace
