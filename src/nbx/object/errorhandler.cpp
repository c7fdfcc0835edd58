#include <nbx/object/errorhandler.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <mutex>
#include <sstream>
#include <utility>

#include <nbx/object/heldreports.h>
#include <nbx/object/stringutils.h>

namespace NBX {

namespace {

void writeReport(const ErrorReport & report) {
    std::cerr << "report (level " << report.level << "): " << StringUtils::WString2Utf8String(report.message)
              << " [" << StringUtils::WString2Utf8String(report.condition) << ", " << report.sourcePath << ':'
              << report.line << "]\n";
}

/// Handlers may be called while libraries load and unload, so this is never destroyed.
struct Channel {
    std::recursive_mutex mutex;
    ErrorHandler::Handler handler = writeReport;
};

Channel & channel() {
    static Channel & instance = *new Channel;
    return instance;
}

std::wostringstream & messageStream() {
    thread_local std::wostringstream stream;
    return stream;
}

} // namespace

std::wostream & ErrorHandler::newErrorOutputStringStream() {
    messageStream() = std::wostringstream();
    return messageStream();
}

void ErrorHandler::callHandler(int level, const wchar_t * condition, const char * sourcePath, int line) {
    const ErrorReport report{level, condition, messageStream().str(), sourcePath, line};
    if (HeldReports::hold(report)) return;
    const std::lock_guard lock(channel().mutex);
    const Handler handler = channel().handler;
    handler(report);
}

ErrorHandler::Handler ErrorHandler::setHandler(Handler handler) {
    if (!handler) handler = writeReport;
    const std::lock_guard lock(channel().mutex);
    return std::exchange(channel().handler, std::move(handler));
}

std::wstring ErrorHandler::getLastError() {
    return StringUtils::Utf8String2WString(std::strerror(errno));
}

} // namespace NBX
