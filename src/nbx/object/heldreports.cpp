#include "heldreports.h"

namespace NBX {

namespace {

thread_local HeldReports * s_innermost = nullptr;

} // namespace

HeldReports::HeldReports(std::vector<ErrorReport> & list) : list_(list), outer_(s_innermost) {
    s_innermost = this;
}

HeldReports::~HeldReports() {
    s_innermost = outer_;
}

bool HeldReports::hold(const ErrorReport & report) {
    if (!s_innermost) return false;
    s_innermost->list_.push_back(report);
    return true;
}

void HeldReports::release(const std::vector<ErrorReport> & list) {
    for (const ErrorReport & report : list) {
        ErrorHandler::newErrorOutputStringStream() << report.message;
        ErrorHandler::callHandler(report.level, report.condition.c_str(), report.sourcePath, report.line);
    }
}

} // namespace NBX
