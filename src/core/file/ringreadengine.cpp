#include "ringreadengine.h"

#include <cerrno>
#include <utility>

#include <liburing.h>

#include "filecalls.h"

namespace ZMT::CORE::IMPL {

namespace {

/// Rings came before this way of reading did.
bool canRead(io_uring & ring) {
    io_uring_probe * probe = ::io_uring_get_probe_ring(&ring);
    const bool result = probe && ::io_uring_opcode_supported(probe, IORING_OP_READ);
    ::io_uring_free_probe(probe);
    return result;
}

} // namespace

std::unique_ptr<RingReadEngine> RingReadEngine::create(ReadEngine & replacement) {
    auto ring = std::make_unique<io_uring>();
    if (fileCalls().ringInit(s_mostReads, ring.get(), 0) < 0) return nullptr;
    const bool isUsable = canRead(*ring);
    std::unique_ptr<RingReadEngine> engine(new RingReadEngine(std::move(ring), replacement));
    return isUsable ? std::move(engine) : nullptr;
}

RingReadEngine::RingReadEngine(std::unique_ptr<io_uring> ring, ReadEngine & replacement)
    : ring_(std::move(ring)), replacement_(replacement) {}

RingReadEngine::~RingReadEngine() {
    ::io_uring_queue_exit(ring_.get());
}

void RingReadEngine::start(FileRead & read) {
    read.begin();
    prepare(read);
    submit();
}

void RingReadEngine::prepare(FileRead & read) {
    if (read.isComplete()) {
        read.end();
        return;
    }
    prepared_.push_back(&read);
    io_uring_sqe * entry = isAbandoned_ ? nullptr : ::io_uring_get_sqe(ring_.get());
    if (!entry) return;
    ::io_uring_prep_read(entry, read.handle(), read.nextTarget(), static_cast<unsigned>(read.nextBytes()),
                         read.nextPosition());
    ::io_uring_sqe_set_data(entry, &read);
}

void RingReadEngine::submit() {
    while (!prepared_.empty() && !isAbandoned_) {
        const int taken = fileCalls().ringSubmit(ring_.get());
        if (taken == -EINTR) continue;
        if (taken <= 0)
            isAbandoned_ = true;
        else
            prepared_.erase(prepared_.begin(), prepared_.begin() + taken);
    }
    if (isAbandoned_) abandon();
}

/// What the kernel has not taken it never will, since it is not called again for that; what it has taken goes
/// on.
void RingReadEngine::abandon() {
    for (FileRead * read : std::exchange(prepared_, {})) {
        read->end();
        replacement_.start(*read);
    }
}

void RingReadEngine::poll() {
    io_uring_cqe * completion = nullptr;
    while (fileCalls().ringPeek(ring_.get(), &completion) == 0) {
        auto & read = *static_cast<FileRead *>(::io_uring_cqe_get_data(completion));
        const int result = completion->res;
        ::io_uring_cqe_seen(ring_.get(), completion);
        if (read.take(result))
            prepare(read);
        else
            read.end();
    }
    submit();
}

void RingReadEngine::wait(double seconds) {
    if (isAbandoned_)
        replacement_.wait(seconds);
    else
        fileCalls().ringWait(ring_.get(), seconds);
    poll();
}

} // namespace ZMT::CORE::IMPL
