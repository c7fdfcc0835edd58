#pragma once

namespace ZMT::CORE {

/// How files on web servers are fetched. One set for the process, unlocked: set from the thread of the event
/// loop.
class HttpSettings {
public:
    /// Whether redirects may lead to any other web server. If not, as at first, they are followed to the same
    /// host and from http to https alone.
    static void setFollowsRedirects(bool follows);
    static bool getFollowsRedirects();
};

} // namespace ZMT::CORE
