#pragma once

#include <memory>
#include <string>

#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/misc/readprogress.h>

#include <nbx/object/wo.h>

#include "core/file/fileread.h"

namespace ZMT::CORE::IMPL {

/// A file on a disk, read in whole blocks past the system's cache where its file system allows that. All
/// files of the process share one queue, ordered by priority, of which at most 8 requests are read at a time.
/// It goes on reading what it has opened when its path is removed, or comes to mean another file.
class AsyncFile_Win : public AsyncFile {
    NBX_CLASS(AsyncFile_Win, AsyncFile)
public:
    class Request_Win;

    AsyncFile_Win(const std::wstring & path, bool deleteWhenClosed);
    /// What is still being read goes on, and its request ends with the last part.
    ~AsyncFile_Win() override;
    AsyncFile_Win(const AsyncFile_Win &) = delete;
    AsyncFile_Win & operator=(const AsyncFile_Win &) = delete;

    using AsyncFile::remove;
    using AsyncFile::requests;
    /// The absolute path.
    std::wstring url() const override { return path_; }
    std::wstring errorText() const override { return error_; }
    /// When it was opened.
    std::uint64_t size() const override { return file_ ? file_->size() : 0; }
    Requests requests() const override { return requests_; }
    NBX::SO<Request> request(std::uint64_t offset, std::uint64_t size, double priority) override;
    /// A request that waits fails with this; one that is being read goes on, and counts until it has ended.
    bool remove(const NBX::SO<Request> & request) override;
    bool isOpen() const override { return file_ != nullptr; }
    bool hasChanged() const override;

    static bool isLoading();
    static std::size_t pendingRequests();
    /// Bytes read since the process began.
    static std::uint64_t totalBytes();

private:
    std::wstring path_;
    std::shared_ptr<OpenFile> file_; ///< null when it is not open
    bool deleteWhenClosed_;
    Requests requests_;
    ReadProgress progress_;
    std::wstring error_;
};

/// A range of a local file, read with the whole blocks that it touches.
class AsyncFile_Win::Request_Win : public AsyncFile::Request {
    NBX_CLASS(Request_Win, AsyncFile::Request)
public:
    Request_Win(AsyncFile_Win * file, std::uint64_t offset, std::uint64_t size, double priority);
    /// Blocks until nobody writes to its bytes any more.
    ~Request_Win() override;
    Request_Win(const Request_Win &) = delete;
    Request_Win & operator=(const Request_Win &) = delete;

    NBX::SO<AsyncFile> file() const override;
    std::uint64_t offset() const override { return offset_; }
    NBX::SO<NBX::DataResource> data() const override { return data_; }
    double priority() const override { return priority_; }
    RequestState state() override;
    std::int64_t transferredBytes() const override { return transferred_; }
    bool wait() override;
    std::wstring errorText() const override { return error_; }
    bool setPriority(double priority) override;
    /// Begins to read; for queued requests alone.
    virtual RequestState start();

    /// Takes those whose reads have ended from the ones under way, and starts those of highest priority that
    /// wait.
    static void update();

private:
    friend class AsyncFile_Win;
    struct Schedule;
    static Schedule & schedule();

    void enqueue();
    bool dequeue();
    RequestState fail(const std::wstring & error);
    void finish();
    void clearBehind(std::uint64_t available);

    NBX::WO<AsyncFile_Win> file_;
    std::uint64_t offset_, size_;
    double priority_;
    std::uint64_t alignedOffset_;
    NBX::SO<NBX::DataResource> buffer_; ///< the whole blocks
    NBX::SO<NBX::DataResource> data_;   ///< the requested range of them
    std::int64_t transferred_ = -1;
    RequestState state_ = RS_Queued;
    std::unique_ptr<FileRead> read_; ///< null before it is started
    std::wstring error_;
};

} // namespace ZMT::CORE::IMPL
