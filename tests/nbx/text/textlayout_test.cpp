#include <nbx/text/textlayout.h>

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include <hb.h>

#include <nbx/object/stringutils.h>
#include <nbx/text/fontface.h>

#include "support/recordedreports.h"

namespace {

using namespace NBX;
using Layout = TextLayout;

class TextLayoutTest : public ::testing::Test {
protected:
    void SetUp() override {
        font = FontFace::named(L"DejaVu Sans");
        ASSERT_TRUE(font) << "fonts-dejavu-core is not installed";
    }
    Layout layout(std::string_view utf8, Layout::Anchor anchor = Layout::A_LowerLeft) {
        return Layout(font.get(), utf8, anchor);
    }
    double width(std::string_view utf8) { return layout(utf8).box().diagonal().x; }
    /// Glyph numbers from left to right.
    std::vector<unsigned> numbers(std::string_view utf8) {
        std::vector<unsigned> result;
        const Layout set = layout(utf8);
        for (const Layout::Glyph & glyph : set.glyphs())
            result.push_back(glyph.number);
        return result;
    }

    SO<FontFace> font;
};

/// What HarfBuzz gives for a text of one direction, which it guesses itself.
std::vector<Layout::Glyph> setByHarfBuzz(const std::string & path, const std::string & utf8, double & width) {
    hb_blob_t * blob = hb_blob_create_from_file(path.c_str());
    hb_face_t * face = hb_face_create(blob, 0);
    hb_font_t * font = hb_font_create(face);
    hb_buffer_t * buffer = hb_buffer_create();
    hb_buffer_add_utf8(buffer, utf8.c_str(), -1, 0, -1);
    hb_buffer_guess_segment_properties(buffer);
    hb_shape(font, buffer, nullptr, 0);
    unsigned count = 0;
    const hb_glyph_info_t * infos = hb_buffer_get_glyph_infos(buffer, &count);
    const hb_glyph_position_t * positions = hb_buffer_get_glyph_positions(buffer, &count);
    const double unit = hb_face_get_upem(face);
    std::vector<Layout::Glyph> result;
    width = 0.0;
    for (unsigned i = 0; i < count; ++i) {
        result.push_back(
            {infos[i].codepoint, width + positions[i].x_offset / unit, positions[i].y_offset / unit});
        width += positions[i].x_advance / unit;
    }
    hb_buffer_destroy(buffer);
    hb_font_destroy(font);
    hb_face_destroy(face);
    hb_blob_destroy(blob);
    return result;
}

TEST_F(TextLayoutTest, GlyphsStandWhereHarfBuzzSetsThem) {
    double raised = 0.0;
    for (const char * text :
         {"Everest 8848 m", "AVATAR Wy", "ÄÖÜ äöü ß", "office", "שלום", "שָׁלוֹם", "السلام عليكم", "Эверест",
          "e\xCC\x81\xCC\xA7", "नमस्ते", "x\xCC\x81\xCC\x82\xCC\xA3", "السَّلَامُ"}) {
        double width = 0.0;
        const std::vector<Layout::Glyph> expected = setByHarfBuzz(font->path(), text, width);
        const Layout set = layout(text);
        ASSERT_EQ(expected.size(), set.glyphs().size()) << text;
        for (std::size_t i = 0; i < expected.size(); ++i) {
            EXPECT_EQ(expected[i].number, set.glyphs()[i].number) << text;
            EXPECT_NEAR(expected[i].x, set.glyphs()[i].x, 1e-9) << text;
            EXPECT_NEAR(expected[i].y + font->descent(), set.glyphs()[i].y, 1e-9) << text;
            raised = std::max(raised, std::abs(expected[i].y));
        }
        EXPECT_NEAR(width, set.box().diagonal().x, 1e-9) << text;
        EXPECT_NEAR(font->ascent() + font->descent(), set.box().diagonal().y, 1e-9) << text;
    }
    EXPECT_GT(raised, 0.1) << "some marks stand above others";
}

TEST_F(TextLayoutTest, LettersAreKernedJoinedAndTurned) {
    EXPECT_LT(width("AV"), width("A") + width("V") - 0.01) << "kerned";
    EXPECT_LT(numbers("ffi").size(), 3U) << "a ligature";
    const std::vector<unsigned> hebrew = numbers("אבג");
    EXPECT_EQ(numbers("א"), std::vector<unsigned>{hebrew.back()}) << "the first letter is at the right";
    EXPECT_NE(numbers("سسس"), std::vector<unsigned>(3, numbers("س")[0])) << "letters join";
    EXPECT_EQ(numbers("(א)").size(), 3U);
    EXPECT_EQ(numbers("(").front(), numbers("א(ב").at(1) == numbers(")").front() ? numbers("(").front() : 0)
        << "brackets are mirrored";
}

TEST_F(TextLayoutTest, PartsOfBothDirectionsStandBesideEachOther) {
    const std::vector<unsigned> mixed = numbers("ab אב 12");
    std::vector<unsigned> expected = numbers("ab ");
    for (const char * part : {"12", " ", "ב", "א"})
        for (const unsigned number : numbers(part))
            expected.push_back(number);
    EXPECT_EQ(expected, mixed);
    EXPECT_NEAR(width("ab ") + width("אב") + width(" 12"), width("ab אב 12"), 1e-9);
}

TEST_F(TextLayoutTest, AnchorsAreNinePointsOfTheBox) {
    const Bounds box = layout("Everest").box();
    const double w = box.diagonal().x, h = box.diagonal().y;
    for (int anchor = 0; anchor < Layout::anchors; ++anchor) {
        const Layout set = layout("Everest", Layout::Anchor(anchor));
        const Bounds expected({-w * (anchor % 3) / 2, -h * (anchor / 3) / 2, 0},
                              {w - w * (anchor % 3) / 2, h - h * (anchor / 3) / 2, 0});
        EXPECT_NEAR((expected.getLLF() - set.box().getLLF()).length(), 0.0, 1e-12) << anchor;
        EXPECT_NEAR((expected.getURB() - set.box().getURB()).length(), 0.0, 1e-12) << anchor;
        EXPECT_NEAR(set.glyphs()[0].x - set.box().getLLF().x, 0.0, 1e-12);
        EXPECT_NEAR(set.glyphs()[0].y - set.box().getLLF().y, font->descent(), 1e-12);
        EXPECT_NEAR((layout("Everest").inkBox().center() - box.getLLF() -
                     (set.inkBox().center() - set.box().getLLF()))
                        .length(),
                    0.0, 1e-12);
    }
}

TEST_F(TextLayoutTest, TheInkBoxHoldsTheInkAlone) {
    const Layout dash = layout("—"), letters = layout("ÅÄg");
    EXPECT_LT(dash.inkBox().diagonal().y, 0.2);
    EXPECT_GT(letters.inkBox().diagonal().y, 0.9);
    EXPECT_FALSE(layout("  ").inkBox().isDefined());
    EXPECT_TRUE(layout("  ").box().isDefined());
    const Bounds both = layout("a—").inkBox();
    EXPECT_NEAR(both.getURB().x, width("a") + dash.inkBox().getURB().x, 1e-9);
}

TEST_F(TextLayoutTest, LinesStandBelowEachOtherOnTheSideOfTheAnchor) {
    const Layout left = layout("Mount\nEverest", Layout::A_UpperLeft);
    ASSERT_EQ(12U, left.glyphs().size());
    EXPECT_NEAR(-font->ascent(), left.glyphs()[0].y, 1e-12);
    EXPECT_NEAR(-font->ascent() - font->lineHeight(), left.glyphs()[5].y, 1e-12);
    EXPECT_EQ(0.0, left.glyphs()[5].x);
    EXPECT_NEAR(left.box().diagonal().x, std::max(width("Mount"), width("Everest")), 1e-12);
    EXPECT_NEAR(left.box().diagonal().y, font->ascent() + font->descent() + font->lineHeight(), 1e-12);
    const Layout center = layout("Mount\nEverest", Layout::A_Center);
    EXPECT_NEAR(-width("Mount") / 2, center.glyphs()[0].x, 1e-12);
    EXPECT_NEAR(-width("Everest") / 2, center.glyphs()[5].x, 1e-12);
    EXPECT_NEAR(0.0, center.box().center().length(), 1e-12);
    const Layout lower = layout("Mount\nEverest", Layout::A_LowerRight);
    EXPECT_NEAR(font->descent(), lower.glyphs()[5].y, 1e-12);
    EXPECT_NEAR(-width("Mount"), lower.glyphs()[0].x, 1e-12);
}

TEST_F(TextLayoutTest, BreaksAreThoseOfAllSystems) {
    const double one = layout("a").box().diagonal().y;
    const auto lines = [&](std::string_view text) {
        return 1 + std::lround((layout(text).box().diagonal().y - one) / font->lineHeight());
    };
    EXPECT_EQ(2, lines("a\nb"));
    EXPECT_EQ(2, lines("a\r\nb"));
    EXPECT_EQ(2, lines("a\rb"));
    EXPECT_EQ(3, lines("a\n\rb"));
    EXPECT_EQ(3, lines("a\r\n\r\nb"));
    EXPECT_EQ(2, lines("a\xE2\x80\xA8"
                       "b"));
    EXPECT_EQ(2, lines("a\n"));
}

TEST_F(TextLayoutTest, MissingGlyphsAreCounted) {
    EXPECT_EQ(0U, layout("Everest ÄÖÜ שלום السلام").missing());
    EXPECT_EQ(2U, layout("a山b\xF0\x9F\xAA\x90").missing()) << "a letter and a picture";
    EXPECT_EQ(0U, layout("山").glyphs()[0].number);
    EXPECT_EQ(3U, layout("山\n山山").missing()) << "each time";
    EXPECT_EQ(2U, layout("山\xE3\x80\xAA").missing()) << "also a mark upon another one";
}

TEST_F(TextLayoutTest, ControlCharactersAreLeftOut) {
    const std::string text("E\x01v\x7F"
                           "e\0r\x1B"
                           "e\xC2\x9Bst",
                           13);
    EXPECT_EQ(numbers("Everest"), numbers(text));
    EXPECT_EQ(0U, layout(text).missing());
    EXPECT_EQ(numbers("a b"), numbers("a\tb"));
    EXPECT_EQ(width("ab"), width("a\xE2\x80\x8B"
                                 "b"))
        << "a blank without width";
}

TEST_F(TextLayoutTest, WhatIsNoTextIsShownAsSuch) {
    const std::vector<unsigned> replacement = numbers("\xEF\xBF\xBD");
    ASSERT_EQ(1U, replacement.size());
    EXPECT_NE(0U, replacement[0]);
    EXPECT_EQ(replacement, numbers("\xFF"));
    EXPECT_EQ(replacement, numbers("\xC3"));
    EXPECT_EQ(4U, numbers("a\xE2\x82"
                          "z")
                      .size());
    const wchar_t beyond[] = {L'a', wchar_t(0x110000), wchar_t(0xD800), wchar_t(-1), 0};
    const Layout set(font.get(), std::wstring_view(beyond, 4));
    ASSERT_EQ(4U, set.glyphs().size());
    for (std::size_t i = 1; i < 4; ++i)
        EXPECT_EQ(replacement[0], set.glyphs()[i].number);
}

TEST_F(TextLayoutTest, WithoutTextOrFontThereIsNothing) {
    for (const Layout & empty : {layout(""), Layout(), Layout(nullptr, std::string_view("Everest")),
                                 layout("\n\n"), layout("\x01")}) {
        EXPECT_TRUE(empty.glyphs().empty());
        EXPECT_FALSE(empty.box().isDefined());
        EXPECT_FALSE(empty.inkBox().isDefined());
        EXPECT_EQ(0U, empty.missing());
        EXPECT_EQ(0U, empty.cut());
    }
}

TEST_F(TextLayoutTest, AMegabyteIsCut) {
    std::string text;
    while (text.size() < (1U << 20U))
        text += "a";
    const Layout set = layout(text);
    EXPECT_EQ(Layout::maxCharacters, set.glyphs().size());
    EXPECT_EQ((1U << 20U) - Layout::maxCharacters, set.cut());
    EXPECT_EQ(0U, layout(text.substr(0, Layout::maxCharacters)).cut());
}

TEST_F(TextLayoutTest, HostileTextsOfFullLengthTakeNoTime) {
    // Each letter another way, lines, marks, levels within each other that never end, bytes that are no text.
    const char * patterns[] = {"aא", "\n", "a\u0301\u0301", "\u202Bא\u202Aa", "\xFF\xFE", "((("};
    for (const char * pattern : patterns) {
        std::string text;
        while (text.size() < Layout::maxCharacters * 3)
            text += pattern;
        const Layout set = layout(text);
        EXPECT_LE(set.glyphs().size(), Layout::maxCharacters);
        EXPECT_GT(set.cut(), 0U);
    }
}

} // namespace
