#include "landscape/viewpoint.h"

#include <gtest/gtest.h>

#include "landscape/errors.h"

namespace {

TEST(ParseView, KnowsThreeNames) {
    EXPECT_EQ(View::Name::Overview, parseView("overview").name);
    EXPECT_EQ(View::Name::CloseUp, parseView("closeup").name);
    EXPECT_EQ(View::Name::North, parseView("north").name);
    for (const char * name : {"overview", "closeup", "north"})
        EXPECT_FALSE(parseView(name).coordinates) << name;
}

TEST(ParseView, SixNumbersAreEyeAndAim) {
    const View view = parseView("1.5,-2,3e2,4,5,6");
    ASSERT_TRUE(view.coordinates);
    EXPECT_EQ((std::array<double, 6>{1.5, -2.0, 300.0, 4.0, 5.0, 6.0}), *view.coordinates);
}

TEST(ParseView, EverythingElseIsRefused) {
    for (const char * text : {"", "North", "1,2,3", "1,2,3,4,5,6,", "1,2,3,4,5,x", "1,2,3,4,5,inf",
                              "nan,2,3,4,5,6", "1 2 3 4 5 6", "1,2,3,1,2,3"})
        EXPECT_THROW(parseView(text), UsageError) << text;
}

} // namespace
