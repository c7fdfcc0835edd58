#pragma once

#include <functional>

#include <zmt/core/vector/vectoroverlay.h>

#include "drapedlabels.h"

namespace ZMT::CORE {

/// Reads the features of an overlay, and keeps its account. Lives for one call; render thread.
class VectorOverlayReader {
public:
    using Visit = std::function<bool(const RASTER::VectorFeature &)>;

    explicit VectorOverlayReader(const VectorOverlay & overlay) : overlay_(overlay) {}

    /// Whether anything of it is to be seen.
    bool isVisible() const { return overlay_.isShown() && overlay_.opacity() > 0.0; }
    /// What the source has there, with the fields of the style sheet; nothing where the box, in geo
    /// coordinates, lies beyond the extent of the source. False after a failure, which is noted, and reported
    /// when it is the first one.
    bool read(const RASTER::GeoExtent & box, double tolerance, const Visit & visit) const;
    /// Whether there is a feature that a rule fits. True where that cannot be read.
    bool hasFeatures(const RASTER::GeoExtent & box) const;
    /// Those that lie on the ground; reads all features when they are first asked for with the style sheet.
    const DrapedLabels & labels() const;

    VectorOverlay::Counts & counts() const { return overlay_.counts_; }

private:
    void note(const char * failure) const;

    const VectorOverlay & overlay_;
};

} // namespace ZMT::CORE
