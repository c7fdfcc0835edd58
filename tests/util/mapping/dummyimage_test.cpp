#include "util/mapping/dummyimage.h"

#include <gtest/gtest.h>

#include "support/recordedreports.h"

namespace {

using NBX::SO;
using ZMT::UTIL::DummyImage;

TEST(DummyImage, AllShareOneBlockThatGoesWithTheLastOne) {
    SO<const DummyImage> narrow(new DummyImage(2, 5)), other(new DummyImage(2, 9)), wide;
    EXPECT_EQ(0u, DummyImage::scratchBytes());
    const void * line = narrow->lineComponents(0);
    EXPECT_NE(nullptr, line);
    EXPECT_EQ(line, narrow->lineComponents(4));
    EXPECT_EQ(line, other->lineComponents(8));
    wide = new DummyImage(100, 1);
    EXPECT_NE(nullptr, wide->lineComponents(0));
    EXPECT_EQ(400u, DummyImage::scratchBytes());
    EXPECT_NE(nullptr, narrow->lineComponents(0));
    narrow = wide = nullptr;
    EXPECT_EQ(400u, DummyImage::scratchBytes());
    other = nullptr;
    EXPECT_EQ(0u, DummyImage::scratchBytes());
}

TEST(DummyImage, PlacesOutsideAreReported) {
    RecordedReports reports;
    const SO<const DummyImage> image(new DummyImage(3, 2));
    EXPECT_EQ(static_cast<const unsigned char *>(image->lineComponents(1)) + 11,
              image->pixelComponents(2, 1, 3));
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_EQ(nullptr, image->lineComponents(2));
    EXPECT_EQ(1u, reports.count(0, L"((0) <= (y)) && ((y) < (m_height))", L"range error: [0, 2), 2"));
    reports.clear();
    EXPECT_EQ(nullptr, image->pixelComponents(-1, 2, 4));
    EXPECT_EQ(1u, reports.count(0, L"((0) <= (x)) && ((x) < (m_width))", L"range error: [0, 3), -1"));
    EXPECT_EQ(1u, reports.count(0, L"((0) <= (y)) && ((y) < (m_height))", L"range error: [0, 2), 2"));
    EXPECT_EQ(1u, reports.count(0, L"((0) <= (component)) && ((component) < (numberOfLayers()))",
                                L"range error: [0, 4), 4"));
    EXPECT_EQ(3u, reports.size());
    EXPECT_FALSE(image->pixelComponents(3, 0) || image->pixelComponents(0, 2) ||
                 image->pixelComponents(0, 0, 4));
    reports.clear();
}

} // namespace
