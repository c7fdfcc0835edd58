#pragma once

#include <array>
#include <numbers>
#include <optional>
#include <string>

#include <nbx/math/bounds.h>
#include <nbx/object/so.h>
#include <nbx/scene/view/camera.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/raster/georeference.h>

#include "picture.h"

struct PictureSize {
    unsigned width, height;

    double aspect() const { return double(width) / height; }
};

/// WIDTHxHEIGHT in pixels. Throws `UsageError`.
PictureSize parsePictureSize(const std::string & text);

struct View {
    enum class Name {
        Overview, ///< all of it, from the south
        CloseUp,  ///< of the highest place
        North,    ///< straight down, north up
    };

    Name name = Name::Overview;
    /// The way from the eye to its aim.
    struct Direction {
        double azimuth;  ///< degrees clockwise from north
        double pitch;    ///< degrees below the horizon
        double distance; ///< of the scene, whose heights may be exaggerated
    };

    /// In the place of the name: eye and aim in map coordinates, x, y, height of each.
    std::optional<std::array<double, 6>> coordinates = {};
    bool isEyeAboveGround = false; ///< its height counts from the ground
    bool isAimAboveGround = false;
    std::optional<Direction> direction = {}; ///< in the place of the coordinates of the eye
    bool isLonLat = false; ///< x and y of them are longitude and latitude, in degrees of WGS 84
};

/// overview, closeup, north, EX,EY,EZ,AX,AY,AZ, where heights with a sign "+" count from the ground, or
/// at:X,Y,AZIMUTH,PITCH,DISTANCE, which looks at the ground. Throws `UsageError`.
View parseView(const std::string & text);

/// Height of all pictures, in degrees.
inline constexpr double s_fieldOfView = 45.0;

inline double radians(double degrees) {
    return degrees * (std::numbers::pi / 180.0);
}

/// Where the camera stands and what it looks at, in scene coordinates.
struct Viewpoint {
    NBX::Vector3Base<double> eye, aim;
};

/// What is looked at. Borrows all of it.
struct ViewedGround {
    const ZMT::CORE::GridData & grid; ///< coarse heights of a terrain that streams
    const ZMT::CORE::Terrain & terrain;
    const ZMT::RASTER::GeoReference & reference; ///< of its map coordinates
    double exaggeration;                         ///< of its heights
    NBX::Bounds interest; ///< what a close-up should show, in scene coordinates; undefined for no preference
    NBX::Bounds models = {}; ///< what stands on it, in scene coordinates; undefined for nothing
    std::string city = {};   ///< whose system it is where there is no terrain
};

/// The viewpoint for `view`, in a picture whose width is `aspect` times its height. Throws `UsageError` for a
/// place that the ground's system has no coordinates for, or that has no ground where heights count from it.
Viewpoint findViewpoint(const View & view, const ViewedGround & ground, double aspect);
/// A line on the standard error stream where the eye is under the ground.
void tellBuriedEye(const Viewpoint & viewpoint, const ViewedGround & ground);
/// The same where an error of the geometry was asked for, and `view` is straight down, so that none shows.
void tellUnseenErrors(const View & view, const AllowedErrors & errors);

/// A camera that sees all of `box`, the scene's, as far as it lies in front.
NBX::SO<NBX::Camera> makeCamera(const Viewpoint & viewpoint, const NBX::Bounds & box);
