#include "tinfixture.h"

#include <support/recordedreports.h>

#include <zmt/core/terrain/geometry/tin/tinalgorithmtintotristrips.h>

#include <cmath>
#include <set>

using namespace ZMT::CORE;

namespace {

using Triangle = std::array<unsigned, 3>;

/// Strips of places of nodes, one vector each.
class Strips : public TinAlgorithmTinToTristrips<TestPoints> {
public:
    explicit Strips(const TestTin & tin) { run(tin); }
    using TinAlgorithmTinToTristrips::centre;

    const std::vector<std::vector<unsigned>> & all() const { return all_; }

private:
    void triangle(TinNode a, TinNode b, TinNode c) override {
        finishStrip();
        for (const TinNode n : {a, b, c})
            vertex(n);
    }
    void vertex(TinNode n) override { current_.push_back(n.index()); }
    void finishStrip() override {
        if (!current_.empty()) all_.push_back(current_);
        current_.clear();
    }

    std::vector<std::vector<unsigned>> all_;
    std::vector<unsigned> current_;
};

/// The strips in their order, by the recursion that defines them: what branches off a strip follows when all
/// that lies behind the strip is done. Of meshes that are Delaunay.
class StripsByRecursion {
public:
    StripsByRecursion(const TestTin & tin, const Point & centre)
        : tin_(tin), centre_(centre), root_(tin.locate(centre)) {
        const TinEdge e = tin.edge(root_);
        visit(e);
        if (isChild(e)) visit(tin.twin(e));
    }

    std::vector<std::vector<unsigned>> all;

private:
    bool isRightOf(TinEdge e) const {
        return orient2d(tin_.position(tin_.origin(e)), tin_.position(tin_.destination(e)), centre_) < 0.0;
    }
    TinEdge parentEdge(TinFace f) const {
        const TinEdge first = tin_.edge(f), second = tin_.next(first), third = tin_.previous(first);
        if (isRightOf(first)) return isRightOf(third) ? third : first;
        return isRightOf(second) ? second : third;
    }
    bool isChild(TinEdge e) const {
        const TinFace f = tin_.face(tin_.twin(e));
        return f && f != root_ && parentEdge(f) == tin_.twin(e);
    }

    void visit(TinEdge e) {
        const unsigned a = tin_.origin(e).index(), b = tin_.origin(tin_.next(e)).index(),
                       c = tin_.origin(tin_.previous(e)).index();
        const bool byNext = isChild(tin_.next(e));
        all.push_back(byNext ? std::vector<unsigned>{a, b, c} : std::vector<unsigned>{b, c, a});
        follow(e, byNext, 1);
    }
    /// The strip goes on by the edge before the entry of its second face, by that after the entry of the
    /// third, and so on in turn.
    void follow(TinEdge e, bool byNext, unsigned face) {
        const TinEdge onward = byNext ? tin_.next(e) : tin_.previous(e);
        const TinEdge aside = byNext ? tin_.previous(e) : tin_.next(e);
        if (isChild(onward)) {
            const TinEdge entry = tin_.twin(onward);
            all.back().push_back(tin_.origin(tin_.previous(entry)).index());
            follow(entry, face % 2 == 0, face + 1);
        }
        if (isChild(aside)) visit(tin_.twin(aside));
    }

    const TestTin & tin_;
    const Point centre_;
    const TinFace root_;
};

/// With the smallest corner first, and the winding kept.
Triangle rotated(unsigned a, unsigned b, unsigned c) {
    Triangle t{a, b, c};
    std::rotate(t.begin(), std::min_element(t.begin(), t.end()), t.end());
    return t;
}

std::multiset<Triangle> decoded(const Strips & strips) {
    std::multiset<Triangle> triangles;
    for (const auto & s : strips.all())
        for (std::size_t i = 2; i < s.size(); ++i)
            triangles.insert(i % 2 ? rotated(s[i - 1], s[i - 2], s[i]) : rotated(s[i - 2], s[i - 1], s[i]));
    return triangles;
}

std::multiset<Triangle> facesOf(const TestTin & tin) {
    std::multiset<Triangle> triangles;
    for (unsigned i = 0; i < tin.faces(); ++i) {
        const TinFace f = tin.face(i);
        triangles.insert(
            rotated(tin.corner(f, 0).index(), tin.corner(f, 1).index(), tin.corner(f, 2).index()));
    }
    return triangles;
}

void fillRandomly(TestTin & tin, unsigned count, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    TestPoints::points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
    initOnLattice(tin, 2, 2);
    for (unsigned i = 4; i < count; ++i)
        tin.insert({Point(unit(random), unit(random), 0), i});
}

} // namespace

TEST(TinAlgorithmTinToTristrips, AnEmptyMeshIsReported) {
    RecordedReports reports;
    const Strips strips{TestTin()};
    EXPECT_EQ(reports.count(0, L"tin.faces() > 0", L"empty tin"), 1u);
    EXPECT_TRUE(strips.all().empty());
}

// The sum of the corners leaves the range of numbers, so that the centre is in no face.
TEST(TinAlgorithmTinToTristrips, FacesWithoutACentreAreReportedAndCutFromTheFirstOne) {
    setLattice(
        2, 2, [](unsigned, unsigned) { return 0.0; }, 1e308);
    for (Point & p : TestPoints::points)
        p.x = p.x * 0.5 + 1e308;
    TestTin tin;
    initOnLattice(tin, 2, 2);
    const RecordedReports reports;
    const Strips strips(tin);
    EXPECT_FALSE(std::isfinite(strips.centre().x));
    EXPECT_EQ(reports.count(0, L"f", L"internal error"), 1U) << reports;
    EXPECT_EQ(decoded(strips), facesOf(tin));
}

// The root begins at its first edge: what is beyond this edge is a strip of its own.
TEST(TinAlgorithmTinToTristrips, TwoFacesAreOneStripUnlessTheFirstEdgeOfTheRootIsShared) {
    setLattice(2, 2, [](unsigned, unsigned) { return 0.0; });
    using Result = std::vector<std::vector<unsigned>>;
    std::set<Result> results;
    for (unsigned seed = 0; seed < 20; ++seed) {
        std::srand(seed);
        TestTin tin;
        initOnLattice(tin, 2, 2);
        const Strips strips(tin);
        EXPECT_EQ(decoded(strips), facesOf(tin));
        results.insert(strips.all());
    }
    EXPECT_EQ(results, (std::set<Result>{{{1, 2, 0, 3}}, {{2, 3, 0}, {0, 1, 2}}}));
}

TEST(TinAlgorithmTinToTristrips, StripsComeInTheOrderOfTheRecursion) {
    for (unsigned seed = 0; seed < 200; ++seed) {
        SCOPED_TRACE(seed);
        std::srand(seed);
        TestTin tin;
        fillRandomly(tin, 4 + seed, seed);
        const Strips strips(tin);
        const StripsByRecursion expected(tin, strips.centre());
        ASSERT_EQ(strips.all(), expected.all);
    }
}

TEST(TinAlgorithmTinToTristrips, StripsHoldEachFaceOnceAndTurnAsItDoes) {
    for (unsigned seed = 0; seed < 100; ++seed) {
        SCOPED_TRACE(seed);
        std::srand(seed);
        TestTin tin;
        fillRandomly(tin, 4 + seed * seed / 4, seed);
        const Strips strips(tin);
        ASSERT_EQ(decoded(strips), facesOf(tin));
    }
}

TEST(TinAlgorithmTinToTristrips, StripsOfLatticesHoldEachFaceOnce) {
    for (const unsigned size : {3u, 10u, 41u}) {
        setLattice(size, size, [](unsigned, unsigned) { return 0.0; });
        TestTin tin;
        initOnLattice(tin, size, size);
        for (unsigned i = 0; i < size * size; ++i)
            tin.insert(i);
        for (unsigned seed = 0; seed < 20; ++seed) {
            std::srand(seed);
            const Strips strips(tin);
            ASSERT_EQ(decoded(strips), facesOf(tin));
        }
    }
}

TEST(TinAlgorithmTinToTristrips, StripsOfMeshesThatAreNotDelaunayHoldEachFaceOnce) {
    for (unsigned seed = 0; seed < 50; ++seed) {
        SCOPED_TRACE(seed);
        std::srand(seed);
        TestTin tin;
        fillRandomly(tin, 200, seed);
        std::mt19937 random(seed);
        for (int i = 0; i < 3000; ++i) {
            const TinEdge e(4 * (random() % tin.faces()) + random() % 3);
            if (tin.isFlippable(e)) tin.flip(e);
        }
        const Strips strips(tin);
        ASSERT_EQ(decoded(strips), facesOf(tin));
    }
}

TEST(TinAlgorithmTinToTristrips, TheSameRandomNumbersGiveTheSameStrips) {
    TestTin tin;
    fillRandomly(tin, 300, 1);
    std::srand(4);
    const Strips first(tin);
    std::srand(4);
    EXPECT_EQ(Strips(tin).all(), first.all());
}

// The share of vertices that strips repeat is what they are there for.
TEST(TinAlgorithmTinToTristrips, StripsAreLongerThanSingleTriangles) {
    TestTin tin;
    fillRandomly(tin, 2000, 2);
    std::size_t vertices = 0;
    const Strips strips(tin);
    for (const auto & s : strips.all())
        vertices += s.size();
    EXPECT_LT(static_cast<double>(vertices) / tin.faces(), 2.5);
}

// A long thin mesh has a tree as deep as it has faces.
TEST(TinAlgorithmTinToTristrips, ADeepTreeDoesNotExhaustTheStack) {
    constexpr unsigned length = 100000;
    setLattice(length, 2, [](unsigned, unsigned) { return 0.0; });
    TestTin tin;
    initOnLattice(tin, length, 2);
    TinFace hint = tin.face(0u);
    for (unsigned i = 1; i + 1 < length; ++i)
        for (const unsigned number : {i, length + i})
            hint = tin.face(tin.edge(tin.insert(number, hint)));
    EXPECT_EQ(tin.faces(), 2 * (length - 1));
    std::srand(1);
    EXPECT_EQ(decoded(Strips(tin)), facesOf(tin));
}
