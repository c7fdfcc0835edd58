#include <nbx/scene/shape/polygonsettool.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include <nbx/container/sequence/array.h>
#include <nbx/container/sequence/constantiterator.h>
#include <nbx/scene/shape/polygonset.h>
#include <support/recordedreports.h>

namespace {

using namespace NBX;
using V = Vector3Base<double>;
using Triangle = std::array<unsigned, 3>;
using Sets = std::vector<SO<PolygonSet>>;

SO<PolygonSet::Vertices> vectors(std::vector<V> values) {
    return new Array<V>(std::move(values));
}

SO<PolygonSet::Indices> numbers(std::vector<unsigned> values) {
    return new Array<unsigned>(std::move(values));
}

/// Vertex i is (first + i, (first + i)^2, 0), so that no three lie on a line.
SO<PolygonSet::Vertices> points(unsigned n, unsigned first = 0) {
    std::vector<V> values;
    for (unsigned i = first; i < first + n; ++i)
        values.emplace_back(i, double(i) * i, 0.0);
    return vectors(std::move(values));
}

/// A triangle as the x of its corners, beginning with the least, in the direction in which it turns.
std::vector<Triangle> trianglesOf(const PolygonSet & set) {
    std::vector<Triangle> result;
    Triangle t{};
    for (unsigned i = 0; i < set.triangles(); ++i) {
        if (!set.triangle(i, t)) continue;
        for (unsigned & corner : t)
            corner = static_cast<unsigned>(set.newVertexIterator()->get(corner).x);
        if (t[0] == t[1] || t[1] == t[2] || t[2] == t[0]) continue;
        std::rotate(t.begin(), std::min_element(t.begin(), t.end()), t.end());
        result.push_back(t);
    }
    std::sort(result.begin(), result.end());
    return result;
}

std::vector<Triangle> turned(std::vector<Triangle> triangles) {
    for (Triangle & t : triangles)
        std::swap(t[1], t[2]);
    std::sort(triangles.begin(), triangles.end());
    return triangles;
}

SO<PolygonSet> merged(const Sets & sets) {
    const SO<Array<SO<PolygonSet>>> list(new Array<SO<PolygonSet>>(Sets(sets)));
    return PolygonSetTool::mergePolygonSets(list.get());
}

const PolygonSet::PrimitiveType allTypes[] = {PolygonSet::PT_Triangles, PolygonSet::PT_TriangleStrip,
                                              PolygonSet::PT_TriangleFan, PolygonSet::PT_Quads};

TEST(PolygonSetTool, EveryTriangleTurnsTheOtherWay) {
    for (const auto type :
         {PolygonSet::PT_Triangles, PolygonSet::PT_TriangleStrip, PolygonSet::PT_TriangleFan})
        for (unsigned n = 0; n < 12; ++n) {
            const SO<PolygonSet> set(new PolygonSet(type, points(n)));
            const SO<PolygonSet> result = PolygonSetTool::invertOrientation(set.get());
            EXPECT_EQ(turned(trianglesOf(*set)), trianglesOf(*result)) << type << ", corners: " << n;
            EXPECT_EQ(type, result->getPrimitiveType());
        }
}

TEST(PolygonSetTool, QuadsTurnTheOtherWay) {
    // A quad may be cut along its other diagonal; its corners in their order are what counts.
    const SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_Quads, points(9)));
    const SO<PolygonSet> result = PolygonSetTool::invertOrientation(set.get());
    const std::vector<unsigned> corners(result->newIndexIterator()->begin(),
                                        result->newIndexIterator()->end());
    EXPECT_EQ((std::vector<unsigned>{3, 2, 1, 0, 7, 6, 5, 4, 8}), corners);
}

TEST(PolygonSetTool, TurningTwiceGivesTheSameTriangles) {
    std::mt19937 random(7);
    for (const auto type : allTypes)
        for (unsigned n = 3; n < 20; ++n) {
            std::vector<unsigned> indices(n);
            for (unsigned & i : indices)
                i = random() % 30;
            const SO<PolygonSet> set(new PolygonSet(type, points(30), numbers(indices)));
            const SO<PolygonSet> twice =
                PolygonSetTool::invertOrientation(PolygonSetTool::invertOrientation(set.get()).get());
            EXPECT_EQ(trianglesOf(*set), trianglesOf(*twice)) << type << ", corners: " << n;
        }
}

TEST(PolygonSetTool, TurningKeepsTheNumberOfCornersAndTheGivenSet) {
    const SO<PolygonSet> set(
        new PolygonSet(PolygonSet::PT_Triangles, points(6), numbers({0, 1, 2, 3, 4, 5, 2})));
    set->setNormalIterator(vectors(std::vector<V>(6, V(0, 1, 0))));
    const SO<PolygonSet> result = PolygonSetTool::invertOrientation(set.get());
    EXPECT_EQ(7U, result->newIndexIterator()->size());
    EXPECT_EQ(set->newVertexIterator(), result->newVertexIterator());
    EXPECT_EQ(V(0, -1, 0), result->newNormalIterator()->get(5));
    EXPECT_EQ(V(0, 1, 0), set->newNormalIterator()->get(5));
    EXPECT_EQ(1U, set->newIndexIterator()->get(1));
    EXPECT_FALSE(PolygonSetTool::invertOrientation(nullptr));
}

TEST(PolygonSetTool, AnEmptySetStaysEmpty) {
    const SO<PolygonSet> result = PolygonSetTool::invertOrientation(SO<PolygonSet>(new PolygonSet).get());
    ASSERT_TRUE(result);
    EXPECT_EQ(0U, result->triangles());
}

TEST(PolygonSetTool, NothingMergesToNull) {
    EXPECT_FALSE(PolygonSetTool::mergePolygonSets(nullptr));
    EXPECT_FALSE(merged({}));
    EXPECT_FALSE(merged({nullptr, new PolygonSet, new PolygonSet(PolygonSet::PT_Triangles, points(2))}));
}

TEST(PolygonSetTool, TheTrianglesOfAllKindsAreMerged) {
    Sets sets;
    std::vector<Triangle> expected;
    unsigned first = 0;
    for (const auto type : allTypes) {
        sets.push_back(new PolygonSet(type, points(8, first)));
        sets.push_back(new PolygonSet(type, points(8, first + 8), numbers({7, 0, 6, 1, 5, 2, 4, 3})));
        first += 16;
    }
    for (const auto & set : sets) {
        const std::vector<Triangle> triangles = trianglesOf(*set);
        expected.insert(expected.end(), triangles.begin(), triangles.end());
    }
    const SO<PolygonSet> result = merged(sets);
    ASSERT_TRUE(result);
    EXPECT_EQ(PolygonSet::PT_Triangles, result->getPrimitiveType());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(expected, trianglesOf(*result));
}

TEST(PolygonSetTool, QuadsAloneStayQuads) {
    const SO<PolygonSet> result =
        merged({new PolygonSet(PolygonSet::PT_Quads, points(4)), nullptr,
                new PolygonSet(PolygonSet::PT_Quads, points(8, 4), numbers({4, 5, 6, 7}))});
    ASSERT_TRUE(result);
    EXPECT_EQ(PolygonSet::PT_Quads, result->getPrimitiveType());
    EXPECT_EQ((std::vector<Triangle>{{0, 1, 2}, {0, 2, 3}, {8, 9, 10}, {8, 10, 11}}), trianglesOf(*result));
}

TEST(PolygonSetTool, AttributesThatNoSetHasAreNotMadeUp) {
    const SO<PolygonSet> result = merged({new PolygonSet(PolygonSet::PT_Triangles, points(3))});
    EXPECT_FALSE(result->newNormalIterator());
    EXPECT_FALSE(result->newColorIterator());
    for (unsigned unit = 0; unit < PolygonSet::maxTextureUnits; ++unit)
        EXPECT_FALSE(result->newTextureIterator(unit));
}

TEST(PolygonSetTool, MissingAttributesAreFilledIn) {
    const SO<PolygonSet> plain(new PolygonSet(PolygonSet::PT_Triangles, points(3)));
    const SO<PolygonSet> rich(new PolygonSet(PolygonSet::PT_Triangles, points(3, 3)));
    rich->setNormalIterator(vectors(std::vector<V>(3, V(1, 0, 0))));
    rich->setColorIterator(new Array<Color>(std::vector<Color>(3, Color(1.0F, 0.0F, 0.0F))));
    rich->setTextureIterator(vectors(std::vector<V>(3, V(2, 2, 0))), 0);
    rich->setTextureIterator(vectors(std::vector<V>(3, V(3, 3, 0))), 1);
    plain->setTextureIterator(vectors(std::vector<V>(3, V(5, 5, 0))), 0);
    for (const bool richFirst : {true, false}) {
        const unsigned ofRich = richFirst ? 0 : 3, ofPlain = 3 - ofRich;
        const SO<PolygonSet> result = merged(richFirst ? Sets{rich, plain} : Sets{plain, rich});
        EXPECT_EQ(V(1, 0, 0), result->newNormalIterator()->get(ofRich));
        EXPECT_EQ(V(0, 0, 1), result->newNormalIterator()->get(ofPlain));
        EXPECT_EQ(Color(1.0F, 0.0F, 0.0F), result->newColorIterator()->get(ofRich));
        EXPECT_EQ(Color::white, result->newColorIterator()->get(ofPlain));
        EXPECT_EQ(V(5, 5, 0), result->newTextureIterator(0)->get(ofPlain));
        EXPECT_EQ(V(3, 3, 0), result->newTextureIterator(1)->get(ofRich));
        EXPECT_EQ(V(5, 5, 0), result->newTextureIterator(1)->get(ofPlain));
    }
}

TEST(PolygonSetTool, TooFewAttributesAreCompleted) {
    const SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_Triangles, points(3)));
    set->setColorIterator(new Array<Color>(std::vector<Color>(1, Color::black)));
    const SO<PolygonSet> result = merged({set});
    ASSERT_EQ(3U, result->newColorIterator()->size());
    EXPECT_EQ(Color::white, result->newColorIterator()->get(2));
}

TEST(PolygonSetTool, CornersBeyondTheVerticesAreReported) {
    RecordedReports reports;
    const SO<PolygonSet> result =
        merged({new PolygonSet(PolygonSet::PT_Triangles, points(3), numbers({0, 1, 2, 0, 1, 3})),
                new PolygonSet(PolygonSet::PT_Triangles, points(3, 10))});
    EXPECT_EQ((std::vector<Triangle>{{0, 1, 2}, {10, 11, 12}}), trianglesOf(*result));
    EXPECT_EQ(1U, reports.size());
    EXPECT_FALSE(merged({new PolygonSet(PolygonSet::PT_Triangles, points(3), numbers({0, 1, 3}))}));
}

TEST(PolygonSetTool, MoreVerticesThanCanBeNumberedAreReported) {
    RecordedReports reports;
    const auto setOf = [](unsigned vertices) {
        return SO<PolygonSet>(new PolygonSet(PolygonSet::PT_Triangles, new ConstantIterator<V>({}, vertices),
                                             numbers({0, 1, 2})));
    };
    EXPECT_FALSE(merged({setOf(3000000000U), setOf(3000000000U)}));
    EXPECT_FALSE(merged({new PolygonSet(PolygonSet::PT_TriangleStrip, points(3),
                                        new ConstantIterator<unsigned>(0, 2000000000U))}));
    EXPECT_EQ(2U, reports.count(0, L"numbered", L"too many vertices for one polygon set")) << reports;
}

TEST(PolygonSetTool, EveryKindIsTakenApartToItsTriangles) {
    std::mt19937 random(11);
    for (const auto type : allTypes)
        for (unsigned n = 0; n < 12; ++n)
            for (const bool indexed : {false, true})
                for (const bool nonIndexed : {false, true}) {
                    std::vector<unsigned> indices(n);
                    for (unsigned & i : indices)
                        i = random() % 30;
                    const SO<PolygonSet> set(new PolygonSet(type, indexed ? points(30) : points(n),
                                                            indexed ? numbers(indices) : nullptr));
                    const SO<PolygonSet> result = PolygonSetTool::extractTriangleMesh(set.get(), nonIndexed);
                    EXPECT_EQ(PolygonSet::PT_Triangles, result->getPrimitiveType());
                    EXPECT_EQ(trianglesOf(*set), trianglesOf(*result)) << type << ", corners: " << n;
                    EXPECT_TRUE(!nonIndexed || !result->newIndexIterator());
                }
}

TEST(PolygonSetTool, TrianglesKeepTheirOrderAndTheirVerticesUnlessTheyAreToBeSingle) {
    const SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_Quads, points(4), numbers({3, 2, 1, 0})));
    const SO<PolygonSet> shared = PolygonSetTool::extractTriangleMesh(set.get(), false);
    EXPECT_EQ(set->newVertexIterator(), shared->newVertexIterator());
    const std::vector<unsigned> indices(shared->newIndexIterator()->begin(),
                                        shared->newIndexIterator()->end());
    EXPECT_EQ((std::vector<unsigned>{3, 2, 1, 3, 1, 0}), indices);
    const SO<PolygonSet> single = PolygonSetTool::extractTriangleMesh(set.get(), true);
    ASSERT_EQ(6U, single->newVertexIterator()->size());
    for (unsigned i = 0; i < 6; ++i)
        EXPECT_EQ(double(indices[i]), single->newVertexIterator()->get(i).x);
    EXPECT_FALSE(PolygonSetTool::extractTriangleMesh(nullptr, false));
}

TEST(PolygonSetTool, TrianglesWithoutIndicesStayAsTheyAre) {
    const SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_Triangles, points(6)));
    for (const bool nonIndexed : {false, true}) {
        const SO<PolygonSet> result = PolygonSetTool::extractTriangleMesh(set.get(), nonIndexed);
        EXPECT_EQ(set->newVertexIterator(), result->newVertexIterator());
        EXPECT_FALSE(result->newIndexIterator());
    }
    const SO<PolygonSet> odd(new PolygonSet(PolygonSet::PT_Triangles, points(7)));
    EXPECT_EQ(6U, PolygonSetTool::extractTriangleMesh(odd.get(), true)->newVertexIterator()->size());
}

TEST(PolygonSetTool, OnlyTheSeamsOfStripsAreLeftOut) {
    const SO<PolygonSet> strip(
        new PolygonSet(PolygonSet::PT_TriangleStrip, points(8), numbers({0, 1, 2, 2, 5, 5, 6, 7})));
    EXPECT_EQ(2U, PolygonSetTool::extractTriangleMesh(strip.get(), false)->triangles());
    const SO<PolygonSet> triangles(
        new PolygonSet(PolygonSet::PT_Triangles, points(3), numbers({0, 0, 1, 0, 1, 2})));
    EXPECT_EQ(2U, PolygonSetTool::extractTriangleMesh(triangles.get(), false)->triangles());
}

/// Texture coordinates and colours that name their vertex.
void addAttributes(PolygonSet & set) {
    std::vector<V> coordinates;
    std::vector<Color> colors;
    for (unsigned i = 0; i < set.newVertexIterator()->size(); ++i) {
        coordinates.emplace_back(i, 0.5, 0.0);
        colors.emplace_back(float(i), 0.0F, 0.0F);
    }
    set.setNormalIterator(vectors(coordinates));
    set.setTextureIterator(vectors(coordinates), 1);
    set.setColorIterator(new Array<Color>(colors));
}

TEST(PolygonSetTool, TheAttributesFollowTheirVerticesIntoTheNonIndexedForm) {
    for (const auto type : allTypes) {
        const SO<PolygonSet> set(new PolygonSet(type, points(5), numbers({4, 0, 3, 1, 2, 4, 0, 1})));
        addAttributes(*set);
        const SO<PolygonSet> result = PolygonSetTool::convertToNonIndexedForm(set.get());
        EXPECT_EQ(type, result->getPrimitiveType());
        EXPECT_FALSE(result->newIndexIterator());
        EXPECT_FALSE(result->newTextureIterator(0));
        EXPECT_EQ(trianglesOf(*set), trianglesOf(*result));
        ASSERT_EQ(8U, result->newVertexIterator()->size());
        for (unsigned i = 0; i < 8; ++i) {
            const double number = result->newVertexIterator()->get(i).x;
            EXPECT_EQ(number, result->newNormalIterator()->get(i).x);
            EXPECT_EQ(number, result->newTextureIterator(1)->get(i).x);
            EXPECT_EQ(number, result->newColorIterator()->get(i)[0]);
        }
    }
    EXPECT_FALSE(PolygonSetTool::convertToNonIndexedForm(nullptr));
}

TEST(PolygonSetTool, TheNonIndexedFormOfASetWithoutIndicesSharesAll) {
    const SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_TriangleFan, points(5)));
    addAttributes(*set);
    const SO<PolygonSet> result = PolygonSetTool::convertToNonIndexedForm(set.get());
    EXPECT_NE(set, result);
    EXPECT_EQ(set->newVertexIterator(), result->newVertexIterator());
    EXPECT_EQ(set->newColorIterator(), result->newColorIterator());
    EXPECT_EQ(PolygonSet::PT_TriangleFan, result->getPrimitiveType());
}

TEST(PolygonSetTool, CornersBeyondTheVerticesAreLeftOutOfTheNonIndexedForm) {
    for (const auto type : allTypes) {
        RecordedReports reports;
        const SO<PolygonSet> set(new PolygonSet(type, points(4), numbers({0, 1, 2, 3, 0, 1, 4, 2})));
        const SO<PolygonSet> result = PolygonSetTool::convertToNonIndexedForm(set.get());
        EXPECT_EQ(PolygonSet::PT_Triangles, result->getPrimitiveType());
        EXPECT_EQ(trianglesOf(*set), trianglesOf(*result));
        EXPECT_EQ(type == PolygonSet::PT_Triangles ? 0U : 1U,
                  reports.count(0, L"complete", L"a polygon has a corner beyond the vertices"))
            << type << reports;
    }
}

TEST(PolygonSetTool, ASetWithoutVerticesHasAnEmptyNonIndexedForm) {
    RecordedReports reports;
    const SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_Triangles, nullptr, numbers({0, 1, 2})));
    EXPECT_EQ(0U, PolygonSetTool::convertToNonIndexedForm(set.get())->triangles());
    EXPECT_EQ(0U, PolygonSetTool::extractTriangleMesh(set.get(), true)->triangles());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(PolygonSetTool, AttributesOfAnotherNumberThanTheVerticesAreLeftOut) {
    RecordedReports reports;
    const SO<PolygonSet> set(
        new PolygonSet(PolygonSet::PT_Triangles, points(4), numbers({0, 1, 2, 2, 3, 0})));
    addAttributes(*set);
    set->setColorIterator(new ConstantIterator<Color>(Color::white, 6));
    const SO<PolygonSet> result = PolygonSetTool::convertToNonIndexedForm(set.get());
    EXPECT_FALSE(result->newColorIterator());
    EXPECT_EQ(6U, result->newTextureIterator(1)->size());
    EXPECT_EQ(1U, reports.count(L"an attribute has another number of elements than there are vertices"));
}

TEST(PolygonSetTool, NormalShowsToWhereTheCornersAreSeenCounterClockwise) {
    EXPECT_EQ(V(0, 0, 1), PolygonSetTool::getTriangleNormal(V(0, 0, 0), V(2, 0, 0), V(0, 3, 0)));
    EXPECT_EQ(V(0, 0, -1), PolygonSetTool::getTriangleNormal(V(0, 0, 0), V(0, 3, 0), V(2, 0, 0)));
    EXPECT_EQ(V(0, -1, 0), PolygonSetTool::getTriangleNormal(V(0, 0, 0), V(1, 0, 0), V(0, 0, 1)));
}

TEST(PolygonSetTool, NormalDoesNotDependOnSizeAndPlace) {
    const double far = 5800000.0;
    for (const double size : {1e-200, 1e-9, 1.0, 1e200}) {
        const double at = size == 1.0 ? far : 0.0;
        const V normal =
            PolygonSetTool::getTriangleNormal(V(at, at, at), V(at + size, at, at), V(at, at + size, at));
        EXPECT_EQ(V(0, 0, 1), normal) << size;
    }
    // A needle of one to a million is a triangle still.
    EXPECT_EQ(V(0, 0, 1), PolygonSetTool::getTriangleNormal(V(0, 0, 0), V(1e6, 0, 0), V(0, 1, 0)));
}

TEST(PolygonSetTool, TrianglesWithoutAreaHaveNoNormal) {
    const double nan = std::nan(""), infinity = std::numeric_limits<double>::infinity();
    const V p(1, 2, 3), d(0.1, 0.7, -0.3);
    const std::array<V, 3> rows[] = {
        {p, p, p},
        {p, p, V(4, 5, 6)},
        {p, V(4, 5, 6), p},
        {p, V(4, 5, 6), V(4, 5, 6)},
        {V(), d, d * 3.0},
        {V(), d * (1.0 / 3.0), d * 7.0},
        {V(nan, 0, 0), V(1, 0, 0), V(0, 1, 0)},
        {V(), V(1, nan, 0), V(0, 1, 0)},
        {V(), V(1, 0, 0), V(0, 1, nan)},
        {V(), V(infinity, 0, 0), V(0, 1, 0)},
    };
    for (const auto & row : rows)
        EXPECT_EQ(V(), PolygonSetTool::getTriangleNormal(row[0], row[1], row[2])) << &row - rows;
}

TEST(PolygonSetTool, ForcedMergeHasTheTrianglesOfAllSetsInTheirOrder) {
    const SO<PolygonSet> strip(new PolygonSet(PolygonSet::PT_TriangleStrip, points(4)));
    const SO<PolygonSet> quad(new PolygonSet(PolygonSet::PT_Quads, points(4, 10)));
    const SO<PolygonSet> indexed(
        new PolygonSet(PolygonSet::PT_Triangles, points(4, 20), numbers({0, 1, 2, 2, 1, 3})));
    const NonPersistentArray<SO<PolygonSet>> sets(Sets{strip, nullptr, quad, indexed});
    std::vector<Triangle> expected = trianglesOf(*strip);
    for (const SO<PolygonSet> & set : {quad, indexed})
        for (const Triangle & t : trianglesOf(*set))
            expected.push_back(t);

    const SO<PolygonSet> loose = PolygonSetTool::forceTriangleMerge(&sets, false);
    EXPECT_EQ(PolygonSet::PT_Triangles, loose->getPrimitiveType());
    EXPECT_FALSE(loose->newIndexIterator());
    EXPECT_EQ(18u, loose->newVertexIterator()->size());
    EXPECT_EQ(expected, trianglesOf(*loose));

    const SO<PolygonSet> joined = PolygonSetTool::forceTriangleMerge(&sets, true);
    EXPECT_EQ(PolygonSet::PT_Triangles, joined->getPrimitiveType());
    EXPECT_EQ(12u, joined->newVertexIterator()->size());
    EXPECT_EQ(18u, joined->newIndexIterator()->size());
    EXPECT_EQ(expected, trianglesOf(*joined));
}

TEST(PolygonSetTool, ForcedMergeOfQuadsAloneHasTriangles) {
    const SO<PolygonSet> quad(new PolygonSet(PolygonSet::PT_Quads, points(4)));
    const NonPersistentArray<SO<PolygonSet>> sets(Sets{quad});
    const SO<PolygonSet> merged = PolygonSetTool::forceTriangleMerge(&sets, false);
    EXPECT_EQ(PolygonSet::PT_Triangles, merged->getPrimitiveType());
    EXPECT_EQ(trianglesOf(*quad), trianglesOf(*merged));
}

TEST(PolygonSetTool, ForcedMergeOfNothingIsNull) {
    EXPECT_FALSE(PolygonSetTool::forceTriangleMerge(nullptr, false));
    const NonPersistentArray<SO<PolygonSet>> none;
    EXPECT_FALSE(PolygonSetTool::forceTriangleMerge(&none, true));
    const NonPersistentArray<SO<PolygonSet>> empty(Sets{nullptr, new PolygonSet});
    EXPECT_FALSE(PolygonSetTool::forceTriangleMerge(&empty, false));
}

TEST(PolygonSetTool, FaceNormalsShowToTheSideFromWhichATriangleIsSeen) {
    // Seen from above with the east to the right and the north up, the first turns counter-clockwise, the
    // second clockwise, and the third is a line.
    const SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_Triangles,
                                            vectors({{0, 0, 0}, {9, 0, 0}, {0, 0, 4}, {5, 0, 5}}),
                                            numbers({0, 1, 2, 0, 2, 1, 0, 3, 3})));
    const SO<PolygonSet> result = PolygonSetTool::computeFaceNormals(set.get());
    ASSERT_EQ(9u, result->newNormalIterator()->size());
    ASSERT_EQ(9u, result->newVertexIterator()->size());
    for (unsigned i = 0; i < 9; ++i)
        EXPECT_EQ((V(0, i < 3 ? 1 : i < 6 ? -1 : 0, 0)), result->newNormalIterator()->get(i)) << i;
    EXPECT_FALSE(set->newNormalIterator());
}

TEST(PolygonSetTool, FaceNormalsOfNothing) {
    EXPECT_FALSE(PolygonSetTool::computeFaceNormals(nullptr));
    const SO<PolygonSet> empty(new PolygonSet);
    EXPECT_EQ(0u, PolygonSetTool::computeFaceNormals(empty.get())->triangles());
}

TEST(PolygonSetTool, ACopyHasSequencesOfItsOwn) {
    const SO<Array<V>> vertices(new Array<V>(std::vector<V>{{0, 0, 0}, {1, 0, 0}, {0, 0, 1}}));
    const SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_TriangleFan, vertices, numbers({2, 1, 0})));
    set->setNormalIterator(vertices);
    set->setTextureIterator(vertices, 3);
    for (const SO<PolygonSet> & copy :
         {PolygonSetTool::copy(set.get()), PolygonSetTool::convertToNonIndexedForm(set.get(), true)}) {
        EXPECT_EQ(PolygonSet::PT_TriangleFan, copy->getPrimitiveType());
        EXPECT_EQ(trianglesOf(*set), trianglesOf(*copy));
        EXPECT_NE(set->newVertexIterator().get(), copy->newVertexIterator().get());
        EXPECT_NE(set->newNormalIterator().get(), copy->newNormalIterator().get());
        ASSERT_TRUE(copy->newTextureIterator(3));
        EXPECT_NE(set->newTextureIterator(3).get(), copy->newTextureIterator(3).get());
        EXPECT_FALSE(copy->newTextureIterator(0));
        EXPECT_FALSE(copy->newColorIterator());
    }
    set->setIndexIterator(nullptr);
    EXPECT_NE(vertices.get(),
              PolygonSetTool::convertToNonIndexedForm(set.get(), true)->newVertexIterator().get());
    EXPECT_EQ(vertices.get(), PolygonSetTool::convertToNonIndexedForm(set.get())->newVertexIterator().get());
    EXPECT_FALSE(PolygonSetTool::copy(nullptr));
}

} // namespace
