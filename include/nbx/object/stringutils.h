#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace NBX {

/// Conversions between wide and 8-bit text, and the parts of texts.
class StringUtils {
public:
    static std::string WString2Utf8String(std::wstring_view text);
    /// Bytes that are no UTF-8 become U+FFFD.
    static std::wstring Utf8String2WString(std::string_view text);
    /// False where `Utf8String2WString` would have to replace anything.
    static bool isUtf8(std::string_view text);
    /// Text in the 8-bit code page of the system: that of the user's locale, where bytes without a meaning
    /// become U+FFFD. Where the locale has none, since it is "C" or one of UTF-8, text is taken for UTF-8,
    /// and for Windows-1252, which holds Latin-1, where it is not.
    static std::wstring String2WString(std::string_view text);

    /// The parts between the separators: one more than there are of these, so that parts may be empty.
    static std::vector<std::wstring> Split(std::wstring_view text, wchar_t separator);
};

} // namespace NBX
