#include "raster/gdal/vector/packedboxes.h"

#include <algorithm>
#include <cmath>
#include <random>

#include <gtest/gtest.h>

namespace {

using namespace ZMT::RASTER;

std::vector<std::uint64_t> found(const PackedBoxes & boxes, const GeoExtent & box) {
    std::vector<std::uint64_t> values;
    boxes.find(box, [&](const PackedBoxes::Entry & entry) { values.push_back(entry.value); });
    std::sort(values.begin(), values.end());
    return values;
}

TEST(PackedBoxes, FindsWhatTouches) {
    std::mt19937 random(11);
    std::uniform_real_distribution<double> place(-1e6, 1e6), size(0.0, 3e4);
    for (const unsigned count : {0U, 1U, 2U, 15U, 16U, 17U, 255U, 256U, 257U, 5000U}) {
        std::vector<GeoExtent> all;
        std::vector<PackedBoxes::Entry> entries;
        for (unsigned i = 0; i < count; ++i) {
            const double x = place(random), y = place(random);
            all.push_back({x, y, x + size(random), y + size(random)});
            entries.push_back(PackedBoxes::entry(all.back(), i));
        }
        const PackedBoxes boxes(entries);
        EXPECT_EQ(boxes.size(), count);
        for (unsigned round = 0; round < 200; ++round) {
            const double x = place(random), y = place(random);
            GeoExtent box{x, y, x + 4 * size(random), y + 4 * size(random)};
            if (round == 0) box = {-1e300, -1e300, 1e300, 1e300};
            std::vector<std::uint64_t> expected;
            for (std::size_t i = 0; i < all.size(); ++i)
                if (all[i].minX <= box.maxX && box.minX <= all[i].maxX && all[i].minY <= box.maxY &&
                    box.minY <= all[i].maxY)
                    expected.push_back(i);
            EXPECT_EQ(found(boxes, box), expected) << count;
        }
    }
}

TEST(PackedBoxes, RoundsOutwards) {
    std::mt19937 random(12);
    std::uniform_real_distribution<double> place(-1e7, 1e7);
    for (unsigned i = 0; i < 1000; ++i) {
        const GeoExtent box{place(random), place(random), place(random), place(random)};
        const PackedBoxes::Entry entry = PackedBoxes::entry(box, i);
        EXPECT_LE(entry.minX, box.minX);
        EXPECT_LE(entry.minY, box.minY);
        EXPECT_GE(entry.maxX, box.maxX);
        EXPECT_GE(entry.maxY, box.maxY);
        EXPECT_NEAR(entry.minX, box.minX, 2.0);
    }
}

TEST(PackedBoxes, TakesDegenerateBoxes) {
    std::vector<PackedBoxes::Entry> entries;
    for (unsigned i = 0; i < 100; ++i)
        entries.push_back(PackedBoxes::entry({5, 5, 5, 5}, i));
    entries.push_back(PackedBoxes::entry({1e300, 0, 1e301, 0}, 100));
    const PackedBoxes boxes(entries);
    EXPECT_EQ(found(boxes, {5, 5, 5, 5}).size(), 100U);
    EXPECT_TRUE(found(boxes, {6, 6, 7, 7}).empty());
    EXPECT_EQ(found(boxes, {1e300, 0, 1e300, 0}).size(), 1U);
}

TEST(PackedBoxes, TakesLittleMemory) {
    std::vector<PackedBoxes::Entry> entries;
    for (unsigned i = 0; i < 100000; ++i)
        entries.push_back(PackedBoxes::entry({double(i), 0, double(i), 0}, i));
    EXPECT_LE(PackedBoxes(entries).bytes(), 100000U * 26U);
}

} // namespace
