#include "flightplayer.h"

#include "landscapeview.h"

#include <nbx/object/nbxtime.h>

namespace {

constexpr int s_playMilliseconds = 16;

} // namespace

FlightPlayer::FlightPlayer(LandscapeView & view) : QObject(&view), view_(view) {
    connect(&timer_, &QTimer::timeout, this, &FlightPlayer::goOn);
    connect(&view, &LandscapeView::taken, this, &FlightPlayer::stop);
}

void FlightPlayer::play(const Flight & flight) {
    stop();
    if (flight.empty() || !view_.landscape()) return;
    flight_ = flight;
    start_ = NBX::NBXTime::now();
    timer_.start(s_playMilliseconds);
    goOn();
}

void FlightPlayer::stop() {
    timer_.stop();
}

void FlightPlayer::goOn() {
    if (!view_.landscape()) return stop();
    const double seconds = double(NBX::NBXTime::now()) - start_;
    show(view_, flight_.at(seconds), true);
    if (seconds >= flight_.duration()) stop();
}

Flight::Position FlightPlayer::positionOf(const LandscapeView & view) {
    const auto c = view.viewCoordinates();
    return new ZMT::UTIL::CameraPosition({c[0], c[2], c[1]}, {c[3], c[5], c[4]}, {0.0, 1.0, 0.0});
}

void FlightPlayer::show(LandscapeView & view, const Flight::Place & place, bool isMoving) {
    view.setViewCoordinates({place.eye.x, place.eye.z, place.eye.y, place.aim.x, place.aim.z, place.aim.y},
                            isMoving);
}
