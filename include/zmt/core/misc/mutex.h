#pragma once

#include <memory>

#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace ZMT::CORE {

/// A recursive lock: the thread that owns it may lock it again, and unlocks it as often. Unlocking from
/// another thread does nothing. Destroying it neither unlocks nor wakes anybody.
class Mutex : public NBX::SharedObj {
    NBX_CLASS(Mutex, NBX::SharedObj)
public:
    /// Locked by the calling thread at once if `locked`.
    explicit Mutex(bool locked = false);
    /// Stands for the same lock.
    Mutex(const Mutex & other) = default;
    Mutex & operator=(const Mutex & other) = default;
    ~Mutex() override;

    /// Waits without limit.
    virtual void lock();
    virtual void unlock();

private:
    struct Impl;
    std::shared_ptr<Impl> impl_;
};

/// Holds a mutex locked while it lives, and keeps it alive. A null mutex means no locking.
class MutexLocker {
public:
    explicit MutexLocker(Mutex * mutex);
    MutexLocker(const MutexLocker &) = delete;
    MutexLocker & operator=(const MutexLocker &) = delete;
    ~MutexLocker();

private:
    NBX::SO<Mutex> mutex_;
};

} // namespace ZMT::CORE
