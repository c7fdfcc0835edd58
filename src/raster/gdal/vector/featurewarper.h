#pragma once

#include <memory>
#include <string>
#include <vector>

#include "featureshapes.h"

class OGRCoordinateTransformation;
class OGRGeometry;
class OGRSimpleCurve;
class OGRSpatialReference;

namespace ZMT::RASTER {

/// What of a feature cannot be drawn; a set of bits.
namespace FeatureLoss {
constexpr unsigned noGeometry = 1;   ///< null, empty, or of a kind that has no place
constexpr unsigned notFinite = 2;    ///< coordinates that are no numbers
constexpr unsigned noPosition = 4;   ///< places that the wanted system does not have
constexpr unsigned tooFewPoints = 8; ///< in lines and outlines
constexpr unsigned tooDeep = 16;     ///< collections in collections
} // namespace FeatureLoss

/// Brings geometry into another system, place by place, where it lies in an area of interest.
class FeatureWarper {
public:
    /// What lies in `cut`, and moves to the east by `shift`, is transformed without a jump.
    struct Window {
        GeoExtent wanted; ///< all that is to be seen, in the system of the source
        GeoExtent cut;    ///< with room around
        double shift = 0.0;
    };

    /// From `source`, which may be null, to `wkt`, which may be empty: then coordinates are taken as they
    /// are. `area` is in the wanted system, and may be without bounds, as may `sourceArea`, where all
    /// features lie. Throws `NBX::InputException` where `wkt` is no system, or there is no way to it.
    FeatureWarper(const OGRSpatialReference * source, const std::string & wkt, const GeoExtent & area,
                  const GeoExtent & sourceArea, const std::string & path);
    ~FeatureWarper();

    const GeoExtent & area() const { return area_; }
    /// Of the whole area, and of a part of it.
    const std::vector<Window> & windows() const { return windows_; }
    std::vector<Window> windowsOf(const GeoExtent & part) const;
    /// The rectangles of the source that hold what comes to lie in some windows. One of them may lie far
    /// away: there is what crosses the date line, for those who take its longitudes by the letter.
    std::vector<GeoExtent> readBoxes(const std::vector<Window> & windows,
                                     const std::optional<GeoExtent> & known) const;
    /// Around the places that a rectangle of the source has in the area; none where it has none.
    std::optional<GeoExtent> extentOf(const GeoExtent & source) const;

    /// Replaces `result` by what lies in `windows`. Answers what was lost.
    unsigned convert(const OGRGeometry & geometry, const std::vector<Window> & windows,
                     FeatureShapes & result);

private:
    std::vector<GeoExtent> sourceBoxes(const GeoExtent & part) const;
    void setWindows(const GeoExtent & sourceArea);
    void setStep();
    unsigned collect(const OGRGeometry & geometry, unsigned depth);
    unsigned addPath(const OGRSimpleCurve & curve, FeatureShapes::Kind kind);
    double highestPlace() const;
    unsigned addRead(FeatureShapes::Kind kind);
    unsigned closePath(FeatureShapes::Kind kind, GeoExtent box);
    bool needsMore(const FeatureShapes & shapes) const;
    void densify(const FeatureShapes & shapes);
    unsigned transform(const FeatureShapes & shapes, double shift, FeatureShapes & result);

    std::unique_ptr<OGRCoordinateTransformation> transformation_, back_; ///< null: as they are
    double turn_ = 0.0; ///< in units of a source of longitudes; 0 for another one
    GeoExtent area_;
    std::vector<Window> windows_;
    double step_; ///< edges of the source become no longer
    bool has3d_ = false;
    std::vector<FeatureShapes::Position> read_; ///< a path of which not all can be taken
    FeatureShapes source_, cut_, dense_;
    GeoExtent sourceBox_; ///< around `source_`
    std::vector<double> x_, y_, z_;
    std::vector<int> isKnown_;
};

} // namespace ZMT::RASTER
