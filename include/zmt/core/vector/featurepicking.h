#pragma once

#include <optional>
#include <vector>

#include <nbx/math/ray.h>
#include <nbx/math/vector3base.h>
#include <zmt/raster/featuresource.h>

namespace NBX {
class Camera;
}

namespace ZMT::CORE {

/// How a picture shows level ground about a place: offsets on the map as offsets in pixels.
class PixelFootprint {
public:
    /// Columns and rows for a unit of x, and for one of z; not both in one direction.
    PixelFootprint(double columnsPerX, double rowsPerX, double columnsPerZ, double rowsPerZ);
    /// At `x`, `y` of a picture, in pixels from its lower left corner, of ground at the height `ground` of
    /// the scene. None where that is not seen, or edge on.
    static std::optional<PixelFootprint> at(const NBX::Camera & camera, double x, double y, unsigned width,
                                            unsigned height, double ground);

    struct Pixels {
        double columns, rows;
    };
    Pixels toPixels(double x, double z) const { return {xx_ * x + xz_ * z, zx_ * x + zz_ * z}; }
    /// Half the sides of the box on the map around all places within so many pixels.
    NBX::Vector3Base<double> reach(double pixels) const;

private:
    double xx_, xz_, zx_, zz_;
};

/// How far a feature lies from a place, as a picture shows both: 0 inside an area.
class FeatureDistance {
public:
    /// `place` in the coordinates of the features.
    FeatureDistance(const NBX::Vector3Base<double> & place, const PixelFootprint & footprint)
        : place_(place), footprint_(footprint) {}

    /// In pixels, of its nearest part; infinite without any.
    double of(const RASTER::VectorFeature & feature) const;
    /// Where features within so many pixels lie.
    RASTER::GeoExtent box(double pixels) const;

private:
    using Position = NBX::Vector3Base<double>;
    PixelFootprint::Pixels offset(const Position & p) const;
    double toLine(const RASTER::VectorFeature::Line & line, bool isClosed) const;
    double toArea(const RASTER::VectorFeature::Area & area) const;

    Position place_;
    PixelFootprint footprint_;
};

/// A feature at a place that somebody points at.
struct PickedFeature {
    RASTER::VectorFeature feature; ///< with the values of all fields
    double pixels;                 ///< from the place
};

/// The features of `source` within `tolerance` pixels, the nearest first; of those as near, points come
/// before lines, and lines before areas. No more than `most`. Throws as `FeatureSource::read`.
std::vector<PickedFeature> featuresAt(const RASTER::FeatureSource & source, const FeatureDistance & place,
                                      double tolerance, std::size_t most);

/// The geometry of a feature that `featuresAt` found at `place`, and which is cut off around there where it
/// is large, as a whole; where more than `most` features lie around it, as much as that many tell. It has
/// neither values nor a style. Throws as `FeatureSource::read`.
RASTER::VectorFeature wholeFeature(const RASTER::FeatureSource & source, const RASTER::VectorFeature & picked,
                                   const NBX::Vector3Base<double> & place, std::size_t most);

} // namespace ZMT::CORE
