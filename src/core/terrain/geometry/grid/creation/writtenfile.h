#pragma once

#include <nbx/data/file.h>
#include <zmt/core/misc/asyncfile.h>

namespace ZMT::CORE::GRID {

/// A file that is open already, and may have no name yet, for those who read asynchronous files: what they
/// ask for is there at once. Moves the position of the file, whose size stays as it was in the beginning.
class WrittenFile : public AsyncFile {
    NBX_CLASS(WrittenFile, AsyncFile)
public:
    explicit WrittenFile(const NBX::SO<NBX::File> & file);
    ~WrittenFile() override;

    std::wstring url() const override { return {}; }
    std::wstring errorText() const override { return {}; }
    std::uint64_t size() const override { return size_; }
    using AsyncFile::requests;
    Requests requests() const override { return requests_; }
    NBX::SO<Request> request(std::uint64_t offset, std::uint64_t size, double priority) override;
    using AsyncFile::remove;
    bool remove(const NBX::SO<Request> & request) override;
    bool isOpen() const override { return true; }

private:
    NBX::SO<NBX::File> file_;
    std::uint64_t size_;
    Requests requests_;
};

} // namespace ZMT::CORE::GRID
