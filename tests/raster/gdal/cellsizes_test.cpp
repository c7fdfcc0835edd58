#include <zmt/raster/gdal/cellsizes.h>

#include <cmath>

#include <gtest/gtest.h>

#include <zmt/raster/gdal/coordinatesystem.h>

namespace {

using namespace ZMT::RASTER;

GeoReference system(const std::string & name) {
    GeoReference reference = CoordinateSystem::parse(name);
    reference.isGeoreferenced = true;
    return reference;
}

TEST(CellSizes, OfMetresAreThoseOfTheMap) {
    const auto sizes = CellSizes::of({4, 3, 500000.0, 3000000.0, 30.1, 20.7}, system("EPSG:32645"));
    ASSERT_EQ(3U, sizes.size());
    for (const CellSize & size : sizes) {
        EXPECT_EQ(30.1, size.x) << "to the bit";
        EXPECT_EQ(20.7, size.y);
    }
    EXPECT_EQ(30.1 / 0.3048, CellSizes::of({4, 3, 5e5, 3e6, 30.1, 20.7}, system("EPSG:32645"), 0.3048)[0].x)
        << "in feet, as the heights are";
    EXPECT_NEAR(30.1 * 1200.0 / 3937.0, CellSizes::of({4, 3, 5e5, 3e5, 30.1, 20.7}, system("EPSG:2225"))[0].x,
                1e-9)
        << "a map in feet";
    EXPECT_EQ(30.1, CellSizes::of({4, 3, 5e5, 3e6, 30.1, 20.7}, {})[0].x) << "without a place";
}

/// Degrees of the ellipsoid of WGS 84, by its radii of curvature.
TEST(CellSizes, OfDegreesAreMeasuredRowByRow) {
    const auto sizes = CellSizes::of({3, 7, 20.0, -90.0, 0.5, 30.0}, system("EPSG:4326"));
    ASSERT_EQ(7U, sizes.size());
    constexpr double a = 6378137.0, e2 = 0.00669437999014, degree = M_PI / 180.0;
    for (int row = 1; row < 6; ++row) {
        const double latitude = (-90.0 + 30.0 * row) * degree;
        const double w = 1.0 - e2 * std::sin(latitude) * std::sin(latitude);
        EXPECT_NEAR(a / std::sqrt(w) * std::cos(latitude) * 0.5 * degree, sizes[unsigned(row)].x, 0.1) << row;
        EXPECT_NEAR(a * (1.0 - e2) / (w * std::sqrt(w)) * 30.0 * degree, sizes[unsigned(row)].y, 10.0) << row;
    }
    EXPECT_TRUE(std::isnan(sizes[0].x) && std::isnan(sizes[6].y)) << "poles";
}

} // namespace
