#include "core/texturedtriangles/texturedtriangletree_impl/atlastreegenerator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <numeric>
#include <set>

#include <nbx/data/file.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/image/atlas/textureatlascreator.h>
#include <nbx/image/pngwriter.h>
#include <nbx/math/color.h>
#include <nbx/object/stringutils.h>
#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>

#include "core/texturedtriangles/texturedtriangletree_impl/texturesizecalculator.h"
#include "trianglemeshes.h"

namespace {

using namespace NBX;
using namespace TriangleMeshes;
using ZMT::CORE::TexturedTriangleTree;
using ZMT::CORE::TriangleContainer;
using Generator = ZMT::CORE::AtlasTreeGenerator;
using AtlasTree = Generator::AtlasTree;
using AtlasNode = AtlasTree::NodePointer;
using TriangleID = Generator::TriangleID;
using IDs = std::vector<TriangleID>;

/// A view of 90 degrees is 200 units wide there: with 200 pixels, one unit is a texel.
constexpr double s_viewDistance = 100.0, s_viewAngle = 90.0;
constexpr int s_viewPixels = 200;

SO<TriangleContainer> containerOf(const std::vector<Mesh> & meshes) {
    return new TriangleContainer(meshesOf(meshes));
}

SO<AtlasTree> treeOf(const SO<TriangleContainer> & container, int atlasSize, double quality = 1.0) {
    return Generator::createAtlasTree(container, s_viewDistance, s_viewAngle, s_viewPixels, quality,
                                      atlasSize, nullptr);
}

SO<Generator::Triangles> sequenceOf(const IDs & ids) {
    return new NonPersistentArray<TriangleID>(ids);
}

IDs listOf(const SO<Generator::Triangles> & triangles) {
    IDs result;
    for (unsigned i = 0; triangles && i < triangles->size(); ++i)
        result.push_back(triangles->get(i));
    return result;
}

IDs idsOf(const TriangleContainer & container) {
    IDs ids;
    for (unsigned mesh = 0; mesh < container.numberOfMeshes(); ++mesh)
        for (unsigned i = 0; i < container.numberOfTriangles(mesh); ++i)
            ids.push_back({int(mesh), int(i)});
    return ids;
}

bool fits(const SO<TriangleContainer> & container, const IDs & ids, int atlasSize) {
    return Generator::fits(sequenceOf(ids), container, s_viewDistance, s_viewAngle, s_viewPixels, 1.0,
                           atlasSize);
}

void forEachNode(const SO<AtlasTree> & tree, const std::function<void(const AtlasNode &)> & visit) {
    std::vector<AtlasNode> waiting{tree->root()};
    while (!waiting.empty()) {
        const AtlasNode node = waiting.back();
        waiting.pop_back();
        visit(node);
        for (unsigned i = 0; tree->hasChildren(node) && i < 4; ++i)
            waiting.push_back(tree->child(node, i));
    }
}

/// Squares of two triangles, each with a texture of its own over it, at (x, y).
Mesh square(double x, double y, double size) {
    const V a(x, y, 0), b(x + size, y, 0), c(x + size, y + size, 0), d(x, y + size, 0);
    const V s(0, 0, 0), t(1, 0, 0), u(1, 1, 0), v(0, 1, 0);
    return {wrapper(), setOf({a, b, c, a, c, d}, {s, t, u, s, u, v})};
}

// --- areas and fit

TEST(AtlasTreeGenerator, AreasAreComparedWithThatOfTheAtlas) {
    const SO<TriangleContainer> container = containerOf({square(0, 0, 10), square(0, 0, 10)});
    const IDs ids = idsOf(*container); // 200 square units
    const auto areaFits = [&](double unitsPerTexel, int atlasSize) {
        return Generator::areaFits(*sequenceOf(ids), *container, unitsPerTexel, atlasSize);
    };
    EXPECT_TRUE(areaFits(std::sqrt(2.0) * (1.0 + 1e-12), 10));
    EXPECT_FALSE(areaFits(std::sqrt(2.0) * (1.0 - 1e-12), 10));
    EXPECT_TRUE(areaFits(1.0, 15));
    EXPECT_FALSE(areaFits(1.0, 14));
    EXPECT_TRUE(areaFits(0.5, 29)) << "the units are squared";
    EXPECT_FALSE(areaFits(0.5, 28));
}

TEST(AtlasTreeGenerator, OneTriangleAlwaysFits) {
    const SO<TriangleContainer> container = containerOf({square(0, 0, 1e9)});
    EXPECT_TRUE(fits(container, {{0, 0}}, 64));
    EXPECT_TRUE(fits(container, {}, 64));
    EXPECT_FALSE(fits(container, {{0, 0}, {0, 1}}, 64));
    const SO<AtlasTree> tree = treeOf(container, 64);
    unsigned leaves = 0;
    forEachNode(tree, [&](const AtlasNode & node) { leaves += node->content.imageFile == L"done"; });
    EXPECT_EQ(leaves, 2U);
}

TEST(AtlasTreeGenerator, TexturesHaveToFindRoomWithTheirBorders) {
    // 10 by 10 texels and borders of 8: 26 by 26 each.
    const SO<TriangleContainer> container =
        containerOf({square(0, 0, 10), square(20, 0, 10), square(40, 0, 10)});
    const IDs ids = idsOf(*container);
    EXPECT_TRUE(fits(container, ids, 52));
    EXPECT_FALSE(fits(container, ids, 51));
    EXPECT_TRUE(fits(container, {{0, 0}, {0, 1}}, 26));
    EXPECT_TRUE(fits(container, {{0, 0}, {0, 1}}, 25)) << "one that is too large is reduced";
}

// --- quadrisection

/// The division told in the plainest way: sums from scratch for each place.
std::array<IDs, 4> plainQuadrisection(const IDs & ids, const TriangleContainer & container, unsigned axis0,
                                      unsigned axis1) {
    const auto center = [&](const TriangleID & id, unsigned axis) {
        const auto p = container.triangle(id).vertices;
        return ((p[0] + p[1] + p[2]) / 3.0)[axis];
    };
    const auto sorted = [&](IDs list, unsigned axis) {
        std::stable_sort(list.begin(), list.end(), [&](const TriangleID & a, const TriangleID & b) {
            return center(a, axis) < center(b, axis);
        });
        return list;
    };
    const auto areaOfFirst = [&](const IDs & list, std::size_t count) {
        double sum = 0.0;
        for (std::size_t i = 0; i < count; ++i)
            sum += container.area(list[i]);
        return sum;
    };
    const auto half = [&](const IDs & list) {
        const double total = areaOfFirst(list, list.size());
        std::size_t count = 0;
        while (count < list.size()) {
            ++count;
            if (areaOfFirst(list, count) >= total / 2.0) break;
        }
        if (count == 0) return count;
        const double sum = areaOfFirst(list, count), last = container.area(list[count - 1]);
        if ((total - last) - sum <= sum - last) --count;
        return count;
    };
    const IDs alongFirst = sorted(ids, axis0);
    const std::size_t m = half(alongFirst);
    const IDs left = sorted(IDs(alongFirst.begin(), alongFirst.begin() + std::ptrdiff_t(m)), axis1);
    const IDs right = sorted(IDs(alongFirst.begin() + std::ptrdiff_t(m), alongFirst.end()), axis1);
    std::array<std::size_t, 5> borders = {0, half(left), m, m + half(right), ids.size()};
    unsigned groups = 0;
    for (unsigned i = 0; i < 4; ++i)
        groups += borders[i + 1] > borders[i];
    if (groups < 2) borders = {0, ids.size() / 4, ids.size() / 2, 3 * ids.size() / 4, ids.size()};
    IDs all = left;
    all.insert(all.end(), right.begin(), right.end());
    std::array<IDs, 4> result;
    for (unsigned i = 0; i < 4; ++i) {
        result[i] =
            IDs(all.begin() + std::ptrdiff_t(borders[i]), all.begin() + std::ptrdiff_t(borders[i + 1]));
        std::sort(result[i].begin(), result[i].end());
    }
    return result;
}

std::array<IDs, 4> quadrisection(const IDs & ids, const TriangleContainer & container, unsigned axis1 = 1) {
    const auto groups = Generator::quadrisect(*sequenceOf(ids), container, 0, axis1);
    return {listOf(groups[0]), listOf(groups[1]), listOf(groups[2]), listOf(groups[3])};
}

TEST(AtlasTreeGenerator, QuadrisectionEqualsThePlainOne) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (unsigned round = 0; round < 300; ++round) {
        const SO<TriangleContainer> container =
            containerOf({randomMesh(random, random() % 40), randomMesh(random, random() % 3)});
        const IDs ids = idsOf(*container);
        for (const unsigned axis : {1U, 2U}) {
            EXPECT_EQ(quadrisection(ids, *container, axis), plainQuadrisection(ids, *container, 0, axis));
        }
    }
}

TEST(AtlasTreeGenerator, QuadrisectionDividesNearHalfOfTheArea) {
    std::vector<Mesh> meshes;
    for (unsigned i = 0; i < 16; ++i)
        meshes.push_back(square(20 * (i % 4), 20 * (i / 4), 10));
    const SO<TriangleContainer> container = containerOf(meshes);
    std::size_t count = 0;
    for (const IDs & group : quadrisection(idsOf(*container), *container)) {
        EXPECT_GE(group.size(), 5U);
        EXPECT_LE(group.size(), 12U);
        EXPECT_TRUE(std::is_sorted(group.begin(), group.end()));
        count += group.size();
    }
    EXPECT_EQ(count, 32U);
}

TEST(AtlasTreeGenerator, EqualCentersDivideIntoFourEqualCounts) {
    Vectors vertices, texCoords;
    for (unsigned i = 0; i < 20; ++i) {
        vertices.insert(vertices.end(), {V(0, 0, 0), V(3, 0, 0), V(0, 3, 0)});
        texCoords.insert(texCoords.end(), {V(0, 0, 0), V(1, 0, 0), V(0, 1, 0)});
    }
    const SO<TriangleContainer> container = containerOf({{wrapper(), setOf(vertices, texCoords)}});
    // Areas divide these still.
    for (const IDs & group : quadrisection(idsOf(*container), *container))
        EXPECT_GE(group.size(), 4U);
    const SO<TriangleContainer> points =
        containerOf({{wrapper(), setOf(Vectors(60, V(1, 1, 1)), Vectors(60, V()))}});
    for (const IDs & group : quadrisection(idsOf(*points), *points))
        EXPECT_EQ(group.size(), 5U);
}

TEST(AtlasTreeGenerator, OneLargeTriangleAmongSmallOnesIsDivided) {
    for (const double at : {-100.0, 0.0, 100.0}) {
        std::vector<Mesh> meshes{square(at, at, 50)};
        for (unsigned i = 0; i < 10; ++i)
            meshes.push_back(square(i, i, 0.1));
        const SO<TriangleContainer> container = containerOf(meshes);
        unsigned groups = 0;
        for (const IDs & group : quadrisection(idsOf(*container), *container))
            groups += !group.empty();
        EXPECT_GE(groups, 2U);
    }
}

TEST(AtlasTreeGenerator, SmallAndEmptyListsAreDivided) {
    const SO<TriangleContainer> container = containerOf({square(0, 0, 1)});
    const auto two = quadrisection(idsOf(*container), *container);
    EXPECT_EQ(std::count_if(two.begin(), two.end(), [](const IDs & group) { return group.size() == 1; }), 2);
    for (const IDs & group : quadrisection({}, *container))
        EXPECT_TRUE(group.empty());
}

// --- the tree

TEST(AtlasTreeGenerator, SpansXAndTheLargerOfYAndZ) {
    const auto treeOver = [](const V & to) {
        return treeOf(containerOf({{wrapper(), setOf({V(1, 2, 3), to, V(1, 2, 3)}, Vectors(3))}}), 64);
    };
    SO<AtlasTree> tree = treeOver(V(11, 5, 5));
    EXPECT_EQ(tree->axis(0), 0U);
    EXPECT_EQ(tree->axis(1), 1U) << "3 against 2";
    EXPECT_EQ(tree->minimum(0), 1.0);
    EXPECT_EQ(tree->maximum(0), 11.0);
    EXPECT_EQ(tree->minimum(1), 2.0);
    EXPECT_EQ(tree->maximum(1), 5.0);
    tree = treeOver(V(11, 4, 6));
    EXPECT_EQ(tree->axis(1), 2U);
    EXPECT_EQ(tree->maximum(1), 6.0);
    EXPECT_EQ(treeOver(V(11, 5, 6))->axis(1), 1U) << "y wins a tie";
    tree = treeOver(V(1, 2, 3));
    EXPECT_EQ(tree->maximum(0), 1.01);
    EXPECT_EQ(tree->maximum(1), 2.01);
    EXPECT_EQ(treeOver(V(1 + 2e-10, 9, 3))->maximum(0), 1 + 2e-10);
}

TEST(AtlasTreeGenerator, WhatFitsIsOneLeaf) {
    const SO<TriangleContainer> container = containerOf({square(0, 0, 10), square(20, 0, 10)});
    const SO<AtlasTree> tree = treeOf(container, 64);
    EXPECT_EQ(tree->numberOfNodes(), 1U);
    EXPECT_EQ(tree->root()->content.imageFile, L"done");
    EXPECT_EQ(listOf(tree->root()->content.triangles), idsOf(*container));
}

TEST(AtlasTreeGenerator, WithoutTrianglesThereIsTheRootAlone) {
    RecordedReports reports;
    SO<AtlasTree> tree = treeOf(containerOf({}), 64);
    EXPECT_EQ(tree->numberOfNodes(), 1U);
    EXPECT_EQ(tree->root()->content.imageFile, L"");
    EXPECT_TRUE(reports.empty()) << reports;
    tree = treeOf(nullptr, 64);
    EXPECT_EQ(tree->numberOfNodes(), 1U);
    EXPECT_EQ(reports.count(0, L"container", L"no triangles"), 1U) << reports;
}

/// Three squares fit into an atlas, five do not: siblings are taken in as long as there is room.
TEST(AtlasTreeGenerator, FinishedSiblingsAreTakenInWhereAllFit) {
    std::vector<Mesh> meshes;
    for (unsigned i = 0; i < 5; ++i)
        meshes.push_back(square(30.0 * i, 0, 10));
    const SO<TriangleContainer> container = containerOf(meshes);
    const SO<AtlasTree> tree = treeOf(container, 52);
    ASSERT_TRUE(tree->hasChildren(tree->root()));
    EXPECT_FALSE(tree->root()->content.triangles);
    unsigned done = 0, absorbed = 0;
    for (unsigned i = 0; i < 4; ++i) {
        const Generator::AtlasNode & content = tree->child(tree->root(), i)->content;
        if (content.imageFile == L"done")
            ++done;
        else
            absorbed += !content.triangles;
    }
    EXPECT_EQ(done, 2U);
    EXPECT_EQ(absorbed, 2U);
}

/// The laws of the class, on seeded meshes, and what the merging promises.
TEST(AtlasTreeGenerator, EveryTriangleStandsInOneLeafThatFits) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (unsigned round = 0; round < 30; ++round) {
        std::vector<Mesh> meshes;
        for (unsigned i = 0; i < 8; ++i)
            meshes.push_back(randomMesh(random, 1 + random() % 60));
        const SO<TriangleContainer> container = containerOf(meshes);
        const int atlasSize = 64 << random() % 3;
        const SO<AtlasTree> tree = treeOf(container, atlasSize);
        IDs found;
        forEachNode(tree, [&](const AtlasNode & node) {
            const Generator::AtlasNode & content = node->content;
            const IDs ids = listOf(content.triangles);
            if (tree->hasChildren(node)) {
                EXPECT_FALSE(content.triangles);
                EXPECT_EQ(content.imageFile, L"");
                return;
            }
            EXPECT_EQ(content.imageFile, ids.empty() ? L"" : L"done");
            EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
            EXPECT_TRUE(fits(container, ids, atlasSize));
            found.insert(found.end(), ids.begin(), ids.end());
        });
        std::sort(found.begin(), found.end());
        EXPECT_EQ(found, idsOf(*container));
        // The same again gives the same tree.
        const SO<AtlasTree> again = treeOf(container, atlasSize);
        ASSERT_EQ(again->numberOfNodes(), tree->numberOfNodes());
        std::vector<IDs> first, second;
        forEachNode(tree, [&](const AtlasNode & node) { first.push_back(listOf(node->content.triangles)); });
        forEachNode(again,
                    [&](const AtlasNode & node) { second.push_back(listOf(node->content.triangles)); });
        EXPECT_EQ(first, second);
    }
}

/// While it lives, triangles get texels of their own.
class UniqueParameterization {
public:
    UniqueParameterization() { TexturedTriangleTree::enforceUniqueTextureParameterization(true); }
    ~UniqueParameterization() { TexturedTriangleTree::enforceUniqueTextureParameterization(false); }
};

/// Four squares under one texture: 26 by 26 texels with borders for all, or for each.
TEST(AtlasTreeGenerator, TexelsOfTheirOwnNeedMoreRoom) {
    Vectors vertices, texCoords;
    for (unsigned i = 0; i < 4; ++i) {
        const Mesh one = square(100.0 * i, 0, 10);
        for (const V & vertex : valuesOf(one.geometry->newVertexIterator()))
            vertices.push_back(vertex);
        for (const V & coordinate : valuesOf(one.geometry->newTextureIterator(0)))
            texCoords.push_back(coordinate);
    }
    const SO<TriangleContainer> container = containerOf({{wrapper(), setOf(vertices, texCoords)}});
    const IDs ids = idsOf(*container);
    EXPECT_TRUE(fits(container, ids, 40));
    const UniqueParameterization unique;
    EXPECT_FALSE(fits(container, ids, 40));
    EXPECT_TRUE(fits(container, ids, 60));
    EXPECT_TRUE(fits(container, {{0, 0}}, 40));
}

TEST(AtlasTreeGenerator, EveryTriangleWithTexelsOfItsOwnStandsInOneLeafThatFits) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const UniqueParameterization unique;
    for (unsigned round = 0; round < 5; ++round) {
        const SO<TriangleContainer> container =
            containerOf({randomMesh(random, 1 + random() % 60), randomMesh(random, 40)});
        const SO<AtlasTree> tree = treeOf(container, 128);
        IDs found;
        forEachNode(tree, [&](const AtlasNode & node) {
            const IDs ids = listOf(node->content.triangles);
            EXPECT_TRUE(fits(container, ids, 128));
            found.insert(found.end(), ids.begin(), ids.end());
        });
        std::sort(found.begin(), found.end());
        EXPECT_EQ(found, idsOf(*container));
    }
}

TEST(AtlasTreeGenerator, TrianglesWithoutAreaNeedNoTexelsOfTheirOwn) {
    const UniqueParameterization unique;
    const SO<TriangleContainer> container =
        containerOf({{wrapper(), setOf(Vectors(9000, V(1, 1, 1)), Vectors(9000))}});
    EXPECT_EQ(treeOf(container, 64)->numberOfNodes(), 1U);
}

TEST(AtlasTreeGenerator, DegenerateAndHugeTrianglesComeToAnEnd) {
    for (const double size : {0.0, 1e-200, 1e160, 1e300}) {
        Vectors vertices, texCoords;
        for (unsigned i = 0; i < 300; ++i) {
            vertices.insert(vertices.end(), {V(0, 0, 0), V(size, 0, 0), V(0, size, 0)});
            texCoords.insert(texCoords.end(), {V(i, 0, 0), V(i + 1.0, 0, 0), V(i, 1, 0)});
        }
        const SO<TriangleContainer> container = containerOf({{wrapper(), setOf(vertices, texCoords)}});
        std::size_t found = 0;
        const SO<AtlasTree> tree = treeOf(container, 64);
        forEachNode(tree, [&](const AtlasNode & node) { found += listOf(node->content.triangles).size(); });
        EXPECT_EQ(found, 300U) << size;
    }
}

TEST(AtlasTreeGenerator, AMillionTrianglesAreDividedInTime) {
    constexpr unsigned side = 500; // 1000 meshes of 500 squares
    std::vector<Mesh> meshes;
    for (unsigned i = 0; i < 1000; ++i) {
        Vectors vertices, texCoords;
        for (unsigned k = 0; k < side; ++k) {
            const V at(10.0 * i, 10.0 * k, i % 7);
            vertices.insert(vertices.end(),
                            {at, at + V(5, 0, 0), at + V(5, 5, 0), at, at + V(5, 5, 0), at + V(0, 5, 0)});
            texCoords.insert(texCoords.end(),
                             {V(0, 0, 0), V(1, 0, 0), V(1, 1, 0), V(0, 0, 0), V(1, 1, 0), V(0, 1, 0)});
        }
        meshes.push_back({wrapper(), setOf(vertices, texCoords)});
    }
    const SO<TriangleContainer> container = containerOf(meshes);
    const auto begin = std::chrono::steady_clock::now();
    const SO<AtlasTree> tree = treeOf(container, 1024);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    EXPECT_GT(tree->numberOfNodes(), 10U);
    EXPECT_LT(seconds, 60.0) << "a quadratic walk takes hours";
    RecordProperty("seconds", std::to_string(seconds));
}

TEST(AtlasTreeGenerator, TellsItsNodesWhenItIsVerbose) {
    std::vector<Mesh> meshes;
    for (unsigned i = 0; i < 5; ++i)
        meshes.push_back(square(30.0 * i, 0, 10));
    const SO<TriangleContainer> container = containerOf(meshes);
    testing::internal::CaptureStdout();
    treeOf(container, 52);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    TexturedTriangleTree::setVerbose(true);
    testing::internal::CaptureStdout();
    treeOf(container, 52);
    TexturedTriangleTree::setVerbose(false);
    const std::string blanks(19, ' ');
    std::string expected = "\tComputing tree...\n\r\t\tNode: " + blanks;
    for (const char * child : {"0", "1", "2", "3"})
        expected += "\r\t\tNode: " + std::string(child) + blanks;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), expected + "\n");
}

TEST(AtlasTreeGenerator, NodesHaveNoStoredForm) {
    RecordedReports reports;
    const SO<AtlasTree> tree = treeOf(containerOf({}), 64);
    RecordedAttributes::of(*tree);
    EXPECT_EQ(reports.count(3, L"L\"Not implemented\"", L"Atlasnodes need not to be serialized"), 1U)
        << reports;
}

// --- images of inner nodes

SO<Image> imageOf(const Color & color, int size = 8, LayerSequence sequence = LS_RGB) {
    const SO<Image> image(new MemoryImage(size, size, sequence));
    for (int i = 0; i < size * size; ++i)
        image->setColor(i % size, i / size, color);
    return image;
}

TEST(CombineImages, ChildrenLieInTheirQuarters) {
    const SO<Image> image = Generator::combineImages(
        {imageOf(Color::red), imageOf(Color::green, 16), imageOf(Color::blue, 2), imageOf(Color::white)}, 8);
    EXPECT_EQ(image->width(), 8);
    EXPECT_EQ(image->height(), 8);
    EXPECT_EQ(image->layerSequence(), LS_RGB);
    for (int i = 0; i < 64; ++i) {
        const int x = i % 8, y = i / 8;
        const Color expected[] = {Color::red, Color::green, Color::blue, Color::white};
        EXPECT_EQ(image->getColor(x, y), expected[x / 4 + y / 4 * 2]) << x << ", " << y;
    }
}

TEST(CombineImages, TexelsAreMeansOfFour) {
    const SO<Image> child = imageOf(Color::black, 4, LS_Luminance);
    child->setColor(0, 0, Color::white);
    const SO<Image> image = Generator::combineImages({child, nullptr, nullptr, nullptr}, 4);
    EXPECT_EQ(image->layerSequence(), LS_Luminance);
    EXPECT_NEAR(image->getColor(0, 0)[0], 0.25F, 0.003F);
    EXPECT_EQ(image->getColor(1, 0)[0], 0.0F);
}

TEST(CombineImages, MissingChildrenLeaveTheirQuarterBlank) {
    const SO<Image> image = Generator::combineImages(
        {nullptr, imageOf(Color::red, 8, LS_RGBA), nullptr, imageOf(Color::blue)}, 8);
    EXPECT_EQ(image->layerSequence(), LS_RGBA) << "images of several kinds";
    EXPECT_EQ(image->getColor(0, 0), Color(0.0F, 0.0F, 0.0F, 0.0F));
    EXPECT_EQ(image->getColor(5, 0), Color::red);
    EXPECT_EQ(image->getColor(7, 7), Color::blue);
    EXPECT_EQ(Generator::combineImages({}, 8)->getColor(4, 4), Color(0.0F, 0.0F, 0.0F, 0.0F));
}

TEST(CombineAtlases, ReadsTheNamedImages) {
    const TemporaryFolder folder;
    const auto fileOf = [](const Color & color) {
        const std::string path = File::temporaryFileName("atlas-") + ".png";
        const SO<MemoryDataResource> data = PNGWriter().write(imageOf(color).get());
        std::ofstream(path, std::ios::binary)
            .write(static_cast<const char *>(data->pointer()), std::streamsize(data->size()));
        return StringUtils::Utf8String2WString(path);
    };
    RecordedReports reports;
    const SO<Image> image =
        Generator::combineAtlases(fileOf(Color::red), L"", fileOf(Color::blue), fileOf(Color::green), 8);
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_EQ(image->getColor(1, 1), Color::red);
    EXPECT_EQ(image->getColor(6, 1), Color::black);
    EXPECT_EQ(image->getColor(1, 6), Color::blue);
    EXPECT_EQ(image->getColor(6, 6), Color::green);
    Generator::combineAtlases(L"nowhere.png", L"", L"", L"", 8);
    EXPECT_EQ(reports.size(), 1U) << reports;
}

} // namespace
