#include <nbx/engine/pathnavigation.h>

#include <gtest/gtest.h>

#include <support/recordedreports.h>

namespace {

using namespace NBX;
using V = Vector3Base<double>;

SO<PathNavigation> flight(LookAt * eye) {
    return new PathNavigation(
        eye, {{10, V(10, 0, 0), V(0, 0, -5)}, {0, V(), V(0, 0, -1)}, {12, V(10, 4, 0), V(0, 0, -5)}});
}

TEST(PathNavigation, FliesStraightFromKeyToKey) {
    const SO<LookAt> eye(new LookAt());
    const auto path = flight(eye.get());
    EXPECT_DOUBLE_EQ(path->duration(), 12.0);
    EXPECT_TRUE(path->update(-3));
    EXPECT_EQ(eye->getFrom(), V());
    EXPECT_TRUE(path->update(5));
    EXPECT_EQ(eye->getFrom(), V(5, 0, 0));
    EXPECT_EQ(eye->getTo(), V(0, 0, -3));
    EXPECT_TRUE(path->update(11));
    EXPECT_EQ(eye->getFrom(), V(10, 2, 0));
    EXPECT_FALSE(path->update(12));
    EXPECT_EQ(eye->getFrom(), V(10, 4, 0));
    EXPECT_FALSE(path->update(99));
    EXPECT_EQ(eye->getFrom(), V(10, 4, 0));
}

TEST(PathNavigation, WithoutKeysNothingMoves) {
    const SO<LookAt> eye(new LookAt(V(1, 2, 3), V()));
    const SO<PathNavigation> path(new PathNavigation(eye.get(), {}));
    EXPECT_FALSE(path->update(1));
    EXPECT_EQ(eye->getFrom(), V(1, 2, 3));
    EXPECT_EQ(path->duration(), 0.0);
}

TEST(PathNavigation, KeysAtOneMomentAreAJump) {
    const SO<LookAt> eye(new LookAt());
    const SO<PathNavigation> path(new PathNavigation(
        eye.get(), {{0, V(), V()}, {1, V(1, 0, 0), V()}, {1, V(9, 0, 0), V()}, {2, V(10, 0, 0), V()}}));
    path->update(0.5);
    EXPECT_EQ(eye->getFrom(), V(0.5, 0, 0));
    path->update(1.0);
    EXPECT_EQ(eye->getFrom(), V(9, 0, 0));
}

TEST(Navigation, AtMostOneIsActive) {
    const SO<LookAt> eye(new LookAt());
    EXPECT_FALSE(Navigation::activeNavigation());
    {
        const auto a = flight(eye.get()), b = flight(eye.get());
        a->activate();
        EXPECT_TRUE(a->isActive());
        b->activate();
        EXPECT_FALSE(a->isActive());
        a->deactivate();
        EXPECT_EQ(Navigation::activeNavigation(), b.get());
        EXPECT_TRUE(soCast<PathNavigation>(Navigation::activeNavigation()));
        b->deactivate();
        EXPECT_FALSE(Navigation::activeNavigation());
        b->activate();
    }
    EXPECT_FALSE(Navigation::activeNavigation());
}

TEST(Navigation, MissingEyeIsReported) {
    RecordedReports reports;
    const auto path = flight(nullptr);
    EXPECT_EQ(reports.count(0, L"eye", L"no eye"), 1U);
    EXPECT_FALSE(path->update(0));
}

} // namespace
