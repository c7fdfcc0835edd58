// One GET request over Qt's network: redirects are followed here, by our rules in the place of Qt's, and a
// transfer ends after a silence. The read buffer is bounded, so that what a server sends unasked stays there.

#include "httpclient.h"

#include <utility>

#include <QNetworkAccessManager>
#include <QNetworkRequest>

#include <nbx/object/errorhandler.h>
#include <nbx/object/nbxtime.h>
#include <zmt/core/misc/httpsettings.h>

#include "asyncfilemanager.h"
#include "core/http/httptimes.h"
#include "core/http/netrc.h"

namespace ZMT::CORE::IMPL {

namespace {

/// A login is sent to where it was given for, and over the same protocol.
std::string placeOfLogin(const QUrl & url) {
    return url.toString(QUrl::RemoveUserInfo | QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment)
        .toStdString();
}

/// So much of a body is received before its head has been judged, or behind a redirect.
constexpr qint64 s_readBufferSize = 64LL * 1024;
/// And so much behind it, where it may wait for the event loop: the smaller one costs a tenth of the rate.
constexpr qint64 s_bodyBufferSize = 1024LL * 1024;

QByteArray authorizationFor(const QUrl & url) {
    if (url.host().isEmpty()) return {};
    const auto & logins = AsyncFileManager::instance().logins();
    QByteArray login;
    if (const auto given = logins.find(placeOfLogin(url)); given != logins.end()) {
        login = QByteArray::fromStdString(given->second);
    } else if (const auto entry = netrcLogin(url.host().toStdString())) {
        login = QByteArray::fromStdString(entry->name + ":" + entry->password);
    }
    return login.isEmpty() ? login : "Basic " + login.toBase64();
}

HttpReplyHead headOf(const QNetworkReply & reply) {
    HttpReplyHead head;
    head.status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    head.reason = reply.attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString().toStdString();
    for (const QNetworkReply::RawHeaderPair & field : reply.rawHeaderPairs())
        head.fields.emplace_back(field.first.toStdString(), field.second.toStdString());
    return head;
}

HttpPlace placeOf(const QUrl & url) {
    return {url.scheme().toStdString(), url.host().toStdString()};
}

} // namespace

HttpTarget::HttpTarget(const QUrl & givenUrl) : url(givenUrl), authorization(authorizationFor(givenUrl)) {
    url.setUserInfo(QString());
    url.setFragment(QString());
}

HttpTarget HttpTarget::given(const QUrl & url) {
    if (!url.userName().isEmpty())
        AsyncFileManager::instance().logins()[placeOfLogin(url)] =
            (url.userName(QUrl::FullyDecoded) + ":" + url.password(QUrl::FullyDecoded)).toStdString();
    return HttpTarget(url);
}

std::string HttpTarget::server() const {
    return url.host().toStdString() + ":" + std::to_string(url.port(url.scheme() == "https" ? 443 : 80));
}

HttpClient::HttpClient(User & user) : user_(user), target_(QUrl()) {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer); // the usual ones come up to a twentieth early
    QObject::connect(&timer_, &QTimer::timeout, &timer_, [this] {
        abort(L"server '" + target_.host() + L"' was silent for " +
              std::to_wstring(httpTimes().silenceMilliseconds) + L" ms");
    });
}

HttpClient::~HttpClient() {
    delete takeReply();
}

void HttpClient::get(const HttpTarget & target, std::uint64_t offset, std::uint64_t size) {
    target_ = target;
    range_ = "bytes=" + QByteArray::number(static_cast<qulonglong>(offset)) + "-" +
             QByteArray::number(static_cast<qulonglong>(offset + size - 1));
    redirects_ = 0;
    isRedirectRefused_ = false;
    startTime_ = httpTimes().now();
    measuredFrom_ = NBX::NBXTime::now();
    measuredBytes_ = 0;
    send();
}

void HttpClient::send() {
    head_ = {};
    isRedirected_ = false;
    skippedBytes_ = 0;
    QNetworkRequest request(target_.url);
    // The limits on connections count those of HTTP/1.1; there is one way to follow redirects and to log in.
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setRawHeader("Range", range_);
    request.setRawHeader("Accept-Encoding", "identity");
    request.setRawHeader("User-Agent", "zmt");
    if (!target_.authorization.isEmpty()) request.setRawHeader("Authorization", target_.authorization);
    reply_ = AsyncFileManager::instance().network()->get(request);
    reply_->setReadBufferSize(s_readBufferSize);
    QObject::connect(reply_, &QNetworkReply::metaDataChanged, &timer_, [this] { takeHead(); });
    QObject::connect(reply_, &QNetworkReply::readyRead, &timer_, [this] { takeBody(); });
    QObject::connect(reply_, &QNetworkReply::finished, &timer_, [this] { finish(); });
    startTimer();
    if (!timer_.isActive())
        NBX_REPORT(0, L"request->timer()->start(CONNECTION_TIME_OUT, true) != 0", L"failed to start timer.");
}

void HttpClient::abort(const std::wstring & why) {
    if (!reply_) return;
    delete takeReply();
    user_.done(*this, why);
}

qint64 HttpClient::read(char * bytes, qint64 size) {
    const qint64 count = std::max<qint64>(0, reply_->read(bytes, size));
    measuredBytes_ += count;
    return count;
}

void HttpClient::takeHead() {
    if (head_.status != 0) return;
    head_ = headOf(*reply_);
    if (head_.status == 0) return;
    startTimer();
    isRedirected_ = head_.isRedirect();
    if (isRedirected_) return;
    if (const std::wstring problem = user_.headReceived(*this, head_); !problem.empty())
        end(problem);
    else
        reply_->setReadBufferSize(s_bodyBufferSize);
}

void HttpClient::takeBody() {
    takeHead();
    if (!reply_ || reply_->bytesAvailable() == 0) return;
    if (isRedirected_) {
        skipBody();
        return;
    }
    startTimer();
    if (!timer_.isActive())
        NBX_REPORT(0, L"req->timer()->start(CONNECTION_TIME_OUT, true) != 0", L"failed to start timer.");
    if (const std::wstring problem = user_.readyRead(*this); !problem.empty()) {
        end(problem);
    } else if (isTooSlow()) {
        end(L"server '" + target_.host() + L"' is too slow");
    }
}

/// The text behind a redirect is read, so that the connection can be used again, unless it is long.
void HttpClient::skipBody() {
    skippedBytes_ += reply_->skip(reply_->bytesAvailable());
    if (skippedBytes_ > s_readBufferSize) follow();
}

void HttpClient::finish() {
    takeBody();
    if (!reply_) return;
    if (isRedirected_) {
        follow();
    } else if (reply_->error() != QNetworkReply::NoError) {
        end(reply_->errorString().toStdWString());
    } else if (head_.status == 0) {
        end(L"server '" + target_.host() + L"' gave no answer");
    } else {
        end({});
    }
}

void HttpClient::follow() {
    const QUrl place = QUrl::fromEncoded(QByteArray::fromStdString(*head_.field("location")));
    const HttpTarget next(target_.url.resolved(place));
    const HttpPlace from = placeOf(target_.url), to = placeOf(next.url);
    const std::wstring problem = judgeRedirect(from, to, ++redirects_, HttpSettings::getFollowsRedirects());
    if (!problem.empty()) {
        isRedirectRefused_ = judgeRedirect(from, to, redirects_, true).empty();
        end(problem);
        return;
    }
    takeReply()->deleteLater();
    target_ = next;
    send();
}

/// For the slots: the reply is in the middle of a signal, so that it goes later.
void HttpClient::end(const std::wstring & error) {
    takeReply()->deleteLater();
    user_.done(*this, error);
}

/// Leaves the reply, whose end aborts the transfer, by a signal of its own: without that a silent connection
/// would stay open, and keep its place among those of the host. To abort it by itself makes the network class
/// complain where the reply has an error of its own.
QNetworkReply * HttpClient::takeReply() {
    timer_.stop();
    QNetworkReply * reply = std::exchange(reply_, nullptr);
    if (reply) reply->disconnect(&timer_);
    return reply;
}

void HttpClient::startTimer() {
    timer_.start(httpTimes().silenceMilliseconds);
}

/// Measured over spans of time, each by itself.
bool HttpClient::isTooSlow() {
    const double now = NBX::NBXTime::now();
    if (now - measuredFrom_ < httpTimes().slowSeconds) return false;
    const bool isSlow = measuredBytes_ < httpTimes().slowBytes;
    measuredFrom_ = now;
    measuredBytes_ = 0;
    return isSlow;
}

} // namespace ZMT::CORE::IMPL
