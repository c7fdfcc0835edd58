#include "nbx/object/codepage.h"

#include <gtest/gtest.h>

#include <nbx/object/stringutils.h>

using NBX::CodePage;

namespace {

/// A page whose upper half holds Cyrillic letters, as far as they reach, and that says how many bytes a
/// character takes.
class CyrillicFacet : public std::codecvt<wchar_t, char, std::mbstate_t> {
public:
    explicit CyrillicFacet(int encoding) : encoding_(encoding) {}

protected:
    result do_in(state_type &, const char * from, const char *, const char *& fromNext, wchar_t * to,
                 wchar_t *, wchar_t *& toNext) const override {
        const auto byte = static_cast<unsigned char>(*from);
        if (byte >= 0xC0) return error;
        *to = byte < 0x80 ? wchar_t(byte) : wchar_t(0x0400 + byte - 0x80);
        fromNext = from + 1;
        toNext = to + 1;
        return ok;
    }
    int do_encoding() const noexcept override { return encoding_; }

private:
    int encoding_;
};

std::locale cyrillic(int encoding) {
    return std::locale(std::locale::classic(), new CyrillicFacet(encoding));
}

TEST(CodePage, OfALocaleMapsEachByte) {
    const auto page = CodePage::of(cyrillic(1));
    ASSERT_TRUE(page);
    EXPECT_EQ(page->decode("a\x80\xBF"), L"a\u0400\u043F");
    EXPECT_EQ(page->decode("\xC0z"), L"\uFFFDz") << "a byte without a meaning";
    EXPECT_EQ(page->decode(std::string("\0b", 2)), std::wstring(L"\0b", 2));
}

TEST(CodePage, LocalesOfSeveralBytesHaveNone) {
    EXPECT_FALSE(CodePage::of(cyrillic(0)));
    EXPECT_FALSE(CodePage::of(cyrillic(2)));
    EXPECT_FALSE(CodePage::of(std::locale::classic())) << "and neither has the one without a language";
}

TEST(CodePage, Windows1252HoldsLatin1) {
    const CodePage & page = CodePage::windows1252();
    EXPECT_EQ(page.decode("Gr\xFC\xDF"
                          "e \xA0\xFF"),
              L"Gr\u00FC\u00DFe \u00A0\u00FF");
    EXPECT_EQ(page.decode("\x80 5, \x93o\x94 \x9F"), L"\u20AC 5, \u201Co\u201D \u0178");
    EXPECT_EQ(page.decode("\x81\x8D"), L"\u0081\u008D") << "bytes that it leaves free";
}

TEST(CodePage, TextThatIsNoUtf8IsOfWindowsWhereTheLocaleHasNoPage) {
    if (CodePage::ofUser()) GTEST_SKIP() << "the locale has one";
    using NBX::StringUtils;
    EXPECT_EQ(StringUtils::String2WString("Z\xC3\xBCrich"), L"Z\u00FCrich");
    EXPECT_EQ(StringUtils::String2WString("Z\xFCrich"), L"Z\u00FCrich");
    EXPECT_EQ(StringUtils::String2WString("\xC3\xBC \xFC"), L"\u00C3\u00BC \u00FC") << "one or the other";
}

} // namespace
