#include "tinfixture.h"

#include <zmt/core/terrain/geometry/tin/tinconstruction.h>

using namespace ZMT::CORE;

namespace {

std::vector<unsigned> destinations(const TestTin & tin, TinNode n) {
    std::vector<TinEdge> ring;
    tin.collectRing(n, ring);
    std::vector<unsigned> numbers;
    for (const TinEdge e : ring)
        numbers.push_back(tin.number(tin.destination(e)));
    return numbers;
}

} // namespace

TEST(TinConstruction, HandlesAreNullUnlessMade) {
    EXPECT_FALSE(TinNode());
    EXPECT_TRUE(TinNode(0));
    EXPECT_EQ(TinFace(3), TinFace(3));
    EXPECT_LT(TinFace(3), TinFace(4));
}

TEST(TinConstruction, IsEmptyAtFirst) {
    const TestTin tin;
    EXPECT_TRUE(tin.empty());
    EXPECT_EQ(tin.nodes(), 0u);
    EXPECT_EQ(tin.faces(), 0u);
}

TEST(TinConstruction, TwoFacesHaveSixInnerAndFourOuterHalfEdges) {
    setLattice(2, 2, [](unsigned, unsigned) { return 0.0; });
    TestTin tin;
    initOnLattice(tin, 2, 2);
    expectConsistent(tin);
    EXPECT_EQ(borderLength(tin), 4u);
    EXPECT_EQ(tin.number(tin.corner(tin.face(0u), 0)), 0u);
    EXPECT_EQ(tin.number(tin.corner(tin.face(0u), 1)), 1u);
    EXPECT_EQ(tin.number(tin.corner(tin.face(0u), 2)), 3u);
    EXPECT_EQ(tin.number(tin.corner(tin.face(1u), 2)), 2u);
}

// Drawn: 2---3
//        | / |
//        0---1
TEST(TinConstruction, RingsRunCounterClockwiseAndEndOutside) {
    setLattice(2, 2, [](unsigned, unsigned) { return 0.0; });
    TestTin tin;
    initOnLattice(tin, 2, 2);
    EXPECT_EQ(destinations(tin, tin.node(0)), (std::vector<unsigned>{1, 3, 2}));
    EXPECT_EQ(destinations(tin, tin.node(1)), (std::vector<unsigned>{3, 0}));
    EXPECT_EQ(destinations(tin, tin.node(2)), (std::vector<unsigned>{2, 0, 1}));
}

TEST(TinConstruction, TheBorderRunsClockwiseFromACorner) {
    setLattice(3, 3, [](unsigned, unsigned) { return 0.0; });
    TestTin tin;
    initOnLattice(tin, 3, 3);
    for (unsigned i = 0; i < 9; ++i)
        tin.insert(i);
    std::vector<unsigned> numbers;
    TinEdge e = tin.boundaryEdge(tin.node(0));
    for (int i = 0; i < 8; ++i, e = tin.next(e))
        numbers.push_back(tin.number(tin.origin(e)));
    EXPECT_EQ(numbers, (std::vector<unsigned>{0, 3, 6, 7, 8, 5, 2, 1}));
    EXPECT_EQ(e, tin.boundaryEdge(tin.node(0)));
    const TinNode middle = tin.findNode(4);
    ASSERT_TRUE(middle);
    EXPECT_FALSE(tin.boundaryEdge(middle));
}

TEST(TinConstruction, FindsEdgesInsideAndOnTheBorderInBothDirections) {
    setLattice(2, 2, [](unsigned, unsigned) { return 0.0; });
    TestTin tin;
    initOnLattice(tin, 2, 2);
    for (unsigned a = 0; a < 4; ++a) {
        for (unsigned b = 0; b < 4; ++b) {
            const TinEdge e = tin.findEdge(tin.node(a), tin.node(b));
            const bool isMissing = a == b || (a + b == 4 && a != 2); // nodes 1 and 3
            ASSERT_EQ(static_cast<bool>(e), !isMissing) << a << " " << b;
            if (!e) continue;
            EXPECT_EQ(tin.origin(e), tin.node(a));
            EXPECT_EQ(tin.destination(e), tin.node(b));
        }
    }
}
