#pragma once

namespace ZMT::CORE::GRID {

/// What a sample of a coarse level is.
enum class HeightResampling {
    Nearest, ///< the cell at its place, or where that is undefined, the nearest ones
    Average, ///< the mean of the cells around it, those at its place weighing most
};

} // namespace ZMT::CORE::GRID
