#pragma once

#include <cstddef>
#include <memory>

#include <zmt/raster/georaster.h>

namespace ZMT::RASTER {

/// Where places of a raster in degrees lie in a system in metres, for those who keep its cells as they are.
/// One thread at a time uses an object.
class PlanProjection {
public:
    /// To the system that `RasterWarp::toMetric` chooses for the raster. Throws `NBX::InputException` where
    /// its coordinates are no positions on the globe, or its system cannot be converted.
    explicit PlanProjection(const GeoRaster & degrees);
    ~PlanProjection();
    PlanProjection(const PlanProjection &) = delete;
    PlanProjection & operator=(const PlanProjection &) = delete;

    /// The system in metres.
    const GeoReference & reference() const { return reference_; }
    /// Puts the places of `count` map coordinates of the raster in their place. False where one has none.
    bool project(std::size_t count, double * x, double * y) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
    GeoReference reference_;
};

} // namespace ZMT::RASTER
