#include "tinfixture.h"

#include <support/recordedreports.h>

#include <limits>
#include <new>
#include <set>
#include <utility>

using namespace ZMT::CORE;

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

void setSquare() {
    setLattice(2, 2, [](unsigned x, unsigned y) { return x + 10.0 * y; });
}

/// Random points in the unit square; the first four are its corners.
void setRandomPoints(unsigned count, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    TestPoints::points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    while (TestPoints::points.size() < count)
        TestPoints::points.emplace_back(unit(random), unit(random), unit(random));
}

unsigned constrainedEdges(const TestTin & tin) {
    unsigned count = 0;
    for (unsigned i = 0; i < tin.faces(); ++i)
        for (unsigned k = 0; k < 3; ++k) {
            const TinEdge e(tin.edge(tin.face(i)).index() + k);
            if (tin.constrained(e)) count += tin.face(tin.twin(e)) ? 1 : 2;
        }
    return count / 2;
}

/// Length of the chain of constrained edges from `a` straight to `b`; 0 if there is a gap.
unsigned chainLength(const TestTin & tin, TinNode a, TinNode b) {
    unsigned length = 0;
    std::vector<TinEdge> ring;
    const Point & target = tin.position(b);
    while (a != b && length < 1000) {
        tin.collectRing(a, ring);
        const Point & from = tin.position(a);
        const auto onward = std::find_if(ring.begin(), ring.end(), [&](TinEdge e) {
            const Point & p = tin.position(tin.destination(e));
            const Point way = target - from, step = p - from;
            return tin.constrained(e) && std::fabs(orient2d(from, target, p)) < 1e-12 &&
                   way.x * step.x + way.y * step.y > 0.0;
        });
        if (onward == ring.end()) return 0;
        a = tin.destination(*onward);
        ++length;
    }
    return length;
}

/// Whether constrained edges lead from `a` to `b` over nodes that lie within `tolerance` of the straight way.
bool isConnected(const TestTin & tin, TinNode a, TinNode b, double tolerance) {
    const Point & from = tin.position(a);
    const Point & to = tin.position(b);
    const double length = std::hypot(to.x - from.x, to.y - from.y);
    std::set<TinNode> seen{a};
    std::vector<TinNode> waiting{a};
    std::vector<TinEdge> ring;
    while (!waiting.empty()) {
        const TinNode n = waiting.back();
        waiting.pop_back();
        if (n == b) return true;
        tin.collectRing(n, ring);
        for (const TinEdge e : ring) {
            const TinNode next = tin.destination(e);
            const bool isNear = std::fabs(orient2d(from, to, tin.position(next))) <= tolerance * length;
            if (tin.constrained(e) && isNear && seen.insert(next).second) waiting.push_back(next);
        }
    }
    return false;
}

} // namespace

TEST(Tin, TheRectangleIsThatOfAllCornersWhereverTheyStand) {
    for (unsigned first = 0; first < 4; ++first) {
        TestPoints::points = {Point(3, 1, 0), Point(9, 4, 0), Point(5, 11, 0), Point(2, 6, 0)};
        std::rotate(TestPoints::points.begin(), TestPoints::points.begin() + first, TestPoints::points.end());
        TestTin tin;
        tin.init(0, 1, 2, 3);
        EXPECT_EQ(tin.minX(), 2.0) << first;
        EXPECT_EQ(tin.maxX(), 9.0) << first;
        EXPECT_EQ(tin.minY(), 1.0) << first;
        EXPECT_EQ(tin.maxY(), 11.0) << first;
    }
}

TEST(Tin, FourCornersGiveTwoFacesAndTheirRectangle) {
    setSquare();
    TestTin tin;
    EXPECT_EQ(tin.minX(), std::numeric_limits<double>::max());
    EXPECT_EQ(tin.maxY(), std::numeric_limits<double>::lowest());
    initOnLattice(tin, 2, 2);
    EXPECT_EQ(tin.faces(), 2u);
    EXPECT_EQ(tin.minX(), 0.0);
    EXPECT_EQ(tin.maxX(), 1.0);
    EXPECT_EQ(tin.minY(), 0.0);
    EXPECT_EQ(tin.maxY(), 1.0);
    tin.clear();
    EXPECT_TRUE(tin.empty());
    EXPECT_EQ(tin.minX(), std::numeric_limits<double>::max());
    initOnLattice(tin, 2, 2);
    expectConsistent(tin);
}

TEST(Tin, AFilledMeshIsNotInitialisedAgain) {
    setSquare();
    TestTin tin;
    initOnLattice(tin, 2, 2);
    RecordedReports reports;
    initOnLattice(tin, 2, 2);
    EXPECT_EQ(reports.count(0, L"this->empty()", L"triangulation is not empty"), 1u);
    EXPECT_EQ(tin.faces(), 2u);
}

TEST(Tin, OnlyTheSharedDiagonalOfARectangleCanBeFlipped) {
    setSquare();
    TestTin tin;
    initOnLattice(tin, 2, 2);
    unsigned flippable = 0;
    for (unsigned i = 0; i < 4; ++i)
        for (unsigned j = 0; j < 4; ++j)
            if (const TinEdge e = tin.findEdge(tin.node(i), tin.node(j))) flippable += tin.isFlippable(e);
    EXPECT_EQ(flippable, 2u); // the two halves of one edge
    tin.flip(tin.findEdge(tin.node(0), tin.node(2)));
    expectConsistent(tin);
    EXPECT_FALSE(tin.findEdge(tin.node(0), tin.node(2)));
    EXPECT_TRUE(tin.findEdge(tin.node(1), tin.node(3)));

    RecordedReports reports;
    tin.flip(tin.findEdge(tin.node(0), tin.node(1)));
    EXPECT_EQ(reports.size(), 1u);
    EXPECT_EQ(tin.faces(), 2u);
}

TEST(Tin, FlippingFourTimesGivesTheSameMesh) {
    setSquare();
    TestTin tin;
    initOnLattice(tin, 2, 2);
    for (int i = 0; i < 4; ++i) {
        const TinEdge e =
            i % 2 ? tin.findEdge(tin.node(1), tin.node(3)) : tin.findEdge(tin.node(2), tin.node(0));
        ASSERT_TRUE(tin.isFlippable(e));
        tin.flip(e);
        expectConsistent(tin);
    }
    EXPECT_TRUE(tin.findEdge(tin.node(0), tin.node(2)));
}

TEST(Tin, AFlatQuadrilateralCannotBeFlipped) {
    TestPoints::points = {{0, 0, 0}, {2, 0, 0}, {1, 1, 0}, {0, 2, 0}}; // three corners on a line
    TestTin tin;
    tin.init(0, 1, 2, 3);
    EXPECT_FALSE(tin.isFlippable(tin.findEdge(tin.node(0), tin.node(2))));
}

TEST(Tin, APointInsideAFaceSplitsItIntoThree) {
    setSquare();
    TestPoints::points.emplace_back(0.7, 0.2, 3);
    TestTin tin;
    initOnLattice(tin, 2, 2);
    const TinNode n = tin.splitFace(tin.locate(4), {TestPoints::point(4), 4});
    EXPECT_EQ(tin.faces(), 4u);
    EXPECT_EQ(tin.number(n), 4u);
    expectConsistent(tin);
}

TEST(Tin, APointOnTheDiagonalSplitsTwoFacesIntoFour) {
    setSquare();
    TestPoints::points.emplace_back(0.25, 0.25, 3);
    TestTin tin;
    initOnLattice(tin, 2, 2);
    tin.insert(4);
    EXPECT_EQ(tin.faces(), 4u);
    expectConsistent(tin);
    expectDelaunay(tin);
}

TEST(Tin, APointOnTheBorderSplitsOneFaceIntoTwo) {
    const std::array<Point, 4> onBorder{Point(0.5, 0, 0), Point(1, 0.25, 0), Point(0.1, 1, 0),
                                        Point(0, 0.9, 0)};
    for (const Point & p : onBorder) {
        setSquare();
        TestPoints::points.push_back(p);
        TestTin tin;
        initOnLattice(tin, 2, 2);
        const TinNode n = tin.insert(4);
        EXPECT_EQ(tin.faces(), 3u);
        EXPECT_TRUE(tin.boundaryEdge(n));
        expectConsistent(tin);
        expectDelaunay(tin);
    }
}

TEST(Tin, AnEdgeOfTheBorderIsSplitFromEitherSide) {
    setSquare();
    TestTin tin;
    initOnLattice(tin, 2, 2);
    tin.splitEdge(tin.boundaryEdge(tin.node(0)), {Point(0, 0.5, 0), 9});
    EXPECT_EQ(tin.faces(), 3u);
    expectConsistent(tin);
}

TEST(Tin, ARepeatedPointNeverAddsAFace) {
    setSquare();
    TestPoints::points.emplace_back(0.5, 0.25, 3);
    TestTin tin;
    initOnLattice(tin, 2, 2);
    const TinNode n = tin.insert(4);
    const unsigned faces = tin.faces();
    EXPECT_EQ(tin.insert(4), n);
    EXPECT_EQ(tin.insert(0), tin.node(0));
    EXPECT_EQ(tin.faces(), faces);
    EXPECT_EQ(tin.nodes(), 5u);
}

TEST(Tin, APointOnANodeTakesOverNumberAndHeight) {
    setSquare();
    TestPoints::points.emplace_back(1, 1, 99);
    TestTin tin;
    initOnLattice(tin, 2, 2);
    tin.insert(4);
    const TinNode n = tin.findNode(3);
    EXPECT_EQ(tin.number(n), 4u);
    EXPECT_EQ(tin.height({1, 1, 0}), 99.0);
    EXPECT_EQ(tin.faces(), 2u);
}

TEST(Tin, OutsideThereIsNoFaceAndNoHeight) {
    setSquare();
    TestTin tin;
    initOnLattice(tin, 2, 2);
    for (const Point & p : {Point(-1e-300, 0.5, 0), Point(2, 2, 0), Point(0.5, -7, 0)}) {
        RecordedReports reports;
        EXPECT_FALSE(tin.locate(p));
        EXPECT_FALSE(tin.findNode(p));
        EXPECT_TRUE(reports.empty()) << reports;
        EXPECT_EQ(tin.height(p), -infinity);
        EXPECT_EQ(reports.count(0, L"face", L"point outside the triangulation"), 1u);
        EXPECT_FALSE(tin.insert({p, 1}));
        EXPECT_EQ(reports.size(), 2u);
    }
    EXPECT_EQ(tin.faces(), 2u);
}

TEST(Tin, AnEmptyMeshHasNoFaces) {
    TestTin tin;
    EXPECT_FALSE(tin.locate({0, 0, 0}));
    EXPECT_FALSE(tin.findNode({0, 0, 0}));
}

TEST(Tin, CoordinatesThatAreNotFiniteAreNowhere) {
    setSquare();
    TestTin tin;
    initOnLattice(tin, 2, 2);
    RecordedReports reports;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double bad : {nan, infinity, -infinity}) {
        EXPECT_FALSE(tin.locate({bad, 0.5, 0}));
        EXPECT_FALSE(tin.locate({0.5, bad, 0}, tin.face(0u)));
        EXPECT_FALSE(tin.insert({Point(0.5, bad, 0), 1}));
    }
    EXPECT_EQ(tin.faces(), 2u);
}

TEST(Tin, HeightsAreThoseOfThePlaneThroughTheCorners) {
    setLattice(2, 2, [](unsigned x, unsigned y) { return 5.0 + 3.0 * x - 2.0 * y; });
    TestTin tin;
    initOnLattice(tin, 2, 2);
    for (double x = 0; x <= 1; x += 0.125)
        for (double y = 0; y <= 1; y += 0.125)
            EXPECT_EQ(tin.height({x, y, 0}), 5.0 + 3.0 * x - 2.0 * y);
}

TEST(Tin, AHintThatContainsThePointIsTheResult) {
    setSquare();
    TestTin tin;
    initOnLattice(tin, 2, 2);
    const Point onDiagonal(0.5, 0.5, 0);
    EXPECT_EQ(tin.locate(onDiagonal, tin.face(0u)), tin.face(0u));
    EXPECT_EQ(tin.locate(onDiagonal, tin.face(1u)), tin.face(1u));
    EXPECT_EQ(tin.locate({0.9, 0.1, 0}, tin.face(1u)), tin.face(0u));
}

TEST(Tin, LocationDrawsTheRootOfTheNodesInRandomNumbersUnlessThereIsAHint) {
    setRandomPoints(100, 3);
    TestTin tin;
    tin.init(0, 1, 2, 3);
    for (unsigned i = 4; i < 100; ++i)
        tin.insert(i);
    std::srand(7);
    for (int i = 0; i < 10; ++i)
        std::rand();
    const int expected = std::rand();
    std::srand(7);
    tin.locate({0.3, 0.3, 0}, tin.face(5u));
    tin.locate({0.3, 0.3, 0});
    EXPECT_EQ(std::rand(), expected);
}

TEST(Tin, RandomPointsStayDelaunay) {
    constexpr unsigned seed = 11;
    SCOPED_TRACE(seed);
    setRandomPoints(5000, seed);
    TestTin tin;
    tin.init(0, 1, 2, 3);
    TinFace hint;
    for (unsigned i = 4; i < 5000; ++i)
        hint = tin.face(tin.edge(tin.insert(i, hint)));
    EXPECT_EQ(tin.nodes(), 5000u);
    EXPECT_EQ(tin.faces(), 2u * 5000u - 2u - 4u);
    expectConsistent(tin);
    expectDelaunay(tin);
    EXPECT_NEAR(area(tin), 1.0, 1e-12);
    for (unsigned i = 0; i < 5000; ++i) {
        const TinNode n = tin.findNode(i);
        ASSERT_TRUE(n);
        EXPECT_EQ(tin.number(n), i);
    }
}

TEST(Tin, LatticesStayDelaunayInAnyOrder) {
    constexpr unsigned size = 40;
    for (const double cell : {1.0, 0.1, 92.76624}) {
        setLattice(
            size, size, [](unsigned, unsigned) { return 0.0; }, cell, cell * 1000.1);
        std::vector<unsigned> order(size * size);
        for (unsigned i = 0; i < order.size(); ++i)
            order[i] = i;
        for (unsigned seed = 0; seed < 4; ++seed) {
            SCOPED_TRACE(seed);
            if (seed > 0) std::shuffle(order.begin(), order.end(), std::mt19937(seed));
            TestTin tin;
            initOnLattice(tin, size, size);
            for (const unsigned i : order)
                ASSERT_TRUE(tin.insert(i));
            EXPECT_EQ(tin.nodes(), size * size);
            EXPECT_EQ(tin.faces(), 2 * (size - 1) * (size - 1));
            EXPECT_EQ(borderLength(tin), 4 * (size - 1));
            expectConsistent(tin);
            expectDelaunay(tin);
        }
    }
}

TEST(Tin, LocationAgreesWithASearchOfAllFaces) {
    constexpr unsigned seed = 5;
    SCOPED_TRACE(seed);
    setRandomPoints(500, seed);
    TestTin tin;
    tin.init(0, 1, 2, 3);
    for (unsigned i = 4; i < 500; ++i)
        tin.insert(i);
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> around(-0.1, 1.1);
    TinFace hint;
    for (int i = 0; i < 2000; ++i) {
        const Point p(around(random), around(random), 0);
        const bool isInside = p.x >= 0 && p.x <= 1 && p.y >= 0 && p.y <= 1;
        const TinFace found = tin.locate(p, i % 3 ? hint : TinFace());
        ASSERT_EQ(static_cast<bool>(found), isInside);
        if (!found) continue;
        EXPECT_TRUE(tin.contains(found, p));
        hint = found;
    }
}

TEST(Tin, RandomFlipsKeepTheMeshConsistentAndLocationEnds) {
    constexpr unsigned seed = 17;
    SCOPED_TRACE(seed);
    setRandomPoints(300, seed);
    TestTin tin;
    tin.init(0, 1, 2, 3);
    for (unsigned i = 4; i < 300; ++i)
        tin.insert(i);
    std::mt19937 random(seed);
    for (int i = 0; i < 5000; ++i) {
        const TinEdge e(4 * (random() % tin.faces()) + random() % 3);
        if (tin.isFlippable(e)) tin.flip(e);
    }
    expectConsistent(tin);
    EXPECT_NEAR(area(tin), 1.0, 1e-12);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int i = 0; i < 2000; ++i) {
        const Point p(unit(random), unit(random), 0);
        const TinFace f = tin.locate(p, tin.face(random() % tin.faces()));
        ASSERT_TRUE(f);
        EXPECT_TRUE(tin.contains(f, p));
    }
}

TEST(Tin, AnEdgeThatIsThereIsConstrainedOnBothSides) {
    setSquare();
    TestTin tin;
    initOnLattice(tin, 2, 2);
    tin.constrain(tin.node(2), tin.node(0));
    const TinEdge e = tin.findEdge(tin.node(0), tin.node(2));
    EXPECT_TRUE(tin.constrained(e));
    EXPECT_TRUE(tin.constrained(tin.twin(e)));
    EXPECT_FALSE(tin.isFlippable(e));
    EXPECT_EQ(constrainedEdges(tin), 1u);
    tin.constrain(tin.node(0), tin.node(1));
    EXPECT_TRUE(tin.constrained(tin.boundaryEdge(tin.node(1))));
    EXPECT_EQ(constrainedEdges(tin), 2u);
    EXPECT_EQ(tin.faces(), 2u);
}

TEST(Tin, ANodeIsNotConstrainedToItselfAndNullIsReported) {
    setSquare();
    TestTin tin;
    initOnLattice(tin, 2, 2);
    tin.constrain(tin.node(1), tin.node(1));
    EXPECT_EQ(constrainedEdges(tin), 0u);
    RecordedReports reports;
    tin.constrain(tin.node(1), TinNode());
    EXPECT_EQ(reports.count(0, L"a && b", L"no node"), 1u);
}

TEST(Tin, AMissingEdgeIsBuiltOverItsMidpointWithNumberZero) {
    setSquare();
    TestTin tin;
    initOnLattice(tin, 2, 2);
    tin.constrain(tin.node(1), tin.node(3));
    EXPECT_EQ(tin.nodes(), 5u);
    const TinNode middle = tin.node(4);
    EXPECT_EQ(tin.number(middle), 0u);
    EXPECT_EQ(tin.position(middle), Point(0.5, 0.5, 5.5)); // between the heights 1 and 10
    EXPECT_EQ(chainLength(tin, tin.node(1), tin.node(3)), 2u);
    expectConsistent(tin);
}

TEST(Tin, NodesExactlyOnTheWayBecomePartOfTheChain) {
    constexpr unsigned size = 5;
    setLattice(size, size, [](unsigned, unsigned) { return 0.0; });
    TestTin tin;
    initOnLattice(tin, size, size);
    for (unsigned i = 0; i < size * size; ++i)
        tin.insert(i);
    tin.constrain(tin.findNode(10), tin.findNode(14));
    EXPECT_EQ(tin.nodes(), size * size);
    EXPECT_EQ(chainLength(tin, tin.findNode(10), tin.findNode(14)), 4u);
    EXPECT_EQ(constrainedEdges(tin), 4u);
}

TEST(Tin, InsertionOnAConstrainedEdgeKeepsTheConstraint) {
    setSquare();
    TestTin tin;
    initOnLattice(tin, 2, 2);
    tin.constrain(tin.node(0), tin.node(2));
    tin.insert({Point(0.25, 0.25, 0), 7});
    tin.insert({Point(0.75, 0.75, 0), 8});
    EXPECT_EQ(chainLength(tin, tin.node(0), tin.node(2)), 3u);
    expectConsistent(tin);
}

TEST(Tin, AConstraintThatIsFlippedAwayComesBackWithTheNextInsertion) {
    setSquare();
    TestTin tin;
    initOnLattice(tin, 2, 2);
    tin.constrain(tin.node(0), tin.node(2));
    tin.flip(tin.findEdge(tin.node(0), tin.node(2)));
    EXPECT_EQ(constrainedEdges(tin), 0u);
    tin.insert({Point(0.9, 0.2, 0), 7});
    EXPECT_GE(chainLength(tin, tin.node(0), tin.node(2)), 1u);
    expectConsistent(tin);
}

TEST(Tin, ConstrainedEdgesAreNotFlippedByInsertions) {
    constexpr unsigned seed = 23;
    SCOPED_TRACE(seed);
    setRandomPoints(1000, seed);
    TestTin tin;
    tin.init(0, 1, 2, 3);
    const TinNode a = tin.insert({Point(0.1, 0.3, 0), 0}), b = tin.insert({Point(0.9, 0.6, 0), 0});
    tin.constrain(a, b);
    const unsigned before = chainLength(tin, a, b);
    ASSERT_GE(before, 1u);
    for (unsigned i = 4; i < 1000; ++i)
        tin.insert(i);
    EXPECT_GE(chainLength(tin, a, b), before);
    expectConsistent(tin);
    expectDelaunay(tin);
}

TEST(Tin, ConstraintsThatCrossEnd) {
    RecordedReports reports;
    for (const double shift : {0.0, 0.1, -0.5}) {
        TestPoints::points = {
            {shift, shift, 0}, {1 + shift, shift, 0}, {1 + shift, 1 + shift, 0}, {shift, 1 + shift, 0}};
        TestTin tin;
        tin.init(0, 1, 2, 3);
        const auto add = [&](double x, double y) { return tin.insert({Point(x + shift, y + shift, 0), 9}); };
        const TinNode a = add(0.11, 0.23), b = add(0.87, 0.71), c = add(0.2, 0.9), d = add(0.77, 0.13);
        tin.constrain(a, b);
        tin.constrain(c, d);
        expectConsistent(tin);
        EXPECT_LT(tin.nodes(), 1000u);
        EXPECT_TRUE(isConnected(tin, a, b, 1e-12));
        EXPECT_TRUE(isConnected(tin, c, d, 1e-12));
        EXPECT_TRUE(reports.empty()) << reports;
    }
}

TEST(Tin, WaysThatCrossLeaveNoGap) {
    constexpr unsigned seed = 31;
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> place(0.05, 0.95);
    for (int round = 0; round < 500; ++round) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round));
        const RecordedReports reports;
        const double shift = round % 3 == 0 ? 0.0 : round % 3 == 1 ? -0.5 : 1000.0;
        TestPoints::points = {
            {shift, shift, 0}, {1 + shift, shift, 0}, {1 + shift, 1 + shift, 0}, {shift, 1 + shift, 0}};
        TestTin tin;
        tin.init(0, 1, 2, 3);
        std::vector<TinNode> ends;
        for (int i = 0; i < 6; ++i)
            ends.push_back(tin.insert({Point(place(random) + shift, place(random) + shift, 0), 9}));
        for (unsigned i = 0; i < ends.size(); i += 2)
            tin.constrain(ends[i], ends[i + 1]);
        expectConsistent(tin);
        EXPECT_NEAR(area(tin), 1.0, 1e-9);
        EXPECT_LT(tin.nodes(), 2000U);
        for (unsigned i = 0; i < ends.size(); i += 2)
            EXPECT_TRUE(isConnected(tin, ends[i], ends[i + 1], 1e-12 * (1.0 + std::fabs(shift)))) << i;
        EXPECT_TRUE(reports.empty()) << reports;
        if (testing::Test::HasFailure()) return;
    }
}

TEST(Tin, AWayAcrossAnotherIsAsHighAsThatThere) {
    setSquare();
    TestTin tin;
    initOnLattice(tin, 2, 2);
    const TinNode a = tin.insert({Point(0.1, 0.3, 5), 0}), b = tin.insert({Point(0.9, 0.7, 5), 0});
    const TinNode c = tin.insert({Point(0.3, 0.9, 5), 0}), d = tin.insert({Point(0.7, 0.2, 5), 0});
    tin.constrain(a, b);
    tin.constrain(c, d);
    for (unsigned i = 4; i < tin.nodes(); ++i)
        EXPECT_NEAR(tin.position(tin.node(i)).z, 5.0, 1e-9) << i;
}

namespace {

/// Throws when it is to insert, once.
class BreakingTin : public TestTin {
public:
    using TestTin::insert;
    TinNode insert(const ZMT::CORE::TinPoint & point, ZMT::CORE::TinFace hint) override {
        if (std::exchange(breaks, false)) throw std::bad_alloc();
        return TestTin::insert(point, hint);
    }
    bool breaks = false;
};

void breakConstraint(BreakingTin & tin) {
    setSquare();
    initOnLattice(tin, 2, 2);
    tin.breaks = true;
    EXPECT_THROW(tin.constrain(tin.node(1), tin.node(3)), std::bad_alloc);
}

} // namespace

TEST(Tin, AfterClearConstraintsWorkAsInANewOne) {
    BreakingTin tin;
    breakConstraint(tin);
    tin.clear();
    initOnLattice(tin, 2, 2);
    tin.constrain(tin.node(1), tin.node(3));
    EXPECT_EQ(chainLength(tin, tin.node(1), tin.node(3)), 2u);
}

TEST(Tin, SwapExchangesWhatIsGoingOnToo) {
    BreakingTin broken, other;
    breakConstraint(broken);
    other.swap(broken);
    initOnLattice(broken, 2, 2);
    broken.constrain(broken.node(1), broken.node(3));
    EXPECT_EQ(chainLength(broken, broken.node(1), broken.node(3)), 2u);
}

TEST(Tin, ManyRandomConstraintsEndAndKeepTheMeshConsistent) {
    constexpr unsigned seed = 29;
    SCOPED_TRACE(seed);
    RecordedReports reports;
    setRandomPoints(60, seed);
    TestTin tin;
    tin.init(0, 1, 2, 3);
    std::vector<TinNode> nodes;
    for (unsigned i = 4; i < 60; ++i)
        nodes.push_back(tin.insert(i));
    for (unsigned i = 0; i + 1 < nodes.size(); i += 2)
        tin.constrain(nodes[i], nodes[i + 1]);
    expectConsistent(tin);
    EXPECT_NEAR(area(tin), 1.0, 1e-9);
    for (unsigned i = 0; i + 1 < nodes.size(); i += 2)
        EXPECT_TRUE(isConnected(tin, nodes[i], nodes[i + 1], 1e-12)) << i;
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(Tin, SwapExchangesEverything) {
    setSquare();
    TestTin filled, other;
    initOnLattice(filled, 2, 2);
    filled.swap(other);
    EXPECT_TRUE(filled.empty());
    EXPECT_EQ(other.faces(), 2u);
    EXPECT_EQ(other.maxX(), 1.0);
    EXPECT_EQ(filled.minX(), std::numeric_limits<double>::max());
}
