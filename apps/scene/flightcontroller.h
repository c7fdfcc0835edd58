#pragma once

#include <functional>
#include <optional>

#include <nbx/math/bounds.h>
#include <nbx/math/ray.h>
#include <nbx/math/vector3base.h>

/// What a camera moves over, in scene coordinates.
struct FlightGround {
    NBX::Bounds box;
    /// The height at a place of the plan; not finite where there is none.
    std::function<double(double x, double z)> heightAt;
    /// How far along a ray what stands on it begins; not finite where there is nothing. May be empty.
    std::function<double(const NBX::Ray &)> distanceAlong = {};
};

/// Moves a camera over a landscape, without any window. Scene coordinates throughout: x to the east, y up, z
/// to the north. Places in the picture run from -1 to 1, to the right and upwards.
///
/// Laws: (1) the eye never lies below the ground nor nearer to it than `clearance()`, and never below the
/// ground's box; (2) it never lies farther from the middle of the box than some times the box's diagonal;
/// (3) the picture's horizon is level.
class FlightController {
public:
    using Point = NBX::Vector3Base<double>;

    /// Looks to the north. Without a ground nothing is picked and all places are allowed.
    FlightController() = default;

    /// Another ground, or the same with other heights: the eye stays, unless it would lie below.
    void setGround(const FlightGround & ground);
    void setView(const Point & eye, const Point & aim);
    /// Height of the picture in degrees, and its width by its height.
    void setLens(double fieldOfViewDegrees, double aspect);

    const Point & eye() const { return eye_; }
    /// Of the view on the plan, in radians, clockwise from north.
    double heading() const { return heading_; }
    Point forward() const;
    Point up() const;
    Point right() const;

    /// From the eye through a place of the picture; the direction has length 1.
    NBX::Ray ray(double x, double y) const;
    /// Where a ray first meets the ground; none when it does not, or starts below.
    std::optional<Point> pick(const NBX::Ray & ray) const;

    /// Takes hold of what lies at a place of the picture, be it ground or what stands on it; the next drags
    /// refer to it.
    void grab(double x, double y);
    /// Turns the view round what was grabbed; where there was no ground, round the ground's middle.
    void orbitTo(double x, double y);
    /// Shifts the view so that what was grabbed comes to lie at the place. Points above the horizon stay
    /// where they are.
    void panTo(double x, double y);
    /// Goes nearer to what lies at the place, or with negative steps farther from it.
    void zoom(double steps, double x, double y);

    /// Turns the view until north is up, round what lies in its middle; above the horizon round the eye.
    void turnNorth();
    /// What lies in the middle of the picture, be it ground or what stands on it, lies so far from the eye;
    /// nothing where nothing is there.
    std::optional<double> middleDistance() const;
    /// How high the picture is at a distance of 1.
    double pictureHeight() const { return 2.0 * tangent_; }

    /// How to fly, each from -1 to 1.
    struct Flight {
        double forward = 0.0, right = 0.0, up = 0.0;
        double turn = 0.0; ///< clockwise
        double tilt = 0.0; ///< upwards
        bool isFast = false;

        bool isNone() const;
    };
    /// Flies for some time, the faster the higher.
    void fly(const Flight & flight, double seconds);

    struct ClipDistances {
        double near, far;
    };
    /// The depths between which all of the ground lies that may be seen.
    ClipDistances clipDistances() const;
    /// The least distance to the ground below.
    double clearance() const;

private:
    std::optional<Point> target(const NBX::Ray & ray) const;
    Point offset(const Point & inView) const;
    Point inView(const Point & offset) const;
    double size() const;
    double lowestAllowed(const Point & p) const;
    void moveTo(const Point & eye);
    double heightAboveGround() const;

    FlightGround ground_;
    Point eye_;
    double heading_ = 0.0; ///< clockwise from north
    double pitch_ = 0.0;   ///< above the horizon
    double tangent_ = 0.41421356237309503;
    double aspect_ = 1.0;

    Point grabbed_;
    double grabbedX_ = 0.0, grabbedY_ = 0.0;
};
