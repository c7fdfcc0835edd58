#pragma once

#include <cstdint>

namespace NBX {

/// What a cache on a thread of its own keeps of the budget of `MainMemoryManager`. The manager counts it, and
/// leaves it to the cache to give way, on the cache's own thread. Any thread; one at a time uses a share.
class MainMemoryShare {
public:
    MainMemoryShare();
    ~MainMemoryShare();
    MainMemoryShare(const MainMemoryShare &) = delete;
    MainMemoryShare & operator=(const MainMemoryShare &) = delete;

    /// The cache keeps `bytes` now.
    void setUsed(std::uint64_t bytes);
    /// The bytes that the cache should let go: what is beyond the budget, as long as more than an equal part
    /// of the budget for each share is left.
    std::uint64_t excess() const;

private:
    std::uint64_t used_ = 0;
};

} // namespace NBX
