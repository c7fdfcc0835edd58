#include "util/hachures/strokefield.h"

#include <gtest/gtest.h>

#include <zmt/raster/relief/morphologicalparameters.h>

namespace {

using Raster = ZMT::RASTER::SimpleRasterData<float>;
using ZMT::UTIL::StrokeField;

constexpr float s_hole = -99.0F;

NBX::SO<Raster> rasterOf(unsigned width, const std::vector<float> & heights) {
    const auto lines = unsigned(heights.size()) / width;
    NBX::SO<Raster> raster(new Raster(width, lines, 0.0, 0.0, 10.0, 10.0, true, s_hole));
    std::copy(heights.begin(), heights.end(), raster->cells());
    return raster;
}

StrokeField fieldOf(const Raster & raster, unsigned width, unsigned height) {
    const NBX::SO<ZMT::RASTER::MorphologicalParameters> parameters(
        new ZMT::RASTER::MorphologicalParameters(&raster, 1.0F, 3, 0.0F));
    return {raster, *parameters, width, height};
}

TEST(StrokeField, CellsAreInTheOrderOfTheirHeightsAndThenOfTheirRows) {
    const auto raster = rasterOf(4, {2.0F, -3.0F, s_hole, -0.0F, 0.0F, 7.0F, 2.0F, -400.0F});
    EXPECT_EQ((std::vector<std::uint32_t>{5, 0, 6, 3, 4, 1, 7, 2}), fieldOf(*raster, 8, 8).cellsByHeight());
}

TEST(StrokeField, CornersOfThePictureAreCornerCells) {
    const auto raster = rasterOf(3, {1, 2, 3, 4, 5, 6, 7, 8, 9});
    const StrokeField field = fieldOf(*raster, 9, 5);
    EXPECT_EQ(8.0, field.xOf(8));
    EXPECT_EQ(4.0, field.yOf(8));
    EXPECT_EQ(4.0, field.xOf(4));
    EXPECT_EQ(2.0, field.yOf(4));
    EXPECT_EQ(5.0F, field.heightAt(4));
}

/// Only one cell of nine has all around it.
TEST(StrokeField, CellsWithoutAWeightNeedNoNumbers) {
    const auto raster = rasterOf(3, {1, 2, 3, 4, 5, 6, 7, 8, 9});
    StrokeField::Sample sample{};
    EXPECT_TRUE(fieldOf(*raster, 9, 5).sample(4.0, 2.0, sample));
    EXPECT_FLOAT_EQ(0.1F, float(sample.gradientX));
    EXPECT_FLOAT_EQ(0.3F, float(sample.gradientY));
    EXPECT_FALSE(fieldOf(*raster, 9, 5).sample(4.0, 2.1, sample));
    // A cell's own position, rounded: pixels of 1/3 cell.
    const auto wide = rasterOf(30, std::vector<float>(30 * 3, 1.0F));
    const StrokeField fine = fieldOf(*wide, 88, 88);
    for (std::uint32_t cell = 31; cell < 59; ++cell)
        EXPECT_TRUE(fine.sample(fine.xOf(cell), fine.yOf(cell), sample)) << cell;
}

} // namespace
