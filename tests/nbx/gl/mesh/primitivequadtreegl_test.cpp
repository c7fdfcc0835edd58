#include <nbx/gl/mesh/primitivequadtreegl.h>

#include <algorithm>
#include <limits>
#include <random>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/mesh/primitivequadtreeareagl.h>
#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/scene/attribute/directionallight.h>

#include "support/glfixture.h"
#include "support/roundtrip.h"

namespace {

using namespace NBX;
using V = Vector3Base<double>;
using Tree = PrimitiveQuadTreeGL;
using Ranges = std::vector<Tree::Range>;

SO<PolygonSet> newSet(std::vector<V> vertices) {
    return new PolygonSet(PolygonSet::PT_Triangles, new Array<V>(std::move(vertices)));
}

/// `side` by `side` squares of length 1 in x and z, each of two triangles that face upwards.
SO<PolygonSet> squares(unsigned side) {
    std::vector<V> vertices;
    for (unsigned z = 0; z < side; ++z)
        for (unsigned x = 0; x < side; ++x) {
            const V a(x, 0, z), b(x, 0, z + 1), c(x + 1, 0, z + 1), d(x + 1, 0, z);
            vertices.insert(vertices.end(), {a, b, c, a, c, d});
        }
    return newSet(std::move(vertices));
}

SO<PolygonSet> randomTriangles(unsigned count, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> place(-100.0, 100.0), size(-5.0, 5.0);
    std::vector<V> vertices;
    for (unsigned i = 0; i < count; ++i) {
        const V center(place(random), place(random), place(random));
        for (unsigned k = 0; k < 3; ++k)
            vertices.push_back(center + V(size(random), size(random), size(random)));
    }
    return newSet(std::move(vertices));
}

unsigned total(const Ranges & ranges) {
    unsigned sum = 0;
    for (const auto & range : ranges)
        sum += range.count;
    return sum;
}

/// The numbers of the triangles of the set, by the first of their vertices.
std::vector<unsigned> numbersIn(const Tree & tree, const Ranges & ranges) {
    std::vector<unsigned> result;
    for (const auto & range : ranges)
        for (unsigned i = range.first; i < range.first + range.count; ++i)
            result.push_back(tree.triangle(i)[0] / 3);
    std::sort(result.begin(), result.end());
    return result;
}

std::vector<unsigned> touching(const PolygonSet & set, const Bounds & area, unsigned second) {
    std::vector<unsigned> result;
    for (unsigned i = 0; i < set.triangles(); ++i) {
        Bounds box;
        for (unsigned k = 0; k < 3; ++k)
            box += V(Vector3Base<float>(set.newVertexIterator()->get(3 * i + k)));
        bool touches = true;
        for (const unsigned axis : {0U, second})
            touches = touches && box.getLLF()[axis] <= float(area.getURB()[axis]) &&
                      float(area.getLLF()[axis]) <= box.getURB()[axis];
        if (touches) result.push_back(i);
    }
    return result;
}

class PrimitiveQuadTreeGLTest : public GLFixture {
protected:
    /// One letter for each of eight columns of the picture's middle line.
    std::string columns() {
        const SO<Image> image = draw();
        std::string result;
        for (int x = 4; x < 64; x += 8) {
            const auto p = pixel(image, x, 32);
            result += p[0] && p[1] && p[2] ? 'w' : p[0] ? 'r' : p[1] ? 'g' : p[2] ? 'b' : '.';
        }
        return result;
    }
    /// Eight squares in x and y that fill the picture from left to right.
    static SO<PolygonSet> stripes() {
        std::vector<V> vertices;
        for (unsigned i = 0; i < 8; ++i) {
            const double x = i / 4.0 - 1.0;
            const V a(x, -1, 0), b(x + 0.25, -1, 0), c(x + 0.25, 1, 0), d(x, 1, 0);
            vertices.insert(vertices.end(), {a, b, c, a, c, d});
        }
        return newSet(std::move(vertices));
    }
};

TEST(PrimitiveQuadTree, WithoutLevelsThereIsOneLeaf) {
    const SO<Tree> tree(new Tree(0, squares(4), Bounds(), true));
    EXPECT_EQ(1U, tree->leaves());
    EXPECT_EQ(32U, tree->triangles());
    EXPECT_EQ(Bounds({0, 0, 0}, {4, 0, 4}), tree->boundingBox());
}

TEST(PrimitiveQuadTree, EveryLevelHasFourTimesAsManyLeaves) {
    unsigned leaves = 1;
    for (unsigned levels = 0; levels < 4; ++levels, leaves *= 4)
        EXPECT_EQ(leaves, SO<Tree>(new Tree(levels, squares(8), Bounds(), true))->leaves());
}

TEST(PrimitiveQuadTree, AnEmptySetGivesAnEmptyTree) {
    const SO<Tree> tree(new Tree(3, new PolygonSet, Bounds(), true));
    EXPECT_FALSE(tree->boundingBox().isDefined());
    EXPECT_EQ(0U, tree->triangles() + tree->leaves());
    EXPECT_TRUE(tree->rangesIn(Bounds({-1, -1, -1}, {1, 1, 1})).empty());
}

TEST(PrimitiveQuadTree, NoSetAndTooManyLevelsAreReported) {
    RecordedReports reports;
    EXPECT_EQ(0U, SO<Tree>(new Tree(0, nullptr, Bounds(), true))->triangles());
    EXPECT_EQ(1U, reports.size());
    EXPECT_EQ(Tree::maxLevels, SO<Tree>(new Tree(99, squares(2), Bounds(), true))->levels());
    EXPECT_EQ(2U, reports.size());
}

TEST(PrimitiveQuadTree, TrianglesThatAreNoneAreLeftOut) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double bad : {nan, 1e300, -std::numeric_limits<double>::infinity()}) {
        const SO<Tree> tree(
            new Tree(2, newSet({V(0, 0, 0), V(0, 0, 1), V(1, 0, 1), V(0, 0, 0), V(0, bad, 1), V(1, 0, 1)}),
                     Bounds(), true));
        EXPECT_EQ(1U, tree->triangles());
    }
    const SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_Triangles, new Array<V>(std::vector<V>(3)),
                                            new Array<unsigned>(std::vector<unsigned>{0, 1, 2, 0, 1, 3})));
    EXPECT_EQ(1U, SO<Tree>(new Tree(0, set, Bounds(), true))->triangles());
}

TEST(PrimitiveQuadTree, TrianglesInOnePlaceShareALeaf) {
    const SO<Tree> tree(new Tree(15, newSet(std::vector<V>(300)), Bounds(), true));
    EXPECT_EQ(1U, tree->leaves());
    EXPECT_EQ(100U, tree->triangles());
    EXPECT_EQ((Ranges{{0, 100}}), tree->rangesIn(Bounds({-1, -1, -1}, {0, 0, 0})));
}

TEST(PrimitiveQuadTree, AGivenBoxIsSplit) {
    // In the lower left quarter of the box everything is one cell.
    const SO<Tree> tree(new Tree(1, squares(4), Bounds({0, 0, 0}, {8, 0, 8}), true));
    EXPECT_EQ(1U, tree->leaves());
    EXPECT_EQ(Bounds({0, 0, 0}, {4, 0, 4}), tree->boundingBox());
    EXPECT_EQ(4U, SO<Tree>(new Tree(1, squares(4), Bounds({1, 0, 1}, {3, 0, 3}), true))->leaves());
}

/// As a file may hold them.
TEST(PrimitiveQuadTree, BoxesOfAnyKindLoseNoTriangle) {
    const double infinity = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double low : {-infinity, -1e300, nan, 2.0})
        for (const double high : {infinity, 1e300, nan, 2.0}) {
            const SO<Tree> tree(new Tree(3, squares(4), Bounds({low, low, low}, {high, high, high}), true));
            EXPECT_EQ(Bounds({0, 0, 0}, {4, 0, 4}), tree->boundingBox()) << low << " " << high;
            EXPECT_EQ((Ranges{{0, 32}}), tree->rangesIn(Bounds({0, 0, 0}, {4, 0, 4}))) << low << " " << high;
            EXPECT_EQ(8U, total(tree->rangesIn(Bounds({1, 0, 1}, {1, 0, 1})))) << low << " " << high;
        }
}

TEST(PrimitiveQuadTree, TouchingCountsAsInside) {
    const SO<Tree> tree(new Tree(2, squares(4), Bounds(), true));
    EXPECT_EQ(8U, total(tree->rangesIn(Bounds({1, 0, 1}, {1, 0, 1}))));
    EXPECT_EQ(2U, total(tree->rangesIn(Bounds({0.5, 0, 0.5}, {0.5, 0, 0.5}))));
    EXPECT_EQ(2U, total(tree->rangesIn(Bounds({4, 0, 4}, {9, 0, 9}))));
    EXPECT_EQ(0U, total(tree->rangesIn(Bounds({4.1, 0, 4.1}, {9, 0, 9}))));
    EXPECT_EQ(0U, total(tree->rangesIn(Bounds())));
}

TEST(PrimitiveQuadTree, HeightsPlayNoPart) {
    const SO<Tree> tree(new Tree(2, squares(4), Bounds(), true));
    EXPECT_EQ((Ranges{{0, 32}}), tree->rangesIn(Bounds({-1, 50, -1}, {5, 60, 5})));
}

TEST(PrimitiveQuadTree, EveryAreaHasExactlyTheTrianglesThatTouchIt) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> place(-110.0, 110.0);
    for (const bool horizontal : {true, false})
        for (unsigned levels = 0; levels < 7; ++levels) {
            const SO<PolygonSet> set = randomTriangles(500, seed + levels);
            const SO<Tree> tree(new Tree(levels, set, Bounds(), horizontal));
            ASSERT_EQ(500U, tree->triangles());
            for (unsigned i = 0; i < 50; ++i) {
                const Bounds area(V(place(random), place(random), place(random)),
                                  V(place(random), place(random), place(random)));
                const Ranges ranges = tree->rangesIn(area);
                EXPECT_EQ(touching(*set, area, horizontal ? 2 : 1), numbersIn(*tree, ranges));
                for (std::size_t k = 1; k < ranges.size(); ++k)
                    EXPECT_LT(ranges[k - 1].first + ranges[k - 1].count, ranges[k].first);
            }
        }
}

TEST(PrimitiveQuadTree, IsStored) {
    const SO<Tree> tree(new Tree(3, squares(4), Bounds({0, 0, 0}, {8, 1, 8}), false));
    const SO<Tree> copy = roundTrip(tree);
    ASSERT_TRUE(copy);
    EXPECT_EQ(3U, copy->levels());
    EXPECT_FALSE(copy->isHorizontal());
    EXPECT_EQ(tree->boundingBox(), copy->boundingBox());
    EXPECT_EQ(tree->leaves(), copy->leaves());
    EXPECT_EQ(32U, copy->triangles());
    const SO<Tree> empty = roundTrip(SO<Tree>(new Tree(0, new PolygonSet, Bounds(), true)));
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->isHorizontal());
}

TEST_F(PrimitiveQuadTreeGLTest, PaintsEverythingWithoutAnArea) {
    root->append(new Tree(2, stripes(), Bounds(), false));
    EXPECT_EQ("wwwwwwww", columns());
}

TEST_F(PrimitiveQuadTreeGLTest, PaintsWhatTouchesTheArea) {
    root->append(new PrimitiveQuadTreeAreaGL(Bounds({-0.6, -1, 0}, {0.1, 1, 0})));
    root->append(new Tree(2, stripes(), Bounds(), false));
    EXPECT_EQ(".wwww...", columns());
}

TEST_F(PrimitiveQuadTreeGLTest, LeavesTheStateAsItWas) {
    canvas->prepareRedisplay();
    const SO<Tree> tree(new Tree(2, stripes(), Bounds(), false));
    const std::vector<int> before = stateOfGL();
    engine->paint(tree.get());
    EXPECT_EQ(before, stateOfGL());
    canvas->finishRedisplay();
}

TEST_F(PrimitiveQuadTreeGLTest, FreesItsBuffers) {
    const Names before = countNames();
    SO<Tree> tree(new Tree(2, stripes(), Bounds(), false));
    root->append(tree.get());
    draw();
    EXPECT_EQ(before.buffers + 2, countNames().buffers);
    root->clear();
    tree = nullptr;
    EXPECT_EQ(before.buffers, countNames().buffers);
}

TEST_F(PrimitiveQuadTreeGLTest, UsesTheAttributesOfTheVertices) {
    const SO<PolygonSet> set = stripes();
    std::vector<Color> colors(48, Color(1.0F, 0.0F, 0.0F));
    std::fill(colors.begin() + 24, colors.end(), Color(0.0F, 0.0F, 1.0F));
    set->setColorIterator(new Array<Color>(std::move(colors)));
    root->append(new Tree(1, set, Bounds(), false));
    EXPECT_EQ("rrrrbbbb", columns());

    // A light from the viewer lights the left half alone.
    root->clear();
    set->setColorIterator(nullptr);
    std::vector<V> normals(48, V(0, 0, 1));
    std::fill(normals.begin() + 24, normals.end(), V(0, 0, -1));
    set->setNormalIterator(new Array<V>(std::move(normals)));
    root->append(new LightModelGL(3, Color::black));
    root->append(new DirectionalLight({0, 0, -1}, Color::white, Color::black, Color::black));
    root->append(new Tree(1, set, Bounds(), false));
    EXPECT_EQ("wwww....", columns());
}

TEST_F(PrimitiveQuadTreeGLTest, AttributesThatAreTooFewAreNotUsed) {
    const SO<PolygonSet> set = stripes();
    set->setColorIterator(new Array<Color>(std::vector<Color>(3, Color::black)));
    root->append(new Tree(1, set, Bounds(), false));
    EXPECT_EQ("wwwwwwww", columns());
}

TEST_F(PrimitiveQuadTreeGLTest, RangesBeyondTheTrianglesAreReported) {
    canvas->prepareRedisplay();
    const SO<Tree> tree(new Tree(1, stripes(), Bounds(), false));
    tree->draw(engine.get(), {{0, 17}, {17, 0}, {4000000000U, 4000000000U}});
    EXPECT_EQ(3U, reports.size());
    reports.clear();
    canvas->finishRedisplay();
}

} // namespace
