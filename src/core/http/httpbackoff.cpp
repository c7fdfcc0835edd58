#include "httpbackoff.h"

#include <algorithm>

#include "httptimes.h"

namespace ZMT::CORE::IMPL {

HttpTimes & httpTimes() {
    static HttpTimes times;
    return times;
}

void HttpBackoff::failed(const std::string & host, double started, double now, double retryAfter,
                         const std::wstring & why) {
    const auto [entry, isFirst] = hosts_.try_emplace(host);
    Host & h = entry->second;
    if (isFirst)
        h.pause = httpTimes().firstPause;
    else if (started >= h.failure)
        h.pause = std::min(2.0 * h.pause, httpTimes().longestPause);
    h.failure = now;
    h.resumption = std::max(h.resumption, now + std::max(h.pause, retryAfter));
    h.why = why;
}

void HttpBackoff::succeeded(const std::string & host, double started) {
    const auto entry = hosts_.find(host);
    if (entry != hosts_.end() && started >= entry->second.failure) hosts_.erase(entry);
}

double HttpBackoff::remaining(const std::string & host, double now) const {
    const auto entry = hosts_.find(host);
    return entry == hosts_.end() ? 0.0 : std::max(0.0, entry->second.resumption - now);
}

std::optional<double> HttpBackoff::failureTime(const std::string & host) const {
    const auto entry = hosts_.find(host);
    return entry == hosts_.end() ? std::nullopt : std::optional(entry->second.failure);
}

std::wstring HttpBackoff::lastFailure(const std::string & host) const {
    const auto entry = hosts_.find(host);
    return entry == hosts_.end() ? std::wstring() : entry->second.why;
}

} // namespace ZMT::CORE::IMPL
