#include "scene/flightcontroller.h"

#include <cmath>
#include <random>

#include <gtest/gtest.h>

namespace {

using Point = FlightController::Point;

constexpr double s_tolerance = 1e-6;

/// Waves of heights from -10 to 10 over 2000 by 2000.
double waves(double x, double z) {
    return 10.0 * std::sin(x / 90.0) * std::cos(z / 70.0);
}

FlightGround wavyGround() {
    return {NBX::Bounds(Point(-1000.0, -10.0, -1000.0), Point(1000.0, 10.0, 1000.0)), waves};
}

FlightGround flatGround() {
    return {NBX::Bounds(Point(-1000.0, 0.0, -1000.0), Point(1000.0, 0.0, 1000.0)),
            [](double, double) { return 0.0; }};
}

/// A wall across the way, from z = 100 on, which is 200 high.
FlightGround groundWithWall() {
    FlightGround ground = flatGround();
    ground.distanceAlong = [](const NBX::Ray & ray) {
        const double distance = (100.0 - ray.getOrigin().z) / ray.getDirection().z;
        return distance > 0.0 && ray.point(distance).y < 200.0 ? distance : HUGE_VAL;
    };
    return ground;
}

FlightController controllerOver(const FlightGround & ground, const Point & eye, const Point & aim) {
    FlightController controller;
    controller.setLens(45.0, 1.5);
    controller.setGround(ground);
    controller.setView(eye, aim);
    return controller;
}

/// The place in the picture of a point in front of the eye.
std::pair<double, double> placeOf(const FlightController & c, const Point & p) {
    const Point d = p - c.eye();
    const double depth = d.dot(c.forward()), scale = std::tan(45.0 * M_PI / 360.0) * depth;
    return {d.dot(c.right()) / (scale * 1.5), d.dot(c.up()) / scale};
}

void expectNear(const Point & expected, const Point & actual, double tolerance = s_tolerance) {
    EXPECT_NEAR(expected.x, actual.x, tolerance);
    EXPECT_NEAR(expected.y, actual.y, tolerance);
    EXPECT_NEAR(expected.z, actual.z, tolerance);
}

void expectLevelFrame(const FlightController & c) {
    EXPECT_NEAR(1.0, c.forward().length(), s_tolerance);
    EXPECT_NEAR(1.0, c.up().length(), s_tolerance);
    EXPECT_NEAR(0.0, c.forward().dot(c.up()), s_tolerance);
    EXPECT_NEAR(0.0, c.forward().dot(c.right()), s_tolerance);
    EXPECT_EQ(0.0, c.right().y);
    EXPECT_GE(c.up().y, -s_tolerance);
}

TEST(FlightController, LooksFromEyeToAim) {
    const auto c = controllerOver(flatGround(), {100.0, 300.0, -500.0}, {0.0, 10.0, 20.0});
    expectNear({100.0, 300.0, -500.0}, c.eye());
    const Point d = Point(0.0, 10.0, 20.0) - c.eye();
    expectNear(d * (1.0 / d.length()), c.forward());
    expectLevelFrame(c);
}

TEST(FlightController, StraightDownHasNorthOnTop) {
    const auto c = controllerOver(flatGround(), {0.0, 500.0, 0.0}, {0.0, 0.0, 0.0});
    expectNear({0.0, -1.0, 0.0}, c.forward());
    expectNear({0.0, 0.0, 1.0}, c.up());
    expectNear({1.0, 0.0, 0.0}, c.right());
}

TEST(FlightController, EastLiesToTheRightOfNorth) {
    const auto c = controllerOver(flatGround(), {0.0, 100.0, 0.0}, {0.0, 100.0, 100.0});
    expectNear({1.0, 0.0, 0.0}, c.right());
}

TEST(FlightController, RayGoesThroughThePlace) {
    const auto c = controllerOver(flatGround(), {100.0, 300.0, -500.0}, {0.0, 10.0, 20.0});
    for (const double x : {-1.0, 0.0, 0.7})
        for (const double y : {-1.0, 0.3, 1.0}) {
            const auto [px, py] = placeOf(c, c.ray(x, y).point(77.0));
            EXPECT_NEAR(x, px, s_tolerance);
            EXPECT_NEAR(y, py, s_tolerance);
            EXPECT_NEAR(1.0, c.ray(x, y).getDirection().length(), s_tolerance);
        }
}

TEST(FlightController, PicksTheFirstMeetingWithTheGround) {
    const auto c = controllerOver(wavyGround(), {0.0, 30.0, -900.0}, {0.0, 0.0, 0.0});
    for (double x = -0.9; x < 1.0; x += 0.3) {
        const NBX::Ray ray = c.ray(x, -0.2);
        const auto hit = c.pick(ray);
        ASSERT_TRUE(hit);
        EXPECT_NEAR(waves(hit->x, hit->z), hit->y, 1e-6);
        const double distance = (*hit - c.eye()).length();
        for (double t = 0.0; t < distance - 2.0; t += 0.5)
            EXPECT_GT(ray.point(t).y, waves(ray.point(t).x, ray.point(t).z) - 0.02) << "at " << t;
    }
}

struct Miss {
    const char * name;
    NBX::Ray ray;
};

TEST(FlightController, PicksNothingWhereThereIsNoGround) {
    const auto c = controllerOver(wavyGround(), {0.0, 100.0, 0.0}, {0.0, 0.0, 50.0});
    const Miss misses[] = {
        {"above the horizon", {{0.0, 100.0, 0.0}, {0.0, 1.0, 1.0}}},
        {"level above the box", {{0.0, 100.0, 0.0}, {0.0, 0.0, 1.0}}},
        {"beside the box", {{5000.0, 100.0, 0.0}, {0.0, -1.0, 0.0}}},
        {"away from the box", {{0.0, 100.0, -5000.0}, {0.0, 0.0, -1.0}}},
        {"from below", {{0.0, -500.0, 0.0}, {0.0, 1.0, 0.0}}},
    };
    for (const Miss & miss : misses)
        EXPECT_FALSE(c.pick(miss.ray)) << miss.name;
    EXPECT_FALSE(FlightController().pick(NBX::Ray()));
}

TEST(FlightController, HolesInTheGroundAreSeenThrough) {
    FlightGround ground = flatGround();
    ground.heightAt = [](double x, double) { return x < 0.0 ? -HUGE_VAL : 0.0; };
    const auto c = controllerOver(ground, {0.0, 100.0, 0.0}, {0.0, 0.0, 0.0});
    EXPECT_FALSE(c.pick({{-50.0, 100.0, 0.0}, {0.0, -1.0, 0.0}}));
    EXPECT_TRUE(c.pick({{50.0, 100.0, 0.0}, {0.0, -1.0, 0.0}}));
}

TEST(FlightController, OrbitKeepsTheDistanceToWhatWasGrabbed) {
    auto c = controllerOver(flatGround(), {0.0, 400.0, -600.0}, {0.0, 0.0, 0.0});
    c.grab(0.2, -0.1);
    const Point grabbed = *c.pick(c.ray(0.2, -0.1));
    const double distance = (c.eye() - grabbed).length();
    for (int i = 1; i <= 10; ++i) {
        c.orbitTo(0.2 + 0.15 * i, -0.1 - 0.02 * i);
        EXPECT_NEAR(distance, (c.eye() - grabbed).length(), 1e-6);
        const auto [x, y] = placeOf(c, grabbed);
        EXPECT_NEAR(0.2, x, 1e-6);
        EXPECT_NEAR(-0.1, y, 1e-6);
        expectLevelFrame(c);
    }
}

/// Whatever is nearer, wall or ground.
TEST(FlightController, WhatStandsOnTheGroundIsGrabbedAndApproached) {
    const Point onWall(30.0, 60.0, 100.0), before(30.0, 0.0, -50.0);
    for (const Point & aim : {onWall, before}) {
        auto c = controllerOver(groundWithWall(), {0.0, 90.0, -200.0}, {0.0, 40.0, 100.0});
        const auto [x, y] = placeOf(c, aim);
        const double distance = (c.eye() - aim).length();
        c.grab(x, y);
        c.orbitTo(x + 0.1, y);
        EXPECT_NEAR(distance, (c.eye() - aim).length(), 1e-6);
        auto near = controllerOver(groundWithWall(), {0.0, 90.0, -200.0}, {0.0, 40.0, 100.0});
        near.zoom(1.0, x, y);
        EXPECT_NEAR(0.8 * distance, (near.eye() - aim).length(), 1e-6);
        EXPECT_NEAR(0.0, near.pick(near.ray(0.0, -0.1))->y, 1e-6) << "the ground alone";
    }
    auto above = controllerOver(groundWithWall(), {0.0, 250.0, -200.0}, {0.0, 220.0, 100.0});
    above.grab(0.0, 0.0);
    const double distance = (above.eye() - above.ray(0.0, 0.0).point(0.0)).length();
    EXPECT_EQ(0.0, distance) << "over the wall there is ground behind it";
}

TEST(FlightController, OrbitToTheRightTurnsTheNearSideToTheRight) {
    auto c = controllerOver(flatGround(), {0.0, 400.0, -600.0}, {0.0, 0.0, 0.0});
    c.grab(0.0, 0.0);
    c.orbitTo(0.1, 0.0);
    EXPECT_LT(c.eye().x, 0.0);
    EXPECT_NEAR(400.0, c.eye().y, 1e-6);
}

TEST(FlightController, OrbitDownwardsShowsMoreFromAbove) {
    auto c = controllerOver(flatGround(), {0.0, 400.0, -600.0}, {0.0, 0.0, 0.0});
    c.grab(0.0, 0.0);
    c.orbitTo(0.0, -0.1);
    EXPECT_GT(c.eye().y, 400.0);
    for (int i = 0; i < 20; ++i)
        c.orbitTo(0.0, -0.1 - i * 0.2);
    expectNear({0.0, -1.0, 0.0}, c.forward());
    expectLevelFrame(c);
}

TEST(FlightController, OrbitInTheSkyTurnsRoundTheMiddle) {
    auto c = controllerOver(flatGround(), {0.0, 200.0, -900.0}, {0.0, 200.0, 0.0});
    c.grab(0.0, 0.9);
    c.orbitTo(0.3, 0.9);
    EXPECT_NEAR(std::hypot(200.0, 900.0), c.eye().length(), 1e-6);
}

TEST(FlightController, OrbitDoesNotLeadIntoTheGround) {
    auto c = controllerOver(flatGround(), {0.0, 100.0, -600.0}, {0.0, 0.0, 0.0});
    c.grab(0.0, 0.0);
    for (int i = 1; i < 40; ++i) {
        c.orbitTo(0.0, 0.05 * i);
        EXPECT_GE(c.eye().y, c.clearance() - s_tolerance);
    }
}

TEST(FlightController, PanKeepsTheGrabbedPointUnderThePlace) {
    auto c = controllerOver(flatGround(), {50.0, 400.0, -600.0}, {0.0, 0.0, 0.0});
    const Point grabbed = *c.pick(c.ray(-0.3, -0.2));
    c.grab(-0.3, -0.2);
    for (const auto & [x, y] : {std::pair{-0.2, -0.3}, {0.5, -0.6}, {0.1, 0.2}}) {
        c.panTo(x, y);
        const auto [px, py] = placeOf(c, grabbed);
        EXPECT_NEAR(x, px, 1e-6);
        EXPECT_NEAR(y, py, 1e-6);
        EXPECT_NEAR(400.0, c.eye().y, 1e-9);
    }
}

TEST(FlightController, PanAboveTheHorizonDoesNothing) {
    auto c = controllerOver(flatGround(), {0.0, 100.0, -600.0}, {0.0, 100.0, 0.0});
    c.grab(0.0, -0.5);
    c.panTo(0.0, 0.5);
    expectNear({0.0, 100.0, -600.0}, c.eye());
    c.panTo(0.0, -1e-9);
    expectNear({0.0, 100.0, -600.0}, c.eye());
}

TEST(FlightController, ZoomGoesTowardsThePlaceAndBack) {
    auto c = controllerOver(flatGround(), {0.0, 400.0, -600.0}, {0.0, 0.0, 0.0});
    const Point start = c.eye(), target = *c.pick(c.ray(0.4, 0.1));
    c.zoom(3.0, 0.4, 0.1);
    EXPECT_LT((c.eye() - target).length(), (start - target).length());
    const auto [x, y] = placeOf(c, target);
    EXPECT_NEAR(0.4, x, 1e-6);
    EXPECT_NEAR(0.1, y, 1e-6);
    c.zoom(-3.0, 0.4, 0.1);
    expectNear(start, c.eye(), 1e-6);
}

TEST(FlightController, ZoomEndsAboveTheGroundAndAtTheFarthestPlace) {
    auto c = controllerOver(wavyGround(), {0.0, 400.0, -600.0}, {0.0, 0.0, 0.0});
    for (int i = 0; i < 200; ++i)
        c.zoom(1.0, 0.0, 0.0);
    EXPECT_GE(c.eye().y, waves(c.eye().x, c.eye().z) + c.clearance() - s_tolerance);
    for (int i = 0; i < 200; ++i)
        c.zoom(-2.0, 0.0, 0.0);
    EXPECT_LT(c.eye().length(), 10.0 * wavyGround().box.diagonal().length());
}

TEST(FlightController, FliesWhereTheKeysSay) {
    const Point eye(0.0, 200.0, 0.0), ahead(0.0, 200.0, 500.0);
    struct Case {
        FlightController::Flight flight;
        Point direction;
    };
    const Case cases[] = {{{.forward = 1.0}, {0.0, 0.0, 1.0}},
                          {{.forward = -1.0}, {0.0, 0.0, -1.0}},
                          {{.right = 1.0}, {1.0, 0.0, 0.0}},
                          {{.up = 1.0}, {0.0, 1.0, 0.0}}};
    for (const Case & expected : cases) {
        auto c = controllerOver(flatGround(), eye, ahead);
        c.fly(expected.flight, 0.1);
        const Point way = c.eye() - eye;
        EXPECT_GT(way.length(), 1.0);
        EXPECT_NEAR(way.length(), way.dot(expected.direction), s_tolerance);
    }
    auto c = controllerOver(flatGround(), eye, ahead);
    c.fly({.turn = 1.0}, 0.5);
    EXPECT_GT(c.forward().x, 0.1);
    expectNear(eye, c.eye());
    EXPECT_TRUE(FlightController::Flight().isNone());
    EXPECT_FALSE((FlightController::Flight{.tilt = -1.0}).isNone());
}

TEST(FlightController, FliesFasterWithShiftAndSlowerNearTheGround) {
    const auto distance = [](double height, bool isFast) {
        auto c = controllerOver(flatGround(), {0.0, height, 0.0}, {0.0, height, 1.0});
        c.fly({.forward = 1.0, .isFast = isFast}, 0.1);
        return c.eye().z;
    };
    EXPECT_GT(distance(100.0, true), 3.0 * distance(100.0, false));
    EXPECT_LT(distance(30.0, false), distance(100.0, false));
    EXPECT_GT(distance(1e-9, false), 0.0);
}

TEST(FlightController, HigherGroundLiftsTheEye) {
    auto c = controllerOver(flatGround(), {0.0, 5.0, 0.0}, {0.0, 5.0, 100.0});
    c.setGround({NBX::Bounds(Point(-1000.0, 0.0, -1000.0), Point(1000.0, 50.0, 1000.0)),
                 [](double, double) { return 50.0; }});
    EXPECT_NEAR(50.0 + c.clearance(), c.eye().y, s_tolerance);
}

TEST(FlightController, AnyMixtureOfMovesKeepsTheLaws) {
    const unsigned seed = 4711;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> place(-1.0, 1.0);
    const FlightGround ground = wavyGround();
    auto c = controllerOver(ground, {0.0, 400.0, -600.0}, {0.0, 0.0, 0.0});
    const double diagonal = ground.box.diagonal().length();
    for (int i = 0; i < 3000; ++i) {
        const double x = place(random), y = place(random), a = place(random), b = place(random);
        switch (random() % 4) {
        case 0:
            c.grab(x, y);
            c.orbitTo(a, b);
            break;
        case 1:
            c.grab(x, y);
            c.panTo(a, b);
            break;
        case 2:
            c.zoom(a * 5.0, x, y);
            break;
        default:
            c.fly({a, b, x, y, a, i % 2 == 0}, 0.2);
        }
        const Point & eye = c.eye();
        ASSERT_GE(eye.y, std::max(waves(eye.x, eye.z), -10.0) + c.clearance() - 1e-9) << "move " << i;
        ASSERT_LT(eye.length(), 10.0 * diagonal) << "move " << i;
        expectLevelFrame(c);
        const auto [near, far] = c.clipDistances();
        ASSERT_GT(near, 0.0);
        ASSERT_LT(near, far);
        ASSERT_GT(near / far, 2e-5);
        if (ground.box.containsPoint(eye)) {
            ASSERT_LT(near, c.clearance());
        }
    }
}

TEST(FlightController, WithoutGroundItStillMoves) {
    FlightController c;
    c.setLens(45.0, 1.0);
    c.setView({0.0, 0.0, 0.0}, {0.0, 0.0, 1.0});
    c.grab(0.0, 0.0);
    c.orbitTo(0.1, 0.1);
    c.panTo(0.2, 0.2);
    c.zoom(1.0, 0.0, 0.0);
    c.fly({.forward = 1.0}, 1.0);
    EXPECT_TRUE(std::isfinite(c.eye().length()));
    EXPECT_GT(c.clipDistances().far, c.clipDistances().near);
}

TEST(FlightController, TurnsNorthUpRoundTheMiddleOfThePicture) {
    FlightController c = controllerOver(flatGround(), {-300.0, 200.0, 50.0}, {100.0, 0.0, -100.0});
    const auto before = c.pick(c.ray(0.0, 0.0));
    const double height = c.eye().y;
    ASSERT_TRUE(before && c.middleDistance());
    EXPECT_NEAR(*c.middleDistance(), (*before - c.eye()).length(), s_tolerance);
    c.turnNorth();
    EXPECT_EQ(c.heading(), 0.0);
    const auto after = c.pick(c.ray(0.0, 0.0));
    ASSERT_TRUE(after);
    expectNear(*before, *after, 1e-3);
    EXPECT_NEAR(c.eye().y, height, 1e-3);
    EXPECT_NEAR(c.eye().x, after->x, 1e-3) << "the eye lies in the south";
    EXPECT_LT(c.eye().z, after->z);
}

TEST(FlightController, AboveTheHorizonItTurnsNorthOnTheSpot) {
    FlightController c = controllerOver(flatGround(), {-300.0, 200.0, 50.0}, {100.0, 300.0, 50.0});
    EXPECT_FALSE(c.middleDistance());
    EXPECT_NEAR(c.heading(), M_PI / 2.0, s_tolerance);
    c.turnNorth();
    EXPECT_EQ(c.heading(), 0.0);
    expectNear(c.eye(), {-300.0, 200.0, 50.0});
}

TEST(FlightController, TheMiddleMayBeWhatStandsOnTheGround) {
    const FlightController c = controllerOver(groundWithWall(), {0.0, 50.0, -100.0}, {0.0, 50.0, 0.0});
    ASSERT_TRUE(c.middleDistance());
    EXPECT_NEAR(*c.middleDistance(), 200.0, s_tolerance);
}

} // namespace
