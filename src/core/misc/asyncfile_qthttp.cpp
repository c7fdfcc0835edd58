// The face of files on web servers. Requests only know their state and their bytes; what is sent when is the
// business of the implementation and of the manager. Waiting runs the event loop without what the user does,
// and without pictures.

#include "asyncfile_qthttp.h"

#include <algorithm>

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QThread>
#include <QTimer>

#include <nbx/data/memorydataresource.h>
#include <nbx/engine/canvas.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/misc/patience.h>

#include "asyncfile_qthttpimpl.h"
#include "asyncfilemanager.h"
#include "core/file/waitlimit.h"
#include "httpfile.h"

namespace ZMT::CORE::IMPL {

NBX_CLASS_IMPL(AsyncFile_QtHttp, AsyncFile)
NBX_CLASS_IMPL(AsyncFile_QtHttpRequest, AsyncFile::Request)

namespace {

constexpr int s_loopMilliseconds = 10;

/// No canvas draws from within the event loop while this lives: a frame that waits would be drawn anew in its
/// own middle.
class PausedRedisplay {
public:
    PausedRedisplay() {
        for (NBX::Canvas * canvas : NBX::Canvas::canvasList()) {
            if (!canvas->isRedisplayEnabled()) continue;
            canvas->setRedisplayEnabled(false);
            paused_.push_back(canvas);
        }
    }
    ~PausedRedisplay() {
        const std::vector<NBX::Canvas *> & living = NBX::Canvas::canvasList();
        for (NBX::Canvas * canvas : paused_)
            if (std::find(living.begin(), living.end(), canvas) != living.end())
                canvas->setRedisplayEnabled(true);
    }
    PausedRedisplay(const PausedRedisplay &) = delete;
    PausedRedisplay & operator=(const PausedRedisplay &) = delete;

private:
    std::vector<NBX::Canvas *> paused_;
};

bool hasApplication() {
    NBX_CHECK(qApp, L"no QApplication running");
    return qApp != nullptr;
}

/// Whether nobody else may look at the files meanwhile.
bool isOnThreadOfEventLoop() {
    const bool isOnItsThread = !qApp || QThread::currentThread() == qApp->thread();
    NBX_CHECK(isOnItsThread, L"files on web servers are used on the thread of the event loop");
    return isOnItsThread;
}

/// Sleeps until there is something to do, `milliseconds` at most, and does it.
void processEvents(int milliseconds, bool takesInput = false) {
    QAbstractEventDispatcher * dispatcher = QAbstractEventDispatcher::instance();
    if (!dispatcher) return;
    QTimer limit;
    limit.setSingleShot(true);
    limit.start(milliseconds);
    QEventLoop::ProcessEventsFlags flags = QEventLoop::WaitForMoreEvents;
    if (!takesInput) flags |= QEventLoop::ExcludeUserInputEvents;
    dispatcher->processEvents(flags);
}

} // namespace

AsyncFile_QtHttp::AsyncFile_QtHttp(const std::wstring & url)
    : impl_(std::make_unique<AsyncFile_QtHttpImpl>(this, url)) {}

AsyncFile_QtHttp::~AsyncFile_QtHttp() = default;

bool AsyncFile_QtHttp::open() {
    return impl_->open();
}

std::wstring AsyncFile_QtHttp::url() const {
    return impl_->url();
}

std::wstring AsyncFile_QtHttp::errorText() const {
    return impl_->error();
}

std::uint64_t AsyncFile_QtHttp::size() const {
    return impl_->size();
}

AsyncFile::Requests AsyncFile_QtHttp::requests() const {
    if (!isOnThreadOfEventLoop()) return {};
    return {impl_->requests().begin(), impl_->requests().end()};
}

NBX::SO<AsyncFile::Request> AsyncFile_QtHttp::request(std::uint64_t offset, std::uint64_t size,
                                                      double priority) {
    if (!isOnThreadOfEventLoop() || !isOpen()) return nullptr;
    return impl_->request(offset, size, priority);
}

bool AsyncFile_QtHttp::remove(const NBX::SO<Request> & request) {
    if (!isOnThreadOfEventLoop()) return false;
    return impl_->remove(NBX::soCast<AsyncFile_QtHttpRequest>(request).get());
}

bool AsyncFile_QtHttp::isOpen() const {
    return impl_->size() != 0;
}

bool AsyncFile_QtHttp::hasChanged() const {
    return impl_->hasChanged();
}

AsyncFile_QtHttpRequest::AsyncFile_QtHttpRequest(AsyncFile_QtHttp * file, std::uint64_t offset,
                                                 std::uint64_t size, double priority)
    : file_(file), offset_(offset), priority_(priority),
      data_(new NBX::MemoryDataResource(static_cast<unsigned>(size))) {}

AsyncFile_QtHttpRequest::~AsyncFile_QtHttpRequest() = default;

AsyncFile::RequestState AsyncFile_QtHttpRequest::state() {
    if (!isOnThreadOfEventLoop()) return AsyncFile::RS_Failed;
    const bool isPending = state_ == AsyncFile::RS_Queued || state_ == AsyncFile::RS_Processing;
    if (isPending && !file_) fail(L"the file is closed");
    return state_;
}

bool AsyncFile_QtHttpRequest::wait() {
    if (!isOnThreadOfEventLoop()) return false;
    const NBX::SO<AsyncFile_QtHttp> file = file_.lock();
    if (state() == AsyncFile::RS_Ready) return true;
    if (state() == AsyncFile::RS_Failed || !hasApplication()) return false;
    const NBX::SO<AsyncFile_QtHttpRequest> self(this);
    const PausedRedisplay paused;
    const WaitLimit limit;
    const double before = priority_;
    setPriority(AsyncFile::topPriority);
    // It may have been queued before there was an application object.
    AsyncFileManager::instance().dispatchAll();
    while (state() == AsyncFile::RS_Queued || state() == AsyncFile::RS_Processing) {
        if (Patience::hasEnded()) {
            setPriority(before);
            return false;
        }
        if (limit.hasPassed())
            file->impl().giveUp(this, L"no complete answer within " +
                                          std::to_wstring(static_cast<int>(WaitLimit::s_seconds)) + L" s");
        else
            processEvents(s_loopMilliseconds, Patience::takesInput());
    }
    return state() == AsyncFile::RS_Ready;
}

bool AsyncFile_QtHttpRequest::setPriority(double priority) {
    if (!isOnThreadOfEventLoop()) return false;
    if (!file_ || state_ != AsyncFile::RS_Queued) return false;
    const bool wasServed = priority_ > AsyncFileManager::s_neverServed;
    priority_ = priority;
    // Nothing that ends need come to start it.
    if (!wasServed) AsyncFileManager::instance().dispatchAll();
    return true;
}

void AsyncFile_QtHttpRequest::fail(const std::wstring & error) {
    state_ = AsyncFile::RS_Failed;
    error_ = error;
}

void AsyncFile_QtHttpRequest::complete() {
    if (room() == 0)
        state_ = AsyncFile::RS_Ready;
    else
        fail(L"transfer incomplete");
}

char * AsyncFile_QtHttpRequest::target() {
    return static_cast<char *>(data_->pointer()) + (size() - room());
}

std::uint64_t AsyncFile_QtHttpRequest::room() const {
    return size() - static_cast<std::uint64_t>(std::max<std::int64_t>(0, transferred_));
}

void AsyncFile_QtHttpRequest::addTransferred(std::uint64_t count) {
    transferred_ = std::max<std::int64_t>(0, transferred_) + static_cast<std::int64_t>(count);
}

NBX::SO<AsyncFile> openHttpFile(const std::wstring & url, std::wstring & problem, bool * isRedirectRefused) {
    problem.clear();
    if (isRedirectRefused) *isRedirectRefused = false;
    if (!usableHttpUrl(url).isValid()) return nullptr;
    if (!hasApplication()) {
        problem = L"no QApplication running";
        return nullptr;
    }
    if (!isOnThreadOfEventLoop()) {
        problem = L"not on the thread of the event loop";
        return nullptr;
    }
    const NBX::SO<AsyncFile_QtHttp> file(new AsyncFile_QtHttp(url));
    if (file->open()) return file;
    problem = file->errorText();
    if (isRedirectRefused) *isRedirectRefused = file->impl().isRedirectRefused();
    return nullptr;
}

bool isHttpLoading() {
    return AsyncFileManager::instance().working() != 0;
}

std::size_t pendingHttpRequests() {
    return AsyncFileManager::instance().pending();
}

bool waitForHttp(double maxTime) {
    if (!hasApplication()) return false;
    const PausedRedisplay paused;
    if (isHttpLoading() && maxTime >= 1.0)
        processEvents(static_cast<int>(std::min(maxTime, 1e6)));
    else
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
    return true;
}

std::uint64_t totalHttpBytes() {
    return AsyncFileManager::TotalTransferedBytes();
}

} // namespace ZMT::CORE::IMPL
