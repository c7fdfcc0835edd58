#include <zmt/core/misc/semaphore.h>

#include <cerrno>
#include <climits>

#include <semaphore.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(Semaphore, NBX::SharedObj)

static_assert(SEM_VALUE_MAX == 0x7fffffff);

struct Semaphore::Impl {
    Impl() { sem_init(&semaphore, 0, 0); }
    ~Impl() { sem_destroy(&semaphore); }
    Impl(const Impl &) = delete;
    Impl & operator=(const Impl &) = delete;

    sem_t semaphore;
};

Semaphore::Semaphore() : impl_(std::make_shared<Impl>()) {}

Semaphore::~Semaphore() = default;

void Semaphore::increase() {
    sem_post(&impl_->semaphore);
}

void Semaphore::decrease() {
    // A signal handler ends the wait early.
    while (sem_wait(&impl_->semaphore) != 0 && errno == EINTR)
        continue;
}

} // namespace ZMT::CORE
