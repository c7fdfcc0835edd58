#include <zmt/util/inireader.h>

#include <algorithm>
#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include <support/recordedreports.h>
#include <support/zmtrun.h>

#include <nbx/object/nbxtime.h>
#include <nbx/object/stringutils.h>

namespace {

using ZMT::UTIL::IniReader;
using Values = std::map<std::wstring, std::wstring>;

constexpr const char * s_mark = "\xEF\xBB\xBF";

class IniReaderTest : public testing::Test {
protected:
    std::wstring file(const std::string & name = "a.ini") const {
        return NBX::StringUtils::Utf8String2WString(folder_.out(name));
    }
    Values parsed(const std::string & bytes) const {
        Values values;
        IniReader::Parse(NBX::StringUtils::Utf8String2WString(folder_.write("a.ini", bytes)), values);
        return values;
    }

    RecordedReports reports_;
    RunFolder folder_;
};

TEST_F(IniReaderTest, OnlyLinesOfOneEqualsSignCount) {
    const struct {
        const char * name;
        std::string text;
        Values values;
    } rows[] = {
        {"nothing", "", {}},
        {"a line without an end", "a=b", {{L"a", L"b"}}},
        {"ends of other systems", "a=b\r\nc=d\r\n", {{L"a", L"b"}, {L"c", L"d"}}},
        {"white space at the ends", " \t a b \t=  c d \v\f\n", {{L"a b", L"c d"}}},
        {"the last one of a key", "a=1\nb=2\na = 3\n", {{L"a", L"3"}, {L"b", L"2"}}},
        {"two equals signs", "a=b=c\na==b\n==\n", {}},
        {"comments and sections", "; note\n# note\n[section]\n\n\na=b\n", {{L"a", L"b"}}},
        {"an empty value", "a=\n", {{L"a", L""}}},
        {"an empty key", " =b\n", {{L"", L"b"}}},
        {"zeros", std::string("a\0=b\n", 5), {{std::wstring(L"a\0", 2), L"b"}}},
    };
    for (const auto & row : rows) {
        EXPECT_EQ(parsed(row.text), row.values) << row.name;
        EXPECT_EQ(parsed(s_mark + row.text), row.values) << row.name << ", behind a mark";
    }
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(IniReaderTest, TheMarkIsCutOffAndSaysUtf8) {
    EXPECT_EQ(parsed("\xEF\xBB\xBFZ\xC3\xBCrich=408 m \xE2\x80\x93\n"),
              (Values{{L"Z\u00FCrich", L"408 m \u2013"}}));
    EXPECT_EQ(parsed("\xEF\xBB\xBFZ\xFCrich=1\n"), (Values{{L"Z\uFFFDrich", L"1"}})) << "no UTF-8";
    EXPECT_EQ(parsed("\xEF\xBB"), Values()) << "half a mark";
    EXPECT_EQ(parsed("\xEF\xBB\xBF"), Values()) << "a mark alone";
}

/// The locale of the tests has no code page of its own.
TEST_F(IniReaderTest, WithoutTheMarkTheCodePageOfTheSystemHolds) {
    EXPECT_EQ(parsed("Z\xC3\xBCrich=a\n"), (Values{{L"Z\u00FCrich", L"a"}})) << "UTF-8";
    EXPECT_EQ(parsed("Z\xFCrich=5 \x80\n"), (Values{{L"Z\u00FCrich", L"5 \u20AC"}})) << "Windows-1252";
}

TEST_F(IniReaderTest, EntriesComeBesideThoseThatAreThere) {
    Values values = {{L"a", L"1"}, {L"b", L"2"}};
    IniReader::Parse(NBX::StringUtils::Utf8String2WString(folder_.write("a.ini", "b=3\nc=4\n")), values);
    EXPECT_EQ(values, (Values{{L"a", L"1"}, {L"b", L"3"}, {L"c", L"4"}}));
}

TEST_F(IniReaderTest, WritesTheMarkAndALineForEachEntry) {
    ASSERT_TRUE(IniReader::Write(file(), {{L"b", L"2"}, {L"Z\u00FCrich", L"408 m"}, {L"a", L""}}));
    EXPECT_EQ(readWhole(folder_.out("a.ini")), "\xEF\xBB\xBFZ\xC3\xBCrich=408 m\na=\nb=2\n");
    ASSERT_TRUE(IniReader::Write(file(), {}));
    EXPECT_EQ(readWhole(folder_.out("a.ini")), s_mark) << "what was there is gone";
}

TEST_F(IniReaderTest, WhatIsWrittenComesBack) {
    std::mt19937 random(20);
    std::uniform_int_distribution<int> letter(0x21, 0x2FFF), length(0, 20);
    const auto text = [&] {
        std::wstring result(std::size_t(length(random)), L' ');
        for (wchar_t & c : result)
            do
                c = wchar_t(letter(random));
            while (c == L'=');
        return result;
    };
    Values written;
    for (int i = 0; i < 500; ++i)
        written[text()] = text();
    ASSERT_TRUE(IniReader::Write(file(), written));
    Values read;
    IniReader::Parse(file(), read);
    EXPECT_EQ(read, written);
}

TEST_F(IniReaderTest, FilesThatCannotBeOpenedAreReported) {
    Values values = {{L"a", L"1"}};
    const std::wstring missing = file("missing/a.ini"), aFolder = file("");
    for (const std::wstring & name : {missing, aFolder}) {
        reports_.clear();
        IniReader::Parse(name, values);
        EXPECT_EQ(reports_.size(), 1U) << reports_;
        EXPECT_EQ(reports_.count(2, L"!file.fail()", L"Failed to open ini file (" + name + L")"), 1U)
            << reports_;
        reports_.clear();
        EXPECT_FALSE(IniReader::Write(name, values));
        EXPECT_EQ(reports_.size(), 1U) << reports_;
        EXPECT_EQ(reports_.count(2, L"!file.fail()", L"Failed to open/create ini file (" + name + L")"), 1U)
            << reports_;
    }
    EXPECT_EQ(values, (Values{{L"a", L"1"}}));
    EXPECT_TRUE(folder_.results().empty());
}

TEST_F(IniReaderTest, TimeGrowsWithTheLines) {
    const auto secondsFor = [this](int lines) {
        std::string text;
        for (int i = 0; i < lines; ++i)
            text.append("key ").append(std::to_string(i)).append(" = a value that takes some letters\n");
        const std::string path = folder_.write("large.ini", text);
        double best = HUGE_VAL;
        for (int i = 0; i < 3; ++i) {
            Values values;
            const double start = NBX::NBXTime::now();
            IniReader::Parse(NBX::StringUtils::Utf8String2WString(path), values);
            best = std::min(best, NBX::NBXTime::now() - start);
            EXPECT_EQ(values.size(), std::size_t(lines));
        }
        return best;
    };
    // Ten times as many lines; a quadratic reader would take a hundred times as long.
    EXPECT_LT(secondsFor(100'000), 40.0 * secondsFor(10'000));
}

TEST_F(IniReaderTest, BytesAtRandomAreNoHarm) {
    std::mt19937 random(21);
    const char letters[] = "=\n\r\t ab\xEF\xBB\xBF\xC3\xF4\x80\xFF";
    for (int i = 0; i < 100; ++i) {
        std::string bytes(random() % 400, ' ');
        for (char & c : bytes)
            c = random() % 2 ? char(random() % 256) : letters[random() % sizeof letters];
        for (const std::string & text : {bytes, s_mark + bytes})
            EXPECT_LE(parsed(text).size(), std::size_t(std::count(bytes.begin(), bytes.end(), '=')));
    }
    EXPECT_TRUE(reports_.empty()) << reports_;
}

} // namespace
