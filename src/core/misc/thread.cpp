#include <zmt/core/misc/thread.h>

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <iterator>
#include <utility>

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>

#include <nbx/object/errorhandler.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(Thread, NBX::SharedObj)

namespace {

/// Added to the nice value, by priority.
constexpr int s_niceness[] = {19, 10, 5, 0, -5, -10, -19};

/// On this system the nice value belongs to the thread, and a new thread starts with its creator's.
void setOwnPriority(Thread::Priority priority) {
    const auto i = static_cast<unsigned>(priority);
    if (i >= std::size(s_niceness) || s_niceness[i] == 0) return;
    errno = 0;
    const int nice = getpriority(PRIO_PROCESS, 0);
    if (errno == 0) setpriority(PRIO_PROCESS, 0, nice + s_niceness[i]);
}

/// The whole milliseconds, truncated to 64 and then to 32 bits; 0 for what 64 bits do not hold.
std::uint32_t milliseconds(double seconds) {
    constexpr double limit = 9223372036854775808.0; // 2^63
    const double ms = seconds * 1000.0;
    if (!(-limit <= ms && ms < limit)) return 0;
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(ms));
}

} // namespace

/// What a system thread begins with.
struct Thread::Start {
    Thread * thread;
    std::shared_ptr<std::atomic<bool>> hasEnded; ///< `run` has returned
};

/// One system thread.
struct Thread::Impl {
    Impl(pthread_t thread, bool goesOn, std::shared_ptr<const std::atomic<bool>> ended)
        : handle(thread), keepsRunning(goesOn), hasEnded(std::move(ended)) {}
    /// A thread whose work is done is waited for: at the end of the process it must not be about to go.
    ~Impl() {
        if (pthread_equal(handle, pthread_self()) || (keepsRunning && !*hasEnded)) {
            pthread_detach(handle);
            return;
        }
        if (!keepsRunning) pthread_cancel(handle);
        pthread_join(handle, nullptr);
    }
    Impl(const Impl &) = delete;
    Impl & operator=(const Impl &) = delete;

    const pthread_t handle;
    bool keepsRunning;
    const std::shared_ptr<const std::atomic<bool>> hasEnded;
};

Thread::Thread(Priority priority, bool keepsRunning) : priority_(priority), keepsRunning_(keepsRunning) {}

Thread::Thread(const Thread & other)
    : NBX::SharedObj(other), impl_(other.impl_), priority_(other.priority_),
      keepsRunning_(other.keepsRunning_), isRunning_(other.isRunning()) {}

Thread & Thread::operator=(const Thread & other) {
    if (this == &other) return *this;
    NBX::SharedObj::operator=(other);
    impl_ = other.impl_;
    priority_ = other.priority_;
    keepsRunning_ = other.keepsRunning_;
    isRunning_ = other.isRunning();
    return *this;
}

Thread::~Thread() = default;

void Thread::start() {
    NBX_CHECK(!isRunning_, L"thread already running");
    isRunning_ = true;
    auto start = std::make_unique<Start>(Start{this, std::make_shared<std::atomic<bool>>(false)});
    const auto hasEnded = start->hasEnded;
    pthread_t handle;
    if (pthread_create(&handle, nullptr, entry, start.get()) != 0) {
        // The flag is that of an earlier thread whose work goes on.
        if (!impl_ || *impl_->hasEnded) isRunning_ = false;
        return;
    }
    static_cast<void>(start.release());
    // The object forgets an earlier thread, which goes on.
    if (impl_) impl_->keepsRunning = true;
    impl_ = std::make_shared<Impl>(handle, keepsRunning_, hasEnded);
}

void * Thread::entry(void * start) {
    const std::unique_ptr<Start> owned(static_cast<Start *>(start));
    owned->thread->callRun(*owned->hasEnded);
    return nullptr;
}

void Thread::callRun(std::atomic<bool> & hasEnded) {
    setOwnPriority(priority_);
    run();
    hasEnded = true;
    // The owner may destroy this object from here on.
    isRunning_.store(false, std::memory_order_release);
}

void Thread::sleep(double seconds) {
    const std::uint32_t ms = milliseconds(seconds);
    if (ms == 0) {
        sched_yield();
        return;
    }
    timespec remaining{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR)
        continue;
}

} // namespace ZMT::CORE
