#include "pagestore.h"

#include <algorithm>
#include <array>
#include <bit>
#include <mutex>
#include <utility>
#include <vector>

#include "filecalls.h"

namespace ZMT::CORE::IMPL {

namespace {

constexpr std::size_t s_smallest = 4096;

/// Blocks of similar sizes serve for each other.
std::size_t capacityOf(std::size_t bytes) {
    return bytes > PageStore::s_largestKept ? bytes : std::bit_ceil(std::max(bytes, s_smallest));
}

/// Never destroyed, since data may outlive everything.
struct Kept {
    std::mutex mutex;
    std::size_t bytes = 0;
    /// By the power of two of their size.
    std::array<std::vector<void *>, std::bit_width(PageStore::s_largestKept)> blocks;
};

Kept & kept() {
    static Kept & instance = *new Kept;
    return instance;
}

std::vector<void *> & blocksOf(std::size_t capacity) {
    return kept().blocks[static_cast<std::size_t>(std::countr_zero(capacity))];
}

} // namespace

void * PageStore::take(std::size_t bytes) {
    const std::size_t capacity = capacityOf(bytes);
    if (capacity <= s_largestKept) {
        const std::lock_guard lock(kept().mutex);
        std::vector<void *> & blocks = blocksOf(capacity);
        if (!blocks.empty()) {
            void * pages = blocks.back();
            blocks.pop_back();
            kept().bytes -= capacity;
            return pages;
        }
    }
    return fileCalls().allocate(capacity);
}

bool PageStore::give(void * pages, std::size_t bytes) {
    const std::size_t capacity = capacityOf(bytes);
    if (capacity <= s_largestKept) {
        const std::lock_guard lock(kept().mutex);
        if (kept().bytes + capacity <= s_mostKept) {
            blocksOf(capacity).push_back(pages);
            kept().bytes += capacity;
            return true;
        }
    }
    return fileCalls().release(pages, capacity) == 0;
}

void PageStore::clear() {
    const std::lock_guard lock(kept().mutex);
    for (std::size_t power = 0; power < kept().blocks.size(); ++power)
        for (void * pages : std::exchange(kept().blocks[power], {}))
            fileCalls().release(pages, std::size_t(1) << power);
    kept().bytes = 0;
}

} // namespace ZMT::CORE::IMPL
