#include <zmt/raster/gdal/coordinatesystem.h>

#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

#include <nbx/object/exception.h>

#include <support/temporaryfolder.h>

namespace {

using ZMT::RASTER::CoordinateSystem;
using ZMT::RASTER::GeoReference;

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

} // namespace
