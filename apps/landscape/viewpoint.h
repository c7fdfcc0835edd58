#pragma once

#include <array>
#include <optional>
#include <string>

#include <nbx/math/bounds.h>
#include <nbx/object/so.h>
#include <nbx/scene/view/camera.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/raster/georeference.h>

struct PictureSize {
    unsigned width, height;
};

/// WIDTHxHEIGHT in pixels. Throws `UsageError`.
PictureSize parsePictureSize(const std::string & text);

struct View {
    enum class Name {
        Overview, ///< from the south
        CloseUp,  ///< of the highest place
        North,    ///< straight down, north up
    };

    Name name = Name::Overview;
    /// In the place of the name: eye and aim in map coordinates, x, y, height of each.
    std::optional<std::array<double, 6>> coordinates;
    bool isLonLat = false; ///< x and y of them are longitude and latitude, in degrees of WGS 84
};

/// overview, closeup, north or EX,EY,EZ,AX,AY,AZ. Throws `UsageError`.
View parseView(const std::string & text);

/// Height of all pictures, in degrees.
inline constexpr double s_fieldOfView = 45.0;

/// Where the camera stands and what it looks at, in scene coordinates.
struct Viewpoint {
    NBX::Vector3Base<double> eye, aim;
};

/// What is looked at. Borrows all of it.
struct ViewedGround {
    const ZMT::CORE::GridData & grid;
    const ZMT::RASTER::GeoReference & reference; ///< of its map coordinates
    double exaggeration;                         ///< of its heights
    NBX::Bounds interest; ///< what a close-up should show, in scene coordinates; undefined for no preference
};

/// The viewpoint for `view`. Throws `UsageError` for a place that the ground's system has no coordinates for.
Viewpoint findViewpoint(const View & view, const ViewedGround & ground);

/// A camera that sees all of `box`, the scene's, as far as it lies in front.
NBX::SO<NBX::Camera> makeCamera(const Viewpoint & viewpoint, const NBX::Bounds & box);
