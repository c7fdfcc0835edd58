#include "nbx/text/textrun.h"

#include <sstream>

#include <gtest/gtest.h>

namespace {

using namespace NBX;

/// The runs from left to right, such as "Latn 0-3, Hebr 3-7 <".
std::string runs(std::u32string_view line) {
    std::ostringstream text;
    for (const TextRun & run : runsFromLeftToRight(line)) {
        if (text.tellp() > 0) text << ", ";
        for (int shift = 24; shift >= 0; shift -= 8)
            text << char(run.script >> shift & 0xFF);
        text << ' ' << run.begin << '-' << run.end << (run.rightToLeft ? " <" : "");
    }
    return text.str();
}

TEST(TextRun, LinesFallIntoDirectionsAndScripts) {
    struct Row {
        const char * name;
        const char32_t * line;
        const char * runs;
    };
    const Row rows[] = {
        {"nothing", U"", ""},
        {"latin", U"Everest 8848 m", "Latn 0-14"},
        {"digits alone", U"8848", "Zyyy 0-4"},
        {"digits before letters", U"12 Oak", "Latn 0-6"},
        {"scripts", U"Oak Дуб", "Latn 0-4, Cyrl 4-7"},
        {"hebrew", U"שלום", "Hebr 0-4 <"},
        {"hebrew in latin", U"a שלום b", "Latn 0-2, Hebr 2-6 <, Hebr 6-7, Latn 7-8"},
        {"latin in hebrew", U"שלום abc", "Latn 5-8, Hebr 0-5 <"},
        {"digits in arabic", U"طريق 12", "Arab 5-7, Arab 0-5 <"},
        {"two scripts from the right", U"שלום السلام", "Arab 5-11 <, Hebr 0-5 <"},
        {"an accent stays with its letter", U"a\u0301b", "Latn 0-3"},
        {"a bracket", U"a (שלום)", "Latn 0-3, Hebr 3-7 <, Hebr 7-8"},
    };
    for (const Row & row : rows)
        EXPECT_EQ(row.runs, runs(row.line)) << row.name;
}

TEST(TextRun, EachCharacterIsInOneRun) {
    // Levels within each other, with marks that open and never end.
    std::u32string line;
    for (int i = 0; i < 500; ++i)
        line += i % 3 == 0 ? U"\u202Bא" : i % 3 == 1 ? U"\u202Ab\u2067" : U"1)";
    std::vector<int> count(line.size());
    for (const TextRun & run : runsFromLeftToRight(line))
        for (std::size_t i = run.begin; i < run.end; ++i)
            ++count[i];
    EXPECT_EQ(std::vector<int>(line.size(), 1), count);
}

} // namespace
