#pragma once

#include <string>
#include <string_view>

namespace ZMT::CORE::IMPL {

/// The value of a variable of the environment; empty where it is not set.
using EnvironmentVariable = std::string (*)(const char * name);
std::string environmentVariable(const char * name);

/// The URL of the proxy through which the environment wants `host` to be reached; empty for none. By the
/// customs of the variables: "http_proxy" counts in lower case alone, since servers that run programs set the
/// other one from a header; "https_proxy", "all_proxy" and "no_proxy" count in both.
std::string proxyFor(std::string_view scheme, std::string_view host, EnvironmentVariable variable);

} // namespace ZMT::CORE::IMPL
