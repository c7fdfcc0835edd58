#include <zmt/util/compressedtexture/compressedtexture.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <map>
#include <thread>
#include <tuple>

#include <gtest/gtest.h>

#include "raster/memorytiledgeoimage.h"
#include <nbx/data/memorydataresource.h>
#include <nbx/image/memoryimage.h>
#include <nbx/image/pngwriter.h>
#include <nbx/object/exception.h>
#include <nbx/object/progress.h>
#include <zmt/raster/gdal/imagefilepyramid.h>
#include <zmt/raster/geoimage.h>
#include <zmt/util/compressedtexture/texturepyramid.h>
#include <zmt/util/compressedtexture/texturepyramidtiledgeoimage.h>
#include <zmt/util/compressedtexture/virtualtiledgeoimage.h>

#include <support/filesizelimit.h>
#include <support/recordedreports.h>

#include "pyramidfile.h"

namespace {

using namespace ZMT::UTIL;
using NBX::MemoryImage;
using NBX::SO;
using ZMT::RASTER::GeoImage;
using ZMT::RASTER::ImageFilePyramid;
using ZMT::RASTER::MemoryTiledGeoImage;
using ZMT::RASTER::TiledGeoImage;
using PixelFormat = CompressedTexture::PixelFormat;

/// A smooth picture, so that formats with few bits keep it.
SO<MemoryImage> picture(int width, int height, NBX::LayerSequence layers, int type = NBX::Image::UInt8) {
    SO<MemoryImage> image(new MemoryImage(width, height, layers, type));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image->setColor(x, y, NBX::Color(0.2 + 0.6 * x / width, 0.2 + 0.6 * y / height, 0.5));
    return image;
}

SO<TiledGeoImage> source(const SO<MemoryImage> & image) {
    return new MemoryTiledGeoImage(
        image.get(), {1000.0, 2000.0, 1000.0 + 10.0 * image->width(), 2000.0 + 5.0 * image->height()});
}

class StoppingDisplay : public NBX::ProgressDisplay {
public:
    explicit StoppingDisplay(double at) : at_(at), before_(NBX::Progress::setDisplay(this)) {}
    ~StoppingDisplay() override { NBX::Progress::setDisplay(before_); }
    void begin(const NBX::Progress & progress) override {
        title = progress.title();
        total = progress.totalValue();
    }
    bool update(const NBX::Progress & progress) override {
        EXPECT_GE(progress.currentValue(), last);
        last = progress.currentValue();
        return last < at_;
    }
    void end(const NBX::Progress & progress) override { finished = progress.isFinished(); }

    std::string title;
    double total = 0.0, last = 0.0;
    bool finished = false;

private:
    double at_;
    NBX::ProgressDisplay * before_;
};

class CompressedTextureTest : public testing::Test {
protected:
    ~CompressedTextureTest() override { CompressedTexture::setEncryptionKey(0); }

    SO<TexturePyramid> write(const SO<MemoryImage> & image, PixelFormat format, unsigned compression = 1,
                             const NBX::Color * mask = nullptr) {
        EXPECT_TRUE(
            CompressedTexture::create(source(image), folder.wide("a.ztp"), format, compression, mask));
        EXPECT_EQ(1U, folder.entries()) << "nothing else is left";
        return CompressedTexture::load(folder.wide("a.ztp"));
    }

    PyramidFolder folder;
};

TEST_F(CompressedTextureTest, TilesOfAllFormatsHaveTheirSizes) {
    const std::map<int, unsigned> sizes = {{CompressedTexture::PF_RGBA8, 262144},
                                           {CompressedTexture::PF_BGRA4444, 131072},
                                           {CompressedTexture::PF_BGRA5551, 131072},
                                           {CompressedTexture::PF_RGB8, 196608},
                                           {CompressedTexture::PF_LuminanceAlpha8, 131072},
                                           {CompressedTexture::PF_DXT1, 32768},
                                           {CompressedTexture::PF_DXT5, 65536},
                                           {CompressedTexture::PF_Luminance8, 65536},
                                           {CompressedTexture::PF_DXT3, 65536},
                                           {CompressedTexture::PF_DXT1A, 32768},
                                           {CompressedTexture::PF_LuminanceAlpha16, 262144},
                                           {CompressedTexture::PF_RGBA16, 524288}};
    ASSERT_EQ(12U, sizes.size());
    for (const auto & [format, bytes] : sizes)
        EXPECT_EQ(bytes, CompressedTexture::tileBytes(static_cast<PixelFormat>(format), 256, 256)) << format;
    EXPECT_EQ(8U, CompressedTexture::tileBytes(CompressedTexture::PF_DXT1, 1, 1));
    EXPECT_EQ(0U, CompressedTexture::tileBytes(CompressedTexture::PF_RGBA8, 0, 1));
    EXPECT_EQ(0U, CompressedTexture::tileBytes(CompressedTexture::PF_RGBA8, 65537, 1));
    EXPECT_TRUE(CompressedTexture::isPixelFormat(11));
    EXPECT_FALSE(CompressedTexture::isPixelFormat(12));
    EXPECT_FALSE(CompressedTexture::isPixelFormat(-1));
}

TEST_F(CompressedTextureTest, WritesTheFieldsOfTheFile) {
    ASSERT_TRUE(write(picture(300, 200, NBX::LS_RGB), CompressedTexture::PF_RGB8));
    const std::vector<std::uint8_t> bytes = folder.bytes("a.ztp");
    char magic[32] = "ZMT-TEXTURE-PYRAMID", levelMagic[32] = "ZMT-TEXTURE-PYRAMID-LEVEL";
    EXPECT_EQ(0, std::memcmp(bytes.data(), magic, 32));
    EXPECT_EQ(1U, getAt<std::uint32_t>(bytes, 32));
    ASSERT_EQ(3U, getAt<std::uint32_t>(bytes, 36));
    EXPECT_EQ(1000.0, getAt<double>(bytes, 40));
    EXPECT_EQ(2000.0, getAt<double>(bytes, 48));
    EXPECT_EQ(4000.0, getAt<double>(bytes, 56));
    EXPECT_EQ(3000.0, getAt<double>(bytes, 64));
    for (std::size_t i = 72; i < 256; ++i)
        EXPECT_EQ(0, bytes[i]);
    const std::uint32_t levels[3][10] = {{3, 300, 200, 256, 256, 2, 1, 3, 196608, 1},
                                         {3, 150, 100, 256, 256, 1, 1, 3, 196608, 1},
                                         {3, 75, 50, 128, 128, 1, 1, 3, 49152, 1}};
    for (std::size_t i = 0; i < 3; ++i) {
        const auto start = getAt<std::uint64_t>(bytes, 256 + 8 * i);
        ASSERT_LT(start + 256, bytes.size());
        EXPECT_EQ(0, std::memcmp(bytes.data() + start, levelMagic, 32)) << i;
        for (std::size_t field = 0; field < 10; ++field)
            EXPECT_EQ(levels[i][field], getAt<std::uint32_t>(bytes, start + 32 + 4 * field))
                << i << " " << field;
        for (std::size_t k = start + 72; k < start + 256; ++k)
            EXPECT_EQ(0, bytes[k]);
        const auto position = getAt<std::uint64_t>(bytes, start + 256);
        const auto size = getAt<std::uint32_t>(bytes, start + 256 + 8 * levels[i][5] * levels[i][6]);
        EXPECT_LE(position + size, bytes.size());
        EXPECT_LT(size, levels[i][8]) << "deflated";
    }
}

TEST_F(CompressedTextureTest, AllFormatsKeepThePicture) {
    const double tolerances[] = {1 / 255.0, 1 / 15.0,  1 / 31.0, 1 / 255.0, 1 / 255.0, 0.04,
                                 0.04,      1 / 255.0, 0.04,     0.04,      1e-4,      1e-4};
    for (int format = 0; format < CompressedTexture::pixelFormats; ++format)
        for (const unsigned compression : {0U, 1U}) {
            const auto f = static_cast<PixelFormat>(format);
            const SO<MemoryImage> image =
                picture(300, 140, CompressedTexture::layerSequence(f), CompressedTexture::dataType(f));
            const SO<TexturePyramid> pyramid = write(image, f, compression);
            ASSERT_TRUE(pyramid) << format;
            EXPECT_EQ(f, pyramid->level(0)->pixelFormat());
            const SO<NBX::Image> read = pyramid->overview(0)->getImage(0, 0, 300, 140);
            ASSERT_TRUE(read) << format;
            EXPECT_EQ(static_cast<unsigned>(read->numberOfLayers()), pyramid->overview(0)->bands());
            for (int y = 0; y < 140; y += 7)
                for (int x = 0; x < 300; x += 7)
                    for (unsigned i = 0; i < 4; ++i)
                        ASSERT_NEAR(image->getColor(x, y)[i], read->getColor(x, y)[i], tolerances[format])
                            << CompressedTexture::formatName(f) << " " << x << " " << y;
        }
}

TEST_F(CompressedTextureTest, LevelsShowTheSamePictureInTheSamePlace) {
    const unsigned sides[][2] = {{1001, 513}, {501, 257}, {251, 129}, {126, 65}};
    for (const bool isWide : {true, false}) {
        SCOPED_TRACE(isWide);
        const unsigned x0 = isWide ? 0 : 1, y0 = 1 - x0;
        const SO<TexturePyramid> pyramid =
            write(picture(int(sides[0][x0]), int(sides[0][y0]), NBX::LS_RGB), CompressedTexture::PF_RGB8);
        ASSERT_TRUE(pyramid);
        ASSERT_EQ(4U, pyramid->overviews());
        for (unsigned i = 0; i < 4; ++i) {
            const SO<TiledGeoImage> level = pyramid->overview(i);
            const unsigned width = sides[i][x0], height = sides[i][y0];
            ASSERT_EQ(width, level->pixelsX()) << i;
            ASSERT_EQ(height, level->pixelsY()) << i;
            EXPECT_DOUBLE_EQ(pyramid->maxX(), level->maxX()) << i;
            EXPECT_DOUBLE_EQ(pyramid->maxY(), level->maxY()) << i;
            EXPECT_EQ(i < 3 ? 256U : 128U, level->granularityX()) << i;
            const SO<NBX::Image> image = level->getImage(0, 0, width, height);
            ASSERT_TRUE(image);
            for (int y = 0; y < image->height(); y += 5)
                for (int x = 0; x < image->width(); x += 5) {
                    EXPECT_NEAR(0.2 + 0.6 * (x + 0.5) / width, image->getColor(x, y)[0], 0.006) << i;
                    EXPECT_NEAR(0.2 + 0.6 * (y + 0.5) / height, image->getColor(x, y)[1], 0.006) << i;
                }
        }
    }
}

TEST_F(CompressedTextureTest, LevelsThatDoNotFitIntoMemoryAreMadeFromFiles) {
    // The finest level takes 144 MB with 16 bits a layer, of which 128 MiB are kept in memory.
    constexpr int size = 4250;
    SO<MemoryImage> image(new MemoryImage(size, size, NBX::LS_Luminance));
    for (int y = 0; y < size; ++y)
        std::fill_n(image->lineComponentsU8(y), size, static_cast<unsigned char>(y / 17));
    const SO<TexturePyramid> pyramid = write(image, CompressedTexture::PF_RGBA16);
    ASSERT_TRUE(pyramid);
    for (unsigned i = 0; i < pyramid->overviews(); ++i) {
        const SO<TiledGeoImage> level = pyramid->overview(i);
        const auto width = static_cast<unsigned>(level->pixelsX()),
                   height = static_cast<unsigned>(level->pixelsY());
        for (const unsigned x : {0U, width / 2, width - 1}) {
            const SO<NBX::Image> column = level->getImage(static_cast<int>(x), 0, 1, height);
            ASSERT_TRUE(column);
            for (int y = 0; y < column->height(); ++y)
                ASSERT_NEAR((y + 0.5) / height * 250.0 / 255.0, column->getColor(0, y)[0], 0.006)
                    << i << ": " << y;
        }
    }
}

TEST_F(CompressedTextureTest, TinyImagesHaveOneLevel) {
    for (const int size : {1, 127, 128}) {
        const SO<TexturePyramid> pyramid = write(picture(size, 1, NBX::LS_RGBA), CompressedTexture::PF_RGBA8);
        ASSERT_TRUE(pyramid);
        EXPECT_EQ(1U, pyramid->overviews());
        EXPECT_EQ(static_cast<unsigned>(size), pyramid->overview(0)->pixelsX());
    }
}

TEST_F(CompressedTextureTest, TilesThatDoNotShrinkAreStoredPlain) {
    const SO<MemoryImage> noise(new MemoryImage(128, 128, NBX::LS_Luminance));
    for (int y = 0; y < 128; ++y)
        for (int x = 0; x < 128; ++x)
            *noise->pixelComponentsU8(x, y) = static_cast<unsigned char>(std::rand());
    const SO<TexturePyramid> pyramid = write(noise, CompressedTexture::PF_Luminance8);
    ASSERT_TRUE(pyramid);
    EXPECT_EQ(128U * 128U, pyramid->level(0)->storedBytes());
    const SO<NBX::Image> read = pyramid->overview(0)->getImage(0, 0, 128, 128);
    for (int y = 0; y < 128; ++y)
        EXPECT_EQ(0, std::memcmp(noise->lineComponentsU8(y), read->lineComponentsU8(y), 128));
}

TEST_F(CompressedTextureTest, WhatIsMaskedIsTransparentAndEmptyTilesAreNotStored) {
    SO<MemoryImage> image(new MemoryImage(512, 256, NBX::LS_RGB));
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 256; ++x)
            image->setColor(x, y, x < 128 ? NBX::Color::red : NBX::Color::blue);
    const NBX::Color blue = NBX::Color::blue;
    const SO<TexturePyramid> pyramid = write(image, CompressedTexture::PF_RGBA8, 1, &blue);
    ASSERT_TRUE(pyramid);
    const SO<NBX::Image> read = pyramid->overview(0)->getImage(0, 0, 512, 256);
    EXPECT_EQ(255, read->pixelComponentsU8(127, 9)[3]);
    EXPECT_EQ(0, read->pixelComponentsU8(128, 9)[3]);
    EXPECT_EQ(255, read->pixelComponentsU8(256, 9)[3]) << "black is not masked";
    const NBX::Color black = NBX::Color::black;
    const SO<TexturePyramid> half = write(image, CompressedTexture::PF_RGBA8, 1, &black);
    EXPECT_EQ(1U, half->level(0)->storedTiles());
    EXPECT_FALSE(half->overview(0)->getImage(256, 0, 256, 256));
}

TEST_F(CompressedTextureTest, TransparentTilesAreEmptyInAllFormatsWithAlpha) {
    const SO<MemoryImage> image(new MemoryImage(768, 256, NBX::LS_RGBA));
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 512; ++x)
            image->setColor(x, y, x < 256 ? NBX::Color::red : NBX::Color::black);
    for (int format = 0; format < CompressedTexture::pixelFormats; ++format) {
        const auto f = static_cast<PixelFormat>(format);
        const bool hasAlpha = NBX::Image::numberOfLayers(CompressedTexture::layerSequence(f)) % 2 == 0;
        const SO<TexturePyramid> pyramid = write(image, f);
        ASSERT_TRUE(pyramid) << format;
        EXPECT_EQ(hasAlpha ? 2U : 3U, pyramid->level(0)->storedTiles()) << CompressedTexture::formatName(f);
        const SO<NBX::Image> black = pyramid->overview(0)->getImage(256, 0, 256, 256);
        ASSERT_TRUE(black) << CompressedTexture::formatName(f);
        EXPECT_EQ(1.0F, black->getColor(0, 0)[3]) << CompressedTexture::formatName(f);
    }
}

TEST_F(CompressedTextureTest, FormatsOfOtherLayersAreConverted) {
    const SO<TexturePyramid> pyramid =
        write(picture(150, 150, NBX::LS_Luminance), CompressedTexture::PF_RGBA16);
    ASSERT_TRUE(pyramid);
    const SO<NBX::Image> read = pyramid->overview(0)->getImage(75, 75, 1, 1);
    EXPECT_EQ(NBX::Image::UInt16, read->dataType());
    EXPECT_NEAR(0.5, read->getColor(0, 0)[0], 0.05);
    EXPECT_EQ(1.0F, read->getColor(0, 0)[3]);
}

TEST_F(CompressedTextureTest, WithAKeyTheFileNeedsIt) {
    CompressedTexture::setEncryptionKey(0xFEDCBA9876543210);
    EXPECT_TRUE(write(picture(300, 20, NBX::LS_RGB), CompressedTexture::PF_RGB8));
    CompressedTexture::setEncryptionKey(0);
    EXPECT_FALSE(CompressedTexture::load(folder.wide("a.ztp")));
}

TEST_F(CompressedTextureTest, TheKeyScramblesHeadersAndNothingElse) {
    const SO<MemoryImage> image = picture(300, 300, NBX::LS_RGB);
    ASSERT_TRUE(write(image, CompressedTexture::PF_RGB8));
    const std::vector<std::uint8_t> plain = folder.bytes("a.ztp");
    constexpr std::uint64_t key = 0xFEDCBA9876543210;
    CompressedTexture::setEncryptionKey(key);
    ASSERT_TRUE(write(image, CompressedTexture::PF_RGB8));
    std::vector<std::uint8_t> bytes = folder.bytes("a.ztp");
    std::vector<std::uint64_t> headers = {0};
    for (std::size_t level = 0; level < 3; ++level)
        headers.push_back(getAt<std::uint64_t>(bytes, 256 + 8 * level));
    for (const std::uint64_t header : headers)
        for (std::uint64_t i = header; i < header + 256; i += 8)
            putAt(bytes, i, getAt<std::uint64_t>(bytes, i) ^ key);
    EXPECT_EQ(plain, bytes);
}

TEST_F(CompressedTextureTest, ImageFilesAreSources) {
    const std::string path = std::string(std::getenv("ZMT_TEST_DATA")) + "/everest_image.tif";
    const std::wstring name = NBX::StringUtils::Utf8String2WString(path);
    ASSERT_TRUE(CompressedTexture::create({name}, folder.wide("a.ztp")));
    const SO<TexturePyramid> pyramid = CompressedTexture::load(folder.wide("a.ztp"));
    ASSERT_TRUE(pyramid);
    const SO<ImageFilePyramid> file(new ImageFilePyramid(path));
    EXPECT_EQ(file->minX(), pyramid->minX());
    EXPECT_EQ(file->maxY(), pyramid->maxY());
    const auto width = static_cast<unsigned>(file->overview(0)->pixelsX());
    const auto height = static_cast<unsigned>(file->overview(0)->pixelsY());
    const SO<NBX::Image> expected = file->overview(0)->getImage(0, 0, width, height);
    const SO<NBX::Image> read = pyramid->overview(0)->getImage(0, 0, width, height);
    ASSERT_TRUE(expected && read);
    ASSERT_EQ(expected->layerSequence(), read->layerSequence());
    for (int y = 0; y < read->height(); ++y)
        ASSERT_EQ(0, std::memcmp(expected->lineComponents(y), read->lineComponents(y),
                                 NBX::Image::bytesPerLine(read->width(), read->layerSequence(), 1, 1)));
}

TEST_F(CompressedTextureTest, ImageFilesAreConvertedToAnyFormat) {
    const std::string path = std::string(std::getenv("ZMT_TEST_DATA")) + "/everest_image.tif";
    ASSERT_TRUE(CompressedTexture::create({NBX::StringUtils::Utf8String2WString(path)}, folder.wide("a.ztp"),
                                          CompressedTexture::PF_BGRA4444));
    const SO<TexturePyramid> pyramid = CompressedTexture::load(folder.wide("a.ztp"));
    ASSERT_TRUE(pyramid);
    EXPECT_EQ(CompressedTexture::PF_BGRA4444, pyramid->level(0)->pixelFormat());
    EXPECT_EQ(1U, pyramid->level(0)->header().compression);
}

TEST_F(CompressedTextureTest, ThatNoImageFileCanBeOpenedIsReported) {
    RecordedReports reports;
    EXPECT_FALSE(CompressedTexture::create({folder.wide("none.tif")}, folder.wide("a.ztp")));
    EXPECT_EQ(1U, reports.count(0, L"image", L"failed to open image file: " + folder.wide("none.tif")))
        << reports;
    EXPECT_EQ(reports[0].level, 2);
    EXPECT_NE(reports[0].message.find(L"no such file"), std::wstring::npos) << "the cause: " << reports;
    EXPECT_FALSE(CompressedTexture::create(std::vector<std::wstring>(), folder.wide("a.ztp")));
    EXPECT_EQ(0U, folder.entries());
}

TEST_F(CompressedTextureTest, WrongParametersAreReported) {
    const SO<MemoryImage> image = picture(4, 4, NBX::LS_RGB);
    const std::wstring path = folder.wide("a.ztp");
    RecordedReports reports;
    EXPECT_FALSE(CompressedTexture::create(SO<TiledGeoImage>(), path, CompressedTexture::PF_RGB8));
    EXPECT_FALSE(CompressedTexture::create(source(image), path, static_cast<PixelFormat>(12)));
    EXPECT_EQ(1U, reports.count(0, L"false", L"unsupported pixel format"));
    EXPECT_FALSE(CompressedTexture::create(source(image), path, CompressedTexture::PF_RGB8, 2));
    EXPECT_EQ(1U, reports.count(0, L"false", L"unsupported compression format"));
    const SO<TiledGeoImage> flat(new MemoryTiledGeoImage(image.get(), {0, 0, 0, 1}));
    EXPECT_FALSE(CompressedTexture::create(flat, path, CompressedTexture::PF_RGB8));
    EXPECT_EQ(0U, folder.entries());
}

TEST_F(CompressedTextureTest, ImagesWithoutAFormatAreReported) {
    RecordedReports reports;
    EXPECT_EQ(CompressedTexture::PF_RGB8, CompressedTexture::pixelFormatOf(*picture(1, 1, NBX::LS_RGB)));
    EXPECT_EQ(CompressedTexture::PF_RGBA16,
              CompressedTexture::pixelFormatOf(*picture(1, 1, NBX::LS_RGBA, NBX::Image::UInt16)));
    EXPECT_TRUE(reports.empty());
    EXPECT_LT(CompressedTexture::pixelFormatOf(*picture(1, 1, NBX::LS_RGB, NBX::Image::Float)), 0);
    EXPECT_EQ(1U, reports.count(0, L"false", L"unsupported pixel format"));
}

TEST_F(CompressedTextureTest, ProgressRunsToTheEnd) {
    StoppingDisplay display(2.0);
    EXPECT_TRUE(write(picture(2000, 600, NBX::LS_RGB), CompressedTexture::PF_RGB8));
    EXPECT_EQ("compressing texture data", display.title);
    EXPECT_EQ(1.0, display.total);
    EXPECT_TRUE(display.finished);
}

TEST_F(CompressedTextureTest, CancellingLeavesNothing) {
    StoppingDisplay display(-1.0);
    EXPECT_FALSE(CompressedTexture::create(source(picture(600, 600, NBX::LS_RGB)), folder.wide("a.ztp"),
                                           CompressedTexture::PF_RGB8));
    EXPECT_EQ(0U, folder.entries());
    EXPECT_FALSE(display.finished);
}

/// Takes so long for its last pixels that the display is asked at the first tile of the next level.
class SlowImage : public MemoryTiledGeoImage {
public:
    explicit SlowImage(NBX::Image * image) : MemoryTiledGeoImage(image, {0, 0, 1, 1}) {}
    SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override {
        if (x + width >= pixelsX() && y + height >= pixelsY())
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        return MemoryTiledGeoImage::getImage(x, y, width, height);
    }
};

TEST_F(CompressedTextureTest, CancellingInTheSecondLevelLeavesNothing) {
    StoppingDisplay display(0.47);
    const SO<TiledGeoImage> slow(new SlowImage(picture(1200, 600, NBX::LS_RGB).get()));
    EXPECT_FALSE(CompressedTexture::create(slow, folder.wide("a.ztp"), CompressedTexture::PF_RGB8));
    EXPECT_NEAR(0.8 * 15 / 25, display.last, 1e-9);
    EXPECT_EQ(0U, folder.entries());
    EXPECT_FALSE(display.finished);
}

TEST_F(CompressedTextureTest, CancellingKeepsTheFileThatWasThere) {
    folder.write("a.ztp", {1, 2, 3});
    StoppingDisplay display(-1.0);
    EXPECT_FALSE(CompressedTexture::create(source(picture(600, 600, NBX::LS_RGB)), folder.wide("a.ztp"),
                                           CompressedTexture::PF_RGB8));
    EXPECT_EQ((std::vector<std::uint8_t>{1, 2, 3}), folder.bytes("a.ztp"));
    EXPECT_EQ(1U, folder.entries());
}

TEST_F(CompressedTextureTest, AFolderThatIsMissingThrows) {
    EXPECT_THROW(CompressedTexture::create(source(picture(4, 4, NBX::LS_RGB)), folder.wide("no/a.ztp"),
                                           CompressedTexture::PF_RGB8),
                 NBX::IOException);
}

/// A source that fails in its second row of tiles.
class FailingImage : public MemoryTiledGeoImage {
public:
    explicit FailingImage(NBX::Image * image) : MemoryTiledGeoImage(image, {0, 0, 1, 1}) {}
    bool failed() const override { return failed_; }
    SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override {
        failed_ = failed_ || y >= 256;
        return failed_ ? nullptr : MemoryTiledGeoImage::getImage(x, y, width, height);
    }

private:
    mutable bool failed_ = false;
};

TEST_F(CompressedTextureTest, ASourceThatFailsLeavesNothing) {
    const SO<TiledGeoImage> failing(new FailingImage(picture(600, 600, NBX::LS_RGB).get()));
    EXPECT_FALSE(CompressedTexture::create(failing, folder.wide("a.ztp"), CompressedTexture::PF_RGB8));
    EXPECT_EQ(0U, folder.entries());
}

TEST_F(CompressedTextureTest, ADiskThatIsFullThrowsAndLeavesNothing) {
    const RecordedReports full;
    {
        const FileSizeLimit limit(20000);
        EXPECT_THROW(CompressedTexture::create(source(picture(128, 128, NBX::LS_RGB)), folder.wide("a.ztp"),
                                               CompressedTexture::PF_RGB8, 0),
                     NBX::IOException);
    }
    EXPECT_EQ(1U, full.count(0, L"bytesWritten > 0", L"writing of tile failed"));
    EXPECT_EQ(0U, folder.entries());
}

/// Image files with world files beside them.
class ImageFilesTest : public CompressedTextureTest {
protected:
    struct Frame {
        double west, south, pixelX, pixelY;
    };

    std::wstring writeImage(const std::string & name, const SO<MemoryImage> & image, const Frame & frame) {
        const SO<NBX::PNGWriter> writer(new NBX::PNGWriter());
        const SO<NBX::DataResource> png = writer->write(image.get());
        const auto * first = static_cast<const std::uint8_t *>(png->pointer());
        folder.write(name + ".png", {first, first + png->size()});
        const std::string world = std::to_string(frame.pixelX) + "\n0\n0\n" + std::to_string(-frame.pixelY) +
                                  "\n" + std::to_string(frame.west + frame.pixelX / 2) + "\n" +
                                  std::to_string(frame.south + (image->height() - 0.5) * frame.pixelY) + "\n";
        folder.write(name + ".pgw", {world.begin(), world.end()});
        return folder.wide(name + ".png");
    }
    static SO<MemoryImage> plain(int width, int height, NBX::LayerSequence layers, const NBX::Color & colour,
                                 int type = NBX::Image::UInt8) {
        SO<MemoryImage> image(new MemoryImage(width, height, layers, type));
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                image->setColor(x, y, colour);
        return image;
    }
    SO<TexturePyramid> pyramidOf(const std::vector<std::wstring> & images) {
        EXPECT_TRUE(CompressedTexture::create(images, folder.wide("a.ztp")));
        return CompressedTexture::load(folder.wide("a.ztp"));
    }
};

/// Red covers 100 by 60 units, blue as many from (60, 30) on.
TEST_F(ImageFilesTest, LaterImagesLieAboveEarlierOnes) {
    const SO<TexturePyramid> pyramid = pyramidOf(
        {writeImage("red", plain(50, 20, NBX::LS_RGB, NBX::Color::red), {0.0, 0.0, 2.0, 3.0}),
         writeImage("blue", plain(100, 40, NBX::LS_RGB, NBX::Color::blue), {60.0, 30.0, 1.0, 1.5})});
    ASSERT_TRUE(pyramid);
    EXPECT_NEAR(0.0, pyramid->minX(), 1e-9);
    EXPECT_NEAR(0.0, pyramid->minY(), 1e-9);
    EXPECT_NEAR(160.0, pyramid->maxX(), 1e-9);
    EXPECT_NEAR(90.0, pyramid->maxY(), 1e-9);
    ASSERT_EQ(160U, pyramid->overview(0)->pixelsX());
    ASSERT_EQ(60U, pyramid->overview(0)->pixelsY());
    const SO<NBX::Image> image = pyramid->overview(0)->getImage(0, 0, 160, 60);
    for (int y = 0; y < 60; ++y)
        for (int x = 0; x < 160; ++x) {
            const bool isBlue = x >= 60 && y >= 20, isRed = x < 100 && y < 40;
            const NBX::Color expected = isBlue  ? NBX::Color::blue
                                        : isRed ? NBX::Color::red
                                                : NBX::Color(0.0F, 0.0F, 0.0F, 0.0F);
            ASSERT_TRUE(image->getColor(x, y) == expected) << x << " " << y;
        }
}

TEST_F(ImageFilesTest, TheFormatHoldsAllImages) {
    const auto file = [&](const char * name, NBX::LayerSequence layers, double west) {
        return writeImage(name, plain(4, 3, layers, NBX::Color(1.0F)), {west, 0.0, 1.0, 2.0});
    };
    const std::wstring gray = file("gray", NBX::LS_Luminance, 0.0),
                       east = file("east", NBX::LS_Luminance, 4.0),
                       alpha = file("alpha", NBX::LS_LuminanceAlpha, 8.0),
                       color = file("color", NBX::LS_RGB, 12.0), clear = file("clear", NBX::LS_RGBA, 16.0);
    const struct {
        std::vector<std::wstring> images;
        PixelFormat format;
    } cases[] = {{{gray}, CompressedTexture::PF_Luminance8},
                 {{alpha}, CompressedTexture::PF_LuminanceAlpha8},
                 {{color}, CompressedTexture::PF_RGB8},
                 {{clear}, CompressedTexture::PF_RGBA8},
                 {{gray, east}, CompressedTexture::PF_LuminanceAlpha8},
                 {{alpha, gray}, CompressedTexture::PF_LuminanceAlpha8},
                 {{gray, color}, CompressedTexture::PF_RGBA8},
                 {{color, gray}, CompressedTexture::PF_RGBA8}};
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const SO<TexturePyramid> pyramid = pyramidOf(cases[i].images);
        ASSERT_TRUE(pyramid) << i;
        EXPECT_EQ(cases[i].format, pyramid->level(0)->pixelFormat()) << i;
    }
}

/// Its tiles take 16 bytes a pixel, and it counts how often they are read.
class WideImage : public TiledGeoImage {
public:
    WideImage(unsigned width, unsigned height, unsigned claimedBands)
        : width_(width), height_(height), bands_(claimedBands) {}
    unsigned bands() const override { return bands_; }
    double minX() const override { return 0.0; }
    double minY() const override { return 0.0; }
    double pixelSizeX() const override { return 1.0; }
    double pixelSizeY() const override { return 1.0; }
    std::uint64_t pixelsX() const override { return width_; }
    std::uint64_t pixelsY() const override { return height_; }
    unsigned granularityX() const override { return 1024; }
    unsigned granularityY() const override { return 1024; }
    bool failed() const override { return false; }
    SO<NBX::Image> createEmptyImage(unsigned width, unsigned height) const override {
        return new MemoryImage(static_cast<int>(width), static_cast<int>(height), NBX::LS_RGBA,
                               NBX::Image::Float);
    }
    SO<NBX::Image> getImage(int, int, unsigned width, unsigned height) const override {
        ++reads;
        return createEmptyImage(width, height);
    }
    mutable unsigned reads = 0;

private:
    unsigned width_, height_, bands_;
};

/// Tiles of the source are 1024 lines high, those of the file 256: without room for a whole row of the
/// source's, each is read for every row of the file's.
TEST_F(CompressedTextureTest, KeepsARowOfItsSourceWithinBounds) {
    const struct {
        const char * name;
        unsigned bands, width, lines;
        bool isKept;
    } cases[] = {
        // 2048 * 512 * 16 bytes
        {"16 MiB at least", 1, 2048, 512, true},
        {"and no more", 1, 2048, 513, false},
        // 4608 * 256 * 18 bytes, as the width is rounded up
        {"256 lines of all bands", 18, 4500, 294, true},
        {"and no more of them", 18, 4500, 295, false},
        // 8192 * 1024 * 16 bytes
        {"128 MiB at most", 1000, 8192, 1024, true},
        {"and no more than that", 1000, 8200, 1024, false},
    };
    for (const auto & c : cases) {
        const SO<WideImage> wide(new WideImage(c.width, c.lines, c.bands));
        ASSERT_TRUE(CompressedTexture::create(SO<TiledGeoImage>(wide.get()), folder.wide("a.ztp"),
                                              CompressedTexture::PF_Luminance8))
            << c.name;
        const unsigned tiles = (c.width + 1023) / 1024;
        EXPECT_EQ(c.isKept, wide->reads == tiles) << c.name << ": " << wide->reads << " reads";
    }
}

/// Tiles whose gray tells their place.
class Generated : public VirtualTiledGeoImage {
public:
    Generated(unsigned width, unsigned height, unsigned tile)
        : VirtualTiledGeoImage(width, height, NBX::Bounds({0, 0, 0}, {1.0 * width, 1.0 * height, 0}), tile) {}
    SO<NBX::Image> getImage(unsigned level, unsigned x, unsigned y) const override {
        EXPECT_EQ(1, ++asked[std::tuple(level, x, y)]) << "asked for once";
        if (level == 0 && y == 0) return nullptr;
        const auto size = static_cast<int>(tileSize());
        SO<MemoryImage> image(new MemoryImage(size, size - 1, NBX::LS_Luminance));
        for (int line = 0; line < size - 1; ++line)
            std::fill_n(image->lineComponentsU8(line), size,
                        static_cast<unsigned char>(100 * level + 10 * y + x));
        return image;
    }
    mutable std::map<std::tuple<unsigned, unsigned, unsigned>, int> asked;
};

TEST_F(CompressedTextureTest, GeneratedTilesAreWritten) {
    const Generated generated(20, 12, 8);
    EXPECT_EQ(3U, generated.levels());
    EXPECT_EQ(5U, generated.pixelsX(2));
    ASSERT_TRUE(CompressedTexture::create(generated, folder.wide("a.ztp")));
    EXPECT_EQ(3U * 2U + 2U * 1U + 1U, generated.asked.size());
    const SO<TexturePyramid> pyramid = CompressedTexture::load(folder.wide("a.ztp"));
    ASSERT_TRUE(pyramid);
    ASSERT_EQ(3U, pyramid->overviews());
    EXPECT_EQ(CompressedTexture::PF_Luminance8, pyramid->level(0)->pixelFormat());
    EXPECT_EQ(20.0, pyramid->maxX());
    EXPECT_FALSE(pyramid->overview(0)->getImage(0, 0, 20, 8));
    EXPECT_EQ(12, *pyramid->overview(0)->getImage(16, 8, 1, 1)->pixelComponentsU8(0, 0));
    EXPECT_EQ(101, *pyramid->overview(1)->getImage(9, 5, 1, 1)->pixelComponentsU8(0, 0));
    EXPECT_EQ(200, *pyramid->overview(2)->getImage(2, 2, 1, 1)->pixelComponentsU8(0, 0));
}

TEST_F(CompressedTextureTest, GeneratedTilesWithoutAreaMakeNoFile) {
    class Placed : public VirtualTiledGeoImage {
    public:
        explicit Placed(const NBX::Bounds & box) : VirtualTiledGeoImage(8, 8, box, 8) {}
        SO<NBX::Image> getImage(unsigned, unsigned, unsigned) const override {
            return new MemoryImage(8, 8, NBX::LS_Luminance);
        }
    };
    const double huge = 1.7e308;
    for (const NBX::Bounds & box :
         {NBX::Bounds(), NBX::Bounds({0, 0, 0}, {0, 1, 0}), NBX::Bounds({0, 3, 0}, {1, 3, 0}),
          NBX::Bounds({-huge, 0, 0}, {huge, 1, 0}), NBX::Bounds({0, 0, 0}, {1, HUGE_VAL, 0})}) {
        RecordedReports reports;
        EXPECT_FALSE(CompressedTexture::create(Placed(box), folder.wide("a.ztp")));
        EXPECT_EQ(1U, reports.count(L"an image without area")) << reports;
        EXPECT_EQ(0U, folder.entries());
    }
    EXPECT_TRUE(CompressedTexture::create(Placed(NBX::Bounds({0, 0, 0}, {1, 1, 0})), folder.wide("a.ztp")));
}

class Nothing : public VirtualTiledGeoImage {
public:
    using VirtualTiledGeoImage::VirtualTiledGeoImage;
    SO<NBX::Image> getImage(unsigned, unsigned, unsigned) const override { return nullptr; }
};

class OnePixel : public VirtualTiledGeoImage {
public:
    using VirtualTiledGeoImage::VirtualTiledGeoImage;
    SO<NBX::Image> getImage(unsigned, unsigned, unsigned) const override {
        return new MemoryImage(1, 1, NBX::LS_Luminance);
    }
};

TEST_F(CompressedTextureTest, WithoutATileThereIsNoFile) {
    const NBX::Bounds box({0, 0, 0}, {1, 1, 0});
    EXPECT_FALSE(CompressedTexture::create(Nothing(20, 20, box, 8), folder.wide("a.ztp")));
    RecordedReports reports;
    EXPECT_FALSE(CompressedTexture::create(Nothing(0, 20, box, 8), folder.wide("a.ztp")));
    EXPECT_FALSE(CompressedTexture::create(Nothing(20, 20, box, 0), folder.wide("a.ztp")));
    EXPECT_EQ(2U, reports.count(L"an image without pixels")) << reports;
    EXPECT_FALSE(CompressedTexture::create(Nothing(1U << 31, 20, box, 8), folder.wide("a.ztp")));
    EXPECT_FALSE(CompressedTexture::create(Nothing(20, UINT32_MAX, box, 8), folder.wide("a.ztp")));
    EXPECT_EQ(2U, reports.count(L"an image that is too large")) << reports;
    EXPECT_FALSE(CompressedTexture::create(OnePixel(20, 12, box, UINT32_MAX), folder.wide("a.ztp")));
    EXPECT_EQ(1U, reports.count(L"tiles of 4294967295 pixels are too large")) << reports;
    EXPECT_EQ(0U, folder.entries());
}

} // namespace
