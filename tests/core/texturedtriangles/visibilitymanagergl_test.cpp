#include "core/texturedtriangles/visibilitymanagergl.h"

#include <nbx/container/sequence/array.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/scene/shape/polygonset.h>
#include <support/glfixture.h>

namespace ZMT::CORE {
namespace {

using NBX::SO;
using V = NBX::Vector3Base<double>;

class VisibilityManagerTest : public GLFixture {
protected:
    /// A square that covers `part` of the picture's width.
    static SO<NBX::PolygonSet> square(double part) {
        const double x = 2.0 * part - 1.0;
        return new NBX::PolygonSet(
            NBX::PolygonSet::PT_Quads,
            new NBX::Array<V>(std::vector<V>{{-1, -1, 0}, {x, -1, 0}, {x, 1, 0}, {-1, 1, 0}}));
    }
    void SetUp() override {
        GLFixture::SetUp();
        draw(); // sets the viewport
        glDisable(GL_DEPTH_TEST);
    }
    void TearDown() override {
        glEnable(GL_DEPTH_TEST);
        GLFixture::TearDown();
    }
    void see(VisibilityManager & manager, std::uint64_t key, double part) {
        manager.beginQuery(key, engine.get());
        engine->paint(square(part).get());
        manager.endQuery(engine.get());
    }
    static void wait() { glFinish(); }

    const SO<VisibilityManager> manager{new VisibilityManager()};
};

TEST_F(VisibilityManagerTest, CountsWhatIsDrawnBetweenBeginAndEnd) {
    EXPECT_EQ(manager->fragmentCount(5), 0U);
    manager->beginFrame();
    see(*manager, 5, 0.5);
    see(*manager, 7, 0.25);
    EXPECT_EQ(manager->pendingQueries(), 2U);
    wait();
    manager->update();
    EXPECT_EQ(manager->fragmentCount(5), 64U * 32);
    EXPECT_EQ(manager->fragmentCount(7), 64U * 16);
    EXPECT_EQ(manager->fragmentCount(6), 0U);
    EXPECT_EQ(manager->pendingQueries(), 0U);
    EXPECT_EQ(manager->freeQueries(), 2U);
}

TEST_F(VisibilityManagerTest, AKeyWhoseResultIsPendingIsNotAskedAgain) {
    manager->beginFrame();
    see(*manager, 5, 0.5);
    see(*manager, 5, 0.25);
    EXPECT_EQ(manager->pendingQueries(), 1U);
    wait();
    manager->update();
    EXPECT_EQ(manager->fragmentCount(5), 64U * 32) << "the first one counted";
    EXPECT_EQ(manager->freeQueries(), 1U);
}

TEST_F(VisibilityManagerTest, QueriesAreUsedAgain) {
    for (int frame = 0; frame < 5; ++frame) {
        manager->beginFrame();
        see(*manager, 5, frame % 2 ? 0.25 : 0.5);
        wait();
        manager->update();
        EXPECT_EQ(manager->fragmentCount(5), frame % 2 ? 64U * 16 : 64U * 32);
        EXPECT_EQ(manager->freeQueries(), 1U);
    }
    EXPECT_EQ(countNames(100).queries, 1);
}

TEST_F(VisibilityManagerTest, WhatWasNotSeenIsForgotten) {
    manager->beginFrame();
    see(*manager, 5, 0.5);
    wait();
    manager->update();
    manager->beginFrame();
    see(*manager, 7, 0.5);
    wait();
    manager->update();
    EXPECT_EQ(manager->fragmentCount(5), 0U);
    EXPECT_NE(manager->fragmentCount(7), 0U);
}

TEST_F(VisibilityManagerTest, AKeyWhoseResultIsPendingKeepsItsCount) {
    manager->beginFrame();
    see(*manager, 5, 0.5);
    wait();
    manager->update();
    manager->beginFrame();
    manager->beginQuery(5, engine.get()); // is not ended in this frame, so its result is not there
    manager->update();
    EXPECT_EQ(manager->pendingQueries(), 1U);
    manager->beginFrame();
    manager->endQuery(engine.get());
    see(*manager, 5, 0.25);
    EXPECT_EQ(manager->fragmentCount(5), 64U * 32);
}

TEST_F(VisibilityManagerTest, EndingWithoutAQueryDoesNothing) {
    manager->endQuery(engine.get());
    manager->beginQuery(5, engine.get());
    manager->endQuery(engine.get());
    manager->endQuery(engine.get());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(VisibilityManagerTest, EstimatesStandWhereNothingWasSeen) {
    manager->beginFrame();
    see(*manager, 5, 0.5);
    manager->estimate(5, 1);
    manager->estimate(9, 77);
    wait();
    manager->update();
    EXPECT_EQ(manager->fragmentCount(5), 64U * 32);
    EXPECT_EQ(manager->fragmentCount(9), 77U);
    manager->beginFrame();
    manager->update();
    EXPECT_EQ(manager->fragmentCount(9), 0U);
}

TEST_F(VisibilityManagerTest, KeysOfAllBitsAreTold) {
    manager->beginFrame();
    see(*manager, ~std::uint64_t(0), 0.5);
    see(*manager, 0, 0.25);
    wait();
    manager->update();
    EXPECT_EQ(manager->fragmentCount(~std::uint64_t(0)), 64U * 32);
    EXPECT_EQ(manager->fragmentCount(0), 64U * 16);
}

} // namespace
} // namespace ZMT::CORE
