#include "util/mesh/rasterplan.h"

#include <gtest/gtest.h>

#include <cmath>

#include <nbx/object/exception.h>
#include <zmt/raster/gdal/coordinatesystem.h>

namespace {

using ZMT::RASTER::CoordinateSystem;
using ZMT::UTIL::RasterPlan;

ZMT::RASTER::GeoRaster raster(const std::string & system, unsigned columns, unsigned rows, double minX,
                              double minY, double cell) {
    return {new ZMT::RASTER::SimpleRasterData<float>(columns, rows, minX, minY, cell, cell, false, 0.0f),
            CoordinateSystem::parse(system)};
}

TEST(RasterPlan, OnAMapInMetresPlacesAreThoseOfTheRaster) {
    const RasterPlan plan(raster("EPSG:32645", 5, 4, 500000.0, 3e6, 30.0));
    const auto place = plan.place(3, 2);
    EXPECT_EQ(500090.0, place.x);
    EXPECT_EQ(3000060.0, place.y);
    EXPECT_EQ(1.0, plan.cellRatio());
    EXPECT_GT(plan.straightSteps(), 5u);
}

TEST(RasterPlan, DegreesAreProjectedAsExactlyAsAnyoneCanTell) {
    for (const auto & [columns, rows] : {std::pair(601u, 401u), {130u, 2u}, {2u, 130u}, {257u, 129u}}) {
        const double cell = 1.0 / 600.0;
        const RasterPlan plan(raster("EPSG:4326", columns, rows, 86.0, 60.0, cell));
        EXPECT_EQ("EPSG:32645", CoordinateSystem::code(plan.reference().wkt));
        const CoordinateSystem system(plan.reference().wkt);
        for (unsigned row = 0; row < rows; row += std::max(1u, rows / 13))
            for (unsigned column = 0; column < columns; column += std::max(1u, columns / 17)) {
                const auto exact = system.fromLonLat({86.0 + column * cell, 60.0 + row * cell});
                const auto place = plan.place(column, row);
                ASSERT_LT(std::hypot(exact->x - place.x, exact->y - place.y), 0.3) << column << " " << row;
            }
        const auto exact = system.fromLonLat({86.0 + (columns - 1) * cell, 60.0 + (rows - 1) * cell});
        const auto last = plan.place(columns - 1, rows - 1);
        EXPECT_LT(std::hypot(exact->x - last.x, exact->y - last.y), 1e-6)
            << "corners are projected themselves";
        EXPECT_NEAR(2.0, plan.cellRatio(), 0.1);
    }
}

TEST(RasterPlan, StraightStepsAreStraight) {
    const RasterPlan plan(raster("EPSG:4326", 1201, 1201, 86.0, 60.0, 1.0 / 1200.0));
    const unsigned step = plan.straightSteps();
    ASSERT_LT(step, 1200u);
    ASSERT_GT(step, 16u);
    const auto bend = [&](unsigned size) {
        const auto a = plan.place(0, 1200), b = plan.place(size, 1200), middle = plan.place(size / 2, 1200);
        return std::hypot(0.5 * (a.x + b.x) - middle.x, 0.5 * (a.y + b.y) - middle.y);
    };
    const double cell = std::hypot(plan.place(1, 1200).x - plan.place(0, 1200).x, 0.0);
    EXPECT_LE(bend(step), 0.51 * cell);
}

TEST(RasterPlan, WhatIsNowhereOnTheGlobeIsRefused) {
    EXPECT_THROW(RasterPlan(raster("EPSG:4326", 5, 5, 0.0, 500.0, 1.0)), NBX::InputException);
}

} // namespace
