// Requests of one file on their way: queued by priority, under way in one of its clients, ended. A head is
// held against the range that was asked for and the version that is known; what is wrong with it fails the
// request and lets the server alone for a while.

#include "asyncfile_qthttpimpl.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <set>

#include <nbx/data/locator.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/stringutils.h>

#include "asyncfilemanager.h"
#include "core/http/httptimes.h"
#include "httpfile.h"
#include "requestrank.h"

namespace ZMT::CORE::IMPL {

namespace {

/// Within which a server that does not answer is told.
constexpr double s_longestOpeningMilliseconds = 2500.0;

double secondsSince1970() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::wstring withoutLogin(const std::wstring & url) {
    using NBX::StringUtils;
    return StringUtils::Utf8String2WString(NBX::Locator(StringUtils::WString2Utf8String(url)).withoutLogin());
}

} // namespace

QUrl usableHttpUrl(const std::wstring & text) {
    QUrl url(QString::fromStdWString(text));
    if (url.path().startsWith("/http:/")) {
        const QUrl inner("http://" + url.path(QUrl::FullyEncoded).mid(7));
        if (inner.port() >= 0) url.setPort(inner.port());
        url.setHost(inner.host());
        url.setPath(inner.path(QUrl::FullyEncoded), QUrl::StrictMode);
    }
    const bool isWeb = url.scheme() == "http" || url.scheme() == "https";
    return url.isValid() && isWeb && !url.host().isEmpty() && !url.path().isEmpty() ? url : QUrl();
}

AsyncFile_QtHttpImpl::AsyncFile_QtHttpImpl(AsyncFile_QtHttp * file, const std::wstring & url)
    : file_(file), url_(withoutLogin(url)), origin_(HttpTarget::given(usableHttpUrl(url))), target_(origin_) {
    for (std::unique_ptr<HttpClient> & client : clients_) {
        client = std::make_unique<HttpClient>(*this);
        idleClients_.push_back(client.get());
    }
    AsyncFileManager::instance().add(this);
}

AsyncFile_QtHttpImpl::~AsyncFile_QtHttpImpl() {
    AsyncFileManager::instance().remove(this);
    const bool wasWorking = !m_workingHttpClients.empty();
    for (std::unique_ptr<HttpClient> & client : clients_)
        client.reset();
    // Their places are free for other files.
    if (wasWorking) AsyncFileManager::instance().dispatchAll();
}

/// A server whose answer might come too late, as it is left alone before, is not waited for.
bool AsyncFile_QtHttpImpl::open() {
    const HttpBackoff & backoff = AsyncFileManager::instance().backoff();
    const double pause = backoff.remaining(server(), httpTimes().now());
    if (1000.0 * pause + httpTimes().silenceMilliseconds > s_longestOpeningMilliseconds) {
        error_ = L"server '" + target_.host() + L"' is asked again in " +
                 std::to_wstring(static_cast<int>(pause) + 1) + L" s: " + backoff.lastFailure(server());
        return false;
    }
    const RequestPointer probe = request(0, 1, 0.0);
    probe->wait();
    if (version_.size == 0 && error_.empty()) error_ = probe->errorText();
    if (version_.size == 0 && error_.empty()) error_ = L"nobody waited for the answer";
    remove(probe.get());
    return version_.size != 0;
}

AsyncFile_QtHttpImpl::RequestPointer AsyncFile_QtHttpImpl::request(std::uint64_t offset, std::uint64_t size,
                                                                   double priority) {
    // What the server cannot have takes no memory and no request.
    const std::uint64_t end = version_.size != 0 ? version_.size : 1;
    const bool isInside = offset <= end && size <= end - offset;
    const bool isPossible = isInside && size <= std::numeric_limits<unsigned>::max();
    RequestPointer request(new AsyncFile_QtHttpRequest(file_, offset, isPossible ? size : 0, priority));
    requests_.push_back(request);
    if (!isPossible) {
        request->fail(L"transfer incomplete");
    } else if (size == 0) {
        request->complete();
    } else {
        queue_.push_back(request);
        AsyncFileManager::instance().dispatchAll();
    }
    return request;
}

bool AsyncFile_QtHttpImpl::remove(const AsyncFile_QtHttpRequest * request) {
    const auto found = std::find(requests_.begin(), requests_.end(), request);
    if (found == requests_.end()) return false;
    if ((*found)->currentState() == AsyncFile::RS_Processing) {
        (*found)->setRemoved();
        return false;
    }
    const RequestPointer held = *found;
    requests_.erase(found);
    // Whoever still waits for it would do so for ever.
    if (std::erase(queue_, held) > 0) held->fail(L"the request was removed");
    return true;
}

void AsyncFile_QtHttpImpl::giveUp(const AsyncFile_QtHttpRequest * request, const std::wstring & why) {
    const auto queued = std::find(queue_.begin(), queue_.end(), request);
    if (queued != queue_.end()) {
        const RequestPointer kept = *queued;
        queue_.erase(queued);
        kept->fail(why);
        return;
    }
    for (const auto & [client, working] : m_workingHttpClients) {
        if (working.get() != request) continue;
        client->abort(why); // which changes the map
        return;
    }
}

double AsyncFile_QtHttpImpl::highestQueuedPriority() const {
    return rankOf((*first())->priority());
}

void AsyncFile_QtHttpImpl::startNext() {
    const auto best = first();
    // Not a reference to what is erased.
    const RequestPointer request(best->get());
    queue_.erase(best);
    HttpClient * client = idleClients_.back();
    idleClients_.pop_back();
    request->start();
    m_workingHttpClients[client] = request;
    client->get(target_, request->offset(), request->size());
}

double AsyncFile_QtHttpImpl::pause(double now) const {
    return std::max(AsyncFileManager::instance().backoff().remaining(server(), now),
                    changes_.remaining({}, now));
}

bool AsyncFile_QtHttpImpl::worksSince(double time) const {
    return std::any_of(m_workingHttpClients.begin(), m_workingHttpClients.end(),
                       [time](const auto & working) { return working.first->startTime() >= time; });
}

bool AsyncFile_QtHttpImpl::isAsked() const {
    const std::optional<double> change = changes_.failureTime({});
    return change && worksSince(*change);
}

void AsyncFile_QtHttpImpl::abortAll(const std::wstring & why) {
    while (!m_workingHttpClients.empty())
        m_workingHttpClients.begin()->first->abort(why);
}

std::wstring AsyncFile_QtHttpImpl::headReceived(HttpClient & client, const HttpReplyHead & head) {
    const RequestPointer & request = m_workingHttpClients.at(&client);
    const std::wstring problem = judgeRangeReply(client.target().host(), head, request->offset(), version_);
    hasChanged_ = tellsChange(head, version_).value_or(hasChanged_);
    if (version_.size != 0) return problem;
    error_ = problem;
    if (problem.empty()) version_ = versionOf(head);
    return problem;
}

std::wstring AsyncFile_QtHttpImpl::readyRead(HttpClient & client) {
    AsyncFile_QtHttpRequest & request = *m_workingHttpClients.at(&client);
    const qint64 bytesAvailable = client.bytesAvailable();
    const qint64 bytesToRead = std::min(bytesAvailable, static_cast<qint64>(request.room()));
    const qint64 count = client.read(request.target(), bytesToRead);
    request.addTransferred(static_cast<std::uint64_t>(count));
    AsyncFileManager::addTransferedBytes(static_cast<std::uint64_t>(count));
    progress_.note(request.offset(), static_cast<std::uint64_t>(request.transferredBytes()));
    if (bytesAvailable <= bytesToRead) return {};
    NBX_REPORT(2, L"bytesToRead <= bytesAvailable", L"too many bytes received");
    return L"too many bytes received";
}

void AsyncFile_QtHttpImpl::done(HttpClient & client, const std::wstring & error) {
    isRedirectRefused_ = client.isRedirectRefused();
    const RequestPointer request = release(client);
    if (!request) return;
    if (error.empty())
        request->complete();
    else
        request->fail(error);
    if (request->currentState() == AsyncFile::RS_Ready)
        succeeded(client);
    else
        failed(client, request->errorText());
    if (request->isRemoved()) std::erase(requests_, request);
    AsyncFileManager::instance().dispatchAll();
}

/// Gives the client back and returns what it worked on.
AsyncFile_QtHttpImpl::RequestPointer AsyncFile_QtHttpImpl::release(HttpClient & client) {
    const auto pos = m_workingHttpClients.find(&client);
    NBX_CHECK(pos != m_workingHttpClients.end(), L"corrupt request management");
    if (pos == m_workingHttpClients.end()) return nullptr;
    const RequestPointer request = pos->second;
    m_workingHttpClients.erase(pos);
    idleClients_.push_back(&client);
    return request;
}

void AsyncFile_QtHttpImpl::succeeded(const HttpClient & client) {
    answeredWell(client);
    changes_.succeeded({}, client.startTime());
    target_ = client.target();
}

void AsyncFile_QtHttpImpl::answeredWell(const HttpClient & client) {
    for (const std::string & place : {client.target().server(), server()})
        AsyncFileManager::instance().backoff().succeeded(place, client.startTime());
}

/// Both are left alone: the server that failed, and the one that leads to it, where the next transfer begins.
/// One that has another file now works well: only this file is left alone, since its requests will go on to
/// fail. Other files there, and the new one, do not wait for it.
void AsyncFile_QtHttpImpl::failed(const HttpClient & client, const std::wstring & error) {
    // The goal of a redirect may be good for a while only, and there may be a better one by now.
    target_ = origin_;
    if (tellsChange(client.head(), version_).value_or(false)) {
        answeredWell(client);
        changes_.failed({}, client.startTime(), httpTimes().now(), 0.0, error);
        return;
    }
    const std::string goal = client.target().server();
    const double pause = retryAfter(client.head(), secondsSince1970());
    for (const std::string & place : std::set<std::string>{goal, server()})
        AsyncFileManager::instance().backoff().failed(place, client.startTime(), httpTimes().now(), pause,
                                                      error);
}

std::vector<AsyncFile_QtHttpImpl::RequestPointer>::const_iterator AsyncFile_QtHttpImpl::first() const {
    return std::max_element(queue_.begin(), queue_.end(), [](const auto & a, const auto & b) {
        return rankOf(a->priority()) < rankOf(b->priority());
    });
}

} // namespace ZMT::CORE::IMPL
