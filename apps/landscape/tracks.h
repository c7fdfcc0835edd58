#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nbx/math/bounds.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/attribute.h>
#include <nbx/scene/view/camera.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/dynamic/dynamicvectortexture.h>
#include <zmt/core/vector/movingfeatures.h>
#include <zmt/core/vector/vectortrack.h>
#include <zmt/raster/georeference.h>

/// Tracks of a landscape.
struct TrackOptions {
    std::vector<std::string> files; ///< GPX
    std::string time;               ///< as `parseTrackTime` takes it; empty for the end of all
};

/// Throws `UsageError` for a time without a track, and for what is no time.
void checkTrackOptions(const TrackOptions & options);

/// What moved along the ground: its way up to a time, and a mark where it is then. On the thread that draws,
/// but for being read.
class Tracks {
public:
    /// None.
    Tracks() = default;
    /// Reads the files, in the system of `reference`. Throws `DataError` and what `TrackFile` throws. What of
    /// them is left out is told on the standard error stream.
    Tracks(const TrackOptions & options, const ZMT::RASTER::GeoReference & reference);

    bool empty() const { return tracks_.empty(); }
    const std::vector<NBX::SO<ZMT::CORE::VectorTrack>> & list() const { return tracks_; }
    /// Seconds since 1970, UTC.
    double start() const;
    double end() const;
    double time() const { return time_; }
    void setTime(double time) { time_ = time; }

    /// Puts them on a terrain that stands in the scene: the effect that draws them, which belongs on top of
    /// all others of the terrain.
    NBX::SO<NBX::Attribute> layOn(const NBX::SO<ZMT::CORE::Terrain> & terrain, double exaggeration);
    void setExaggeration(double exaggeration) { exaggeration_ = exaggeration; }
    /// For the time that is set, as it is seen by the camera in a picture of this height; before each
    /// picture.
    void prepare(const NBX::Camera & camera, unsigned height);

private:
    double metresPerPixel(const NBX::Camera & camera, unsigned height) const;

    std::vector<NBX::SO<ZMT::CORE::VectorTrack>> tracks_;
    std::optional<ZMT::CORE::MovingFeatures> features_;
    NBX::SO<ZMT::CORE::DynamicVectorTexture> texture_;
    NBX::SO<ZMT::CORE::Terrain> terrain_;
    double exaggeration_ = 1.0;
    double time_ = 0.0;
    double drawnTime_ = 0.0, drawnSize_ = 0.0; ///< of what `features_` are, and of a pixel; 0 before
};
