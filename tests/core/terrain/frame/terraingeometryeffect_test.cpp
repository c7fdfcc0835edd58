#include <zmt/core/terrain/frame/terraingeometryeffect.h>

#include <gtest/gtest.h>

#include <nbx/object/so.h>

using ZMT::CORE::TerrainGeometryEffect;

namespace {

class SomeEffect : public TerrainGeometryEffect {
    NBX_TEMPLATE_CLASS(SomeEffect, TerrainGeometryEffect)
};

TEST(TerrainGeometryEffect, SubclassesShareOneStack) {
    const NBX::SO<SomeEffect> effect(new SomeEffect);
    EXPECT_EQ(effect->category(), TerrainGeometryEffect::ClassNameNBX());
    EXPECT_NE(effect->category(), SomeEffect::ClassNameNBX());
    EXPECT_TRUE(effect->isEnabled());
}

} // namespace
