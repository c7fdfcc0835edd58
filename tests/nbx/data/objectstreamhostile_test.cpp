#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include <nbx/container/map/dictionary.h>
#include <nbx/container/sequence/array.h>
#include <nbx/container/space/dynamicspacetree.h>
#include <nbx/data/file.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/math/color.h>

#include <support/recordedreports.h>
#include <support/streamobjects.h>

using namespace streamtest;

namespace {

TEST(ObjectStreamHostile, StreamsOfOthersAreRefused) {
    EXPECT_THROW(readBytes({}), IOError);
    EXPECT_THROW(readBytes(Bytes(100, 0)), IOError);
    const Bytes good = ObjectStreamWriter::write(*everything());
    EXPECT_TRUE(ObjectStreamReader::hasMagic(good.data(), good.size()));
    EXPECT_FALSE(ObjectStreamReader::hasMagic(good.data(), 7));
    EXPECT_FALSE(ObjectStreamReader::hasMagic(nullptr, 0));
    for (const std::uint8_t version : {0, 3, 4, 255}) {
        Bytes other = good;
        other[8] = version;
        EXPECT_THROW(readBytes(other), IOError) << unsigned(version);
    }
    Bytes longer = good;
    longer.push_back(0);
    EXPECT_THROW(readBytes(longer), IOError);
}

TEST(ObjectStreamHostile, StoredCountsAreCheckedAgainstTheFile) {
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

/// A graph with everything in it.
Bytes richStream(ObjectStreamWriter::Form form = ObjectStreamWriter::Form::Plain) {
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
    return ObjectStreamWriter::write(*root, false, form);
}

Bytes deflatedStream() {
    return richStream(ObjectStreamWriter::Form::Deflated);
}

/// The same as the first version wrote it.
Bytes firstVersion() {
    return File::contents(std::getenv("ZMT_TEST_DATA") + std::string("/objectstream/version1.nbx"));
}

/// Any outcome but a crash, a hang or another kind of exception is good.
void readHostile(const Bytes & bytes) {
    try {
        readBytes(bytes);
    } catch (const Exception &) {
    }
    Tracked::releaseAll();
}

TEST(ObjectStreamHostile, TheFirstVersionIsRead) {
    const SO<SharedObj> root = readBytes(firstVersion());
    ASSERT_TRUE(root);
    EXPECT_EQ(ObjectStreamWriter::write(*root, false), richStream());
    Tracked::releaseAll();
}

TEST(ObjectStreamHostile, WhatIsDeflatedIsRead) {
    const Bytes bytes = deflatedStream();
    EXPECT_LT(bytes.size(), richStream().size());
    const SO<SharedObj> root = readBytes(bytes);
    ASSERT_TRUE(root);
    EXPECT_EQ(ObjectStreamWriter::write(*root, false), richStream());
    Tracked::releaseAll();
}

/// Of the sizes of objects the tables say another than the blocks hold.
TEST(ObjectStreamHostile, WhatDoesNotInflateToItsSizeIsRefused) {
    const SO<Link> link(new Link);
    const Bytes good = ObjectStreamWriter::write(*link, false, ObjectStreamWriter::Form::Deflated);
    EXPECT_TRUE(readBytes(good));
    Tracked::releaseAll();
    const std::uint8_t size = good.back();
    for (const std::uint8_t other : {size - 1, size + 1, 0, 127}) {
        Bytes bytes = good;
        bytes.back() = other;
        EXPECT_THROW(readBytes(bytes), IOError) << unsigned(other);
    }
    // 2^62 bytes, and sums beyond 64 bits.
    Bytes huge(good.begin(), good.end() - 3);
    for (int object = 0; object < 5; ++object) {
        huge.push_back(good[good.size() - 2]);
        for (int i = 0; i < 8; ++i)
            huge.push_back(0x80);
        huge.push_back(0x40);
    }
    huge.insert(huge.end() - 50, 5);
    EXPECT_THROW(readBytes(huge), IOError);
}

TEST(ObjectStreamHostile, EveryCutIsRefused) {
    for (const Bytes & good : {richStream(), firstVersion(), deflatedStream()}) {
        EXPECT_TRUE(readBytes(good));
        Tracked::releaseAll();
        for (std::size_t size = 0; size < good.size(); ++size)
            EXPECT_THROW(readBytes(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size))),
                         IOError)
                << size;
    }
}

TEST(ObjectStreamHostile, RandomChangesAreSurvived) {
    const RecordedReports reports;
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const Bytes streams[] = {richStream(), firstVersion(), deflatedStream()};
    for (int i = 0; i < 24000; ++i) {
        Bytes bent = streams[i % 3];
        for (unsigned changes = 1 + random() % 4; changes > 0; --changes) {
            std::uint8_t & byte = bent[random() % bent.size()];
            byte = random() % 2 ? static_cast<std::uint8_t>(random())
                                : static_cast<std::uint8_t>(byte ^ (1U << random() % 8));
        }
        if (random() % 4 == 0) bent.erase(bent.begin() + static_cast<std::ptrdiff_t>(random() % bent.size()));
        readHostile(bent);
    }
}

/// Runs that claim more than there is, or what cannot be in a run.
TEST(ObjectStreamHostile, UnsoundRunsAreRefused) {
    const SO<Scripted> object(new Scripted);
    Scripted::script = [](SerializationManager & m) {
        unsigned values[3] = {1, 2, 3};
        attributes(m, "x", values, 3);
    };
    const Bytes good = ObjectStreamWriter::write(*object);
    Scripted::script = nullptr;
    const Bytes run{16, 1, 3, 3, 1, 0, 0, 0};
    const auto at = std::search(good.begin(), good.end(), run.begin(), run.end()) - good.begin();
    ASSERT_LT(std::size_t(at), good.size()) << "type, name, type of the numbers, count, numbers";
    EXPECT_TRUE(readBytes(good));
    const auto changed = [&](std::ptrdiff_t place, std::uint8_t byte) {
        Bytes bytes = good;
        bytes[std::size_t(at + place)] = byte;
        return bytes;
    };
    for (const std::uint8_t type : {0, 1, 8, 9, 12, 13, 14, 15, 16, 17, 255})
        EXPECT_THROW(readBytes(changed(2, type)), IOError) << unsigned(type);
    for (const std::uint8_t count : {0, 4, 127, 255})
        EXPECT_THROW(readBytes(changed(3, count)), IOError) << unsigned(count);
    EXPECT_THROW(readBytes(changed(1, 100)), IOError) << "name";
    for (std::size_t place = 12; place < 20; ++place)
        for (const std::uint8_t byte : {0, 1, 128, 255}) {
            Bytes bytes = good;
            if (bytes[place] == byte) continue;
            bytes[place] = byte;
            EXPECT_THROW(readBytes(bytes), IOError) << "place of the tables";
        }
}

/// Sections within sections, as deep as the bytes allow.
TEST(ObjectStreamHostile, DeeplyNestedSectionsAreSurvived) {
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

} // namespace
