#include "threadreadengine.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>
#include <thread>

#include <pthread.h>

#include "filecalls.h"

namespace ZMT::CORE::IMPL {

namespace {

/// How long a thread leaves a busy device alone.
constexpr std::chrono::milliseconds s_pause(1);

/// While it lives, threads start without hearing the signals that are meant for the program.
class NoSignals {
public:
    NoSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~NoSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    NoSignals(const NoSignals &) = delete;
    NoSignals & operator=(const NoSignals &) = delete;

private:
    sigset_t before_;
};

void carryOut(FileRead & read) {
    while (!read.isComplete()) {
        const ssize_t count = fileCalls().read(read.handle(), read.nextTarget(), read.nextBytes(),
                                               static_cast<off_t>(read.nextPosition()));
        const int error = count < 0 ? errno : 0;
        if (!read.take(count < 0 ? -error : count)) return;
        if (error == EAGAIN) std::this_thread::sleep_for(s_pause);
    }
}

} // namespace

bool ThreadReadEngine::haveThread() {
    if (idle_ > waiting_.size() || threads_ == s_mostReads) return true;
    try {
        const NoSignals noSignals;
        std::thread([this] { run(); }).detach();
        ++threads_;
    } catch (const std::system_error &) {
        return threads_ > 0;
    }
    return true;
}

void ThreadReadEngine::start(FileRead & read) {
    read.begin();
    {
        const std::lock_guard lock(mutex_);
        if (haveThread()) {
            waiting_.push_back(&read);
            hasWork_.notify_one();
            return;
        }
    }
    read.fail(EAGAIN);
    read.end();
}

void ThreadReadEngine::wait(double seconds) {
    std::unique_lock lock(mutex_);
    hasEnded_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return ended_ != seen_; });
    seen_ = ended_;
}

FileRead & ThreadReadEngine::nextRead() {
    std::unique_lock lock(mutex_);
    ++idle_;
    hasWork_.wait(lock, [this] { return !waiting_.empty(); });
    --idle_;
    FileRead & read = *waiting_.front();
    waiting_.pop_front();
    return read;
}

void ThreadReadEngine::run() {
    while (true) {
        FileRead & read = nextRead();
        carryOut(read);
        read.end(); // its owner may destroy it from here on
        const std::lock_guard lock(mutex_);
        ++ended_;
        hasEnded_.notify_one();
    }
}

} // namespace ZMT::CORE::IMPL
