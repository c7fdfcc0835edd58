// Requests of all local files wait in one queue. Whoever looks at a request feeds it: `update` moves on what
// has ended, and starts what waits.

#include "asyncfile_win.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include <nbx/data/datasubresource.h>
#include <nbx/data/file.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/patience.h>

#include "core/file/filecalls.h"
#include "core/file/pagestore.h"
#include "core/file/readengine.h"
#include "core/file/waitlimit.h"
#include "requestrank.h"

namespace ZMT::CORE::IMPL {

NBX_CLASS_IMPL(AsyncFile_Win, AsyncFile)
NBX_CLASS_IMPL(AsyncFile_Win::Request_Win, AsyncFile::Request)

namespace {

constexpr std::uint64_t s_block = FileRead::s_block;

/// How long a blocking call sleeps before it looks again.
constexpr double s_sleepSeconds = 0.01;

/// Whole pages of memory of their own.
class VirtualAllocDataResource : public NBX::DataResource {
    NBX_TEMPLATE_CLASS(VirtualAllocDataResource, NBX::DataResource)
public:
    explicit VirtualAllocDataResource(unsigned size)
        : m_buffer(size > 0 ? PageStore::take(size) : nullptr), size_(size) {
        if (size_ == 0) return;
        NBX_CHECK(m_buffer,
                  L"VirtualAlloc() failed for " << size_ << L" bytes: " << NBX::ErrorHandler::getLastError());
        if (!m_buffer) size_ = 0;
    }
    ~VirtualAllocDataResource() override {
        if (!m_buffer) return;
        const bool success = PageStore::give(m_buffer, size_);
        NBX_CHECK(success,
                  L"VirtualFree() failed for " << size_ << L" bytes: " << NBX::ErrorHandler::getLastError());
    }
    VirtualAllocDataResource(const VirtualAllocDataResource &) = delete;
    VirtualAllocDataResource & operator=(const VirtualAllocDataResource &) = delete;

    using NBX::DataResource::pointer;
    void * pointer() const override { return m_buffer; }
    unsigned size() const override { return size_; }
    bool isWritable() const override { return true; }

private:
    void * m_buffer;
    unsigned size_;
};

std::uint64_t s_totalBytes = 0;

/// The bytes of the whole blocks that `size` bytes from `offset` on touch; 0 where a block of memory cannot
/// hold them, and for an empty range.
unsigned wholeBlocks(std::uint64_t offset, std::uint64_t size) {
    constexpr std::uint64_t limit = std::numeric_limits<unsigned>::max() / s_block * s_block;
    const std::uint64_t start = offset % s_block;
    const bool isHeld = size <= limit - start && offset <= std::numeric_limits<std::uint64_t>::max() - size;
    return isHeld && size > 0 ? static_cast<unsigned>((start + size + s_block - 1) / s_block * s_block) : 0;
}

} // namespace

/// What all local files of the process share. Never destroyed: see `ReadEngine::instance`.
struct AsyncFile_Win::Request_Win::Schedule {
    std::vector<NBX::SO<Request_Win>> active;
    std::multimap<double, NBX::WO<Request_Win>, std::greater<>> queued;
    bool updateAllowed = true;
};

AsyncFile_Win::Request_Win::Schedule & AsyncFile_Win::Request_Win::schedule() {
    static Schedule & instance = *new Schedule;
    return instance;
}

AsyncFile_Win::AsyncFile_Win(const std::wstring & path, bool deleteWhenClosed)
    : path_(path), deleteWhenClosed_(deleteWhenClosed) {
    try {
        const std::string absolute = NBX::File::absolutePath(NBX::StringUtils::WString2Utf8String(path));
        path_ = NBX::StringUtils::Utf8String2WString(absolute);
        file_ = OpenFile::open(absolute, error_);
    } catch (const NBX::Exception & failure) {
        error_ = failure.message();
    }
}

AsyncFile_Win::~AsyncFile_Win() {
    if (!isOpen()) return;
    for (const NBX::SO<Request> & request : requests_) {
        auto & own = static_cast<Request_Win &>(*request);
        own.dequeue();
        if (own.read_) own.read_->cancel();
    }
    file_ = nullptr;
    if (deleteWhenClosed_) fileCalls().unlink(NBX::StringUtils::WString2Utf8String(path_).c_str());
}

NBX::SO<AsyncFile::Request> AsyncFile_Win::request(std::uint64_t offset, std::uint64_t size,
                                                   double priority) {
    if (!isOpen()) return nullptr;
    const NBX::SO<Request_Win> request(new Request_Win(this, offset, size, priority));
    requests_.emplace_back(request);
    if (request->state_ == RS_Queued) request->enqueue();
    Request_Win::update();
    return request;
}

bool AsyncFile_Win::remove(const NBX::SO<Request> & request) {
    const auto known = std::find(requests_.begin(), requests_.end(), request);
    if (known == requests_.end()) return false;
    const NBX::SO<Request> held = *known;
    requests_.erase(known);
    auto & own = static_cast<Request_Win &>(*held);
    if (own.dequeue()) own.fail(L"the request was removed");
    return true;
}

bool AsyncFile_Win::isLoading() {
    // Nobody else may look at requests whose files are closed.
    Request_Win::update();
    return !Request_Win::schedule().active.empty();
}

std::size_t AsyncFile_Win::pendingRequests() {
    Request_Win::update(); // as in `isLoading`
    const Request_Win::Schedule & all = Request_Win::schedule();
    return all.active.size() + all.queued.size();
}

bool AsyncFile_Win::hasChanged() const {
    return isOpen() && file_->isReplacedAt(NBX::StringUtils::WString2Utf8String(path_));
}

std::uint64_t AsyncFile_Win::totalBytes() {
    return s_totalBytes;
}

AsyncFile_Win::Request_Win::Request_Win(AsyncFile_Win * file, std::uint64_t offset, std::uint64_t size,
                                        double priority)
    : file_(file), offset_(offset), size_(size), priority_(priority),
      alignedOffset_(offset & ~(s_block - 1)) {
    const unsigned blocks = wholeBlocks(offset, size);
    buffer_ = new VirtualAllocDataResource(blocks);
    const bool isHeld = blocks >= size && buffer_->size() == blocks;
    data_ = new NBX::DataSubResource(buffer_.get(),
                                     static_cast<unsigned>(isHeld && size > 0 ? offset % s_block : 0),
                                     static_cast<unsigned>(isHeld ? size : 0), false);
    if (isHeld) return;
    fail(L"no memory for a range of " + std::to_wstring(size) + L" bytes at " + std::to_wstring(offset));
}

AsyncFile_Win::Request_Win::~Request_Win() {
    while (read_ && read_->isOwed())
        ReadEngine::instance().wait(s_sleepSeconds);
}

NBX::SO<AsyncFile> AsyncFile_Win::Request_Win::file() const {
    return file_.lock();
}

void AsyncFile_Win::Request_Win::enqueue() {
    schedule().queued.emplace(rankOf(priority_), NBX::WO<Request_Win>(this));
}

/// False when it does not wait.
bool AsyncFile_Win::Request_Win::dequeue() {
    auto & queued = schedule().queued;
    const auto [begin, end] = queued.equal_range(rankOf(priority_));
    const auto own =
        std::find_if(begin, end, [this](const auto & entry) { return entry.second.lock() == this; });
    if (own == end) return false;
    queued.erase(own);
    return true;
}

bool AsyncFile_Win::Request_Win::setPriority(double priority) {
    if (state_ != RS_Queued || !dequeue()) return false;
    priority_ = priority;
    enqueue();
    return true;
}

AsyncFile::RequestState AsyncFile_Win::Request_Win::fail(const std::wstring & error) {
    if (read_) read_->cancel();
    error_ = error;
    return state_ = RS_Failed;
}

AsyncFile::RequestState AsyncFile_Win::Request_Win::start() {
    const RequestState m_state = state_;
    NBX_CHECK(m_state == RS_Queued, L"can only start queued requests");
    if (m_state != RS_Queued) return state_;
    const NBX::SO<AsyncFile_Win> file = file_.lock();
    if (!file) return fail(L"the file was closed");
    read_ = std::make_unique<FileRead>(file->file_, alignedOffset_, buffer_->pointer(), buffer_->size());
    state_ = RS_Processing;
    ReadEngine::instance().start(*read_);
    return state_;
}

/// Of the last block the disk may have sent more than the file has, and small blocks of memory may hold
/// anything behind it; in large ones the pages behind it were never touched.
void AsyncFile_Win::Request_Win::clearBehind(std::uint64_t available) {
    const std::uint64_t size = buffer_->size();
    if (available >= size) return;
    const std::uint64_t end =
        size > PageStore::s_largestKept ? std::min(size, available / s_block * s_block + s_block) : size;
    std::memset(static_cast<char *>(buffer_->pointer()) + available, 0, end - available);
}

/// The read is no longer owed: what the system gave decides.
void AsyncFile_Win::Request_Win::finish() {
    const std::uint64_t got = read_->got();
    if (read_->error() != 0) {
        errno = read_->error();
        fail(NBX::ErrorHandler::getLastError());
        return;
    }
    // The file has what it had when it was opened; behind that are zeros.
    const std::uint64_t fileSize = file_.lock()->size();
    const bool isBehind = size_ == 0 || offset_ >= fileSize;
    if (!isBehind && alignedOffset_ + got < std::min(offset_ + size_, fileSize)) {
        fail(L"the file was cut");
        return;
    }
    // What fails again and again is no progress.
    s_totalBytes += got;
    clearBehind(fileSize > alignedOffset_ ? fileSize - alignedOffset_ : 0);
    transferred_ = static_cast<std::int64_t>(size_);
    file_.lock()->progress_.note(offset_, size_);
    state_ = RS_Ready;
}

AsyncFile::RequestState AsyncFile_Win::Request_Win::state() {
    if (state_ == RS_Queued || state_ == RS_Processing) {
        if (!file_) return fail(L"the file was closed");
        if (state_ == RS_Queued) {
            update();
        } else {
            ReadEngine::instance().poll();
            const bool hasEnded = !read_->isOwed();
            if (hasEnded) finish();
            // Whichever has ended makes room, also while this one is waited for.
            if (hasEnded || FileRead::countOwed() < schedule().active.size()) update();
        }
    }
    return state_;
}

bool AsyncFile_Win::Request_Win::wait() {
    const WaitLimit limit;
    const double before = priority_;
    setPriority(topPriority);
    while (true) {
        const RequestState now = state();
        if (now == RS_Ready || now == RS_Failed) return now == RS_Ready;
        if (Patience::hasEnded()) {
            setPriority(before);
            return false;
        }
        if (limit.hasPassed()) {
            dequeue();
            fail(L"the disk gave no answer");
            return false;
        }
        ReadEngine::instance().wait(s_sleepSeconds);
    }
}

void AsyncFile_Win::Request_Win::update() {
    Schedule & all = schedule();
    if (!all.updateAllowed) return;
    all.updateAllowed = false;
    ReadEngine::instance().poll();
    for (std::size_t i = all.active.size(); i-- > 0;)
        if (all.active[i]->state() != RS_Processing)
            all.active.erase(all.active.begin() + static_cast<std::ptrdiff_t>(i));
    const auto isRoom = [&all] {
        // Requests that failed may have reads under way that cannot be taken back.
        return all.active.size() < ReadEngine::s_mostReads && FileRead::countOwed() < ReadEngine::s_mostReads;
    };
    while (!all.queued.empty() && isRoom()) {
        const NBX::SO<Request_Win> next = all.queued.begin()->second.lock();
        all.queued.erase(all.queued.begin());
        if (next && next->start() == RS_Processing) all.active.push_back(next);
    }
    all.updateAllowed = true;
}

} // namespace ZMT::CORE::IMPL
