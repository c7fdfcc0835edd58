#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

#include <nbx/gl/effect/additivemultitexturingeffectgl.h>
#include <zmt/core/terrain/texture/additiveterraintexturingeffect.h>
#include <zmt/core/terrain/texture/simpleterraintexture.h>

#include "faketerraintexture.h"

using TestTerrain::values;
using ZMT::CORE::AdditiveTerrainTexturingEffect;
using EngineEffect = NBX::SO<const NBX::AdditiveMultiTexturingEffectGL>;
using EngineTextures = std::vector<NBX::SO<NBX::TextureGL>>;
using Weights = std::vector<double>;

namespace {

class AdditiveEffectTest : public testing::Test {
protected:
    NBX::SO<AdditiveTerrainTexturingEffect> effect(const Weights & weights, double previous = 0.25) const {
        return new AdditiveTerrainTexturingEffect(sequenceOf(textures_).get(),
                                                  TestTerrain::array<double>(weights).get(), previous);
    }
    NBX::SO<AdditiveTerrainTexturingEffect> unweighted() const {
        return new AdditiveTerrainTexturingEffect(sequenceOf(textures_).get(), nullptr, 0.25);
    }
    EngineEffect request(const AdditiveTerrainTexturingEffect & effect) {
        return dynamic_cast<const NBX::AdditiveMultiTexturingEffectGL *>(arguments_.request(effect).get());
    }

    RecordedReports reports_;
    TextureArguments arguments_;
    FakeTextures textures_ = fakeTextures(3);
};

TEST_F(AdditiveEffectTest, WithoutTexturesItContributesNothing) {
    const NBX::SO<AdditiveTerrainTexturingEffect> none(new AdditiveTerrainTexturingEffect);
    textures_.clear();
    for (const auto & e : {none, effect({}), effect({1.0})}) {
        EXPECT_FALSE(arguments_.refine(*e));
        EXPECT_FALSE(arguments_.request(*e));
    }
    EXPECT_TRUE(arguments_.ignorePreviousEffects(*none));
    EXPECT_FALSE(arguments_.ignorePreviousEffects(*effect({}, 0.5)));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(AdditiveEffectTest, LowerEffectsAreIgnoredAtNoWeight) {
    EXPECT_TRUE(arguments_.ignorePreviousEffects(*effect({}, 0.0)));
    EXPECT_TRUE(arguments_.ignorePreviousEffects(*effect({}, -0.5)));
    EXPECT_FALSE(arguments_.ignorePreviousEffects(*effect({}, 1e-300)));
}

TEST_F(AdditiveEffectTest, GivesAllTexturesWithTheirWeights) {
    const auto result = request(*effect({0.2, 0.3, 0.5}, 0.25));
    ASSERT_TRUE(result);
    EXPECT_EQ(values<NBX::SO<NBX::TextureGL>>(result->getTextures().get()),
              (EngineTextures{textures_[0]->answer, textures_[1]->answer, textures_[2]->answer}));
    EXPECT_EQ(values<double>(result->getWeights().get()), (Weights{0.2, 0.3, 0.5}));
    EXPECT_EQ(result->getPreviousEffectWeight(), 0.25);
    EXPECT_FALSE(result->getTexGens());
    EXPECT_TRUE(result->isEnabled());
    for (const auto & texture : textures_) {
        EXPECT_EQ(texture->requests, 1);
        EXPECT_TRUE(texture->wasRequestedWith(arguments_));
    }
}

TEST_F(AdditiveEffectTest, EveryRequestGivesANewObject) {
    const auto e = effect({});
    const auto first = request(*e), second = request(*e);
    EXPECT_NE(first, second);
}

TEST_F(AdditiveEffectTest, AWeightOfZeroSwitchesATextureOff) {
    const auto e = effect({0.5, 0.0, 0.5});
    textures_[1]->wantsRefinement = true;
    EXPECT_FALSE(arguments_.refine(*e));
    const auto result = request(*e);
    ASSERT_TRUE(result);
    EXPECT_EQ(textures_[1]->refines, 0);
    EXPECT_EQ(textures_[1]->requests, 0);
    EXPECT_EQ(values<NBX::SO<NBX::TextureGL>>(result->getTextures().get()),
              (EngineTextures{textures_[0]->answer, textures_[2]->answer}));
    EXPECT_EQ(values<double>(result->getWeights().get()), (Weights{0.5, 0.5}));
}

TEST_F(AdditiveEffectTest, NegativeAndUndefinedWeightsSwitchOffToo) {
    request(*effect({-1.0, std::nan(""), 0.5}));
    EXPECT_EQ(textures_[0]->requests, 0);
    EXPECT_EQ(textures_[1]->requests, 0);
    EXPECT_EQ(textures_[2]->requests, 1);
}

TEST_F(AdditiveEffectTest, ANullAnswerTakesItsWeightAway) {
    textures_[2]->answer = nullptr;
    const auto result = request(*effect({0.2, 0.3, 0.5}));
    ASSERT_TRUE(result);
    EXPECT_EQ(result->getTextures()->size(), 2U);
    EXPECT_EQ(values<double>(result->getWeights().get()), (Weights{0.2, 0.3})) << "not scaled up";
}

TEST_F(AdditiveEffectTest, ATextureBeyondTheWeightsJoinsWithoutOne) {
    textures_[2]->wantsRefinement = true;
    const auto e = effect({0.5, 0.25});
    EXPECT_TRUE(arguments_.refine(*e));
    const auto result = request(*e);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->getTextures()->size(), 3U);
    EXPECT_EQ(values<double>(result->getWeights().get()), (Weights{0.5, 0.25}));
}

TEST_F(AdditiveEffectTest, WithoutWeightsAllTexturesJoin) {
    const auto result = request(*unweighted());
    ASSERT_TRUE(result);
    EXPECT_EQ(result->getTextures()->size(), 3U);
    EXPECT_EQ(values<double>(result->getWeights().get()), Weights());
}

TEST_F(AdditiveEffectTest, NothingToShowIsNull) {
    for (const auto & texture : textures_)
        texture->answer = nullptr;
    EXPECT_FALSE(arguments_.request(*unweighted()));
    EXPECT_FALSE(arguments_.request(*effect({0.0, 0.0, 0.0})));
}

TEST_F(AdditiveEffectTest, NullEntriesAreLeftOut) {
    textures_[0] = nullptr;
    const auto e = effect({0.1, 0.2, 0.3});
    EXPECT_FALSE(arguments_.refine(*e));
    const auto result = request(*e);
    ASSERT_TRUE(result);
    EXPECT_EQ(values<double>(result->getWeights().get()), (Weights{0.2, 0.3}));
}

TEST_F(AdditiveEffectTest, RefinementEndsAtTheFirstThatWantsIt) {
    textures_[1]->wantsRefinement = true;
    EXPECT_TRUE(arguments_.refine(*effect({1.0, 1.0, 1.0})));
    EXPECT_EQ(textures_[0]->refines, 1);
    EXPECT_EQ(textures_[1]->refines, 1);
    EXPECT_EQ(textures_[2]->refines, 0);
    EXPECT_TRUE(textures_[1]->wasAskedWith(arguments_));
}

TEST_F(AdditiveEffectTest, IncompleteComesThrough) {
    textures_[2]->isIncomplete = true;
    request(*unweighted());
    EXPECT_TRUE(arguments_.incomplete);
}

TEST_F(AdditiveEffectTest, OnlyOtherValuesAreChanges) {
    const auto e = effect({0.5}, 0.25);
    auto before = e->lastTransactionNo();
    e->setTextures(e->getTextures().get());
    e->setWeights(e->getWeights().get());
    e->setPreviousEffectWeight(0.25);
    EXPECT_EQ(e->lastTransactionNo(), before);

    const auto changed = [&] {
        const bool result = e->lastTransactionNo() > before;
        before = e->lastTransactionNo();
        return result;
    };
    e->setTextures(nullptr);
    EXPECT_TRUE(changed());
    EXPECT_FALSE(e->getTextures());
    e->setWeights(nullptr);
    EXPECT_TRUE(changed());
    EXPECT_FALSE(e->getWeights());
    e->setPreviousEffectWeight(1.0);
    EXPECT_TRUE(changed());
    EXPECT_EQ(e->getPreviousEffectWeight(), 1.0);
}

TEST_F(AdditiveEffectTest, AVisitReachesItsTextures) {
    std::vector<NBX::Visitable *> children;
    effect({1.0, 0.0})->acceptChildren(children);
    EXPECT_EQ(children,
              (std::vector<NBX::Visitable *>{textures_[0].get(), textures_[1].get(), textures_[2].get()}));
}

TEST_F(AdditiveEffectTest, IsMadeAnewEmpty) {
    const NBX::SO<AdditiveTerrainTexturingEffect> made(
        static_cast<AdditiveTerrainTexturingEffect *>(AdditiveTerrainTexturingEffect::newInstance()));
    EXPECT_FALSE(made->getTextures());
    EXPECT_FALSE(made->getWeights());
    EXPECT_EQ(made->getPreviousEffectWeight(), 0.0);
}

TEST_F(AdditiveEffectTest, StoresTexturesWeightsAndPreviousWeight) {
    EXPECT_EQ(RecordedAttributes::of(*effect({})),
              (std::vector<std::string>{"textures", "weights", "previousWeight"}));
    EXPECT_TRUE(RecordedAttributes::of(
                    *NBX::SO<AdditiveTerrainTexturingEffect>(new AdditiveTerrainTexturingEffect), true)
                    .empty());

    const NBX::SO<NBX::Array<NBX::SO<ZMT::CORE::TerrainTexture>>> textures(
        new NBX::Array<NBX::SO<ZMT::CORE::TerrainTexture>>);
    textures->append(new ZMT::CORE::SimpleTerrainTexture);
    const NBX::SO<AdditiveTerrainTexturingEffect> written(new AdditiveTerrainTexturingEffect(
        textures.get(), TestTerrain::array<double>({0.5, 0.75}).get(), 0.125));
    const auto read = roundTrip(written);
    ASSERT_TRUE(read);
    ASSERT_TRUE(read->getTextures());
    ASSERT_EQ(read->getTextures()->size(), 1U);
    EXPECT_TRUE(read->getTextures()->get(0));
    EXPECT_EQ(values<double>(read->getWeights().get()), (Weights{0.5, 0.75}));
    EXPECT_EQ(read->getPreviousEffectWeight(), 0.125);
    EXPECT_TRUE(reports_.empty()) << reports_;
}

} // namespace
