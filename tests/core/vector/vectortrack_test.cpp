#include <zmt/core/vector/vectortrack.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include <nbx/object/so.h>

#include "support/recordedreports.h"

namespace {

using namespace ZMT::CORE;
using ZMT::RASTER::TrackPiece;
using Position = VectorTrack::Position;

constexpr double s_none = std::numeric_limits<double>::quiet_NaN();

NBX::SO<VectorTrack> newTrack(const std::vector<TrackPiece> & pieces, double longestStep = 10.0) {
    return new VectorTrack(pieces, longestStep);
}

/// "12-20, 30-30"
std::string spansOf(const VectorTrack & track) {
    std::string text;
    for (const VectorTrack::Span & span : track.spans()) {
        if (!text.empty()) text += ", ";
        text += std::to_string(int(span.begin)) + "-" + std::to_string(int(span.end));
    }
    return text;
}

TEST(VectorTrackTest, PlacesLieBetweenPoints) {
    const auto track =
        newTrack({{{100, {0, 10, 0}}, {104, {40, 20, 0}}, {108, {40, 20, -80}}, {110, {0, 20, -80}}}});
    EXPECT_EQ(100, track->start());
    EXPECT_EQ(110, track->end());
    struct Row {
        double time;
        Position position;
        double heading;
    };
    for (const auto & [time, position, heading] : {Row{100, {0, 10, 0}, 90},
                                                   {101, {10, 12.5, 0}, 90},
                                                   {103.5, {35, 18.75, 0}, 90},
                                                   {104, {40, 20, 0}, 180},
                                                   {106, {40, 20, -40}, 180},
                                                   {108, {40, 20, -80}, 270},
                                                   {109, {20, 20, -80}, 270},
                                                   {110, {0, 20, -80}, 270}}) {
        const auto place = track->placeAt(time);
        ASSERT_TRUE(place) << time;
        EXPECT_EQ(position, place->position) << time;
        EXPECT_EQ(heading, place->heading) << time;
    }
    for (const double time : {99.999, 110.001, -HUGE_VAL, HUGE_VAL, s_none})
        EXPECT_FALSE(track->placeAt(time)) << time;
}

TEST(VectorTrackTest, HeadingsAreThoseOfTheWindRose) {
    for (int degrees = 0; degrees < 360; degrees += 15) {
        const double angle = degrees * 3.14159265358979 / 180.0;
        const auto track = newTrack({{{0, {}}, {1, {std::sin(angle), 5.0, std::cos(angle)}}}});
        EXPECT_NEAR(degrees, track->placeAt(0.5)->heading, 1e-9);
    }
    // So little to the west that nothing is left beside 360.
    const double heading = newTrack({{{0, {}}, {1, {-1e-300, 0, 1}}}})->placeAt(0.5)->heading;
    EXPECT_GE(heading, 0.0);
    EXPECT_LT(heading, 360.0);
}

TEST(VectorTrackTest, WhatStandsStillLooksAsItWent) {
    const Position a(0, 0, 0), b(0, 0, 10), c(10, 0, 10);
    const auto track = newTrack({{{0, a}, {1, a}, {2, b}, {3, b}, {4, b}, {5, c}, {6, c}}});
    EXPECT_EQ(0.0, track->placeAt(0.5)->heading) << "the next step";
    EXPECT_EQ(0.0, track->placeAt(3.5)->heading);
    EXPECT_EQ(90.0, track->placeAt(4.5)->heading);
    EXPECT_EQ(90.0, track->placeAt(6.0)->heading);
    const auto south = newTrack({{{0, b}, {1, b}, {2, a}}});
    EXPECT_EQ(180.0, south->placeAt(0.0)->heading);
    EXPECT_EQ(0.0, newTrack({{{0, b}, {1, b}}})->placeAt(0.5)->heading);
    EXPECT_EQ(0.0, newTrack({{{0, b}}})->placeAt(0.0)->heading);
}

TEST(VectorTrackTest, LongStepsAndPiecesAreGaps) {
    const Position p;
    const auto track =
        newTrack({{{0, p}, {10, p}, {20.5, p}, {25, p}}, {{27, p}}, {{28, p}, {30, p}, {41, p}}});
    EXPECT_EQ("0-10, 20-25, 27-27, 28-30, 41-41", spansOf(*track));
    for (const double time : {0.0, 10.0, 20.5, 25.0, 27.0, 28.0, 30.0, 41.0})
        EXPECT_TRUE(track->placeAt(time)) << time;
    for (const double time : {10.001, 20.0, 25.5, 26.999, 27.001, 31.0, 40.999})
        EXPECT_FALSE(track->placeAt(time)) << time;
    EXPECT_EQ(
        "0-25, 27-27, 28-41",
        spansOf(*newTrack({{{0, p}, {10, p}, {20.5, p}, {25, p}}, {{27, p}}, {{28, p}, {30, p}, {41, p}}},
                          HUGE_VAL)));
}

TEST(VectorTrackTest, BadPointsAreLeftOutAndCounted) {
    const auto track = newTrack({{{s_none, {1, 0, 0}},
                                  {4, {4, 0, 0}},
                                  {2, {2, 0, 0}},
                                  {3, {s_none, 0, 0}},
                                  {2, {9, 0, 0}},
                                  {HUGE_VAL, {}},
                                  {6, {6, 0, 0}}},
                                 {},
                                 {{s_none, {}}}});
    EXPECT_EQ(3U, track->counts().withoutTime);
    EXPECT_EQ(1U, track->counts().withoutPlace);
    EXPECT_EQ(1U, track->counts().unordered);
    EXPECT_EQ(1U, track->counts().repeated);
    EXPECT_EQ("2-6", spansOf(*track));
    for (const double time : {2.0, 3.0, 4.0, 5.0, 6.0})
        EXPECT_EQ(time, track->placeAt(time)->position.x) << "in the order of time, the first of two";
}

TEST(VectorTrackTest, OfPiecesThatOverlapTheLaterBegunHolds) {
    const Position a(1, 0, 0), b(2, 0, 0), c(3, 0, 0);
    const auto track = newTrack({{{4, b}, {6, b}}, {{0, a}, {9, a}, {12, a}}, {{5, c}, {5.5, c}}, {{14, c}}});
    EXPECT_EQ("0-12, 14-14", spansOf(*track));
    for (const auto & [time, x] : {std::pair(3.9, 1.0),
                                   {4.0, 2.0},
                                   {4.9, 2.0},
                                   {5.0, 3.0},
                                   {5.5, 3.0},
                                   {5.6, 2.0},
                                   {6.0, 2.0},
                                   {6.1, 1.0},
                                   {12.0, 1.0},
                                   {14.0, 3.0}})
        EXPECT_EQ(x, track->placeAt(time)->position.x) << time;
    EXPECT_FALSE(track->placeAt(13.0));
}

TEST(VectorTrackTest, ThePassedWayEndsWhereItIs) {
    const auto track = newTrack({{{0, {0, 0, 0}}, {10, {10, 0, 0}}, {30, {30, 0, 0}}, {40, {40, 0, 0}}},
                                 {{50, {50, 0, 0}}, {60, {60, 0, 0}}}});
    struct Row {
        double time;
        std::vector<std::vector<double>> lines;
    };
    const std::vector<Row> rows = {{-1, {}},
                                   {0, {}},
                                   {4, {{0, 4}}},
                                   {10, {{0, 10}}},
                                   {20, {{0, 10}}},
                                   {30, {{0, 10}}},
                                   {35, {{0, 10}, {30, 35}}},
                                   {45, {{0, 10}, {30, 40}}},
                                   {51, {{0, 10}, {30, 40}, {50, 51}}},
                                   {99, {{0, 10}, {30, 40}, {50, 60}}}};
    for (const auto & [time, lines] : rows) {
        std::vector<std::vector<double>> found;
        for (const VectorTrack::Line & line : track->passed(time)) {
            found.emplace_back();
            for (const Position & p : line)
                found.back().push_back(p.x);
        }
        EXPECT_EQ(lines, found) << time;
    }
}

TEST(VectorTrackTest, EmptyTracksAreNowhere) {
    for (const auto & track : {newTrack({}), newTrack({{}, {}}), newTrack({{{s_none, {}}}})}) {
        EXPECT_TRUE(track->isEmpty());
        EXPECT_EQ(0.0, track->start());
        EXPECT_EQ(0.0, track->end());
        EXPECT_FALSE(track->placeAt(0.0));
        EXPECT_TRUE(track->passed(1e9).empty());
    }
}

TEST(VectorTrackTest, AStepThatIsNoneIsReported) {
    for (const double step : {0.0, -1.0, s_none}) {
        RecordedReports reports;
        const auto track = newTrack({{{0, {}}, {VectorTrack::usualLongestStep, {}}}}, step);
        EXPECT_EQ(1U, reports.size());
        EXPECT_EQ("0-300", spansOf(*track));
    }
}

TEST(VectorTrackTest, RandomTracksAreAsASlowSearchFindsThem) {
    std::mt19937 random(7);
    for (int round = 0; round < 200; ++round) {
        std::vector<TrackPiece> pieces(random() % 4);
        for (TrackPiece & piece : pieces)
            for (unsigned i = random() % 8; i > 0; --i)
                piece.push_back({double(random() % 60), {double(random() % 9), 0, double(random() % 9)}});
        const auto track = newTrack(pieces, 5.0);
        for (double time = -1.0; time < 61.0; time += 0.5) {
            bool isKnown = false;
            for (TrackPiece piece : pieces) {
                std::stable_sort(piece.begin(), piece.end(),
                                 [](const auto & a, const auto & b) { return a.time < b.time; });
                for (std::size_t i = 0; i < piece.size(); ++i) {
                    isKnown |= piece[i].time == time;
                    if (i > 0 && piece[i].time - piece[i - 1].time <= 5.0)
                        isKnown |= piece[i - 1].time <= time && time <= piece[i].time;
                }
            }
            EXPECT_EQ(isKnown, bool(track->placeAt(time))) << round << " " << time;
            bool isSpan = false;
            for (const VectorTrack::Span & span : track->spans())
                isSpan |= span.begin <= time && time <= span.end;
            EXPECT_EQ(isKnown, isSpan) << round << " " << time;
        }
    }
}

} // namespace
