#pragma once

#include <utility>

#include <nbx/container/sequence/iterator.h>
#include <nbx/math/bounds.h>
#include <nbx/scene/shape/shape.h>

namespace NBX {
class PolygonSet;
class Progress;
} // namespace NBX

namespace ZMT::RASTER {
template <class T> class SimpleRasterData;
}

namespace ZMT::CORE {

/// The numbered vertices of a terrain with their normals, and its height queries. Patches hold vertex
/// numbers and ask the data for coordinates.
///
/// Vertices and boxes are in local coordinates, which are geo coordinates minus `origin()`; height queries
/// take geo coordinates. The second component of a vector is the height everywhere.
class GeometryData : public NBX::Shape {
    NBX_CLASS(GeometryData, NBX::Shape)
public:
    using Point = NBX::Vector3Base<double>;
    using Points = NBX::Iterator<Point>;
    using Indices = NBX::Iterator<unsigned>;

    /// The box of all vertices, in local coordinates. O(vertices) unless a subclass knows better.
    NBX::Bounds boundingBox() const override;

    virtual unsigned vertices() const = 0;
    virtual Point vertex(unsigned v) const = 0;
    /// Upwards, not of unit length.
    virtual Point normal(unsigned v) const = 0;
    /// Height at the x and z of `p`, in geo coordinates; `p.y` is not read. Outside and over undefined cells
    /// a value that `isUndefinedHeightValue` knows.
    virtual double calculateHeight(const Point & p) const = 0;
    /// True when the height at `p` would touch undefined cells.
    virtual bool hasUndefinedHeight(const Point & p) const = 0;
    virtual bool isUndefinedHeightValue(double height) const = 0;
    /// The size of a cell in x and y of the map.
    virtual std::pair<double, double> getCellSize() const = 0;
    /// Fills `target`, which defines its own grid, with the heights of this data, and with its undefined
    /// value where there are none. False where no cell of `target` lies on this data.
    virtual bool resampleRasterData(RASTER::SimpleRasterData<float> * target) const = 0;
    /// The part of the surface over the rectangle of `box` in x and z, as triangles, all in geo coordinates;
    /// null where there is none. `progress` may be null.
    virtual NBX::SO<NBX::PolygonSet> extractMesh(const NBX::Bounds & box, NBX::Progress * progress) const = 0;
    /// The shift from local to geo coordinates.
    virtual Point origin() const;
    /// Numbers of the vertices inside `box`, in local coordinates, ascending. The caller takes the result.
    virtual Indices * newIndexIterator(const NBX::Bounds & box) const;

    /// All numbers, positions, normals; the caller takes the result.
    Indices * newIndexIterator() const;
    Points * newVertexIterator() const;
    Points * newNormalIterator() const;
    Points * newVertexIterator(const NBX::Bounds & box) const;
    Points * newNormalIterator(const NBX::Bounds & box) const;

protected:
    GeometryData() : NBX::Shape(true) {}

    Points * newIndexToVertexIterator(Indices * indices) const;
    Points * newIndexToNormalIterator(Indices * indices) const;
};

} // namespace ZMT::CORE
