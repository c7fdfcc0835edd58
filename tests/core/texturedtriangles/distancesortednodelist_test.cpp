#include <zmt/core/texturedtriangles/distancesortednodelist.h>

#include <algorithm>
#include <ctime>
#include <random>

#include <gtest/gtest.h>

#include <nbx/data/memorydataresource.h>
#include <support/recordedreports.h>

#include "testcity.h"

namespace ZMT::CORE {
namespace {

using NBX::SO;
using List = DistanceSortedNodeList;
using NodeRef = List::NodeRef;

SO<NBX::SharedObj> listedTexture() {
    return new NBX::MemoryDataResource(4);
}

class DistanceSortedNodeListTest : public testing::Test {
protected:
    NodeRef ref(const RenderTree::NodePointer & node, double distance = 0.0, int urgency = 0) const {
        NodeRef result;
        result.tree = city.tree.get();
        result.node = node;
        result.distance = distance;
        result.urgency = urgency;
        return result;
    }
    NodeRef original(const RenderTree::NodePointer & node, int number, double distance = 0.0) const {
        NodeRef result = ref(node, distance);
        result.original = true;
        result.textureNumber = number;
        return result;
    }
    static void add(List & list, NodeRef ref) {
        ref.data = listedTexture();
        list.add(ref, List::blockOf(ref));
    }

    TestCity::Options options() const {
        TestCity::Options result;
        result.originals = 3;
        result.levels = 2;
        return result;
    }
    const RecordedReports reports;
    const TestCity city{options()};
    const int blockSize = int(city.node(0)->content.blockSizes[0]);
};

TEST_F(DistanceSortedNodeListTest, ReferencesAreWhoTheyAre) {
    const NodeRef atlas = ref(city.leaf(0, 0)), first = original(city.leaf(0, 0), 0),
                  second = original(city.leaf(0, 0), 1);
    EXPECT_TRUE(atlas < first);
    EXPECT_TRUE(first < second);
    EXPECT_FALSE(second < atlas);
    NodeRef other = atlas;
    other.distance = 7.0;
    other.urgency = 1;
    other.pixelCount = 9;
    other.data = listedTexture();
    EXPECT_TRUE(other.isSame(atlas)) << "whatever they are worth";
    other.tree = nullptr;
    EXPECT_FALSE(other.isSame(atlas));
    EXPECT_NE(ref(city.node(0)) < ref(city.node(1)), ref(city.node(1)) < ref(city.node(0)));
    EXPECT_EQ(ref(city.node(0)) < ref(city.node(1)),
              std::less<>()(city.node(0).operator->(), city.node(1).operator->()));
}

TEST_F(DistanceSortedNodeListTest, OrderOfWishes) {
    NodeRef best = ref(city.node(0), 100.0);
    best.pixelCount = 5;
    best.depth = 3;
    NodeRef worse = best;
    worse.depth = 4;
    EXPECT_TRUE(List::isWantedMore(best, worse));
    worse = best;
    worse.distance = 100.5;
    worse.depth = 0;
    EXPECT_TRUE(List::isWantedMore(best, worse));
    worse = best;
    worse.pixelCount = 4;
    worse.distance = 0.0;
    EXPECT_TRUE(List::isWantedMore(best, worse));
    worse = best;
    worse.urgency = 1;
    worse.pixelCount = 1000;
    EXPECT_TRUE(List::isWantedMore(best, worse));
    NodeRef worst = worse;
    worst.urgency = 2;
    EXPECT_TRUE(List::isWantedMore(worse, worst));
    worse = best;
    worse.textureNumber = 1; // no such layer
    worse.pixelCount = 1000;
    EXPECT_TRUE(List::isWantedMore(best, worse));
    worse.original = true; // counts as layer 0
    EXPECT_FALSE(List::isWantedMore(best, worse));
    city.tree->setLayerEnabled(0, false);
    EXPECT_FALSE(List::isWantedMore(best, worse)) << "both are of a disabled layer";
    EXPECT_FALSE(List::isWantedMore(best, best));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(DistanceSortedNodeListTest, SortsAsAPlainReferenceDoes) {
    std::mt19937 random(11);
    for (int round = 0; round < 200; ++round) {
        std::vector<NodeRef> refs;
        for (int i = 0; i < 30; ++i) {
            NodeRef next = ref(city.all()[random() % 20], double(random() % 3), int(random() % 3));
            next.pixelCount = int(random() % 3);
            next.depth = random() % 3;
            next.textureNumber = int(random() % 2);
            refs.push_back(next);
        }
        std::vector<NodeRef> expected;
        for (const NodeRef & next : refs) { // behind all that are wanted at least as much
            auto place = expected.end();
            const auto worth = [](const NodeRef & r) {
                return std::tuple(r.textureNumber, r.urgency, -r.pixelCount, r.distance, r.depth);
            };
            while (place != expected.begin() && worth(next) < worth(*std::prev(place)))
                --place;
            expected.insert(place, next);
        }
        List::sort(refs);
        for (std::size_t i = 0; i < refs.size(); ++i) {
            ASSERT_TRUE(refs[i].isSame(expected[i])) << round << ", " << i;
            ASSERT_EQ(refs[i].distance, expected[i].distance);
        }
    }
}

TEST_F(DistanceSortedNodeListTest, ABudgetBelowOneBlockKeepsNothing) {
    List list(blockSize - 1);
    add(list, ref(city.node(0)));
    EXPECT_TRUE(list.entries().empty());
    EXPECT_EQ(list.bytesUsed(), 0);
    EXPECT_FALSE(city.node(0)->content.texture(0));
    List fitting(blockSize);
    add(fitting, ref(city.node(0)));
    EXPECT_EQ(fitting.entries().size(), 1U);
    EXPECT_TRUE(city.node(0)->content.texture(0));
    List none(-5);
    add(none, ref(city.node(1)));
    EXPECT_TRUE(none.entries().empty());
}

TEST_F(DistanceSortedNodeListTest, WhatIsWantedLeastGoes) {
    List list(2 * blockSize);
    add(list, ref(city.node(0), 30.0));
    add(list, ref(city.node(1), 10.0));
    EXPECT_EQ(list.bytesUsed(), 2 * blockSize);
    add(list, ref(city.node(2), 20.0));
    EXPECT_EQ(list.bytesUsed(), 2 * blockSize);
    ASSERT_EQ(list.entries().size(), 2U);
    EXPECT_TRUE(list.entries()[0].isSame(ref(city.node(1))));
    EXPECT_TRUE(list.entries()[1].isSame(ref(city.node(2))));
    EXPECT_FALSE(list.contains(ref(city.node(0))));
    EXPECT_FALSE(city.node(0)->content.texture(0)) << "its node does not hold it";
    add(list, ref(city.node(3), 40.0));
    EXPECT_FALSE(list.contains(ref(city.node(3)))) << "the new one itself";
    // What they are worth changes.
    list.judge([&](NodeRef & entry) { entry.distance = entry.isSame(ref(city.node(1))) ? 99.0 : 1.0; });
    list.sort();
    add(list, ref(city.node(3), 40.0));
    EXPECT_FALSE(list.contains(ref(city.node(1))));
    EXPECT_TRUE(list.contains(ref(city.node(2))));
}

TEST_F(DistanceSortedNodeListTest, SourceTexturesAreHeldByTheirNodeAndTakenOutOfIt) {
    List list(1 << 20);
    RenderNode & leaf = city.leaf(1, 2)->content;
    add(list, original(city.leaf(1, 2), 1));
    EXPECT_TRUE(leaf.originalTextures->get(1));
    EXPECT_FALSE(leaf.originalTextures->get(0));
    leaf.textureStates[1] = true;
    list.remove(original(city.leaf(1, 2), 1));
    EXPECT_FALSE(leaf.originalTextures->get(1));
    EXPECT_FALSE(leaf.textureStates[1]);
    EXPECT_EQ(list.bytesUsed(), 0);
}

TEST_F(DistanceSortedNodeListTest, ASharedBlockIsOneTextureAndCountsOnce) {
    List list(1 << 20);
    RenderNode &a = city.leaf(0, 0)->content, &b = city.leaf(3, 3)->content;
    b.originalTexturesBlockPositions[2] = a.originalTexturesBlockPositions[0];
    NodeRef first = original(city.leaf(0, 0), 0, 1.0), second = original(city.leaf(3, 3), 2, 2.0);
    const List::Block block = List::blockOf(first);
    EXPECT_EQ(block, List::blockOf(second));
    first.data = second.data = listedTexture();
    list.add(first, block);
    list.add(second, block);
    EXPECT_EQ(std::uint64_t(list.bytesUsed()), block.size);
    EXPECT_EQ(list.sharing(first.data.get()).size(), 2U);
    EXPECT_EQ(list.find(block), first.data);
    EXPECT_EQ(a.originalTextures->get(0), b.originalTextures->get(2));
    list.removeLast();
    EXPECT_FALSE(b.originalTextures->get(2));
    EXPECT_TRUE(a.originalTextures->get(0));
    EXPECT_EQ(std::uint64_t(list.bytesUsed()), block.size);
    list.removeLast();
    EXPECT_EQ(list.bytesUsed(), 0);
    EXPECT_FALSE(list.find(block));
    EXPECT_FALSE(list.removeLast());
}

TEST_F(DistanceSortedNodeListTest, ALinkThatWasLostIsMadeAgain) {
    List list(1 << 20);
    add(list, ref(city.node(0)));
    city.node(0)->content.textures[0] = nullptr;
    EXPECT_TRUE(list.link(ref(city.node(0))));
    EXPECT_TRUE(city.node(0)->content.texture(0));
    EXPECT_FALSE(list.link(ref(city.node(1))));
}

TEST_F(DistanceSortedNodeListTest, ATextureOfAnotherTreeStaysInTheNode) {
    const SO<TexturedTriangleTree> copy(new TexturedTriangleTree(*city.tree));
    List list(1 << 20);
    add(list, ref(city.node(0)));
    NodeRef others = ref(city.node(0));
    others.tree = copy.get();
    add(list, others);
    const SO<NBX::SharedObj> shown = city.node(0)->content.texture(0);
    list.removeTree(city.tree.get());
    EXPECT_EQ(city.node(0)->content.texture(0), shown);
    EXPECT_EQ(list.entries().size(), 1U);
    list.removeTree(copy.get());
    EXPECT_TRUE(list.entries().empty());
}

/// Two trees whose entries stand between each other, some of which share their texture.
class ManyEntriesTest : public DistanceSortedNodeListTest {
protected:
    static constexpr int s_count = 80000;

    /// `each` leaves have a texture together.
    void fill(List & list, int each) {
        NodeRef next = original(city.leaf(0, 0), 0);
        for (int i = 0; i < s_count; ++i) {
            next.tree = i % 2 ? city.tree.get() : other.get();
            next.textureNumber = i;
            next.distance = i;
            if (i % (2 * each) < 2) last[i % 2] = listedTexture();
            next.data = last[i % 2];
            list.add(next, {next.tree, 0, true, std::uint64_t(i / (2 * each)), 1});
        }
    }
    static double processorSeconds() {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return double(time.tv_sec) + 1e-9 * double(time.tv_nsec);
    }

    const SO<TexturedTriangleTree> other{new TexturedTriangleTree(*city.tree)};
    SO<NBX::SharedObj> last[2];
};

/// Entry by entry that took 2 s of a processor, and four times as long for twice as many.
TEST_F(ManyEntriesTest, ATreeIsTakenOutInOnePass) {
    for (const int each : {1, s_count}) {
        List list(1 << 30);
        fill(list, each);
        ASSERT_EQ(list.entries().size(), std::size_t(s_count));
        const std::uint64_t before = list.bytes();
        const double begin = processorSeconds();
        list.removeTree(city.tree.get());
        EXPECT_LT(processorSeconds() - begin, 0.5) << each;
        ASSERT_EQ(list.entries().size(), std::size_t(s_count / 2));
        EXPECT_EQ(list.bytes(), before / 2);
        for (const NodeRef & entry : list.entries())
            ASSERT_EQ(entry.tree, other.get());
        EXPECT_TRUE(std::is_sorted(list.entries().begin(), list.entries().end(), List::isWantedMore));
        EXPECT_FALSE(list.contains(original(city.leaf(0, 0), 1)));
        list.removeLayer(other.get(), 1);
        EXPECT_EQ(list.entries().size(), std::size_t(s_count / 2));
        list.removeLayer(other.get(), 0);
        EXPECT_TRUE(list.entries().empty());
        EXPECT_EQ(list.bytes(), 0U);
        std::size_t textures = 0;
        list.forEachTexture([&](const NBX::SharedObj *) { ++textures; });
        EXPECT_EQ(textures, 0U);
    }
}

TEST_F(DistanceSortedNodeListTest, BytesAreCountedIn64Bits) {
    List list(2147483647);
    NodeRef large = ref(city.node(0));
    large.data = listedTexture();
    city.node(0)->content.blockSizes[0] = 2000000000;
    list.add(large, List::blockOf(large));
    EXPECT_EQ(list.bytes(), 2000000000U);
    NodeRef other = ref(city.node(1), -1.0);
    other.data = listedTexture();
    city.node(1)->content.blockSizes[0] = 1ULL << 40U;
    list.add(other, List::blockOf(other));
    EXPECT_TRUE(list.entries().empty()) << "the sum does not wrap";
    EXPECT_EQ(list.bytesUsed(), 0);
}

TEST_F(DistanceSortedNodeListTest, BadReferencesHaveNoBlock) {
    RecordedReports own;
    EXPECT_EQ(List::blockOf(NodeRef()).size, 0U);
    EXPECT_EQ(own.count(2, L"false", L"invalid node pointer"), 1U) << own;
    EXPECT_EQ(List::blockOf(original(city.leaf(0, 0), 3)).size, 0U);
    EXPECT_EQ(own.count(0, L"node->content.originalTexturesBlockSizes.size()>textureNumber",
                        L"invalid texture number"),
              1U)
        << own;
    EXPECT_EQ(List::blockOf(ref(city.root())).size, 0U) << "the root has no block, which is no fault";
    EXPECT_EQ(own.size(), 2U) << own;
}

} // namespace
} // namespace ZMT::CORE
