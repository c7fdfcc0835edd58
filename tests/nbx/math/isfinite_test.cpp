#include <nbx/math/isfinite.h>

#include <limits>

#include <gtest/gtest.h>

using namespace NBX;

namespace {

template <class T> void expectEachComponentCounts() {
    const T largest = std::numeric_limits<T>::max();
    EXPECT_TRUE(isFinite(Vector3Base<T>(0, -largest, largest)));
    for (const T bad : {std::numeric_limits<T>::infinity(), -std::numeric_limits<T>::infinity(),
                        std::numeric_limits<T>::quiet_NaN()}) {
        EXPECT_FALSE(isFinite(Vector3Base<T>(bad, 0, 0)));
        EXPECT_FALSE(isFinite(Vector3Base<T>(0, bad, 0)));
        EXPECT_FALSE(isFinite(Vector3Base<T>(0, 0, bad)));
    }
}

TEST(IsFinite, EachComponentCounts) {
    expectEachComponentCounts<double>();
    expectEachComponentCounts<float>();
}

} // namespace
