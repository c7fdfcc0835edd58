#include <zmt/util/occlusion/lightcasters.h>

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include <nbx/container/sequence/array.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/translation.h>
#include <zmt/core/texturedtriangles/cityassembly.h>

namespace {

using NBX::SO;
using ZMT::CORE::CityAssembly;
using ZMT::RASTER::MapPlace;
using ZMT::UTIL::LightCasters;
using V = NBX::Vector3Base<double>;

/// A triangle 10 m above the origin of the model.
SO<NBX::SceneThing> roof() {
    SO<NBX::SceneThing> model(new NBX::SceneThing);
    model->append(new NBX::Translation({0.0, 10.0, 0.0}));
    model->append(new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles,
                                      new NBX::Array<V>(std::vector<V>{{0, 0, 0}, {4, 0, 0}, {0, 0, 4}})));
    return model;
}

CityAssembly::Place standingAt(double x, double z, double height) {
    CityAssembly::Place place = CityAssembly::onMap(x, z, height);
    place.ground = height;
    return place;
}

LightCasters::Frame newFrame(double exaggeration = 1.0) {
    LightCasters::Frame frame;
    frame.grid = {100, 100, 1000.0, 2000.0, 2.0, 4.0};
    frame.exaggeration = exaggeration;
    return frame;
}

std::vector<V> cellsOf(const std::vector<LightCasters::Body> & bodies, const LightCasters::Frame & frame) {
    const auto vertices = LightCasters::inCells(bodies, frame)->newVertexIterator();
    return {vertices->begin(), vertices->end()};
}

TEST(LightCastersTest, ModelsStandWhereTheyWerePlaced) {
    CityAssembly assembly;
    assembly.add(roof(), 1, "a", "a.obj", standingAt(1010.0, 2020.0, 500.0));
    assembly.add(roof(), 1, "b", "b.obj", standingAt(1100.0, 2100.0, 600.0));
    const auto bodies = LightCasters::bodiesOf(assembly);
    ASSERT_EQ(3U, bodies.size()) << "two, and one for what belongs to none";
    EXPECT_EQ((std::vector<V>{{1010, 510, 2020}, {1014, 510, 2020}, {1010, 510, 2024}}), bodies[0].corners);
    EXPECT_EQ(600.0, bodies[1].ground);
    EXPECT_EQ(V(1102, 610, 2102), bodies[1].middle());
    EXPECT_TRUE(bodies[2].corners.empty());
    EXPECT_EQ((std::vector<V>{{5, 510, 5}, {7, 510, 5}, {5, 510, 6}}), cellsOf({bodies[0]}, newFrame()));
}

TEST(LightCastersTest, OnExaggeratedGroundBodiesKeepTheirSize) {
    LightCasters::Body body;
    body.corners = {{1000, 510, 2000}, {1002, 530, 2000}, {1000, 510, 2004}};
    body.ground = 500.0;
    // Cells are smaller by the factor, so that heights above the ground are, too.
    const auto heights = [&](const LightCasters::Frame & f) {
        const std::vector<V> corners = cellsOf({body}, f);
        return std::pair(corners.at(0).y, corners.at(1).y);
    };
    LightCasters::Frame onGround = newFrame(2.0);
    onGround.groundAt = [](const MapPlace &) { return 100.0; };
    EXPECT_EQ(std::pair(505.0, 515.0), heights(onGround)) << "its own ground comes first";
    LightCasters::Frame feet = newFrame(2.0);
    feet.heightUnit = 0.5;
    EXPECT_EQ(std::pair(1010.0, 1030.0), heights(feet));
    body.ground = std::nan("");
    feet.groundAt = [](const MapPlace & place) { return place.x == 1001.0 ? 490.0 : 0.0; };
    EXPECT_EQ(std::pair(1000.0, 1020.0), heights(feet)) << "the ground of the raster below its middle";
    feet.groundAt = [](const MapPlace &) { return std::nan(""); };
    EXPECT_EQ(std::pair(1020.0, 1040.0), heights(feet)) << "its lowest corner";
}

TEST(LightCastersTest, WhatHasNoPlaceOnTheMapIsLeftOut) {
    LightCasters::Body body;
    for (const double x : {0.0, 10.0})
        for (const V & p : {V(x, 1, 0), V(x + 1, 1, 0), V(x, 1, 1)})
            body.corners.push_back(p);
    LightCasters::Frame f = newFrame();
    f.toMap = [](const MapPlace & place) -> std::optional<MapPlace> {
        if (place.x > 10.0) return std::nullopt;
        return MapPlace{place.x + 1000.0, place.y + 2000.0};
    };
    EXPECT_EQ((std::vector<V>{{0, 1, 0}, {0.5, 1, 0}, {0, 1, 0.25}}), cellsOf({body}, f));
    body.corners[0].y = std::nan("");
    EXPECT_TRUE(cellsOf({body}, f).empty());
    EXPECT_TRUE(cellsOf({}, f).empty());
}

} // namespace
