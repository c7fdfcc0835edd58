#pragma once

#include <cstdint>

namespace NBX {
class Progress;
}

namespace ZMT::RASTER {

class RasterBand;

/// The numbers of a band of any size, read in windows.
struct BandStatistics {
    std::uint64_t defined = 0;
    std::uint64_t undefined = 0;
    double minimum, maximum, average; ///< of the defined numbers; NaN without any
    bool isComplete = false;          ///< false when `progress` was cancelled: the rest means nothing

    /// Reads all cells. Throws what the band throws.
    static BandStatistics of(const RasterBand & band, NBX::Progress * progress = nullptr);
};

} // namespace ZMT::RASTER
