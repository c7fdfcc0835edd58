#include "codepage.h"

#include <cwchar>
#include <stdexcept>

namespace NBX {

namespace {

using Facet = std::codecvt<wchar_t, char, std::mbstate_t>;

constexpr wchar_t s_wideReplacement = 0xFFFD;

/// Where it differs from Latin-1, from 0x80 on. The five bytes that it leaves free are as in Latin-1.
constexpr std::array<wchar_t, 32> s_windows1252 = {
    0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x8D,   0x017D, 0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

wchar_t characterOf(const Facet & facet, char byte) {
    std::mbstate_t state{};
    const char * behind = nullptr;
    wchar_t character = 0, *end = nullptr;
    const auto result = facet.in(state, &byte, &byte + 1, behind, &character, &character + 1, end);
    return result == std::codecvt_base::ok && end == &character + 1 ? character : s_wideReplacement;
}

std::locale userLocale() {
    try {
        return std::locale("");
    } catch (const std::runtime_error &) { // the environment names one that is not installed
        return std::locale::classic();
    }
}

} // namespace

std::optional<CodePage> CodePage::of(const std::locale & locale) {
    const auto & facet = std::use_facet<Facet>(locale);
    if (locale.name() == "C" || locale.name() == "POSIX" || facet.encoding() != 1) return {};
    CodePage page;
    for (unsigned byte = 0; byte < page.characters_.size(); ++byte)
        page.characters_[byte] = characterOf(facet, static_cast<char>(byte));
    return page;
}

const std::optional<CodePage> & CodePage::ofUser() {
    static const std::optional<CodePage> page = of(userLocale());
    return page;
}

const CodePage & CodePage::windows1252() {
    static const CodePage page = [] {
        CodePage result;
        for (unsigned byte = 0; byte < result.characters_.size(); ++byte)
            result.characters_[byte] =
                byte >= 0x80 && byte < 0xA0 ? s_windows1252[byte - 0x80] : static_cast<wchar_t>(byte);
        return result;
    }();
    return page;
}

std::wstring CodePage::decode(std::string_view text) const {
    std::wstring result;
    result.reserve(text.size());
    for (const char byte : text)
        result.push_back(characters_[static_cast<unsigned char>(byte)]);
    return result;
}

} // namespace NBX
