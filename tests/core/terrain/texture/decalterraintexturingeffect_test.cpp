#include <nbx/gl/effect/decalmultitexturingeffectgl.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>

#include "collectingeffecttests.h"

namespace {

struct Decal {
    using Effect = ZMT::CORE::DecalTerrainTexturingEffect;
    using EngineEffect = NBX::DecalMultiTexturingEffectGL;
};

INSTANTIATE_TYPED_TEST_SUITE_P(DecalTerrainTexturingEffect, CollectingEffectTest, Decal);

} // namespace
