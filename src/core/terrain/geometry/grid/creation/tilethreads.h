#pragma once

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace ZMT::CORE::GRID {

/// Threads that do the same work on many tiles, side by side and in no order. Used by one thread, which is
/// one of them.
class TileThreads {
public:
    using Work = std::function<void(std::size_t)>;

    /// So many in all; 0 stands for one for each core. Fewer where the system gives no more.
    explicit TileThreads(unsigned threads);
    /// Waits for what is under way.
    ~TileThreads();
    TileThreads(const TileThreads &) = delete;
    TileThreads & operator=(const TileThreads &) = delete;

    unsigned threads() const { return static_cast<unsigned>(threads_.size()) + 1; }

    /// The others begin `work(0)` to `work(count - 1)`. Only after `finish` of what was started before.
    void start(std::size_t count, Work work);
    /// Takes part until all is done. Throws the exception of the work that came first by its number; what had
    /// not begun by then is left out.
    void finish();
    void run(std::size_t count, Work work) {
        start(count, std::move(work));
        finish();
    }
    /// Leaves out what has not begun, and waits for the rest, whose exceptions are dropped. Nothing to do
    /// after `finish`.
    void abandon();

private:
    void serve();
    bool workOnNext(std::unique_lock<std::mutex> & lock);
    std::exception_ptr end(std::unique_lock<std::mutex> & lock);

    std::mutex mutex_; ///< guards what follows
    std::condition_variable started_, done_;
    Work work_;
    std::size_t next_ = 0, count_ = 0, running_ = 0;
    std::size_t failedNumber_ = 0;
    std::exception_ptr failure_;
    bool stops_ = false;

    std::vector<std::thread> threads_;
};

/// Abandons what is under way when it goes out of scope, so that what the work looks at can go.
class AbandonedTileWork {
public:
    explicit AbandonedTileWork(TileThreads & threads) : threads_(threads) {}
    ~AbandonedTileWork() { threads_.abandon(); }
    AbandonedTileWork(const AbandonedTileWork &) = delete;
    AbandonedTileWork & operator=(const AbandonedTileWork &) = delete;

private:
    TileThreads & threads_;
};

} // namespace ZMT::CORE::GRID
