#include <nbx/text/textlayout.h>

#include <algorithm>
#include <string>

#include "textrun.h"
#include <nbx/object/stringutils.h>
#include <nbx/text/fontface.h>

namespace NBX {

namespace {

bool isBreak(char32_t c) {
    return (c >= 0x0A && c <= 0x0D) || c == 0x85 || c == 0x2028 || c == 0x2029;
}

bool isControl(char32_t c) {
    return c < 0x20 || (c >= 0x7F && c < 0xA0);
}

/// The lines as they are set: without control characters, a carriage return and a line feed as one break.
std::vector<std::u32string> linesOf(std::wstring_view text) {
    std::vector<std::u32string> lines(1);
    char32_t before = 0;
    for (const wchar_t w : text) {
        const auto c = static_cast<char32_t>(w);
        const bool isSecondHalf = before == U'\r' && c == U'\n';
        before = c;
        if (isSecondHalf) continue;
        if (isBreak(c))
            lines.emplace_back();
        else if (c == U'\t')
            lines.back().push_back(U' ');
        else if (!isControl(c))
            lines.back().push_back(c > 0x10FFFF || (c >= 0xD800 && c < 0xE000) ? U'\uFFFD' : c);
    }
    return lines;
}

} // namespace

TextLayout::TextLayout(const FontFace * font, std::string_view utf8, Anchor anchor)
    : TextLayout(font, StringUtils::Utf8String2WString(utf8), anchor) {}

TextLayout::TextLayout(const FontFace * font, std::wstring_view text, Anchor anchor) {
    if (!font) return;
    cut_ = text.size() - std::min(text.size(), maxCharacters);
    const std::vector<std::u32string> lines = linesOf(text.substr(0, maxCharacters));
    double y = 0.0;
    for (const std::u32string & line : lines) {
        setLine(*font, line, y, anchor % 3 * 0.5);
        y -= font->lineHeight();
    }
    placeBox(*font, unsigned(lines.size()), anchor);
}

/// Appends a line on the height `y`, with the part `alignment` of its width to the left of 0.
void TextLayout::setLine(const FontFace & font, std::u32string_view line, double y, double alignment) {
    std::vector<FontFace::Glyph> set;
    double width = 0.0;
    for (const TextRun & run : runsFromLeftToRight(line))
        width = font.shape(line, run.begin, run.end, run.rightToLeft, run.script, width, set);
    for (const FontFace::Glyph & glyph : set) {
        glyphs_.push_back({glyph.number, glyph.x - width * alignment, y + glyph.y});
        if (glyph.number == 0) ++missing_;
    }
    width_ = std::max(width_, width);
}

void TextLayout::placeBox(const FontFace & font, unsigned lines, Anchor anchor) {
    if (glyphs_.empty()) return;
    const double top = font.ascent(), bottom = -double(lines - 1) * font.lineHeight() - font.descent();
    const int column = anchor % 3, row = anchor / 3;
    const double up = -(bottom + (top - bottom) * row * 0.5);
    for (Glyph & glyph : glyphs_) {
        glyph.y += up;
        const Bounds ink = font.inkOf(glyph.number);
        if (!ink.isDefined()) continue;
        const Vector3Base<double> origin(glyph.x, glyph.y, 0.0);
        inkBox_ += Bounds(origin + ink.getLLF(), origin + ink.getURB());
    }
    const double left = -width_ * column * 0.5;
    box_ = Bounds({left, bottom + up, 0.0}, {left + width_, top + up, 0.0});
}

} // namespace NBX
