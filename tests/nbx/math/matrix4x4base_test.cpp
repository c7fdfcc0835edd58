#include <nbx/math/matrix4x4base.h>

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using M = NBX::Matrix4x4Base<double>;
using V = NBX::Vector3Base<double>;

namespace {

constexpr double s_pi = 3.14159265358979323846;

void expectNear(const V & a, const V & b, double tolerance) {
    for (unsigned axis = 0; axis < 3; ++axis)
        EXPECT_NEAR(a[axis], b[axis], tolerance);
}

TEST(Matrix4x4Base, IsTheIdentityAtFirst) {
    const V p(1, 2, 3);
    EXPECT_EQ(M() * p, p);
    EXPECT_EQ(M() * M(), M());
    EXPECT_EQ(M().inverse(), M());
}

TEST(Matrix4x4Base, TheRightFactorWorksFirst) {
    const M move = M::translation(V(10, 0, 0)), scale = M::scaling(V(2, 3, 4));
    EXPECT_EQ((move * scale) * V(1, 1, 1), V(12, 3, 4));
    EXPECT_EQ((scale * move) * V(1, 1, 1), V(22, 3, 4));
    EXPECT_EQ(move.transformDirection(V(1, 1, 1)), V(1, 1, 1));
}

TEST(Matrix4x4Base, RotatesRightHanded) {
    const M turn = M::rotation(V(0, 0, 5), s_pi / 2);
    expectNear(turn * V(1, 0, 0), V(0, 1, 0), 1e-15);
    expectNear(M::rotation(V(0, 1, 0), s_pi / 2) * V(0, 0, 1), V(1, 0, 0), 1e-15);
    expectNear(M::rotation(V(1, 1, 1), 2 * s_pi / 3) * V(1, 0, 0), V(0, 1, 0), 1e-15);
}

TEST(Matrix4x4Base, DividesByTheFourthComponent) {
    M perspective;
    perspective(3, 2) = -1;
    perspective(3, 3) = 0;
    EXPECT_EQ(perspective * V(2, 4, -2), V(1, 2, -1));
}

TEST(Matrix4x4Base, RowsAndColumns) {
    const M m = M::translation(V(7, 8, 9));
    EXPECT_EQ(m.rows()[3], 7);
    EXPECT_EQ(m.columns()[12], 7);
    EXPECT_EQ(m(1, 3), 8);
    EXPECT_EQ(m.transposed()(3, 2), 9);
    EXPECT_EQ(M(m.rows()), m);
}

TEST(Matrix4x4Base, TransformsRays) {
    const NBX::Ray ray =
        M::translation(V(1, 0, 0)) * M::scaling(V(2, 2, 2)) * NBX::Ray(V(1, 1, 1), V(0, 0, -1));
    EXPECT_EQ(ray.getOrigin(), V(3, 2, 2));
    EXPECT_EQ(ray.getDirection(), V(0, 0, -2));
    EXPECT_EQ(ray.point(0.5), V(3, 2, 1));
}

TEST(Matrix4x4Base, InverseOfASingularMatrixIsNotANumber) {
    for (const M & m : {M::scaling(V(1, 0, 1)), M::scaling(V(0, 0, 0)), M(std::array<double, 16>{})}) {
        const M inverse = m.inverse();
        for (const double entry : inverse.rows())
            EXPECT_TRUE(std::isnan(entry)) << entry;
    }
}

/// Law: a matrix times its inverse is the identity, over scales from thousandths to thousands of kilometres.
TEST(Matrix4x4Base, InverseUndoesTheMatrix) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(-1, 1), power(-3, 3);
    const auto vector = [&] { return V(unit(random), unit(random), unit(random)); };
    const auto factor = [&] { return std::pow(10.0, power(random)); };
    for (int i = 0; i < 2000; ++i) {
        const double scale = factor();
        const M m = M::translation(vector() * 1e6) * M::rotation(vector(), unit(random) * 3) *
                    M::scaling(V(scale, scale * 2, scale * 0.5));
        const V p = vector() * 1e3;
        const V moved = m * p;
        expectNear(m.inverse() * moved, p, 1e-9 * (1e6 + moved.length()) / scale);
    }
}

} // namespace
