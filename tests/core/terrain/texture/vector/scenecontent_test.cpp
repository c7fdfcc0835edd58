#include "core/terrain/texture/vector/scenecontent.h"

#include <gtest/gtest.h>

#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/view/translation.h>

using NBX::Bounds;
using NBX::SO;
using ZMT::CORE::SceneContent;
using Point = NBX::Vector3Base<double>;

namespace {

Bounds cube(double from, double to) {
    return {Point(from, from, from), Point(to, to, to)};
}

SO<NBX::Box> cuboid(double from, double to) {
    return new NBX::Box(Point(from, from, from), Point(to, to, to));
}

bool meets(const SO<NBX::SceneThing> & scene, const Bounds & bounds) {
    return SceneContent::meets(scene.get(), bounds, nullptr);
}

TEST(SceneContent, IsThatOfTheShapesAndNotOfTheBoxAroundThem) {
    const SO<NBX::SceneThing> scene(new NBX::SceneThing);
    EXPECT_FALSE(meets(scene, cube(-100.0, 100.0)));
    scene->append(cuboid(0.0, 1.0).get());
    const SO<NBX::SceneThing> below(new NBX::SceneThing(scene.get()));
    below->append(cuboid(10.0, 11.0).get());
    EXPECT_TRUE(meets(scene, cube(-1.0, 0.5)));
    EXPECT_TRUE(meets(scene, cube(10.5, 20.0)));
    EXPECT_FALSE(meets(scene, cube(3.0, 7.0)));
    EXPECT_FALSE(SceneContent::meets(nullptr, cube(0.0, 1.0), nullptr));
}

TEST(SceneContent, StandsWhereTransformationsPutIt) {
    const SO<NBX::SceneThing> scene(new NBX::SceneThing);
    const SO<NBX::SceneThing> below(new NBX::SceneThing(scene.get()));
    below->append(new NBX::Translation(Point(100.0, 100.0, 100.0)));
    below->append(cuboid(0.0, 1.0).get());
    EXPECT_FALSE(meets(scene, cube(0.0, 1.0)));
    EXPECT_TRUE(meets(scene, cube(100.5, 101.0)));
}

} // namespace
