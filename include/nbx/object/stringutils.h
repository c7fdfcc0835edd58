#pragma once

#include <string>
#include <string_view>

namespace NBX {

/// Conversions between wide and 8-bit text.
class StringUtils {
public:
    static std::string WString2Utf8String(std::wstring_view text);
    /// Bytes that are no UTF-8 become U+FFFD.
    static std::wstring Utf8String2WString(std::string_view text);
};

} // namespace NBX
