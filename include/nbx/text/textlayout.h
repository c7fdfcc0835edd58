#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include <nbx/math/bounds.h>

namespace NBX {

class FontFace;

/// Where the glyphs of a text stand. Lengths are in em of the font, x to the right, y upwards, z 0, from the
/// point at which the text is anchored.
///
/// Lines end at line feeds, carriage returns and Unicode's separators of lines and paragraphs, and go in the
/// directions of their letters. A tabulator is a blank; other control characters are left out.
class TextLayout {
public:
    /// The point of the text's box at which it is anchored, which is also the side at which lines begin. The
    /// numbers stand in files.
    enum Anchor {
        A_LowerLeft = 0,
        A_Lower = 1,
        A_LowerRight = 2,
        A_Left = 3,
        A_Center = 4,
        A_Right = 5,
        A_UpperLeft = 6,
        A_Upper = 7,
        A_UpperRight = 8,
    };
    static constexpr int anchors = 9;
    /// What is longer is cut.
    static constexpr std::size_t maxCharacters = 1U << 16U;

    struct Glyph {
        unsigned number; ///< in the font; 0 for one that is missing there
        double x, y;     ///< its origin
    };

    /// No text.
    TextLayout() = default;
    /// Without a font there are no glyphs, and no box. O(n) but for many changes of direction within each
    /// other.
    TextLayout(const FontFace * font, std::wstring_view text, Anchor anchor = A_LowerLeft);
    /// The same of UTF-8; bytes that are none become U+FFFD.
    TextLayout(const FontFace * font, std::string_view utf8, Anchor anchor = A_LowerLeft);

    const std::vector<Glyph> & glyphs() const { return glyphs_; }
    /// As wide as the widest line, and from the ascent of the first to the descent of the last one: texts of
    /// one font that stand on a line have boxes of one height. Undefined without glyphs.
    const Bounds & box() const { return box_; }
    /// What is inked, which may reach beyond the box. Undefined without ink.
    const Bounds & inkBox() const { return inkBox_; }
    /// Number of characters for which the font has no glyph; these show its sign for that.
    unsigned missing() const { return missing_; }
    /// Number of characters that were cut off.
    std::size_t cut() const { return cut_; }

private:
    void setLine(const FontFace & font, std::u32string_view line, double y, double alignment);
    void placeBox(const FontFace & font, unsigned lines, Anchor anchor);

    std::vector<Glyph> glyphs_;
    Bounds box_, inkBox_;
    double width_ = 0.0;
    unsigned missing_ = 0;
    std::size_t cut_ = 0;
};

} // namespace NBX
