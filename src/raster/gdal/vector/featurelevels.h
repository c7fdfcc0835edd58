#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>

#include "storedfeatures.h"

namespace ZMT::RASTER {

/// Simplified copies of all features, each four times as coarse as the next one, for windows that hold more
/// positions than can be seen. A level is made when a window was found to hold too many.
class FeatureLevels {
public:
    /// Of the features; without one there are no levels.
    void setExtent(const GeoExtent & extent);

    /// The number of the level that serves a tolerance, 0 for the coarsest; none where the true shapes do.
    std::optional<unsigned> levelOf(double tolerance) const;
    /// How far its shapes are from the true ones: at most half the tolerance that it serves.
    double tolerance(unsigned level) const;
    /// Whether a window of this level held too many positions, and it can be made.
    bool isWanted(unsigned level) const;
    void add(unsigned level, std::unique_ptr<StoredFeatures> features);
    /// The level or the next finer one that there is; null where there is none.
    StoredFeatures * find(unsigned level) const;
    /// So many positions had to be read for a window.
    void note(unsigned level, const GeoExtent & box, double tolerance, std::uint64_t positions);

private:
    double coarsest_ = 0.0;
    std::map<unsigned, std::unique_ptr<StoredFeatures>> levels_;
    std::set<unsigned> wanted_;
};

} // namespace ZMT::RASTER
