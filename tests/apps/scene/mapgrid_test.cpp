#include "scene/mapgrid.h"

#include <cmath>
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "landscape/landscape.h"
#include "scene/landscapelook.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

#include <zmt/raster/gdal/coordinatesystem.h>

namespace {

using ZMT::RASTER::CoordinateSystem;
using ZMT::RASTER::FeatureSource;
using ZMT::RASTER::GeoExtent;
using ZMT::RASTER::VectorFeature;

std::map<std::string, VectorFeature::Line> linesOf(const FeatureSource & grid, const GeoExtent & box) {
    std::map<std::string, VectorFeature::Line> lines;
    grid.read({box, 0.0, {0}}, [&](const VectorFeature & feature) {
        lines[std::get<std::string>(feature.values.at(0))] = feature.lines.at(0);
        return true;
    });
    return lines;
}

TEST(MapGrid, HasRoundEastingsAndNorthings) {
    const GeoExtent area{499'870.0, 3'099'950.0, 500'530.0, 3'100'260.0};
    double step = 0.0;
    const auto grid = MapGrid::lines(area, {}, MapGrid::Kind::Map, step);
    ASSERT_TRUE(grid);
    EXPECT_EQ(step, 100.0);
    EXPECT_EQ(grid->name(), "map grid, 100 m");
    const auto lines = linesOf(*grid, area);
    EXPECT_EQ(lines.size(), 7U + 3U);
    ASSERT_TRUE(lines.count("E 500000") && lines.count("N 3100200"));
    for (const auto & p : lines.at("E 500000"))
        EXPECT_EQ(p.x, 500'000.0);
    EXPECT_EQ(lines.at("N 3100200").front().x, area.minX);
    EXPECT_EQ(lines.at("N 3100200").back().x, area.maxX);
    EXPECT_EQ(linesOf(*grid, {499'990.0, 3'099'960.0, 500'010.0, 3'099'990.0}).size(), 1U);
}

TEST(MapGrid, OfDegreesFollowsTheProjection) {
    const auto reference = CoordinateSystem::parse("EPSG:32645");
    const CoordinateSystem system(reference.wkt);
    const GeoExtent area{700'000.0, 6'600'000.0, 720'000.0, 6'612'000.0}; // beside the middle of the zone
    double step = 0.0;
    const auto grid = MapGrid::lines(area, reference, MapGrid::Kind::Degrees, step);
    ASSERT_TRUE(grid);
    EXPECT_EQ(step, 0.05);
    const auto lines = linesOf(*grid, area);
    ASSERT_TRUE(lines.count("59.5° N")) << lines.begin()->first;
    double low = HUGE_VAL, high = -HUGE_VAL;
    for (const auto & p : lines.at("59.5° N")) {
        const auto place = system.toLonLat({p.x, p.z});
        ASSERT_TRUE(place);
        EXPECT_NEAR(place->latitude, 59.5, 1e-7);
        low = std::min(low, p.z);
        high = std::max(high, p.z);
    }
    EXPECT_GT(high - low, 100.0) << "a parallel is no northing";
}

TEST(MapGrid, GoesOverTheDateLine) {
    const auto reference = CoordinateSystem::parse("EPSG:3832"); // its middle is 150 degrees east
    const CoordinateSystem system(reference.wkt);
    const auto line = system.fromLonLat({180.0, 10.0});
    ASSERT_TRUE(line);
    double step = 0.0;
    const auto grid = MapGrid::lines({line->x - 2e5, line->y - 1e5, line->x + 2e5, line->y + 1e5}, reference,
                                     MapGrid::Kind::Degrees, step);
    ASSERT_TRUE(grid);
    const auto lines = linesOf(*grid, *grid->extent());
    EXPECT_TRUE(lines.count("179° W") && lines.count("179° E") && lines.count("10° N"));
    EXPECT_LT(lines.size(), 20U);
}

TEST(MapGrid, OfTheWholeGlobeHasEvenPartsOfACircle) {
    const auto reference = CoordinateSystem::parse("EPSG:3857");
    const CoordinateSystem system(reference.wkt);
    const auto corner = system.fromLonLat({179.9, 80.0});
    ASSERT_TRUE(corner);
    double step = 0.0;
    const GeoExtent area{-corner->x, -corner->y, corner->x, corner->y};
    const auto grid = MapGrid::lines(area, reference, MapGrid::Kind::Degrees, step);
    ASSERT_TRUE(grid);
    EXPECT_EQ(step, 45.0);
    std::set<std::string> names;
    for (const auto & [name, line] : linesOf(*grid, area))
        names.insert(name);
    EXPECT_EQ(names, (std::set<std::string>{"135° W", "90° W", "45° W", "0°", "45° E", "90° E", "135° E",
                                            "45° S", "45° N"}));
}

/// From a quarter of the globe down.
TEST(MapGrid, HasPartsOfACircleAboveTenDegrees) {
    const auto reference = CoordinateSystem::parse("EPSG:3857");
    const CoordinateSystem system(reference.wkt);
    for (const auto & [size, expected] :
         {std::pair(70.0, 10.0), std::pair(90.0, 15.0), std::pair(125.0, 30.0), std::pair(250.0, 45.0)}) {
        const auto corner = system.fromLonLat({size / 2.0, 20.0});
        ASSERT_TRUE(corner);
        double step = 0.0;
        EXPECT_TRUE(MapGrid::lines({-corner->x, -corner->y, corner->x, corner->y}, reference,
                                   MapGrid::Kind::Degrees, step));
        EXPECT_EQ(step, expected) << size;
    }
}

TEST(MapGrid, OfNothingThereIsNone) {
    double step = 0.0;
    EXPECT_FALSE(MapGrid::lines({0.0, 0.0, 10.0, 10.0}, {}, MapGrid::Kind::None, step));
    EXPECT_FALSE(MapGrid::lines({0.0, 0.0, 10.0, 10.0}, {}, MapGrid::Kind::Degrees, step));
    EXPECT_FALSE(MapGrid::lines({0.0, 0.0, 0.0, 10.0}, {}, MapGrid::Kind::Map, step));
}

TEST(MapGrid, LiesAmongOverlaysAndIsPartOfTheLook) {
    const RunFolder folder;
    SmallGeoTiff tiff{16, 16};
    tiff.heights.assign(256, 5.0F);
    LandscapeOptions options;
    options.terrain = folder.write("flat.tif", tiff.encode());
    Landscape landscape(options);
    const LandscapeLook bare = LandscapeLook::of(landscape);
    EXPECT_EQ(bare.grid, MapGrid::Kind::None);
    MapGrid::show(landscape, MapGrid::Kind::Map);
    landscape.overlays().list()[0]->setOpacity(0.25);
    MapGrid::show(landscape, MapGrid::Kind::Degrees);
    ASSERT_EQ(landscape.overlays().list().size(), 1U);
    EXPECT_EQ(landscape.overlays().list()[0]->opacity(), 0.25) << "that of the one before";
    EXPECT_EQ(MapGrid::of(landscape), MapGrid::Kind::Degrees);
    const LandscapeLook look = LandscapeLook::of(landscape);
    EXPECT_FALSE(look == bare);
    bare.applyTo(landscape);
    EXPECT_TRUE(landscape.overlays().list().empty());
    look.applyTo(landscape);
    EXPECT_EQ(LandscapeLook::of(landscape), look);
}

} // namespace
