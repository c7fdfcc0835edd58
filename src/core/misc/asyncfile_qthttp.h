#pragma once

#include <memory>

#include <nbx/object/wo.h>
#include <zmt/core/misc/asyncfile.h>

namespace ZMT::CORE::IMPL {

class AsyncFile_QtHttpImpl;

/// A file on a web server that answers partial GET requests. Everything runs in the event loop of the thread
/// of the application object: requests proceed while that loop does, or within a wait.
class AsyncFile_QtHttp : public AsyncFile {
    NBX_CLASS(AsyncFile_QtHttp, AsyncFile)
public:
    /// `url` as `usableHttpUrl` takes it. Not open before `open`.
    explicit AsyncFile_QtHttp(const std::wstring & url);
    ~AsyncFile_QtHttp() override;

    /// Learns the length by asking for the first byte, and blocks until it knows. The same as `isOpen`.
    bool open();

    using AsyncFile::remove;
    using AsyncFile::requests;
    std::wstring url() const override;
    std::wstring errorText() const override;
    std::uint64_t size() const override;
    Requests requests() const override;
    NBX::SO<Request> request(std::uint64_t offset, std::uint64_t size, double priority) override;
    /// A request under way leaves the lists when it ends; false for it.
    bool remove(const NBX::SO<Request> & request) override;
    bool isOpen() const override;
    bool hasChanged() const override;

    AsyncFile_QtHttpImpl & impl() const { return *impl_; }

private:
    std::unique_ptr<AsyncFile_QtHttpImpl> impl_;
};

/// The bytes are copied into a block of its own as they arrive.
class AsyncFile_QtHttpRequest : public AsyncFile::Request {
    NBX_CLASS(AsyncFile_QtHttpRequest, AsyncFile::Request)
public:
    AsyncFile_QtHttpRequest(AsyncFile_QtHttp * file, std::uint64_t offset, std::uint64_t size,
                            double priority);
    ~AsyncFile_QtHttpRequest() override;

    NBX::SO<AsyncFile> file() const override { return file_.lock(); }
    std::uint64_t offset() const override { return offset_; }
    NBX::SO<NBX::DataResource> data() const override { return data_; }
    double priority() const override { return priority_; }
    AsyncFile::RequestState state() override;
    std::int64_t transferredBytes() const override { return transferred_; }
    bool wait() override;
    std::wstring errorText() const override { return error_; }
    bool setPriority(double priority) override;

    // For the file.
    std::uint64_t size() const { return data_->size(); }
    AsyncFile::RequestState currentState() const { return state_; }
    void start() { state_ = AsyncFile::RS_Processing; }
    void fail(const std::wstring & error);
    /// Ready when all bytes are there; else failed as "transfer incomplete".
    void complete();
    /// Where the next bytes go, `room()` of them at most.
    char * target();
    std::uint64_t room() const;
    void addTransferred(std::uint64_t count);
    void setRemoved() { isRemoved_ = true; }
    bool isRemoved() const { return isRemoved_; }

private:
    NBX::WO<AsyncFile_QtHttp> file_;
    std::uint64_t offset_;
    double priority_;
    NBX::SO<NBX::DataResource> data_;
    AsyncFile::RequestState state_ = AsyncFile::RS_Queued;
    std::int64_t transferred_ = -1;
    std::wstring error_;
    bool isRemoved_ = false; ///< nobody wants it any more, but it is under way
};

} // namespace ZMT::CORE::IMPL
