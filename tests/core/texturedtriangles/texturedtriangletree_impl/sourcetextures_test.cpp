#include "core/texturedtriangles/texturedtriangletree_impl/sourcetextures.h"

#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/container/sequence/nonpersistentarray.h>
#include <nbx/data/dataresource.h>
#include <nbx/data/file.h>
#include <nbx/image/encodedimage.h>
#include <nbx/image/imagewriter.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/stringutils.h>
#include <support/recordedreports.h>

namespace {

using namespace ZMT::CORE;
using NBX::SO;

SO<TextureWrapper> sourceTexture(int width, int height) {
    return new TextureWrapper(SO<NBX::ImageTexture2DGL>(
        new NBX::ImageTexture2DGL(new NBX::MemoryImage(width, height, NBX::LS_RGB))));
}

SO<TriangleContainer> meshesWith(const std::vector<SO<TextureWrapper>> & textures) {
    const SO<NBX::NonPersistentArray<TriangleCollector::TexturedMesh>> meshes(
        new NBX::NonPersistentArray<TriangleCollector::TexturedMesh>());
    for (const SO<TextureWrapper> & texture : textures)
        meshes->append({texture, new NBX::PolygonSet()});
    return new TriangleContainer(meshes);
}

TEST(SourceTextures, AreNumberedAsMeshesHaveThem) {
    const SO<TextureWrapper> a = sourceTexture(1, 1), b = sourceTexture(2, 2);
    const SO<TriangleContainer> container = meshesWith({b, a, nullptr, b});
    SourceTextures textures(*container);
    EXPECT_EQ(2U, textures.size());
    EXPECT_EQ(0, textures.numberOf(0));
    EXPECT_EQ(1, textures.numberOf(1));
    EXPECT_EQ(-1, textures.numberOf(2));
    EXPECT_EQ(0, textures.numberOf(3));
    EXPECT_EQ(b.get(), &textures.wrapper(0));
    EXPECT_EQ(2, textures.image(0)->width());
    EXPECT_EQ(1, textures.image(1)->width());
}

TEST(SourceTextures, KeepsFiftyImagesAndLetsTheOldestGo) {
    std::vector<SO<TextureWrapper>> wrappers;
    for (unsigned i = 0; i < 51; ++i)
        wrappers.push_back(sourceTexture(1, 1));
    const SO<TriangleContainer> container = meshesWith(wrappers);
    SourceTextures textures(*container);
    for (unsigned i = 0; i < 50; ++i)
        textures.image(i);
    textures.image(0);
    EXPECT_EQ(50U, textures.loads());
    textures.image(50);
    EXPECT_EQ(51U, textures.loads());
    textures.image(1);
    EXPECT_EQ(51U, textures.loads());
    textures.image(0);
    EXPECT_EQ(52U, textures.loads()) << "the first one had made room";
}

/// Large ones as many as fit, and one in any case.
TEST(SourceTextures, KeepsSoManyBytesOnly) {
    const SO<TriangleContainer> container =
        meshesWith({sourceTexture(10, 10), sourceTexture(10, 10), sourceTexture(10, 10),
                    sourceTexture(20, 20), sourceTexture(5, 10)});
    SourceTextures textures(*container, 1000); // three times 300
    for (const unsigned i : {0U, 1U, 0U})
        textures.image(i);
    EXPECT_EQ(600U, textures.bytes());
    EXPECT_EQ(2U, textures.loads());
    textures.image(2);
    EXPECT_EQ(900U, textures.bytes());
    EXPECT_EQ(20, textures.image(3)->width());
    EXPECT_EQ(1200U, textures.bytes()) << "it alone";
    textures.image(4);
    EXPECT_EQ(150U, textures.bytes());
    EXPECT_EQ(10, textures.image(0)->width());
    EXPECT_EQ(450U, textures.bytes());
    EXPECT_EQ(6U, textures.loads());
}

/// Whoever uses the last one lets it go before the next one is decoded, and is not asked where there is room.
TEST(SourceTextures, WhoUsesTheLastImageLetsItGoFirst) {
    const SO<TextureWrapper> deep(new TextureWrapper(SO<NBX::ImageTexture2DGL>(
        new NBX::ImageTexture2DGL(new NBX::MemoryImage(10, 10, NBX::LS_RGB, NBX::Image::UInt16)))));
    const SO<TriangleContainer> container = meshesWith({sourceTexture(10, 10), sourceTexture(10, 10), deep});
    SourceTextures textures(*container, 800);
    std::vector<unsigned> loadsBefore;
    const auto letGo = [&] { loadsBefore.push_back(textures.loads()); };
    for (const unsigned i : {0U, 1U, 0U})
        textures.image(i, letGo);
    EXPECT_EQ(std::vector<unsigned>(), loadsBefore);
    textures.image(2, letGo);
    EXPECT_EQ(std::vector<unsigned>{2}, loadsBefore) << "twice as many bytes a texel";
    EXPECT_EQ(600U, textures.bytes());
}

/// Known from the first bytes, also of files.
TEST(SourceTextures, OfPicturesInFilesTheRightBytesAreExpected) {
    const std::string folder = testing::TempDir() + "zmt_sources_" + std::to_string(::getpid());
    std::filesystem::create_directories(folder);
    std::vector<SO<TextureWrapper>> wrappers;
    for (const char * name : {"/a.png", "/b.png"}) {
        const SO<NBX::Image> grey(new NBX::MemoryImage(10, 10, NBX::LS_Luminance));
        const SO<NBX::DataResource> bytes = NBX::ImageWriter::encode(grey.get(), name);
        NBX::File(folder + name, NBX::WM_Create).write(bytes->pointer(), bytes->size());
        wrappers.push_back(new TextureWrapper(NBX::StringUtils::Utf8String2WString(folder + name),
                                              NBX::TextureGL::WM_Repeat, NBX::TextureGL::WM_Repeat));
    }
    const SO<TriangleContainer> container = meshesWith(wrappers);
    SourceTextures textures(*container, 200);
    for (const unsigned i : {0U, 1U})
        EXPECT_TRUE(textures.image(i));
    EXPECT_EQ(200U, textures.bytes()) << "both of them";
    std::filesystem::remove_all(folder);
}

/// The same file, or the same image in memory.
TEST(SourceTextures, OfAllWrapModesHaveOneImage) {
    using Wrap = NBX::TextureGL::WrapMode;
    const SO<NBX::Image> image(new NBX::MemoryImage(2, 2, NBX::LS_RGB));
    const auto ofImage = [&](Wrap wrap) {
        return SO<TextureWrapper>(new TextureWrapper(
            SO<NBX::ImageTexture2DGL>(new NBX::ImageTexture2DGL(image, wrap, Wrap::WM_Repeat))));
    };
    const auto ofFile = [](const wchar_t * name, Wrap wrap) {
        return SO<TextureWrapper>(new TextureWrapper(name, wrap, wrap, 4, 4));
    };
    const SO<TriangleContainer> container =
        meshesWith({ofImage(Wrap::WM_Repeat), ofFile(L"/gone/a.png", Wrap::WM_Repeat),
                    ofImage(Wrap::WM_ClampToEdge), ofFile(L"/gone/b.png", Wrap::WM_Repeat),
                    ofFile(L"/gone/a.png", Wrap::WM_MirroredRepeat), sourceTexture(2, 2)});
    SourceTextures textures(*container);
    std::vector<unsigned> pictures;
    for (unsigned number = 0; number < textures.size(); ++number)
        pictures.push_back(textures.pictureOf(number));
    EXPECT_EQ((std::vector<unsigned>{0, 1, 0, 3, 1, 5}), pictures);
    EXPECT_EQ(textures.image(0), textures.image(2));
    EXPECT_EQ(1U, textures.loads());
    const RecordedReports reports;
    EXPECT_FALSE(textures.image(4));
    EXPECT_FALSE(textures.image(1));
    EXPECT_EQ(1U, reports.count(2, L"texData", L"no texture: /gone/a.png")) << reports;
}

/// Those who look at embedded pictures elsewhere find them as they were.
TEST(SourceTextures, EncodedImagesStayEncoded) {
    const SO<NBX::DataResource> bytes =
        NBX::ImageWriter::encode(SO<NBX::Image>(new NBX::MemoryImage(5, 3, NBX::LS_RGB)).get(), "x.png");
    for (const bool wasDecoded : {false, true}) {
        const SO<NBX::EncodedImage> image(new NBX::EncodedImage(bytes, "x"));
        if (wasDecoded) image->decoded();
        const SO<TriangleContainer> container = meshesWith({SO<TextureWrapper>(
            new TextureWrapper(SO<NBX::ImageTexture2DGL>(new NBX::ImageTexture2DGL(image.get()))))});
        SourceTextures textures(*container);
        EXPECT_EQ(5, textures.image(0)->width());
        EXPECT_EQ(wasDecoded, image->isDecoded());
    }
}

TEST(SourceTextures, WhatCannotBeHadIsToldOnce) {
    const SO<TextureWrapper> gone(
        new TextureWrapper(L"/gone/roof.png", NBX::TextureGL::WM_Repeat, NBX::TextureGL::WM_Repeat, 4, 4));
    const SO<NBX::ImageTexture2DGL> empty(new NBX::ImageTexture2DGL(SO<NBX::Image>()));
    const SO<TriangleContainer> container = meshesWith({gone, SO<TextureWrapper>(new TextureWrapper(empty))});
    SourceTextures textures(*container);
    RecordedReports reports;
    EXPECT_FALSE(textures.image(0));
    EXPECT_EQ(1U, reports.count(2, L"texData", L"no texture: /gone/roof.png")) << reports;
    EXPECT_FALSE(textures.image(1));
    EXPECT_EQ(1U, reports.count(2, L"texData", L"no texture")) << reports;
    reports.clear();
    EXPECT_FALSE(textures.image(0));
    EXPECT_FALSE(textures.image(1));
    EXPECT_TRUE(reports.empty()) << reports;
}

} // namespace
