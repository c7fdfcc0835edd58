#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nbx/object/so.h>
#include <zmt/core/vector/vectortrack.h>
#include <zmt/raster/georeference.h>

#include "dynamiclayer.h"

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

    /// Whether a file is one of them: GPX with at least one time. False for what cannot be read. Reads it
    /// all.
    static bool isTrack(const std::string & path);

    bool empty() const { return tracks_.empty(); }
    const std::vector<NBX::SO<ZMT::CORE::VectorTrack>> & list() const { return tracks_; }
    /// How one of them looks.
    struct Look {
        bool isShown = true;
        double opacity = 1.0; ///< from 0 to 1
        bool operator==(const Look &) const = default;
    };
    const std::vector<Look> & looks() const { return looks_; }
    /// Of as many as there are.
    void setLooks(const std::vector<Look> & looks);
    /// The file of one, and what of it is left out, a line each; empty where that is nothing.
    const std::string & file(std::size_t number) const { return files_.at(number); }
    const std::string & losses(std::size_t number) const { return losses_.at(number); }

    /// When any of them has a place, as one track; null without any.
    const NBX::SO<ZMT::CORE::VectorTrack> & all() const { return all_; }
    /// Seconds since 1970, UTC.
    double start() const { return all_ ? all_->start() : 0.0; }
    double end() const { return all_ ? all_->end() : 0.0; }
    double time() const { return time_; }
    void setTime(double time) { time_ = time; }

    /// Lays them on the ground as they are at that time; nothing where they lie there already.
    void showOn(DynamicLayer & layer);

private:
    std::vector<NBX::SO<ZMT::CORE::VectorTrack>> tracks_;
    std::vector<Look> looks_;
    std::vector<std::string> files_, losses_;
    NBX::SO<ZMT::CORE::VectorTrack> all_;
    double time_ = 0.0;
    std::optional<double> shownTime_; ///< none: something else of them has changed
};
