#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ZMT::CORE::IMPL {

/// A user's name and password for a host.
struct NetrcLogin {
    std::string name;
    std::string password;
};

/// The login for `host` in the text of a netrc file: the first machine of that name, else the default one.
/// Null without one.
std::optional<NetrcLogin> findNetrcLogin(std::string_view text, std::string_view host);

/// The same from the user's file, which the variable NETRC names, else from ~/.netrc. It is read anew each
/// time; one that cannot be read is an empty one.
std::optional<NetrcLogin> netrcLogin(std::string_view host);

} // namespace ZMT::CORE::IMPL
