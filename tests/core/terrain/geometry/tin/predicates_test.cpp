#include <zmt/core/terrain/geometry/tin/predicates.h>

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <random>

using namespace ZMT::CORE;

namespace {

using Point = NBX::Vector3Base<double>;

int signOf(double value) {
    return value > 0.0 ? 1 : value < 0.0 ? -1 : 0;
}

struct Difference {
    Difference(const Point & p, const Point & q)
        : x(mpq_class(p.x) - mpq_class(q.x)), y(mpq_class(p.y) - mpq_class(q.y)) {}
    mpq_class lift() const { return x * x + y * y; }
    mpq_class x, y;
};

mpq_class cross(const Difference & p, const Difference & q) {
    return p.x * q.y - p.y * q.x;
}

int exactOrient(const Point & a, const Point & b, const Point & c) {
    return sgn(cross(Difference(a, c), Difference(b, c)));
}

int exactCircle(const Point & a, const Point & b, const Point & c, const Point & d) {
    const Difference p(a, d), q(b, d), r(c, d);
    const mpq_class det = p.lift() * cross(q, r) + q.lift() * cross(r, p) + r.lift() * cross(p, q);
    return sgn(det);
}

/// Moves a coordinate by a few of the smallest steps there are.
double nudge(double value, std::mt19937 & random) {
    const int steps = static_cast<int>(random() % 5) - 2;
    for (int i = 0; i < std::abs(steps); ++i)
        value = std::nextafter(value, steps < 0 ? -1e300 : 1e300);
    return value;
}

class PredicatesTest : public testing::Test {
protected:
    double uniform(double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    }
    double anyScale() { return std::ldexp(uniform(-1.0, 1.0), static_cast<int>(random() % 60) - 30); }

    static constexpr unsigned seed = 20240607;
    std::mt19937 random{seed};
};

void expectOrient(const Point & a, const Point & b, const Point & c) {
    const int expected = exactOrient(a, b, c);
    ASSERT_EQ(signOf(orient2d(a, b, c)), expected);
    ASSERT_EQ(signOf(orient2d(b, c, a)), expected);
    ASSERT_EQ(signOf(orient2d(b, a, c)), -expected);
}

void expectCircle(const Point & a, const Point & b, const Point & c, const Point & d) {
    const int expected = exactCircle(a, b, c, d);
    ASSERT_EQ(signOf(incircle(a, b, c, d)), expected);
    ASSERT_EQ(signOf(incircle(b, a, c, d)), -expected);
    ASSERT_EQ(signOf(incircle(b, c, a, d)), expected);
}

} // namespace

TEST(Predicates, DetectsTheArithmeticOfTheMachine) {
    EXPECT_EQ(predicateBounds.epsilon, std::numeric_limits<double>::epsilon() / 2.0);
    EXPECT_EQ(predicateBounds.splitter, 134217729.0);
}

TEST(Predicates, KnowLeftFromRightAndInsideFromOutside) {
    const Point a(0, 0, 7), b(1, 0, 8), c(0, 1, 9);
    EXPECT_GT(orient2d(a, b, c), 0.0);
    EXPECT_LT(orient2d(a, c, b), 0.0);
    EXPECT_EQ(orient2d(a, b, Point(5, 0, 1)), 0.0);
    EXPECT_GT(incircle(a, b, c, Point(0.5, 0.5, 0)), 0.0);
    EXPECT_LT(incircle(a, b, c, Point(2, 2, 0)), 0.0);
    EXPECT_EQ(incircle(a, b, c, Point(1, 1, 0)), 0.0);
    EXPECT_EQ(incircle(a, b, c, a), 0.0);
}

TEST(Predicates, EndForCoordinatesThatAreNotFinite) {
    const double nan = std::numeric_limits<double>::quiet_NaN(),
                 inf = std::numeric_limits<double>::infinity();
    const Point a(0, 0, 0), b(1, 0, 0), c(0, 1, 0);
    for (const double bad : {nan, inf}) {
        EXPECT_TRUE(std::isnan(orient2d(a, b, Point(bad, 0, 0))));
        EXPECT_TRUE(std::isnan(incircle(a, b, c, Point(bad, 0, 0))));
        EXPECT_FALSE(incircle(a, b, c, Point(bad, bad, 0)) > 0.0);
    }
}

TEST_F(PredicatesTest, AgreeWithRationalsOnRandomPoints) {
    SCOPED_TRACE(seed);
    for (int i = 0; i < 20000; ++i) {
        const auto point = [&] { return Point(anyScale(), anyScale(), 0); };
        const Point a = point(), b = point(), c = point(), d = point();
        ASSERT_NO_FATAL_FAILURE(expectOrient(a, b, c));
        ASSERT_NO_FATAL_FAILURE(expectCircle(a, b, c, d));
    }
}

// Points on a line through rounded positions, then a few steps off it.
TEST_F(PredicatesTest, AgreeWithRationalsNearALine) {
    SCOPED_TRACE(seed);
    for (int i = 0; i < 30000; ++i) {
        const Point a(anyScale(), anyScale(), 0), b(anyScale(), anyScale(), 0);
        const double t = i % 2 ? uniform(-2, 2) : 0.5;
        Point c = a + (b - a) * t;
        if (i % 3) c = Point(nudge(c.x, random), nudge(c.y, random), 0);
        ASSERT_NO_FATAL_FAILURE(expectOrient(a, b, c));
    }
}

// The published figure: a tiny neighbourhood of a point far down the diagonal.
TEST_F(PredicatesTest, AgreeWithRationalsAlongTheDiagonal) {
    const Point b(12, 12, 0), c(24, 24, 0);
    const double step = std::ldexp(1.0, -53);
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x)
            ASSERT_NO_FATAL_FAILURE(expectOrient(Point(0.5 + x * step, 0.5 + y * step, 0), b, c));
}

TEST_F(PredicatesTest, AgreeWithRationalsNearACircle) {
    SCOPED_TRACE(seed);
    for (int i = 0; i < 30000; ++i) {
        const double radius = std::fabs(anyScale());
        const double distance = i % 4 == 0 ? 0.0 : i % 4 == 1 ? 1e3 : radius;
        const Point centre(uniform(-1, 1) * distance, uniform(-1, 1) * distance, 0);
        std::array<Point, 4> p;
        for (Point & q : p) {
            const double angle = uniform(0, 6.28);
            q = centre + Point(std::cos(angle), std::sin(angle), 0) * radius;
            if (i % 3) q = Point(nudge(q.x, random), nudge(q.y, random), 0);
        }
        ASSERT_NO_FATAL_FAILURE(expectCircle(p[0], p[1], p[2], p[3]));
    }
}

// Lattices are degenerate nearly everywhere, with cells that binary fractions hold, and with others.
TEST_F(PredicatesTest, AgreeWithRationalsOnLattices) {
    SCOPED_TRACE(seed);
    for (const double cell : {1.0, 0.25, 30.0, 0.1, 92.76624, 1e-9, 3e7}) {
        for (const double offset : {0.0, 1e5 + 0.1}) {
            for (int i = 0; i < 2500; ++i) {
                const unsigned size = i % 2 ? 4 : 5000;
                const auto point = [&] {
                    return Point(offset + (random() % size) * cell, offset + (random() % size) * cell, 0);
                };
                const Point a = point(), b = point(), c = point();
                const Point d = i % 3 ? point() : Point(a.x + c.x - b.x, a.y + c.y - b.y, 0);
                ASSERT_NO_FATAL_FAILURE(expectOrient(a, b, c));
                ASSERT_NO_FATAL_FAILURE(expectCircle(a, b, c, d));
                ASSERT_NO_FATAL_FAILURE(expectCircle(a, Point(c.x, a.y, 0), c, Point(a.x, c.y, 0)));
            }
        }
    }
}

// Differences with rounding errors all over, so that the last stages are reached.
TEST_F(PredicatesTest, AgreeWithRationalsWhereDifferencesAreRounded) {
    SCOPED_TRACE(seed);
    for (int i = 0; i < 10000; ++i) {
        const double scale = std::ldexp(1.0, -static_cast<int>(random() % 60));
        const Point a(1.0, scale, 0), b(3.0, 1.0 + scale, 0);
        const double x = uniform(1e-3, 3.0);
        Point c(x, (x - 1.0) / 2.0 + scale, 0);
        c = Point(c.x, nudge(c.y, random), 0);
        ASSERT_NO_FATAL_FAILURE(expectOrient(a, b, c));
        // An isosceles trapezoid has its corners on a circle; rounded, it hardly has.
        const double w = uniform(0.1, 1), v = uniform(0.1, 1), h = uniform(1, 2), m = scale * uniform(1, 2);
        const std::array<Point, 4> p{Point(m - w, 0.1 * scale, 0), Point(m + w, 0.1 * scale, 0),
                                     Point(m + v, h, 0), Point(m - v, nudge(h, random), 0)};
        ASSERT_NO_FATAL_FAILURE(expectCircle(p[0], p[1], p[2], p[3]));
    }
}

// Squares of lattices, turned by any number of cells, are on a circle but for the rounding of the corners;
// the fourth one is moved by some units in the last place.
TEST_F(PredicatesTest, AgreeWithRationalsOnLatticesWhoseCoordinatesAreRounded) {
    SCOPED_TRACE(seed);
    for (int run = 0; run < 20000; ++run) {
        const auto cells = [&](int most) { return static_cast<int>(random() % unsigned(most)); };
        const double cell = std::ldexp(uniform(1.0, 2.0), (cells(300) - 150) / (run % 2 == 0 ? 1 : 30));
        const double first = run % 3 == 0 ? 0.0 : cell * cells(1 << 20);
        const int x = cells(1000), y = cells(1000), k = 1 + cells(20), m = 1 + cells(20);
        const auto at = [&](int column, int row) {
            return Point(first + column * cell, first + row * cell, 0.0);
        };
        Point moved = at(x, y + k + m);
        moved.x = nudge(moved.x, random);
        ASSERT_NO_FATAL_FAILURE(
            expectCircle(at(x + k, y), at(x + 2 * k + m, y + k), at(x + k + m, y + 2 * k + m), moved));
    }
}

// Symmetric by construction: exactly on the circle, while the differences are not exact.
TEST_F(PredicatesTest, FindExactZerosBehindRoundedDifferences) {
    for (int i = 0; i < 5000; ++i) {
        const double tiny = std::ldexp(uniform(1, 2), -60), w = uniform(1, 2), v = uniform(1, 2);
        const Point a(-w, tiny, 0), b(w, tiny, 0), c(v, 1.0, 0), d(-v, 1.0, 0);
        ASSERT_EQ(exactCircle(a, b, c, d), 0);
        ASSERT_NO_FATAL_FAILURE(expectCircle(a, b, c, d));
        const Point p(tiny, -tiny, 0), q(w, -w, 0), r(v, -v, 0);
        ASSERT_EQ(orient2d(p, q, r), 0.0);
    }
}
