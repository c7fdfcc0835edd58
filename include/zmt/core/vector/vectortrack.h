#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>
#include <zmt/raster/featuresource.h>
#include <zmt/raster/vector/trackpoint.h>

namespace ZMT::CORE {

/// The way of something that moves: where it was at any time. Between two points it went straight and evenly,
/// unless they are of different pieces, or further apart in time than the longest step: there is a gap then,
/// in which nobody knows. Never changes.
class VectorTrack : public NBX::SharedObj {
    NBX_CLASS(VectorTrack, NBX::SharedObj)
public:
    using Position = NBX::Vector3Base<double>;
    using Line = RASTER::VectorFeature::Line;

    /// Seconds.
    static constexpr double usualLongestStep = 300.0;

    /// Points of a piece are sorted by time; those without a time or a finite place are left out, and of
    /// those of one time all but the first. Where pieces overlap in time, the one that begins later holds.
    /// A step that is not above 0 is reported, and the usual one stands in.
    explicit VectorTrack(const std::vector<RASTER::TrackPiece> & pieces,
                         double longestStep = usualLongestStep);

    /// What was not as it should be.
    struct Counts {
        std::uint64_t withoutTime = 0, withoutPlace = 0; ///< left out
        std::uint64_t unordered = 0;                     ///< points earlier than one before
        std::uint64_t repeated = 0;                      ///< left out
    };
    const Counts & counts() const { return counts_; }

    bool isEmpty() const { return spans_.empty(); }
    /// Times from `begin` to `end`, both included.
    struct Span {
        double begin, end;
    };
    /// When it has a place: one behind the other, with gaps between them. A single point has no length.
    const std::vector<Span> & spans() const { return spans_; }
    /// Of the first and of the last point; 0 for an empty track.
    double start() const { return isEmpty() ? 0.0 : spans_.front().begin; }
    double end() const { return isEmpty() ? 0.0 : spans_.back().end; }

    struct Place {
        Position position;
        /// Degrees clockwise from north, from 0 up to but without 360; that of the last step that led
        /// anywhere where it stands still, and of the next one where there was none; 0 without any.
        double heading;
    };
    /// None in a gap, and before the start and behind the end. O(log n) but for pieces that overlap.
    std::optional<Place> placeAt(double time) const;
    /// The way up to `time`, in lines between which there are gaps.
    std::vector<Line> passed(double time) const;

private:
    /// Points without a gap between them, whose times rise.
    struct Stretch {
        RASTER::TrackPiece points;    ///< at least one
        std::vector<double> headings; ///< of the steps
        double latestEnd;             ///< of this one and all before it

        double begin() const { return points.front().time; }
        double end() const { return points.back().time; }
    };
    RASTER::TrackPiece usable(const RASTER::TrackPiece & piece);
    void addStretches(const RASTER::TrackPiece & points, double longestStep);
    void findSpans();
    const Stretch * stretchAt(double time) const;

    std::vector<Stretch> stretches_; ///< in the order of their beginnings
    std::vector<Span> spans_;
    Counts counts_;
};

} // namespace ZMT::CORE
