#pragma once

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <limits>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <liburing.h>
#include <unistd.h>

#include <core/file/filecalls.h>

/// While it lives, the calls of the system by which local files are read give what a test wants, the same for
/// whoever carries out the reads. Nothing is being read when it is made and when it goes.
class ScriptedFileCalls {
public:
    ScriptedFileCalls() : before_(ZMT::CORE::IMPL::fileCalls()) {
        s_ = this;
        ZMT::CORE::IMPL::FileCalls & calls = ZMT::CORE::IMPL::fileCalls();
        calls.open = [](const char * path, int flags) { return s_->open(path, flags); };
        calls.fstat = [](int file, struct stat * status) {
            return s_->fstatError == 0 ? s_->before_.fstat(file, status) : failed(s_->fstatError);
        };
        calls.read = [](int file, void * target, std::size_t bytes, off_t position) {
            return s_->read(file, target, bytes, position);
        };
        calls.unlink = [](const char * path) { return ++s_->unlinks, s_->before_.unlink(path); };
        calls.close = [](int file) { return ++s_->closes, s_->before_.close(file); };
        calls.allocate = [](std::size_t bytes) -> void * {
            if (s_->allocateError == 0) s_->allocated += static_cast<std::int64_t>(bytes);
            if (s_->allocateError == 0) return s_->before_.allocate(bytes);
            errno = s_->allocateError;
            return nullptr;
        };
        calls.release = [](void * pages, std::size_t bytes) {
            ++s_->releases;
            s_->allocated -= static_cast<std::int64_t>(bytes);
            const int result = s_->before_.release(pages, bytes);
            return s_->releaseError == 0 ? result : failed(s_->releaseError);
        };
        calls.now = [] { return s_->before_.now() + s_->laterSeconds; };
        calls.ringInit = [](unsigned entries, io_uring * ring, unsigned flags) {
            return s_->ringInitError == 0 ? s_->before_.ringInit(entries, ring, flags) : -s_->ringInitError;
        };
        calls.ringSubmit = [](io_uring * ring) { return s_->submit(ring); };
        calls.ringPeek = [](io_uring * ring, io_uring_cqe ** completion) {
            return s_->peek(ring, completion);
        };
        calls.ringWait = [](io_uring * ring, double seconds) { return s_->wait(ring, seconds); };
    }
    ~ScriptedFileCalls() {
        ZMT::CORE::IMPL::fileCalls() = before_;
        s_ = nullptr;
    }
    ScriptedFileCalls(const ScriptedFileCalls &) = delete;
    ScriptedFileCalls & operator=(const ScriptedFileCalls &) = delete;

    /// What the next reads give, whichever they are: minus the number of an error, or the most bytes.
    void answer(const std::vector<int> & results) {
        const std::lock_guard lock(mutex_);
        answers_.insert(answers_.end(), results.begin(), results.end());
    }
    /// Every read, those of `answer` aside.
    void answerAlways(int result) {
        const std::lock_guard lock(mutex_);
        always_ = result;
    }
    std::size_t answersLeft() const {
        const std::lock_guard lock(mutex_);
        return answers_.size();
    }
    /// Reads begin and do not end until `release`.
    void hold() {
        const std::lock_guard lock(mutex_);
        isHeld_ = true;
    }
    void release() {
        const std::lock_guard lock(mutex_);
        isHeld_ = false;
        released_.notify_all();
    }
    /// Lets one of those end that are held.
    void releaseOne() {
        const std::lock_guard lock(mutex_);
        ++passes_;
        released_.notify_all();
    }

    /// Errors of the next calls, or 0.
    int fstatError = 0, allocateError = 0, releaseError = 0;
    /// Of opening past the system's cache, and of opening at all.
    int directError = 0, openError = 0;
    /// So many of the next calls to open are interrupted.
    int interruptedOpens = 0;
    /// What the ring gives when it is handed reads, or 0 for what it does; after so many more calls.
    static constexpr int s_takesNothing = 1;
    int submitError = 0, submitsBefore = 0;
    int interruptedSubmits = 0, ringInitError = 0;
    /// Reads that the system has, or has had, and those that have ended.
    std::atomic<int> begun{0}, reads{0};
    /// Bytes of memory that are taken.
    std::atomic<std::int64_t> allocated{0};
    std::atomic<int> releases{0}, submits{0}, closes{0}, unlinks{0}, opens{0};
    /// How far the clock is ahead of the system's.
    std::atomic<double> laterSeconds{0.0};

private:
    static int failed(int error) {
        errno = error;
        return -1;
    }

    int open(const char * path, int flags) {
        ++opens;
        if (interruptedOpens-- > 0) return failed(EINTR);
        if (openError != 0) return failed(openError);
        if (directError != 0 && (flags & O_DIRECT)) return failed(directError);
        return before_.open(path, flags);
    }

    std::optional<int> nextAnswer() {
        const std::lock_guard lock(mutex_);
        if (answers_.empty()) return always_;
        const int answer = answers_.front();
        answers_.pop_front();
        return answer;
    }

    ssize_t read(int file, void * target, std::size_t bytes, off_t position) {
        {
            std::unique_lock lock(mutex_);
            ++begun;
            released_.wait(lock, [this] { return !isHeld_ || passes_ > 0; });
            if (isHeld_) --passes_;
        }
        ++reads;
        const int answer = nextAnswer().value_or(std::numeric_limits<int>::max());
        if (answer < 0) return failed(-answer);
        return before_.read(file, target, std::min(bytes, static_cast<std::size_t>(answer)), position);
    }

    int submit(io_uring * ring) {
        ++submits;
        if (interruptedSubmits-- > 0) return -EINTR;
        if (submitError != 0 && submitsBefore-- <= 0) return std::min(submitError, 0);
        const int taken = before_.ringSubmit(ring);
        if (taken > 0) begun += taken;
        return taken;
    }

    bool isHeld() const {
        const std::lock_guard lock(mutex_);
        return isHeld_ && passes_ == 0;
    }
    void pass() {
        const std::lock_guard lock(mutex_);
        if (isHeld_) --passes_;
    }

    int peek(io_uring * ring, io_uring_cqe ** completion) {
        if (isHeld()) return -EAGAIN;
        const int result = before_.ringPeek(ring, completion);
        if (result != 0) return result;
        pass();
        ++reads;
        const int answer = nextAnswer().value_or(std::numeric_limits<int>::max());
        (*completion)->res = answer < 0 ? answer : std::min((*completion)->res, answer);
        return 0;
    }

    int wait(io_uring * ring, double seconds) {
        if (!isHeld()) return before_.ringWait(ring, seconds);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return -ETIME;
    }

    static inline ScriptedFileCalls * s_ = nullptr;

    const ZMT::CORE::IMPL::FileCalls before_;
    mutable std::mutex mutex_; ///< of the rest
    std::condition_variable released_;
    std::deque<int> answers_;
    std::optional<int> always_;
    bool isHeld_ = false;
    int passes_ = 0;
};
