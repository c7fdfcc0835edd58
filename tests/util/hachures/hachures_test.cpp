#include <zmt/util/hachures/hachures.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>

#include <gtest/gtest.h>

#include <nbx/image/memoryimage.h>

#include "support/cancelingdisplay.h"
#include "support/recordedreports.h"
#include "util/hachures/brush.h"
#include "util/hachures/plainhachures.h"

namespace {

using NBX::SO;
using ZMT::RASTER::GeoImage;
using ZMT::UTIL::HachureDrawing;
using ZMT::UTIL::Hachures;
using Settings = ZMT::UTIL::HachureSettings;
using Raster = ZMT::RASTER::SimpleRasterData<float>;

constexpr float s_noData = -99.0F;
constexpr double s_infinity = std::numeric_limits<double>::infinity();

using HeightAt = std::function<double(double, double)>;

/// Cells of 10 map units; heights by the numbers of column and row.
SO<Raster> raster(unsigned width, unsigned height, const HeightAt & heightAt) {
    SO<Raster> result(new Raster(width, height, 5000.0, 7000.0, 10.0, 10.0, true, s_noData));
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
            result->setValue(x, y, float(heightAt(x, y)));
    return result;
}

/// Falls to the south-west, as much to the south as to the west.
double plane(double x, double y) {
    return 3.0 * (x + y);
}

/// Hills, valleys, a hole and no two heights alike.
double hills(double x, double y) {
    if (std::hypot(x - 30.0, y - 12.0) < 3.0) return s_noData;
    return 200.0 + 60.0 * std::sin(0.17 * x + 0.3) + 45.0 * std::cos(0.23 * y - 0.05 * x) + 0.013 * x +
           0.0171 * y;
}

/// One seed alone, the highest cell; as little as possible is left out.
Settings oneStroke() {
    Settings settings;
    settings.heightInterval = 1e6;
    settings.fullLength = true;
    settings.seedStep = 1U << 30;
    settings.minNSteps = 1;
    settings.maxNSteps = 40;
    return settings;
}

SO<GeoImage> draw(const SO<Raster> & heights, unsigned width, unsigned height, const SO<NBX::Image> & brush,
                  const Settings & s) {
    return Hachures::createHachuresWithBrush(heights.get(), width, height, brush, s.scaling, s.windowSize,
                                             s.tolerance, s.minSlope, s.minCurvature, s.maxCurvature,
                                             s.baseHeight, s.heightInterval, s.fullLength, s.overlapping,
                                             s.spacingFactor, s.seedStep, s.minNSteps, s.maxNSteps);
}

SO<NBX::Image> pixelBrush() {
    return new NBX::MemoryImage(1, 1, NBX::LS_Luminance); // black
}

bool isWhite(const NBX::Image & image) {
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (*image.pixelComponentsU8(x, y) != 255) return false;
    return true;
}

unsigned dark(const NBX::Image & image) {
    unsigned count = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            count += *image.pixelComponentsU8(x, y) < 128;
    return count;
}

void expectSamePicture(const NBX::Image & expected, const NBX::Image & found) {
    ASSERT_EQ(expected.width(), found.width());
    ASSERT_EQ(expected.height(), found.height());
    for (int y = 0; y < expected.height(); ++y)
        ASSERT_EQ(0, std::memcmp(expected.lineComponentsU8(y), found.lineComponentsU8(y),
                                 std::size_t(expected.width())))
            << "line " << y;
}

TEST(Hachures, AreThoseOfThePlainSteps) {
    const auto heights = raster(64, 48, hills);
    std::vector<Settings> all(6);
    for (Settings & settings : all) {
        settings.heightInterval = 60.0;
        settings.minNSteps = 4;
    }
    all[1].fullLength = true;
    all[1].overlapping = true;
    all[1].seedStep = 5;
    all[2].windowSize = 4;
    all[2].spacingFactor = 1;
    all[2].tolerance = 4.0;
    all[3].minSlope = 30.0;
    all[3].baseHeight = 7.0;
    all[3].scaling = 2.5;
    all[4].minCurvature = -0.02;
    all[4].maxCurvature = 0.01;
    all[4].maxNSteps = 17;
    all[5].minNSteps = 1;
    all[5].maxNSteps = 3;
    all[5].fullLength = true;
    const auto belowTheSea = raster(64, 48, [](double x, double y) {
        const double height = hills(x, y);
        return height == s_noData ? height : height - 210.0;
    });
    const SO<NBX::Image> brushes[] = {
        ZMT::UTIL::Brush::createRound(3.0, 1.0), ZMT::UTIL::Brush::createRound(4.2, 2.0),
        new NBX::MemoryImage(3, 2, NBX::LS_Luminance)}; // black, wider than high
    unsigned ink = 0;
    for (const Settings & settings : all)
        for (const auto & [width, height] : {std::pair{64U, 48U}, {190U, 200U}, {41U, 30U}, {9U, 8U}})
            for (const SO<NBX::Image> & brush : brushes) {
                const auto & under = width == 41U ? belowTheSea : heights;
                PlainHachures plain(*under, width, height, settings, brush);
                const SO<NBX::Image> expected = plain.draw();
                const SO<GeoImage> found = draw(under, width, height, brush, settings);
                ASSERT_TRUE(found);
                expectSamePicture(*expected, *found);
                ink += dark(*expected);
            }
    EXPECT_GT(ink, 54U * 500U);
}

TEST(Hachures, TheRoundBrushIsOneAmongBrushes) {
    const auto heights = raster(64, 48, hills);
    const Settings s;
    const SO<GeoImage> found(
        Hachures::createHachures(heights.get(), 128, 96, 4.0, 2.0, s.scaling, s.windowSize, s.tolerance,
                                 s.minSlope, s.minCurvature, s.maxCurvature, s.baseHeight, 50.0, s.fullLength,
                                 s.overlapping, s.spacingFactor, s.seedStep, s.minNSteps, s.maxNSteps));
    Settings same;
    same.heightInterval = 50.0;
    expectSamePicture(*draw(heights, 128, 96, ZMT::UTIL::Brush::createRound(4.0, 2.0), same), *found);
    const HachureDrawing again = Hachures::draw(heights.get(), 128, 96, 4.0, 2.0, same);
    expectSamePicture(*again.image, *found);
    EXPECT_GT(again.strokes.size(), 20U);
}

/// The edges of the mask change places, since its outer circle is not the smaller one.
TEST(Hachures, BrushesHigherThanWideHaveAMaskToo) {
    const RecordedReports reports;
    const auto heights = raster(64, 48, hills);
    Settings settings;
    settings.fullLength = true;
    const SO<NBX::Image> high(new NBX::MemoryImage(1, 4, NBX::LS_Luminance)),
        wide(new NBX::MemoryImage(4, 1, NBX::LS_Luminance));
    const auto ofHigh = Hachures::drawWithBrush(heights.get(), 128, 96, high, settings),
               ofWide = Hachures::drawWithBrush(heights.get(), 128, 96, wide, settings);
    EXPECT_GT(ofHigh.strokes.size(), 20U);
    EXPECT_EQ(ofWide.strokes.size(), ofHigh.strokes.size());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(Hachures, ThePictureLiesOnTheRaster) {
    const SO<GeoImage> image = draw(raster(20, 10, plane), 77, 55, pixelBrush(), oneStroke());
    EXPECT_EQ(77, image->width());
    EXPECT_EQ(55, image->height());
    EXPECT_EQ(NBX::LS_Luminance, image->layerSequence());
    EXPECT_EQ(5000.0, image->minX());
    EXPECT_EQ(5190.0, image->maxX());
    EXPECT_EQ(7000.0, image->minY());
    EXPECT_EQ(7090.0, image->maxY());
    EXPECT_EQ(190.0 / 76.0, image->pixelSizeX());
}

/// Corner pixels are corner cells. The stroke begins a step from the highest cell that has a slope, and its
/// step is as long as a pixel: in pictures that are finer than the raster, and coarser.
TEST(Hachures, StrokesBeginOnTheCentresOfCells) {
    const auto heights = raster(
        21, 21, [](double x, double y) { return x > 18.0 || y > 18.0 ? double(s_noData) : plane(x, y); });
    Settings settings = oneStroke();
    settings.seedStep = 1;
    settings.maxNSteps = 12;
    settings.overlapping = true;
    for (const unsigned size : {21U, 81U, 11U}) {
        const auto strokes = Hachures::draw(heights.get(), size, size, 3.0, 1.0, settings).strokes;
        ASSERT_FALSE(strokes.empty());
        const double step = 200.0 / (size - 1) * std::sqrt(0.5);
        const auto & line = strokes.front().points;
        ASSERT_GE(line.size(), 6U) << size;
        for (unsigned i = 0; i < 6; ++i) {
            EXPECT_NEAR(5000.0 + 170.0 - (i + 1) * step, line[i].x, 1e-4) << size;
            EXPECT_NEAR(7000.0 + 170.0 - (i + 1) * step, line[i].y, 1e-4) << size;
        }
    }
}

TEST(Hachures, StrokesFollowTheSlopeInPicturesThatAreStretched) {
    const auto heights = raster(41, 41, plane);
    Settings settings = oneStroke();
    settings.seedStep = 1;
    for (const auto & [width, height] : {std::pair{161U, 41U}, {20U, 41U}}) {
        const auto strokes = Hachures::draw(heights.get(), width, height, 3.0, 1.0, settings).strokes;
        ASSERT_FALSE(strokes.empty());
        const auto &from = strokes.front().points.front(), &to = strokes.front().points.back();
        const double error = 0.06; // pixels count from corner to corner, and the ratio from edge to edge
        EXPECT_NEAR(1.0, (from.x - to.x) / (from.y - to.y), error) << width << " by " << height;
    }
}

/// Steps are as long as the gradient where it has one direction alone.
TEST(Hachures, SlopesAlongAnAxisAreNotNormalised) {
    const auto heights = raster(41, 11, [](double x, double) { return 4.0 * x; });
    Settings settings = oneStroke();
    settings.seedStep = 1;
    settings.maxNSteps = 20;
    const auto strokes = Hachures::draw(heights.get(), 41, 11, 3.0, 1.0, settings).strokes;
    ASSERT_FALSE(strokes.empty());
    const auto & line = strokes.front().points;
    ASSERT_GE(line.size(), 3U);
    EXPECT_NEAR(4.0, line[0].x - line[1].x, 1e-4) << "0.4 of a cell";
    EXPECT_EQ(line[0].y, line[1].y);
}

TEST(Hachures, TwoStepsAreOnePointAWalk) {
    Settings settings = oneStroke();
    settings.maxNSteps = 2;
    settings.seedStep = 1;
    settings.overlapping = true;
    const auto strokes = Hachures::draw(raster(11, 11, plane).get(), 11, 11, 3.0, 1.0, settings).strokes;
    EXPECT_EQ(64U, strokes.size()) << "a point for each cell with a slope, and one a step below it";
    for (const auto & stroke : strokes)
        EXPECT_EQ(1U, stroke.points.size());
    settings.minNSteps = 2;
    settings.maxNSteps = 3;
    EXPECT_TRUE(isWhite(*Hachures::draw(raster(11, 11, plane).get(), 11, 11, 3.0, 1.0, settings).image));
}

TEST(Hachures, AFlatRasterIsWhite) {
    const auto flat = raster(20, 20, [](double, double) { return 5.0; });
    for (const bool overlapping : {false, true}) {
        Settings settings;
        settings.overlapping = overlapping;
        settings.minNSteps = 1;
        EXPECT_TRUE(isWhite(*draw(flat, 60, 60, pixelBrush(), settings)));
    }
}

/// On ground that falls by a cell's size a cell, whose strokes go from cell to cell.
TEST(Hachures, BoundsOfSlopesAndCurvaturesAreNoPartOfThem) {
    const auto isEmpty = [](const SO<Raster> & heights, double minSlope, double minCurvature,
                            double maxCurvature) {
        Settings settings = oneStroke();
        settings.seedStep = 1;
        settings.minSlope = minSlope;
        settings.minCurvature = minCurvature;
        settings.maxCurvature = maxCurvature;
        return isWhite(*draw(heights, 13, 13, pixelBrush(), settings));
    };
    const auto slope = raster(13, 13, [](double, double y) { return 10.0 * y; });
    EXPECT_TRUE(isEmpty(slope, 45.0, -s_infinity, s_infinity));
    EXPECT_FALSE(isEmpty(slope, std::nextafter(45.0, 0.0), -s_infinity, s_infinity));
    // Nowhere are a ridge and a gully more curved than in the middle: by 2 * 0.25 / 100 for each map unit.
    const auto bent = [](double by) {
        return raster(13, 13, [by](double x, double y) { return 10.0 * y + by * (x - 6.0) * (x - 6.0); });
    };
    const auto most = double(0.005F), less = std::nextafter(most, 0.0);
    EXPECT_TRUE(isEmpty(bent(-0.25), 0.0, most, s_infinity));
    EXPECT_FALSE(isEmpty(bent(-0.25), 0.0, less, s_infinity));
    EXPECT_TRUE(isEmpty(bent(0.25), 0.0, -s_infinity, -most));
    EXPECT_FALSE(isEmpty(bent(0.25), 0.0, -s_infinity, -less));
}

TEST(Hachures, TheLastRowAndColumnBeginNoStroke) {
    Settings settings = oneStroke();
    // The highest cell lies in the last row, in the last column.
    EXPECT_TRUE(isWhite(
        *draw(raster(12, 12, [](double, double y) { return y * 8.0; }), 12, 12, pixelBrush(), settings)));
    EXPECT_TRUE(isWhite(
        *draw(raster(12, 12, [](double x, double) { return x * 8.0; }), 12, 12, pixelBrush(), settings)));
}

double heightOn(const Raster & heights, const ZMT::RASTER::StrokeLine::Point & point) {
    return heights.value(point.x, point.y);
}

TEST(Hachures, StrokesEndAtContoursAndFormRowsBetweenThem) {
    const auto heights = raster(60, 60, [](double x, double y) { return 2.1 * x + 3.3 * y; });
    Settings settings;
    settings.heightInterval = 40.0;
    settings.baseHeight = 10.0;
    const auto strokes = Hachures::draw(heights.get(), 240, 240, 3.0, 1.0, settings).strokes;
    std::vector<unsigned> rows(10, 0);
    for (const auto & stroke : strokes) {
        const double band = std::floor((heightOn(*heights, stroke.points.front()) - 10.0) / 40.0);
        for (const auto & point : stroke.points)
            ASSERT_EQ(band, std::floor((heightOn(*heights, point) - 10.0) / 40.0));
        for (std::size_t i = 1; i < stroke.points.size(); ++i)
            ASSERT_LT(heightOn(*heights, stroke.points[i]), heightOn(*heights, stroke.points[i - 1]));
        ++rows.at(std::size_t(band + 1.0));
    }
    for (std::size_t band = 1; band < 8; ++band)
        EXPECT_GT(rows[band], 5U) << band;
}

TEST(Hachures, StrokesKeepTheirDistance) {
    const auto heights = raster(64, 48, hills);
    Settings settings;
    settings.spacingFactor = 3;
    settings.fullLength = true;
    settings.heightInterval = 20.0;
    const auto strokes = Hachures::draw(heights.get(), 190, 142, 3.0, 1.0, settings).strokes;
    ASSERT_GT(strokes.size(), 30U);
    const double pixel = 630.0 / 189.0;
    double least = s_infinity;
    for (std::size_t i = 0; i < strokes.size(); ++i)
        for (std::size_t j = 0; j < i; ++j)
            for (const auto & a : strokes[i].points)
                for (const auto & b : strokes[j].points)
                    least = std::min(least, std::hypot(a.x - b.x, a.y - b.y) / pixel);
    EXPECT_GT(least, 4.5 - 1.5) << "half of 3 brushes, but for the rounding to pixels";
}

/// The seed itself is no point; the second walk stands behind the first one in the order of drawing, so that
/// the cut ends lie at the bottom and where the walks meet.
TEST(Hachures, PartsThatAreNotDrawnDivideLines) {
    // The highest cell that has a slope is the only seed with a stroke: others lie below the interval.
    const auto heights = raster(61, 61, plane);
    Settings settings = oneStroke();
    settings.seedStep = 1;
    settings.maxNSteps = 40;
    settings.spacingFactor = 200;
    const auto whole = Hachures::draw(heights.get(), 61, 61, 3.0, 1.0, settings).strokes;
    ASSERT_EQ(1U, whole.size());
    EXPECT_EQ(39U, whole[0].points.size()) << "two walks of 20 points, without the seed";
    settings.fullLength = false;
    const auto cut = Hachures::draw(heights.get(), 61, 61, 3.0, 1.0, settings).strokes;
    ASSERT_EQ(2U, cut.size());
    // Of the 19 points of the first walk the lowest 2 are left out, and of the 20 of the second one its
    // last 2.
    ASSERT_EQ(17U, cut[0].points.size());
    ASSERT_EQ(18U, cut[1].points.size());
    for (std::size_t i = 0; i < 17; ++i)
        EXPECT_EQ(whole[0].points[i].x, cut[0].points[i].x);
    for (std::size_t i = 0; i < 18; ++i)
        EXPECT_EQ(whole[0].points[19 + i].x, cut[1].points[i].x);
    EXPECT_NEAR(20.0, cut[0].points[0].width, 0.1) << "2 pixels of ink";
}

TEST(Hachures, ShortStrokesLeaveRoomForOthers) {
    const auto heights = raster(61, 61, plane);
    Settings settings = oneStroke();
    settings.seedStep = 1;
    settings.spacingFactor = 200;
    settings.heightInterval = 3.0 * 12.0; // few steps fit between contours
    settings.minNSteps = 7;
    const auto strokes = Hachures::draw(heights.get(), 61, 61, 3.0, 1.0, settings).strokes;
    ASSERT_EQ(1U, strokes.size()) << "the first that is long enough";
    EXPECT_GE(strokes[0].points.size(), 7U);
    EXPECT_LT(heightOn(*heights, strokes[0].points[0]), 3.0 * 118.0 - 3.0) << "the highest seeds had no room";
}

TEST(Hachures, AreTheSameOnEveryRun) {
    // Many heights are the same.
    const auto heights = raster(64, 48, [](double x, double y) {
        const double height = hills(x, y);
        return height == s_noData ? height : std::floor(height);
    });
    Settings settings;
    settings.heightInterval = 20.0;
    const auto first = Hachures::draw(heights.get(), 128, 96, 3.0, 1.0, settings);
    const auto second = Hachures::draw(heights.get(), 128, 96, 3.0, 1.0, settings);
    expectSamePicture(*first.image, *second.image);
    EXPECT_EQ(first.strokes.size(), second.strokes.size());
}

// --- widths by another raster

HachureDrawing dependent(const SO<Raster> & heights, const Raster & reference, const Settings & settings,
                         double black = 0.0, double white = 100.0, unsigned maxStrokeSize = 7) {
    return Hachures::drawDependent(heights.get(), 240, 240, &reference, maxStrokeSize, black, white,
                                   settings);
}

/// Of a stroke of a drawing by a reference that is `value` all over, in pixels.
double inkFor(double value, unsigned maxStrokeSize = 7, double black = 0.0, double white = 100.0) {
    const auto heights = raster(60, 60, plane);
    SO<Raster> reference(new Raster(2, 3, 5000.0, 7000.0, 590.0, 295.0, true, s_noData));
    for (unsigned i = 0; i < 6; ++i)
        reference->setValue(i % 2, i / 2, float(value));
    Settings settings = oneStroke();
    settings.seedStep = 1;
    settings.spacingFactor = 50;
    const auto strokes = dependent(heights, *reference, settings, black, white, maxStrokeSize).strokes;
    EXPECT_FALSE(strokes.empty());
    return strokes.empty() ? 0.0 : strokes[0].points[0].width / (590.0 / 239.0);
}

TEST(DependentHachures, AreThickWhereTheReferenceIsBlack) {
    // Brushes of 3 to 7 pixels, whose ink is one less.
    for (const auto & [value, ink] : {std::pair{-50.0, 6.0},
                                      {0.0, 6.0},
                                      {12.0, 6.0},
                                      {12.5, 6.0},
                                      {13.0, 5.0},
                                      {37.0, 5.0},
                                      {38.0, 4.0},
                                      {50.0, 4.0},
                                      {80.0, 3.0},
                                      {88.0, 2.0},
                                      {100.0, 2.0},
                                      {500.0, 2.0},
                                      {double(s_noData), 2.0}})
        EXPECT_NEAR(ink, inkFor(value), 0.25) << value;
    EXPECT_NEAR(2.0, inkFor(0.0, 7, 100.0, 0.0), 0.25) << "black may be the greater one";
    EXPECT_NEAR(4.0, inkFor(100.0, 5, 100.0, 0.0), 0.25);
}

TEST(DependentHachures, AreThoseOfThePlainSteps) {
    const auto heights = raster(64, 48, hills);
    // Of other cells, with a hole, below black and above white at some places.
    SO<Raster> reference(new Raster(22, 48, 5000.0, 7000.0, 30.0, 10.0, true, s_noData));
    for (unsigned y = 0; y < 48; ++y)
        for (unsigned x = 0; x < 22; ++x)
            reference->setValue(x, y, x > 17 && y < 9 ? s_noData : float(60.0 * std::sin(0.4 * x + 0.2 * y)));
    for (const bool fullLength : {false, true}) {
        Settings s;
        s.fullLength = fullLength;
        s.heightInterval = 90.0;
        s.spacingFactor = fullLength ? 2 : 1;
        const SO<NBX::Image> expected =
            PlainHachures(*heights, 210, 170, s, *reference, 7, 50.0, -40.0).draw();
        const SO<GeoImage> found(Hachures::createDependentHachures(
            heights.get(), 210, 170, reference.get(), 7, 50.0, -40.0, s.scaling, s.windowSize, s.tolerance,
            s.minSlope, s.minCurvature, s.maxCurvature, s.baseHeight, s.heightInterval, s.fullLength,
            s.overlapping, s.spacingFactor, s.seedStep, s.minNSteps, s.maxNSteps));
        ASSERT_TRUE(found);
        expectSamePicture(*expected, *found);
        EXPECT_GT(dark(*found), 3000U);
    }
}

TEST(DependentHachures, WidthsChangeAlongTheStroke) {
    const auto heights = raster(60, 60, plane);
    const auto reference = raster(60, 60, [](double x, double) { return x * 100.0 / 59.0; });
    Settings settings;
    settings.heightInterval = 60.0;
    const auto drawing = dependent(heights, *reference, settings);
    ASSERT_GT(drawing.strokes.size(), 10U);
    const double pixel = 590.0 / 239.0;
    for (const auto & stroke : drawing.strokes)
        for (const auto & point : stroke.points)
            EXPECT_NEAR(6.0 - 4.0 * (point.x - 5000.0) / 590.0, point.width / pixel, 0.8);
}

// --- wrong use

struct WrongCall {
    const wchar_t *condition, *message;
    std::function<void(Settings &)> spoil = [](Settings &) {};
    unsigned width = 30, height = 30;
};

TEST(Hachures, ArgumentsAreChecked) {
    const auto heights = raster(20, 20, plane);
    for (const WrongCall & wrong :
         {WrongCall{L"scaling > 0.0", L"scaling not positive", [](Settings & s) { s.scaling = 0.0; }},
          {L"windowSize > 1", L"windowSize not greater than 1", [](Settings & s) { s.windowSize = 1; }},
          {L"minNSteps < maxNSteps", L"minimum number of steps is not less than maximum",
           [](Settings & s) { s.minNSteps = s.maxNSteps; }},
          {L"width > 1", L"width <= 1", [](Settings &) {}, 1, 30},
          {L"height > 1", L"height <= 1", [](Settings &) {}, 30, 1}}) {
        Settings settings;
        wrong.spoil(settings);
        const RecordedReports reports;
        EXPECT_FALSE(draw(heights, wrong.width, wrong.height, pixelBrush(), settings));
        EXPECT_EQ(1U, reports.size()) << reports;
        EXPECT_EQ(1U, reports.count(0, wrong.condition, wrong.message)) << reports;
    }
}

TEST(Hachures, ArgumentsAreCheckedInOrder) {
    Settings settings;
    settings.scaling = -1.0;
    settings.windowSize = 0;
    settings.maxNSteps = 0;
    const RecordedReports reports;
    EXPECT_FALSE(Hachures::drawDependent(nullptr, 0, 1, nullptr, 4, 3.0, 3.0, settings).image);
    std::vector<std::wstring> messages;
    for (const NBX::ErrorReport & report : reports.reports())
        messages.push_back(report.message);
    EXPECT_EQ((std::vector<std::wstring>{
                  L"no raster data", L"scaling not positive", L"windowSize not greater than 1",
                  L"minimum number of steps is not less than maximum", L"width <= 1", L"height <= 1",
                  L"no reference data", L"max. stroke size < 5", L"black != white"}),
              messages);
    EXPECT_EQ(L"rasterData", reports[0].condition);
    EXPECT_EQ(L"referenceData", reports[6].condition);
    EXPECT_EQ(L"maxStrokeSize >= 5", reports[7].condition);
    EXPECT_EQ(L"blackValue != whiteValue", reports[8].condition);
}

TEST(Hachures, AReferenceLiesOnTheRaster) {
    const auto heights = raster(20, 20, plane);
    struct Case {
        double minX, minY, sizeX, sizeY;
        const wchar_t *condition, *message;
    };
    const double size = 190.0;
    for (const Case & c :
         {Case{4999.0, 7000.0, size + 1.0, size, L"rasterData->minX() == referenceData->minX()",
               L"unequal minX not supported"},
          {5000.0, 6999.0, size, size + 1.0, L"rasterData->minY() == referenceData->minY()",
           L"unequal minY not supported"},
          {5000.0, 7000.0, size + 1.0, size, L"rasterData->maxX() == referenceData->maxX()",
           L"unequal maxX not supported"},
          {5000.0, 7000.0, size, size - 1.0, L"rasterData->maxY() == referenceData->maxY()",
           L"unequal maxY not supported"}}) {
        const SO<Raster> reference(new Raster(2, 2, c.minX, c.minY, c.sizeX, c.sizeY, true, s_noData));
        const RecordedReports reports;
        EXPECT_FALSE(dependent(heights, *reference, {}).image);
        EXPECT_EQ(1U, reports.size()) << reports;
        EXPECT_EQ(1U, reports.count(0, c.condition, c.message)) << reports;
    }
}

TEST(Hachures, BrushesAreChecked) {
    const auto heights = raster(20, 20, plane);
    const SO<NBX::Image> colors(new NBX::MemoryImage(3, 3, NBX::LS_RGB));
    for (const SO<NBX::Image> & brush : {SO<NBX::Image>(), colors}) {
        const RecordedReports reports;
        EXPECT_FALSE(draw(heights, 20, 20, brush, {}));
        EXPECT_EQ(1U, reports.size()) << reports;
    }
    const RecordedReports reports;
    Settings settings;
    settings.spacingFactor = 0;
    EXPECT_FALSE(draw(heights, 20, 20, pixelBrush(), settings)) << "there is no mask of that size";
    EXPECT_GE(reports.count(L"stroke size must be greater than 1.5"), 1U);
}

TEST(Hachures, CancelledAreNone) {
    const CancelingDisplay display;
    const auto heights = raster(64, 48, hills);
    const HachureDrawing drawing = Hachures::draw(heights.get(), 64, 48, 3.0, 1.0, {});
    EXPECT_FALSE(drawing.image);
    EXPECT_TRUE(drawing.strokes.empty());
    EXPECT_EQ(display.titles, std::vector<std::string>{"Precomputing Hachures"});
}

TEST(Hachures, CancelledAmongTheStrokesAreNone) {
    const CancelingDisplay display(1);
    EXPECT_FALSE(Hachures::draw(raster(64, 48, hills).get(), 64, 48, 3.0, 1.0, {}).image);
    EXPECT_EQ(display.titles, (std::vector<std::string>{"Precomputing Hachures", "Computing Hachures"}));
    EXPECT_EQ(display.totals.back(), 64.0 * 48.0) << "seeds";
}

TEST(Hachures, RastersOfFewCellsAreWhite) {
    for (const auto & [width, height] : {std::pair{1U, 1U}, {1U, 9U}, {2U, 2U}})
        EXPECT_TRUE(isWhite(*draw(raster(width, height, plane), 9, 9, pixelBrush(), oneStroke())))
            << width << " by " << height;
}

} // namespace
