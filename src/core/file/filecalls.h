#pragma once

#include <cstddef>

#include <sys/stat.h>
#include <sys/types.h>

struct io_uring;
struct io_uring_cqe;

namespace ZMT::CORE::IMPL {

/// The calls of the system by which local files are read, each with its usual result and errors. One table
/// for the process, so that tests can make the calls fail; it is changed only while nothing is read.
struct FileCalls {
    int (*open)(const char * path, int flags);
    int (*fstat)(int file, struct stat * status);
    int (*stat)(const char * path, struct stat * status);
    /// Of an open file: `F_SETFL`.
    int (*setFlags)(int file, int flags);
    ssize_t (*read)(int file, void * target, std::size_t bytes, off_t position);
    int (*close)(int file);
    int (*unlink)(const char * path);
    /// Whole pages, zeroed; null where there are none.
    void * (*allocate)(std::size_t bytes);
    int (*release)(void * pages, std::size_t bytes);
    /// In seconds, by a clock that is never set.
    double (*now)();
    /// The next four give minus the number of the error.
    int (*ringInit)(unsigned entries, io_uring * ring, unsigned flags);
    int (*ringSubmit)(io_uring * ring);
    int (*ringPeek)(io_uring * ring, io_uring_cqe ** completion);
    /// For something to peek at.
    int (*ringWait)(io_uring * ring, double seconds);
};

FileCalls & fileCalls();

} // namespace ZMT::CORE::IMPL
