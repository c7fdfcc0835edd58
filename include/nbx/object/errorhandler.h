#pragma once

#include <functional>
#include <ostream>
#include <string>

namespace NBX {

/// One report of a violated condition or a run-time failure.
struct ErrorReport {
    int level;              ///< 0 violated precondition, 2 survivable failure, 3 not implemented
    std::wstring condition; ///< source text of the failed condition
    std::wstring message;
    const char * sourcePath; ///< relative, begins `..\..\src\`
    int line;
};

/// The channel for reports: what went wrong is told to one handler of the process, and control goes on
/// behind the report. The first handler writes one line to the standard error stream.
class ErrorHandler {
public:
    using Handler = std::function<void(const ErrorReport &)>;

    /// Begins a message; the stream belongs to the calling thread, up to its `callHandler`. Messages nest:
    /// one may be begun and told while another one is streamed.
    static std::wostream & newErrorOutputStringStream();
    /// Fires the handler with the message that this thread began last and has not told yet.
    static void callHandler(int level, const wchar_t * condition, const char * sourcePath, int line);

    /// Replaces the handler and returns the one before; an empty handler restores the first one. Handlers
    /// may be called from any thread, one call at a time.
    static Handler setHandler(Handler handler);

    /// The text of the operating system's last error.
    static std::wstring getLastError();
};

} // namespace NBX

#define NBX_REPORT(level, conditionText, message)                                                            \
    do {                                                                                                     \
        NBX::ErrorHandler::newErrorOutputStringStream() << message;                                          \
        NBX::ErrorHandler::callHandler(level, conditionText, __FILE__, __LINE__);                            \
    } while (false)

/// Reports at level 0 when `condition` is false. `message` may be a chain of `<<`; control goes on.
#define NBX_CHECK(condition, message)                                                                        \
    do {                                                                                                     \
        if (!(condition)) NBX_REPORT(0, L"" #condition, message);                                            \
    } while (false)

/// Reports at level 0 when `lower <= value < upper` does not hold.
#define NBX_CHECK_RANGE(lower, value, upper)                                                                 \
    NBX_CHECK(((lower) <= (value)) && ((value) < (upper)),                                                   \
              L"range error: [" << (lower) << L", " << (upper) << L"), " << (value))

/// A run-time failure that the caller survives.
#define NBX_FAILURE(message) NBX_REPORT(2, L"false", message)

/// An operation that the class does not provide.
#define NBX_NOT_IMPLEMENTED(message) NBX_REPORT(3, L"L\"Not implemented\"", message)
