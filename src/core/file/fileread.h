#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <sys/stat.h>

namespace ZMT::CORE::IMPL {

/// A regular file that is open for reading, past the system's cache where its file system allows that.
/// Closed with its last holder: the reads that are under way are among them.
class OpenFile {
public:
    /// Null, with the text of the system or what is wrong, for what cannot be opened.
    static std::shared_ptr<OpenFile> open(const std::string & path, std::wstring & error);
    ~OpenFile();
    OpenFile(const OpenFile &) = delete;
    OpenFile & operator=(const OpenFile &) = delete;

    int handle() const { return handle_; }
    /// When it was opened.
    std::uint64_t size() const { return static_cast<std::uint64_t>(status_.st_size); }
    /// Whether another file lies at `path` now, or this one was written to since it was opened. False where
    /// nothing lies there.
    bool isReplacedAt(const std::string & path) const;
    /// Reads that begin from now on go through the system's cache. False with the system's error where they
    /// do not. From any thread.
    bool makeBuffered();

private:
    OpenFile(int handle, const struct stat & status) : handle_(handle), status_(status) {}

    int handle_;
    struct stat status_; ///< when it was opened
};

/// One read of whole blocks of a file into memory, which the system may carry out in parts. Its engine
/// changes it until `isOwed` is false; until then neither it nor the memory may go.
class FileRead {
public:
    /// Positions, sizes and targets are multiples of it.
    static constexpr std::uint64_t s_block = 4096;

    /// Blocks behind the end of the file are left out.
    FileRead(std::shared_ptr<OpenFile> file, std::uint64_t position, void * target, std::uint64_t bytes);

    /// For the engine: it has taken the read over, and has let go of it. What the read has written is seen by
    /// who sees that it is no longer owed.
    void begin();
    void end();
    bool isOwed() const { return isOwed_.load(std::memory_order_acquire); }
    /// All reads of the process that engines have.
    static std::size_t countOwed();
    /// Nobody wants the bytes any more: what has not yet begun is left out.
    void cancel() { isCanceled_.store(true, std::memory_order_relaxed); }

    /// The part that is to be read next.
    int handle() const { return file_->handle(); }
    std::uint64_t nextPosition() const { return position_ + next_; }
    char * nextTarget() const { return target_ + next_; }
    std::size_t nextBytes() const;
    /// Takes what the system gave for that part: the number of bytes, or minus the number of the error. True
    /// when there is a further part, which may be the same one again.
    bool take(std::int64_t result);
    /// There is nothing left to ask the system for.
    bool isComplete() const;

    // Once it is no longer owed:
    /// Bytes that were read, from the start on.
    std::uint64_t got() const { return got_; }
    /// Number of the system's error, or 0.
    int error() const { return error_; }
    void fail(int error) { error_ = error; }

private:
    bool takeError(int error);
    bool isBusyForTooLong();

    std::shared_ptr<OpenFile> file_;
    std::uint64_t position_;
    char * target_;
    std::uint64_t bytes_;    ///< whole blocks
    std::uint64_t next_ = 0; ///< where the next part begins
    std::uint64_t got_ = 0;  ///< where the last one ended
    int error_ = 0;
    bool isRefused_ = false;          ///< the system would not read it past its cache
    std::optional<double> busySince_; ///< the device has been too busy since then
    std::atomic<bool> isOwed_{false};
    std::atomic<bool> isCanceled_{false};
};

} // namespace ZMT::CORE::IMPL
