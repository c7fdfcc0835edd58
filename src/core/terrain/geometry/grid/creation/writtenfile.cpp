#include "writtenfile.h"

#include <algorithm>

#include <nbx/data/memorydataresource.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <nbx/object/wo.h>

namespace ZMT::CORE::GRID {

NBX_CLASS_IMPL(WrittenFile, AsyncFile)

namespace {

/// A read that was done when it was asked for.
class DoneRequest : public AsyncFile::Request {
    NBX_TEMPLATE_CLASS(DoneRequest, AsyncFile::Request)
public:
    DoneRequest(AsyncFile * file, std::uint64_t offset, double priority,
                const NBX::SO<NBX::DataResource> & data, const std::wstring & problem)
        : file_(file), offset_(offset), priority_(priority), data_(data), problem_(problem) {}

    NBX::SO<AsyncFile> file() const override { return file_.lock(); }
    std::uint64_t offset() const override { return offset_; }
    NBX::SO<NBX::DataResource> data() const override { return data_; }
    double priority() const override { return priority_; }
    AsyncFile::RequestState state() override { return data_ ? AsyncFile::RS_Ready : AsyncFile::RS_Failed; }
    std::int64_t transferredBytes() const override { return data_ ? data_->size() : -1; }
    bool wait() override { return static_cast<bool>(data_); }
    std::wstring errorText() const override { return problem_; }
    bool setPriority(double) override { return false; }

private:
    NBX::WO<AsyncFile> file_;
    std::uint64_t offset_;
    double priority_;
    NBX::SO<NBX::DataResource> data_; ///< null when the read failed
    std::wstring problem_;
};

} // namespace

WrittenFile::WrittenFile(const NBX::SO<NBX::File> & file) : file_(file), size_(file->size()) {}

WrittenFile::~WrittenFile() = default;

NBX::SO<AsyncFile::Request> WrittenFile::request(std::uint64_t offset, std::uint64_t size, double priority) {
    NBX::SO<NBX::DataResource> data;
    std::wstring problem = L"the range lies beyond the end of the file";
    if (offset <= size_ && size <= std::min<std::uint64_t>(size_ - offset, UINT32_MAX)) {
        try {
            data = new NBX::MemoryDataResource(static_cast<unsigned>(size));
            file_->seek(static_cast<std::int64_t>(offset));
            if (file_->read(data->pointer(), size) != size) data = nullptr;
        } catch (const NBX::Exception & e) {
            data = nullptr;
            problem = NBX::StringUtils::Utf8String2WString(e.what());
        }
    }
    return requests_.emplace_back(new DoneRequest(this, offset, priority, data, problem));
}

bool WrittenFile::remove(const NBX::SO<Request> & request) {
    return std::erase(requests_, request) > 0;
}

} // namespace ZMT::CORE::GRID
