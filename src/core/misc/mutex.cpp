#include <zmt/core/misc/mutex.h>

#include <pthread.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(Mutex, NBX::SharedObj)

struct Mutex::Impl {
    Impl() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~Impl() { pthread_mutex_destroy(&mutex); }
    Impl(const Impl &) = delete;
    Impl & operator=(const Impl &) = delete;

    pthread_mutex_t mutex;
};

Mutex::Mutex(bool locked) : impl_(std::make_shared<Impl>()) {
    if (locked) pthread_mutex_lock(&impl_->mutex);
}

Mutex::~Mutex() = default;

void Mutex::lock() {
    pthread_mutex_lock(&impl_->mutex);
}

void Mutex::unlock() {
    pthread_mutex_unlock(&impl_->mutex);
}

MutexLocker::MutexLocker(Mutex * mutex) : mutex_(mutex) {
    if (mutex_) mutex_->lock();
}

MutexLocker::~MutexLocker() {
    if (mutex_) mutex_->unlock();
}

} // namespace ZMT::CORE
