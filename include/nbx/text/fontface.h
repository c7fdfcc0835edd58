#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <nbx/math/bounds.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace NBX {

/// A font: which glyphs a text becomes, where these stand, and what they look like. Lengths are in em, the
/// size at which the font is set: x along the line, y upwards from the line on which letters stand. It never
/// changes, and may be used on any thread.
class FontFace : public SharedObj {
    NBX_CLASS(FontFace, SharedObj)
public:
    /// The scalable font of a file, the first of a collection. Null, after a report at level 2, where there
    /// is none.
    static SO<FontFace> fromFile(const std::string & path);
    /// The font of a name such as "DejaVu Sans Bold", or of a path; without a name the first one that is
    /// installed of `usualNames`. Null where there is none, which is reported once for each name. It is kept
    /// for the life of the process.
    static SO<FontFace> named(const std::wstring & name = {});
    static const std::vector<std::string> & usualNames();
    /// Where fonts are installed.
    static std::vector<std::string> usualFolders();
    /// The path of a font in one of the folders or below, by the name of its file: that of "DejaVu Sans" is
    /// `DejaVuSans.ttf`. Letter case, blanks, hyphens and a "Regular" at the end play no part. The first in
    /// the order of the folders, then of the paths; empty where there is none.
    static std::string fileOf(const std::string & name, const std::vector<std::string> & folders);

    ~FontFace() override;

    const std::string & path() const;
    /// Above the line, below it, both above 0, and from line to line.
    double ascent() const;
    double descent() const;
    double lineHeight() const;

    struct Glyph {
        unsigned number; ///< 0 where the font has none for the character
        double x, y;     ///< its origin, from that of the first one
    };
    /// Sets part of a line of one direction and script: appends its glyphs from left to right, the first one
    /// at `x`, and gives the place behind the last one. `script` is as in `TextRun`. What stands beside the
    /// part joins its letters as if it were there.
    double shape(std::u32string_view line, std::size_t begin, std::size_t end, bool rightToLeft,
                 unsigned script, double x, std::vector<Glyph> & glyphs) const;
    /// The ink of a glyph about its origin, z 0; undefined for one without ink.
    Bounds inkOf(unsigned glyph) const;

    /// Texels of a distance field to the em.
    static constexpr unsigned fieldSize = 64;
    /// How many texels a field reaches beyond the ink, which is also the distance of its least and largest
    /// value.
    static constexpr unsigned fieldReach = 16;
    /// How far each of some places is from the edge of a glyph: 128 on it, and above within. Places are the
    /// middles of texels, the lowest line first.
    struct DistanceField {
        unsigned width = 0, height = 0; ///< 0 for a glyph without ink
        int left = 0, bottom = 0;       ///< lower left corner from the glyph's origin, in texels
        std::vector<std::uint8_t> distances;
    };
    /// Empty also for a glyph that the font has not, or that reaches farther than 8 em from its origin.
    DistanceField distanceField(unsigned glyph) const;

private:
    struct Impl;
    explicit FontFace(std::unique_ptr<Impl> impl);

    std::unique_ptr<Impl> impl_;
};

} // namespace NBX
