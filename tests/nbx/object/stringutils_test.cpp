#include <nbx/object/stringutils.h>

#include <gtest/gtest.h>

using NBX::StringUtils;

namespace {

TEST(StringUtils, KnownTextsConvertBothWays) {
    const struct {
        std::wstring wide;
        std::string utf8;
    } rows[] = {
        {L"", ""},
        {L"abc", "abc"},
        {L"\u00fc", "\xC3\xBC"},
        {L"\u20ac", "\xE2\x82\xAC"},
        {L"\U0001F5FB", "\xF0\x9F\x97\xBB"},
        {L"\U0010FFFF", "\xF4\x8F\xBF\xBF"},
        {std::wstring(L"a\0b", 3), std::string("a\0b", 3)},
    };
    for (const auto & row : rows) {
        EXPECT_EQ(StringUtils::WString2Utf8String(row.wide), row.utf8);
        EXPECT_EQ(StringUtils::Utf8String2WString(row.utf8), row.wide);
    }
}

TEST(StringUtils, EveryScalarValueMakesTheRoundTrip) {
    std::wstring all;
    for (wchar_t c = 0; c <= 0x10FFFF; ++c)
        if (c < 0xD800 || c > 0xDFFF) all.push_back(c);
    EXPECT_EQ(StringUtils::Utf8String2WString(StringUtils::WString2Utf8String(all)), all);
}

TEST(StringUtils, BadBytesBecomeReplacementCharacters) {
    const std::wstring r = L"\uFFFD";
    EXPECT_EQ(StringUtils::Utf8String2WString("a\x80z"), L"a" + r + L"z");
    EXPECT_EQ(StringUtils::Utf8String2WString("\xC3"), r);
    EXPECT_EQ(StringUtils::Utf8String2WString("\xC3(")[0], r[0]);
    EXPECT_EQ(StringUtils::Utf8String2WString("\xC0\xAF"), r + r) << "overlong";
    EXPECT_EQ(StringUtils::Utf8String2WString("\xED\xA0\x80")[0], r[0]) << "surrogate";
    EXPECT_EQ(StringUtils::Utf8String2WString("\xF5\x80\x80\x80")[0], r[0]) << "too large";
    EXPECT_EQ(StringUtils::WString2Utf8String(std::wstring(1, wchar_t(0xD800))), "\xEF\xBF\xBD");
    EXPECT_EQ(StringUtils::WString2Utf8String(std::wstring(1, wchar_t(-1))), "\xEF\xBF\xBD");
}

TEST(StringUtils, KnowsWhatIsUtf8) {
    for (const char * text : {"", "abc", "\xC3\xBC", "\xEF\xBF\xBD", "\xF4\x8F\xBF\xBF"})
        EXPECT_TRUE(StringUtils::isUtf8(text)) << text;
    for (const char * text : {"\xFC", "\xC3", "a\x80z", "\xC0\xAF", "\xED\xA0\x80", "\xF5\x80\x80\x80"})
        EXPECT_FALSE(StringUtils::isUtf8(text)) << text;
}

TEST(StringUtils, PartsLieBetweenSeparators) {
    using Parts = std::vector<std::wstring>;
    const struct {
        std::wstring text;
        Parts parts;
    } rows[] = {
        {L"", {L""}},
        {L"a", {L"a"}},
        {L"=", {L"", L""}},
        {L"a=", {L"a", L""}},
        {L"=b", {L"", L"b"}},
        {L"a = b", {L"a ", L" b"}},
        {L"a==b", {L"a", L"", L"b"}},
        {L"a=b=c", {L"a", L"b", L"c"}},
    };
    for (const auto & row : rows)
        EXPECT_EQ(StringUtils::Split(row.text, L'='), row.parts);
}

} // namespace
