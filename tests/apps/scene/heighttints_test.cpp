#include "scene/heighttints.h"

#include <gtest/gtest.h>

#include "landscape/errors.h"
#include "support/zmtrun.h"

#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <zmt/util/colortable.h>

namespace {

TEST(HeightTints, TablesSpanTheHeights) {
    EXPECT_EQ(heightTintNames().front(), "atlas");
    EXPECT_GE(heightTintNames().size(), 4U);
    for (const std::string & name : heightTintNames()) {
        HeightTints tints = namedHeightTints(name, 100.0, 300.0);
        ASSERT_FALSE(tints.empty()) << name;
        EXPECT_EQ(tints.front().height, 100.0) << name;
        if (tints.size() > 1) {
            EXPECT_EQ(tints.back().height, 300.0) << name;
        }
        const HeightTints before = tints;
        sortHeightTints(tints);
        EXPECT_EQ(tints, before) << name;
    }
    EXPECT_EQ(namedHeightTints("nothing", 0.0, 9.0), namedHeightTints("atlas", 0.0, 9.0));
    EXPECT_FALSE(namedHeightTints("grey", 0.0, 9.0) == namedHeightTints("atlas", 0.0, 9.0));
}

TEST(HeightTints, ComeBackFromAFile) {
    const RunFolder folder;
    const HeightTints tints = {{-1.0 / 3.0, {0.0F, 0.25F, 1.0F}}, {0.0, {0.5F, 0.5F, 0.5F}},
                               {0.0, {1.0F, 0.5F, 0.0F}},         {1e-7, {1.0F, 1.0F, 0.0F}},
                               {1e-7, {0.0F, 1.0F, 0.0F}},        {8848.86, {1.0F, 1.0F, 1.0F}}};
    saveHeightTints(tints, folder.out("mine.nbx"));
    EXPECT_EQ(loadHeightTints(folder.out("mine.nbx")), tints);
    EXPECT_EQ(folder.results(), std::vector<std::string>{"mine.nbx"});
}

TEST(HeightTints, WhatIsNoTableIsRefused) {
    const RunFolder folder;
    EXPECT_THROW(loadHeightTints(folder.out("none.nbx")), NBX::IOException);
    EXPECT_THROW(loadHeightTints(folder.write("text.nbx", "0 green\n")), DataError);
    const NBX::SO<ZMT::UTIL::ColorTable> words(new ZMT::UTIL::ColorTable);
    words->saveTable(NBX::StringUtils::Utf8String2WString(folder.out("empty.nbx")));
    EXPECT_THROW(loadHeightTints(folder.out("empty.nbx")), DataError);
    for (const wchar_t * name : {L"meadow", L"12 m", L"nan", L"1e999", L""}) {
        words->clear();
        words->newEntry(L"5", NBX::Color::red);
        words->newEntry(name, NBX::Color::green);
        words->saveTable(NBX::StringUtils::Utf8String2WString(folder.out("words.nbx")));
        EXPECT_THROW(loadHeightTints(folder.out("words.nbx")), DataError) << name;
    }
}

} // namespace
