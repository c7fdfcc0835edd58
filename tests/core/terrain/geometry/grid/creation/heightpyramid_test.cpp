#include "core/terrain/geometry/grid/creation/heightpyramid.h"

#include <cmath>
#include <cstring>
#include <filesystem>

#include <gtest/gtest.h>

#include <nbx/object/exception.h>
#include <nbx/object/progress.h>

#include "../functionband.h"
#include <support/temporaryfolder.h>

namespace {

using namespace ZMT::CORE::GRID;
using NBX::SO;
using Resampling = HeightResampling;

/// A source in any part of the lattice.
class ShiftedSource : public HeightSource {
public:
    ShiftedSource(const LatticeArea & area, FunctionBand::Cell cell) : area_(area), cell_(std::move(cell)) {}
    LatticeArea area() const override { return area_; }
    void read(std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height,
              float * heights) const override {
        for (std::uint32_t j = y; j < y + height; ++j)
            for (std::uint32_t i = x; i < x + width; ++i)
                *heights++ = static_cast<float>(cell_(i, j));
    }

private:
    LatticeArea area_;
    FunctionBand::Cell cell_;
};

class HeightPyramidTest : public testing::Test {
protected:
    std::string path() const { return std::string(std::getenv("TMPDIR")) + "/levels"; }

    static std::vector<float> level(HeightPyramid & pyramid, unsigned d) {
        const LatticeArea area = pyramid.area(d);
        std::vector<float> heights(std::size_t(area.width()) * area.height());
        pyramid.read(d, area.minY, area.height(), heights.data());
        return heights;
    }
    bool build(HeightPyramid & pyramid, unsigned threads = 2) const {
        TileThreads tileThreads(threads);
        NBX::Progress progress("levels");
        return pyramid.build(tileThreads, progress);
    }

    const TemporaryFolder folder;
};

TEST_F(HeightPyramidTest, LevelsReachOverTheirArea) {
    const ShiftedSource source({5, 6, 11, 12}, FunctionBand::hills);
    HeightPyramid pyramid(source, 3, Resampling::Nearest, path());
    const LatticeArea first = pyramid.area(1), third = pyramid.area(3);
    EXPECT_EQ(2U, first.minX);
    EXPECT_EQ(3U, first.minY);
    EXPECT_EQ(6U, first.maxX);
    EXPECT_EQ(6U, first.maxY);
    EXPECT_EQ(0U, third.minX);
    EXPECT_EQ(2U, third.maxX);
    EXPECT_EQ(3U, third.width());
}

TEST_F(HeightPyramidTest, APointIsTheOneAtItsPlaceOrTheMean) {
    constexpr float none = FunctionBand::none;
    const float cells[5][5] = {{1, 2, 3, 4, 5},
                               {6, 7, 8, 9, 10},
                               {11, none, none, none, 15},
                               {none, none, none, none, none},
                               {none, none, none, none, none}};
    const auto cell = [&cells](unsigned x, unsigned y) { return double(cells[y][x]); };
    const ShiftedSource source({0, 0, 4, 4}, cell);
    HeightPyramid nearest(source, 1, Resampling::Nearest, path());
    ASSERT_TRUE(build(nearest));
    const std::vector<float> n = level(nearest, 1);
    ASSERT_EQ(9U, n.size());
    EXPECT_EQ((std::vector<float>{1, 3, 5, 11, 8, 15}), std::vector<float>(n.begin(), n.begin() + 6));
    for (unsigned i = 6; i < 9; ++i)
        EXPECT_TRUE(std::isnan(n[i]));
    HeightPyramid average(source, 1, Resampling::Average, path());
    ASSERT_TRUE(build(average));
    const std::vector<float> a = level(average, 1);
    EXPECT_FLOAT_EQ((4 * 1 + 2 * 2 + 2 * 6 + 7) / 9.0F, a[0]);
    EXPECT_FLOAT_EQ((4 * 3 + 2 * (2 + 4 + 8) + 7 + 9) / 12.0F, a[1]);
    EXPECT_FLOAT_EQ((2 * 8 + 7 + 9) / 4.0F, a[4]);
    EXPECT_EQ(1.0F, average.minHeight());
    EXPECT_EQ(15.0F, average.maxHeight());
}

TEST_F(HeightPyramidTest, AFileHoldsTheSameAsMemory) {
    for (const LatticeArea & area :
         {LatticeArea{0, 0, 100, 70}, LatticeArea{3, 8, 64, 65}, LatticeArea{7, 5, 7, 99}})
        for (const Resampling resampling : {Resampling::Nearest, Resampling::Average}) {
            const ShiftedSource source(area, FunctionBand::hillsWithHoles);
            HeightPyramid inMemory(source, 5, resampling, path()), inFile(source, 5, resampling, path(), 0);
            EXPECT_TRUE(folder.isEmpty()) << "without a name";
            ASSERT_TRUE(build(inMemory, 1) && build(inFile, 3));
            for (unsigned d = 1; d <= 5; ++d) {
                const std::vector<float> expected = level(inMemory, d), actual = level(inFile, d);
                ASSERT_EQ(expected.size(), actual.size());
                EXPECT_EQ(0, std::memcmp(expected.data(), actual.data(), expected.size() * sizeof(float)))
                    << d;
            }
            EXPECT_EQ(inMemory.minHeight(), inFile.minHeight());
        }
}

TEST_F(HeightPyramidTest, WithoutHeightsThereIsNoRange) {
    const ShiftedSource source({0, 0, 9, 9}, [](unsigned, unsigned) { return double(FunctionBand::none); });
    HeightPyramid pyramid(source, 2, Resampling::Nearest, path());
    EXPECT_FALSE(pyramid.hasHeights());
    ASSERT_TRUE(build(pyramid));
    EXPECT_FALSE(pyramid.hasHeights());
    const ShiftedSource one({0, 0, 9, 9},
                            [](unsigned x, unsigned y) { return x == 9 && y == 9 ? 3.0 : NAN; });
    HeightPyramid other(one, 2, Resampling::Nearest, path());
    ASSERT_TRUE(build(other));
    EXPECT_TRUE(other.hasHeights());
}

TEST_F(HeightPyramidTest, AFailedReadLeavesNoWorkBehind) {
    const SO<FunctionBand> band(new FunctionBand(2000, 4000, FunctionBand::hills));
    band->failsAfter = 3000000;
    const BandHeightSource source(band);
    HeightPyramid pyramid(source, 2, Resampling::Nearest, path());
    EXPECT_THROW(build(pyramid), NBX::InputException);
}

} // namespace
