#include <nbx/gl/effect/modulatemultitexturingeffectgl.h>
#include <zmt/core/terrain/texture/modulateterraintexturingeffect.h>

#include "collectingeffecttests.h"

namespace {

struct Modulate {
    using Effect = ZMT::CORE::ModulateTerrainTexturingEffect;
    using EngineEffect = NBX::ModulateMultiTexturingEffectGL;
};

INSTANTIATE_TYPED_TEST_SUITE_P(ModulateTerrainTexturingEffect, CollectingEffectTest, Modulate);

} // namespace
