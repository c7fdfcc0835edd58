#include <nbx/data/objectstreamreader.h>
#include <nbx/data/objectstreamwriter.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <set>

#include <nbx/container/array.h>
#include <nbx/container/array2d.h>
#include <nbx/container/dictionary.h>
#include <nbx/container/dynamicspacetree.h>
#include <nbx/container/hashtable.h>
#include <nbx/container/staticarray.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/math/bounds.h>
#include <nbx/math/color.h>
#include <nbx/object/wo.h>
#include <support/recordedreports.h>

using namespace NBX;
using Bytes = std::vector<std::uint8_t>;

namespace streamtest {

/// Knows its live objects, so that circles that damaged streams make can be taken apart.
struct Tracked {
    Tracked() { live().insert(this); }
    virtual ~Tracked() { live().erase(this); }
    virtual SharedObj * object() = 0;
    virtual void release() = 0;

    static std::set<Tracked *> & live() {
        static std::set<Tracked *> objects;
        return objects;
    }
    static void releaseAll() {
        const std::vector<Tracked *> all(live().begin(), live().end());
        std::vector<SO<SharedObj>> held;
        for (Tracked * tracked : all)
            held.push_back(tracked->object());
        for (Tracked * tracked : all)
            tracked->release();
    }
};

/// One attribute of every type, without defaults.
class Everything : public SharedObj, public Tracked {
    NBX_STORED_CLASS(Everything, SharedObj)
public:
    void serialize(SerializationManager & m) override {
        m.enterObject();
        serializeSuperclass<SharedObj>(m, this);
        m.attribute("flag", flag);
        m.attribute("int", integer);
        m.attribute("unsigned", number);
        m.attribute("short", shortNumber);
        m.attribute("long", longNumber);
        m.attribute("float", single);
        m.attribute("double", twice);
        m.attribute("text", text);
        m.attribute("vector", vector);
        m.attribute("box", box);
        m.attribute("no box", noBox);
        m.attribute("matrix", matrix);
        m.attribute("object", child);
        m.attribute("nothing", nothing);
        m.rawAttribute("raw", raw, sizeof raw);
    }

    SharedObj * object() override { return this; }
    void release() override { child = nothing = nullptr; }

    bool flag = false;
    int integer = 0;
    unsigned number = 0;
    unsigned short shortNumber = 0;
    std::uint64_t longNumber = 0;
    float single = 0;
    double twice = 0;
    std::wstring text;
    Vector3Base<double> vector;
    Bounds box, noBox;
    Matrix4x4Base<double> matrix;
    SO<SharedObj> child, nothing;
    char raw[5] = {};
};
NBX_STORED_CLASS_IMPL(Everything, SharedObj)

/// A node of any graph. It notes how much of what it refers to was there when it was read.
class Link : public SharedObj, public Tracked {
    NBX_STORED_CLASS(Link, SharedObj)
public:
    /// Chains are taken down link by link, not by recursion.
    ~Link() override {
        SO<Link> rest = std::move(next);
        while (rest && rest->references() == 1) {
            SO<Link> behind = std::move(rest->next);
            rest = std::move(behind);
        }
    }
    void serialize(SerializationManager & m) override {
        m.enterObject();
        serializeSuperclass<SharedObj>(m, this);
        attributeWithDefault(m, "value", value, 0);
        attributeWithDefault(m, "next", next, SO<Link>());
        if (m.isReading() && next) valueOfNext = next->value;
        attributeWithDefault(m, "other", other, SO<SharedObj>());
        if (m.isReading() && value == s_throwingValue) throw IOError(L"wrong format");
    }

    SharedObj * object() override { return this; }
    void release() override {
        next = nullptr;
        other = nullptr;
    }

    static constexpr int s_throwingValue = -666;
    int value = 0, valueOfNext = -1;
    SO<Link> next;
    SO<SharedObj> other;
};
NBX_STORED_CLASS_IMPL(Link, SharedObj)

class List : public SharedObj, public Tracked {
    NBX_STORED_CLASS(List, SharedObj)
public:
    void serialize(SerializationManager & m) override {
        m.enterObject();
        serializeSuperclass<SharedObj>(m, this);
        serializeValues(m, "SO", members);
    }
    SharedObj * object() override { return this; }
    void release() override { members.clear(); }

    std::vector<SO<SharedObj>> members;
};
NBX_STORED_CLASS_IMPL(List, SharedObj)

/// Writes under its own class name what a test scripts.
class Scripted : public SharedObj {
    NBX_STORED_CLASS(Scripted, SharedObj)
public:
    using Script = std::function<void(SerializationManager &)>;
    void serialize(SerializationManager & m) override {
        if (script) script(m);
    }
    static Script script;
};
NBX_STORED_CLASS_IMPL(Scripted, SharedObj)
Scripted::Script Scripted::script;

class Unstorable : public SharedObj {
    NBX_CLASS(Unstorable, SharedObj)
};
NBX_CLASS_IMPL(Unstorable, SharedObj)

} // namespace streamtest

using namespace streamtest;

namespace {

SO<SharedObj> readBytes(const Bytes & bytes) {
    // An exactly sized block, so that the address sanitizer sees any step beyond its end.
    const std::unique_ptr<std::uint8_t[]> block(new std::uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), block.get());
    return ObjectStreamReader(block.get(), bytes.size()).read();
}

template <class T> SO<T> roundTrip(const T & object, bool omitsDefaults = true) {
    return soCast<T>(readBytes(ObjectStreamWriter::write(object, omitsDefaults)));
}

/// Writes with the first script and reads with the second.
void transfer(Scripted::Script writing, Scripted::Script reading) {
    const SO<Scripted> object(new Scripted);
    Scripted::script = std::move(writing);
    const Bytes bytes = ObjectStreamWriter::write(*object);
    Scripted::script = std::move(reading);
    EXPECT_TRUE(readBytes(bytes));
    Scripted::script = nullptr;
}

SO<Everything> everything() {
    const SO<Everything> e(new Everything);
    e->setObjectName(L"h\u00f6he \U0001F5FB");
    e->flag = true;
    e->integer = std::numeric_limits<int>::min();
    e->number = 0xFFFFFFFF;
    e->shortNumber = 0xFFFF;
    e->longNumber = 0xFFFFFFFFFFFFFFFF;
    e->single = 0.1F;
    e->twice = -1.0 / 3.0;
    e->text = L"\u20ac\nline";
    e->vector = {1.5, -2.5, 1e300};
    e->box = Bounds({1, 2, 3}, {4, 5, 6});
    e->matrix = Matrix4x4Base<double>::translation({7, 8, 9});
    e->child = new Everything;
    std::memcpy(e->raw, "\0\1\2\3\4", 5);
    return e;
}

TEST(ObjectStream, EveryTypeMakesTheRoundTrip) {
    for (const bool omitsDefaults : {true, false}) {
        const SO<Everything> e = everything();
        const SO<Everything> back = roundTrip(*e, omitsDefaults);
        ASSERT_TRUE(back);
        EXPECT_EQ(back->getObjectName(), e->getObjectName());
        EXPECT_EQ(back->flag, e->flag);
        EXPECT_EQ(back->integer, e->integer);
        EXPECT_EQ(back->number, e->number);
        EXPECT_EQ(back->shortNumber, e->shortNumber);
        EXPECT_EQ(back->longNumber, e->longNumber);
        EXPECT_EQ(back->single, e->single);
        EXPECT_EQ(back->twice, e->twice);
        EXPECT_EQ(back->text, e->text);
        EXPECT_EQ(back->vector, e->vector);
        EXPECT_EQ(back->box, e->box);
        EXPECT_FALSE(back->noBox.isDefined());
        EXPECT_EQ(back->matrix, e->matrix);
        EXPECT_TRUE(soCast<Everything>(back->child));
        EXPECT_NE(back->child, e->child);
        EXPECT_FALSE(back->nothing);
        EXPECT_EQ(std::memcmp(back->raw, e->raw, sizeof e->raw), 0);
    }
}

TEST(ObjectStream, WritingTwiceGivesTheSameBytes) {
    const SO<Everything> e = everything();
    EXPECT_EQ(ObjectStreamWriter::write(*e), ObjectStreamWriter::write(*e));
    EXPECT_EQ(ObjectStreamWriter::write(*roundTrip(*e)), ObjectStreamWriter::write(*e));
}

TEST(ObjectStream, NumbersThatAreNone) {
    const SO<Everything> e(new Everything);
    e->twice = std::numeric_limits<double>::quiet_NaN();
    e->single = -std::numeric_limits<float>::infinity();
    const SO<Everything> back = roundTrip(*e);
    EXPECT_TRUE(std::isnan(back->twice));
    EXPECT_EQ(back->single, e->single);
}

TEST(ObjectStream, SharedObjectsStayShared) {
    const SO<Link> root(new Link), shared(new Link);
    root->next = new Link;
    root->next->other = shared.get();
    root->other = shared.get();
    const SO<Link> back = roundTrip(*root);
    EXPECT_TRUE(back->other);
    EXPECT_EQ(back->other, back->next->other);
}

TEST(ObjectStream, CirclesAreKept) {
    const SO<Link> a(new Link), b(new Link);
    a->value = 1;
    b->value = 2;
    a->next = b;
    b->other = a.get();
    a->other = a.get();
    const SO<Link> back = roundTrip(*a);
    EXPECT_EQ(back->other, back);
    EXPECT_EQ(back->next->other, back);
    EXPECT_EQ(back->valueOfNext, 2);
    for (const SO<Link> & link : {a, back}) {
        link->next->other = nullptr;
        link->other = nullptr;
    }
}

TEST(ObjectStream, ReferencedObjectsAreReadBefore) {
    const SO<Link> root(new Link);
    SO<Link> last = root;
    for (int i = 1; i < 5; ++i) {
        last->next = new Link;
        last = last->next;
        last->value = i;
    }
    SO<Link> link = roundTrip(*root);
    for (int i = 1; i < 5; ++i, link = link->next)
        EXPECT_EQ(link->valueOfNext, i);
}

TEST(ObjectStream, LongChainsNeedNoDeepStack) {
    const SO<Link> root(new Link);
    SO<Link> last = root;
    for (int i = 1; i < 300000; ++i) {
        last->next = new Link;
        last = last->next;
        last->value = i;
    }
    int length = 0;
    const SO<Link> back = roundTrip(*root);
    for (const Link * link = back.get(); link; link = link->next.get())
        EXPECT_EQ(link->value, length++);
    EXPECT_EQ(length, 300000);
}

TEST(ObjectStream, OmittedDefaultsComeBack) {
    const SO<Link> link(new Link);
    EXPECT_LT(ObjectStreamWriter::write(*link, true).size(), ObjectStreamWriter::write(*link, false).size());
    link->value = 0;
    EXPECT_EQ(roundTrip(*link, true)->value, 0);
    EXPECT_EQ(roundTrip(*link, false)->value, 0);
}

TEST(ObjectStream, AttributesAreFoundInAnyOrderAndUnknownOnesSkipped) {
    transfer(
        [](SerializationManager & m) {
            int a = 1, b = 2, c = 3;
            std::wstring unknown = L"unknown";
            m.attribute("a", a);
            m.attribute("unknown", unknown);
            m.beginContainer("x", "unknown list");
            m.attribute("c", a);
            m.endContainer("x", "unknown list");
            m.attribute("b", b);
            m.attribute("c", c);
        },
        [](SerializationManager & m) {
            int a = 0, b = 0, c = 0, d = 4;
            EXPECT_TRUE(m.attribute("c", c));
            EXPECT_FALSE(m.attribute("d", d));
            EXPECT_TRUE(m.attribute("a", a));
            EXPECT_TRUE(m.attribute("b", b));
            EXPECT_FALSE(m.attribute("b", b)) << "each once";
            EXPECT_EQ(a, 1);
            EXPECT_EQ(b, 2);
            EXPECT_EQ(c, 3);
            EXPECT_EQ(d, 4);
        });
}

TEST(ObjectStream, AnotherTypeIsAnotherAttribute) {
    transfer(
        [](SerializationManager & m) {
            int a = 1;
            m.attribute("a", a);
        },
        [](SerializationManager & m) {
            unsigned wrong = 7;
            int a = 0;
            EXPECT_FALSE(m.attribute("a", wrong));
            EXPECT_EQ(wrong, 7U);
            EXPECT_TRUE(m.attribute("a", a));
            EXPECT_EQ(a, 1);
        });
}

TEST(ObjectStream, RepeatedAttributesComeInOrder) {
    const auto pairs = [](SerializationManager & m) {
        for (unsigned i = 0; i < 10; ++i) {
            SO<SharedObj> pointer(i % 2 ? new Link : nullptr);
            unsigned size = i;
            m.attribute("pointer", pointer);
            m.attribute("size", size);
            if (m.isReading()) {
                EXPECT_EQ(size, i);
                EXPECT_EQ(bool(pointer), i % 2 == 1);
            }
        }
    };
    transfer(pairs, pairs);
    // The same with the index that an attribute out of order brings about.
    transfer(
        [&](SerializationManager & m) {
            pairs(m);
            int behind = 3;
            m.attribute("behind", behind);
        },
        [&](SerializationManager & m) {
            int behind = 0;
            EXPECT_TRUE(m.attribute("behind", behind));
            pairs(m);
        });
}

TEST(ObjectStream, ContainersNest) {
    const auto script = [](SerializationManager & m) {
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(m.beginContainer("T", "outer"));
            EXPECT_TRUE(m.beginContainer("T", "inner"));
            int value = i;
            EXPECT_TRUE(m.attribute("value", value));
            EXPECT_EQ(value, i);
            m.endContainer("T", "inner");
            EXPECT_TRUE(m.attribute("value", value));
            m.endContainer("T", "outer");
        }
        if (m.isReading()) {
            EXPECT_FALSE(m.beginContainer("T", "outer"));
            EXPECT_FALSE(m.beginContainer("T", "none"));
        }
    };
    transfer(script, script);
}

TEST(ObjectStream, SuperclassPartsDoNotMix) {
    transfer(
        [](SerializationManager & m) {
            int parent = 1, own = 2;
            m.beginSuperclass("Parent");
            m.attribute("a", parent);
            m.endSuperclass("Parent");
            m.attribute("a", own);
        },
        [](SerializationManager & m) {
            int parent = 0, unknown = 5, own = 0;
            m.beginSuperclass("Unknown");
            EXPECT_FALSE(m.attribute("a", unknown));
            m.endSuperclass("Unknown");
            EXPECT_TRUE(m.attribute("a", own));
            m.beginSuperclass("Parent");
            EXPECT_TRUE(m.attribute("a", parent));
            m.endSuperclass("Parent");
            EXPECT_EQ(parent, 1);
            EXPECT_EQ(own, 2);
        });
}

TEST(ObjectStream, RawBlocksOfAnotherSizeAreMissing) {
    transfer(
        [](SerializationManager & m) {
            char block[4] = {1, 2, 3, 4};
            m.rawAttribute("raw", block, 4);
            m.rawAttribute("empty", nullptr, 0);
        },
        [](SerializationManager & m) {
            char block[5] = {};
            EXPECT_FALSE(m.rawAttribute("raw", block, 5));
            EXPECT_EQ(block[0], 0);
            EXPECT_TRUE(m.rawAttribute("empty", nullptr, 0));
        });
}

TEST(ObjectStream, NamesMayBeEmpty) {
    const auto script = [](SerializationManager & m) {
        int value = 3;
        EXPECT_TRUE(m.attribute("", value));
        EXPECT_TRUE(m.attribute(nullptr, value));
        EXPECT_EQ(value, 3);
    };
    transfer(script, script);
}

TEST(ObjectStream, BytesLeftBoundsWhatCanFollow) {
    transfer(
        [](SerializationManager & m) {
            int a = 1;
            char block[100] = {};
            m.attribute("a", a);
            m.rawAttribute("raw", block, 100);
        },
        [](SerializationManager & m) {
            int a = 0;
            char block[100];
            const std::uint64_t all = m.bytesLeft();
            EXPECT_LT(all, 120U);
            m.attribute("a", a);
            EXPECT_GE(m.bytesLeft(), 100U);
            EXPECT_LT(m.bytesLeft(), all);
            m.rawAttribute("raw", block, 100);
            EXPECT_EQ(m.bytesLeft(), 0U);
        });
}

TEST(ObjectStream, SectionsThatDoNotMatchAreReported) {
    const RecordedReports reports;
    transfer([](SerializationManager & m) { m.endContainer("T", "none"); },
             [](SerializationManager & m) { m.endContainer("T", "none"); });
    EXPECT_EQ(reports.count(L"a section ends that did not begin"), 2U);
}

TEST(ObjectStream, UnknownClassesGiveNullAndAreSkipped) {
    const SO<Link> root(new Link);
    root->value = 5;
    root->other = everything().get();
    root->next = new Link;
    root->next->value = 6;
    Bytes bytes = ObjectStreamWriter::write(*root);
    const std::string name = "streamtest::Everything";
    const auto at = std::search(bytes.begin(), bytes.end(), name.begin(), name.end());
    ASSERT_NE(at, bytes.end());
    *at = 'X';
    ObjectStreamReader reader(bytes.data(), bytes.size());
    const SO<Link> back = soCast<Link>(reader.read());
    ASSERT_TRUE(back);
    EXPECT_EQ(back->value, 5);
    EXPECT_EQ(back->next->value, 6);
    EXPECT_FALSE(back->other);
    EXPECT_EQ(reader.unknownClasses(), std::vector<std::string>{"Xtreamtest::Everything"});
    // The same for the root object.
    Bytes only = ObjectStreamWriter::write(*everything());
    *std::search(only.begin(), only.end(), name.begin(), name.end()) = 'X';
    EXPECT_FALSE(readBytes(only));
}

TEST(ObjectStream, ClassesThatCannotBeStoredAreLeftOutAndReportedOnce) {
    const RecordedReports reports;
    const SO<Link> root(new Link);
    root->other = new Unstorable;
    root->next = new Link;
    root->next->other = new Unstorable;
    const SO<Link> back = roundTrip(*root);
    EXPECT_FALSE(back->other);
    EXPECT_TRUE(back->next);
    ASSERT_EQ(reports.size(), 1U) << reports;
    EXPECT_EQ(reports[0].level, 2);
    EXPECT_NE(reports[0].message.find(L"streamtest::Unstorable"), std::wstring::npos);
    EXPECT_THROW(ObjectStreamWriter::write(*SO<SharedObj>(new Unstorable)), IOException);
}

TEST(ObjectStream, AFailureReachesThoseThatAskForTheObject) {
    const SO<Link> root(new Link);
    root->value = 1;
    root->next = new Link;
    root->next->value = Link::s_throwingValue;
    const SO<Link> back = roundTrip(*root);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->value, 1);
    EXPECT_FALSE(back->next) << "the default, since it could not be read";
    EXPECT_THROW(roundTrip(*root->next), IOError);
}

TEST(ObjectStream, ContainersMakeTheRoundTrip) {
    const SO<Array<double>> numbers(new Array<double>(std::vector<double>{1.5, -2, 1e300}));
    EXPECT_EQ(roundTrip(*numbers)->stl(), numbers->stl());
    const SO<Array<std::wstring>> texts(
        new Array<std::wstring>(std::vector<std::wstring>{L"a", L"", L"\u00fc"}));
    EXPECT_EQ(roundTrip(*texts)->stl(), texts->stl());
    const SO<Array<Color>> colors(new Array<Color>(std::vector<Color>{Color::red, Color::gold}));
    EXPECT_EQ(roundTrip(*colors)->stl(), colors->stl());
    const SO<Array<Bounds>> boxes(new Array<Bounds>(std::vector<Bounds>{Bounds(), Bounds({1, 2, 3})}));
    EXPECT_EQ(roundTrip(*boxes)->stl(), boxes->stl());
    const SO<StaticArray<int>> fixed(new StaticArray<int>(std::vector<int>{3, 4}));
    EXPECT_EQ(roundTrip(*fixed)->get(1), 4);
    EXPECT_EQ(roundTrip(*SO<Array<int>>(new Array<int>))->size(), 0U);

    const SO<Array2D<std::vector<unsigned>>> lists(new Array2D<std::vector<unsigned>>(2, 2));
    lists->set(1, 0, {4, 5, 6});
    const auto listsBack = roundTrip(*lists);
    EXPECT_EQ(listsBack->get(1, 0), (std::vector<unsigned>{4, 5, 6}));
    EXPECT_TRUE(listsBack->get(1, 1).empty());

    const SO<HashTable<std::wstring>> set(new HashTable<std::wstring>);
    set->insert(L"b"), set->insert(L"a");
    const auto setBack = roundTrip(*set);
    EXPECT_EQ(setBack->element(0), L"b");
    EXPECT_TRUE(setBack->contains(L"a"));

    const SO<Dictionary<std::wstring, Color>> palette(new Dictionary<std::wstring, Color>);
    palette->insert(L"sky", Color::blue), palette->insert(L"grass", Color::green);
    const auto paletteBack = roundTrip(*palette);
    EXPECT_EQ(paletteBack->size(), 2U);
    EXPECT_EQ(paletteBack->key(0), L"sky");
    EXPECT_EQ(paletteBack->get(L"grass"), Color::green);

    const SO<MemoryDataResource> block(new MemoryDataResource("hello", 5, false));
    const auto blockBack = roundTrip(*block);
    EXPECT_EQ(std::memcmp(blockBack->pointer(), "hello", 5), 0);
    EXPECT_FALSE(blockBack->isWritable());
}

TEST(ObjectStream, ArraysOfObjectsKeepNullsAndSharing) {
    const SO<Array<SO<SharedObj>>> objects(new Array<SO<SharedObj>>);
    const SO<Link> link(new Link);
    objects->append(link);
    objects->append(nullptr);
    objects->append(link);
    objects->append(objects.get());
    const auto back = roundTrip(*objects);
    ASSERT_EQ(back->size(), 4U);
    EXPECT_TRUE(back->get(0));
    EXPECT_FALSE(back->get(1));
    EXPECT_EQ(back->get(0), back->get(2));
    EXPECT_EQ(back->get(3), back);
    objects->clear();
    back->clear();
}

TEST(ObjectStream, SpaceTreesKeepTheirShape) {
    using Tree = DynamicSpaceTree<int, 2>;
    const SO<Tree> tree(new Tree({0.0, 1.0}, {10.0, 11.0}, {0U, 2U}));
    tree->root()->content = 1;
    tree->createChildren(tree->root());
    tree->createChildren(tree->child(tree->root(), 2));
    tree->child(tree->child(tree->root(), 2), 3)->content = 42;
    const SO<Tree> back = roundTrip(*tree);
    EXPECT_EQ(back->numberOfNodes(), 9U);
    EXPECT_EQ(back->root()->content, 1);
    EXPECT_EQ(back->child(back->child(back->root(), 2), 3)->content, 42);
    EXPECT_FALSE(back->hasChildren(back->child(back->root(), 1)));
    EXPECT_EQ(back->axis(1), 2U);
    EXPECT_EQ(back->maximum(1), 11.0);
}

TEST(ObjectStream, StoredCountsAreCheckedAgainstTheFile) {
    const auto claims = [](unsigned size, bool asRaw) {
        return [=](SerializationManager & m) {
            unsigned n = size;
            bool raw = asRaw;
            if (m.isReading()) {
                std::vector<double> numbers;
                EXPECT_THROW(serializeValues(m, "T", numbers), IOError);
                EXPECT_LT(numbers.capacity(), 1000U);
                return;
            }
            m.beginContainer("T", "Container");
            m.attribute("Size", n);
            m.attribute("asRaw", raw);
            m.endContainer("T", "Container");
        };
    };
    for (const unsigned size : {1U, 1000U, 0x20000000U, 0xFFFFFFFFU})
        for (const bool asRaw : {true, false})
            transfer(claims(size, asRaw), claims(size, asRaw));
}

TEST(ObjectStream, StreamsOfOthersAreRefused) {
    EXPECT_THROW(readBytes({}), IOError);
    EXPECT_THROW(readBytes(Bytes(100, 0)), IOError);
    const Bytes good = ObjectStreamWriter::write(*everything());
    EXPECT_TRUE(ObjectStreamReader::hasMagic(good.data(), good.size()));
    EXPECT_FALSE(ObjectStreamReader::hasMagic(good.data(), 7));
    EXPECT_FALSE(ObjectStreamReader::hasMagic(nullptr, 0));
    Bytes newer = good;
    newer[8] = 2;
    EXPECT_THROW(readBytes(newer), IOError);
    Bytes longer = good;
    longer.push_back(0);
    EXPECT_THROW(readBytes(longer), IOError);
}

/// A graph with everything in it.
Bytes richStream() {
    const SO<Link> root(new Link);
    root->next = new Link;
    root->next->other = everything().get();
    const SO<List> list(new List);
    list->members.push_back(root->next);
    list->members.push_back(new Array<double>(5U, 1.0));
    list->members.push_back(new Array<std::wstring>(3U, L"text"));
    list->members.push_back(new MemoryDataResource("hello", 5));
    const SO<DynamicSpaceTree<int, 2>> tree(new DynamicSpaceTree<int, 2>);
    tree->createChildren(tree->root());
    list->members.push_back(tree);
    const SO<Dictionary<std::wstring, Color>> palette(new Dictionary<std::wstring, Color>);
    palette->insert(L"sky", Color::blue);
    list->members.push_back(palette);
    root->other = list.get();
    return ObjectStreamWriter::write(*root, false);
}

/// Any outcome but a crash, a hang or another kind of exception is good.
void readHostile(const Bytes & bytes) {
    try {
        readBytes(bytes);
    } catch (const Exception &) {
    }
    Tracked::releaseAll();
}

TEST(ObjectStream, EveryCutIsRefused) {
    const Bytes good = richStream();
    EXPECT_TRUE(readBytes(good));
    Tracked::releaseAll();
    for (std::size_t size = 0; size < good.size(); ++size)
        EXPECT_THROW(readBytes(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size))),
                     IOError)
            << size;
}

TEST(ObjectStream, RandomChangesAreSurvived) {
    const RecordedReports reports;
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const Bytes good = richStream();
    for (int i = 0; i < 10000; ++i) {
        Bytes bent = good;
        for (unsigned changes = 1 + random() % 4; changes > 0; --changes) {
            std::uint8_t & byte = bent[random() % bent.size()];
            byte = random() % 2 ? static_cast<std::uint8_t>(random())
                                : static_cast<std::uint8_t>(byte ^ (1U << random() % 8));
        }
        if (random() % 4 == 0) bent.erase(bent.begin() + static_cast<std::ptrdiff_t>(random() % bent.size()));
        readHostile(bent);
    }
}

/// Sections within sections, as deep as the bytes allow.
TEST(ObjectStream, DeeplyNestedSectionsAreSurvived) {
    const SO<Scripted> object(new Scripted);
    Scripted::script = [](SerializationManager & m) {
        for (int i = 0; i < 100000; ++i)
            m.beginContainer("T", "a");
        for (int i = 0; i < 100000; ++i)
            m.endContainer("T", "a");
    };
    const Bytes bytes = ObjectStreamWriter::write(*object);
    Scripted::script = nullptr;
    EXPECT_TRUE(readBytes(bytes));
}

/// Attributes read from the last to the first, and missing ones between: linear work each would take hours.
TEST(ObjectStream, LookUpsStayQuick) {
    constexpr int s_count = 200000;
    transfer(
        [](SerializationManager & m) {
            for (int i = 0; i < s_count; ++i)
                m.attribute(i % 2 ? "odd" : "even", i);
        },
        [](SerializationManager & m) {
            int value = 0, missing = 0;
            for (int i = 1; i < s_count; i += 2) {
                ASSERT_TRUE(m.attribute("odd", value));
                EXPECT_EQ(value, i);
                EXPECT_FALSE(m.attribute("missing", missing));
            }
            for (int i = 0; i < s_count; i += 2) {
                ASSERT_TRUE(m.attribute("even", value));
                EXPECT_EQ(value, i);
            }
        });
}

} // namespace
