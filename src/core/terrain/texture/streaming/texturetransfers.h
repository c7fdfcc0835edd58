#pragma once

#include <cstdint>

#include <nbx/engine/clock.h>
#include <nbx/object/so.h>
#include <zmt/core/misc/asyncfile.h>

namespace ZMT::CORE {

/// The reads of all streaming textures that are under way, and what they may do in one frame. Render thread.
///
/// A read that has not begun 0.25 s after it was first asked for gives way, since the view may have moved on;
/// who still wants it asks anew. One that has begun goes on while it is wanted, however slow the line is, and
/// ends 5 s after it was last wanted.
class TextureTransfers {
public:
    TextureTransfers() = delete;

    using Request = NBX::SO<AsyncFile::Request>;

    /// Notes that somebody wants `request` now.
    static void want(const Request & request);
    /// False once it was ended, or was never wanted.
    static bool contains(const Request & request);
    /// Takes `request` out, and from its file.
    static void end(const Request & request);

    /// At most two textures are made in a frame; those that somebody waits for are counted, but made in any
    /// case.
    static bool mayUpload(bool force);
    static void countUpload();

    /// Looks at all reads, which moves them on, and ends those whose time is over.
    static void beginFrame();
    /// The number of the present frame; 0 before the first one.
    static std::uint64_t frame();

    /// In seconds.
    static double now();
    /// Null for the clock of the system.
    static void setClock(const NBX::SO<NBX::Clock> & clock);
};

} // namespace ZMT::CORE
