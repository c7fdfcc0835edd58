#include "tilethreads.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace ZMT::CORE::GRID {

TileThreads::TileThreads(unsigned threads) {
    if (threads == 0) threads = std::max(1U, std::thread::hardware_concurrency());
    try {
        while (threads_.size() + 1 < threads)
            threads_.emplace_back([this] { serve(); });
    } catch (const std::system_error &) {
        // Those that there are do the work as well.
    }
}

TileThreads::~TileThreads() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stops_ = true;
        next_ = count_;
    }
    started_.notify_all();
    for (std::thread & thread : threads_)
        thread.join();
}

void TileThreads::start(std::size_t count, Work work) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        work_ = std::move(work);
        next_ = 0;
        count_ = count;
    }
    started_.notify_all();
}

void TileThreads::finish() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (workOnNext(lock)) {
    }
    if (const std::exception_ptr failure = end(lock)) std::rethrow_exception(failure);
}

void TileThreads::abandon() {
    std::unique_lock<std::mutex> lock(mutex_);
    next_ = count_;
    end(lock);
}

/// Waits for what is under way; the exception of the first work that failed.
std::exception_ptr TileThreads::end(std::unique_lock<std::mutex> & lock) {
    done_.wait(lock, [this] { return running_ == 0; });
    work_ = nullptr;
    next_ = count_ = 0;
    return std::exchange(failure_, nullptr);
}

void TileThreads::serve() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (true) {
        started_.wait(lock, [this] { return stops_ || next_ < count_; });
        if (stops_) return;
        workOnNext(lock);
    }
}

/// False when nothing is left to begin.
bool TileThreads::workOnNext(std::unique_lock<std::mutex> & lock) {
    if (next_ >= count_) return false;
    const std::size_t number = next_++;
    ++running_;
    lock.unlock();
    std::exception_ptr failure;
    try {
        work_(number);
    } catch (...) {
        failure = std::current_exception();
    }
    lock.lock();
    if (failure && (!failure_ || number < failedNumber_)) {
        failure_ = failure;
        failedNumber_ = number;
        next_ = count_;
    }
    if (--running_ == 0) done_.notify_all();
    return true;
}

} // namespace ZMT::CORE::GRID
