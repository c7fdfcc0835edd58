#include <nbx/object/nbxtime.h>

#include <gtest/gtest.h>

namespace {

TEST(NBXTime, NeverGoesBackwards) {
    double last = NBX::NBXTime::now();
    for (int i = 0; i < 10000; ++i) {
        const double now = NBX::NBXTime::now();
        ASSERT_GE(now, last);
        last = now;
    }
}

TEST(NBXTime, IsSecondsAsANumber) {
    const NBX::NBXTime time(2.5);
    EXPECT_EQ(time + 0.5, 3.0);
    EXPECT_EQ(double(NBX::NBXTime()), 0.0);
}

} // namespace
