// Whose turn it is: of all files whose server may be asked, the one with the highest priority starts a
// transfer, until as many run as may. The network lives as long as the application object, and ends with it.

#include "asyncfilemanager.h"

#include <algorithm>
#include <atomic>
#include <limits>

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QTimer>

#include <nbx/object/so.h>

#include "asyncfile_qthttpimpl.h"
#include "core/http/httpproxy.h"
#include "core/http/httptimes.h"

namespace ZMT::CORE::IMPL {

NBX_CLASS_IMPL(AsyncFileManager, NBX::SharedObj)

namespace {

std::atomic<std::uint64_t> s_transferedBytes{0};

class EnvironmentProxies : public QNetworkProxyFactory {
public:
    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery & query) override {
        const std::string proxy = proxyFor(query.url().scheme().toStdString(),
                                           query.url().host().toStdString(), environmentVariable);
        const QUrl url(QString::fromStdString(proxy));
        if (url.host().isEmpty()) return {QNetworkProxy(QNetworkProxy::NoProxy)};
        const bool isSocks = url.scheme().startsWith("socks");
        return {QNetworkProxy(isSocks ? QNetworkProxy::Socks5Proxy : QNetworkProxy::HttpProxy, url.host(),
                              static_cast<quint16>(url.port(isSocks ? 1080 : 8080)), url.userName(),
                              url.password())};
    }
};

} // namespace

/// What cannot be without an application object.
struct AsyncFileManager::Network {
    QNetworkAccessManager access;
    QTimer resumption; ///< for the end of the pause that ends first
};

AsyncFileManager::AsyncFileManager() = default;
AsyncFileManager::~AsyncFileManager() = default;

AsyncFileManager & AsyncFileManager::instance() {
    // Never released: files may be dropped by other objects that live until the process ends.
    static AsyncFileManager * const manager = [] {
        auto * made = new AsyncFileManager;
        made->ref(nullptr);
        return made;
    }();
    return *manager;
}

void AsyncFileManager::add(AsyncFile_QtHttpImpl * file) {
    files_.push_back(file);
}

void AsyncFileManager::remove(const AsyncFile_QtHttpImpl * file) {
    std::erase(files_, file);
}

bool AsyncFileManager::dispatch(double now) {
    if (!network() || working() >= s_mostTransfers) return false;
    double highest = s_neverServed;
    AsyncFile_QtHttpImpl * chosen = nullptr;
    for (AsyncFile_QtHttpImpl * file : files_) {
        if (!file->canStart() || file->pause(now) > 0.0) continue;
        const double priority = file->highestQueuedPriority();
        if (priority <= highest || (priority < AsyncFile::topPriority && isAsked(*file))) continue;
        highest = priority;
        chosen = file;
    }
    if (chosen) chosen->startNext();
    return chosen != nullptr;
}

/// Whether a transfer asks how `file` or its server is, which failed last. Those that nobody waits for begin
/// when it has answered.
bool AsyncFileManager::isAsked(const AsyncFile_QtHttpImpl & file) const {
    if (file.isAsked()) return true;
    const std::optional<double> failure = backoff_.failureTime(file.server());
    return failure && std::any_of(files_.begin(), files_.end(), [&](const AsyncFile_QtHttpImpl * other) {
               return other->server() == file.server() && other->worksSince(*failure);
           });
}

void AsyncFileManager::dispatchAll() {
    const double now = httpTimes().now();
    while (dispatch(now)) {
    }
    scheduleResumption(now);
}

unsigned AsyncFileManager::working() const {
    unsigned count = 0;
    for (const AsyncFile_QtHttpImpl * file : files_)
        count += file->workingClients();
    return count;
}

std::size_t AsyncFileManager::pending() const {
    std::size_t count = 0;
    for (const AsyncFile_QtHttpImpl * file : files_)
        count += file->pendingRequests();
    return count;
}

/// One transfer asks how the server is; if it answers well, the others follow. `now` is the time at which
/// nothing more could be started: a pause that ended since then would be missed.
void AsyncFileManager::scheduleResumption(double now) {
    if (!network()) return;
    double next = std::numeric_limits<double>::infinity();
    for (const AsyncFile_QtHttpImpl * file : files_) {
        const double remaining = file->pause(now);
        if (file->canStart() && remaining > 0.0) next = std::min(next, remaining);
    }
    if (next < std::numeric_limits<double>::infinity())
        network_->resumption.start(static_cast<int>(next * 1000.0) + 1);
}

QNetworkAccessManager * AsyncFileManager::network() {
    if (!qApp || isEnding_) return nullptr;
    if (!network_) {
        network_ = std::make_unique<Network>();
        network_->access.setProxyFactory(new EnvironmentProxies);
        network_->resumption.setSingleShot(true);
        QObject::connect(&network_->resumption, &QTimer::timeout, &network_->resumption,
                         [this] { dispatchAll(); });
        qAddPostRoutine(&AsyncFileManager::endNetwork);
    }
    return &network_->access;
}

/// At the end of the application object. Transfers under way fail.
void AsyncFileManager::endNetwork() {
    AsyncFileManager & manager = instance();
    manager.isEnding_ = true;
    for (AsyncFile_QtHttpImpl * file : std::vector<AsyncFile_QtHttpImpl *>(manager.files_))
        file->abortAll(L"no QApplication running");
    manager.network_.reset();
    manager.isEnding_ = false;
}

void AsyncFileManager::addTransferedBytes(std::uint64_t count) {
    s_transferedBytes += count;
}

std::uint64_t AsyncFileManager::TotalTransferedBytes() {
    return s_transferedBytes;
}

} // namespace ZMT::CORE::IMPL
