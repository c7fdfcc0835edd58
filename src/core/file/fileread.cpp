// How the system's answers to a read are judged, the same for every engine. A part may be short in the middle
// of a file, on a signal or a busy device; then the rest is asked for from the last multiple of a sector, as
// reads past the cache must begin at one.

#include "fileread.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>

#include <nbx/object/errorhandler.h>

#include "filecalls.h"

namespace ZMT::CORE::IMPL {

namespace {

constexpr std::uint64_t s_sector = 512;

/// The most that one call is asked for, whole blocks: the system gives no more than 2 GiB at a time.
constexpr std::uint64_t s_largestPart = std::uint64_t(1) << 30;

/// A device that is too busy for so long has failed.
constexpr double s_longestBusySeconds = 5.0;

int openRegular(const std::string & path, int flags) {
    int handle;
    do
        handle = fileCalls().open(path.c_str(), flags);
    while (handle < 0 && errno == EINTR);
    return handle;
}

std::atomic<std::size_t> s_owed{0};

/// Empty for a regular file.
std::wstring problemOf(int handle, struct stat & status) {
    if (fileCalls().fstat(handle, &status) != 0) return NBX::ErrorHandler::getLastError();
    if (S_ISDIR(status.st_mode)) return L"this is a folder, no file";
    if (!S_ISREG(status.st_mode)) return L"this is a pipe or a device, no file";
    return {};
}

} // namespace

std::shared_ptr<OpenFile> OpenFile::open(const std::string & path, std::wstring & error) {
    // The writer of a pipe is not waited for.
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
    bool isDirect = true;
    int handle = openRegular(path, flags | O_DIRECT);
    if (handle < 0 && errno == EINVAL) {
        isDirect = false;
        handle = openRegular(path, flags);
    }
    if (handle < 0) {
        error = NBX::ErrorHandler::getLastError();
        return nullptr;
    }
    struct stat status {};
    error = problemOf(handle, status);
    // With the flag the kernel would refuse what it cannot give at once.
    if (error.empty() && fileCalls().setFlags(handle, isDirect ? O_DIRECT : 0) != 0)
        error = NBX::ErrorHandler::getLastError();
    if (error.empty()) return std::shared_ptr<OpenFile>(new OpenFile(handle, status));
    fileCalls().close(handle);
    return nullptr;
}

OpenFile::~OpenFile() {
    fileCalls().close(handle_);
}

bool OpenFile::isReplacedAt(const std::string & path) const {
    struct stat now {};
    if (fileCalls().stat(path.c_str(), &now) != 0) return false;
    return now.st_dev != status_.st_dev || now.st_ino != status_.st_ino || now.st_size != status_.st_size ||
           now.st_mtim.tv_sec != status_.st_mtim.tv_sec || now.st_mtim.tv_nsec != status_.st_mtim.tv_nsec;
}

bool OpenFile::makeBuffered() {
    return fileCalls().setFlags(handle_, 0) == 0;
}

FileRead::FileRead(std::shared_ptr<OpenFile> file, std::uint64_t position, void * target, std::uint64_t bytes)
    : file_(std::move(file)), position_(position), target_(static_cast<char *>(target)) {
    // The kernel would find memory for all that it is asked for.
    const std::uint64_t blocks = (file_->size() + s_block - 1) / s_block * s_block;
    bytes_ = std::min(bytes, blocks > position ? blocks - position : 0);
}

void FileRead::begin() {
    ++s_owed;
    isOwed_.store(true, std::memory_order_relaxed);
}

void FileRead::end() {
    --s_owed;
    isOwed_.store(false, std::memory_order_release);
}

std::size_t FileRead::countOwed() {
    return s_owed;
}

std::size_t FileRead::nextBytes() const {
    return static_cast<std::size_t>(std::min(bytes_ - next_, s_largestPart));
}

bool FileRead::isComplete() const {
    return error_ != 0 || isCanceled_.load(std::memory_order_relaxed) || got_ >= bytes_;
}

bool FileRead::take(std::int64_t result) {
    if (result < 0) return takeError(static_cast<int>(-result));
    busySince_.reset();
    const std::uint64_t before = got_;
    got_ = std::max(got_, next_ + static_cast<std::uint64_t>(result));
    next_ = got_ / s_sector * s_sector;
    const bool isAtEnd = got_ == before || position_ + got_ >= file_->size();
    return !isAtEnd && !isComplete();
}

bool FileRead::isBusyForTooLong() {
    const double now = fileCalls().now();
    if (!busySince_) busySince_ = now;
    return now - *busySince_ > s_longestBusySeconds;
}

bool FileRead::takeError(int error) {
    if (isCanceled_.load(std::memory_order_relaxed)) return false;
    if (error == EINTR) return true;
    if (error == EAGAIN && !isBusyForTooLong()) return true;
    // Some file systems and devices refuse only now what they seemed to allow, and that to several reads at
    // once: each of them tries the other way once.
    if (error == EINVAL && !std::exchange(isRefused_, true) && file_->makeBuffered()) return true;
    error_ = error;
    return false;
}

} // namespace ZMT::CORE::IMPL
