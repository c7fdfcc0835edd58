#include "httpproxy.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace ZMT::CORE::IMPL {

namespace {

std::string either(EnvironmentVariable variable, const char * lower, const char * upper) {
    std::string value = variable(lower);
    return value.empty() ? variable(upper) : value;
}

std::string lowered(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

/// Whether an entry of the list of exceptions means `host`: the host itself, or a domain above it.
bool isMeant(std::string_view entry, std::string_view host) {
    entry = entry.substr(0, entry.rfind(':') == entry.find(':') ? entry.find(':') : entry.size());
    if (entry.starts_with("*.")) entry.remove_prefix(1);
    if (entry.starts_with('.')) entry.remove_prefix(1);
    if (entry.empty() || !host.ends_with(entry)) return false;
    return host.size() == entry.size() || host[host.size() - entry.size() - 1] == '.';
}

bool isException(const std::string & list, const std::string & host) {
    for (std::size_t begin = 0; begin < list.size();) {
        const std::size_t end = std::min(list.find_first_of(", ", begin), list.size());
        const std::string entry = list.substr(begin, end - begin);
        if (entry == "*" || isMeant(entry, host)) return true;
        begin = end + 1;
    }
    return false;
}

} // namespace

std::string environmentVariable(const char * name) {
    const char * value = std::getenv(name);
    return value ? value : "";
}

std::string proxyFor(std::string_view scheme, std::string_view host, EnvironmentVariable variable) {
    if (isException(lowered(either(variable, "no_proxy", "NO_PROXY")), lowered(host))) return {};
    std::string proxy =
        scheme == "https" ? either(variable, "https_proxy", "HTTPS_PROXY") : variable("http_proxy");
    if (proxy.empty()) proxy = either(variable, "all_proxy", "ALL_PROXY");
    if (!proxy.empty() && proxy.find("://") == std::string::npos) proxy.insert(0, "http://");
    return proxy;
}

} // namespace ZMT::CORE::IMPL
