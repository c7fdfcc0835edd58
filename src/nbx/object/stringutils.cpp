#include <nbx/object/stringutils.h>

#include <algorithm>
#include <cstdint>
#include <optional>

#include "codepage.h"

namespace NBX {

namespace {

constexpr std::uint32_t s_replacement = 0xFFFD;

bool isScalarValue(std::uint32_t c) {
    return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
}

void appendUtf8(std::string & out, std::uint32_t c) {
    const auto byte = [&out](std::uint32_t b) { out.push_back(static_cast<char>(b)); };
    const auto tail = [&byte, c](unsigned shift) { byte(0x80 | ((c >> shift) & 0x3F)); };
    if (c < 0x80) {
        byte(c);
    } else if (c < 0x800) {
        byte(0xC0 | (c >> 6)), tail(0);
    } else if (c < 0x10000) {
        byte(0xE0 | (c >> 12)), tail(6), tail(0);
    } else {
        byte(0xF0 | (c >> 18)), tail(12), tail(6), tail(0);
    }
}

/// Takes one character off the front of `text`, or one byte that begins none.
std::optional<std::uint32_t> takeUtf8(std::string_view & text) {
    const auto first = static_cast<unsigned char>(text.front());
    text.remove_prefix(1);
    if (first < 0x80) return first;
    const unsigned tails = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
    if (first < 0xC2 || first > 0xF4 || text.size() < tails) return {};
    std::uint32_t c = first & (0x3F >> tails);
    for (unsigned i = 0; i < tails; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0) != 0x80) return {};
        c = (c << 6) | (next & 0x3F);
    }
    static constexpr std::uint32_t s_least[] = {0, 0x80, 0x800, 0x10000};
    if (c < s_least[tails] || !isScalarValue(c)) return {};
    text.remove_prefix(tails);
    return c;
}

} // namespace

std::string StringUtils::WString2Utf8String(std::wstring_view text) {
    std::string result;
    result.reserve(text.size());
    for (const wchar_t w : text) {
        const auto c = static_cast<std::uint32_t>(w);
        appendUtf8(result, isScalarValue(c) ? c : s_replacement);
    }
    return result;
}

std::wstring StringUtils::Utf8String2WString(std::string_view text) {
    std::wstring result;
    result.reserve(text.size());
    while (!text.empty())
        result.push_back(static_cast<wchar_t>(takeUtf8(text).value_or(s_replacement)));
    return result;
}

bool StringUtils::isUtf8(std::string_view text) {
    while (!text.empty())
        if (!takeUtf8(text)) return false;
    return true;
}

std::wstring StringUtils::String2WString(std::string_view text) {
    if (const auto & page = CodePage::ofUser()) return page->decode(text);
    return isUtf8(text) ? Utf8String2WString(text) : CodePage::windows1252().decode(text);
}

std::vector<std::wstring> StringUtils::Split(std::wstring_view text, wchar_t separator) {
    std::vector<std::wstring> parts;
    parts.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), separator)) + 1);
    for (std::size_t end = text.find(separator); end != text.npos; end = text.find(separator)) {
        parts.emplace_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    parts.emplace_back(text);
    return parts;
}

} // namespace NBX
