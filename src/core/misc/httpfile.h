#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <nbx/object/so.h>

namespace ZMT::CORE {
class AsyncFile;
}

// Files on web servers, as the rest of the library sees them: what lies behind needs Qt's network classes.

namespace ZMT::CORE::IMPL {

/// The file at a URL that begins with "http" or "https" and has a host and a path; its first byte is asked
/// for, to learn its length. Null where the server does not give it, which `problem` tells, and, without a
/// problem, for what is no such URL. To be called on the thread of the application's event loop: without an
/// application object, or on another thread, it is reported. `isRedirectRefused`, where given, becomes
/// whether it would be followed to another server if the settings said so.
NBX::SO<AsyncFile> openHttpFile(const std::wstring & url, std::wstring & problem,
                                bool * isRedirectRefused = nullptr);

/// Whether any transfer from a web server is under way.
bool isHttpLoading();

/// Requests to web servers that wait or are under way.
std::size_t pendingHttpRequests();

/// Lets the event loop work for `maxTime` milliseconds at most, without user input and without a canvas
/// drawing; shorter when nothing is under way. False where there is no application object, which is reported.
bool waitForHttp(double maxTime);

/// Bytes that came from web servers since the process began.
std::uint64_t totalHttpBytes();

} // namespace ZMT::CORE::IMPL
