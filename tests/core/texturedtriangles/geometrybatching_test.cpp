#include "core/texturedtriangles/geometrybatching.h"

#include <functional>
#include <random>

#include <gtest/gtest.h>

#include <nbx/gl/mesh/vertexattributebufferobjectgl.h>
#include <nbx/scene/shape/polygonset.h>
#include <support/recordedreports.h>

namespace ZMT::CORE {
namespace {

using NBX::SO;
using Node = RenderTree::NodePointer;
using Mesh = NBX::MappedVertexAttributeShapeGL;
using Data = NBX::MappedVertexAttributeDataGL;
using Buffer = Data::Buffer;

constexpr unsigned s_float = NBX::VertexAttributeTraitsGL<float>::componentType;
constexpr unsigned s_byte = NBX::VertexAttributeTraitsGL<unsigned char>::componentType;
constexpr unsigned s_short = NBX::VertexAttributeTraitsGL<unsigned short>::componentType;

/// Positions that go on counting from mesh to mesh.
SO<Mesh> numbered(unsigned vertices, float & number) {
    const SO<Data> data(new Data());
    const SO<Buffer> positions(new Buffer(s_float, 3, vertices));
    auto * at = static_cast<float *>(positions->mapPointer());
    for (unsigned i = 0; i < vertices * 3; ++i)
        at[i] = i % 3 == 0 ? number++ : 0.0F;
    data->setBuffer(Data::VERTEX_ID, positions);
    return new Mesh(NBX::VertexAttributeShapeGL::PT_Triangles, data);
}

struct BatchedTree : testing::Test {
    RecordedReports reports;
    SO<RenderTree> tree{new RenderTree()};
    float number = 0.0F;

    void TearDown() override { EXPECT_TRUE(reports.empty()) << reports; }

    void give(const Node & node, unsigned vertices) { node->content.triangles = numbered(vertices, number); }
    Node child(const Node & node, unsigned i) { return tree->child(node, i); }
    /// Inner nodes with a leaf each of so many vertices.
    void giveChildren(const Node & node, const std::vector<unsigned> & vertices) {
        tree->createChildren(node);
        for (unsigned i = 0; i < vertices.size(); ++i)
            if (vertices[i] > 0) give(child(node, i), vertices[i]);
    }
    static unsigned verticesOf(const Node & node) {
        return node->content.triangles ? node->content.triangles->data()->vertices() : 0;
    }
    /// The first components of the positions in a node's range of the batch it belongs to.
    std::vector<float> rangeOf(const Node & node) {
        Node owner = node;
        while (owner && !owner->content.vertexData)
            owner = tree->parent(owner);
        std::vector<float> numbers;
        if (!owner) return numbers;
        const auto positions = owner->content.vertexData->buffer(Data::VERTEX_ID);
        const RenderNode & content = node->content;
        for (int i = 0; i < content.numVertices; ++i)
            numbers.push_back(float(positions->value(unsigned(content.vertexRangeStart + i), 0)));
        return numbers;
    }
    std::vector<float> leavesBelow(const Node & node) {
        std::vector<float> numbers;
        for (unsigned i = 0; i < verticesOf(node); ++i)
            numbers.push_back(float(node->content.triangles->vertex(i).x));
        for (unsigned i = 0; tree->hasChildren(node) && i < 4; ++i) {
            const std::vector<float> below = leavesBelow(child(node, i));
            numbers.insert(numbers.end(), below.begin(), below.end());
        }
        return numbers;
    }
    void forAll(const Node & node, const std::function<void(const Node &)> & visit) {
        visit(node);
        for (unsigned i = 0; tree->hasChildren(node) && i < 4; ++i)
            forAll(child(node, i), visit);
    }
    unsigned batches() {
        unsigned count = 0;
        forAll(tree->root(), [&](const Node & node) { count += node->content.vertexData ? 1 : 0; });
        return count;
    }
    /// The laws of the header for all nodes.
    void expectRangesOfLeaves() {
        forAll(tree->root(), [&](const Node & node) {
            EXPECT_EQ(node->content.numVertices, int(leavesBelow(node).size()));
            if (node->content.vertexRangeStart < 0) {
                EXPECT_GT(node->content.numVertices, s_maxBatchVertices);
            } else {
                EXPECT_EQ(rangeOf(node), leavesBelow(node));
            }
        });
    }
};

TEST_F(BatchedTree, AnEmptyTreeHasNoBatch) {
    batchGeometry(*tree);
    EXPECT_EQ(batches(), 0U);
    EXPECT_EQ(tree->root()->content.numVertices, 0);
    EXPECT_EQ(tree->root()->content.vertexRangeStart, 0);
}

TEST_F(BatchedTree, ATreeOfOneNodeIsOneBatch) {
    give(tree->root(), 6);
    batchGeometry(*tree);
    EXPECT_EQ(batches(), 1U);
    expectRangesOfLeaves();
}

TEST_F(BatchedTree, TheRangeOfAnInnerNodeIsThatOfItsLeaves) {
    giveChildren(tree->root(), {3, 0, 6, 9});
    giveChildren(child(tree->root(), 1), {12, 0, 0, 3});
    batchGeometry(*tree);
    EXPECT_EQ(batches(), 1U);
    EXPECT_TRUE(tree->root()->content.vertexData);
    EXPECT_EQ(child(tree->root(), 0)->content.vertexRangeStart, 0);
    EXPECT_EQ(child(tree->root(), 1)->content.vertexRangeStart, 3);
    EXPECT_EQ(child(tree->root(), 1)->content.numVertices, 15);
    EXPECT_EQ(child(tree->root(), 2)->content.vertexRangeStart, 18);
    expectRangesOfLeaves();
}

TEST_F(BatchedTree, ASubtreeOfExactlyTheLargestSizeIsOneBatch) {
    giveChildren(tree->root(), {65532, 3, 0, 0});
    batchGeometry(*tree);
    EXPECT_EQ(tree->root()->content.numVertices, 65535);
    EXPECT_EQ(batches(), 1U);
    expectRangesOfLeaves();
}

TEST_F(BatchedTree, OneVertexMoreAndTheSubtreeIsOpened) {
    // The triangles are not whole: only the count matters here.
    giveChildren(tree->root(), {65532, 4, 0, 0});
    batchGeometry(*tree);
    EXPECT_EQ(tree->root()->content.numVertices, 65536);
    EXPECT_EQ(tree->root()->content.vertexRangeStart, -1);
    EXPECT_FALSE(tree->root()->content.vertexData);
    EXPECT_EQ(batches(), 2U);
    EXPECT_EQ(child(tree->root(), 1)->content.vertexRangeStart, 0) << "each batch counts from 0";
    expectRangesOfLeaves();
}

TEST_F(BatchedTree, ALargeLeafIsABatchAlone) {
    giveChildren(tree->root(), {70000, 3, 3, 0});
    batchGeometry(*tree);
    EXPECT_TRUE(child(tree->root(), 0)->content.vertexData);
    EXPECT_EQ(batches(), 3U);
    expectRangesOfLeaves();
}

TEST_F(BatchedTree, RangesAreThoseOfLeavesInAnyTree) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int times = 0; times < 8; ++times) {
        tree = new RenderTree();
        std::vector<Node> open{tree->root()};
        for (int i = 0; i < 40 && !open.empty(); ++i) {
            const std::size_t which = random() % open.size();
            const Node node = open[which];
            open.erase(open.begin() + std::ptrdiff_t(which));
            tree->createChildren(node);
            for (unsigned c = 0; c < 4; ++c)
                open.push_back(child(node, c));
        }
        const unsigned most = random() % 2 ? 10 : 12000;
        for (const Node & leaf : open)
            if (random() % 3) give(leaf, random() % most);
        batchGeometry(*tree);
        expectRangesOfLeaves();
    }
}

TEST_F(BatchedTree, BatchingTwiceChangesNothing) {
    giveChildren(tree->root(), {3, 0, 6, 9});
    batchGeometry(*tree);
    const int start = child(tree->root(), 3)->content.vertexRangeStart;
    batchGeometry(*tree);
    EXPECT_EQ(child(tree->root(), 3)->content.vertexRangeStart, start);
    EXPECT_EQ(batches(), 1U);
    expectRangesOfLeaves();
}

TEST_F(BatchedTree, IndexedMeshesAreUnrolled) {
    using V = NBX::Vector3Base<double>;
    const SO<NBX::PolygonSet> quad(new NBX::PolygonSet(
        NBX::PolygonSet::PT_Quads,
        new NBX::Array<V>(std::vector<V>{{100, 0, 0}, {101, 0, 0}, {102, 1, 0}, {103, 1, 0}})));
    giveChildren(tree->root(), {3, 0, 3, 0});
    child(tree->root(), 1)->content.triangles = new Mesh(quad.get(), NBX::BufferObjectGL::UP_Static);
    ASSERT_TRUE(child(tree->root(), 1)->content.triangles->indices());
    batchGeometry(*tree);
    EXPECT_EQ(child(tree->root(), 1)->content.numVertices, 6);
    EXPECT_EQ(child(tree->root(), 2)->content.vertexRangeStart, 9);
    expectRangesOfLeaves();
    const std::vector<float> expected = {100, 101, 102, 100, 102, 103};
    EXPECT_EQ(rangeOf(child(tree->root(), 1)), expected);
}

TEST_F(BatchedTree, AttributesThatSomeLeavesLackAreWhiteOrZero) {
    giveChildren(tree->root(), {3, 3, 3, 0});
    const std::uint8_t red[12] = {255, 0, 0, 255, 255, 0, 0, 255, 255, 0, 0, 255};
    const float coordinates[6] = {1, 2, 3, 4, 5, 6};
    const auto data = [&](unsigned i) { return child(tree->root(), i)->content.triangles->data(); };
    data(1)->setBuffer(Data::COLOR_ID, new Buffer(s_byte, 4, 3, red));
    data(2)->setBuffer(Data::TEXCOORD_ID(0), new Buffer(s_float, 2, 3, coordinates));
    batchGeometry(*tree);
    const SO<Data> batch = tree->root()->content.vertexData;
    const auto colors = batch->buffer(Data::COLOR_ID), coords = batch->buffer(Data::TEXCOORD_ID(0));
    ASSERT_TRUE(colors && coords);
    EXPECT_TRUE(batch->isDrawable());
    EXPECT_EQ(colors->value(0, 1), 255.0);
    EXPECT_EQ(colors->value(3, 1), 0.0);
    EXPECT_EQ(colors->value(8, 3), 255.0);
    EXPECT_EQ(coords->value(5, 1), 0.0);
    EXPECT_EQ(coords->value(6, 0), 1.0);
    EXPECT_EQ(coords->value(8, 1), 6.0);
}

TEST_F(BatchedTree, BuffersOfDifferentKindsAreReportedAndLeftOut) {
    const struct {
        unsigned type, components;
        const wchar_t * message;
    } cases[] = {{s_byte, 3, L"all buffers must have equal number of components"},
                 {s_float, 4, L"all buffers must have equal component types"}};
    for (const auto & c : cases) {
        tree = new RenderTree();
        giveChildren(tree->root(), {3, 3, 0, 0});
        child(tree->root(), 0)
            ->content.triangles->data()
            ->setBuffer(Data::COLOR_ID, new Buffer(s_byte, 4, 3));
        child(tree->root(), 1)
            ->content.triangles->data()
            ->setBuffer(Data::COLOR_ID, new Buffer(c.type, c.components, 3));
        batchGeometry(*tree);
        EXPECT_EQ(reports.count(2, L"false", c.message), 1U);
        EXPECT_EQ(reports.size(), 1U);
        reports.clear();
        EXPECT_FALSE(tree->root()->content.vertexData->buffer(Data::COLOR_ID));
        expectRangesOfLeaves();
    }
}

TEST_F(BatchedTree, OtherTypesAndShortBuffersAreLeftOut) {
    giveChildren(tree->root(), {3, 3, 0, 0});
    for (unsigned i = 0; i < 2; ++i) {
        const SO<Data> & data = child(tree->root(), i)->content.triangles->data();
        data->setBuffer(Data::COLOR_ID, new Buffer(s_short, 4, 3));
        data->setBuffer(Data::NORMAL_ID, new Buffer(s_float, 3, i == 0 ? 3 : 2));
    }
    batchGeometry(*tree);
    EXPECT_EQ(tree->root()->content.vertexData->names(), std::vector<NBX::ID>{Data::VERTEX_ID});
}

TEST_F(BatchedTree, ATreeAsDeepAsItLikesIsNoRecursion) {
    Node node = tree->root();
    for (int depth = 0; depth < 100000; ++depth) {
        tree->createChildren(node);
        node = child(node, 0);
    }
    give(node, 3);
    batchGeometry(*tree);
    EXPECT_EQ(tree->root()->content.numVertices, 3);
    EXPECT_EQ(node->content.vertexRangeStart, 0);
    EXPECT_TRUE(tree->root()->content.vertexData);
}

} // namespace
} // namespace ZMT::CORE
