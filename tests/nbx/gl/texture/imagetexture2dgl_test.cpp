#include <nbx/gl/texture/imagetexture2dgl.h>

#include <thread>

#include "support/glfixture.h"
#include "support/roundtrip.h"

#include <nbx/container/sequence/array.h>
#include <nbx/gl/context/contextgl.h>
#include <nbx/gl/texture/imageopengltool.h>
#include <nbx/image/compressedimage.h>
#include <nbx/image/memoryimage.h>
#include <nbx/image/subimage.h>
#include <nbx/scene/shape/polygonset.h>

using namespace NBX;

namespace {

/// Each pixel has a value of its own in each layer.
SO<MemoryImage> newImage(int width, int height, LayerSequence sequence, int type = Image::UInt8,
                         int alignment = 1) {
    SO<MemoryImage> image = new MemoryImage(width, height, sequence, type, alignment);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image->setColor(x, y,
                            Color((x * 37 + y * 11) % 256 / 255.0, (x * 5 + y * 71) % 256 / 255.0,
                                  (x * 3 + y * 29 + 7) % 256 / 255.0, (x * 13 + y * 17) % 256 / 255.0));
    return image;
}

SO<ImageTexture2DGL> newTexture(SO<Image> image, TextureGL::FilterMode min = TextureGL::FM_Nearest) {
    return new ImageTexture2DGL(image, TextureGL::WM_Repeat, TextureGL::WM_Repeat, min,
                                TextureGL::FM_Nearest);
}

int parameter(GLenum name) {
    GLint value = 0;
    glGetTexParameteriv(GL_TEXTURE_2D, name, &value);
    return value;
}

int levelParameter(int level, GLenum name) {
    GLint value = 0;
    glGetTexLevelParameteriv(GL_TEXTURE_2D, level, name, &value);
    return value;
}

std::vector<float> texels(int width, int height) {
    std::vector<float> result(std::size_t(4 * width * height));
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_FLOAT, result.data());
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    return result;
}

} // namespace

class ImageTexture2DGLTest : public GLFixture {
protected:
    void TearDown() override {
        glBindTexture(GL_TEXTURE_2D, 0);
        GLFixture::TearDown();
    }

    void expectTexels(const SO<Image> & image, double allowed, const std::string & name) {
        const SO<ImageTexture2DGL> texture = newTexture(image);
        texture->bind(engine.get());
        ASSERT_EQ(image->width(), levelParameter(0, GL_TEXTURE_WIDTH)) << name;
        ASSERT_EQ(image->height(), levelParameter(0, GL_TEXTURE_HEIGHT)) << name;
        const std::vector<float> got = texels(image->width(), image->height());
        const bool isGrey = texture->channels() == TextureGL::C_Luminance;
        for (int y = 0; y < image->height(); ++y)
            for (int x = 0; x < image->width(); ++x) {
                const Color expected = image->getColor(x, y);
                const float * t = &got[std::size_t(4 * (y * image->width() + x))];
                for (unsigned c = 0; c < (isGrey ? 1U : 3U); ++c)
                    ASSERT_NEAR(expected[c], t[c], allowed) << name << " at " << x << ", " << y;
                ASSERT_NEAR(expected[3], t[3], allowed) << name << " at " << x << ", " << y;
            }
    }
};

TEST_F(ImageTexture2DGLTest, OwnsNothingBeforeTheFirstBind) {
    const Names before = countNames();
    SO<ImageTexture2DGL> texture = newTexture(newImage(4, 4, LS_RGBA));
    EXPECT_EQ(0U, texture->name());
    EXPECT_EQ(before, countNames());
    texture->bind(engine.get());
    EXPECT_NE(0U, texture->name());
    EXPECT_EQ(before.textures + 1, countNames().textures);
    glBindTexture(GL_TEXTURE_2D, 0);
    texture = nullptr;
    EXPECT_EQ(before, countNames());
}

TEST_F(ImageTexture2DGLTest, MayBeDroppedOnAnotherThread) {
    const Names before = countNames();
    SO<ImageTexture2DGL> texture = newTexture(newImage(4, 4, LS_RGBA));
    texture->bind(engine.get());
    glBindTexture(GL_TEXTURE_2D, 0);
    std::thread([&texture] { texture = nullptr; }).join();
    canvas->releaseContext();
    ASSERT_TRUE(canvas->makeContextCurrent());
    EXPECT_EQ(before, countNames());
}

TEST_F(ImageTexture2DGLTest, SendsAllLayersTypesAndLineLayouts) {
    for (const LayerSequence s : {LS_Luminance, LS_RGB, LS_RGBA, LS_BGR, LS_BGRA})
        for (const int type : {Image::UInt8, Image::UInt16, Image::Half, Image::Float})
            for (const int alignment : {1, 2, 4, 8, 16})
                expectTexels(newImage(5, 3, s, type, alignment), type == Image::Half ? 1e-3 : 1e-5,
                             "layers " + std::to_string(s) + " type " + std::to_string(type) + " alignment " +
                                 std::to_string(alignment));
}

TEST_F(ImageTexture2DGLTest, SendsOddSizesAndParts) {
    expectTexels(newImage(1, 1, LS_RGB), 1e-5, "1 by 1");
    expectTexels(newImage(17, 1, LS_RGB), 1e-5, "17 by 1");
    expectTexels(newImage(3, 19, LS_RGBA), 1e-5, "3 by 19");
    const SO<Image> whole = newImage(13, 11, LS_RGB);
    expectTexels(new SubImage(whole.get(), Area(3, 2, 7, 5)), 1e-5, "part");
}

TEST_F(ImageTexture2DGLTest, KeepsThePixelStoreModesAndTheBoundBuffer) {
    glPixelStorei(GL_UNPACK_ALIGNMENT, 8);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 77);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, 5);
    const std::vector<int> before = stateOfGL();
    newTexture(newImage(5, 3, LS_RGB))->bind(engine.get());
    newTexture(new CompressedImage(CompressedImage::DXT1, newImage(8, 8, LS_RGB).get()))->bind(engine.get());
    newTexture(nullptr)->bind(engine.get());
    glBindTexture(GL_TEXTURE_2D, 0);
    EXPECT_EQ(before, stateOfGL());
    for (const auto & [name, value] : {std::pair{GL_UNPACK_ROW_LENGTH, 77}, {GL_UNPACK_SKIP_PIXELS, 5}}) {
        GLint now = 0;
        glGetIntegerv(GLenum(name), &now);
        EXPECT_EQ(value, now);
    }
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
}

TEST_F(ImageTexture2DGLTest, SendsCompressedImagesAsTheyAre) {
    const struct {
        CompressedImage::Compression compression;
        TextureGL::Channels channels;
        bool isCompressed;
    } cases[] = {{CompressedImage::DXT1, TextureGL::C_RGB, true},
                 {CompressedImage::DXT1A, TextureGL::C_RGBA, true},
                 {CompressedImage::DXT3, TextureGL::C_RGBA, true},
                 {CompressedImage::DXT5, TextureGL::C_RGBA, true},
                 {CompressedImage::BGRA5551, TextureGL::C_RGBA, false},
                 {CompressedImage::BGRA4444, TextureGL::C_RGBA, false}};
    for (const auto & c : cases)
        for (const int side : {16, 10}) {
            const SO<Image> image = new CompressedImage(c.compression, newImage(side, side, LS_RGBA).get());
            expectTexels(image, 0.05, "compression " + std::to_string(c.compression));
            const SO<ImageTexture2DGL> texture = newTexture(image);
            texture->bind(engine.get());
            EXPECT_EQ(c.isCompressed, levelParameter(0, GL_TEXTURE_COMPRESSED) == GL_TRUE);
            EXPECT_EQ(c.channels, texture->channels());
        }
}

TEST_F(ImageTexture2DGLTest, CompressedImagesBringTheirMipmaps) {
    const SO<Image> image = new CompressedImage(CompressedImage::DXT1, newImage(16, 8, LS_RGB).get());
    const SO<ImageTexture2DGL> texture = newTexture(image, TextureGL::FM_LinearMipmapLinear);
    texture->bind(engine.get());
    EXPECT_EQ(GL_LINEAR_MIPMAP_LINEAR, parameter(GL_TEXTURE_MIN_FILTER));
    EXPECT_EQ(4, parameter(GL_TEXTURE_MAX_LEVEL));
    EXPECT_EQ(GL_TRUE, levelParameter(4, GL_TEXTURE_COMPRESSED));
    EXPECT_EQ(1, levelParameter(4, GL_TEXTURE_WIDTH));
}

TEST_F(ImageTexture2DGLTest, MipmapsComeWhenAFilterFirstNeedsThem) {
    SO<MemoryImage> image = newImage(8, 8, LS_RGB);
    const SO<ImageTexture2DGL> texture = newTexture(image);
    texture->bind(engine.get());
    EXPECT_EQ(0, levelParameter(1, GL_TEXTURE_WIDTH));
    texture->setMinFilter(TextureGL::FM_LinearMipmapLinear);
    texture->bind(engine.get());
    EXPECT_EQ(4, levelParameter(1, GL_TEXTURE_WIDTH));
    EXPECT_EQ(GL_LINEAR_MIPMAP_LINEAR, parameter(GL_TEXTURE_MIN_FILTER));
}

TEST_F(ImageTexture2DGLTest, AModifiedImageIsSentAgain) {
    SO<MemoryImage> image = newImage(4, 4, LS_RGB);
    const SO<ImageTexture2DGL> texture = newTexture(image);
    texture->bind(engine.get());
    const unsigned name = texture->name();
    image->setColor(0, 0, Color::red);
    image->modified();
    texture->bind(engine.get());
    EXPECT_EQ(name, texture->name());
    const std::vector<float> got = texels(4, 4);
    EXPECT_EQ((std::vector<float>{1, 0, 0, 1}), std::vector<float>(got.begin(), got.begin() + 4));
}

TEST_F(ImageTexture2DGLTest, TheImageLeavesMainMemoryOnceSent) {
    SO<MemoryImage> image = newImage(4, 4, LS_RGB);
    const WO<MemoryImage> watched(image);
    const SO<ImageTexture2DGL> texture = newTexture(image);
    texture->unrefImageAfterBinding();
    image = nullptr;
    EXPECT_TRUE(texture->getImage());
    texture->bind(engine.get());
    EXPECT_FALSE(texture->getImage());
    EXPECT_FALSE(watched.lock());
    const unsigned name = texture->name();
    texture->bind(engine.get());
    EXPECT_EQ(name, texture->name());
    EXPECT_EQ(4, levelParameter(0, GL_TEXTURE_WIDTH));
}

TEST_F(ImageTexture2DGLTest, WithoutAnImageThereIsOneWhiteTexel) {
    const SO<ImageTexture2DGL> texture = newTexture(nullptr);
    texture->bind(engine.get());
    EXPECT_EQ((std::vector<float>{1, 1, 1, 1}), texels(1, 1));
    texture->setImage(newImage(4, 2, LS_RGB));
    texture->bind(engine.get());
    EXPECT_EQ(4, levelParameter(0, GL_TEXTURE_WIDTH));
}

TEST_F(ImageTexture2DGLTest, TakesTheInternalFormatThatIsAskedFor) {
    const SO<ImageTexture2DGL> texture = newTexture(newImage(4, 4, LS_Luminance, Image::Half));
    texture->setInternalFormat(GL_LUMINANCE16F_ARB);
    texture->bind(engine.get());
    EXPECT_EQ(GL_LUMINANCE16F_ARB, levelParameter(0, GL_TEXTURE_INTERNAL_FORMAT));
    EXPECT_EQ(TextureGL::C_Luminance, texture->channels());
}

TEST_F(ImageTexture2DGLTest, ImagesBeyondTheLimitAreReduced) {
    GLint limit = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &limit);
    const SO<ImageTexture2DGL> texture = newTexture(newImage(2 * limit, 2, LS_Luminance));
    texture->bind(engine.get());
    EXPECT_EQ(limit, levelParameter(0, GL_TEXTURE_WIDTH));
    EXPECT_EQ(1, levelParameter(0, GL_TEXTURE_HEIGHT));
}

TEST_F(ImageTexture2DGLTest, ParametersFollowTheirSetters) {
    const SO<ImageTexture2DGL> texture = new ImageTexture2DGL(
        newImage(4, 4, LS_RGB), TextureGL::WrapMode(3), TextureGL::WrapMode(3), TextureGL::FilterMode(1),
        TextureGL::FilterMode(1), 16.0, Matrix4x4Base<double>(), Color(1.0, 1.0, 1.0, 0.0), 0, true);
    texture->bind(engine.get());
    EXPECT_EQ(GL_CLAMP_TO_BORDER, parameter(GL_TEXTURE_WRAP_S));
    EXPECT_EQ(GL_CLAMP_TO_BORDER, parameter(GL_TEXTURE_WRAP_T));
    EXPECT_EQ(GL_LINEAR, parameter(GL_TEXTURE_MIN_FILTER));
    EXPECT_EQ(GL_LINEAR, parameter(GL_TEXTURE_MAG_FILTER));
    GLfloat border[4];
    glGetTexParameterfv(GL_TEXTURE_2D, GL_TEXTURE_BORDER_COLOR, border);
    EXPECT_EQ((std::vector<float>{1, 1, 1, 0}), std::vector<float>(border, border + 4));
    texture->setWrap(TextureGL::WM_Repeat);
    texture->setMagFilter(TextureGL::FM_Nearest);
    texture->bind(engine.get());
    EXPECT_EQ(GL_REPEAT, parameter(GL_TEXTURE_WRAP_S));
    EXPECT_EQ(GL_NEAREST, parameter(GL_TEXTURE_MAG_FILTER));
}

/// Without mipmaps there is no bound to what the software renderer does for it.
TEST_F(ImageTexture2DGLTest, AnisotropyIsTakenWhereItsCostIsBounded) {
    const bool isMesa = engine->rendererName().starts_with("llvmpipe");
    for (const bool mipmaps : {false, true}) {
        const SO<ImageTexture2DGL> texture = newTexture(newImage(4, 4, LS_RGB));
        texture->setMinFilter(mipmaps ? TextureGL::FM_LinearMipmapLinear : TextureGL::FM_Linear);
        texture->setAnisotropy(16.0);
        texture->bind(engine.get());
        EXPECT_EQ(isMesa && !mipmaps, parameter(GL_TEXTURE_MAX_ANISOTROPY_EXT) == 1);
        EXPECT_EQ(texture->getAnisotropy(), 16.0);
    }
}

TEST_F(ImageTexture2DGLTest, SettersNoteChangesOnly) {
    const SO<ImageTexture2DGL> texture = newTexture(nullptr);
    const std::uint64_t before = texture->lastTransactionNo();
    texture->setMinFilter(texture->getMinFilter());
    texture->setMatrix(texture->getMatrix());
    texture->setWrap(TextureGL::WM_Repeat);
    texture->setBorderColor(texture->getBorderColor());
    EXPECT_EQ(before, texture->lastTransactionNo());
    texture->setMinFilter(TextureGL::FM_Linear);
    EXPECT_NE(before, texture->lastTransactionNo());
}

TEST_F(ImageTexture2DGLTest, TheMaskHoldsTheLuminanceEverywhere) {
    for (const LayerSequence s : {LS_Luminance, LS_RGB, LS_BGRA}) {
        SO<MemoryImage> image = newImage(5, 3, s);
        const SO<ImageTexture2DGL> texture = newTexture(image);
        texture->setMatrix(Matrix4x4Base<double>::scaling({2.0, 1.0, 1.0}));
        const SO<TextureGL> mask = texture->luminanceMask(engine.get());
        ASSERT_TRUE(mask);
        EXPECT_EQ(texture->getMatrix(), mask->getMatrix());
        EXPECT_EQ(mask.get(), texture->luminanceMask(engine.get()).get());
        mask->bind(engine.get());
        EXPECT_LT(0, levelParameter(0, GL_TEXTURE_INTENSITY_SIZE));
        const std::vector<float> got = texels(5, 3);
        const Color c = image->getColor(2, 1);
        EXPECT_NEAR(0.299 * c[0] + 0.587 * c[1] + 0.114 * c[2], got[std::size_t(4 * (5 + 2))], 1e-3);
        image->setColor(2, 1, Color::white);
        image->modified();
        texture->luminanceMask(engine.get())->bind(engine.get());
        EXPECT_NEAR(1.0, texels(5, 3)[std::size_t(4 * (5 + 2))], 1e-3);
    }
}

TEST_F(ImageTexture2DGLTest, APushedTextureCoversWhatFollowsAndNoMore) {
    const std::vector<int> before = stateOfGL();
    SO<ImageTexture2DGL> red = new ImageTexture2DGL(nullptr), texture;
    SO<MemoryImage> image = new MemoryImage(2, 2, LS_RGB);
    for (int i = 0; i < 4; ++i)
        image->setColor(i % 2, i / 2, Color::red);
    texture = newTexture(image);
    engine->push(red.get());
    engine->push(texture.get());
    EXPECT_TRUE(glIsEnabled(GL_TEXTURE_2D));
    GLint bound = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
    EXPECT_EQ(texture->name(), unsigned(bound));
    engine->pop(texture.get());
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
    EXPECT_EQ(red->name(), unsigned(bound));
    engine->pop(red.get());
    EXPECT_FALSE(glIsEnabled(GL_TEXTURE_2D));
    EXPECT_EQ(before, stateOfGL());
}

TEST_F(ImageTexture2DGLTest, IsStoredWithItsImageAndParameters) {
    const SO<ImageTexture2DGL> texture = new ImageTexture2DGL(
        newImage(5, 3, LS_RGB), TextureGL::WM_ClampToBorder, TextureGL::WM_MirroredRepeat,
        TextureGL::FM_Nearest, TextureGL::FM_Nearest, 4.0,
        Matrix4x4Base<double>::translation({1.0, 2.0, 3.0}), Color(0.25, 0.5, 0.75, 1.0), GL_RGB8, true);
    const SO<ImageTexture2DGL> read = roundTrip(texture);
    ASSERT_TRUE(read);
    EXPECT_EQ(texture->getWrapS(), read->getWrapS());
    EXPECT_EQ(texture->getWrapT(), read->getWrapT());
    EXPECT_EQ(texture->getMinFilter(), read->getMinFilter());
    EXPECT_EQ(texture->getMagFilter(), read->getMagFilter());
    EXPECT_EQ(texture->getAnisotropy(), read->getAnisotropy());
    EXPECT_EQ(texture->getMatrix(), read->getMatrix());
    EXPECT_EQ(texture->getBorderColor(), read->getBorderColor());
    EXPECT_EQ(texture->getInternalFormat(), read->getInternalFormat());
    EXPECT_TRUE(read->unrefsImageAfterBinding());
    ASSERT_TRUE(read->getImage());
    EXPECT_EQ(texture->getImage()->getColor(3, 2), read->getImage()->getColor(3, 2));
    EXPECT_EQ(5U, read->getWidth());
}
