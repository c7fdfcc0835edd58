#include <cstring>

#include <gtest/gtest.h>

#include <nbx/container/map/dictionary.h>
#include <nbx/container/map/hashtable.h>
#include <nbx/container/sequence/array.h>
#include <nbx/container/sequence/array2d.h>
#include <nbx/container/sequence/staticarray.h>
#include <nbx/container/space/dynamicspacetree.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/math/color.h>

#include <support/streamobjects.h>

using namespace streamtest;

namespace {

TEST(ObjectStreamContainers, ContainersMakeTheRoundTrip) {
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

TEST(ObjectStreamContainers, ArraysOfObjectsKeepNullsAndSharing) {
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

TEST(ObjectStreamContainers, SpaceTreesKeepTheirShape) {
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

} // namespace
