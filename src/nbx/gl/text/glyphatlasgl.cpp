// Rows of glyphs, in the order in which they come: the glyphs of a font have similar heights, and come while
// pictures are drawn. The texture grows by doubling its height, so that places stay. It is sent as a whole
// when glyphs were entered, which a scene soon has all of.

#include "glyphatlasgl.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>

#include <nbx/image/memoryimage.h>

namespace NBX {

GlyphAtlasGL::GlyphAtlasGL(SO<FontFace> font, unsigned width, unsigned maxHeight)
    : font_(font), width_(width), maxHeight_(maxHeight) {}

GlyphAtlasGL::~GlyphAtlasGL() = default;

GlyphAtlasGL & GlyphAtlasGL::of(const SO<FontFace> & font) {
    static auto * atlases = new std::map<SO<FontFace>, std::unique_ptr<GlyphAtlasGL>>;
    std::unique_ptr<GlyphAtlasGL> & atlas = (*atlases)[font];
    if (!atlas) atlas = std::make_unique<GlyphAtlasGL>(font);
    return *atlas;
}

bool GlyphAtlasGL::find(unsigned glyph, Place & place) {
    if (const auto found = places_.find(glyph); found != places_.end()) {
        place = found->second;
        return true;
    }
    const FontFace::DistanceField field = font_->distanceField(glyph);
    place = {0, 0, field.width, field.height, field.left, field.bottom};
    if (field.width > 0 && field.height > 0) {
        if (!reserve(field.width, field.height, place)) return false;
        copyInto(field, place);
    }
    places_.emplace(glyph, place);
    return true;
}

void GlyphAtlasGL::clear() {
    places_.clear();
    rowX_ = rowY_ = rowHeight_ = 0;
}

bool GlyphAtlasGL::reserve(unsigned width, unsigned height, Place & place) {
    if (width > width_) return false;
    unsigned x = rowX_, y = rowY_, rowHeight = std::max(rowHeight_, height);
    if (width > width_ - x) {
        x = 0;
        y += rowHeight_;
        rowHeight = height;
    }
    if (height > maxHeight_ || y > maxHeight_ - height) return false;
    growTo(y + rowHeight);
    place.x = x;
    place.y = y;
    rowX_ = x + width;
    rowY_ = y;
    rowHeight_ = rowHeight;
    return true;
}

void GlyphAtlasGL::growTo(unsigned height) {
    const unsigned before = image_ ? unsigned(image_->height()) : 0;
    if (height <= before) return;
    unsigned next = std::max(before, width_ / 8);
    while (next < height)
        next *= 2;
    const SO<MemoryImage> larger(new MemoryImage(int(width_), int(std::min(next, maxHeight_)), LS_Alpha));
    for (unsigned y = 0; y < before; ++y)
        std::memcpy(larger->lineComponents(int(y)), std::as_const(*image_).lineComponents(int(y)), width_);
    image_ = larger;
    if (texture_)
        texture_->setImage(image_);
    else
        texture_ = new ImageTexture2DGL(image_, TextureGL::WM_ClampToEdge, TextureGL::WM_ClampToEdge,
                                        TextureGL::FM_Linear);
}

void GlyphAtlasGL::copyInto(const FontFace::DistanceField & field, const Place & place) {
    for (unsigned row = 0; row < field.height; ++row)
        std::memcpy(static_cast<char *>(image_->lineComponents(int(place.y + row))) + place.x,
                    field.distances.data() + std::size_t(row) * field.width, field.width);
    image_->modified();
}

} // namespace NBX
