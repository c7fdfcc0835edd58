#include <nbx/image/encodedimage.h>

#include <filesystem>
#include <thread>
#include <utility>

#include <nbx/data/file.h>
#include <nbx/image/compressedimage.h>
#include <nbx/image/jpegwriter.h>
#include <nbx/image/pngwriter.h>
#include <nbx/math/color.h>

#include "support/recordedreports.h"
#include "support/roundtrip.h"
#include "testimages.h"

using namespace NBX;

namespace {

SO<DataResource> jpegOf(const SO<MemoryImage> & image) {
    return SO<JPEGWriter>(new JPEGWriter())->write(image.get());
}
SO<DataResource> pngOf(const SO<MemoryImage> & image) {
    return SO<PNGWriter>(new PNGWriter())->write(image.get());
}

void write(const std::string & path, const DataResource & data, unsigned bytes) {
    File(path, WM_Create).write(data.pointer(), bytes);
}

class EncodedImageTest : public testing::Test {
protected:
    std::string path(const char * name) const { return folder_ + "/" + name; }
    std::string written(const char * name, const SO<DataResource> & data) const {
        write(path(name), *data, data->size());
        return path(name);
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

private:
    static std::string newFolder() {
        const std::string name = File::temporaryFileName("nbx-encoded-image-");
        File::remove(name);
        std::filesystem::create_directory(name);
        return name;
    }
    const std::string folder_ = newFolder();
};

/// A file of `bytes` bytes that claims a size; nothing behind the claim can be read.
SO<DataResource> claim(unsigned width, unsigned height, unsigned bytes) {
    const SO<DataResource> png = pngOf(randomImage(3, 2, LS_RGB));
    SO<MemoryDataResource> result(new MemoryDataResource(bytes));
    auto * to = static_cast<unsigned char *>(result->pointer());
    std::copy_n(static_cast<const unsigned char *>(png->pointer()), 33, to);
    for (int i = 0; i < 4; ++i) {
        to[16 + i] = static_cast<unsigned char>(width >> (24 - 8 * i));
        to[20 + i] = static_cast<unsigned char>(height >> (24 - 8 * i));
    }
    return result;
}

} // namespace

TEST_F(EncodedImageTest, KnowsSizeAndLayersBeforeItIsDecoded) {
    const RecordedReports reports;
    struct Case {
        const char * name;
        SO<DataResource> data;
        LayerSequence layers;
        int type;
    };
    const Case cases[] = {
        {"a.jpg", jpegOf(smoothImage(17, 9, LS_RGB)), LS_RGB, Image::UInt8},
        {"b.jpeg", jpegOf(smoothImage(17, 9, LS_Luminance)), LS_Luminance, Image::UInt8},
        {"c.png", pngOf(randomImage(17, 9, LS_RGBA)), LS_RGBA, Image::UInt8},
        {"d.png", pngOf(randomImage(17, 9, LS_LuminanceAlpha)), LS_LuminanceAlpha, Image::UInt8},
        {"e.png", pngOf(randomImage(17, 9, LS_RGB, Image::UInt16)), LS_RGB, Image::UInt16},
        {"f.cprs",
         SO<CompressedImage>(new CompressedImage(CompressedImage::DXT1, smoothImage(17, 9, LS_RGB).get()))
             ->rawData(),
         LS_RGB, Image::UInt8},
    };
    for (const Case & c : cases) {
        SCOPED_TRACE(c.name);
        for (const bool inMemory : {false, true}) {
            const SO<EncodedImage> image(inMemory ? new EncodedImage(c.data, c.name)
                                                  : new EncodedImage(written(c.name, c.data)));
            EXPECT_EQ(image->width(), 17);
            EXPECT_EQ(image->height(), 9);
            EXPECT_EQ(image->dataType(), c.type);
            EXPECT_FALSE(image->isDecoded());
            const SO<Image> expected = image->decoded();
            ASSERT_TRUE(expected);
            EXPECT_EQ(image->layerSequence(), expected->layerSequence());
            EXPECT_TRUE(std::string(c.name) == "f.cprs" || image->layerSequence() == c.layers);
            EXPECT_TRUE(samePixels(*image, *expected));
            EXPECT_TRUE(image->failure().empty());
        }
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(EncodedImageTest, IsKnownByItsPathOrName) {
    const SO<DataResource> data = pngOf(randomImage(3, 2, LS_RGB));
    const SO<EncodedImage> inFile(new EncodedImage(written("wall.png", data)));
    EXPECT_EQ(inFile->fileName(), path("wall.png"));
    EXPECT_EQ(inFile->name(), path("wall.png"));
    EXPECT_FALSE(inFile->data());
    const SO<EncodedImage> inMemory(new EncodedImage(data, "*0"));
    EXPECT_EQ(inMemory->fileName(), "");
    EXPECT_EQ(inMemory->name(), "*0");
    EXPECT_EQ(inMemory->data(), data);
}

TEST_F(EncodedImageTest, LetsPixelsGoAndDecodesThemAgain) {
    const SO<MemoryImage> picture = randomImage(5, 4, LS_RGB);
    const SO<EncodedImage> image(new EncodedImage(written("a.png", pngOf(picture))));
    EXPECT_TRUE(samePixels(*image, *picture));
    EXPECT_TRUE(image->isDecoded());
    const SO<Image> held = image->decoded();
    image->releasePixels();
    EXPECT_FALSE(image->isDecoded());
    EXPECT_TRUE(samePixels(*held, *picture));
    EXPECT_TRUE(samePixels(*image, *picture));
    EXPECT_NE(image->decoded(), held);
}

TEST_F(EncodedImageTest, PixelsAreReadOnly) {
    const SO<EncodedImage> image(new EncodedImage(pngOf(randomImage(5, 4, LS_RGB)), "a"));
    EXPECT_FALSE(image->isWritable());
    const SO<Image> copy = image->uncompressed(true);
    EXPECT_TRUE(samePixels(*copy, *image));
    EXPECT_TRUE(copy->isWritable());
}

TEST_F(EncodedImageTest, AFileThatIsMissingIsOneTexelAndReportedOnce) {
    const RecordedReports reports;
    const SO<EncodedImage> image(new EncodedImage(path("none.png")));
    EXPECT_EQ(image->width(), 1);
    EXPECT_EQ(image->height(), 1);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(image->lineComponents(0));
        EXPECT_NEAR(image->getColor(0, 0)[0], 0.8F, 0.01F);
        EXPECT_EQ(image->getColor(0, 0)[3], 1.0F);
        image->releasePixels();
    }
    EXPECT_FALSE(image->decoded());
    EXPECT_EQ(reports.count(2, L"false",
                            L"texture " + StringUtils::Utf8String2WString(path("none.png")) +
                                L" is left out: file not found"),
              1U)
        << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;
}

TEST_F(EncodedImageTest, WhatIsNoImageIsOneTexelAndSaysWhichFormatsAreRead) {
    const RecordedReports reports;
    const SO<EncodedImage> image(
        new EncodedImage(resourceOf(bytesOf(*pngOf(randomImage(9, 9, LS_RGB))), 7), "x"));
    EXPECT_EQ(image->width(), 1);
    EXPECT_EQ(reports.size(), 1U) << reports;
    EXPECT_EQ(reports.last().message,
              L"texture x is left out: is no JPEG, PNG, BMP or TGA file; convert it to one of these");
    EXPECT_EQ(image->failure(), L"is no JPEG, PNG, BMP or TGA file; convert it to one of these");
}

TEST_F(EncodedImageTest, WhoKnewTheSizeOfADamagedFileStillFindsItsLines) {
    const RecordedReports reports;
    const SO<DataResource> data = pngOf(randomImage(50, 40, LS_RGBA));
    const SO<EncodedImage> image(new EncodedImage(resourceOf(bytesOf(*data), data->size() / 2), "x"));
    EXPECT_TRUE(reports.empty()) << reports;
    const int width = image->width(), height = image->height();
    EXPECT_EQ(width, 50);
    EXPECT_EQ(height, 40);
    for (int y = 0; y < height; ++y) {
        const unsigned char * line = image->lineComponentsU8(y);
        ASSERT_TRUE(line);
        for (int i = 0; i < 4 * width; ++i)
            ASSERT_EQ(line[i], i % 4 == 3 ? 255 : 204);
    }
    EXPECT_EQ(image->width(), 1);
    EXPECT_EQ(image->height(), 1);
    EXPECT_EQ(reports.count(L"texture x is left out: is damaged; get it anew"), 1U);
    EXPECT_EQ(reports.size(), 1U) << reports;
}

TEST_F(EncodedImageTest, AFileThatVanishesLaterIsReportedOnce) {
    const RecordedReports reports;
    const SO<EncodedImage> image(new EncodedImage(written("a.png", pngOf(randomImage(5, 4, LS_RGB)))));
    EXPECT_TRUE(image->decoded());
    image->releasePixels();
    File::remove(path("a.png"));
    EXPECT_FALSE(image->decoded());
    EXPECT_FALSE(image->decoded());
    EXPECT_EQ(reports.size(), 1U) << reports;
    EXPECT_EQ(image->width(), 1);
}

TEST_F(EncodedImageTest, AFileThatBecomesAnotherPictureKeepsSizeAndLayers) {
    const SO<EncodedImage> image(new EncodedImage(written("a.png", pngOf(randomImage(5, 4, LS_RGB)))));
    for (const SO<MemoryImage> & other :
         {SO<MemoryImage>(new MemoryImage(100, 100, LS_Luminance)),
          SO<MemoryImage>(new MemoryImage(7, 4, LS_RGB)), SO<MemoryImage>(new MemoryImage(5, 9, LS_RGB)),
          SO<MemoryImage>(new MemoryImage(5, 4, LS_RGBA)),
          SO<MemoryImage>(new MemoryImage(5, 4, LS_RGB, Image::UInt16))}) {
        written("a.png", pngOf(other));
        image->releasePixels();
        EXPECT_EQ(image->width(), 5);
        EXPECT_EQ(image->layerSequence(), LS_RGB);
        const SO<Image> pixels = image->decoded();
        ASSERT_TRUE(pixels);
        EXPECT_EQ(pixels->width(), 5);
        EXPECT_EQ(pixels->height(), 4);
        EXPECT_EQ(pixels->layerSequence(), LS_RGB);
        EXPECT_EQ(pixels->dataType(), Image::UInt8);
        EXPECT_EQ(image->getColor(4, 3), Color::black);
    }
}

TEST_F(EncodedImageTest, LargeClaimsAreRefusedWithoutMemory) {
    struct Case {
        unsigned width, height;
        bool isRefused;
    };
    for (const Case & c : {Case{30000, 30000, true}, Case{40000, 1, true}, Case{1, 40000, true},
                           Case{16384, 16384, false}, Case{32768, 8192, false}, Case{32768, 8193, true}}) {
        const RecordedReports reports;
        const SO<EncodedImage> image(new EncodedImage(claim(c.width, c.height, 100), "large"));
        EXPECT_EQ(image->width() == 1 && image->height() == 1, c.isRefused) << c.width << " " << c.height;
        EXPECT_EQ(reports.size(), c.isRefused ? 1U : 0U) << reports;
        if (c.isRefused) {
            EXPECT_EQ(reports.last().message, L"texture large is left out: has " + std::to_wstring(c.width) +
                                                  L" by " + std::to_wstring(c.height) +
                                                  L" pixels, which are too many; make it smaller");
        }
        EXPECT_FALSE(image->decoded()); // its bytes could never hold so many
    }
}

TEST_F(EncodedImageTest, LinesOutsideAreReported) {
    RecordedReports reports;
    const SO<EncodedImage> image(new EncodedImage(pngOf(randomImage(5, 4, LS_RGB)), "a"));
    EXPECT_FALSE(std::as_const(*image).lineComponents(4));
    EXPECT_FALSE(std::as_const(*image).lineComponents(-1));
    EXPECT_EQ(reports.size(), 2U) << reports;
}

TEST_F(EncodedImageTest, SeveralThreadsDecodeItOnce) {
    const SO<MemoryImage> picture = randomImage(300, 200, LS_RGB);
    const SO<EncodedImage> image(new EncodedImage(pngOf(picture), "a"));
    std::vector<SO<Image>> seen(4);
    std::vector<std::thread> threads;
    for (SO<Image> & place : seen)
        threads.emplace_back([&place, &image] { place = image->decoded(); });
    for (std::thread & thread : threads)
        thread.join();
    for (const SO<Image> & place : seen)
        EXPECT_EQ(place, seen[0]);
    EXPECT_TRUE(samePixels(*seen[0], *picture));
}

TEST_F(EncodedImageTest, IsStoredByItsPathOrItsBytes) {
    const SO<MemoryImage> picture = randomImage(5, 4, LS_RGB);
    const SO<DataResource> data = pngOf(picture);
    const SO<EncodedImage> inFile = roundTrip(SO<EncodedImage>(new EncodedImage(written("a.png", data))));
    ASSERT_TRUE(inFile);
    EXPECT_EQ(inFile->fileName(), path("a.png"));
    EXPECT_TRUE(samePixels(*inFile, *picture));
    const SO<EncodedImage> inMemory = roundTrip(SO<EncodedImage>(new EncodedImage(data, "b")));
    ASSERT_TRUE(inMemory);
    EXPECT_EQ(inMemory->name(), "b");
    EXPECT_EQ(inMemory->fileName(), "");
    EXPECT_TRUE(samePixels(*inMemory, *picture));
}
