#include "landscape/terraininput.h"

#include <gtest/gtest.h>

#include <zmt/raster/rasterdata.h>

#include "landscape/errors.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

const std::string s_jacksboro = ZMT_DATA_DIR "/../tests/data/jacksboro_heights.tif";

SmallGeoTiff slope(unsigned width, unsigned height) {
    SmallGeoTiff tiff{width, height};
    for (unsigned i = 0; i < width * height; ++i)
        tiff.heights.push_back(float(i));
    return tiff;
}

TEST(TerrainInput, FilesCutAtAnyLengthAreRefused) {
    const RunFolder folder;
    const std::string whole = slope(3, 3).encode();
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_THROW(readTerrainRaster(folder.write("t.tif", whole.substr(0, length)), {.native = true}),
                     std::exception)
            << "cut to " << length << " of " << whole.size() << " bytes";
    EXPECT_NO_THROW(readTerrainRaster(folder.write("t.tif", whole), {.native = true}));
}

TEST(TerrainInput, OfSeveralBandsTheFirstIsTakenAndThatIsSaid) {
    const RunFolder folder;
    SmallGeoTiff image{3, 3};
    image.pixels = SmallGeoTiff::Pixels::Colors;
    for (unsigned i = 0; i < 9; ++i)
        image.colors.insert(image.colors.end(), {std::uint8_t(i), 100, 200});
    const std::string path = folder.write("image.tif", image.encode());
    testing::internal::CaptureStderr();
    const auto raster = readTerrainRaster(path, {.native = true});
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        "zmt: warning: " + path +
            ": has 3 bands, of which the first is taken as heights; give another one as a file of its own\n");
    EXPECT_EQ(raster.raster->value(1U, 1U), 4.0);
    testing::internal::CaptureStderr();
    readTerrainRaster(folder.write("slope.tif", slope(3, 3).encode()), {.native = true});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(TerrainInput, CompressedFilesCutAnywhereAreRefused) {
    const RunFolder folder;
    const std::string whole = readWhole(s_jacksboro);
    for (std::size_t length = 1; length < whole.size(); length += 97)
        EXPECT_THROW(readTerrainRaster(folder.write("t.tif", whole.substr(0, length)), {.native = true}),
                     std::exception)
            << "cut to " << length << " of " << whole.size() << " bytes";
}

TEST(TerrainInput, HeightsInFeetBecomeMetres) {
    const RunFolder folder;
    SmallGeoTiff heights = slope(3, 3);
    heights.heights[4] = -1.0F;
    heights.noData = "-1";
    for (const auto & [unit, metres] :
         {std::pair("ft", 0.3048), std::pair("US survey foot", 1200.0 / 3937.0), std::pair("metre", 1.0)}) {
        heights.unit = unit;
        for (const bool native : {false, true}) {
            testing::internal::CaptureStderr();
            const auto raster =
                readTerrainRaster(folder.write("t.tif", heights.encode()), {.native = native});
            EXPECT_EQ("", testing::internal::GetCapturedStderr());
            EXPECT_FLOAT_EQ(static_cast<float>(8.0 * metres),
                            static_cast<float>(raster.raster->value(2U, 0U)))
                << unit;
            EXPECT_TRUE(raster.raster->isUndefValue(raster.raster->value(1U, 1U)));
        }
    }
    heights.unit = "stories";
    testing::internal::CaptureStderr();
    const std::string path = folder.write("t.tif", heights.encode());
    EXPECT_EQ(8.0, readTerrainRaster(path).raster->value(2U, 0U));
    EXPECT_EQ("zmt: warning: " + path +
                  ": the unit of its heights is not known, and taken for metres: stories\n",
              testing::internal::GetCapturedStderr());
}

TEST(TerrainInput, DegreesBecomeMetresUnlessNative) {
    EXPECT_EQ(120U, readTerrainRaster(s_jacksboro, {.native = true}).raster->cellsX());
    const auto warped = readTerrainRaster(s_jacksboro);
    EXPECT_GT(warped.raster->maxX() - warped.raster->minX(), 8000.0);
    EXPECT_LT(warped.raster->maxX() - warped.raster->minX(), 10000.0);
}

TEST(TerrainInput, AbsurdHeightsAndCellsAreTold) {
    const RunFolder folder;
    const auto told = [&](float height, double cell, bool native = false) {
        SmallGeoTiff tiff = slope(4, 4);
        tiff.heights[5] = height;
        tiff.cell = cell;
        testing::internal::CaptureStderr();
        readTerrainRaster(folder.write("t.tif", tiff.encode()), {.native = native});
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ("", told(8848.0F, 32.0));
    EXPECT_EQ("", told(-11000.0F, 0.01));
    EXPECT_NE(std::string::npos, told(-32768.0F, 32.0).find("has heights of -32768 m"));
    EXPECT_NE(std::string::npos, told(1e20F, 32.0).find("has heights of 1e+20 m"));
    EXPECT_NE(std::string::npos, told(100.0F, 1e-5).find("has cells of 1e-05 by 1e-05 m"));
    EXPECT_NE(std::string::npos, told(100.0F, 2e6).find("has cells of 2e+06 by 2e+06 m"));
    EXPECT_NE(std::string::npos, told(-32768.0F, 32.0, true).find("has heights of -32768 m"));
    EXPECT_EQ("", told(100.0F, 1e-5, true));
}

} // namespace
