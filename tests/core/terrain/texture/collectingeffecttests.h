#pragma once

#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

#include <zmt/core/terrain/texture/simpleterraintexture.h>

#include "faketerraintexture.h"

/// The behaviour that the effects over a plain sequence of textures have in common. `Pair::Effect` is the
/// effect, `Pair::EngineEffect` what it makes.
template <class Pair> class CollectingEffectTest : public testing::Test {
protected:
    using Effect = typename Pair::Effect;
    using EngineEffect = typename Pair::EngineEffect;
    using EngineTextures = std::vector<NBX::SO<NBX::TextureGL>>;

    NBX::SO<Effect> effect() const { return new Effect(sequenceOf(textures_).get()); }
    NBX::SO<const EngineEffect> request(const Effect & effect) {
        return dynamic_cast<const EngineEffect *>(arguments_.request(effect).get());
    }

    RecordedReports reports_;
    TextureArguments arguments_;
    FakeTextures textures_ = fakeTextures(3);
};

TYPED_TEST_SUITE_P(CollectingEffectTest);

TYPED_TEST_P(CollectingEffectTest, WithoutTexturesItContributesNothing) {
    const NBX::SO<typename TestFixture::Effect> none(new typename TestFixture::Effect);
    this->textures_.clear();
    for (const auto & e : {none, this->effect()}) {
        EXPECT_FALSE(this->arguments_.refine(*e));
        EXPECT_FALSE(this->arguments_.request(*e));
        EXPECT_FALSE(this->arguments_.ignorePreviousEffects(*e));
    }
    EXPECT_TRUE(this->reports_.empty()) << this->reports_;
}

TYPED_TEST_P(CollectingEffectTest, NeverHidesLowerEffects) {
    EXPECT_FALSE(this->arguments_.ignorePreviousEffects(*this->effect()));
}

TYPED_TEST_P(CollectingEffectTest, GivesTheTexturesThatShowSomething) {
    this->textures_[1]->answer = nullptr;
    const auto e = this->effect();
    const auto result = this->request(*e);
    ASSERT_TRUE(result);
    EXPECT_EQ(TestTerrain::values<NBX::SO<NBX::TextureGL>>(result->getTextures().get()),
              (typename TestFixture::EngineTextures{this->textures_[0]->answer, this->textures_[2]->answer}));
    EXPECT_FALSE(result->getTexGens());
    EXPECT_TRUE(result->isEnabled());
    for (const auto & texture : this->textures_) {
        EXPECT_EQ(texture->requests, 1);
        EXPECT_TRUE(texture->wasRequestedWith(this->arguments_));
    }
    EXPECT_NE(this->request(*e), result) << "a new object every time";
}

TYPED_TEST_P(CollectingEffectTest, NothingToShowIsNull) {
    for (const auto & texture : this->textures_)
        texture->answer = nullptr;
    EXPECT_FALSE(this->arguments_.request(*this->effect()));
}

TYPED_TEST_P(CollectingEffectTest, NullEntriesAreLeftOut) {
    this->textures_[0] = nullptr;
    const auto e = this->effect();
    EXPECT_FALSE(this->arguments_.refine(*e));
    const auto result = this->request(*e);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->getTextures()->size(), 2U);
}

TYPED_TEST_P(CollectingEffectTest, RefinementEndsAtTheFirstThatWantsIt) {
    const auto e = this->effect();
    EXPECT_FALSE(this->arguments_.refine(*e));
    this->textures_[1]->wantsRefinement = true;
    EXPECT_TRUE(this->arguments_.refine(*e));
    EXPECT_EQ(this->textures_[0]->refines, 2);
    EXPECT_EQ(this->textures_[1]->refines, 2);
    EXPECT_EQ(this->textures_[2]->refines, 1);
    EXPECT_TRUE(this->textures_[1]->wasAskedWith(this->arguments_));
}

TYPED_TEST_P(CollectingEffectTest, IncompleteComesThrough) {
    this->request(*this->effect());
    EXPECT_FALSE(this->arguments_.incomplete);
    this->textures_[0]->isIncomplete = true;
    this->request(*this->effect());
    EXPECT_TRUE(this->arguments_.incomplete);
}

TYPED_TEST_P(CollectingEffectTest, OnlyOtherTexturesAreAChange) {
    const auto e = this->effect();
    const auto before = e->lastTransactionNo();
    e->setTextures(e->getTextures().get());
    EXPECT_EQ(e->lastTransactionNo(), before);
    e->setTextures(nullptr);
    EXPECT_GT(e->lastTransactionNo(), before);
    EXPECT_FALSE(e->getTextures());
}

TYPED_TEST_P(CollectingEffectTest, AVisitReachesItsTextures) {
    std::vector<NBX::Visitable *> children;
    this->effect()->acceptChildren(children);
    EXPECT_EQ(children, (std::vector<NBX::Visitable *>{this->textures_[0].get(), this->textures_[1].get(),
                                                       this->textures_[2].get()}));
}

TYPED_TEST_P(CollectingEffectTest, StoresItsTextures) {
    using Effect = typename TestFixture::Effect;
    EXPECT_EQ(RecordedAttributes::of(*this->effect()), (std::vector<std::string>{"textures"}));
    EXPECT_TRUE(RecordedAttributes::of(*NBX::SO<Effect>(new Effect), true).empty());

    const NBX::SO<NBX::Array<NBX::SO<ZMT::CORE::TerrainTexture>>> textures(
        new NBX::Array<NBX::SO<ZMT::CORE::TerrainTexture>>);
    textures->append(new ZMT::CORE::SimpleTerrainTexture);
    textures->append(nullptr);
    const auto read = roundTrip(NBX::SO<Effect>(new Effect(textures.get())));
    ASSERT_TRUE(read);
    ASSERT_TRUE(read->getTextures());
    ASSERT_EQ(read->getTextures()->size(), 2U);
    EXPECT_TRUE(read->getTextures()->get(0));
    EXPECT_FALSE(read->getTextures()->get(1));
    EXPECT_FALSE(roundTrip(NBX::SO<Effect>(new Effect))->getTextures());
    EXPECT_TRUE(this->reports_.empty()) << this->reports_;
}

REGISTER_TYPED_TEST_SUITE_P(CollectingEffectTest, WithoutTexturesItContributesNothing, NeverHidesLowerEffects,
                            GivesTheTexturesThatShowSomething, NothingToShowIsNull, NullEntriesAreLeftOut,
                            RefinementEndsAtTheFirstThatWantsIt, IncompleteComesThrough,
                            OnlyOtherTexturesAreAChange, AVisitReachesItsTextures, StoresItsTextures);
