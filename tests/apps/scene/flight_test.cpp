#include "scene/flight.h"

#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

namespace {

using Point = Flight::Point;

Flight::Position position(const Point & eye, const Point & aim, double duration, bool isCircle = false) {
    const Flight::Position result(new ZMT::UTIL::CameraPosition(eye, aim, {0.0, 1.0, 0.0}));
    result->setDuration(duration);
    result->setIsCircle(isCircle);
    return result;
}

double apart(const Point & a, const Point & b) {
    return (a - b).length();
}

Point direction(const Flight::Place & place) {
    const Point way = place.aim - place.eye;
    return way * (1.0 / way.length());
}

/// Clockwise from north, in degrees.
double azimuth(const Point & way) {
    return std::atan2(way.x, way.z) * 180.0 / M_PI;
}

TEST(Flight, WithoutPositionsGoesNowhere) {
    EXPECT_TRUE(Flight().empty());
    const Flight nowhere{std::vector<Flight::Position>()};
    EXPECT_TRUE(nowhere.empty());
    EXPECT_EQ(nowhere.duration(), 0.0);
}

TEST(Flight, OnePositionStaysThere) {
    const Flight flight({position({1.0, 2.0, 3.0}, {4.0, 5.0, 7.0}, 9.0)});
    EXPECT_EQ(flight.duration(), 0.0) << "nobody flies to the first";
    for (const double time : {-1.0, 0.0, 5.0}) {
        EXPECT_LT(apart(flight.at(time).eye, {1.0, 2.0, 3.0}), 1e-12);
        EXPECT_LT(apart(flight.at(time).aim, {4.0, 5.0, 7.0}), 1e-12);
    }
}

TEST(Flight, IsAtEachPositionAtItsTime) {
    std::mt19937 random(4711);
    std::uniform_real_distribution<double> place(-5e5, 5e6), time(0.5, 20.0);
    for (int run = 0; run < 200; ++run) {
        std::vector<Flight::Position> positions;
        for (int i = 0; i < 6; ++i)
            positions.push_back(position({place(random), place(random), place(random)},
                                         {place(random), place(random), place(random)}, time(random),
                                         i > 0 && run % 3 == i % 3));
        const Flight flight(positions);
        double at = 0.0;
        for (std::size_t i = 0; i < positions.size(); ++i) {
            if (i > 0) at += positions[i]->getDuration();
            ASSERT_LT(apart(flight.at(at).eye, positions[i]->getFrom()), 1e-6) << run << " " << i;
            ASSERT_LT(apart(flight.at(at).aim, positions[i]->getTo()), 1e-5) << run << " " << i;
        }
        ASSERT_DOUBLE_EQ(flight.duration(), at);
    }
}

TEST(Flight, HasNoBendAndRestsAtItsEnds) {
    const Flight flight({position({0.0, 100.0, 0.0}, {0.0, 0.0, 100.0}, 5.0),
                         position({500.0, 150.0, 100.0}, {600.0, 0.0, 200.0}, 2.0),
                         position({600.0, 300.0, 900.0}, {0.0, 0.0, 900.0}, 7.0),
                         position({600.0, 300.0, 900.0}, {0.0, 0.0, 900.0}, 6.0, true),
                         position({0.0, 50.0, 900.0}, {0.0, 0.0, 0.0}, 3.0)});
    constexpr double step = 1e-5;
    const auto speed = [&](double time) {
        return (flight.at(time + step).eye - flight.at(time).eye) * (1.0 / step);
    };
    const auto turn = [&](double time) {
        return (direction(flight.at(time + step)) - direction(flight.at(time))) * (1.0 / step);
    };
    for (const double time : {0.0, 9.0, 15.0, 18.0 - 2.0 * step}) { // the ends, and those of the circle
        EXPECT_LT(speed(time).length(), 0.1) << time;
        EXPECT_LT(turn(time).length(), 1e-3) << time;
    }
    EXPECT_GT(speed(2.0).length(), 50.0) << "it does not stop between";
    for (double time = 2.0 * step; time < flight.duration() - 3.0 * step; time += 0.001) {
        ASSERT_LT(apart(speed(time), speed(time - step)), 0.1) << time;
        ASSERT_LT(apart(turn(time), turn(time - step)), 0.01) << time;
    }
    EXPECT_LT(apart(speed(2.0), speed(2.0 - step)), 0.1);
}

TEST(Flight, TurnsTheShorterWay) {
    const double angle = 10.0 * M_PI / 180.0;
    const Flight flight({position({}, {-std::sin(angle), 0.0, std::cos(angle)}, 1.0),
                         position({}, {std::sin(angle), 0.0, std::cos(angle)}, 2.0)});
    for (double time = 0.0; time <= 2.0; time += 0.1)
        EXPECT_LE(std::abs(azimuth(direction(flight.at(time)))), 10.0 + 1e-9) << time;
    EXPECT_NEAR(azimuth(direction(flight.at(1.0))), 0.0, 1e-9);
    // Across the south, where the angle leaps.
    const Flight south({position({}, {0.1, 0.0, -1.0}, 1.0), position({}, {-0.1, 0.0, -1.0}, 2.0)});
    EXPECT_NEAR(std::abs(azimuth(direction(south.at(1.0)))), 180.0, 1e-9);
}

TEST(Flight, ACircleGoesOnceRoundWhatItLooksAt) {
    const Point aim(1000.0, 50.0, 2000.0), eye(1300.0, 250.0, 2000.0);
    const auto circle = position(eye, aim, 8.0, true);
    for (const Flight & flight : {Flight({circle}), Flight({position(eye, aim, 1.0), circle})}) {
        EXPECT_EQ(flight.duration(), 8.0);
        double before = 90.0, turned = 0.0;
        for (double time = 0.0; time <= 8.0; time += 0.01) {
            const auto place = flight.at(time);
            ASSERT_NEAR(apart(place.eye, aim), std::hypot(300.0, 200.0), 1e-9);
            ASSERT_NEAR(place.eye.y, 250.0, 1e-9);
            ASSERT_LT(apart(place.aim, aim), 1e-9);
            const double step = std::remainder(azimuth(place.eye - aim) - before, 360.0);
            ASSERT_GE(step, -1e-9) << "it turns clockwise";
            turned += step;
            before = azimuth(place.eye - aim);
        }
        EXPECT_NEAR(turned, 360.0, 0.1);
        EXPECT_NEAR(azimuth(flight.at(4.0).eye - aim), -90.0, 1e-9) << "half of it at half of its time";
    }
}

TEST(Flight, ACircleFromElsewhereGoesOverToIt) {
    const Point aim(0.0, 0.0, 0.0), eye(0.0, 100.0, -300.0);
    const Flight flight(
        {position({-900.0, 500.0, 0.0}, {-900.0, 400.0, -700.0}, 1.0), position(eye, aim, 10.0, true)});
    EXPECT_LT(apart(flight.at(0.0).eye, {-900.0, 500.0, 0.0}), 1e-9);
    EXPECT_LT(apart(direction(flight.at(0.0)), direction({{-900.0, 500.0, 0.0}, {-900.0, 400.0, -700.0}})),
              1e-9);
    EXPECT_LT(apart(flight.at(10.0).eye, eye), 1e-9);
    double radius = 900.0;
    for (double time = 0.0; time <= 10.0; time += 0.1) {
        const Point place = flight.at(time).eye;
        EXPECT_LE(std::hypot(place.x, place.z), radius + 1e-9);
        radius = std::hypot(place.x, place.z);
    }
}

TEST(Flight, TimesThatAreNoneAreLeaps) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double none : {0.0, -3.0, nan, HUGE_VAL}) {
        const Flight flight({position({}, {0.0, 0.0, 1.0}, 1.0),
                             position({5.0, 0.0, 0.0}, {6.0, 0.0, 0.0}, none),
                             position({7.0, 0.0, 0.0}, {8.0, 0.0, 0.0}, 2.0)});
        EXPECT_EQ(flight.duration(), 2.0);
        EXPECT_EQ(flight.at(-1e-9).eye.x, 0.0);
        EXPECT_EQ(flight.at(0.0).eye.x, 5.0);
        EXPECT_NEAR(flight.at(1.0).eye.x, 6.0, 1e-12);
    }
}

} // namespace
