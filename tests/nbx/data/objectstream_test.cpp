#include <cmath>
#include <cstring>
#include <limits>

#include <gtest/gtest.h>

#include <support/recordedreports.h>
#include <support/streamobjects.h>

using namespace streamtest;

namespace {

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

TEST(ObjectStream, OmittedDefaultsComeBack) {
    const SO<Link> link(new Link);
    EXPECT_LT(ObjectStreamWriter::write(*link, true).size(), ObjectStreamWriter::write(*link, false).size());
    link->value = 0;
    EXPECT_EQ(roundTrip(*link, true)->value, 0);
    EXPECT_EQ(roundTrip(*link, false)->value, 0);
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

/// An object that fails costs what it stands for, not the file.
TEST(ObjectStream, ObjectsThatFailForOtherReasonsAreLeftOutWithAReport) {
    const SO<Link> root(new Link);
    root->value = 7;
    root->other = new Scripted;
    const Bytes bytes = ObjectStreamWriter::write(*root);
    Scripted::script = [](SerializationManager &) { throw std::length_error("too long"); };
    const RecordedReports reports;
    const auto back = soCast<Link>(readBytes(bytes));
    Scripted::script = nullptr;
    ASSERT_TRUE(back);
    EXPECT_EQ(back->value, 7);
    EXPECT_FALSE(back->other);
    EXPECT_EQ(reports.count(2, L"false",
                            L"the stored attribute other cannot be read and has its default: too long"),
              1U);
}

} // namespace
