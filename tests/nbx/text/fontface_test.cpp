#include <nbx/text/fontface.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include <freetype/freetype.h>
#include <freetype/ftoutln.h>

#include "support/recordedreports.h"
#include "support/temporaryfolder.h"

namespace {

using namespace NBX;

/// FreeType's own view of a font, at a size.
class Reference {
public:
    Reference(const std::string & path, unsigned size) {
        EXPECT_EQ(0, FT_Init_FreeType(&library_));
        EXPECT_EQ(0, FT_New_Face(library_, path.c_str(), 0, &face_));
        EXPECT_EQ(0, FT_Set_Pixel_Sizes(face_, size, size));
    }
    ~Reference() {
        FT_Done_Face(face_);
        FT_Done_FreeType(library_);
    }
    Reference(const Reference &) = delete;
    Reference & operator=(const Reference &) = delete;

    unsigned glyph(char32_t c) const { return FT_Get_Char_Index(face_, c); }
    FT_Face face() const { return face_; }
    /// Drawn black on white.
    const FT_GlyphSlotRec & drawn(unsigned glyph) const {
        EXPECT_EQ(0, FT_Load_Glyph(face_, glyph, FT_LOAD_NO_HINTING | FT_LOAD_TARGET_MONO));
        EXPECT_EQ(0, FT_Render_Glyph(face_->glyph, FT_RENDER_MODE_MONO));
        return *face_->glyph;
    }

private:
    FT_Library library_ = nullptr;
    FT_Face face_ = nullptr;
};

bool isInked(const FT_Bitmap & bitmap, int x, int row) {
    if (x < 0 || row < 0 || x >= int(bitmap.width) || row >= int(bitmap.rows)) return false;
    return (bitmap.buffer[row * bitmap.pitch + x / 8] & (0x80 >> x % 8)) != 0;
}

/// The path of a file of this name in the folder for temporary ones.
std::string temporary(const std::string & name) {
    return std::string(std::getenv("TMPDIR")) + "/" + name;
}

SO<FontFace> usualFont() {
    const SO<FontFace> font = FontFace::named();
    EXPECT_TRUE(font) << "fonts-dejavu-core is not installed";
    return font;
}

TEST(FontFace, TheUsualOneIsFound) {
    RecordedReports reports;
    const SO<FontFace> font = usualFont();
    EXPECT_EQ(font, FontFace::named()) << "read once";
    EXPECT_EQ(font, FontFace::named(L"")) << "the same";
    const SO<FontFace> byName = FontFace::named(L"dejavu sans"), bold = FontFace::named(L"DejaVu Sans Bold");
    ASSERT_TRUE(byName);
    ASSERT_TRUE(bold);
    EXPECT_TRUE(byName->path().ends_with("/DejaVuSans.ttf")) << byName->path();
    EXPECT_TRUE(bold->path().ends_with("/DejaVuSans-Bold.ttf")) << bold->path();
    const SO<FontFace> byPath = FontFace::named(std::wstring(bold->path().begin(), bold->path().end()));
    ASSERT_TRUE(byPath);
    EXPECT_EQ(bold->path(), byPath->path());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(FontFace, WhereThereIsNoneThatIsToldOnce) {
    RecordedReports reports;
    EXPECT_FALSE(FontFace::named(L"No Such Font"));
    EXPECT_FALSE(FontFace::named(L"No Such Font"));
    EXPECT_EQ(1U, reports.count(2, L"false",
                                L"there is no font \"No Such Font\"; give the name of a font's file below "
                                L"/usr/share/fonts, without its suffix, or a path"))
        << reports;
    EXPECT_EQ(1U, reports.size());
    reports.clear();
    EXPECT_FALSE(FontFace::named(L"/no/such.ttf"));
    EXPECT_EQ(1U,
              reports.count(L"cannot read the font \"/no/such.ttf\": there is no such file, or it may not be "
                            L"read"));
    reports.clear();
}

TEST(FontFace, IsFoundByTheNameOfItsFile) {
    const TemporaryFolder folder;
    const std::string first = temporary("first"), second = temporary("second");
    std::filesystem::create_directories(first + "/deep/er");
    std::filesystem::create_directories(second);
    for (const char * file :
         {"first/deep/er/Some-Font.ttf", "first/deep/SomeFont_Bold.OTF", "first/Some Font.txt",
          "second/SomeFont.ttf", "second/Other-Regular.ttc", "second/Zebra.ttf"})
        std::ofstream(temporary(file)) << "text";
    std::filesystem::create_directories(second + "/also");
    std::ofstream(second + "/also/zebra.ttf") << "text";
    const std::vector<std::string> folders = {temporary("none"), first, second};
    EXPECT_EQ(first + "/deep/er/Some-Font.ttf", FontFace::fileOf("some font", folders));
    EXPECT_EQ(first + "/deep/SomeFont_Bold.OTF", FontFace::fileOf("Some Font Bold", folders));
    EXPECT_EQ(second + "/Other-Regular.ttc", FontFace::fileOf("other", folders));
    EXPECT_EQ(second + "/SomeFont.ttf", FontFace::fileOf("Some Font", {second, first}));
    EXPECT_EQ(second + "/Zebra.ttf", FontFace::fileOf("zebra", folders)) << "the first by its path";
    EXPECT_EQ("", FontFace::fileOf("Some", folders));
    EXPECT_EQ("", FontFace::fileOf("", folders));
    EXPECT_EQ("", FontFace::fileOf("Some Font", {}));
}

TEST(FontFace, FilesThatAreNoneAreRefusedInALine) {
    const TemporaryFolder folder;
    std::ofstream(temporary("text.ttf")) << "this is not a font";
    std::ofstream(temporary("empty.ttf"));
    // The beginning of a font, with a table that is not there.
    std::ifstream whole(usualFont()->path(), std::ios::binary);
    std::string start(2000, '\0');
    whole.read(start.data(), 2000);
    std::ofstream(temporary("cut.ttf"), std::ios::binary) << start;
    for (const char * name : {"text.ttf", "empty.ttf", "cut.ttf", "missing.ttf", ""}) {
        RecordedReports reports;
        EXPECT_FALSE(FontFace::fromFile(temporary(name))) << name;
        ASSERT_EQ(1U, reports.size()) << name;
        const std::wstring message = reports.last().message;
        EXPECT_TRUE(message.starts_with(L"cannot read the font \"")) << name;
        EXPECT_EQ(std::wstring::npos, message.find(L'\n'));
        EXPECT_EQ(2, reports.last().level);
    }
}

TEST(FontFace, HasTheMetricsOfItsFile) {
    const SO<FontFace> font = usualFont();
    const Reference reference(font->path(), 64);
    const double unit = reference.face()->units_per_EM;
    EXPECT_NEAR(reference.face()->ascender / unit, font->ascent(), 1e-12);
    EXPECT_NEAR(-reference.face()->descender / unit, font->descent(), 1e-12);
    EXPECT_NEAR(reference.face()->height / unit, font->lineHeight(), 1e-3);
    EXPECT_GT(font->descent(), 0.1);
}

TEST(FontFace, KnowsTheInkOfGlyphs) {
    const SO<FontFace> font = usualFont();
    const Reference reference(font->path(), 64);
    for (const char32_t c : U"gÄ'—ש8") {
        if (c == 0) continue;
        ASSERT_EQ(0, FT_Load_Glyph(reference.face(), reference.glyph(c), FT_LOAD_NO_SCALE));
        const FT_Glyph_Metrics & metrics = reference.face()->glyph->metrics;
        const double unit = reference.face()->units_per_EM;
        const Bounds ink = font->inkOf(reference.glyph(c));
        EXPECT_NEAR(metrics.horiBearingX / unit, ink.getLLF().x, 1e-12);
        EXPECT_NEAR(metrics.horiBearingY / unit, ink.getURB().y, 1e-12);
        EXPECT_NEAR(metrics.width / unit, ink.diagonal().x, 1e-12);
        EXPECT_NEAR(metrics.height / unit, ink.diagonal().y, 1e-12);
    }
    EXPECT_FALSE(font->inkOf(reference.glyph(U' ')).isDefined());
    EXPECT_FALSE(font->inkOf(1000000).isDefined());
}

TEST(FontFace, DistanceFieldsTellHowFarTheEdgeIs) {
    const SO<FontFace> font = usualFont();
    constexpr int finer = 16;
    const Reference reference(font->path(), FontFace::fieldSize * finer);
    for (const char32_t c : U"g8Å") {
        if (c == 0) continue;
        const unsigned glyph = reference.glyph(c);
        const FontFace::DistanceField field = font->distanceField(glyph);
        ASSERT_EQ(std::size_t(field.width) * field.height, field.distances.size());
        const Bounds ink = font->inkOf(glyph);
        EXPECT_NEAR(ink.getLLF().x * FontFace::fieldSize - FontFace::fieldReach, field.left, 1.01);
        EXPECT_NEAR(ink.getLLF().y * FontFace::fieldSize - FontFace::fieldReach, field.bottom, 1.01);
        const FT_GlyphSlotRec & drawn = reference.drawn(glyph);
        // Of a few places, the nearest pixel that is on the other side.
        for (unsigned y = 2; y < field.height; y += 11)
            for (unsigned x = 2; x < field.width; x += 9) {
                const int column = int(std::floor((field.left + int(x) + 0.5) * finer)) - drawn.bitmap_left,
                          row = drawn.bitmap_top - int(std::floor((field.bottom + int(y) + 0.5) * finer));
                const bool isInside = isInked(drawn.bitmap, column, row);
                double nearest = FontFace::fieldReach * finer;
                const int reach = int(FontFace::fieldReach) * finer;
                for (int v = -reach; v <= reach; ++v)
                    for (int u = -reach; u <= reach; ++u)
                        if (u * u + v * v < nearest * nearest &&
                            isInked(drawn.bitmap, column + u, row + v) != isInside)
                            nearest = std::hypot(u, v);
                const double away = (isInside ? nearest : -nearest) / finer;
                const double told = (int(field.distances[y * field.width + x]) - 128) / 8.0;
                EXPECT_NEAR(away, told, 0.3) << unsigned(c) << ' ' << x << ' ' << y;
            }
    }
}

TEST(FontFace, WhatHasNoInkHasNoField) {
    const SO<FontFace> font = usualFont();
    const Reference reference(font->path(), 64);
    EXPECT_EQ(0U, font->distanceField(reference.glyph(U' ')).width);
    EXPECT_EQ(0U, font->distanceField(1000000).width);
    EXPECT_GT(font->distanceField(0).width, 0U) << "the sign for a missing glyph";
}

TEST(FontFace, ManyThreadsMayUseOne) {
    const SO<FontFace> font = usualFont();
    const FontFace::DistanceField expected = font->distanceField(40);
    std::vector<std::thread> threads;
    std::vector<int> same(4);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            for (unsigned k = 0; k < 10; ++k) {
                same[i] += font->distanceField(40).distances == expected.distances;
                font->distanceField(50 + k);
                std::vector<FontFace::Glyph> glyphs;
                font->shape(U"Everest", 0, 7, false, 0x4C61746E, 0.0, glyphs);
                same[i] += glyphs.size() == 7;
            }
        });
    for (std::thread & thread : threads)
        thread.join();
    EXPECT_EQ((std::vector<int>{20, 20, 20, 20}), same);
}

} // namespace
