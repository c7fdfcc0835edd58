#include <gtest/gtest.h>

#include <zmt/core/terrain/texture/additiveterraintexturingeffect.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>
#include <zmt/core/terrain/texture/interpolatedterraintexturingeffect.h>
#include <zmt/core/terrain/texture/modulateterraintexturingeffect.h>

#include "faketerraintexture.h"

using ZMT::CORE::TerrainTexturingEffect;

namespace {

TEST(TerrainTexturingEffect, AllEffectsShareOneStack) {
    const auto textures = fakeTextures(2);
    const std::vector<NBX::SO<TerrainTexturingEffect>> effects{
        new ZMT::CORE::AdditiveTerrainTexturingEffect,
        new ZMT::CORE::DecalTerrainTexturingEffect,
        new ZMT::CORE::ModulateTerrainTexturingEffect,
        new ZMT::CORE::InterpolatedTerrainTexturingEffect(textures[0].get(), nullptr, textures[1].get(), 1.0),
    };
    for (const auto & effect : effects) {
        EXPECT_EQ(effect->category(), TerrainTexturingEffect::ClassNameNBX());
        EXPECT_TRUE(effect->isEnabled());
        EXPECT_TRUE(effect->isRegisteredForSerialization());
        EXPECT_TRUE(NBX::SerializationManager::isRegistered(effect->classInfoNBX()->name()));
        EXPECT_TRUE(effect->classInfoNBX()->isA(NBX::MonoAttribute::ClassNameNBX()));
    }
}

} // namespace
