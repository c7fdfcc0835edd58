#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <zmt/raster/vector/trackpoint.h>

namespace ZMT::RASTER {

/// The tracks of a GPX file.
class TrackFile {
public:
    struct Tracks {
        /// The segments of all tracks, in the order of the file; none is empty. Points without a time, or
        /// one that is none, have the time NaN.
        std::vector<TrackPiece> pieces;
        std::uint64_t withoutPlace = 0; ///< points that have no place in the system; they are left out
    };

    /// In the coordinates of the system `wkt`, in longitude and latitude where that is empty. Heights are the
    /// file's, 0 where it has none. Throws `NBX::FileNotFoundException` or `NBX::InputException`, which say
    /// what is wrong and what to do, also for a file without a point of a track.
    static Tracks read(const std::string & path, const std::string & wkt = {});

    /// More points are not read, but told of by an exception.
    static constexpr std::uint64_t maxPoints = 10'000'000;
};

} // namespace ZMT::RASTER
