#include <zmt/raster/histogram.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include <support/recordedreports.h>
#include <zmt/raster/simplerasterdata.h>

namespace {

using namespace ZMT::RASTER;

template <class T>
NBX::SO<SimpleRasterData<T>> rasterOf(unsigned width, const std::vector<T> & values, bool hasUndefined,
                                      T undefined) {
    const unsigned height = static_cast<unsigned>(values.size()) / width;
    NBX::SO<SimpleRasterData<T>> raster(
        new SimpleRasterData<T>(width, height, 0.0, 0.0, 1.0, 1.0, hasUndefined, undefined));
    std::copy(values.begin(), values.end(), raster->cells());
    return raster;
}

TEST(Histogram, CountsDefinedAndUndefined) {
    const auto raster = rasterOf<float>(3, {1.0f, -9.0f, 2.0f, 2.0f, std::nanf(""), 7.0f}, true, -9.0f);
    const Histogram histogram(raster.get());
    EXPECT_EQ(4u, histogram.numberOfDefinedValues());
    EXPECT_EQ(2u, histogram.numberOfUndefinedValues());
    EXPECT_EQ(3u, histogram.numberOfDifferentValues());
    EXPECT_EQ(1.0, histogram.minimum());
    EXPECT_EQ(7.0, histogram.maximum());
    EXPECT_EQ(3.0, histogram.average());
}

TEST(Histogram, NothingDefined) {
    const auto raster = rasterOf<float>(2, {-9.0f, -9.0f}, true, -9.0f);
    const Histogram histogram(raster.get());
    EXPECT_EQ(0u, histogram.numberOfDefinedValues());
    EXPECT_EQ(2u, histogram.numberOfUndefinedValues());
    EXPECT_EQ(0u, histogram.numberOfDifferentValues());
    EXPECT_TRUE(std::isnan(histogram.minimum()));
    EXPECT_TRUE(std::isnan(histogram.maximum()));
    EXPECT_TRUE(std::isnan(histogram.average()));
}

TEST(Histogram, NullIsReported) {
    RecordedReports reports;
    const Histogram histogram(nullptr);
    EXPECT_EQ(1u, reports.count(0, L"raster", L"no raster"));
    EXPECT_EQ(0u, histogram.numberOfUndefinedValues());
}

TEST(Histogram, BothZerosAreOneValue) {
    const auto raster = rasterOf<float>(2, {0.0f, -0.0f}, false, 0.0f);
    EXPECT_EQ(1u, Histogram(raster.get()).numberOfDifferentValues());
}

TEST(Histogram, DoublesCloserThanFloatsDiffer) {
    const auto raster = rasterOf<double>(4, {0.1, 0.1 + 1e-15, 0.1, 0.5}, false, 0.0);
    EXPECT_EQ(3u, Histogram(raster.get()).numberOfDifferentValues());
}

TEST(Histogram, AverageOfManyEqualValuesIsExact) {
    const auto raster = rasterOf<float>(1000, std::vector<float>(2'000'000, 8848.125f), false, 0.0f);
    EXPECT_EQ(8848.125, Histogram(raster.get()).average());
    EXPECT_EQ(1u, Histogram(raster.get()).numberOfDifferentValues());
}

// Random bit patterns lie on more pages of the bit set than it may have, which heights never do.
TEST(Histogram, DistinctValuesOfAnyMagnitudeAgreeWithASet) {
    std::mt19937 random(5);
    std::vector<float> values;
    while (values.size() < 400'000) {
        const auto bits = static_cast<std::uint32_t>(random()) & 0xffff0003u;
        const float value = std::bit_cast<float>(bits);
        if (std::isfinite(value)) values.push_back(value);
    }
    const auto raster = rasterOf<float>(1000, values, false, 0.0f);
    const std::set<float> expected(values.begin(), values.end());
    ASSERT_GT(expected.size(), 8192u * 4);
    EXPECT_EQ(expected.size(), Histogram(raster.get()).numberOfDifferentValues());
    const auto precise =
        rasterOf<double>(1000, std::vector<double>(values.begin(), values.end()), false, 0.0);
    EXPECT_EQ(expected.size(), Histogram(precise.get()).numberOfDifferentValues());
}

} // namespace
