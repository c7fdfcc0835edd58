#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>

#include "readengine.h"

namespace ZMT::CORE::IMPL {

/// Threads that read, one for each read under way, started with the first reads and never ended. They touch
/// the bytes and the read that they carry out, nothing else.
class ThreadReadEngine : public ReadEngine {
public:
    void start(FileRead & read) override;
    void poll() override {}
    void wait(double seconds) override;

private:
    void run();
    FileRead & nextRead();
    /// False when there is no thread at all and none could be started.
    bool haveThread();

    std::mutex mutex_; ///< of all below
    std::condition_variable hasWork_, hasEnded_;
    std::deque<FileRead *> waiting_;
    std::size_t threads_ = 0, idle_ = 0;
    unsigned ended_ = 0; ///< counts reads, so that none is missed
    unsigned seen_ = 0;  ///< those that the caller knows of
};

} // namespace ZMT::CORE::IMPL
