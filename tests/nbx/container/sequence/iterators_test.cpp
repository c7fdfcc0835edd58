// The sequences that stand over other sequences, by one table of laws.

#include <nbx/container/sequence/array.h>
#include <nbx/container/sequence/arrayiterator.h>
#include <nbx/container/sequence/constantiterator.h>
#include <nbx/container/sequence/dataiterator.h>
#include <nbx/container/sequence/fixedsizeiterator.h>
#include <nbx/container/sequence/skipiterator.h>
#include <nbx/container/sequence/staticarray.h>
#include <nbx/container/sequence/staticarrayiterator.h>
#include <nbx/container/sequence/subiterator.h>

#include <gtest/gtest.h>

#include <support/recordedreports.h>

using namespace NBX;

namespace {

using Ints = std::vector<int>;

SO<Array<int>> counting(unsigned size) {
    const SO<Array<int>> array(new Array<int>);
    for (unsigned i = 0; i < size; ++i)
        array->append(static_cast<int>(i));
    return array;
}

/// All ways to read a sequence agree with `expected`.
void expectElements(const Iterator<int> & sequence, const Ints & expected) {
    EXPECT_EQ(sequence.size(), expected.size());
    EXPECT_EQ(sequence.isEmpty(), expected.empty());
    EXPECT_EQ(Ints(sequence.beginSTL(), sequence.endSTL()), expected);
    Ints byIndex;
    for (unsigned i = 0; i < sequence.size(); ++i)
        byIndex.push_back(sequence[i]);
    EXPECT_EQ(byIndex, expected);
    if (const int * first = sequence.pointer()) {
        EXPECT_EQ(Ints(first, first + sequence.size()), expected);
    }
    const RecordedReports reports;
    EXPECT_EQ(sequence.get(sequence.size()), 0);
    EXPECT_EQ(reports.last().message, L"i out of range");
}

TEST(Iterators, GiveTheirElements) {
    const SO<Array<int>> array = counting(6);
    const int block[] = {7, 8, 9};
    const struct {
        const char * name;
        SO<Iterator<int>> sequence;
        Ints expected;
    } rows[] = {
        {"array", array.get(), {0, 1, 2, 3, 4, 5}},
        {"static array", new StaticArray<int>(Ints{3, 4}), {3, 4}},
        {"array iterator", new ArrayIterator<int>(array.get()), {0, 1, 2, 3, 4, 5}},
        {"static array iterator", new StaticArrayIterator<int>(new StaticArray<int>(Ints{3, 4})), {3, 4}},
        {"fixed size", new FixedSizeIterator<int>(block, 3), {7, 8, 9}},
        {"fixed size list", new FixedSizeIterator<int>({1, 2}), {1, 2}},
        {"constant", new ConstantIterator<int>(5, 3), {5, 5, 5}},
        {"constant, none", new ConstantIterator<int>(5, 0), {}},
        {"data", new DataIterator<int>(block, 3), {7, 8, 9}},
        {"data, none", new DataIterator<int>(nullptr, 0), {}},
        {"sub range", new SubIterator<int>(array.get(), 2, 3), {2, 3, 4}},
        {"sub range, all", new SubIterator<int>(array.get(), 0, 6), {0, 1, 2, 3, 4, 5}},
        {"sub range, empty at the end", new SubIterator<int>(array.get(), 6, 0), {}},
        {"skip 2", new SkipIterator<int>(array.get(), 0, 2), {0, 2, 4}},
        {"skip 2 from 1", new SkipIterator<int>(array.get(), 1, 2), {1, 3, 5}},
        {"skip 5", new SkipIterator<int>(array.get(), 0, 5), {0, 5}},
        {"skip 1 from 4", new SkipIterator<int>(array.get(), 4, 1), {4, 5}},
        {"skip, one left", new SkipIterator<int>(array.get(), 5, 100), {5}},
        {"skip, start behind the end", new SkipIterator<int>(array.get(), 9, 1), {}},
        {"skip of a sub range",
         new SkipIterator<int>(new SubIterator<int>(array.get(), 1, 5), 0, 2),
         {1, 3, 5}},
    };
    for (const auto & row : rows) {
        SCOPED_TRACE(row.name);
        expectElements(*row.sequence, row.expected);
    }
}

TEST(Iterators, ContiguousOnesTellTheirFirstElement) {
    const SO<Array<int>> array = counting(6);
    const int * first = array->stl().data();
    EXPECT_EQ(SO<Iterator<int>>(new ArrayIterator<int>(array.get()))->pointer(), first);
    EXPECT_EQ(SO<Iterator<int>>(new SubIterator<int>(array.get(), 2, 3))->pointer(), first + 2);
    EXPECT_EQ(SO<Iterator<int>>(new SkipIterator<int>(array.get(), 3, 1))->pointer(), first + 3);
    EXPECT_EQ(SO<Iterator<int>>(new SkipIterator<int>(array.get(), 0, 2))->pointer(), nullptr);
    EXPECT_EQ(SO<Iterator<int>>(new ConstantIterator<int>(1, 2))->pointer(), nullptr);
}

TEST(Iterators, NameAndKeepTheOwnerOfTheElements) {
    SO<Array<int>> array = counting(3);
    const SharedObj * owner = array.get();
    const SO<Iterator<int>> over(new ArrayIterator<int>(array.get()));
    const SO<Iterator<int>> part(new SubIterator<int>(over.get(), 1, 2));
    const SO<Iterator<int>> data(new DataIterator<int>(array->stl().data(), 3, array.get()));
    array = nullptr;
    for (const SO<Iterator<int>> & sequence : {over, part, data}) {
        EXPECT_EQ(sequence->container(), owner);
        EXPECT_EQ(sequence->get(1), sequence == part ? 2 : 1);
    }
    EXPECT_EQ(SO<Iterator<int>>(new ConstantIterator<int>(1, 2))->container(), nullptr);
}

TEST(Iterators, ShowChangesOfTheirArray) {
    const SO<Array<int>> array = counting(3);
    const SO<Iterator<int>> over(new ArrayIterator<int>(array.get()));
    const SO<Iterator<int>> every2nd(new SkipIterator<int>(array.get(), 0, 2));
    array->append(7);
    array->append(8);
    expectElements(*over, {0, 1, 2, 7, 8});
    expectElements(*every2nd, {0, 2, 8});
}

TEST(Iterators, NullIsReportedAndEmpty) {
    const struct {
        const wchar_t * message;
        std::function<Iterator<int> *()> make;
    } rows[] = {
        {L"no array", [] { return new ArrayIterator<int>(nullptr); }},
        {L"no array", [] { return new StaticArrayIterator<int>(nullptr); }},
        {L"no sequence", [] { return new SubIterator<int>(nullptr, 0, 0); }},
        {L"no sequence", [] { return new SkipIterator<int>(nullptr, 0, 1); }},
        {L"no values", [] { return new DataIterator<int>(nullptr, 4); }},
    };
    for (const auto & row : rows) {
        const RecordedReports reports;
        const SO<Iterator<int>> sequence(row.make());
        EXPECT_EQ(reports.last().message, row.message);
        EXPECT_EQ(reports.last().level, 0);
        EXPECT_EQ(sequence->size(), 0U);
        EXPECT_EQ(sequence->get(0), 0);
        EXPECT_EQ(sequence->pointer(), nullptr);
    }
}

TEST(SubIterator, ARangeBeyondTheEndIsReportedAndCut) {
    const SO<Array<int>> array = counting(4);
    for (const auto & [first, size, expected] :
         {std::tuple<unsigned, unsigned, Ints>{2, 5, {2, 3}}, {9, 1, {}}, {1, 0xFFFFFFFF, {1, 2, 3}}}) {
        const RecordedReports reports;
        const SO<Iterator<int>> part(new SubIterator<int>(array.get(), first, size));
        EXPECT_EQ(reports.size(), 1U);
        expectElements(*part, expected);
    }
}

TEST(SkipIterator, AStrideOfZeroIsReportedAndTakenAsOne) {
    const RecordedReports reports;
    const SO<Iterator<int>> all(new SkipIterator<int>(counting(3).get(), 0, 0));
    EXPECT_EQ(reports.count(0, L"stride > 0", L"the stride is 0"), 1U);
    EXPECT_EQ(all->size(), 3U);
}

} // namespace
