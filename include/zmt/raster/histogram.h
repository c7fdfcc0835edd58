#pragma once

#include <cstdint>

namespace ZMT::RASTER {

class RasterData;

/// The statistics of a raster's values, computed once by the constructor in O(cells). A null raster is
/// reported and counts as one without cells.
class Histogram {
public:
    explicit Histogram(const RasterData * raster);

    std::uint64_t numberOfDefinedValues() const { return defined_; }
    std::uint64_t numberOfUndefinedValues() const { return undefined_; }
    /// Number of distinct defined values; 0 and -0 are one value.
    std::uint64_t numberOfDifferentValues() const { return different_; }

    /// Of the defined values; NaN without any.
    double minimum() const { return minimum_; }
    double maximum() const { return maximum_; }
    double average() const { return average_; }

private:
    std::uint64_t defined_ = 0;
    std::uint64_t undefined_ = 0;
    std::uint64_t different_ = 0;
    double minimum_, maximum_, average_;
};

} // namespace ZMT::RASTER
