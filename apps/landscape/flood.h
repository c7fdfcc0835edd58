#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nbx/math/color.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>

#include "dynamiclayer.h"

/// Water over all ground at a height or below.
struct FloodOptions {
    double height = 0.0; ///< as the terrain has it, whatever the exaggeration
    NBX::Color color = {0.12F, 0.40F, 0.75F, 0.6F};
    bool operator==(const FloodOptions &) const = default;
};

/// HEIGHT or HEIGHT,COLOR, a colour of vector styles. Throws `UsageError`.
FloodOptions parseFlood(const std::string & text);

/// A flood that is switched on and moved. On the thread that draws.
class Flood {
public:
    /// Off, and without ground.
    Flood() = default;
    /// On where there are options, and else at the lowest ground for when it is switched on. `grid` outlives
    /// this; of streaming terrains it has coarse heights.
    Flood(const std::optional<FloodOptions> & options, const ZMT::CORE::GridData & grid);

    bool isOn() const { return isOn_; }
    void setOn(bool isOn) { isOn_ = isOn; }
    double height() const { return options_.height; }
    void setHeight(double height) { options_.height = height; }
    /// From 0 to 1.
    double opacity() const { return options_.color[3]; }
    void setOpacity(double opacity) { options_.color[3] = float(opacity); }
    /// As it is; none where it is off.
    std::optional<FloodOptions> options() const;

    /// Those of the ground.
    double lowest() const { return lowest_; }
    double highest() const { return highest_; }

    /// Lays it on the ground as it is; nothing where it lies there already.
    void showOn(DynamicLayer & layer);

private:
    FloodOptions options_{};
    bool isOn_ = false;
    const ZMT::CORE::GridData * grid_ = nullptr;
    double lowest_ = 0.0, highest_ = 0.0;
    std::optional<FloodOptions> shown_;        ///< none: it is not shown
    std::vector<DynamicLayer::Point> corners_; ///< of the triangles at the height of `shown_`
};
