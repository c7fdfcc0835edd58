#include <nbx/object/errorhandler.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <list>
#include <mutex>
#include <sstream>
#include <utility>

#include <nbx/object/stringutils.h>

#include "heldreports.h"

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

/// More messages than this within each other are none: exceptions have left the outer ones behind.
constexpr std::size_t s_deepestMessage = 16;

/// The messages that this thread has begun, the innermost last: a value that is streamed may report itself.
std::list<std::wostringstream> & messages() {
    thread_local std::list<std::wostringstream> streams;
    return streams;
}

std::wstring takeMessage() {
    if (messages().empty()) return {};
    std::wstring message = messages().back().str();
    messages().pop_back();
    return message;
}

} // namespace

std::wostream & ErrorHandler::newErrorOutputStringStream() {
    if (messages().size() >= s_deepestMessage) messages().pop_front();
    return messages().emplace_back();
}

void ErrorHandler::callHandler(int level, const wchar_t * condition, const char * sourcePath, int line) {
    const ErrorReport report{level, condition, takeMessage(), sourcePath, line};
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
