#pragma once

#include <csignal>

#include <sys/resource.h>

/// While it lives, no file of this process may become longer than so many bytes, as on a full disk.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit & operator=(const FileSizeLimit &) = delete;

private:
    void (*handler_)(int);
    rlimit before_{};
};
