#pragma once

#include <atomic>
#include <memory>

#include <nbx/object/sharedobj.h>

namespace ZMT::CORE {

/// Work on a thread of its own: a subclass puts it into `run`.
///
/// There is no join and no stop request. A subclass that must end its thread sets a flag of its own, and the
/// owner looks at `isRunning()` between calls of `sleep`. The object must not be destroyed while `run` uses
/// it. An exception that leaves `run` ends the process.
class Thread : public NBX::SharedObj {
    NBX_CLASS(Thread, NBX::SharedObj)
public:
    /// What the system's scheduler prefers. A thread gets a nice value above or below that of the thread
    /// that starts it; where the process lacks the right to raise it, it stays.
    enum Priority : int {
        P_Idle,
        P_Lowest,
        P_BelowNormal,
        P_Normal,
        P_AboveNormal,
        P_Highest,
        P_TimeCritical,
    };

    /// Creates nothing in the system yet.
    ///
    /// With `keepsRunning` the destructor lets a started thread go on by itself; when `run` has returned, the
    /// system's thread is gone as well. Without, it cancels the thread and waits for its end: the thread ends
    /// where it next sleeps or waits, with its stack unwound, and one that never does so is waited for until
    /// `run` returns.
    explicit Thread(Priority priority = P_Normal, bool keepsRunning = true);
    /// Has the fields of `other`; it is no second thread.
    Thread(const Thread & other);
    Thread & operator=(const Thread & other);
    ~Thread() override;

    virtual void run() = 0;

    /// Starts `run` on a new thread. One that runs already is reported under "!isRunning_" with "thread
    /// already running", and another thread is started all the same.
    void start();
    /// From `start` until `run` has returned; false when the system has no thread left. What `run` did is
    /// visible to the thread that sees false.
    bool isRunning() const { return isRunning_.load(std::memory_order_acquire); }

    /// Whole milliseconds; less than one gives up the time slice. The number of milliseconds is taken modulo
    /// 2^32.
    static void sleep(double seconds);

private:
    struct Impl;
    struct Start;
    static void * entry(void * start);
    void callRun(std::atomic<bool> & hasEnded);

    /// The latest system thread; null until the first `start`.
    std::shared_ptr<Impl> impl_;
    Priority priority_;
    bool keepsRunning_;
    std::atomic<bool> isRunning_{false};
};

} // namespace ZMT::CORE
