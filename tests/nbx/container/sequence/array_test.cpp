#include <nbx/container/sequence/array.h>

#include <gtest/gtest.h>

#include <nbx/container/sequence/array2d.h>
#include <nbx/container/sequence/stack.h>
#include <nbx/container/sequence/staticarray.h>
#include <support/recordedreports.h>
#include <support/silentserializationmanager.h>

using namespace NBX;

namespace {

template <class T>
concept HasArrays = requires {
    typename Array<T>;
    typename StaticArray<T>;
    typename Array2D<T>;
    typename Stack<T>;
};

/// Their elements would not lie in memory.
TEST(Array, OfTruthValuesIsRefusedWhenCompiled) {
    EXPECT_FALSE(HasArrays<bool>);
    EXPECT_TRUE(HasArrays<std::uint8_t>);
}

TEST(Array, GrowsAndShrinks) {
    const SO<Array<std::wstring>> array(new Array<std::wstring>);
    EXPECT_TRUE(array->isEmpty());
    array->append(L"a");
    array->append(L"b");
    array->append(L"c");
    array->remove(1);
    array->set(0, L"z");
    EXPECT_EQ(array->stl(), (std::vector<std::wstring>{L"z", L"c"}));
    array->resize(3);
    EXPECT_EQ(array->get(2), L"");
    array->clear();
    EXPECT_TRUE(array->isEmpty());
    EXPECT_EQ(SO<Array<int>>(new Array<int>(3, 7))->stl(), std::vector<int>(3, 7));
}

TEST(Array, IndicesOutOfRangeAreReported) {
    const RecordedReports reports;
    const SO<Array<int>> array(new Array<int>(2, 5));
    EXPECT_EQ(array->get(2), 0);
    array->set(2, 9);
    array->remove(7);
    EXPECT_EQ(reports.count(0, L"i < size()", L"i out of range"), 3U) << reports;
    EXPECT_EQ(array->stl(), std::vector<int>(2, 5));
}

TEST(Array, ClassesFormAHierarchyAndAreRegistered) {
    const SO<SharedObj> array(new Array<double>);
    EXPECT_TRUE(array->classInfoNBX()->isA("NBX::NonPersistentArray<double>"));
    EXPECT_TRUE(array->classInfoNBX()->isA("NBX::Iterator<double>"));
    EXPECT_TRUE(array->isRegisteredForSerialization());
    EXPECT_TRUE(SerializationManager::isRegistered("NBX::Array<double>"));
    EXPECT_TRUE(SO<SharedObj>(new StaticArray<float>)->isRegisteredForSerialization());
    EXPECT_FALSE(SO<SharedObj>(new NonPersistentArray<double>)->isRegisteredForSerialization());
}

TEST(Array, ANonPersistentOneCannotBeStored) {
    const RecordedReports reports;
    SilentSerializationManager manager;
    SO<SharedObj>(new NonPersistentArray<int>)->serialize(manager);
    SO<SharedObj>(new NonPersistentStaticArray<int>(2))->serialize(manager);
    const std::wstring condition = L"L\"Not implemented\"";
    EXPECT_EQ(reports.count(3, condition,
                            L"NBX::NonPersistentArray<int>::serialize() not supported: use Array<T> for "
                            L"serialization instead!"),
              1U)
        << reports;
    EXPECT_EQ(
        reports.count(3, condition,
                      L"NBX::NonPersistentStaticArray<int>::serialize() not supported: use StaticArray<T> "
                      L"for serialization instead!"),
        1U)
        << reports;
}

} // namespace
