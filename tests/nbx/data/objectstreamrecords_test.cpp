#include <gtest/gtest.h>

#include <support/recordedreports.h>
#include <support/streamobjects.h>

#include <nbx/object/wo.h>

using namespace streamtest;

namespace {

TEST(ObjectStreamRecords, AttributesAreFoundInAnyOrderAndUnknownOnesSkipped) {
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

TEST(ObjectStreamRecords, AnotherTypeIsAnotherAttribute) {
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

TEST(ObjectStreamRecords, RepeatedAttributesComeInOrder) {
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

void expectNumbers(SerializationManager & m, const char * name, std::initializer_list<unsigned> expected) {
    std::vector<unsigned> values(expected.size());
    EXPECT_TRUE(attributes(m, name, values.data(), values.size()));
    EXPECT_EQ(values, std::vector<unsigned>(expected));
}

/// Who has the manager alone must get to the runs from there; one by one takes several times as long.
TEST(ObjectStreamRecords, RunsAreReachedFromTheManager) {
    const auto hasRuns = [](SerializationManager & m) {
        EXPECT_NE(dynamic_cast<NBX::AttributeRuns *>(&m), nullptr) << (m.isReading() ? "reading" : "writing");
    };
    transfer(hasRuns, hasRuns);
}

/// However numbers are written, they may be read one by one, at once, and in pieces.
TEST(ObjectStreamRecords, RunsAreTheSameAsSingleAttributes) {
    const auto single = [](SerializationManager & m) {
        for (unsigned i = 0; i < 5; ++i)
            m.attribute("x", i);
    };
    const auto run = [](SerializationManager & m) {
        unsigned values[5] = {0, 1, 2, 3, 4};
        attributes(m, "x", values, 5);
    };
    const auto pieces = [](SerializationManager & m) {
        unsigned values[5] = {0, 1, 2, 3, 4}, other = 7;
        attributes(m, "x", values, 2);
        attributes(m, "x", values, 0);
        m.attribute("y", other);
        m.attribute("x", values[2]);
        attributes(m, "x", values + 3, 2);
    };
    for (const Scripted::Script & writing :
         {Scripted::Script(single), Scripted::Script(run), Scripted::Script(pieces)}) {
        transfer(writing, [](SerializationManager & m) {
            expectNumbers(m, "x", {0, 1, 2, 3, 4});
            unsigned none = 9;
            EXPECT_TRUE(attributes(m, "x", &none, 0));
            EXPECT_FALSE(attributes(m, "x", &none, 1));
            EXPECT_EQ(none, 9U);
        });
        transfer(writing, [](SerializationManager & m) {
            for (unsigned i = 0, value = 0; i < 5; ++i) {
                EXPECT_TRUE(m.attribute("x", value));
                EXPECT_EQ(value, i);
            }
        });
        transfer(writing, [](SerializationManager & m) {
            expectNumbers(m, "x", {0});
            expectNumbers(m, "x", {1, 2, 3});
            std::vector<unsigned> tooMany(2);
            EXPECT_FALSE(attributes(m, "x", tooMany.data(), 2));
            EXPECT_EQ(tooMany[0], 4U);
        });
    }
}

/// An attribute out of order, from the middle of a run.
TEST(ObjectStreamRecords, RunsAreFoundInAnyOrder) {
    const auto writing = [](SerializationManager & m) {
        unsigned values[4] = {1, 2, 3, 4};
        float heights[3] = {0.5F, 1.5F, 2.5F};
        attributes(m, "x", values, 4);
        attributes(m, "x", heights, 3);
        attributes(m, "x", values, 2);
    };
    transfer(writing, [](SerializationManager & m) {
        const std::uint64_t all = m.bytesLeft();
        expectNumbers(m, "x", {1});
        EXPECT_LT(m.bytesLeft(), all);
        EXPECT_GE(m.bytesLeft(), 3U * 4 + 3 * 4 + 2 * 4);
        float height = 0.0F;
        EXPECT_TRUE(m.attribute("x", height));
        EXPECT_EQ(height, 0.5F);
        expectNumbers(m, "x", {2, 3, 4, 1, 2});
        float heights[2] = {};
        EXPECT_TRUE(attributes(m, "x", heights, 2));
        EXPECT_EQ(heights[1], 2.5F);
        EXPECT_EQ(m.bytesLeft(), 0U);
        unsigned none = 0;
        EXPECT_FALSE(m.attribute("x", none));
    });
}

TEST(ObjectStreamRecords, NumbersThatFollowEachOtherAreWrittenAsARun) {
    const SO<Scripted> object(new Scripted);
    double values[3] = {1.0, 2.0, 3.0};
    Scripted::script = [&](SerializationManager & m) { attributes(m, "x", values, 3); };
    const Bytes run = ObjectStreamWriter::write(*object);
    Scripted::script = [&](SerializationManager & m) {
        for (double & value : values)
            m.attribute("x", value);
    };
    EXPECT_EQ(ObjectStreamWriter::write(*object), run);
    Scripted::script = nullptr;
}

TEST(ObjectStreamRecords, ContainersNest) {
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

TEST(ObjectStreamRecords, SuperclassPartsDoNotMix) {
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

TEST(ObjectStreamRecords, RawBlocksOfAnotherSizeAreMissing) {
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

TEST(ObjectStreamRecords, NamesMayBeEmpty) {
    const auto script = [](SerializationManager & m) {
        int value = 3;
        EXPECT_TRUE(m.attribute("", value));
        EXPECT_TRUE(m.attribute(nullptr, value));
        EXPECT_EQ(value, 3);
    };
    transfer(script, script);
}

TEST(ObjectStreamRecords, NamesDifferInAnyLetter) {
    const std::string sixteen(16, 'n'), seventeen(17, 'n');
    const std::string others[] = {
        "", "n", sixteen.substr(1), sixteen, seventeen, sixteen.substr(1) + "m", seventeen.substr(1) + "m"};
    for (const std::string & written : others)
        for (const std::string & asked : others)
            transfer(
                [&](SerializationManager & m) {
                    int value = 3;
                    m.attribute(written.c_str(), value);
                },
                [&](SerializationManager & m) {
                    int value = 0;
                    EXPECT_EQ(m.attribute(asked.c_str(), value), written == asked)
                        << written << ", " << asked;
                });
}

/// Memory does not grow by what is asked for and thrown away.
TEST(ObjectStreamRecords, WhatNobodyAsksForAgainIsLetGo) {
    transfer(
        [](SerializationManager & m) {
            SO<Link> shared(new Link), single(new Link);
            m.attribute("shared", shared);
            m.attribute("single", single);
            m.attribute("shared again", shared);
        },
        [](SerializationManager & m) {
            SO<Link> object;
            m.attribute("shared", object);
            const WO<Link> shared(object);
            m.attribute("single", object);
            EXPECT_TRUE(shared);
            const WO<Link> single(object);
            m.attribute("shared again", object);
            EXPECT_EQ(shared.lock(), object);
            EXPECT_FALSE(single);
            object = nullptr;
            EXPECT_FALSE(shared);
        });
}

TEST(ObjectStreamRecords, BytesLeftBoundsWhatCanFollow) {
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

TEST(ObjectStreamRecords, SectionsThatDoNotMatchAreReported) {
    const RecordedReports reports;
    transfer([](SerializationManager & m) { m.endContainer("T", "none"); },
             [](SerializationManager & m) { m.endContainer("T", "none"); });
    EXPECT_EQ(reports.count(L"a section ends that did not begin"), 2U);
}

/// Attributes read from the last to the first, and missing ones between: linear work each would take hours.
TEST(ObjectStreamRecords, LookUpsStayQuick) {
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
