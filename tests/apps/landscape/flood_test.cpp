#include "landscape/flood.h"

#include <gtest/gtest.h>

#include "landscape/errors.h"

namespace {

TEST(Flood, IsAHeightAndAColor) {
    EXPECT_EQ(parseFlood("120.5").height, 120.5);
    EXPECT_EQ(parseFlood("120.5").color, FloodOptions{}.color);
    const FloodOptions coloured = parseFlood("-30,#ff000080");
    EXPECT_EQ(coloured.height, -30.0);
    EXPECT_FLOAT_EQ(coloured.color[0], 1.0F);
    EXPECT_FLOAT_EQ(coloured.color[1], 0.0F);
    EXPECT_NEAR(coloured.color[3], 128.0 / 255.0, 1e-6);
    EXPECT_FLOAT_EQ(parseFlood("1,red").color[3], 1.0F);
}

TEST(Flood, WhatIsNoneIsRefused) {
    for (const char * text :
         {"", "x", "12x", "nan", "inf", ",red", "5,", "5,nonsense", "5,red,width=3", "5,red;width=3"}) {
        try {
            parseFlood(text);
            ADD_FAILURE() << text;
        } catch (const UsageError & error) {
            EXPECT_NE(std::string(error.what()).find("--flood"), std::string::npos) << error.what();
            EXPECT_NE(std::string(error.what()).find(text), std::string::npos) << error.what();
        }
    }
}

} // namespace
