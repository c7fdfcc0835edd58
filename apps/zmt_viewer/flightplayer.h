#pragma once

#include <QObject>
#include <QTimer>

#include "scene/flight.h"

class LandscapeView;

/// Flies the camera of a view along a way, in the time that it takes, until the user takes the camera.
class FlightPlayer : public QObject {
    Q_OBJECT
public:
    explicit FlightPlayer(LandscapeView & view);

    /// In the place of a flight that goes on. Places are in map coordinates.
    void play(const Flight & flight);
    void stop();
    bool isPlaying() const { return timer_.isActive(); }

    /// From where the camera is; there is a landscape.
    static Flight::Position positionOf(const LandscapeView & view);
    /// Shows a place of a flight.
    static void show(LandscapeView & view, const Flight::Place & place, bool isMoving);

private:
    void goOn();

    LandscapeView & view_;
    Flight flight_;
    double start_ = 0.0;
    QTimer timer_;
};
