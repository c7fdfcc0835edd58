#pragma once

#include <cstdint>
#include <string>

#include <QByteArray>
#include <QNetworkReply>
#include <QTimer>
#include <QUrl>

#include "core/http/httprangereply.h"

namespace ZMT::CORE::IMPL {

/// Where a file lies, and the header that says who asks. The login is the one that was given last with a URL
/// of this server, else the one of the netrc file for its host; what a server puts into a URL is left out.
struct HttpTarget {
    /// Of a URL of the user, whose login counts for its server from now on.
    static HttpTarget given(const QUrl & url);
    explicit HttpTarget(const QUrl & givenUrl);

    QUrl url;
    QByteArray authorization; ///< empty for none

    std::wstring host() const { return url.host().toStdWString(); }
    /// Host and port, for what is counted by server.
    std::string server() const;
};

/// One transfer at a time: asks for a range of bytes, follows redirects, hands on the head before the body,
/// and ends the transfer after a silence. Belongs to the thread of the event loop.
class HttpClient {
public:
    /// Who uses the client. None is called from within `get`.
    class User {
    public:
        /// The head of the answer, redirects aside. What is wrong with it, which ends the transfer before any
        /// byte of the body is taken; empty to go on.
        virtual std::wstring headReceived(HttpClient & client, const HttpReplyHead & head) = 0;
        /// Bytes of the body are there, to be taken by `read`. What is wrong with them; empty to go on.
        virtual std::wstring readyRead(HttpClient & client) = 0;
        /// The transfer has ended: well, when `error` is empty. The client is free again.
        virtual void done(HttpClient & client, const std::wstring & error) = 0;

    protected:
        ~User() = default;
    };

    explicit HttpClient(User & user);
    /// A transfer under way ends without a word.
    ~HttpClient();
    HttpClient(const HttpClient &) = delete;
    HttpClient & operator=(const HttpClient &) = delete;

    /// Begins a transfer; none may be under way. Expects an application object.
    void get(const HttpTarget & target, std::uint64_t offset, std::uint64_t size);
    /// Ends the transfer under way, with `done`.
    void abort(const std::wstring & why);

    qint64 bytesAvailable() const { return reply_->bytesAvailable(); }
    qint64 read(char * bytes, qint64 size);

    /// Where the last answer came from.
    const HttpTarget & target() const { return target_; }
    /// Of the last answer; its status is 0 while there is none.
    const HttpReplyHead & head() const { return head_; }
    /// Whether the last transfer would have been followed to another server if the settings said so.
    bool isRedirectRefused() const { return isRedirectRefused_; }
    /// When the transfer began, by the clock of the pauses.
    double startTime() const { return startTime_; }

private:
    void send();
    void takeHead();
    void takeBody();
    void skipBody();
    void finish();
    void follow();
    void end(const std::wstring & error);
    QNetworkReply * takeReply();
    void startTimer();
    bool isTooSlow();

    User & user_;
    QTimer timer_;
    QNetworkReply * reply_ = nullptr; ///< null while no transfer is under way
    HttpTarget target_;
    HttpReplyHead head_;
    QByteArray range_;
    int redirects_ = 0;
    bool isRedirected_ = false; ///< the reply leads to another place
    bool isRedirectRefused_ = false;
    qint64 skippedBytes_ = 0;
    double startTime_ = 0.0;
    double measuredFrom_ = 0.0; ///< since when `measuredBytes_` counts
    qint64 measuredBytes_ = 0;
};

} // namespace ZMT::CORE::IMPL
