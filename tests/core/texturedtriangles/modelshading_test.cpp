#include <zmt/core/texturedtriangles/modelshading.h>

#include <cmath>

#include <gtest/gtest.h>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/attribute/shapematerial.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/tf.h>

namespace ZMT::CORE {
namespace {

using NBX::Color;
using NBX::PolygonSet;
using NBX::SO;
using Point = NBX::Vector3Base<double>;
using Points = NBX::Array<Point>;

/// Seen from above its corners turn counter-clockwise.
SO<PolygonSet> roof() {
    return new PolygonSet(PolygonSet::PT_Triangles,
                          new Points(std::vector<Point>{{0, 0, 0}, {1, 0, 0}, {0, 0, 1}}));
}

SO<NBX::SceneThing> sceneOf(const std::vector<SO<NBX::RenderObj>> & objects) {
    const SO<NBX::SceneThing> scene(new NBX::SceneThing), node(new NBX::SceneThing(scene.get()));
    for (const SO<NBX::RenderObj> & object : objects)
        node->append(object.get());
    return scene;
}

/// The only set of a flat scene; null without one.
const PolygonSet * setOf(const NBX::SceneThing & scene) {
    for (unsigned i = 0; i < scene.objects(); ++i) {
        if (const auto * set = dynamic_cast<const PolygonSet *>(scene.object(i))) return set;
        if (const auto * node = dynamic_cast<const NBX::SceneThing *>(scene.object(i)))
            if (const PolygonSet * set = setOf(*node)) return set;
    }
    return nullptr;
}

ModelShading fromTheEast() {
    ModelShading shading;
    shading.toSun = Point(1, 1, 0).normalized();
    return shading;
}

TEST(ModelShading, LightIsTheSunsAndTheSkys) {
    const ModelShading shading = fromTheEast();
    const double sun = 0.55 * std::sqrt(0.5);
    EXPECT_DOUBLE_EQ(shading.lightOn({0, 1, 0}), 0.45 + sun);
    EXPECT_DOUBLE_EQ(shading.lightOn({1, 0, 0}), 0.45 * 0.7 + sun);
    EXPECT_DOUBLE_EQ(shading.lightOn({-1, 0, 0}), 0.45 * 0.7);
    EXPECT_DOUBLE_EQ(shading.lightOn({0, 0, 1}), 0.45 * 0.7);
    EXPECT_NEAR(shading.lightOn({0, -1, 0}), 0.45 * 0.21, 1e-12);
    EXPECT_DOUBLE_EQ(ModelShading().lightOn({0, 1, 0}), 1.0);
}

TEST(ModelShading, FacesAreLitFromTheSideTheyAreSeenFrom) {
    const ModelShading shading = fromTheEast();
    for (const bool isFromAbove : {true, false}) {
        const SO<PolygonSet> set = roof();
        if (!isFromAbove)
            set->setVertexIterator(new Points(std::vector<Point>{{0, 0, 0}, {0, 0, 1}, {1, 0, 0}}));
        const SO<NBX::SceneThing> scene = sceneOf({set});
        shading.bake(scene);
        const PolygonSet * lit = setOf(*scene);
        ASSERT_TRUE(lit && lit->newColorIterator());
        ASSERT_EQ(lit->newColorIterator()->size(), 3U);
        EXPECT_NEAR((*lit->newColorIterator())[1][0], shading.lightOn({0, isFromAbove ? 1.0 : -1.0, 0}),
                    1e-6);
    }
}

TEST(ModelShading, NormalsOfVerticesComeFirst) {
    const ModelShading shading = fromTheEast();
    const SO<PolygonSet> set = roof();
    set->setNormalIterator(new Points(std::vector<Point>{{0, 2, 0}, {1, 0, 0}, {0, 0, 0}}));
    const SO<NBX::SceneThing> scene = sceneOf({set});
    shading.bake(scene);
    const SO<PolygonSet::Colors> colors = setOf(*scene)->newColorIterator();
    EXPECT_NEAR((*colors)[0][0], shading.lightOn({0, 1, 0}), 1e-6);
    EXPECT_NEAR((*colors)[1][0], shading.lightOn({1, 0, 0}), 1e-6);
    EXPECT_NEAR((*colors)[2][0], 0.45 * 0.7, 1e-6) << "no direction at all";
}

TEST(ModelShading, ColoursKeepTheirAlpha) {
    ModelShading shading;
    shading.skyShare = 0.0;
    shading.toSun = Point(0, 0.6, 0.8);
    const SO<NBX::SceneThing> scene =
        sceneOf({new NBX::ColorAttribute(Color(0.5F, 0.25F, 1.0F, 0.5F)),
                 new NBX::ShapeMaterial(Color::red, Color::black, 0.0), roof()});
    shading.bake(scene);
    const double light = 0.6; // of a roof
    const Color color = (*setOf(*scene)->newColorIterator())[0];
    EXPECT_NEAR(color[0], 0.5 * light, 1e-6);
    EXPECT_NEAR(color[1], 0.25 * light, 1e-6);
    EXPECT_NEAR(color[2], light, 1e-6);
    EXPECT_EQ(color[3], 0.5F);
    EXPECT_FALSE(scene->traverse(
        [](NBX::RenderObj * object, const auto &) { return !dynamic_cast<NBX::PolygonSet *>(object); }));
    EXPECT_TRUE(scene->traverse([](NBX::RenderObj * object, const auto &) {
        return !dynamic_cast<NBX::ColorAttribute *>(object) && !dynamic_cast<NBX::ShapeMaterial *>(object);
    }));
}

TEST(ModelShading, TexturesHaveTheirLightAlready) {
    const SO<NBX::ImageTexture2DGL> texture(
        new NBX::ImageTexture2DGL(new NBX::MemoryImage(2, 2, NBX::LS_RGB)));
    const auto textured = [&] {
        const SO<PolygonSet> set = roof();
        set->setTextureIterator(new Points(std::vector<Point>{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}));
        return sceneOf({new NBX::ShapeMaterial(Color::red, Color::black, 0.0), texture, set});
    };
    ModelShading shading;
    SO<NBX::SceneThing> scene = textured();
    shading.bake(scene);
    EXPECT_FALSE(setOf(*scene)->newColorIterator());
    EXPECT_TRUE(scene->traverse(
        [](NBX::RenderObj * object, const auto &) { return !dynamic_cast<NBX::ShapeMaterial *>(object); }));
    shading.isOnTextures = true;
    scene = textured();
    shading.bake(scene);
    EXPECT_TRUE(setOf(*scene)->newColorIterator());
    EXPECT_TRUE(setOf(*scene)->newTextureIterator(0));
    // Without coordinates a texture does not show.
    shading.isOnTextures = false;
    scene = sceneOf({texture, roof()});
    shading.bake(scene);
    EXPECT_TRUE(setOf(*scene)->newColorIterator());
}

/// The two places of one model lie differently in the light.
TEST(ModelShading, WhatStandsTwiceIsLitTwice) {
    const ModelShading shading = fromTheEast();
    const SO<NBX::SceneThing> scene(new NBX::SceneThing);
    const SO<PolygonSet> set = roof();
    set->setNormalIterator(new Points(std::vector<Point>(3, {0, 1, 0})));
    for (const double angle : {0.0, -M_PI / 2}) {
        const SO<NBX::SceneThing> node(new NBX::SceneThing(scene.get()));
        node->append(new NBX::Tf(NBX::Matrix4x4Base<double>::rotation({0, 0, 1}, angle)));
        node->append(set.get());
    }
    shading.bake(scene);
    std::vector<float> lights;
    scene->traverse([&](NBX::RenderObj * object, const auto &) {
        if (const auto * lit = dynamic_cast<const PolygonSet *>(object))
            lights.push_back((*lit->newColorIterator())[0][0]);
        return true;
    });
    ASSERT_EQ(lights.size(), 2U);
    EXPECT_NEAR(lights[0], shading.lightOn({0, 1, 0}), 1e-6);
    EXPECT_NEAR(lights[1], shading.lightOn({1, 0, 0}), 1e-6);
    EXPECT_FALSE(set->newColorIterator()) << "the model itself stays";
}

} // namespace
} // namespace ZMT::CORE
