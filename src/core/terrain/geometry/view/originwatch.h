#pragma once

namespace ZMT::CORE {

class Terrain;

/// Tells of terrains that are drawn without an origin of the scene near them.
class OriginWatch {
public:
    /// Reports a terrain that single precision spoils, when it is drawn for the first time: at the farthest
    /// corner of its box in scene coordinates the steps of a `float` are larger than a thousandth of a cell,
    /// though the terrain lies far from the origin for its size, so that another origin helps. Render thread.
    static void check(const Terrain & terrain);
};

} // namespace ZMT::CORE
