#include <zmt/core/texturedtriangles/streamtexturegl.h>

#include <cstring>
#include <random>

#include <nbx/data/memorydataresource.h>
#include <nbx/image/compressedimage.h>
#include <nbx/image/memoryimage.h>
#include <support/damagedstreams.h>
#include <support/glfixture.h>
#include <support/roundtrip.h>
#include <zmt/core/misc/jpgdecompressorthread.h>

namespace ZMT::CORE {
namespace {

using NBX::SO;
using Tree = TexturedTriangleTree;
using StreamTexture = TTTMemoryController::StreamTexture;
using Bytes = std::vector<unsigned char>;

SO<NBX::MemoryImage> picture(int width, int height, NBX::LayerSequence sequence = NBX::LS_RGBA) {
    SO<NBX::MemoryImage> image(new NBX::MemoryImage(width, height, sequence));
    std::mt19937 random(3);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < image->numberOfLayers(); ++c)
                *image->pixelComponentsU8(x, y, c) =
                    static_cast<unsigned char>(c == 3 ? 255 : 60 + 40 * c + 100 * x / width + random() % 8);
    return image;
}

Bytes bytesOf(const NBX::DataResource & data) {
    const auto * start = static_cast<const unsigned char *>(data.pointer());
    return Bytes(start, start + data.size());
}

SO<NBX::MemoryDataResource> resourceOf(const Bytes & bytes) {
    return new NBX::MemoryDataResource(bytes.data(), static_cast<unsigned>(bytes.size()));
}

void append(Bytes & bytes, const void * data, std::size_t count) {
    const auto * start = static_cast<const unsigned char *>(data);
    bytes.insert(bytes.end(), start, start + count);
}

/// All levels of an image, largest first, down to one texel.
std::vector<SO<NBX::Image>> pyramidOf(const NBX::Image & image, NBX::LayerSequence sequence) {
    SO<NBX::Image> level(new NBX::MemoryImage(image.width(), image.height(), sequence));
    level->copy(&image);
    std::vector<SO<NBX::Image>> levels{level};
    while (level->width() > 1 || level->height() > 1) {
        const SO<NBX::Image> half(new NBX::MemoryImage(std::max(1, level->width() / 2),
                                                       std::max(1, level->height() / 2), sequence));
        half->copy(level.get());
        levels.push_back(level = half);
    }
    return levels;
}

/// The block by its description: every level by itself.
Bytes expectedBlock(const NBX::Image & image, Tree::TextureFormat format) {
    Bytes block;
    const bool isGrey = format == Tree::TextureFormatLuminance8;
    for (const auto & level : pyramidOf(image, isGrey ? NBX::LS_Luminance : NBX::LS_BGRA)) {
        const int smaller = std::min(level->width(), level->height());
        const bool isPacked = format == Tree::TextureFormatRGBA5551 && smaller > 1;
        if (isPacked || (format == Tree::TextureFormatDXT1 && smaller > 3)) {
            const SO<NBX::CompressedImage> coded(new NBX::CompressedImage(
                isPacked ? NBX::CompressedImage::BGRA5551 : NBX::CompressedImage::DXT1, level.get()));
            append(block, coded->rawData()->pointer(16), coded->dataSize());
            continue;
        }
        for (int y = 0; y < level->height(); ++y)
            append(block, level->lineComponents(y), std::size_t(level->width()) * (isGrey ? 1 : 4));
    }
    return block;
}

constexpr Tree::TextureFormat formats[] = {Tree::TextureFormatRGBA8, Tree::TextureFormatLuminance8,
                                           Tree::TextureFormatRGBA5551, Tree::TextureFormatDXT1,
                                           Tree::TextureFormatJPEG};

TEST(StreamTexture, ABlockIsAllLevelsOneBehindTheOther) {
    for (const auto format : formats)
        for (const auto & [width, height] :
             {std::pair(16, 16), std::pair(32, 8), std::pair(1, 1), std::pair(1, 8), std::pair(13, 6)})
            for (const auto sequence : {NBX::LS_RGBA, NBX::LS_RGB, NBX::LS_Luminance, NBX::LS_BGRA}) {
                const SO<NBX::MemoryImage> image = picture(width, height, sequence);
                const SO<StreamTexture> texture(new StreamTexture(image, format));
                ASSERT_EQ(bytesOf(*texture->data()), expectedBlock(*image, format))
                    << format << ": " << width << " x " << height << ", " << sequence;
                EXPECT_EQ(texture->width(), width);
                EXPECT_EQ(texture->height(), height);
                EXPECT_TRUE(texture->isComplete());
            }
}

TEST(StreamTexture, SizesOfBlocks) {
    const auto size = [](int width, int height, Tree::TextureFormat format) {
        return SO<StreamTexture>(new StreamTexture(picture(width, height), format))->data()->size();
    };
    EXPECT_EQ(size(4, 4, Tree::TextureFormatRGBA8), 4U * (16 + 4 + 1));
    EXPECT_EQ(size(4, 4, Tree::TextureFormatLuminance8), 16U + 4 + 1);
    EXPECT_EQ(size(4, 4, Tree::TextureFormatRGBA5551), 2U * (16 + 4) + 4);
    EXPECT_EQ(size(8, 8, Tree::TextureFormatDXT1), 32U + 8 + 4 * (4 + 1));
    EXPECT_EQ(size(8, 2, Tree::TextureFormatRGBA5551), 2U * 16 + 4 * (4 + 2 + 1));
}

TEST(StreamTexture, PaddingOfLinesIsLeftOut) {
    const SO<NBX::MemoryImage> padded(new NBX::MemoryImage(3, 3, NBX::LS_BGRA, NBX::Image::UInt8, 32));
    const SO<NBX::MemoryImage> image = picture(3, 3, NBX::LS_BGRA);
    padded->copy(image.get());
    EXPECT_EQ(bytesOf(*SO<StreamTexture>(new StreamTexture(padded, Tree::TextureFormatRGBA8))->data()),
              bytesOf(*SO<StreamTexture>(new StreamTexture(image, Tree::TextureFormatRGBA8))->data()));
}

TEST(StreamTexture, LevelsOfDXT1EndWithASideBelowEight) {
    using Sizes = std::vector<std::pair<int, int>>;
    const auto sizes = [](int width, int height, Tree::TextureFormat format) {
        Sizes result;
        for (const auto & level : StreamTexture::levels(width, height, format))
            result.emplace_back(level.width, level.height);
        return result;
    };
    EXPECT_EQ(sizes(32, 16, Tree::TextureFormatDXT1), (Sizes{{32, 16}, {16, 8}, {8, 4}}));
    EXPECT_EQ(sizes(7, 7, Tree::TextureFormatDXT1), (Sizes{{7, 7}}));
    EXPECT_EQ(sizes(2, 64, Tree::TextureFormatDXT1), (Sizes{{2, 64}}));
    EXPECT_EQ(sizes(5, 1, Tree::TextureFormatRGBA8), (Sizes{{5, 1}, {2, 1}, {1, 1}}));
    for (const int side : {0, -1, TTTMemoryController::s_largestSide + 1, std::numeric_limits<int>::min()})
        EXPECT_TRUE(StreamTexture::levels(side, 8, Tree::TextureFormatRGBA8).empty()) << side;
}

TEST(StreamTexture, WhatTheCodecMakesIsABlockOfDXT1) {
    for (const auto & [width, height] : {std::pair(32, 32), std::pair(64, 16), std::pair(5, 5)}) {
        const auto s3 = JPGDecompressorThread::jpgMipmaps2S3Mipmaps(
            JPGDecompressorThread::buildJPGMipmaps(picture(width, height, NBX::LS_RGB)));
        EXPECT_EQ(s3->size(), StreamTexture::levelBytes(width, height, Tree::TextureFormatDXT1));
    }
}

TEST(StreamTexture, NoImageIsReported) {
    const RecordedReports reports;
    const SO<StreamTexture> none(new StreamTexture(SO<NBX::Image>(), Tree::TextureFormatRGBA8));
    EXPECT_EQ(reports.count(0, L"image", L"no image"), 1U) << reports;
    EXPECT_FALSE(none->data());
    EXPECT_FALSE(none->isComplete());
}

TEST(StreamTexture, SidesThatCannotBeAreReported) {
    for (const auto & [width, height] : {std::pair(0, 8), std::pair(8, -1), std::pair(1 << 20, 1 << 20)}) {
        const RecordedReports reports;
        const SO<StreamTexture> texture(
            new StreamTexture(width, height, resourceOf(Bytes(64)), Tree::TextureFormatRGBA8));
        EXPECT_EQ(reports.size(), 1U) << reports;
        EXPECT_FALSE(texture->isComplete());
        EXPECT_EQ(texture->width(), 0);
    }
}

TEST(StreamTexture, IsStored) {
    const SO<StreamTexture> texture(new StreamTexture(picture(8, 4), Tree::TextureFormatRGBA5551));
    NBX::Matrix4x4Base<double> matrix;
    matrix(0, 0) = 0.25;
    texture->setMatrix(matrix);
    const SO<StreamTexture> back = roundTrip(texture);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->width(), 8);
    EXPECT_EQ(back->height(), 4);
    EXPECT_EQ(back->format(), Tree::TextureFormatRGBA5551);
    EXPECT_EQ(back->getMatrix(), matrix);
    EXPECT_EQ(bytesOf(*back->data()), bytesOf(*texture->data()));
}

TEST(StreamTexture, DamagedStreamsAreHarmless) {
    const SO<StreamTexture> texture(new StreamTexture(picture(8, 4), Tree::TextureFormatRGBA5551));
    expectModestReading(*texture, [](const SO<NBX::SharedObj> & read) {
        const auto back = NBX::soCast<StreamTexture>(read);
        EXPECT_TRUE(!back || !back->data() || back->width() >= 1);
    });
}

class StreamTextureGLTest : public GLFixture {
protected:
    struct Image {
        int width = 0, height = 0;
        Bytes bgra;
    };
    static Image levelOnCard(int level) {
        Image image;
        glGetTexLevelParameteriv(GL_TEXTURE_2D, level, GL_TEXTURE_WIDTH, &image.width);
        glGetTexLevelParameteriv(GL_TEXTURE_2D, level, GL_TEXTURE_HEIGHT, &image.height);
        image.bgra.resize(4UL * std::size_t(image.width) * std::size_t(image.height));
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        if (!image.bgra.empty())
            glGetTexImage(GL_TEXTURE_2D, level, GL_BGRA, GL_UNSIGNED_BYTE, image.bgra.data());
        glPixelStorei(GL_PACK_ALIGNMENT, 4);
        return image;
    }
    static int parameter(unsigned name) {
        int value = 0;
        glGetTexParameteriv(GL_TEXTURE_2D, name, &value);
        return value;
    }
    /// The largest difference of the level from an image.
    static int difference(const Image & level, const NBX::Image & image, bool isGrey) {
        const SO<NBX::MemoryImage> wanted(new NBX::MemoryImage(image.width(), image.height(), NBX::LS_BGRA));
        wanted->copy(&image);
        if (level.width != image.width() || level.height != image.height()) return 256;
        int largest = 0;
        for (int y = 0; y < level.height; ++y)
            // What is read back of luminance is red alone.
            for (int i = isGrey ? 2 : 0; i < 4 * level.width; i += isGrey ? 4 : 1)
                largest = std::max(largest, std::abs(level.bgra[std::size_t(4 * level.width * y + i)] -
                                                     wanted->lineComponentsU8(y)[i]));
        return largest;
    }
};

TEST_F(StreamTextureGLTest, AllLevelsReachTheCard) {
    for (const auto format : formats)
        for (const auto & [width, height] : {std::pair(32, 16), std::pair(8, 2), std::pair(12, 20)}) {
            SCOPED_TRACE(testing::Message() << "format " << format << ", " << width << " x " << height);
            const auto image = picture(width, height);
            const SO<StreamTexture> texture(new StreamTexture(image, format));
            ASSERT_TRUE(texture->apply(true));
            const auto levels = StreamTexture::levels(width, height, format);
            EXPECT_EQ(parameter(GL_TEXTURE_MAX_LEVEL), int(levels.size()) - 1);
            const bool isGrey = format == Tree::TextureFormatLuminance8;
            const auto expected = pyramidOf(*image, isGrey ? NBX::LS_Luminance : NBX::LS_BGRA);
            const int tolerance = format == Tree::TextureFormatDXT1       ? 40
                                  : format == Tree::TextureFormatRGBA5551 ? 5
                                                                          : 0;
            for (std::size_t i = 0; i < levels.size(); ++i)
                EXPECT_LE(difference(levelOnCard(int(i)), *expected[i], isGrey), tolerance) << i;
            texture->apply(false);
        }
}

TEST_F(StreamTextureGLTest, IsSampledAsItShallBe) {
    const SO<StreamTexture> texture(new StreamTexture(picture(8, 8), Tree::TextureFormatRGBA8));
    ASSERT_TRUE(texture->apply(true));
    EXPECT_EQ(parameter(GL_TEXTURE_WRAP_S), GL_REPEAT);
    EXPECT_EQ(parameter(GL_TEXTURE_WRAP_T), GL_REPEAT);
    EXPECT_EQ(parameter(GL_TEXTURE_MAG_FILTER), GL_LINEAR);
    EXPECT_EQ(parameter(GL_TEXTURE_MIN_FILTER), GL_LINEAR_MIPMAP_LINEAR);
    texture->apply(false);
}

/// By who shows it, one after the other.
TEST_F(StreamTextureGLTest, GoesOnBeyondItsEdgesAsItIsTold) {
    using Wrap = NBX::TextureGL::WrapMode;
    const SO<StreamTexture> texture(new StreamTexture(picture(8, 8), Tree::TextureFormatRGBA8));
    const auto told = [&](Wrap s, Wrap t) {
        EXPECT_TRUE(texture->apply(true));
        texture->setWrap(s, t);
        const std::pair modes(parameter(GL_TEXTURE_WRAP_S), parameter(GL_TEXTURE_WRAP_T));
        texture->apply(false);
        return modes;
    };
    EXPECT_EQ(told(Wrap::WM_MirroredRepeat, Wrap::WM_Clamp), std::pair(GL_MIRRORED_REPEAT, GL_CLAMP_TO_EDGE));
    EXPECT_EQ(told(Wrap::WM_MirroredRepeat, Wrap::WM_Repeat), std::pair(GL_MIRRORED_REPEAT, GL_REPEAT));
    EXPECT_EQ(told(Wrap::WM_ClampToBorder, Wrap::WM_Repeat), std::pair(GL_CLAMP_TO_EDGE, GL_REPEAT));
    EXPECT_EQ(told(Wrap::WM_Repeat, Wrap::WM_Repeat), std::pair(GL_REPEAT, GL_REPEAT));
}

TEST_F(StreamTextureGLTest, ItsMatrixHoldsWhileItIsApplied) {
    const SO<StreamTexture> texture(new StreamTexture(picture(8, 8), Tree::TextureFormatRGBA8));
    NBX::Matrix4x4Base<double> matrix;
    matrix(0, 0) = 0.25;
    matrix(0, 3) = 0.5;
    texture->setMatrix(matrix);
    const std::vector<int> before = stateOfGL();
    glEnable(GL_TEXTURE_2D);
    ASSERT_TRUE(texture->apply(true));
    EXPECT_TRUE(glIsEnabled(GL_TEXTURE_2D));
    double now[16];
    glGetDoublev(GL_TEXTURE_MATRIX, now);
    EXPECT_EQ(now[0], 0.25);
    EXPECT_EQ(now[12], 0.5);
    int mode = 0;
    glGetIntegerv(GL_MATRIX_MODE, &mode);
    EXPECT_EQ(mode, GL_MODELVIEW);
    texture->apply(false);
    EXPECT_FALSE(glIsEnabled(GL_TEXTURE_2D));
    glGetDoublev(GL_TEXTURE_MATRIX, now);
    EXPECT_EQ(now[0], 1.0);
    EXPECT_EQ(now[12], 0.0);
    glBindTexture(GL_TEXTURE_2D, 0);
    EXPECT_EQ(stateOfGL(), before);
}

TEST_F(StreamTextureGLTest, LetsGoOfItsBlockUnlessToldOtherwise) {
    const SO<StreamTexture> texture(new StreamTexture(picture(8, 8), Tree::TextureFormatRGBA8));
    const std::uint64_t both = texture->memoryBytes();
    EXPECT_EQ(both, 2U * 4 * (64 + 16 + 4 + 1));
    EXPECT_FALSE(texture->isUploaded());
    EXPECT_EQ(texture->textureId(), 0U);
    texture->apply(true);
    texture->apply(false);
    EXPECT_TRUE(texture->isUploaded());
    EXPECT_FALSE(texture->data());
    EXPECT_EQ(texture->memoryBytes(), both / 2);
    const unsigned name = texture->textureId();
    EXPECT_TRUE(texture->apply(true)) << "from the card alone";
    texture->apply(false);
    EXPECT_EQ(texture->textureId(), name);

    const SO<StreamTexture> kept(new StreamTexture(picture(8, 8), Tree::TextureFormatRGBA8));
    kept->enableUnrefAfterBinding(false);
    kept->apply(true);
    kept->apply(false);
    EXPECT_TRUE(kept->data());
    EXPECT_EQ(kept->memoryBytes(), both);
}

TEST_F(StreamTextureGLTest, ABlockThatEndsTooEarlyIsToldOnceAndNotRead) {
    for (const auto format : formats) {
        const Bytes whole = bytesOf(*SO<StreamTexture>(new StreamTexture(picture(16, 16), format))->data());
        const auto needed = StreamTexture::levelBytes(16, 16, format);
        for (const std::size_t size : {std::size_t(needed - 1), std::size_t(1), std::size_t(0)}) {
            const SO<StreamTexture> texture(new StreamTexture(
                16, 16, resourceOf(Bytes(whole.begin(), whole.begin() + std::ptrdiff_t(size))), format));
            EXPECT_FALSE(texture->isComplete());
            for (int i = 0; i < 2; ++i) {
                EXPECT_FALSE(texture->apply(true));
                texture->apply(false);
            }
            EXPECT_EQ(reports.count(2, L"false", L"data buffer incomplete. Texture cannot be applied."), 1U)
                << reports;
            EXPECT_EQ(reports.size(), 1U) << reports;
            reports.clear();
        }
        const SO<StreamTexture> enough(new StreamTexture(
            16, 16, resourceOf(Bytes(whole.begin(), whole.begin() + std::ptrdiff_t(needed))), format));
        EXPECT_TRUE(enough->apply(true)) << format;
        enough->apply(false);
    }
}

TEST_F(StreamTextureGLTest, NamesGoWithTheirTextures) {
    const Names before = countNames();
    SO<StreamTexture> texture(new StreamTexture(picture(8, 8), Tree::TextureFormatRGBA8));
    texture->apply(true);
    texture->apply(false);
    EXPECT_EQ(countNames().textures, before.textures + 1);
    glBindTexture(GL_TEXTURE_2D, 0);
    texture = nullptr;
    EXPECT_EQ(countNames(), before);
}

} // namespace
} // namespace ZMT::CORE
