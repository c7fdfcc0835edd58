#pragma once

#include <nbx/math/bounds.h>

namespace ZMT::CORE {

/// The level from which heights are counted where a height rendering has numbers for no data: 0, and -500 and
/// what lies below. All heights of the terrain come to lie above -500, and none of whole units on 0; the
/// highest one lies within 1000.
class HeightLevel {
public:
    /// The largest difference of heights for which there is such a level.
    static constexpr double mostRange = 1498.0;

    /// `terrain` is the box of the terrain, with heights in the unit in which they are drawn.
    explicit HeightLevel(const NBX::Bounds & terrain);

    /// False for an undefined box, one that is not finite, and one with too large a range.
    bool fits() const { return fits_; }
    /// To be subtracted from heights; 0 where it does not fit.
    double level() const { return level_; }

private:
    bool fits_ = false;
    double level_ = 0.0;
};

} // namespace ZMT::CORE
