#pragma once

#include <atomic>
#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace ZMT::CORE {

/// Memory for numbers that several share and nobody changes once it is filled; the last of them frees it. For
/// the lists of patches, of which a tree has hundreds of thousands: a block is a pointer, and has a counter
/// in front. Copies may be made and dropped on any thread.
class PatchBlock {
public:
    /// No memory.
    PatchBlock() = default;
    /// Memory of unknown content, aligned for numbers of 4 bytes.
    explicit PatchBlock(std::size_t bytes) : head_(::new (::operator new(sizeof(Head) + bytes)) Head{1}) {}
    PatchBlock(const PatchBlock & other) : head_(other.head_) {
        if (head_) head_->holders.fetch_add(1, std::memory_order_relaxed);
    }
    PatchBlock(PatchBlock && other) noexcept : head_(std::exchange(other.head_, nullptr)) {}
    PatchBlock & operator=(PatchBlock other) noexcept {
        std::swap(head_, other.head_);
        return *this;
    }
    ~PatchBlock() {
        if (head_ && head_->holders.fetch_sub(1, std::memory_order_acq_rel) == 1) ::operator delete(head_);
    }

    /// Null without memory.
    void * data() const { return head_ ? head_ + 1 : nullptr; }

private:
    struct Head {
        std::atomic<unsigned> holders;
    };
    static_assert(sizeof(Head) == 4 && std::is_trivially_destructible_v<Head>);

    Head * head_ = nullptr;
};

} // namespace ZMT::CORE
