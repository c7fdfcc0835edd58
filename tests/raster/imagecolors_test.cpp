#include <zmt/raster/imagecolors.h>

#include <gtest/gtest.h>

namespace {

using ZMT::RASTER::ImageColors;
using Stretch = ImageColors::Stretch;

TEST(ImageColors, BandsAreThreeOrOne) {
    ImageColors colors;
    EXPECT_TRUE(colors.setBands("4,1,12"));
    EXPECT_EQ((std::vector<unsigned>{4, 1, 12}), colors.bands);
    for (const char * bad : {"", "0", "1,2", "1,2,3,4", "1,2,x", "1,,3", "-1,2,3", "1.5", " 1", "1,2,70000",
                             "99999999999999999999", "1,2,0"})
        EXPECT_FALSE(colors.setBands(bad)) << bad;
    EXPECT_EQ((std::vector<unsigned>{4, 1, 12}), colors.bands) << "what says nothing changes nothing";
    EXPECT_TRUE(colors.setBands("7"));
    EXPECT_EQ((std::vector<unsigned>{7}), colors.bands);
}

TEST(ImageColors, StretchesHaveNamesOrEnds) {
    ImageColors colors;
    EXPECT_EQ(Stretch::ByType, colors.stretch);
    EXPECT_TRUE(colors.setStretch("-12.5,3e3"));
    EXPECT_EQ(Stretch::Range, colors.stretch);
    EXPECT_EQ(-12.5, colors.low);
    EXPECT_EQ(3000.0, colors.high);
    for (const char * bad :
         {"", "Auto", "1", "1,1", "2,1", "1,2,3", "nan,1", "0,inf", "-inf,inf", "a,b", "-1.7e308,1.7e308"})
        EXPECT_FALSE(colors.setStretch(bad)) << bad;
    EXPECT_EQ(-12.5, colors.low);
    EXPECT_TRUE(colors.setStretch("auto"));
    EXPECT_EQ(Stretch::Auto, colors.stretch);
    EXPECT_TRUE(colors.setStretch("none"));
    EXPECT_EQ(Stretch::None, colors.stretch);
}

TEST(ImageColors, GammaIsAboveZero) {
    ImageColors colors;
    EXPECT_TRUE(colors.setGamma("2.2"));
    EXPECT_EQ(2.2, colors.gamma);
    for (const char * bad : {"", "0", "-1", "nan", "inf", "101", "1x", "1,2"})
        EXPECT_FALSE(colors.setGamma(bad)) << bad;
    EXPECT_EQ(2.2, colors.gamma);
}

TEST(ImageColors, TextSaysAll) {
    EXPECT_EQ("", ImageColors().text());
    for (const char * bands : {"", "3,2,1", "2"})
        for (const char * stretch : {"", "auto", "none", "0.1,12000"})
            for (const char * gamma : {"", "0.3333333333333333"}) {
                ImageColors colors;
                EXPECT_TRUE(!*bands || colors.setBands(bands));
                EXPECT_TRUE(!*stretch || colors.setStretch(stretch));
                EXPECT_TRUE(!*gamma || colors.setGamma(gamma));
                const auto copy = ImageColors::parse(colors.text());
                ASSERT_TRUE(copy) << colors.text();
                EXPECT_EQ(colors.bands, copy->bands);
                EXPECT_EQ(colors.stretch, copy->stretch);
                EXPECT_EQ(colors.low, copy->low);
                EXPECT_EQ(colors.high, copy->high);
                EXPECT_EQ(colors.gamma, copy->gamma);
            }
    for (const char * bad : {"x", ";", ";;;", "0;;", ";maybe;", ";;-1"})
        EXPECT_FALSE(ImageColors::parse(bad)) << bad;
}

} // namespace
