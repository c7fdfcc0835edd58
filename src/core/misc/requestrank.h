#pragma once

#include <cmath>
#include <limits>

namespace ZMT::CORE::IMPL {

/// A priority by which requests can be put in order: what is no number comes last.
inline double rankOf(double priority) {
    return std::isnan(priority) ? -std::numeric_limits<double>::infinity() : priority;
}

} // namespace ZMT::CORE::IMPL
