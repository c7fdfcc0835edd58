#pragma once

#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "asyncfile_qthttp.h"
#include "core/http/httpbackoff.h"
#include "httpclient.h"
#include <zmt/core/misc/readprogress.h>

namespace ZMT::CORE::IMPL {

/// The URL of a file on a web server: "http" or "https" with a host and a path. A path that begins with
/// "/http:/" is a URL itself. An invalid one for anything else.
QUrl usableHttpUrl(const std::wstring & url);

/// What `AsyncFile_QtHttp` is made of: the requests and the clients that work on them.
class AsyncFile_QtHttpImpl final : public HttpClient::User {
public:
    /// So many transfers run at once for a file.
    static constexpr unsigned s_clients = 4;
    using RequestPointer = NBX::SO<AsyncFile_QtHttpRequest>;

    AsyncFile_QtHttpImpl(AsyncFile_QtHttp * file, const std::wstring & url);
    ~AsyncFile_QtHttpImpl();

    bool open();
    const std::wstring & url() const { return url_; }
    const std::wstring & error() const { return error_; }
    /// Whether the last transfer failed for that.
    bool isRedirectRefused() const { return isRedirectRefused_; }
    std::uint64_t size() const { return version_.size; }
    bool hasChanged() const { return hasChanged_; }
    const std::vector<RequestPointer> & requests() const { return requests_; }
    RequestPointer request(std::uint64_t offset, std::uint64_t size, double priority);
    bool remove(const AsyncFile_QtHttpRequest * request);
    /// Fails a request that is queued or under way.
    void giveUp(const AsyncFile_QtHttpRequest * request, const std::wstring & why);

    // For the manager.
    std::string server() const { return target_.server(); }
    bool canStart() const { return !queue_.empty() && !idleClients_.empty(); }
    /// Of the requests as their priorities are now; there has to be one.
    double highestQueuedPriority() const;
    void startNext();
    /// Seconds for which nothing is to be started.
    double pause(double now) const;
    std::size_t pendingRequests() const { return queue_.size() + m_workingHttpClients.size(); }
    unsigned workingClients() const { return static_cast<unsigned>(m_workingHttpClients.size()); }
    /// Whether a transfer is under way that began at `time` or later.
    bool worksSince(double time) const;
    /// Whether a transfer asks how the file is that had changed.
    bool isAsked() const;
    void abortAll(const std::wstring & why);

private:
    std::wstring headReceived(HttpClient & client, const HttpReplyHead & head) override;
    std::wstring readyRead(HttpClient & client) override;
    void done(HttpClient & client, const std::wstring & error) override;

    RequestPointer release(HttpClient & client);
    void succeeded(const HttpClient & client);
    void answeredWell(const HttpClient & client);
    void failed(const HttpClient & client, const std::wstring & error);
    /// The queued request with the highest priority, the oldest of several.
    std::vector<RequestPointer>::const_iterator first() const;

    AsyncFile_QtHttp * const file_;
    const std::wstring url_;
    std::wstring error_; ///< why the file cannot be used
    bool isRedirectRefused_ = false;
    const HttpTarget origin_; ///< the URL itself
    HttpTarget target_;       ///< where its redirects led to
    HttpFileVersion version_; ///< from the first reply
    ReadProgress progress_;
    bool hasChanged_ = false; ///< as the last answer that told its version says
    HttpBackoff changes_;     ///< of the file itself, which has no name there
    std::vector<RequestPointer> requests_;
    std::vector<RequestPointer> queue_;
    std::array<std::unique_ptr<HttpClient>, s_clients> clients_;
    std::vector<HttpClient *> idleClients_;
    std::map<HttpClient *, RequestPointer> m_workingHttpClients;
};

} // namespace ZMT::CORE::IMPL
