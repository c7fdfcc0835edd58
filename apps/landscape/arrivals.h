#pragma once

#include <array>
#include <cstdint>

#include <nbx/object/nbxtime.h>
#include <zmt/core/misc/readprogress.h>
#include <zmt/core/terrain/texture/vector/vectortexture.h>

/// Notices that nothing arrives any more of what is read while it is looked at, and nothing is made of it.
class Arrivals {
public:
    /// Seconds without progress after which nothing more is expected, and how often one has asked meanwhile:
    /// on a busy machine a picture may take long, and what has been read is taken over several of them.
    static constexpr double s_patience = 10.0;
    static constexpr unsigned s_fewestAsks = 5;

    /// Bytes that are progress: with fewer within that time, nobody can wait for the end of a tile.
    static constexpr std::uint64_t s_fewestBytes = 1024;

    /// To be asked once a picture, or more often; `now` in seconds.
    bool haveEnded(double now = NBX::NBXTime::now());

private:
    /// In both kinds of it: what was read, and what was made of it, stays there.
    using MemoryInUse = std::array<std::uint64_t, 2>;
    static MemoryInUse memoryInUse();
    bool haveProgressed();

    std::uint64_t bytes_ = ZMT::CORE::ReadProgress::totalBytes();
    MemoryInUse memory_ = memoryInUse();
    unsigned long textures_ = ZMT::CORE::VectorTexture::renderCount(); ///< of overlays, which take long
    double last_ = NBX::NBXTime::now();
    unsigned asks_ = 0;
};
