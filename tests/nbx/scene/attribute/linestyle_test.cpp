#include <nbx/scene/attribute/linestyle.h>

#include <cmath>

#include <gtest/gtest.h>

#include "support/recordedattributes.h"
#include "support/recordedreports.h"
#include "support/roundtrip.h"

using namespace NBX;

TEST(LineStyle, IsOnePixelAndWholeAtFirst) {
    const SO<LineStyle> style(new LineStyle);
    EXPECT_EQ(1.0, style->getWidth());
    EXPECT_EQ(0xFFFFU, style->getStipple());
    EXPECT_EQ(1U, style->getStippleFactor());
    EXPECT_EQ(LineStyle::ClassNameNBX(), style->category());
}

TEST(LineStyle, IsStored) {
    const SO<LineStyle> style(new LineStyle(2.5, 0x0F0F, 3));
    const SO<LineStyle> copy = roundTrip(style);
    ASSERT_TRUE(copy);
    EXPECT_EQ(2.5, copy->getWidth());
    EXPECT_EQ(0x0F0FU, copy->getStipple());
    EXPECT_EQ(3U, copy->getStippleFactor());
    const SO<LineStyle> plain = roundTrip(SO<LineStyle>(new LineStyle));
    EXPECT_EQ(1.0, plain->getWidth());
    EXPECT_EQ(0xFFFFU, plain->getStipple());
}

TEST(LineStyle, ReportsValuesWithoutMeaning) {
    RecordedReports reports;
    for (const double width : {0.0, -1.0, std::nan(""), HUGE_VAL}) {
        const SO<LineStyle> style(new LineStyle(width));
        EXPECT_EQ(1.0, style->getWidth());
        EXPECT_EQ(1U, reports.size());
        reports.clear();
    }
    const SO<LineStyle> style(new LineStyle(1.0, 0x1F0F0, 0));
    EXPECT_EQ(0xF0F0U, style->getStipple());
    EXPECT_EQ(1U, style->getStippleFactor());
    EXPECT_EQ(2U, reports.size());
    reports.clear();
    style->setStipple(1, 257);
    EXPECT_EQ(256U, style->getStippleFactor());
    EXPECT_EQ(1U, reports.size());
    reports.clear();
    style->setStipple(1, 256);
    style->setWidth(3.0);
    EXPECT_EQ(3.0, style->getWidth());
    EXPECT_TRUE(reports.empty());
}

TEST(LineStyle, ChangesAreSeen) {
    const SO<LineStyle> style(new LineStyle);
    const std::uint64_t before = style->lastTransactionNo();
    style->setWidth(2.0);
    const std::uint64_t between = style->lastTransactionNo();
    EXPECT_GT(between, before);
    style->setStipple(0xFF);
    EXPECT_GT(style->lastTransactionNo(), between);
}
