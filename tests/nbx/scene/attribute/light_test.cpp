#include <nbx/scene/attribute/directionallight.h>
#include <nbx/scene/attribute/pointlight.h>
#include <nbx/scene/attribute/shapematerial.h>

#include <gtest/gtest.h>

#include "support/storedcopy.h"

namespace {

using namespace NBX;
using V = Vector3Base<double>;

TEST(Light, AllLightsShareOneCategory) {
    const SO<Light> directional(new DirectionalLight()), point(new PointLight());
    EXPECT_EQ(directional->category(), Light::ClassNameNBX());
    EXPECT_EQ(point->category(), Light::ClassNameNBX());
}

TEST(Light, ChangesAreNoted) {
    const SO<DirectionalLight> light(new DirectionalLight());
    const auto before = light->lastTransactionNo();
    light->setDiffuse(light->getDiffuse());
    light->setDirection(light->getDirection());
    EXPECT_EQ(light->lastTransactionNo(), before);
    light->setDiffuse(Color::red);
    EXPECT_GT(light->lastTransactionNo(), before);
}

TEST(Light, StoredAndReadIsTheSame) {
    const SO<DirectionalLight> light(
        new DirectionalLight(V(1, 2, 3), Color::red, Color(0.1, 0.2, 0.3, 0.4), Color::blue));
    const SO<DirectionalLight> copy = storedCopy(*light);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->getDirection(), V(1, 2, 3));
    EXPECT_EQ(copy->getDiffuse(), Color::red);
    EXPECT_EQ(copy->getAmbient(), Color(0.1, 0.2, 0.3, 0.4));
    EXPECT_EQ(copy->getSpecular(), Color::blue);
    const SO<PointLight> point(new PointLight(V(4, 5, 6)));
    EXPECT_EQ(storedCopy(*point)->getPosition(), V(4, 5, 6));
}

TEST(ShapeMaterial, StoredAndReadIsTheSame) {
    const SO<ShapeMaterial> material(new ShapeMaterial(Color::gold, Color::white, 12.5, Color::green));
    const SO<ShapeMaterial> copy = storedCopy(*material);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->getAmbientAndDiffuse(), Color::gold);
    EXPECT_EQ(copy->getSpecular(), Color::white);
    EXPECT_EQ(copy->getEmission(), Color::green);
    EXPECT_EQ(copy->getShininess(), 12.5);
}

} // namespace
