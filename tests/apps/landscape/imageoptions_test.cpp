#include "landscape/imageoptions.h"

#include <gtest/gtest.h>

#include "landscape/errors.h"

namespace {

TEST(ImageOptions, OneEntryHoldsForAllAndSeveralForOneEach) {
    ImageOptions options;
    EXPECT_EQ("", options.lookOf(3).colors.text());
    EXPECT_EQ(1.0, options.lookOf(3).opacity);
    options.bands = {parseBands("3,2,1")};
    options.stretches = {parseStretch("auto"), parseStretch("0,9")};
    options.gammas = {parseGamma("2")};
    options.opacities = {0.25, 0.5};
    EXPECT_EQ("3,2,1;auto;2", options.lookOf(0).colors.text());
    EXPECT_EQ("3,2,1;0,9;2", options.lookOf(1).colors.text());
    EXPECT_EQ("3,2,1;;2", options.lookOf(2).colors.text()) << "an image that came later";
    EXPECT_EQ(0.25, options.lookOf(0).opacity);
    EXPECT_EQ(0.5, options.lookOf(1).opacity);
    EXPECT_EQ(1.0, options.lookOf(2).opacity);
    EXPECT_TRUE(options.lookOf(0).cache);
    options.cache = false;
    EXPECT_FALSE(options.lookOf(0).cache);
}

TEST(ImageOptions, CountsMustFit) {
    ImageOptions options;
    options.opacities = {0.5};
    for (const std::size_t images : {0U, 1U, 5U})
        EXPECT_NO_THROW(checkImageOptions(options, images));
    options.opacities = {0.5, 0.5};
    EXPECT_NO_THROW(checkImageOptions(options, 2));
    EXPECT_THROW(checkImageOptions(options, 1), UsageError);
    EXPECT_THROW(checkImageOptions(options, 3), UsageError);
    for (auto ImageOptions::*list : {&ImageOptions::bands, &ImageOptions::stretches, &ImageOptions::gammas}) {
        ImageOptions colors;
        (colors.*list).resize(2);
        EXPECT_NO_THROW(checkImageOptions(colors, 2));
        EXPECT_THROW(checkImageOptions(colors, 1), UsageError);
    }
}

TEST(ImageOptions, BadTextsAreUsageErrors) {
    EXPECT_THROW(parseBands("1,2"), UsageError);
    EXPECT_THROW(parseStretch("9,0"), UsageError);
    EXPECT_THROW(parseGamma("0"), UsageError);
    EXPECT_EQ(0.0, parseOpacity("0"));
    EXPECT_EQ(1.0, parseOpacity("1"));
    for (const char * bad : {"", "-0.1", "1.01", "nan", "50%", "0.5 "})
        EXPECT_THROW(parseOpacity(bad), UsageError) << bad;
}

} // namespace
