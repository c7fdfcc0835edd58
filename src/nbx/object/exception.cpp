#include <nbx/object/exception.h>

#include <nbx/object/stringutils.h>

namespace NBX {

Exception::Exception(const std::wstring & message, const std::string & text, int line,
                     const std::wstring & detail)
    : message_(message), detail_(detail), what_(StringUtils::WString2Utf8String(message)) {
    if (!text.empty()) what_ += ": " + text;
    if (line > 0) what_ += ", line " + std::to_string(line);
    if (!detail.empty()) what_ += ": " + StringUtils::WString2Utf8String(detail);
}

} // namespace NBX
