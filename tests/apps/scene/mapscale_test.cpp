#include "scene/mapscale.h"

#include <cmath>

#include <gtest/gtest.h>

#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/raster/gdal/coordinatesystem.h>

namespace {

using ZMT::CORE::GeoTransformation;
using ZMT::RASTER::CoordinateSystem;
using Point = FlightController::Point;

MapScale scaleOf(const char * system) {
    return MapScale(CoordinateSystem::parse(system));
}

TEST(MapScale, UtmIsShortByFourInTenThousandOnItsMeridian) {
    const MapScale scale = scaleOf("EPSG:32645");
    for (const auto & [east, north] : {std::pair(1.0, 0.0), std::pair(0.0, 1.0), std::pair(0.6, -0.8)})
        EXPECT_NEAR(scale.metres(500'000.0, 3'100'000.0, east, north), 1.0 / 0.9996, 1e-5);
    EXPECT_NEAR(scale.metres(500'000.0, 3'100'000.0, 300.0, 400.0), 500.0 / 0.9996, 5e-3);
}

TEST(MapScale, WebMercatorIsTwiceAsLongAtSixtyDegrees) {
    // Of the sphere it is twice; the ellipsoid differs by some thousandths, more along the parallel.
    const MapScale scale = scaleOf("EPSG:3857");
    const auto place = CoordinateSystem(CoordinateSystem::parse("EPSG:3857").wkt).fromLonLat({10.0, 60.0});
    ASSERT_TRUE(place);
    EXPECT_NEAR(scale.metres(place->x, place->y, 1000.0, 0.0), 501.3, 0.3);
    EXPECT_NEAR(scale.metres(place->x, place->y, 0.0, 1000.0), 500.4, 0.3);
}

TEST(MapScale, WithoutASystemTheMapIsTrue) {
    EXPECT_DOUBLE_EQ(MapScale({}).metres(7.0, 8.0, 3.0, 4.0), 5.0);
    ZMT::RASTER::GeoReference local;
    local.wkt = "LOCAL_CS[\"site\",UNIT[\"metre\",1]]";
    EXPECT_DOUBLE_EQ(MapScale(local).metres(7.0, 8.0, 3.0, 4.0), 5.0);
}

TEST(MapScale, IsThatOfTheGroundInTheMiddleOfThePicture) {
    GeoTransformation::setNBXOrigin({0.0, 0.0, 0.0});
    FlightController flight;
    flight.setLens(45.0, 1.5);
    flight.setGround({NBX::Bounds(Point(-5000.0, 0.0, -5000.0), Point(5000.0, 0.0, 5000.0)),
                      [](double, double) { return 0.0; }});
    flight.setView({0.0, 300.0, 0.0}, {400.0, 0.0, 0.0});
    const auto scale = MapScale({}).metresPerPixel(flight, 600.0);
    ASSERT_TRUE(scale);
    EXPECT_NEAR(*scale, 500.0 * 2.0 * std::tan(M_PI / 8.0) / 600.0, 1e-6);
    // So a pixel beside the middle, along the horizon, shows.
    const auto middle = flight.pick(flight.ray(0.0, 0.0)), beside = flight.pick(flight.ray(2.0 / 900.0, 0.0));
    ASSERT_TRUE(middle && beside);
    EXPECT_NEAR((*beside - *middle).length(), *scale, *scale * 1e-3);
    flight.setView({0.0, 300.0, 0.0}, {400.0, 500.0, 0.0});
    EXPECT_FALSE(MapScale({}).metresPerPixel(flight, 600.0)) << "the sky has no scale";
}

} // namespace
