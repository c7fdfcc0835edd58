#include <nbx/gl/effect/decalmultitexturingeffectgl.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>

#include "collectingeffecttests.h"

namespace {

struct Decal {
    using Effect = ZMT::CORE::DecalTerrainTexturingEffect;
    using EngineEffect = NBX::DecalMultiTexturingEffectGL;
};

INSTANTIATE_TYPED_TEST_SUITE_P(DecalTerrainTexturingEffect, CollectingEffectTest, Decal);

TEST(DecalTerrainTexturingEffectOpacity, IsHandedOnAndStored) {
    RecordedReports reports;
    TextureArguments arguments;
    const FakeTextures textures = fakeTextures(1);
    const NBX::SO<Decal::Effect> effect(new Decal::Effect(sequenceOf(textures).get()));
    const auto opacity = [&] {
        const auto engine = arguments.request(*effect);
        return dynamic_cast<const Decal::EngineEffect &>(*engine).getOpacity();
    };
    EXPECT_EQ(opacity(), 1.0);
    effect->setOpacity(0.25);
    EXPECT_EQ(opacity(), 0.25);
    EXPECT_TRUE(reports.empty());
    effect->setOpacity(1.5);
    EXPECT_EQ(effect->getOpacity(), 0.25);
    EXPECT_FALSE(reports.empty());
    const NBX::SO<Decal::Effect> plain(new Decal::Effect);
    plain->setOpacity(0.25);
    EXPECT_EQ(roundTrip(plain)->getOpacity(), 0.25);
}

} // namespace
