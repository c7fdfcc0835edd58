#include "tinfixture.h"

#include <support/recordedreports.h>

#include <zmt/core/terrain/geometry/tin/tinalgorithmpointstotin.h>

#include <limits>
#include <list>
#include <numeric>

using namespace ZMT::CORE;

namespace {

/// The same refinement the straight way: lists, a multimap, and a walk and a height for each candidate.
class StraightRefinement : public TestTin {
public:
    using TestTin::insert;

    double run(TestTin & tin, const std::vector<unsigned> & points, double threshold, unsigned budget) {
        swap(tin);
        points_ = points;
        hints_.assign(points.size(), face(0u));
        for (unsigned i = 0; i < points.size(); ++i)
            lists_[face(0u)].push_back(i);
        for (unsigned f = 0; f < faces(); ++f)
            mark(face(f));
        update(-1);
        changed_.clear();
        while (!(errors_.empty() || maxError() <= threshold || budget <= faces())) {
            const double e = maxError();
            do {
                insertBest();
                changed_.clear();
            } while (maxError() > e);
        }
        swap(tin);
        return maxError();
    }

    TinNode insert(const TinPoint & point, TinFace hint) override {
        const TinNode n = TestTin::insert(point, hint);
        std::vector<TinEdge> ring;
        if (n) collectRing(n, ring);
        for (const TinEdge e : ring)
            mark(face(e));
        return n;
    }
    void flip(TinEdge edge) override {
        mark(face(edge));
        mark(face(twin(edge)));
        TestTin::flip(edge);
    }

private:
    void mark(TinFace f) {
        if (f && std::find(changed_.begin(), changed_.end(), f) == changed_.end()) changed_.push_back(f);
    }
    double maxError() const { return errors_.empty() ? 0.0 : std::prev(errors_.end())->first; }

    void insertBest() {
        const int best = best_[std::prev(errors_.end())->second];
        insert({TestPoints::point(points_[best]), points_[best]}, hints_[best]);
        update(best);
    }

    void update(int inserted) {
        std::list<int> all;
        for (const TinFace f : changed_)
            all.splice(all.end(), lists_[f]);
        for (const int i : all) {
            if (i == inserted) continue;
            const TinFace f = locate(points_[i], hints_[i]);
            if (!f) continue;
            hints_[i] = f;
            mark(f);
            lists_[f].push_back(i);
        }
        for (const TinFace f : changed_) {
            const auto entry =
                std::find_if(errors_.begin(), errors_.end(), [f](const auto & e) { return e.second == f; });
            if (entry != errors_.end()) errors_.erase(entry);
            double largest = 0.0;
            int best = -1;
            for (const int i : lists_[f]) {
                const Point p = TestPoints::point(points_[i]);
                const double error = std::fabs(heightOn(f, p) - p.z);
                if (error > largest) {
                    largest = error;
                    best = i;
                }
            }
            best_[f] = best;
            if (largest > 0.0) errors_.emplace(largest, f);
        }
    }

    std::vector<unsigned> points_;
    std::vector<TinFace> hints_;
    std::vector<TinFace> changed_;
    std::map<TinFace, std::list<int>> lists_;
    std::map<TinFace, int> best_;
    std::multimap<double, TinFace> errors_;
};

std::vector<unsigned> allPoints() {
    std::vector<unsigned> numbers(TestPoints::points.size());
    std::iota(numbers.begin(), numbers.end(), 0u);
    return numbers;
}

void expectSameMesh(const TestTin & a, const TestTin & b) {
    ASSERT_EQ(a.nodes(), b.nodes());
    ASSERT_EQ(a.faces(), b.faces());
    for (unsigned i = 0; i < a.nodes(); ++i) {
        ASSERT_EQ(a.number(a.node(i)), b.number(b.node(i))) << "node " << i;
        ASSERT_EQ(a.position(a.node(i)), b.position(b.node(i))) << "node " << i;
    }
    for (unsigned i = 0; i < a.faces(); ++i)
        for (unsigned k = 0; k < 3; ++k)
            ASSERT_EQ(a.corner(a.face(i), k), b.corner(b.face(i), k)) << "face " << i;
}

/// Refines twice, and compares.
void expectAsStraight(unsigned columns, unsigned rows, const std::vector<unsigned> & points, double threshold,
                      unsigned budget) {
    TestTin fast, straight;
    initOnLattice(fast, columns, rows);
    initOnLattice(straight, columns, rows);
    const double error = TinAlgorithmPointsToTin<TestPoints>().run(fast, points, threshold, budget);
    EXPECT_EQ(StraightRefinement().run(straight, points, threshold, budget), error);
    expectSameMesh(fast, straight);
    expectConsistent(fast);
    expectDelaunay(fast);
}

struct Surface {
    const char * name;
    double (*height)(unsigned x, unsigned y);
};

double noise(unsigned x, unsigned y) {
    return static_cast<double>((x * 73856093u ^ y * 19349663u) * 2654435761u >> 8 & 0xFFFF);
}

const Surface surfaces[] = {
    {"flat", [](unsigned, unsigned) { return 3.0; }},
    {"plane", [](unsigned x, unsigned y) { return 2.0 * x - 3.0 * y; }},
    {"steps", [](unsigned x, unsigned y) { return static_cast<double>(x / 5 + y / 7); }},
    {"few values",
     [](unsigned x, unsigned y) { return static_cast<double>(static_cast<unsigned>(noise(x, y)) % 3); }},
    {"noise", [](unsigned x, unsigned y) { return noise(x, y); }},
    {"waves", [](unsigned x, unsigned y) { return 100.0 * std::sin(x * 0.3) * std::cos(y * 0.2); }},
    {"float waves",
     [](unsigned x, unsigned y) {
         return static_cast<double>(static_cast<float>(800.0 * std::sin(x * 0.1 + y * 0.17)));
     }},
    {"one peak", [](unsigned x, unsigned y) { return x == 11 && y == 6 ? 9.0 : 0.0; }},
    {"symmetric", [](unsigned x, unsigned y) { return std::fabs(x - 16.0) + std::fabs(y - 16.0); }},
    {"holes",
     [](unsigned x, unsigned y) {
         return x % 32 + y % 32 > 0 && noise(x, y) < 9000 ? std::nan("") : noise(x, y);
     }},
};

class PointsToTin : public testing::TestWithParam<Surface> {};

} // namespace

TEST_P(PointsToTin, GivesWhatTheStraightWayGives) {
    RecordedReports reports;
    for (const double cell : {1.0, 92.76624}) {
        setLattice(33, 33, GetParam().height, cell, cell == 1.0 ? 0.0 : 12345.678);
        for (const unsigned budget : {2u, 3u, 60u, 700u, 100000u})
            ASSERT_NO_FATAL_FAILURE(expectAsStraight(33, 33, allPoints(), 1e-6, budget));
        ASSERT_NO_FATAL_FAILURE(expectAsStraight(33, 33, allPoints(), 0.0, 100000));
        ASSERT_NO_FATAL_FAILURE(expectAsStraight(33, 33, allPoints(), 5.0, 100000));
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

INSTANTIATE_TEST_SUITE_P(Surfaces, PointsToTin, testing::ValuesIn(surfaces), [](const auto & info) {
    std::string name = info.param.name;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
});

TEST(TinAlgorithmPointsToTin, GivesWhatTheStraightWayGivesForScatteredPoints) {
    for (unsigned seed = 0; seed < 20; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        TestPoints::points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
        for (int i = 0; i < 600; ++i)
            TestPoints::points.emplace_back(unit(random), unit(random), unit(random));
        // Some come twice, some twice with another height, some lie on the border.
        for (int i = 0; i < 50; ++i) {
            const Point p = TestPoints::points[4 + random() % 500];
            TestPoints::points.emplace_back(p.x, p.y, random() % 2 ? p.z : unit(random));
            TestPoints::points.emplace_back(unit(random), i % 2, unit(random));
        }
        ASSERT_NO_FATAL_FAILURE(expectAsStraight(2, 2, allPoints(), 1e-9, 400 + 100 * seed));
    }
}

TEST(TinAlgorithmPointsToTin, CandidatesThatComeTwiceAreHarmless) {
    setLattice(17, 17, noise);
    std::vector<unsigned> points = allPoints();
    for (unsigned i = 0; i < 17; ++i)
        for (const unsigned j : {i, 17 * i, 17 * 16 + i})
            points.push_back(j);
    expectAsStraight(17, 17, points, 1e-6, 300);
    expectAsStraight(17, 17, points, 0.0, 100000);
}

TEST(TinAlgorithmPointsToTin, AMeshThatIsRefinedAgainGoesOn) {
    setLattice(33, 33, noise);
    TestTin fast, straight;
    initOnLattice(fast, 33, 33);
    initOnLattice(straight, 33, 33);
    TinAlgorithmPointsToTin<TestPoints> refinement;
    for (const unsigned budget : {50u, 200u, 500u}) {
        const double error = refinement.run(fast, allPoints(), 1e-6, budget);
        EXPECT_EQ(StraightRefinement().run(straight, allPoints(), 1e-6, budget), error);
        expectSameMesh(fast, straight);
    }
}

TEST(TinAlgorithmPointsToTin, ConstraintsInTheMeshAreKept) {
    setLattice(33, 33, noise);
    const auto prepare = [](TestTin & tin) {
        initOnLattice(tin, 33, 33);
        tin.constrain(tin.insert(33 * 4 + 3), tin.insert(33 * 20 + 29));
        tin.constrain(tin.insert(33 * 10 + 2), tin.insert(33 * 10 + 30));
    };
    RecordedReports reports;
    TestTin fast, straight;
    prepare(fast);
    prepare(straight);
    const double error = TinAlgorithmPointsToTin<TestPoints>().run(fast, allPoints(), 1e-6, 600);
    EXPECT_EQ(StraightRefinement().run(straight, allPoints(), 1e-6, 600), error);
    expectSameMesh(fast, straight);
    expectConsistent(fast);
    expectDelaunay(fast);
}

TEST(TinAlgorithmPointsToTin, APlaneNeedsNoPoint) {
    setLattice(
        50, 50, [](unsigned x, unsigned y) { return 100.0 + 0.37 * x - 1.91 * y; }, 30.0, 7e5);
    TestTin tin;
    initOnLattice(tin, 50, 50);
    EXPECT_LE(TinAlgorithmPointsToTin<TestPoints>().run(tin, allPoints(), 1e-6, 4000), 1e-6);
    EXPECT_EQ(tin.faces(), 2u);
}

TEST(TinAlgorithmPointsToTin, ABudgetOfTwoEndsWithTheTwoCornerTriangles) {
    setLattice(17, 17, noise);
    TestTin tin;
    initOnLattice(tin, 17, 17);
    double largest = 0.0;
    for (unsigned i = 0; i < 17 * 17; ++i)
        largest = std::max(largest, std::fabs(tin.height(i) - TestPoints::point(i).z));
    EXPECT_EQ(TinAlgorithmPointsToTin<TestPoints>().run(tin, allPoints(), 1e-6, 2), largest);
    EXPECT_EQ(tin.faces(), 2u);
}

TEST(TinAlgorithmPointsToTin, TheBudgetCountsFacesAndIsExceededOnlyToLowerTheError) {
    setLattice(65, 65, noise);
    TestTin tin;
    initOnLattice(tin, 65, 65);
    TinAlgorithmPointsToTin<TestPoints>().run(tin, allPoints(), 1e-6, 1000);
    EXPECT_GE(tin.faces(), 1000u);
    EXPECT_LT(tin.faces(), 1200u);
    EXPECT_LT(tin.nodes(), 700u);
}

TEST(TinAlgorithmPointsToTin, TheResultIsTheLargestErrorOverAllPoints) {
    setLattice(65, 65, surfaces[5].height);
    TestTin tin;
    initOnLattice(tin, 65, 65);
    const double error = TinAlgorithmPointsToTin<TestPoints>().run(tin, allPoints(), 0.5, 100000);
    EXPECT_LE(error, 0.5);
    double largest = 0.0;
    TinFace hint;
    for (unsigned i = 0; i < 65 * 65; ++i) {
        hint = tin.locate(i, hint);
        largest =
            std::max(largest, std::fabs(tin.heightOn(hint, TestPoints::point(i)) - TestPoints::point(i).z));
    }
    EXPECT_NEAR(largest, error, 1e-9);
}

TEST(TinAlgorithmPointsToTin, ThresholdZeroLeavesNoPointOffTheSurface) {
    setLattice(9, 9, noise);
    TestTin tin;
    initOnLattice(tin, 9, 9);
    EXPECT_EQ(TinAlgorithmPointsToTin<TestPoints>().run(tin, allPoints(), 0.0, 100000), 0.0);
    for (unsigned i = 0; i < 81; ++i)
        EXPECT_EQ(tin.height(i), TestPoints::point(i).z);
}

// Two points in one place with two heights: the second one takes the node over, and that is all.
TEST(TinAlgorithmPointsToTin, PointsAboveEachOtherEnd) {
    TestPoints::points = {{0, 0, 0}, {4, 0, 0}, {0, 4, 0}, {4, 4, 0}, {1, 2, 10}, {1, 2, 30}, {1, 2, -5}};
    TestTin tin;
    initOnLattice(tin, 2, 2);
    TinAlgorithmPointsToTin<TestPoints>().run(tin, allPoints(), 1e-6, 1000);
    EXPECT_EQ(tin.nodes(), 5u);
    expectConsistent(tin);
}

TEST(TinAlgorithmPointsToTin, PointsOutsideAndNowhereAreReportedAndLeftOut) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    TestPoints::points = {{0, 0, 0}, {1, 0, 0},     {0, 1, 0},    {1, 1, 0},
                          {5, 5, 9}, {nan, 0.5, 9}, {0.3, 0.6, 2}};
    TestTin tin;
    initOnLattice(tin, 2, 2);
    RecordedReports reports;
    EXPECT_EQ(TinAlgorithmPointsToTin<TestPoints>().run(tin, allPoints(), 1e-6, 1000), 0.0);
    EXPECT_EQ(reports.count(L"point outside the triangulation"), 2u);
    EXPECT_EQ(tin.nodes(), 5u);
}

TEST(TinAlgorithmPointsToTin, NothingComesOfNothing) {
    TestPoints::points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
    TestTin tin;
    EXPECT_EQ(TinAlgorithmPointsToTin<TestPoints>().run(tin, allPoints(), 0.0, 10), 0.0);
    EXPECT_TRUE(tin.empty());
    initOnLattice(tin, 2, 2);
    EXPECT_EQ(TinAlgorithmPointsToTin<TestPoints>().run(tin, {}, 0.0, 10), 0.0);
    EXPECT_EQ(tin.faces(), 2u);
}
