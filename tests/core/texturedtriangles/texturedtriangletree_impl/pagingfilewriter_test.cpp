#include "core/texturedtriangles/texturedtriangletree_impl/pagingfilewriter.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>

#include <gtest/gtest.h>

#include <nbx/data/file.h>
#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>
#include <nbx/object/stringutils.h>
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>
#include <zmt/core/texturedtriangles/streamtexturegl.h>

#include "core/texturedtriangles/texturedtriangletree_impl/sourcetextures.h"
#include "trianglemeshes.h"

namespace {

using namespace ZMT::CORE;
using NBX::Image;
using NBX::MemoryImage;
using NBX::SO;
using Tree = TexturedTriangleTree;
using Bytes = std::vector<std::uint8_t>;

SO<Image> picture(int width, int height, NBX::LayerSequence layers = NBX::LS_RGBA) {
    const SO<Image> image(new MemoryImage(width, height, layers));
    for (int y = 0; y < height; ++y)
        for (int i = 0; i < width * image->numberOfLayers(); ++i)
            image->lineComponentsU8(y)[i] = static_cast<unsigned char>(i * 7 + y * 13);
    return image;
}

class PagingFileWriterTest : public testing::Test {
protected:
    PagingFileWriterTest() { std::filesystem::create_directories(folder); }
    ~PagingFileWriterTest() override { std::filesystem::remove_all(folder); }

    std::wstring wide() const { return NBX::StringUtils::Utf8String2WString(path); }
    Bytes content() const { return NBX::File::contents(path); }
    std::size_t files() const {
        return std::size_t(std::distance(std::filesystem::directory_iterator(folder), {}));
    }
    static int numberAt(const Bytes & bytes, std::size_t at) {
        int number = 0;
        std::memcpy(&number, &bytes.at(at), sizeof number);
        return number;
    }

    const std::string folder = testing::TempDir() + "zmt_paging_" + std::to_string(::getpid());
    const std::string path = folder + "/city.opaque.nbx";
    RecordedReports reports;
};

TEST_F(PagingFileWriterTest, BlocksLieOneBehindTheOther) {
    PagingFileWriter writer(wide(), Tree::TextureFormatRGBA8);
    const SO<Image> atlas = picture(4, 4), source = picture(3, 5);
    const auto first = writer.writeAtlases({atlas})[0], second = writer.writeSource(7, source);
    const auto more = writer.writeAtlases({nullptr, atlas});
    const auto none = more[0], third = more[1];
    EXPECT_EQ(0U, files()) << "nothing is to be seen before it is complete";
    writer.commit();
    const Bytes bytes = content();
    EXPECT_EQ(0U, first.position);
    EXPECT_EQ((16U + 4 + 1) * 4, first.size) << "mipmaps down to one texel";
    EXPECT_EQ(first.size, second.position);
    EXPECT_EQ(8U + (15 + 2 + 1) * 4, second.size);
    EXPECT_EQ(PagingFileWriter::Block(), none);
    EXPECT_EQ(second.position + second.size, third.position);
    EXPECT_EQ(bytes.size(), third.position + third.size);
    EXPECT_EQ(3, numberAt(bytes, second.position));
    EXPECT_EQ(5, numberAt(bytes, second.position + 4));
    EXPECT_EQ(atlas->pixelComponentsU8(1, 0)[0], bytes[4 + 2]) << "blue, green, red, alpha";
    EXPECT_TRUE(
        std::equal(bytes.begin(), bytes.begin() + long(first.size), bytes.begin() + long(third.position)));
}

TEST_F(PagingFileWriterTest, ASourceTextureIsWrittenOnce) {
    PagingFileWriter writer(wide(), Tree::TextureFormatLuminance8);
    EXPECT_EQ(nullptr, writer.source(3));
    const auto first = writer.writeSource(3, picture(2, 2));
    const auto other = writer.writeSource(4, picture(2, 2));
    EXPECT_EQ(first, writer.writeSource(3, picture(8, 8)));
    ASSERT_TRUE(writer.source(3));
    EXPECT_EQ(first, *writer.source(3));
    EXPECT_NE(first.position, other.position);
    writer.commit();
    EXPECT_EQ(2 * (8U + 5), content().size());
}

TEST_F(PagingFileWriterTest, WhatIsCodedAsideIsWrittenInItsOrder) {
    const std::vector<SO<Image>> atlases = {picture(64, 64), nullptr, picture(4, 4), picture(32, 32),
                                            picture(1, 1)};
    Bytes bytes[2];
    std::vector<PagingFileWriter::Block> blocks[2];
    for (const bool isAside : {false, true}) {
        PagingFileWriter writer(wide(), Tree::TextureFormatDXT1);
        for (unsigned number = 0; number < 3; ++number) {
            const SO<Image> source = picture(128 >> (2 * number), 64);
            if (isAside)
                writer.beginSource(number, source);
            else
                writer.writeSource(number, source);
            EXPECT_EQ(!isAside, writer.source(number) != nullptr);
        }
        writer.finishSource();
        writer.finishSource();
        if (isAside) blocks[isAside] = writer.writeAtlases(atlases);
        for (unsigned i = 0; !isAside && i < atlases.size(); ++i)
            blocks[isAside].push_back(writer.writeAtlases({atlases[i]})[0]);
        for (unsigned number = 0; number < 3; ++number) {
            ASSERT_TRUE(writer.source(number));
            blocks[isAside].push_back(*writer.source(number));
        }
        writer.beginSource(2, picture(4, 4));
        writer.commit();
        bytes[isAside] = content();
    }
    EXPECT_EQ(blocks[0], blocks[1]);
    EXPECT_EQ(bytes[0], bytes[1]);
}

/// Tells when its lines are looked at.
class WatchedImage : public Image {
    NBX_TEMPLATE_CLASS(WatchedImage, Image)
public:
    explicit WatchedImage(int side) : Image(NBX::LS_RGBA, UInt8), pixels_(picture(side, side)) {}

    int width() const override { return pixels_->width(); }
    int height() const override { return pixels_->height(); }
    using Image::lineComponents;
    const void * lineComponents(int y) const override {
        static std::atomic<int> s_looks{0};
        const int look = ++s_looks;
        int none = 0;
        first.compare_exchange_strong(none, look);
        last = look;
        return pixels_->lineComponents(y);
    }

    mutable std::atomic<int> first{0}, last{0};

private:
    SO<Image> pixels_;
};

/// So no more than two blocks are held at a time.
TEST_F(PagingFileWriterTest, AtlasesAreCodedInPairs) {
    PagingFileWriter writer(wide(), Tree::TextureFormatDXT1);
    std::vector<SO<Image>> atlases;
    for (int i = 0; i < 5; ++i)
        atlases.emplace_back(new WatchedImage(256));
    EXPECT_EQ(5U, writer.writeAtlases(atlases).size());
    const auto at = [&](std::size_t i) { return static_cast<const WatchedImage *>(atlases[i].get()); };
    for (const std::size_t later : {2U, 3U, 4U})
        for (std::size_t before = 0; before < later / 2 * 2; ++before)
            EXPECT_GT(at(later)->first, at(before)->last) << later << " and " << before;
}

/// A picture that is decoded when it is asked for.
class CountedPicture : public Image {
    NBX_TEMPLATE_CLASS(CountedPicture, Image)
public:
    static constexpr int side = 8;
    static constexpr std::uint64_t bytes = 4 * side * side;

    CountedPicture() : Image(NBX::LS_RGBA, UInt8) {}
    int width() const override { return side; }
    int height() const override { return side; }
    using Image::lineComponents;
    const void * lineComponents(int) const override { return nullptr; }
    SO<Image> uncompressed(bool) override { return new Pixels; }

    static inline int s_alive = 0, s_most = 0;

private:
    class Pixels : public MemoryImage {
        NBX_TEMPLATE_CLASS(Pixels, MemoryImage)
    public:
        Pixels() : MemoryImage(side, side, NBX::LS_RGBA) { s_most = std::max(s_most, ++s_alive); }
        ~Pixels() override { --s_alive; }
    };
};

/// Meshes of three pictures, the first of which is shown with two wrap modes.
SO<TriangleContainer> fourTextures() {
    const SO<Image> first(new CountedPicture), second(new CountedPicture), third(new CountedPicture);
    std::vector<TriangleMeshes::Mesh> meshes;
    for (const auto & [image, wrap] : {std::pair(first, NBX::TextureGL::WM_Repeat),
                                       {second, NBX::TextureGL::WM_Repeat},
                                       {first, NBX::TextureGL::WM_ClampToEdge},
                                       {third, NBX::TextureGL::WM_Repeat}}) {
        const SO<NBX::ImageTexture2DGL> texture(new NBX::ImageTexture2DGL(image, wrap, wrap));
        meshes.push_back(
            {SO<TextureWrapper>(new TextureWrapper(texture)),
             TriangleMeshes::setOf({{0, 0, 0}, {8, 0, 0}, {0, 0, 8}}, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}})});
    }
    return new TriangleContainer(TriangleMeshes::meshesOf(meshes));
}

TEST_F(PagingFileWriterTest, APictureOfTwoWrapModesIsWrittenOnce) {
    const SO<TriangleContainer> container = fourTextures();
    SourceTextures textures(*container);
    PagingFileWriter writer(wide(), Tree::TextureFormatRGBA8);
    EXPECT_TRUE(writer.writeSources({0, 2, 1, 2, 3}, textures, [] { return true; }));
    EXPECT_TRUE(writer.writeSources({2, 3}, textures, [] { return false; })) << "nothing is left to do";
    EXPECT_EQ(3U, textures.loads());
    ASSERT_TRUE(writer.source(0) && writer.source(1) && writer.source(3));
    EXPECT_FALSE(writer.source(2)) << "it is the first one's";
    const std::uint64_t size = writer.source(0)->size;
    EXPECT_EQ(0U, writer.source(0)->position);
    EXPECT_EQ(size, writer.source(1)->position);
    EXPECT_EQ(2 * size, writer.source(3)->position);
    writer.commit();
    EXPECT_EQ(3 * size, content().size());
}

/// What is coded counts for the bytes that may be decoded at once.
TEST_F(PagingFileWriterTest, WhereTwoPicturesDoNotFitTheFirstIsCodedBeforeTheNextIsDecoded) {
    for (const int most : {1, 2}) {
        const SO<TriangleContainer> container = fourTextures();
        SourceTextures textures(*container, std::uint64_t(most + 1) * CountedPicture::bytes - 1);
        PagingFileWriter writer(wide(), Tree::TextureFormatRGBA8);
        CountedPicture::s_most = CountedPicture::s_alive;
        EXPECT_TRUE(writer.writeSources({0, 1, 3}, textures, [] { return true; }));
        EXPECT_EQ(most, CountedPicture::s_most);
    }
    EXPECT_EQ(0, CountedPicture::s_alive);
}

TEST_F(PagingFileWriterTest, BetweenTwoSourcesItMayBeTheEnd) {
    const SO<TriangleContainer> container = fourTextures();
    SourceTextures textures(*container);
    PagingFileWriter writer(wide(), Tree::TextureFormatRGBA8);
    int questions = 0;
    EXPECT_FALSE(writer.writeSources({0, 1, 2, 3}, textures, [&] { return ++questions < 3; }));
    EXPECT_EQ(2U, textures.loads());
    EXPECT_FALSE(writer.source(3));
}

/// A leaf is drawn with its source textures when it has all of them.
TEST_F(PagingFileWriterTest, ATextureThatCannotBeHadIsASmallGreyOne) {
    for (int format = 0; format <= Tree::TextureFormatJPEG; ++format) {
        PagingFileWriter writer(wide(), Tree::TextureFormat(format));
        const auto missing = writer.writeSource(5, nullptr);
        EXPECT_GT(missing.size, 8U) << format;
        ASSERT_TRUE(writer.source(5));
        EXPECT_EQ(missing, *writer.source(5)) << "it is not tried again";
        EXPECT_EQ(missing, writer.writeSource(6, nullptr)) << "all share one";
        const auto next = writer.writeSource(7, picture(4, 4));
        EXPECT_EQ(missing.position + missing.size, next.position) << format;
        writer.commit();
        EXPECT_EQ(4, numberAt(content(), missing.position));
        EXPECT_EQ(4, numberAt(content(), missing.position + 4));
        if (format != Tree::TextureFormatRGBA8) continue;
        const Bytes bytes = content();
        EXPECT_EQ((Bytes{191, 191, 191, 255}), Bytes(bytes.begin() + 8, bytes.begin() + 12));
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(PagingFileWriterTest, SidesAreNumbersOfFourBytes) {
    PagingFileWriter writer(wide(), Tree::TextureFormatLuminance8);
    writer.writeSource(0, picture(300, 2));
    writer.commit();
    EXPECT_EQ(300, numberAt(content(), 0));
    EXPECT_EQ(2, numberAt(content(), 4));
}

TEST_F(PagingFileWriterTest, WhatIsGivenUpLeavesWhatWasThere) {
    NBX::File(path, NBX::WM_Create).write("old", 3);
    { PagingFileWriter(wide(), Tree::TextureFormatRGBA8).writeAtlases({picture(4, 4)}); }
    EXPECT_EQ((Bytes{'o', 'l', 'd'}), content());
    EXPECT_EQ(1U, files());
    PagingFileWriter writer(wide(), Tree::TextureFormatRGBA8);
    writer.writeAtlases({picture(1, 1)});
    writer.commit();
    EXPECT_EQ(4U, content().size()) << "a new file";
}

TEST_F(PagingFileWriterTest, NamesThatCannotBeWrittenAreTold) {
    EXPECT_THROW(PagingFileWriter(wide() + L"/none/x", Tree::TextureFormatRGBA8), NBX::IOException);
}

TEST_F(PagingFileWriterTest, SourcesAreStoredInSizesThatTheFormatTakes) {
    struct Case {
        int width, height, storedWidth, storedHeight;
    };
    const auto check = [](Tree::TextureFormat format, const std::vector<Case> & cases) {
        for (const Case & c : cases) {
            const SO<Image> stored =
                PagingFileWriter::storable(new MemoryImage(c.width, c.height, NBX::LS_Luminance), format);
            EXPECT_EQ(c.storedWidth, stored->width()) << format << ": " << c.width << " x " << c.height;
            EXPECT_EQ(c.storedHeight, stored->height()) << format << ": " << c.width << " x " << c.height;
        }
    };
    for (const auto format : {Tree::TextureFormatDXT1, Tree::TextureFormatJPEG})
        check(format, {{256, 187, 256, 256},
                       {168, 336, 256, 512},
                       {1, 1, 4, 4},
                       {4, 4, 4, 4},
                       {8193, 2, 8192, 4},
                       {30000, 30, 8192, 32}});
    for (const auto format :
         {Tree::TextureFormatRGBA8, Tree::TextureFormatLuminance8, Tree::TextureFormatRGBA5551})
        check(format, {{256, 187, 256, 187}, {1, 1, 1, 1}, {30000, 30, 8192, 30}});
    const SO<Image> same = picture(8, 8);
    EXPECT_EQ(same, PagingFileWriter::storable(same, Tree::TextureFormatDXT1)) << "no copy";
}

TEST_F(PagingFileWriterTest, ScaledTexturesShowTheSamePicture) {
    const SO<Image> flat(new MemoryImage(5, 3, NBX::LS_RGB));
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x)
            flat->setColor(x, y, NBX::Color(0.2F, 0.4F, 0.8F));
    const SO<Image> stored = PagingFileWriter::storable(flat, Tree::TextureFormatJPEG);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x)
            EXPECT_NEAR(0.8F, stored->getColor(x, y)[2], 0.01F);
}

/// Every size of the painters' and the controller's reckoning.
TEST_F(PagingFileWriterTest, AllFormatsCodeAllKindsOfImages) {
    for (int format = 0; format <= Tree::TextureFormatJPEG; ++format)
        for (const auto layers : {NBX::LS_Luminance, NBX::LS_LuminanceAlpha, NBX::LS_RGB, NBX::LS_RGBA})
            for (const auto & [width, height] : {std::pair(1, 1), {256, 187}, {168, 336}, {16, 16}}) {
                const auto textureFormat = Tree::TextureFormat(format);
                const SO<Image> stored =
                    PagingFileWriter::storable(picture(width, height, layers), textureFormat);
                const SO<NBX::DataResource> data = PagingFileWriter::coded(stored, textureFormat);
                ASSERT_TRUE(data) << format << ' ' << layers << ' ' << width;
                if (textureFormat == Tree::TextureFormatJPEG)
                    EXPECT_GE(*static_cast<const std::uint8_t *>(data->pointer()), 1);
                else
                    EXPECT_TRUE(SO<TTTMemoryController::StreamTexture>(
                                    new TTTMemoryController::StreamTexture(stored->width(), stored->height(),
                                                                           data, textureFormat))
                                    ->isComplete())
                        << format << ' ' << layers << ' ' << width;
            }
    EXPECT_TRUE(reports.empty()) << reports;
}

/// The first texel of a block of one colour, as the card decodes it.
TEST_F(PagingFileWriterTest, BlocksKeepTheColoursOfTransparentTexels) {
    const SO<Image> clear(new MemoryImage(4, 4, NBX::LS_RGBA));
    for (int i = 0; i < 16; ++i)
        clear->setColor(i % 4, i / 4, NBX::Color(1.0F, 1.0F, 1.0F, 0.0F));
    const SO<NBX::DataResource> data = PagingFileWriter::coded(clear, Tree::TextureFormatDXT1);
    std::uint16_t colors[2];
    std::memcpy(colors, data->pointer(), sizeof colors);
    std::uint32_t choices = 0;
    std::memcpy(&choices, static_cast<const char *>(data->pointer()) + 4, sizeof choices);
    const unsigned choice = choices & 3;
    EXPECT_TRUE(choice < 2 && colors[choice] == 0xFFFF) << choice;
}

TEST_F(PagingFileWriterTest, NothingIsCodedOfNothing) {
    EXPECT_FALSE(PagingFileWriter::coded(nullptr, Tree::TextureFormatRGBA8));
}

} // namespace
