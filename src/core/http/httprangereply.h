#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// What is to be made of the head of a reply, before a byte of its body is taken. Nothing here touches a
// network.

namespace ZMT::CORE::IMPL {

/// The head of a reply, as it came from a server that is not trusted.
struct HttpReplyHead {
    int status = 0;
    std::string reason;
    std::vector<std::pair<std::string, std::string>> fields; ///< names and values

    /// Names are the same in upper and lower case. Null when there is none.
    const std::string * field(std::string_view name) const;
    /// Status line and fields for a message, the head of a head when it is long.
    std::wstring text() const;
    /// Whether it sends the client to another place, by its field "location".
    bool isRedirect() const;
};

/// The value "bytes first-last/total".
struct HttpContentRange {
    std::uint64_t first = 0;
    std::uint64_t last = 0; ///< `first <= last < total`
    std::uint64_t total = 0;
};
/// Null for anything else, an unknown total among it.
std::optional<HttpContentRange> parseContentRange(std::string_view value);

/// What tells one state of a file from another one.
struct HttpFileVersion {
    std::uint64_t size = 0;   ///< 0: not known yet
    std::string etag;         ///< empty where the server gives none
    std::string lastModified; ///< the same
};
/// Of a reply that `judgeRangeReply` finds nothing wrong with.
HttpFileVersion versionOf(const HttpReplyHead & head);

/// Why the body of a reply to a request for the bytes from `offset` on is not to be taken; empty when it is.
/// `known` is what earlier replies said about the file.
std::wstring judgeRangeReply(const std::wstring & host, const HttpReplyHead & head, std::uint64_t offset,
                             const HttpFileVersion & known);

/// Whether the file is another one than `known` now; null where `head` does not say. Requests are within the
/// known size, so that a range that "cannot be satisfied" says it.
std::optional<bool> tellsChange(const HttpReplyHead & head, const HttpFileVersion & known);

/// How long the server wants to be left alone, in seconds from now on, by its field "retry-after": a count or
/// a date. 0 without one; never longer than an hour. `now` is in seconds since 1970, and stands in for the
/// server's own "date".
double retryAfter(const HttpReplyHead & head, double now);

/// A date of the form "Sun, 06 Nov 1994 08:49:37 GMT", or of one of the two older ones, in seconds since
/// 1970.
std::optional<double> parseHttpDate(const std::string & text);

/// Where a redirect may lead.
struct HttpPlace {
    std::string scheme; ///< in lower case, as the host
    std::string host;
};
constexpr int s_mostRedirects = 5;
/// Why the redirect number `count`, the first being 1, is not followed; empty when it is: to the same host,
/// and from http to https. `followsAll` lets it lead to any other web server.
std::wstring judgeRedirect(const HttpPlace & from, const HttpPlace & to, int count, bool followsAll);

} // namespace ZMT::CORE::IMPL
