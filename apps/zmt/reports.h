#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <nbx/object/errorhandler.h>

/// Gathers what the libraries report while it lives. Any thread may report.
class Reports {
public:
    Reports();
    ~Reports();
    Reports(const Reports &) = delete;
    Reports & operator=(const Reports &) = delete;

    /// Takes what was gathered so far; equal messages come once.
    std::vector<std::string> take();

    /// Throws `DataError` with the first message that was gathered in this process and not taken, if any.
    static void throwFirst();

private:
    void note(const NBX::ErrorReport & report);

    std::mutex mutex_;
    std::vector<std::string> messages_;
    NBX::ErrorHandler::Handler previous_;
};
