#pragma once

#include <memory>

namespace ZMT::CORE {

/// The event loop that files on web servers need, for programs that have none of their own: makes the
/// application object of the process where there is none, on the calling thread, which is from then on the
/// one of these files. Made before the first of them is opened, and gone after the last.
class EventLoop {
public:
    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop &) = delete;
    EventLoop & operator=(const EventLoop &) = delete;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_; ///< null where there was an application object
};

} // namespace ZMT::CORE
