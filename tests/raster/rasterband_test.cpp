#include <zmt/raster/rasterband.h>

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/object/so.h>
#include <support/recordedreports.h>

namespace {

using namespace ZMT::RASTER;

/// The value is 100 * row + column; column 1 is undefined. Counts how often it is read.
class CountingBand : public RasterBand {
public:
    CountingBand(unsigned width, unsigned height) : RasterBand({width, height, 0.0, 0.0, 1.0, 1.0}) {}
    mutable unsigned readings = 0;

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                   float * cells) const override {
        ++readings;
        for (unsigned j = 0; j < height; ++j)
            for (unsigned i = 0; i < width; ++i)
                *cells++ = col + i == 1 ? std::nanf("") : 100.0f * (row + j) + col + i;
    }
};

TEST(RasterBand, ReadsAWindow) {
    const NBX::SO<CountingBand> band(new CountingBand(5, 4));
    std::vector<float> cells(4);
    band->read(2, 1, 2, 2, cells.data());
    EXPECT_EQ((std::vector<float>{102.0f, 103.0f, 202.0f, 203.0f}), cells);
    EXPECT_EQ(1u, band->readings);
}

TEST(RasterBand, WindowOutsideIsReportedAndUndefined) {
    const NBX::SO<CountingBand> band(new CountingBand(5, 4));
    RecordedReports reports;
    std::vector<float> cells(4, 1.0f);
    band->read(4, 0, 2, 2, cells.data());
    band->read(0xffffffffu, 0, 2, 2, cells.data());
    band->read(0, 3, 1, 2, cells.data());
    EXPECT_EQ(3u, reports.count(L"window outside the band"));
    EXPECT_TRUE(band->isUndefValue(cells[0]));
    EXPECT_EQ(0u, band->readings);
}

TEST(RasterBand, EmptyWindowReadsNothing) {
    const NBX::SO<CountingBand> band(new CountingBand(5, 4));
    band->read(0, 0, 0, 3, nullptr);
    EXPECT_EQ(0u, band->readings);
}

TEST(RasterBand, RangeIsFoundOnce) {
    const NBX::SO<CountingBand> band(new CountingBand(5, 4));
    EXPECT_EQ(0.0, band->minValue());
    EXPECT_EQ(304.0, band->maxValue());
    EXPECT_EQ(1u, band->readings);
}

TEST(RasterBand, RangeOfManyRowsIsReadInParts) {
    const NBX::SO<CountingBand> band(new CountingBand(1000, 2500));
    EXPECT_EQ(249'900.0 + 999.0, band->maxValue());
    EXPECT_GT(band->readings, 1u);
}

TEST(RasterBand, NothingDefinedHasNoRange) {
    class Void : public RasterBand {
    public:
        Void() : RasterBand({2, 2, 0.0, 0.0, 1.0, 1.0}) {}

    protected:
        void readCells(unsigned, unsigned, unsigned width, unsigned height, float * cells) const override {
            std::fill_n(cells, width * height, std::nanf(""));
        }
    };
    const NBX::SO<Void> band(new Void);
    EXPECT_TRUE(std::isnan(band->minValue()));
    EXPECT_TRUE(std::isnan(band->maxValue()));
}

} // namespace
