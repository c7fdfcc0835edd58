#include "nbx/image/atlas/bestfitpacking.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "packingtest.h"

namespace {

using namespace NBX;

using Sizes = std::vector<PackedSize>;

TEST(BestFitPacking, FillsAPageWithoutAGap) {
    const Sizes sizes(17, {4, 4});
    std::vector<PackedPlace> places;
    BestFitPacking packing(sizes, {16, 16});
    EXPECT_EQ(packing.fillPage(places).size(), 16U);
    EXPECT_EQ(packing.left(), 1U);
    EXPECT_EQ(packing.fillPage(places).size(), 1U);
    EXPECT_EQ(packing.left(), 0U);
    EXPECT_TRUE(packing.fillPage(places).empty());
}

TEST(BestFitPacking, NothingIsDoneAtOnce) {
    std::vector<PackedPlace> places;
    BestFitPacking packing({}, {16, 16});
    EXPECT_EQ(packing.left(), 0U);
    EXPECT_TRUE(packing.fillPage(places).empty());
}

TEST(BestFitPacking, BelowTheEndOfAPageTheHighestThatFitsIsTaken) {
    const Sizes sizes = {{8, 7}, {8, 9}, {8, 6}, {8, 3}, {8, 2}};
    std::vector<PackedPlace> places;
    BestFitPacking packing(sizes, {8, 12});
    EXPECT_EQ(packing.fillPage(places), (std::vector<unsigned>{1, 3}));
    EXPECT_EQ(packing.fillPage(places), (std::vector<unsigned>{0, 4}));
    EXPECT_EQ(packing.fillPage(places), (std::vector<unsigned>{2}));
}

TEST(BestFitPacking, ANarrowerOneIsTakenWhereTheWideOnesAreTooHigh) {
    const Sizes sizes = {{8, 9}, {8, 8}, {5, 8}, {3, 3}, {2, 3}};
    std::vector<PackedPlace> places;
    BestFitPacking packing(sizes, {8, 12});
    EXPECT_EQ(packing.fillPage(places), (std::vector<unsigned>{0, 3, 4}));
}

TEST(BestFitPacking, EveryRectangleLiesOnOnePage) {
    std::mt19937 random(22);
    for (int run = 0; run < 100; ++run) {
        const PackedSize page = {40 + unsigned(random() % 100), 40 + unsigned(random() % 100)};
        const Sizes sizes = randomSizes(random, 1, 8 + random() % 32, page.width * page.height * 5);
        std::vector<PackedPlace> places;
        std::vector<int> pageOf(sizes.size(), -1);
        BestFitPacking packing(sizes, page);
        int pages = 0;
        for (; packing.left() > 0; ++pages) {
            ASSERT_LT(pages, 20);
            for (const unsigned i : packing.fillPage(places)) {
                EXPECT_EQ(pageOf[i], -1) << "placed twice";
                pageOf[i] = pages;
            }
            EXPECT_EQ(faultOfPlaces(sizes, places, page, [&](std::size_t i) { return pageOf[i] == pages; }),
                      "");
        }
        EXPECT_EQ(std::count(pageOf.begin(), pageOf.end(), -1), 0);
        EXPECT_LE(pages, 8);
    }
}

} // namespace
