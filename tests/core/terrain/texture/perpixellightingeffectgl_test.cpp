#include <zmt/core/terrain/texture/perpixellightingeffectgl.h>

#include <limits>

#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

#include <nbx/gl/texture/imagetexture2dgl.h>

#include "lightconditions.h"

using ZMT::CORE::PerPixelLightingEffectGL;
using Point = NBX::Vector3Base<double>;

namespace {

class PerPixelLightingEffectGLTest : public testing::Test {
protected:
    NBX::SO<PerPixelLightingEffectGL> effect() {
        return new PerPixelLightingEffectGL(texture.get(), texGen.get(), {1, 2, 3}, 0.25);
    }

    RecordedReports reports;
    NBX::SO<NBX::TextureGL> texture = new NBX::ImageTexture2DGL(nullptr);
    NBX::SO<NBX::TexGenGL> texGen = new NBX::TexGenGL;
};

TEST_F(PerPixelLightingEffectGLTest, KeepsWhatItIsMadeOf) {
    const auto e = effect();
    EXPECT_EQ(e->getNormalTexture(), texture);
    EXPECT_EQ(e->getTexGen(), texGen);
    EXPECT_EQ(e->getLightDirection(), Point(1, 2, 3));
    EXPECT_EQ(e->getLightAmbient(), 0.25);
    EXPECT_EQ(e->category(), NBX::TexturingEffectGL::ClassNameNBX());
    EXPECT_TRUE(e->isPassEffect());
    EXPECT_TRUE(e->isEnabled());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(PerPixelLightingEffectGLTest, ChangesAreNoted) {
    const auto e = effect();
    const NBX::SO<NBX::TextureGL> other(new NBX::ImageTexture2DGL(nullptr));
    const auto before = e->lastTransactionNo();
    e->setNormalTexture(texture.get());
    e->setTexGen(texGen.get());
    e->setLightDirection({1, 2, 3});
    e->setLightAmbient(0.25);
    EXPECT_EQ(e->lastTransactionNo(), before);
    const auto expectChange = [&](const std::function<void()> & change) {
        const auto last = e->lastTransactionNo();
        change();
        EXPECT_GT(e->lastTransactionNo(), last);
    };
    expectChange([&] { e->setNormalTexture(other.get()); });
    expectChange([&] { e->setTexGen(nullptr); });
    expectChange([&] { e->setLightDirection({0, 2, 3}); });
    expectChange([&] { e->setLightAmbient(1.0); });
    EXPECT_EQ(e->getNormalTexture(), other);
    EXPECT_FALSE(e->getTexGen());
    EXPECT_EQ(e->getLightDirection(), Point(0, 2, 3));
    EXPECT_EQ(e->getLightAmbient(), 1.0);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(PerPixelLightingEffectGLTest, WrongValuesAreReported) {
    const NBX::SO<PerPixelLightingEffectGL> spoilt(
        new PerPixelLightingEffectGL(nullptr, nullptr, {0, 0, 0}, 1.5));
    EXPECT_EQ(reports.count(0, L"normalTexture", L"no normal texture"), 1U) << reports;
    EXPECT_EQ(reports.count(0, s_directionCondition, L"invalid light direction"), 1U) << reports;
    EXPECT_EQ(reports.count(0, s_ambientCondition, L"invalid light ambient"), 1U) << reports;
    EXPECT_EQ(reports.size(), 3U);
    reports.clear();
    const auto e = effect();
    e->setNormalTexture(nullptr);
    e->setLightDirection({0, 0, 0});
    e->setLightAmbient(-0.5);
    e->setLightAmbient(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(reports.count(0, L"normalTexture", L"no normal texture"), 1U) << reports;
    EXPECT_EQ(reports.count(0, s_directionCondition, L"invalid light direction"), 1U) << reports;
    EXPECT_EQ(reports.count(0, s_ambientCondition, L"invalid light ambient"), 2U) << reports;
    EXPECT_EQ(reports.size(), 4U);
    reports.clear();
    e->setLightAmbient(0.0);
    e->setLightAmbient(1.0);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(PerPixelLightingEffectGLTest, AVisitReachesItsParts) {
    std::vector<NBX::Visitable *> children;
    effect()->acceptChildren(children);
    EXPECT_EQ(children, (std::vector<NBX::Visitable *>{texture.get(), texGen.get()}));
}

TEST_F(PerPixelLightingEffectGLTest, StoresItsParts) {
    const auto e = effect();
    EXPECT_EQ(RecordedAttributes::of(*e),
              (std::vector<std::string>{"normalTexture", "texGen", "lightDirection", "lightAmbient"}));
    const auto read = roundTrip(e);
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->getNormalTexture());
    EXPECT_TRUE(read->getTexGen());
    EXPECT_EQ(read->getLightDirection(), Point(1, 2, 3));
    EXPECT_EQ(read->getLightAmbient(), 0.25);
    EXPECT_TRUE(NBX::SerializationManager::isRegistered(PerPixelLightingEffectGL::ClassNameNBX()));
    EXPECT_TRUE(reports.empty()) << reports;
}

} // namespace
