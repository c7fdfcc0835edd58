#pragma once

#include <cstdint>

#include <nbx/data/file.h>
#include <nbx/object/progress.h>
#include <nbx/object/so.h>

#include "tileblockqueue.h"

namespace ZMT::CORE {

/// Writes one stream from the position of a file on: a header that nobody can read, the tiles, and at last
/// the header again. Used by one thread. Throws `NBX::IOException`.
class StreamingTextureWriter {
public:
    using Handle = TileBlockQueue::Handle;
    using Children = TileBlockQueue::Children;

    /// Writes the blank header.
    StreamingTextureWriter(const NBX::SO<NBX::File> & file, std::uint64_t key, unsigned threads);

    /// Of the progress, from 0 to 1; false when the user cancelled.
    bool update(double value) { return progress_.update(value); }
    bool isCanceled() const { return progress_.isCanceled(); }
    TileBlockQueue & tiles() { return tiles_; }

    /// Writes what is left, and the header. The file's position is its end.
    void finish(const Handle & root);

private:
    void writeHeader(StreamingTextureFormat::StreamHeader header, std::uint64_t key);

    const NBX::SO<NBX::File> file_;
    const std::uint64_t key_;
    const std::uint64_t base_;
    NBX::Progress progress_;
    TileBlockQueue tiles_;
};

} // namespace ZMT::CORE
