#pragma once

#include <optional>
#include <utility>

#include <nbx/math/matrix4x4base.h>
#include <nbx/math/ray.h>
#include <zmt/core/terrain/geometry/view/terrain.h>

namespace NBX {
class EngineGL;
}

namespace ZMT::CORE::GRID {

class GridTerrainTile;

/// A terrain that is a quadtree of square tiles, which need not all be in memory. Has neither data nor
/// patches of subsystems that do: `data()` and `root()` are null. Spaces are those of `GridTerrainTile`.
class GridTerrain : public Terrain {
    NBX_CLASS(GridTerrain, Terrain)
public:
    using Matrix = NBX::Matrix4x4Base<double>;

    NBX::SO<GeometryData> data() const override;
    NBX::SO<GeometryPatch> root() const override;
    /// The corner of the area with the least coordinates, at height 0.
    Point origin() const override;
    /// Negative infinity where there is no height. With `loadedOnly`, by what is in memory.
    double calculateHeight(const Point & p, bool loadedOnly) const override;
    bool hasUndefinedHeight(const Point & p, bool loadedOnly) const override;
    bool isUndefinedHeightValue(double height) const override;
    std::pair<double, double> getCellSize() const override;
    bool resampleRasterData(RASTER::SimpleRasterData<float> * target) const override;
    NBX::SO<NBX::PolygonSet> extractMesh(const NBX::Bounds & box, NBX::Progress * progress) const override;

    /// L: a tile has 2^L cells along each side.
    virtual unsigned gridLevel() const = 0;
    virtual NBX::SO<GridTerrainTile> rootTile() const = 0;
    virtual const Matrix & grid2geoTf() const = 0;
    /// Follows the scene's origin, which belongs to the process.
    virtual Matrix grid2visTf() const;
    virtual const Matrix & geo2gridTf() const = 0;
    virtual Matrix vis2gridTf() const;
    virtual const NBX::Bounds & gridBoundingBox() const = 0;
    virtual const NBX::Bounds & geoBoundingBox() const = 0;
    virtual NBX::Bounds visBoundingBox() const;
    /// Where `ray`, in scene coordinates, first meets the terrain. With `loadedOnly` nothing is read.
    virtual bool rayIntersection(const NBX::Ray & ray, Point & point, bool loadedOnly) const;

    /// What somebody at a screen waits for the answer to a question, in seconds.
    static constexpr double patienceOfPeople = 2.0;
    struct HeightAnswer {
        double height; ///< as by `calculateHeight`
        bool isCoarse; ///< tiles with finer heights could not be read, or did not come in time
    };
    /// The height at `p` as the finest tiles give it that come within `seconds`, all of them together; with 0
    /// nothing is waited for, but asked for: a later question gets a finer answer. Nothing is reported.
    HeightAnswer heightWithin(double seconds, const Point & p) const;
    struct RayAnswer {
        std::optional<Point> point; ///< none where the ray misses
        bool isCoarse;              ///< as above
    };
    /// As `rayIntersection`, in the same way.
    RayAnswer rayIntersectionWithin(double seconds, const NBX::Ray & ray) const;
    /// Opens and closes the bracket in which tiles are drawn.
    virtual void preRender(NBX::EngineGL * engine, bool colors) const = 0;
    virtual void postRender(NBX::EngineGL * engine, bool colors) const = 0;

protected:
    GridTerrain();
    /// `gridBoundingBox()` in geo coordinates, for subclasses to keep.
    NBX::Bounds superGeoBoundingBox() const;

private:
    NBX::Bounds boundingBox() const override;
};

} // namespace ZMT::CORE::GRID
