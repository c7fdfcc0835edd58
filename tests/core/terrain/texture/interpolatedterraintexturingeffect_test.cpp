#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

#include <nbx/gl/effect/additivemultitexturingeffectgl.h>
#include <nbx/gl/effect/interpolatedmultitexturingeffectgl.h>
#include <nbx/gl/effect/modulatemultitexturingeffectgl.h>
#include <zmt/core/terrain/texture/interpolatedterraintexturingeffect.h>
#include <zmt/core/terrain/texture/simpleterraintexture.h>

#include "faketerraintexture.h"

using NBX::Bounds;
using TestTerrain::values;
using ZMT::CORE::InterpolatedTerrainTexturingEffect;
using ZMT::CORE::SimpleTerrainTexture;
using EngineTextures = std::vector<NBX::SO<NBX::TextureGL>>;
using Point = NBX::Vector3Base<double>;
using Weights = std::vector<double>;

namespace {

/// The patch lies from 0 to 20 in x and z.
const Bounds s_around(Point(-1, -1e42, -1), Point(30, 1e42, 30));
const Bounds s_beside(Point(21, -1e42, 0), Point(30, 1e42, 20));

class InterpolatedEffectTest : public testing::Test {
protected:
    NBX::SO<InterpolatedTerrainTexturingEffect> effect(double outsideWeight = 0.25) const {
        return new InterpolatedTerrainTexturingEffect(interpolator_.get(), first_.get(), second_.get(),
                                                      outsideWeight);
    }
    /// The engine's object as an `Effect`; null when it is another one.
    template <class Effect> NBX::SO<const Effect> request(const InterpolatedTerrainTexturingEffect & effect) {
        return dynamic_cast<const Effect *>(arguments_.request(effect).get());
    }
    void expectModulatedBy(const NBX::SO<NBX::TextureGL> & texture,
                           const InterpolatedTerrainTexturingEffect & effect) {
        const auto result = request<NBX::ModulateMultiTexturingEffectGL>(effect);
        ASSERT_TRUE(result);
        EXPECT_EQ(values<NBX::SO<NBX::TextureGL>>(result->getTextures().get()), EngineTextures{texture});
        EXPECT_FALSE(result->getTexGens());
        EXPECT_TRUE(result->isEnabled());
    }
    void expectAdded(const EngineTextures & textures, const Weights & weights, double previous,
                     const InterpolatedTerrainTexturingEffect & effect) {
        const auto result = request<NBX::AdditiveMultiTexturingEffectGL>(effect);
        ASSERT_TRUE(result);
        EXPECT_EQ(values<NBX::SO<NBX::TextureGL>>(result->getTextures().get()), textures);
        EXPECT_EQ(values<double>(result->getWeights().get()), weights);
        EXPECT_EQ(result->getPreviousEffectWeight(), previous);
        EXPECT_FALSE(result->getTexGens());
    }
    void expectInterpolated(const NBX::TextureGL * first, const InterpolatedTerrainTexturingEffect & effect) {
        const auto result = request<NBX::InterpolatedMultiTexturingEffectGL>(effect);
        ASSERT_TRUE(result);
        EXPECT_EQ(result->getInterpolator(), interpolator_->answer.get());
        EXPECT_EQ(result->getFirst(), first);
        EXPECT_EQ(result->getSecond(), second_->answer.get());
        EXPECT_EQ(result->getInterpolatorTexGen(), nullptr);
        EXPECT_TRUE(result->isEnabled());
    }
    std::vector<int> requests() const {
        return {interpolator_->requests, first_ ? first_->requests : -1, second_->requests};
    }
    std::vector<int> refines() const {
        return {interpolator_->refines, first_ ? first_->refines : -1, second_->refines};
    }

    RecordedReports reports_;
    TextureArguments arguments_;
    NBX::SO<FakeTerrainTexture> interpolator_ = new FakeTerrainTexture;
    NBX::SO<FakeTerrainTexture> first_ = new FakeTerrainTexture;
    NBX::SO<FakeTerrainTexture> second_ = new FakeTerrainTexture;
};

TEST_F(InterpolatedEffectTest, MissingPartsAreReported) {
    NBX::SO<InterpolatedTerrainTexturingEffect> spoilt(
        new InterpolatedTerrainTexturingEffect(nullptr, first_.get(), second_.get(), 0.0));
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"interpolator", L"no interpolator"), 1U) << reports_;
    reports_.clear();
    spoilt = new InterpolatedTerrainTexturingEffect(interpolator_.get(), first_.get(), nullptr, 0.0);
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"texture2", L"no texture #2"), 1U) << reports_;
    reports_.clear();
    spoilt = new InterpolatedTerrainTexturingEffect(interpolator_.get(), nullptr, second_.get(), 0.0);
    EXPECT_TRUE(reports_.empty()) << reports_;
    spoilt->setInterpolator(nullptr);
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"interpolator", L"no interpolator"), 1U) << reports_;
}

TEST_F(InterpolatedEffectTest, NumbersOfTexturesAreChecked) {
    const auto e = effect();
    EXPECT_EQ(e->getTexture(0), first_);
    EXPECT_EQ(e->getTexture(1), second_);
    EXPECT_FALSE(e->getTexture(2));
    EXPECT_EQ(reports_.count(0, L"i < 2", L"i out of range"), 1U) << reports_;
    e->setTexture(2, first_.get());
    EXPECT_EQ(reports_.count(0, L"i < 2", L"i out of range"), 2U) << reports_;
    EXPECT_EQ(reports_.size(), 2U) << reports_;
}

TEST_F(InterpolatedEffectTest, ANullPatchIsReported) {
    const auto e = effect();
    arguments_.patch = nullptr;
    arguments_.refine(*e);
    EXPECT_EQ(reports_.count(0, L"patch", L"no geometry patch"), 1U) << reports_;
    arguments_.request(*e);
    EXPECT_EQ(reports_.count(0, L"patch", L"no geometry patch"), 2U) << reports_;
}

TEST_F(InterpolatedEffectTest, InsideTheInterpolatorBlendsPerPixel) {
    for (const Bounds & box : {s_around, Bounds()}) {
        interpolator_->box = box;
        expectInterpolated(first_->answer.get(), *effect(1.0));
        expectInterpolated(first_->answer.get(), *effect(0.0));
    }
    EXPECT_EQ(requests(), (std::vector<int>{4, 4, 4}));
    EXPECT_TRUE(interpolator_->wasRequestedWith(arguments_));
    EXPECT_TRUE(first_->wasRequestedWith(arguments_));
    EXPECT_TRUE(second_->wasRequestedWith(arguments_));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(InterpolatedEffectTest, ATouchingInterpolatorIsNotOutside) {
    interpolator_->box = Bounds(Point(20, -1e42, 0), Point(30, 1e42, 20));
    expectInterpolated(first_->answer.get(), *effect());
}

TEST_F(InterpolatedEffectTest, OutsideAtFullWeightOnlyTheSecondShows) {
    interpolator_->box = s_beside;
    const auto e = effect(1.0);
    expectModulatedBy(second_->answer, *e);
    EXPECT_EQ(requests(), (std::vector<int>{0, 0, 1}));
    EXPECT_TRUE(arguments_.ignorePreviousEffects(*e));
}

TEST_F(InterpolatedEffectTest, OutsideAtNoWeightOnlyTheFirstShows) {
    interpolator_->box = s_beside;
    expectModulatedBy(first_->answer, *effect(0.0));
    EXPECT_EQ(requests(), (std::vector<int>{0, 1, 0}));
}

TEST_F(InterpolatedEffectTest, OutsideBothShowAtConstantWeights) {
    interpolator_->box = s_beside;
    expectAdded({first_->answer, second_->answer}, {0.75, 0.25}, 0.0, *effect(0.25));
    EXPECT_EQ(requests(), (std::vector<int>{0, 1, 1}));
}

/// However near to the ends.
TEST_F(InterpolatedEffectTest, AtEveryWeightBetweenBothTakePart) {
    interpolator_->box = s_beside;
    for (const double weight : {1.0 / 1024, 0.25, 0.5, 0.75, 1023.0 / 1024}) {
        SCOPED_TRACE(weight);
        const auto e = effect(weight);
        expectAdded({first_->answer, second_->answer}, {1.0 - weight, weight}, 0.0, *e);
        for (const auto & texture : {first_, second_}) {
            texture->wantsRefinement = true;
            EXPECT_TRUE(arguments_.refine(*e));
            texture->wantsRefinement = false;
        }
        const NBX::SO<InterpolatedTerrainTexturingEffect> overPicture(
            new InterpolatedTerrainTexturingEffect(interpolator_.get(), nullptr, second_.get(), weight));
        EXPECT_FALSE(arguments_.ignorePreviousEffects(*overPicture));
        interpolator_->answer = nullptr;
        expectAdded({second_->answer}, {weight}, 1.0 - weight, *overPicture);
        interpolator_->answer = new NBX::ImageTexture2DGL(nullptr);
    }
}

TEST_F(InterpolatedEffectTest, ToTheNorthIsOutsideToo) {
    interpolator_->box = Bounds(Point(0, -1e42, 21), Point(20, 1e42, 30));
    expectModulatedBy(second_->answer, *effect(1.0));
}

TEST_F(InterpolatedEffectTest, OutsideAtNoWeightNothingIsLeftWithoutAnAnswer) {
    interpolator_->box = s_beside;
    first_->answer = nullptr;
    EXPECT_FALSE(arguments_.request(*effect(0.0)));
    EXPECT_EQ(requests(), (std::vector<int>{0, 1, 0}));
}

TEST_F(InterpolatedEffectTest, AFirstTextureWithoutAnswerLeavesItsPlaceToThePicture) {
    interpolator_->box = s_beside;
    first_->answer = nullptr;
    expectAdded({second_->answer}, {0.25}, 0.75, *effect(0.25));
}

TEST_F(InterpolatedEffectTest, WithoutFirstTheInterpolatorIsAskedEvenOutside) {
    interpolator_->box = s_beside;
    first_ = nullptr;
    expectInterpolated(nullptr, *effect(0.25));
    expectInterpolated(nullptr, *effect(0.0));
    expectInterpolated(nullptr, *effect(1.0));
    EXPECT_EQ(requests(), (std::vector<int>{3, -1, 3}));
}

TEST_F(InterpolatedEffectTest, WithoutFirstAndInterpolatorThePictureStandsIn) {
    interpolator_->box = s_beside;
    interpolator_->answer = nullptr;
    first_ = nullptr;
    expectAdded({second_->answer}, {0.25}, 0.75, *effect(0.25));
    expectAdded({second_->answer}, {0.0}, 1.0, *effect(0.0));
    expectModulatedBy(second_->answer, *effect(1.0));
}

TEST_F(InterpolatedEffectTest, AnInterpolatorWithoutAnswerCountsAsItsOutside) {
    interpolator_->box = s_around;
    interpolator_->answer = nullptr;
    expectAdded({first_->answer, second_->answer}, {0.75, 0.25}, 0.0, *effect(0.25));
}

TEST_F(InterpolatedEffectTest, AtFullWeightTheSecondMustShow) {
    interpolator_->box = s_beside;
    second_->answer = nullptr;
    EXPECT_FALSE(arguments_.request(*effect(1.0)));
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"tex2", L"no texture #2"), 1U) << reports_;
}

TEST_F(InterpolatedEffectTest, ASecondTextureWithoutAnswerLeavesTheFirstAlone) {
    interpolator_->box = s_around;
    second_->answer = nullptr;
    expectModulatedBy(first_->answer, *effect(0.25));
    EXPECT_EQ(requests(), (std::vector<int>{1, 1, 1}));
    first_->answer = nullptr;
    EXPECT_FALSE(arguments_.request(*effect(0.25)));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(InterpolatedEffectTest, ANullSecondTextureIsReportedAndLeavesTheFirstAlone) {
    interpolator_->box = s_around;
    const auto e = effect(0.25);
    e->setTexture(1, nullptr);
    expectModulatedBy(first_->answer, *e);
    EXPECT_EQ(reports_.count(0, L"textures_[1]", L"no texture #2"), 1U) << reports_;
    EXPECT_EQ(reports_.size(), 1U) << reports_;
}

TEST_F(InterpolatedEffectTest, RefinementAsksInterpolatorSecondFirst) {
    struct Row {
        const char * name;
        bool outside;
        double weight;
        std::vector<int> asked;
    };
    const std::vector<Row> rows{
        {"inside", false, 0.0, {1, 1, 1}},
        {"outside, between", true, 0.25, {0, 1, 1}},
        {"outside, first only", true, 0.0, {0, 1, 0}},
        {"outside, below first only", true, -1.0, {0, 1, 0}},
        {"outside, second only", true, 1.0, {0, 0, 1}},
    };
    for (const Row & row : rows) {
        SCOPED_TRACE(row.name);
        interpolator_->refines = first_->refines = second_->refines = 0;
        interpolator_->box = row.outside ? s_beside : s_around;
        EXPECT_FALSE(arguments_.refine(*effect(row.weight)));
        EXPECT_EQ(refines(), row.asked);
    }
    EXPECT_TRUE(first_->wasAskedWith(arguments_));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(InterpolatedEffectTest, RefinementEndsAtTheFirstThatWantsIt) {
    const auto e = effect();
    first_->wantsRefinement = true;
    EXPECT_TRUE(arguments_.refine(*e));
    EXPECT_EQ(refines(), (std::vector<int>{1, 1, 1}));
    second_->wantsRefinement = true;
    EXPECT_TRUE(arguments_.refine(*e));
    EXPECT_EQ(refines(), (std::vector<int>{2, 1, 2}));
    interpolator_->wantsRefinement = true;
    EXPECT_TRUE(arguments_.refine(*e));
    EXPECT_EQ(refines(), (std::vector<int>{3, 1, 2}));
}

TEST_F(InterpolatedEffectTest, RefinementWithoutSecondIsReported) {
    const auto e = effect();
    e->setTexture(1, nullptr);
    arguments_.refine(*e);
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"textures_[1]", L"no texture #2"), 1U) << reports_;
}

TEST_F(InterpolatedEffectTest, HidesLowerEffectsWithAFirstTextureOrOutsideAtFullWeight) {
    EXPECT_TRUE(arguments_.ignorePreviousEffects(*effect()));
    first_ = nullptr;
    struct Row {
        const char * name;
        Bounds box;
        double weight;
        bool hides;
    };
    const std::vector<Row> rows{
        {"inside", s_around, 1.0, false},
        {"everywhere", Bounds(), 1.0, false},
        {"outside", s_beside, 1.0, true},
        {"outside at less", s_beside, 0.99, false},
    };
    for (const Row & row : rows) {
        SCOPED_TRACE(row.name);
        interpolator_->box = row.box;
        EXPECT_EQ(arguments_.ignorePreviousEffects(*effect(row.weight)), row.hides);
    }
}

TEST_F(InterpolatedEffectTest, OnlyOtherValuesAreChanges) {
    const auto e = effect(0.25);
    auto before = e->lastTransactionNo();
    e->setInterpolator(interpolator_.get());
    e->setTexture(0, first_.get());
    e->setTexture(1, second_.get());
    e->setOutsideWeight(0.25);
    EXPECT_EQ(e->lastTransactionNo(), before);

    const auto changed = [&] {
        const bool result = e->lastTransactionNo() > before;
        before = e->lastTransactionNo();
        return result;
    };
    e->setInterpolator(second_.get());
    EXPECT_TRUE(changed());
    EXPECT_EQ(e->getInterpolator(), second_);
    e->setTexture(0, nullptr);
    EXPECT_TRUE(changed());
    e->setTexture(1, first_.get());
    EXPECT_TRUE(changed());
    EXPECT_EQ(e->getTexture(1), first_);
    e->setOutsideWeight(0.5);
    EXPECT_TRUE(changed());
    EXPECT_EQ(e->getOutsideWeight(), 0.5);
}

TEST_F(InterpolatedEffectTest, AVisitReachesItsTextures) {
    std::vector<NBX::Visitable *> children;
    effect()->acceptChildren(children);
    EXPECT_EQ(children, (std::vector<NBX::Visitable *>{interpolator_.get(), first_.get(), second_.get()}));
}

TEST_F(InterpolatedEffectTest, IsMadeAnewEmptyAtFullWeight) {
    const NBX::SO<InterpolatedTerrainTexturingEffect> made(
        static_cast<InterpolatedTerrainTexturingEffect *>(InterpolatedTerrainTexturingEffect::newInstance()));
    EXPECT_FALSE(made->getInterpolator());
    EXPECT_FALSE(made->getTexture(0));
    EXPECT_FALSE(made->getTexture(1));
    EXPECT_EQ(made->getOutsideWeight(), 1.0);
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(InterpolatedEffectTest, AnEmptyOneDoesNoHarm) {
    const NBX::SO<InterpolatedTerrainTexturingEffect> made(
        static_cast<InterpolatedTerrainTexturingEffect *>(InterpolatedTerrainTexturingEffect::newInstance()));
    EXPECT_FALSE(arguments_.refine(*made));
    EXPECT_FALSE(arguments_.request(*made));
    EXPECT_FALSE(arguments_.ignorePreviousEffects(*made));
}

TEST_F(InterpolatedEffectTest, StoresItsPartsAndWeight) {
    const std::vector<std::string> names{"interpolator", "textures_0", "textures_1", "outsideWeight"};
    EXPECT_EQ(RecordedAttributes::of(*effect()), names);
    EXPECT_EQ(RecordedAttributes::of(*effect(1.0), true), names) << "no defaults";

    const NBX::SO<SimpleTerrainTexture> interpolator(new SimpleTerrainTexture),
        second(new SimpleTerrainTexture);
    interpolator->minFilter(NBX::TextureGL::FM_Nearest);
    const NBX::SO<InterpolatedTerrainTexturingEffect> written(
        new InterpolatedTerrainTexturingEffect(interpolator.get(), nullptr, second.get(), 0.125));
    const auto read = roundTrip(written);
    ASSERT_TRUE(read);
    ASSERT_TRUE(read->getInterpolator());
    EXPECT_EQ(read->getInterpolator()->minFilter(), NBX::TextureGL::FM_Nearest);
    EXPECT_FALSE(read->getTexture(0));
    EXPECT_TRUE(read->getTexture(1));
    EXPECT_EQ(read->getOutsideWeight(), 0.125);
    EXPECT_TRUE(reports_.empty()) << reports_;
}

} // namespace
