#pragma once

#include <array>
#include <locale>
#include <optional>
#include <string>
#include <string_view>

namespace NBX {

/// What the bytes of an 8-bit encoding mean: one character each.
class CodePage {
public:
    /// That of a locale; empty where it is "C" or where characters take several bytes.
    static std::optional<CodePage> of(const std::locale & locale);
    /// That of the user's environment, as the process found it at the first call.
    static const std::optional<CodePage> & ofUser();
    static const CodePage & windows1252();

    /// Bytes without a meaning become U+FFFD.
    std::wstring decode(std::string_view text) const;

private:
    std::array<wchar_t, 256> characters_{};
};

} // namespace NBX
