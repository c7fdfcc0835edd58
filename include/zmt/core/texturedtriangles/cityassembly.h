#pragma once

#include <string>
#include <vector>

#include <nbx/math/matrix4x4base.h>
#include <nbx/object/so.h>
#include <nbx/scene/node/scenething.h>
#include <zmt/core/texturedtriangles/citymodels.h>
#include <zmt/raster/gdal/coordinatesystem.h>

namespace ZMT::CORE {

/// Puts models on their places on a map, and joins them to one scene. Any thread, one at a time.
class CityAssembly {
public:
    using Point = NBX::Vector3Base<double>;
    using Matrix = NBX::Matrix4x4Base<double>;

    /// Where a model stands. The axes of a model are those of scene coordinates, in metres.
    struct Place {
        RASTER::MapAxes axes; ///< of its origin: x of the model goes along `east`, z along `north`
        double height = 0.0;  ///< of its origin, metres in geo coordinates
        Matrix orientation;   ///< of the model in these axes
        /// Below its origin, as `height`.
        double ground = CityModels::Model::unknown;
    };

    /// What a model of x to the east, y up and z to the north becomes that is stretched by `scale`, whose y
    /// is upwards, then turned, in degrees: by `roll` about the axis to the north, by `tilt` about the one to
    /// the east, by `heading` about the vertical, each clockwise for who looks from the axis's positive end
    /// to the origin. So a heading of 90 turns what shows north to the east. As OGC KML 2.2,
    /// `kml:Orientation`.
    static Matrix orientation(double heading, double tilt, double roll, const Point & scale);
    /// A place by map coordinates alone: the axes are those of the map, `unit` of which are metres.
    static Place onMap(double x, double y, double height, double unit = 1.0);

    /// `triangles` is the number of those that the model draws.
    void add(const NBX::SO<NBX::SceneThing> & model, unsigned triangles, const std::string & name,
             const std::string & source, const Place & place);
    std::size_t size() const { return entries_.size(); }
    std::uint64_t triangles() const { return triangles_; }

    /// The middle of the box of all models, in geo coordinates and whole units, so that no vertex lies
    /// farther from it than it must; zero without models.
    Point origin() const;
    /// All models, in a frame whose origin `origin` is in geo coordinates, each behind its number.
    NBX::SO<NBX::SceneThing> scene(const Point & origin) const;
    /// The same as a table.
    std::vector<CityModels::Model> table(const Point & origin) const;

private:
    struct Entry {
        NBX::SO<NBX::SceneThing> model;
        Matrix toGeo;
        NBX::Bounds box; ///< in geo coordinates
        CityModels::Model row;
    };

    std::vector<Entry> entries_;
    std::uint64_t triangles_ = 0;
};

} // namespace ZMT::CORE
