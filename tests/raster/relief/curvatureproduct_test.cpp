#include <zmt/raster/relief/curvatureproduct.h>

#include <cmath>

#include <gtest/gtest.h>

namespace {

using ZMT::RASTER::CurvatureProduct;
using ZMT::RASTER::QuadraticSurface;

/// A bowl, of which the mean curvature follows from its numbers and the size of the cells.
TEST(CurvatureProduct, CountsInMapUnits) {
    std::vector<float> rows[3];
    for (unsigned j = 0; j < 3; ++j)
        for (int i = 0; i < 5; ++i)
            rows[j].push_back(float(0.5 * (i - 2) * (i - 2) + 0.25 * (int(j) - 1) * (int(j) - 1)));
    const float * const pointers[] = {rows[0].data(), rows[1].data(), rows[2].data()};
    float values[5];
    CurvatureProduct(QuadraticSurface::C_Mean, 2.0).computeRow(pointers, 5, 10.0, 5.0, values);
    EXPECT_NEAR(-2.0 * (0.5 / 100.0 + 0.25 / 25.0), values[2], 1e-9);
    EXPECT_TRUE(std::isnan(values[0]) && std::isnan(values[4]));
}

} // namespace
