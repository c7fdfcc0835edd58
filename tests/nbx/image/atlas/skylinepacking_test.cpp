#include "nbx/image/atlas/skylinepacking.h"

#include <gtest/gtest.h>

#include "packingtest.h"

namespace {

using namespace NBX;

using Sizes = std::vector<PackedSize>;

constexpr SkylineTie s_ties[] = {SkylineTie::LeastWaste, SkylineTie::Leftmost};

TEST(SkylinePacking, FillsAPageWithoutAGap) {
    for (const SkylineTie tie : s_ties) {
        std::vector<PackedPlace> places;
        EXPECT_TRUE(packOnSkyline(Sizes(16, {4, 4}), {16, 16}, tie, places));
        EXPECT_EQ(faultOfPlaces(Sizes(16, {4, 4}), places, {16, 16}), "");
        EXPECT_FALSE(packOnSkyline(Sizes(17, {4, 4}), {16, 16}, tie, places));
        EXPECT_TRUE(packOnSkyline(Sizes{{7, 9}}, {7, 9}, tie, places));
        EXPECT_TRUE(packOnSkyline(Sizes(), {7, 9}, tie, places));
    }
}

TEST(SkylinePacking, OfEqualHeightsTheTieDecides) {
    // Below the last one lie steps at 5, 4, 5, 5, 5: only at 2 it buries nothing.
    const Sizes sizes = {{1, 5}, {1, 4}, {3, 3}, {3, 2}, {3, 1}};
    for (const auto & [tie, x] : {std::pair(SkylineTie::LeastWaste, 2U), {SkylineTie::Leftmost, 0U}}) {
        std::vector<PackedPlace> places;
        EXPECT_TRUE(packOnSkyline(sizes, {5, 6}, tie, places));
        EXPECT_EQ(faultOfPlaces(sizes, places, {5, 6}), "");
        EXPECT_EQ(places[4].y, 5U);
        EXPECT_EQ(places[4].x, x);
    }
}

TEST(SkylinePacking, PlacesAreWithinAndApart) {
    std::mt19937 random(20);
    unsigned packed = 0;
    for (int run = 0; run < 400; ++run) {
        const PackedSize page = {64 + unsigned(random() % 200), 64 + unsigned(random() % 200)};
        const Sizes sizes = randomSizes(random, 1, 8 + random() % 50, page.width * page.height * 9 / 10);
        for (const SkylineTie tie : s_ties) {
            std::vector<PackedPlace> places;
            if (!packOnSkyline(sizes, page, tie, places)) continue;
            ++packed;
            EXPECT_EQ(faultOfPlaces(sizes, places, page), "");
        }
    }
    EXPECT_GT(packed, 100U);
}

} // namespace
