#include <nbx/math/vector3base.h>

#include <gtest/gtest.h>

using V = NBX::Vector3Base<double>;

namespace {

TEST(Vector3Base, StartsAtZero) {
    EXPECT_EQ(V(), V(0, 0, 0));
}

TEST(Vector3Base, Arithmetic) {
    const V a(1, 2, 3), b(4, -5, 6);
    EXPECT_EQ(a + b, V(5, -3, 9));
    EXPECT_EQ(a - b, V(-3, 7, -3));
    EXPECT_EQ(-a, V(-1, -2, -3));
    EXPECT_EQ(a * 2.0, V(2, 4, 6));
    EXPECT_EQ(2.0 * a, a * 2.0);
    EXPECT_EQ(a / 2.0, V(0.5, 1, 1.5));
    V c = a;
    c += b;
    c -= a;
    c *= 3.0;
    EXPECT_EQ(c, b * 3.0);
}

TEST(Vector3Base, ProductsAndLength) {
    const V x(1, 0, 0), y(0, 1, 0), z(0, 0, 1);
    EXPECT_EQ(x.cross(y), z);
    EXPECT_EQ(y.cross(x), -z);
    EXPECT_EQ(V(1, 2, 3).dot(V(4, 5, 6)), 32.0);
    EXPECT_EQ(V(3, 4, 12).length(), 13.0);
    EXPECT_EQ(V(3, 4, 12).length2(), 169.0);
}

TEST(Vector3Base, NormalizedHasLengthOneAndZeroStays) {
    EXPECT_NEAR(V(3, -4, 12).normalized().length(), 1.0, 1e-15);
    EXPECT_EQ(V().normalized(), V());
}

TEST(Vector3Base, IndexGivesTheAxis) {
    V v(1, 2, 3);
    v[1] = 7;
    EXPECT_EQ(v[0], 1);
    EXPECT_EQ(v.y, 7);
    EXPECT_EQ(v[2], 3);
}

TEST(Vector3Base, ConvertsBetweenFloatAndDouble) {
    const NBX::Vector3Base<float> f(V(0.5, 1e10, -2));
    EXPECT_EQ(f.x, 0.5F);
    EXPECT_EQ(V(f), V(0.5, 1e10, -2));
}

} // namespace
