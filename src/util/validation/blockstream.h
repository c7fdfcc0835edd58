#pragma once

#include <cstdint>
#include <string>

#include <nbx/data/dataresource.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/grid/model/tileref.h>

#include "checkedfile.h"

namespace ZMT::UTIL {

/// The blocks of a streaming terrain or a streaming texture, which both have in common: where they lie, how
/// they are stored, and that they do not touch each other.
class BlockStream {
public:
    using TileRef = CORE::GRID::TileRef;

    /// A reference, and where it stands.
    struct Named {
        TileRef ref;
        std::uint64_t at = 0;         ///< of the reference, in the file
        std::string name;             ///< of what it refers to, such as "the root"
        std::uint64_t before = 0;     ///< in the stream: blocks lie before those that refer to them
        CheckedFile::Request request; ///< null while it is not asked for
        std::uint64_t wrongZero = 0;  ///< the first byte behind the block that should be zero, if any

        /// With where it is referred to, for blocks that are something else.
        std::string fullName() const { return name + ", referred to at " + std::to_string(at); }
    };

    /// Of `size` bytes from `base` on, behind a header of 256 bytes. `file` is borrowed.
    BlockStream(CheckedFile & file, std::uint64_t base, std::uint64_t size, std::uint64_t key)
        : file_(file), base_(base), size_(size), key_(key) {}

    /// Whether the block may be read; faults of the reference are noted.
    bool accepts(const Named & named);
    /// Begins to read a block that was accepted.
    void ask(Named & named) const;
    /// The block as it was before it was stored. Null, and noted, where it cannot be read, does not inflate,
    /// or has bytes of another one.
    NBX::SO<NBX::DataResource> read(Named & named);
    /// The block that was read is what it stands for: its bytes belong to it.
    void take(const Named & named);
    /// Where a byte of a block lies in the file; the beginning of those that are deflated.
    std::uint64_t position(const TileRef & ref, std::size_t offset) const;
    /// Bytes that belong to no block.
    void noteGaps();

    CheckedFile & file() { return file_; }

private:
    std::uint64_t begin(const TileRef & ref) const { return base_ + ref.offset; }
    /// With the padding.
    std::uint64_t end(const TileRef & ref) const;

    CheckedFile & file_;
    const std::uint64_t base_, size_, key_;
};

} // namespace ZMT::UTIL
