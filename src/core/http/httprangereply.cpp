// Every answer of a server is judged before a byte of its body is taken: status, encoding, range, length and
// version, in this order, the first fault first. Texts of the server are shown cut and without control codes.
// Sources: RFC 9110 (range requests, validators, dates), RFC 9112 (heads).

#include "httprangereply.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cstdio>

#include <nbx/object/stringutils.h>

namespace ZMT::CORE::IMPL {

namespace {

/// Messages show no more of a head than this.
constexpr std::size_t s_longestText = 2000;
constexpr double s_longestRetryAfter = 3600.0;

bool isSameName(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

std::string_view trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

/// Digits and nothing else; null for those that do not fit.
std::optional<std::uint64_t> parseNumber(std::string_view text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

/// What a terminal takes for a command is left out; lines stay.
std::wstring wide(std::string_view text) {
    std::wstring result = NBX::StringUtils::Utf8String2WString(text.substr(0, s_longestText));
    std::erase_if(result, [](wchar_t c) { return (c < 0x20 && c != L'\n') || (c >= 0x7f && c < 0xa0); });
    return result;
}

std::wstring serverPrefix(const std::wstring & host) {
    return L"server '" + host + L"' ";
}

std::wstring judgeStatus(const std::wstring & host, const HttpReplyHead & head) {
    if (head.status >= 200 && head.status < 300)
        return serverPrefix(host) + L"does not support partial GET-requests via HTTP:\n" + head.text();
    return serverPrefix(host) + L"answered " + std::to_wstring(head.status) + L" " + wide(head.reason);
}

std::wstring judgeEncoding(const std::wstring & host, const HttpReplyHead & head) {
    const std::string * encoding = head.field("content-encoding");
    if (!encoding || encoding->empty() || isSameName(*encoding, "identity")) return {};
    return serverPrefix(host) + L"sent an encoded reply: " + wide(*encoding);
}

std::wstring judgeRange(const std::wstring & host, const HttpReplyHead & head, std::uint64_t offset,
                        std::uint64_t knownSize) {
    const std::string * value = head.field("content-range");
    if (!value)
        return serverPrefix(host) + L"does not support partial GET-requests via HTTP:\n" + head.text();
    const std::optional<HttpContentRange> range = parseContentRange(*value);
    if (!range) return serverPrefix(host) + L"returned corrupted 'content-range' value: " + wide(*value);
    if (range->first != offset)
        return serverPrefix(host) + L"sent another range than the one from " + std::to_wstring(offset) +
               L" on: " + wide(*value);
    if (knownSize != 0 && range->total != knownSize)
        return L"the file changed on server '" + host + L"': it had " + std::to_wstring(knownSize) +
               L" bytes and has " + std::to_wstring(range->total);
    return {};
}

/// Equal strong tags are a promise; a weak one, or none, leaves it to the date.
bool isSameVersion(const HttpFileVersion & a, const HttpFileVersion & b) {
    const bool haveTags = !a.etag.empty() && !b.etag.empty();
    if (haveTags && a.etag != b.etag) return false;
    if (haveTags && !a.etag.starts_with("W/")) return true;
    return a.lastModified.empty() || b.lastModified.empty() || a.lastModified == b.lastModified;
}

std::string valueOf(const HttpReplyHead & head, std::string_view name) {
    const std::string * value = head.field(name);
    return value ? *value : std::string();
}

int monthOf(std::string_view name) {
    static constexpr std::array<std::string_view, 12> names = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const auto found = std::find(names.begin(), names.end(), name);
    return found == names.end() ? 0 : static_cast<int>(found - names.begin()) + 1;
}

std::optional<double> secondsOf(int year, int month, int day, int hour, int minute, int second) {
    using namespace std::chrono;
    const year_month_day date(std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                              std::chrono::day(static_cast<unsigned>(day)));
    const bool isTime = hour >= 0 && hour < 24 && minute >= 0 && minute < 60 && second >= 0 && second <= 60;
    if (!date.ok() || !isTime) return std::nullopt;
    return sys_days(date).time_since_epoch().count() * 86400.0 + hour * 3600.0 + minute * 60.0 + second;
}

} // namespace

const std::string * HttpReplyHead::field(std::string_view name) const {
    for (const auto & [key, value] : fields)
        if (isSameName(key, name)) return &value;
    return nullptr;
}

std::wstring HttpReplyHead::text() const {
    std::string result = "HTTP/1.1 " + std::to_string(status) + " " + reason + "\n";
    for (const auto & [key, value] : fields)
        if (result.size() < s_longestText) result.append(key).append(": ").append(value).append("\n");
    return wide(result);
}

bool HttpReplyHead::isRedirect() const {
    static constexpr std::array<int, 5> codes = {301, 302, 303, 307, 308};
    return std::find(codes.begin(), codes.end(), status) != codes.end() && field("location");
}

std::optional<HttpContentRange> parseContentRange(std::string_view value) {
    value = trimmed(value);
    const std::size_t space = value.find(' ');
    const std::size_t slash = value.find('/');
    if (space == std::string_view::npos || slash == std::string_view::npos || slash < space)
        return std::nullopt;
    if (!isSameName(value.substr(0, space), "bytes")) return std::nullopt;
    const std::string_view span = trimmed(value.substr(space, slash - space));
    const std::size_t dash = span.find('-');
    if (dash == std::string_view::npos) return std::nullopt;
    const auto first = parseNumber(span.substr(0, dash));
    const auto last = parseNumber(span.substr(dash + 1));
    const auto total = parseNumber(trimmed(value.substr(slash + 1)));
    if (!first || !last || !total || *first > *last || *last >= *total) return std::nullopt;
    return HttpContentRange{*first, *last, *total};
}

HttpFileVersion versionOf(const HttpReplyHead & head) {
    const std::optional<HttpContentRange> range = parseContentRange(valueOf(head, "content-range"));
    return {range ? range->total : 0, valueOf(head, "etag"), valueOf(head, "last-modified")};
}

std::wstring judgeRangeReply(const std::wstring & host, const HttpReplyHead & head, std::uint64_t offset,
                             const HttpFileVersion & known) {
    if (head.status != 206) return judgeStatus(host, head);
    if (const std::wstring problem = judgeEncoding(host, head); !problem.empty()) return problem;
    if (const std::wstring problem = judgeRange(host, head, offset, known.size); !problem.empty())
        return problem;
    if (known.size != 0 && !isSameVersion(known, versionOf(head)))
        return L"the file changed on server '" + host + L"' since it was opened";
    return {};
}

std::optional<bool> tellsChange(const HttpReplyHead & head, const HttpFileVersion & known) {
    if (known.size == 0) return std::nullopt;
    if (head.status == 416) return true;
    const HttpFileVersion version = versionOf(head);
    if (head.status != 206 || version.size == 0) return std::nullopt;
    return version.size != known.size || !isSameVersion(known, version);
}

double retryAfter(const HttpReplyHead & head, double now) {
    const std::string * value = head.field("retry-after");
    if (!value) return 0.0;
    double seconds = 0.0;
    if (const auto count = parseNumber(trimmed(*value))) {
        seconds = static_cast<double>(*count);
    } else if (const auto date = parseHttpDate(*value)) {
        seconds = *date - parseHttpDate(valueOf(head, "date")).value_or(now);
    }
    return std::clamp(seconds, 0.0, s_longestRetryAfter);
}

std::optional<double> parseHttpDate(const std::string & text) {
    char name[4] = {};
    int day = 0, year = 0, hour = 0, minute = 0, second = 0;
    const char * line = text.c_str();
    if (std::sscanf(line, "%*3[A-Za-z], %2d %3[A-Za-z] %4d %2d:%2d:%2d GMT", &day, name, &year, &hour,
                    &minute, &second) == 6)
        return secondsOf(year, monthOf(name), day, hour, minute, second);
    if (std::sscanf(line, "%*9[A-Za-z], %2d-%3[A-Za-z]-%2d %2d:%2d:%2d GMT", &day, name, &year, &hour,
                    &minute, &second) == 6)
        return secondsOf(year + (year < 70 ? 2000 : 1900), monthOf(name), day, hour, minute, second);
    if (std::sscanf(line, "%*3[A-Za-z] %3[A-Za-z] %2d %2d:%2d:%2d %4d", name, &day, &hour, &minute, &second,
                    &year) == 6)
        return secondsOf(year, monthOf(name), day, hour, minute, second);
    return std::nullopt;
}

std::wstring judgeRedirect(const HttpPlace & from, const HttpPlace & to, int count, bool followsAll) {
    const std::wstring host = wide(from.host);
    if (count > s_mostRedirects)
        return serverPrefix(host) + L"redirects more than " + std::to_wstring(s_mostRedirects) + L" times";
    const std::wstring refused =
        serverPrefix(host) + L"redirects to " + wide(to.scheme) + L"://" + wide(to.host);
    if (to.host.empty() || (to.scheme != "http" && to.scheme != "https"))
        return refused + L", which is no web server";
    if (followsAll) return {};
    if (from.scheme == "http" && to.scheme == "https") return {};
    if (from.scheme == to.scheme && from.host == to.host) return {};
    return refused + L", which is not followed";
}

} // namespace ZMT::CORE::IMPL
