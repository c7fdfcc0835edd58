#include "program/samplefiles.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "support/zmtrun.h"

namespace {

TEST(SampleFiles, AreTwoFilesOfOneFolder) {
    const RunFolder folder;
    EXPECT_FALSE(SampleFiles::in(folder.in("")));
    folder.write("everest_srtm3.tif", "x");
    EXPECT_FALSE(SampleFiles::in(folder.in(""))) << "one of them alone is none";
    folder.write("everest_landsat7_rgb.tif", "x");
    const auto sample = SampleFiles::in(folder.in(""));
    ASSERT_TRUE(sample);
    EXPECT_EQ(sample->heights, folder.in("everest_srtm3.tif"));
    EXPECT_EQ(sample->image, folder.in("everest_landsat7_rgb.tif"));
}

} // namespace
