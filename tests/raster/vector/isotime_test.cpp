#include <zmt/raster/vector/isotime.h>

#include <cmath>

#include <gtest/gtest.h>

namespace {

using ZMT::RASTER::IsoTime;

constexpr double s_noon = 1714564800.0; // 2024-05-01T12:00:00Z

TEST(IsoTimeTest, MomentsAreSecondsSince1970) {
    struct Row {
        const char * text;
        double time;
    };
    for (const auto & [text, time] : {
             Row{"1970-01-01T00:00:00Z", 0.0},
             {"2024-05-01T12:00:00Z", s_noon},
             {"2024-05-01 12:00:00z", s_noon},
             {"2024-05-01t12:00Z", s_noon},
             {"2024-05-01T12:00", s_noon},
             {"2024-05-01", s_noon - 43200.0},
             {"20240501", s_noon - 43200.0},
             {"20240501T120000Z", s_noon},
             {"20240501T1200+0000", s_noon},
             {"2024-05-01T12:00:00.25Z", s_noon + 0.25},
             {"2024-05-01T12:00:00,5Z", s_noon + 0.5},
             {"2024-05-01T12:00:01.123456789Z", s_noon + 1.123456789},
             {"2024-05-01T17:45:00+05:45", s_noon},
             {"2024-05-01T04:00:00-08", s_noon},
             {"2024-05-01T08:30:00-0330", s_noon},
             {"2024-04-30T24:00:00Z", s_noon - 43200.0},
             {"2016-12-31T23:59:60Z", 1483228800.0},
             {"2024-02-29T00:00:00Z", 1709164800.0},
             {"1969-12-31T23:59:59.5Z", -0.5},
             {"0001-01-01T00:00:00Z", -62135596800.0},
         }) {
        const auto found = IsoTime::parse(text);
        ASSERT_TRUE(found) << text;
        EXPECT_NEAR(time, *found, 1e-6) << text;
    }
}

TEST(IsoTimeTest, WhatIsNoMomentIsNone) {
    for (const char * text : {"",
                              "2024",
                              "2024-05",
                              "2024-13-01",
                              "2023-02-29",
                              "2024-05-00",
                              "2024-0501",
                              "202405-01",
                              "24-05-01",
                              "2024-05-01T",
                              "2024-05-01T12",
                              "2024-05-01T25:00",
                              "2024-05-01T24:00:01Z",
                              "2024-05-01T12:60",
                              "2024-05-01T12:00:61",
                              "2024-05-01T12:00:",
                              "2024-05-01T12:00:1",
                              "2024-05-01T12:00:00.",
                              "2024-05-01T12:00:00.Z",
                              "2024-05-01T12:00:00+",
                              "2024-05-01T12:00:00+5",
                              "2024-05-01T12:00:00+05:",
                              "2024-05-01T12:00:00+05:60",
                              "2024-05-01T12:00:00+24",
                              "2024-05-01T12:00:00ZZ",
                              "2024-05-01T12:00:00 Z",
                              " 2024-05-01",
                              "2024-05-01x12:00",
                              "-2024-05-01",
                              "2024-05-01T-1:00",
                              "today"})
        EXPECT_FALSE(IsoTime::parse(text)) << text;
}

TEST(IsoTimeTest, TextsAreReadAgainAsTheyWere) {
    EXPECT_EQ("1970-01-01T00:00:00Z", IsoTime::text(0.0));
    EXPECT_EQ("2024-05-01T12:00:00.250Z", IsoTime::text(s_noon + 0.25));
    EXPECT_EQ("1969-12-31T23:59:59.500Z", IsoTime::text(-0.5));
    EXPECT_EQ("2024-05-01T12:00:01Z", IsoTime::text(s_noon + 0.9999));
    EXPECT_EQ("9999-12-31T23:59:59.999Z", IsoTime::text(253402300799.9999));
    EXPECT_EQ("", IsoTime::text(253402300800.0));
    EXPECT_EQ("", IsoTime::text(-62167219201.0));
    EXPECT_EQ("", IsoTime::text(NAN));
    EXPECT_EQ("", IsoTime::text(HUGE_VAL));
    for (double time = -62135596800.0; time < 253402300800.0; time += 123456789.125)
        EXPECT_EQ(time, IsoTime::parse(IsoTime::text(time))) << IsoTime::text(time);
}

} // namespace
