#include <zmt/raster/bandstatistics.h>

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include <support/cancelingdisplay.h>
#include <zmt/raster/rasterband.h>

namespace {

using ZMT::RASTER::BandStatistics;
using ZMT::RASTER::RasterBand;

/// Numbers by column and row; every seventh cell of a row is undefined where `hasHoles`.
class HoledBand : public RasterBand {
    NBX_TEMPLATE_CLASS(HoledBand, RasterBand)
public:
    HoledBand(unsigned width, unsigned height, bool hasHoles)
        : RasterBand({width, height, 0.0, 0.0, 1.0, 1.0}), hasHoles_(hasHoles) {}

    static float valueAt(unsigned col, unsigned row) { return float(col % 1000) - 10.0F * float(row % 100); }
    bool isHole(unsigned col) const { return hasHoles_ && col % 7 == 3; }

    mutable unsigned windows = 0; ///< that were read

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                   float * cells) const override {
        ++windows;
        for (unsigned y = 0; y < height; ++y)
            for (unsigned x = 0; x < width; ++x)
                *cells++ =
                    isHole(col + x) ? std::numeric_limits<float>::quiet_NaN() : valueAt(col + x, row + y);
    }

private:
    bool hasHoles_;
};

/// Read in several windows, in both directions where it is wide.
TEST(BandStatistics, AreThoseOfAllCells) {
    for (const auto & [width, height] : {std::pair(3U, 5U), {2500U, 901U}, {1'500'000U, 3U}}) {
        const NBX::SO<HoledBand> band(new HoledBand(width, height, true));
        double low = HUGE_VAL, high = -HUGE_VAL, sum = 0.0;
        std::uint64_t defined = 0;
        for (unsigned row = 0; row < height; ++row)
            for (unsigned col = 0; col < width; ++col) {
                if (band->isHole(col)) continue;
                const double value = HoledBand::valueAt(col, row);
                low = std::min(low, value);
                high = std::max(high, value);
                sum += value;
                ++defined;
            }
        const BandStatistics found = BandStatistics::of(*band);
        EXPECT_TRUE(found.isComplete);
        EXPECT_EQ(defined, found.defined) << width;
        EXPECT_EQ(std::uint64_t(width) * height - defined, found.undefined) << width;
        EXPECT_EQ(low, found.minimum) << width;
        EXPECT_EQ(high, found.maximum) << width;
        EXPECT_NEAR(sum / double(defined), found.average, 1e-9) << width;
    }
}

TEST(BandStatistics, WithoutNumbersThereAreNone) {
    class Empty : public HoledBand {
    public:
        Empty() : HoledBand(4, 4, false) {}
        void readCells(unsigned, unsigned, unsigned width, unsigned height, float * cells) const override {
            std::fill_n(cells, std::size_t(width) * height, std::numeric_limits<float>::quiet_NaN());
        }
    };
    const NBX::SO<RasterBand> band(new Empty);
    const BandStatistics found = BandStatistics::of(*band);
    EXPECT_EQ(0U, found.defined);
    EXPECT_EQ(16U, found.undefined);
    EXPECT_TRUE(std::isnan(found.minimum) && std::isnan(found.maximum) && std::isnan(found.average));
}

TEST(BandStatistics, CanBeCancelledBeforeTheEnd) {
    const CancelingDisplay canceling;
    NBX::Progress progress("reading");
    const NBX::SO<HoledBand> band(new HoledBand(2000, 2000, false));
    EXPECT_FALSE(BandStatistics::of(*band, &progress).isComplete);
    EXPECT_EQ(0U, band->windows);
}

} // namespace
