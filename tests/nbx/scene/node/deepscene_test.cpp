#include <chrono>
#include <set>

#include <gtest/gtest.h>

#include <nbx/data/objectstreamreader.h>
#include <nbx/data/objectstreamwriter.h>
#include <nbx/object/exception.h>
#include <nbx/object/wo.h>
#include <nbx/scene/attribute/attributecomposite.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/shape/composite.h>
#include <nbx/scene/view/translation.h>
#include <support/recordedreports.h>

namespace {

using namespace NBX;
using V = Vector3Base<double>;
using Bytes = std::vector<std::uint8_t>;

/// `nodes` nodes within each other; the innermost one, `last`, is empty. Built from the top, as a node that
/// is appended is looked through for the one that gets it.
template <class Node> SO<Node> chain(unsigned nodes, Node *& last) {
    const SO<Node> root(new Node());
    last = root.get();
    for (unsigned i = 1; i < nodes; ++i) {
        const SO<Node> below(new Node());
        last->append(below.get());
        last = below.get();
    }
    return root;
}

template <class Node> SO<Node> chain(unsigned nodes) {
    Node * last;
    return chain(nodes, last);
}

SO<SharedObj> read(const Bytes & bytes) {
    return ObjectStreamReader(bytes.data(), bytes.size()).read();
}

TEST(DeepScene, IsReleasedWithoutADeepStack) {
    constexpr unsigned depth = 400000;
    chain<SceneThing>(depth);
    chain<Composite>(depth);
    chain<AttributeComposite>(depth);
}

/// What waits for its end is nobody's any more, and is gone when the last holder of the top has let go.
TEST(DeepScene, EveryObjectOfItIsGoneAtTheEnd) {
    SceneThing * last;
    SO<SceneThing> root = chain(1000, last);
    const SO<Box> box(new Box(V(0, 0, 0), V(1, 1, 1)));
    last->append(box.get());
    const WO<SceneThing> watched(last);
    root = nullptr;
    EXPECT_FALSE(watched);
    EXPECT_EQ(box->references(), 1);
}

TEST(DeepScene, BoxAndWalkNeedNoDeepStack) {
    constexpr unsigned depth = 60000;
    SceneThing * last;
    const SO<SceneThing> root = chain(depth, last);
    root->prepend(new Translation(V(1, 2, 3)));
    last->append(new Box(V(0, 0, 0), V(1, 1, 1)));
    EXPECT_EQ(root->boundingBox(nullptr), Bounds(V(1, 2, 3), V(2, 3, 4)));
    unsigned met = 0;
    EXPECT_TRUE(root->traverse([&met](RenderObj *, const Matrix4x4Base<double> &) { return ++met > 0; }));
    EXPECT_EQ(met, depth + 1);

    Composite * inner;
    const SO<Composite> composite = chain(depth, inner);
    inner->append(new Box(V(0, 0, 0), V(1, 1, 1)));
    EXPECT_EQ(composite->boundingBox(), Bounds(V(0, 0, 0), V(1, 1, 1)));
}

template <class Node> void expectDepthLimit() {
    constexpr unsigned most = ObjectStreamReader::maxDepth;
    EXPECT_TRUE(read(ObjectStreamWriter::write(*chain<Node>(most))));
    try {
        read(ObjectStreamWriter::write(*chain<Node>(most + 1)));
        FAIL();
    } catch (const IOError & error) {
        EXPECT_EQ(error.message(), L"the objects are nested too deep");
        EXPECT_NE(error.detail().find(std::to_wstring(most)), std::wstring::npos);
    }
}

TEST(DeepScene, IsReadUpToALimit) {
    expectDepthLimit<SceneThing>();
    expectDepthLimit<Composite>();
    expectDepthLimit<AttributeComposite>();
}

/// What has nothing below it is not noted on the way, and counts all the same.
TEST(DeepScene, TheInnermostObjectCounts) {
    constexpr unsigned most = ObjectStreamReader::maxDepth;
    const SO<Box> box(new Box(V(0, 0, 0), V(1, 1, 1)));
    for (const unsigned nodes : {most - 1, most}) {
        SceneThing * last;
        const SO<SceneThing> root = chain(nodes, last);
        last->append(box.get());
        root->prepend(box.get());
        if (nodes < most)
            EXPECT_TRUE(read(ObjectStreamWriter::write(*root)));
        else
            EXPECT_THROW(read(ObjectStreamWriter::write(*root)), IOError);
    }
    EXPECT_TRUE(read(ObjectStreamWriter::write(*box))) << "an object alone";
}

/// Leads a visitor to what it refers to, without asking whether that leads back.
class Knot : public SharedObj {
    NBX_STORED_CLASS(Knot, SharedObj)
public:
    Knot() { s_all.insert(this); }
    ~Knot() override { s_all.erase(this); }
    /// Circles do not end by themselves.
    static void untieAll() {
        const std::vector<SO<Knot>> all(s_all.begin(), s_all.end());
        for (const SO<Knot> & knot : all)
            knot->other = nullptr;
    }
    void acceptChildren(std::vector<Visitable *> & children) const override {
        children.push_back(other.get());
    }
    void serialize(SerializationManager & m) override {
        m.enterObject();
        serializeSuperclass<SharedObj>(m, this);
        m.attribute("other", other);
    }

    SO<SharedObj> other;

private:
    static std::set<Knot *> s_all;
};
NBX_STORED_CLASS_IMPL(Knot, SharedObj)
std::set<Knot *> Knot::s_all;

TEST(DeepScene, AnObjectThatAVisitorWouldMeetBelowItselfIsRefused) {
    const SO<Knot> a(new Knot), b(new Knot);
    a->other = b.get();
    EXPECT_TRUE(read(ObjectStreamWriter::write(*a)));
    b->other = a.get();
    try {
        read(ObjectStreamWriter::write(*a));
        ADD_FAILURE();
    } catch (const IOError & error) {
        EXPECT_EQ(error.detail(), L"an object contains itself");
    }
    Knot::untieAll();
}

/// A node that hangs at two depths is met at the smaller one first.
TEST(DeepScene, TheLongestWayToAnObjectCounts) {
    constexpr unsigned most = ObjectStreamReader::maxDepth;
    const SO<SceneThing> below = chain<SceneThing>(most - 1), root(new SceneThing());
    root->append(below.get());
    root->prepend(below->childNode(0));
    EXPECT_TRUE(read(ObjectStreamWriter::write(*root)));
    const SO<SceneThing> above(new SceneThing());
    above->append(below->childNode(0));
    above->append(root.get());
    EXPECT_THROW(read(ObjectStreamWriter::write(*above)), IOError);
}

/// A walk through all below each node would take a minute.
TEST(DeepScene, IsReadInTimeInProportionToItsSize) {
    const Bytes bytes = ObjectStreamWriter::write(*chain<SceneThing>(20000));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THROW(read(bytes), IOError);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

/// A node that writes the one above it as its content, as damaged files may.
class Impostor : public SceneThing {
public:
    /// Stored under the name of a plain node.
    void serialize(SerializationManager & m) override;
    const ClassInfo * classInfoNBX() const override { return SceneThing::ClassInfoNBX(); }

    SceneThing * above = nullptr;
};

void Impostor::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<SceneNode>(m, static_cast<SceneNode *>(this));
    const char * typeName = typeid(std::vector<SO<RenderObj>>).name();
    m.beginContainer(typeName, "objects");
    unsigned size = 1;
    m.attribute("Size", size);
    SO<SceneThing> stored(above);
    m.attribute("Value", stored);
    m.endContainer(typeName, "objects");
}

TEST(DeepScene, NodesThatAreStoredBelowThemselvesAreLeftOutThere) {
    const SO<SceneThing> root(new SceneThing());
    const SO<Impostor> impostor(new Impostor());
    impostor->above = root.get();
    root->append(impostor.get());
    const RecordedReports reports;
    const auto copy = soCast<SceneThing>(read(ObjectStreamWriter::write(*root)));
    ASSERT_TRUE(copy);
    ASSERT_EQ(copy->childNodes(), 1U);
    EXPECT_EQ(static_cast<SceneThing *>(copy->childNode(0))->objects(), 0U);
    EXPECT_EQ(reports.count(2, L"false", L"a stored object contains itself and is left out there"), 1U);
}

} // namespace
