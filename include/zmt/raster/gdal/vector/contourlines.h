#pragma once

#include <memory>

#include <zmt/raster/featuresource.h>

namespace NBX {
class Progress;
}

namespace ZMT::RASTER {

class RasterData;

/// Lines of equal height, as features that are found by the place where they lie.
class ContourLines {
public:
    /// Each so many lines, counted from height 0, there is an index line.
    static constexpr int s_indexEvery = 5;
    /// More heights than these have no lines.
    static constexpr double s_mostLevels = 20'000.0;

    /// Lines of `heights` at the multiples of `interval`, in map coordinates: between the positions of the
    /// cells heights are interpolated linearly along the sides, and half a cell beyond the outer ones they go
    /// on. Where heights are undefined lines end. Fields are "height", a number, and "kind": "index" or
    /// "plain". Null when `progress`, which may be null, was cancelled. Throws `NBX::InputException` for an
    /// interval that is not above 0, that comes to no line, or to more than `s_mostLevels` one above the
    /// other, and where there is no room for the lines. Any thread; what comes back belongs to one at a time.
    static std::shared_ptr<const FeatureSource> create(const RasterData & heights, double interval,
                                                       NBX::Progress * progress = nullptr);
};

} // namespace ZMT::RASTER
