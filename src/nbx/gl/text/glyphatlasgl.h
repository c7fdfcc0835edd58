#pragma once

#include <unordered_map>

#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/object/so.h>
#include <nbx/text/fontface.h>

namespace NBX {

class MemoryImage;

/// The distance fields of the glyphs of one font that were drawn so far, in one texture. It belongs to the
/// thread of the canvases.
class GlyphAtlasGL {
public:
    /// The texture grows from `width` by `width` / 8 texels to `maxHeight` lines at most.
    explicit GlyphAtlasGL(SO<FontFace> font, unsigned width = 2048, unsigned maxHeight = 8192);
    ~GlyphAtlasGL();

    /// That of a font; kept for the life of the process, as the font is.
    static GlyphAtlasGL & of(const SO<FontFace> & font);

    /// A glyph's place in the texture, and its lower left corner from the origin of the glyph, all in texels.
    struct Place {
        unsigned x, y, width, height; ///< no width for a glyph without ink
        int left, bottom;
    };
    /// Enters the glyph if it is new; false when there is no place left for it.
    bool find(unsigned glyph, Place & place);
    /// All places are free again.
    void clear();

    /// Alpha is the distance. Null as long as there is nothing in it.
    const SO<ImageTexture2DGL> & texture() const { return texture_; }

private:
    bool reserve(unsigned width, unsigned height, Place & place);
    void growTo(unsigned height);
    void copyInto(const FontFace::DistanceField & field, const Place & place);

    SO<FontFace> font_;
    const unsigned width_, maxHeight_;
    std::unordered_map<unsigned, Place> places_;
    unsigned rowX_ = 0, rowY_ = 0, rowHeight_ = 0; ///< the row that is being filled
    SO<MemoryImage> image_;
    SO<ImageTexture2DGL> texture_;
};

} // namespace NBX
