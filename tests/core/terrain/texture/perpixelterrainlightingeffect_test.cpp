#include <zmt/core/terrain/texture/perpixelterrainlightingeffect.h>

#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

#include <zmt/core/terrain/texture/perpixellightingeffectgl.h>
#include <zmt/core/terrain/texture/simpleterraintexture.h>

#include "faketerraintexture.h"
#include "lightconditions.h"

using ZMT::CORE::PerPixelLightingEffectGL;
using ZMT::CORE::PerPixelTerrainLightingEffect;
using Point = NBX::Vector3Base<double>;

namespace {

class PerPixelTerrainLightingTest : public testing::Test {
protected:
    NBX::SO<PerPixelTerrainLightingEffect> effect(double ambient = 0.25) const {
        return new PerPixelTerrainLightingEffect(texture.get(), {1, 2, 3}, ambient);
    }

    RecordedReports reports;
    TextureArguments arguments;
    NBX::SO<FakeTerrainTexture> texture = new FakeTerrainTexture;
};

TEST_F(PerPixelTerrainLightingTest, RequestsTheNormalsOfAPatch) {
    const auto e = effect();
    const auto result = NBX::soCast<PerPixelLightingEffectGL>(arguments.request(*e));
    ASSERT_TRUE(result);
    EXPECT_EQ(result->getNormalTexture(), texture->answer);
    EXPECT_FALSE(result->getTexGen());
    EXPECT_EQ(result->getLightDirection(), Point(1, 2, 3));
    EXPECT_EQ(result->getLightAmbient(), 0.25);
    EXPECT_TRUE(texture->wasRequestedWith(arguments));
    EXPECT_FALSE(arguments.incomplete);
    texture->isIncomplete = true;
    EXPECT_NE(arguments.request(*e), result);
    EXPECT_TRUE(arguments.incomplete);
    EXPECT_EQ(texture->requests, 2);
    EXPECT_FALSE(arguments.ignorePreviousEffects(*e));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(PerPixelTerrainLightingTest, AVisitReachesItsTexture) {
    std::vector<NBX::Visitable *> children;
    effect()->acceptChildren(children);
    EXPECT_EQ(children, std::vector<NBX::Visitable *>{texture.get()});
}

TEST_F(PerPixelTerrainLightingTest, RefinesAsItsTextureWishes) {
    const auto e = effect();
    EXPECT_FALSE(arguments.refine(*e));
    EXPECT_TRUE(texture->wasAskedWith(arguments));
    texture->wantsRefinement = true;
    EXPECT_TRUE(arguments.refine(*e));
    EXPECT_EQ(texture->refines, 2);
}

TEST_F(PerPixelTerrainLightingTest, WithoutAnAnswerThePatchStaysUnlit) {
    texture->answer = nullptr;
    EXPECT_FALSE(arguments.request(*effect()));
    EXPECT_FALSE(arguments.ignorePreviousEffects(*effect()));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(PerPixelTerrainLightingTest, FullAmbientLightHidesTheLowerEffects) {
    const auto e = effect(1.0);
    texture->wantsRefinement = true;
    EXPECT_FALSE(arguments.refine(*e));
    EXPECT_TRUE(arguments.ignorePreviousEffects(*e));
    EXPECT_FALSE(arguments.request(*e));
    EXPECT_EQ(texture->refines, 0);
    EXPECT_EQ(texture->requests, 0);
    e->setLightAmbient(0.999);
    EXPECT_TRUE(arguments.refine(*e));
    EXPECT_FALSE(arguments.ignorePreviousEffects(*e));
    EXPECT_TRUE(arguments.request(*e));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(PerPixelTerrainLightingTest, ChangesAreNoted) {
    const auto e = effect();
    const auto before = e->lastTransactionNo();
    e->setNormalTexture(texture.get());
    e->setLightDirection({1, 2, 3});
    e->setLightAmbient(0.25);
    EXPECT_EQ(e->lastTransactionNo(), before);
    const NBX::SO<FakeTerrainTexture> other(new FakeTerrainTexture);
    const auto expectChange = [&](const std::function<void()> & change) {
        const auto last = e->lastTransactionNo();
        change();
        EXPECT_GT(e->lastTransactionNo(), last);
    };
    expectChange([&] { e->setNormalTexture(other.get()); });
    expectChange([&] { e->setLightDirection({0, 2, 3}); });
    expectChange([&] { e->setLightAmbient(0.5); });
    EXPECT_EQ(e->getNormalTexture(), other);
    EXPECT_EQ(e->getLightDirection(), Point(0, 2, 3));
    EXPECT_EQ(e->getLightAmbient(), 0.5);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(PerPixelTerrainLightingTest, WrongValuesAreReported) {
    const NBX::SO<PerPixelTerrainLightingEffect> spoilt(
        new PerPixelTerrainLightingEffect(nullptr, {0, 0, 0}, -0.5));
    EXPECT_EQ(reports.count(0, L"normalTexture", L"no normal texture"), 1U) << reports;
    EXPECT_EQ(reports.count(0, s_directionCondition, L"invalid light direction"), 1U) << reports;
    EXPECT_EQ(reports.count(0, s_ambientCondition, L"invalid light ambient"), 1U) << reports;
    EXPECT_EQ(reports.size(), 3U);
    reports.clear();
    EXPECT_FALSE(arguments.refine(*spoilt));
    EXPECT_FALSE(arguments.request(*spoilt));
    EXPECT_TRUE(reports.empty()) << reports;

    const auto e = effect();
    e->setNormalTexture(nullptr);
    e->setLightDirection({0, 0, 0});
    e->setLightAmbient(1.5);
    EXPECT_EQ(reports.count(0, L"normalTexture", L"no normal texture"), 1U) << reports;
    EXPECT_EQ(reports.count(0, s_directionCondition, L"invalid light direction"), 1U) << reports;
    EXPECT_EQ(reports.count(0, s_ambientCondition, L"invalid light ambient"), 1U) << reports;
    EXPECT_EQ(reports.size(), 3U);
}

TEST_F(PerPixelTerrainLightingTest, StoresItsParts) {
    const NBX::SO<ZMT::CORE::SimpleTerrainTexture> stored(new ZMT::CORE::SimpleTerrainTexture);
    const NBX::SO<PerPixelTerrainLightingEffect> e(
        new PerPixelTerrainLightingEffect(stored.get(), {1, 2, 3}, 0.25));
    EXPECT_EQ(RecordedAttributes::of(*e),
              (std::vector<std::string>{"normalTexture", "lightDirection", "lightAmbient"}));
    const auto read = roundTrip(e);
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->getNormalTexture());
    EXPECT_EQ(read->getLightDirection(), Point(1, 2, 3));
    EXPECT_EQ(read->getLightAmbient(), 0.25);
    EXPECT_EQ(read->category(), ZMT::CORE::TerrainTexturingEffect::ClassNameNBX());
    EXPECT_TRUE(NBX::SerializationManager::isRegistered(PerPixelTerrainLightingEffect::ClassNameNBX()));
    EXPECT_TRUE(reports.empty()) << reports;
}

} // namespace
