#include "terraininput.h"

#include <gtest/gtest.h>

#include <zmt/raster/rasterdata.h>

#include "commands.h"
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

TEST(TerrainInput, CompressedFilesCutAnywhereAreRefused) {
    const RunFolder folder;
    const std::string whole = readWhole(s_jacksboro);
    for (std::size_t length = 1; length < whole.size(); length += 97)
        EXPECT_THROW(readTerrainRaster(folder.write("t.tif", whole.substr(0, length)), {.native = true}),
                     std::exception)
            << "cut to " << length << " of " << whole.size() << " bytes";
}

TEST(TerrainInput, DegreesBecomeMetresUnlessNative) {
    EXPECT_EQ(120U, readTerrainRaster(s_jacksboro, {.native = true}).raster->cellsX());
    const auto warped = readTerrainRaster(s_jacksboro);
    EXPECT_GT(warped.raster->maxX() - warped.raster->minX(), 8000.0);
    EXPECT_LT(warped.raster->maxX() - warped.raster->minX(), 10000.0);
}

TEST(TerrainInput, BudgetsHaveBounds) {
    EXPECT_THROW(checkMaxVertices(49), UsageError);
    EXPECT_NO_THROW(checkMaxVertices(50));
    EXPECT_NO_THROW(checkMaxVertices(32000));
    EXPECT_THROW(checkMaxVertices(32001), UsageError);
}

TEST(TerrainInput, MemoryIsMeasuredInBytes) {
    EXPECT_GT(peakResidentBytes(), 1U << 20);
}

} // namespace
