#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <nbx/object/errorhandler.h>

/// Gathers what the libraries report while it lives, or while another one lives that was made later. Any
/// thread may report.
class Reports {
public:
    Reports();
    ~Reports();
    Reports(const Reports &) = delete;
    Reports & operator=(const Reports &) = delete;

    /// Takes what was gathered so far; equal messages come once.
    std::vector<std::string> take();

    /// Takes what the one made last has gathered, and throws `DataError` with the first message, if any but
    /// warnings, which stay.
    static void throwFirst();

    /// Whether the user also wants to know what tells how a library works, and not that something went wrong.
    /// By default not. To be set before anything reports.
    static void setVerbose(bool isVerbose) { s_isVerbose = isVerbose; }
    static bool isVerbose() { return s_isVerbose; }

private:
    inline static bool s_isVerbose = false;

    void note(const NBX::ErrorReport & report);

    std::mutex mutex_;
    std::vector<std::string> messages_;
    std::vector<std::string> warnings_; ///< nothing is wrong with the picture
    Reports * outer_;
    NBX::ErrorHandler::Handler previous_;
};
