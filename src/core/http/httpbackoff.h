#pragma once

#include <map>
#include <optional>
#include <string>

namespace ZMT::CORE::IMPL {

/// Which hosts are to be left alone after a failure, and until when. The pause doubles from failure to
/// failure and begins anew after a success. Transfers that run side by side and fail together are one
/// failure: only one that began after the last failure doubles. All times are in seconds of one clock.
class HttpBackoff {
public:
    /// A transfer that began at `started` failed at `now`. The pause is at least `retryAfter` long.
    void failed(const std::string & host, double started, double now, double retryAfter,
                const std::wstring & why);
    /// A transfer that began at `started` succeeded. One that began before the last failure says nothing
    /// about what came behind.
    void succeeded(const std::string & host, double started);

    /// How long the host is still left alone; 0 when it is not.
    double remaining(const std::string & host, double now) const;
    /// When the last failure was; none since the last success.
    std::optional<double> failureTime(const std::string & host) const;
    /// Of the last failure; empty when there was none since the last success.
    std::wstring lastFailure(const std::string & host) const;

private:
    struct Host {
        double pause = 0.0;
        double failure = 0.0; ///< when the last one was
        double resumption = 0.0;
        std::wstring why;
    };
    std::map<std::string, Host> hosts_;
};

} // namespace ZMT::CORE::IMPL
