#include "nbx/image/atlas/freerectanglepacking.h"

#include <gtest/gtest.h>

#include "nbx/image/atlas/skylinepacking.h"
#include "packingtest.h"

namespace {

using namespace NBX;

using Sizes = std::vector<PackedSize>;

TEST(FreeRectanglePacking, FillsAPageWithoutAGap) {
    std::vector<PackedPlace> places;
    EXPECT_TRUE(packInFreeRectangles(Sizes(16, {4, 4}), {16, 16}, places));
    EXPECT_EQ(faultOfPlaces(Sizes(16, {4, 4}), places, {16, 16}), "");
    EXPECT_FALSE(packInFreeRectangles(Sizes(17, {4, 4}), {16, 16}, places));
    EXPECT_TRUE(packInFreeRectangles(Sizes{{7, 9}}, {7, 9}, places));
    EXPECT_TRUE(packInFreeRectangles(Sizes(), {7, 9}, places));
}

TEST(FreeRectanglePacking, FindsRoomBelowWhatReachesOver) {
    // 5 by 2 lies on 3 by 5 and leaves room below itself, which a skyline would give up.
    const Sizes sizes = {{3, 5}, {2, 4}, {5, 3}, {2, 1}};
    std::vector<PackedPlace> places;
    EXPECT_TRUE(packInFreeRectangles(sizes, {5, 8}, places));
    EXPECT_EQ(faultOfPlaces(sizes, places, {5, 8}), "");
}

TEST(FreeRectanglePacking, PlacesAreWithinAndApart) {
    std::mt19937 random(21);
    unsigned packed = 0, packedOnSkyline = 0;
    for (int run = 0; run < 300; ++run) {
        const PackedSize page = {64 + unsigned(random() % 200), 64 + unsigned(random() % 200)};
        const Sizes sizes = randomSizes(random, 4, 10 + random() % 40, page.width * page.height * 9 / 10);
        std::vector<PackedPlace> places, others;
        packedOnSkyline += packOnSkyline(sizes, page, SkylineTie::Leftmost, others);
        if (!packInFreeRectangles(sizes, page, places)) continue;
        ++packed;
        EXPECT_EQ(faultOfPlaces(sizes, places, page), "");
    }
    EXPECT_GT(packed, 100U);
    EXPECT_GT(packed, packedOnSkyline + 30);
}

} // namespace
