#include <zmt/raster/relief/reliefwalk.h>

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include <nbx/object/progress.h>
#include <zmt/raster/rasterband.h>

#include "raster/relief/gdalrelief.h"
#include "support/cancelingdisplay.h"
#include "support/recordedreports.h"

namespace {

using namespace ZMT::RASTER;

/// Counts how often each row is read.
class CountingBand : public RasterBand {
public:
    CountingBand(unsigned width, unsigned height)
        : RasterBand({width, height, 0.0, 0.0, 1.0, 1.0}), reads(height, 0) {}

    static float heightAt(unsigned x, unsigned y) { return float(50.0 * std::sin(0.1 * y) + 0.3 * x * x); }

    mutable std::vector<unsigned> reads;
    mutable unsigned mostRows = 0;

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                   float * cells) const override {
        mostRows = std::max(mostRows, height);
        for (unsigned y = 0; y < height; ++y) {
            ++reads[row + y];
            for (unsigned x = 0; x < width; ++x)
                *cells++ = heightAt(col + x, row + y);
        }
    }
};

/// The height of the cell itself, so many cells away: a product whose right result is known.
class Shifted : public ReliefProduct {
public:
    explicit Shifted(unsigned reach) : reach_(reach) {}
    unsigned windowSize() const override { return 2 * reach_ + 1; }
    void computeRow(const float * const * rows, unsigned width, double sizeX, double sizeY,
                    float * values) const override {
        for (unsigned x = 0; x < width; ++x)
            values[x] = rows[0][x] + 10000.0F * float(sizeX) + 0.0F * float(sizeY); // the southern row
    }

private:
    unsigned reach_;
};

TEST(ReliefWalk, SeesTheRowsAroundEachRow) {
    for (const unsigned height : {1U, 2U, 255U, 256U, 257U, 700U})
        for (const unsigned reach : {1U, 4U}) {
            const CountingBand band(3, height);
            std::vector<CellSize> cells(height);
            for (unsigned y = 0; y < height; ++y)
                cells[y].x = y;
            KeptRows kept;
            kept.width = 3;
            ASSERT_TRUE(ReliefWalk::run(band, Shifted(reach), cells, kept));
            ASSERT_EQ(3U * height, kept.values.size());
            for (unsigned line = 0; line < height; ++line) {
                const unsigned row = height - 1 - line;
                const float found = kept.values[3 * line + 2];
                if (row < reach)
                    ASSERT_TRUE(std::isnan(found)) << height << ", " << row;
                else
                    ASSERT_EQ(CountingBand::heightAt(2, row - reach) + 10000.0F * float(row), found)
                        << height << ", " << row;
            }
        }
}

TEST(ReliefWalk, ReadsEachRowOnceAndFewAtATime) {
    const CountingBand band(2, 1500);
    KeptRows kept;
    kept.width = 2;
    ASSERT_TRUE(ReliefWalk::run(band, Shifted(3), std::vector<CellSize>(1500), kept));
    EXPECT_EQ(std::vector<unsigned>(1500, 1), band.reads);
    EXPECT_LE(band.mostRows, ReliefWalk::s_rows + 6);
}

TEST(ReliefWalk, IsCancelled) {
    const CancelingDisplay display;
    NBX::Progress progress("walk");
    KeptRows kept;
    EXPECT_FALSE(
        ReliefWalk::run(CountingBand(2, 30), Shifted(1), std::vector<CellSize>(30), kept, &progress));
    EXPECT_TRUE(kept.values.empty());
}

TEST(ReliefWalk, RowsWithoutASizeAreReported) {
    const RecordedReports reports;
    KeptRows kept;
    EXPECT_FALSE(ReliefWalk::run(CountingBand(2, 30), Shifted(1), std::vector<CellSize>(29), kept));
    EXPECT_EQ(1U, reports.size());
}

} // namespace
