#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>
#include <zmt/util/cameraposition.h>

/// A way of a camera through stored positions, each of which tells how long the way to it takes. In the
/// coordinates of these: x to the east, y up, z to the north; the horizon stays level.
///
/// Laws: (1) at the end of each leg the camera is at its position; (2) the way has no bend, and rests at both
/// ends; (3) on a circle the eye goes once round what its position looks at, and looks at it; its distance
/// and its height go over from those of the position before, so that a circle from where it ends is one.
class Flight {
public:
    using Point = NBX::Vector3Base<double>;
    using Position = NBX::SO<ZMT::UTIL::CameraPosition>;
    struct Place {
        Point eye, aim;
    };

    /// Goes nowhere.
    Flight() = default;
    /// Starts at the first of `positions`; where that is a circle, with its circle. Times that are negative
    /// or no number count as 0, which is a leap.
    explicit Flight(const std::vector<Position> & positions);

    bool empty() const { return stations_.empty(); }
    /// Of all legs, in seconds.
    double duration() const { return empty() ? 0.0 : stations_.back().time; }
    /// Before the start the first place, behind the end the last; there is one.
    Place at(double seconds) const;

private:
    /// Eye, heading, pitch, and the distance of the aim; angles in radians, clockwise from north and upwards.
    using State = std::array<double, 6>;
    struct Station {
        State state{}, speed{};
        double time = 0.0;
        bool isCircle = false; ///< the way to it
        Point aim;
    };

    static State stateOf(const Point & eye, const Point & aim);
    static Place placeOf(const State & state);
    void findSpeeds();
    State onCurve(std::size_t leg, double share) const;
    State onCircle(std::size_t leg, double share) const;

    std::vector<Station> stations_;
};
