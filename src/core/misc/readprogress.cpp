#include <zmt/core/misc/readprogress.h>

#include <atomic>

namespace ZMT::CORE {

namespace {

std::atomic<std::uint64_t> s_totalBytes{0};

} // namespace

void ReadProgress::note(std::uint64_t offset, std::uint64_t count) {
    if (most_.size() >= s_mostRanges && most_.count(offset) == 0) most_.clear();
    std::uint64_t & most = most_[offset];
    if (count <= most) return;
    s_totalBytes += count - most;
    most = count;
}

std::uint64_t ReadProgress::totalBytes() {
    return s_totalBytes;
}

} // namespace ZMT::CORE
