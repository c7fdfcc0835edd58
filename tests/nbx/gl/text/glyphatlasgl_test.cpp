#include "nbx/gl/text/glyphatlasgl.h"

#include <nbx/image/memoryimage.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;
using Place = GlyphAtlasGL::Place;

class GlyphAtlasGLTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        font = FontFace::named(L"DejaVu Sans");
        ASSERT_TRUE(font) << "fonts-dejavu-core is not installed";
    }
    /// Whether the texels of a place are those of the glyph's field.
    bool isEntered(const GlyphAtlasGL & atlas, unsigned glyph, const Place & place) {
        const FontFace::DistanceField field = font->distanceField(glyph);
        const SO<Image> image = atlas.texture()->getImage();
        if (field.width != place.width || field.height != place.height) return false;
        for (unsigned y = 0; y < field.height; ++y)
            for (unsigned x = 0; x < field.width; ++x)
                if (*static_cast<const unsigned char *>(image->pixelComponents(
                        int(place.x + x), int(place.y + y))) != field.distances[y * field.width + x])
                    return false;
        return true;
    }

    SO<FontFace> font;
};

TEST_F(GlyphAtlasGLTest, EachGlyphHasAPlaceOfItsOwn) {
    GlyphAtlasGL atlas(font, 512, 4096);
    EXPECT_FALSE(atlas.texture());
    std::vector<Place> places(200);
    for (unsigned glyph = 0; glyph < 200; ++glyph)
        ASSERT_TRUE(atlas.find(glyph, places[glyph]));
    std::vector<int> covered(512 * 4096);
    for (unsigned glyph = 0; glyph < 200; ++glyph) {
        const Place & place = places[glyph];
        if (place.width == 0) continue;
        EXPECT_TRUE(isEntered(atlas, glyph, place)) << glyph;
        for (unsigned y = place.y; y < place.y + place.height; ++y)
            for (unsigned x = place.x; x < place.x + place.width; ++x)
                EXPECT_EQ(1, ++covered[y * 512 + x]) << glyph;
    }
    Place again;
    ASSERT_TRUE(atlas.find(7, again));
    EXPECT_EQ(places[7].x, again.x);
    EXPECT_EQ(places[7].y, again.y);
}

TEST_F(GlyphAtlasGLTest, GrowsAsItFills) {
    GlyphAtlasGL atlas(font, 512, 4096);
    Place place;
    ASSERT_TRUE(atlas.find(40, place));
    const unsigned atFirst = atlas.texture()->getHeight();
    EXPECT_LT(atFirst, 200U);
    const SO<ImageTexture2DGL> texture = atlas.texture();
    for (unsigned glyph = 41; glyph < 140; ++glyph)
        ASSERT_TRUE(atlas.find(glyph, place));
    EXPECT_GT(atlas.texture()->getHeight(), atFirst);
    EXPECT_EQ(texture, atlas.texture());
    ASSERT_TRUE(atlas.find(40, place));
    EXPECT_TRUE(isEntered(atlas, 40, place));
}

TEST_F(GlyphAtlasGLTest, SaysWhenItIsFullAndStartsAgain) {
    GlyphAtlasGL atlas(font, 256, 256);
    Place place;
    unsigned glyph = 36;
    while (atlas.find(glyph, place))
        ASSERT_LT(++glyph, 60U);
    EXPECT_LE(atlas.texture()->getHeight(), 256U);
    EXPECT_FALSE(atlas.find(glyph, place));
    atlas.clear();
    EXPECT_TRUE(atlas.find(glyph, place));
    EXPECT_EQ(0U, place.x);
    EXPECT_EQ(0U, place.y);
    EXPECT_TRUE(isEntered(atlas, glyph, place));
    GlyphAtlasGL narrow(font, 40, 4096);
    EXPECT_FALSE(narrow.find(glyph, place)) << "wider than the texture";
}

TEST_F(GlyphAtlasGLTest, TheTextureIsBroughtUpToDate) {
    GlyphAtlasGL atlas(font, 512, 4096);
    Place place;
    for (const unsigned glyph : {40U, 60U}) {
        ASSERT_TRUE(atlas.find(glyph, place));
        atlas.texture()->bind(engine.get());
        std::vector<unsigned char> texels(512 * std::size_t(atlas.texture()->getHeight()));
        glGetTexImage(GL_TEXTURE_2D, 0, GL_ALPHA, GL_UNSIGNED_BYTE, texels.data());
        glBindTexture(GL_TEXTURE_2D, 0);
        const FontFace::DistanceField field = font->distanceField(glyph);
        const unsigned x = field.width / 2, y = field.height / 2;
        EXPECT_EQ(field.distances[y * field.width + x], texels[(place.y + y) * 512 + place.x + x]);
    }
}

TEST_F(GlyphAtlasGLTest, EachFontHasOne) {
    EXPECT_EQ(&GlyphAtlasGL::of(font), &GlyphAtlasGL::of(font));
    EXPECT_NE(&GlyphAtlasGL::of(font), &GlyphAtlasGL::of(FontFace::named(L"DejaVu Sans Bold")));
}

} // namespace
