#include "filecalls.h"

#include <ctime>

#include <fcntl.h>
#include <liburing.h>
#include <sys/mman.h>
#include <unistd.h>

namespace ZMT::CORE::IMPL {

namespace {

int openFile(const char * path, int flags) {
    return ::open(path, flags);
}

int setFlags(int file, int flags) {
    return ::fcntl(file, F_SETFL, flags);
}

/// Pages that nobody touches take no memory: what is not read stays free.
void * allocate(std::size_t bytes) {
    void * pages =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return pages == MAP_FAILED ? nullptr : pages;
}

double now() {
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

int peek(io_uring * ring, io_uring_cqe ** completion) {
    return ::io_uring_peek_cqe(ring, completion);
}

int wait(io_uring * ring, double seconds) {
    io_uring_cqe * completion = nullptr;
    __kernel_timespec limit{0, static_cast<long long>(seconds * 1e9)};
    return ::io_uring_wait_cqe_timeout(ring, &completion, &limit);
}

} // namespace

FileCalls & fileCalls() {
    static FileCalls calls = {
        .open = openFile,
        .fstat = ::fstat,
        .stat = ::stat,
        .setFlags = setFlags,
        .read = ::pread,
        .close = ::close,
        .unlink = ::unlink,
        .allocate = allocate,
        .release = ::munmap,
        .now = now,
        .ringInit = ::io_uring_queue_init,
        .ringSubmit = ::io_uring_submit,
        .ringPeek = peek,
        .ringWait = wait,
    };
    return calls;
}

} // namespace ZMT::CORE::IMPL
