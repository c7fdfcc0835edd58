#pragma once

#include <zmt/core/misc/asyncfile.h>

#include <nbx/object/wo.h>

namespace ZMT::CORE {

/// A file whose bytes lie in memory: what is asked for is there at once. Not open without a resource.
class AsyncFile_Mem : public AsyncFile {
    NBX_CLASS(AsyncFile_Mem, AsyncFile)
public:
    class Request_Mem;

    explicit AsyncFile_Mem(const NBX::SO<NBX::DataResource> & resource);
    ~AsyncFile_Mem() override;

    using AsyncFile::remove;
    using AsyncFile::requests;
    std::wstring url() const override { return {}; }
    std::wstring errorText() const override { return {}; }
    std::uint64_t size() const override;
    Requests requests() const override { return requests_; }
    NBX::SO<Request> request(std::uint64_t offset, std::uint64_t size, double priority) override;
    bool remove(const NBX::SO<Request> & request) override;
    bool isOpen() const override { return static_cast<bool>(resource_); }

private:
    NBX::SO<NBX::DataResource> resource_;
    Requests requests_;
};

/// Shares the bytes of the file and keeps them alive. A range that reaches beyond the end is reported and
/// cut.
class AsyncFile_Mem::Request_Mem : public AsyncFile::Request {
    NBX_CLASS(Request_Mem, AsyncFile::Request)
public:
    Request_Mem(AsyncFile_Mem * file, NBX::DataResource * resource, std::uint64_t offset, std::uint64_t size,
                double priority);
    ~Request_Mem() override;

    NBX::SO<AsyncFile> file() const override;
    std::uint64_t offset() const override { return offset_; }
    NBX::SO<NBX::DataResource> data() const override { return data_; }
    double priority() const override { return priority_; }
    RequestState state() override { return RS_Ready; }
    std::int64_t transferredBytes() const override { return data_->size(); }
    bool wait() override { return true; }
    std::wstring errorText() const override { return {}; }
    bool setPriority(double priority) override;
    virtual RequestState start() { return RS_Ready; }

private:
    NBX::WO<AsyncFile_Mem> file_;
    std::uint64_t offset_;
    double priority_;
    NBX::SO<NBX::DataResource> data_;
};

} // namespace ZMT::CORE
