#pragma once

#include <vector>

#include <nbx/object/errorhandler.h>

namespace NBX {

/// While it lives, the reports of the thread that made it are put into a list, and no handler is called. A
/// thread that works for another one hands its reports over so. May be nested; the inner one takes all.
class HeldReports {
public:
    /// `list` is borrowed.
    explicit HeldReports(std::vector<ErrorReport> & list);
    ~HeldReports();
    HeldReports(const HeldReports &) = delete;
    HeldReports & operator=(const HeldReports &) = delete;

    /// Reports all of `list` on the calling thread, in their order, as if they arose here.
    static void release(const std::vector<ErrorReport> & list);

private:
    friend class ErrorHandler;
    /// False where the calling thread holds nothing.
    static bool hold(const ErrorReport & report);

    std::vector<ErrorReport> & list_;
    HeldReports * outer_;
};

} // namespace NBX
