#include <nbx/math/color.h>

#include <gtest/gtest.h>

using NBX::Color;

namespace {

TEST(Color, BuiltFromOneOrFourComponents) {
    EXPECT_EQ(Color(), Color::black);
    EXPECT_EQ(Color(0.5), Color(0.5F, 0.5F, 0.5F, 1.0F));
    EXPECT_EQ(Color(0.1, 0.2, 0.3, 0.4)[3], 0.4F);
    EXPECT_EQ(Color(0.1F, 0.2F, 0.3F)[3], 1.0F);
    EXPECT_EQ(Color(0.1, 0.2, 0.3).data()[1], 0.2F);
}

TEST(Color, NamedConstants) {
    EXPECT_EQ(Color::white, Color(1.0));
    EXPECT_EQ(Color::red, Color(1.0, 0.0, 0.0));
    EXPECT_EQ(Color::green, Color(0.0, 1.0, 0.0));
    EXPECT_EQ(Color::blue, Color(0.0, 0.0, 1.0));
    EXPECT_EQ(Color::yellow, Color(1.0, 1.0, 0.0));
    for (const Color & c : {Color::gold, Color::lt_blue})
        EXPECT_EQ(c[3], 1.0F);
    EXPECT_FALSE(Color::gold == Color::yellow);
}

} // namespace
