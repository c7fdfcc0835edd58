#pragma once

#include <cstddef>

namespace ZMT::CORE::IMPL {

/// Whole pages of memory for reads. A few that were given back are kept and handed out again: new ones would
/// cost more time than reading from a quick disk does. From any thread.
class PageStore {
public:
    /// Larger blocks are never kept: they are fresh, zeroed, and take memory only where they are touched.
    static constexpr std::size_t s_largestKept = std::size_t(1) << 20;
    /// Of all blocks that are kept.
    static constexpr std::size_t s_mostKept = std::size_t(4) << 20;

    /// `bytes` above 0; null with the system's error where there are none. Blocks up to `s_largestKept` may
    /// hold anything.
    static void * take(std::size_t bytes);
    /// Takes them back, with the same number of bytes. False with the system's error when it does not.
    static bool give(void * pages, std::size_t bytes);
    /// Gives all that is kept to the system.
    static void clear();
};

} // namespace ZMT::CORE::IMPL
