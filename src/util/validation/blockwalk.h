#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "blockstream.h"

namespace ZMT::UTIL {

/// Walks over a tree of blocks, depth first, while the next ones are on their way. A `Tile` has its reference
/// as the member `named`; only those between the root and the current one, and their children, are in memory.
template <class Tile> class BlockWalk {
protected:
    using Pointer = std::shared_ptr<Tile>;

    explicit BlockWalk(BlockStream & blocks) : blocks_(blocks) {}
    ~BlockWalk() = default;

    /// Reads a tile that was accepted, and pushes its children.
    virtual void open(const Pointer & tile) = 0;
    /// All below the tile is done.
    virtual void close(Tile &) {}

    /// The tile will be opened if its block can be read, before those that were pushed earlier.
    bool push(const Pointer & tile) {
        const bool isAccepted = blocks_.accepts(tile->named);
        if (isAccepted) steps_.push_back({tile, false});
        return isAccepted;
    }
    void walk() {
        while (!steps_.empty() && !blocks_.file().hasEnded()) {
            const Step step = steps_.back();
            if (step.isOpen) {
                steps_.pop_back();
                close(*step.tile);
                continue;
            }
            askAhead();
            steps_.back().isOpen = true;
            open(step.tile);
        }
    }

private:
    /// So many blocks, and bytes of them, are on their way.
    static constexpr std::size_t s_blocksAhead = 16;
    static constexpr std::uint64_t s_bytesAhead = 4U << 20U;

    struct Step {
        Pointer tile;
        bool isOpen;
    };

    void askAhead() {
        std::size_t blocks = 0;
        std::uint64_t bytes = 0;
        for (auto step = steps_.rbegin(); step != steps_.rend() && blocks < s_blocksAhead; ++step) {
            if (step->isOpen) continue;
            bytes += step->tile->named.ref.storedSize;
            if (blocks++ > 0 && bytes > s_bytesAhead) return;
            blocks_.ask(step->tile->named);
        }
    }

    BlockStream & blocks_;
    std::vector<Step> steps_;
};

} // namespace ZMT::UTIL
