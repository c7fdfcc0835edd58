#include <zmt/raster/gdal/coordinatesystem.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <numbers>

#include <gtest/gtest.h>

#include <nbx/object/exception.h>

#include <support/temporaryfolder.h>

namespace {

using ZMT::RASTER::CoordinateSystem;
using ZMT::RASTER::GeoReference;
using ZMT::RASTER::MapPlace;

TEST(CoordinateSystem, IsNamedByItsNumberAndByItsText) {
    const GeoReference byCode = CoordinateSystem::parse("EPSG:32645");
    EXPECT_EQ("WGS 84 / UTM zone 45N", byCode.name);
    EXPECT_EQ("metre", byCode.unitName);
    EXPECT_FALSE(byCode.isGeographic);
    EXPECT_TRUE(byCode.isGeoreferenced);
    for (const std::string & text : {std::string("32645"), std::string("epsg:32645"), byCode.wkt}) {
        EXPECT_EQ(byCode.name, CoordinateSystem::parse(text).name) << text;
        EXPECT_EQ("EPSG:32645", CoordinateSystem::code(CoordinateSystem::parse(text).wkt)) << text;
    }
    EXPECT_TRUE(CoordinateSystem::parse("EPSG:4326").isGeographic);
}

TEST(CoordinateSystem, WhatNamesNoneIsRefused) {
    for (const char * text : {"", "EPSG:", "EPSG:999999", "UTM", "PROJCS[", "/etc/passwd",
                              "99999999999999999999", "http://localhost:1/system.wkt"})
        EXPECT_THROW(CoordinateSystem::parse(text), NBX::InputException) << text;
}

/// Files may hold text of any kind, and so may a pipe that nobody writes into.
TEST(CoordinateSystem, FilesAreNotAsked) {
    EXPECT_THROW(CoordinateSystem::parse(std::string(ZMT_DATA_DIR) + "/everest_srtm3.tif"),
                 NBX::InputException);
    const TemporaryFolder folder;
    const std::string file = std::string(std::getenv("TMPDIR")) + "/system.txt";
    std::ofstream(file) << CoordinateSystem::parse("EPSG:32645").wkt;
    EXPECT_THROW(CoordinateSystem::parse(file), NBX::InputException);
    EXPECT_THROW(CoordinateSystem{file}, NBX::InputException);
}

TEST(CoordinateSystem, HasNoShortNameWhereNobodyGaveOne) {
    EXPECT_EQ("", CoordinateSystem::code(""));
    EXPECT_EQ("", CoordinateSystem::code("nonsense"));
    const GeoReference own = CoordinateSystem::parse("+proj=eqc +lat_ts=47 +lon_0=9 +datum=WGS84 +units=m");
    EXPECT_EQ("", CoordinateSystem::code(own.wkt));
    EXPECT_EQ("unknown, metre", CoordinateSystem::describe(own));
}

TEST(CoordinateSystem, IsDescribedByNameNumberAndUnit) {
    EXPECT_EQ("WGS 84 / UTM zone 45N (EPSG:32645), metre",
              CoordinateSystem::describe(CoordinateSystem::parse("EPSG:32645")));
    EXPECT_EQ("WGS 84 (EPSG:4326), degree", CoordinateSystem::describe(CoordinateSystem::parse("EPSG:4326")));
    EXPECT_EQ("none", CoordinateSystem::describe({}));
}

TEST(CoordinateSystem, PlacesLieInZones) {
    const struct {
        double longitude, latitude;
        const char * code;
    } cases[] = {{13.03, 52.33, "EPSG:32633"},  {-180.0, 10.0, "EPSG:32601"}, {180.0, 10.0, "EPSG:32601"},
                 {179.99, -10.0, "EPSG:32760"}, {-0.01, 0.0, "EPSG:32630"},   {373.0, 1.0, "EPSG:32633"}};
    for (const auto & c : cases)
        EXPECT_EQ(c.code, CoordinateSystem::code(CoordinateSystem::utm({c.longitude, c.latitude}).wkt))
            << c.longitude;
}

TEST(CoordinateSystem, SystemsAreTheSameByTheirNames) {
    const GeoReference a = CoordinateSystem::parse("EPSG:32633"), b = CoordinateSystem::parse("EPSG:32634");
    const GeoReference own = CoordinateSystem::parse("+proj=eqc +lat_ts=47 +lon_0=9 +datum=WGS84 +units=m");
    EXPECT_TRUE(CoordinateSystem::areSame(a, a));
    EXPECT_FALSE(CoordinateSystem::areSame(a, b));
    EXPECT_TRUE(CoordinateSystem::areSame(own, own));
    EXPECT_FALSE(CoordinateSystem::areSame(own, a));
    EXPECT_TRUE(CoordinateSystem::areSame(a, {}));
    GeoReference spelled = a;
    spelled.wkt.insert(0, " ");
    EXPECT_TRUE(CoordinateSystem::areSame(spelled, a));
}

TEST(CoordinateSystem, PlacesGoToTheMapAndBack) {
    // The middle meridian of the zone lies at 500 km.
    const CoordinateSystem system(CoordinateSystem::parse("EPSG:32645").wkt);
    const auto place = system.fromLonLat({87.0, 28.0});
    ASSERT_TRUE(place);
    EXPECT_NEAR(500000.0, place->x, 0.001);
    EXPECT_NEAR(3097000.0, place->y, 1000.0);
    const auto back = system.toLonLat(*place);
    ASSERT_TRUE(back);
    EXPECT_NEAR(87.0, back->longitude, 1e-9);
    EXPECT_NEAR(28.0, back->latitude, 1e-9);
}

double length(const MapPlace & p) {
    return std::hypot(p.x, p.y);
}

/// In UTM the scale on the middle meridian is 0.9996, and grows with the square of the distance from it.
TEST(CoordinateSystem, AMetreOfGroundIsKnownOnTheMap) {
    const CoordinateSystem system(CoordinateSystem::parse("EPSG:32633").wkt);
    const auto middle = system.axesAt({15.0, 52.33});
    ASSERT_TRUE(middle);
    EXPECT_NEAR(500000.0, middle->place.x, 0.001);
    EXPECT_NEAR(0.9996, middle->east.x, 1e-7);
    EXPECT_NEAR(0.0, middle->east.y, 1e-7);
    EXPECT_NEAR(0.0, middle->north.x, 1e-7);
    EXPECT_NEAR(0.9996, middle->north.y, 1e-7);

    const auto aside = system.axesAt({13.03, 52.33});
    ASSERT_TRUE(aside);
    const double fromMiddle = (aside->place.x - 500000.0) / 0.9996 / 6378137.0;
    EXPECT_NEAR(0.9996 * (1.0 + fromMiddle * fromMiddle / 2.0), length(aside->north), 1e-6);
    EXPECT_NEAR(length(aside->north), length(aside->east), 1e-7);
    EXPECT_NEAR(0.0, aside->east.x * aside->north.x + aside->east.y * aside->north.y, 1e-7);
    // West of the middle meridian, going north goes to the east of grid north: by the convergence.
    const double radians = std::numbers::pi / 180.0;
    EXPECT_NEAR(std::tan(1.97 * radians) * std::sin(52.33 * radians), aside->north.x / aside->north.y, 2e-5);
    EXPECT_LT(aside->east.y, 0.0);
}

TEST(CoordinateSystem, AxesFollowTheUnitOfTheSystem) {
    const auto feet = CoordinateSystem(CoordinateSystem::parse("EPSG:2263").wkt).axesAt({-74.0, 40.7});
    ASSERT_TRUE(feet);
    EXPECT_NEAR(3.2808, length(feet->east), 1e-3);
    const auto degrees = CoordinateSystem(CoordinateSystem::parse("EPSG:4326").wkt).axesAt({13.0, 0.0});
    ASSERT_TRUE(degrees);
    EXPECT_NEAR(360.0 / (2.0 * std::numbers::pi * 6378137.0), degrees->east.x, 1e-12);
    EXPECT_NEAR(1.0 / 110574.0, degrees->north.y, 1e-9);
}

TEST(CoordinateSystem, PlacesWithoutNorthHaveNoAxes) {
    const CoordinateSystem system(CoordinateSystem::parse("EPSG:3857").wkt);
    EXPECT_TRUE(system.axesAt({10.0, 85.0}));
    for (const double latitude : {90.0, -90.0, 89.995, 91.0, std::nan("")})
        EXPECT_FALSE(system.axesAt({10.0, latitude})) << latitude;
}

/// Whatever the order that the system's register gives its axes.
TEST(CoordinateSystem, LongitudeIsX) {
    const auto place = CoordinateSystem(CoordinateSystem::parse("EPSG:4326").wkt).fromLonLat({87.0, 28.0});
    ASSERT_TRUE(place);
    EXPECT_DOUBLE_EQ(87.0, place->x);
    EXPECT_DOUBLE_EQ(28.0, place->y);
}

TEST(CoordinateSystem, WhatHasNoPlaceGivesNone) {
    const CoordinateSystem polar(CoordinateSystem::parse("EPSG:32645").wkt);
    EXPECT_FALSE(polar.fromLonLat({87.0, 1000.0}));
    EXPECT_FALSE(polar.toLonLat({1e30, 1e30}));
    EXPECT_THROW(CoordinateSystem(""), NBX::InputException);
}

TEST(CoordinateSystem, IsFoundWhereItHasAWayToTheGlobe) {
    const auto utm = CoordinateSystem::of(CoordinateSystem::parse("EPSG:32645"));
    ASSERT_TRUE(utm);
    EXPECT_TRUE(utm->toLonLat({500'000.0, 3'100'000.0}));
    EXPECT_FALSE(CoordinateSystem::of({}));
    GeoReference site;
    site.wkt = "LOCAL_CS[\"site\",UNIT[\"metre\",1]]";
    EXPECT_FALSE(CoordinateSystem::of(site));
    site.wkt = "nonsense";
    EXPECT_FALSE(CoordinateSystem::of(site));
}

} // namespace
