#include <nbx/scene/attribute/distantlight.h>

#include <cmath>

#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>

#include "support/storedcopy.h"

namespace {

using namespace NBX;
using V = Vector3Base<double>;

void expectNear(const Color & expected, const Color & actual) {
    for (unsigned c = 0; c < 4; ++c)
        EXPECT_NEAR(expected[c], actual[c], 1e-6) << c;
}

TEST(DistantLight, TheColorIsSharedOutBetweenDirectionAndEverywhere) {
    RecordedReports reports;
    const SO<DistantLight> light(new DistantLight(V(1, 2, 3), Color(0.2, 0.4, 1.0, 0.5), 0.5, 0.25));
    EXPECT_EQ(light->getDirection(), V(1, 2, 3));
    expectNear(light->getDiffuse(), Color(0.075, 0.15, 0.375, 0.5));
    expectNear(light->getAmbient(), Color(0.025, 0.05, 0.125, 0.5));
    expectNear(light->getSpecular(), Color(0.1, 0.2, 0.5, 0.5));
    EXPECT_EQ(light->category(), Light::ClassNameNBX());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(DistantLight, AtFirstItShinesFromTheZenith) {
    const SO<DistantLight> light(static_cast<DistantLight *>(DistantLight::newInstance()));
    EXPECT_EQ(light->getDirection(), V(0, 1, 0));
    EXPECT_EQ(light->getDiffuse(), Color::white);
    EXPECT_EQ(light->getAmbient(), Color::black);
}

TEST(DistantLight, SharesOutOfRangeAreReportedAndCut) {
    RecordedReports reports;
    SO<DistantLight> light(new DistantLight(V(0, 1, 0), Color::white, 1.0, 1.5));
    EXPECT_EQ(reports.size(), 1U) << reports;
    EXPECT_EQ(light->getAmbient(), Color::white);
    EXPECT_EQ(light->getDiffuse(), Color::black);
    light = new DistantLight(V(0, 1, 0), Color::white, -1.0, -0.5);
    EXPECT_EQ(reports.size(), 3U) << reports;
    EXPECT_EQ(light->getAmbient(), Color::black);
    EXPECT_EQ(light->getDiffuse(), Color::black);
    const double nan = std::nan("");
    light = new DistantLight(V(0, 1, 0), Color::white, nan, nan);
    EXPECT_EQ(reports.size(), 5U) << reports;
    EXPECT_EQ(light->getAmbient(), Color::black);
    EXPECT_EQ(light->getDiffuse(), Color::black);
    EXPECT_EQ(light->getSpecular(), Color::black);
}

TEST(DistantLight, ChangesAreNoted) {
    const SO<DistantLight> light(new DistantLight(V(1, 2, 3)));
    const auto before = light->lastTransactionNo();
    light->setDirection(V(1, 2, 3));
    EXPECT_EQ(light->lastTransactionNo(), before);
    light->setDirection(V(0, 2, 3));
    EXPECT_EQ(light->getDirection(), V(0, 2, 3));
    EXPECT_GT(light->lastTransactionNo(), before);
}

TEST(DistantLight, StoredAndReadIsTheSame) {
    const SO<DistantLight> light(new DistantLight(V(1, 2, 3), Color::red, 0.5, 0.25));
    EXPECT_EQ(RecordedAttributes::of(*light), std::vector<std::string>{"direction"});
    const SO<DistantLight> copy = storedCopy(*light);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->getDirection(), V(1, 2, 3));
    EXPECT_EQ(copy->getDiffuse(), light->getDiffuse());
    EXPECT_EQ(copy->getAmbient(), light->getAmbient());
    EXPECT_EQ(copy->getSpecular(), light->getSpecular());
}

} // namespace
